// What the user expects of a stream: a policy for what comes in.
#pragma once

#include "velainfo/sound_report.hpp"
#include "velainfo/stream_report.hpp"

#include <optional>
#include <string>
#include <vector>

namespace tools {

/// One line of a policy, such as "kbps=192..256".
struct expectation {
    std::string key;
    std::string text; ///< the value as it was given
    /// One of these words or numbers, or anything within the limits.
    std::vector<std::string> words;
};

/// Keys and what their values look like, for help and messages.
std::string expectation_keys();

/// @param text  expectations with commas or line ends between them; a # and what follows is a comment
/// @throws failure
std::vector<expectation> parse_expectations(const std::string &text);

/// Whether any of them needs the sound itself.
bool needs_sound(const std::vector<expectation> &expected);

/// Those that the stream breaks, in their order.
/// @param sound  null where none of them needs it
std::vector<violation> check_expectations(const stream_report &report, const sound_report *sound,
                                          const std::vector<expectation> &expected);

} // namespace tools
