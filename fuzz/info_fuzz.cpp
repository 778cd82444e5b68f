// Any bytes as a file: the scanner's pieces add up to the stream in it, and neither parser nor reports read
// outside, hang or throw anything but a refusal.
#include "byte_source.hpp"
#include "common/failure.hpp"
#include "velainfo/frame_difference.hpp"
#include "velainfo/json_report.hpp"
#include "velainfo/page.hpp"
#include "velainfo/stream_input.hpp"
#include "velainfo/synthesis.hpp"
#include "velainfo/text_report.hpp"

#include <sys/mman.h>
#include <unistd.h>

namespace {

using fuzz::expect;

void look_at(const tools::parsed_frame &frame, const tools::sample_codes &codes) {
    if (frame.faults != 0) return;
    const auto &b = frame.bits;
    expect(b.header + b.crc + b.allocation + b.scfsi + b.scalefactors + b.samples + b.rest
               == 8 * frame.bytes(),
           "the bits of a frame do not add up");
    tools::frame_subbands subbands;
    tools::requantize(frame, codes, subbands);
}

void report_on(tools::stream_input &input, std::size_t size) {
    tools::frame_scanner scanner([&](std::span<std::uint8_t> room) { return input.read(room); });
    tools::report_builder builder("fuzz", input.container());
    tools::stream_pictures pictures;
    std::uint64_t sum = 0;
    std::vector<std::uint8_t> bytes[2];
    tools::frame_contents last;
    while (const auto piece = scanner.next()) {
        expect(piece->offset == sum && piece->length > 0, "a gap between pieces");
        sum += piece->length;
        if (!piece->is_frame) {
            builder.add(*piece);
            continue;
        }
        tools::sample_codes codes;
        const tools::parsed_frame frame = tools::parse_frame(piece->bytes, &codes);
        expect(frame.faults == tools::parse_frame(piece->bytes).faults, "two verdicts on a frame");
        look_at(frame, codes);
        bytes[0].assign(piece->bytes.begin(), piece->bytes.end());
        const tools::frame_contents here{bytes[0], frame, codes};
        if (!last.bytes.empty()) tools::differences_of(last, here);
        bytes[0].swap(bytes[1]);
        last = here;
        tools::frame_line(builder.so_far(), piece->offset, frame);
        tools::json_of(builder.so_far(), piece->offset, frame);
        pictures.add(builder.so_far().frames, frame);
        builder.add(*piece, frame);
    }
    expect(input.container().base > 0 ? sum + input.container().base <= size : sum == size,
           "bytes were lost");
    const tools::stream_report report = builder.finish(input.other_kind());
    tools::json_of(report, nullptr);
    tools::page page;
    page.add(report, tools::text_of(report, nullptr), std::move(pictures));
    page.html();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const int file = ::memfd_create("stream", 0);
    expect(::write(file, data, size) == static_cast<ssize_t>(size), "no room");
    ::lseek(file, 0, SEEK_SET);
    try {
        tools::stream_input input(tools::stream_name("/proc/self/fd/" + std::to_string(file)));
        report_on(input, size);
    } catch (const tools::failure &refused) { // no stream at all
        expect(refused.code() == tools::exit_code::input && *refused.what() != '\0',
               "refused without a message, or with another code than the input's");
    }
    ::close(file);
    return 0;
}
