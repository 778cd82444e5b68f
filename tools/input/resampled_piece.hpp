// A piece of a sound at another sampling rate, with a filter of its own.
#pragma once

#include "input/pcm_source.hpp"
#include "input/shared_work.hpp"

#include <memory>

struct soxr;

namespace tools {

/// How a sound is cut. The begin of every piece lies at a whole number of samples of both rates:
///
///     input    | overlap |          length          | overlap |
///     filter   begins    :                          :     ends
///     output             |   length in samples out  |
///
/// Pieces are the same whoever makes them, so the sound does not depend on the number of threads. All
/// in samples a channel.
struct piece_plan {
    /// @param from, to  rates in Hz
    piece_plan(int from, int to);

    /// Samples that come of so many; halves are rounded up.
    std::uint64_t samples_out(std::uint64_t in) const noexcept;

    int from, to;
    std::uint64_t length;  ///< of the input
    std::uint64_t overlap; ///< with either neighbour; more than a filter is long to one side
};

class resampled_piece final : public work {
  public:
    /// @param in        shape of the input
    /// @param is_first  there is no input before the piece's begin
    resampled_piece(const piece_plan &plan, const pcm_shape &in, bool is_first);
    ~resampled_piece() override;

    /// Bytes of input that are still to come, unless the sound ends before.
    std::size_t bytes_wanted() const noexcept { return bytes_wanted_; }

    /// @param bytes  whole samples, at most bytes_wanted()
    void put(std::span<const std::byte> bytes);

    /// The sound has ended.
    void end();

    /// Makes what can be made of the input so far; all of the piece when the input is complete.
    void run() override;

    /// Bytes of input that run() has not seen.
    std::size_t bytes_waiting() const noexcept { return in_.size(); }

    /// Whether all of the output has been made.
    bool is_complete() const noexcept { return made_ == wanted_; }

    bool has_output() const noexcept { return taken_ < made_; }

    /// Floats that nobody has taken; at most a block.
    std::span<const float> take() noexcept;

    bool is_with_crew = false;

  private:
    struct deleter {
        void operator()(soxr *filter) const noexcept;
    };

    void process(std::span<const float> samples);

    const piece_plan &plan_;
    pcm_shape shape_;
    std::size_t channels_;
    std::unique_ptr<soxr, deleter> filter_;
    std::vector<std::byte> in_; ///< what run() has not seen
    std::uint64_t before_;      ///< samples out before the piece, which are passed over
    std::uint64_t passed_;      ///< of them, still to come
    std::uint64_t wanted_, made_ = 0, taken_ = 0;
    std::uint64_t samples_in_ = 0;
    std::size_t bytes_wanted_;
    std::vector<float> values_, out_;
};

} // namespace tools
