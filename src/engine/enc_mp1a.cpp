#include "engine/enc_mp1a.hpp"

#include "api/presets.hpp"
#include "simd/float_environment.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

IEngine *get_encMP1A() noexcept {
    return new vela::enc_MP1A;
}

namespace vela {

namespace {

struct version_key {
    const char *key;
    double number;
};

constexpr version_key version_keys[] = {
    {"version::major", 2.0}, {"version::minor", 0.0}, {"version::revision", 1.0}};

/// The models by the numbers that "settings::audio_model" has for them. What is not here is number 0.
constexpr std::int32_t models[] = {MPEG_A_MODEL_STANDARD, MPEG_A_MODEL_TUNED};

std::int32_t number_of(std::int32_t model) noexcept {
    const auto *const found = std::ranges::find(models, model);
    return found == std::end(models) ? 0 : static_cast<std::int32_t>(found - models);
}

std::int32_t model_of(std::int32_t number) noexcept {
    return number < 0 || number >= std::ssize(models) ? models[0] : models[number];
}

/// What follows the family's prefix; null for a key of another family.
const char *name_in(std::string_view family, const char *key) noexcept {
    return std::strncmp(key, family.data(), family.size()) == 0 ? key + family.size() : nullptr;
}

std::int32_t not_supported(const char *what, const char *key) noexcept {
    std::printf("%s \"%s\" is not supported\n", what, key);
    return -1;
}

} // namespace

/// An operation of the host's. Called back by it, the host may ask and count, but not operate: false then.
/// It may even give up the last reference, which counts once the operation is over.
class enc_MP1A::operation {
  public:
    explicit operation(enc_MP1A &engine) noexcept : engine_(engine), is_allowed_(!engine.busy_) {
        if (!is_allowed_) return;
        engine_.AddRef();
        engine_.busy_ = true;
    }
    ~operation() {
        if (!is_allowed_) return;
        engine_.busy_ = false;
        engine_.Release();
    }
    operation(const operation &) = delete;
    operation &operator=(const operation &) = delete;

    explicit operator bool() const noexcept { return is_allowed_; }

