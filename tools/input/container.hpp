// Where a container file says its sound data lies. libsndfile quietly shortens a file that lacks the
// end of its data and cannot read WAV-like files from every pipe, so the tool looks for itself.
#pragma once

#include "common/wav_chunk.hpp"
#include "input/input_file.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// Reads at an offset from the start of the file; returns fewer bytes when the file ends there.
using fetch_function = std::function<std::size_t(std::uint64_t offset, std::span<std::byte> room)>;

struct chunk {
    std::uint64_t offset;    ///< of the first byte of the payload
    std::uint64_t bytes;     ///< as the header says
    bool known;              ///< false: looks like what writers put who cannot know the size yet
    bool wraps;              ///< the size has 32 bits, so more sound than that is counted modulo 2^32
    std::uint64_t alignment; ///< of the chunk behind it

    std::uint64_t end() const noexcept {
        return offset + (bytes + alignment - 1) / alignment * alignment;
    }
};

/// The four bytes there; none where the file ends before.
std::string name_at(const fetch_function &fetch, std::uint64_t offset);

/// Whether a file begins as one of the containers that are known here.
bool begins_container(const fetch_function &fetch);

/// Whether a file begins as WAV or one of its kin with chunks of the same layout: RIFF, RIFX, RF64, BW64.
bool is_wav(const fetch_function &fetch);

/// Finds the first chunk of that name ("fmt ", "data") in a RIFF or RF64 file.
std::optional<chunk> find_wav_chunk(const fetch_function &fetch, std::string_view name);

/// The code of a WAV file's format, in the extensible form that of its sub-format; none without a sound
/// "fmt " chunk.
std::optional<std::uint64_t> wav_format(const fetch_function &fetch);

/// Whether a W64 file's samples are floats, also by the sub-format of the extensible form.
bool has_w64_floats(const fetch_function &fetch);

/// The chunks of a WAV file whose name is wanted, before and behind its sound.
std::vector<wav_chunk> read_wav_chunks(const input_file &input,
                                       const std::function<bool(std::string_view)> &wanted);

/// Finds the sound data of RIFF, RF64, W64, AIFF, CAF and AU files; none for other files.
std::optional<chunk> find_sound_data(const fetch_function &fetch);

/// @param input  seekable; must outlive the result
fetch_function fetch_from(const input_file &input);

/// Whether another chunk begins there: a name of four printable characters and a size. After the sound
/// data of a file whose size is wrong more sound follows.
bool begins_chunk(std::span<const std::byte> header) noexcept;

/// Bytes of sound data that a seekable file really has, where its header left the size open or has a
/// wrong one.
/// @throws failure when the file ends before its sound does, unless the rule is not so strict
std::uint64_t sound_bytes(const input_file &input, const chunk &sound, length_rule rule);

/// The bytes of a seekable file that a reader may see who takes what lies behind the sound of W64 for sound too.
/// @throws failure  as sound_bytes()
std::uint64_t bytes_with_sound(const input_file &input, length_rule rule);

/// For a reader that believes the size in the header.
/// @throws failure when the file ends before its sound does, unless the rule is not so strict, or when
///         the size has wrapped
void check_chunks(const input_file &input, const chunk &sound, length_rule rule);

/// Bytes that stand for others of the file.
struct size_field {
    std::uint64_t offset;
    std::array<std::byte, 8> bytes;
};

/// The size of CAF sound data that goes to the end of the file; libsndfile takes no other.
std::optional<size_field> corrected_size(const input_file &input);

} // namespace tools
