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

/// Calls field(subband, channel) for every subband of every channel, in order: scfsi and scale factors
/// are sent for both channels above the joint bound too.
template <class Field>
void for_each_subband(const coder_config &config, Field field) {
    for (int sb = 0; sb < config.sblimit; ++sb) {
        for (int ch = 0; ch < config.channels; ++ch)
            field(sb, ch);
    }
}

/// Writes the fields that the CRC protects to anything with put(value, bits).
template <class Sink>
void put_protected(const coder_config &config, const side_info &side, Sink &sink) {
    for_each_coded(config, side, [&](int sb, int ch) {
        sink.put(side.allocation[ch][sb], static_cast<unsigned>(config.table->row(sb).alloc_bits));
    });
    if (config.layer == 1) return;
    for_each_subband(config, [&](int sb, int ch) {
        const unsigned sent = side.allocation[ch][sb] != 0;
        sink.put(sent * side.scfsi[ch][sb], sent * 2);
    });
}

} // namespace

std::uint32_t frame_crc(const coder_config &config, std::uint32_t header_word,
                        const side_info &side) noexcept {
    crc16 crc = header_crc(header_word);
    put_protected(config, side, crc);
    return crc.value();
}

// Music decides anew in every frame which subbands have bits and which scale factors they share: fields
// of no bits cost less than branches that go wrong.
void pack_side_info(const coder_config &config, const side_info &side, bit_buffer &bits) noexcept {
    bit_cursor cursor = bits.cursor();
    put_protected(config, side, cursor);
    for_each_subband(config, [&](int sb, int ch) {
        const unsigned sent = side.allocation[ch][sb] != 0;
        // One scale factor is the first part's, two are those of the first and the last part (ISO/IEC
        // 11172-3, 2.4.2.7).
        const auto count =
            config.layer == 1 ? 1U : static_cast<unsigned>(scalefactors_per_scfsi[side.scfsi[ch][sb]]);
        const auto index = [&](int part) { return unsigned{side.scalefactor[ch][part][sb]}; };
        const unsigned all =
            index(0) << 6 * (count - 1) | (count == 3) * index(1) << 6 | (count > 1) * index(2);
        cursor.put(sent * all, sent * 6 * count);
    });
    bits.resume(cursor);
}

void pack_samples(const coding_kernels &kernels, const coder_config &config, const side_info &side,
                  const sample_codes &codes, bit_buffer &bits) noexcept {
    coded_subband coded[64];
    int count = 0;
    for_each_coded(config, side, [&](int sb, int ch) {
        const unsigned step = side.allocation[ch][sb];
        coded[count] = {&codes[ch][0][0][sb], config.table->row(sb).layouts[step]};
        count += step != 0;
    });
    bit_cursor cursor = bits.cursor();
    (config.layer == 1 ? kernels.pack_layer1 : kernels.pack_layer2)(coded, count, cursor);
    bits.resume(cursor);
}

} // namespace vela
