#include "jobs/segment_reader.hpp"

#include "jobs/stream_encoder.hpp"

#include <algorithm>

namespace tools {

segment_reader::segment_reader(pcm_source &source, std::size_t frame_samples, std::size_t most_frames)
    : source_(source), frame_bytes_(frame_samples * source.shape().instant_bytes()),
      most_frames_(most_frames) {
}

void segment_reader::begin(segment &next) const {
    next.first_frame = next_frame_;
    next.pcm = carried_;
    next.history_bytes = history_bytes_;
    next.last = false;
    next.pcm_bytes = 0;
}

void segment_reader::skip(std::uint64_t segments) {
    segment passed(0);
    for (; segments > 0; --segments) {
        begin(passed);
        while (!is_full(passed) && read(passed)) {
        }
        cut(passed);
    }
}

bool segment_reader::read(segment &next) {
    if (block_.empty()) {
        try {
            block_ = source_.next_block();
        } catch (...) {
            // What came before the error is encoded first, as on one thread.
            error_ = std::current_exception();
            return false;
        }
        next.last = block_.empty();
        samples_ += block_.size() / source_.shape().instant_bytes();
    }
    const std::size_t room = next.history_bytes + most_frames_ * frame_bytes_ - next.pcm.size();
    const auto part = block_.first(std::min(block_.size(), room));
    next.pcm.insert(next.pcm.end(), part.begin(), part.end());
    block_ = block_.subspan(part.size());
    return !next.last;
}

void segment_reader::cut(segment &next) {
    const std::size_t end = next.history_bytes + whole_frames(next) * frame_bytes_;
    history_bytes_ = std::min(end, stream_encoder::history_frames * frame_bytes_);
    carried_.assign(next.pcm.end()
                        - static_cast<std::ptrdiff_t>(next.pcm.size() - end + history_bytes_),
                    next.pcm.end());
    next_frame_ += static_cast<std::int64_t>(whole_frames(next));
    if (!next.last) next.pcm.resize(end);
}

bool segment_reader::is_full(const segment &next) const noexcept {
    return whole_frames(next) == most_frames_;
}

bool segment_reader::has_frames(const segment &next) const noexcept {
    return whole_frames(next) != 0;
}

bool segment_reader::ready_before(std::chrono::steady_clock::time_point time) const {
    return !block_.empty() || source_.ready_before(time);
}

void segment_reader::check() const {
    if (error_) std::rethrow_exception(error_);
}

std::size_t segment_reader::whole_frames(const segment &next) const noexcept {
    return (next.pcm.size() - next.history_bytes) / frame_bytes_;
}

} // namespace tools
