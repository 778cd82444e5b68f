#include "input/sndfile_source.hpp"

#include "common/failure.hpp"
#include "input/sample_value.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

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

constexpr std::array<std::pair<int, speaker>, 21> channel_maps{{
    {SF_CHANNEL_MAP_LEFT, speaker::front_left},
    {SF_CHANNEL_MAP_FRONT_LEFT, speaker::front_left},
    {SF_CHANNEL_MAP_RIGHT, speaker::front_right},
    {SF_CHANNEL_MAP_FRONT_RIGHT, speaker::front_right},
    {SF_CHANNEL_MAP_CENTER, speaker::front_center},
    {SF_CHANNEL_MAP_FRONT_CENTER, speaker::front_center},
    {SF_CHANNEL_MAP_LFE, speaker::low_frequency},
    {SF_CHANNEL_MAP_REAR_LEFT, speaker::back_left},
    {SF_CHANNEL_MAP_REAR_RIGHT, speaker::back_right},
    {SF_CHANNEL_MAP_REAR_CENTER, speaker::back_center},
    {SF_CHANNEL_MAP_SIDE_LEFT, speaker::side_left},
    {SF_CHANNEL_MAP_SIDE_RIGHT, speaker::side_right},
    {SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, speaker::front_left_of_center},
    {SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, speaker::front_right_of_center},
    {SF_CHANNEL_MAP_TOP_CENTER, speaker::top_center},
    {SF_CHANNEL_MAP_TOP_FRONT_LEFT, speaker::top_front_left},
    {SF_CHANNEL_MAP_TOP_FRONT_CENTER, speaker::top_front_center},
    {SF_CHANNEL_MAP_TOP_FRONT_RIGHT, speaker::top_front_right},
    {SF_CHANNEL_MAP_TOP_REAR_LEFT, speaker::top_back_left},
    {SF_CHANNEL_MAP_TOP_REAR_CENTER, speaker::top_back_center},
    {SF_CHANNEL_MAP_TOP_REAR_RIGHT, speaker::top_back_right},
}};

speaker speaker_of(int channel_map) noexcept {
    for (const auto &[code, where] : channel_maps)
        if (code == channel_map) return where;
    return speaker::other;
}

/// libsndfile tells the order of WAV-like files and CAF only; of AIFF it tells nonsense.
std::vector<speaker> speakers_of(SNDFILE *file, const SF_INFO &info) {
    std::vector<int> map(static_cast<std::size_t>(info.channels));
    std::vector<speaker> named;
    switch (info.format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_OGG:
        return vorbis_speakers(info.channels);
    case SF_FORMAT_FLAC:
        return wav_speakers(info.channels);
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
    case SF_FORMAT_W64:
    case SF_FORMAT_CAF:
        if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(),
                       static_cast<int>(map.size() * sizeof(int)))
            == SF_TRUE)
            for (const int each : map)
                named.push_back(speaker_of(each));
        return named;
    default:
        return named;
    }
}

/// Whether libsndfile's samples after a seek are those of reading on, every time. Comparisons found that
/// for FLAC, ALAC, ADPCM in blocks and all plain PCM. After a seek in Vorbis the first block, and in some
/// files the place, is another one now and then; Opus' decoder takes a while to be in the same state;
/// DWVW is noise. Whatever is not listed is read from its start.
bool seeks_exactly(const SF_INFO &info) noexcept {
    if (info.seekable == 0) return false;
    switch (info.format & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_FLAC:
        return true;
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
    case SF_FORMAT_RF64:
    case SF_FORMAT_W64:
    case SF_FORMAT_AIFF:
    case SF_FORMAT_CAF:
    case SF_FORMAT_AU:
        break;
    default:
        return false;
    }
    switch (info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
    case SF_FORMAT_ULAW:
    case SF_FORMAT_ALAW:
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
    case SF_FORMAT_ALAC_16:
    case SF_FORMAT_ALAC_20:
    case SF_FORMAT_ALAC_24:
    case SF_FORMAT_ALAC_32:
        return true;
    default:
        return false;
    }
}

/// libsndfile answers with absurd counts when it cannot tell the length.
constexpr sf_count_t longest_credible = sf_count_t{1} << 48;

} // namespace

/// The file through our own reads, so that errors of the system stay known: libsndfile takes some of
/// them for the end of the file.
struct sndfile_source::view {
    static sf_count_t size(void *self) { return static_cast<sf_count_t>(of(self).input_.size()); }

    static sf_count_t tell(void *self) { return of(self).at_; }