  private:
    float_environment environment_; // numbers are read from text in here
    enc_MP1A &engine_;
    bool is_allowed_;
};

enc_MP1A::enc_MP1A() noexcept : params_(this), data_(this) {
}

enc_MP1A::~enc_MP1A() {
    // The sink may count and release once more while it gets the last frame; that must not lead here
    // again.
    EngineBase::AddRef();
    busy_ = true;
    close_encoder();
}

std::int32_t enc_MP1A::QueryInterface(const engine_iid &iid, IEngine *&holder) noexcept {
    if (iid == iid_API_GetSetParamStr) {
        assign_counted<IEngine>(holder, &params_);
        return 0;
    }
    if (iid == iid_API_PutData) {
        assign_counted<IEngine>(holder, &data_);
        return 0;
    }
    return iid == iid_IEngine ? 0 : -1;
}

// Keys.

std::int32_t enc_MP1A::GetSetParamStr::get_parameter(const char *key, double *value,
                                                     std::int32_t index) noexcept {
    if (key == nullptr || value == nullptr) return -1;
    const float_environment environment; // 64-bit numbers are rounded
    for (const version_key &version : version_keys) {
        if (std::strcmp(key, version.key) == 0) {
            *value = version.number;
            return 0;
        }
    }
    const std::optional<field> found = engine().field_of(key);
    if (!found || found->entry == nullptr || !has_element(*found->entry, index))
        return not_supported("get_parameter: key", key);
    *value = get_element(found->base, *found->entry, index);
    return 0;
}

std::int32_t enc_MP1A::GetSetParamStr::set_parameter(const char *key, std::int32_t index,
                                                     double value) noexcept {
    if (key == nullptr) return -1;
    const operation running(engine());
    if (!running) return -1;
    if (const char *const command = name_in("command::", key))
        return engine().run_command(key, command);
    const std::optional<field> found = engine().field_of(key);
    if (!found || found->entry == nullptr || !has_element(*found->entry, index))
        return not_supported("set_parameter: key", key);
    set_element(found->base, *found->entry, index, value);
    engine().written(*found);
    return 0;
}

std::int32_t enc_MP1A::GetSetParamStr::set_parameter_str(const char *key, const void *value,
                                                         std::int32_t size) noexcept {
    if (key == nullptr) return -1;
    const operation running(engine());
    if (!running) return -1;
    // The host passes objects through the pointer that carries text otherwise.
    void *const object = const_cast<void *>(value);
    if (std::strcmp(key, "init::output::bufstream") == 0) {
        engine().bind_output(static_cast<bufstream *>(object), nullptr);
        return 0;
    }
    if (value == nullptr) return -1;
    if (std::strcmp(key, "init::output::PushData") == 0)
        return engine().bind_sink(*static_cast<PushData *>(object));
    if (std::strcmp(key, "init::settings") == 0 && size == std::int32_t{sizeof(mpeg_a_settings)}) {
        engine_record &record = engine().record_;
        std::memcpy(&record.settings, value, sizeof(mpeg_a_settings));
        record.audio_model = number_of(record.settings.audio_model);
        engine().settings_ready_ = true;
        return 0;
    }
    const std::optional<field> found = engine().field_of(key);
    if (!found) return not_supported("parameter", key);
    if (found->entry == nullptr) return 1;
    set_elements(found->base, *found->entry, static_cast<const char *>(value));
    engine().written(*found);
    return 0;
}

std::optional<enc_MP1A::field> enc_MP1A::field_of(const char *key) noexcept {
    if (const char *const name = name_in("settings::", key)) {
        make_ready();
        return field{&record_, find_param(settings_table, name)};
    }
    if (const char *const name = name_in("preset::", key))
        return field{&preset_, find_param(preset_table, name)};
    return std::nullopt;
}

void enc_MP1A::written(const field &changed) noexcept {
    if (changed.base == &preset_) apply_preset();
}

void enc_MP1A::apply_preset() noexcept {
    preset_defaults(record_.settings, preset_, &record_.sample_rate);
    settings_ready_ = true;
}

void enc_MP1A::make_ready() noexcept {
    if (!settings_ready_) apply_preset();
}

std::int32_t enc_MP1A::run_command(const char *key, const char *name) noexcept {
    if (std::strcmp(name, "init") == 0) return open_encoder();
    if (std::strcmp(name, "done") != 0) return not_supported("set_parameter: key", key);
    close_encoder();
    return 0;
}

// The encoder.

std::int32_t enc_MP1A::PutData::put_data(const void *data, std::int32_t size,
                                         std::int32_t count) noexcept {
    const std::int64_t bytes = std::int64_t{size} * count;
    if (bytes < INT32_MIN || bytes > INT32_MAX) return -1;
    auto &engine = static_cast<enc_MP1A &>(*owner());
    const operation running(engine);
    if (!running) return -1;
    if (engine.encoder_ == nullptr && engine.open_encoder() != 0) return -1;
    const auto taken = static_cast<std::uint32_t>(std::max<std::int64_t>(bytes, 0));
    return engine.encoder_->put_bytes(data, taken) == 0 ? 0 : -1;
}

std::int32_t enc_MP1A::open_encoder() noexcept {
    make_ready();
    record_.settings.audio_model = model_of(record_.audio_model);
    if (encoder_ == nullptr) {
        encoder_ = mpeg_a_encoder::create(nullptr, &record_.settings, record_.sampling_bits >> 3,
                                          record_.sample_rate);
        if (encoder_ == nullptr) return -1;
    }
    if (encoder_->init(output_, best_level()) != 0) {
        end_encoder();
        return -1;
    }
    if (sink_ != nullptr) describe_stream();
    return 0;
}

void enc_MP1A::describe_stream() noexcept {
    PushData &sink = *sink_;
    sink.set_parameter_str("encoding::MP1A::info", &encoder_->header(), sizeof(frame_header), 0);
    const bool mono = record_.settings.audio_mode == MPEG_A_MODE_MONO;
    sink.set_parameter("original::audio::PCM::channels", 0, mono ? 1.0 : 2.0);
    sink.set_parameter("original::audio::PCM::sampling::bits", 0, record_.sampling_bits);
    sink.set_parameter("original::audio::PCM::sampling::rate", 0, record_.sample_rate);
}

/// After a failed init nothing is pending.
void enc_MP1A::end_encoder() noexcept {
    if (encoder_ == nullptr) return;
    encoder_->done(false);
    mpeg_a_encoder::destroy(std::exchange(encoder_, nullptr));
    while (replaced_ != nullptr)
        pushdata_bufstream::free(std::exchange(replaced_, replaced_->next));
}

void enc_MP1A::close_encoder() noexcept {
    end_encoder();
    if (sink_ != nullptr) bind_output(nullptr, nullptr);
}

std::int32_t enc_MP1A::bind_sink(PushData &sink) noexcept {
    pushdata_bufstream *const adapter = pushdata_bufstream::create(sink);
    if (adapter == nullptr) return -1;
    sink.AddRef();
    bind_output(adapter, &sink);
    return 0;
}

/// An adapter and the sink that it was made for come and go together. An adapter that the open encoder
/// writes to must live on, and with it its own reference on the sink.
void enc_MP1A::bind_output(bufstream *output, PushData *sink) noexcept {
    bufstream *const old_output = std::exchange(output_, output);
    PushData *const old_sink = std::exchange(sink_, sink);
    if (old_sink == nullptr) return;
    auto *const adapter = static_cast<pushdata_bufstream *>(old_output);
    if (encoder_ != nullptr) {
        adapter->next = std::exchange(replaced_, adapter);
    } else {
        pushdata_bufstream::free(adapter);
    }
    old_sink->Release();
}

} // namespace vela
