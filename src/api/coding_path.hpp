// The ways from a frame of samples to its bits, one for each model.
#pragma once

#include "coding/frame_coder.hpp"
#include "psy/standard_model.hpp"
#include "psy/tuned_model.hpp"
#include "simd/level.hpp"

#include <variant>

namespace vela {

/// A model, and the coding that goes by what it finds. Everything that passes from one frame to the next
/// is here: in the model what it remembers of the sound, in Memory what coding remembers of its choices.
template <class Model, class Memory>
class coding_path {
  public:
    void init(level which, int layer, int channels, int sample_rate) noexcept {
        model_.init(which, layer, channels, sample_rate);
        memory_ = {};
    }

    /// Forgets all frames, as at the start of a stream.
    void restart() noexcept {
        model_.restart();
        memory_ = {};
    }

    /// How many of the latest frames must be looked at and passed after restart() for the next one to be
    /// coded as if all before it had been. Windows reach further back: up to 448 samples before a Layer
    /// II frame, less than a frame, and 704 before a Layer I frame, less than two.
    int remembered_frames() const noexcept { return model_.remembered_frames() + Memory::frames; }

    /// How many of the next frames, looked at together, fill the model's lanes.
    int frames_at_once() const noexcept { return model_.frames_at_once(); }

    /// Lets the model see the next frames.
    /// @param frame_start  of the first one, see frame_passes
    void look(const float *const *frame_start, int frames) noexcept {
        model_.analyze(frame_start, frames, found_);
    }

    /// Passes over one of the frames looked at last, as if it had been coded. They are passed or coded in
    /// order.
    void pass(frame_coder &coder, int frame, int frame_bits, const subband_samples &samples) noexcept {
        coder.pass_frame(frame_bits, samples, found_[frame], memory_);
    }

    /// Codes one of the frames looked at last. They are coded in order.
    void encode(frame_coder &coder, int frame, int frame_bits,
                const subband_samples &samples) noexcept {
        coder.encode_frame(frame_bits, samples, found_[frame], memory_);
    }

  private:
    Model model_;
    typename Model::findings found_[frame_passes::most_frames_at_once];
    Memory memory_;
};

using standard_path = coding_path<standard_model, standard_memory>;
using tuned_path = coding_path<tuned_model, tuned_memory>;
using any_path = std::variant<standard_path, tuned_path>;

/// Calls visitor(path) for the one in use. Unlike std::visit nothing that could throw is in it.
template <class Visitor>
auto visit(Visitor visitor, any_path &path) noexcept {
    if (auto *const tuned = std::get_if<tuned_path>(&path)) return visitor(*tuned);
    return visitor(*std::get_if<standard_path>(&path));
}

} // namespace vela
