#include "velaenc/prepared_input.hpp"

#include "common/failure.hpp"
#include "input/open_pcm.hpp"
#include "jobs/loudness_pass.hpp"
#include "velaenc/carried_labels.hpp"

namespace tools {

prepared_input open_source(const options &wanted,
                           const std::function<void(const std::string &)> &note) {
    input_file input = open_input(wanted.input);
    prepared_input result{input.status, input.name, {}, {}, {}, {{"bext", {}}}, {}};
    std::vector<std::string> lost;
    if (is_wave(wanted) && input.seekable() && !wanted.raw) result.labels = labels_of(input, lost);
    result.source = open_pcm(std::move(input), {.raw = wanted.raw,
                                                .ignore_length = wanted.ignore_length,
                                                .on_note = note,
                                                .asks_ffmpeg = true,
                                                .stream = wanted.stream});
    const pcm_shape &shape = result.shape = result.source->shape();
    result.plan = plan_stream(wanted, shape);
    const std::uint64_t start = samples_before(wanted, shape.rate);
    result.origin = {.bext = result.labels.front().contents,
                     .rate = shape.rate,
                     .channels = shape.channels,
                     .bits =
                         shape.format == sample_format::f32 ? 0 : 8 * static_cast<int>(shape.format),
                     .start = start,
                     .sounds_alike = start == 0 && !wanted.sound.duration && wanted.sound.gain_db == 0
                                     && shape.channels == channels_of(result.plan.settings)};
    result.source =
        shape_sound(std::move(result.source), wanted, result.plan.settings, result.plan.notes);
    fit_labels(result.labels, {start, result.source->length(), shape.rate, result.source->shape().rate},
               lost);
    result.plan.notes.insert(result.plan.notes.end(), lost.begin(), lost.end());
    return result;
}

prepared_input open_again(const options &wanted) {
    return open_source(wanted, [](const std::string &) {});
}

levelled_input open_levelled(const options &wanted, run_listener &listener, int jobs) {
    levelled_input result{
        open_source(wanted, [&](const std::string &text) { listener.note(text); }), {}, nullptr};
    pcm_source &source = *result.input.source;
    if (!wanted.sound.measures) return result;
    if (!result.input.reads_twice(wanted)) {
        if (wanted.sound.loudness)
            throw failure(exit_code::usage,
                          "--loudness reads IN twice, which " + result.input.name
                              + " does not allow; give it a file, or take --measure, which says at the "
                                "end how loud it was");
        auto meter = std::make_unique<metered_source>(std::move(result.input.source));
        result.meter = meter.get();
        result.input.source = std::move(meter);
        return result;
    }
    auto &shown = listener.begin_measuring(source.shape().rate, source.length());
    result.loudness = reach_goal(hear_source(source, jobs, shown).figures(), wanted.sound);
    options louder = wanted;
    louder.sound.gain_db += result.loudness->gain_db;
    result.input = open_again(louder);
    return result;
}

} // namespace tools
