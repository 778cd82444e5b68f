#!/usr/bin/env python3
"""Encodes a WAV file through the function interface and lists the frames: number, bytes, seconds at its end.

Usage: encode.py IN.wav OUT.mp2 [LIBRARY]
"""
import ctypes
import sys
import wave
from ctypes import CFUNCTYPE, POINTER, Structure, c_char_p, c_int32, c_int64, c_uint8, c_uint32, c_void_p

PRESET_DVB = 8
MODE_STEREO, MODE_MONO = 0, 3
BITRATE_INDEX = {1: 8, 2: 11}  # by channels, Layer II: 128 and 224 kbit/s
FRAME_INFO = 0x000F0002


class Settings(Structure):
    _pack_ = 4
    _fields_ = [(name, c_int32) for name in (
        "audio_mode", "audio_layer", "psych_model", "audio_bitrate", "emphasis", "extension",
        "error_protection", "copyright", "original")] + [
        ("pts_offset", c_int64), ("pts_units", c_int32), ("audio_model", c_int32), ("reserved", c_uint8 * 4044)]


class FrameInfo(Structure):
    _fields_ = [("length", c_uint32), ("unused", c_uint32), ("time_stamp", c_int64)]


# The slots of a bufstream, in their order; the first argument of each is the bufstream itself.
Request = CFUNCTYPE(c_void_p, c_void_p, c_uint32)
Commit = CFUNCTYPE(c_uint32, c_void_p, c_uint32)
ChunkSize = CFUNCTYPE(c_uint32, c_void_p)
AuxInfo = CFUNCTYPE(c_uint32, c_void_p, c_uint32, c_uint32, c_void_p, c_uint32)


class Bufstream(Structure):
    _fields_ = [("unused_0", c_void_p), ("request", Request), ("commit", Commit), ("unused_3", c_void_p),
                ("chunk_size", ChunkSize), ("auxinfo", AuxInfo), ("unused", c_void_p * 3)]


class Output:
    """Lends the encoder one block, writes what it commits, and keeps the report of each frame."""

    def __init__(self, file):
        self.file, self.block, self.frames = file, (c_uint8 * 4096)(), []
        self.slots = Bufstream(
            request=Request(lambda _, size: ctypes.addressof(self.block) if size <= len(self.block) else None),
            commit=Commit(lambda _, size: self.file.write(bytes(self.block[:size]))),
            chunk_size=ChunkSize(lambda _: len(self.block)),
            auxinfo=AuxInfo(self.report))

    def report(self, _, offset, info_id, data, size):
        if info_id == FRAME_INFO:
            info = FrameInfo.from_address(data)
            self.frames.append((info.length, info.time_stamp / 27e6))
        return 0


# The library asks for its host's functions by name; for its messages the C library's printf will do.
Lookup = CFUNCTYPE(c_void_p, c_char_p)
printf = ctypes.CDLL(None).printf
lookup = Lookup(lambda name: ctypes.cast(printf, c_void_p).value if name == b"err_printf" else None)


def encode(source, target, library="libvela_enc_mp1a.so.2.0"):
    vela = ctypes.CDLL(library)
    vela.mpegOutAudioNew.argtypes = [Lookup, POINTER(Settings), c_void_p, c_int32, c_int32]
    vela.mpegOutAudioNew.restype = c_void_p
    vela.mpegOutAudioInit.argtypes = [c_void_p, POINTER(Bufstream)]
    vela.mpegOutAudioPutBytes.argtypes = [c_void_p, c_char_p, c_uint32]
    vela.mpegOutAudioDone.argtypes = [c_void_p, c_int32]
    vela.mpegOutAudioFree.argtypes = [c_void_p]
    with wave.open(source) as pcm, open(target, "wb", buffering=0) as file:
        if pcm.getsampwidth() not in (2, 3) or pcm.getnchannels() not in (1, 2):
            sys.exit(f"{source}: 16 or 24 bits and one or two channels are what this example reads")
        settings, output = Settings(), Output(file)
        vela.mpegOutAudioDefaults(ctypes.byref(settings), PRESET_DVB)
        settings.audio_mode = MODE_MONO if pcm.getnchannels() == 1 else MODE_STEREO
        settings.audio_bitrate = BITRATE_INDEX[pcm.getnchannels()]
        encoder = vela.mpegOutAudioNew(lookup, settings, None, pcm.getsampwidth(), pcm.getframerate())
        if not encoder:
            printf(b"\n")
            sys.exit(1)
        result = vela.mpegOutAudioInit(encoder, output.slots)
        while result == 0 and (data := pcm.readframes(4096)):
            result = vela.mpegOutAudioPutBytes(encoder, data, len(data))
        vela.mpegOutAudioDone(encoder, int(result != 0))
        vela.mpegOutAudioFree(encoder)
        if result != 0:
            sys.exit(f"{target}: not everything could be written")
    return output.frames


if __name__ == "__main__":
    if not 3 <= len(sys.argv) <= 4:
        sys.exit(__doc__)
    for number, (length, seconds) in enumerate(encode(*sys.argv[1:])):
        print(f"{number},{length},{seconds:.6f}")
