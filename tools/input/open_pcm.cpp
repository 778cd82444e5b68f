#include "input/open_pcm.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"
#include "input/sndfile_source.hpp"
#include "input/stream_source.hpp"

#include <algorithm>
#include <array>
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
        int value = 0;
        for (std::size_t i = count; i-- > 0;)
            value = value << 8 | std::to_integer<int>(bytes[offset + i]);
        return value;
    };
    if (!format || !format->bytes) return std::nullopt;
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(*format->bytes, bytes.size()));
    if (size < 16 || fetch(format->offset, std::span(bytes).first(size)) < size) return std::nullopt;
    constexpr int pcm = 1, ieee_float = 3, extensible = 0xFFFE;
    // The extensible form repeats the code at the start of its sub-format.
    const int code = field(0, 2) == extensible && size == 40 ? field(24, 2) : field(0, 2);
    const int bits = field(14, 2);
    pcm_shape shape{field(4, 3), field(2, 2), sample_format::s16};
    if (code == pcm && bits == 24)
        shape.format = sample_format::s24;
    else if (code == ieee_float && bits == 32)
        shape.format = sample_format::f32;
    else if (code != pcm || bits != 16)
        return std::nullopt;
    const bool packed = shape.channels > 0 && field(12, 2) == static_cast<int>(shape.instant_bytes());
    return packed ? std::optional(shape) : std::nullopt;
}

/// WAV of a plain sample format that was piped into its file: libsndfile finds no sound in some of
/// those.
bool is_piped_wav(const fetch_function &fetch) {
    if (!shape_of_wav(fetch)) return false;
    const auto sound = find_sound_data(fetch);
    return sound && !sound->bytes;
}

/// Such WAV is encoded as it comes; everything else has to be complete first.
std::unique_ptr<pcm_source> open_pipe(input_file input) {
    pipe_head head(input);
    const auto fetch = [&](std::uint64_t offset, std::span<std::byte> room) {
        return head.fetch(offset, room);
    };
    const auto shape = shape_of_wav(fetch);
    const auto sound = shape ? find_sound_data(fetch) : std::nullopt;
    if (sound && sound->offset <= head.bytes().size()) {
        std::optional<std::uint64_t> length;
        if (sound->bytes) length = *sound->bytes / shape->instant_bytes();
        const auto samples = head.bytes().subspan(static_cast<std::size_t>(sound->offset));
        return std::make_unique<stream_source>(std::move(input), *shape, samples, length);
    }
    input_file spooled = spool(std::move(input), head.bytes());
    if (spooled.size() == 0)
        throw failure(exit_code::input, spooled.name + " is empty (0 bytes); an audio file is needed");
    check_complete(spooled);
    return std::make_unique<sndfile_source>(std::move(spooled));
}

std::unique_ptr<pcm_source> open_raw(input_file input, const pcm_shape &shape) {
    std::optional<std::uint64_t> length;
    if (input.seekable()) {
        const auto start = static_cast<std::uint64_t>(::lseek(input.handle.get(), 0, SEEK_CUR));
        const std::uint64_t bytes = input.size() - std::min(start, input.size());
        // An incomplete last sample must stay visible to the reader.
        if (bytes % shape.instant_bytes() == 0) length = bytes / shape.instant_bytes();
    }
    return std::make_unique<stream_source>(std::move(input), shape, std::span<const std::byte>{},
                                           length);
}

} // namespace

std::unique_ptr<pcm_source> open_pcm(input_file input, const std::optional<pcm_shape> &raw) {
    if (raw) return open_raw(std::move(input), *raw);
    if (!input.seekable() || is_piped_wav(fetch_from(input))) return open_pipe(std::move(input));
    check_complete(input);
    return std::make_unique<sndfile_source>(std::move(input));
}

} // namespace tools
