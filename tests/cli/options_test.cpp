// What the options mean for the stream, and which command lines are refused.
#include "workbench.hpp"

#include <sstream>

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
        {"in.wav --layer 3", "--layer"},
        {"in.wav --mode quad", "stereo|joint|dual|mono"},
        {"in.wav --model best", "standard|tuned"},
        {"in.wav --emphasis 75", "none|50/15|j17"},
        {"in.wav --bitrate fast", "--bitrate"},
        {"in.wav --pts-offset 99999999999999999999", "--pts-offset"},
        {"in.wav --pts-offset 9000000000000000 --pts-units 1", "27 MHz"},
        {"''", "IN has no name"},
        {"in.wav ''", "OUT has no name"},
        {"in.wav --timestamps ''", "--timestamps has no name"},
        {"in.wav one -o two", "OUT"},
        {"--nonsense=3 in.wav", "--nonsense=3"},
        {"-dash.wav", "./-dash.wav"},
        {"in.wav --preset 20", "0 to 19"},
        {"in.wav --overwrite --no-clobber", "--overwrite"},
        {"in.wav --preset cassette", "vcd|svcd|dvd|dvd-dual|dvb|micromv|dvhs|hdv|none"},
        {"in.wav --raw --channels 2 --format s16", "--rate"},
        {"in.wav --raw --rate 48000 --format s16", "--channels"},
        {"in.wav --raw --rate 48000 --channels 2", "--format"},
        {"in.wav --raw --rate 48000 --channels 2 --format u7", "s16|s24|s32|f32|s16be"},
        {"in.wav --raw --rate 48000 --channels 0 --format s16", "1 or 2"},
        {"in.wav --rate 48000", "--raw"},
        {"48000.wav --raw --stream 2", "--stream excludes --raw"},
        {"in.wav --to-rate 22050", "32000, 44100 or 48000"},
        {"in.wav --duration 0", "above 0"},
        {"in.wav --downmix quad", "bs775, none, or SPEAKER=FACTOR"},
        {"in.wav --gain 121", "-120 to 120"},
        {"in.wav -j 0", "1 to 256"},
        {"in.wav --jobs 257", "1 to 256"},
        {"in.wav - --timestamps -", "standard output"},
        {"48000.wav out.mp2 --timestamps ./out.mp2", "--timestamps"},
        {"48000.wav out.mp2 --trace ./out.mp2", "--trace names OUT"},
        {"48000.wav out.mp2 --trace t --timestamps ./t", "name the same file"},
        {"48000.wav out.mp2 --trace t --model tuned", "leave out --model"},
    };
    put("-dash.wav", "");
    for (const auto &[arguments, words] : cases)
        expect_failure("velaenc " + arguments, 1, words);
}

TEST_F(options_test, help_and_version_go_to_standard_output) {
    for (const std::string program : {"velaenc", "velainfo"})
        EXPECT_TRUE(run(program + " --version").out.starts_with(program + " 2."));
    const auto help = run("velaenc --help");
    for (const char *word : {"--timestamps", "--pts-units", "--force", "Exit codes", "128 + n",
                             "\n  vcd       44100 Hz\n  svcd      44100 Hz; CRC\n"})
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
}

