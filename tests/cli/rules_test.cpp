// Rules that the settings break: shown with their codes, before anything is written.
#include "workbench.hpp"

namespace velaenc_test {
namespace {

using rules_test = workbench;

/// Every "A123:" of the text.
std::string codes_in(const std::string &text) {
    std::string codes;
    for (std::size_t at = text.find('A'); at != std::string::npos; at = text.find('A', at + 1)) {
        const std::size_t end = text.find_first_not_of("0123456789", at + 1);
        if (end != at + 4 || text[end] != ':') continue;
        codes.append(codes.empty() ? "" : " ").append(text, at, 4);
    }
    return codes;
}

TEST_F(rules_test, every_violation_is_shown_and_only_force_encodes_what_does_not_conform) {
    for (const int rate : {32000, 44100, 48000})
        put(std::to_string(rate) + ".wav", wav(pcm(noise(4800)), 2, rate));
    const struct {
        std::string arguments, codes;
    } cases[] = {
        {"48000.wav --preset vcd", "A006"},
        {"44100.wav --preset vcd --mode joint --bitrate 192", "A004 A005"},
        {"32000.wav --preset dvd --layer 1 --no-crc --emphasis j17 --private 1 --mode dual --bitrate "
         "384",
         "A013 A014 A015 A016 A018 A020"},
        {"44100.wav --preset 18 --bitrate 320", "A047 A048"},
    };
    for (const auto &[arguments, codes] : cases) {
        const std::string command = "velaenc " + arguments + " out.mp2";
        expect_failure(command, 4, "--force");
        EXPECT_EQ(codes_in(shell(command).err), codes) << arguments;
        const auto forced = shell(command + " --force");
        EXPECT_EQ(codes_in(forced.err), codes) << arguments;
        EXPECT_FALSE(frames_of(get("out.mp2")).empty()) << arguments << forced.err;
        shell("rm out.mp2");
    }
}

TEST_F(rules_test, unusable_settings_are_refused_even_with_force) {
    put("in.wav", wav(pcm(noise(4800)), 2, 48000));
    put("mono.wav", wav(pcm(noise(4800)), 1, 48000));
    put("22050.wav", wav(pcm(noise(4800)), 2, 22050));
    put("six.wav", wav(pcm(noise(4800)), 6, 48000));
    const char *two_channels = "64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384 kbit/s";
    const struct {
        std::string arguments;
        int status;
        std::string codes, words;
    } cases[] = {
        {"in.wav --bitrate 225", 4, "", two_channels},
        {"in.wav --bitrate 56", 4, "A025", two_channels},
        {"in.wav --layer 1 --bitrate 80", 4, "",
         "128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448"},
        {"mono.wav --layer 1 --bitrate 64", 4, "A025", "Layer I mono has 96, 128"},
        {"mono.wav --bitrate 100", 4, "", "32, 48, 56, 64, 80, 96"},
        {"22050.wav", 4, "A021", "22050 Hz; MPEG-1 Audio has 32000, 44100 and 48000 Hz"},
        {"22050.wav --preset dvd", 4, "A021 A020", "convert"},
        {"six.wav", 2, "", "6 channels; MPEG-1 Audio has 1 or 2"},
        {"six.wav --mode mono", 2, "", "6 channels"},
    };
    for (const auto &[arguments, status, codes, words] : cases) {
        const std::string command = "velaenc --force " + arguments + " out.mp2";
        expect_failure(command, status, words);
        EXPECT_EQ(codes_in(shell(command).err), codes) << arguments;
    }
}

} // namespace
} // namespace velaenc_test
