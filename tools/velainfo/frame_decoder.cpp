#include "velainfo/frame_decoder.hpp"

#include <algorithm>

namespace tools {

frame_decoder::frame_decoder(const stream_name &stream, const stream_report &report)
    : input_(stream), usual_bytes_(report.frame_bytes / report.frames),
      usual_samples_(report.usual_samples()), channels_(report.usual_channels()),
      scanner_([this](std::span<std::uint8_t> room) { return input_.read(room); }) {
}

bool frame_decoder::next(decoded_frame &out) {
    out.is_frame = out.valid = false;
    out.samples = usual_samples_;
    while (missing_ == 0) {
        const auto piece = scanner_.next();
        if (!piece) return false;
        if (!piece->is_frame) {
            // A tag was never sound.
            if (number_ > 0 && !piece->tag)
                missing_ = (piece->length + usual_bytes_ / 2) / usual_bytes_;
            continue;
        }
        out.is_frame = true;
        out.number = number_++;
        out.frame = parse_frame(piece->bytes, &codes_);
        out.samples = out.frame.samples();
        out.valid = out.frame.faults == 0 && out.frame.channels() == channels_;
        if (out.valid) requantize(out.frame, codes_, out.subbands);
        break;
    }
    if (!out.is_frame) --missing_;
    synthesize(out);
    return true;
}

void frame_decoder::synthesize(decoded_frame &out) {
    static constexpr float silence[32] = {};
    for (int i = 0; i < out.samples / 32; ++i) {
        for (int ch = 0; ch < channels_; ++ch) {
            float pcm[32];
            banks_[ch].step(out.valid ? out.subbands[ch][i] : silence, pcm);
            std::copy_n(pcm, 32, out.pcm[ch] + 32 * i);
        }
    }
}

} // namespace tools
