#include "velainfo/inspect.hpp"

#include "common/failure.hpp"
#include "common/printable.hpp"
#include "output/output_file.hpp"
#include "velainfo/comparison.hpp"
#include "velainfo/input_list.hpp"
#include "velainfo/json_report.hpp"
#include "velainfo/live_view.hpp"
#include "velainfo/ordered_work.hpp"
#include "velainfo/page.hpp"
#include "velainfo/preset_check.hpp"
#include "velainfo/sound_meter.hpp"
#include "velainfo/standard_output.hpp"
#include "velainfo/stream_difference.hpp"
#include "velainfo/stream_input.hpp"
#include "velainfo/text_report.hpp"
#include "velainfo/trace_reader.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unistd.h>

namespace tools {
namespace {

/// What a stream comes to, from the best to the worst.
enum class verdict { fits, broken, damaged, unreadable };

int exit_code_of(verdict worst) {
    constexpr int codes[] = {0, 7, 3, 2};
    return codes[static_cast<int>(worst)];
}

struct inspected {
    verdict result;
    std::string out, error;
    stream_report report;
    std::string text; ///< as the page has it
    stream_pictures pictures;
};

class inspector {
  public:
    /// @param frames  gets the lines of --frames; null without it
    inspector(const info_options &wanted, standard_output *frames) : wanted_(wanted), frames_(frames) {}

    inspected inspect(const stream_name &stream) {
        const std::string &path = stream.path;
        inspected done{};
        try {
            look_at(stream, done);
        } catch (const failure &error) {
            if (error.code() != exit_code::input) throw;
            done.result = verdict::unreadable;
            done.error = error.what();
            if (wanted_.json) done.out = json_of_unreadable(path, error.what());
            if (wanted_.brief) done.out = "unreadable  " + printable(error.what()) + "\n";
        }
        return done;
    }

  private:
    void look_at(const stream_name &stream, inspected &done) {
        std::optional<sound_meter> meter;
        if (wanted_.sound) meter.emplace();
        stream_report &report = done.report = read(stream, done.pictures, meter);
        std::optional<sound_report> heard;
        if (meter) heard = meter->finish();
        const sound_report *const sound = heard ? &*heard : nullptr;
        if (draws() && sound != nullptr) done.pictures.add(*sound, report);
        if (wanted_.preset) report.violations = check_preset(report, *wanted_.preset);
        const bool fits_preset = report.violations.empty();
        for (violation &broken : check_expectations(report, sound, wanted_.expected))
            report.violations.push_back(std::move(broken));
        std::optional<comparison_totals> compared;
        if (!wanted_.source.empty())
            compared =
                compare_with_source(stream, report, wanted_.source, [&](const compared_frame &frame) {
                    if (draws()) done.pictures.add(frame);
                });
        const comparison_totals *const totals = compared ? &*compared : nullptr;
        done.text = text_of(report, totals, sound);
        if (wanted_.json)
            done.out = json_of(report, totals, sound);
        else if (wanted_.brief)
            done.out = brief_of(report);
        else if (!wanted_.frames && !draws())
            done.out = done.text;
        done.result = !report.is_sound() || !fits_preset ? verdict::damaged
                      : report.violations.empty()        ? verdict::fits
                                                         : verdict::broken;
    }

    bool draws() const { return !wanted_.html.empty(); }

    stream_report read(const stream_name &stream, stream_pictures &pictures,
                       std::optional<sound_meter> &meter) {
        stream_input input(stream);
        report_builder builder(input.name(), input.container());
        std::optional<trace_reader> trace;
        if (!wanted_.trace.empty()) trace.emplace(wanted_.trace);
        frame_scanner scanner([&](std::span<std::uint8_t> room) { return input.read(room); });
        std::optional<live_view> view;
        if (input.is_live() && ::isatty(STDERR_FILENO)
            && (frames_ == nullptr || !::isatty(STDOUT_FILENO)))
            view.emplace();
        const auto tick = [&] {
            if (view) view->update(builder.so_far());
            if (frames_ != nullptr) frames_->flush();
        };
        input.while_waiting(tick);
        if (frames_ != nullptr && !wanted_.json) frames_->print(frame_line_heading());
        while (const auto piece = scanner.next()) {
            if (!piece->is_frame) {
                builder.add(*piece);
                continue;
            }
            const parsed_frame frame = parse_frame(piece->bytes, meter || view ? &codes_ : nullptr);
            if (meter) meter->add(frame, codes_);
            if (view) view->add(frame, codes_);
            const std::uint64_t offset = builder.offset_of(*piece);
            if (frames_ != nullptr)
                frames_->print(wanted_.json ? json_of(builder.so_far(), offset, frame)
                                            : frame_line(builder.so_far(), offset, frame));
            if (draws())
                pictures.add(builder.so_far().frames, frame, meter ? &meter->subbands() : nullptr);
            if (trace) pictures.add(builder.so_far().frames, trace->next(frame));
            builder.add(*piece, frame);
            if (view) view->update(builder.so_far());
        }
        if (trace) trace->finish();
        return builder.finish(input.other_kind(), input.was_interrupted());
    }

