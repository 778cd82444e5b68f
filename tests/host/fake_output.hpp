// A host's bufstream that records what the encoder calls, keeps the frames and fails on demand.
#pragma once

#include "vela_enc_mp1a/bufstream.h"

#include <cstdint>
#include <string>
#include <vector>

namespace mp1a_test {

struct delivered_frame {
    std::vector<std::uint8_t> bytes;
    header_info header{};
    frame_info info{};
};

struct fake_output : bufstream {
    explicit fake_output(std::uint32_t chunk_bytes = 4096);
    fake_output(const fake_output &) = delete;
    fake_output &operator=(const fake_output &) = delete;

    std::uint32_t chunk;      ///< what chunk_size answers
    int refused_request = -1; ///< this request, counted from 0, gets no block
    int short_commit = -1;    ///< this commit, counted from 0, accepts one byte less
    bool recording = true;    ///< false: keep nothing, allocate nothing
    bool overrun = false;     ///< something was written behind the block
    int requests = 0, commits = 0;
    std::vector<std::string> calls; ///< such as "request 4096", "commit 672", "header 0", "frame 0"
    std::vector<delivered_frame> frames;
    std::vector<std::uint8_t> stream; ///< every committed byte

  private:
    static constexpr std::size_t guard = 64;
    static constexpr std::uint8_t untouched = 0xA5;
    void note(const char *name, std::uint32_t value);

    std::vector<std::uint8_t> block_;
    delivered_frame current_;
};

} // namespace mp1a_test
