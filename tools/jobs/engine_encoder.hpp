// One engine from its factory to its end, and the frames that it pushes: stream_encoder by the other
// door.
#pragma once

#include "input/pcm_source.hpp"
#include "output/frame_buffer.hpp"
#include "vela_enc_mp1a/engine.h"

#include <memory>

namespace tools {

/// The sink: passes the frames on to a frame_buffer. It outlives every reference, so nobody counts them.
class frame_sink final : public PushData {
  public:
    explicit frame_sink(frame_buffer &to) : to_(to) {}

    std::int32_t AddRef() noexcept override { return 0; }
    std::int32_t Release() noexcept override { return 0; }
    std::int32_t set_parameter(const char *, std::int32_t, double) noexcept override { return 0; }
    std::int32_t set_parameter_str(const char *, const void *, std::int32_t,
                                   std::int32_t) noexcept override {
        return 0;
    }
    std::int32_t set_time_stamps(std::int64_t first, std::int64_t second) noexcept override;
    std::int32_t begin_unit(std::int32_t length, std::int32_t reserved) noexcept override;
    std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept override;
    std::int32_t end_unit() noexcept override;

    /// The engine does not listen when a sink has no room.
    bool overflowed() const noexcept { return overflowed_; }

  private:
    frame_buffer &to_;
    frame_info frame_{};
    bool overflowed_ = false;
};

struct engine_releaser {
    void operator()(IEngine *engine) const noexcept { engine->Release(); }
};
using engine_reference = std::unique_ptr<IEngine, engine_releaser>;

class engine_encoder {
  public:
    /// As stream_encoder's.
    /// @throws failure
    engine_encoder(const mpeg_a_settings &settings, const pcm_shape &shape, std::size_t room);
    engine_encoder(const engine_encoder &) = delete;
    engine_encoder &operator=(const engine_encoder &) = delete;

    void put(std::span<const std::byte> pcm);
    void finish() noexcept;
    frame_buffer &output() noexcept { return output_; }

  private:
    frame_buffer output_;
    frame_sink sink_;
    engine_reference params_, input_;
};

} // namespace tools