    const info_options &wanted_;
    standard_output *frames_;
    sample_codes codes_;
};

/// Nothing that is read may be replaced by the page.
void check_page_name(const info_options &wanted, const std::vector<std::string> &inputs) {
    std::vector<std::string> read = inputs;
    read.insert(read.end(), {wanted.source, wanted.trace});
    for (const std::string &path : read) {
        std::error_code missing;
        if (!path.empty() && std::filesystem::equivalent(path, wanted.html, missing))
            throw failure(exit_code::usage,
                          "--html names " + path + ", which is read; name another file");
    }
}

void write_page(const info_options &wanted, page &drawn) {
    const struct stat no_input {};
    output_file file(wanted.html, no_input,
                     {wanted.overwrite, false, true, page::is_own, "a page of velainfo's"});
    const std::string html = drawn.html();
    file.write(std::as_bytes(std::span(html)));
    file.close();
    file.publish();
}

/// Streams of both files in pairs.
int inspect_difference(const info_options &wanted) {
    standard_output out;
    const auto opened = [&](const std::string &path) {
        try {
            auto streams = streams_of(path);
            for (const stream_name &stream : streams)
                stream_input{stream};
            return streams;
        } catch (const failure &error) {
            if (wanted.json) out.print(json_of_unreadable(path, error.what()));
            out.flush();
            throw;
        }
    };
    const auto first = opened(wanted.inputs[0]), second = opened(wanted.inputs[1]);
    if (first.size() != second.size())
        throw failure(exit_code::input, wanted.inputs[0] + " has " + std::to_string(first.size())
                                            + " streams of MPEG audio, " + wanted.inputs[1] + " has "
                                            + std::to_string(second.size())
                                            + "; take out those that belong together");
    bool same = true;
    for (std::size_t i = 0; i < first.size(); ++i) {
        const stream_difference found = compare_streams(first[i], second[i]);
        const std::string text = text_of(found);
        out.print(wanted.json    ? json_of(found)
                  : wanted.brief ? text.substr(0, text.find('\n') + 1)
                                 : text);
        same &= found.is_same();
    }
    out.flush();
    return exit_code_of(same ? verdict::fits : verdict::broken);
}

} // namespace

int inspect(const info_options &wanted) {
    if (wanted.diff) return inspect_difference(wanted);
    const std::vector<std::string> inputs = list_inputs(wanted);
    if (!wanted.html.empty()) check_page_name(wanted, inputs);
    standard_output out;
    page drawn;
    verdict worst = verdict::fits;
    bool first = true;
    std::vector<stream_name> streams;
    for (const std::string &path : inputs)
        for (stream_name &stream : streams_of(path))
            streams.push_back(std::move(stream));
    const auto work = [&](const stream_name &stream) {
        return inspector(wanted, wanted.frames ? &out : nullptr).inspect(stream);
    };
    const auto take = [&](inspected &&done) {
        worst = std::max(worst, done.result);
        if (!done.error.empty() && !wanted.brief) {
            out.flush();
            std::fprintf(stderr, "velainfo: %s\n", printable(done.error).c_str());
        }
        const bool is_page_of_text = !wanted.json && !wanted.brief && !done.out.empty();
        out.print((is_page_of_text && !first ? "\n" : "") + done.out);
        first = first && !is_page_of_text;
        if (!wanted.html.empty() && done.error.empty())
            drawn.add(done.report, std::move(done.text), std::move(done.pictures));
    };
    // Lines of frames are printed while they are read, and not kept.
    in_order<inspected>(streams, wanted.frames ? 1 : 0, work, take);
    out.flush();
    if (!wanted.html.empty() && worst != verdict::unreadable) write_page(wanted, drawn);
    return exit_code_of(worst);
}

} // namespace tools
