// The key mechanism with a table of the test's own: every type, counts above 1, lists, quoted text.
#include "engine/params.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace mp1a_test {
namespace {

using vela::param_type;

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double two_63 = 9223372036854775808.0, two_64 = 2 * two_63;

struct named_type {
    const char *name;
    param_type type;
    std::size_t width;
};
constexpr named_type types[] = {{"i8", param_type::int8, 1},     {"i16", param_type::int16, 2},
                                {"i32", param_type::int32, 4},   {"i64", param_type::int64, 8},
                                {"u8", param_type::uint8, 1},    {"u16", param_type::uint16, 2},
                                {"u32", param_type::uint32, 4},  {"u64", param_type::uint64, 8},
                                {"f32", param_type::float32, 4}, {"f64", param_type::float64, 8}};

/// One field of four elements a type, at odd addresses, with room between them that must stay as it is.
class field {
  public:
    field(const char *name, std::uint16_t count) {
        vela::param_entry table[11]{};
        for (std::size_t i = 0; i < 10; ++i) {
            table[i] = {types[i].name, static_cast<std::uint32_t>(1 + 40 * i), types[i].type, count};
        }
        const vela::param_entry *const found = vela::find_param(table, name);
        entry_ = *found;
        width_ = types[found - table].width;
        memory_.fill(std::byte{0xEE});
        for (int i = 0; i < 4; ++i)
            set(i, 7);
    }

    void set(int index, double value) { vela::set_element(memory_.data(), entry_, index, value); }
    double get(int index) const { return vela::get_element(memory_.data(), entry_, index); }
    void text(const char *value) { vela::set_elements(memory_.data(), entry_, value); }
    bool intact_around() const {
        for (std::size_t i = 0; i < memory_.size(); ++i) {
            const bool inside = i >= entry_.offset && i < entry_.offset + 4 * width_;
            if (!inside && memory_[i] != std::byte{0xEE}) return false;
        }
        return true;
    }

