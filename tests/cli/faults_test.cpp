// System calls that fail, one after the other: whatever happens, the stream is right or it is not there.
#include "host/sanitizer.hpp"
#include "workbench.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <random>

namespace velaenc_test {
namespace {

class faults_test : public workbench {
  protected:
    faults_test() {
        put("in.wav", wav(pcm(noise(2 * 30000)), 2, 48000));
        shell("ffmpeg -v error -i in.wav in.flac || sndfile-convert in.wav in.flac");
    }

    bool leaves_temporaries() const {
        return std::ranges::any_of(leftovers(),
                                   [](const auto &name) { return name.starts_with(".velaenc"); });
    }

    /// One run with the fault in place. @return whether the call was made at all
    bool survives(const std::string &arguments, const std::string &variables, bool harmless,
                  const std::string &stream) const {
        const auto result = shell("rm -f out.mp2 mark; FAULT_MARK=mark " + variables
                                  + " LD_PRELOAD=" VELAENC_FAULT_SHIM " velaenc -q " + arguments);
        const std::string what = arguments + ' ' + variables;
        EXPECT_TRUE(result.status == 0
                    || (result.status >= 2 && result.status <= 5 && !result.err.empty()))
            << what << ": " << result.status << result.err;
        EXPECT_TRUE(result.status == 0 || !harmless) << what << ": " << result.err;
        EXPECT_TRUE(get("out.mp2") == (result.status == 0 ? stream : "")) << what << result.err;
        EXPECT_FALSE(leaves_temporaries()) << what;
        return std::filesystem::exists(path("mark"));
    }
};

TEST_F(faults_test, a_failing_call_at_any_position_leaves_a_whole_stream_or_none) {
    const struct {
        const char *call;
        int error;
        bool harmless; // the run succeeds all the same
    } faults[] = {{"open", EMFILE, false}, {"read", EIO, false},     {"read", EINTR, true},
                  {"read", 0, true},       {"write", ENOSPC, false}, {"write", EINTR, true},
                  {"write", 0, true},      {"rename", EIO, false},   {"renameat2", EINVAL, true},
                  {"fsync", EIO, false},   {"fstat", EIO, false},    {"lseek", EIO, false},
                  {"close", EIO, false},   {"mmap", ENOMEM, false}};
    const std::string commands[] = {"-j 2 --check in.wav out.mp2", "-j 1 - out.mp2 < in.flac"};
    for (const auto &command : commands) {
        const auto stream = shell("velaenc -q " + command + "; cat out.mp2").out;
        ASSERT_FALSE(frames_of(stream).empty()) << command;
        for (const auto &[call, error, harmless] : faults) {
            bool made = true;
            for (int at = 1, step = 1; made && at < 100; at += step) {
                const std::string variables = std::string("FAULT_CALL=") + call
                                              + " FAULT_AT=" + std::to_string(at)
                                              + " FAULT_ERRNO=" + std::to_string(error);
                made = survives(command, variables, harmless, stream);
                EXPECT_TRUE(made || at > 1 || (HAS_OWN_MALLOC && error == ENOMEM))
                    << "no such call: " << variables;
                // From there on only where it does not have to succeed.
                if (made && !harmless) survives(command, variables + " FAULT_ON=1", false, stream);
                step = at / 3 + 1;
            }
        }
    }
}

// Twice, as a key that is held down, or by timeout, which asks the child and its group.
TEST_F(faults_test, a_signal_at_any_moment_leaves_whole_files_or_none) {
    put("long.wav", wav(pcm(noise(2 * 48000 * 10)), 2, 48000));
    const std::string files = " --timestamps list.csv long.wav out.mp2";
    const auto start = std::chrono::steady_clock::now();
    const auto stream = shell("velaenc -q -j 1" + files + "; cat out.mp2").out;
    const std::chrono::duration<double> once = std::chrono::steady_clock::now() - start;
    const auto list = get("list.csv");
    ASSERT_FALSE(frames_of(stream).empty());
    std::minstd_rand random(1);
    const std::pair<std::string, int> signals[] = {{"INT", 2}, {"TERM", 15}, {"HUP", 1}};
    for (int i = 0; i < 40; ++i) {
        const auto &[name, number] = signals[i % 3];
        const bool by_timeout = i % 4 == 3;
        const auto delay =
            std::to_string(1.3 * once.count() * static_cast<double>(random() % 1000) / 1000);
        const std::string run =
            (i % 4 == 0 ? "velaenc -q --engine" : "velaenc -q -j " + std::to_string(1 + i % 4)) + files
            + " 2>said";
        const std::string kill = "kill -" + name + " $! 2>/dev/null; ";
        const auto result =
            shell("rm -f out.mp2 list.csv; set -m; "
                  + (by_timeout ? "timeout -s " + name + ' ' + delay + ' ' + run
                                : run + " & sleep " + delay + "; " + kill + kill + "wait $!"));
        const std::string what = name + " after " + delay + (by_timeout ? " by timeout" : "") + ": "
                                 + std::to_string(result.status);
        EXPECT_TRUE(result.status == 0 || result.status == (by_timeout ? 124 : 128 + number)) << what;
        EXPECT_EQ(get("said"), "") << what;
        // A signal may come when the files have their names already.
        const auto left = get("out.mp2"), rows = get("list.csv");
        EXPECT_TRUE(left == stream || (left.empty() && rows.empty() && result.status != 0)) << what;
        EXPECT_TRUE(rows == list || (rows.empty() && result.status != 0)) << what;
        EXPECT_FALSE(leaves_temporaries()) << what;
    }
}

TEST_F(faults_test, a_full_disk_is_reported_and_left_as_it_was) {
    if (shell("mkdir disk; mount -t tmpfs -o size=16k none disk").status != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    const auto result = run(
        "velaenc -q -b 384 in.wav disk/out.mp2; first=$?; cat in.wav | TMPDIR=disk velaenc -q --check"
        " - out.mp2; status=$?; ls -A disk; umount disk; [ $first = 3 ] && exit $status",
        3, "No space left on device; make room");
    EXPECT_NE(result.err.find("cannot keep the piped input in disk: No space"), std::string::npos)
        << result.err;
    EXPECT_FALSE(std::filesystem::exists(path("out.mp2")));
    EXPECT_EQ(result.out, "");
}

} // namespace
} // namespace velaenc_test
