// The report of a batch: one JSON object a line and file.
#pragma once

#include "output/shared_log.hpp"
#include "velaenc/encode_file.hpp"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tools {

struct report_entry {
    std::string input, output;         ///< output: empty where there is none
    std::optional<file_result> result; ///< none: it failed
    bool was_complete = false;         ///< nothing was done: it had been encoded before
    std::vector<std::string> warnings;
    std::string error;
    std::chrono::system_clock::time_point start =
        std::chrono::system_clock::now(); ///< of the work on it
    std::chrono::steady_clock::time_point begin =
        std::chrono::steady_clock::now(); ///< the same, to measure by
};

class batch_report {
  public:
    /// @param path     "-" is standard output
    /// @param options  those of the command line that shape a stream
    /// @throws failure
    batch_report(const std::string &path, std::vector<std::string> options);

    /// Reads what earlier runs wrote. Lines that are none of ours, or cut short, are passed over.
    void load();

    /// What the last line of an earlier run says of an output that it encoded.
    struct earlier_stream {
        bool same_options;
        std::optional<std::uint64_t> frames;
    };
    std::optional<earlier_stream> earlier(const std::string &output) const;

    /// Any thread may call it. The output is read again for its digest.
    /// @throws failure
    void add(const report_entry &entry);

  private:
    static std::string key_of(const std::string &output);

    std::string path_;
    std::vector<std::string> options_;
    std::map<std::string, earlier_stream> earlier_; ///< by output
    shared_log log_;
};

} // namespace tools
