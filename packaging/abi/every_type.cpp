// Names every type of the public headers, so that one file's debug information describes the whole
// interface. Linked with the core, it stands for the library when its ABI is recorded and compared.
#include "vela_enc_mp1a/engine.h"

// The functions that the library exports, then the records and interfaces that travel through untyped
// pointers and the enumerations that travel as integers.
extern "C" MPEG_A_API void every_type(decltype(mpegOutAudioDefaults) *,
                                      decltype(mpegOutAudioChkSettings) *, decltype(mpegOutAudioNew) *,
                                      decltype(mpegOutAudioInit) *, decltype(mpegOutAudioPutBytes) *,
                                      decltype(mpegOutAudioDone) *, decltype(mpegOutAudioFree) *,
                                      decltype(get_encMP1A) *, header_info *, frame_info *,
                                      API_PutData *, API_GetSetParamStr *, PushData *,
                                      mpeg_a_message_function, mpeg_a_model, mpeg_a_preset, mpeg_a_mode,
                                      mpeg_a_emphasis, mpeg_a_check_options) {
}
