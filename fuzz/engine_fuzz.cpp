// Random hosts of the plug-in engine: keys, values and text in any order with data, bindings, commands,
// and sinks and streams that call back.
#include "byte_source.hpp"
#include "vela_enc_mp1a/engine.h"

#include <memory>
#include <string>
#include <vector>

namespace {

using fuzz::expect;

constexpr const char *keys[] = {"version::major",
                                "settings::audio_mode",
                                "settings::audio_layer",
                                "settings::audio_bitrate",
                                "settings::error_protection",
                                "settings::emphasis",
                                "settings::pts_offset",
                                "settings::pts_units",
                                "settings::sample_rate",
                                "settings::sampling_bits",
                                "settings::audio_model",
                                "settings::",
                                "preset::audio_type",
                                "preset::video_type",
                                "command::init",
                                "command::done",
                                "command::",
                                "init::settings",
                                "init::output::bufstream",
                                "init::output::PushData",
                                "",
                                "settings::audio_bitrate "};

struct host;

/// A sink whose frames must be whole, and which calls the engine from inside its own calls.
struct sink final : PushData {
    explicit sink(host &owner) : host_(owner) {}
    std::int32_t AddRef() noexcept override { return ++references; }
    std::int32_t Release() noexcept override { return --references; }
    std::int32_t set_parameter(const char *, std::int32_t, double) noexcept override {
        return call_back();
    }
    std::int32_t set_parameter_str(const char *, const void *, std::int32_t,
                                   std::int32_t) noexcept override {
        return call_back();
    }
    std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept override {
        expect(length == announced && length >= 4 && bytes[0] == 0xFF, "no frame was pushed");
        return call_back();
    }
    std::int32_t begin_unit(std::int32_t length, std::int32_t) noexcept override {
        announced = length;
        return call_back();
    }
    std::int32_t end_unit() noexcept override { return call_back(); }
    std::int32_t set_time_stamps(std::int64_t first, std::int64_t second) noexcept override {
        expect(first == second, "two time stamps");
        return call_back();
    }
    std::int32_t call_back() noexcept;

    host &host_;
    std::int32_t references = 1, announced = -1;
};

struct stream : bufstream {
    explicit stream(host &owner) : bufstream{}, host_(owner) {
        request = [](bufstream *self, std::uint32_t n) { return static_cast<stream *>(self)->lend(n); };
        commit = [](bufstream *self, std::uint32_t n) {
            static_cast<stream *>(self)->call_back();
            static_cast<stream *>(self)->block.reset();
            return n;
        };
        chunk_size = [](bufstream *) { return std::uint32_t{2048}; };
        auxinfo = [](bufstream *self, std::uint32_t, std::uint32_t, const void *, std::uint32_t) {
            static_cast<stream *>(self)->call_back();
            return std::uint32_t{};
        };
    }
    std::uint8_t *lend(std::uint32_t n) noexcept {
        block = call_back() == 7 ? nullptr : std::make_unique<std::uint8_t[]>(n);
        return block.get();
    }
    std::int32_t call_back() noexcept;

    host &host_;
    std::unique_ptr<std::uint8_t[]> block;
};

struct host {
    explicit host(fuzz::byte_source &bytes) : from(bytes) {
        engine->QueryInterface(iid_API_GetSetParamStr, params_holder);
        engine->QueryInterface(iid_API_PutData, data_holder);
    }
    ~host() {
        inside = true; // what follows comes from here
        params_holder->Release();
        data_holder->Release();
        engine->Release();
        for (const sink &each : sinks)
            expect(each.references == 1, "a sink's references were lost or kept");
    }

    API_GetSetParamStr &params() { return *static_cast<API_GetSetParamStr *>(params_holder); }

    const char *key() {
        const int pick = from.below(32);
        if (pick < 22) return keys[pick];
        text.clear();
        for (const std::uint8_t byte : from.take(12))
            text += static_cast<char>(byte);
        return text.c_str();
    }

    void step() {
        switch (from.below(8)) {
        case 0:
        case 1:
            params().set_parameter(key(), from.below(16) == 15 ? from.value<std::int32_t>() : 0,
                                   number());
            break;
        case 2:
            write_text();
            break;
        case 3: {
            double value = 0;
            params().get_parameter(key(), &value, from.below(3) - 1);
            break;
        }
        case 4:
            params().set_parameter_str("init::output::PushData", &sinks[from.below(2)], 0);
            break;
        case 5:
            params().set_parameter_str("init::output::bufstream",
                                       from.below(4) == 0 ? nullptr : &streams[from.below(2)], 0);
            break;
        default:
            put();
        }
    }

    double number() { return from.below(4) == 0 ? from.value<double>() : from.about(0, 100); }

    void write_text() {
        const std::string name = key();
        if (name.starts_with("init::output")) return; // those take objects, not text
        if (name == "init::settings") {
            mpeg_a_settings record{};
            mpegOutAudioDefaults(&record, from.about(0, 19));
            record.audio_bitrate = from.about(0, 15);
            params().set_parameter_str(name.c_str(), &record, sizeof record);
            return;
        }
        std::string value;
        for (const std::uint8_t byte : from.take(static_cast<std::size_t>(from.below(16))))
            value += static_cast<char>(byte);
        params().set_parameter_str(name.c_str(), value.c_str(),
                                   static_cast<std::int32_t>(value.size()));
    }

    void put() {
        std::vector<std::uint8_t> pcm(static_cast<std::size_t>(from.below(256)) * 64);
        for (auto &byte : pcm)
            byte =
                static_cast<std::uint8_t>(pcm.size() + 31U * static_cast<unsigned>(&byte - pcm.data()));
        auto &data = *static_cast<API_PutData *>(data_holder);
        if (from.below(8) == 7) {
            data.put_data(nullptr, 0, 0);
            data.put_data(pcm.data(), -1, 5);
        } else {
            data.put_data(pcm.data(), 1, static_cast<std::int32_t>(pcm.size()));
        }
    }

    /// From inside a call: what is allowed there, and what has to be refused.
    std::int32_t inside_call() {
        if (inside || from.below(8) != 0) return 0;
        inside = true;
        const std::int32_t refused[] = {
            params().set_parameter("command::done", 0, 0),
            params().set_parameter("settings::audio_mode", 0, 1),
            params().set_parameter_str("init::output::bufstream", nullptr, 0)};
        for (const std::int32_t result : refused)
            expect(result == -1, "a call back was not refused");
        const std::int32_t count = engine->AddRef();
        expect(engine->Release() == count - 1, "counting went wrong");
        inside = false;
        return from.below(8);
    }

    fuzz::byte_source &from;
    IEngine *engine = get_encMP1A(), *params_holder = nullptr, *data_holder = nullptr;
    sink sinks[2]{sink(*this), sink(*this)};
    stream streams[2]{stream(*this), stream(*this)};
    std::string text;
    bool inside = false;
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
    while (!from.empty())
        user.step();
    return 0;
}
