// Random hosts of the functions: settings good and bad, PCM of any bytes and any floats in pieces of any
// size, blocks of any size, hosts that refuse, truncate and call back. Every level gives the same bytes,
// and every frame that was accepted whole is one by the standard's syntax, its CRC included.
#include "api/encoder.hpp"
#include "byte_source.hpp"
#include "lent_blocks.hpp"
#include "random_settings.hpp"

#include <bit>
#include <cfenv>
#include <cmath>
#include <cstdarg>
#include <limits>
#include <memory>
#include <vector>

namespace {

using fuzz::expect;

/// How an output behaves; a count that is never reached stands for never.
struct habits {
    std::uint32_t chunks[2]; ///< what it answers in turn
    std::int64_t refused_request, short_commit;
    bool for_good; ///< from that request or commit on, instead of once
    std::uint32_t missing;
    bool calls_back;
};

habits read_habits(fuzz::byte_source &from) {
    const auto chunk = [&]() -> std::uint32_t {
        switch (from.below(5)) {
        case 0:
            return static_cast<std::uint32_t>(from.about(1700, 1760)) % 65536;
        case 1:
            return 24 * static_cast<std::uint32_t>(from.below(91));
        default:
            return 4096;
        }
    };
    const std::uint32_t usual = chunk();
    constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();
    habits habits{.chunks = {usual, from.below(4) == 0 ? chunk() : usual},
                  .refused_request = never,
                  .short_commit = never,
                  .for_good = false,
                  .missing = 1,
                  .calls_back = from.below(4) == 0};
    const int failure = from.below(8);
    habits.for_good = (failure & 4) != 0;
    if (failure % 4 == 1) habits.refused_request = from.below(8);
    if (failure % 4 == 2) {
        habits.short_commit = from.below(8);
        habits.missing = static_cast<std::uint32_t>(from.about(1, 200));
    }
    return habits;
}

struct output final : fuzz::lent_blocks {
    explicit output(const habits &how) : habits_(how) {}

    /// Before an Init.
    void start_afresh() {
        failed = false;
        frame.clear();
    }

    std::uint32_t next_chunk() override {
        call_back();
        return habits_.chunks[chunks_told++ % 2];
    }
    bool refuses_request() override {
        call_back();
        return strikes(requests++, habits_.refused_request);
    }
    std::uint32_t accept(std::uint32_t n) override {
        expect(!failed || n == 0, "bytes were committed after a failure");
        call_back();
        if (!strikes(commits++, habits_.short_commit)) return n;
        return n == 0 ? 1 : n - 1 - habits_.missing % n;
    }
    void inform() override { call_back(); }
    void see_frame(bool whole) override {
        stream.insert(stream.end(), frame.begin(), frame.end());
        expect(whole || may_fail(), "less than a frame was delivered");
    }

    bool may_fail() const {
        return failed || std::min(habits_.chunks[0], habits_.chunks[1]) <= MPEG_A_MAX_FRAME_BYTES;
    }

    mpeg_a_encoder *encoder = nullptr;
    std::vector<std::uint8_t> stream;

  private:
    bool strikes(std::int64_t now, std::int64_t at) const {
        return now == at || (habits_.for_good && now > at);
    }
    /// Everything that is refused while a call runs; Free is ignored.
    void call_back() {
        if (!habits_.calls_back || encoder == nullptr) return;
        expect(mpegOutAudioPutBytes(encoder, nullptr, 0) == 2 && mpegOutAudioInit(encoder, this) == 2
                   && mpegOutAudioDone(encoder, 0) == 2,
               "a call back was not refused");
        mpegOutAudioFree(encoder);
    }

    habits habits_;
    std::int64_t requests = 0, commits = 0;
    std::size_t chunks_told = 0;
};

/// The functions that a host may lend; what they do is the input's.
struct lent_functions {
    static inline bool has_allocator = false, memory_is_out = false;

