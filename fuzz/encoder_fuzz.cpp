// Random hosts of the functions: settings good and bad, PCM of any bytes and any floats in pieces of any
// size, blocks of any size, hosts that refuse, truncate and call back. Every level gives the same calls and bytes,
// and every frame that was accepted whole is one by the standard's syntax, its CRC included.
#include "host/encoding.hpp"
#include "judged_frame.hpp"
#include "random_settings.hpp"

#include <cfenv>

namespace {

using namespace mp1a_test;
using fuzz::expect;

/// One call: Done, Init, a flush or samples.
struct step {
    int kind;
    std::vector<std::uint8_t> pcm;
};

/// What a host does, the same for every level.
struct script {
    explicit script(fuzz::byte_source from) : settings(fuzz::read_settings(from)) {
        const std::int32_t rates[] = {32000, 44100, 48000, from.about(0, 100)};
        rate = rates[from.below(16) == 15 ? 3 : from.below(3)];
        format = from.below(8);
        preset = from.about(0, 19);
        options = from.about(0, 3);
        for (std::uint32_t &chunk : chunks) {
            const std::uint32_t sizes[] = {4096, 4096, 1700 + from.below(60U), 24 * from.below(91U)};
            chunk = sizes[from.below(4)];
        }
        failure = from.below(8);
        at = from.below(8);
        calls_back = from.below(4) == 0;
        has_allocator = from.below(2) != 0;
        memory_is_out = has_allocator && from.below(32) == 31;
        while (steps.size() < most_calls && !from.empty()) {
            const int kind = from.below(64);
            steps.push_back({kind, read_pcm(from)});
        }
    }

    mpeg_a_settings settings;
    std::int32_t rate, preset, options;
    int format, failure, at;
    std::uint32_t chunks[2]; ///< of the first half of the calls and of the second
    bool calls_back, has_allocator, memory_is_out;
    std::vector<step> steps;

  private:
    static constexpr std::size_t most_calls =
        24; ///< enough to reach everything; more would only take time

    /// A signal at any level, or any bytes, which are floats of any kind too.
    std::vector<std::uint8_t> read_pcm(fuzz::byte_source &from) const {
        const std::size_t kind = from.below(std::size_t{16});
        if (kind < std::size(all_waveforms)) {
            const int length = from.below(3000), quieter = 2 * from.below(32);
            auto signal = make_signal(all_waveforms[kind], length, from.below(256U));
            for (float &sample : signal)
                sample = std::ldexp(sample, -quieter);
            return pcm_bytes(signal, format == 3 || format == 4 ? format : 2);
        }
        const auto some = from.take(from.below(std::size_t{256}));
        std::vector<std::uint8_t> bytes;
        for (std::size_t repeats = kind % 2 == 0 ? 40 : 1; repeats > 0; --repeats)
            bytes.insert(bytes.end(), some.begin(), some.end());
        return bytes;
    }
};

/// What others left on the stack must not matter: it differs from level to level.
[[gnu::noinline]] void soil_stack(vela::level level) {
    std::uint8_t below[32768];
    std::memset(below, 0xFF - 0x5B * static_cast<int>(level), sizeof below);
    asm volatile("" : : "r"(below) : "memory");
}

/// PCM at any address, with nothing behind it.
std::int32_t put_copy(mpeg_a_encoder *encoder, const step &now) {
    const auto offset = static_cast<std::size_t>(now.kind % 8), size = offset + now.pcm.size();
    const auto block = std::make_unique<std::uint8_t[]>(size);
    std::ranges::copy(now.pcm, block.get() + offset);
    return put(encoder, {block.get() + offset, now.pcm.size()});
}

/// Says the same of a record in every way that there is. @return whether an encoder can be made of it
bool is_usable(const script &how, const fake_host &lent) {
    const auto check = [&](int preset, int options) {
        return mpegOutAudioChkSettings(fake_host::lookup, &how.settings, preset, how.rate, options, 0);
    };
    const bool usable = check(0, MPEG_A_CHECK_GENERIC_ONLY) == 0;
    const auto of_format = static_cast<std::int32_t>(check(how.preset, how.options));
    expect(usable == (of_format <= MPEG_A_LAST_FORMAT_CODE), "two verdicts on one record");
    for (const std::string &message : lent.messages)
        expect(message.size() > 5 && message[0] == 'A' && message[4] == ':', "no message");
    return usable;
}

/// The output and every result.
struct outcome {
    fake_output output;
    std::vector<std::int32_t> results;
};

std::unique_ptr<outcome> run(const script &how, vela::level level) {
    auto got = std::make_unique<outcome>();
    fake_output &output = got->output;
    std::vector<std::int32_t> &results = got->results;
    fake_host &lent = fake_host::reset();
    lent.has_malloc = lent.has_free = how.has_allocator;
    lent.malloc_fails = how.memory_is_out;
    const bool usable = is_usable(how, lent);
    const encoder_pointer owner(
        mpegOutAudioNew(fake_host::lookup, &how.settings, 0, how.format, how.rate), mpegOutAudioFree);
    mpeg_a_encoder *const encoder = owner.get();
    expect((encoder != nullptr) == (usable && !how.memory_is_out), "New and ChkSettings disagree");
    if (encoder == nullptr) return got;
    if (how.failure % 4 == 1) output.refused_request = how.at;
    if (how.failure % 4 == 2) output.short_commit = how.at;
    output.for_good = how.failure >= 4;
    if (how.calls_back)
        output.hook = [&] { // everything that is refused while a call runs; Free is ignored
            expect(put(encoder, {}) == 2 && mpegOutAudioInit(encoder, &output) == 2
                       && mpegOutAudioDone(encoder, 0) == 2,
                   "a call back was not refused");
            mpegOutAudioFree(encoder);
        };
    bool is_open = false;
    for (const step &now : how.steps) {
        output.chunk = how.chunks[2 * results.size() / how.steps.size()];
        if (now.kind == 62) {
            expect(mpegOutAudioDone(encoder, how.failure % 2) == 0, "Done failed");
            is_open = false;
        } else if (now.kind == 63 || (!is_open && now.kind != 61)) {
            output.failed = false;
            expect(encoder->init(&output, level) == 0, "Init failed");
            is_open = true;
        }
        soil_stack(level);
        results.push_back(now.kind >= 60 ? put(encoder, {}) : put_copy(encoder, now));
        const bool may_fail = output.failed || std::ranges::min(how.chunks) <= MPEG_A_MAX_FRAME_BYTES;
        expect(results.back() == 0 || (results.back() == 2 && (!is_open || may_fail)),
               "PutBytes failed without a reason");
        expect(is_open || results.back() == 2, "PutBytes went on after Done");
    }
    expect(mpegOutAudioDone(encoder, 0) == 0, "Done failed");
    return got;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const script how(fuzz::byte_source({data, size}));
    const auto reference = run(how, vela::level::reference);
    fuzz::judge_frames(reference->output,
                       how.failure % 4 != 0 || std::ranges::min(how.chunks) <= MPEG_A_MAX_FRAME_BYTES);
    // The host's rounding must not matter either.
    constexpr int roundings[] = {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO, FE_TONEAREST};
    for (const vela::level level : levels()) {
        std::fesetround(roundings[how.at % 4]);
        const auto other = run(how, level);
        std::fesetround(FE_TONEAREST);
        expect(other->results == reference->results && other->output.calls == reference->output.calls
                   && other->output.stream == reference->output.stream,
               "a level gives another stream");
    }
    return 0;
}
