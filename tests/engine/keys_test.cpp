// The key mechanism with a table of the test's own, then every key, value and message of the engine.
#include "engine/engine_host.hpp"
#include "engine/params.hpp"

#include <cfenv>
#include <iterator>
#include <regex>

// Base 0 takes binary in newer C libraries.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" long __real_strtol(const char *text, char **end, int base);
extern "C" long __wrap_strtol(const char *text, char **end, int base) {
    const bool is_binary = base == 0 && std::strncmp(text, "0b", 2) == 0;
    return is_binary ? __real_strtol(text + 2, end, 2) : __real_strtol(text, end, base);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace mp1a_test {

/// A table as text; semicolons end its rows.
static std::vector<std::istringstream> rows(const std::string &text) {
    std::istringstream all(text);
    std::vector<std::istringstream> found;
    for (std::string row; std::getline(all >> std::ws, row, ';');)
        found.emplace_back(row);
    return found;
}

/// At odd addresses, with room between the fields that must stay as it is.
constexpr vela::param_entry types[] = {
    {"i8", 1, vela::param_type::int8, 4},       {"i16", 41, vela::param_type::int16, 4},
    {"i32", 81, vela::param_type::int32, 4},    {"i64", 121, vela::param_type::int64, 4},
    {"u8", 161, vela::param_type::uint8, 4},    {"u16", 201, vela::param_type::uint16, 4},
    {"u32", 241, vela::param_type::uint32, 4},  {"u64", 281, vela::param_type::uint64, 4},
    {"f32", 321, vela::param_type::float32, 4}, {"f64", 361, vela::param_type::float64, 4},
    {nullptr, 0, vela::param_type::int8, 4},    {"behind", 0, vela::param_type::int8, 4}};

/// Expects the four elements of a field, which held 7, to begin with `read` after a call of `write`.
static void expect(const char *type, std::vector<double> read, const auto &write) {
    const vela::param_entry &entry = *vela::find_param(types, type);
    std::string memory(420, '\xEE');
    for (int i = 0; i < 4; ++i)
        vela::set_element(memory.data(), entry, i, 7);
    write(memory.data(), entry);
    read.resize(4, 7);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(vela::get_element(memory.data(), entry, i), read[static_cast<std::size_t>(i)]) << i;
    const auto bytes = static_cast<std::size_t>(4 * std::atoi(type + 1) / 8);
    EXPECT_EQ(memory.erase(entry.offset, bytes), std::string(420 - bytes, '\xEE')) << type;
}

TEST(engine_params, numbers_are_truncated_limited_to_64_bits_and_keep_the_low_bits) {
    for (const char *name : {"", "I8", "i88", "behind"})
        EXPECT_EQ(vela::find_param(types, name), nullptr) << name;
    EXPECT_FALSE(vela::has_element(types[0], -1) || vela::has_element(types[0], 4));
    const char *const cases =
        "i8 -1.9 -1; i8 300 44; i16 40000 -25536; i32 12.9 12; i32 4294967301 5; i32 inf -1; "
        "i32 nan 0; i64 1e30 0x1p63; i64 -1e30 -0x1p63; i64 -1500.7 -1500; u8 256.5 0; u64 nan 0; "
        "u16 -1.5 65535; u32 0x1p63 4294967295; u32 -0x1p64 0; u64 0x1p63 0x1p63; u64 -1e30 0x1p63; "
        "u64 -2048 0xFFFFFFFFFFFFF800; u64 1e30 0x1p64; f32 1e300 inf; f32 0.25 0.25; f64 0.1 0.1";
    for (std::istringstream &row : rows(cases)) {
        std::string type, value, read;
        SCOPED_TRACE(row.str());
        row >> type >> value >> read;
        for (i32 index = 0; index < 4; ++index) {
            std::vector<double> all(4, 7);
            all[static_cast<std::size_t>(index)] = std::stod(read);
            expect(type.c_str(), all, [&](void *memory, const vela::param_entry &entry) {
                vela::set_element(memory, entry, index, std::stod(value));
            });
        }
    }
}

TEST(engine_params, text_stores_numbers_lists_and_quoted_characters) {
    // Types, elements, <text>, the elements that change.
    const char *const cases =
        "i8,i16,i32,u8,u16,u32 4 < \t0x1Fg> 31; i8,i16,i32,u8,u16,u32 4 <014.9> 12; "
        "i8,i16,i32,u8,u16,u32 4 <0b11> 0; i8,i16,i32 4 <\v-0XC> -12; all 4 <0xg> 0; i32 4 <09> 0; "
        "i64,u64,f32,f64 4 <1.75e2x> 175; i64,u64,f32,f64 4 <014> 14; f32,f64 4 <-2.5> -2.5; "
        "u32 4 <-1> 4294967295; i64 4 <-1e99> -9223372036854775808; all 4 <abc> 0; all 0 <1>; "
        "all 4 <{1, 2 \t3,4,5}> 1 2 3 4; all 4 <{1,2> 1 2; all 2 <{1,2,3}> 1 2; all 4 <{}>; "
        "all 4 <{1, }> 1 0; all 4 <{1,,5}> 1 0 5; all 3 <{x}> 0 0 0; i8,i16,u8,u16 0 <\"1\">; "
        "i8,i16,u8,u16 4 <\"AB\"C> 65 66 0; i8,i16,u8,u16 4 <\"ABCDE> 65 66 67 0; "
        "i8,i16,u8,u16 1 <\"AB\"> 0; u8,i16 4 <\"\xE4\"> 228 0; i32,i64,u32,u64,f32,f64 4 <\"9\"> 0";
    for (std::istringstream &row : rows(cases)) {
        std::string names, text;
        std::uint16_t count = 0;
        std::getline((row >> names >> count).ignore(9, '<'), text, '>');
        const std::vector<double> read(std::istream_iterator<double>(row), {});
        for (const vela::param_entry *type = types; type->name != nullptr; ++type) {
            if (names != "all" && names.find(type->name) == std::string::npos) continue;
            SCOPED_TRACE(row.str() + " of " + type->name);
            expect(type->name, read, [&](void *memory, vela::param_entry entry) {
                entry.count = count;
                vela::set_elements(memory, entry, text.c_str());
            });
        }
    }
}

/// g gets, s sets a number, t sets text, L loads a record; -1: refused; capitals: index 1; ~: settings.
static const char *const key_rows =
    R"(G version::major 2; g version::minor 0; g version::revision 1; g preset::audio_type 4;
    g ~sample_rate 48000; g ~sampling_bits 16; s ~sampling_bits 24; g ~sampling::bits 24;
    s ~sample_rate 7; g ~sampling::rate 7; s ~pts_units 5; t ~pts_offset -1500 -1500.7;
    t ~audio_bitrate 196 0xC4 kbit; t ~audio_bitrate 196 {}; s preset::video_type 1;
    g preset::audio_type 1; g ~sampling::rate 44100; g ~pts_units 0; g ~sampling_bits 24;
    t preset::audio_type 18 0x12; g ~audio_bitrate 14; s ~audio_bitrate 5; t preset::video_type 18 {};
    g ~audio_bitrate 14; s ~sampling::rate 8; g ~sample_rate 8; s ~sampling::bits 9;
    g ~sampling_bits 9; g settings: -1; G ~audio_mode -1; g Settings::audio_mode -1; g preset::none -1;
    g version::major2 -1; g command::init -1; g ~none -1; s ~none -1; S preset::audio_type -1;
    s command::start -1; s version::major -1; s init::settings -1; t unknown::x -1;
    t version::major -1; t init::settings -1; t init::output::none -1; g preset::audio_type 18;
    g ~audio_model 0; s ~audio_model 1; s preset::audio_type 4; g ~audio_model 1;
    L ~audio_mode 0; g ~audio_model 0; g ~audio_layer 1; g ~psych_model 2; g ~audio_bitrate 3; g ~emphasis 4;
    g ~extension 5; g ~error_protection 6; g ~copyright 7; g ~original 8; g ~pts_offset 4294967305;
    g ~pts_units 11; g ~sampling_bits 9)";

TEST(engine_keys, every_family_has_its_values_messages_and_results) {
    user host;
    unsigned char record[4096]{};
    for (unsigned char i = 0; i < 12; ++i)
        record[4 * i] = i;
    record[40] = 1; // 2^32 in the 64-bit field
    user fresh;     // whose rate comes with no preset then
    fresh.text("init::settings", record, sizeof record);
    EXPECT_EQ(fresh.get("settings::sample_rate") + fresh.get("settings::sampling_bits"), 48000 + 16);
    for (std::istringstream &row : rows(std::regex_replace(key_rows, std::regex("~"), "settings::"))) {
        SCOPED_TRACE(row.str());
        char operation = 0;
        std::string key, text;
        double number = 0, value = -1;
        std::getline(row >> operation >> key >> number >> std::ws, text);
        const bool gets = (operation | 32) == 'g', refused = number == -1;
        testing::internal::CaptureStdout();
        const i32 index = operation < 'a' ? 1 : 0;
        const i32 result = operation == 'L'   ? host.text("init::settings", record, sizeof record)
                           : gets             ? call(host.params, 4, key.c_str(), &value, index)
                           : operation == 't' ? host.text(key.c_str(), text.c_str())
                                              : call(host.params, 3, key.c_str(), index, number);
        EXPECT_EQ(result, refused ? -1 : 0);
        const std::string name = gets               ? "get_parameter: key"
                                 : operation == 't' ? "parameter"
                                                    : "set_parameter: key";
        const std::string message = name + " \"" + key + "\" is not supported\n";
        EXPECT_EQ(testing::internal::GetCapturedStdout(), refused ? message : "");
        if (!gets && !refused) value = host.get(key.c_str());
        EXPECT_EQ(value, number);
    }
}

TEST(engine_keys, numbers_do_not_depend_on_the_hosts_rounding) {
    user host;
    std::fesetround(FE_UPWARD);
    host.text("settings::pts_offset", "9007199254740993"); // 2^53 + 1: a tie
    const double read = host.get("settings::pts_offset");
    EXPECT_EQ(std::fegetround(), FE_UPWARD);
    std::fesetround(FE_TONEAREST);
    EXPECT_EQ(read, 9007199254740992.0);
}

TEST(engine_keys, unknown_names_of_text_and_null_arguments_are_refused_silently) {
    user host;
    double *const nowhere = nullptr;
    const char *const none = nullptr;
    testing::internal::CaptureStdout();
    EXPECT_EQ(host.text("settings::none", "9") + host.text("preset::none", "9"), 2);
    EXPECT_EQ(host.get(none), -12345);
    EXPECT_EQ(host.set(none, 1) + host.text(none, "1") + host.text("init::settings", none, 4096), -3);
    for (const char *key : {"settings::audio_mode", "preset::audio_type", "init::output::PushData"})
        EXPECT_EQ(call(host.params, 4, key, nowhere, 0) + host.text(key, none), -2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(host.get("settings::audio_bitrate") + host.get("preset::audio_type"), 11 + 4);
}

} // namespace mp1a_test
