#include "check/stream_decoder.hpp"

#include "common/failure.hpp"

#include <array>
#include <mpg123.h>
#include <string>

namespace tools {
namespace {

mpg123_handle *of(const auto &handle) {
    return static_cast<mpg123_handle *>(handle.get());
}

[[noreturn]] void cannot_decode(const std::string &why) {
    throw failure(exit_code::internal, "libmpg123 cannot decode the stream: " + why);
}

} // namespace

void stream_decoder::closer::operator()(void *handle) const noexcept {
    mpg123_delete(static_cast<mpg123_handle *>(handle));
}

stream_decoder::stream_decoder(int rate, int channels, reader read) : read_(std::move(read)) {
    int error = mpg123_init();
    handle_.reset(error == MPG123_OK ? mpg123_new(nullptr, &error) : nullptr);
    if (!handle_) cannot_decode(mpg123_plain_strerror(error));
    mpg123_handle *const decoder = of(handle_);
    // Every byte belongs to a frame: nothing is searched, skipped or corrected.
    const bool is_set = mpg123_param(decoder, MPG123_ADD_FLAGS,
                                     MPG123_QUIET | MPG123_IGNORE_INFOFRAME | MPG123_NO_READAHEAD, 0)
                            == MPG123_OK
                        && mpg123_param(decoder, MPG123_REMOVE_FLAGS, MPG123_GAPLESS, 0) == MPG123_OK
                        && mpg123_param(decoder, MPG123_RESYNC_LIMIT, 0, 0) == MPG123_OK
                        && mpg123_format_none(decoder) == MPG123_OK
                        && mpg123_format(decoder, rate, channels, MPG123_ENC_FLOAT_32) == MPG123_OK
                        && mpg123_open_feed(decoder) == MPG123_OK;
    if (!is_set) cannot_decode(mpg123_strerror(decoder));
}

std::span<const float> stream_decoder::next_frame() {
    mpg123_handle *const decoder = of(handle_);
    std::array<std::byte, 16384> bytes;
    for (;;) {
        off_t number = 0;
        unsigned char *sound = nullptr;
        std::size_t size = 0;
        const int result = mpg123_decode_frame(decoder, &number, &sound, &size);
        if (result == MPG123_NEED_MORE) {
            const std::size_t count = read_(bytes);
            if (count == 0) return {};
            if (mpg123_feed(decoder, reinterpret_cast<const unsigned char *>(bytes.data()), count)
                != MPG123_OK)
                cannot_decode(mpg123_strerror(decoder));
        } else if (result != MPG123_OK && result != MPG123_NEW_FORMAT) { // there is one format only
            cannot_decode(result == MPG123_ERR ? mpg123_strerror(decoder)
                                               : mpg123_plain_strerror(result));
        } else if (size != 0) {
            return {reinterpret_cast<const float *>(sound), size / sizeof(float)};
        }
    }
}

} // namespace tools
