// Another sampling rate, through libsoxr.
#pragma once

#include "input/resampled_piece.hpp"
#include "input/source_filter.hpp"

#include <deque>

namespace tools {

/// The first samples of input and output lie at the same time, and so do the ends. Its samples are
/// floats. It is read from the start only, piece after piece; where there is a crew and enough input, that
/// makes the pieces.
class resampler final : public source_filter {
  public:
    /// @param rate  Hz
    resampler(std::unique_ptr<pcm_source> source, int rate);

    std::optional<std::uint64_t> length() const noexcept override;
    std::span<const std::byte> next_block() override;
    bool ready_before(std::chrono::steady_clock::time_point time) const override;
    bool seek(std::uint64_t) override { return false; }
    void work_with(work_crew *crew) noexcept override;

  private:
    bool crew_wants_more() const;
    void gather();
    void distribute(std::span<const std::byte> block);
    void open_piece();

    piece_plan plan_;
    work_crew *crew_ = nullptr;
    std::deque<std::unique_ptr<resampled_piece>> pieces_; ///< in their order
    std::uint64_t read_ = 0;                              ///< samples of the source
    std::uint64_t next_begin_ = 0; ///< of them where the next piece's input begins
    bool ended_ = false;           ///< the source has
};

} // namespace tools
