// Numbers that several steps of the psychoacoustic model share. Their digits are part of the stream.
#pragma once

namespace vela {

/// ln 10 / 10: e^(this x) is the factor of x dB.
inline constexpr double ln10_by_10 = 0.2302585093;

/// An energy in the units of the spectrum that lies above every threshold: where nothing limits one. Just
/// above the 96 dB with which the table of the threshold in quiet ends.
inline constexpr double no_threshold = 60802371420160.0;

} // namespace vela
