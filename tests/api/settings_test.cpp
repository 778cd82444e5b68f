// Presets and the rules for settings.
#include "api/presets.hpp"
#include "host/fake_output.hpp"

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

using mp1a_test::fake_host;
using record = mpeg_a_settings;

TEST(presets, fill_every_field_and_leave_the_reserved_bytes_alone) {
    for (int preset = -1; preset < 22; ++preset) {
        const bool hdv = preset == 18 || preset == 19,
                   dvd = preset == 4 || (preset >= 13 && preset < 16);
        const bool is_48000 = hdv || dvd || (preset >= 8 && preset <= 10);
        record got, expected, other;
        std::memset(&got, 0x5A, sizeof got);
        std::memset(&expected, 0x5A, sizeof expected);
        std::memset(&expected, 0, offsetof(record, audio_model));
        expected.audio_layer = expected.psych_model = 2;
        expected.audio_bitrate = hdv ? 14 : preset == 9 ? 12 : 11;
        expected.error_protection = is_48000 || preset == 3;
        EXPECT_EQ(mpegOutAudioDefaults(&got, preset), 0);
        EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << preset;
        int rate = 0;
        vela::preset_defaults(other, preset, &rate);
        EXPECT_EQ(rate, is_48000 ? 48000 : 44100) << preset;
    }
    EXPECT_EQ(mpegOutAudioDefaults(nullptr, 4), 0);
}

std::vector<int> numbers(const std::string &text) {
    std::istringstream in(text);
    return {std::istream_iterator<int>(in), {}};
}

record changed(const std::string &changes, int preset, int &rate) {
    static const std::map<std::string, std::int32_t record::*> fields{
        {"mode", &record::audio_mode},       {"layer", &record::audio_layer},
        {"bitrate", &record::audio_bitrate}, {"emphasis", &record::emphasis},
        {"private", &record::extension},     {"crc", &record::error_protection},
        {"copyright", &record::copyright},   {"original", &record::original}};
    record settings{}; // the defaults leave the reserved bytes as they are
    vela::preset_defaults(settings, preset, &rate);
    std::istringstream in(changes);
    int value = 0;
    for (std::string name; in >> name >> value;)
        (name == "rate" ? rate : settings.*fields.at(name)) = value;
    return settings;
}

void expect_report(const std::string &changes, int preset, int first_code, const std::vector<int> &all,
                   const std::string &last) {
    int rate = 0;
    const record settings = changed(changes, preset, rate), before = settings;
    // 2 reports everything and not just the first, 1 leaves the format's rules out; 64 means nothing.
    for (const int options : {0, 1, 2, 3, 64 + 2}) {
        SCOPED_TRACE(std::to_string(preset) + ',' + changes + ", options " + std::to_string(options));
        auto expected = all;
        if ((options & 1) != 0) std::erase_if(expected, [](int n) { return n < 21 || n > 30; });
        const int code = expected.empty() ? 0 : first_code;
        if ((options & 2) == 0 && !expected.empty()) expected.resize(1);
        fake_host &host = fake_host::reset();
        EXPECT_EQ(mpegOutAudioChkSettings(fake_host::lookup, &settings, preset, rate, options, 0),
                  code);
        std::vector<int> got;
        for (const std::string &message : host.messages)
            got.push_back(message.find(":Invalid ") == 4 ? std::stoi(message.substr(1)) : -1);
        EXPECT_EQ(got, expected);
        EXPECT_TRUE(last.empty() || got != all || host.messages.back().substr(12) == last) << last;
        EXPECT_EQ(host.names, std::vector<std::string>{"err_printf"});
        EXPECT_EQ(std::memcmp(&before, &settings, sizeof before), 0);
    }
}

TEST(rules, report_what_is_wrong_in_order_with_their_codes_under_every_option) {
    // Preset codes | alternative changes to their defaults | code of the first violation | messages by their
    // numbers | the last one behind "Invalid", for the last alternative.
    std::ifstream lines(SETTINGS_CASES);
    ASSERT_TRUE(lines);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream in(line);
        std::string column[5], changes;
        for (std::string &text : column)
            std::getline(in, text, '|');
        const int code = std::stoi(column[2], nullptr, 16);
        for (const int preset : numbers(column[0])) {
            std::istringstream alternatives(column[1]);
            while (std::getline(alternatives, changes, ';'))
                expect_report(changes, preset, code, numbers(column[3]),
                              alternatives.eof() ? column[4] : "");
        }
    }
}

TEST(rules, survive_missing_arguments) {
    const record settings{};
    fake_host &host = fake_host::reset();
    EXPECT_EQ(mpegOutAudioChkSettings(fake_host::lookup, nullptr, 99, 0, 3, 0), 2);
    EXPECT_EQ(host.messages, std::vector<std::string>{"A031:Invalid mpeg_a_settings parameter"});
    EXPECT_EQ(mpegOutAudioChkSettings(nullptr, nullptr, 0, 48000, 0, 0), 2);
    EXPECT_EQ(mpegOutAudioChkSettings(nullptr, &settings, 0, 0, 2, 0), 0x40009);
}

} // namespace
