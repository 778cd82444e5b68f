#include "check/kept_source.hpp"

#include "input/stream_source.hpp"

namespace tools {

std::span<const std::byte> kept_source::next_block() {
    const auto block = source().next_block();
    kept_.append(block);
    bytes_ += block.size();
    return block;
}

std::unique_ptr<pcm_source> kept_source::again() {
    return std::make_unique<stream_source>(kept_.open_again("the kept input"), shape_,
                                           std::span<const std::byte>{}, bytes_, length_rule::promise);
}

} // namespace tools
