#include "output/wave_container.hpp"

#include <array>

namespace tools {

wave_container::wave_container(output_file &file, const mpeg_a_settings &settings, int kbps, int rate,
                               std::vector<wav_chunk> labels)
    : file_(file), settings_(settings), kbps_(kbps), rate_(rate), labels_(std::move(labels)) {
    const auto header = wave_header(settings_, kbps_, rate_, labels_, std::nullopt);
    stream_offset_ = header.size();
    file_.write(header);
}

void wave_container::finish(const wave_sizes &sizes) {
    if (file_.is_direct()) return;
    if (sizes.bytes % 2 != 0) file_.write(std::array{std::byte{0}});
    file_.rewrite(0, wave_header(settings_, kbps_, rate_, labels_, sizes));
}

} // namespace tools
