#include "input/stream_source.hpp"

#include "common/failure.hpp"
#include "input/container.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <poll.h>

namespace tools {
namespace {

constexpr auto endless = std::numeric_limits<std::uint64_t>::max();

} // namespace

stream_source::stream_source(input_file input, const pcm_shape &shape, std::span<const std::byte> head,
                             std::optional<std::uint64_t> bytes, length_rule rule)
    : input_(std::move(input)), shape_(shape), bytes_(bytes), rule_(rule),
      left_(bytes.value_or(endless)), padded_(left_ % 2 != 0),
      buffer_(std::max(block_bytes, head.size())) {
    if (!bytes && !input_.seekable() && rule == length_rule::hint) live_.emplace();
    if (input_.seekable()) start_ = move_in(input_, 0, SEEK_CUR) - static_cast<off_t>(head.size());
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

bool stream_source::seek(std::uint64_t sample) {
    if (!input_.seekable() || !bytes_ || sample > *length()) return false;
    const std::uint64_t target = sample * shape_.instant_bytes();
    move_in(input_, start_ + static_cast<off_t>(target), SEEK_SET);
    left_ = *bytes_ - target;
    filled_ = used_ = 0;
    handed_out_ = target;
    return true;
}

bool stream_source::ready_before(std::chrono::steady_clock::time_point time) const {
    const bool at_end = left_ == 0 && rule_ == length_rule::promise;
    if (filled_ - used_ >= shape_.instant_bytes() || at_end) return true;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
    pollfd state{input_.handle.get(), POLLIN, 0};
    return ::poll(&state, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0))) != 0;
}

bool stream_source::refill() {
    if (left_ == 0 && !goes_on()) return false;
    const auto room = std::span(buffer_).subspan(filled_);
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), left_));
    if (live_ && !live_->wait_for(input_.handle.get())) return false;
    const std::size_t count = read_some(input_, room.first(wanted));
    filled_ += count;
    left_ -= count;
    return count != 0;
}

bool stream_source::goes_on() {
    if (rule_ == length_rule::promise) return false;
    rule_ = length_rule::promise; // nothing comes behind what comes now
    const auto room = std::span(buffer_).subspan(filled_);
    const auto next = room.first(padded_ ? 9 : 8);
    std::size_t count = 0;
    while (const std::size_t more = count < next.size() ? read_some(input_, next.subspan(count)) : 0)
        count += more;
    if (count == next.size() && std::memcmp(next.last(8).data(), "RIFF", 4) == 0)
        throw failure(exit_code::input,
                      input_.name
                          + " goes on with another WAV file behind the first, which is"
                            " not read; encode each by itself");
    if (count < next.size() || begins_chunk(next.last(8))) {
        while (read_some(input_, room) != 0) { // or its writer would fail
        }
        return false;
    }
    input_.note("goes on where its header ends it; all of it is encoded");
    filled_ += count;
    left_ = endless;
    return true;
}

void stream_source::check_end() {
    const std::uint64_t samples = handed_out_ / shape_.instant_bytes();
    if (bytes_ && samples < *length())
        report_incomplete(input_,
                          "is truncated: " + std::to_string(*length())
                              + " samples a channel were promised, " + std::to_string(samples)
                              + " are there",
                          rule_);
    if (live_ && live_->has_ended())
        input_.note("was ended by a signal; what came before is encoded");
    else if (filled_ != 0)
        input_.note("ends inside a sample: the last " + std::to_string(filled_) + " of "
                    + std::to_string(shape_.instant_bytes()) + " bytes are dropped");
}

} // namespace tools
