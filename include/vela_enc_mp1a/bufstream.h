/** The host's output object: a record of function slots that lends the encoder memory, block by block,
 *  and takes finished frames back.
 *
 *  What the encoder calls, for a stream with blocks that are large enough (4096 bytes always are):
 *
 *      mpegOutAudioInit    chunk_size, request
 *      first frame                              auxinfo(header_info), commit, auxinfo(frame_info)
 *      every other frame   chunk_size, request, auxinfo(header_info), commit, auxinfo(frame_info)
 *
 *  The block asked for at Init that no frame used is given up without a commit. With blocks not much
 *  larger than 1024 bytes a frame may arrive in two commits; its frame_info follows the second one.
 *
 *  A stream that has failed takes nothing more until the next mpegOutAudioInit(). What fails it shows at the
 *  next frame: mpegOutAudioPutBytes() returns 2 for the call that would begin one, with the message A002.
 *
 *      refused                                  shows
 *      the block asked for in Init              at the first frame
 *      before a frame: its block, the size of   at this frame, of which nothing is written
 *      that, the return of an unused block
 *      in a frame's midst or at its end: a      at the next frame; of this one some bytes may have been
 *      commit, the second block                 taken, and its frame_info comes all the same
 *
 *  PutBytes and Done give no sign of the latter after the last frame. A host that must know keeps what it
 *  answered itself.
 *
 *  Every call happens on the thread that called into the library. The encoder never frees the object;
 *  it must outlive mpegOutAudioDone(). The functions must neither throw nor leave by longjmp(). What they
 *  change of the floating-point environment lasts until they return.
 */
#ifndef VELA_ENC_MP1A_BUFSTREAM_H
#define VELA_ENC_MP1A_BUFSTREAM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct bufstream bufstream;

/** A slot that the encoder does not call; it may be null. */
typedef void (*bufstream_unused_slot)(void);

/** The nine slots; their order is an interface. The host's own data may follow them. */
struct bufstream {
    bufstream_unused_slot unused_0;

    /** Returns a writable block of at least `n` bytes, or null when there is none. The encoder writes
     *  into it until it commits the block or asks for another one. A null block fails the stream. */
    uint8_t *(*request)(bufstream *self, uint32_t n);

    /** The first `n` bytes of the last requested block are finished output, and the block goes back to
     *  the host. Returns the number of bytes accepted; anything but `n` fails the stream. With `n` 0
     *  the block goes back unused. */
    uint32_t (*commit)(bufstream *self, uint32_t n);

    bufstream_unused_slot unused_3;

    /** Returns the size in bytes of the blocks to request. It must hold a whole frame: 1728 bytes cover
     *  every layer, bitrate and rate. A size shorter than the frame fails the stream where it is the
     *  answer before a frame; a shorter block from Init is given back and asked for once more. */
    uint32_t (*chunk_size)(bufstream *self);

    /** Side information about the output at byte `offset` of the current block: MPEG_A_HEADER_INFO just
     *  before a frame header is written, MPEG_A_FRAME_INFO (with `offset` 0) after a frame has been
     *  committed. `data` is valid during the call only. Ignore identifiers you do not know. The result
     *  is ignored. */
    uint32_t (*auxinfo)(bufstream *self, uint32_t offset, uint32_t info_id, const void *data,
                        uint32_t size);

    bufstream_unused_slot unused_6;
    bufstream_unused_slot unused_7;
    bufstream_unused_slot unused_8;
};

/** `info_id` of a header_info. */
#define MPEG_A_HEADER_INFO 0xFFF00000u
/** `info_id` of a frame_info. */
#define MPEG_A_FRAME_INFO 0x000F0002u

/** The fields of one frame's header (ISO/IEC 11172-3, 2.4.1.3), a byte each, then four zero bytes. */
typedef struct frame_header {
    uint8_t id;                 /**< 1: MPEG-1 */
    uint8_t layer;              /**< the layer's number, 1 or 2 */
    uint8_t error_protection;   /**< 1: a CRC-16 follows the header */
    uint8_t bitrate_index;      /**< 1..14 */
    uint8_t sampling_frequency; /**< 0: 44100 Hz, 1: 48000 Hz, 2: 32000 Hz */
    uint8_t padding;            /**< 1: the frame has one slot more */
    uint8_t extension;          /**< private bit */
    uint8_t mode;               /**< enum mpeg_a_mode; joint stereo frames may be labelled stereo */
    uint8_t mode_extension;     /**< joint stereo: bound 4, 8, 12 or 16 as 0..3; otherwise 0 */
    uint8_t copyright;
    uint8_t original;
    uint8_t emphasis;
    uint8_t zero[4];
} frame_header;

/** Data of MPEG_A_HEADER_INFO, 48 bytes. */
typedef struct header_info {
    frame_header header;
    uint8_t undefined[32]; /**< zero */
} header_info;

/** Data of MPEG_A_FRAME_INFO, 16 bytes. */
typedef struct frame_info {
    uint32_t length; /**< bytes of the frame */
    uint32_t unused; /**< zero */
    /** 27 MHz ticks: the stream's start plus the durations of all frames up to and including this one;
     *  subtract one frame duration for the time at which the frame begins. */
    int64_t time_stamp;
} frame_info;

#ifdef __cplusplus
}
static_assert(sizeof(frame_header) == 16 && sizeof(header_info) == 48 && sizeof(frame_info) == 16,
              "the side information records have fixed sizes");
#else
_Static_assert(sizeof(frame_header) == 16 && sizeof(header_info) == 48 && sizeof(frame_info) == 16,
               "the side information records have fixed sizes");
#endif

#endif
