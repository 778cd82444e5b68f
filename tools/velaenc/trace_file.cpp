#include "velaenc/trace_file.hpp"

#include "common/failure.hpp"
#include "vela_enc_mp1a/settings.h"

// The trace comes from inside the encoder, which no host may depend on; so the library does not export it,
// and the tool carries the core in itself.
#include "coding/bit_allocation.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace tools {
namespace {

using json = nlohmann::ordered_json;

/// dB to a hundredth.
double rounded(double decibel) {
    return std::round(decibel * 100) / 100;
}

/// Level of a subband in dB, a full-scale sine being 0.
double level_of(const vela::frame_decisions &f, int ch, int sb) {
    double sum = 0;
    for (int part = 0; part < f.config.parts(); ++part)
        for (int i = 0; i < 12; ++i)
            sum += f.samples[ch][part][i][sb] * f.samples[ch][part][i][sb];
    return 10 * std::log10(std::max(2 * sum / (12 * f.config.parts()), 1e-15));
}

template <class Value>
json rows_of(const vela::frame_decisions &f, Value value) {
    json rows = json::array();
    for (int ch = 0; ch < f.config.channels; ++ch) {
        rows.push_back(json::array());
        for (int sb = 0; sb < f.config.sblimit; ++sb)
            rows.back().push_back(value(ch, sb));
    }
    return rows;
}

/// Bits that every bound would need for inaudible noise: why the chosen one was chosen.
json demand_of(const vela::frame_decisions &f) {
    json demand = json::array();
    const auto add = [&](int bound) {
        demand.push_back(
            {{"bound", bound}, {"bits", vela::demanded_bits(f.config, f.smr, f.side, bound)}});
    };
    for (const int bound : vela::joint_bounds)
        if (bound < f.config.sblimit) add(bound);
    add(f.config.sblimit); // no subband shared
    return demand;
}

std::string line_of(std::uint64_t number, const vela::frame_decisions &f) {
    json line{{"frame", number},
              {"bits", f.frame_bits},
              {"left", f.stuffing},
              {"mode", f.header.mode},
              {"bound", f.side.joint_bound}};
    if (f.config.mode == MPEG_A_MODE_JOINT_STEREO) line["demand"] = demand_of(f);
    line["smr"] = rows_of(f, [&](int ch, int sb) { return rounded(f.smr[ch][sb]); });
    line["threshold"] =
        rows_of(f, [&](int ch, int sb) { return rounded(level_of(f, ch, sb) - f.smr[ch][sb]); });
    line["allocation"] = rows_of(f, [&](int ch, int sb) { return f.side.allocation[ch][sb]; });
    line["mnr"] = rows_of(f, [&](int ch, int sb) {
        return rounded(f.config.table->row(sb).snr[f.side.allocation[ch][sb]] - f.smr[ch][sb]);
    });
    return line.dump() + "\n";
}

} // namespace

struct trace_file::state {
    output_file &file;
    std::uint64_t frames = 0;
    bool memory_out = false;
    vela::frame_observer observer{[](void *context, const vela::frame_decisions &frame) noexcept {
                                      static_cast<state *>(context)->see(frame);
                                  },
                                  this};

    explicit state(output_file &to) : file(to) {}

    void see(const vela::frame_decisions &frame) noexcept {
        try {
            const std::string line = line_of(frames++, frame);
            file.write(std::as_bytes(std::span(line)));
        } catch (const std::exception &) {
            memory_out = true;
        }
    }
};

trace_file::trace_file(output_file &file) : state_(std::make_unique<state>(file)) {
}
trace_file::~trace_file() = default;

const vela::frame_observer &trace_file::observer() const noexcept {
    return state_->observer;
}

void trace_file::check() const {
    if (state_->memory_out) throw failure(exit_code::internal, "memory is out");
}

} // namespace tools
