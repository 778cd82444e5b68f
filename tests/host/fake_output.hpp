// What a host gives to the encoder, recording every call and failing on demand.
#pragma once

#include "vela_enc_mp1a/encoder.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace mp1a_test {

struct delivered_frame {
    std::vector<std::uint8_t> bytes;
    header_info header{};
    frame_info info{};

    bool operator==(const delivered_frame &other) const {
        return bytes == other.bytes && info.time_stamp == other.info.time_stamp;
    }
};

/// Lends a block of its own for every request and takes it away at the commit, so that a sanitizer sees every byte
/// that is written elsewhere or later.
struct fake_output : bufstream {
    std::uint32_t chunk;                         ///< what chunk_size answers
    int refused_request = -1, short_commit = -1; ///< counted from 0: no block; one byte is not taken
    bool for_good = false;                       ///< from there on, instead of once
    bool recording = true;                       ///< false: keep nothing, allocate nothing
    bool failed = false;                         ///< one of those two struck
    bool overrun = false; ///< another block was asked for, or something written behind it
    int requests = 0, commits = 0;
    std::vector<std::string> calls; ///< such as "request 4096", "commit 672", "header 0", "frame 0"
    std::vector<delivered_frame> frames;
    std::vector<std::uint8_t> stream; ///< every committed byte
    std::function<void()> hook;       ///< runs inside every call

    explicit fake_output(std::uint32_t chunk_bytes = 4096)
        : bufstream{}, chunk(chunk_bytes), block_(chunk_bytes + 64) {
        chunk_size = [](bufstream *s) {
            self(s).note("chunk_size", self(s).chunk);
            return self(s).told_ = self(s).chunk;
        };
        request = [](bufstream *s, std::uint32_t n) { return self(s).lend(n); };
        commit = [](bufstream *s, std::uint32_t n) { return self(s).take(n); };
        auxinfo = [](bufstream *s, std::uint32_t offset, std::uint32_t id, const void *data,
                     std::uint32_t size) { return self(s).inform(offset, id, data, size); };
    }
    fake_output(const fake_output &) = delete;
    fake_output &operator=(const fake_output &) = delete;

  private:
    static constexpr std::uint8_t untouched = 0xA5;

    static fake_output &self(bufstream *stream) { return *static_cast<fake_output *>(stream); }

    bool strikes(int now, int at) {
        const bool now_too = at >= 0 && (now == at || (for_good && now > at));
        failed |= now_too;
        return now_too;
    }
    void note(const char *name, std::uint32_t value) {
        if (recording) calls.push_back(std::string(name) + ' ' + std::to_string(value));
        if (hook) hook();
    }
    std::uint8_t *lend(std::uint32_t n) {
        note("request", n);
        overrun |= n != told_;
        if (recording) block_ = std::vector<std::uint8_t>(n + 64);
        std::ranges::fill(block_, untouched); // old contents must not pass for written bytes
        return strikes(requests++, refused_request) ? nullptr : block_.data();
    }
    std::uint32_t take(std::uint32_t n) {
        note("commit", n);
        overrun |=
            block_.empty() || n > told_
            || std::any_of(block_.begin() + told_, block_.end(), [](int b) { return b != untouched; });
        const std::uint32_t taken = strikes(commits++, short_commit) ? n - 1 : n;
        if (!recording || overrun) return taken;
        const auto end = block_.begin() + std::min(n, taken); // of nothing not even less is taken
        current_.bytes.insert(current_.bytes.end(), block_.begin(), end);
        stream.insert(stream.end(), block_.begin(), end);
        block_ = std::vector<std::uint8_t>();
        return taken;
    }
    std::uint32_t inform(std::uint32_t offset, std::uint32_t id, const void *data, std::uint32_t size) {
        const bool header = id == MPEG_A_HEADER_INFO && size == sizeof(header_info);
        const bool frame = id == MPEG_A_FRAME_INFO && size == sizeof(frame_info);
        note(header ? "header" : frame ? "frame" : "unknown auxinfo", offset);
        if (header) std::memcpy(&current_.header, data, size);
        if (frame) {
            std::memcpy(&current_.info, data, size);
            if (recording) frames.push_back(current_);
            current_ = {};
        }
        return 0xDEAD; // the encoder ignores it
    }

    std::vector<std::uint8_t> block_;
    std::uint32_t told_ = 0;
    delivered_frame current_;
};

/// What the functions behind `lookup` see and do; reset() before use. One test at a time.
struct fake_host {
    std::vector<std::string> names, messages; ///< asked for and printed, in order
    bool has_malloc = false, has_free = false, malloc_fails = false;
    int mallocs = 0, frees = 0;
    mpeg_a_settings *spoilt = nullptr; ///< a record that malloc makes illegal

    static fake_host &reset() {
        static fake_host host;
        return *(current = &(host = {}));
    }
    static void *lookup(const char *name) {
        const std::string &asked = current->names.emplace_back(name);
        if (asked == "err_printf") return reinterpret_cast<void *>(print);
        if (asked == "malloc" && current->has_malloc) return reinterpret_cast<void *>(allocate);
        if (asked == "free" && current->has_free) return reinterpret_cast<void *>(release);
        return nullptr;
    }

  private:
    static inline fake_host *current = &reset();

    static int print(const char *format, ...) {
        char text[256];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
        current->messages.emplace_back(text);
        return 0;
    }
    static void *allocate(std::size_t size) {
        ++current->mallocs;
        if (current->spoilt != nullptr) current->spoilt->audio_bitrate = 15;
        void *const block = current->malloc_fails ? nullptr : std::malloc(size);
        // Memory as it comes: anything but zeros.
        return block == nullptr ? nullptr : std::memset(block, 0xA5, size);
    }
    static void release(void *block) {
        ++current->frees;
        std::free(block);
    }
};

} // namespace mp1a_test
