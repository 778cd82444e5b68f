#include "velainfo/frame_difference.hpp"

#include "parser/bit_reader.hpp"
#include "velainfo/stream_report.hpp"

#include <algorithm>

namespace tools {
namespace {

class frame_comparison {
  public:
    frame_comparison(const frame_contents &first, const frame_contents &second)
        : first_(first), second_(second), a_(first.frame), b_(second.frame) {}

    std::vector<field_difference> run() {
        header();
        const unsigned unusable = (a_.faults | b_.faults) & ~unsigned{fault_crc};
        if (unusable != 0)
            add("damage", "", damage_of(a_), damage_of(b_));
        else if (a_.layer == b_.layer && a_.channels() == b_.channels())
            contents();
        if (found_.empty()) add("bytes", "", "", "");
        return std::move(found_);
    }

  private:
    void add(const char *field, std::string place, std::string first, std::string second) {
        found_.push_back({field, std::move(place), {std::move(first), std::move(second)}});
    }

    void compare(const char *field, const std::string &place, int first, int second) {
        if (first == second || (!found_.empty() && found_.back().field == field)) return;
        add(field, place, std::to_string(first), std::to_string(second));
    }

    static std::string damage_of(const parsed_frame &frame) {
        return frame.faults == 0 ? "none" : std::string(fault_text(frame.faults));
    }

    void header() {
        using report = stream_report;
        const auto by_name = [&](report::field which, int first, int second) {
            if (first != second)
                add(field_names[which], "", value_text(which, first), value_text(which, second));
        };
        by_name(report::version, a_.version, b_.version);
        by_name(report::layer, a_.layer, b_.layer);
        by_name(report::crc, a_.crc, b_.crc);
        by_name(report::kbps, a_.kbps, b_.kbps);
        by_name(report::rate, a_.rate, b_.rate);
        compare("padding", "", a_.padding, b_.padding);
        by_name(report::private_bit, a_.private_bit, b_.private_bit);
        by_name(report::mode, a_.mode, b_.mode);
        compare("mode extension", "", a_.mode_extension, b_.mode_extension);
        by_name(report::copyright, a_.copyright, b_.copyright);
        by_name(report::original, a_.original, b_.original);
        by_name(report::emphasis, a_.emphasis, b_.emphasis);
    }

    std::string place(int ch, int sb, const char *what = nullptr, int number = 0) const {
        std::string text = a_.channels() == 1 ? "" : ch == 0 ? "left, " : "right, ";
        text += "subband " + std::to_string(sb);
        if (what != nullptr) text += ", " + std::string(what) + " " + std::to_string(number);
        return text;
    }

    template <class Body>
    void each_subband(Body body) {
        for (int sb = 0; sb < 32; ++sb)
            for (int ch = 0; ch < a_.channels(); ++ch)
                body(ch, sb);
    }

    void contents() {
        // In steps of the quantizer: an index means another one in another table.
        each_subband([&](int ch, int sb) {
            compare("allocation", place(ch, sb), a_.steps[ch][sb], b_.steps[ch][sb]);
        });
        const auto is_coded = [&](int ch, int sb) {
            return a_.steps[ch][sb] > 0 && b_.steps[ch][sb] > 0;
        };
        if (a_.layer == 2)
            each_subband([&](int ch, int sb) {
                if (is_coded(ch, sb))
                    compare("scfsi", place(ch, sb), a_.scfsi[ch][sb], b_.scfsi[ch][sb]);
            });
        each_subband([&](int ch, int sb) {
            for (int part = 0; part < a_.parts && is_coded(ch, sb); ++part)
                compare("scale factors", place(ch, sb, "part", part), a_.scalefactor[ch][part][sb],
                        b_.scalefactor[ch][part][sb]);
        });
        for (int i = 0; i < 12 * a_.parts; ++i)
            each_subband([&](int ch, int sb) {
                if (is_coded(ch, sb) && a_.steps[ch][sb] == b_.steps[ch][sb])
                    compare("samples", place(ch, sb, "sample", i), first_.codes.code[ch][i][sb],
                            second_.codes.code[ch][i][sb]);
            });
        if (a_.bits.rest == b_.bits.rest) rest();
        if (a_.crc == 1 && b_.crc == 1) compare("CRC", "", a_.sent_crc, b_.sent_crc);
    }

    /// Unused bits and ancillary data.
    void rest() {
        const bit_reader first(first_.bytes), second(second_.bytes);
        for (int left = a_.bits.rest; left > 0; --left) {
            const auto from = [left](const bit_reader &bits) {
                return bits.peek(bits.size() - left, 1);
            };
            if (from(first) == from(second)) continue;
            add("ancillary", "bit " + std::to_string(a_.bits.rest - left), std::to_string(from(first)),
                std::to_string(from(second)));
            return;
        }
    }

    const frame_contents &first_, &second_;
    const parsed_frame &a_, &b_;
    std::vector<field_difference> found_;
};

} // namespace

std::vector<field_difference> differences_of(const frame_contents &first,
                                             const frame_contents &second) {
    return frame_comparison(first, second).run();
}

} // namespace tools
