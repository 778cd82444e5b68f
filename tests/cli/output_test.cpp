// Where the stream goes, and what is left when it cannot go there.
#include "workbench.hpp"

#include <chrono>
#include <csignal>
#include <unistd.h>

namespace velaenc_test {
namespace {

class output_test : public workbench {
  protected:
    output_test() { put("in.wav", wav(pcm(noise(960000)), 2, 48000)); } // more than a buffer of output
};

TEST_F(output_test, no_half_file_is_left_when_the_output_fails) {
    for (const std::string jobs : {"-j 1 ", "-j 3 "}) {
        const std::string velaenc = "velaenc in.wav " + jobs;
        // Nor is more of an endless input read.
        expect_failure(
            "timeout 20 velaenc --raw --rate 48000 --channels 2 --format s16 - /dev/full < /dev/zero "
                + jobs,
            3, "/dev/full: No space left");
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
    run("ln -s loop loop; trap 'rm loop' EXIT; velaenc in.wav loop", 3,
        "loop: Too many levels of symbolic links");
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
    const auto made = [&](const std::string &arguments) {
        return shell("ffmpeg -v error -t 0.2 -i in.wav " + arguments + " -").out;
    };
    const std::string list = "frame,byte_offset,bytes,older\n";
    const struct {
        std::string before, arguments, words; ///< refused with these words; none: replaced
    } cases[] = {
        {"", "", ""},
        {stream.substr(0, 1000), "", ""},
        {encoded("--container wav in.wav"), "", ""},
        {"older", "--overwrite", ""},
        {"older", "", "--overwrite"},
        {"RIFFolder", "", "is not MPEG-1 audio"},
        {made("-f wav"), "", "is not MPEG-1 audio"},
        {made("-f mp3"), "", "is not MPEG-1 audio"},
        {made("-id3v2_version 0 -write_xing 0 -f mp3"), "", "is not MPEG-1 audio"},
        {made("-c:a mp2 -ar 24000 -f mp2"), "", "is not MPEG-1 audio"},
        {stream.substr(0, 672) + "older", "", "is not MPEG-1 audio"},
        {stream.substr(0, 672) + encoded("in.wav --crc"), "", "is not MPEG-1 audio"},
        {std::string("\xFF\xFEL\0e\0t\0t\0", 10), "", "is not MPEG-1 audio"}, // UTF-16
        {stream, "-n", "--no-clobber"},
        {"", "--no-clobber", "--no-clobber"},
    };
    for (const auto &[before, arguments, words] : cases) {
        put("out.mp2", before);
        const bool refused = !words.empty(), asked = arguments == "--overwrite";
        const auto result = run("velaenc in.wav out.mp2 " + arguments, refused ? 3 : 0, words);
        EXPECT_EQ(result.err.find("replaced the MPEG audio") == std::string::npos,
                  refused || asked || before.empty())
            << result.err;
        EXPECT_EQ(leftovers(), std::vector<std::string>{}) << before << arguments;
        EXPECT_TRUE(get("out.mp2") == (refused ? before : stream)) << before.substr(0, 99) << arguments;
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

TEST_F(output_test, what_comes_during_the_encode_is_not_lost_either) {
    put("stream", encoded("in.wav"));
    put("other", "older\n");
    const struct {
        std::string meanwhile, arguments;
        int status;
        std::string words, left; ///< the file that `victim` equals in the end
        std::string victim = "out.mp2";
    } cases[] = {
        {"cp other out.mp2", "", 3, "out.mp2 exists and is not", "other"},
        {"cp other out.mp2", "--overwrite", 0, "", "stream"},
        {"head -c 1500 stream > out.mp2", "", 0, "replaced the MPEG audio", "stream"},
        {"cp stream out.mp2", "-n", 3, "--no-clobber keeps it", "stream"},
        {"cp other list", "-n --timestamps list", 3, "(out.mp2 is complete)", "other", "list"},
        {"cp other list", "-n --trace list", 3, "(out.mp2 is complete)", "other", "list"},
        {"mkfifo out.mp2", "", 3, "out.mp2: File exists", "other", "other"},
        {"t=$(ls -A | grep velaenc-); rm $t; ln -s ../stream $t", "", 3, "somebody has put", "other",
         "other"},
    };
    for (const auto &[meanwhile, arguments, status, words, left, victim] : cases) {
        run("mkdir new; cd new; cp ../other ../stream .; mkfifo fifo; velaenc " + arguments
                + " - out.mp2 < fifo & exec 7> fifo; cat ../in.wav >&7; " + meanwhile
                + "; exec 7>&-; wait $!",
            status, words);
        EXPECT_TRUE(get("new/" + victim) == get(left)) << meanwhile << ' ' << arguments;
        EXPECT_EQ(shell("ls -A new | grep velaenc-; rm -r new").out, "") << meanwhile;
    }
    const auto gone =
        run("mkfifo fifo; cp stream out.mp2; velaenc - out.mp2 < fifo & exec 7> fifo; cat "
            "in.wav >&7; rm out.mp2; exec 7>&-; wait $!");
    EXPECT_TRUE(gone.err.find("replaced") == std::string::npos && get("out.mp2") == get("stream"))
        << gone.err;
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
    // Another group than the file had gets what everybody has.
    EXPECT_EQ(run("mkdir own; : > own/out.mp2; chmod 664 own/out.mp2; chown -R 65534:4 own; " + nobody
                  + "own/out.mp2; stat -c %a own/out.mp2")
                  .out,
              "644\n");
    run("TMPDIR=/nonexistent " + nobody + "out.mp2", 3,
        "/nonexistent: No such file or directory; set TMPDIR");
    // Where nobody can tell what the folder's whole name is.
    run("mkdir -p closed/open; chmod 777 closed/open; cp velaenc in.wav closed/open; cd closed/open; "
        "chmod 700 ..; "
        + nobody + "out.mp2 --timestamps list && ls out.mp2 list");
    run("cd closed/open; " + nobody + "twice --timestamps ./twice", 1, "--timestamps names OUT itself");
}

// Twice, as a key that is held down.
TEST_F(output_test, a_signal_at_any_moment_leaves_whole_files_or_none) {
    const std::string velaenc = "velaenc -q --timestamps list.csv in.wav out.mp2 ";
    const auto start = std::chrono::steady_clock::now();
    run(velaenc + "-j 1");
    const std::chrono::duration<double> once = std::chrono::steady_clock::now() - start;
    const auto stream = get("out.mp2"), list = get("list.csv");
    const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU, SIGVTALRM};
    int ended = 0;
    for (int i = 0; i < 48; ++i) {
        const std::string kill = "kill -" + std::to_string(signals[i % 8]) + " $! 2>/dev/null; ";
        const int jobs = i / 8 % 4;
        // A shell without job control starts its background processes with SIGINT ignored.
        const auto result = shell(
            "ulimit -c 0; rm -f out.mp2 list.csv; set -m; " + velaenc
            + (jobs == 0 ? "--engine" : "-j " + std::to_string(jobs)) + " 2>said & sleep "
            + std::to_string(1.3 * once.count() * (29 * i % 48) / 48) + "; " + kill + kill + "wait $!");
        const bool whole = result.status == 0;
        ended += !whole;
        EXPECT_TRUE(whole || result.status == 128 + signals[i % 8]) << i << ": " << result.status;
        EXPECT_EQ(get("said") + shell("ls -A | grep '^[.]velaenc'").out, "") << i;
        // A signal may come when the files have their names already.
        const auto left = get("out.mp2"), rows = get("list.csv");
        EXPECT_TRUE(left == stream || (left.empty() && rows.empty() && !whole)) << i;
        EXPECT_TRUE(rows == list || (rows.empty() && !whole)) << i;
    }
    EXPECT_GT(ended, 4);
    // What the parent ignores or blocks stays so, while the files are opened and after.
    for (const std::string spared : {"trap '' HUP; exec ", "exec env --block-signal=HUP "})
        run("(" + spared
            + "velaenc -j 3 -q - out < <(cat in.wav; sleep 0.5)) & sleep 0.25;"
              "kill -HUP $!; wait $! && [ $(stat -c %s out) = 280224 ] && rm out");
}

TEST_F(output_test, pipes_devices_and_open_descriptors_are_written_directly) {
    const auto said = run("velaenc in.wav /dev/null && [ -c /dev/null ]").err;
    // 480000 samples at 48 kHz; no progress line where nobody looks.
    EXPECT_TRUE(said.starts_with("velaenc: 417 frames, 0:10.000, 224 kbit/s, ")
                && said.ends_with(" x real time\n") && said.find('\r') == said.npos)
        << said;
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

TEST_F(output_test, a_name_of_another_format_is_noted) {
    const struct {
        const char *arguments, *words; // none: no note
    } cases[] = {
        {"x.mp3",
         "note: the output is a stream of Layer II, whatever .mp3 says; the usual name ends with .mp2"},
        {"x.FLAC", "whatever .flac says"},
        {"--layer 1 x.mp2", "a stream of Layer I, whatever .mp2 says; the usual name ends with .mp1"},
        {"--container raw x.wav", "whatever .wav says"},
        {"--container wav x.mp2", "a WAV file, whatever"},
        {"x.mp2", ""},
        {"x.mpa", ""},
        {"x", ""},
        {"x.WAV", ""},
        {"-b 384 --layer 1 x.mp1", ""}};
    for (const auto &[arguments, words] : cases) {
        const auto result = run(std::string("velaenc in.wav ") + arguments, 0, words);
        EXPECT_EQ(result.err.find("whatever") == std::string::npos, *words == '\0') << result.err;
    }
}

TEST_F(output_test, a_terminal_shows_the_position_in_a_line_of_its_width) {
    if (shell("script -qec true /dev/null").status != 0) GTEST_SKIP() << "no terminal can be made here";
    const std::string slow = "(head -c 960044; sleep 0.7; cat) < in.wav | velaenc - out.mp2 ";
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

TEST_F(output_test, tags_of_any_format_stand_in_front_where_every_reader_skips_them) {
    const std::string given =
        " -metadata title=Tïtle -metadata artist=A -metadata album=B -metadata date=1999"
        " -metadata track=7 -metadata genre=Jazz -metadata comment=Words ";
    run("ffmpeg -v error -f lavfi -i sine=d=2:r=48000 -ac 2 -c:a pcm_s16le bare.wav");
    const std::string bare = encoded("bare.wav");
    for (const std::string name : {"in.flac", "in.ogg", "in.wav", "in.aiff", "in.mp3"}) {
        run("ffmpeg -v error -i bare.wav" + given + "-metadata ISRC=XX0000000001 -write_id3v2 1 " + name
            + " || ffmpeg -v error -y -i bare.wav" + given + name);
        run("velaenc " + name + " out.mp2 --overwrite --tags -q");
        const std::string read = run("ffprobe -v error -show_entries format_tags out.mp2").out;
        for (const std::string tag :
             {"title=Tïtle", "artist=A", "album=B", "date=1999", "track=7", "genre=Jazz"})
            EXPECT_NE(read.find(":" + tag + "\n"), read.npos) << name << ": " << tag;
        const std::string stream = get("out.mp2");
        EXPECT_EQ(stream.substr(0, 4), std::string("ID3\4")) << name;
        const bool is_lossy = name == "in.ogg" || name == "in.mp3";
        EXPECT_TRUE(is_lossy || stream.ends_with(bare)) << name;
        run("mpg123 -q -t out.mp2 && velainfo out.mp2");
    }
    run("velaenc in.flac --output-dir o --tags && velaenc in.flac --output-dir o --tags --resume", 0,
        "1 complete before");
    run("velaenc in.flac o/in.mp2 --tags", 0, "replaced");
    // Half a tag is no stream, neither one that is complete nor one that may be replaced.
    run("head -c 300 o/in.mp2 >cut && mv cut o/in.mp2");
    run("velaenc in.flac --output-dir o --tags --resume", 6, "is not MPEG-1 audio");
    EXPECT_TRUE(encoded("bare.wav -q --tags") == bare);
    run("velaenc bare.wav --tags", 0, "--tags finds no tags");
    run("cat in.wav | velaenc - x.mp2 --tags", 0, "--tags finds no tags");
    run("velaenc in.flac y.wav --tags", 1, "--tags is for bare streams");
}

} // namespace
} // namespace velaenc_test
