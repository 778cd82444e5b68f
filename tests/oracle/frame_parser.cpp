#include "oracle/frame_parser.hpp"

#include "oracle/standard_tables.hpp"

namespace oracle {

unsigned crc_of_bits(std::span<const std::uint8_t> bytes, int first, int end, unsigned start) {
    for (int i = first; i < end; ++i) {
        const unsigned bit = bytes[static_cast<unsigned>(i) / 8] >> (7 - i % 8) & 1u;
        const unsigned top = start >> 15 & 1u;
        start = (start << 1 & 0xFFFF) ^ (bit != top ? 0x8005 : 0);
    }
    return start;
}

namespace {

class parser {
  public:
    explicit parser(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    parsed_frame run() {
        header();
        if (f.error.empty()) side_information();
        if (f.error.empty()) f.layer == 1 ? samples_layer1() : samples_layer2();
        f.stuffing = size() - at_;
        while (at_ < size())
            check(read(1) == 0, "stuffing is not zero");
        return f;
    }

  private:
    int size() const { return static_cast<int>(8 * bytes_.size()); }

    int read(int n) {
        if (at_ + n > size()) {
            check(false, "fields beyond the end of the frame");
            at_ = size();
            return 0;
        }
        int value = 0;
        for (; n > 0; --n, ++at_)
            value = 2 * value + (bytes_[static_cast<unsigned>(at_) / 8] >> (7 - at_ % 8) & 1);
        return value;
    }

    void check(bool holds, const char *rule) {
        if (!holds && f.error.empty()) f.error = rule;
    }

    void header() {
        check(read(12) == 0xFFF, "sync word");
        check(read(1) == 1, "ID is not MPEG-1");
        f.layer = 4 - read(2);
        check(f.layer == 1 || f.layer == 2, "layer");
        f.crc = 1 - read(1);
        const int bitrate_index = read(4), rate_index = read(2);
        check(bitrate_index >= 1 && bitrate_index <= 14, "bitrate index");
        check(rate_index < 3, "sampling frequency");
        f.padding = read(1);
        f.private_bit = read(1);
        f.mode = read(2);
        f.mode_extension = read(2);
        check(f.mode == 1 || f.mode_extension == 0, "mode extension outside joint stereo");
        f.copyright = read(1);
        f.original = read(1);
        f.emphasis = read(2);
        check(f.emphasis != 2, "emphasis");
        if (!f.error.empty()) return;
        f.rate = rate_index == 0 ? 44100 : rate_index == 1 ? 48000 : 32000;
        f.kbps = bitrate_of(f.layer, bitrate_index);
        check(f.rate == 44100 || f.padding == 0, "padding where frames are whole");
        const int slots = f.kbps * (f.layer == 1 ? 12000 : 144000) / f.rate + f.padding;
        check(size() == slots * (f.layer == 1 ? 32 : 8), "length of the frame");
        f.channels = f.mode == 3 ? 1 : 2;
        f.parts = f.layer == 1 ? 1 : 3;
        table_ = table_of(f.rate, f.kbps / f.channels);
        f.sblimit = sblimit_of(f.layer, table_);
        f.bound = f.mode == 1 ? std::min(4 * (f.mode_extension + 1), f.sblimit) : f.sblimit;
    }

    int coded_channels(int sb) const { return sb < f.bound ? f.channels : 1; }

    void side_information() {
        const int crc = f.crc == 1 ? read(16) : 0;
        const int first_protected = at_;
        for (int sb = 0; sb < f.sblimit; ++sb) {
            const quantizers &row = quantizers_of(f.layer, table_, sb);
            for (int ch = 0; ch < coded_channels(sb); ++ch) {
                const auto n = static_cast<unsigned>(read(row.alloc_bits));
                check(n < row.steps.size(), "forbidden allocation");
                if (n >= row.steps.size()) return;
                for (int c = ch; c < (sb < f.bound ? ch + 1 : f.channels); ++c) {
                    f.allocation[c][sb] = static_cast<int>(n);
                    f.steps[c][sb] = row.steps[n];
                }
            }
        }
        for_each_allocated([&](int ch, int sb) { f.scfsi[ch][sb] = f.layer == 1 ? 2 : read(2); });
        if (f.crc == 1) {
            const unsigned expected =
                crc_of_bits(bytes_, first_protected, at_, crc_of_bits(bytes_, 16, 32));
            check(static_cast<unsigned>(crc) == expected, "CRC");
        }
        for_each_allocated([&](int ch, int sb) {
            const int scfsi = f.scfsi[ch][sb];
            int sent[3] = {};
            for (int i = 0; i < sent_per_scfsi[scfsi]; ++i) {
                sent[i] = read(6);
                check(sent[i] < 63, "forbidden scale factor");
            }
            static constexpr int used[4][3] = {{0, 1, 2}, {0, 0, 1}, {0, 0, 0}, {0, 1, 1}};
            for (int part = 0; part < f.parts; ++part)
                f.scalefactor[ch][part][sb] = sent[used[scfsi][part]];
        });
    }

    template <class Body>
    void for_each_allocated(Body body) {
        for (int sb = 0; sb < f.sblimit; ++sb) {
            for (int ch = 0; ch < f.channels; ++ch) {
                if (f.allocation[ch][sb] != 0) body(ch, sb);
            }
        }
    }

    /// The middle of the code's interval: C (s''' + D) with the constants of Table 3-B.4.
    void put_sample(int ch, int part, int j, int sb, int code) {
        const int steps = f.steps[ch][sb];
        check(code < steps, "forbidden code");
        for (int c = ch; c < (sb < f.bound ? ch + 1 : f.channels); ++c)
            f.fraction[c][part][j][sb] = (2.0 * code + 1 - steps) / steps;
    }

    void samples_layer1() {
        for (int j = 0; j < 12; ++j) {
            for (int sb = 0; sb < 32; ++sb) {
                for (int ch = 0; ch < coded_channels(sb); ++ch) {
                    if (f.steps[ch][sb] != 0) put_sample(ch, 0, j, sb, read(f.allocation[ch][sb] + 1));
                }
            }
        }
    }

    void samples_layer2() {
        for (int granule = 0; granule < 12; ++granule) {
            for (int sb = 0; sb < f.sblimit; ++sb) {
                for (int ch = 0; ch < coded_channels(sb); ++ch) {
                    const int steps = f.steps[ch][sb];
                    if (steps == 0) continue;
                    int word = is_grouped(steps) ? read(code_bits_of(2, steps)) : 0;
                    check(steps > 9 || word < steps * steps * steps, "forbidden group");
                    for (int j = 0; j < 3; ++j, word /= steps) {
                        put_sample(ch, granule / 4, granule % 4 * 3 + j, sb,
                                   is_grouped(steps) ? word % steps : read(code_bits_of(2, steps)));
                    }
                }
            }
        }
    }

    std::span<const std::uint8_t> bytes_;
    int at_ = 0;
    char table_ = 0;
    parsed_frame f;
};

} // namespace

parsed_frame parse_frame(std::span<const std::uint8_t> bytes) {
    return parser(bytes).run();
}

} // namespace oracle
