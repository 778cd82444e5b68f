// The k-th allocation, request, commit or call of a sink fails, for every k, that one or all from it.
#include "engine/engine_host.hpp"
#include "parser/frame_parser.hpp"

#include <optional>

namespace {

enum class fault { none, allocation, request, commit, call };

struct fault_plan {
    fault kind = fault::none;
    int at = 1;
    bool onwards = false;
    int seen = 0;

    bool strikes(fault now) { return now == kind && (++seen == at || (onwards && seen > at)); }
} plan;

int blocks = 0; ///< allocated and not freed

} // namespace

// The linker leads here what the core and this file allocate; the runtime's own goes on unharmed.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void __real_free(void *block);
void *__wrap_malloc(std::size_t size) {
    return plan.strikes(fault::allocation) ? nullptr : (++blocks, __real_malloc(size));
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return plan.strikes(fault::allocation) ? nullptr : (++blocks, __real_calloc(count, size));
}
void __wrap_free(void *block) {
    blocks -= block != nullptr ? 1 : 0;
    __real_free(block);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace mp1a_test {
namespace {

using bytes = std::span<const std::uint8_t>;
using frames = std::vector<delivered_frame>;

/// The ways in; the second one brings malloc and free.
enum way { functions, functions_with_an_allocator, engine, engine_with_a_sink };
constexpr const char *names[] = {"functions", "functions_with_an_allocator", "engine",
                                 "engine_with_a_sink"};
const std::vector<fault> kinds[] = {{fault::allocation, fault::request, fault::commit},
                                    {fault::allocation},
                                    {fault::allocation, fault::request, fault::commit},
                                    {fault::allocation, fault::call}};

/// A host that goes on whatever the results are; its encoder makes one stream after the other.
struct fault_host {
    stream how;
    std::uint32_t chunk;
    encoder_pointer encoder{nullptr, mpegOutAudioFree};
    std::optional<user> plugin;
    bool good = true; ///< everything but the end of the first stream succeeded

    fault_host(const stream &settings, std::uint32_t lent) : how(settings), chunk(lent) {}
    frames live(way by) {
        fake_output output(chunk);
        if (plan.kind == fault::request) output.refused_request = plan.at - 1;
        if (plan.kind == fault::commit) output.short_commit = plan.at - 1;
        output.for_good = plan.onwards;
        const frames got = by < engine ? by_functions(output) : by_engine(output, by != engine);
        EXPECT_FALSE(output.overrun);
        if (output.failed) plan.seen = plan.at;
        return got;
    }

  private:
    frames by_functions(fake_output &output) {
        if (encoder == nullptr) encoder = make_encoder(how, fake_host::lookup);
        good &= mpegOutAudioInit(encoder.get(), &output) == 0;
        feed([&](bytes now) { return put(encoder.get(), now); });
        mpegOutAudioDone(encoder.get(), 0);
        return output.frames;
    }
    frames by_engine(fake_output &output, bool pushes) {
        sink taker;
        taker.hook = [&](char) { taker.result = plan.strikes(fault::call) ? -1 : 0; };
        if (!plugin || plugin->engine == nullptr) plugin.emplace();
        if (plugin->engine == nullptr) return good = false, frames{};
        plugin->configure(how);
        good &= (pushes ? plugin->bind(taker) : plugin->text("init::output::bufstream", &output)) == 0;
        feed([&](bytes now) { return plugin->put(now.data(), static_cast<i32>(now.size())); });
        plugin->set("command::done", 0);
        return pushes ? taker.frames : output.frames;
    }
    /// 4.5 frames, a flush, 1.5 frames.
    void feed(const auto &put) {
        const auto input = how.pcm(6 * how.frame_samples());
        const bytes pcm = input;
        const auto part = pcm.size() / 4;
        for (const bytes &now : {pcm.first(part), pcm.subspan(part, 2 * part), bytes{}, pcm.last(part)})
            good &= put(now) == 0;
    }
};

class faults : public testing::TestWithParam<way> {
  protected:
    /// @return whether the fault struck
    static bool survives(const stream &how, std::uint32_t chunk, const fault_plan &wanted) {
        fake_host &seen = fake_host::reset();
        seen.has_malloc = seen.has_free = GetParam() == functions_with_an_allocator;
        const int before = blocks;
        {
            fault_host host(how, chunk);
            plan = wanted;
            const frames first = host.live(GetParam());
            plan.kind = fault::none;
            const bool reported = !host.good;
            const frames second = host.live(GetParam());
            judge(first, second, wanted, reported);
        }
        EXPECT_EQ(blocks, before) << "kept or freed twice";
        for (const auto &message : seen.messages)
            EXPECT_EQ(message, "A002:Could not write to audio file");
        return plan.seen >= wanted.at;
    }

    static void judge(frames first, const frames &second, const fault_plan &wanted, bool reported) {
        // A frame that fails is reported with the next one; the end reports nothing.
        EXPECT_EQ(reported, wanted.kind != fault::call && first.size() < 6) << first.size();
        // A host with short blocks that refuses one in the middle of a frame has the first part of it.
        if (!first.empty() && first.back().bytes.size() < first.back().info.length) first.pop_back();
        // 4 whole frames, what the flush completes, 1 more, what the end completes.
        EXPECT_EQ(second.size(), 7U) << "what failed before still fails";
        for (const frames &got : {first, second})
            for (const delivered_frame &frame : got)
                EXPECT_EQ(tools::parse_frame(frame.bytes).broken_rule(), "");
        // An engine without memory tries again with the next call, on what is left of the input.
        if (wanted.kind == fault::allocation) return;
        ASSERT_LE(first.size(), second.size());
        EXPECT_TRUE(std::equal(first.begin(), first.end(), second.begin()));
    }
};

TEST_P(faults, at_any_position_leave_whole_frames_and_an_encoder_for_the_next_stream) {
    const stream settings[] = {{2, MPEG_A_MODE_JOINT_STEREO, 11, 1, 48000},
                               {1, MPEG_A_MODE_MONO, 9, 1, 44100, 4, 0, 0, MPEG_A_MODEL_TUNED}};
    for (const stream &how : settings)
        for (const std::uint32_t chunk : {4096U, 1025U})
            for (const fault kind : kinds[GetParam()])
                for (const bool onwards : {false, true}) {
                    int at = 1;
                    while (survives(how, chunk, {kind, at, onwards}) && !HasFailure())
                        ++at;
                    EXPECT_GT(at, 1) << "nothing to fail";
                    ASSERT_FALSE(HasFailure())
                        << "layer " << how.layer << ", blocks of " << chunk << ", fault "
                        << static_cast<int>(kind) << " at " << at << (onwards ? " and on" : "");
                }
}

INSTANTIATE_TEST_SUITE_P(by, faults,
                         testing::Values(functions, functions_with_an_allocator, engine,
                                         engine_with_a_sink),
                         [](const auto &made) { return names[made.param]; });

} // namespace
} // namespace mp1a_test