TEST_F(options_test, options_and_presets_reach_their_own_fields_of_every_header) {
    const struct {
        std::string arguments;
        const char *header; ///< layer, mode, kbit/s, CRC, emphasis; private, copyright, original
    } cases[] = {
        {"48000.wav --preset 0", "2 0 224 0 0 000"},
        {"48000.wav --layer 1", "1 0 384 0 0 000"},
        {"48000.wav --mode joint --bitrate 64",
         "2 1 64 0 0 000"}, // too little for noise in plain stereo
        {"48000.wav --mode dual", "2 2 224 0 0 000"},
        {"48000.wav --mode mono", "2 3 112 0 0 000"},
        {"48000.wav --crc", "2 0 224 1 0 000"},
        {"48000.wav --crc --no-crc", "2 0 224 0 0 000"}, // the last one counts
        {"48000.wav --no-crc --crc", "2 0 224 1 0 000"},
        {"48000.wav -b 64 -b 320 -m mono -m stereo", "2 0 320 0 0 000"},
        {"48000.wav --emphasis 50/15", "2 0 224 0 1 000"},
        {"48000.wav --emphasis j17", "2 0 224 0 3 000"},
        {"48000.wav --private 1", "2 0 224 0 0 100"},
        {"48000.wav --copyright 1", "2 0 224 0 0 010"},
        {"48000.wav --original 1", "2 0 224 0 0 001"},
        {"44100.wav --preset vcd", "2 0 224 0 0 000"},
        {"44100.wav --preset svcd", "2 0 224 1 0 000"},
        {"48000.wav --preset dvd", "2 0 224 1 0 000"},
        {"48000.wav --preset dvd-dual --mode dual", "2 2 224 1 0 000"},
        {"48000.wav --preset dvb", "2 0 224 1 0 000"},
        {"48000.wav --preset dvhs", "2 0 224 1 0 000"},
        {"48000.wav --preset micromv", "2 0 256 1 0 000"},
        {"48000.wav --preset 19", "2 0 384 1 0 000"},
        {"mono48000.wav", "2 3 112 0 0 000"},
        {"mono48000.wav --preset dvd", "2 3 112 1 0 000"},
        {"mono48000.wav --preset dvhs", "2 3 128 1 0 000"}, // 112 is forbidden there
        // The only rates that these allow are not those of one channel.
        {"mono44100.wav --preset vcd", "2 0 224 0 0 000"},
        {"mono48000.wav --preset micromv", "2 0 256 1 0 000"},
        {"mono48000.wav --preset hdv", "2 0 384 1 0 000"},
        {"mono44100.wav --preset vcd --mode mono", "2 3 224 0 0 000"},
        {"mono48000.wav --layer 1", "1 3 192 0 0 000"},
        {"48000.wav --layer 1 --preset dvb", "1 0 384 1 0 000"},
    };
    for (const auto &[arguments, header] : cases) {
        const auto frames = frames_of(encoded(arguments));
        EXPECT_FALSE(frames.empty()) << arguments;
        for (const auto &each : frames) {
            std::ostringstream text;
            text << each.layer << ' ' << each.mode << ' ' << each.kbps << ' ' << each.crc << ' '
                 << each.emphasis << ' ' << each.private_bit << each.copyright << each.original;
            EXPECT_EQ(text.str(), header) << arguments;
        }
    }
    run("velaenc mono44100.wav --preset vcd -", 0, "players of 'vcd' take no mono");
    run("velaenc mono48000.wav -", 0, "112 kbit/s");
    // ISO/IEC 11172-3, 2.4.2.3: which rates Layer II has for two channels and for one.
    for (const std::string rate : {"64", "80", "96", "192 -m mono", "224 -m mono"}) {
        const auto result = shell("velaenc 48000.wav - -b " + rate);
        const bool noted = result.err.find("the standard has no") != std::string::npos;
        EXPECT_EQ(noted, rate == "80" || rate == "224 -m mono") << rate;
    }
}

TEST_F(options_test, every_violation_is_shown_and_only_force_encodes_what_does_not_conform) {
    put("nine.wav", wav(pcm(noise(4500)), 9, 48000));
    put("six.wav", wav(pcm(noise(4800)), 6, 48000));
    const char *two_channels = "64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384 kbit/s";
    const struct {
        std::string arguments;
        int status; // with --force
        std::string codes, words;
    } cases[] = {
        {"48000.wav --preset vcd --to-rate 48000", 0, "A006", "--force"},
        {"44100.wav --preset vcd --mode joint --bitrate 192", 0, "A004 A005", "--force"},
        {"44100.wav --preset dvd --to-rate 44100 --layer 1 --no-crc --emphasis j17 --private 1 --mode "
         "dual -b 384",
         0, "A013 A014 A015 A016 A018 A020", "--force"},
        {"48000.wav --bitrate 225", 4, "", two_channels},
        {"48000.wav --bitrate 56", 4, "A025", two_channels},
        {"48000.wav --layer 1 --bitrate 80", 4, "",
         "128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448"},
        {"mono48000.wav --layer 1 --bitrate 64", 4, "A025", "Layer I mono has 96, 128"},
        {"six.wav --raw --rate 0 --channels 2 --format s16", 4, "", "0 Hz"},
        {"six.wav --downmix none --mode mono", 2, "", "6 channels; MPEG-1 Audio has 1 or 2"},
        {"nine.wav", 2, "", "9 channels"},
    };
    for (const auto &[arguments, status, codes, words] : cases) {
        const std::string command = "velaenc -q -n " + arguments + " out.mp2 ";
        expect_failure(command, status == 0 ? 4 : status, words);
        const auto forced = run(command + "--force", status);
        EXPECT_EQ(shell("rm out.mp2").status == 0, status == 0) << arguments;
        std::istringstream lines(forced.err);
        std::string shown, line;
        while (std::getline(lines, line)) // "velaenc: A123:"
            if (line.substr(9, 1) == "A" && line.substr(13, 1) == ":")
                shown.append(shown.empty() ? "" : " ").append(line, 9, 4);
        EXPECT_EQ(shown, codes) << arguments;
    }
}

TEST_F(options_test, without_a_name_the_output_lies_beside_the_input) {
    run("mkdir d; cp 48000.wav d/a.b.wav; velaenc d/a.b.wav; velaenc --layer 1 d/a.b.wav");
    EXPECT_EQ(frames_of(get("d/a.b.mp2")).size(), 5u); // 4800 samples a channel
    EXPECT_EQ(frames_of(get("d/a.b.mp1")).size(), 13u);
}

} // namespace
} // namespace velaenc_test
