#include "api/validate.hpp"

#include "stream/rate_tables.hpp"

#include <span>

namespace vela {

namespace {

/// What the rules look at.
struct subject {
    const mpeg_a_settings &settings;
    std::int32_t preset;
    std::int32_t sample_rate;

    bool mono() const noexcept { return settings.audio_mode == MPEG_A_MODE_MONO; }
    bool layer2() const noexcept { return settings.audio_layer == 2; }
    bool crc_on() const noexcept { return settings.error_protection == 1; }
    bool emphasised() const noexcept { return settings.emphasis != MPEG_A_EMPHASIS_NONE; }
    bool bitrate_in(std::int32_t low, std::int32_t high) const noexcept {
        return settings.audio_bitrate >= low && settings.audio_bitrate <= high;
    }
    /// DVD presets without dual channel.
    bool dual_refused() const noexcept { return preset == MPEG_A_PRESET_DVD || preset == 13; }
    bool refused_dual() const noexcept {
        return dual_refused() && settings.audio_mode == MPEG_A_MODE_DUAL_CHANNEL;
    }
    /// The least bitrate index of the mode and layer.
    std::int32_t least_bitrate() const noexcept {
        if (!mono()) return 4;
        return settings.audio_layer == 1 ? 3 : INT32_MIN;
    }
};

/// A rule is violated where `violated` says so; its message shows the value that `shown` gives, then
/// `low` and `high`. (printf ignores arguments that a message does not name.)
struct rule {
    std::int32_t code;
    const char *message;
    bool (*violated)(const subject &) noexcept;
    std::int32_t (*shown)(const subject &) noexcept;
    std::int32_t low = 0, high = 0;
};

using s = const subject &;

// Values shown.
std::int32_t rate(s x) noexcept {
    return x.sample_rate;
}
std::int32_t mode(s x) noexcept {
    return x.settings.audio_mode;
}
std::int32_t layer(s x) noexcept {
    return x.settings.audio_layer;
}
std::int32_t bitrate(s x) noexcept {
    return x.settings.audio_bitrate;
}
std::int32_t emphasis(s x) noexcept {
    return x.settings.emphasis;
}
std::int32_t extension(s x) noexcept {
    return x.settings.extension;
}
std::int32_t crc(s x) noexcept {
    return x.settings.error_protection;
}
std::int32_t copyright(s x) noexcept {
    return x.settings.copyright;
}
std::int32_t original(s x) noexcept {
    return x.settings.original;
}
std::int32_t kbps(s x) noexcept {
    return bitrate_kbps(x.settings.audio_layer, x.settings.audio_bitrate);
}

// Conditions that several formats share.
bool not_layer2(s x) noexcept {
    return !x.layer2();
}
bool no_layer(s x) noexcept {
    return x.settings.audio_layer != 1 && x.settings.audio_layer != 2;
}
bool crc_off(s x) noexcept {
    return !x.crc_on();
}
bool emphasised(s x) noexcept {
    return x.emphasised();
}
bool not_44100(s x) noexcept {
    return x.sample_rate != 44100;
}
bool not_48000(s x) noexcept {
    return x.sample_rate != 48000;
}
template <std::int32_t mpeg_a_settings::*flag>
bool not_a_bit(s x) noexcept {
    return x.settings.*flag != 0 && x.settings.*flag != 1;
}

constexpr char bitrate_code_message[] = "A025:Invalid audio bitrate code (%d), range is %d .. %d";

constexpr rule generic_rules[] = {
    {0x40009, "A021:Invalid audio sample rate (%d), should be 32000, 44100 or 48000",
     [](s x) noexcept { return sampling_frequency_index(x.sample_rate) < 0; }, rate},
    {0x40000, "A022:Invalid audio mode (%d), range is %d .. %d",
     [](s x) noexcept { return x.settings.audio_mode < 0 || x.settings.audio_mode > 3; }, mode, 0, 3},
    {0x40001, "A023:Invalid audio layer (%d), range is 1 .. 2", no_layer, layer},
    {0x40003, bitrate_code_message, [](s x) noexcept { return !x.bitrate_in(1, 14); }, bitrate, 1, 14},
    {0x40003, bitrate_code_message,
     [](s x) noexcept { return x.mono() && x.settings.audio_bitrate < x.least_bitrate(); }, bitrate, 3,
     14},
    {0x40003, bitrate_code_message,
     [](s x) noexcept { return !x.mono() && x.settings.audio_bitrate < x.least_bitrate(); }, bitrate, 4,
     14},
    {0x40004, "A026:Invalid audio emphasis (%d), should be 0, 1 or 3",
     [](s x) noexcept {
         return x.settings.emphasis != 0 && x.settings.emphasis != 1 && x.settings.emphasis != 3;
     },
     emphasis},
    {0x40005, "A027:Invalid audio private bit (%d), range is 0 .. 1",
     not_a_bit<&mpeg_a_settings::extension>, extension},
    {0x40006, "A028:Invalid audio CRC state (%d), range is 0 .. 1",
     not_a_bit<&mpeg_a_settings::error_protection>, crc},
    {0x40007, "A029:Invalid audio copyright setting (%d), range is 0 .. 1",
     not_a_bit<&mpeg_a_settings::copyright>, copyright},
    {0x40008, "A030:Invalid audio original setting (%d), range is 0 .. 1",
     not_a_bit<&mpeg_a_settings::original>, original},
};

constexpr rule vcd_rules[] = {
    {0x200, "A003:Invalid audio layer (%d) for VCD, should be 2", not_layer2, layer},
    {0x201, "A004:Invalid audio mode for VCD, should be stereo or mono",
     [](s x) noexcept { return x.settings.audio_mode != MPEG_A_MODE_STEREO && !x.mono(); }, mode},
    {0x202, "A005:Invalid audio bitrate (%d kbps) for VCD, should be 224 kbps",
     [](s x) noexcept { return x.settings.audio_bitrate != 11; }, kbps},
    {0x203, "A006:Invalid audio sample rate (%d) for VCD, should be 44100", not_44100, rate},
};

constexpr rule svcd_rules[] = {
    {0x1000, "A007:Invalid audio layer (%d) for SVCD, should be 2", not_layer2, layer},
    {0x1001, "A008:Invalid audio CRC state (disabled) for SVCD, should be enabled", crc_off, crc},
    {0x1002, "A009:Invalid audio emphasis for SVCD, should be none", emphasised, emphasis},
    {0x1003, "A010:Invalid mono audio bitrate (%d kbps) for SVCD, range is 32 kbps .. 192 kbps",
     [](s x) noexcept { return x.mono() && !x.bitrate_in(1, 10); }, kbps},
    {0x1003, "A011:Invalid audio bitrate (%d kbps) for SVCD, range is 64 kbps .. 384 kbps",
     [](s x) noexcept { return !x.mono() && x.settings.audio_bitrate < 4; }, kbps},
    {0x1004, "A012:Invalid audio sample rate (%d) for SVCD, should be 44100", not_44100, rate},
};

constexpr rule dvd_rules[] = {
    {0x8000, "A013:Invalid audio layer (%d) for DVD, should be 2", not_layer2, layer},
    {0x8001, "A014:Invalid audio CRC state (disabled) for DVD, should be enabled", crc_off, crc},
    {0x8002, "A015:Invalid audio emphasis for DVD, should be none", emphasised, emphasis},
    {0x8003, "A016:Invalid private bit setting (%d) for DVD, should be 0",
     [](s x) noexcept { return x.settings.extension != 0; }, extension},
    {0x8005, "A018:Invalid audio mode (dual channel) for DVD, should be stereo, joint stereo or mono",
     [](s x) noexcept { return x.refused_dual(); }, mode},
    {0x8004, "A017:Invalid mono audio bitrate (%d kbps) for DVD, range is 64 kbps .. 192 kbps",
     [](s x) noexcept { return x.mono() && !x.bitrate_in(4, 10); }, kbps},
    {0x8004, "A019:Invalid audio bitrate (%d kbps) for DVD, range is 64 kbps .. 384 kbps",
     [](s x) noexcept { return !x.mono() && !x.refused_dual() && x.settings.audio_bitrate < 4; }, kbps},
    {0x8006, "A020:Invalid audio sample rate (%d) for DVD, should be 48000", not_48000, rate},
};

constexpr rule dvb_rules[] = {
    {0x12100, "A032:Invalid audio layer (%d) for DVB, should be 1 or 2", no_layer, layer},
    {0x12101, "A033:Invalid audio CRC state (disabled) for DVB, should be enabled", crc_off, crc},
    {0x12102, "A034:Invalid audio emphasis for DVB, should be none", emphasised, emphasis},
};

constexpr rule micromv_rules[] = {
    {0x13100, "A035:Invalid audio layer (%d) for MicroMV, should be 2", not_layer2, layer},
    {0x13101, "A036:Invalid audio CRC state (disabled) for MicroMV, should be enabled", crc_off, crc},
    {0x13102, "A037:Invalid audio emphasis for MicroMV, should be none", emphasised, emphasis},
    {0x13103, "A038:Invalid audio sample rate (%d) for MicroMV, should be 48000", not_48000, rate},
    {0x13104, "A039:Invalid audio bitrate (%d kbps) for MicroMV, should be 256 kbps",
     [](s x) noexcept { return x.settings.audio_bitrate != 12; }, kbps},
};

constexpr rule dvhs_rules[] = {
    {0x14100, "A040:Invalid audio layer (%d) for DVHS, should be 1 or 2", no_layer, layer},
    {0x14101, "A041:Invalid audio CRC state (disabled) for DVHS, should be enabled", crc_off, crc},
    {0x14102, "A042:Invalid audio emphasis for DVHS, should be none", emphasised, emphasis},
    {0x14103, "A043:Invalid audio bitrate (%d kbps) for DVHS, must not be 48, 56, 80 or 112 kbps",
     [](s x) noexcept {
         const std::int32_t index = x.settings.audio_bitrate;
         return x.layer2() && (index == 2 || index == 3 || index == 5 || index == 7);
     },
     kbps},
};

constexpr rule hdv_rules[] = {
    {0x16100, "A044:Invalid audio layer (%d) for HDV, should be 2", not_layer2, layer},
    {0x16101, "A045:Invalid audio CRC state (disabled) for HDV, should be enabled", crc_off, crc},
    {0x16102, "A046:Invalid audio emphasis for HDV, should be none", emphasised, emphasis},
    {0x16103, "A047:Invalid audio sample rate (%d) for HDV, should be 48000", not_48000, rate},
    {0x16104, "A048:Invalid audio bitrate (%d kbps) for HDV, should be 384 kbps",
     [](s x) noexcept { return x.settings.audio_bitrate != 14; }, kbps},
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
            err_printf(row.message, row.shown(checked), row.low, row.high);
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
