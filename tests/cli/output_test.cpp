// Where the stream goes, and what is left when it cannot go there.
#include "workbench.hpp"

namespace velaenc_test {
namespace {

class output_test : public workbench {
  protected:
    output_test() { put("in.wav", wav(pcm(noise(960000)), 2, 48000)); } // more than a buffer of output
};

TEST_F(output_test, no_half_file_is_left_when_the_output_fails) {
    for (const std::string velaenc : {"velaenc -j 1 in.wav ", "velaenc -j 3 in.wav "}) {
        expect_failure(velaenc + "/dev/full", 3, "/dev/full: No space left");
        expect_failure(velaenc + "- > /dev/full", 3, "standard output: No space left");
        expect_failure(velaenc + "out.mp2 --timestamps /dev/full", 3, "/dev/full: No space left");
        expect_failure("ulimit -f 100; " + velaenc + "out.mp2", 3, "out.mp2: File too large");
        // Only the last write, after the last frame, is too long.
        expect_failure("ulimit -f 273; " + velaenc + "out.mp2", 3, "out.mp2: File too large");
        expect_failure("ulimit -f 4; " + velaenc + "/dev/null --timestamps list.csv", 3,
                       "list.csv: File too large");
        expect_failure(velaenc + "- | head -c 1000 > /dev/null", 3, "standard output: Broken pipe");
    }
    expect_failure("velaenc in.wav no/out.mp2", 3, "no/out.mp2: No such file");
    expect_failure("velaenc in.wav .", 3, "folder");
    expect_failure("velaenc in.wav out.mp2 --timestamps no/list.csv", 3, "no/list.csv: No such file");
}

TEST_F(output_test, the_input_never_becomes_the_output) {
    const std::string before = get("in.wav");
    put("in.mp2", before);
    put("link", "");
    put("twin", "");
    ASSERT_EQ(shell("ln -sf in.wav link; ln -f in.wav twin").status, 0);
    for (const char *command :
         {"velaenc in.wav in.wav", "velaenc in.wav link", "velaenc in.wav twin",
          "velaenc - in.wav < in.wav", "velaenc in.mp2", "velaenc in.wav - >> in.wav",
          "velaenc in.wav out.mp2 --timestamps in.wav"}) {
        expect_failure(command, 3, "is the input itself");
        EXPECT_TRUE(get("in.wav") == before) << command;
    }
}

TEST_F(output_test, a_failed_run_leaves_an_older_file_as_it_was) {
    put("out.mp2", "older");
    put("list.csv", "older");
    put("cut.wav", get("in.wav").substr(0, 100000));
    expect_failure("ulimit -f 100; velaenc in.wav out.mp2 --timestamps list.csv", 3, "File too large");
    expect_failure("cat cut.wav | velaenc - out.mp2 --timestamps list.csv", 2, "truncated");
    EXPECT_EQ(get("out.mp2"), "older");
    EXPECT_EQ(get("list.csv"), "older");
}

TEST_F(output_test, an_older_file_is_replaced_with_its_links_and_permissions) {
    put("out.mp2", "older");
    ASSERT_EQ(shell("chmod 640 out.mp2; ln -s out.mp2 link").status, 0);
    EXPECT_EQ(shell("velaenc --quiet in.wav link; stat -c '%a %F' link out.mp2").out,
              "777 symbolic link\n640 regular file\n");
    EXPECT_EQ(frames_of(get("out.mp2")).size(), 417u); // 480000 / 1152 = 416.7
    EXPECT_EQ(shell("umask 027; velaenc in.wav new.mp2; stat -c %a new.mp2").out, "640\n");
}

TEST_F(output_test, a_signal_ends_the_run_and_removes_the_files) {
    const char *start =
        "(head -c 200000 in.wav; sleep 5) | "
        "velaenc -j 3 - out.mp2 --timestamps list.csv & for i in {1..100}; do sleep 0.02; "
        "[ $(ls -A | grep -c '^[.]velaenc-') = 2 ] && break; done; "
        "ls out.mp2 list.csv; ls -A | grep -c '^[.]velaenc-'; ";
    const struct {
        const char *signal;
        int status;
    } cases[] = {{"TERM", 143}, {"HUP", 129}, {"INT", 130}};
    for (const auto &[signal, status] : cases) {
        // A shell without job control starts its background processes with SIGINT ignored.
        const auto result =
            shell(std::string("set -m; ") + start + "kill -" + signal + " -$!; wait $!");
        EXPECT_EQ(result.out, "2\n") << signal << result.err;
        EXPECT_EQ(result.status, status) << signal;
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << signal;
    }
}

TEST_F(output_test, pipes_and_devices_are_written_directly) {
    EXPECT_EQ(shell("velaenc in.wav /dev/null && [ -c /dev/null ]").status, 0);
    const auto expected = shell("velaenc in.wav out.mp2; cat out.mp2").out;
    EXPECT_EQ(frames_of(expected).size(), 417u);
    EXPECT_TRUE(shell("mkfifo fifo; velaenc in.wav fifo & cat fifo; wait").out == expected);
    EXPECT_TRUE(shell("velaenc - < in.wav").out == expected);
    EXPECT_TRUE(shell("velaenc in.wav - > redirected; cat redirected").out == expected);
}

TEST_F(output_test, statistics_and_progress_go_to_standard_error_unless_quiet) {
    const auto result = shell("velaenc in.wav out.mp2");
    // 480000 samples at 48 kHz; no progress line where nobody looks.
    EXPECT_TRUE(result.err.starts_with("velaenc: 417 frames, 0:10.000, 224 kbit/s, ")) << result.err;
    EXPECT_TRUE(result.err.ends_with(" x real time\n")) << result.err;
    EXPECT_EQ(result.err.find('\r'), std::string::npos);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(shell("velaenc --quiet --mode mono in.wav out.mp2").err, "");
    EXPECT_NE(shell("velaenc --quiet missing.wav out.mp2").err, "");
}

TEST_F(output_test, a_terminal_shows_position_speed_and_time_left) {
    const std::string slow = "(head -c 960044; sleep 1; cat) < in.wav | velaenc - out.mp2 ";
    const auto shown = shell("script -qec '" + slow + "' /dev/null").out;
    // Half of 10 seconds is done after the one second of waiting; the other half would take as long.
    const auto halfway = shown.find("0:05 of 0:10, ");
    ASSERT_NE(halfway, std::string::npos) << shown;
    EXPECT_NE(shown.find(" x real time, 0:01 left", halfway), std::string::npos) << shown;
    EXPECT_NE(shown.find("\r\033[Kvelaenc: 417 frames"), std::string::npos) << shown;
    EXPECT_EQ(shell("script -qec '" + slow + "--quiet' /dev/null").out, "");
}

} // namespace
} // namespace velaenc_test