    static void *lookup(const char *name) {
        if (std::strcmp(name, "err_printf") == 0) return reinterpret_cast<void *>(print);
        if (!has_allocator) return nullptr;
        if (std::strcmp(name, "malloc") == 0) return reinterpret_cast<void *>(allocate);
        if (std::strcmp(name, "free") == 0) return reinterpret_cast<void *>(release);
        return nullptr;
    }

  private:
    static int print(const char *format, ...) {
        char text[256];
        va_list arguments;
        va_start(arguments, format);
        const int length = std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        expect(length > 5 && length < 256 && text[0] == 'A' && text[4] == ':', "no message");
        return 0;
    }
    /// Memory that was used before.
    static void *allocate(std::size_t size) {
        void *const block = memory_is_out ? nullptr : std::malloc(size);
        if (block != nullptr) std::memset(block, 0xA5, size);
        return block;
    }
    static void release(void *block) { std::free(block); }
};

/// Floats as bits: no numbers, no ends, next to nothing, full scale and beyond.
constexpr std::uint32_t odd_floats[] = {0x7FC00000, 0xFF800001, 0x7F800000, 0xFF800000, 0x7F7FFFFF,
                                        0xFF7FFFFF, 0x00000001, 0x807FFFFF, 0x00800000, 0x80000000,
                                        0x3F800000, 0xBF800000, 0x3F7FFFFF, 0x3F800001, 0x4F000000,
                                        0xDF000000, 0x33800000, 0xB8000000, 0x5F800000, 0x1F800000};

void append(std::vector<std::uint8_t> &to, std::uint32_t word, int bytes) {
    for (int i = 0; i < bytes; ++i)
        to.push_back(static_cast<std::uint8_t>(word >> 8 * i & 0xFF));
}

/// Noise at a level of the input's choice, as samples of the format.
void append_noise(std::vector<std::uint8_t> &to, fuzz::byte_source &from, int sample_bytes) {
    std::uint64_t state = 1 + from.value<std::uint8_t>();
    const int quieter = from.below(32);
    const int samples = 1 + from.below(1400);
    for (int i = 0; i < samples; ++i) {
        state = state * 48271 % 0x7FFFFFFF;
        // 24 bits: a float has them all, whatever the rounding
        const auto value = static_cast<std::int32_t>(state >> 7) - 0x7FFFFF;
        if (sample_bytes == 4) {
            const float scaled = std::ldexp(static_cast<float>(value), -15 - 2 * quieter);
            append(to, std::bit_cast<std::uint32_t>(scaled), 4);
        } else {
            append(to, static_cast<std::uint32_t>(value >> quieter >> (24 - 8 * sample_bytes)),
                   sample_bytes);
        }
    }
}

std::vector<std::uint8_t> read_piece(fuzz::byte_source &from, int sample_bytes) {
    std::vector<std::uint8_t> piece;
    const int kind = from.below(8);
    if (kind == 7) return piece;
    if (kind >= 5) {
        append_noise(piece, from, sample_bytes);
        return piece;
    }
    const auto seed = from.take(1 + static_cast<std::size_t>(from.below(256)));
    const int repeats = kind % 2 == 0 ? 40 : 1;
    for (int i = 0; i < repeats; ++i) {
        if (kind < 3) {
            piece.insert(piece.end(), seed.begin(), seed.end());
        } else {
            for (const std::uint8_t pick : seed)
                append(piece, odd_floats[pick % std::size(odd_floats)], 4);
        }
    }
    return piece;
}

/// What others left on the stack must not matter: it differs from level to level.
[[gnu::noinline]] void soil_stack(vela::level level) {
    std::uint8_t below[32768];
    std::memset(below, 0xFF - 0x5B * static_cast<int>(level), sizeof below);
    asm volatile("" : : "r"(below) : "memory");
}

/// PCM at any address, with nothing behind it.
std::int32_t put(mpeg_a_encoder *encoder, const std::vector<std::uint8_t> &piece, std::size_t offset) {
    const auto block = std::make_unique<std::uint8_t[]>(offset + piece.size());
    std::copy(piece.begin(), piece.end(), block.get() + offset);
    return mpegOutAudioPutBytes(encoder, block.get() + offset,
                                static_cast<std::uint32_t>(piece.size()));
}

/// Says the same of a record in every way that there is. @return whether an encoder can be made of it
bool is_usable(const mpeg_a_settings &settings, std::int32_t rate, fuzz::byte_source &from) {
    const auto generic = mpegOutAudioChkSettings(lent_functions::lookup, &settings, 0, rate,
                                                 MPEG_A_CHECK_GENERIC_ONLY, 0);
    const auto with_format = mpegOutAudioChkSettings(lent_functions::lookup, &settings,
                                                     from.about(0, 19), rate, from.about(0, 3), 0);
    expect((generic == 0) == (with_format <= MPEG_A_LAST_FORMAT_CODE), "two verdicts on one record");
    return generic == 0;
}

/// Enough to reach everything; more would only take time.
constexpr int most_calls = 24;

/// The same calls for every level. @return the stream and every result
std::vector<std::uint8_t> run(std::span<const std::uint8_t> bytes, vela::level level) {
    fuzz::byte_source from(bytes);
    const mpeg_a_settings settings = fuzz::read_settings(from);
    const std::int32_t rates[] = {32000, 44100, 48000, from.about(0, 100)};
    const std::int32_t rate = rates[from.below(16) == 15 ? 3 : from.below(3)];
    const int format = from.below(8), sample_bytes = format == 3 || format == 4 ? format : 2;
    output out(read_habits(from));
    lent_functions::has_allocator = from.below(2) != 0;
    lent_functions::memory_is_out = from.below(32) == 31;

    const bool usable = is_usable(settings, rate, from);
    mpeg_a_encoder *const encoder = mpegOutAudioNew(lent_functions::lookup, &settings, 0, format, rate);
    expect((encoder != nullptr)
               == (usable && !(lent_functions::has_allocator && lent_functions::memory_is_out)),
           "New and ChkSettings disagree");
    if (encoder == nullptr) return {};
    out.encoder = encoder;
    std::vector<std::uint8_t> results;
    bool is_open = false;
    for (int calls = 0; calls < most_calls && !from.empty(); ++calls) {
        const auto pcm = read_piece(from, sample_bytes);
        const int step = from.below(64);
        if (step == 62) {
            expect(mpegOutAudioDone(encoder, from.below(2)) == 0, "Done failed");
            is_open = false;
        } else if (step == 63 || (!is_open && step != 61)) {
            out.start_afresh();
            expect(encoder->init(&out, level) == 0, "Init failed");
            is_open = true;
        }
        soil_stack(level);
        const auto result = step >= 60 ? mpegOutAudioPutBytes(encoder, nullptr, 7)
                                       : put(encoder, pcm, static_cast<std::size_t>(step) % 8);
        if (is_open)
            expect(result == 0 || (result == 2 && out.may_fail()), "PutBytes failed without a reason");
        else
            expect(result == 2, "PutBytes went on after Done");
        results.push_back(static_cast<std::uint8_t>(result));
    }
    expect(mpegOutAudioDone(encoder, from.below(2)) == 0, "Done failed");
    mpegOutAudioFree(encoder);
    results.insert(results.end(), out.stream.begin(), out.stream.end());
    return results;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto reference = run({data, size}, vela::level::reference);
    // The host's rounding must not matter either.
    constexpr int roundings[] = {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO};
    const int rounding = size > 0 && data[size - 1] % 4 == 3 ? roundings[data[0] % 3] : FE_TONEAREST;
    for (const vela::level level : vela::all_levels) {
        if (level == vela::level::reference || !vela::is_supported(level)) continue;
        std::fesetround(rounding);
        const auto stream = run({data, size}, level);
        std::fesetround(FE_TONEAREST);
        expect(stream == reference, "a level gives another stream");
    }
    return 0;
}
