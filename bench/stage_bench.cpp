// The stages of a stereo Layer II frame at 48 kHz and 224 kbit/s, each alone, at every level. A stage's
// time is its share of one frame: all channels, passes and parts.
#include "analysis/filterbank.hpp"
#include "analysis/pcm_input.hpp"
#include "coding/bit_allocation.hpp"
#include "coding/frame.hpp"
#include "coding/pack.hpp"
#include "coding/quantize.hpp"
#include "coding/scalefactors.hpp"
#include "psy/standard_model.hpp"
#include "signal.hpp"

#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace {

using namespace vela;
using namespace vela::bench;

constexpr int layer = 2, channels = 2, sample_rate = 48000, frame_bits = 8 * 672;

/// Everything between PCM and bits of one frame in the midst of the signal, with each stage callable
/// alone.
class frame_stages {
  public:
    explicit frame_stages(level which)
        : analysis_(analysis_kernels_of(which)), passes_(make_frame_passes(which, layer, channels)),
          coding_(coding_kernels_of(which)), music_(make_music(1, sample_rate, channels)) {
        frame_header header{};
        header.layer = layer;
        header.bitrate_index = 11;
        header.sampling_frequency = 1;
        config_ = make_coder_config(header);
        input_.init(analysis_, 16, channels, layer);
        make_standard_tables(tables_, sample_rate);
        std::memset(history_, 0, sizeof history_);
        model_.init(which, layer, channels, sample_rate);
        for (int frame = 0; frame < 30; ++frame) {
            input();
            model_.analyze(frame_start_.begin(), 1, &smr_);
            for (const auto &stage :
                 {&frame_stages::transform, &frame_stages::spectrum, &frame_stages::mask,
                  &frame_stages::ratios, &frame_stages::filterbank, &frame_stages::scalefactors,
                  &frame_stages::allocation, &frame_stages::quantize, &frame_stages::pack}) {
                (this->*stage)();
            }
        }
    }

    void input() {
        const std::size_t bytes = sizeof music_[0] * channels * 1152;
        if (pcm_.size() < bytes) pcm_ = std::as_bytes(std::span(music_));
        std::span<const std::uint8_t> block(reinterpret_cast<const std::uint8_t *>(pcm_.data()), bytes);
        input_.fill_frames(block, false);
        frame_start_ = input_.frame_start(0);
        pcm_ = pcm_.subspan(bytes);
    }
    void transform() {
        passes_.for_each_group(1, [this](frame_passes::group group) {
            passes_.transform(frame_start_.begin(), group, x_);
        });
    }
    void spectrum() {
        passes_.for_each_group(1, [this](frame_passes::group group) {
            group.kernels.analyze_lines(tables_, x_, group.part_of(history_[0], 2 * history_values),
                                        sums_);
        });
    }
    void mask() {
        passes_.for_each_group(
            1, [this](frame_passes::group group) { group.kernels.mask(tables_, sums_, mask_); });
    }
    void ratios() {
        passes_.for_each_group(1, [this](frame_passes::group group) {
            group.kernels.ratios(tables_, sums_, mask_, {}, ratio_);
        });
    }
    void filterbank() {
        analyze_frame(analysis_, frame_start_.begin(), channels, config_.parts(), samples_);
    }
    void scalefactors() {
        for (int part = 0; part < config_.parts(); ++part) {
            for (int ch = 0; ch < channels; ++ch) {
                compute_scalefactors(coding_, samples_[ch][part], side_.scalefactor[ch][part]);
            }
        }
        choose_scfsi(config_, side_);
    }
    void allocation() {
        side_.joint_bound = config_.sblimit;
        left_ = allocate_bits(config_, smr_, frame_bits, side_, ratio_hint_);
    }
    void quantize() { quantize_samples(coding_, config_, side_, samples_, nullptr, codes_); }
    void pack() {
        bit_buffer bits;
        pack_side_info(config_, side_, bits);
        pack_samples(coding_, config_, side_, codes_, bits);
        bits.put_zeros(left_);
        benchmark::DoNotOptimize(bits.bytes());
    }

  private:
    const analysis_kernels &analysis_;
    frame_passes passes_;
    const coding_kernels &coding_;
    std::vector<std::int16_t> music_;
    std::span<const std::byte> pcm_;
    coder_config config_;
    pcm_input input_;
    table<const float *, 2> frame_start_;
    standard_model model_;
    standard_tables tables_;
    alignas(x_alignment) double x_[transform_length * max_lanes];
    double history_[2][2 * history_values];
    double mask_[padded_partitions * max_lanes], ratio_[32 * max_lanes];
    spectrum_sums sums_;
    smr_table smr_;
    subband_samples samples_;
    side_info side_;
    sample_codes codes_;
    int left_ = 0;
    double ratio_hint_ = 0.0;
};

/// Of the time stamp counter; 0 on processors that have none.
std::uint64_t ticks() {
#if defined(__x86_64__)
    return __rdtsc();
#else
    return 0;
#endif
}

void run_stage(benchmark::State &state, void (frame_stages::*stage)(), level which) {
    const auto frame = std::make_unique<frame_stages>(which);
    const auto start = ticks();
    for (auto _ : state) {
        (frame.get()->*stage)();
        benchmark::ClobberMemory();
    }
    // Not a counter: as comma-separated values, rows may have none that the first row has not.
    const auto cycles = (ticks() - start) / static_cast<std::uint64_t>(state.iterations());
    state.SetLabel(std::to_string(cycles) + " cycles");
}

const int stages_registered = [] {
    const struct {
        const char *name;
        void (frame_stages::*run)();
    } stages[] = {
        {"input", &frame_stages::input},
        {"transform", &frame_stages::transform},
        {"spectrum", &frame_stages::spectrum},
        {"mask", &frame_stages::mask},
        {"ratios", &frame_stages::ratios},
        {"filterbank", &frame_stages::filterbank},
        {"scalefactors", &frame_stages::scalefactors},
        {"allocation", &frame_stages::allocation},
        {"quantize", &frame_stages::quantize},
        {"pack", &frame_stages::pack},
    };
    for (const level which : supported_levels()) {
        for (const auto &stage : stages) {
            benchmark::RegisterBenchmark(
                (std::string("stage/") + name_of(which) + "/" + stage.name).c_str(), run_stage,
                stage.run, which);
        }
    }
    return 0;
}();

} // namespace
