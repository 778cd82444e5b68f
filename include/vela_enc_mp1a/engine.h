/** Plug-in interface of the MPEG-1 Audio Layer I/II encoder (C++17): a reference-counted object that is
 *  configured through text keys, fed with PCM, and writes into a bufstream or a PushData sink.
 *
 *  Call order
 *
 *      get_encMP1A                                     the engine; one reference is the caller's
 *      QueryInterface(iid_API_GetSetParamStr, holder)  to configure and command it
 *      QueryInterface(iid_API_PutData, holder)         to feed it
 *      set_parameter("preset::audio_type", 0, code)    first: it rewrites all settings
 *      set_parameter("settings::...", 0, value)        any number of keys, or one "init::settings"
 *      set_parameter_str("init::output::...", out, 0)  "PushData" or "bufstream"
 *      set_parameter("command::init", 0, 0)            optional: the first put_data does it
 *      put_data                                        any number of times
 *      set_parameter("command::done", 0, 0)            the last frame; back to configuring
 *      Release                                         for every reference; the last one destroys
 *
 *  Slots. Every interface is a table of virtual functions in the Itanium C++ ABI, which g++ and clang++
 *  use on Linux. The slot numbers below are an interface: they do not change, and a host may call by
 *  number without this header. Interfaces have no destructor slot,
 *  but run-time type information: dynamic_cast works.
 *
 *  Counting. One count belongs to the engine and all its interfaces: AddRef and Release through any of
 *  them change it and return its new value. A fresh engine has 1; an operation may add 1 while it runs.
 *  Whoever stores an interface pointer owns a reference and gives it up with Release. Releasing the
 *  last one with an encoder open first delivers the last frame, as "command::done" does.
 *
 *  Threads. AddRef and Release may be called on any thread at any time. All other operations of one
 *  engine are used by one thread at a time; different engines are independent. No thread is started:
 *  the sink and the bufstream are called on the thread that called into the engine.
 *
 *  Calling back. From inside a call to its sink or bufstream a host may use AddRef, Release,
 *  QueryInterface and get_parameter. Putting data, commands, bindings and writing keys give -1 there and
 *  change nothing. Even the last Release may come there: the engine ends after the operation that called.
 *
 *  Results. 0 for success, -1 for failure, 1 for an unknown name in set_parameter_str; AddRef and
 *  Release return the count. Nothing throws. The encoder's own messages are not shown: ask
 *  mpegOutAudioChkSettings() why a record cannot be opened.
 */
#ifndef VELA_ENC_MP1A_ENGINE_H
#define VELA_ENC_MP1A_ENGINE_H

#include "vela_enc_mp1a/bufstream.h"
#include "vela_enc_mp1a/encoder.h"
#include "vela_enc_mp1a/settings.h"

#include <cstdint>

/** Identifies an interface; all 16 bytes count. */
struct engine_iid {
    std::uint8_t bytes[16];

    friend constexpr bool operator==(const engine_iid &a, const engine_iid &b) noexcept {
        for (int i = 0; i < 16; ++i) {
            if (a.bytes[i] != b.bytes[i]) return false;
        }
        return true;
    }
    friend constexpr bool operator!=(const engine_iid &a, const engine_iid &b) noexcept {
        return !(a == b);
    }
};

/** An identifier: four bytes of its own, then the text that all of them share. */
constexpr engine_iid make_engine_iid(std::uint8_t a, std::uint8_t b, std::uint8_t c,
                                     std::uint8_t d) noexcept {
    return {{a, b, c, d, '#', 'E', 'N', 'G', 'I', 'N', 'E', '.', 'A', 'P', 'I', ' '}};
}

inline constexpr engine_iid iid_IEngine = make_engine_iid(0, 0, 0, 0);
inline constexpr engine_iid iid_API_PutData = make_engine_iid(0, 0, 1, 1);
inline constexpr engine_iid iid_API_GetSetParamStr = make_engine_iid(0, 0, 0, 5);

/** What every interface begins with. */
class IEngine {
  public:
    /** Slot 0: takes a reference. @return the new count */
    virtual std::int32_t AddRef() noexcept = 0;

    /** Slot 1: stores the interface `iid` in `holder` as a counted reference of the caller's.
     *
     *  The new reference is taken first; then the interface that `holder` held is released. So `holder`
     *  must be null or hold a reference that the caller owns. Cast the result:
     *  `static_cast<API_PutData *>(holder)`. Every interface of an engine answers for all of them.
     *
     *  @return 0; -1 for an unknown identifier. iid_IEngine is known (0), but leaves `holder` as it is,
     *          and so does -1 */
    virtual std::int32_t QueryInterface(const engine_iid &iid, IEngine *&holder) noexcept = 0;

    /** Slot 2: gives up a reference; the last one destroys the object. @return the new count */
    virtual std::int32_t Release() noexcept = 0;

