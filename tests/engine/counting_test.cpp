// Counting from many threads. Needs no encoder, so that it can be built with -fsanitize=thread alone.
#include "engine/engine_base.hpp"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace mp1a_test {
namespace {

constexpr int threads = 4, rounds = 50000;

class input final : public vela::OnMemberT<API_PutData> {
  public:
    using OnMemberT::OnMemberT;
    std::int32_t put_data(const void *, std::int32_t, std::int32_t) noexcept override { return 0; }
};

/// Each thread writes its place without a lock; the destructor must see all of them.
struct shared final : vela::EngineBase {
    explicit shared(std::atomic<int> &sum_of_places) : sum(sum_of_places) {}
    ~shared() override {
        for (const int place : places)
            sum += place;
    }

    std::atomic<int> &sum;
    std::array<int, threads> places{};
    input member{this};
};

void run_in_threads(const auto &work) {
    std::atomic<bool> start = false;
    std::vector<std::jthread> running;
    for (int i = 0; i < threads; ++i) {
        running.emplace_back([&, i] {
            start.wait(false);
            work(i);
        });
    }
    start = true;
    start.notify_all();
}

TEST(engine_counting, no_reference_is_lost_between_threads) {
    std::atomic<int> destroyed = 0;
    auto *const object = new shared(destroyed);
    run_in_threads([object](int i) {
        IEngine *const counted = i % 2 == 0 ? static_cast<IEngine *>(object) : &object->member;
        for (int n = 0; n < rounds; ++n)
            counted->AddRef();
        for (int n = 0; n < rounds; ++n)
            counted->Release();
    });
    EXPECT_EQ(object->AddRef(), 2);
    EXPECT_EQ(object->Release(), 1);
    EXPECT_EQ(object->Release(), 0);
}

TEST(engine_counting, the_last_release_comes_once_and_after_everybodys_work) {
    for (int n = 0; n < 200; ++n) {
        std::atomic<int> sum = 0, last = 0;
        auto *const object = new shared(sum);
        for (int i = 1; i < threads; ++i)
            object->AddRef();
        run_in_threads([&](int i) {
            object->places[static_cast<std::size_t>(i)] = 1 << i;
            IEngine *const counted = i % 2 == 0 ? static_cast<IEngine *>(object) : &object->member;
            if (counted->Release() == 0) ++last;
        });
        ASSERT_EQ(sum, (1 << threads) - 1);
        ASSERT_EQ(last, 1);
    }
}

TEST(engine_counting, what_has_no_interfaces_or_no_owner_says_so) {
    vela::EngineBase *const base = new vela::EngineBase;
    IEngine *holder = nullptr;
    EXPECT_EQ(base->QueryInterface(iid_IEngine, holder), -1);
    EXPECT_EQ(base->Release(), 0);
    input orphan(nullptr);
    EXPECT_EQ(orphan.AddRef(), 0);
    EXPECT_EQ(orphan.Release(), 0);
    EXPECT_EQ(orphan.QueryInterface(iid_API_PutData, holder), -1);
    EXPECT_EQ(holder, nullptr);
}

} // namespace
} // namespace mp1a_test
