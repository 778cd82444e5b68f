// Where the stream goes, and what is left when it cannot go there.
#include "workbench.hpp"

#include <csignal>
#include <unistd.h>

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
    run("ln -sf in.wav link; ln -f in.wav twin");
    for (const char *command :
         {"velaenc in.wav in.wav", "velaenc in.wav link", "velaenc in.wav twin",
          "velaenc - in.wav < in.wav", "velaenc in.mp2", "velaenc in.wav - >> in.wav",
          "velaenc in.wav out.mp2 --timestamps in.wav"}) {
        expect_failure(command, 3, "is the input itself");
        EXPECT_TRUE(get("in.wav") == before) << command;
    }
}

TEST_F(output_test, nobody_loses_a_file) {
    const auto stream = encoded("in.wav");
    const std::string list = "frame,byte_offset,bytes,older\n";
    const struct {
        const char *before, *arguments, *words; // refused with these words; none: replaced
    } cases[] = {
        {"", "", ""},
        {"\xFF\xFD\xA4\x04older", "", ""},
        {"older", "--overwrite", ""},
        {"older", "", "--overwrite"},
        {"RIFFolder", "", "is not MPEG audio"},
        {"\xFF\xFD\xF4\x04", "", "is not MPEG audio"}, // no such bitrate
        {"\xFF\xFB\x94\x04", "", "is not MPEG audio of Layer I or II"},
        {"\xFF\xFD\xA4\x04older", "-n", "--no-clobber"},
        {"", "--no-clobber", "--no-clobber"},
    };
    for (const auto &[before, arguments, words] : cases) {
        put("out.mp2", before);
        const bool refused = *words != '\0';
        run(std::string("velaenc --quiet in.wav out.mp2 ") + arguments, refused ? 3 : 0, words);
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << before << arguments;
        EXPECT_TRUE(get("out.mp2") == (refused ? before : stream)) << before << arguments;
    }
    put("out.mp2", "");
    put("list.csv", "older");
    expect_failure("velaenc in.wav out.mp2 --timestamps list.csv", 3, "not a list of time stamps");
    expect_failure("velaenc in.wav out.mp2 --trace list.csv", 3, "not a trace");
    put("list.csv", list);
    put("cut.wav", get("in.wav").substr(0, 100000));
    expect_failure("ulimit -f 100; velaenc in.wav out.mp2 --timestamps list.csv", 3, "File too large");
    expect_failure("velaenc cut.wav out.mp2 --timestamps list.csv", 2, "truncated");
    EXPECT_EQ(get("out.mp2") + get("list.csv"), list);
}

TEST_F(output_test, a_file_is_replaced_with_its_links_protection_and_owner) {
    put("out.mp2", "");
    const auto made = run("chmod 606 out.mp2; ln -s out.mp2 link; umask 077; velaenc -q in.wav link;"
                          "ln -s new.mp2 dangling; umask 027; velaenc -q --no-sync in.wav dangling;"
                          "stat -c '%a %F %s' link out.mp2 new.mp2");
    EXPECT_EQ(made.out,
              "777 symbolic link 7\n606 regular file 280224\n640 regular file 280224\n"); // 417 frames
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    // As nobody: a folder that takes no new file, and one where only owners may take names away.
    EXPECT_EQ(shell("chown 65534:4 out.mp2; velaenc -q in.wav out.mp2; stat -c %u:%g out.mp2").out,
              "65534:4\n");
    const std::string nobody = "setpriv --reuid 65534 --clear-groups ./velaenc in.wav ";
    shell("cp $(command -v velaenc) .; chmod 755 .; mkdir shared; cp in.wav shared/; chmod 1777 shared;"
          ": > shared/out.mp2; chmod 666 shared/out.mp2 in.wav");
    for (const std::string out : {"out.mp2", "shared/out.mp2"}) {
        const auto result = run(nobody + out + "; stat -c %s " + out, 0, "takes no new file");
        EXPECT_EQ(result.out, "280224\n") << out;
    }
    run(nobody + "more.mp2", 3, "cannot create more.mp2: Permission");
}

