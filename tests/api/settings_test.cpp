// Presets and the rules for settings.
#include "api/presets.hpp"
#include "host/fake_host.hpp"
#include "vela_enc_mp1a/encoder.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

using mp1a_test::fake_host;
using record = mpeg_a_settings;

int rate_of(int preset) {
    record settings;
    int rate = 0;
    vela::preset_defaults(settings, preset, &rate);
    return rate;
}

TEST(presets, fill_every_field_and_leave_the_reserved_bytes_alone) {
    const struct {
        std::initializer_list<int> presets;
        int bitrate, crc, rate;
    } cases[] = {{{0, 1, 2, 5, 6, 7, 11, 12, 16, 17, -1, 20, 1000}, 11, 0, 44100},
                 {{3}, 11, 1, 44100},
                 {{4, 8, 10, 13, 14, 15}, 11, 1, 48000},
                 {{9}, 12, 1, 48000},
                 {{18, 19}, 14, 1, 48000}};
    for (const auto &c : cases) {
        for (const int preset : c.presets) {
            record got, expected;
            std::memset(&got, 0x5A, sizeof got);
            std::memset(&expected, 0x5A, sizeof expected);
            std::memset(&expected, 0, offsetof(record, reserved));
            expected.audio_layer = expected.psych_model = 2;
            expected.audio_bitrate = c.bitrate;
            expected.error_protection = c.crc;
            EXPECT_EQ(mpegOutAudioDefaults(&got, preset), 0);
            EXPECT_EQ(std::memcmp(&got, &expected, sizeof got), 0) << preset;
            EXPECT_EQ(rate_of(preset), c.rate) << preset;
            EXPECT_EQ(mpegOutAudioChkSettings(nullptr, &got, preset, c.rate, 0, 0), 0) << preset;
        }
    }
    EXPECT_EQ(mpegOutAudioDefaults(nullptr, 4), 0);
}

/// Messages by code, with the values left out.
const char *text_of(int code) {
    static const char *const texts[] = {
        "A003:Invalid audio layer (%d) for VCD, should be 2",
        "A004:Invalid audio mode for VCD, should be stereo or mono",
        "A005:Invalid audio bitrate (%d kbps) for VCD, should be 224 kbps",
        "A006:Invalid audio sample rate (%d) for VCD, should be 44100",
        "A007:Invalid audio layer (%d) for SVCD, should be 2",
        "A008:Invalid audio CRC state (disabled) for SVCD, should be enabled",
        "A009:Invalid audio emphasis for SVCD, should be none",
        "A010:Invalid mono audio bitrate (%d kbps) for SVCD, range is 32 kbps .. 192 kbps",
        "A011:Invalid audio bitrate (%d kbps) for SVCD, range is 64 kbps .. 384 kbps",
        "A012:Invalid audio sample rate (%d) for SVCD, should be 44100",
        "A013:Invalid audio layer (%d) for DVD, should be 2",
        "A014:Invalid audio CRC state (disabled) for DVD, should be enabled",
        "A015:Invalid audio emphasis for DVD, should be none",
        "A016:Invalid private bit setting (%d) for DVD, should be 0",
        "A017:Invalid mono audio bitrate (%d kbps) for DVD, range is 64 kbps .. 192 kbps",
        "A018:Invalid audio mode (dual channel) for DVD, should be stereo, joint stereo or mono",
        "A019:Invalid audio bitrate (%d kbps) for DVD, range is 64 kbps .. 384 kbps",
        "A020:Invalid audio sample rate (%d) for DVD, should be 48000",
        "A021:Invalid audio sample rate (%d), should be 32000, 44100 or 48000",
        "A022:Invalid audio mode (%d), range is 0 .. 3",
        "A023:Invalid audio layer (%d), range is 1 .. 2",
        nullptr,
        "A025:Invalid audio bitrate code (%d), range is %d .. %d",
        "A026:Invalid audio emphasis (%d), should be 0, 1 or 3",
        "A027:Invalid audio private bit (%d), range is 0 .. 1",
        "A028:Invalid audio CRC state (%d), range is 0 .. 1",
        "A029:Invalid audio copyright setting (%d), range is 0 .. 1",
        "A030:Invalid audio original setting (%d), range is 0 .. 1",
        nullptr,
        "A032:Invalid audio layer (%d) for DVB, should be 1 or 2",
        "A033:Invalid audio CRC state (disabled) for DVB, should be enabled",
        "A034:Invalid audio emphasis for DVB, should be none",
        "A035:Invalid audio layer (%d) for MicroMV, should be 2",
        "A036:Invalid audio CRC state (disabled) for MicroMV, should be enabled",
        "A037:Invalid audio emphasis for MicroMV, should be none",
        "A038:Invalid audio sample rate (%d) for MicroMV, should be 48000",
        "A039:Invalid audio bitrate (%d kbps) for MicroMV, should be 256 kbps",
        "A040:Invalid audio layer (%d) for DVHS, should be 1 or 2",
        "A041:Invalid audio CRC state (disabled) for DVHS, should be enabled",
        "A042:Invalid audio emphasis for DVHS, should be none",
        "A043:Invalid audio bitrate (%d kbps) for DVHS, must not be 48, 56, 80 or 112 kbps",
        "A044:Invalid audio layer (%d) for HDV, should be 2",
        "A045:Invalid audio CRC state (disabled) for HDV, should be enabled",
        "A046:Invalid audio emphasis for HDV, should be none",
        "A047:Invalid audio sample rate (%d) for HDV, should be 48000",
        "A048:Invalid audio bitrate (%d kbps) for HDV, should be 384 kbps"};
    return texts[code - 3];
}

