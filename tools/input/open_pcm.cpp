#include "input/open_pcm.hpp"

#include "common/byte_order.hpp"
#include "common/failure.hpp"
#include "input/check_complete.hpp"
#include "input/container.hpp"
#include "input/ffmpeg_source.hpp"
#include "input/sample_range.hpp"
#include "input/sndfile_source.hpp"
#include "input/stream_source.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <system_error>
#include <vector>

namespace tools {
namespace {

/// The first bytes of a pipe, read as far as somebody asks for them.
class pipe_head {
  public:
    explicit pipe_head(const input_file &input) : input_(input), bytes_(longest) {}

    std::size_t fetch(std::uint64_t offset, std::span<std::byte> room) {
        const std::uint64_t end = offset + room.size();
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(end, longest));
        while (filled_ < wanted) {
            const std::size_t count =
                read_some(input_, std::span(bytes_).subspan(filled_, wanted - filled_));
            if (count == 0) break;
            filled_ += count;
        }
        if (end > filled_) return 0;
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), room.size(), room.begin());
        return room.size();
    }

    fetch_function fetcher() {
        return [this](std::uint64_t offset, std::span<std::byte> room) { return fetch(offset, room); };
    }

    std::span<const std::byte> bytes() const noexcept { return std::span(bytes_).first(filled_); }

  private:
    /// A header that is longer goes the way of the other formats.
    static constexpr std::size_t longest = 64 * 1024;
    const input_file &input_;
    std::vector<std::byte> bytes_;
    std::size_t filled_ = 0;
};

/// The fields of a WAV "fmt " chunk that tell whether its data can be handed on as it is.
std::optional<pcm_shape> shape_of_wav(const fetch_function &fetch) {
    const auto format = find_wav_chunk(fetch, "fmt ");
    std::array<std::byte, 40> bytes{};
    const auto field = [&](std::size_t offset, std::size_t count) {
        const auto value = little_endian(std::span(bytes).subspan(offset, count));
        return static_cast<int>(std::min<std::uint64_t>(value, std::numeric_limits<int>::max()));
    };
    if (!format) return std::nullopt;
    fetch(format->offset, std::span(bytes).first(std::min<std::uint64_t>(format->bytes, bytes.size())));
    constexpr int pcm = 1, ieee_float = 3, extensible = 0xFFFE;
    // The extensible form repeats the code at the start of its sub-format.
    const bool is_extensible = field(0, 2) == extensible;
    const int code = field(is_extensible ? 24 : 0, 2), bits = field(14, 2);
    pcm_shape shape{.rate = field(4, 4), .channels = field(2, 2), .format = sample_format::s16};
    if (is_extensible) shape.channel_mask = static_cast<std::uint32_t>(field(20, 4));
    if (code == pcm && bits == 24)
        shape.format = sample_format::s24;
    else if (code == ieee_float && bits == 32)
        shape.format = sample_format::f32;
    else if (code != pcm || bits != 16)
        return std::nullopt;
    const bool packed = shape.channels > 0 && field(12, 2) == static_cast<int>(shape.instant_bytes());
    return packed ? std::optional(shape) : std::nullopt;
}

std::optional<chunk> plain_sound(const fetch_function &fetch, std::optional<pcm_shape> &shape) {
    shape = shape_of_wav(fetch);
    return shape ? find_sound_data(fetch) : std::nullopt;
}

constexpr const char *advice =
    "An audio file is needed (WAV, W64, RF64, AIFF, FLAC, Ogg, ...); for headerless"
    " PCM there is velaenc --raw";

/// @param reason  why nobody here reads it
std::unique_ptr<pcm_source> ask_ffmpeg(input_file input, const input_wishes &wishes, length_rule rule,
                                       const std::string &reason) {
    const std::string failed = "cannot read " + input.name + ": " + reason;
    if (!wishes.asks_ffmpeg) throw failure(exit_code::input, failed + advice);
    try {
        return ffmpeg_source::open(std::move(input), wishes.stream, rule);
    } catch (const failure &error) {
        throw failure(exit_code::input, failed + error.what() + ". " + advice);
    } catch (const std::system_error &error) {
        if (error.code() != std::errc::no_such_file_or_directory)
            throw failure(exit_code::input,
                          failed + "ffmpeg cannot be started: " + error.code().message());
        throw failure(exit_code::input,
                      failed
                          + "ffmpeg may read it, and films, but is not installed (Debian:"
                            " apt install ffmpeg). "
                          + advice);
    }
}

/// ffmpeg, where libsndfile has left off.
std::unique_ptr<pcm_source> rest_by_ffmpeg(const input_file &input, length_rule rule,
                                           std::uint64_t from, std::string &why_not) {
    try {
        return std::make_unique<sample_range>(ffmpeg_source::open(same_file(input), 1, rule),
                                              sample_range::extent{from}, input.name + " ends there");
    } catch (const failure &) {
        return nullptr; // what libsndfile has found wrong is said
    } catch (const std::system_error &error) {
        if (error.code() == std::errc::no_such_file_or_directory)
            why_not =
                "; ffmpeg, which may read the rest, is not installed (Debian: apt install ffmpeg)";
        return nullptr;
    }
}

