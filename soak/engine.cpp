// Through the engine and a sink that is pushed to.
#include "vela_enc_mp1a/engine.h"
#include "ways.hpp"

namespace soak {
namespace {

class sink : public PushData {
  public:
    explicit sink(judge &of) : judge_(of) {}
    virtual ~sink() = default;
    std::int32_t AddRef() noexcept override { return ++references; }
    std::int32_t Release() noexcept override { return --references; }
    std::int32_t set_parameter(const char *, std::int32_t, double) noexcept override { return 0; }
    std::int32_t set_parameter_str(const char *, const void *, std::int32_t,
                                   std::int32_t) noexcept override {
        return 0;
    }
    std::int32_t set_time_stamps(std::int64_t time, std::int64_t) noexcept override {
        time_ = time;
        return 0;
    }
    std::int32_t begin_unit(std::int32_t, std::int32_t) noexcept override { return 0; }
    std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept override {
        judge_.take({bytes, static_cast<std::size_t>(length)}, time_);
        return 0;
    }
    std::int32_t end_unit() noexcept override { return 0; }

    int references = 1;

  private:
    judge &judge_;
    std::int64_t time_ = 0;
};

/// An engine, its interfaces, and a sink that it is bound to.
class driven_engine {
  public:
    driven_engine(const settings &how, judge &judging) : sink_(judging), engine_(get_encMP1A()) {
        IEngine *params = nullptr, *data = nullptr;
        engine_->QueryInterface(iid_API_GetSetParamStr, params);
        engine_->QueryInterface(iid_API_PutData, data);
        params_ = static_cast<API_GetSetParamStr *>(params);
        data_ = static_cast<API_PutData *>(data);
        const mpeg_a_settings record = how.record();
        params_->set_parameter_str("init::settings", &record, sizeof record);
        params_->set_parameter("settings::sample_rate", 0, how.rate);
        params_->set_parameter("settings::sampling_bits", 0, 8 * how.width);
        params_->set_parameter_str("init::output::PushData", static_cast<PushData *>(&sink_), 0);
    }
    ~driven_engine() {
        params_->Release();
        data_->Release();
        if (engine_->Release() != 0 || sink_.references != 1) fail("references are lost or kept");
    }
    driven_engine(const driven_engine &) = delete;
    driven_engine &operator=(const driven_engine &) = delete;

    void put(std::span<const std::uint8_t> pcm) {
        if (data_->put_data(pcm.data(), 1, static_cast<std::int32_t>(pcm.size())) != 0)
            fail("the engine fails");
    }
    void done() { params_->set_parameter("command::done", 0, 0); }

  private:
    sink sink_;
    IEngine *engine_;
    API_GetSetParamStr *params_ = nullptr;
    API_PutData *data_ = nullptr;
};

class engine_voice final : public voice {
  public:
    explicit engine_voice(const settings &how) : voice(how), endless_(how, judge_) {}

    /// An engine's whole life.
    void start_afresh() override {
        judge fresh(how_, segment_, known_);
        driven_engine engine(how_, fresh);
        for (int i = 0; i < 2; ++i)
            in_pieces([&](std::span<const std::uint8_t> piece) { engine.put(piece); });
    }
    void end() override { endless_.done(); }

  private:
    void put(std::span<const std::uint8_t> pcm) override { endless_.put(pcm); }

    driven_engine endless_;
};

} // namespace

std::unique_ptr<voice> by_engine(const settings &how) {
    return std::make_unique<engine_voice>(how);
}

} // namespace soak
