// Opening, closing and binding in every order: who gets which frames, and who still holds a reference.
#include "engine/raw_calls.hpp"
#include "engine/sink.hpp"
#include "vela_enc_mp1a/engine.h"

#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <utility>

namespace mp1a_test {
namespace {

constexpr int block = 1728; ///< samples of one put: a frame and a half

struct fed_engine {
    void put() { result = data.put(pcm.data(), 4, block); }

    handle engine{get_encMP1A()};
    handle params{engine.object, params_identifier};
    handle data{engine.object, data_identifier};
    std::vector<std::uint8_t> pcm = std::vector<std::uint8_t>(4 * block, 3);
    std::int32_t result = 0;
};

/// The rules, as a host counts them: outputs 'A' and 'B' are sinks, 'S' is a bufstream, '-' is none.
struct expectation {
    char bound = '-', open = '-';
    int pending = 0;
    std::map<char, int> references, frames, descriptions;
    std::map<char, int> replaced; ///< adapters that wait for the encoder's end

    static bool is_sink(char output) { return output == 'A' || output == 'B'; }

    void bind(char output) {
        if (is_sink(bound)) {
            references[bound] -= open == '-' ? 2 : 1;
            replaced[bound] += open == '-' ? 0 : 1;
        }
        bound = output;
        if (is_sink(output)) references[output] += 2;
    }
    void close(bool flush) {
        if (open == '-') return;
        if (flush && pending > 0) ++frames[open];
        open = '-';
        for (auto &[output, adapters] : replaced)
            references[output] -= std::exchange(adapters, 0);
    }
    int init() {
        pending = 0;
        if (bound == '-') return close(false), -1;
        open = bound;
        if (is_sink(open)) ++descriptions[open];
        return 0;
    }
    int put() {
        if (open == '-' && init() != 0) return -1;
        pending += block;
        frames[open] += pending / 1152;
        pending %= 1152;
        return 0;
    }
    void done() {
        close(true);
        if (is_sink(bound)) bind('-');
    }
};

/// Runs the operations in `order` (A, B, S, 0 bind; i init, p put, d done), then releases everything.
void run(const std::string &order) {
    sink sinks[2];
    fake_output output;
    expectation expected;
    const auto check = [&] {
        for (const char name : {'A', 'B'}) {
            const sink &host = sinks[name - 'A'];
            EXPECT_EQ(host.references, 1 + expected.references[name]) << name;
            EXPECT_EQ(host.frames.size(), static_cast<std::size_t>(expected.frames[name])) << name;
            EXPECT_EQ(host.description.size(), 4u * static_cast<unsigned>(expected.descriptions[name]));
        }
        EXPECT_EQ(output.frames.size(), static_cast<std::size_t>(expected.frames['S']));
    };
    {
        fed_engine subject;
        for (const char operation : order) {
            if (operation == 'i') {
                EXPECT_EQ(subject.params.set("command::init", 0), expected.init());
            } else if (operation == 'p') {
                subject.put();
                EXPECT_EQ(subject.result, expected.put());
            } else if (operation == 'd') {
                EXPECT_EQ(subject.params.set("command::done", 0), 0);
                expected.done();
            } else if (operation == 'A' || operation == 'B') {
                EXPECT_EQ(subject.params.bind(sinks[operation - 'A']), 0);
                expected.bind(operation);
            } else {
                bufstream *const stream = operation == 'S' ? &output : nullptr;
                EXPECT_EQ(subject.params.text("init::output::bufstream", stream), 0);
                expected.bind(operation == 'S' ? 'S' : '-');
            }
            check();
        }
        expected.done();
    }
    check();
}

TEST(engine_bindings, no_order_of_operations_leaks_releases_twice_or_mixes_outputs_up) {
    const std::string operations = "AB0Sipd";
    std::string order;
    const auto extend = [&](const auto &self) -> void {
        SCOPED_TRACE("order " + order);
        run(order);
        // A symmetric start would only repeat what A does.
        for (const char operation : operations) {
            if (order.size() == 5 || (order.empty() && operation == 'B') || testing::Test::HasFailure())
                continue;
            order.push_back(operation);
            self(self);
            order.pop_back();
        }
    };
    extend(extend);
    for (const char *longer :
         {"ApBiApd", "ApSipBd", "ApBSAipdAp", "SpApBip0id", "ApApAiApd", "Ap0ipAp"})
        run(longer);
}

TEST(engine_bindings, a_sink_is_told_the_stream_and_gets_each_frame_with_its_time_in_order) {
    sink host;
    fed_engine subject;
    subject.params.set("preset::audio_type", 9); // MicroMV: Layer II, index 12, CRC, 48000 Hz
    subject.params.set("settings::audio_mode", 3);
    subject.params.set("settings::copyright", 1);
    subject.params.set("settings::sampling_bits", 32);
    subject.params.set("settings::pts_offset", 1000);
    subject.params.bind(host);
    EXPECT_EQ(host.calls, "AA");
    subject.put();
    subject.params.set("command::init", 0);
    EXPECT_EQ(subject.data.put(subject.pcm.data(), 4, 1152), 0);
    subject.params.set("command::done", 0);
    EXPECT_EQ(host.calls, "AADdddtbpeDdddtbpeRR");
    // id, layer, CRC, index, rate, padding, private, mode, mode extension, copyright, original,
    // emphasis
    const std::string record = "encoding::MP1A::info 0 1 2 1 12 1 0 0 3 0 1 0 0 0 0 0 0";
    for (const std::size_t first : {0u, 4u}) {
        ASSERT_EQ(host.description.size(), 8u);
        EXPECT_EQ(host.description[first], record);
        EXPECT_EQ(host.description[first + 1], "original::audio::PCM::channels 0 1.000000");
        EXPECT_EQ(host.description[first + 2], "original::audio::PCM::sampling::bits 0 32.000000");
        EXPECT_EQ(host.description[first + 3], "original::audio::PCM::sampling::rate 0 48000.000000");
    }
    for (const delivered_frame &frame : host.frames) {
        EXPECT_EQ(frame.bytes.size(), 768u); // 144 * 256000 / 48000
        EXPECT_EQ(frame.info.time_stamp, 1000 + 648000) << "1152 / 48000 s, from the start each time";
    }
}

TEST(engine_bindings, settings_count_from_the_next_opening_and_a_bufstream_stays_bound) {
    fed_engine subject;
    fake_output output;
    subject.put();
    EXPECT_EQ(subject.result, -1) << "nothing is bound";
    subject.params.text("init::output::bufstream", &output);
    subject.put();
    subject.params.set("settings::audio_bitrate", 14);
    subject.put();
    subject.params.set("command::done", 0);
    subject.put();
    const std::size_t lengths[] = {672, 672, 672, 1152}; // 224, then 384 kbit/s at 48 kHz
    ASSERT_EQ(output.frames.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(output.frames[i].bytes.size(), lengths[i]) << i;
    EXPECT_EQ(output.frames[3].info.time_stamp, 648000);
    subject.params.set("command::done", 0);
    for (const char *key : {"settings::audio_layer", "settings::sample_rate"}) {
        subject.params.set("preset::audio_type", 4);
        subject.params.set(key, 3);
        EXPECT_EQ(subject.params.set("command::init", 0), -1) << key;
        subject.put();
        EXPECT_EQ(subject.result, -1) << key;
    }
}

TEST(engine_bindings, put_data_counts_bytes_and_refuses_impossible_counts) {
    sink host;
    fed_engine subject;
    subject.params.bind(host);
    const struct {
        std::int32_t size, count, result;
        std::size_t frames;
    } cases[] = {{-1, 4608, -1, 0},     {4608, -1, -1, 0}, {65536, 32768, -1, 0},
                 {65536, 65536, -1, 0}, {2, 2303, 0, 0},   {INT32_MAX, -1, -1, 0},
                 {2, 1, 0, 1},          {0, 5, 0, 1},      {4608, 1, 0, 2},
                 {2, 100, 0, 2}};
    bool opened = false;
    for (const auto &[size, count, result, frames] : cases) {
        EXPECT_EQ(subject.data.put(subject.pcm.data(), size, count), result) << size << " * " << count;
        EXPECT_EQ(host.frames.size(), frames) << size << " * " << count;
        opened |= result == 0;
        EXPECT_EQ(host.description.empty(), !opened);
    }
    EXPECT_EQ(subject.data.put(nullptr, 0, 0), 0);
    EXPECT_EQ(host.frames.size(), 3u) << "null ends the input";
}

TEST(engine_bindings, failing_hosts_change_nothing_or_fail_the_data) {
    {
        sink host;
        host.result = -1;
        fed_engine subject;
        subject.params.bind(host);
        subject.put();
        subject.put();
        EXPECT_EQ(subject.result, 0);
        EXPECT_EQ(host.frames.size(), 3u);
    }
    fake_output output;
    output.refused_request = 1; // the second frame's
    fed_engine subject;
    subject.params.text("init::output::bufstream", &output);
    subject.put();
    EXPECT_EQ(subject.result, 0);
    subject.put();
    EXPECT_EQ(subject.result, -1);
    subject.put();
    EXPECT_EQ(subject.result, -1);
    subject.params.set("command::init", 0);
    subject.put();
    EXPECT_EQ(subject.result, 0);
    EXPECT_EQ(output.frames.size(), 2u);
}

TEST(engine_bindings, a_sink_may_ask_count_and_query_inside_every_call) {
    sink host;
    int asked = 0;
    std::optional<fed_engine> subject(std::in_place);
    void *const params = subject->params.object, *const engine = subject->engine.object;
    host.hook = [&](char) {
        double value = 0;
        EXPECT_EQ(call(params, 4, "settings::audio_bitrate", &value, 0), 0);
        EXPECT_EQ(value, 11);
        handle other(engine, data_identifier);
        EXPECT_NE(other.object, nullptr);
        ++asked;
    };
    subject->params.bind(host);
    subject->put();
    subject->params.bind(host);
    subject.reset(); // the last frame is delivered from the destructor
    EXPECT_EQ(host.calls, "AADdddtbpeAARtbpeRRR");
    EXPECT_EQ(asked, 20);
}

TEST(engine_bindings, a_sink_may_give_up_the_last_reference_inside_any_call) {
    const std::string letters = "ADdtbpeR";
    for (const char letter : letters) {
        SCOPED_TRACE(letter);
        sink host;
        const std::vector<std::uint8_t> pcm(4608);
        handle engine(get_encMP1A());
        handle params(engine.object, params_identifier), data(engine.object, data_identifier);
        void *const kept = engine.object;
        call(kept, 0);
        void *const keys = params.object, *const input = data.object;
        engine.release();
        params.release();
        data.release();
        bool gone = false;
        host.hook = [&](char now) {
            if (now == letter && !std::exchange(gone, true)) call(kept, 2);
        };
        call(keys, 5, "init::output::PushData",
             static_cast<const void *>(static_cast<PushData *>(&host)), 0);
        if (!gone) call(keys, 3, "command::init", 0, 0.0);
        if (!gone) call(input, 3, static_cast<const void *>(pcm.data()), 2, 2304);
        if (!gone) call(keys, 3, "command::done", 0, 0.0);
        EXPECT_TRUE(gone);
        EXPECT_EQ(host.references, 1);
    }
}

} // namespace
} // namespace mp1a_test
