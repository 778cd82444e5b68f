// Every key, value and message of the engine.
#include "engine/raw_calls.hpp"
#include "vela_enc_mp1a/engine.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

namespace mp1a_test {
namespace {

struct engine_keys : testing::Test {
    engine_keys() : params(engine.object, params_identifier) {}
    /// Runs `f` and returns what it printed to standard output.
    template <class Function>
    std::string printed(Function f) {
        testing::internal::CaptureStdout();
        f();
        return testing::internal::GetCapturedStdout();
    }

    handle engine{get_encMP1A()};
    handle params;
};

const std::string settings = "settings::";

TEST_F(engine_keys, names_reach_the_bytes_of_the_record_that_they_stand_for) {
    const struct {
        const char *name;
        std::size_t offset;
    } fields[] = {{"audio_mode", 0},        {"audio_layer", 4}, {"psych_model", 8},
                  {"audio_bitrate", 12},    {"emphasis", 16},   {"extension", 20},
                  {"error_protection", 24}, {"copyright", 28},  {"original", 32},
                  {"pts_offset", 36},       {"pts_units", 44}};
    unsigned char record[4096]{};
    for (const auto &[name, offset] : fields)
        record[offset] = static_cast<unsigned char>(offset + 1);
    record[41] = 1; // 2^40, which only a 64-bit field has
    EXPECT_EQ(params.text("init::settings", record, 4096), 0);
    double added = 0;
    for (const auto &[name, offset] : fields) {
        const std::string key = settings + name;
        const double loaded = static_cast<double>(offset + 1) + (offset == 36 ? 0x1p40 : 0);
        EXPECT_EQ(params.value(key.c_str()), loaded) << name;
        EXPECT_EQ(params.set(key.c_str(), loaded + ++added), 0) << name;
    }
    added = 0;
    for (const auto &[name, offset] : fields) {
        const double loaded = static_cast<double>(offset + 1) + (offset == 36 ? 0x1p40 : 0);
        EXPECT_EQ(params.value((settings + name).c_str()), loaded + ++added) << name;
    }
    const struct {
        const char *written, *read;
    } pairs[] = {{"settings::sample_rate", "settings::sampling::rate"},
                 {"settings::sampling::rate", "settings::sample_rate"},
                 {"settings::sampling_bits", "settings::sampling::bits"},
                 {"settings::sampling::bits", "settings::sampling_bits"},
                 {"preset::audio_type", "preset::video_type"},
                 {"preset::video_type", "preset::audio_type"}};
    for (const auto &[written, read] : pairs) {
        EXPECT_EQ(params.set(written, ++added), 0) << written;
        EXPECT_EQ(params.value(read), added) << read;
    }
}

TEST_F(engine_keys, defaults_come_with_the_first_read_and_a_preset_rewrites_all_but_the_sample_width) {
    const std::pair<const char *, double> fresh[] = {{"version::major", 2},
                                                     {"version::minor", 0},
                                                     {"version::revision", 1},
                                                     {"preset::audio_type", 4},
                                                     {"settings::sample_rate", 48000},
                                                     {"settings::error_protection", 1},
                                                     {"settings::sampling_bits", 16}};
    for (const auto &[key, value] : fresh)
        EXPECT_EQ(params.value(key), value) << key;
    params.set("settings::sampling_bits", 24);
    params.set("settings::sample_rate", 32000);
    params.set("settings::pts_units", 5);
    EXPECT_EQ(params.set("preset::video_type", 1), 0);
    EXPECT_EQ(params.value("settings::sample_rate"), 44100);
    EXPECT_EQ(params.value("settings::error_protection"), 0);
    EXPECT_EQ(params.value("settings::pts_units"), 0);
    EXPECT_EQ(params.value("settings::sampling_bits"), 24);
    EXPECT_EQ(params.text("preset::audio_type", "0x12"), 0);
    EXPECT_EQ(params.value("settings::audio_bitrate"), 14);
    params.set("settings::audio_bitrate", 5);
    EXPECT_EQ(params.text("preset::audio_type", "{}"), 0);
    EXPECT_EQ(params.value("settings::audio_bitrate"), 14)
        << "text that stores nothing applies as well";
}

TEST_F(engine_keys, text_of_the_settings_is_read_by_the_fields_type) {
    const struct {
        const char *key, *text;
        double read;
    } cases[] = {{"settings::audio_bitrate", "0xC", 12},     {"settings::audio_bitrate", "014", 12},
                 {"settings::audio_bitrate", "12abc", 12},   {"settings::audio_bitrate", "abc", 0},
                 {"settings::audio_bitrate", "12.9", 12},    {"settings::audio_mode", "{3}", 3},
                 {"settings::pts_offset", "-1500.7", -1500}, {"settings::pts_offset", "90000", 90000},
                 {"settings::audio_mode", "\"1\"", 0},       {"settings::sampling::bits", "24", 24}};
    for (const auto &[key, text, read] : cases) {
        params.set(key, 77);
        EXPECT_EQ(params.text(key, text), 0) << key;
        EXPECT_EQ(params.value(key), read) << key << ' ' << text;
        for (const char *nothing : {"{}", "{"})
            EXPECT_EQ(params.text(key, nothing), 0);
        EXPECT_EQ(params.value(key), read) << key;
    }
}

TEST_F(engine_keys, refused_keys_give_their_message_and_result) {
    const struct {
        char operation; // g, s, t
        const char *key;
        std::int32_t index_or_size, result;
    } cases[] = {{'g', "settings::none", 0, -1},       {'g', "settings::", 0, -1},
                 {'g', "settings::audio_mode", 1, -1}, {'g', "settings::audio_mode", -1, -1},
                 {'g', "Settings::audio_mode", 0, -1}, {'g', "settings:", 0, -1},
                 {'g', "preset::none", 0, -1},         {'g', "preset::audio_type", 1, -1},
                 {'g', "version::none", 0, -1},        {'g', "version::major2", 0, -1},
                 {'g', "command::init", 0, -1},        {'g', "", 0, -1},
                 {'s', "settings::none", 0, -1},       {'s', "settings::audio_bitrate", 1, -1},
                 {'s', "preset::none", 0, -1},         {'s', "preset::audio_type", -1, -1},
                 {'s', "command::start", 0, -1},       {'s', "command::", 0, -1},
                 {'s', "version::major", 0, -1},       {'s', "init::settings", 0, -1},
                 {'t', "unknown::x", 0, -1},           {'t', "version::major", 0, -1},
                 {'t', "command::init", 0, -1},        {'t', "init::settings", 100, -1},
                 {'t', "init::settings2", 4096, -1},   {'t', "init::output::none", 0, -1},
                 {'t', "settings::unknown", 0, 1},     {'t', "preset::unknown", 0, 1}};
    for (const auto &[operation, key, number, result] : cases) {
        double value = 5;
        std::int32_t got = 0;
        const std::string message = printed([&, operation = operation, key = key, number = number] {
            got = operation == 'g'   ? params.get(key, &value, number)
                  : operation == 's' ? params.set(key, 9, number)
                                     : params.text(key, "9", number);
        });
        const std::string opening = operation == 'g'   ? "get_parameter: key \""
                                    : operation == 's' ? "set_parameter: key \""
                                                       : "parameter \"";
        EXPECT_EQ(message, result == 1 ? "" : opening + key + "\" is not supported\n");
        EXPECT_EQ(got, result) << key;
        EXPECT_EQ(value, 5) << key;
    }
    EXPECT_EQ(params.value("preset::audio_type"), 4);
    EXPECT_EQ(params.value("settings::audio_bitrate"), 11);
}

TEST_F(engine_keys, null_arguments_are_refused_silently_and_change_nothing) {
    double value = 5;
    const std::string message = printed([&] {
        EXPECT_EQ(params.get(nullptr, &value), -1);
        EXPECT_EQ(params.get("version::major", nullptr), -1);
        EXPECT_EQ(params.get("settings::audio_mode", nullptr), -1);
        EXPECT_EQ(params.set(nullptr, 1), -1);
        EXPECT_EQ(params.text(nullptr, "1"), -1);
        for (const char *key : {"settings::audio_mode", "preset::audio_type", "init::output::PushData"})
            EXPECT_EQ(params.text(key, nullptr), -1);
        EXPECT_EQ(params.text("init::settings", nullptr, 4096), -1);
        EXPECT_EQ(params.text("init::output::bufstream", nullptr), 0);
    });
    EXPECT_EQ(message, "");
    EXPECT_EQ(value, 5);
    EXPECT_EQ(params.value("settings::audio_layer"), 2);
}

} // namespace
} // namespace mp1a_test
