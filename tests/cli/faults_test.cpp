// System calls that fail, one after the other: whatever happens, the stream is right or it is not there.
#include "host/sanitizer.hpp"
#include "workbench.hpp"

#include <cerrno>

namespace velaenc_test {
namespace {

using faults_test = workbench;

TEST_F(faults_test, a_failing_call_at_any_position_leaves_a_whole_stream_or_none) {
    const struct {
        const char *call;
        int error;
        bool harmless; // the run succeeds all the same
    } faults[] = {{"open", EMFILE, false}, {"read", EIO, false},     {"read", EINTR, true},
                  {"read", 0, true},       {"write", ENOSPC, false}, {"write", EINTR, true},
                  {"write", 0, true},      {"rename", EIO, false},   {"renameat2", EINVAL, true},
                  {"fsync", EIO, false},   {"fsync", EINVAL, true},  {"link", EPERM, true},
                  {"fstat", EIO, false},   {"lseek", EIO, false},    {"close", EIO, false},
                  {"mmap", ENOMEM, false}};
    put("in.wav", wav(pcm(noise(2 * 30000)), 2, 48000));
    shell("ffmpeg -v error -i in.wav in.flac || sndfile-convert in.wav in.flac");
    // What comes through a pipe is kept for the check.
    for (const std::string command :
         {"-j 2 --check in.wav out.mp2", "-j 1 --check - out.mp2 < <(cat in.flac)"}) {
        const auto stream = shell("velaenc -q " + command + "; cat out.mp2").out;
        ASSERT_FALSE(frames_of(stream).empty()) << command;
        for (const auto &[call, error, harmless] : faults) {
            bool made = true;
            for (int at = 1; made && at < 100; at += at / 3 + 1)
                // From there on only where it does not have to succeed.
                for (const bool onwards : {false, true}) {
                    if (onwards && (!made || harmless)) break;
                    const std::string what =
                        std::string("FAULT_CALL=") + call + " FAULT_AT=" + std::to_string(at)
                        + " FAULT_ERRNO=" + std::to_string(error)
                        + " FAULT_ON=" + std::to_string(onwards) + " velaenc -q " + command;
                    const auto [status, out, err] =
                        shell("rm -f out.mp2 mark; FAULT_MARK=mark LD_PRELOAD=" VELAENC_FAULT_SHIM " "
                              + what);
                    EXPECT_TRUE(status == 0
                                || (status >= 2 && status <= 5 && !err.empty() && !harmless))
                        << what << ": " << status << err;
                    EXPECT_TRUE(get("out.mp2") == (status == 0 ? stream : "")) << what << err;
                    EXPECT_FALSE(status == 0 && onwards && at == 1) << what;
                    EXPECT_EQ(shell("ls -A | grep '^[.]velaenc'").out, "") << what;
                    made = std::filesystem::exists(path("mark"));
                    EXPECT_TRUE(made || at > 1 || (HAS_OWN_MALLOC && error == ENOMEM))
                        << "no such call: " << what;
                }
        }
    }
}

TEST_F(faults_test, without_another_thread_one_does_the_work_of_all) {
    put("in.wav", wav(pcm(noise(2 * 480000)), 2, 48000));
    const auto alone =
        run("FAULT_MARK=mark FAULT_CALL=pthread_create FAULT_ON=1 LD_PRELOAD=" VELAENC_FAULT_SHIM
            " velaenc -q -j 3 in.wav - && rm mark");
    EXPECT_TRUE(alone.out == encoded("-j 1 in.wav"));
    // Nor is there one where only one processor may be used.
    run("FAULT_MARK=mark FAULT_CALL=pthread_create LD_PRELOAD=" VELAENC_FAULT_SHIM
        " taskset -c 0 velaenc -q in.wav - >/dev/null; [ ! -e mark ]");
}

} // namespace
} // namespace velaenc_test
