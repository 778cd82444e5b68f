/** Settings record and preset codes of the MPEG-1 Audio Layer I/II encoder.
 *
 *  The record describes one stream. Its sampling rate is not part of it: the rate travels beside the
 *  record as an argument of its own (32000, 44100 or 48000 Hz).
 *
 *  The binary layout is an interface: little-endian, packed to four bytes, 4096 bytes long.
 */
#ifndef VELA_ENC_MP1A_SETTINGS_H
#define VELA_ENC_MP1A_SETTINGS_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Values of `audio_mode`: the mode field of the frame header (ISO/IEC 11172-3, 2.4.2.3). */
enum mpeg_a_mode {
    MPEG_A_MODE_STEREO = 0,
    MPEG_A_MODE_JOINT_STEREO = 1, /**< stereo or intensity stereo, chosen anew for every frame */
    MPEG_A_MODE_DUAL_CHANNEL = 2, /**< two independent programmes */
    MPEG_A_MODE_MONO = 3
};

/** Values of `emphasis`: the emphasis field of the frame header. It labels the stream; the encoder
 *  filters nothing. */
enum mpeg_a_emphasis {
    MPEG_A_EMPHASIS_NONE = 0,
    MPEG_A_EMPHASIS_50_15 = 1, /**< 50/15 microseconds */
    MPEG_A_EMPHASIS_J17 = 3    /**< CCITT J.17 */
};

/** Values of `audio_model`: what decides how the bits of a frame are distributed. Every other value
 *  stands for the standard's model too. */
enum mpeg_a_model {
    MPEG_A_MODEL_STANDARD = 0,      /**< psychoacoustic model 2 and the allocation of ISO/IEC 11172-3 */
    MPEG_A_MODEL_TUNED = 0x454E5554 /**< "TUNE": a model and an allocation for less audible noise */
};

/** Preset codes: a target format, its defaults and its rules. Every other code is valid too and stands
 *  for the base defaults at 44100 Hz without format rules. */
enum mpeg_a_preset {
    MPEG_A_PRESET_NONE = 0,
    MPEG_A_PRESET_VCD = 1,
    MPEG_A_PRESET_SVCD = 3,
    MPEG_A_PRESET_DVD = 4, /**< 13 is the same */
    MPEG_A_PRESET_DVB = 8,
    MPEG_A_PRESET_MICROMV = 9,
    MPEG_A_PRESET_DVHS = 10,
    MPEG_A_PRESET_DVD_DUAL = 14, /**< DVD with dual channel allowed; 15 is the same */
    MPEG_A_PRESET_HDV = 18       /**< 19 is the same */
};

/** Samples per channel in a frame (ISO/IEC 11172-3, 2.4.2.1). */
#define MPEG_A_LAYER1_SAMPLES 384
#define MPEG_A_LAYER2_SAMPLES 1152
/** Bytes of the longest frame: Layer II, 384 kbit/s, 32 kHz. */
#define MPEG_A_MAX_FRAME_BYTES 1728

#pragma pack(push, 4)

/** One stream's settings. Owned by the caller; the encoder copies what it needs and keeps no pointer.
 *
 *  Fill it with mpegOutAudioDefaults() first: every field is checked by mpegOutAudioNew().
 */
typedef struct mpeg_a_settings {
    int32_t audio_mode;  /**< enum mpeg_a_mode; mono encodes one channel, every other mode two */
    int32_t audio_layer; /**< 1 (Layer I, 384 samples a frame) or 2 (Layer II, 1152 samples) */
    int32_t psych_model; /**< stored only; see audio_model */
    /** The header's bitrate index, 1..14, not a rate in kbit/s: mpeg_a_bitrates tells the rate that it
     *  stands for. Modes with two channels need at least 4, Layer I mono 3. */
    int32_t audio_bitrate;
    int32_t emphasis;         /**< enum mpeg_a_emphasis: 0, 1 or 3 */
    int32_t extension;        /**< the header's private bit, 0 or 1 */
    int32_t error_protection; /**< 1: a CRC-16 follows every frame header; 0: none */
    int32_t copyright;        /**< the header's copyright bit, 0 or 1 */
    int32_t original;         /**< the header's original/copy bit, 0 or 1 */
    int64_t pts_offset;       /**< start of the running time stamp, in 1/pts_units second */
    int32_t pts_units;        /**< ticks a second of pts_offset; 0 or below: it is in 27 MHz ticks */
    int32_t audio_model;      /**< enum mpeg_a_model; like the reserved bytes no part of the defaults */
    uint8_t reserved[4044];   /**< zero */
} mpeg_a_settings;

#pragma pack(pop)

#ifdef __cplusplus
}
static_assert(sizeof(mpeg_a_settings) == 4096, "the settings record is 4096 bytes long");
static_assert(offsetof(mpeg_a_settings, pts_offset) == 36, "the record is packed to four bytes");
static_assert(offsetof(mpeg_a_settings, pts_units) == 44, "the record is packed to four bytes");
static_assert(offsetof(mpeg_a_settings, audio_model) == 48, "the record is packed to four bytes");
#else
_Static_assert(sizeof(mpeg_a_settings) == 4096, "the settings record is 4096 bytes long");
_Static_assert(offsetof(mpeg_a_settings, pts_offset) == 36, "the record is packed to four bytes");
_Static_assert(offsetof(mpeg_a_settings, pts_units) == 44, "the record is packed to four bytes");
_Static_assert(offsetof(mpeg_a_settings, audio_model) == 48, "the record is packed to four bytes");
#endif

/** Bitrates in kbit/s by [layer - 1][bitrate index] (ISO/IEC 11172-3, 2.4.2.3); index 0 would be free
 *  format, which this encoder does not write. */
#if defined(__cplusplus) && __cplusplus >= 201703L
inline constexpr
#elif defined(__cplusplus)
static constexpr
#else
static const
#endif
    int16_t mpeg_a_bitrates[2][15] = {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
};

#endif
