// How far decoded sound is from the sound that was encoded, second by second.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tools {

/// Sums over one second of one channel. The low ones are over averages of 16 samples, which leaves what lies
/// below about 1.5 kHz: no bitrate drops that, and no intensity stereo shares it.
struct second_sums {
    double samples;
    double signal, noise; ///< squares of the sound, and of what the decoded sound differs by
    double low_signal, low_noise;

    void operator+=(const second_sums &other) noexcept;
};

/// Samples beyond full scale, which players clip.
struct over_count {
    std::uint64_t samples;
    double peak; ///< the greatest magnitude, full scale 1.0

    void add(std::span<const float> decoded) noexcept;
    void operator+=(const over_count &other) noexcept;
};

/// @param sound, decoded  interleaved, of the same length, `channels` samples an instant
/// @param sums            of every channel; they are added to
void add_difference(std::span<const float> sound, std::span<const float> decoded,
                    std::span<second_sums> sums);

/// dB; none where there is no sound to speak of (-60 dBFS).
std::optional<double> signal_to_noise(const second_sums &second) noexcept;

/// The second from which on the decoded sound is another one, by the rules that hold for every correct
/// stream: what Layers I and II leave out or round is never more than what was there, unless intensity stereo
/// gives a channel what the other one has.
/// @param seconds  sums of every channel in turn, for each second
std::optional<std::size_t> first_wrong_second(std::span<const second_sums> seconds,
                                              std::size_t channels, bool intensity);

/// The most that find_shift() looks for.
inline constexpr int longest_shift = 1152;

/// By how many samples the decoded sound comes later than it should, to either side; none where this is as good a
/// place as any.
/// @param sound    of one channel, with longest_shift samples before and behind those that belong to `decoded`
std::optional<int> find_shift(std::span<const float> sound, std::span<const float> decoded);

} // namespace tools
