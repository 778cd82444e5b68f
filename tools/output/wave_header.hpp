// The chunks around MPEG audio in RIFF, as broadcasters exchange it: EBU Tech 3285 with supplement 1, and
// RF64 (EBU Tech 3306) where the file has more than 4 GiB.
#pragma once

#include "common/wav_chunk.hpp"
#include "loudness/loudness_record.hpp"
#include "vela_enc_mp1a/settings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace tools {

struct wave_sizes {
    std::uint64_t bytes;   ///< of the stream
    std::uint64_t samples; ///< a channel
};

/// What stands before the stream:
///
///     RIFF or RF64 | WAVE | JUNK or ds64 | fmt | fact | labels | mext | data
///
/// Its length depends on that of the labels only, so that it can be written anew once the sizes are known.
/// @param rate   Hz
/// @param labels  what else the file says of its sound, `bext` first
/// @param sizes  none: still unknown
byte_list wave_header(const mpeg_a_settings &settings, int rate, const std::vector<wav_chunk> &labels,
                      const std::optional<wave_sizes> &sizes);

/// The broadcast extension of a stream that is made from a certain input.
struct broadcast_origin {
    byte_list bext; ///< contents of the input's own chunk; empty: it has none
    int rate;       ///< of the input, Hz
    int channels;
    int bits;            ///< of its samples; 0: no whole number of bits
    std::uint64_t start; ///< samples of the input that were left out before the sound
    bool sounds_alike;   ///< as loud as the input, over the same time
};

/// Contents of the chunk: the input's own, its time reference that of the sound in samples of the stream,
/// measured loudness only where it still holds, and a line of coding history (EBU R 98) for the stream;
/// before that one for the input where there is none yet.
byte_list broadcast_extension(const broadcast_origin &origin, const mpeg_a_settings &settings,
                              int rate);

/// Puts into such contents how loud the sound was measured to be; they are of version 2 then.
void write_loudness(byte_list &bext, const loudness_figures &figures);

} // namespace tools
