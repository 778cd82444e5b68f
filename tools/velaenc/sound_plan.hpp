// From the input as it is to the sound that the stream has.
#pragma once

#include "input/pcm_source.hpp"
#include "jobs/clip_count.hpp"
#include "vela_enc_mp1a/settings.h"
#include "velaenc/options.hpp"

#include <memory>
#include <string>
#include <vector>

namespace tools {

/// The part of the input that is wanted, on the stream's channels and at its rate, at the level and in
/// the time that the user asked for. What needs no change passes through untouched.
/// @param notes  gets what is done to the sound
/// @throws failure when the input has a rate or channels that cannot be used
std::unique_ptr<pcm_source> shape_sound(std::unique_ptr<pcm_source> source, const options &wanted,
                                        const mpeg_a_settings &settings,
                                        std::vector<std::string> &notes);

/// Samples of the input that --start leaves out.
/// @param rate  of the input, Hz
std::uint64_t samples_before(const options &wanted, int rate);

/// What the user should know about samples that will be clipped.
std::string clip_text(const clip_count &clipped);

} // namespace tools
