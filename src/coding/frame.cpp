#include "coding/frame.hpp"

#include "stream/rate_tables.hpp"

namespace vela {

coder_config make_coder_config(const frame_header &header) noexcept {
    coder_config config{};
    config.layer = header.layer;
    config.mode = header.mode;
    config.error_protection = header.error_protection != 0;
    config.channels = header.mode == MPEG_A_MODE_MONO ? 1 : 2;
    config.table = &table_layer1;
    if (config.layer == 2) {
        const int kbps = bitrate_kbps(header.layer, header.bitrate_index);
        const auto rate = static_cast<int>(1000.0 * sampling_frequency_khz[header.sampling_frequency]);
        config.table = &select_alloc_table(rate, kbps / config.channels);
    }
    config.sblimit = config.table->sblimit;
    return config;
}

} // namespace vela
