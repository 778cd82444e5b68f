#include "engine/params.hpp"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace vela {

namespace {

/// Calls `f` with a value of the element's type.
template <class Function>
auto with_type(param_type type, Function f) noexcept {
    switch (type) {
    case param_type::int8:
        return f(std::int8_t{});
    case param_type::int16:
        return f(std::int16_t{});
    case param_type::int32:
        return f(std::int32_t{});
    case param_type::int64:
        return f(std::int64_t{});
    case param_type::uint8:
        return f(std::uint8_t{});
    case param_type::uint16:
        return f(std::uint16_t{});
    case param_type::uint32:
        return f(std::uint32_t{});
    case param_type::uint64:
        return f(std::uint64_t{});
    case param_type::float32:
        return f(float{});
    case param_type::float64:
        break;
    }
    return f(double{});
}

template <class T>
T from_double(double value) noexcept {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        // Only the widest unsigned type has a use for values from 2^63 on; it takes negative ones too.
        if (std::isnan(value)) return 0;
        if (value < -0x1p63) return static_cast<T>(INT64_MIN);
        if (value < 0x1p63) return static_cast<T>(static_cast<std::int64_t>(value));
        if constexpr (!std::is_same_v<T, std::uint64_t>) return static_cast<T>(INT64_MAX);
        return value < 0x1p64 ? static_cast<T>(value) : static_cast<T>(UINT64_MAX);
    }
}

/// Base 0 of strtol() as it always was; newer C libraries take "0b11" for binary.
int base_of(const char *text) noexcept {
    text += std::strspn(text, " \t\n\v\f\r");
    text += *text == '+' || *text == '-';
    if (*text != '0') return 10;
    return text[1] == 'x' || text[1] == 'X' ? 16 : 8;
}

/// @param end  receives the position behind the number, or `text` when there is none
template <class T>
T read_number(const char *text, const char *&end) noexcept {
    char *behind = nullptr;
    T value;
    if constexpr (std::is_integral_v<T> && sizeof(T) < 8) {
        value = static_cast<T>(std::strtol(text, &behind, base_of(text)));
    } else {
        value = from_double<T>(std::strtod(text, &behind));
    }
    end = behind;
    return value;
}

/// The elements of one field. Records are packed, so elements may lie at any address.
template <class T>
struct elements {
    std::byte *first;
    std::size_t count;

    void store(std::size_t index, T value) const noexcept {
        std::memcpy(first + index * sizeof(T), &value, sizeof(T));
    }

    /// @param text  what follows the opening brace
    void store_list(const char *text) const noexcept {
        for (std::size_t i = 0; i < count && *text != '\0' && *text != '}'; ++i) {
            store(i, read_number<T>(text, text));
            while (*text == ' ' || *text == '\t')
                ++text;
            if (*text == ',') ++text;
        }
    }

    /// @param text  what follows the opening quote
    void store_quoted(const char *text) const noexcept {
        std::size_t i = 0;
        for (; i + 1 < count && *text != '\0' && *text != '"'; ++i)
            store(i, static_cast<T>(static_cast<unsigned char>(*text++)));
        store(i, T{});
    }

    void store_text(const char *text) const noexcept {
        if (count == 0) return;
        if (*text == '{') return store_list(text + 1);
        if constexpr (std::is_integral_v<T> && sizeof(T) <= 2) {
            if (*text == '"') return store_quoted(text + 1);
        }
        store(0, read_number<T>(text, text));
    }
};

} // namespace

const param_entry *find_param(const param_entry *table, const char *name) noexcept {
    for (; table->name != nullptr; ++table) {
        if (std::strcmp(table->name, name) == 0) return table;
    }
    return nullptr;
}

bool has_element(const param_entry &entry, std::int32_t index) noexcept {
    return index >= 0 && index < entry.count;
}

double get_element(const void *base, const param_entry &entry, std::int32_t index) noexcept {
    const auto *const first = static_cast<const std::byte *>(base) + entry.offset;
    return with_type(entry.type, [&]<class T>(T value) noexcept {
        std::memcpy(&value, first + static_cast<std::size_t>(index) * sizeof(T), sizeof(T));
        return static_cast<double>(value);
    });
}

void set_element(void *base, const param_entry &entry, std::int32_t index, double value) noexcept {
    auto *const first = static_cast<std::byte *>(base) + entry.offset;
    with_type(entry.type, [&]<class T>(T) noexcept {
        elements<T>{first, entry.count}.store(static_cast<std::size_t>(index), from_double<T>(value));
    });
}

void set_elements(void *base, const param_entry &entry, const char *text) noexcept {
    auto *const first = static_cast<std::byte *>(base) + entry.offset;
    with_type(entry.type, [&]<class T>(T) noexcept {
        elements<T>{first, entry.count}.store_text(text);
    });
}

namespace {

constexpr std::uint32_t in_settings(std::size_t offset) noexcept {
    return static_cast<std::uint32_t>(offsetof(engine_record, settings) + offset);
}

constexpr std::uint32_t sample_rate_offset = offsetof(engine_record, sample_rate);
constexpr std::uint32_t sampling_bits_offset = offsetof(engine_record, sampling_bits);

} // namespace

constexpr param_entry settings_table[] = {
    {"audio_mode", in_settings(offsetof(mpeg_a_settings, audio_mode)), param_type::int32, 1},
    {"audio_layer", in_settings(offsetof(mpeg_a_settings, audio_layer)), param_type::int32, 1},
    {"psych_model", in_settings(offsetof(mpeg_a_settings, psych_model)), param_type::int32, 1},
    {"audio_bitrate", in_settings(offsetof(mpeg_a_settings, audio_bitrate)), param_type::int32, 1},
    {"emphasis", in_settings(offsetof(mpeg_a_settings, emphasis)), param_type::int32, 1},
    {"extension", in_settings(offsetof(mpeg_a_settings, extension)), param_type::int32, 1},
    {"error_protection", in_settings(offsetof(mpeg_a_settings, error_protection)), param_type::int32,
     1},
    {"copyright", in_settings(offsetof(mpeg_a_settings, copyright)), param_type::int32, 1},
    {"original", in_settings(offsetof(mpeg_a_settings, original)), param_type::int32, 1},
    {"pts_offset", in_settings(offsetof(mpeg_a_settings, pts_offset)), param_type::int64, 1},
    {"pts_units", in_settings(offsetof(mpeg_a_settings, pts_units)), param_type::int32, 1},
    {"sample_rate", sample_rate_offset, param_type::int32, 1},
    {"sampling::rate", sample_rate_offset, param_type::int32, 1},
    {"sampling_bits", sampling_bits_offset, param_type::int32, 1},
    {"sampling::bits", sampling_bits_offset, param_type::int32, 1},
    {"audio_model", offsetof(engine_record, audio_model), param_type::int32, 1},
    {nullptr, 0, param_type::int8, 0},
};

constexpr param_entry preset_table[] = {
    {"audio_type", 0, param_type::int32, 1},
    {"video_type", 0, param_type::int32, 1},
    {nullptr, 0, param_type::int8, 0},
};

} // namespace vela
