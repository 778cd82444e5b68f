#include "parser/frame_parser.hpp"

#include "parser/bit_reader.hpp"
#include "parser/standard_tables.hpp"

#include <algorithm>
#include <array>
#include <bit>

namespace tools {
namespace {

/// The generator x^16 + x^15 + x^2 + 1 of 2.4.3.1 over a byte.
constexpr auto crc_table = [] {
    std::array<std::uint16_t, 256> table{};
    for (unsigned byte = 0; byte < 256; ++byte) {
        unsigned rest = byte << 8;
        for (int i = 0; i < 8; ++i)
            rest = rest << 1 ^ ((rest & 0x8000) != 0 ? 0x8005 : 0);
        table[byte] = static_cast<std::uint16_t>(rest);
    }
    return table;
}();

/// The register after the bits begin .. end - 1.
unsigned crc_of(const bit_reader &bits, int begin, int end, unsigned crc) {
    for (; begin + 8 <= end; begin += 8)
        crc = (crc << 8 ^ crc_table[(crc >> 8 ^ bits.peek(begin, 8)) & 0xFF]) & 0xFFFF;
    for (; begin < end; ++begin)
        crc = (crc << 1 ^ ((crc >> 15 ^ bits.peek(begin, 1)) != 0 ? 0x8005 : 0)) & 0xFFFF;
    return crc;
}

class parser {
  public:
    parser(std::span<const std::uint8_t> bytes, sample_codes *codes) : in_(bytes), codes_(codes) {
        const auto header = read_header(bytes);
        if (header) static_cast<stream_header &>(f) = *header;
        check(header && f.bytes() == static_cast<int>(bytes.size()), fault_length);
    }

    parsed_frame run() {
        if (f.faults != 0) return f;
        header();
        allocation();
        if ((f.faults & fault_allocation) != 0) return f;
        selection();
        scalefactors();
        list_code_words();
        samples();
        rest();
        return f;
    }

  private:
    struct code_word {
        std::uint8_t ch, sb;
        std::uint8_t bits; ///< of the whole word in Layer II's groups, else of one code
        bool grouped;
        std::uint16_t steps;
    };

    int read(int n) { return static_cast<int>(in_.read(n)); }
    void check(bool holds, frame_fault fault) {
        if (!holds) f.faults |= fault;
    }
    void remark(bool applies, frame_remark what) {
        if (applies) f.remarks |= what;
    }

    void header() {
        in_.skip(8 * header_bytes);
        f.bits.header = 8 * header_bytes;
        f.parts = f.layer == 1 ? 1 : 3;
        table_ = table_of(f.rate, f.kbps / f.channels());
        f.sblimit = sblimit_of(f.layer, table_);
        f.bound = f.mode == 1 ? std::min(4 * (f.mode_extension + 1), f.sblimit) : f.sblimit;
        check(f.emphasis != 2, fault_emphasis);
        remark(f.mode != 1 && f.mode_extension != 0, remark_extension);
        remark(f.padding == 1 && f.slot_rest() == 0, remark_padding);
        const bool only_mono = f.kbps < 64 || f.kbps == 80, only_pairs = f.kbps > 192;
        remark(f.version == 1 && f.layer == 2 && (f.mode == 3 ? only_pairs : only_mono),
               remark_bitrate);
    }

    /// One more than the last channel that a field of a subband counts for.
    int end_of(int ch, int sb) const { return sb < f.bound ? ch + 1 : f.channels(); }

    void allocation() {
        if (f.crc == 1) f.sent_crc = read(f.bits.crc = 16);
        const int begin = in_.at();
        for (int sb = 0; sb < f.sblimit; ++sb) {
            const quantizers &row = quantizers_of(f.layer, table_, sb);
            for (int ch = 0; ch < f.coded_channels(sb); ++ch) {
                const auto n = static_cast<unsigned>(read(row.alloc_bits));
                check(n < row.steps.size(), fault_allocation);
                if (n >= row.steps.size()) return;
                for (int c = ch; c < end_of(ch, sb); ++c) {
                    f.allocation[c][sb] = static_cast<int>(n);
                    f.steps[c][sb] = row.steps[n];
                }
            }
        }
        f.bits.allocation = in_.at() - begin;
    }

    template <class Body>
    void for_each_allocated(Body body) {
        for (int sb = 0; sb < f.sblimit; ++sb) {
            for (int ch = 0; ch < f.channels(); ++ch)
                if (f.allocation[ch][sb] != 0) body(ch, sb);
        }
    }

    void selection() {
        const int begin = in_.at();
        for_each_allocated([&](int ch, int sb) { f.scfsi[ch][sb] = f.layer == 1 ? 2 : read(2); });
        f.bits.scfsi = in_.at() - begin;
        if (f.crc == 0) return;
        const int first_protected = 8 * header_bytes + 16;
        const unsigned over_header = crc_of(in_, 16, 32, 0xFFFF);
        f.right_crc = static_cast<int>(crc_of(in_, first_protected, in_.at(), over_header));
        check(f.sent_crc == f.right_crc, fault_crc);
    }

