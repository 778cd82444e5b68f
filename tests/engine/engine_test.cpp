// The engine as hosts see it: slots, queries, outputs in every order, the same frames.
#include "engine/engine_host.hpp"

#include <cstdlib>

namespace mp1a_test {

constexpr int block = 4608, piece = 3 * block / 2; ///< bytes of a frame of stereo and of one put
const std::vector<std::uint8_t> pcm(piece, 3);

TEST(engine_slots, operations_have_their_numbers_and_interfaces_share_one_count) {
    user host;
    sink output;
    for (void *const interface : {host.engine, host.params, host.data}) {
        EXPECT_EQ(call(interface, 0), 4);
        EXPECT_EQ(call(interface, 2), 3);
    }
    EXPECT_EQ(call(host.params, 6), -1);
    // The engine's own table goes on with its two destructors; the second one frees the memory too.
    host.bind(output);
    host.references = 0;
    call<void>(host.engine, 3);
    std::free(host.engine);
    call<void>(get_encMP1A(), 4);

    const void *const value = pcm.data();
    call(&output, 3, "key", 0, 0.5), call(&output, 5, "key", value, 1, 0);
    call(&output, 10, std::int64_t{5}, std::int64_t{5});
    call(&output, 8, 3, 0), call(&output, 7, pcm.data(), 3), call(&output, 9);
    EXPECT_EQ(call(&output, 1, value, value) + call(&output, 4) + call(&output, 6), -3);
    EXPECT_EQ(output.calls, "AARRdDtbpe");
}

TEST(engine_slots, a_query_moves_exactly_one_reference_into_the_holder) {
    user host, other;
    void *holder = nullptr;
    for (void *const from : {host.engine, host.params, host.data}) {
        EXPECT_EQ(call(from, 1, params_identifier, &holder), 0);
        EXPECT_EQ(holder, host.params);
        EXPECT_EQ(call(from, 1, data_identifier, &holder), 0);
        EXPECT_EQ(call(from, 1, engine_identifier, &holder), 0);
        for (std::size_t i = 0; i < 16; ++i) {
            std::string unknown(params_identifier, 16);
            unknown[i] ^= 0x20;
            EXPECT_EQ(call(from, 1, unknown.c_str(), &holder), -1) << "byte " << i;
        }
        EXPECT_EQ(holder, host.data);
        EXPECT_EQ(call(from, 0), ++host.references + 1);
    }
    EXPECT_EQ(call(other.engine, 1, data_identifier, &holder), 0);
    EXPECT_EQ(call(holder, 2), 3);
    EXPECT_EQ(call(host.engine, 0), ++host.references);
}

/// Runs the operations in `order` (A, B, S, 0 bind; i init, p put, d done), then releases the engine.
/// @return the calls of the sinks A and B, the frames of the bufstream S, the operations that failed
static std::string run(const std::string &order) {
    sink sinks[2];
    fake_output output;
    std::string failed;
    {
        user host;
        void *const data = host.data; // each call counts up and down, even the last ones
        for (sink &each : sinks)
            each.hook = [=](char) { call(data, 0), call(data, 2); };
        for (const char operation : order) {
            const i32 result = operation == 'i'   ? host.set("command::init", 0)
                               : operation == 'd' ? host.set("command::done", 0)
                               : operation == 'p' ? host.put(pcm.data(), piece)
                               : operation == '0' ? host.text("init::output::bufstream", nullptr)
                               : operation == 'S' ? host.text("init::output::bufstream", &output)
                                                  : host.bind(sinks[operation - 'A']);
            if (result != 0) failed += operation;
            sinks[0].calls += ' ', sinks[1].calls += ' ';
        }
    }
    return sinks[0].calls + '|' + sinks[1].calls + '|' + std::to_string(output.frames.size()) + failed;
}

TEST(engine_output, no_order_of_operations_leaks_releases_twice_or_mixes_outputs_up) {
    const char *const cases[][2] = {
        {"ApBiApd", "AA Ddddtbpe R  AA  RRR |  AA Dddd R tbpe tbpeR |0"},
        {"ApBSAipdAp", "AA Ddddtbpe R  AA Dddd tbpe tbpeRRR AA Ddddtbpe tbpeRR|  AA R    R   |0"},
        {"SpApBip0id", "  AA  R    R  |    AA Dddd tbpe R R  |3i"},
        {"ApApAiApd", "AA Ddddtbpe AAR tbpetbpe AAR Dddd AAR tbpe tbpeRRRRR |         |0"},
        {"Ap0ipAp", "AA Ddddtbpe R R  AA Ddddtbpe tbpeRR|       |0ip"},
        {"SpdpAd", "    AA RR |      |4"}};
    for (const auto &[order, calls] : cases)
        EXPECT_EQ(run(order), calls) << order;
}

TEST(engine_output, a_sink_is_told_the_stream_and_gets_each_frame_with_its_time_whatever_it_answers) {
    sink output;
    output.result = -1;
    user host;
    host.set("preset::audio_type", 9); // MicroMV: Layer II, index 12, CRC, 48000 Hz
    host.set("settings::audio_mode", 3);
    host.set("settings::sampling_bits", 32);
    host.bind(output);
    host.put(pcm.data(), block - 1);
    host.set("command::init", 0);
    host.put(pcm.data(), block);
    host.set("command::done", 0);
    EXPECT_EQ(output.calls, "AADdddDdddtbpeRR");
    // id, layer, CRC, index, rate, padding, private, mode, extension, copyright, original, emphasis
    const std::string stream = "encoding::MP1A::info 0: 1 2 1 12 1 0 0 3 0 0 0 0 0 0 0 0\n"
                               "original::audio::PCM::channels 0 1\n"
                               "original::audio::PCM::sampling::bits 0 32\n"
                               "original::audio::PCM::sampling::rate 0 48000\n";
    EXPECT_EQ(output.description.str(), stream + stream);
    EXPECT_EQ(output.frames.at(0).info.time_stamp, 648000) << "1152 / 48000 s, from the start";
}

TEST(engine_output, settings_count_from_the_next_opening_and_what_fails_is_reported) {
    user host;
    fake_output output;
    host.text("init::output::bufstream", &output);
    output.refused_request = 3;
    enum operation { init, done, bitrate, give, flush };
    const char *const keys[] = {"command::init", "command::done", "settings::audio_bitrate"};
    const struct {
        operation key;
        i32 number, count, result;  ///< of give: bytes of an element, elements
        std::size_t frames, length; ///< length of the last frame
    } steps[] = {
        {give, 65536, 32768, -1, 0, 0},    {give, 65536, -32769, -1, 0, 0}, {give, -1, 4608, 0, 0, 0},
        {bitrate, 14, 0, 0, 0, 0},         {give, 2, 2304, 0, 1, 672},      {give, 2, 2305, 0, 2, 672},
        {flush, -65536, 32768, 0, 3, 672}, {done, 0, 0, 0, 3, 672},         {give, 4608, 1, -1, 3, 672},
        {give, 4608, 1, -1, 3, 672},       {init, 0, 0, 0, 3, 672},         {give, 4608, 1, 0, 4, 1152},
        {done, 0, 0, 0, 4, 1152},          {bitrate, 15, 0, 0, 4, 1152},    {init, 0, 0, -1, 4, 1152},
        {give, 2, 1, -1, 4, 1152}};
    for (const auto &[key, number, count, result, frames, length] : steps) {
        const i32 got = key == give    ? host.put(pcm.data(), count, number)
                        : key == flush ? host.put(nullptr, count, number)
                                       : host.set(keys[key], number);
        EXPECT_EQ(got, result) << key << ' ' << number << " after " << output.frames.size();
        ASSERT_EQ(output.frames.size(), frames) << key << ' ' << number;
        EXPECT_EQ(frames == 0 ? 0 : output.frames.back().bytes.size(), length);
    }
}

TEST(engine_output, frames_and_time_stamps_equal_those_of_the_functions) {
    for (int i = 0; i < 2 * 4 * 3; ++i) {
        const int model = i % 3 == 0 ? MPEG_A_MODEL_TUNED : MPEG_A_MODEL_STANDARD;
        const stream how{1 + i % 2, i / 2 % 4, 8, 1, 44100, 2 + i / 8, 1, 3, model};
        const auto input = how.pcm(4000); // 3.5 frames of Layer II
        user host;
        sink pushed;
        host.configure(how); // with the record's model; its key says the same
        if (i / 3 % 2 == 0) host.set("settings::audio_model", model == MPEG_A_MODEL_TUNED ? 1 : 2);
        host.bind(pushed);
        EXPECT_EQ(host.put(input.data(), static_cast<i32>(input.size())), 0);
        host.set("command::done", 0);
        EXPECT_GE(pushed.frames.size(), 4u);
        EXPECT_TRUE(pushed.frames == encode(how, input)) << i;
    }
}

} // namespace mp1a_test
