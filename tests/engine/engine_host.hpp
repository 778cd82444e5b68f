// A host: an engine whose operations it calls by number, and a sink that checks every call it gets.
#pragma once

#include "host/encoding.hpp"
#include "vela_enc_mp1a/engine.h"

#include <functional>
#include <gtest/gtest.h>
#include <sstream>

namespace mp1a_test {

using i32 = std::int32_t;

/// Calls slot `slot`; the arguments must have exactly the operation's types, pointers for references.
template <class Result = i32, class... Arguments>
Result call(void *object, std::size_t slot, Arguments... arguments) {
    void *const *const table = *static_cast<void *const *const *>(object);
    return reinterpret_cast<Result (*)(void *, Arguments...)>(table[slot])(object, arguments...);
}

inline const char *const engine_identifier = "\0\0\0\0#ENGINE.API ";
inline const char *const params_identifier = "\0\0\0\5#ENGINE.API ";
inline const char *const data_identifier = "\0\0\1\1#ENGINE.API ";

struct user {
    user() {
        if (engine == nullptr) return; // memory is out
        call(engine, 1, params_identifier, &params);
        call(engine, 1, data_identifier, &data);
    }
    ~user() {
        while (references-- > 0)
            call(data, 2);
    }

    i32 set(const char *key, double value) { return call(params, 3, key, 0, value); }
    double get(const char *key) {
        double value = -12345;
        call(params, 4, key, &value, 0);
        return value;
    }
    i32 text(const char *key, const void *value, i32 n = 0) { return call(params, 5, key, value, n); }
    /// The stream's settings; its sample format and model have keys of their own.
    void configure(const stream &how) {
        const mpeg_a_settings settings = how.settings();
        text("init::settings", &settings, sizeof settings);
        set("settings::sample_rate", how.rate);
        set("settings::sampling_bits", 8 * how.width);
    }
    i32 bind(PushData &sink) { return text("init::output::PushData", &sink); }
    i32 put(const void *pcm, i32 count, i32 size = 1) { return call(data, 3, pcm, size, count); }

    void *engine = get_encMP1A(), *params = nullptr, *data = nullptr;
    int references = engine == nullptr ? 0 : 3;
};

struct sink final : PushData {
    virtual ~sink() { EXPECT_EQ(references, 1) << "lost or kept references; calls: " << calls; }

    i32 AddRef() noexcept override { return ++references, note('A'); }
    i32 Release() noexcept override { return --references, note('R'); }
    i32 set_parameter(const char *key, i32 index, double value) noexcept override {
        return description << key << ' ' << index << ' ' << value << '\n', note('d');
    }
    i32 set_parameter_str(const char *key, const void *value, i32 size, i32 zero) noexcept override {
        description << key << ' ' << zero << ':';
        for (i32 i = 0; i < size; ++i)
            description << ' ' << +static_cast<const std::uint8_t *>(value)[i];
        return description << '\n', note('D');
    }
    i32 set_time_stamps(std::int64_t first, std::int64_t second) noexcept override {
        frames.emplace_back().info.time_stamp = first == second ? first : -1;
        return note('t');
    }
    i32 begin_unit(i32 n, i32 zero) noexcept override { return promised = n + zero, note('b'); }
    i32 push_bytes(const std::uint8_t *bytes, i32 length) noexcept override {
        EXPECT_EQ(length, promised);
        return frames.back().bytes.assign(bytes, bytes + length), note('p');
    }
    i32 end_unit() noexcept override { return note('e'); }

    i32 note(char letter) {
        EXPECT_GE(references, letter == 'R' ? 0 : 1) << "called after its last release: " << letter;
        calls += letter;
        if (hook) hook(letter);
        return result;
    }

    i32 references = 1, result = 0, promised = 0; ///< the test's own; what every call answers; a length
    std::string calls; ///< a letter each: A, R counting; d value, D record; t, b, p, e of a frame
    std::ostringstream description;
    std::vector<delivered_frame> frames;
    std::function<void(char)> hook; ///< runs inside every call, with its letter
};

} // namespace mp1a_test
