// The page of pictures: one file that needs nothing else.
#pragma once

#include "velainfo/comparison.hpp"
#include "velainfo/stream_report.hpp"
#include "velainfo/timeline.hpp"

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
    void add(std::uint64_t number, const parsed_frame &frame);
    void add(const compared_frame &frame);
    /// Reads velaenc's trace.
    /// @throws failure
    void add_trace(const std::string &path);

  private:
    friend class page;
    timeline stream_;
    std::optional<timeline> comparison_, trace_;
};

class page {
  public:
    /// @param text  the stream's report
    void add(const stream_report &report, std::string text, stream_pictures &&pictures);
    /// The whole page, below five megabytes whatever the streams' lengths.
    std::string html();

  private:
    struct entry {
        stream_report report;
        std::string text;
        stream_pictures pictures;
    };
    std::vector<entry> entries_;
};

} // namespace tools
