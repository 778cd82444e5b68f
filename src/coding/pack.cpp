#include "coding/pack.hpp"

#include "coding/crc.hpp"

namespace vela {

namespace {

/// Calls field(subband, channel) for every allocation field of a frame, in
/// order: above the joint bound both channels share one.
template <class Field>
void for_each_coded(const coder_config &config, const side_info &side, Field field) {
    for (int sb = 0; sb < config.sblimit; ++sb) {
        for (int ch = 0; ch < side.coded_channels(config.channels, sb); ++ch)
            field(sb, ch);
    }
}

/// Calls field(subband, channel) for every subband with bits in every channel,
/// in order: scfsi and scale factors are sent for both channels above the joint
/// bound too.
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
        sink.put(side.allocation[ch][sb], config.table->row(sb).alloc_bits);
    });
    if (config.layer == 1) return;
    for_each_scaled(config, side, [&](int sb, int ch) { sink.put(side.scfsi[ch][sb], 2); });
}

/// The samples of one coded subband and channel in a granule.
struct coded_subband {
    std::uint8_t ch, sb, bits;
    std::uint8_t grouped_steps; ///< 3, 5 or 9; 0 when each sample has a code word
                                ///< of its own
};

/// Lists the subbands that have samples in this frame; returns their number.
int list_coded(const coder_config &config, const side_info &side, coded_subband (&list)[64]) noexcept {
    int count = 0;
    for_each_coded(config, side, [&](int sb, int ch) {
        const unsigned step = side.allocation[ch][sb];
        if (step == 0) return;
        const alloc_row &row = config.table->row(sb);
        list[count++] = {static_cast<std::uint8_t>(ch), static_cast<std::uint8_t>(sb),
                         row.code_bits[step], row.grouped_steps[step]};
    });
    return count;
}

std::uint32_t code_of(const std::int32_t &code) noexcept {
    return static_cast<std::uint32_t>(code);
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

void pack_samples(const coder_config &config, const side_info &side, const sample_codes &codes,
                  bit_buffer &bits) noexcept {
    coded_subband coded[64];
    const int count = list_coded(config, side, coded);
    if (config.layer == 1) {
        for (int j = 0; j < 12; ++j) {
            for (int i = 0; i < count; ++i) {
                const coded_subband &c = coded[i];
                bits.put(code_of(codes[c.ch][0][j][c.sb]), c.bits);
            }
        }
        return;
    }
    for (int granule = 0; granule < 12; ++granule) {
        const int part = granule / 4, j = granule % 4 * 3;
        for (int i = 0; i < count; ++i) {
            const coded_subband &c = coded[i];
            const auto &rows = codes[c.ch][part];
            const std::uint32_t c0 = code_of(rows[j][c.sb]), c1 = code_of(rows[j + 1][c.sb]),
                                c2 = code_of(rows[j + 2][c.sb]);
            if (c.grouped_steps != 0) {
                const std::uint32_t steps = c.grouped_steps;
                bits.put(c0 + steps * (c1 + steps * c2), c.bits);
            } else if (c.bits <= 10) {
                bits.put((c0 << c.bits | c1) << c.bits | c2, 3 * c.bits);
            } else {
                bits.put(c0, c.bits);
                bits.put(c1, c.bits);
                bits.put(c2, c.bits);
            }
        }
    }
}

} // namespace vela
