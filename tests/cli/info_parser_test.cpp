// The rules by which every other test judges a stream: one malformed frame a rule, written by hand.
#include "parser/tag.hpp"
#include "velainfo/frame_difference.hpp"
#include "workbench.hpp"
#include "written_frame.hpp"

#include <sstream>

namespace velaenc_test {
namespace {

/// Fields as "value/bits", the value in hexadecimal, "*n" for n of them.
bytes frame_of(const std::string &fields, std::size_t size) {
    std::string bits;
    std::istringstream list(fields);
    for (std::string field; list >> field;) {
        unsigned value = 0;
        int n = 0, times = 1;
        EXPECT_GE(std::sscanf(field.c_str(), "%x/%d*%d", &value, &n, &times), 2) << field;
        for (int i = 0; i < times; ++i)
            put_bits(bits, static_cast<int>(value), n);
    }
    bits.resize(8 * size, '0');
    return packed(bits);
}

std::string twelve(const std::string &fields) {
    std::string text;
    for (int i = 0; i < 12; ++i)
        text += fields + " ";
    return text;
}

// Mono, 48 kHz, 32 kbit/s: 32 bytes in Layer I, 96 in Layer II with the eight subbands of Table 3-B.2c.
const std::string layer1 = "FFFF/16 14C0/16 ", layer2 = "FFFD/16 14C0/16 ";
/// Layer I: subbands 30 and 31 have 3 and 4 bits a sample, which fills the frame exactly.
const std::string full1 = "0/4*30 2/4 3/4 ";
/// Layer II: one quantizer in subband 0, one scale factor.
std::string only(int allocation, const std::string &words) {
    return layer2 + std::to_string(allocation) + "/4 0/4 0/3*6 2/2 3E/6 " + words;
}

TEST(info_parser, every_rule_has_its_own_verdict) {
    using namespace tools;
    const struct {
        const char *rule;
        std::string fields;
        std::size_t size;
        unsigned faults, remarks = 0;
    } cases[] = {
        {"Layer I, filled to the last bit", layer1 + full1 + "0/6 3E/6 " + twelve("6/3 E/4"), 32, 0},
        {"Layer II", only(3, twelve("2D8/10")), 96, 0},
        {"a byte less", layer2, 95, fault_length},
        {"a byte more", layer2, 97, fault_length},
        {"no sync", "FFED/16 14C0/16", 96, fault_length},
        {"reserved emphasis", "FFFD/16 14C2/16", 96, fault_emphasis},
        {"the other emphases", "FFFD/16 14C3/16", 96, 0},
        {"allocation 15 of Layer I", layer1 + "0/4*31 F/4", 32, fault_allocation},
        {"CRC of Layer I", "FFFE/16 14C0/16 10FB/16 0/4*30 2/4 1/4", 32, 0},
        {"CRC of Layer II", "FFFC/16 14C0/16 B023/16 1/4 0/4 0/3*6 2/2 3E/6", 96, 0},
        {"its last bit", "FFFC/16 14C0/16 B022/16 1/4 0/4 0/3*6 2/2 3E/6", 96, fault_crc},
        {"a bit of the header", "FFFC/16 14C1/16 B023/16 1/4 0/4 0/3*6 2/2 3E/6", 96, fault_crc},
        {"a bit of the scfsi", "FFFC/16 14C0/16 B023/16 1/4 0/4 0/3*6 3/2 3E/6", 96, fault_crc},
        {"scale factors are not protected", "FFFC/16 14C0/16 B023/16 1/4 0/4 0/3*6 2/2 0/6", 96, 0},
        {"scale factor 63, Layer I", layer1 + full1 + "0/6 3F/6", 32, fault_scalefactor},
        {"scale factor 63 as the third", layer2 + "1/4 0/4 0/3*6 0/2 0/6*2 3F/6", 96,
         fault_scalefactor},
        {"a bit more than there is", layer1 + "0/4*30 3/4 3/4", 32, fault_overrun},
        {"code of all ones, Layer I", layer1 + full1 + "0/6 0/6 7/3", 32, fault_code},
        {"the last code", layer1 + full1 + "0/6 0/6 0/7*11 0/3 F/4", 32, fault_code},
        {"a granule's codes", only(4, twelve("E/4*3")), 96, 0},
        {"its first", only(4, "F/4 E/4 E/4"), 96, fault_code},
        {"its second", only(4, "E/4 F/4 E/4"), 96, fault_code},
        {"its third", only(4, "E/4 E/4 F/4"), 96, fault_code},
        {"groups of 3 steps", only(1, twelve("1A/5")), 96, 0},
        {"27 of them", only(1, "0/5*11 1B/5"), 96, fault_group},
        {"groups of 5 steps", only(2, twelve("7C/7")), 96, 0},
        {"125 of them", only(2, "7D/7"), 96, fault_group},
        {"729 of 9 steps", only(3, "0/10*11 2D9/10"), 96, fault_group},
        {"mode extension in mono", "FFFD/16 14D0/16", 96, 0, remark_extension},
        {"mode extension in joint stereo", "FFFD/16 8450/16", 384, 0},
        {"padding of whole frames", "FFFD/16 16C0/16", 97, 0, remark_padding},
        {"padding of others", "FFFD/16 12C0/16", 105, 0},
        {"a bit behind the samples", only(1, "0/5*12 0/32*15 0/20 1/1"), 96, 0, remark_ancillary},
        {"the frame's last bit", layer2 + "0/32*22 0/31 1/1", 96, 0, remark_ancillary},
        {"several", "FFFD/16 14C2/16 1/4 0/4 0/3*6 2/2 3F/6 1F/5", 96,
         fault_emphasis | fault_scalefactor | fault_group}};
    sample_codes codes;
    for (const auto &[rule, fields, size, faults, remarks] : cases) {
        const auto frame = parse_frame(frame_of(fields, size));
        EXPECT_TRUE(frame.faults == faults && frame.remarks == remarks)
            << rule << ": " << frame.faults << " " << frame.remarks;
        EXPECT_EQ(parse_frame(frame_of(fields, size), &codes).faults, faults) << rule;
        EXPECT_EQ(frame.broken_rule().empty(), (faults | remarks) == 0) << rule;
    }
    EXPECT_TRUE(fault_text(0).empty() && remark_text(0).empty());
}

TEST(info_parser, layer_ii_has_bitrates_for_mono_only_and_for_two_channels_only) {
    // 2.4.2.3, index 1 to 14; the lower rates of 13818-3 and Layer I have no such rule.
    const std::string mono_only = "11101000000000", pairs_only = "00000000001111";
    for (int i = 0; i < 14 * 4 * 2 * 2; ++i) {
        written_frame frame{.version = 1 + i % 2, .layer = 1 + i / 2 % 2};
        frame.bitrate_index = 1 + i / 4 % 14, frame.mode = i / 56, frame.rate_index = 1;
        const auto &list = frame.mode == 3 ? pairs_only : mono_only;
        const bool forbidden = frame.version == 1 && frame.layer == 2
                               && list[static_cast<std::size_t>(frame.bitrate_index) - 1] == '1';
        const auto parsed = tools::parse_frame(frame.write());
        EXPECT_TRUE((parsed.faults == 0 || frame.layer == 1)
                    && parsed.remarks == (forbidden ? unsigned{tools::remark_bitrate} : 0u))
            << i << ": " << parsed.faults << " " << parsed.remarks;
    }
    for (const char *none : {"FFED/16 14C0/16", "FFF9/16 14C0/16", "FFFB/16 14C0/16", "FFFD/16 04C0/16",
                             "FFFD/16 F4C0/16", "FFFD/16 1CC0/16", "FEFD/16 14C0/16"})
        EXPECT_FALSE(tools::read_header(frame_of(none, 4))) << none;
    EXPECT_FALSE(tools::read_header(frame_of(layer2, 3)));
}

TEST(info_parser, frames_that_differ_do_so_in_a_field_at_its_first_place) {
    const std::string mono = "FFFD/16 14C0/16", crc = "FFFC/16 14C0/16 ",
                      alone = " 1/4 0/4 0/3*6 2/2 3E/6", parts = layer2 + "1/4 0/4 0/3*6 0/2 0/6*2 ";
    const struct {
        std::string first, second;
        const char *expected;
        std::size_t first_size = 96, second_size = 96;
    } cases[] = {
        {mono, "FFFD/16 15C0/16", "private: 0 1;"},
        {mono, "FFFD/16 14DD/16",
         "mode extension: 0 1;copyright: 0 1;original: 0 1;emphasis: none 50/15;"},
        {mono, "FFFD/16 2640/16", "kbps: 32 48;padding: 0 1;mode: mono joint stereo;", 96, 145},
        {mono, "FFFF/16 14C0/16", "layer: II I;", 96, 32},
        {mono, "FFF5/16 14C0/16", "version: 1 2;kbps: 32 8;rate: 48000 24000;", 96, 48},
        {layer2 + alone, crc + "B023/16" + alone, "crc: 0 1;"},
        {crc + "B023/16" + alone, crc + "B022/16" + alone, "CRC: 45091 45090;"},
        {only(1, ""), only(2, ""), "allocation, subband 0: 3 5;"},
        {only(3, "2D8/10"), only(4, "E/4 D/4 D/4"), "allocation, subband 0: 9 15;"},
        {"FFFD/16 8400/16", "FFFD/16 8400/16 0/4 2/4", "allocation, right, subband 0: 0 7;", 384, 384},
        {only(1, ""), layer2 + "1/4 0/4 0/3*6 1/2 3E/6*2", "scfsi, subband 0: 2 1;"},
        {parts + "1/6", parts + "2/6 1/5",
         "scale factors, subband 0, part 2: 1 2;samples, subband 0, sample 0: 0 1;"},
        {only(4, "E/4 E/4 E/4"), only(4, "E/4 D/4 D/4"), "samples, subband 0, sample 1: 14 13;"},
        {only(4, "F/4 E/4 E/4"), only(3, ""), "damage: forbidden code none;"},
        {only(1, ""), only(1, "0/5*12 0/32*15 0/20 1/1"), "ancillary, bit 500: 0 1;"},
        {only(1, ""), only(1, "0/5*12 1/1"), "ancillary, bit 0: 0 1;"}};
    for (const auto &[first, second, expected, first_size, second_size] : cases) {
        const bytes both[] = {frame_of(first, first_size), frame_of(second, second_size)};
        tools::frame_contents contents[2];
        for (int i = 0; i < 2; ++i) {
            contents[i].bytes = both[i];
            contents[i].frame = tools::parse_frame(both[i], &contents[i].codes);
        }
        std::string said;
        for (const auto &found : tools::differences_of(contents[0], contents[1]))
            said += found.field + (found.place.empty() ? "" : ", " + found.place) + ": "
                    + found.values[0] + " " + found.values[1] + ";";
        EXPECT_EQ(said, expected) << second;
    }
}

TEST(info_parser, tags_end_where_they_say) {
    const auto ape = [](int flags) {
        return "APETAGEX" + little_endian(2000, 4) + little_endian(0x04030201, 4) + std::string(7, '\0')
               + static_cast<char>(flags) + std::string(8, '\0');
    };
    const std::pair<std::string, std::uint64_t> tags[] = {
        {{"ID3\4\0\0\1\2\3\4", 10}, 10 + (1 << 21) + (2 << 14) + (3 << 7) + 4},
        {{"ID3\4\0\x10\0\0\0\x7F", 10}, 20 + 127}, // with a footer
        {{"ID3\xFF\0\0\0\0\0\1", 10}, 0},
        {{"ID3\4\xFF\0\0\0\0\1", 10}, 0},
        {{"ID3\4\0\0\0\0\0\x80", 10}, 0},
        {{"ID3\4\0\0\0\0\0", 9}, 0},
        {"TAG", 128},
        {"TAGx", 128},
        {"TAG+", 227},
        {ape(0xA0), 32 + 0x04030201},
        {ape(0x80), 0}, // a footer
        {ape(0xA0).substr(0, 31), 0},
        {"LYRICSBEGIN LYRICSEND LYRICS200", 21},
        {"LYRICSBEGIN LYRICS200 LYRICSEND", 21},
        {"LYRICSBEGIN LYRICS", 0},
        {"LYRICSBEGI", 0}};
    for (const auto &[text, length] : tags) {
        const auto tag =
            tools::read_tag({reinterpret_cast<const std::uint8_t *>(text.data()), text.size()});
        EXPECT_EQ(tag ? tag->length : 0, length) << text << text.size();
    }
}

/// What the scanner makes of a stream: F for a frame, a dot for a gap with its length.
std::string pieces_of(const std::string &stream) {
    std::string found;
    for_each_piece(stream, [&](const tools::stream_piece &piece) {
        found += piece.is_frame ? "F" : "." + std::to_string(piece.length);
    });
    return found;
}

TEST(info_parser, a_frame_is_found_where_so_many_others_say_so) {
    // a: 32 bytes of Layer I; A: the same at 64 kbit/s; b: 48 bytes at 32 kHz; h: half an a; .: a byte.
    const std::string a = {'\xFF', '\xFF', '\x14', '\xC0'}, b = {'\xFF', '\xFF', '\x18', '\xC0'},
                      more = {'\xFF', '\xFF', '\x24', '\xC0'};
    const std::pair<const char *, const char *> cases[] = {
        {"aaa", "FFF"},          {"a", "F"},
        {"a.", ".33"},           {"aa.", "FF.1"},
        {".a", ".33"},           {".aa", ".1FF"},
        {".aa.", ".66"},         {".aaa.", ".1FFF.1"},
        {"aa..aa.", "FF.2FF.1"}, {"aa.a.", "FF.34"},
        {"aa.a", "FF.1F"},       {"aab", "FF.48"},
        {"aabbb.", "FF.145"},    {"aabbbb.", "FFFFFF.1"},
        {"aabb", "FFFF"},        {"aAAa", "FFFF"},
        {"aaha", "FF.16F"},      {"aahaa", "FF.16FF"},
        {"aah", "FF.16"},        {"haaaa", ".16FFFF"}};
    for (const auto &[letters, expected] : cases) {
        std::string stream;
        for (const char letter : std::string(letters))
            stream += letter == '.'   ? std::string(1, 'x')
                      : letter == 'b' ? b + std::string(44, '\0')
                      : letter == 'A' ? more + std::string(60, '\0')
                                      : a + std::string(letter == 'h' ? 12 : 28, '\0');
        EXPECT_EQ(pieces_of(stream), expected) << letters;
    }
}

} // namespace
} // namespace velaenc_test
