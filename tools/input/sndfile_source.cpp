#include "input/sndfile_source.hpp"

#include "common/failure.hpp"

namespace tools {
namespace {

/// Integer samples keep their width; everything else (8 and 32 bits, floating point, lossy codecs) is
/// best represented by floats.
sample_format format_of(int sndfile_format) noexcept {
    switch (sndfile_format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_ALAC_16:
        return sample_format::s16;
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_ALAC_24:
        return sample_format::s24;
    default:
        return sample_format::f32;
    }
}

/// libsndfile has no call for packed 24-bit samples, but hands on the bytes of a file that has them.
bool has_packed_s24(SNDFILE *file, int sndfile_format) noexcept {
    if ((sndfile_format & SF_FORMAT_SUBMASK) != SF_FORMAT_PCM_24) return false;
    switch (sndfile_format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
    case SF_FORMAT_W64:
        return sf_command(file, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_FALSE;
    default:
        return false;
    }
}

/// libsndfile answers with absurd counts when it cannot tell the length.
constexpr sf_count_t longest_credible = sf_count_t{1} << 48;

} // namespace

sndfile_source::sndfile_source(input_file input) : input_(std::move(input)) {
    SF_INFO info{};
    file_.reset(sf_open_fd(input_.handle.get(), SFM_READ, &info, SF_FALSE));
    if (!file_)
        throw failure(exit_code::input,
                      "cannot read " + input_.name + ": " + sf_strerror(nullptr)
                          + " An audio file is needed (WAV, W64, RF64, AIFF, FLAC, Ogg, ...);"
                            " for headerless PCM give --raw");
    shape_ = {info.samplerate, info.channels, format_of(info.format)};
    if (info.frames >= 0 && info.frames < longest_credible)
        length_ = static_cast<std::uint64_t>(info.frames);
    packed_s24_ = has_packed_s24(file_.get(), info.format);
    exact_length_ = (info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_MPEG;
    const std::size_t instants = block_bytes / shape_.instant_bytes();
    buffer_.resize(instants * shape_.instant_bytes());
    if (shape_.format == sample_format::s24)
        wide_.resize(instants * static_cast<std::size_t>(info.channels));
}

std::span<const std::byte> sndfile_source::next_block() {
    const auto instants = static_cast<std::uint64_t>(read_instants());
    if (instants == 0) check_end();
    handed_out_ += instants;
    return std::span(buffer_).first(static_cast<std::size_t>(instants) * shape_.instant_bytes());
}

std::int64_t sndfile_source::read_instants() {
    const auto instants = static_cast<sf_count_t>(buffer_.size() / shape_.instant_bytes());
    void *room = buffer_.data();
    switch (shape_.format) {
    case sample_format::s16:
        return sf_readf_short(file_.get(), static_cast<short *>(room), instants);
    case sample_format::f32:
        return sf_readf_float(file_.get(), static_cast<float *>(room), instants);
    case sample_format::s24:
        break;
    }
    if (packed_s24_) {
        const auto bytes = static_cast<sf_count_t>(buffer_.size());
        return sf_read_raw(file_.get(), room, bytes) / static_cast<sf_count_t>(shape_.instant_bytes());
    }
    const sf_count_t count = sf_readf_int(file_.get(), wide_.data(), instants);
    pack_s24(static_cast<std::size_t>(count * shape_.channels));
    return count;
}

void sndfile_source::pack_s24(std::size_t samples) noexcept {
    std::byte *to = buffer_.data();
    for (std::size_t i = 0; i < samples; ++i, to += 3) {
        const auto value = static_cast<unsigned>(wide_[i]);
        to[0] = static_cast<std::byte>(value >> 8);
        to[1] = static_cast<std::byte>(value >> 16);
        to[2] = static_cast<std::byte>(value >> 24);
    }
}

void sndfile_source::check_end() const {
    const bool failed = sf_error(file_.get()) != SF_ERR_NO_ERROR;
    const bool short_of_promise = exact_length_ && length_ && handed_out_ < *length_;
    if (!failed && !short_of_promise) return;
    std::string text = input_.name + " is truncated or damaged: ";
    if (short_of_promise) text += std::to_string(*length_) + " samples a channel were promised, ";
    text += std::to_string(handed_out_) + " can be read; the complete file is needed";
    if (failed) text += std::string(" (") + sf_strerror(file_.get()) + ")";
    throw failure(exit_code::input, text);
}

} // namespace tools
