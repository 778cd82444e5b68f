/** Function interface of the MPEG-1 Audio Layer I/II encoder (ISO/IEC 11172-3).
 *
 *  Life cycle
 *
 *      mpegOutAudioDefaults     fill a settings record for a target format
 *      mpegOutAudioChkSettings  optional: check it against the format's rules
 *      mpegOutAudioNew          check the generic rules, allocate the encoder
 *      mpegOutAudioInit         bind it to the host's output
 *      mpegOutAudioPutBytes     any number of times: PCM in, whole frames out
 *      mpegOutAudioDone         encode what is pending, detach the output
 *      mpegOutAudioFree         release the encoder
 *
 *  Free may follow New or a failed Init directly. Init may be called again at any time: pending samples
 *  are dropped, the time stamps start over, and the output is bound anew. PutBytes before a successful
 *  Init or after Done returns 2; Done before Init and a second Done do nothing.
 *
 *  Threads. The library starts no thread and has no shared mutable state. Different encoders may be used
 *  on different threads at once; one encoder is used by one thread at a time. Callbacks of the host run
 *  on the thread that called into the library.
 *
 *  Calling back. While a function of an encoder runs, the host's callbacks may not use that encoder: Init,
 *  PutBytes and Done return 2 there and change nothing. Free is forbidden there; it is ignored, and the
 *  encoder is still to be freed. Callbacks must neither throw nor leave by longjmp().
 *
 *  Ownership. Settings, lookup, PCM and bufstream belong to the host. The encoder is one block from the
 *  host's "malloc" (or the process's); nothing else is ever allocated. The bufstream must outlive Done.
 *
 *  Results
 *
 *      mpegOutAudioDefaults     0
 *      mpegOutAudioChkSettings  0 no rule violated
 *                               2 no record given
 *                               0x200 .. 0x16104 the first violation: usable, but not conforming
 *                               0x40000 .. 0x40009 the first violation: not usable
 *      mpegOutAudioNew          the encoder, or null (settings not usable, memory out)
 *      mpegOutAudioInit         0, or 2
 *      mpegOutAudioPutBytes     0, or 2
 *      mpegOutAudioDone         0, or 2 inside a callback
 *
 *  No function throws. Messages begin with a code such as "A021:" and carry no newline.
 */
#ifndef VELA_ENC_MP1A_ENCODER_H
#define VELA_ENC_MP1A_ENCODER_H

#include "vela_enc_mp1a/bufstream.h"
#include "vela_enc_mp1a/settings.h"

#include <stdint.h>

#if defined(__GNUC__)
#define MPEG_A_API __attribute__((visibility("default")))
#else
#define MPEG_A_API
#endif

