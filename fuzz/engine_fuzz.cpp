// Random hosts of the plug-in engine: keys, values and text in any order with data, bindings and commands;
// sinks and streams that fail, call back, and give up the last reference from inside a call. Every frame
// that comes out whole is one by the standard's syntax.
#include "byte_source.hpp"
#include "lent_blocks.hpp"
#include "random_settings.hpp"
#include "vela_enc_mp1a/engine.h"

#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using fuzz::expect;

/// Every key and some that there are not.
std::vector<std::string> make_keys() {
    std::istringstream list("audio_mode,audio_layer,psych_model,audio_bitrate,emphasis,extension,"
                            "error_protection,copyright,original,pts_offset,pts_units,sample_rate,"
                            "sampling::rate,sampling_bits,sampling::bits,audio_model,,audio_bitrate ,"
                            ":preset::audio_type,:preset::video_type,:preset::,:version::major,"
                            ":version::minor,:version::revision,:command::init,:command::done,"
                            ":command::,:init::settings,:init::output::bufstream,"
                            ":init::output::PushData,:");
    std::vector<std::string> keys;
    for (std::string name; std::getline(list, name, ',');)
        keys.push_back(name.starts_with(':') ? name.substr(1) : "settings::" + name);
    return keys;
}

const std::vector<std::string> keys = make_keys();

struct host;

/// A sink whose frames must be whole. Nothing that it answers matters.
struct sink final : PushData {
    explicit sink(host &owner) : host_(owner) {}
    std::int32_t AddRef() noexcept override { return ++references; }
    std::int32_t Release() noexcept override { return --references; }
    std::int32_t set_parameter(const char *, std::int32_t, double) noexcept override {
        return call_back();
    }
    std::int32_t set_parameter_str(const char *, const void *value, std::int32_t size,
                                   std::int32_t reserved) noexcept override {
        expect(value != nullptr && size == sizeof(frame_header) && reserved == 0, "no header");
        return call_back();
    }
    std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept override {
        expect(length == announced && length >= 4, "another length than announced");
        fuzz::judge_frame({bytes, static_cast<std::size_t>(length)});
        return call_back();
    }
    std::int32_t begin_unit(std::int32_t length, std::int32_t) noexcept override {
        announced = length;
        return call_back();
    }
    std::int32_t end_unit() noexcept override {
        announced = -1;
        return call_back();
    }
    std::int32_t set_time_stamps(std::int64_t first, std::int64_t second) noexcept override {
        expect(first == second, "two time stamps");
        return call_back();
    }
    std::int32_t call_back() noexcept;

    host &host_;
    std::int32_t references = 1, announced = -1;
};

struct stream final : fuzz::lent_blocks {
    explicit stream(host &owner) : host_(owner) {}
    std::uint32_t next_chunk() override {
        failed = false; // nobody else tells of a new stream
        call_back();
        return chunk;
    }
    bool refuses_request() override { return call_back() == 7; }
    std::uint32_t accept(std::uint32_t n) override { return call_back() == 7 ? n / 2 : n; }
    void inform() override { call_back(); }
    std::int32_t call_back() noexcept;

    host &host_;
    std::uint32_t chunk = 2048;
};

struct host {
    explicit host(fuzz::byte_source &bytes) : from(bytes) {
        engine->QueryInterface(iid_API_GetSetParamStr, params_holder);
        engine->QueryInterface(iid_API_PutData, data_holder);
    }
    host(const host &) = delete;
    host &operator=(const host &) = delete;
    ~host() {
        if (!gone) release_all();
        for (const sink &each : sinks)
            expect(each.references == 1, "a sink's references were lost or kept");
    }

    /// What the sinks get from then on is answered without the engine.
    void release_all() {
        gone = true;
        params_holder->Release();
        data_holder->Release();
        engine->Release();
    }

    API_GetSetParamStr &params() { return *static_cast<API_GetSetParamStr *>(params_holder); }
    API_PutData &data() { return *static_cast<API_PutData *>(data_holder); }

    const char *key() {
        const std::size_t pick = from.below(keys.size() + 5);
        if (pick <= keys.size()) return pick < keys.size() ? keys[pick].c_str() : nullptr;
        text = pick % 2 == 0 ? "settings::" : "";
        for (const std::uint8_t byte : from.take(12))
            text += static_cast<char>(byte);
        return text.c_str();
    }

    void step() {
        switch (from.below(10)) {
        case 0:
        case 1:
            write_number();
            break;
        case 2:
            write_text();
            break;
        case 3: {
            double value = 0;
            params().get_parameter(key(), from.below(16) == 15 ? nullptr : &value, from.below(3) - 1);
            break;
        }
        case 4:
            params().set_parameter_str("init::output::PushData", &sinks[from.below(2)], 0);
            break;
        case 5:
            bind_stream();
            break;
        case 6:
            params().set_parameter(from.below(4) == 0 ? "command::done" : "command::init", 0, 0);
            break;
        default:
            put();
        }
    }

