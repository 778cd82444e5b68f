#include "coding/frame_coder.hpp"

#include "coding/bit_allocation.hpp"
#include "coding/pack.hpp"
#include "coding/quantize.hpp"
#include "coding/scalefactors.hpp"
#include "coding/tuned_allocation.hpp"
#include "stream/frame_header.hpp"

namespace vela {

void frame_coder::init(const coding_kernels &kernels, frame_header &header,
                       bit_writer &writer) noexcept {
    kernels_ = &kernels;
    header_ = &header;
    writer_ = &writer;
    config_ = make_coder_config(header);
    observer_ = {};
}

void frame_coder::find_scalefactors(const subband_samples &samples, side_info &side,
                                    part_samples (&joint)[3]) noexcept {
    for (int part = 0; part < config_.parts(); ++part) {
        for (int ch = 0; ch < config_.channels; ++ch) {
            compute_scalefactors(*kernels_, samples[ch][part], side.scalefactor[ch][part]);
        }
        if (config_.mode != MPEG_A_MODE_JOINT_STEREO) continue;
        kernels_->combine(samples[0][part], samples[1][part], joint[part]);
        compute_scalefactors(*kernels_, joint[part], side.joint_index[part]);
    }
}

void frame_coder::encode_frame(int frame_bits, const subband_samples &samples, const smr_table &smr,
                               standard_memory &memory) noexcept {
    side_info side{};
    part_samples joint[3];
    sample_codes codes;
    find_scalefactors(samples, side, joint);
    if (config_.layer == 2) choose_scfsi(config_, side);

    side.joint_bound = config_.sblimit;
    if (config_.mode == MPEG_A_MODE_JOINT_STEREO)
        choose_joint_bound(config_, smr, frame_bits, *header_, side);
    const int stuffing = allocate_bits(config_, smr, frame_bits, side, memory.ratio_hint);

    if (observer_.see != nullptr)
        observer_.see(observer_.context, {config_, *header_, samples, smr, side, frame_bits, stuffing});

    quantize_samples(*kernels_, config_, side, samples, joint, codes);
    write_frame(side, codes, stuffing);
}

void frame_coder::encode_frame(int frame_bits, const subband_samples &samples,
                               const noise_weights &weights, tuned_memory &memory) noexcept {
    side_info side{};
    part_samples joint[3];
    sample_codes codes;
    tuned_frame weighed;
    find_scalefactors(samples, side, joint);
    const weighed_frame frame{*kernels_, config_, samples, joint, weights};
    weigh_frame(frame, side, weighed);
    const int stuffing = allocate_tuned(frame, frame_bits, *header_, weighed, side, memory);
    quantize_samples(*kernels_, config_, side, samples, joint, codes);
    write_frame(side, codes, stuffing);
}

void frame_coder::pass_frame(int frame_bits, const subband_samples &samples,
                             const noise_weights &weights, tuned_memory &memory) noexcept {
    side_info side{};
    part_samples joint[3];
    tuned_frame weighed;
    find_scalefactors(samples, side, joint);
    const weighed_frame frame{*kernels_, config_, samples, joint, weights};
    weigh_frame(frame, side, weighed);
    pass_tuned(frame, frame_bits, *header_, weighed, memory);
}

void frame_coder::write_frame(const side_info &side, const sample_codes &codes, int stuffing) noexcept {
    const std::uint32_t word = header_word(*header_);
    writer_->put_header_word(word, header_info{*header_, {}});

    bit_buffer bits;
    if (config_.error_protection) bits.put(frame_crc(config_, word, side), 16);
    pack_side_info(config_, side, bits);
    writer_->put(bits);

    // A small block is changed before the samples rather than in their midst.
    constexpr std::uint32_t sample_room = 1024;
    writer_->request_space(sample_room);
    pack_samples(*kernels_, config_, side, codes, bits);
    bits.put_zeros(stuffing);
    bits.align();
    writer_->put(bits);
}

} // namespace vela