  protected:
    ~IEngine() = default; // takes no slot; Release() is how an object ends, here and in all interfaces
};

/** Common base of the interfaces that an engine hands out; adds no slot. */
class IEngineAPI : public IEngine {
  protected:
    ~IEngineAPI() = default;
};

/** Configuration and commands through text keys, which are compared byte for byte.
 *
 *  Read only, any index: "version::major" 2, "version::minor" 0, "version::revision" 1.
 *
 *  Read and write, as a number or as text. Every field has one element, index 0; settings.h explains
 *  the values.
 *
 *      key                          type   range
 *      preset::audio_type           int32  enum mpeg_a_preset or any other code; at first 4
 *      preset::video_type           int32  the same field
 *      settings::audio_mode         int32  0 stereo, 1 joint stereo, 2 dual channel, 3 mono
 *      settings::audio_layer        int32  1, 2
 *      settings::psych_model        int32  any
 *      settings::audio_bitrate      int32  index 1..14; two channels from 4, Layer I mono from 3
 *      settings::emphasis           int32  0, 1, 3
 *      settings::extension          int32  0, 1
 *      settings::error_protection   int32  0, 1
 *      settings::copyright          int32  0, 1
 *      settings::original           int32  0, 1
 *      settings::pts_offset         int64  any; as a number exact up to 2^53
 *      settings::pts_units          int32  any
 *      settings::sample_rate        int32  32000, 44100, 48000 Hz
 *      settings::sampling::rate     int32  the same field
 *      settings::sampling_bits      int32  16, 24: integers; 32: float, full scale 1.0; at first 16
 *      settings::sampling::bits     int32  the same field
 *      settings::audio_model        int32  0 the standard's model, 1 the tuned one; any other is 0
 *
 *  Ranges are checked when an encoder is opened, not when a key is written. An encoder that is open
 *  keeps the settings that it was opened with.
 *
 *  Writing a preset key fills the settings and the rate with that preset's defaults; sampling_bits
 *  and audio_model stay. Unless that or "init::settings" came before, the first access to a "settings::"
 *  key, even one that fails, or else the opening does the same for the current preset.
 *
 *  Commands of set_parameter; index and value are not used:
 *
 *      command::init   Opens an encoder on the bound output. -1 when the settings are out of range, no
 *                      output is bound or memory is out: no encoder is open then.
 *                      With an encoder open: starts its stream afresh on the output that is bound now.
 *                      Pending samples are dropped, the time stamps start over, the sink is told the
 *                      stream again as the keys stand now.
 *      command::done   Encodes the pending samples as a last frame, completed with silence, and closes
 *                      the encoder. Releases a bound sink, opened or not; a bound bufstream stays
 *                      bound. 0, also when nothing is open.
 *
 *  Objects and blocks of set_parameter_str:
 *
 *      init::output::bufstream  value: bufstream *, null for no output; size is not used.
 *                               It stays the host's. It must live until it is neither bound nor
 *                               written to by an open encoder.
 *      init::output::PushData   value: PushData *; size is not used. -1 when memory is out.
 *                               The engine takes two references and gives both back at
 *                               "command::done", at its own end, or after another binding.
 *      init::settings           value: const mpeg_a_settings *, size: 4096; another size makes the
 *                               key unknown. Replaces the record as a whole; rate and sampling_bits
 *                               stay.
 *
 *  A binding replaces the one before, of either kind. An encoder that is open goes on writing to its
 *  old output until "command::init" or "command::done"; a sink that was replaced meanwhile loses one
 *  reference at once and the other one when the encoder closes.
 *
 *  Messages on standard output, with the key in place of %s; the result is -1 each time:
 *
 *      get_parameter: key "%s" is not supported\n   unknown key or name; index out of range
 *      set_parameter: key "%s" is not supported\n   unknown key, name or command; index out of range
 *      parameter "%s" is not supported\n            set_parameter_str: unknown key
 *
 *  In set_parameter_str an unknown name under "settings::" or "preset::" gives 1 and no message. A null
 *  key, value or result pointer (other than a null bufstream) gives -1, no message, and no change.
 */
class API_GetSetParamStr : public IEngineAPI {
  public:
    /** Slot 3: writes a number or runs a command. The value is truncated toward zero and limited to the
     *  range of 64 bits (NaN becomes 0); of that the field keeps its low bits. */
    virtual std::int32_t set_parameter(const char *key, std::int32_t index, double value) noexcept {
        static_cast<void>(key), static_cast<void>(index), static_cast<void>(value);
        return -1;
    }

    /** Slot 4: reads a number into `*value`. */
    virtual std::int32_t get_parameter(const char *key, double *value, std::int32_t index) noexcept {
        static_cast<void>(key), static_cast<void>(value), static_cast<void>(index);
        return -1;
    }

