#include "coding/pack.hpp"

#include "coding/crc.hpp"

namespace vela {

namespace {

/// Calls field(subband, channel) for every allocation field of a frame, in order: above the joint bound
/// both channels share one.
template <class Field>
void for_each_coded(const coder_config &config, const side_info &side, Field field) {
    for (int sb = 0; sb < config.sblimit; ++sb) {
        for (int ch = 0; ch < side.coded_channels(config.channels, sb); ++ch)
            field(sb, ch);
    }
}

/// Calls field(subband, channel) for every subband with bits in every channel, in order: scfsi and
/// scale factors are sent for both channels above the joint bound too.
template <class Field>
void for_each_scaled(const coder_config &config, const side_info &side, Field field) {
    for (int sb = 0; sb < config.sblimit; ++sb) {
        for (int ch = 0; ch < config.channels; ++ch) {
            if (side.allocation[ch][sb] != 0) field(sb, ch);
        }
    }
}

/// Writes the fields that the CRC protects to anything with put(value, bits).
template <class Sink>
void put_protected(const coder_config &config, const side_info &side, Sink &sink) {
    for_each_coded(config, side, [&](int sb, int ch) {
        sink.put(side.allocation[ch][sb], static_cast<unsigned>(config.table->row(sb).alloc_bits));
    });
    if (config.layer == 1) return;
    for_each_scaled(config, side, [&](int sb, int ch) { sink.put(side.scfsi[ch][sb], 2); });
}

} // namespace

std::uint32_t frame_crc(const coder_config &config, std::uint32_t header_word,
                        const side_info &side) noexcept {
    crc16 crc = header_crc(header_word);
    put_protected(config, side, crc);
    return crc.value();
}

void pack_side_info(const coder_config &config, const side_info &side, bit_buffer &bits) noexcept {
    put_protected(config, side, bits);
    for_each_scaled(config, side, [&](int sb, int ch) {
        const auto &index = side.scalefactor[ch];
        const int scfsi = config.layer == 1 ? 2 : side.scfsi[ch][sb];
        bits.put(index[0][sb], 6);
        if (scfsi == 0) bits.put(index[1][sb], 6);
        if (scfsi != 2) bits.put(index[2][sb], 6);
    });
}

void pack_samples(const coding_kernels &kernels, const coder_config &config, const side_info &side,
                  const sample_codes &codes, bit_buffer &bits) noexcept {
    coded_subband coded[64];
    int count = 0;
    for_each_coded(config, side, [&](int sb, int ch) {
        const unsigned step = side.allocation[ch][sb];
        if (step == 0) return;
        const alloc_row &row = config.table->row(sb);
        coded[count++] = {&codes[ch][0][0][sb], row.code_bits[step], row.grouped_steps[step]};
    });
    bit_cursor cursor = bits.cursor();
    (config.layer == 1 ? kernels.pack_layer1 : kernels.pack_layer2)(coded, count, cursor);
    bits.resume(cursor);
}

} // namespace vela
