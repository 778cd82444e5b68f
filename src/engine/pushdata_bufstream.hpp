// The output of an engine whose host wants frames pushed: a bufstream over a PushData sink.
#pragma once

#include "vela_enc_mp1a/engine.h"

#include <cstdint>

namespace vela {

/// Gathers each frame's bytes and pushes them with the time stamp once the encoder reports the frame's
/// end.
///
///     buffer                     fill                            buffer_bytes
///     v                          v                               v
///     +--------------------------+-------------------------------+
///     | committed, not pushed    | lent by request()             |
///     +--------------------------+-------------------------------+
struct pushdata_bufstream : bufstream {
    static constexpr std::uint32_t buffer_bytes = 4096;

    /// @return the adapter, with a reference of its own on the sink; null when memory is out
    static pushdata_bufstream *create(PushData &sink) noexcept;

    /// Frees the adapter and its reference; what has been committed and not pushed is dropped.
    static void free(pushdata_bufstream *freed) noexcept;

    PushData *sink;
    std::uint8_t *buffer;
    std::int32_t fill;
    pushdata_bufstream *next; ///< the engine's list of adapters to free later
};

} // namespace vela
