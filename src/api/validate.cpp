#include "api/validate.hpp"

#include "stream/rate_tables.hpp"

#include <span>

namespace vela {

namespace {

/// What the rules look at: the record, and beside it what else a rule may name.
struct subject : mpeg_a_settings {
    std::int32_t preset;
    std::int32_t sample_rate;
    std::int32_t kbps = bitrate_kbps(audio_layer, audio_bitrate);

    bool mono() const noexcept { return audio_mode == MPEG_A_MODE_MONO; }
    bool dual_refused() const noexcept {
        return audio_mode == MPEG_A_MODE_DUAL_CHANNEL && (preset == MPEG_A_PRESET_DVD || preset == 13);
    }
};

/// A rule is violated where `violated` says so; its message shows a value, then `low` and `high`. (printf
/// ignores arguments that a message does not name.)
struct rule {
    std::int32_t code;
    const char *message;
    bool (*violated)(const subject &) noexcept;
    std::int32_t subject::*shown;
    std::int32_t low = 0, high = 0;
};

// Fields by short names.
constexpr auto layer = &subject::audio_layer, mode = &subject::audio_mode,
               crc = &subject::error_protection, bitrate = &subject::audio_bitrate,
               emphasis = &subject::emphasis, private_bit = &subject::extension,
               copyright = &subject::copyright, original = &subject::original;
constexpr auto rate = &subject::sample_rate, kbps = &subject::kbps;

template <auto field, std::int32_t low, std::int32_t high = low>
bool outside(const subject &x) noexcept {
    return x.*field < low || x.*field > high;
}
/// The same for mono, and for the modes with two channels.
template <auto field, std::int32_t low, std::int32_t high>
bool mono_outside(const subject &x) noexcept {
    return x.mono() && outside<field, low, high>(x);
}
template <auto field, std::int32_t low, std::int32_t high>
bool pair_outside(const subject &x) noexcept {
    return !x.mono() && outside<field, low, high>(x);
}

constexpr char bitrate_code_message[] = "A025:Invalid audio bitrate code (%d), range is %d .. %d";

constexpr rule generic_rules[] = {
    {0x40009, "A021:Invalid audio sample rate (%d), should be 32000, 44100 or 48000",
     [](const subject &x) noexcept { return sampling_frequency_index(x.sample_rate) < 0; }, rate},
    {0x40000, "A022:Invalid audio mode (%d), range is %d .. %d", outside<mode, 0, 3>, mode, 0, 3},
    {0x40001, "A023:Invalid audio layer (%d), range is 1 .. 2", outside<layer, 1, 2>, layer},
    {0x40003, bitrate_code_message, outside<bitrate, 1, 14>, bitrate, 1, 14},
    {0x40003, bitrate_code_message,
     [](const subject &x) noexcept { return x.mono() && x.audio_layer == 1 && x.audio_bitrate < 3; },
     bitrate, 3, 14},
    {0x40003, bitrate_code_message, pair_outside<bitrate, 4, INT32_MAX>, bitrate, 4, 14},
    {0x40004, "A026:Invalid audio emphasis (%d), should be 0, 1 or 3",
     [](const subject &x) noexcept { return outside<emphasis, 0, 3>(x) || x.emphasis == 2; }, emphasis},
    {0x40005, "A027:Invalid audio private bit (%d), range is 0 .. 1", outside<private_bit, 0, 1>,
     private_bit},
    {0x40006, "A028:Invalid audio CRC state (%d), range is 0 .. 1", outside<crc, 0, 1>, crc},
    {0x40007, "A029:Invalid audio copyright setting (%d), range is 0 .. 1", outside<copyright, 0, 1>,
     copyright},
    {0x40008, "A030:Invalid audio original setting (%d), range is 0 .. 1", outside<original, 0, 1>,
     original},
};

constexpr rule vcd_rules[] = {
    {0x200, "A003:Invalid audio layer (%d) for VCD, should be 2", outside<layer, 2>, layer},
    {0x201, "A004:Invalid audio mode for VCD, should be stereo or mono",
     pair_outside<mode, MPEG_A_MODE_STEREO, MPEG_A_MODE_STEREO>, mode},
    {0x202, "A005:Invalid audio bitrate (%d kbps) for VCD, should be 224 kbps", outside<bitrate, 11>,
     kbps},
    {0x203, "A006:Invalid audio sample rate (%d) for VCD, should be 44100", outside<rate, 44100>, rate},
};

constexpr rule svcd_rules[] = {
    {0x1000, "A007:Invalid audio layer (%d) for SVCD, should be 2", outside<layer, 2>, layer},
    {0x1001, "A008:Invalid audio CRC state (disabled) for SVCD, should be enabled", outside<crc, 1>,
     crc},
    {0x1002, "A009:Invalid audio emphasis for SVCD, should be none", outside<emphasis, 0>, emphasis},
    {0x1003, "A010:Invalid mono audio bitrate (%d kbps) for SVCD, range is 32 kbps .. 192 kbps",
     mono_outside<bitrate, 1, 10>, kbps},
    {0x1003, "A011:Invalid audio bitrate (%d kbps) for SVCD, range is 64 kbps .. 384 kbps",
     pair_outside<bitrate, 4, INT32_MAX>, kbps},
    {0x1004, "A012:Invalid audio sample rate (%d) for SVCD, should be 44100", outside<rate, 44100>,
     rate},
};

constexpr rule dvd_rules[] = {
    {0x8000, "A013:Invalid audio layer (%d) for DVD, should be 2", outside<layer, 2>, layer},
    {0x8001, "A014:Invalid audio CRC state (disabled) for DVD, should be enabled", outside<crc, 1>,
     crc},
    {0x8002, "A015:Invalid audio emphasis for DVD, should be none", outside<emphasis, 0>, emphasis},
    {0x8003, "A016:Invalid private bit setting (%d) for DVD, should be 0", outside<private_bit, 0>,
     private_bit},
    {0x8005, "A018:Invalid audio mode (dual channel) for DVD, should be stereo, joint stereo or mono",
     [](const subject &x) noexcept { return x.dual_refused(); }, mode},
    {0x8004, "A017:Invalid mono audio bitrate (%d kbps) for DVD, range is 64 kbps .. 192 kbps",
     mono_outside<bitrate, 4, 10>, kbps},
    {0x8004, "A019:Invalid audio bitrate (%d kbps) for DVD, range is 64 kbps .. 384 kbps",
     [](const subject &x) noexcept {
         return !x.dual_refused() && pair_outside<bitrate, 4, INT32_MAX>(x);
     },
     kbps},
    {0x8006, "A020:Invalid audio sample rate (%d) for DVD, should be 48000", outside<rate, 48000>,
     rate},
};

constexpr rule dvb_rules[] = {
    {0x12100, "A032:Invalid audio layer (%d) for DVB, should be 1 or 2", outside<layer, 1, 2>, layer},
    {0x12101, "A033:Invalid audio CRC state (disabled) for DVB, should be enabled", outside<crc, 1>,
     crc},
    {0x12102, "A034:Invalid audio emphasis for DVB, should be none", outside<emphasis, 0>, emphasis},
};

constexpr rule micromv_rules[] = {
    {0x13100, "A035:Invalid audio layer (%d) for MicroMV, should be 2", outside<layer, 2>, layer},
    {0x13101, "A036:Invalid audio CRC state (disabled) for MicroMV, should be enabled", outside<crc, 1>,
     crc},
    {0x13102, "A037:Invalid audio emphasis for MicroMV, should be none", outside<emphasis, 0>,
     emphasis},
    {0x13103, "A038:Invalid audio sample rate (%d) for MicroMV, should be 48000", outside<rate, 48000>,
     rate},
    {0x13104, "A039:Invalid audio bitrate (%d kbps) for MicroMV, should be 256 kbps",
     outside<bitrate, 12>, kbps},
};

constexpr rule dvhs_rules[] = {
    {0x14100, "A040:Invalid audio layer (%d) for DVHS, should be 1 or 2", outside<layer, 1, 2>, layer},
    {0x14101, "A041:Invalid audio CRC state (disabled) for DVHS, should be enabled", outside<crc, 1>,
     crc},
    {0x14102, "A042:Invalid audio emphasis for DVHS, should be none", outside<emphasis, 0>, emphasis},
    {0x14103, "A043:Invalid audio bitrate (%d kbps) for DVHS, must not be 48, 56, 80 or 112 kbps",
     [](const subject &x) noexcept {
         const std::int32_t index = x.audio_bitrate;
         return x.audio_layer == 2 && (index == 2 || index == 3 || index == 5 || index == 7);
     },
     kbps},
};

constexpr rule hdv_rules[] = {
    {0x16100, "A044:Invalid audio layer (%d) for HDV, should be 2", outside<layer, 2>, layer},
    {0x16101, "A045:Invalid audio CRC state (disabled) for HDV, should be enabled", outside<crc, 1>,
     crc},
    {0x16102, "A046:Invalid audio emphasis for HDV, should be none", outside<emphasis, 0>, emphasis},
    {0x16103, "A047:Invalid audio sample rate (%d) for HDV, should be 48000", outside<rate, 48000>,
     rate},
    {0x16104, "A048:Invalid audio bitrate (%d kbps) for HDV, should be 384 kbps", outside<bitrate, 14>,
     kbps},
};

std::span<const rule> format_rules(std::int32_t preset) noexcept {
    switch (preset) {
    case MPEG_A_PRESET_VCD:
        return vcd_rules;
    case MPEG_A_PRESET_SVCD:
        return svcd_rules;
    case MPEG_A_PRESET_DVD:
    case 13:
    case MPEG_A_PRESET_DVD_DUAL:
    case 15:
        return dvd_rules;
    case MPEG_A_PRESET_DVB:
        return dvb_rules;
    case MPEG_A_PRESET_MICROMV:
        return micromv_rules;
    case MPEG_A_PRESET_DVHS:
        return dvhs_rules;
    case MPEG_A_PRESET_HDV:
    case 19:
        return hdv_rules;
    default:
        return {};
    }
}

} // namespace

int silent_printf(const char *, ...) noexcept {
    return 0;
}

mpeg_a_message_function message_function(resource_lookup lookup, const char *name) noexcept {
    void *const found = lookup == nullptr ? nullptr : lookup(name);
    return found == nullptr ? silent_printf : reinterpret_cast<mpeg_a_message_function>(found);
}

std::int32_t check_settings(mpeg_a_message_function err_printf, const mpeg_a_settings &settings,
                            std::int32_t preset, std::int32_t sample_rate,
                            std::int32_t options) noexcept {
    const subject checked{settings, preset, sample_rate};
    std::int32_t first_code = 0;
    // False when the check ends with a violation.
    const auto passes = [&](std::span<const rule> rules) {
        for (const rule &row : rules) {
            if (!row.violated(checked)) continue;
            err_printf(row.message, checked.*row.shown, row.low, row.high);
            if (first_code == 0) first_code = row.code;
            if ((options & MPEG_A_CHECK_ALL) == 0) return false;
        }
        return true;
    };
    if (!passes(generic_rules) || (options & MPEG_A_CHECK_GENERIC_ONLY) != 0) return first_code;
    passes(format_rules(preset));
    return first_code;
}

} // namespace vela
