// Encoding through the plug-in interface.
#include "workbench.hpp"

namespace velaenc_test {
namespace {

using engine_test = workbench;

TEST_F(engine_test, the_stream_and_its_times_are_those_of_the_functions_for_every_preset) {
    const struct {
        int rate;
        std::vector<const char *> presets;
    } groups[] = {
        {44100, {"none", "vcd", "svcd", "2", "-1", "1000"}},
        {48000, {"none", "dvd", "13", "dvd-dual", "15", "dvb", "micromv", "dvhs", "hdv", "19"}}};
    for (const auto &[rate, presets] : groups) {
        put("s16", wav(pcm(noise(2 * 6000)), 2, rate));
        put("s24", wav(pcm(noise(2 * 6000), 3, 0x42), 2, rate, 3));
        put("f32", wav(pcm(noise(6000), 4), 1, rate, 4));
        for (const std::string preset : presets) {
            for (const std::string file : {"s16", "s24", "f32"}) {
                const std::string arguments =
                    file + " --pts-offset 77 --timestamps times --preset " + preset;
                const std::string stream = encoded(arguments), times = get("times");
                EXPECT_EQ(frames_of(stream).size(), 6u) << arguments;
                EXPECT_EQ(encoded(arguments + " --engine"), stream) << arguments;
                EXPECT_EQ(get("times"), times) << arguments;
            }
        }
    }
}

TEST_F(engine_test, long_input_does_not_outgrow_the_sink_and_jobs_are_refused) {
    put("in", pcm(noise(400000)));
    const std::string raw = "in --raw --rate 32000 --channels 1 --format s16 --layer 1 ";
    EXPECT_EQ(encoded(raw + "--engine"), encoded(raw + "--jobs 1"));
    expect_failure("velaenc in out --engine --jobs 2", 1, "--engine");
}

} // namespace
} // namespace velaenc_test
