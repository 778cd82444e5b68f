// Memory that runs out at each of the engine's own allocations.
#include "engine/raw_calls.hpp"
#include "engine/sink.hpp"
#include "vela_enc_mp1a/engine.h"

#include <gtest/gtest.h>
#include <vector>

namespace {
int failing = -1; ///< this allocation, counted from 0, fails; -1: none
}

// The linker puts these two in front of the allocator.
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_malloc(std::size_t size) {
    return failing >= 0 && failing-- == 0 ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return failing >= 0 && failing-- == 0 ? nullptr : __real_calloc(count, size);
}
}

namespace mp1a_test {
namespace {

TEST(engine_memory, running_out_is_a_result_and_leaves_the_old_binding) {
    failing = 0;
    EXPECT_EQ(get_encMP1A(), nullptr);
    handle engine(get_encMP1A());
    handle params(engine.object, params_identifier), data(engine.object, data_identifier);
    sink refused;
    fake_output output;
    params.text("init::output::bufstream", &output);
    for (const int allocation : {0, 1}) {
        failing = allocation;
        EXPECT_EQ(params.bind(refused), -1) << allocation;
    }
    EXPECT_EQ(refused.calls, "");
    const std::vector<std::uint8_t> pcm(4608);
    failing = 0;
    EXPECT_EQ(data.put(pcm.data(), 1, 4608), -1);
    EXPECT_EQ(data.put(pcm.data(), 1, 4608), 0);
    EXPECT_EQ(output.frames.size(), 1u);
}

} // namespace
} // namespace mp1a_test
