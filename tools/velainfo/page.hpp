// The page of pictures: one file that needs nothing else.
#pragma once

#include "output/output_target.hpp"
#include "velainfo/comparison.hpp"
#include "velainfo/sound_report.hpp"
#include "velainfo/stream_report.hpp"
#include "velainfo/synthesis.hpp"
#include "velainfo/timeline.hpp"
#include "velainfo/trace_reader.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tools {

/// Pictures of one stream, filled while it is read.
class stream_pictures {
  public:
    stream_pictures();
    /// @param frame  the frame of that number
    /// @param subbands  its samples; may be null
    void add(std::uint64_t number, const parsed_frame &frame, const frame_subbands *subbands = nullptr);
    /// What was heard, when all frames have been added.
    void add(const sound_report &sound, const stream_report &report);
    void add(const compared_frame &frame);
    void add(std::uint64_t number, const trace_values &frame);

  private:
    friend class page;
    void add_spectrum(std::uint64_t number, const parsed_frame &frame, const frame_subbands &subbands);

    timeline stream_;
    std::optional<timeline> spectrum_, loudness_, comparison_, trace_;
};

class page {
  public:
    /// @param text  the stream's report
    void add(const stream_report &report, std::string text, stream_pictures &&pictures);
    /// The whole page, below five megabytes whatever the streams' lengths.
    std::string html();

    /// Whether a file that begins so is one of these pages.
    static bool is_own(const file_view &file);

  private:
    struct entry {
        stream_report report;
        std::string text;
        stream_pictures pictures;
    };
    std::vector<entry> entries_;
};

} // namespace tools
