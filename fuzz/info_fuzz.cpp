// Any bytes as a stream: the scanner's pieces add up to them, and neither parser nor reports read outside,
// hang or throw anything but a refusal.
#include "common/failure.hpp"
#include "velainfo/json_report.hpp"
#include "velainfo/page.hpp"
#include "velainfo/synthesis.hpp"
#include "velainfo/text_report.hpp"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::span<const std::uint8_t> left(data, size);
    tools::frame_scanner scanner([&](std::span<std::uint8_t> room) {
        const std::size_t part = std::min({room.size(), left.size(), std::size_t{5000}});
        std::copy_n(left.begin(), part, room.begin());
        left = left.subspan(part);
        return part;
    });
    tools::report_builder builder("fuzz", 0);
    tools::stream_pictures pictures;
    std::uint64_t sum = 0;
    while (const auto piece = scanner.next()) {
        if (piece->offset != sum || piece->length == 0) std::abort();
        sum += piece->length;
        if (!piece->is_frame) {
            builder.add(*piece);
            continue;
        }
        tools::sample_codes codes;
        tools::frame_subbands subbands;
        const tools::parsed_frame frame = tools::parse_frame(piece->bytes, &codes);
        const tools::parsed_frame again = tools::parse_frame(piece->bytes);
        if (frame.faults != again.faults) std::abort();
        const auto &b = frame.bits;
        if (frame.faults == 0) {
            if (b.header + b.crc + b.allocation + b.scfsi + b.scalefactors + b.samples + b.rest
                != 8 * frame.bytes())
                std::abort();
            tools::requantize(frame, codes, subbands);
        }
        tools::frame_line(builder.so_far(), *piece, frame);
        tools::json_of(builder.so_far(), *piece, frame);
        pictures.add(builder.so_far().frames, frame);
        builder.add(*piece, frame);
    }
    if (sum != size) std::abort();
    try {
        const tools::stream_report report = builder.finish("");
        tools::json_of(report, nullptr);
        tools::page page;
        page.add(report, tools::text_of(report, nullptr), std::move(pictures));
        page.html();
    } catch (const tools::failure &) { // no stream at all
    }
    return 0;
}
