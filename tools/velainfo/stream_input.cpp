#include "velainfo/stream_input.hpp"

#include "common/byte_order.hpp"
#include "common/failure.hpp"
#include "input/container.hpp"
#include "velainfo/container_kind.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <system_error>

namespace tools {
namespace {

constexpr std::size_t head_bytes = 512;

std::string_view text_of(const std::vector<std::byte> &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

/// A name as a shell takes it.
std::string quoted(const std::string &name) {
    std::string text = "'";
    for (const char c : name)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

/// The command that makes a stream of it.
[[noreturn]] void refuse(const std::string &name, const container_kind &kind) {
    std::string command;
    auto words = copy_command(quoted(name), "a:0");
    words.back() = "stream.mp2";
    for (const std::string &word : words)
        command += ' ' + word;
    throw failure(exit_code::input, name + " is " + kind.description
                                        + ", in which ffmpeg finds no MPEG audio of Layer I or II, or"
                                          " ffmpeg is not installed; to take a stream out:"
                                        + command);
}

} // namespace

stream_input::stream_input(const stream_name &stream) : file_(open_input(stream.path)) {
    if (stream.path == "-" && !file_.seekable()) live_.emplace();
    read_head();
    if (head_.empty()) throw failure(exit_code::input, file_.name + " is empty");
    const container_kind kind = container_of(text_of(head_));
    if (!kind.name.empty()) {
        if (!stream.track) refuse(file_.name, kind);
        container_.name = kind.name;
        container_.description = kind.description;
        container_.track = stream.track;
        start_copying(*stream.track);
    } else if (text_of(head_).starts_with("RIFF") || text_of(head_).starts_with("RF64")) {
        enter_wav();
    } else {
        container_.name = "none";
    }
}

void stream_input::read_head() {
    head_.resize(head_bytes);
    std::size_t filled = 0, got = 1;
    for (; got > 0 && filled < head_.size(); filled += got)
        got = read_now(std::span(head_).subspan(filled));
    head_.resize(filled);
}

/// What has come, at the latest when the user ends a live input.
std::size_t stream_input::read_now(std::span<std::byte> room) {
    constexpr int tick_milliseconds = 200;
    for (bool waits = live_.has_value(); waits;) {
        switch (live_->wait_for(file_.handle.get(), tick_milliseconds)) {
        case live_input::outcome::ended:
            return 0;
        case live_input::outcome::readable:
            waits = false;
            break;
        case live_input::outcome::nothing:
            if (tick_) tick_();
        }
    }
    return read_some(file_, room);
}

void stream_input::start_copying(int track) {
    const auto words = copy_command(child_process::handed_file, std::to_string(track));
    try {
        ffmpeg_ = std::make_unique<child_process>(words, file_.handle.get());
    } catch (const std::system_error &) {
        refuse(file_.name, {container_.name, container_.description});
    }
    file_.handle = ffmpeg_->take_output();
    file_.status = {};
    head_.clear();
}

std::size_t stream_input::read_copy(std::span<std::byte> room) {
    const std::size_t size = read_some(file_, room);
    if (size == 0 && ffmpeg_->wait() != 0)
        throw failure(exit_code::input, "ffmpeg cannot take the stream out of " + file_.name + ": "
                                            + ffmpeg_->last_words());
    return size;
}

void stream_input::enter_wav() {
    live_.reset(); // all of it is wanted before anything can be said
    if (!file_.seekable()) file_ = spool(std::move(file_), head_);
    const auto fetch = fetch_from(file_);
    const auto format = wav_format(fetch);
    const auto data = find_sound_data(fetch);
    if (!format || !data)
        throw failure(exit_code::input, file_.name + " is a RIFF file without sound data");
    const std::uint64_t tag = *format;
    if (tag != 0x50)
        throw failure(exit_code::input, file_.name + " is a WAV file of "
                                            + (tag == 1 || tag == 3 ? "PCM"
                                               : tag == 0x55        ? "MPEG Layer III"
                                                                    : "format " + std::to_string(tag))
                                            + "; velainfo reads MPEG audio of Layer I or II");
    std::array<std::byte, 16> fields{};
    if (const auto chunk = find_wav_chunk(fetch, "fmt ")) fetch(chunk->offset, fields);
    const auto field = [&](std::size_t place, std::size_t bytes) {
        return static_cast<int>(little_endian(std::span(fields).subspan(place, bytes)));
    };
    container_ = {.name = "wav",
                  .description = {},
                  .track = {},
                  .base = data->offset,
                  .rate = field(4, 4),
                  .channels = field(2, 2),
                  .promised = data->known ? data->bytes : 0,
                  .is_empty = data->bytes == 0};
    in_wav_ = true;
    if (data->known && data->bytes > 0) left_ = data->bytes;
    head_.clear();
}

std::size_t stream_input::read(std::span<std::uint8_t> room) {
    if (head_used_ < head_.size()) {
        const std::size_t size = std::min(room.size(), head_.size() - head_used_);
        std::memcpy(room.data(), head_.data() + head_used_, size);
        head_used_ += size;
        return size;
    }
    const auto wanted = std::as_writable_bytes(room).first(std::min<std::uint64_t>(room.size(), left_));
    if (wanted.empty()) return 0;
    if (ffmpeg_ != nullptr) return read_copy(wanted);
    if (!in_wav_) return read_now(wanted);
    const std::size_t size = read_at(file_, container_.base + head_used_ - head_.size(), wanted);
    head_used_ += size;
    left_ -= size;
    return size;
}

std::string stream_input::other_kind() const {
    return other_sound(text_of(head_));
}

} // namespace tools
