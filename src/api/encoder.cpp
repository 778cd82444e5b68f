#include "api/encoder.hpp"

#include "analysis/filterbank.hpp"
#include "api/validate.hpp"
#include "simd/float_environment.hpp"
#include "stream/frame_header.hpp"
#include "stream/rate_tables.hpp"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

using namespace vela;

namespace {

using malloc_function = void *(*)(std::size_t);
using free_function = void (*)(void *);

struct allocator {
    malloc_function allocate = std::malloc;
    free_function release = std::free;
};

/// The host's pair, if it has both halves; else the process's.
allocator allocator_of(resource_lookup lookup) noexcept {
    if (lookup == nullptr) return {};
    void *const allocate = lookup("malloc");
    void *const release = lookup("free");
    if (allocate == nullptr || release == nullptr) return {};
    return {reinterpret_cast<malloc_function>(allocate), reinterpret_cast<free_function>(release)};
}

int sampling_bits_of(std::int32_t pcm_format) noexcept {
    switch (pcm_format & 7) {
    case 3:
        return 24;
    case 4:
        return 32;
    default:
        return 16;
    }
}

std::int64_t start_time_of(const mpeg_a_settings &settings) noexcept {
    const float_environment environment;
    if (settings.pts_units <= 0) return settings.pts_offset;
    const double ticks = static_cast<double>(settings.pts_offset) * 27000000.0 / settings.pts_units;
    // 2^63 and beyond has no 64-bit value; such offsets stop at the ends of the range.
    if (ticks >= 0x1p63) return INT64_MAX;
    if (ticks < -0x1p63) return INT64_MIN;
    return static_cast<std::int64_t>(ticks);
}

/// Makes the path of a model, not yet initialised.
void choose_path(any_path &path, std::int32_t model) noexcept {
    if (model == MPEG_A_MODEL_TUNED) {
        path.emplace<tuned_path>();
    } else {
        path.emplace<standard_path>();
    }
}

} // namespace

/// A call of the host's. Functions of the host's that it calls may not use the encoder.
class mpeg_a_encoder::operation {
  public:
    explicit operation(mpeg_a_encoder &encoder) noexcept : busy_(encoder.busy_) { busy_ = true; }
    ~operation() { busy_ = false; }
    operation(const operation &) = delete;
    operation &operator=(const operation &) = delete;

  private:
    float_environment environment_;
    bool &busy_;
};

mpeg_a_encoder *mpeg_a_encoder::create(resource_lookup lookup, const mpeg_a_settings *settings,
                                       std::int32_t pcm_format, std::int32_t sample_rate) noexcept {
    // One copy is checked and used: functions of the host's run in between.
    mpeg_a_settings own{};
    if (settings != nullptr) own = *settings;
    if (mpegOutAudioChkSettings(lookup, settings == nullptr ? nullptr : &own, MPEG_A_PRESET_NONE,
                                sample_rate, MPEG_A_CHECK_GENERIC_ONLY, 0)
        != 0) {
        return nullptr;
    }
    // The block may come from any host: it is cleared here, and nothing in it wants more alignment than
    // malloc gives.
    static_assert(std::is_trivially_copyable_v<
                      mpeg_a_encoder> && alignof(mpeg_a_encoder) <= alignof(std::max_align_t));
    static_assert(sizeof(mpeg_a_encoder) < 160 * 1024, "docs/host-guide.md promises it");
    const allocator memory = allocator_of(lookup);
    void *const block = memory.allocate(sizeof(mpeg_a_encoder));
    if (block == nullptr) return nullptr;
    std::memset(block, 0, sizeof(mpeg_a_encoder));
    auto *const encoder = static_cast<mpeg_a_encoder *>(block);
    encoder->free_ = memory.release;
    encoder->err_printf_ = message_function(lookup, "err_printf");
    encoder->inf_printf_ = message_function(lookup, "inf_printf");
    encoder->settings_ = own;
    encoder->sample_rate_ = sample_rate;
    encoder->sampling_bits_ = sampling_bits_of(pcm_format);
    encoder->start_time_ = start_time_of(own);
    return encoder;
}

void mpeg_a_encoder::destroy(mpeg_a_encoder *encoder) noexcept {
    if (encoder != nullptr && !encoder->busy_) encoder->free_(encoder);
}

