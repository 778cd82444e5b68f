// Interfaces as a host without the header sees them: numbered slots of the object's table.
#pragma once

#include "vela_enc_mp1a/engine.h"

#include <cstddef>
#include <cstdint>

namespace mp1a_test {

/// Calls slot `slot`; the arguments must have exactly the types of the operation. References are
/// pointers.
template <class Result = std::int32_t, class... Arguments>
Result call(void *object, std::size_t slot, Arguments... arguments) {
    void *const *const table = *static_cast<void *const *const *>(object);
    return reinterpret_cast<Result (*)(void *, Arguments...)>(table[slot])(object, arguments...);
}

/// Keeps one interface alive and calls it by number.
class handle {
  public:
    /// @param holder  owns the reference that it is given
    explicit handle(void *holder) : object(holder) {}
    /// The interface of an engine.
    handle(void *engine, const char (&identifier)[17]) { call(engine, 1, &identifier[0], &object); }
    ~handle() { release(); }
    handle(const handle &) = delete;
    handle &operator=(const handle &) = delete;

    void release() {
        if (object != nullptr) call(object, 2);
        object = nullptr;
    }

    std::int32_t set(const char *key, double value, std::int32_t index = 0) {
        return call(object, 3, key, index, value);
    }
    std::int32_t get(const char *key, double *value, std::int32_t index = 0) {
        return call(object, 4, key, value, index);
    }
    std::int32_t text(const char *key, const void *value, std::int32_t size = 0) {
        return call(object, 5, key, value, size);
    }
    std::int32_t bind(PushData &sink) { return text("init::output::PushData", &sink); }
    std::int32_t put(const void *data, std::int32_t size, std::int32_t count) {
        return call(object, 3, data, size, count);
    }
    double value(const char *key) {
        double read = -12345;
        get(key, &read);
        return read;
    }

    void *object = nullptr;
};

inline constexpr char params_identifier[17] = "\0\0\0\5#ENGINE.API ";
inline constexpr char data_identifier[17] = "\0\0\1\1#ENGINE.API ";
inline constexpr char engine_identifier[17] = "\0\0\0\0#ENGINE.API ";

} // namespace mp1a_test
