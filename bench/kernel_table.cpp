#include "kernel_table.hpp"

#include "analysis/kernels.hpp"
#include "coding/alloc_tables.hpp"
#include "coding/kernels.hpp"
#include "psy/standard_model.hpp"
#include "psy/tuned_model.hpp"
#include "stream/bit_buffer.hpp"

#include <cmath>
#include <cstring>
#include <memory>
#include <random>

namespace vela::bench {

namespace {

class source {
  public:
    source(numbers kind, unsigned seed) : kind_(kind), random_(seed) {}

    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

    double number() {
        static constexpr double ends[] = {0.0,    -0.0,          1.0,   -1.0, 0.5,      -0.5,
                                          2.0,    -2.5,          1e-40, -1e9, INFINITY, -INFINITY,
                                          5e-324, 1.0 - 0x1p-53, 1e30,  NAN};
        const int choice = below(40);
        if (kind_ == numbers::extreme && choice < 16) return ends[choice];
        return std::uniform_real_distribution(-1.2, 1.2)(random_);
    }

    /// Fills anything that consists of numbers.
    template <class T, class Array>
    void fill(Array &array, double scale = 1.0) {
        T *const first = reinterpret_cast<T *>(&array);
        for (std::size_t i = 0; i < sizeof array / sizeof(T); ++i)
            first[i] = static_cast<T>(scale * number());
    }

