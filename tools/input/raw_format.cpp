#include "input/raw_format.hpp"

#include <cstring>

namespace tools {
namespace {

/// The sample in the upper bits.
std::uint32_t load_upper(const std::byte *at, const raw_format &format) noexcept {
    std::uint32_t value = 0;
    for (int i = 0; i < format.bytes; ++i) {
        const int place = format.big_endian ? i : format.bytes - 1 - i;
        value |= std::to_integer<std::uint32_t>(at[place]) << (24 - 8 * i);
    }
    return format.numbers == raw_format::kind::unsigned_integer ? value ^ 0x80000000u : value;
}

} // namespace

sample_format raw_format::target() const noexcept {
    return bytes == 4 ? sample_format::f32 : bytes == 3 ? sample_format::s24 : sample_format::s16;
}

bool raw_format::is_native() const noexcept {
    return !big_endian && static_cast<int>(target()) == bytes
           && (bytes < 4 || numbers == kind::floating);
}

raw_decoder::raw_decoder(std::unique_ptr<pcm_source> source, const raw_format &format)
    : source_filter(std::move(source)), format_(format) {
    shape_.format = format.target();
}

std::span<const std::byte> raw_decoder::next_block() {
    const auto block = source().next_block();
    const auto from = static_cast<std::size_t>(format_.bytes),
               to = static_cast<std::size_t>(shape_.format);
    const bool scales = format_.bytes == 4 && format_.numbers == raw_format::kind::integer;
    out_.resize(block.size() / from * to);
    std::byte *at = out_.data();
    for (std::size_t i = 0; i < block.size(); i += from, at += to) {
        std::uint32_t value = load_upper(&block[i], format_);
        if (scales) {
            const float scaled = static_cast<float>(static_cast<std::int32_t>(value)) * 0x1p-31f;
            std::memcpy(&value, &scaled, sizeof value);
        }
        value >>= 32 - 8 * to;
        for (std::size_t byte = 0; byte < to; ++byte)
            at[byte] = static_cast<std::byte>(value >> 8 * byte);
    }
    return out_;
}

} // namespace tools
