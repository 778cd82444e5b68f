#include "jobs/metered_source.hpp"

#include "input/sample_value.hpp"

namespace tools {

metered_source::metered_source(std::unique_ptr<pcm_source> source)
    : source_filter(std::move(source)), meter_(shape_.channels, shape_.rate) {
}

std::span<const std::byte> metered_source::next_block() {
    const auto block = source().next_block();
    load_samples(block, shape_.format, values_);
    meter_.add(values_);
    return block;
}

} // namespace tools
