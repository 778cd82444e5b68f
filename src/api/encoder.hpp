// One encoder: its life cycle and the encode loop.
#pragma once

#include "analysis/pcm_input.hpp"
#include "api/coding_path.hpp"
#include "coding/frame_coder.hpp"
#include "simd/level.hpp"
#include "stream/bit_writer.hpp"
#include "stream/frame_timer.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <cstdint>
#include <span>

/// All state of one stream; lives in one block of the host's memory, which Free hands back.
struct mpeg_a_encoder {
  public:
    /// As mpegOutAudioNew().
    static mpeg_a_encoder *create(resource_lookup lookup, const mpeg_a_settings *settings,
                                  std::int32_t pcm_format, std::int32_t sample_rate) noexcept;
    static void destroy(mpeg_a_encoder *encoder) noexcept;

    /// As mpegOutAudioInit(), with the kernels of a given level.
    std::int32_t init(bufstream *output, vela::level which) noexcept;
    /// As mpegOutAudioPutBytes(): 0 or 2.
    std::int32_t put_bytes(const void *data, std::uint32_t size) noexcept;
    /// As mpegOutAudioDone(): 0 or 2.
    std::int32_t done(bool abort) noexcept;

    /// Frames that position() wants to see before the one it goes to: the tuned model needs twelve of
    /// them in Layer I, ten in Layer II, the standard's five and two.
    static constexpr int history_frames = 12;

    /// Moves an initialised encoder forward to a later frame of its stream without encoding the frames
    /// in between: it goes on exactly as if it had encoded them, in bytes, padding and time stamps. So
    /// several encoders can share one stream.
    ///
    /// @param frame    number of the frame to go to, not below the number of frames passed so far
    /// @param history  PCM of the history_frames whole frames before it, or of all frames when
    ///                 there are fewer
    void position(std::int64_t frame, std::span<const std::uint8_t> history) noexcept;

    /// Has an observer look at every frame's decisions, from init until the next one. It sees nothing of a
    /// stream with the tuned model.
    void observe(const vela::frame_observer &observer) noexcept { coder_.observe(observer); }

    /// Header of the current frame, or of the stream before the first one; valid after init.
    const frame_header &header() const noexcept { return header_; }

  private:
    using free_function = void (*)(void *);

    class operation;

    int encode(std::span<const std::uint8_t> pcm, bool flush) noexcept;
    template <class Path>
    int encode_along(Path &path, std::span<const std::uint8_t> pcm, bool flush) noexcept;
    void end_frame(int frame_bits) noexcept;

    mpeg_a_settings settings_;
    std::int32_t sample_rate_;
    std::int32_t sampling_bits_;
    std::int64_t start_time_;
    bool initialised_;
    bool busy_; ///< a call of the host's is running: it may call back, but not in here again
    mpeg_a_message_function err_printf_;
    mpeg_a_message_function inf_printf_;
    free_function free_;

    const vela::analysis_kernels *analysis_;
    std::int64_t frames_passed_;   ///< encoded or skipped since init
    std::uint64_t previous_total_; ///< bits written up to the end of the frame before
    frame_header header_;
    vela::frame_timer timer_;
    vela::bit_writer writer_;
    vela::frame_coder coder_;
    vela::pcm_input input_;
    vela::any_path path_; ///< as settings_.audio_model says
};
