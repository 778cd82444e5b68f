#include "input/stream_source.hpp"

#include "common/failure.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <poll.h>

namespace tools {

stream_source::stream_source(input_file input, const pcm_shape &shape, std::span<const std::byte> head,
                             std::optional<std::uint64_t> length)
    : input_(std::move(input)), shape_(shape), length_(length),
      left_(length ? *length * shape.instant_bytes() : std::numeric_limits<std::uint64_t>::max()),
      buffer_(std::max(block_bytes, head.size())) {
    filled_ = static_cast<std::size_t>(std::min<std::uint64_t>(head.size(), left_));
    std::copy_n(head.begin(), filled_, buffer_.begin());
    left_ -= filled_;
}

std::span<const std::byte> stream_source::next_block() {
    std::memmove(buffer_.data(), buffer_.data() + used_, filled_ - used_);
    filled_ -= used_;
    used_ = 0;
    while (filled_ < shape_.instant_bytes() && refill()) {
    }
    used_ = filled_ - filled_ % shape_.instant_bytes();
    if (used_ == 0) check_end();
    handed_out_ += used_;
    return std::span(buffer_).first(used_);
}

bool stream_source::ready_before(std::chrono::steady_clock::time_point time) const {
    if (filled_ - used_ >= shape_.instant_bytes() || left_ == 0) return true;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
    pollfd state{input_.handle.get(), POLLIN, 0};
    return ::poll(&state, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))) != 0;
}

bool stream_source::refill() {
    const auto room = std::span(buffer_).subspan(filled_);
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), left_));
    if (wanted == 0) return false;
    const std::size_t count = read_some(input_, room.first(wanted));
    filled_ += count;
    left_ -= count;
    return count != 0;
}

void stream_source::check_end() const {
    const std::uint64_t samples = handed_out_ / shape_.instant_bytes();
    if (length_ && samples < *length_)
        throw failure(exit_code::input, input_.name + " is truncated: " + std::to_string(*length_)
                                            + " samples a channel were promised, "
                                            + std::to_string(samples)
                                            + " are there; the complete file is needed");
    if (filled_ != 0)
        throw failure(
            exit_code::input,
            input_.name + " ends inside a sample: " + std::to_string(filled_) + " of "
                + std::to_string(shape_.instant_bytes())
                + " bytes are left over; check --channels and --format, or complete the file");
}

} // namespace tools