#ifdef __cplusplus
#define MPEG_A_NOEXCEPT noexcept
extern "C" {
#else
#define MPEG_A_NOEXCEPT
#endif

/** One encoder; opaque. */
typedef struct mpeg_a_encoder mpeg_a_encoder;

/** A printf-style message function of the host. */
typedef int (*mpeg_a_message_function)(const char *format, ...);

/** The host's name lookup: the address of the function of that name, or null. Names asked for:
 *
 *      "err_printf"  mpeg_a_message_function: coded messages (without one they are silent)
 *      "inf_printf"  mpeg_a_message_function: information (the encoder has none so far)
 *      "malloc"      void *(*)(size_t): the encoder's one block; it need not be cleared
 *      "free"        void (*)(void *): releases that block
 *
 *  "malloc" counts only together with "free"; otherwise the process's pair is used. The lookup is called
 *  by mpegOutAudioNew() and mpegOutAudioChkSettings() only.
 */
typedef void *(*resource_lookup)(const char *name);

/** Option bits of mpegOutAudioChkSettings(). */
enum mpeg_a_check_options {
    MPEG_A_CHECK_GENERIC_ONLY = 1, /**< leave the format rules out */
    MPEG_A_CHECK_ALL = 2           /**< report every violation, not just the first */
};

/** Results of mpegOutAudioChkSettings() above this one mean that no encoder can be made. */
#define MPEG_A_LAST_FORMAT_CODE 0x1FFFF

/** Fills the eleven fields of `settings` with the defaults of a preset; the reserved bytes keep their
 *  values. The preset's rate (48000 Hz for DVD, DVB, MicroMV, DVHS and HDV, else 44100 Hz) is the
 *  caller's to pass on.
 *
 *  @param settings  record to fill; null is ignored
 *  @param preset    enum mpeg_a_preset, or any other value for the base defaults
 *  @return 0
 */
MPEG_A_API int32_t mpegOutAudioDefaults(mpeg_a_settings *settings, int32_t preset) MPEG_A_NOEXCEPT;

/** Checks a record and a sampling rate: first what the encoder can do at all (generic rules), then what
 *  the preset's format allows.
 *
 *  @param lookup       asked once, for "err_printf"; may be null
 *  @param settings     record to check; null gives message A031 and the result 2
 *  @param preset       preset code whose format rules apply
 *  @param sample_rate  Hz
 *  @param options      sum of enum mpeg_a_check_options; other bits are ignored
 *  @param reserved     pass 0
 *  @return the code of the first violation, 0 without one; see the head of this file
 */
MPEG_A_API int32_t mpegOutAudioChkSettings(resource_lookup lookup, const mpeg_a_settings *settings,
                                           int32_t preset, int32_t sample_rate, int32_t options,
                                           intptr_t reserved) MPEG_A_NOEXCEPT;

/** Makes an encoder with one allocation. Only the generic rules are applied.
 *
 *  @param lookup       may be null: process allocator, no messages
 *  @param settings     copied
 *  @param reserved     pass 0
 *  @param pcm_format   low three bits: bytes of one input sample. 3: 24-bit integer; 4: 32-bit float
 *                      with full scale 1.0; every other value: 16-bit integer
 *  @param sample_rate  32000, 44100 or 48000 Hz
 *  @return the encoder, to be released with mpegOutAudioFree(); null when a rule is violated (its message
 *          has gone to "err_printf") or memory is out
 */
MPEG_A_API mpeg_a_encoder *mpegOutAudioNew(resource_lookup lookup, const mpeg_a_settings *settings,
                                           intptr_t reserved, int32_t pcm_format,
                                           int32_t sample_rate) MPEG_A_NOEXCEPT;

/** Binds the encoder to an output, requests the first block and starts the stream afresh.
 *
 *  @return 0, also when there is no block yet (see bufstream.h); 2 when `encoder` or `output` is null (the encoder can then only be freed or initialised
 *          again), and inside a callback of the same encoder
 */
MPEG_A_API int32_t mpegOutAudioInit(mpeg_a_encoder *encoder, bufstream *output) MPEG_A_NOEXCEPT;

/** Encodes every frame that `data` completes; the rest waits for the next call.
 *
 *  Each finished frame is offered to the output and reported before the call returns.
 *
 *  @param encoder  after a successful mpegOutAudioInit
 *  @param data     interleaved little-endian PCM, whole samples (a call may end between the two channels
 *                  of a pair; bytes of a sample cut in two are ignored); null completes the pending frame
 *                  with silence and encodes it
 *  @param size     bytes at `data`
 *  @return 0; 2 when a frame could not be begun because the output has refused (A002 has then gone to
 *          "err_printf"): the rest of this call's bytes is dropped, and every later call that completes a
 *          frame fails the same way. What the output refuses in the midst or at the end of a frame
 *          shows at the next one: see bufstream.h
 */
MPEG_A_API int32_t mpegOutAudioPutBytes(mpeg_a_encoder *encoder, const void *data,
                                        uint32_t size) MPEG_A_NOEXCEPT;

/** Ends the stream: encodes the pending samples as one last frame, completed with silence, and detaches
 *  the output.
 *
 *  @param abort  not 0: drop the pending samples instead
 *  @return 0, also when the last frame could not be written. A002 has then gone to "err_printf" if it could
 *          not be begun, but not if the output refused its second block or its commit; 2 inside a callback
 *          of the same encoder
 */
MPEG_A_API int32_t mpegOutAudioDone(mpeg_a_encoder *encoder, int32_t abort) MPEG_A_NOEXCEPT;

/** Releases the encoder with the deallocator that belongs to its block. Null is ignored. It does not
 *  finish the stream: call mpegOutAudioDone() first. */
MPEG_A_API void mpegOutAudioFree(mpeg_a_encoder *encoder) MPEG_A_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
