// Every field that velainfo tells of a stream, against its frames one by one and other programs.
#include "info_workbench.hpp"
#include "velainfo/synthesis.hpp"

#include <cmath>
#include <sstream>

namespace velaenc_test {
namespace {

/// Numbers to six digits behind the point.
nlohmann::json rounded(nlohmann::json value) {
    if (value.is_structured())
        for (auto &part : value)
            part = rounded(part);
    return value.is_number_float() ? nlohmann::json(std::round(value.get<double>() * 1e6) / 1e6)
                                   : value;
}

/// What --json says of a stream, as its frames are.
struct expected_report {
    nlohmann::json frames = nlohmann::json::array(), bits{{"ancillary", 0}, {"unused", 0}};
    std::map<std::string, std::map<nlohmann::json, int>> counts;
    std::map<int, int> bounds;
    int scfsi[4] = {}, bytes = 0;
    std::size_t sblimit = 0;
    double sample_bits[2][32] = {};

    void add(const tools::parsed_frame &f) {
        const char *modes[] = {"stereo", "joint stereo", "dual channel", "mono"};
        const char *emphases[] = {"none", "50/15", "reserved", "j17"};
        const nlohmann::json header{{"version", f.version},
                                    {"layer", f.layer},
                                    {"crc", f.crc == 1},
                                    {"kbps", f.kbps},
                                    {"rate", f.rate},
                                    {"private", f.private_bit == 1},
                                    {"mode", modes[f.mode]},
                                    {"copyright", f.copyright == 1},
                                    {"original", f.original == 1},
                                    {"emphasis", emphases[f.emphasis]}};
        for (const auto &[name, value] : header.items())
            ++counts[name][value];
        const bool is_ancillary = (f.remarks & tools::remark_ancillary) != 0;
        const nlohmann::json here{{"header", 32},
                                  {"crc", 16 * f.crc},
                                  {"allocation", f.bits.allocation},
                                  {"scfsi", f.bits.scfsi},
                                  {"scalefactors", f.bits.scalefactors},
                                  {"samples", f.bits.samples},
                                  {"rest", f.bits.rest}};
        for (const auto &[name, count] : here.items()) {
            auto &sum = bits[name != "rest" ? name : is_ancillary ? "ancillary" : "unused"];
            sum = count.get<int>() + (sum.is_null() ? 0 : sum.get<int>());
        }
        nlohmann::json allocation, factors;
        for (int ch = 0; ch < f.channels(); ++ch) {
            allocation.push_back(std::vector(f.allocation[ch], f.allocation[ch] + f.sblimit));
            factors.push_back(nlohmann::json::array());
            for (int part = 0; part < f.parts; ++part)
                factors.back().push_back(
                    std::vector(f.scalefactor[ch][part], f.scalefactor[ch][part] + f.sblimit));
            for (int sb = 0; sb < f.sblimit; ++sb) {
                const int steps = f.steps[ch][sb];
                if (steps == 0) continue;
                const double grouped = steps == 3 ? 5 : steps == 5 ? 7 : steps == 9 ? 10 : 0;
                sample_bits[ch][sb] += f.layer == 2 && grouped > 0 ? grouped / 3 : std::log2(steps + 1);
                if (f.layer == 2) ++scfsi[f.scfsi[ch][sb]];
            }
        }
        nlohmann::json frame{
            {"frame", frames.size()},   {"offset", bytes},         {"bytes", f.bytes()},
            {"seconds", seconds(f)},    {"kbps", f.kbps},          {"padding", f.padding},
            {"mode", modes[f.mode]},    {"bound", f.bound},        {"bits", here},
            {"allocation", allocation}, {"scalefactors", factors}, {"faults", nlohmann::json::array()}};
        if (f.crc == 1) frame["crc_right"] = true;
        frames.push_back(frame);
        if (f.mode == 1) ++bounds[f.bound];
        bytes += f.bytes();
        sblimit = std::max(sblimit, static_cast<std::size_t>(f.sblimit));
    }

    double seconds(const tools::parsed_frame &any) const {
        return (any.layer == 1 ? 384.0 : 1152.0) * static_cast<double>(frames.size()) / any.rate;
    }

