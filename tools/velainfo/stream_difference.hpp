// Two streams held against each other, frame by frame and by their sound.
#pragma once

#include "velainfo/comparison.hpp"
#include "velainfo/container_tracks.hpp"
#include "velainfo/frame_difference.hpp"
#include "velainfo/stream_report.hpp"

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tools {

/// Frames in a row that only one stream has, or that differ.
struct difference_place {
    /// "changed"; of frames that only the first stream has "lost"; of frames that only the second one has
    /// "doubled" where they repeat those before them, else "added"
    std::string kind;
    std::uint64_t frames;
    /// The first of them in each stream, or where it would be: frames, bytes and seconds before it.
    std::array<std::uint64_t, 2> frame, offset;
    std::array<double, 2> seconds;
    std::vector<std::string> fields; ///< that differ in any of the changed frames
};

/// The second stream's sound less the first one's, over frames that both have; all of it 0 at first.
struct difference_noise {
    std::uint64_t frames;      ///< compared
    double power, signal;      ///< sums over the noisy ones: mean powers of a frame, full scale 1
    std::uint64_t noisy;       ///< frames with any
    double worst;              ///< the greatest power of a frame
    std::uint64_t worst_frame; ///< of the second stream

    void add(std::uint64_t frame, double frame_signal, double frame_power);
    /// dB, where there is any: mean level over all that was compared; 0 is a full-scale square wave.
    double level() const;
    /// dB: the signal above the noise in the frames that have any.
    double snr() const;
};

/// Counts are 0 at first.
struct stream_difference {
    static constexpr std::size_t listed_places = 1000;

    std::array<stream_report, 2> reports;
    std::uint64_t equal, changed;
    std::array<std::uint64_t, 2> alone;   ///< frames that only one has
    std::vector<difference_place> places; ///< the first ones
    std::uint64_t place_count;
    std::vector<field_difference> first; ///< of the first changed frames
    std::optional<difference_place> first_place;
    std::vector<std::pair<std::string, std::uint64_t>> fields; ///< changed frames by field
    difference_noise noise;
    /// Where few frames are the same the second stream's sound is looked for in the first one's.
    std::optional<comparison_totals> sound;
    std::string unlike; ///< why there is no noise to tell; empty where there is

    bool is_same() const { return changed == 0 && alone[0] == 0 && alone[1] == 0; }
};

/// @throws failure when one of them cannot be read, or is no stream
stream_difference compare_streams(const stream_name &first, const stream_name &second);

} // namespace tools
