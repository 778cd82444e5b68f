#include "velainfo/container_kind.hpp"

#include <utility>

namespace tools {
namespace {

using namespace std::string_view_literals;

struct magic {
    std::size_t place;
    std::string_view bytes;
    std::size_t second_place;
    std::string_view second; ///< empty: none
    const char *name, *description;
};

// AVI and the raw sectors of a Video CD are RIFF files like WAV. A transport stream has a sync byte every 188
// bytes, every 192 with time stamps in front of the packets.
constexpr magic containers[] = {{0, "\0\0\1\xBA"sv, 0, "", "mpeg", "an MPEG program stream"},
                                {0, "G"sv, 188, "G", "mpegts", "an MPEG transport stream"},
                                {4, "G"sv, 196, "G", "mpegts", "an MPEG transport stream"},
                                {0, "\x1A\x45\xDF\xA3"sv, 0, "", "matroska", "a Matroska file"},
                                {0, "RIFF"sv, 8, "AVI ", "avi", "an AVI file"},
                                {0, "RIFF"sv, 8, "CDXA", "vcd", "a file of raw Video CD sectors"},
                                {4, "ftyp"sv, 8, "qt  ", "mov", "a QuickTime file"},
                                {4, "ftyp"sv, 0, "", "mp4", "an MP4 file"},
                                {4, "moov"sv, 0, "", "mov", "a QuickTime file"},
                                {4, "wide"sv, 0, "", "mov", "a QuickTime file"},
                                {4, "mdat"sv, 0, "", "mov", "a QuickTime file"},
                                {0, "\x06\x0E\x2B\x34\x02\x05\x01\x01"sv, 0, "", "mxf", "an MXF file"},
                                {0, "riff\x2E\x91\xCF\x11"sv, 0, "", "w64", "a Wave64 file"},
                                {0, "caff\0\1"sv, 0, "", "caf", "a Core Audio file"},
                                {0, "FLV\1"sv, 0, "", "flv", "a Flash video file"}};

constexpr std::pair<std::string_view, const char *> sounds[] = {
    {"fLaC", "FLAC"},
    {"OggS", "Ogg"},
    {"FORM", "AIFF"},
    {"\x0B\x77", "AC-3"},
    {"\xFF\xF1", "AAC"},
    {"\xFF\xF9", "AAC"},
    {"\xFF\xFB", "MPEG Layer III"},
    {"\xFF\xFA", "MPEG Layer III"},
    {"\xFF\xF3", "MPEG Layer III"},
    {"\xFF\xF2", "MPEG Layer III"},
    {"ID3", "MPEG Layer III or AAC with an ID3 tag"}};

bool has(std::string_view start, std::size_t place, std::string_view bytes) {
    return start.size() >= place && start.substr(place).starts_with(bytes);
}

} // namespace

container_kind container_of(std::string_view start) {
    for (const magic &m : containers)
        if (has(start, m.place, m.bytes) && has(start, m.second_place, m.second))
            return {m.name, m.description};
    return {};
}

std::string other_sound(std::string_view start) {
    for (const auto &[bytes, kind] : sounds)
        if (start.starts_with(bytes)) return kind;
    // 2.4.2.3: the bitrate index 0 leaves the bitrate to the application.
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(start[i]); };
    if (start.size() > 3 && byte(0) == 0xFF && (byte(1) & 0xF4) == 0xF4 && byte(2) >> 4 == 0)
        return "MPEG audio in free format, whose frames velainfo cannot tell apart";
    return "";
}

} // namespace tools
