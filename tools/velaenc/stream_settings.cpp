#include "velaenc/stream_settings.hpp"

#include "common/failure.hpp"
#include "settings/names.hpp"
#include "settings/rules.hpp"

namespace tools {
namespace {

void note_channels(const options &wanted, const mpeg_a_settings &settings, int channels,
                   std::vector<std::string> &notes) {
    if (channels > 1 && channels_of(settings) == 1)
        notes.emplace_back("mono: mixing two channels down");
    if (channels == 1 && channels_of(settings) == 2)
        notes.push_back(std::string(name_of(mode_names, settings.audio_mode).text)
                        + ": duplicating the one channel"
                        + (wanted.mode ? ""
                                       : ", since players of '" + wanted.preset_name
                                             + "' take no mono (--mode mono does it all the same)"));
}

} // namespace

stream_plan plan_stream(const options &wanted, const pcm_shape &input) {
    if (input.channels > 2 && !wanted.sound.mixes_down)
        throw failure(exit_code::input,
                      "the input has " + std::to_string(input.channels)
                          + " channels; MPEG-1 Audio has 1 or 2: mix it down first, or"
                            " leave --downmix none out");
    stream_plan plan{settle(wanted, input.channels, 2), {}};
    mpeg_a_settings &settings = plan.settings;
    // The record is packed: no reference may be bound to this field.
    if (wanted.pts_offset) settings.pts_offset = *wanted.pts_offset;
    settings.pts_units = wanted.pts_units.value_or(settings.pts_units);
    if (settings.audio_bitrate == 0)
        throw failure(exit_code::rules, "--bitrate " + std::to_string(*wanted.bitrate)
                                            + " does not exist: " + bitrates_text(settings));
    note_channels(wanted, settings, input.channels, plan.notes);
    if (!wanted.bitrate && (settings.audio_layer == 1 || channels_of(settings) == 1))
        plan.notes.push_back(layer_and_mode(settings)
                             + " without --bitrate: " + std::to_string(kbit_of(settings)) + " kbit/s");
    if (const auto remark = remark_on_bitrate(settings); !remark.empty()) plan.notes.push_back(remark);
    return plan;
}

void check_rules(const options &wanted, const mpeg_a_settings &settings, int sample_rate,
                 const std::function<void(const std::string &)> &tell) {
    if (find_violations(settings, wanted.preset_code(), sample_rate, tell) == 0) return;
    if (!is_usable(settings))
        throw failure(exit_code::rules, std::to_string(kbit_of(settings))
                                            + " kbit/s cannot be encoded: " + bitrates_text(settings));
    if (!wanted.force)
        throw failure(exit_code::rules,
                      "the stream would not conform to the preset '" + wanted.preset_name
                          + "'; change the above, or encode it all the same with --force");
}

} // namespace tools
