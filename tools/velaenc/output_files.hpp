// The files of an encode.
#pragma once

#include "output/output_file.hpp"
#include "velaenc/options.hpp"

#include <optional>

namespace tools {

/// The stream and, where wanted, the list of its frames and the trace.
struct output_files {
    output_file stream;
    std::optional<output_file> list, trace;

    /// @throws failure
    output_files(const options &wanted, const struct stat &input);

    void close();

    /// Gives all of them their names.
    /// @throws failure, which says so where the stream has its own already
    void publish();
};

} // namespace tools
