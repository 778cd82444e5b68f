// Endless streams, and what is expected of every frame of them.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace soak {

/// Ends the program, which has found what it looks for.
[[noreturn]] void fail(const std::string &what);

struct settings {
    const char *name;
    int layer, mode, bitrate; ///< as in mpeg_a_settings
    int rate, width;          ///< Hz; bytes of a sample
    int crc, model;

    int channels() const { return mode == MPEG_A_MODE_MONO ? 1 : 2; }
    int frame_samples() const { return layer == 1 ? 384 : 1152; }
    mpeg_a_settings record() const;
};

/// A signal that an endless stream repeats, of so many frames that padding at 44.1 kHz repeats with it.
struct segment {
    explicit segment(const settings &how);
    int frames;
    std::vector<std::uint8_t> pcm;
};

/// The digest of a segment's frames, by the pattern of their padding, which the rounding of an endless sum
/// may move at 44.1 kHz.
using digests = std::map<std::uint64_t, std::uint64_t>;

/// Judges the frames of one stream from its beginning on.
class judge {
  public:
    judge(const settings &how, const segment &repeated, digests &known)
        : how_(how), frames_in_segment_(repeated.frames), known_(known) {}

    /// A frame, and its time stamp in ticks: held against integer arithmetic, at 44.1 kHz within the drift
    /// that the host guide promises.
    void take(std::span<const std::uint8_t> frame, std::int64_t ticks);

    /// The same, with the time in nanoseconds at which its first sample is heard.
    void take_heard(std::span<const std::uint8_t> frame, std::uint64_t nanoseconds, int delay);

    std::int64_t frames() const { return frames_; }
    double seconds() const { return static_cast<double>(frames_) * how_.frame_samples() / how_.rate; }

  private:
    void judge_bytes(std::span<const std::uint8_t> frame);
    void end_segment();
    [[noreturn]] void fail_at(const std::string &what) const;

    settings how_;
    int frames_in_segment_;
    digests &known_;
    std::int64_t frames_ = 0, bytes_ = 0;
    std::uint64_t digest_ = 0, padding_ = 0;
};

/// One of the ways in, with an encoder that never ends.
class voice {
  public:
    explicit voice(const settings &how) : how_(how), segment_(how) {}
    virtual ~voice() = default;
    voice(const voice &) = delete;
    voice &operator=(const voice &) = delete;

    /// Encodes the segment once more, in pieces of any length.
    void sing() {
        in_pieces([this](std::span<const std::uint8_t> piece) { put(piece); });
    }
    /// What an encoder that starts afresh makes of the segment, twice: the second time tells the digests.
    virtual void start_afresh() {}
    virtual void end() {}
    double seconds() const { return judge_.seconds(); }
    const char *name() const { return how_.name; }

  protected:
    virtual void put(std::span<const std::uint8_t> pcm) = 0;
    void in_pieces(const std::function<void(std::span<const std::uint8_t>)> &take);

    settings how_;
    segment segment_;
    digests known_;
    judge judge_{how_, segment_, known_};

  private:
    std::minstd_rand random_{1};
};

} // namespace soak
