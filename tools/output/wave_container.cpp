#include "output/wave_container.hpp"

#include <array>

namespace tools {

std::uint64_t wave_container::begin() {
    const auto header = wave_header(settings_, rate_, labels_, std::nullopt);
    file_.write(header);
    return header.size();
}

void wave_container::finish(const wave_sizes &sizes) {
    if (file_.is_direct()) return;
    if (sizes.bytes % 2 != 0) file_.write(std::array{std::byte{0}});
    file_.rewind();
    file_.write(wave_header(settings_, rate_, labels_, sizes));
}

} // namespace tools
