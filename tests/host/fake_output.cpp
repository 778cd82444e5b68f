#include "host/fake_output.hpp"

#include <algorithm>
#include <cstring>

namespace mp1a_test {

namespace {
fake_output &self(bufstream *stream) {
    return *static_cast<fake_output *>(stream);
}
} // namespace

fake_output::fake_output(std::uint32_t chunk_bytes)
    : bufstream{}, chunk(chunk_bytes), block_(chunk_bytes + guard) {
    chunk_size = [](bufstream *s) {
        self(s).note("chunk_size", self(s).chunk);
        return self(s).chunk;
    };
    request = [](bufstream *s, std::uint32_t n) -> std::uint8_t * {
        fake_output &out = self(s);
        out.note("request", n);
        // Old contents must not pass for written bytes.
        std::ranges::fill(out.block_, untouched);
        return out.requests++ == out.refused_request || n > out.block_.size() - guard
                   ? nullptr
                   : out.block_.data();
    };
    commit = [](bufstream *s, std::uint32_t n) {
        fake_output &out = self(s);
        out.note("commit", n);
        for (std::size_t i = out.chunk; i < out.block_.size(); ++i)
            out.overrun |= out.block_[i] != untouched;
        if (out.recording && n <= out.chunk) {
            const auto end = out.block_.begin() + n;
            out.current_.bytes.insert(out.current_.bytes.end(), out.block_.begin(), end);
            out.stream.insert(out.stream.end(), out.block_.begin(), end);
        }
        return out.commits++ == out.short_commit ? n - 1 : n;
    };
    auxinfo = [](bufstream *s, std::uint32_t offset, std::uint32_t id, const void *data,
                 std::uint32_t size) -> std::uint32_t {
        fake_output &out = self(s);
        if (id == MPEG_A_HEADER_INFO && size == sizeof(header_info)) {
            out.note("header", offset);
            std::memcpy(&out.current_.header, data, size);
        } else if (id == MPEG_A_FRAME_INFO && size == sizeof(frame_info)) {
            out.note("frame", offset);
            std::memcpy(&out.current_.info, data, size);
            if (out.recording) out.frames.push_back(out.current_);
            out.current_ = {};
        } else {
            out.note("unknown auxinfo", id);
        }
        return 0xDEAD; // the encoder ignores it
    };
}

void fake_output::note(const char *name, std::uint32_t value) {
    if (recording) calls.push_back(std::string(name) + ' ' + std::to_string(value));
}

} // namespace mp1a_test
