// Frames written bit by bit, by the syntax of ISO/IEC 11172-3, 2.4.1, with random contents that are known.
#pragma once

#include "parser/standard_tables.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace velaenc_test {

using bytes = std::vector<std::uint8_t>;

/// Bits as a text of zeros and ones.
inline void put_bits(std::string &bits, int value, int n) {
    for (int i = n; i-- > 0;)
        bits += static_cast<char>('0' + (value >> i & 1));
}

inline bytes packed(const std::string &bits) {
    bytes out(bits.size() / 8);
    for (std::size_t i = 0; i < 8 * out.size(); ++i)
        out[i / 8] = static_cast<std::uint8_t>(out[i / 8] << 1 | (bits[i] - '0'));
    return out;
}

/// The register of 2.4.3.1 after these bits, a shift each.
inline int crc_of_bits(const std::string &bits) {
    unsigned crc = 0xFFFF;
    for (const char bit : bits)
        crc =
            (crc << 1 ^ ((crc >> 15 & 1) != static_cast<unsigned>(bit - '0') ? 0x8005u : 0u)) & 0xFFFF;
    return static_cast<int>(crc);
}

struct written_frame {
    int version = 1, layer = 2, crc = 0, bitrate_index = 1, rate_index = 0, padding = 0,
        private_bit = 0, mode = 0, mode_extension = 0, copyright = 0, original = 0, emphasis = 0;
    bool ancillary = false; ///< the last bit is set
    // What write() makes of it.
    int allocation[2][32] = {}, steps[2][32] = {}, scfsi[2][32] = {}, factors[2][3][32] = {};
    int allocation_bits = 0, scfsi_bits = 0, factor_bits = 0, sample_bits = 0;

    int channels() const { return mode == 3 ? 1 : 2; }
    int parts() const { return layer == 1 ? 1 : 3; }
    int rate() const {
        return std::array{44100, 48000, 32000}[static_cast<unsigned>(rate_index)] / version;
    }
    int kbps() const { return tools::bitrate_of(layer, bitrate_index, version); }
    /// 2.4.3.1: slots of four bytes or one.
    int size() const {
        return layer == 1 ? 4 * (12000 * kbps() / rate() + padding)
                          : 144000 * kbps() / rate() + padding;
    }
    char table() const { return tools::table_of(rate(), kbps() / channels()); }
    int sblimit() const { return tools::sblimit_of(layer, table()); }
    int bound() const { return mode == 1 ? std::min(4 * mode_extension + 4, sblimit()) : sblimit(); }

    bytes write(std::mt19937 &random) {
        const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
        std::string bits;
        const std::pair<int, int> header[] = {
            {0xFFF, 12},     {2 - version, 1}, {4 - layer, 2},   {1 - crc, 1}, {bitrate_index, 4},
            {rate_index, 2}, {padding, 1},     {private_bit, 1}, {mode, 2},    {mode_extension, 2},
            {copyright, 1},  {original, 1},    {emphasis, 2}};
        for (const auto &[value, n] : header)
            put_bits(bits, value, n);
        std::string side = allocate(8 * size() - 33 - 16 * crc, below);
        allocation_bits = static_cast<int>(side.size());
        if (layer == 2) for_each_allocated([&](int ch, int sb) { put_bits(side, scfsi[ch][sb], 2); });
        scfsi_bits = static_cast<int>(side.size()) - allocation_bits;
        if (crc == 1) put_bits(bits, crc_of_bits(bits.substr(16) + side), 16);
        bits += side;
        for_each_allocated([&](int ch, int sb) { factor_bits += put_factors(bits, ch, sb, below); });
        for (int round = 0; round < 12; ++round)
            for (int sb = 0; sb < sblimit(); ++sb)
                for (int ch = 0; ch < (sb < bound() ? channels() : 1); ++ch)
                    sample_bits += put_samples(bits, steps[ch][sb], below);
        bits.resize(8 * static_cast<std::size_t>(size()), '0');
        if (ancillary) bits.back() = '1';
        return packed(bits);
    }

  private:
    static constexpr int sent[4] = {3, 2, 1, 2};

    template <class Body>
    void for_each_allocated(Body body) const {
        for (int sb = 0; sb < sblimit(); ++sb)
            for (int ch = 0; ch < channels(); ++ch)
                if (allocation[ch][sb] > 0) body(ch, sb);
    }

    /// Allocations that `room` bits are enough for.
    template <class Below>
    std::string allocate(int room, Below below) {
        std::string bits;
        for (int sb = 0; sb < sblimit(); ++sb)
            room -=
                tools::quantizers_of(layer, table(), sb).alloc_bits * (sb < bound() ? channels() : 1);
        for (int sb = 0; sb < sblimit(); ++sb) {
            const auto &row = tools::quantizers_of(layer, table(), sb);
            for (int ch = 0; ch < (sb < bound() ? channels() : 1); ++ch) {
                const int end = sb < bound() ? ch + 1 : channels();
                int n = below(static_cast<int>(row.steps.size()));
                const int used = row.steps[static_cast<unsigned>(n)];
                const bool grouped = tools::is_grouped(layer, used);
                int cost = 12 * tools::code_bits_of(layer, used) * (layer == 1 || grouped ? 1 : 3);
                for (int c = ch; c < end; ++c) {
                    scfsi[c][sb] = layer == 1 ? 2 : below(4);
                    cost += 6 * sent[scfsi[c][sb]] + (layer == 1 ? 0 : 2);
                }
                if (cost > room) n = 0;
                if (n > 0) room -= cost;
                put_bits(bits, n, row.alloc_bits);
                for (int c = ch; c < end; ++c) {
                    allocation[c][sb] = n;
                    steps[c][sb] = row.steps[static_cast<unsigned>(n)];
                }
            }
        }
        return bits;
    }

    /// 2.4.2.7: which parts share a scale factor.
    template <class Below>
    int put_factors(std::string &bits, int ch, int sb, Below below) {
        const std::size_t before = bits.size();
        const auto part = [&](int i) -> int & { return factors[ch][i][sb]; };
        for (int i = 0; i < parts(); ++i) {
            const bool same = (i == 1 && scfsi[ch][sb] == 1) || (i == 2 && scfsi[ch][sb] == 3)
                              || (i > 0 && scfsi[ch][sb] == 2);
            part(i) = same ? part(i - 1) : 6 + below(57);
            if (!same) put_bits(bits, part(i), 6);
        }
        return static_cast<int>(bits.size() - before);
    }

    template <class Below>
    int put_samples(std::string &bits, int used, Below below) const {
        const std::size_t before = bits.size();
        const bool grouped = tools::is_grouped(layer, used);
        for (int i = 0; used > 0 && i < (layer == 1 || grouped ? 1 : 3); ++i)
            put_bits(bits, below(grouped ? used * used * used : used),
                     tools::code_bits_of(layer, used));
        return static_cast<int>(bits.size() - before);
    }
};

} // namespace velaenc_test
