#include "velainfo/container_kind.hpp"

#include <algorithm>
#include <utility>

namespace tools {
namespace {

using namespace std::string_view_literals;

struct magic {
    std::string_view start; ///< a question mark is any byte
    const char *name, *description;
};

// AVI and the raw sectors of a Video CD are RIFF files like WAV.
constexpr magic containers[] = {{"\0\0\1\xBA"sv, "mpeg", "an MPEG program stream"},
                                {"\x1A\x45\xDF\xA3", "matroska", "a Matroska file"},
                                {"RIFF????AVI ", "avi", "an AVI file"},
                                {"RIFF????CDXA", "vcd", "a file of raw Video CD sectors"},
                                {"????ftypqt  ", "mov", "a QuickTime file"},
                                {"????ftyp", "mp4", "an MP4 file"},
                                {"????moov", "mov", "a QuickTime file"},
                                {"????wide", "mov", "a QuickTime file"},
                                {"????mdat", "mov", "a QuickTime file"},
                                {"\x06\x0E\x2B\x34\x02\x05\x01\x01", "mxf", "an MXF file"},
                                {"riff\x2E\x91\xCF\x11", "w64", "a Wave64 file"},
                                {"caff\0\1"sv, "caf", "a Core Audio file"},
                                {"FLV\1", "flv", "a Flash video file"}};

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

bool begins_with(std::string_view file, std::string_view start) {
    return file.size() >= start.size()
           && std::equal(start.begin(), start.end(), file.begin(),
                         [](char wanted, char is) { return wanted == '?' || wanted == is; });
}

/// A sync byte every 188 bytes, or every 192 with time stamps in front of the packets.
bool is_transport_stream(std::string_view file) {
    const auto is_sync = [&](std::size_t place) { return place < file.size() && file[place] == 'G'; };
    return (is_sync(0) && is_sync(188)) || (is_sync(4) && is_sync(4 + 192));
}

} // namespace

container_kind container_of(std::string_view start) {
    for (const magic &m : containers)
        if (begins_with(start, m.start)) return {m.name, m.description};
    if (is_transport_stream(start)) return {"mpegts", "an MPEG transport stream"};
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
