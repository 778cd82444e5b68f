// What the options mean for the stream, and which command lines are refused.
#include "workbench.hpp"

namespace velaenc_test {
namespace {

class options_test : public workbench {
  protected:
    options_test() {
        for (const int rate : {44100, 48000}) {
            put(std::to_string(rate) + ".wav", wav(pcm(noise(9600)), 2, rate));
            put("mono" + std::to_string(rate) + ".wav", wav(pcm(noise(4800)), 1, rate));
        }
    }
};

TEST_F(options_test, a_wrong_command_line_is_refused_with_the_word_that_helps) {
    const struct {
        std::string arguments, words;
    } cases[] = {
        {"", "IN is required"},
        {"in.wav out.mp2 more", "more"},
        {"in.wav --nonsense", "--nonsense"},
        {"in.wav --layer 3", "--layer"},
        {"in.wav --mode quad", "stereo|joint|dual|mono"},
        {"in.wav --emphasis 75", "none|50/15|j17"},
        {"in.wav --private 2", "--private"},
        {"in.wav --bitrate fast", "--bitrate"},
        {"in.wav --bitrate 99999999999", "--bitrate"},
        {"in.wav --pts-offset 99999999999999999999", "--pts-offset"},
        {"in.wav --pts-offset 9000000000000000 --pts-units 1", "27 MHz"},
        {"''", "IN has no name"},
        {"in.wav --preset cassette", "vcd|svcd|dvd|dvd-dual|dvb|micromv|dvhs|hdv|none"},
        {"in.wav --crc --no-crc", "--crc"},
        {"in.wav --raw --channels 2 --format s16", "--rate"},
        {"in.wav --raw --rate 48000 --format s16", "--channels"},
        {"in.wav --raw --rate 48000 --channels 2", "--format"},
        {"in.wav --raw --rate 48000 --channels 2 --format u8", "s16|s24|f32"},
        {"in.wav --raw --rate 48000 --channels 0 --format s16", "1 or 2"},
        {"in.wav --rate 48000", "--raw"},
        {"in.wav -j 0", "1 to 256"},
        {"in.wav --jobs 257", "1 to 256"},
        {"in.wav -j many", "--jobs"},
        {"in.wav - --timestamps -", "standard output"},
        {"48000.wav out.mp2 --timestamps ./out.mp2", "--timestamps"},
    };
    for (const auto &[arguments, words] : cases)
        expect_failure("velaenc " + arguments, 1, words);
}

TEST_F(options_test, help_and_version_go_to_standard_output) {
    EXPECT_TRUE(shell("velaenc --version").out.starts_with("velaenc 2."));
    const auto help = shell("velaenc --help");
    EXPECT_EQ(help.status, 0);
    for (const char *word : {"--timestamps", "--pts-units", "--force", "Exit codes", "128 + n"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
}

TEST_F(options_test, every_header_option_reaches_its_own_field) {
    const struct {
        std::string arguments;
        int frame::*field;
        int value;
    } cases[] = {
        {"--layer 1", &frame::layer, 1},
        {"--layer 2", &frame::layer, 2},
        {"--mode stereo", &frame::mode, 0},
        {"--mode joint --bitrate 64", &frame::mode, 1}, // too little for noise in plain stereo
        {"--mode dual", &frame::mode, 2},
        {"--mode mono", &frame::mode, 3},
        {"--bitrate 320", &frame::kbps, 320},
        {"--layer 1 --bitrate 288", &frame::kbps, 288},
        {"--crc", &frame::crc, 1},
        {"--no-crc", &frame::crc, 0},
        {"--emphasis 50/15", &frame::emphasis, 1},
        {"--emphasis j17", &frame::emphasis, 3},
        {"--private 1", &frame::private_bit, 1},
        {"--copyright 1", &frame::copyright, 1},
        {"--original 1", &frame::original, 1},
    };
    for (const auto &[arguments, field, value] : cases) {
        const auto frames = frames_of(encoded(arguments + " 48000.wav"));
        ASSERT_FALSE(frames.empty()) << arguments;
        for (const auto &each : frames) {
            EXPECT_EQ(each.*field, value) << arguments;
            const bool is_bit =
                field == &frame::private_bit || field == &frame::copyright || field == &frame::original;
            EXPECT_EQ(each.private_bit + each.copyright + each.original, is_bit) << arguments;
        }
    }
}

TEST_F(options_test, presets_conform_to_themselves_in_two_channels_mono_and_layer_1) {
    const struct {
        std::string arguments;
        int kbit, crc;
    } cases[] = {
        {"48000.wav", 224, 0},
        {"--preset none 48000.wav", 224, 0},
        {"--preset vcd 44100.wav", 224, 0},
        {"--preset svcd 44100.wav", 224, 1},
        {"--preset dvd 48000.wav", 224, 1},
        {"--preset dvd-dual --mode dual 48000.wav", 224, 1},
        {"--preset dvb 48000.wav", 224, 1},
        {"--preset dvhs 48000.wav", 224, 1},
        {"--preset micromv 48000.wav", 256, 1},
        {"--preset 19 48000.wav", 384, 1},
        {"--preset -7 48000.wav", 224, 0},
        {"mono48000.wav", 112, 0},
        {"--preset dvd mono48000.wav", 112, 1},
        {"--preset dvhs mono48000.wav", 128, 1}, // 112 is forbidden there
        {"--preset vcd mono44100.wav", 224, 0},  // the only one allowed
        {"--preset micromv mono48000.wav", 256, 1},
        {"--preset hdv mono48000.wav", 384, 1},
        {"--layer 1 mono48000.wav", 192, 0},
        {"--layer 1 --preset dvb 48000.wav", 384, 1},
    };
    for (const auto &[arguments, kbit, crc] : cases) {
        const auto frames = frames_of(encoded(arguments));
        ASSERT_FALSE(frames.empty()) << arguments;
        EXPECT_EQ(frames[0].kbps, kbit) << arguments;
        EXPECT_EQ(frames[0].crc, crc) << arguments;
        EXPECT_EQ(frames[0].mode == 3, arguments.find("mono") != std::string::npos) << arguments;
    }
    EXPECT_NE(shell("velaenc mono48000.wav -").err.find("112 kbit/s"), std::string::npos);
    EXPECT_NE(shell("velaenc --preset vcd mono44100.wav -").err.find("standard"), std::string::npos);
}

TEST_F(options_test, without_a_name_the_output_lies_beside_the_input) {
    EXPECT_EQ(
        shell("mkdir d; cp 48000.wav d/a.b.wav; velaenc d/a.b.wav; velaenc --layer 1 d/a.b.wav").status,
        0);
    EXPECT_EQ(frames_of(get("d/a.b.mp2")).size(), 5u); // 4800 samples a channel
    EXPECT_EQ(frames_of(get("d/a.b.mp1")).size(), 13u);
}

} // namespace
} // namespace velaenc_test
