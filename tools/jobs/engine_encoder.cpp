#include "jobs/engine_encoder.hpp"

#include "common/failure.hpp"

#include <cstring>

namespace tools {
namespace {

engine_reference queried(IEngine &engine, const engine_iid &name) {
    IEngine *found = nullptr;
    engine.QueryInterface(name, found);
    return engine_reference(found);
}

} // namespace

std::int32_t frame_sink::set_time_stamps(std::int64_t first, std::int64_t) noexcept {
    frame_.time_stamp = first;
    return 0;
}

std::int32_t frame_sink::begin_unit(std::int32_t length, std::int32_t) noexcept {
    frame_.length = static_cast<std::uint32_t>(length);
    return 0;
}

std::int32_t frame_sink::push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept {
    const auto size = static_cast<std::uint32_t>(length);
    bufstream *const stream = to_.stream();
    std::uint8_t *const room = stream->request(stream, size);
    overflowed_ = overflowed_ || room == nullptr;
    if (overflowed_) return -1;
    std::memcpy(room, bytes, size);
    stream->commit(stream, size);
    return 0;
}

std::int32_t frame_sink::end_unit() noexcept {
    if (overflowed_) return -1;
    bufstream *const stream = to_.stream();
    stream->auxinfo(stream, 0, MPEG_A_FRAME_INFO, &frame_, sizeof frame_);
    return 0;
}

engine_encoder::engine_encoder(const mpeg_a_settings &settings, const pcm_shape &shape,
                               std::size_t room)
    : output_(room), sink_(output_) {
    const engine_reference engine(get_encMP1A());
    if (!engine) throw failure(exit_code::internal, "no memory for the engine");
    params_ = queried(*engine, iid_API_GetSetParamStr);
    input_ = queried(*engine, iid_API_PutData);
    auto *const params = static_cast<API_GetSetParamStr *>(params_.get());
    params->set_parameter_str("init::settings", &settings, sizeof settings);
    params->set_parameter("settings::sample_rate", 0, shape.rate);
    params->set_parameter("settings::sampling_bits", 0, 8 * static_cast<int>(shape.format));
    const std::int32_t bound =
        params->set_parameter_str("init::output::PushData", static_cast<PushData *>(&sink_), 0);
    if (bound != 0 || params->set_parameter("command::init", 0, 0) != 0)
        throw failure(exit_code::internal, "the engine cannot be opened");
}

void engine_encoder::put(std::span<const std::byte> pcm) {
    auto *const input = static_cast<API_PutData *>(input_.get());
    if (input->put_data(pcm.data(), 1, static_cast<std::int32_t>(pcm.size())) != 0
        || sink_.overflowed())
        throw std::logic_error("more frames than there is room for");
}

void engine_encoder::finish() noexcept {
    static_cast<API_GetSetParamStr *>(params_.get())->set_parameter("command::done", 0, 0);
}

} // namespace tools
