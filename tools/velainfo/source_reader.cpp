#include "velainfo/source_reader.hpp"

#include "common/failure.hpp"
#include "input/channel_fit.hpp"
#include "input/open_pcm.hpp"
#include "input/sample_value.hpp"

#include <algorithm>

namespace tools {

source_reader::source_reader(const std::string &path, int channels)
    : source_(open_pcm(open_input(path), input_wishes{})) {
    if (source_->shape().channels > 2)
        throw failure(exit_code::input, path + " has more than two channels");
    source_ = fit_channels(std::move(source_), channels);
}

bool source_reader::refill() {
    const auto bytes = source_->next_block();
    block_first_ += static_cast<std::int64_t>(block_.size()) / channels();
    load_samples(bytes, source_->shape().format, block_);
    return !block_.empty();
}

std::vector<float> source_reader::read(std::int64_t first, std::size_t instants) {
    const auto width = static_cast<std::size_t>(channels());
    std::vector<float> out(instants * width);
    const std::int64_t end = first + static_cast<std::int64_t>(instants);
    while (first < end) {
        const std::int64_t held = static_cast<std::int64_t>(block_.size() / width);
        if (first < block_first_) {
            ++first; // before the start
        } else if (first < block_first_ + held) {
            const auto from = static_cast<std::size_t>(first - block_first_);
            const auto size =
                static_cast<std::size_t>(std::min(end - first, held - (first - block_first_)));
            const auto to = instants - static_cast<std::size_t>(end - first);
            std::copy_n(&block_[from * width], size * width, &out[to * width]);
            first += static_cast<std::int64_t>(size);
        } else if (!refill()) {
            break;
        }
    }
    return out;
}

} // namespace tools