  private:
    numbers kind_;
    std::mt19937 random_;
};

/// Runs f(data) on data of its own; `out` of it is the result, which consists of values of type T.
template <class T, class Data, class Function>
kernel_run bind(std::shared_ptr<Data> data, Function f) {
    return {[data, f] { f(*data); },
            [data] {
                const T *const first = reinterpret_cast<const T *>(&data->out);
                return std::vector<double>(first, first + sizeof data->out / sizeof(T));
            }};
}

struct pcm_data {
    std::uint8_t in[4 * 2304 + 1];
    float out[2][1152];
    int count;
};

template <auto format>
kernel_run pcm(level which, numbers kind, unsigned seed) {
    const auto data = std::make_shared<pcm_data>();
    source numbers(kind, seed);
    const pcm_kernels &kernels = analysis_kernels_of(which).*format;
    for (std::uint8_t &byte : data->in)
        byte = static_cast<std::uint8_t>(numbers.below(256));
    for (int i = 0; i < 2304 && kernels.width == 4; ++i) {
        const auto value = static_cast<float>(numbers.number());
        std::memcpy(data->in + 1 + 4 * i, &value, sizeof value);
    }
    data->count = 1152 - static_cast<int>(seed % 20);
    return bind<float>(data, [&kernels](pcm_data &d) {
        // At an odd address, and an odd number of samples beside the pairs.
        const int pairs = d.count / 2;
        kernels.convert_pairs(d.in + 1, pairs, d.out[0], d.out[1]);
        kernels.convert(d.in + 1 + 2 * pairs * kernels.width, d.count, d.out[0] + pairs);
    });
}

struct bank_data {
    float in[480 + 384];
    double samples[480 + 384], out[12][32];
};

kernel_run filterbank(level which, numbers kind, unsigned seed) {
    const auto data = std::make_shared<bank_data>();
    source(kind, seed).fill<float>(data->in, 32768);
    return bind<double>(data, [&kernels = analysis_kernels_of(which)](bank_data &d) {
        kernels.to_doubles(d.in, 480 + 384, d.samples);
        kernels.analyze_part(d.samples, d.out);
    });
}

template <class Model>
struct model_data {
    Model model;
    float in[2][640 + 8 * 1152];
    typename Model::findings out;
    int frame = 0;
};

template <class Model, int layer, int channels>
kernel_run psychoacoustics(level which, numbers kind, unsigned seed) {
    const auto data = std::make_shared<model_data<Model>>();
    constexpr int rates[] = {32000, 44100, 48000};
    source(kind, seed).fill<float>(data->in, seed % 5 == 4 ? 1e-3 : 32768);
    data->model.init(which, layer, channels, rates[seed % 3]);
    std::memset(data->out, 0, sizeof data->out);
    return bind<double>(data, [](model_data<Model> &d) {
        const float *const start[2] = {d.in[0] + 640 + 1152 * d.frame, d.in[1] + 640 + 1152 * d.frame};
        d.model.analyze(start, 1, &d.out);
        d.frame = (d.frame + 1) % 7;
    });
}

struct part_data {
    part_samples left, right;
    part_quantizer quantizers;
    int first = 0, end = 32;
    union {
        double peak[32];
        part_samples sum;
        part_codes codes;
    };
};

template <class T, class Array>
kernel_run of_part(const std::shared_ptr<part_data> &data, Array part_data::*out, auto f) {
    return {[data, f] { f(*data); },
            [data, out] {
                const T *const first = reinterpret_cast<const T *>(&((*data).*out));
                return std::vector<double>(first, first + sizeof(Array) / sizeof(T));
            }};
}

std::shared_ptr<part_data> make_part(numbers kind, unsigned seed, int layer) {
    const auto data = std::make_shared<part_data>();
    source numbers(kind, seed);
    numbers.fill<double>(data->left);
    numbers.fill<double>(data->right);
    std::memset(&data->sum, 0, sizeof data->sum);
    data->first = 4 * numbers.below(4);
    for (int sb = 0; sb < 32; ++sb) {
        const alloc_row &row = layer == 1 ? alloc_rows::layer1 : table_b2b.row(sb % 30);
        const quantizer &q = row.quantizers[numbers.below(row.last + 1)];
        data->quantizers.inverse_scalefactor[sb] = std::exp2(numbers.below(3) / 3.0);
        data->quantizers.a[sb] = q.a;
        data->quantizers.b[sb] = q.b;
        data->quantizers.half_steps[sb] = q.half_steps;
        data->quantizers.limit[sb] = q.limit;
    }
    return data;
}

kernel_run peaks(level which, numbers kind, unsigned seed) {
    return of_part<double>(make_part(kind, seed, 1), &part_data::peak,
                           [f = coding_kernels_of(which).peaks](part_data &d) { f(d.left, d.peak); });
}

kernel_run combine(level which, numbers kind, unsigned seed) {
    return of_part<double>(
        make_part(kind, seed, 1), &part_data::sum,
        [f = coding_kernels_of(which).combine](part_data &d) { f(d.left, d.right, d.sum); });
}

template <int layer>
kernel_run quantize(level which, numbers kind, unsigned seed) {
    const coding_kernels &kernels = coding_kernels_of(which);
    const auto f = layer == 1 ? kernels.quantize_layer1 : kernels.quantize_layer2;
    return of_part<std::int32_t>(make_part(kind, seed, layer), &part_data::codes, [f](part_data &d) {
        f(d.left, d.quantizers, d.first, d.end, d.codes);
    });
}

/// Two channels of a frame on the way from samples to an allocation.
struct noise_data {
    part_samples samples[3], shared;
    part_scalefactors peaks[3];
    part_values weight, energy, sent;
    shared_fit fit;
    double half[32];
    unit_costs costs[2];
    unit_choices from;
    struct {
        double sum[32];
        part_values parts;
        part_scalefactors used[3];
        part_samples decoded, mixed[3];
        unit_costs costs;
        sent_scalefactors sent;
        scalefactor_offers offers;
        unit_choices choices[2];
        unit_steps steps;
    } out;
};

std::shared_ptr<noise_data> make_noise(numbers kind, unsigned seed) {
    const auto data = std::make_shared<noise_data>();
    source numbers(kind, seed);
    numbers.fill<double>(*data);
    for (int sb = 0; sb < 32; ++sb) {
        for (auto &part : data->peaks)
            part.index[sb] = numbers.below(63);
        for (auto &part : data->sent)
            part[sb] = numbers.below(63);
        data->half[sb] = numbers.below(12) + 0.5;
        data->out.sent.scfsi[sb] = numbers.below(4);
        // Costs lie from 0 to the limit.
        const auto limited = [](double cost) {
            return std::abs(cost) < 1e200 ? std::abs(cost) : 1e200;
        };
        for (unit_costs &costs : data->costs) {
            costs.set = &table_b2a.set;
            costs.opening[sb] = 8 + 6 * numbers.below(3);
            costs.ternary_opening[sb] = 8 + 6 * numbers.below(3);
            costs.unquantized[sb] = limited(costs.unquantized[sb]);
            for (int q = 0; q < quantizer_count; ++q) {
                double &cost = costs.quantized[q][sb];
                cost = costs.set->barred[q][sb] > 0 ? costs.set->barred[q][sb] : limited(cost);
            }
        }
        const int q = numbers.below(quantizer_count);
        const unit_costs &costs = data->costs[0];
        data->from.quantizer[sb] = q + 1;
        data->from.bits[sb] =
            (q == 0 ? costs.ternary_opening : costs.opening)[sb] + costs.set->sample_bits[q];
        data->from.cost[sb] = limited(data->from.cost[sb]);
    }
    return data;
}

void sum_products(const coding_kernels &kernels, noise_data &d) {
    kernels.sum_products(d.samples[0], d.shared, 0, 32, d.out.sum);
}
void choose_ternary(const coding_kernels &kernels, noise_data &d) {
    kernels.choose_ternary(d.samples, 3, d.peaks, d.weight, 28, d.out.sent, d.out.sum, d.out.parts);
}
void choose_finer(const coding_kernels &kernels, noise_data &d) {
    kernels.choose_finer(d.peaks, d.weight, 28, d.out.sent, d.out.used);
}
void refine(const coding_kernels &kernels, noise_data &d) {
    kernels.refine(d.samples, 3, d.peaks, d.weight, d.energy, d.half, 0, 28, d.out.offers);
    // What others than refined subbands are offered is anything.
    double(&offers)[sizeof d.out.offers / sizeof d.half][32] =
        reinterpret_cast<double(&)[sizeof d.out.offers / sizeof d.half][32]>(d.out.offers);
    for (auto &row : offers) {
        for (int sb = 0; sb < 28; ++sb)
            row[sb] = d.half[sb] > 1.5 ? row[sb] : 0;
    }
}
void fit(const coding_kernels &kernels, noise_data &d) {
    kernels.fit(d.fit, 3, d.weight, 4.0 / 81, 4, 28, d.out.sent);
}
void fit_again(const coding_kernels &kernels, noise_data &d) {
    kernels.fit_again(d.fit, 3, d.weight, 4, 28, d.out.offers);
}
shared_parts parts_of(const noise_data &d) {
    return {{d.samples, d.samples}, {&d.weight, &d.energy}, {&d.energy, &d.weight}, {&d.sent, &d.sent}};
}
void mix(const coding_kernels &kernels, noise_data &d) {
    kernels.mix(parts_of(d), 3, 4, 28, d.out.mixed);
}
void decode(const coding_kernels &kernels, noise_data &d) {
    kernels.decode(d.shared, d.half, 4, 28, d.out.decoded);
}
/// Costs of quantizers that no subband of a group has may stay as they are, or be barred.
void begin_costs(noise_data &d) {
    d.out.costs = d.costs[0];
    std::memcpy(d.out.costs.quantized, &table_b2a.set.barred, sizeof d.out.costs.quantized);
}
void own_costs(const coding_kernels &kernels, noise_data &d) {
    begin_costs(d);
    kernels.own_costs(d.samples, 3, d.peaks, d.weight, d.energy, d.half, 28, d.out.costs);
}
void shared_costs(const coding_kernels &kernels, noise_data &d) {
    begin_costs(d);
    kernels.shared_costs(parts_of(d), d.samples, 3, 4, 28, d.out.costs);
}
void climb(const coding_kernels &kernels, noise_data &d) {
    unit_choices coarse[2], fine[2];
    kernels.climb(d.costs, 2, 0.02, 0, 28, nullptr, nullptr, coarse);
    kernels.climb(d.costs, 2, 0.0002, 0, 28, coarse, nullptr, fine);
    kernels.climb(d.costs, 2, 0.002, 0, 28, coarse, fine, d.out.choices);
}
void reach(const coding_kernels &kernels, noise_data &d) {
    const unit_choices from[2] = {d.from, d.from};
    const reached all = kernels.reach(d.costs, from, 2, 0.002, 0, 28, d.out.choices);
    d.out.sum[0] = all.bits + 0.001 * all.subbands;
}
void favour(const coding_kernels &kernels, noise_data &d) {
    d.out.costs = d.costs[0];
    kernels.favour(d.out.costs, d.half, 0, 28);
}
void best_steps(const coding_kernels &kernels, noise_data &d) {
    kernels.best_steps(d.costs[0], d.from, 400, 0, 28, d.out.steps);
}

template <auto step>
kernel_run noise(level which, numbers kind, unsigned seed) {
    return bind<double>(make_noise(kind, seed),
                        [&kernels = coding_kernels_of(which)](noise_data &d) { step(kernels, d); });
}

struct pack_data {
    sample_codes codes;
    coded_subband coded[60];
    int count = 0;
    std::uint8_t out[9000];
};

template <int layer>
kernel_run pack(level which, numbers kind, unsigned seed) {
    const auto data = std::make_shared<pack_data>();
    source numbers(kind, seed);
    for (int i = 0; i < 60; ++i) {
        const alloc_row &row = layer == 1 ? alloc_rows::layer1 : table_b2b.row(i / 2);
        const int step = numbers.below(row.last + 1);
        if (step == 0) continue;
        std::int32_t *const first = &data->codes[i % 2][0][0][i / 2];
        for (int j = 0; j < 36; ++j)
            first[32 * j] = numbers.below(static_cast<int>(row.quantizers[step].limit) + 1);
        data->coded[data->count++] = {first, row.layouts[step]};
    }
    const coding_kernels &kernels = coding_kernels_of(which);
    return bind<std::uint8_t>(
        data, [f = layer == 1 ? kernels.pack_layer1 : kernels.pack_layer2](pack_data &d) {
            std::memset(d.out, 0, sizeof d.out);
            bit_cursor cursor;
            cursor.move(d.out);
            cursor.put(5, 3);
            f(d.coded, d.count, cursor);
            cursor.put(0, 7);
        });
}

constexpr kernel kernels[] = {
    {"pcm_s16", pcm<&analysis_kernels::s16>},
    {"pcm_s24", pcm<&analysis_kernels::s24>},
    {"pcm_f32", pcm<&analysis_kernels::f32>},
    {"filterbank", filterbank},
    {"psychoacoustics_layer1_mono", psychoacoustics<standard_model, 1, 1>},
    {"psychoacoustics_layer1_stereo", psychoacoustics<standard_model, 1, 2>},
    {"psychoacoustics_layer2_mono", psychoacoustics<standard_model, 2, 1>},
    {"psychoacoustics_layer2_stereo", psychoacoustics<standard_model, 2, 2>},
    {"tuned_psychoacoustics_layer1_mono", psychoacoustics<tuned_model, 1, 1>},
    {"tuned_psychoacoustics_layer1_stereo", psychoacoustics<tuned_model, 1, 2>},
    {"tuned_psychoacoustics_layer2_mono", psychoacoustics<tuned_model, 2, 1>},
    {"tuned_psychoacoustics_layer2_stereo", psychoacoustics<tuned_model, 2, 2>},
    {"sum_products", noise<sum_products>},
    {"choose_ternary", noise<choose_ternary>},
    {"choose_finer", noise<choose_finer>},
    {"refine", noise<refine>},
    {"fit", noise<fit>},
    {"fit_again", noise<fit_again>},
    {"mix", noise<mix>},
    {"decode", noise<decode>},
    {"own_costs", noise<own_costs>},
    {"shared_costs", noise<shared_costs>},
    {"climb", noise<climb>},
    {"reach", noise<reach>},
    {"favour", noise<favour>},
    {"best_steps", noise<best_steps>},
    {"peaks", peaks},
    {"combine", combine},
    {"quantize_layer1", quantize<1>},
    {"quantize_layer2", quantize<2>},
    {"pack_layer1", pack<1>},
    {"pack_layer2", pack<2>},
};

} // namespace

std::span<const kernel> kernel_table() {
    return kernels;
}

} // namespace vela::bench