    double number() { return from.below(4) == 0 ? from.value<double>() : from.about(0, 100); }

    /// What was written can be read.
    void write_number() {
        const char *const name = key();
        const std::int32_t index = from.below(16) == 15 ? from.value<std::int32_t>() : 0;
        const bool is_command = name != nullptr && std::strncmp(name, "command::", 9) == 0;
        const bool written = params().set_parameter(name, index, number()) == 0;
        double value = 0;
        if (!written || is_command || gone) return;
        expect(params().get_parameter(name, &value, index) == 0, "a field that cannot be read");
    }

    void write_text() {
        const char *const picked = key();
        if (picked == nullptr) {
            expect(params().set_parameter_str(nullptr, "1", 1) == -1, "no key was taken");
            return;
        }
        const std::string name = picked;
        if (name.starts_with("init::output")) return; // those take objects, not text
        if (name == "init::settings") {
            const mpeg_a_settings record = fuzz::read_settings(from);
            const std::int32_t size =
                from.below(8) == 7 ? from.about(0, 100) : std::int32_t{sizeof record};
            params().set_parameter_str(name.c_str(), &record, size);
            return;
        }
        std::string value;
        for (const std::uint8_t byte : from.take(static_cast<std::size_t>(from.below(16))))
            value += static_cast<char>(byte);
        params().set_parameter_str(name.c_str(), from.below(16) == 15 ? nullptr : value.c_str(),
                                   static_cast<std::int32_t>(value.size()));
    }

    void bind_stream() {
        stream &bound = streams[from.below(2)];
        bound.chunk = from.below(4) == 0 ? static_cast<std::uint32_t>(from.below(2100)) : 2048;
        bufstream *const slots = from.below(4) == 0 ? nullptr : &bound; // not what lies before them
        params().set_parameter_str("init::output::bufstream", slots, 0);
    }

    /// Elements of any size; nothing lies behind them.
    void put() {
        if (from.below(8) == 7) {
            data().put_data(nullptr, from.about(0, 8), from.about(0, 100));
            if (!gone) data().put_data(this, -1, 1 + from.below(100)); // no size: nothing is read
            return;
        }
        const auto seed = from.take(1 + static_cast<std::size_t>(from.below(64)));
        const std::size_t size = 1 + from.below(std::size_t{8}), count = from.below(std::size_t{2000});
        const auto pcm = std::make_unique<std::uint8_t[]>(size * count);
        for (std::size_t i = 0; i < size * count && !seed.empty(); ++i)
            pcm[i] = seed[i % seed.size()];
        data().put_data(pcm.get(), static_cast<std::int32_t>(size), static_cast<std::int32_t>(count));
    }

    /// From inside a call: what is allowed there, and what has to be refused.
    std::int32_t inside_call() {
        if (gone || from.below(8) != 0) return 0;
        const std::int32_t refused[] = {
            params().set_parameter("command::done", 0, 0),
            params().set_parameter("command::init", 0, 0),
            params().set_parameter("settings::audio_mode", 0, 1),
            params().set_parameter_str("settings::audio_mode", "1", 1),
            params().set_parameter_str("init::output::PushData", &sinks[0], 0),
            params().set_parameter_str("init::output::bufstream", nullptr, 0),
            data().put_data(nullptr, 0, 0)};
        for (const std::int32_t result : refused)
            expect(result == -1, "a call back was not refused");
        double mode = 0;
        expect(params().get_parameter("settings::audio_mode", &mode, 0) == 0, "a question was refused");
        IEngine *holder = nullptr;
        const std::int32_t count = engine->AddRef();
        engine->QueryInterface(iid_API_PutData, holder);
        holder->Release();
        expect(engine->Release() == count - 1, "counting went wrong");
        if (from.below(32) == 31) release_all();
        return from.below(8);
    }

    fuzz::byte_source &from;
    IEngine *engine = get_encMP1A(), *params_holder = nullptr, *data_holder = nullptr;
    sink sinks[2]{sink(*this), sink(*this)};
    stream streams[2]{stream(*this), stream(*this)};
    std::string text;
    bool gone = false; ///< the host's references
};

std::int32_t sink::call_back() noexcept {
    return host_.inside_call();
}
std::int32_t stream::call_back() noexcept {
    return host_.inside_call();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::byte_source from({data, size});
    host user(from);
    while (!from.empty() && !user.gone)
        user.step();
    return 0;
}
