// Keys as data: tables of named, typed fields, and the one mechanism that reads and writes them.
#pragma once

#include "vela_enc_mp1a/settings.h"

#include <cstdint>

namespace vela {

/// Type of a field's elements; the codes are part of the tables' format.
enum class param_type : std::uint16_t {
    int8 = 0,
    int16 = 1,
    int32 = 2,
    int64 = 3,
    uint8 = 4,
    uint16 = 5,
    uint32 = 6,
    uint64 = 7,
    float32 = 8,
    float64 = 9
};

/// A row of a key table. A row without a name ends the table.
struct param_entry {
    const char *name;
    std::uint32_t offset; ///< of element 0, in bytes from the table's base
    param_type type;
    std::uint16_t count; ///< elements; indexes are 0 .. count - 1
};

/// The first row with exactly this name, or null.
const param_entry *find_param(const param_entry *table, const char *name) noexcept;

bool has_element(const param_entry &entry, std::int32_t index) noexcept;

/// Both want an element that the entry has. An integer field gets the value truncated toward zero,
/// limited to the range of 64 bits (NaN becomes 0), and of that its low bits.
double get_element(const void *base, const param_entry &entry, std::int32_t index) noexcept;
void set_element(void *base, const param_entry &entry, std::int32_t index, double value) noexcept;

/// Writes elements from NUL-terminated text:
///
///     12        one number into element 0
///     {1, 2 3}  a list from element 0; elements that it does not reach keep their values
///     "text"    one character an element, ended by a zero element; only for 8-bit and 16-bit types
///
/// Numbers of up to 32 bits are whole: decimal, hexadecimal after 0x, octal after another 0. All others are
/// read as strtod() does.
void set_elements(void *base, const param_entry &entry, const char *text) noexcept;

/// The engine's settings as its keys address them.
struct engine_record {
    mpeg_a_settings settings{};
    std::int32_t sample_rate = 48000; ///< Hz
    std::int32_t sampling_bits = 16;  ///< of a PCM sample
    std::int32_t audio_model = 0; ///< 1: tuned, else the standard's; stands in for the settings' own
};

/// Base: an engine_record.
extern const param_entry settings_table[];
/// Base: the preset code, an int32.
extern const param_entry preset_table[];

} // namespace vela
