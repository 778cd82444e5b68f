// A host of the plug-in engine: loads the library, encodes one second of a tone, writes the frames to a
// file.
//
//     engine_host LIBRARY OUT.mp2
#include "vela_enc_mp1a/engine.h"

#include <cmath>
#include <cstdio>
#include <dlfcn.h>
#include <memory>
#include <vector>

namespace {

/// Writes the frames to a file as they come. Lives as long as somebody holds a reference.
class file_sink final : public PushData {
  public:
    explicit file_sink(const char *name) : file_(std::fopen(name, "wb")) { works_ = file_ != nullptr; }

    std::int32_t AddRef() noexcept override { return ++references_; }
    std::int32_t Release() noexcept override {
        const std::int32_t left = --references_;
        if (left == 0) delete this;
        return left;
    }

    std::int32_t set_parameter(const char *key, std::int32_t, double value) noexcept override {
        std::printf("%s %g\n", key, value);
        return 0;
    }
    std::int32_t set_parameter_str(const char *, const void *, std::int32_t,
                                   std::int32_t) noexcept override {
        return 0; // "encoding::MP1A::info": the headers of the frames say the same
    }

    std::int32_t set_time_stamps(std::int64_t time, std::int64_t) noexcept override {
        time_ = time;
        return 0;
    }
    std::int32_t begin_unit(std::int32_t, std::int32_t) noexcept override { return 0; }
    std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept override {
        const auto size = static_cast<std::size_t>(length);
        works_ = works_ && std::fwrite(bytes, 1, size, file_) == size;
        return 0;
    }
    std::int32_t end_unit() noexcept override {
        ++frames_;
        return 0;
    }

    /// The engine ignores what a sink returns, so the host asks its sink itself.
    bool finish() noexcept {
        if (file_ != nullptr && std::fclose(file_) != 0) works_ = false;
        file_ = nullptr;
        std::printf("%d frames, %.3f s\n", frames_, static_cast<double>(time_) / 27e6);
        return works_;
    }

  private:
    virtual ~file_sink() { // virtual or not: it is behind the slots that the engine calls
        if (file_ != nullptr) std::fclose(file_);
    }

    std::FILE *file_;
    bool works_ = false;
    std::int32_t references_ = 1;
    int frames_ = 0;
    std::int64_t time_ = 0;
};

/// Gives a reference up at the end of its scope.
struct releaser {
    void operator()(IEngine *counted) const noexcept { counted->Release(); }
};
template <class I>
using reference = std::unique_ptr<I, releaser>;

template <class I>
reference<I> interface_of(IEngine &engine, const engine_iid &iid) {
    IEngine *holder = nullptr;
    engine.QueryInterface(iid, holder);
    return reference<I>(static_cast<I *>(holder));
}

std::vector<float> one_second_of_440_hz() {
    std::vector<float> samples;
    for (int i = 0; i < 48000; ++i) {
        const auto value = static_cast<float>(0.5 * std::sin(2 * 3.14159265358979 * 440 / 48000 * i));
        samples.insert(samples.end(), {value, value});
    }
    return samples;
}

bool encode(IEngine &engine, file_sink &sink) {
    const auto params = interface_of<API_GetSetParamStr>(engine, iid_API_GetSetParamStr);
    const auto input = interface_of<API_PutData>(engine, iid_API_PutData);
    if (params == nullptr || input == nullptr) return false;
    params->set_parameter("preset::audio_type", 0, MPEG_A_PRESET_HDV);
    params->set_parameter("settings::sampling_bits", 0, 32);
    params->set_parameter_str("init::output::PushData", static_cast<PushData *>(&sink), 0);
    const std::vector<float> pcm = one_second_of_440_hz();
    const int result =
        input->put_data(pcm.data(), sizeof(float), static_cast<std::int32_t>(pcm.size()));
    params->set_parameter("command::done", 0, 0);
    return result == 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: engine_host LIBRARY OUT.mp2\n");
        return 2;
    }
    void *const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    void *const symbol = library == nullptr ? nullptr : dlsym(library, "get_encMP1A");
    if (symbol == nullptr) {
        std::fprintf(stderr, "engine_host: %s\n", dlerror());
        return 1;
    }
    bool works = false;
    {
        const reference<file_sink> sink(new file_sink(argv[2]));
        const reference<IEngine> engine(reinterpret_cast<get_encMP1A_function>(symbol)());
        works = engine != nullptr && encode(*engine, *sink);
        works = sink->finish() && works;
    }
    dlclose(library); // only after the last Release: the engine's code is in there
    if (!works) std::fprintf(stderr, "engine_host: cannot encode to %s\n", argv[2]);
    return works ? 0 : 1;
}