/// A record with a preset's defaults, changed, and everything that is wrong with it.
struct rule_case {
    int preset, rate;     ///< rate 0: the preset's
    const char *changes;  ///< such as "mode 3 layer 1"
    const char *messages; ///< codes with the values shown, such as "21 8000; 25 0 1 14"
    int code;             ///< of the first one
};

const rule_case cases[] = {
    // What cannot be encoded.
    {0, 0, "", "", 0},
    {0, -1, "", "21 -1", 0x40009},
    {0, 22050, "mode 5", "21 22050; 22 5", 0x40009},
    {0, 0, "mode -1", "22 -1", 0x40000},
    {0, 0, "layer 3", "23 3", 0x40001},
    {0, 0, "layer 0", "23 0", 0x40001},
    {0, 0, "bitrate 15", "25 15 1 14", 0x40003},
    {0, 0, "bitrate 0", "25 0 1 14; 25 0 4 14", 0x40003},
    {0, 0, "bitrate 0 mode 3", "25 0 1 14", 0x40003},
    {0, 0, "bitrate 2 mode 3 layer 1", "25 2 3 14", 0x40003},
    {0, 0, "bitrate 3 mode 3 layer 1", "", 0},
    {0, 0, "bitrate 1 mode 3", "", 0},
    {0, 0, "bitrate 3 mode 1", "25 3 4 14", 0x40003},
    {0, 0, "bitrate 3 layer 1", "25 3 4 14", 0x40003},
    {0, 0, "emphasis 2", "26 2", 0x40004},
    {0, 0, "emphasis -1", "26 -1", 0x40004},
    {0, 0, "emphasis 3", "", 0},
    {0, 0, "private 2", "27 2", 0x40005},
    {0, 0, "crc -1", "28 -1", 0x40006},
    {0, 0, "copyright 2", "29 2", 0x40007},
    {0, 0, "original 7 copyright -3", "29 -3; 30 7", 0x40007},
    {0, 0, "original -1", "30 -1", 0x40008},
    // What a format does not allow.
    {1, 48000, "layer 1 mode 1 bitrate 10", "3 1; 4; 5 320; 6 48000", 0x200},
    {1, 0, "mode 2", "4", 0x201},
    {1, 0, "mode 3", "", 0},
    {1, 0, "bitrate 12", "5 256", 0x202},
    {1, 32000, "", "6 32000", 0x203},
    {3, 48000, "layer 1 crc 0 emphasis 1", "7 1; 8; 9; 12 48000", 0x1000},
    {3, 0, "crc 0", "8", 0x1001},
    {3, 0, "emphasis 3", "9", 0x1002},
    {3, 0, "mode 3", "10 224", 0x1003},
    {3, 0, "mode 3 bitrate 1", "", 0},
    {3, 0, "bitrate 2", "25 2 4 14; 11 48", 0x40003},
    {3, 32000, "", "12 32000", 0x1004},
    {13, 44100, "layer 1 crc 0 emphasis 1 private 1 mode 2", "13 1; 14; 15; 16 1; 18; 20 44100",
     0x8000},
    {4, 0, "crc 0", "14", 0x8001},
    {4, 0, "emphasis 1", "15", 0x8002},
    {4, 0, "private 1", "16 1", 0x8003},
    {4, 0, "mode 2", "18", 0x8005},
    {4, 0, "mode 2 bitrate 3", "25 3 4 14; 18", 0x40003},
    {14, 0, "mode 2", "", 0},
    {15, 0, "mode 2 bitrate 3", "25 3 4 14; 19 56", 0x40003},
    {4, 0, "mode 3", "17 224", 0x8004},
    {14, 0, "mode 3 bitrate 3", "17 56", 0x8004},
    {4, 0, "mode 3 bitrate 4", "", 0},
    {4, 32000, "", "20 32000", 0x8006},
    {8, 32000, "layer 1", "", 0},
    {8, 0, "layer 3 crc 0 emphasis 1", "23 3; 32 3; 33; 34", 0x40001},
    {8, 0, "crc 0", "33", 0x12101},
    {8, 0, "emphasis 1", "34", 0x12102},
    {9, 44100, "layer 1 crc 0 emphasis 1 bitrate 11", "35 1; 36; 37; 38 44100; 39 352", 0x13100},
    {9, 0, "crc 0 emphasis 3", "36; 37", 0x13101},
    {9, 0, "emphasis 3", "37", 0x13102},
    {9, 44100, "bitrate 11", "38 44100; 39 224", 0x13103},
    {9, 0, "bitrate 11", "39 224", 0x13104},
    {10, 0, "layer 0", "23 0; 40 0", 0x40001},
    {10, 32000, "crc 0 emphasis 1 bitrate 7", "41; 42; 43 112", 0x14101},
    {10, 0, "emphasis 1", "42", 0x14102},
    {10, 0, "bitrate 5", "43 80", 0x14103},
    {10, 0, "bitrate 2 mode 3", "43 48", 0x14103},
    {10, 0, "bitrate 3 mode 3", "43 56", 0x14103},
    {10, 0, "bitrate 5 layer 1", "", 0},
    {18, 44100, "layer 1 crc 0 emphasis 1 bitrate 13", "44 1; 45; 46; 47 44100; 48 416", 0x16100},
    {18, 0, "crc 0", "45", 0x16101},
    {18, 0, "emphasis 1", "46", 0x16102},
    {19, 32000, "bitrate 13", "47 32000; 48 320", 0x16103},
    {18, 0, "bitrate 13", "48 320", 0x16104},
};