  private:
    vela::param_entry entry_;
    std::size_t width_;
    std::array<std::byte, 420> memory_;
};

TEST(param_tables, rows_are_found_by_exact_name_and_elements_by_index) {
    constexpr vela::param_entry table[] = {{"a", 0, param_type::int8, 2},
                                           {"a", 4, param_type::int8, 0},
                                           {nullptr, 0, param_type::int8, 0},
                                           {"behind", 0, param_type::int8, 1}};
    EXPECT_EQ(vela::find_param(table, "a"), table);
    for (const char *name : {"", "A", "ab", "behind"})
        EXPECT_EQ(vela::find_param(table, name), nullptr) << name;
    EXPECT_TRUE(vela::has_element(table[0], 0) && vela::has_element(table[0], 1));
    EXPECT_FALSE(vela::has_element(table[0], 2) || vela::has_element(table[0], -1));
    EXPECT_FALSE(vela::has_element(table[1], 0));
}

TEST(param_tables, numbers_are_truncated_limited_to_64_bits_and_keep_the_low_bits) {
    const struct {
        const char *name;
        double value, read;
    } cases[] = {{"i8", -1.9, -1},       {"i8", 300, 44},          {"i8", 128, -128},
                 {"i8", 1e30, -1},       {"i16", 40000, -25536},   {"i16", -inf, 0},
                 {"i32", 12.9, 12},      {"i32", 4294967301., 5},  {"i32", 3e9, -1294967296},
                 {"i32", inf, -1},       {"i32", nan, 0},          {"i64", -1500.7, -1500},
                 {"i64", 1e30, two_63},  {"i64", -1e30, -two_63},  {"i64", nan, 0},
                 {"u8", -1, 255},        {"u8", 256.5, 0},         {"u16", 65537, 1},
                 {"u16", -0.9, 0},       {"u32", -1, 4294967295.}, {"u32", two_63, 4294967295.},
                 {"u32", -two_64, 0},    {"u64", two_63, two_63},  {"u64", -2048, two_64 - 2048},
                 {"u64", 1e30, two_64},  {"u64", -1e30, two_63},   {"u64", nan, 0},
                 {"f32", 0.1, 0.1F},     {"f32", 1e300, inf},      {"f64", 0.1, 0.1},
                 {"f64", -1e300, -1e300}};
    for (const auto &[name, value, read] : cases) {
        for (int index = 0; index < 4; ++index) {
            field subject(name, 4);
            subject.set(index, value);
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ(subject.get(i), i == index ? read : 7) << name << ' ' << value << ' ' << i;
            EXPECT_TRUE(subject.intact_around()) << name;
        }
    }
}

TEST(param_tables, text_stores_numbers_lists_and_quoted_characters) {
    const char *const all = "i8 i16 i32 i64 u8 u16 u32 u64 f32 f64";
    const char *const small = "i8 i16 i32 u8 u16 u32", *const quotable = "i8 i16 u8 u16";
    const struct {
        const char *names; // blank between them
        std::uint16_t count;
        const char *text;
        std::array<double, 4> read;
    } cases[] = {{small, 4, " \t0x1Fg", {31, 7, 7, 7}},
                 {small, 4, "014.9", {12, 7, 7, 7}},
                 {"i64 u64 f32 f64", 4, "014", {14, 7, 7, 7}},
                 {"i64 u64", 4, "1.75e2x", {175, 7, 7, 7}},
                 {"f32 f64", 4, "-2.5", {-2.5, 7, 7, 7}},
                 {"f32", 4, "0.1", {0.1F, 7, 7, 7}},
                 {all, 4, "", {0, 7, 7, 7}},
                 {all, 4, "abc", {0, 7, 7, 7}},
                 {"u32", 4, "-1", {4294967295., 7, 7, 7}},
                 {"i8", 4, "99999999999999999999", {-1, 7, 7, 7}}, // 2^63 - 1 at most
                 {"i64", 4, "-1e99", {-two_63, 7, 7, 7}},
                 {"u64", 4, "-2048", {two_64 - 2048, 7, 7, 7}},
                 {all, 4, "{1, 2 \t3,4,5}", {1, 2, 3, 4}},
                 {all, 4, "{1,2", {1, 2, 7, 7}},
                 {all, 2, "{1,2,3}", {1, 2, 7, 7}},
                 {all, 4, "{1,}", {1, 7, 7, 7}},
                 {all, 4, "{1, }", {1, 0, 7, 7}}, // a blank is no end
                 {all, 4, "{,5}", {0, 5, 7, 7}},
                 {all, 4, "{1,,5}", {1, 0, 5, 7}},
                 {all, 3, "{x}", {0, 0, 0, 7}}, // nothing moves the reading on
                 {all, 4, "{}", {7, 7, 7, 7}},
                 {all, 4, "{", {7, 7, 7, 7}},
                 {all, 0, "{1}", {7, 7, 7, 7}},
                 {all, 0, "1", {7, 7, 7, 7}},
                 {quotable, 4, "\"AB\"C", {65, 66, 0, 7}},
                 {quotable, 4, "\"AB", {65, 66, 0, 7}},
                 {quotable, 4, "\"ABCDE\"", {65, 66, 67, 0}},
                 {quotable, 4, "\"\"", {0, 7, 7, 7}},
                 {quotable, 1, "\"AB\"", {0, 7, 7, 7}},
                 {quotable, 0, "\"AB\"", {7, 7, 7, 7}},
                 {"u8 i16 u16", 4, "\"\xE4\"", {0xE4, 0, 7, 7}},
                 {"i32 i64 u32 u64 f32 f64", 4, "\"9\"", {0, 7, 7, 7}}};
    for (const auto &[names, count, text, read] : cases) {
        for (const named_type &type : types) {
            if (std::strstr(names, type.name) == nullptr) continue;
            field subject(type.name, count);
            subject.text(text);
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ(subject.get(i), read[static_cast<std::size_t>(i)])
                    << type.name << " <" << text << "> " << i;
            EXPECT_TRUE(subject.intact_around()) << type.name << ' ' << text;
        }
    }
}

} // namespace
} // namespace mp1a_test
