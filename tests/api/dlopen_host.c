/* A host in plain C that knows the library by its file only: dlopen_host LIBRARY encodes one second of
 * a square wave and counts the frames. */
#include "vela_enc_mp1a/encoder.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

static uint8_t block[4096];
static uint32_t bytes, frames, wrong;

static uint8_t *request(bufstream *self, uint32_t n) {
    return self != NULL && n <= sizeof block ? block : NULL;
}

static uint32_t commit(bufstream *self, uint32_t n) {
    /* Layer II, 48 kHz, 224 kbit/s, no CRC. */
    wrong += self == NULL || memcmp(block, "\xFF\xFD\xB4", 3) != 0;
    bytes += n;
    return n;
}

static uint32_t chunk_size(bufstream *self) {
    return self != NULL ? sizeof block : 0;
}

static uint32_t auxinfo(bufstream *self, uint32_t offset, uint32_t id, const void *data,
                        uint32_t size) {
    if (id != MPEG_A_FRAME_INFO) return 0;
    const int64_t stamp = ((const frame_info *)data)->time_stamp;
    wrong += self == NULL || size != 16 || offset != 0 || stamp != 648000 * (int64_t)++frames;
    return 0;
}

static struct {
    int32_t (*Defaults)(mpeg_a_settings *, int32_t);
    mpeg_a_encoder *(*New)(resource_lookup, const mpeg_a_settings *, intptr_t, int32_t, int32_t);
    int32_t (*Init)(mpeg_a_encoder *, bufstream *);
    int32_t (*PutBytes)(mpeg_a_encoder *, const void *, uint32_t);
    int32_t (*Done)(mpeg_a_encoder *, int32_t);
    void (*Free)(mpeg_a_encoder *);
} vela;

/* A data pointer from dlsym as a function pointer, in the way that POSIX asks for. */
#define LOAD(name) (*(void **)&vela.name = dlsym(library, "mpegOutAudio" #name))

int main(int count, char **arguments) {
    void *const library = count == 2 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (library == NULL || !LOAD(Defaults) || !LOAD(New) || !LOAD(Init) || !LOAD(PutBytes)
        || !LOAD(Done) || !LOAD(Free)) {
        fprintf(stderr, "%s\n", dlerror());
        return 2;
    }
    static bufstream output = {
        .request = request, .commit = commit, .chunk_size = chunk_size, .auxinfo = auxinfo};
    static int16_t pcm[96000];
    static mpeg_a_settings settings;
    for (int i = 0; i < 96000; ++i)
        pcm[i] = i / 100 % 2 == 0 ? 20000 : -20000;
    vela.Defaults(&settings, MPEG_A_PRESET_NONE);
    mpeg_a_encoder *const encoder = vela.New(NULL, &settings, 0, 2, 48000);
    const int failed = encoder == NULL || vela.Init(encoder, &output) != 0
                       || vela.PutBytes(encoder, pcm, sizeof pcm) != 0 || vela.Done(encoder, 0) != 0;
    vela.Free(encoder);
    dlclose(library);
    /* 48000 samples are 41.67 frames of 672 bytes. */
    return failed || frames != 42 || bytes != 42 * 672 || wrong != 0;
}
