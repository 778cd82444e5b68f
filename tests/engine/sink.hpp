// A host's sink that counts its references, keeps the frames and checks every call it gets.
#pragma once

#include "host/fake_output.hpp"
#include "vela_enc_mp1a/engine.h"

#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace mp1a_test {

struct sink final : PushData {
    int references = 1; ///< the test's own
    /// One letter a call: A, R counting; d description value, D record; t, b, p, e of a frame.
    std::string calls;
    std::vector<std::string> description;
    std::vector<delivered_frame> frames;
    std::int32_t result = 0;        ///< of every call
    std::function<void(char)> hook; ///< runs inside every call, with its letter

    sink() = default;
    sink(const sink &) = delete;
    sink &operator=(const sink &) = delete;
    virtual ~sink() { EXPECT_EQ(references, 1) << "lost or kept references; calls: " << calls; }

    std::int32_t AddRef() noexcept override { return ++references, note('A'); }
    std::int32_t Release() noexcept override { return --references, note('R'); }
    std::int32_t set_parameter(const char *key, std::int32_t index, double value) noexcept override {
        description.push_back(key + (' ' + std::to_string(index) + ' ' + std::to_string(value)));
        return note('d');
    }
    std::int32_t set_parameter_str(const char *key, const void *value, std::int32_t size,
                                   std::int32_t reserved) noexcept override {
        description.push_back(key + (' ' + std::to_string(reserved)));
        for (std::int32_t i = 0; i < size; ++i)
            description.back() += ' ' + std::to_string(static_cast<const std::uint8_t *>(value)[i]);
        return note('D');
    }
    std::int32_t set_time_stamps(std::int64_t first, std::int64_t second) noexcept override {
        EXPECT_EQ(first, second);
        frames.emplace_back().info.time_stamp = first;
        return note('t');
    }
    std::int32_t begin_unit(std::int32_t length, std::int32_t reserved) noexcept override {
        EXPECT_EQ(reserved, 0);
        frames.back().info.length = static_cast<std::uint32_t>(length);
        return note('b');
    }
    std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept override {
        EXPECT_EQ(frames.back().info.length, static_cast<std::uint32_t>(length));
        frames.back().bytes.assign(bytes, bytes + length);
        return note('p');
    }
    std::int32_t end_unit() noexcept override { return note('e'); }

    // Never called by the engine.
    std::int32_t QueryInterface(const engine_iid &, IEngine *&) noexcept override { return note('1'); }
    std::int32_t unused_4() noexcept override { return note('4'); }
    std::int32_t unused_6() noexcept override { return note('6'); }

  private:
    std::int32_t note(char letter) {
        EXPECT_GE(references, letter == 'R' ? 0 : 1) << "called after its last release: " << letter;
        calls += letter;
        if (hook) hook(letter);
        return result;
    }
};

} // namespace mp1a_test
