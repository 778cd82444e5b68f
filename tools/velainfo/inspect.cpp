#include "velainfo/inspect.hpp"

#include "common/failure.hpp"
#include "common/printable.hpp"
#include "output/output_file.hpp"
#include "velainfo/comparison.hpp"
#include "velainfo/json_report.hpp"
#include "velainfo/page.hpp"
#include "velainfo/preset_check.hpp"
#include "velainfo/stream_input.hpp"
#include "velainfo/text_report.hpp"

#include <cstdio>
#include <filesystem>

namespace tools {
namespace {

constexpr int not_sound = 3;

void print(const std::string &text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

class inspection {
  public:
    explicit inspection(const info_options &wanted) : wanted_(wanted) {}

    /// @return whether it is sound and conforms
    bool inspect(const std::string &path) {
        stream_pictures pictures;
        stream_report report = read(path, pictures);
        if (wanted_.preset) report.violations = check_preset(report, *wanted_.preset);
        std::optional<comparison_totals> compared;
        if (!wanted_.source.empty())
            compared =
                compare_with_source(path, report, wanted_.source, [&](const compared_frame &frame) {
                    if (draws()) pictures.add(frame);
                });
        const comparison_totals *const totals = compared ? &*compared : nullptr;
        const std::string text = text_of(report, totals);
        if (wanted_.json)
            print(json_of(report, totals));
        else if (!wanted_.frames && wanted_.html.empty())
            print((count_++ > 0 ? "\n" : "") + text);
        if (draws()) {
            if (!wanted_.trace.empty()) pictures.add_trace(wanted_.trace);
            page_.add(report, text, std::move(pictures));
        }
        return report.is_sound() && report.violations.empty();
    }

    void write_page() {
        const struct stat no_input {};
        const auto is_page = [](const file_view &file) { return begins_with(file, "<!DOCTYPE html>"); };
        output_file file(wanted_.html, no_input, {.is_own = is_page, .own = "a page"});
        const std::string html = page_.html();
        file.write(std::as_bytes(std::span(html)));
        file.close();
        file.publish();
    }

    bool draws() const { return !wanted_.html.empty(); }

  private:
    stream_report read(const std::string &path, stream_pictures &pictures) {
        stream_input input(path);
        report_builder builder(input.name(), input.base());
        frame_scanner scanner([&](std::span<std::uint8_t> room) { return input.read(room); });
        if (wanted_.frames && !wanted_.json) print(frame_line_heading());
        while (const auto piece = scanner.next()) {
            if (!piece->is_frame) {
                builder.add(*piece);
                continue;
            }
            const parsed_frame frame = parse_frame(piece->bytes);
            if (wanted_.frames)
                print(wanted_.json ? json_of(builder.so_far(), *piece, frame)
                                   : frame_line(builder.so_far(), *piece, frame));
            if (draws()) pictures.add(builder.so_far().frames, frame);
            builder.add(*piece, frame);
        }
        return builder.finish(input.other_kind());
    }

    const info_options &wanted_;
    page page_;
    int count_ = 0;
};

/// Nothing that is read may be replaced by the page.
void check_page_name(const info_options &wanted) {
    std::vector<std::string> read = wanted.inputs;
    read.insert(read.end(), {wanted.source, wanted.trace});
    for (const std::string &path : read) {
        std::error_code missing;
        if (!path.empty() && std::filesystem::equivalent(path, wanted.html, missing))
            throw failure(exit_code::usage,
                          "--html names " + path + ", which is read; name another file");
    }
}

} // namespace

int inspect(const info_options &wanted) {
    if (!wanted.html.empty()) check_page_name(wanted);
    inspection run(wanted);
    int status = 0;
    for (const std::string &path : wanted.inputs) {
        try {
            if (!run.inspect(path) && status == 0) status = not_sound;
        } catch (const failure &error) {
            if (error.code() != exit_code::input) throw;
            std::fprintf(stderr, "velainfo: %s\n", printable(error.what()).c_str());
            status = static_cast<int>(error.code());
        }
    }
    if (run.draws() && status != static_cast<int>(exit_code::input)) run.write_page();
    return status;
}

} // namespace tools
