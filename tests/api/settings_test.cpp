// Presets and the rules for settings.
#include "api/presets.hpp"
#include "host/fake_output.hpp"

#include <cstring>
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

/// What is wrong with records: preset codes | alternative changes to their defaults | code of the first
/// violation | messages by their numbers | the last one behind "Invalid", for the last alternative.
constexpr char settings_cases[] = R"(
0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 -1 | | 0 | |
0 2 5 6 7 11 12 16 17 20 -1 | layer 1 mode 1 bitrate 5 emphasis 3 rate 32000 | 0 | |
0 | rate 22050; rate -1 | 40009 | 21 | audio sample rate (-1), should be 32000, 44100 or 48000
0 | rate 22050 mode 5 | 40009 | 21 22 |
0 | mode 4; mode -1 | 40000 | 22 | audio mode (-1), range is 0 .. 3
0 | layer 0; layer 3 | 40001 | 23 | audio layer (3), range is 1 .. 2
0 | bitrate 15 | 40003 | 25 | audio bitrate code (15), range is 1 .. 14
0 | bitrate 0 | 40003 | 25 25 | audio bitrate code (0), range is 4 .. 14
0 | bitrate 0 mode 3 | 40003 | 25 | audio bitrate code (0), range is 1 .. 14
0 | bitrate 2 mode 3 layer 1 | 40003 | 25 | audio bitrate code (2), range is 3 .. 14
0 | bitrate 3 mode 1; bitrate 3 layer 1 | 40003 | 25 | audio bitrate code (3), range is 4 .. 14
0 | bitrate 3 mode 3 layer 1; bitrate 1 mode 3; emphasis 1 | 0 | |
0 | emphasis -1; emphasis 2 | 40004 | 26 | audio emphasis (2), should be 0, 1 or 3
0 | private 2 | 40005 | 27 | audio private bit (2), range is 0 .. 1
0 | crc -1 | 40006 | 28 | audio CRC state (-1), range is 0 .. 1
0 | copyright 2 | 40007 | 29 | audio copyright setting (2), range is 0 .. 1
0 | original 7 copyright -3 | 40007 | 29 30 |
0 | original -1 | 40008 | 30 | audio original setting (-1), range is 0 .. 1
1 | layer 1 mode 1 bitrate 10 rate 8 | 40009 | 21 3 4 5 6 |
1 | layer -1 bitrate -5; layer 0 bitrate 0; layer 100 bitrate -1000000 | 40001 | 23 25 25 3 5 |
1 | layer -1 bitrate 15; layer 0 bitrate 16; layer 100 bitrate 1000000 | 40001 | 23 25 3 5 |
1 | layer 3 bitrate 5 | 40001 | 23 3 5 | audio bitrate (64 kbps) for VCD, should be 224 kbps
18 | layer 3 bitrate 13 | 40001 | 23 44 48 | audio bitrate (256 kbps) for HDV, should be 384 kbps
1 | layer 4 bitrate 5; layer 0 bitrate 5 | 40001 | 23 3 5 | audio bitrate (0 kbps) for VCD, should be 224 kbps
1 | layer 1 | 200 | 3 | audio layer (1) for VCD, should be 2
1 | mode 1; mode 2 | 201 | 4 | audio mode for VCD, should be stereo or mono
1 | bitrate 10; bitrate 12 | 202 | 5 | audio bitrate (256 kbps) for VCD, should be 224 kbps
1 | rate 48000 | 203 | 6 | audio sample rate (48000) for VCD, should be 44100
3 | layer 1 crc 0 emphasis 1 rate 48000 | 1000 | 7 8 9 12 |
3 | layer 1 | 1000 | 7 | audio layer (1) for SVCD, should be 2
3 | crc 0 | 1001 | 8 | audio CRC state (disabled) for SVCD, should be enabled
3 | emphasis 3 | 1002 | 9 | audio emphasis for SVCD, should be none
3 | mode 3 | 1003 | 10 | mono audio bitrate (224 kbps) for SVCD, range is 32 kbps .. 192 kbps
3 | bitrate 2 | 40003 | 25 11 | audio bitrate (48 kbps) for SVCD, range is 64 kbps .. 384 kbps
3 | mode 3 bitrate 0 | 40003 | 25 10 |
3 8 10 | mode 3 bitrate 1 | 0 | |
3 | rate 32000 | 1004 | 12 | audio sample rate (32000) for SVCD, should be 44100
4 13 | layer 1 crc 0 emphasis 1 private 1 mode 2 rate 44100 | 8000 | 13 14 15 16 18 20 |
4 13 14 15 | layer 1 | 8000 | 13 | audio layer (1) for DVD, should be 2
4 13 14 15 | crc 0 | 8001 | 14 | audio CRC state (disabled) for DVD, should be enabled
4 13 14 15 | emphasis 1 | 8002 | 15 | audio emphasis for DVD, should be none
4 13 14 15 | private 1 | 8003 | 16 | private bit setting (1) for DVD, should be 0
4 13 | mode 2 | 8005 | 18 | audio mode (dual channel) for DVD, should be stereo, joint stereo or mono
4 13 | mode 2 bitrate 3 | 40003 | 25 18 |
14 15 | mode 2 bitrate 3 | 40003 | 25 19 | audio bitrate (56 kbps) for DVD, range is 64 kbps .. 384 kbps
4 13 14 15 | mode 3 bitrate 3; mode 3 | 8004 | 17 | mono audio bitrate (224 kbps) for DVD, range is 64 kbps .. 192 kbps
4 13 14 15 | rate 32000 | 8006 | 20 | audio sample rate (32000) for DVD, should be 48000
8 | layer 3 crc 0 emphasis 1 | 40001 | 23 32 33 34 | audio emphasis for DVB, should be none
8 | layer 3 | 40001 | 23 32 | audio layer (3) for DVB, should be 1 or 2
8 | crc 0 | 12101 | 33 | audio CRC state (disabled) for DVB, should be enabled
8 | emphasis 1 | 12102 | 34 |
9 | layer 1 crc 0 emphasis 1 bitrate 11 rate 44100 | 13100 | 35 36 37 38 39 |
9 | layer 1 | 13100 | 35 | audio layer (1) for MicroMV, should be 2
9 | crc 0 | 13101 | 36 | audio CRC state (disabled) for MicroMV, should be enabled
9 | emphasis 3 | 13102 | 37 | audio emphasis for MicroMV, should be none
9 | rate 44100 | 13103 | 38 | audio sample rate (44100) for MicroMV, should be 48000
9 | bitrate 13; bitrate 11 | 13104 | 39 | audio bitrate (224 kbps) for MicroMV, should be 256 kbps
10 | layer 0 | 40001 | 23 40 | audio layer (0) for DVHS, should be 1 or 2
10 | crc 0 emphasis 1 bitrate 5 | 14101 | 41 42 43 |
10 | crc 0 | 14101 | 41 | audio CRC state (disabled) for DVHS, should be enabled
10 | emphasis 1 | 14102 | 42 | audio emphasis for DVHS, should be none
10 | bitrate 2 mode 3; bitrate 3 mode 3; bitrate 7; bitrate 5 | 14103 | 43 | audio bitrate (80 kbps) for DVHS, must not be 48, 56, 80 or 112 kbps
18 19 | layer 1 crc 0 emphasis 1 bitrate 13 rate 44100 | 16100 | 44 45 46 47 48 |
18 19 | layer 1 | 16100 | 44 | audio layer (1) for HDV, should be 2
18 19 | crc 0 | 16101 | 45 | audio CRC state (disabled) for HDV, should be enabled
18 19 | emphasis 1 | 16102 | 46 | audio emphasis for HDV, should be none
18 19 | rate 32000 | 16103 | 47 | audio sample rate (32000) for HDV, should be 48000
18 19 | bitrate 13 | 16104 | 48 | audio bitrate (320 kbps) for HDV, should be 384 kbps
1 | mode 3; emphasis 3; crc 1 | 0 | |
3 4 13 14 15 8 10 | mode 3 bitrate 4; mode 3 bitrate 10; bitrate 4 | 0 | |
3 14 15 8 10 | mode 2 | 0 | |
8 10 | layer 1 bitrate 5; rate 32000 | 0 | |)";

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
    std::istringstream lines(settings_cases + 1);
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
