// The options of batches.
#pragma once

#include "jobs/batch_list.hpp"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace tools {

struct batch_options {
    batch_plan plan;
    bool resume = false;
    std::string report;                      ///< empty: none
    std::vector<std::string> stream_options; ///< all others that shape a stream, as they were given
};

/// They fill in `wanted` while the command line is read. The options of outputs are there already.
void add_batch_options(CLI::App &app, batch_options &wanted);

/// Notes the other options, after the command line has been read.
/// @return false when no batch is asked for
/// @throws failure for empty names
bool complete_batch(const CLI::App &app, batch_options &wanted);

/// @param raw  the inputs are headerless
/// @throws failure when the names do not make a batch
void check_batch(const batch_options &wanted, bool raw);

} // namespace tools