    /** Slot 5: writes a field from NUL-terminated text, binds an object, or loads a block.
     *
     *  An int32 is decimal, hexadecimal after 0x or octal after another 0 ("12", "0xC", "014"), an int64
     *  is read as strtod() does and then truncated; either keeps its low bits. Leading white space and
     *  anything after the number are ignored; text without a number stores 0. "{12}" stores 12 as well;
     *  "{}" stores nothing. */
    virtual std::int32_t set_parameter_str(const char *key, const void *value,
                                           std::int32_t size) noexcept {
        static_cast<void>(key), static_cast<void>(value), static_cast<void>(size);
        return -1;
    }

    /** Slot 6: not in use. @return -1 */
    virtual std::int32_t reserved_op() noexcept { return -1; }

  protected:
    ~API_GetSetParamStr() = default;
};

/** PCM input. */
class API_PutData : public IEngineAPI {
  public:
    /** Slot 3: encodes every frame that the data completes; the rest waits for the next call. Opens an
     *  encoder first, as "command::init" does, when none is open.
     *
     *  @param data   interleaved little-endian PCM of "settings::sampling_bits", one channel in mono,
     *                else two; null completes the pending frame with silence and encodes it
     *  @param size   bytes of an element
     *  @param count  elements; the data has size * count bytes, none when that is negative
     *  @return 0, or -1:
     *          no encoder can be opened;
     *          size * count has no 32-bit value: nothing is taken or opened;
     *          a frame could not be begun because the output has refused: the rest of the data is
     *          dropped, and every later call that completes a frame fails in the same way until the
     *          output is opened again. bufstream.h tells which refusals show when */
    virtual std::int32_t put_data(const void *data, std::int32_t size, std::int32_t count) noexcept = 0;

  protected:
    ~API_PutData() = default;
};

/** The host's sink: receives every frame as soon as it is finished.
 *
 *  Calls at opening and at every further "command::init":
 *
 *      set_parameter_str("encoding::MP1A::info", const frame_header *, 16, 0)
 *      set_parameter("original::audio::PCM::channels", 0, 1.0 or 2.0)
 *      set_parameter("original::audio::PCM::sampling::bits", 0, settings::sampling_bits)
 *      set_parameter("original::audio::PCM::sampling::rate", 0, settings::sample_rate)
 *
 *  Calls for every frame, the same length in both:
 *
 *      set_time_stamps, begin_unit(length), push_bytes(length), end_unit
 *
 *  Pointers are valid during the call only. All results are ignored, AddRef's and Release's included. A
 *  function must not throw.
 *
 *  The engine never calls slots 1, 4 and 6. A host's class derives from this one, counts its references
 *  and deletes itself at 0; virtual functions that it adds, such as a destructor, follow slot 10.
 */
class PushData : public IEngine {
  public:
    // Slot 0 AddRef and slot 2 Release are the host's to define.

    /** Slot 1: never called. */
    std::int32_t QueryInterface(const engine_iid &, IEngine *&) noexcept override { return -1; }

    /** Slot 3: a value of the stream's description. */
    virtual std::int32_t set_parameter(const char *key, std::int32_t index, double value) noexcept = 0;

    /** Slot 4: never called. */
    virtual std::int32_t unused_4() noexcept { return -1; }

    /** Slot 5: a record of the stream's description, `size` bytes at `value`; `reserved` is 0. */
    virtual std::int32_t set_parameter_str(const char *key, const void *value, std::int32_t size,
                                           std::int32_t reserved) noexcept = 0;

    /** Slot 6: never called. */
    virtual std::int32_t unused_6() noexcept { return -1; }

    /** Slot 7: the frame's bytes. */
    virtual std::int32_t push_bytes(const std::uint8_t *bytes, std::int32_t length) noexcept = 0;

    /** Slot 8: a frame of `length` bytes begins; `reserved` is 0. */
    virtual std::int32_t begin_unit(std::int32_t length, std::int32_t reserved) noexcept = 0;

    /** Slot 9: the frame is complete. */
    virtual std::int32_t end_unit() noexcept = 0;

    /** Slot 10: the time stamp of the frame that follows, in 27 MHz ticks, as both arguments. It is the
     *  one of frame_info: the stream's start plus the durations of all frames up to the end of this
     *  one. */
    virtual std::int32_t set_time_stamps(std::int64_t first, std::int64_t second) noexcept = 0;

  protected:
    ~PushData() = default;
};

/** Type of get_encMP1A(), for dlsym(). */
using get_encMP1A_function = IEngine *(*)() noexcept;

/** Makes an engine.
 *
 *  @return the engine with one reference, which is the caller's; null when memory is out
 */
extern "C" MPEG_A_API IEngine *get_encMP1A() noexcept;

#endif