record changed(const rule_case &c) {
    static const std::map<std::string, std::int32_t record::*> fields{
        {"mode", &record::audio_mode},       {"layer", &record::audio_layer},
        {"bitrate", &record::audio_bitrate}, {"emphasis", &record::emphasis},
        {"private", &record::extension},     {"crc", &record::error_protection},
        {"copyright", &record::copyright},   {"original", &record::original}};
    record settings;
    mpegOutAudioDefaults(&settings, c.preset);
    std::istringstream changes(c.changes);
    std::int32_t value = 0;
    for (std::string name; changes >> name >> value;)
        settings.*fields.at(name) = value;
    return settings;
}

/// @param generic  only the ones about what cannot be encoded
std::vector<std::string> messages_of(const rule_case &c, bool generic) {
    std::vector<std::string> messages;
    std::istringstream all(c.messages);
    for (std::string one; std::getline(all, one, ';');) {
        int code = 0, value[3] = {};
        std::istringstream words(one);
        words >> code >> value[0] >> value[1] >> value[2];
        char text[128];
        std::snprintf(text, sizeof text, text_of(code), value[0], value[1], value[2]);
        if (!generic || (code >= 21 && code <= 30)) messages.emplace_back(text);
    }
    return messages;
}

TEST(rules, report_what_is_wrong_in_order_with_their_codes_under_every_option) {
    for (const rule_case &c : cases) {
        const record settings = changed(c);
        // Options: 2 reports everything and not just the first, 1 leaves the format's rules out; others
        // mean nothing.
        for (const int options : {0, 1, 2, 3, 64 + 2}) {
            auto expected = messages_of(c, (options & 1) != 0);
            const int code = expected.empty() ? 0 : c.code;
            if ((options & 2) == 0 && !expected.empty()) expected.resize(1);
            const record before = settings;
            fake_host &host = fake_host::reset();
            const int rate = c.rate == 0 ? rate_of(c.preset) : c.rate;
            EXPECT_EQ(mpegOutAudioChkSettings(fake_host::lookup, &settings, c.preset, rate, options, 0),
                      code)
                << c.preset << ", " << c.changes;
            EXPECT_EQ(host.messages, expected)
                << c.preset << ", " << c.changes << ", options " << options;
            EXPECT_EQ(host.names, std::vector<std::string>{"err_printf"});
            EXPECT_EQ(std::memcmp(&before, &settings, sizeof before), 0);
        }
    }
}

TEST(rules, survive_values_outside_the_bitrate_table_and_missing_arguments) {
    record settings;
    for (const int index : {-5, 0, 15, 1000000}) {
        for (const int layer : {-1, 0, 3, 100}) {
            mpegOutAudioDefaults(&settings, 1);
            settings.audio_bitrate = index;
            settings.audio_layer = layer;
            EXPECT_EQ(mpegOutAudioChkSettings(fake_host::lookup, &settings, 1, 44100, 2, 0), 0x40001);
        }
    }
    fake_host &host = fake_host::reset();
    EXPECT_EQ(mpegOutAudioChkSettings(fake_host::lookup, nullptr, 99, 0, 3, 0), 2);
    EXPECT_EQ(host.messages, std::vector<std::string>{"A031:Invalid mpeg_a_settings parameter"});
    EXPECT_EQ(mpegOutAudioChkSettings(nullptr, nullptr, 0, 48000, 0, 0), 2);
    EXPECT_EQ(mpegOutAudioChkSettings(nullptr, &settings, 0, 0, 2, 0), 0x40009);
}

} // namespace
