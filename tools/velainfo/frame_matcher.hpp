// Which frames of two streams are the same ones, and where one of the streams has more.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace tools {

/// A frame as it stands in its file.
struct kept_frame {
    std::uint64_t number; ///< frames before it
    std::uint64_t offset;
    double seconds, end; ///< of sound before it, and behind it
    std::vector<std::uint8_t> bytes;
};

/// Pairs the frames of two streams by their bytes. Where they differ, the nearest place is taken from which on
/// they are the same again: as many frames as both have up to there are changed ones, the rest is in one stream
/// only. A place further apart than half the window is not seen.
class frame_matcher {
  public:
    /// None at the end.
    using read_function = std::function<std::optional<kept_frame>()>;

    static constexpr std::size_t window = 2048; ///< frames of each stream that are looked at together

    /// @param ahead  so many frames of a stream are known to be in it alone, from its start
    explicit frame_matcher(std::array<read_function, 2> read, std::array<std::uint64_t, 2> ahead);

    /// One frame of both streams, or of the one that has it alone.
    struct pair {
        const kept_frame *frame[2] = {}; ///< valid until the next call; null: not in that stream
        bool is_equal;
    };

    /// None at the end of both.
    std::optional<pair> next();

  private:
    void fill();
    void plan();
    bool same(std::size_t i, std::size_t j) const;
    bool goes_on(std::size_t i, std::size_t j) const;

    std::array<read_function, 2> read_;
    std::array<std::deque<kept_frame>, 2> frames_;
    std::array<bool, 2> used_{}, ended_{};
    std::size_t changed_ = 0;            ///< pairs still to come
    std::array<std::uint64_t, 2> alone_; ///< frames still to come
};

} // namespace tools
