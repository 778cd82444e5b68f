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
    std::uint64_t frames = 0;
    /// The first of them in each stream, or where it would be: frames, bytes and seconds before it.
    std::array<std::uint64_t, 2> frame{}, offset{};
    std::array<double, 2> seconds{};
    std::vector<std::string> fields{}; ///< that differ in any of the changed frames
};

/// The second stream's sound less the first one's, over frames that both have.
struct difference_noise {
    std::uint64_t frames = 0;      ///< compared
    double power = 0, signal = 0;  ///< sums over the noisy ones: mean powers of a frame, full scale 1
    std::uint64_t noisy = 0;       ///< frames with any
    double worst = 0;              ///< the greatest power of a frame
    std::uint64_t worst_frame = 0; ///< of the second stream

    void add(std::uint64_t frame, double frame_signal, double frame_power);
    /// dB: mean level over all that was compared, and of the worst frame; 0 is a full-scale square wave.
    double level() const;
    double worst_level() const;
    /// dB: the signal above the noise in the frames that have any.
    double snr() const;
};

struct stream_difference {
    static constexpr std::size_t listed_places = 1000;

    std::array<stream_report, 2> reports;
    std::uint64_t equal = 0, changed = 0;
    std::array<std::uint64_t, 2> alone{}; ///< frames that only one has
    std::vector<difference_place> places; ///< the first ones
    std::uint64_t place_count = 0;
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
