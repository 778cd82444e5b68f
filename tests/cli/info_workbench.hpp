// velainfo run as a user runs it, its JSON held against the published schema.
#pragma once

#include "velainfo/stream_report.hpp"
#include "workbench.hpp"
#include "written_frame.hpp"

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

namespace velaenc_test {

inline tools::stream_report report_of(const bytes &stream) {
    tools::report_builder builder("stream", {});
    for_each_piece(stream, [&](const tools::stream_piece &piece) { builder.add(piece); });
    return builder.finish("");
}

class info_test : public workbench {
  protected:
    info_test() { put("48000.wav", wav(pcm(noise(48000)), 2, 48000)); }

    /// A line that is printed, which the published schema describes.
    static nlohmann::json parsed(const std::string &line) {
        const auto said = nlohmann::json::parse(line, nullptr, false);
        static const auto schema =
            nlohmann::json::parse(std::ifstream(VELAINFO_SCHEMA), nullptr, false);
        EXPECT_TRUE(conforms(said, schema)) << said;
        return said;
    }

    nlohmann::json json_of(const std::string &arguments, int status = 0) const {
        return parsed(run("velainfo --json " + arguments, status).out);
    }

    /// Numbers that are no whole ones have a digit behind the point.
    static void expect_fields(const nlohmann::json &said, const nlohmann::json &expected,
                              const std::string &what) {
        for (const auto &[name, value] : expected.items()) {
            const bool is_rough = value.is_number_float() && said[name].is_number();
            EXPECT_EQ(is_rough ? nlohmann::json(std::round(said[name].get<double>() * 10) / 10)
                               : said[name],
                      value)
                << what << ": " << name;
        }
    }

    /// A text with values of JSON in the places of "{pointer format}"; of a list they fill rows of sixteen.
    static std::string filled_in(std::string text, const nlohmann::json &said) {
        for (auto at = text.find('{'); at != text.npos; at = text.find('{', at)) {
            const auto blank = text.find(' ', at), end = text.find('}', at);
            const auto &found =
                said.at(nlohmann::json::json_pointer(text.substr(at + 1, blank - at - 1)));
            const std::string format = text.substr(blank + 1, end - blank - 1);
            std::string values;
            for (std::size_t i = 0; i < std::max<std::size_t>(found.size(), 1); ++i) {
                char number[32] = "";
                const auto &value = found.is_array() ? found[i] : found;
                if (value.is_number())
                    std::snprintf(number, sizeof number, format.c_str(), value.get<double>());
                values += (i == 16 ? "\n" + std::string(16, ' ') : "")
                          + (value.is_string() ? value.get<std::string>() : number);
            }
            text.replace(at, end + 1 - at, values);
        }
        return text;
    }

  private:
    /// As much of JSON Schema as docs/velainfo.schema.json uses.
    static bool conforms(const nlohmann::json &value, const nlohmann::json &schema) {
        if (schema.is_boolean()) return schema.get<bool>();
        if (schema.contains("anyOf"))
            return std::ranges::any_of(schema["anyOf"],
                                       [&](const auto &s) { return conforms(value, s); });
        if (schema.contains("enum"))
            return std::ranges::find(schema["enum"], value) != schema["enum"].end();
        const auto is = [&](const std::string &type) {
            return type == "number"    ? value.is_number()
                   : type == "integer" ? value.is_number_integer()
                                       : value.type_name() == type;
        };
        const auto &type = schema.at("type");
        if (type.is_array() ? std::ranges::none_of(type, is) : !is(type)) return false;
        for (const std::string name : value.is_object() ? schema["required"] : nlohmann::json::array())
            if (!value.contains(name)) return false;
        for (const auto &[name, part] : value.items()) {
            if (!value.is_structured()) break;
            const auto &known = value.is_array()                      ? schema["items"]
                                : schema["properties"].contains(name) ? schema["properties"][name]
                                                                      : schema["additionalProperties"];
            if (!conforms(part, known)) return false;
        }
        return true;
    }
};

} // namespace velaenc_test
