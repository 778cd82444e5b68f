// The binary interface: slot numbers, identifiers, one count for all interfaces.
#include "engine/pushdata_bufstream.hpp"
#include "engine/raw_calls.hpp"
#include "engine/sink.hpp"
#include "vela_enc_mp1a/engine.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

namespace mp1a_test {
namespace {

TEST(engine_slots, operations_are_found_under_their_numbers) {
    void *const engine = get_encMP1A();
    EXPECT_EQ(call(engine, 0), 2);
    EXPECT_EQ(call(engine, 2), 1);
    handle params(engine, params_identifier), data(engine, data_identifier);
    EXPECT_EQ(call(params.object, 0), 4);
    EXPECT_EQ(call(data.object, 2), 3);
    double value = 0;
    EXPECT_EQ(call(params.object, 3, "settings::audio_bitrate", 0, 12.0), 0);
    EXPECT_EQ(call(params.object, 4, "settings::audio_bitrate", &value, 0), 0);
    EXPECT_EQ(value, 12);
    EXPECT_EQ(call(params.object, 5, "settings::audio_bitrate", static_cast<const void *>("9"), 0), 0);
    EXPECT_EQ(params.value("settings::audio_bitrate"), 9);
    EXPECT_EQ(call(params.object, 6), -1);
    fake_output output;
    params.text("init::output::bufstream", &output);
    const std::vector<std::uint8_t> frame(4608);
    EXPECT_EQ(call(data.object, 3, static_cast<const void *>(frame.data()), 2, 2304), 0);
    EXPECT_EQ(output.frames.size(), 1u);
    EXPECT_EQ(call(engine, 2), 2);
}

TEST(engine_slots, destructors_follow_the_three_slots_of_an_engine) {
    sink host;
    for (const bool deleting : {false, true}) {
        void *const engine = get_encMP1A();
        {
            handle params(engine, params_identifier);
            params.bind(host);
        }
        EXPECT_EQ(host.references, 3);
        call<void>(engine, deleting ? 4 : 3);
        EXPECT_EQ(host.references, 1);
        if (!deleting) std::free(engine);
    }
}

TEST(engine_slots, a_sinks_operations_are_called_by_their_numbers) {
    sink host;
    const char *const key = "key";
    const void *const record = key;
    const auto *const bytes = reinterpret_cast<const std::uint8_t *>(key);
    const std::function<void()> slots[] = {
        [&] { call(&host, 0); },
        [&] { call(&host, 1, record, record); },
        [&] { call(&host, 2); },
        [&] { call(&host, 3, key, 0, 0.5); },
        [&] { call(&host, 4); },
        [&] { call(&host, 5, key, record, 1, 0); },
        [&] { call(&host, 6); },
        [&] { call(&host, 7, bytes, 3); },
        [&] { call(&host, 8, 3, 0); },
        [&] { call(&host, 9); },
        [&] { call(&host, 10, std::int64_t{5}, std::int64_t{5}); },
    };
    for (const int slot : {0, 1, 2, 3, 4, 5, 6, 10, 8, 7, 9})
        slots[slot]();
    EXPECT_EQ(host.calls, "A1Rd4D6tbpe");
}

TEST(engine_slots, an_adapters_table_has_every_operation_in_its_place) {
    sink host;
    void *const adapter = vela::pushdata_bufstream::create(host);
    void *slots[9];
    std::memcpy(slots, adapter, sizeof slots);
    const auto at = [&]<class Result = std::uint32_t>(std::size_t slot, auto... arguments) {
        return reinterpret_cast<Result (*)(void *, decltype(arguments)...)>(slots[slot])(adapter,
                                                                                         arguments...);
    };
    const auto request = [&](std::uint32_t n) { return at.operator()<std::uint8_t *>(1, n); };
    EXPECT_EQ(at(0), 0u);
    EXPECT_EQ(at(3, "abc", 3u), 3u);
    EXPECT_EQ(at(4), 4096u);
    EXPECT_EQ(slots[6], nullptr);
    EXPECT_EQ(request(4097), nullptr);
    std::uint8_t *const block = request(4096);
    EXPECT_EQ(at(2, 96u), 96u);
    EXPECT_EQ(request(4000), block + 96) << "4000 bytes are left: nothing may be pushed";
    at(7, 0);
    EXPECT_EQ(request(4096), block) << "reset drops what was committed";
    EXPECT_EQ(host.calls, "A");
    // Only with committed bytes waiting does a request push them, without a frame around them.
    host.frames.emplace_back().info.length = 97;
    at(2, 97u);
    EXPECT_EQ(request(4000), block);
    const frame_info info{.length = 0, .unused = 0, .time_stamp = -7};
    const void *const data = &info;
    at(2, 5u);
    EXPECT_EQ(at(5, 0u, 0xFFF00000u, data, 48u), 0u);
    EXPECT_EQ(at(5, 0u, 0xF0002u, data, 16u), 0u);
    EXPECT_EQ(host.frames.back().info.length, 5u);
    EXPECT_EQ(host.frames.back().info.time_stamp, -7);
    EXPECT_EQ(request(4096), block);
    at(8);
    EXPECT_EQ(host.calls, "AptbpeR");
}

TEST(engine_slots, a_query_moves_exactly_one_reference_into_the_holder) {
    handle engine(get_encMP1A());
    void *holder = nullptr;
    const auto references = [&] {
        call(engine.object, 0);
        return call(engine.object, 2);
    };
    EXPECT_EQ(references(), 1);
    EXPECT_EQ(call(engine.object, 1, &params_identifier[0], &holder), 0);
    EXPECT_EQ(references(), 2);
    void *const params = holder;
    EXPECT_EQ(call(params, 1, &params_identifier[0], &holder), 0);
    EXPECT_EQ(holder, params);
    EXPECT_EQ(references(), 2);
    EXPECT_EQ(call(params, 1, &data_identifier[0], &holder), 0);
    EXPECT_NE(holder, params);
    EXPECT_EQ(references(), 2);
    void *const data = holder;
    EXPECT_EQ(call(data, 1, &engine_identifier[0], &holder), 0);
    for (std::size_t i = 0; i < 16; ++i) {
        char other[17];
        std::memcpy(other, data_identifier, sizeof other);
        other[i] ^= 0x20;
        EXPECT_EQ(call(data, 1, static_cast<const char *>(other), &holder), -1) << "byte " << i;
    }
    EXPECT_EQ(holder, data);
    EXPECT_EQ(references(), 2);
    // What a holder gives up may belong to another engine.
    handle other(get_encMP1A());
    EXPECT_EQ(call(other.object, 1, &data_identifier[0], &holder), 0);
    EXPECT_EQ(references(), 1);
    EXPECT_EQ(call(holder, 2), 1);
}

} // namespace
} // namespace mp1a_test
