// The encode of one file, from the name of its input to the published output.
#pragma once

#include "check/stream_check.hpp"
#include "jobs/clip_count.hpp"
#include "jobs/progress.hpp"
#include "jobs/thread_budget.hpp"
#include "vela_enc_mp1a/settings.h"
#include "velaenc/loudness_goal.hpp"
#include "velaenc/options.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace tools {

/// Hears from an encode while it goes on, on the thread that called for it.
class run_listener {
  public:
    virtual ~run_listener() = default;

    /// A rule that the settings break, also where they are used all the same.
    virtual void violation(const std::string &text) = 0;

    /// Something that the user did not ask for, or may not expect.
    virtual void note(const std::string &text) = 0;

    /// Figures of a file, which a report has in fields of their own.
    virtual void figures(const std::string &text) = 0;

    /// The encode starts.
    /// @param length  samples a channel, where known
    /// @return who is told how far it is; used until encode_file() returns
    virtual progress_listener &begin(int rate, std::optional<std::uint64_t> length) = 0;

    /// The same for the pass before it that measures how loud the input is.
    virtual progress_listener &begin_measuring(int rate, std::optional<std::uint64_t> length) = 0;
};

struct file_result {
    mpeg_a_settings settings;
    int rate;              ///< Hz
    std::uint64_t frames;  ///< of the stream
    std::uint64_t samples; ///< a channel, of the sound that was encoded
    pcm_shape input;       ///< of the input itself
    clip_count clipped;
    std::optional<programme_loudness> loudness; ///< of what was encoded, where it was measured
    std::optional<check_result> check;          ///< of the stream, where that was wanted

    double seconds() const noexcept { return static_cast<double>(samples) / rate; }
};

/// Encodes `wanted.input` into `wanted.output`.
/// @param spare  where all threads but the first are taken from; null: `wanted.jobs` may run
/// @throws failure; no file is left or changed then
file_result encode_file(const options &wanted, run_listener &listener, thread_budget *spare = nullptr);

/// What encode_file() would return, when its output is there already: newer than the input and, as far
/// as can be told without decoding, the same stream. None when anything else is there.
/// @param recorded  frames that it had when it was made; they count where the input does not tell its length
/// @throws failure when the input cannot be opened or the settings do not fit it
std::optional<file_result> find_complete(const options &wanted, std::optional<std::uint64_t> recorded);

} // namespace tools
