// Headerless PCM: how its samples are written, and those that the encoder does not take as they are.
#pragma once

#include "input/source_filter.hpp"

#include <array>

namespace tools {

struct raw_format {
    enum class kind { integer, unsigned_integer, floating };

    const char *name; ///< as --format has it
    int bytes;        ///< of a sample
    bool big_endian;
    kind numbers;

    /// What the encoder is given: 8 bits become 16, 32 become a float.
    sample_format target() const noexcept;
    bool is_native() const noexcept;
};

inline constexpr std::array<raw_format, 10> raw_formats{
    {{"s16", 2, false, raw_format::kind::integer},
     {"s24", 3, false, raw_format::kind::integer},
     {"s32", 4, false, raw_format::kind::integer},
     {"f32", 4, false, raw_format::kind::floating},
     {"s16be", 2, true, raw_format::kind::integer},
     {"s24be", 3, true, raw_format::kind::integer},
     {"s32be", 4, true, raw_format::kind::integer},
     {"f32be", 4, true, raw_format::kind::floating},
     {"s8", 1, false, raw_format::kind::integer},
     {"u8", 1, false, raw_format::kind::unsigned_integer}}};

struct raw_shape {
    int rate; ///< Hz
    int channels;
    raw_format format;

    /// As bytes are counted: the width is the file's, whatever it becomes.
    pcm_shape in_file() const noexcept {
        return {rate, channels, static_cast<sample_format>(format.bytes)};
    }
};

/// Samples of a format, as the encoder takes them.
class raw_decoder final : public source_filter {
  public:
    /// @param source  hands out the bytes of the file, in a shape of that width
    raw_decoder(std::unique_ptr<pcm_source> source, const raw_format &format);

    std::span<const std::byte> next_block() override;
    std::unique_ptr<pcm_source> another() const override { return another_like(*this, format_); }

  private:
    raw_format format_;
    std::vector<std::byte> out_;
};

} // namespace tools
