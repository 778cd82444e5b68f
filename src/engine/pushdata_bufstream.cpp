#include "engine/pushdata_bufstream.hpp"

#include <cstdlib>
#include <cstring>

namespace vela {

namespace {

pushdata_bufstream &adapter(bufstream *self) noexcept {
    return static_cast<pushdata_bufstream &>(*self);
}

/// All of what is never more than a frame: it was pushed when its end was reported.
std::uint8_t *lend(bufstream *self, std::uint32_t) noexcept {
    return adapter(self).buffer + adapter(self).fill;
}

std::uint32_t take(bufstream *self, std::uint32_t n) noexcept {
    adapter(self).fill += static_cast<std::int32_t>(n);
    return n;
}

std::uint32_t chunk_bytes(bufstream *) noexcept {
    return pushdata_bufstream::buffer_bytes;
}

std::uint32_t push_frame(bufstream *self, std::uint32_t, std::uint32_t info_id, const void *data,
                         std::uint32_t) noexcept {
    if (info_id != MPEG_A_FRAME_INFO) return 0;
    pushdata_bufstream &from = adapter(self);
    frame_info info;
    std::memcpy(&info, data, sizeof info);
    from.sink->set_time_stamps(info.time_stamp, info.time_stamp);
    from.sink->begin_unit(from.fill, 0);
    from.sink->push_bytes(from.buffer, from.fill);
    from.sink->end_unit();
    from.fill = 0;
    return 0;
}

} // namespace

pushdata_bufstream *pushdata_bufstream::create(PushData &sink) noexcept {
    auto *const made = static_cast<pushdata_bufstream *>(std::malloc(sizeof(pushdata_bufstream)));
    auto *const buffer = static_cast<std::uint8_t *>(std::calloc(buffer_bytes, 1));
    if (made == nullptr || buffer == nullptr) {
        std::free(made);
        std::free(buffer);
        return nullptr;
    }
    *static_cast<bufstream *>(made) = {nullptr,    lend,    take,    nullptr, chunk_bytes,
                                       push_frame, nullptr, nullptr, nullptr};
    made->sink = &sink;
    made->buffer = buffer;
    made->fill = 0;
    made->next = nullptr;
    sink.AddRef();
    return made;
}

void pushdata_bufstream::free(pushdata_bufstream *freed) noexcept {
    PushData *const sink = freed->sink;
    std::free(freed->buffer);
    std::free(freed);
    sink->Release();
}

} // namespace vela