/// Sound that somebody else decodes.
std::unique_ptr<pcm_source> decode(input_file input, const input_wishes &wishes, length_rule rule) {
    if (wishes.stream > 1)
        return ask_ffmpeg(std::move(input), wishes, rule,
                          "for --stream " + std::to_string(wishes.stream) + " ");
    input.status.st_size = static_cast<off_t>(bytes_before_tags(input));
    check_complete(input, rule);
    input.status.st_size = static_cast<off_t>(bytes_with_sound(input, rule));
    const auto again = std::make_shared<input_file>(same_file(input));
    try {
        return std::make_unique<sndfile_source>(
            std::move(input), rule,
            [again, rule, asks = wishes.asks_ffmpeg](std::uint64_t from, std::string &why_not) {
                return asks ? rest_by_ffmpeg(*again, rule, from, why_not) : nullptr;
            });
    } catch (const unknown_format &error) {
        return ask_ffmpeg(std::move(*again), wishes, rule, error.what() + std::string(" "));
    }
}

std::unique_ptr<pcm_source> open_file(input_file input, const input_wishes &wishes, length_rule rule) {
    std::optional<pcm_shape> shape;
    if (wishes.stream > 1) return decode(std::move(input), wishes, rule);
    if (const auto sound = plain_sound(fetch_from(input), shape)) {
        const std::uint64_t bytes = sound_bytes(input, *sound, rule);
        if (const std::uint64_t rest = bytes % shape->instant_bytes())
            input.note("ends inside a sample: the last " + std::to_string(rest) + " of "
                       + std::to_string(shape->instant_bytes()) + " bytes are dropped");
        move_in(input, static_cast<off_t>(sound->offset), SEEK_SET);
        return std::make_unique<stream_source>(std::move(input), *shape, std::span<const std::byte>{},
                                               bytes - bytes % shape->instant_bytes(),
                                               length_rule::promise);
    }
    return decode(std::move(input), wishes, rule);
}

/// WAV is encoded as it comes; everything else has to be complete first.
std::unique_ptr<pcm_source> open_pipe(input_file input, const input_wishes &wishes, length_rule rule) {
    pipe_head head(input);
    std::optional<pcm_shape> shape;
    const auto sound = plain_sound(head.fetcher(), shape);
    if (sound && sound->offset <= head.bytes().size() && wishes.stream == 1) {
        const auto samples = head.bytes().subspan(static_cast<std::size_t>(sound->offset));
        const bool counts = sound->known && rule != length_rule::ignored;
        return std::make_unique<stream_source>(std::move(input), *shape, samples,
                                               counts ? std::optional(sound->bytes) : std::nullopt,
                                               length_rule::hint);
    }
    input_file spooled = spool(std::move(input), head.bytes());
    if (spooled.size() == 0)
        throw failure(exit_code::input, spooled.name + " is empty (0 bytes); an audio file is needed");
    return decode(std::move(spooled), wishes, rule);
}

std::unique_ptr<pcm_source> open_raw(input_file input, const raw_shape &raw, length_rule rule) {
    const pcm_shape shape = raw.in_file();
    std::optional<std::uint64_t> bytes;
    if (input.seekable()) {
        const auto start = static_cast<std::uint64_t>(move_in(input, 0, SEEK_CUR));
        bytes = input.size() - std::min(start, input.size());
        const std::uint64_t rest = *bytes % shape.instant_bytes();
        if (rest != 0 && rule == length_rule::promise)
            throw failure(
                exit_code::input,
                input.name + " ends inside a sample: " + std::to_string(rest) + " of "
                    + std::to_string(shape.instant_bytes())
                    + " bytes are left over; check --channels and --format, or complete the file");
        rule = length_rule::promise;
    }
    pipe_head head(input);
    if (begins_container(head.fetcher()))
        input.note("begins like an audio file; with --raw its header is encoded as sound too");
    std::unique_ptr<pcm_source> source =
        std::make_unique<stream_source>(std::move(input), shape, head.bytes(), bytes, rule);
    if (raw.format.is_native()) return source;
    return std::make_unique<raw_decoder>(std::move(source), raw.format);
}

} // namespace

std::unique_ptr<pcm_source> open_pcm(input_file input, const input_wishes &wishes) {
    input.on_note = wishes.on_note;
    const length_rule rule = wishes.ignore_length ? length_rule::ignored
                             : input.seekable()   ? length_rule::promise
                                                  : length_rule::hint;
    if (wishes.raw) return open_raw(std::move(input), *wishes.raw, rule);
    if (input.seekable()) return open_file(std::move(input), wishes, rule);
    return open_pipe(std::move(input), wishes, rule);
}

std::unique_ptr<pcm_source> open_streamed_wav(input_file pipe) {
    pipe_head head(pipe);
    std::optional<pcm_shape> shape;
    const auto sound = plain_sound(head.fetcher(), shape);
    if (!sound || sound->offset > head.bytes().size()) return nullptr;
    return std::make_unique<stream_source>(
        std::move(pipe), *shape, head.bytes().subspan(static_cast<std::size_t>(sound->offset)),
        std::nullopt, length_rule::promise);
}

} // namespace tools
