// The engine: the encoder behind interfaces, text keys and output bindings.
#pragma once

#include "api/encoder.hpp"
#include "engine/engine_base.hpp"
#include "engine/params.hpp"
#include "engine/pushdata_bufstream.hpp"

#include <cstdint>
#include <optional>

namespace vela {

/// One engine; the contract of its interfaces stands in vela_enc_mp1a/engine.h.
class enc_MP1A final : public EngineBase {
  public:
    enc_MP1A() noexcept;
    ~enc_MP1A() override;

    std::int32_t QueryInterface(const engine_iid &iid, IEngine *&holder) noexcept override;

  private:
    class GetSetParamStr final : public OnMemberT<API_GetSetParamStr> {
      public:
        using OnMemberT::OnMemberT;
        std::int32_t set_parameter(const char *key, std::int32_t index, double value) noexcept override;
        std::int32_t get_parameter(const char *key, double *value,
                                   std::int32_t index) noexcept override;
        std::int32_t set_parameter_str(const char *key, const void *value,
                                       std::int32_t size) noexcept override;

      private:
        enc_MP1A &engine() const noexcept { return static_cast<enc_MP1A &>(*owner()); }
    };

    class PutData final : public OnMemberT<API_PutData> {
      public:
        using OnMemberT::OnMemberT;
        std::int32_t put_data(const void *data, std::int32_t size,
                              std::int32_t count) noexcept override;
    };

    class operation;

    /// A field that a key names.
    struct field {
        void *base;
        const param_entry *entry; ///< null: the family has no such name
    };

    /// Nothing for a key outside the two families of fields. Makes the settings ready where the key is
    /// one of theirs.
    std::optional<field> field_of(const char *key) noexcept;
    /// Ends the writing of a field: a new preset brings its defaults.
    void written(const field &changed) noexcept;
    void apply_preset() noexcept;
    void make_ready() noexcept;
    std::int32_t run_command(const char *key, const char *name) noexcept;

    std::int32_t open_encoder() noexcept;
    void describe_stream() noexcept;
    void end_encoder() noexcept;
    void close_encoder() noexcept;

    std::int32_t bind_sink(PushData &sink) noexcept;
    void bind_output(bufstream *output, PushData *sink) noexcept;

    std::int32_t preset_ = MPEG_A_PRESET_DVD;
    engine_record record_;
    bool settings_ready_ = false;
    bool busy_ = false;           ///< an operation is running
    bufstream *output_ = nullptr; ///< the host's, or the adapter made for `sink_`
    mpeg_a_encoder *encoder_ = nullptr;
    PushData *sink_ = nullptr; ///< null unless `output_` is its adapter
    GetSetParamStr params_;
    PutData data_;
    pushdata_bufstream *replaced_ = nullptr; ///< adapters that the open encoder may be writing to
};

} // namespace vela