    static sf_count_t seek(sf_count_t offset, int whence, void *self) {
        const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? of(self).at_ : size(self);
        return of(self).at_ = from + offset;
    }

    static sf_count_t read(void *room, sf_count_t count, void *self) {
        try {
            return of(self).read_file(
                {static_cast<std::byte *>(room), static_cast<std::size_t>(count)});
        } catch (...) {
            of(self).read_error_ = std::current_exception();
            return 0;
        }
    }

    static sndfile_source &of(void *self) { return *static_cast<sndfile_source *>(self); }
};

sndfile_source::sndfile_source(input_file input, length_rule rule, other_reader other)
    : input_(std::move(input)), corrected_(corrected_size(input_)), rule_(rule),
      other_(std::move(other)) {
    SF_INFO info{};
    SF_VIRTUAL_IO access{view::size, view::seek, view::read, nullptr, view::tell};
    const auto fetch = fetch_from(input_);
    if (is_wav(fetch)) wav_sound_ = find_sound_data(fetch).value_or(chunk{});
    file_.reset(sf_open_virtual(&access, SFM_READ, &info, this));
    wav_sound_.reset();
    if (read_error_) std::rethrow_exception(read_error_);
    if (!file_) throw unknown_format(exit_code::input, sf_strerror(nullptr));
    // Of several blocks it takes the headers for sound.
    if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_VOC)
        throw unknown_format(exit_code::input, "libsndfile does not read all of VOC.");
    floats_as_integers_ =
        (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_32 && has_w64_floats(fetch);
    shape_ = {info.samplerate, info.channels, format_of(info.format)};
    speakers_ = speakers_of(file_.get(), info);
    if (info.frames >= 0 && info.frames < longest_credible)
        length_ = static_cast<std::uint64_t>(info.frames);
    seeks_exactly_ = length_ && seeks_exactly(info);
    const int codec = info.format & SF_FORMAT_SUBMASK; // whose delay WAV counts and libsndfile does not
    exact_length_ = codec < SF_FORMAT_MPEG_LAYER_I || codec > SF_FORMAT_MPEG_LAYER_III;
    is_ogg_ = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_OGG;
    const std::size_t instants = block_bytes / shape_.instant_bytes();
    buffer_.resize(instants * shape_.instant_bytes());
    if (shape_.format == sample_format::s24)
        wide_.resize(instants * static_cast<std::size_t>(info.channels));
}

bool sndfile_source::seek(std::uint64_t sample) {
    if (!seeks_exactly_) return false;
    const auto target = static_cast<sf_count_t>(sample);
    if (sf_seek(file_.get(), target, SEEK_SET) != target) return false;
    handed_out_ = sample;
    return true;
}

std::unique_ptr<pcm_source> sndfile_source::another() const {
    if (!seeks_exactly_) return nullptr;
    input_file again = reopen(input_);
    if (!again.handle.is_open()) return nullptr;
    auto reader = std::make_unique<sndfile_source>(std::move(again), length_rule::promise);
    reader->strict_ = true;
    return reader;
}

std::span<const std::byte> sndfile_source::next_block() {
    if (rest_) return next_of_rest();
    const auto instants = static_cast<std::uint64_t>(read_instants());
    if (read_error_) std::rethrow_exception(read_error_);
    const int error = sf_error(file_.get()); // the next read forgets it
    if (error_ == SF_ERR_NO_ERROR) {
        // Behind its first error it leaves out packets; where pages have proven whole, that is its own fault.
        if ((error == SF_ERR_NO_ERROR ? instants == 0 : is_ogg_) && goes_on_elsewhere())
            return next_of_rest();
        error_ = error;
    }
    if (instants == 0 || (strict_ && error_ != SF_ERR_NO_ERROR)) check_end();
    handed_out_ += instants;
    const auto block =
        std::span(buffer_).first(static_cast<std::size_t>(instants) * shape_.instant_bytes());
    const auto last = block.last(std::min(block.size(), 1024 * shape_.instant_bytes()));
    if (other_) tail_.assign(last.begin(), last.end());
    return block;
}

std::int64_t sndfile_source::read_file(std::span<std::byte> room) {
    // A header that is wrong may have sent it anywhere.
    if (at_ < 0 || static_cast<std::uint64_t>(at_) >= input_.size()) return 0;
    const auto start = static_cast<std::uint64_t>(at_);
    room = room.first(std::min<std::uint64_t>(room.size(), input_.size() - start));
    const std::size_t count = read_at(input_, start, room);
    for (std::size_t i = 0; corrected_ && i < corrected_->bytes.size(); ++i) {
        const std::uint64_t place = corrected_->offset + i;
        if (place >= start && place < start + count) room[place - start] = corrected_->bytes[i];
    }
    if (wav_sound_) hide_texts(start, room.first(count));
    at_ += static_cast<std::int64_t>(count);
    return static_cast<std::int64_t>(count);
}