std::int32_t mpeg_a_encoder::init(bufstream *output, level which) noexcept {
    if (busy_) return 2;
    const operation running(*this);
    initialised_ = false;
    if (output == nullptr) return 2;
    if (init_frame_header(header_, settings_, sample_rate_) != 0) {
        // Not reached: an encoder of another rate cannot be created.
        err_printf_("A001:Unknown audio sampling rate");
        return 2;
    }
    writer_.bind(output);
    previous_total_ = 0;
    coder_.init(coding_kernels_of(which), header_, writer_);
    analysis_ = &analysis_kernels_of(which);
    frames_passed_ = 0;
    input_.init(*analysis_, sampling_bits_, coder_.config().channels, header_.layer);
    choose_path(path_, settings_.audio_model);
    vela::visit(
        [&](auto &path) { path.init(which, header_.layer, coder_.config().channels, sample_rate_); },
        path_);
    timer_.init(header_.layer, start_time_, sampling_frequency_khz[header_.sampling_frequency],
                bitrate_kbps(header_.layer, header_.bitrate_index));
    initialised_ = true;
    return 0;
}

void mpeg_a_encoder::position(std::int64_t frame, std::span<const std::uint8_t> history) noexcept {
    const float_environment environment;
    // Padding and time are sums of rounded steps: only the same steps give the same values.
    for (; frames_passed_ < frame; ++frames_passed_) {
        header_.padding = static_cast<std::uint8_t>(timer_.decide_padding());
        timer_.advance_time();
    }
    // Everything else reaches back a few frames only.
    const coder_config &config = coder_.config();
    input_.init(*analysis_, sampling_bits_, config.channels, header_.layer);
    const auto look = [&](auto &path) {
        path.restart();
        for (auto left = static_cast<int>(history.size() / input_.frame_bytes()); left > 0; --left) {
            input_.fill_frames(history, false);
            if (left > path.remembered_frames()) continue;
            const auto frame_start = input_.frame_start(0);
            subband_samples samples;
            analyze_frame(*analysis_, frame_start.begin(), config.channels, config.parts(), samples);
            path.look(frame_start.begin(), 1);
            path.pass(coder_, 0, timer_.frame_bits(), samples);
        }
    };
    vela::visit(look, path_);
}

std::int32_t mpeg_a_encoder::put_bytes(const void *data, std::uint32_t size) noexcept {
    if (!initialised_ || busy_) return 2;
    const operation running(*this);
    const bool flush = data == nullptr;
    const std::span pcm(static_cast<const std::uint8_t *>(data), flush ? 0 : size);
    return encode(pcm, flush) == 0 ? 0 : 2;
}

std::int32_t mpeg_a_encoder::done(bool abort) noexcept {
    if (busy_) return 2;
    if (!initialised_) return 0;
    const operation running(*this);
    if (!abort) encode({}, true);
    initialised_ = false;
    return 0;
}

int mpeg_a_encoder::encode(std::span<const std::uint8_t> pcm, bool flush) noexcept {
    return vela::visit([&](auto &path) { return encode_along(path, pcm, flush); }, path_);
}

// The models look at several frames at once where that fills their lanes. Everything that the host sees is
// done frame by frame. When it refuses one, those looked at behind it are not missed: no more frames are
// written until the next init.
template <class Path>
int mpeg_a_encoder::encode_along(Path &path, std::span<const std::uint8_t> pcm, bool flush) noexcept {
    const coder_config &config = coder_.config();
    subband_samples samples;
    while (const int frames = input_.fill_frames(pcm, flush, path.frames_at_once())) {
        for (int f = 0; f < frames; ++f) {
            header_.padding = static_cast<std::uint8_t>(timer_.decide_padding());
            const int frame_bits = timer_.frame_bits();
            if (!writer_.request_frame(static_cast<std::uint32_t>(frame_bits / 8))) {
                err_printf_("A002:Could not write to audio file");
                return -1;
            }
            if (f == 0) path.look(input_.frame_start(0).begin(), frames);
            analyze_frame(*analysis_, input_.frame_start(f).begin(), config.channels, config.parts(),
                          samples);
            path.encode(coder_, f, frame_bits, samples);
            end_frame(frame_bits);
        }
    }
    return 0;
}

void mpeg_a_encoder::end_frame(int frame_bits) noexcept {
    const auto written = static_cast<std::uint32_t>(writer_.total_bits() - previous_total_);
    if (written != static_cast<std::uint32_t>(frame_bits)) {
        // Not reached: the coder fills every frame, even where there is no sound in it.
        std::printf("ERROR: adb = %d, frame_bits = %d\n", frame_bits, static_cast<int>(written));
    }
    previous_total_ = writer_.total_bits();
    ++frames_passed_;
    writer_.end_frame({.length = (written + 7) / 8, .unused = 0, .time_stamp = timer_.advance_time()});
}
