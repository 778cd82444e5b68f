// velainfo run as a user runs it, its JSON held against the published schema.
#pragma once

#include "velainfo/stream_report.hpp"
#include "workbench.hpp"
#include "written_frame.hpp"

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

    /// What is printed as one object, which the published schema describes.
    nlohmann::json json_of(const std::string &arguments, int status = 0) const {
        const auto said =
            nlohmann::json::parse(run("velainfo --json " + arguments, status).out, nullptr, false);
        static const auto schema =
            nlohmann::json::parse(std::ifstream(VELAINFO_SCHEMA), nullptr, false);
        EXPECT_TRUE(conforms(said, schema)) << said;
        return said;
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
        if (value.is_array())
            return std::ranges::all_of(value,
                                       [&](const auto &v) { return conforms(v, schema["items"]); });
        if (!value.is_object()) return true;
        for (const std::string name : schema["required"])
            if (!value.contains(name)) return false;
        for (const auto &[name, part] : value.items()) {
            const auto known = schema["properties"].find(name);
            if (!conforms(part, known != schema["properties"].end() ? *known
                                                                    : schema["additionalProperties"]))
                return false;
        }
        return true;
    }
};

} // namespace velaenc_test
