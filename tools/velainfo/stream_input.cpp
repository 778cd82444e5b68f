#include "velainfo/stream_input.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tools {
namespace {

constexpr std::size_t head_bytes = 512;

std::string_view text_of(const std::vector<std::byte> &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

} // namespace

stream_input::stream_input(const std::string &path) : file_(open_input(path)), head_(head_bytes) {
    std::size_t filled = 0, got = 1;
    for (; got > 0 && filled < head_.size(); filled += got)
        got = read_some(file_, std::span(head_).subspan(filled));
    head_.resize(filled);
    if (head_.empty()) throw failure(exit_code::input, file_.name + " is empty");
    const auto start = text_of(head_).substr(0, 4);
    if (start == "RIFF" || start == "RF64") enter_wav();
}

void stream_input::enter_wav() {
    if (!file_.seekable()) file_ = spool(std::move(file_), head_);
    const auto fetch = fetch_from(file_);
    const auto format = wav_format(fetch);
    const auto data = find_wav_chunk(fetch, "data");
    if (!format || !data)
        throw failure(exit_code::input, file_.name + " is a RIFF file without sound data");
    const unsigned tag = *format;
    if (tag != 0x50)
        throw failure(exit_code::input, file_.name + " is a WAV file of "
                                            + (tag == 1 || tag == 3 ? "PCM"
                                               : tag == 0x55        ? "MPEG Layer III"
                                                                    : "format " + std::to_string(tag))
                                            + "; velainfo reads MPEG audio of Layer I or II");
    base_ = data->offset;
    if (data->known) left_ = data->bytes;
    head_.clear();
}

std::size_t stream_input::read(std::span<std::uint8_t> room) {
    if (head_used_ < head_.size()) {
        const std::size_t size = std::min(room.size(), head_.size() - head_used_);
        std::memcpy(room.data(), head_.data() + head_used_, size);
        head_used_ += size;
        return size;
    }
    const auto wanted = std::as_writable_bytes(room).first(std::min<std::uint64_t>(room.size(), left_));
    if (wanted.empty()) return 0;
    if (!in_wav()) return read_some(file_, wanted);
    const std::size_t size = read_at(file_, base_ + head_used_ - head_.size(), wanted);
    head_used_ += size;
    left_ -= size;
    return size;
}

std::string stream_input::other_kind() const {
    static constexpr std::pair<std::string_view, const char *> kinds[] = {
        {"fLaC", "FLAC"},
        {"OggS", "Ogg"},
        {"FORM", "AIFF"},
        {{"\0\0\1\xBA", 4}, "an MPEG program stream"},
        {"\x1A\x45\xDF\xA3", "Matroska"},
        {"\x0B\x77", "AC-3"},
        {"\xFF\xF1", "AAC"},
        {"\xFF\xF9", "AAC"},
        {"\xFF\xFB", "MPEG Layer III"},
        {"\xFF\xFA", "MPEG Layer III"},
        {"\xFF\xF3", "MPEG Layer III"},
        {"\xFF\xF2", "MPEG Layer III"},
        {"ID3", "MPEG Layer III or AAC with an ID3 tag"}};
    const auto start = text_of(head_);
    for (const auto &[magic, kind] : kinds)
        if (start.starts_with(magic)) return kind;
    if (start.size() > 188 && start[0] == 'G' && start[188] == 'G') return "an MPEG transport stream";
    if (start.substr(std::min<std::size_t>(4, start.size())).starts_with("ftyp")) return "MP4";
    // 2.4.2.3: the bitrate index 0 leaves the bitrate to the application.
    const auto byte = [&](std::size_t i) { return std::to_integer<unsigned>(head_[i]); };
    if (head_.size() > 3 && byte(0) == 0xFF && (byte(1) & 0xF4) == 0xF4 && byte(2) >> 4 == 0)
        return "MPEG audio in free format, whose frames velainfo cannot tell apart";
    return "";
}

} // namespace tools
