// Counting from many threads. Needs no encoder, so that it can be built with -fsanitize=thread alone.
#include "engine/engine_base.hpp"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr int threads = 4;

/// Each thread writes its place without a lock; the destructor must see all of them.
struct shared final : vela::EngineBase {
    ~shared() override {
        for (const int place : places)
            sum += place;
    }

    static inline int sum = 0;
    int places[threads]{};
    vela::OnMemberT<API_GetSetParamStr> member{this};
};

TEST(engine_counting, no_reference_is_lost_and_the_last_release_comes_once_after_everybodys_work) {
    for (int n = 0; n < 20; ++n) {
        shared::sum = 0;
        std::atomic<int> last = 0;
        auto *const object = new shared;
        for (int i = 1; i < threads; ++i)
            object->AddRef();
        std::vector<std::jthread> running;
        for (int i = 0; i < threads; ++i) {
            running.emplace_back([&last, object, i] {
                IEngine *const counted = i % 2 == 0 ? static_cast<IEngine *>(object) : &object->member;
                for (int round = 0; round < 40000; ++round)
                    round < 20000 ? counted->AddRef() : counted->Release();
                object->places[i] = 1 << i;
                if (counted->Release() == 0) ++last;
            });
        }
        running.clear();
        ASSERT_EQ(shared::sum, (1 << threads) - 1);
        ASSERT_EQ(last, 1);
    }
}

} // namespace
