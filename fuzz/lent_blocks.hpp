// An output for fuzzers of what writes to one.
#pragma once

#include "judged_frame.hpp"
#include "vela_enc_mp1a/bufstream.h"

#include <memory>
#include <vector>

namespace fuzz {

/// Lends a block of its own for every request and takes it away at the commit, so that the address
/// sanitizer sees every byte that is written elsewhere or later. Whole frames are judged.
struct lent_blocks : bufstream {
    lent_blocks() : bufstream{} {
        chunk_size = [](bufstream *s) { return self(s).told = self(s).next_chunk(); };
        request = [](bufstream *s, std::uint32_t n) { return self(s).lend(n); };
        commit = [](bufstream *s, std::uint32_t n) { return self(s).take(n); };
        auxinfo = [](bufstream *s, std::uint32_t, std::uint32_t id, const void *data,
                     std::uint32_t size) {
            if (id == MPEG_A_FRAME_INFO) self(s).end_frame(data, size);
            self(s).inform();
            return std::uint32_t{};
        };
    }
    virtual ~lent_blocks() = default;

    // What the host answers, and where it is called for nothing else.
    virtual std::uint32_t next_chunk() = 0;
    virtual bool refuses_request() = 0;
    virtual std::uint32_t accept(std::uint32_t n) = 0;
    virtual void inform() = 0;
    virtual void see_frame(bool /*whole*/) {}

    bool failed = false; ///< since the beginning of the stream
    std::vector<std::uint8_t> frame;

  private:
    static lent_blocks &self(bufstream *stream) { return *static_cast<lent_blocks *>(stream); }

    std::uint8_t *lend(std::uint32_t n) {
        expect(n == told, "another block was requested than the host has");
        const bool refuses = refuses_request();
        failed |= refuses;
        block = refuses ? nullptr : std::make_unique<std::uint8_t[]>(n);
        lent = n;
        return block.get();
    }
    std::uint32_t take(std::uint32_t n) {
        expect(block != nullptr && n <= lent, "more was committed than lent");
        frame.insert(frame.end(), block.get(), block.get() + n);
        block.reset();
        const std::uint32_t accepted = accept(n);
        failed |= accepted != n;
        return accepted;
    }
    void end_frame(const void *data, std::uint32_t size) {
        frame_info info;
        expect(size == sizeof info, "a report of a wrong size");
        std::memcpy(&info, data, sizeof info);
        expect(frame.size() <= info.length, "more than a frame was delivered");
        const bool whole = frame.size() == info.length;
        if (whole && !failed) judge_frame(frame);
        see_frame(whole);
        failed |= !whole;
        frame.clear();
    }

    std::uint32_t told = 0, lent = 0;
    std::unique_ptr<std::uint8_t[]> block;
};

} // namespace fuzz
