// Finds out before the encode whether a file is whole.
#pragma once

#include "input/input_file.hpp"

namespace tools {

/// Bytes of a file in front of the tags that some programs put behind FLAC and Ogg, APEv2 and ID3v1, of which their
/// decoders know nothing; of other files all.
std::uint64_t bytes_before_tags(const input_file &input);

/// For files that libsndfile reads: it shortens those that lack their end, believes sizes that have
/// wrapped, and skips damaged Ogg pages. Files that do not tell their length (MPEG audio without a tag)
/// pass.
/// @param input  seekable
/// @throws failure
void check_complete(const input_file &input, length_rule rule);

} // namespace tools
