// Through the functions: beside the encoder that never ends there is one that starts afresh, again and again.
#include "vela_enc_mp1a/encoder.h"
#include "ways.hpp"

#include <array>

namespace soak {
namespace {

/// Lends the same block again and again; its frames go to a judge.
struct output : bufstream {
    explicit output(judge &of) : bufstream{}, judging(of) {
        chunk_size = [](bufstream *) { return std::uint32_t{4096}; };
        request = [](bufstream *s, std::uint32_t) { return self(s).block.data(); };
        commit = [](bufstream *s, std::uint32_t n) { return self(s).size = n; };
        // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.UninitializedObject): bufstream{} clears what is not set
        auxinfo = [](bufstream *s, std::uint32_t, std::uint32_t id, const void *data, std::uint32_t) {
            const auto &info = *static_cast<const frame_info *>(data);
            if (id == MPEG_A_FRAME_INFO)
                self(s).judging.take(std::span(self(s).block).first(info.length), info.time_stamp);
            return std::uint32_t{0};
        };
    }
    static output &self(bufstream *s) { return *static_cast<output *>(s); }

    judge &judging;
    std::array<std::uint8_t, 4096> block{};
    std::uint32_t size = 0;
};

class function_voice final : public voice {
  public:
    explicit function_voice(const settings &how)
        : voice(how), endless_(make()), again_(make()), output_(judge_) {
        mpegOutAudioInit(endless_, &output_);
    }
    ~function_voice() override {
        mpegOutAudioFree(endless_);
        mpegOutAudioFree(again_);
    }

    void start_afresh() override {
        mpeg_a_encoder *const made = make();
        // Init in the middle of a frame of the stream before, and on an encoder of its own.
        for (mpeg_a_encoder *const encoder : {again_, made}) {
            judge fresh(how_, segment_, known_);
            output to(fresh);
            mpegOutAudioInit(encoder, &to);
            for (int i = 0; i < 2; ++i)
                in_pieces([&](std::span<const std::uint8_t> piece) { put(encoder, piece); });
            put(encoder, std::span(segment_.pcm).first(1000));
        }
        mpegOutAudioFree(made);
    }
    void end() override { mpegOutAudioDone(endless_, 0); }

  private:
    mpeg_a_encoder *make() const {
        const mpeg_a_settings record = how_.record();
        mpeg_a_encoder *const made = mpegOutAudioNew(nullptr, &record, 0, how_.width, how_.rate);
        return made != nullptr ? made : (fail("no encoder"), nullptr);
    }
    void put(std::span<const std::uint8_t> pcm) override { put(endless_, pcm); }
    static void put(mpeg_a_encoder *encoder, std::span<const std::uint8_t> pcm) {
        if (mpegOutAudioPutBytes(encoder, pcm.data(), static_cast<std::uint32_t>(pcm.size())) != 0)
            fail("the functions fail");
    }

    mpeg_a_encoder *endless_, *again_;
    output output_;
};

} // namespace

std::unique_ptr<voice> by_functions(const settings &how) {
    return std::make_unique<function_voice>(how);
}

} // namespace soak
