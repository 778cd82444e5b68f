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

/// A host that goes on whatever the results are; its encoder makes one stream after the other.
struct fault_host {
    stream how;
    std::uint32_t chunk;
    bool good = true; ///< everything but the end of the first stream succeeded

    fault_host(const stream &settings, std::uint32_t chunk_bytes) : how(settings), chunk(chunk_bytes) {}
    virtual ~fault_host() = default;
    virtual frames live(bytes pcm, fake_output &output) = 0;

    frames live() {
        fake_output output(chunk);
        if (plan.kind == fault::request) output.refused_request = plan.at - 1;
        if (plan.kind == fault::commit) output.short_commit = plan.at - 1;
        output.for_good = plan.onwards;
        const frames got = live(how.pcm(6 * how.frame_samples()), output);
        EXPECT_FALSE(output.overrun);
        if (output.failed) plan.seen = plan.at;
        return got;
    }

    /// 4.5 frames, a flush, 1.5 frames.
    void feed(bytes pcm, const std::function<i32(bytes)> &put) {
        const auto part = pcm.size() / 4;
        for (const bytes &now : {pcm.first(part), pcm.subspan(part, 2 * part), bytes{}, pcm.last(part)})
            good &= put(now) == 0;
    }
};

struct function_host : fault_host {
    using fault_host::fault_host;
    encoder_pointer encoder{nullptr, mpegOutAudioFree};

    frames live(bytes pcm, fake_output &output) override {
        if (encoder == nullptr) encoder = make_encoder(how, fake_host::lookup);
        good &= mpegOutAudioInit(encoder.get(), &output) == 0;
        feed(pcm, [&](bytes now) { return put(encoder.get(), now); });
        mpegOutAudioDone(encoder.get(), 0);
        return output.frames;
    }
};

template <bool pushes>
struct engine_host : fault_host {
    using fault_host::fault_host;
    std::optional<user> engine;

    frames live(bytes pcm, fake_output &output) override {
        sink taker;
        taker.hook = [&](char) { taker.result = plan.strikes(fault::call) ? -1 : 0; };
        if (!engine || engine->engine == nullptr) engine.emplace();
        if (engine->engine == nullptr) return good = false, frames{};
        engine->configure(how);
        good &= (pushes ? engine->bind(taker) : engine->text("init::output::bufstream", &output)) == 0;
        feed(pcm, [&](bytes now) { return engine->put(now.data(), static_cast<i32>(now.size())); });
        engine->set("command::done", 0);
        return pushes ? taker.frames : output.frames;
    }
};

template <class Host>
std::unique_ptr<fault_host> make(const stream &how, std::uint32_t chunk) {
    return std::make_unique<Host>(how, chunk);
}

const std::vector<fault> with_blocks{fault::allocation, fault::request, fault::commit};

struct way {
    const char *name;
    std::unique_ptr<fault_host> (*make)(const stream &, std::uint32_t chunk);
    bool has_malloc; ///< the host's own functions are used
    std::vector<fault> kinds;
};

class faults : public testing::TestWithParam<way> {
  protected:
    /// @return whether the fault struck
    static bool survives(const stream &how, std::uint32_t chunk, const fault_plan &wanted) {
        fake_host &seen = fake_host::reset();
        seen.has_malloc = seen.has_free = GetParam().has_malloc;
        const int before = blocks;
        {
            const auto host = GetParam().make(how, chunk);
            plan = wanted;
            const frames first = host->live();
            plan.kind = fault::none;
            const bool reported = !host->good;
            const frames second = host->live();
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
            for (const fault kind : GetParam().kinds)
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

INSTANTIATE_TEST_SUITE_P(
    by, faults,
    testing::Values(
        way{"functions", make<function_host>, false, with_blocks},
        way{"functions_with_an_allocator", make<function_host>, true, {fault::allocation}},
        way{"engine", make<engine_host<false>>, false, with_blocks},
        way{"engine_with_a_sink", make<engine_host<true>>, false, {fault::allocation, fault::call}}),
    [](const auto &made) { return made.param.name; });

} // namespace
} // namespace mp1a_test
