// Sound and picture out of several muxers: what --align is for.
#include "workbench.hpp"

#include <algorithm>

namespace velaenc_test {
namespace {

using muxers_test = workbench;

TEST_F(muxers_test, aligned_sound_lies_on_the_picture_to_the_sample) {
    const std::size_t click = 24000;
    std::vector<std::int16_t> sound(2 * 72000);
    for (const std::size_t at : {click, 2 * click})
        sound[2 * at] = sound[2 * at + 1] = 20000;
    put("in.wav", wav(pcm(sound), 2, 48000));
    run("velaenc --quiet --align in.wav a.mp2;"
        "ffmpeg -v error -f lavfi -i testsrc=size=176x144:rate=25 -t 1.5 -c:v mpeg2video -bf 2"
        " v.mkv && ffmpeg -v error -i v.mkv -c copy v.m2v");
    const std::string ffmpeg = "ffmpeg -v error -i v.mkv -i a.mp2 -map 0:v -map 1:a -c copy ";
    const struct {
        std::string command, file;
    } cases[] = {
        {"mplex -f 8 -v 0 -o m.vob v.m2v a.mp2", "m.vob"},
        {"mkvmerge -q -o m.mkv v.m2v a.mp2", "m.mkv"},
        {ffmpeg + "f.ts", "f.ts"},
        {ffmpeg + "f.vob", "f.vob"},
        {ffmpeg + "f.mkv", "f.mkv"},
    };
    for (const auto &[command, file] : cases) {
        run(command);
        const auto first_time = [this, &file = file](const std::string &stream) {
            return std::stod(shell("ffprobe -v error -show_entries packet=pts_time -of csv=p=0"
                                   " -select_streams "
                                   + stream + ' ' + file + " | grep '^[0-9]' | sort -n | sed -n 1p")
                                 .out);
        };
        const double late = first_time("a") - first_time("v");
        const auto decoded = heard(file + " -map 0:a -ac 1");
        ASSERT_GE(decoded.size(), 72000u) << command;
        for (const std::size_t at : {click, 2 * click}) {
            const auto around = decoded.begin() + static_cast<std::ptrdiff_t>(at);
            const auto peak = std::max_element(around - 2000, around + 2000) - around;
            EXPECT_NEAR(static_cast<double>(peak) + late * 48000, 0, 0.1) << command;
        }
    }
}

} // namespace
} // namespace velaenc_test