TEST_F(output_test, a_signal_ends_the_run_and_removes_the_files) {
    const std::string start =
        "ulimit -c 0; set -m; (head -c 200000 in.wav; sleep 5) | "
        "velaenc -j 3 - out.mp2 --timestamps list.csv & for i in {1..100}; do sleep 0.02; "
        "[ $(ls -A | grep -c '^[.]velaenc-') = 2 ] && break; done; "
        "ls -A | grep -c '^[.]velaenc-'; ";
    // A shell without job control starts its background processes with SIGINT ignored.
    for (const int signal : {SIGTERM, SIGHUP, SIGINT, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU, SIGVTALRM}) {
        const std::string kill = "kill -" + std::to_string(signal) + " -$!; ";
        EXPECT_EQ(run(start + kill + kill + "wait $!", 128 + signal).out, "2\n") << signal;
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << signal;
    }
    // timeout sends its signal twice, to the child and to the group.
    for (int i = 0; i < 10; ++i)
        run("timeout 0.1 velaenc - out.mp2 < <(cat in.wav; sleep 1)", 124);
    EXPECT_EQ(leftovers(), std::vector<std::string>{});
    // What the parent ignores or blocks stays so, while the files are opened and after.
    for (const std::string spared : {"trap '' HUP; exec ", "exec env --block-signal=HUP "})
        run("(" + spared
            + "velaenc -j 3 -q - out < <(cat in.wav; sleep 0.5)) & sleep 0.25;"
              "kill -HUP $!; wait $! && [ $(stat -c %s out) = 280224 ] && rm out");
}

TEST_F(output_test, pipes_devices_and_open_descriptors_are_written_directly) {
    run("velaenc in.wav /dev/null && [ -c /dev/null ]");
    const auto expected = encoded("in.wav");
    EXPECT_EQ(frames_of(expected).size(), 417u); // 480000 / 1152 = 416.7
    const char *commands[] = {
        "mkfifo fifo; velaenc in.wav fifo & cat fifo; wait",
        "velaenc - < in.wav",
        "velaenc in.wav /dev/stdout | cat",
        "velaenc in.wav - > redirected; cat redirected",
        "velaenc in.wav /dev/fd/7 7> seventh; cat seventh",
        "velaenc in.wav -o >(cat > sub; mv sub substituted); until cat substituted; do :; done",
        // Added to, not renamed over.
        "echo -n x > archive; velaenc in.wav /dev/stdout >> archive; tail -c +2 archive",
        "ln -s /dev/stdout out; echo -n x > second; velaenc in.wav out >> second; tail -c +2 second",
    };
    for (const char *command : commands)
        EXPECT_TRUE(shell(command).out == expected) << command;
    expect_failure("velaenc in.wav /dev/fd/77; rm -f fifo redirected seventh substituted archive out "
                   "second; velaenc in.wav /dev/fd/77",
                   3, "cannot create /dev/fd/77: Bad file descriptor");
    expect_failure("velaenc in.wav none/; velaenc in.wav none/", 3, "none/ is a folder");
}

TEST_F(output_test, an_output_that_is_not_ready_is_waited_for) {
    // perl makes the pipe that it shares with velaenc non-blocking.
    const auto result = shell("{ perl -e 'use Fcntl; fcntl(STDOUT, F_SETFL, O_NONBLOCK)'; "
                              "velaenc -q in.wav -; } | (sleep 0.3; cat)");
    EXPECT_TRUE(result.out == encoded("in.wav")) << result.err;
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

TEST_F(output_test, a_terminal_shows_the_position_in_a_line_of_its_width) {
    if (shell("script -qec true /dev/null").status != 0) GTEST_SKIP() << "no terminal can be made here";
    const std::string slow = "(head -c 960044; sleep 0.3; cat) < in.wav | velaenc - out.mp2 ";
    const auto on = [&](const std::string &terminal, const std::string &arguments) {
        return shell("script -qec 'stty cols 30; export TERM=" + terminal + "; " + slow + arguments
                     + "' /dev/null")
            .out;
    };
    const auto shown = on("xterm", "");
    const auto halfway = shown.find("0:05 of 0:10, ");
    ASSERT_NE(halfway, std::string::npos) << shown;
    EXPECT_EQ(shown.find('\r', halfway), halfway + 29) << shown;
    EXPECT_NE(shown.find("\r\033[Kvelaenc: 417 frames"), std::string::npos) << shown;
    EXPECT_EQ(on("dumb", "").find('\033'), std::string::npos);
    EXPECT_EQ(on("xterm", "--quiet"), "");
    const auto refused = shell("script -qec 'velaenc in.wav -; velaenc - out.mp2' /dev/null").out;
    for (const char *words : {"output is a terminal", "input is a terminal"})
        EXPECT_NE(refused.find(words), std::string::npos) << words << refused;
}

} // namespace
} // namespace velaenc_test