    void scalefactors() {
        const int begin = in_.at();
        for_each_allocated([&](int ch, int sb) {
            const int scfsi = f.scfsi[ch][sb];
            int sent[3] = {};
            for (int i = 0; i < sent_per_scfsi[scfsi]; ++i) {
                sent[i] = read(6);
                check(sent[i] < 63, fault_scalefactor);
            }
            static constexpr int used[4][3] = {{0, 1, 2}, {0, 0, 1}, {0, 0, 0}, {0, 1, 1}};
            for (int part = 0; part < f.parts; ++part)
                f.scalefactor[ch][part][sb] = sent[used[scfsi][part]];
        });
        f.bits.scalefactors = in_.at() - begin;
    }

    /// Code words of one round: a sample (Layer I) or a granule of three (Layer II).
    void list_code_words() {
        for (int sb = 0; sb < f.sblimit; ++sb) {
            for (int ch = 0; ch < f.coded_channels(sb); ++ch) {
                const int steps = f.steps[ch][sb];
                if (steps == 0) continue;
                const int bits = code_bits_of(f.layer, steps);
                const bool grouped = is_grouped(f.layer, steps);
                words_[word_count_++] = {static_cast<std::uint8_t>(ch), static_cast<std::uint8_t>(sb),
                                         static_cast<std::uint8_t>(bits), grouped,
                                         static_cast<std::uint16_t>(steps)};
                f.bits.samples += 12 * bits * (f.layer == 1 || grouped ? 1 : 3);
            }
        }
    }

    void samples() {
        check(f.bits.samples <= in_.left(), fault_overrun);
        if ((f.faults & fault_overrun) != 0) return;
        bool bad_code = false, bad_group = false;
        for (int round = 0; round < 12; ++round) {
            for (const code_word &word : std::span(words_).first(word_count_)) {
                if (f.layer == 1) {
                    const std::uint64_t code = in_.read(word.bits);
                    bad_code |= code == word.steps;
                    if (codes_ != nullptr) put(word, round, code);
                } else if (word.grouped) {
                    std::uint64_t group = in_.read(word.bits);
                    bad_group |= group >= std::uint64_t{word.steps} * word.steps * word.steps;
                    if (codes_ == nullptr) continue;
                    for (int i = 0; i < 3; ++i, group /= word.steps)
                        put(word, 3 * round + i, group % word.steps);
                } else {
                    const std::uint64_t three = in_.read(3 * word.bits);
                    // All ones is the one code that `steps` = 2^bits - 1 leaves over.
                    const auto code = [&](int i) { return three >> (2 - i) * word.bits & word.steps; };
                    bad_code |= code(0) == word.steps || code(1) == word.steps || code(2) == word.steps;
                    if (codes_ == nullptr) continue;
                    for (int i = 0; i < 3; ++i)
                        put(word, 3 * round + i, code(i));
                }
            }
        }
        check(!bad_code, fault_code);
        check(!bad_group, fault_group);
    }

    void put(const code_word &word, int sample, std::uint64_t code) {
        for (int c = word.ch; c < end_of(word.ch, word.sb); ++c)
            codes_->code[c][sample][word.sb] = static_cast<std::uint16_t>(code);
    }

    void rest() {
        f.bits.rest = std::max(in_.left(), 0);
        bool zero = true;
        for (; in_.left() > 0 && zero; in_.skip(32))
            zero = in_.peek(in_.at(), 32) == 0;
        remark(!zero && (f.faults & fault_overrun) == 0, remark_ancillary);
    }

    bit_reader in_;
    sample_codes *codes_;
    char table_;
    code_word words_[64];
    std::size_t word_count_ = 0;
    parsed_frame f{};
};

constexpr std::string_view fault_texts[] = {
    "length of the frame",    "reserved emphasis",
    "forbidden allocation",   "CRC",
    "forbidden scale factor", "fields beyond the end of the frame",
    "forbidden code",         "forbidden group"};
constexpr std::string_view remark_texts[] = {"mode extension outside joint stereo",
                                             "padding where frames are whole", "ancillary data",
                                             "bitrate not allowed in this mode"};

} // namespace

std::string_view fault_text(unsigned faults) {
    return faults == 0 ? "" : fault_texts[std::countr_zero(faults)];
}

std::string_view remark_text(unsigned remarks) {
    return remarks == 0 ? "" : remark_texts[std::countr_zero(remarks)];
}

parsed_frame parse_frame(std::span<const std::uint8_t> bytes, sample_codes *codes) {
    if (codes != nullptr) *codes = {};
    return parser(bytes, codes).run();
}

} // namespace tools
