// Random hosts of the functions: settings good and bad, any bytes as PCM in pieces of any size, blocks of
// any size, outputs that refuse and truncate. Every level gives the same bytes, and every frame that was
// accepted whole is one by the standard's syntax, its CRC included.
#include "api/encoder.hpp"
#include "byte_source.hpp"
#include "parser/frame_parser.hpp"

#include <memory>
#include <vector>

namespace {

using fuzz::expect;

/// Lends a block of its own for every request and takes it away at the commit, so that the address
/// sanitizer sees every byte that is written elsewhere or later.
struct output : bufstream {
    output(std::uint32_t chunk_bytes, std::uint32_t request_limit, bool short_commit)
        : bufstream{}, chunk(chunk_bytes), requests(request_limit), truncates(short_commit) {
        request = [](bufstream *self, std::uint32_t n) { return static_cast<output *>(self)->lend(n); };
        commit = [](bufstream *self, std::uint32_t n) { return static_cast<output *>(self)->take(n); };
        chunk_size = [](bufstream *self) { return static_cast<output *>(self)->chunk; };
        auxinfo = [](bufstream *self, std::uint32_t, std::uint32_t id, const void *data,
                     std::uint32_t size) {
            if (id == MPEG_A_FRAME_INFO) static_cast<output *>(self)->end_frame(data, size);
            return std::uint32_t{};
        };
    }

    std::uint8_t *lend(std::uint32_t n) {
        refused |= requests == 0;
        block = refused ? nullptr : std::make_unique<std::uint8_t[]>(n);
        --requests;
        return block.get();
    }

    std::uint32_t take(std::uint32_t n) {
        expect(n <= chunk, "more was committed than lent");
        frame.insert(frame.end(), block.get(), block.get() + n);
        block.reset();
        refused |= truncates && requests == 0;
        return n - refused;
    }

    void end_frame(const void *data, std::uint32_t size) {
        frame_info info;
        expect(size == sizeof info, "a report of a wrong size");
        std::memcpy(&info, data, sizeof info);
        stream.insert(stream.end(), frame.begin(), frame.end());
        if (!refused) {
            expect(info.length == frame.size(), "a frame's length differs from its report");
            const auto parsed = tools::parse_frame(frame);
            const auto rule = parsed.broken_rule();
            if (!rule.empty())
                std::fprintf(stderr, "%.*s\n", static_cast<int>(rule.size()), rule.data());
            expect(rule.empty(), "a frame breaks a rule");
        }
        frame.clear();
    }

    std::uint32_t chunk, requests;
    bool truncates, refused = false;
    std::unique_ptr<std::uint8_t[]> block;
    std::vector<std::uint8_t> frame, stream;
};

mpeg_a_settings read_settings(fuzz::byte_source &from) {
    mpeg_a_settings settings{};
    mpegOutAudioDefaults(&settings, from.about(0, 19));
    settings.audio_mode = from.about(0, 3);
    settings.audio_layer = from.about(1, 2);
    settings.audio_bitrate = from.about(1, 14);
    settings.emphasis = from.about(0, 3);
    settings.error_protection = from.about(0, 1);
    settings.extension = from.about(0, 1);
    settings.pts_offset = from.about(-100, 100);
    settings.pts_units = from.about(0, 200);
    settings.audio_model =
        from.below(2) != 0 ? std::uint32_t{MPEG_A_MODEL_TUNED} : from.value<std::uint32_t>();
    return settings;
}

/// One piece of PCM: bytes of the input as they are, or repeated to some frames.
std::vector<std::uint8_t> read_piece(fuzz::byte_source &from) {
    const auto seed = from.take(1 + static_cast<std::size_t>(from.below(256)));
    const std::size_t repeats = from.below(4) == 0 ? 40 : 1;
    std::vector<std::uint8_t> piece;
    for (std::size_t i = 0; i < repeats; ++i)
        piece.insert(piece.end(), seed.begin(), seed.end());
    return piece;
}

/// The same calls for every level. @return the stream and every result
std::vector<std::uint8_t> run(std::span<const std::uint8_t> bytes, vela::level level) {
    fuzz::byte_source from(bytes);
    const mpeg_a_settings settings = read_settings(from);
    const std::int32_t rates[] = {32000, 44100, 48000, from.about(0, 100)};
    const std::int32_t rate = rates[from.below(32) % 11 % 4];
    const std::int32_t chunks[] = {4096, 4096, from.about(1700, 1760), 24 * from.about(0, 90)};
    const auto chunk = static_cast<std::uint32_t>(chunks[from.below(4)]) % 65536;
    const auto limit = from.below(4) == 0 ? static_cast<std::uint32_t>(from.below(8)) : ~0U;
    output out(chunk, limit, from.below(2) != 0);

    mpeg_a_encoder *const encoder = mpegOutAudioNew(nullptr, &settings, 0, from.below(8), rate);
    const auto legal =
        mpegOutAudioChkSettings(nullptr, &settings, 0, rate, MPEG_A_CHECK_GENERIC_ONLY, 0);
    expect((encoder != nullptr) == (legal == 0), "New and ChkSettings disagree");
    if (encoder == nullptr) return {};
    expect(encoder->init(&out, level) == 0, "Init failed");
    std::vector<std::uint8_t> results;
    while (!from.empty()) {
        const auto pcm = read_piece(from);
        const bool flush = from.below(32) == 31;
        const auto result = mpegOutAudioPutBytes(encoder, flush ? nullptr : pcm.data(),
                                                 static_cast<std::uint32_t>(pcm.size()));
        expect(result == 0 || result == 2, "PutBytes gave another result than 0 and 2");
        expect(result == 0 || out.refused || out.chunk < 1729, "PutBytes failed without a reason");
        results.push_back(static_cast<std::uint8_t>(result));
        if (from.below(64) == 63) expect(encoder->init(&out, level) == 0, "Init failed again");
    }
    mpegOutAudioDone(encoder, from.below(2));
    mpegOutAudioFree(encoder);
    results.insert(results.end(), out.stream.begin(), out.stream.end());
    return results;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const auto reference = run({data, size}, vela::level::reference);
    for (const vela::level level : vela::all_levels)
        if (vela::is_supported(level))
            expect(run({data, size}, level) == reference, "a level gives another stream");
    return 0;
}
