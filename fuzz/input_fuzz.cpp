// Damaged sound files: any bytes as a file, in a folder that is searched too, and as a pipe. They are read to
// their end or refused with a message; nothing crashes, hangs, reads outside, or lets a size in the file decide
// how much memory is taken.
#include "byte_source.hpp"
#include "common/failure.hpp"
#include "input/open_pcm.hpp"
#include "input/sound_files.hpp"

#include <sys/mman.h>
#include <unistd.h>

namespace {

using fuzz::expect;

/// More than any input of the fuzzer holds: FLAC's silence is small.
constexpr std::uint64_t most_bytes = 256 << 20;

void read_all(const std::string &name, const tools::input_wishes &wishes) {
    try {
        const auto source = tools::open_pcm(tools::open_input(name), wishes);
        const auto instant = source->shape().instant_bytes();
        expect(instant > 0, "a source without channels");
        for (std::uint64_t read = 0; read < most_bytes;) {
            const auto block = source->next_block();
            if (block.empty()) break;
            expect(block.size() % instant == 0, "a block that cuts an instant");
            read += block.size();
        }
    } catch (const tools::failure &refused) {
        expect(refused.code() == tools::exit_code::input && *refused.what() != '\0',
               "refused without a message, or with another code than the input's");
    }
}

tools::input_wishes read_wishes(fuzz::byte_source &from) {
    tools::input_wishes wishes;
    const int flags = from.below(16);
    wishes.ignore_length = (flags & 1) != 0;
    if (flags >> 1 == 7)
        wishes.raw = tools::raw_shape{48000, 1 + from.below(8),
                                      tools::raw_formats[static_cast<std::size_t>(from.below(10))]};
    return wishes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::byte_source from({data, size});
    const auto wishes = read_wishes(from);
    const bool piped = from.below(2) != 0;
    const auto bytes = from.take(size);
    int ends[2] = {-1, -1};
    if (piped) {
        if (bytes.size() > 65536 || ::pipe(ends) != 0) return 0; // what a pipe takes without a reader
    } else {
        ends[0] = ends[1] = ::memfd_create("input", 0);
    }
    expect(::write(ends[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
           "no room");
    if (piped)
        ::close(ends[1]);
    else
        ::lseek(ends[0], 0, SEEK_SET);
    const std::string name = "/proc/self/fd/" + std::to_string(ends[0]);
    if (!piped) tools::is_sound_file(name);
    read_all(name, wishes);
    ::close(ends[0]);
    return 0;
}
