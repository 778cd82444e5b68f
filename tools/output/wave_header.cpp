#include "output/wave_header.hpp"

#include "common/byte_order.hpp"
#include "settings/names.hpp"
#include "settings/record.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>

namespace tools {
namespace {

constexpr std::uint32_t unknown_size = 0xFFFFFFFF;
constexpr std::uint64_t largest_size = 0xFFFFFFFE;

/// Fields as they stand in the file, little-endian.
class chunk_writer {
  public:
    chunk_writer &text(std::string_view value) {
        const auto bytes = std::as_bytes(std::span(value));
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    chunk_writer &number(std::uint64_t value, std::size_t count) {
        bytes_.resize(bytes_.size() + count);
        set_little_endian(std::span(bytes_).last(count), value);
        return *this;
    }
    /// A whole chunk, padded to an even length.
    chunk_writer &chunk(std::string_view name, const byte_list &contents) {
        text(name).number(contents.size(), 4);
        bytes_.insert(bytes_.end(), contents.begin(), contents.end());
        if (contents.size() % 2 != 0) bytes_.push_back({});
        return *this;
    }
    const byte_list &bytes() const noexcept { return bytes_; }

  private:
    byte_list bytes_;
};

struct frame_size {
    int bytes;   ///< without padding
    bool padded; ///< some frames have a slot more
};

/// ISO/IEC 11172-3, 2.4.3.1: a frame has bitrate * samples / rate slots, rounded down or up.
frame_size frame_size_of(const mpeg_a_settings &settings, int rate) {
    const bool first_layer = settings.audio_layer == 1;
    const int product = (first_layer ? 12 : 144) * 1000 * kbit_of(settings);
    return {product / rate * (first_layer ? 4 : 1), product % rate != 0};
}

/// MPEG1WAVEFORMAT. Mode and flags are bits, the emphasis is the header's field plus one.
byte_list format_chunk(const mpeg_a_settings &settings, int rate) {
    constexpr std::uint64_t wave_format_mpeg = 0x0050, id_mpeg1 = 0x10, no_crc = 8, every_bound = 15;
    const auto frame = frame_size_of(settings, rate);
    const bool joint = settings.audio_mode == MPEG_A_MODE_JOINT_STEREO;
    const auto flag = [](int is_set, std::uint64_t bit) { return is_set != 0 ? bit : 0; };
    const auto bits_a_second = static_cast<std::uint64_t>(kbit_of(settings)) * 1000;
    return chunk_writer()
        .number(wave_format_mpeg, 2)
        .number(settings.audio_mode == MPEG_A_MODE_MONO ? 1 : 2, 2)
        .number(static_cast<std::uint64_t>(rate), 4)
        .number(bits_a_second / 8, 4)
        .number(static_cast<std::uint64_t>(frame.padded ? 1 : frame.bytes), 2)
        .number(0, 2)  // bits of a sample: there are none
        .number(22, 2) // bytes that follow
        .number(static_cast<std::uint64_t>(settings.audio_layer), 2)
        .number(bits_a_second, 4)
        .number(std::uint64_t{1} << settings.audio_mode, 2)
        .number(joint ? every_bound : 0, 2)
        .number(static_cast<std::uint64_t>(settings.emphasis) + 1, 2)
        .number(flag(settings.extension, 1) | flag(settings.copyright, 2) | flag(settings.original, 4)
                    | flag(settings.error_protection == 0, no_crc) | id_mpeg1,
                2)
        .number(static_cast<std::uint64_t>(start_of(settings) / 300), 8) // in 90 kHz
        .bytes();
}

/// The MPEG extension: all frames are of one kind (bit 0), and none is padded (bit 1) unless at 44.1 kHz.
byte_list mpeg_extension(const mpeg_a_settings &settings, int rate) {
    const auto frame = frame_size_of(settings, rate);
    return chunk_writer()
        .number(frame.padded ? 1 : 3, 2)
        .number(static_cast<std::uint64_t>(frame.bytes), 2)
        .number(0, 8) // no ancillary data; reserved
        .bytes();
}

constexpr std::size_t fixed_bext_bytes = 602, originator_at = 256, time_reference_at = 338,
                      version_at = 346, loudness_at = 412;

std::string input_line(const broadcast_origin &origin) {
    if (origin.bits == 0) return "";
    return "A=PCM,F=" + std::to_string(origin.rate) + ",W=" + std::to_string(origin.bits)
           + ",M=" + (origin.channels == 1 ? "mono" : "stereo") + "\r\n";
}

std::string stream_line(const mpeg_a_settings &settings, int rate) {
    return std::string("A=MPEG1L") + (settings.audio_layer == 1 ? "1" : "2")
           + ",F=" + std::to_string(rate) + ",B=" + std::to_string(kbit_of(settings))
           + ",M=" + history_modes[settings.audio_mode] + ",T=velaenc\r\n";
}

std::span<std::byte> version_of(byte_list &bext) {
    return std::span(bext).subspan(version_at, 2);
}

void convert_time_reference(byte_list &bext, const broadcast_origin &origin, int to) {
    const auto reference = std::span(bext).subspan(time_reference_at, 8);
    const std::uint64_t samples = little_endian(reference) + origin.start;
    const auto rate = static_cast<std::uint64_t>(origin.rate), target = static_cast<std::uint64_t>(to);
    set_little_endian(reference, samples / rate * target + samples % rate * target / rate);
}

} // namespace

byte_list broadcast_extension(const broadcast_origin &origin, const mpeg_a_settings &settings,
                              int rate) {
    byte_list bext = origin.bext;
    const bool carried = bext.size() >= fixed_bext_bytes;
    bext.resize(std::max(bext.size(), fixed_bext_bytes));
    constexpr std::string_view originator = "velaenc";
    if (carried)
        convert_time_reference(bext, origin, rate);
    else
        std::ranges::copy(std::as_bytes(std::span(originator)), &bext[originator_at]);
    if (!origin.sounds_alike && little_endian(version_of(bext)) >= 2) write_loudness(bext, {});
    while (bext.size() > fixed_bext_bytes && bext.back() == std::byte{0})
        bext.pop_back();
    const bool has_history = bext.size() > fixed_bext_bytes;
    const bool is_open = has_history && bext.back() != std::byte{'\n'};
    const std::string history = (is_open       ? "\r\n"
                                 : has_history ? ""
                                               : input_line(origin))
                                + stream_line(settings, rate);
    const auto bytes = std::as_bytes(std::span(history));
    bext.insert(bext.end(), bytes.begin(), bytes.end());
    return bext;
}

void write_loudness(byte_list &bext, const loudness_figures &figures) {
    set_little_endian(version_of(bext), std::max<std::uint64_t>(little_endian(version_of(bext)), 2));
    const auto range = figures.integrated ? std::optional(figures.range) : std::nullopt;
    auto left = std::span(bext).subspan(loudness_at);
    for (const auto &value :
         {figures.integrated, range, figures.true_peak, figures.momentary, figures.short_term}) {
        constexpr long unknown = 0x7FFF; // where nobody has measured it
        set_little_endian(left.first(2),
                          static_cast<std::uint64_t>(value ? std::lround(*value * 100) : unknown));
        left = left.subspan(2);
    }
}

byte_list wave_header(const mpeg_a_settings &settings, int rate, const std::vector<wav_chunk> &labels,
                      const std::optional<wave_sizes> &sizes) {
    const auto [bytes, samples] = sizes.value_or(wave_sizes{});
    const auto fact = chunk_writer().number(std::min<std::uint64_t>(samples, unknown_size), 4).bytes();
    chunk_writer chunks;
    chunks.chunk("fmt ", format_chunk(settings, rate)).chunk("fact", fact);
    for (const auto &label : labels)
        chunks.chunk(label.name, label.contents);
    const byte_list rest = chunks.chunk("mext", mpeg_extension(settings, rate)).text("data").bytes();
    constexpr std::size_t ds64_bytes = 28;
    // "WAVE", the first chunk with its header, the rest, the size of the data, the data, padding
    const std::uint64_t total = 4 + 8 + ds64_bytes + rest.size() + 4 + bytes + bytes % 2;
    const bool is_long = sizes && total > largest_size;
    const auto wide =
        chunk_writer().number(total, 8).number(bytes, 8).number(samples, 8).number(0, 4).bytes();
    chunk_writer file;
    file.text(is_long ? "RF64" : "RIFF")
        .number(!sizes || is_long ? unknown_size : total, 4)
        .text("WAVE")
        .chunk(is_long ? "ds64" : "JUNK", is_long ? wide : byte_list(ds64_bytes));
    byte_list header = file.bytes();
    header.insert(header.end(), rest.begin(), rest.end());
    const auto size = chunk_writer().number(!sizes || is_long ? unknown_size : bytes, 4).bytes();
    header.insert(header.end(), size.begin(), size.end());
    return header;
}

} // namespace tools
