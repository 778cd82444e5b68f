#include "engine/pushdata_bufstream.hpp"

#include <cstdlib>
#include <cstring>

namespace vela {

namespace {

pushdata_bufstream &adapter(bufstream *self) noexcept {
    return static_cast<pushdata_bufstream &>(*self);
}

std::uint8_t *lend(bufstream *self, std::uint32_t n) noexcept {
    pushdata_bufstream &to = adapter(self);
    if (n > static_cast<std::uint32_t>(to.capacity)) return nullptr;
    if (static_cast<std::uint32_t>(to.capacity - to.fill) < n) {
        // Not reached: every frame is shorter than the buffer and leaves it at its end.
        to.sink->push_bytes(to.buffer, to.fill);
        to.fill = 0;
    }
    return to.buffer + to.fill;
}

std::uint32_t take(bufstream *self, std::uint32_t n) noexcept {
    adapter(self).fill += static_cast<std::int32_t>(n);
    return n;
}

std::uint32_t chunk_bytes(bufstream *self) noexcept {
    return static_cast<std::uint32_t>(adapter(self).capacity);
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

// The encoder calls neither of these two: they keep the table complete.

std::uint32_t no_bytes(bufstream *) noexcept {
    return 0;
}

std::uint32_t discard(bufstream *, const void *, std::uint32_t n) noexcept {
    return n;
}

template <class Function>
bufstream_unused_slot unused(Function *function) noexcept {
    return reinterpret_cast<bufstream_unused_slot>(function);
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
    *static_cast<bufstream *>(made) = {unused(no_bytes), lend,          take,
                                       unused(discard),  chunk_bytes,   push_frame,
                                       nullptr,          unused(reset), unused(free)};
    made->sink = &sink;
    made->buffer = buffer;
    made->fill = 0;
    made->capacity = buffer_bytes;
    made->next = nullptr;
    sink.AddRef();
    return made;
}

std::uint32_t pushdata_bufstream::reset(bufstream *self, std::int32_t) noexcept {
    adapter(self).fill = 0;
    return 0;
}

void pushdata_bufstream::free(bufstream *self) noexcept {
    pushdata_bufstream *const freed = &adapter(self);
    PushData *const sink = freed->sink;
    std::free(freed->buffer);
    std::free(freed);
    sink->Release();
}

} // namespace vela
