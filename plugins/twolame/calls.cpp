// The interface's functions but for those that set and get.
#include "session.hpp"
#include "stream_settings.hpp"

#include <cstdio>
#include <cstdlib>
#include <new>

namespace vela_twolame {
namespace {

constexpr const char *mode_names[] = {"stereo", "joint stereo", "dual channel", "mono"};

float gain_of(const wishes &wished, float own) {
    return (wished.scale > 0 ? wished.scale : 1) * (own > 0 ? own : 1);
}

void complain(const wishes &wished, const char *message) {
    if (wished.verbosity > 0) std::fprintf(stderr, "libtwolame of vela_enc_mp1a: %s\n", message);
}

/// @param stride  from one sample of a channel to the next
template <class Sample>
int encode(twolame_options *glopts, const Sample *left, const Sample *right, std::size_t stride,
           int samples, unsigned char *room, int size) {
    if (glopts == nullptr || glopts->session == nullptr || samples < 0) return -1;
    session &own = *glopts->session;
    if (samples > 0 && (left == nullptr || (own.channels_in() == 2 && right == nullptr))) return -1;
    const auto count = static_cast<std::size_t>(samples);
    if (!own.make_room(count) || !own.put(left, right, stride, count)) return -1;
    return own.take(room, size);
}

template <class Sample>
int encode_interleaved(twolame_options *glopts, const Sample *pcm, int samples, unsigned char *room,
                       int size) {
    const bool pairs =
        glopts != nullptr && glopts->session != nullptr && glopts->session->channels_in() == 2;
    return encode(glopts, pcm, pcm != nullptr && pairs ? pcm + 1 : pcm, pairs ? 2 : 1, samples, room,
                  size);
}

} // namespace
} // namespace vela_twolame

using namespace vela_twolame;

/// The interface that is kept, and whose encoder it is.
const char *get_twolame_version(void) {
    return "0.4.0 (vela_enc_mp1a " VELA_VERSION ")";
}

/// The encoder has no page of its own.
const char *get_twolame_url(void) {
    return "";
}

twolame_options *twolame_init(void) {
    void *const memory = std::malloc(sizeof(twolame_options));
    return memory != nullptr ? new (memory) twolame_options : nullptr;
}

int twolame_init_params(twolame_options *glopts) {
    if (glopts == nullptr) return -1;
    const wishes &wished = glopts->wishes;
    session::destroy(glopts->session);
    glopts->session = nullptr;
    mpeg_a_settings settings;
    char message[message_bytes] = "memory is out";
    if (settle(wished, settings, message)) {
        const sound_shape shape{
            wished.num_channels,
            settings.audio_mode == MPEG_A_MODE_MONO ? 1 : 2,
            {gain_of(wished, wished.scale_left), gain_of(wished, wished.scale_right)}};
        glopts->session = session::create(settings, wished.rate(), shape);
    }
    if (glopts->session != nullptr) return 0;
    complain(wished, message);
    return -1;
}

int twolame_encode_buffer(twolame_options *glopts, const short int leftpcm[],
                          const short int rightpcm[], int num_samples, unsigned char *mp2buffer,
                          int mp2buffer_size) {
    return encode(glopts, leftpcm, rightpcm, 1, num_samples, mp2buffer, mp2buffer_size);
}

int twolame_encode_buffer_interleaved(twolame_options *glopts, const short int pcm[], int num_samples,
                                      unsigned char *mp2buffer, int mp2buffer_size) {
    return encode_interleaved(glopts, pcm, num_samples, mp2buffer, mp2buffer_size);
}

int twolame_encode_buffer_float32(twolame_options *glopts, const float leftpcm[],
                                  const float rightpcm[], int num_samples, unsigned char *mp2buffer,
                                  int mp2buffer_size) {
    return encode(glopts, leftpcm, rightpcm, 1, num_samples, mp2buffer, mp2buffer_size);
}

int twolame_encode_buffer_float32_interleaved(twolame_options *glopts, const float pcm[],
                                              int num_samples, unsigned char *mp2buffer,
                                              int mp2buffer_size) {
    return encode_interleaved(glopts, pcm, num_samples, mp2buffer, mp2buffer_size);
}

int twolame_encode_flush(twolame_options *glopts, unsigned char *mp2buffer, int mp2buffer_size) {
    if (glopts == nullptr) return -1;
    // Programs flush what was refused, too, and write as many bytes as this says: darkice takes -1 for four thousand
    // million.
    if (glopts->session == nullptr) return 0;
    session &own = *glopts->session;
    if (!own.make_room(0) || !own.complete()) return -1;
    return own.take(mp2buffer, mp2buffer_size);
}

void twolame_close(twolame_options **glopts) {
    if (glopts == nullptr || *glopts == nullptr) return;
    session::destroy((*glopts)->session);
    std::free(*glopts);
    *glopts = nullptr;
}

void twolame_print_config(twolame_options *glopts) {
    if (glopts == nullptr || glopts->wishes.verbosity == 0) return;
    const wishes &wished = glopts->wishes;
    std::fprintf(stderr, "libtwolame %s: MPEG-1 Layer II, %s, %d Hz, %d kbit/s%s\n",
                 get_twolame_version(), mode_names[mode_of(wished)], wished.rate(), wished.bitrate,
                 wished.error_protection != FALSE ? ", CRC" : "");
}

const char *twolame_get_mode_name(twolame_options *glopts) {
    return glopts != nullptr ? mode_names[mode_of(glopts->wishes)] : "";
}

const char *twolame_get_version_name(twolame_options *glopts) {
    if (glopts == nullptr) return "";
    constexpr const char *names[] = {"unknown", "MPEG-2 LSF", "MPEG-1"};
    return names[glopts->wishes.version + 1];
}

int twolame_get_framelength(twolame_options *glopts) {
    return glopts != nullptr ? frame_bytes(glopts->wishes) : 0;
}

int twolame_set_DAB_scf_crc_length(twolame_options *) {
    return -1; // there are no extensions of DAB
}

int twolame_set_DAB_scf_crc(twolame_options *, unsigned char *, int) {
    return -1;
}
