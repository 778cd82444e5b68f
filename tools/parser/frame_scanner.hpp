// Finds the frames of a stream, and its way back to them after anything else.
#pragma once

#include "parser/frame_header.hpp"
#include "parser/tag.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace tools {

/// A stretch of the input: one frame, or bytes that belong to none.
struct stream_piece {
    std::uint64_t offset; ///< of its first byte
    std::uint64_t length;
    /// Of a frame. A gap that begins with a header has it too: of a frame that was cut short, or whose
    /// header is damaged.
    std::optional<stream_header> header;
    bool is_frame;
    /// Of a gap that begins with a tag. The gap ends with the tag, or before it where a frame or the end
    /// of the input comes sooner.
    std::optional<stream_tag> tag;
    /// All bytes of a frame, the first ones of a gap; valid until the next call.
    std::span<const std::uint8_t> bytes;
};

/// Cuts the input into pieces without a gap or an overlap: their lengths add up to the input's.
///
/// A frame is where the one before ended, if its header is of the same kind and the next one follows at
/// the same bitrate. Otherwise it still counts unless another frame begins inside it. Anywhere else it
/// takes two frames in a row of the same kind as before, or four of another kind; for the first frame
/// two at the very start, three behind other bytes. Fewer do only where the input ends exactly with them.
///
/// Memory is a window of fixed size, whatever the input says.
class frame_scanner {
  public:
    /// Fills the front of `room`, which is not empty; returns the bytes read, 0 at the end.
    using read_function = std::function<std::size_t(std::span<std::uint8_t> room)>;

    explicit frame_scanner(read_function read);

    /// None at the end.
    std::optional<stream_piece> next();

  private:
    std::size_t available() const { return end_ - begin_; }
    void fill(std::size_t bytes);
    std::span<const std::uint8_t> window(std::size_t position) const;
    std::optional<stream_header> header_at(std::size_t position) const;
    bool has_chain(std::size_t position, int frames, const stream_header *kind) const;
    bool begins_anywhere(std::size_t position) const;
    bool begins_in_place() const;
    stream_piece take_frame();
    stream_piece take_gap();
    bool only_id3v1_is_left(std::size_t position) const;
    void advance(std::size_t bytes);

    read_function read_;
    std::vector<std::uint8_t> buffer_;
    std::size_t begin_ = 0, end_ = 0;   ///< of the bytes in the buffer that are not yet in a piece
    bool at_end_ = false;               ///< the input has no more
    std::uint64_t offset_ = 0;          ///< of begin_
    std::optional<stream_header> kind_; ///< of the last frame
    bool in_place_ = false;             ///< a frame ended at begin_
    std::array<std::uint8_t, 16> gap_head_{};
};

} // namespace tools
