// Presets: the defaults of the target formats.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <cstdint>

namespace vela {

/// Fills the eleven fields of `settings` with the preset's defaults; the reserved bytes keep their
/// values.
/// @param sample_rate  receives the preset's rate in Hz; may be null
void preset_defaults(mpeg_a_settings &settings, std::int32_t preset,
                     std::int32_t *sample_rate) noexcept;

} // namespace vela
