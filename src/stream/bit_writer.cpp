#include "stream/bit_writer.hpp"

#include "simd/float_environment.hpp"

#include <cstdio>
#include <cstring>

namespace vela {

/// Calls a slot of the host's, which may leave any floating-point environment behind.
template <class Slot, class... Arguments>
std::uint32_t bit_writer::call(Slot slot, Arguments... arguments) noexcept {
    const std::uint32_t result = slot(stream_, arguments...);
    float_environment::renew();
    return result;
}

void bit_writer::bind(bufstream *stream) noexcept {
    *this = {};
    stream_ = stream;
    lend(0);
}

/// Asks for a block. Until the host has lent one, there is no room.
void bit_writer::lend(std::uint32_t shortest) noexcept {
    const std::uint32_t size = call(stream_->chunk_size);
    if (size >= shortest) block_ = stream_->request(stream_, size);
    float_environment::renew();
    if (block_ == nullptr) return refused(size);
    capacity_ = size;
}

bool bit_writer::request_frame(std::uint32_t n) noexcept {
    return request(n, n);
}

bool bit_writer::request(std::uint32_t n, std::uint32_t shortest_block) noexcept {
    if (error_) return false;
    if (position_ + n < capacity_) return true;
    // A block that the frame would fill to its last byte counts as too short here as well: it is given
    // back empty and asked for again. Hosts see that call sequence, so it stays.
    end_block();
    lend(shortest_block);
    return !error_;
}

void bit_writer::end_block() noexcept {
    if (block_ != nullptr && call(stream_->commit, position_) != position_) error_ = true;
    block_ = nullptr;
    capacity_ = 0;
    position_ = 0;
}

void bit_writer::refused(std::uint32_t capacity) noexcept {
    error_ = true;
    std::fprintf(stderr, "can't request space (%d bytes) in output bufstream\n",
                 static_cast<int>(capacity));
}

void bit_writer::put_header_word(std::uint32_t word, const header_info &info) noexcept {
    call(stream_->auxinfo, position_, MPEG_A_HEADER_INFO, &info, std::uint32_t{sizeof info});
    if (!request_space(4)) return;
    const std::uint8_t bytes[4] = {
        static_cast<std::uint8_t>(word >> 24), static_cast<std::uint8_t>(word >> 16),
        static_cast<std::uint8_t>(word >> 8), static_cast<std::uint8_t>(word)};
    store(bytes, sizeof bytes);
}

void bit_writer::put(bit_buffer &bits) noexcept {
    store(bits.bytes(), bits.size());
    bits.clear_bytes();
}

void bit_writer::store(const std::uint8_t *bytes, std::size_t n) noexcept {
    total_bits_ += 8 * n;
    if (error_ || n == 0) return;
    const auto size = static_cast<std::uint32_t>(n);
    if (size > capacity_ - position_) {
        // Only a host that lends a smaller block in the middle of a frame gets here.
        refused(capacity_);
        return;
    }
    std::memcpy(block_ + position_, bytes, n);
    position_ += size;
    if (position_ == capacity_) end_block();
}

void bit_writer::end_frame(const frame_info &info) noexcept {
    end_block();
    call(stream_->auxinfo, position_, MPEG_A_FRAME_INFO, &info, std::uint32_t{sizeof info});
}

} // namespace vela
