#include "check/kept_source.hpp"

#include "input/stream_source.hpp"

namespace tools {

std::span<const std::byte> kept_source::next_block() {
    const auto block = source().next_block();
    kept_.append(block);
    return block;
}

std::unique_ptr<pcm_source> kept_source::again() {
    input_file kept = kept_.open_again("the kept input");
    const std::uint64_t bytes = kept.size();
    return std::make_unique<stream_source>(std::move(kept), shape_, std::span<const std::byte>{}, bytes,
                                           length_rule::promise);
}

} // namespace tools
