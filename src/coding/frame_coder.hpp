// Codes one frame: scale factors, bit allocation, quantizing, packing.
#pragma once

#include "coding/frame.hpp"
#include "coding/kernels.hpp"
#include "coding/tuned_memory.hpp"
#include "stream/bit_writer.hpp"

namespace vela {

/// What passes from one frame of a stream to the next with the standard's allocation; a fresh one is as good
/// at its start.
struct standard_memory {
    double ratio_hint = 0.0; ///< see allocate_bits

    /// Frames that the next one depends on.
    static constexpr int frames = 0;
};

/// Codes the frames of one stream.
class frame_coder {
  public:
    /// @param header  of the stream; its mode and mode_extension change per frame when joint stereo is
    ///                configured. Must outlive the coder, as must `writer`.
    void init(const coding_kernels &kernels, frame_header &header, bit_writer &writer) noexcept;

    /// Writes one frame of exactly `frame_bits` bits, allocated as the standard describes.
    void encode_frame(int frame_bits, const subband_samples &samples, const smr_table &smr,
                      standard_memory &memory) noexcept;

    /// The same with the tuned allocation.
    void encode_frame(int frame_bits, const subband_samples &samples, const noise_weights &weights,
                      tuned_memory &memory) noexcept;

    /// What encode_frame() would make of the memory, without a frame written.
    /// @param frame_bits  as the header says, with padding or without
    void pass_frame(int, const subband_samples &, const smr_table &, standard_memory &) noexcept {}
    void pass_frame(int frame_bits, const subband_samples &samples, const noise_weights &weights,
                    tuned_memory &memory) noexcept;

    /// From now on until the next init().
    void observe(const frame_observer &observer) noexcept { observer_ = observer; }

    const coder_config &config() const noexcept { return config_; }

  private:
    void find_scalefactors(const subband_samples &samples, side_info &side,
                           part_samples (&joint)[3]) noexcept;
    void write_frame(const side_info &side, const sample_codes &codes, int stuffing) noexcept;

    const coding_kernels *kernels_;
    frame_header *header_;
    bit_writer *writer_;
    frame_observer observer_;
    coder_config config_;
};

} // namespace vela
