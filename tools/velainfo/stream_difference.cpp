#include "velainfo/stream_difference.hpp"

#include "velainfo/decibels.hpp"
#include "velainfo/frame_matcher.hpp"
#include "velainfo/stream_input.hpp"
#include "velainfo/synthesis.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <string_view>
#include <unordered_map>

namespace tools {
namespace {

/// A stream's frames one by one, and the report on all of it.
class frame_feed {
  public:
    explicit frame_feed(const stream_name &stream)
        : input_(stream), scanner_([this](std::span<std::uint8_t> room) { return input_.read(room); }),
          builder_(input_.name(), input_.container()) {}

    std::optional<kept_frame> next() {
        while (const auto piece = scanner_.next()) {
            kept_frame frame{.number = builder_.so_far().frames,
                             .offset = builder_.offset_of(*piece),
                             .seconds = builder_.so_far().seconds(),
                             .end = {},
                             .bytes = {}};
            if (piece->is_frame) frame.bytes.assign(piece->bytes.begin(), piece->bytes.end());
            builder_.add(*piece);
            frame.end = builder_.so_far().seconds();
            if (piece->is_frame) return frame;
        }
        return std::nullopt;
    }

    stream_report finish() { return builder_.finish(input_.other_kind()); }

  private:
    stream_input input_;
    frame_scanner scanner_;
    report_builder builder_;
};

std::string text_of(const std::vector<std::uint8_t> &bytes) {
    return {bytes.begin(), bytes.end()};
}

/// Frames of a stream in front of another one's start; 0 where that is not in it.
std::uint64_t frames_before(const stream_name &longer, const stream_name &other) {
    std::unordered_map<std::string, std::uint64_t> starts;
    frame_feed head(other);
    for (auto frame = head.next(); frame && frame->number < frame_matcher::window; frame = head.next())
        starts.emplace(text_of(frame->bytes), frame->number);
    frame_feed all(longer);
    std::optional<std::uint64_t> before;
    for (auto frame = all.next(); frame; frame = all.next()) {
        const auto found = starts.find(text_of(frame->bytes));
        const auto ahead = found == starts.end() || found->second > frame->number
                               ? std::nullopt
                               : std::optional(frame->number - found->second);
        if (ahead && ahead == before) return *ahead;
        before = ahead;
    }
    return 0;
}

class difference_finder {
  public:
    difference_finder(const stream_name &first, const stream_name &second)
        : streams_{first, second}, contents_(std::make_unique<std::array<frame_contents, 2>>()) {}

    stream_difference run() {
        match({});
        if (has_few_equal()) {
            std::array<std::uint64_t, 2> ahead{frames_before(streams_[0], streams_[1]), 0};
            if (ahead[0] == 0) ahead[1] = frames_before(streams_[1], streams_[0]);
            stream_difference before = d_;
            match(ahead);
            if (d_.equal < before.equal) d_ = std::move(before);
        }
        if (has_few_equal()) listen();
        return std::move(d_);
    }

  private:
    bool has_few_equal() const {
        return 2 * d_.equal < std::min(d_.reports[0].frames, d_.reports[1].frames);
    }

    /// @param ahead  frames that one of the streams has before the other one's start
    void match(std::array<std::uint64_t, 2> ahead) {
        d_ = {};
        last_ = {};
        history_.clear();
        frame_feed feeds[2]{frame_feed(streams_[0]), frame_feed(streams_[1])};
        frame_matcher matcher({[&] { return feeds[0].next(); }, [&] { return feeds[1].next(); }},
                              ahead);
        while (const auto pair = matcher.next()) {
            if (pair->is_equal) {
                ++d_.equal;
                ++d_.noise.frames;
                close_place();
            } else if (pair->frame[0] != nullptr && pair->frame[1] != nullptr) {
                add_changed(*pair->frame[0], *pair->frame[1]);
            } else {
                add_alone(pair->frame[0] == nullptr ? 1 : 0,
                          pair->frame[0] == nullptr ? *pair->frame[1] : *pair->frame[0]);
            }
            for (std::size_t side = 0; side < 2; ++side)
                if (pair->frame[side] != nullptr) pass(side, *pair->frame[side]);
        }
        close_place();
        for (std::size_t side = 0; side < 2; ++side)
            d_.reports[side] = feeds[side].finish();
    }

    /// What comes after it lies behind it.
    void pass(std::size_t side, const kept_frame &frame) {
        last_[side] = {.frame = frame.number + 1,
                       .offset = frame.offset + frame.bytes.size(),
                       .seconds = frame.end};
        if (side == 0) return;
        history_.push_back(std::hash<std::string_view>()(
            {reinterpret_cast<const char *>(frame.bytes.data()), frame.bytes.size()}));
        if (history_.size() > 2 * frame_matcher::window) history_.pop_front();
    }

    void add_place(const char *what, const std::vector<std::string> &fields, const kept_frame *first,
                   const kept_frame *second) {
        if (open_ && open_->kind == what) {
            ++open_->frames;
            for (const std::string &name : fields)
                if (std::ranges::find(open_->fields, name) == open_->fields.end())
                    open_->fields.push_back(name);
            return;
        }
        close_place();
        open_ = {.kind = what, .frames = 1, .frame = {}, .offset = {}, .seconds = {}, .fields = fields};
        const kept_frame *const frames[2] = {first, second};
        for (std::size_t side = 0; side < 2; ++side) {
            const kept_frame *const here = frames[side];
            open_->frame[side] = here != nullptr ? here->number : last_[side].frame;
            open_->offset[side] = here != nullptr ? here->offset : last_[side].offset;
            open_->seconds[side] = here != nullptr ? here->seconds : last_[side].seconds;
        }
    }