// libsndfile looks for texts in these chunks for minutes where the sizes of their parts are wrong, and
// nobody here asks for them. Where a damaged file has them it decides itself, so every name counts.
void sndfile_source::hide_texts(std::uint64_t start, std::span<std::byte> bytes) const {
    std::string text(bytes.size() + 3, '\0'); // to the end of a name that begins last
    read_at(input_, start, std::as_writable_bytes(std::span(text)));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::uint64_t place = start + i;
        const bool is_sound =
            place >= wav_sound_->offset && place - wav_sound_->offset < wav_sound_->bytes;
        const auto name = std::string_view(text).substr(i, 4);
        if (!is_sound && (name == "LIST" || name == "INFO")) bytes[i] = std::byte{'j'};
    }
}

std::int64_t sndfile_source::read_instants() {
    const auto instants = static_cast<sf_count_t>(buffer_.size() / shape_.instant_bytes());
    void *room = buffer_.data();
    switch (shape_.format) {
    case sample_format::s16:
        return sf_readf_short(file_.get(), static_cast<short *>(room), instants);
    case sample_format::f32:
        if (floats_as_integers_) return sf_readf_int(file_.get(), static_cast<int *>(room), instants);
        return sf_readf_float(file_.get(), static_cast<float *>(room), instants);
    case sample_format::s24:
        break;
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

bool sndfile_source::ends_early() const noexcept {
    return exact_length_ && length_ && handed_out_ < *length_;
}

// libsndfile may have left out something before, and everything behind would come too late. Two decoders of one sound
// differ by much less than that.
bool sndfile_source::is_known_elsewhere() {
    const auto there = other_(handed_out_ - tail_.size() / shape_.instant_bytes(), why_not_);
    if (!there || there->shape().format != shape_.format || there->shape().channels != shape_.channels
        || there->shape().rate != shape_.rate)
        return false;
    std::vector<float> x, y, more;
    load_samples(tail_, shape_.format, x);
    do {
        load_samples(there->next_block(), shape_.format, more);
        y.insert(y.end(), more.begin(), more.end());
    } while (!more.empty() && y.size() < x.size());
    if (y.size() < x.size()) return false;
    double power = 0, difference = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        power += static_cast<double>(x[i]) * x[i];
        difference += std::pow(static_cast<double>(x[i]) - y[i], 2);
    }
    return difference <= 1e-3 * power + 1e-9 * static_cast<double>(x.size());
}

bool sndfile_source::goes_on_elsewhere() {
    if (!ends_early() || rule_ == length_rule::ignored || !other_ || shape_.format != sample_format::f32
        || !is_known_elsewhere())
        return false;
    rest_ = other_(handed_out_, why_not_);
    if (!rest_) return false;
    input_.note("is read by libsndfile up to sample " + std::to_string(handed_out_) + " of "
                + std::to_string(*length_) + "; ffmpeg reads the rest");
    return true;
}

std::span<const std::byte> sndfile_source::next_of_rest() {
    auto block = rest_->next_block();
    // ffmpeg does not always leave out what lies behind the end that the last page names.
    while (!block.empty() && handed_out_ == *length_)
        block = rest_->next_block();
    if (block.empty()) check_end();
    const std::uint64_t taken =
        std::min<std::uint64_t>(block.size() / shape_.instant_bytes(), *length_ - handed_out_);
    handed_out_ += taken;
    return block.first(static_cast<std::size_t>(taken) * shape_.instant_bytes());
}

void sndfile_source::check_end() const {
    const bool failed = error_ != SF_ERR_NO_ERROR;
    if (!failed && !ends_early()) return;
    std::string text = "is truncated or damaged: ";
    if (ends_early()) text += std::to_string(*length_) + " samples a channel were promised, ";
    text += std::to_string(handed_out_) + " can be read";
    if (failed) text += std::string(" (") + sf_error_number(error_) + ")";
    text += why_not_;
    // A writer to a pipe may have guessed the length, but not written damaged sound.
    report_incomplete(input_, text,
                      failed && rule_ == length_rule::hint ? length_rule::promise : rule_);
}

} // namespace tools
