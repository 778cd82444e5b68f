// System calls that fail, one after the other: whatever happens, the stream is right or it is not there.
#include "workbench.hpp"

#include <cerrno>

namespace velaenc_test {
namespace {

class faults_test : public workbench {
  protected:
    faults_test() {
        put("in.wav", wav(pcm(noise(2 * 30000)), 2, 48000));
        shell("ffmpeg -v error -i in.wav in.flac || sndfile-convert in.wav in.flac");
    }

    /// One run with the fault in place. @return whether the call was made at all
    bool survives(const std::string &arguments, const std::string &variables, bool harmless,
                  const std::string &stream) const {
        const auto result = shell("rm -f out.mp2 mark; FAULT_MARK=mark " + variables
                                  + " LD_PRELOAD=" VELAENC_FAULT_SHIM " velaenc -q " + arguments);
        const bool made = shell("[ -e mark ]").status == 0;
        const std::string what = arguments + ' ' + variables;
        EXPECT_TRUE(result.status == 0
                    || (result.status >= 2 && result.status <= 5 && !result.err.empty()))
            << what << ": " << result.status << result.err;
        EXPECT_TRUE(result.status == 0 || !harmless) << what << ": " << result.err;
        const auto published = shell("cat out.mp2").out;
        EXPECT_TRUE(published == (result.status == 0 ? stream : "")) << what << result.err;
        EXPECT_EQ(shell("ls -A | grep -c '^[.]velaenc'").out, "0\n") << what;
        return made;
    }
};

TEST_F(faults_test, a_failing_call_at_any_position_leaves_a_whole_stream_or_none) {
    const struct {
        const char *call;
        int error;
        bool harmless; // the run succeeds all the same
    } faults[] = {{"open", EMFILE, false}, {"read", EIO, false},     {"read", EINTR, true},
                  {"read", 0, true},       {"write", ENOSPC, false}, {"write", EINTR, true},
                  {"write", 0, true},      {"rename", EIO, false},   {"fsync", EIO, false},
                  {"fstat", EIO, false}};
    const std::string commands[] = {"-j 2 in.wav out.mp2", "-j 1 - out.mp2 < in.flac"};
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
                EXPECT_TRUE(made || at > 1) << "no such call: " << variables;
                // From there on only where it does not have to succeed.
                if (made && !harmless) survives(command, variables + " FAULT_ON=1", false, stream);
                step = at / 3 + 1;
            }
        }
    }
}

TEST_F(faults_test, a_full_disk_is_reported_and_left_as_it_was) {
    if (shell("mkdir disk; mount -t tmpfs -o size=16k none disk").status != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    const auto result =
        shell("velaenc -q -b 384 in.wav disk/out.mp2; status=$?; ls -A disk; umount disk; exit "
              "$status");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find("No space left on device; make room"), std::string::npos) << result.err;
}

} // namespace
} // namespace velaenc_test