    void close_place() {
        if (!open_) return;
        if (open_->kind == "added" && repeats(open_->frames)) open_->kind = "doubled";
        ++d_.place_count;
        if (d_.places.size() < stream_difference::listed_places) d_.places.push_back(*open_);
        if (open_->kind == "changed" && !d_.first_place) d_.first_place = *open_;
        open_.reset();
    }

    /// Whether the second stream's last frames are those before them once more.
    bool repeats(std::size_t frames) const {
        if (2 * frames > history_.size()) return false;
        const auto size = static_cast<std::ptrdiff_t>(frames);
        return std::equal(history_.end() - size, history_.end(), history_.end() - 2 * size);
    }

    void add_alone(std::size_t side, const kept_frame &frame) {
        ++d_.alone[side];
        add_place(side == 0 ? "lost" : "added", {}, side == 0 ? &frame : nullptr,
                  side == 1 ? &frame : nullptr);
    }

    void add_changed(const kept_frame &first, const kept_frame &second) {
        ++d_.changed;
        auto &[a, b] = *contents_;
        for (const auto &[frame, contents] : {std::pair{&first, &a}, {&second, &b}}) {
            contents->bytes = frame->bytes;
            contents->frame = parse_frame(frame->bytes, &contents->codes);
        }
        const auto found = differences_of(a, b);
        std::vector<std::string> names;
        for (const field_difference &each : found) {
            names.push_back(each.field);
            auto known =
                std::ranges::find(d_.fields, each.field, [](const auto &f) { return f.first; });
            if (known == d_.fields.end()) known = d_.fields.insert(known, {each.field, 0});
            ++known->second;
        }
        if (d_.first.empty()) d_.first = found;
        add_place("changed", names, &first, &second);
        measure(second.number);
    }

    /// Noise of the pair in the subbands, where nothing of what came before it is heard.
    void measure(std::uint64_t number) {
        const auto &[a, b] = *contents_;
        if (a.frame.faults != 0 || b.frame.faults != 0 || a.frame.layer != b.frame.layer
            || a.frame.rate != b.frame.rate || a.frame.channels() != b.frame.channels())
            return;
        requantize(a.frame, a.codes, subbands_[0]);
        requantize(b.frame, b.codes, subbands_[1]);
        double signal = 0, noise = 0;
        const int steps = 12 * a.frame.parts, channels = a.frame.channels();
        for (int ch = 0; ch < channels; ++ch) {
            for (int i = 0; i < steps; ++i) {
                for (int sb = 0; sb < 32; ++sb) {
                    const auto x = static_cast<double>(subbands_[0][ch][i][sb]),
                               e = static_cast<double>(subbands_[1][ch][i][sb]) - x;
                    signal += x * x;
                    noise += e * e;
                }
            }
        }
        d_.noise.add(number, signal / steps / channels, noise / steps / channels);
    }

    /// Looks for the second stream's sound in the first one's.
    void listen() {
        difference_noise heard{};
        const auto &reports = d_.reports;
        const auto is_like = [&](stream_report::field which) {
            return reports[0].usual(which) == reports[1].usual(which);
        };
        const int channels = reports[1].usual_channels();
        const auto add = [&](const compared_frame &frame) {
            double signal = 0, noise = 0;
            for (int ch = 0; ch < channels; ++ch) {
                for (int sb = 0; sb < 32; ++sb) {
                    signal += std::pow(10, frame.level[ch][sb] / 10) / 2;
                    noise += std::pow(10, frame.error[ch][sb] / 10) / 2;
                }
            }
            heard.add(frame.number, signal / channels, noise / channels);
        };
        std::optional<comparison_totals> sound;
        try {
            sound = compare_with_stream(streams_[1], d_.reports[1], streams_[0], d_.reports[0], add);
        } catch (const not_alike &reason) {
            d_.unlike = reason.what();
            d_.noise = {};
            return;
        }
        const std::int64_t frame = reports[0].usual_samples(), frames = sound->offset / frame;
        const bool is_one_grid = is_like(stream_report::layer) && is_like(stream_report::rate);
        if (frames != 0 && sound->offset % frame == 0 && is_one_grid)
            match({static_cast<std::uint64_t>(std::max<std::int64_t>(frames, 0)),
                   static_cast<std::uint64_t>(std::max<std::int64_t>(-frames, 0))});
        // Frames that lie side by side are compared as they are, without filterbanks in between.
        const bool is_side_by_side = sound->offset % frame == 0 && sound->jumps.empty()
                                     && sound->gain_db == 0 && !sound->inverted && !sound->swapped
                                     && d_.noise.frames > 0;
        if (!is_side_by_side) d_.noise = heard;
        d_.sound = std::move(sound);
    }

    struct place_behind {
        std::uint64_t frame, offset;
        double seconds;
    };

    stream_name streams_[2];
    stream_difference d_{};
    std::array<place_behind, 2> last_{};
    std::deque<std::size_t> history_; ///< hashes of the second stream's last frames
    std::optional<difference_place> open_;
    std::unique_ptr<std::array<frame_contents, 2>> contents_;
    frame_subbands subbands_[2] = {};
};

} // namespace

void difference_noise::add(std::uint64_t frame, double frame_signal, double frame_power) {
    ++frames;
    if (frame_power <= 0) return;
    ++noisy;
    signal += frame_signal;
    power += frame_power;
    if (frame_power <= worst) return;
    worst = frame_power;
    worst_frame = frame;
}

double difference_noise::level() const {
    return decibels(power / static_cast<double>(frames));
}

double difference_noise::snr() const {
    return signal_to_noise(signal, power);
}

stream_difference compare_streams(const stream_name &first, const stream_name &second) {
    return difference_finder(first, second).run();
}

} // namespace tools
