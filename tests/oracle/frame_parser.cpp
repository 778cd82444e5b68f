#include "oracle/frame_parser.hpp"

#include "oracle/standard_tables.hpp"

namespace oracle {
namespace {

class parser {
  public:
    explicit parser(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    parsed_frame run() {
        header();
        if (f.error.empty()) side_information();
        if (f.error.empty()) samples();
        f.stuffing = size() - at_;
        while (at_ < size())
            check(read(1) == 0, "stuffing is not zero");
        return f;
    }

  private:
    int size() const { return static_cast<int>(8 * bytes_.size()); }
    int bit(int i) const { return bytes_[static_cast<unsigned>(i) / 8] >> (7 - i % 8) & 1; }

    int read(int n) {
        check(at_ + n <= size(), "fields beyond the end of the frame");
        int value = 0;
        for (; n > 0 && at_ < size(); --n)
            value = 2 * value + bit(at_++);
        return value;
    }

    void check(bool holds, const char *rule) {
        if (!holds && f.error.empty()) f.error = rule;
    }

    void header() {
        int sync = 0, no_crc = 0, bitrate_index = 0, rate_index = 0;
        const std::pair<int *, int> fields[] = {
            {&sync, 13},         {&f.layer, 2},    {&no_crc, 1},
            {&bitrate_index, 4}, {&rate_index, 2}, {&f.padding, 1},
            {&f.private_bit, 1}, {&f.mode, 2},     {&f.mode_extension, 2},
            {&f.copyright, 1},   {&f.original, 1}, {&f.emphasis, 2}};
        for (const auto &[field, bits] : fields)
            *field = read(bits);
        f.layer = 4 - f.layer;
        f.crc = 1 - no_crc;
        check(sync == 0x1FFF, "sync word or ID");
        check(f.layer == 1 || f.layer == 2, "layer");
        check(bitrate_index >= 1 && bitrate_index <= 14, "bitrate index");
        check(rate_index < 3, "sampling frequency");
        check(f.mode == 1 || f.mode_extension == 0, "mode extension outside joint stereo");
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
    /// One more than the last channel that a field of a subband counts for.
    int end_of(int ch, int sb) const { return sb < f.bound ? ch + 1 : f.channels; }

    void side_information() {
        const int crc = f.crc == 1 ? read(16) : 0;
        const int first_protected = at_;
        for (int sb = 0; sb < f.sblimit; ++sb) {
            const quantizers &row = quantizers_of(f.layer, table_, sb);
            for (int ch = 0; ch < coded_channels(sb); ++ch) {
                const auto n = static_cast<unsigned>(read(row.alloc_bits));
                check(n < row.steps.size(), "forbidden allocation");
                if (n >= row.steps.size()) return;
                for (int c = ch; c < end_of(ch, sb); ++c) {
                    f.allocation[c][sb] = static_cast<int>(n);
                    f.steps[c][sb] = row.steps[n];
                }
            }
        }
        for_each_allocated([&](int ch, int sb) { f.scfsi[ch][sb] = f.layer == 1 ? 2 : read(2); });
        check(f.crc == 0 || crc == crc_of(first_protected, at_, crc_of(16, 32, 0xFFFF)), "CRC");
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

    /// 2.4.3.1, bit by bit: the register after bits first .. end - 1.
    int crc_of(int first, int end, int start) const {
        for (int i = first; i < end; ++i)
            start = (start << 1 & 0xFFFF) ^ (bit(i) != start >> 15 ? 0x8005 : 0);
        return start;
    }

    template <class Body>
    void for_each_allocated(Body body) {
        for (int i = 0; i < f.sblimit * f.channels; ++i) {
            if (f.allocation[i % f.channels][i / f.channels] != 0) body(i % f.channels, i / f.channels);
        }
    }

    /// The middle of the code's interval: C (s''' + D) with the constants of Table 3-B.4.
    void put_sample(int ch, int i, int sb, int code) {
        const int steps = f.steps[ch][sb];
        check(code < steps, "forbidden code");
        for (int c = ch; c < end_of(ch, sb); ++c)
            f.fraction[c][i / 12][i % 12][sb] = (2.0 * code + 1 - steps) / steps;
    }

    void samples() {
        const int triple = f.layer == 1 ? 1 : 3;
        for (int i = 0; i < 12 * triple; i += triple) {
            for (int sb = 0; sb < f.sblimit; ++sb) {
                for (int ch = 0; ch < coded_channels(sb); ++ch) {
                    const int steps = f.steps[ch][sb], bits = code_bits_of(f.layer, steps);
                    const bool grouped = is_grouped(f.layer, steps);
                    if (steps == 0) continue;
                    int word = grouped ? read(bits) : 0;
                    check(!grouped || word < steps * steps * steps, "forbidden group");
                    for (int j = 0; j < triple; ++j, word /= steps)
                        put_sample(ch, i + j, sb, grouped ? word % steps : read(bits));
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
