// Random hosts of the plug-in engine: keys, values and text in any order with data, bindings and commands;
// sinks and streams that fail, call back, and give up the last reference from inside a call. Every frame
// that comes out whole is one by the standard's syntax.
#include "engine/engine_host.hpp"
#include "judged_frame.hpp"
#include "random_settings.hpp"

namespace {

using namespace mp1a_test;
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

struct host {
    explicit host(fuzz::byte_source &bytes) : from(bytes) {
        GTEST_FLAG_SET(break_on_failure, true); // the sinks expect much
        for (sink &each : sinks)
            each.hook = [&](char) { each.result = inside_call(); };
        for (fake_output &each : streams)
            each.hook = [&] {
                if (inside_call() != 7) return;
                each.refused_request = each.requests;
                each.short_commit = each.commits;
            };
    }
    host(const host &) = delete;
    host &operator=(const host &) = delete;
    ~host() {
        if (!gone()) user.set("command::done", 0);
        for (const sink &each : sinks)
            for (const delivered_frame &frame : each.frames)
                if (!frame.bytes.empty()) fuzz::judge_frame(frame.bytes);
        for (const fake_output &each : streams)
            fuzz::judge_frames(each, true);
    }

    bool gone() const { return user.references <= 0; }
    void release_all() {
        while (user.references-- > 0)
            call(user.data, 2);
    }

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
            return write_number();
        case 2:
            return write_text();
        case 3:
            return read_number();
        case 4:
            user.bind(sinks[from.below(2)]);
            return;
        case 5:
            return bind_stream();
        case 6:
            user.set(from.below(4) == 0 ? "command::done" : "command::init", 0);
            return;
        default:
            put();
        }
    }

    void read_number() {
        double value = 0;
        const char *const name = key();
        double *const to = from.below(16) == 15 ? nullptr : &value;
        call(user.params, 4, name, to, from.below(3) - 1);
    }

    /// What was written can be read.
    void write_number() {
        const char *const name = key();
        const i32 index = from.below(16) == 15 ? from.value<i32>() : 0;
        const double number = from.below(4) == 0 ? from.value<double>() : from.about(0, 100);
        const bool written = call(user.params, 3, name, index, number) == 0;
        double value = 0;
        if (!written || std::strncmp(name, "command::", 9) == 0 || gone()) return;
        expect(call(user.params, 4, name, &value, index) == 0, "a field that cannot be read");
    }

    void write_text() {
        const char *const picked = key();
        const std::string name = picked == nullptr ? "" : picked;
        if (name.starts_with("init::output")) return; // those take objects, not text
        if (name == "init::settings") {
            const mpeg_a_settings record = fuzz::read_settings(from);
            user.text(name.c_str(), &record,
                      from.below(8) == 7 ? from.about(0, 100) : i32{sizeof record});
            return;
        }
        const auto bytes = from.take(static_cast<std::size_t>(from.below(16)));
        const std::string value(bytes.begin(), bytes.end());
        user.text(picked, from.below(16) == 15 ? nullptr : value.c_str(),
                  static_cast<i32>(value.size()));
    }

    void bind_stream() {
        fake_output &bound = streams[from.below(2)];
        bound.chunk = from.below(4) == 0 ? from.below(2100U) : 2048;
        bufstream *const slots = from.below(4) == 0 ? nullptr : &bound; // not what lies before them
        user.text("init::output::bufstream", slots);
    }

    /// Elements of any size; nothing lies behind them.
    void put() {
        if (from.below(8) == 7) {
            const i32 size = from.about(0, 8);
            user.put(nullptr, from.about(0, 100), size);
            if (!gone()) user.put(this, 1 + from.below(100), -1); // no size: nothing is read
            return;
        }
        const auto seed = from.take(1 + static_cast<std::size_t>(from.below(64)));
        const std::size_t size = 1 + from.below(std::size_t{8}), count = from.below(std::size_t{2000});
        const auto pcm = std::make_unique<std::uint8_t[]>(size * count);
        for (std::size_t i = 0; i < size * count && !seed.empty(); ++i)
            pcm[i] = seed[i % seed.size()];
        user.put(pcm.get(), static_cast<i32>(count), static_cast<i32>(size));
    }

    /// From inside a call: what is allowed there, and what has to be refused.
    i32 inside_call() {
        if (gone()) call(user.data, 0), call(user.data, 2); // no end comes twice
        if (gone() || from.below(8) != 0) return 0;
        const i32 refused = user.set("command::done", 0) + user.set("command::init", 0)
                            + user.set("settings::audio_mode", 1)
                            + user.text("settings::audio_mode", "1") + user.bind(sinks[0])
                            + user.text("init::output::bufstream", nullptr) + user.put(nullptr, 0);
        expect(refused == -7, "a call back was not refused");
        expect(user.get("settings::audio_mode") != -12345, "a question was refused");
        const i32 count = call(user.engine, 0);
        void *holder = nullptr;
        call(user.engine, 1, data_identifier, &holder);
        call(holder, 2);
        expect(call(user.engine, 2) == count - 1, "counting went wrong");
        if (from.below(32) == 31) release_all();
        return from.below(8);
    }

    fuzz::byte_source &from;
    std::string text;
    sink sinks[2];
    fake_output streams[2]{fake_output(2048), fake_output(2048)};
    mp1a_test::user user; // lets go of the sinks
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::byte_source from({data, size});
    host random(from);
    while (!from.empty() && !random.gone())
        random.step();
    return 0;
}
