// What the input says of itself, as an ID3v2.4 tag in front of the stream.
#pragma once

#include "common/wav_chunk.hpp"

#include <string>

namespace tools {

/// Title, artist, album, date, track, genre, comment and ISRC of a file, in whatever way its format has
/// them; empty where it has none of these, or is of a format without tags.
byte_list id3_tag_of(const std::string &path);

} // namespace tools
