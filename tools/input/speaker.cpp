#include "input/speaker.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace tools {
namespace {

using enum speaker;
using layout_list = std::array<std::vector<speaker>, 9>;

/// The standard layouts of RFC 9639, 9.1.2, which are those of WAV with its default channel masks; with
/// seven channels the back one comes before the sides.
const layout_list wav_layouts{{
    {},
    {front_center},
    {front_left, front_right},
    {front_left, front_right, front_center},
    {front_left, front_right, back_left, back_right},
    {front_left, front_right, front_center, back_left, back_right},
    {front_left, front_right, front_center, low_frequency, back_left, back_right},
    {front_left, front_right, front_center, low_frequency, back_center, side_left, side_right},
    {front_left, front_right, front_center, low_frequency, back_left, back_right, side_left,
     side_right},
}};

/// Vorbis I, 4.3.9; RFC 7845, 5.1.1.2, for Opus.
const layout_list vorbis_layouts{{
    {},
    {front_center},
    {front_left, front_right},
    {front_left, front_center, front_right},
    {front_left, front_right, back_left, back_right},
    {front_left, front_center, front_right, back_left, back_right},
    {front_left, front_center, front_right, back_left, back_right, low_frequency},
    {front_left, front_center, front_right, side_left, side_right, back_center, low_frequency},
    {front_left, front_center, front_right, side_left, side_right, back_left, back_right,
     low_frequency},
}};

std::vector<speaker> row(const layout_list &from, int channels) {
    const auto index = static_cast<std::size_t>(channels);
    return index < from.size() ? from[index] : std::vector<speaker>{};
}

constexpr std::array<std::string_view, 19> speaker_names{"FL",  "FR",  "FC",  "LFE", "BL", "BR",  "FLC",
                                                         "FRC", "BC",  "SL",  "SR",  "TC", "TFL", "TFC",
                                                         "TFR", "TBL", "TBC", "TBR", "?"};

} // namespace

std::string_view name_of(speaker where) noexcept {
    return speaker_names.at(static_cast<std::size_t>(where));
}

std::optional<speaker> speaker_named(std::string_view name) {
    const auto is_it = [name](std::string_view each) {
        return std::ranges::equal(each, name, [](char a, char b) {
            return a == std::toupper(static_cast<unsigned char>(b));
        });
    };
    const auto found = std::ranges::find_if(speaker_names, is_it);
    if (found == speaker_names.end()) return std::nullopt;
    return static_cast<speaker>(found - speaker_names.begin());
}

std::vector<speaker> wav_speakers(int channels) {
    return row(wav_layouts, channels);
}

std::vector<speaker> vorbis_speakers(int channels) {
    return row(vorbis_layouts, channels);
}

std::vector<speaker> masked_speakers(std::uint32_t mask, int channels) {
    constexpr auto known = static_cast<unsigned>(other);
    std::vector<speaker> named;
    for (unsigned bit = 0; bit < 32; ++bit)
        if (mask >> bit & 1) named.push_back(static_cast<speaker>(std::min<unsigned>(bit, known)));
    if (named.size() != static_cast<std::size_t>(channels)) named.clear();
    return named;
}

} // namespace tools
