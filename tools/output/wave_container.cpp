#include "output/wave_container.hpp"

#include <array>

namespace tools {

wave_container::wave_container(output_file &file, const mpeg_a_settings &settings, int kbps, int rate,
                               byte_list bext)
    : file_(file), settings_(settings), kbps_(kbps), rate_(rate), bext_(std::move(bext)) {
    const auto header = wave_header(settings_, kbps_, rate_, bext_, std::nullopt);
    stream_offset_ = header.size();
    file_.write(header);
}

void wave_container::finish(const wave_sizes &sizes) {
    if (file_.is_direct()) return;
    if (sizes.bytes % 2 != 0) file_.write(std::array{std::byte{0}});
    file_.rewrite(0, wave_header(settings_, kbps_, rate_, bext_, sizes));
}

} // namespace tools