    nlohmann::json summary(const tools::parsed_frame &any) const {
        nlohmann::json header, allocation, list = nlohmann::json::array();
        for (const auto &[name, values] : counts) {
            header[name] = {{"constant", values.size() == 1}, {"counts", nlohmann::json::array()}};
            for (const auto &[value, count] : values)
                header[name]["counts"].push_back({{"value", value}, {"frames", count}});
            std::sort(header[name]["counts"].begin(), header[name]["counts"].end());
        }
        for (std::size_t i = 0; i < static_cast<std::size_t>(any.channels()) * sblimit; ++i)
            allocation[i / sblimit].push_back(sample_bits[i / sblimit][i % sblimit]
                                              / static_cast<double>(frames.size()));
        for (const auto &[bound, count] : bounds)
            list.push_back({{"bound", bound}, {"frames", count}});
        return {{"bytes", bytes},
                {"frames", frames.size()},
                {"seconds", seconds(any)},
                {"average_kbps", bytes / seconds(any) / 125},
                {"header", header},
                {"crc", {{"right", any.crc == 1 ? frames.size() : 0}, {"wrong", 0}}},
                {"bounds", list},
                {"bits", bits},
                {"scfsi", scfsi},
                {"allocation", allocation},
                {"event_count", 0}};
    }
};

/// The sound of a stream by the parser and the synthesis here, interleaved.
std::vector<float> synthesized(const std::string &stream) {
    std::vector<float> sound;
    tools::synthesis_filterbank banks[2];
    for_each_piece(stream, [&](const tools::stream_piece &piece) {
        tools::sample_codes codes;
        tools::frame_subbands subbands;
        const auto frame = tools::parse_frame(piece.bytes, &codes);
        EXPECT_EQ(frame.faults, 0u) << tools::fault_text(frame.faults);
        tools::requantize(frame, codes, subbands);
        for (int step = 0; step < 12 * frame.parts; ++step) {
            float out[2][32];
            for (int ch = 0; ch < frame.channels(); ++ch)
                banks[ch].step(subbands[ch][step], out[ch]);
            for (int k = 0; k < 32 * frame.channels(); ++k)
                sound.push_back(out[k % frame.channels()][k / frame.channels()]);
        }
    });
    return sound;
}

TEST_F(info_test, every_field_is_reported_as_it_is_in_the_frames_and_other_programs_agree) {
    std::vector<std::string> streams;
    for (const std::string rate : {"44100", "48000", "32000"})
        for (const std::string layer : {"1", "2 --crc"}) {
            const std::string how = "48000.wav --force --to-rate " + rate + " --layer " + layer;
            // Two frames of one header come first: ffmpeg looks for them.
            streams.push_back(encoded(how + " --mode dual --bitrate 384 --private 1 --emphasis j17")
                              + encoded(how + " --mode joint --bitrate 128 --copyright 1")
                              + encoded(how + " --mode stereo --bitrate 192 --original 1"));
            streams.push_back(encoded(how + " --mode mono --bitrate 192 --emphasis 50/15")
                              + encoded(how + " --mode mono --bitrate 96"));
        }
    for (const std::string how :
         {"22050 -ac 1 -b:a 64k", "24000 -ac 2 -b:a 160k", "16000 -ac 2 -b:a 32k"})
        streams.push_back(run("ffmpeg -v error -i 48000.wav -f mp2 -ar " + how + " -").out);
    for (std::string &stream : streams) {
        // Some frames with unused bits get ancillary data.
        std::vector<std::size_t> ends;
        for_each_piece(stream, [&](const tools::stream_piece &piece) {
            if (piece.offset % 5 == 0 && tools::parse_frame(piece.bytes).bits.rest > 0)
                ends.push_back(piece.offset + piece.length - 1);
        });
        for (const std::size_t last : ends)
            stream[last] |= 1;
        tools::parsed_frame f{};
        expected_report expected;
        for_each_piece(stream, [&](const tools::stream_piece &piece) {
            expected.add(f = tools::parse_frame(piece.bytes));
        });
        SCOPED_TRACE(testing::PrintToString(std::tuple{f.version, f.layer, f.rate, f.mode}));
        put("x.mp2", stream);
        std::istringstream lines(run("velainfo --json --frames x.mp2").out);
        std::string line;
        for (const auto &frame : expected.frames) {
            auto said = rounded(parsed((std::getline(lines, line), line)));
            said.erase("file");
            ASSERT_EQ(said, rounded(frame));
        }
        const auto said = rounded(parsed((std::getline(lines, line), line)));
        const auto summary = rounded(expected.summary(f));
        for (const auto &[name, value] : summary.items()) {
            auto compared = said[name];
            if (name == "header") {
                for (auto &field : compared) {
                    field.erase("value");
                    std::sort(field["counts"].begin(), field["counts"].end());
                }
            }
            EXPECT_EQ(compared, value) << name;
        }
        // ffprobe: where its packets are; ffmpeg: what is in them.
        const auto packets =
            shell("ffprobe -v error -f mp3 -show_entries packet=pos,size -of csv=p=0 x.mp2").out;
        std::string positions;
        for (const auto &frame : expected.frames)
            positions += frame["bytes"].dump() + "," + frame["offset"].dump() + "\n";
        EXPECT_EQ(packets, positions);
        const auto decoded = heard("x.mp2"), here = synthesized(stream);
        ASSERT_EQ(decoded.size(), here.size());
        float worst = 0, loudest = 0;
        for (std::size_t k = 0; k < here.size(); ++k) {
            worst = std::max(worst, std::fabs(decoded[k] - std::clamp(here[k], -1.0F, 1.0F)));
            loudest = std::max(loudest, std::fabs(decoded[k]));
        }
        EXPECT_TRUE(worst < 2e-4F && loudest > 0.05F) << worst << " " << loudest;
    }
}

} // namespace
} // namespace velaenc_test
