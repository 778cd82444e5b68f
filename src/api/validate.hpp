// Validation of a settings record: generic rules and the rules of the target formats.
#pragma once

#include "vela_enc_mp1a/encoder.h"

#include <cstdint>

namespace vela {

/// Stands in for a message function that the host does not supply.
int silent_printf(const char *format, ...) noexcept;

/// The host's function of that name; `silent_printf` when there is no lookup or it has none.
mpeg_a_message_function message_function(resource_lookup lookup, const char *name) noexcept;

/// Checks a record; arguments and result as mpegOutAudioChkSettings().
std::int32_t check_settings(mpeg_a_message_function err_printf, const mpeg_a_settings &settings,
                            std::int32_t preset, std::int32_t sample_rate,
                            std::int32_t options) noexcept;

} // namespace vela
