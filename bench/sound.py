#!/usr/bin/python3
"""Compares the sound of velaenc's two models: sound.py VELAENC [--rates KBPS,...] [--mode MODE] [FILE ...]

Files are whatever ffmpeg reads; of each the first twelve seconds count, in 48 kHz stereo. Without files: generated
ones. Encodes each with both models, decodes with mpg123, and prints for each rate and model the means over files:

  NMR        noise-to-mask ratio of the ear model in dB, lower is better
  disturbed  share of its frames in which some band's noise is 1.5 dB above its mask
  short      the same ratio with windows of 512 samples: pre-echo counts more
  SNR        mean signal-to-noise ratio of segments of 20 ms in dB, higher is better
  on/off     how often a second a subband gets bits or loses them, summed over subbands, mean of the channels
  blips      of those, subbands that differ from both their neighbours in time for one frame
  bound      how often a second the bound of joint stereo changes
"""
import argparse
import pathlib
import subprocess
import tempfile
import wave

import numpy as np

from ear_model import EarModel

RATE, SECONDS = 48000, 12
LONG, SHORT = EarModel(RATE), EarModel(RATE, 512)


def generated():
    """Clicks that ring, a rising chord, bursts of noise behind silence, pink noise; names and stereo samples."""
    random = np.random.default_rng(1)
    count = RATE * 6
    t = np.arange(count) / RATE
    clicks = np.zeros((count, 2))
    for start in random.integers(0, count - 9600, 25):
        tail = np.arange(9600) / RATE
        ring = np.sin(2 * np.pi * random.uniform(900, 5000) * tail) * np.exp(-80 * tail)
        burst = random.standard_normal(9600) * np.exp(-400 * tail)
        clicks[start : start + 9600] += np.outer(0.3 * ring + 0.2 * burst, random.uniform(0.3, 1, 2))
    chord = np.zeros((count, 2))
    for step, note in enumerate((0, 4, 7, 12, 16, 19)):
        since = t - step * 0.9
        envelope = np.where(since > 0, np.exp(-0.8 * since), 0)
        for harmonic in range(1, 25):
            tone = np.sin(2 * np.pi * 131 * 2 ** (note / 12) * harmonic * t)
            chord += np.outer(0.08 / harmonic * envelope * tone, (1, 0.6 + 0.05 * step))
    bursts = random.standard_normal((count, 2)) * (0.2 * (t % 1.5 > 1.1))[:, None]
    spectrum = np.fft.rfft(random.standard_normal((count, 2)), axis=0)
    pink = np.fft.irfft(spectrum / np.sqrt(np.maximum(np.arange(len(spectrum)), 20))[:, None], n=count, axis=0)
    return {"clicks": clicks, "chord": chord, "bursts": bursts, "pink": 0.4 * pink / np.abs(pink).max()}


def write_wav(path, samples):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(2)
        file.setsampwidth(2)
        file.setframerate(RATE)
        file.writeframes(np.round(np.clip(samples, -1, 32767 / 32768) * 32768).astype("<i2").tobytes())


def read_any(path):
    shape = ["-t", str(SECONDS), "-ar", str(RATE), "-ac", "2", "-f", "f32le", "-"]
    raw = subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-i", path, *shape], capture_output=True, check=True)
    return np.frombuffer(raw.stdout, "<f4").reshape(-1, 2).astype(float)


def encoded(encoder, source, folder, options):
    """What a decoder makes of the stream, and the source, in step and as long as each other."""
    stream = folder / "coded.mp2"
    subprocess.run([encoder, "--quiet", *options, source, stream], check=True)
    raw = subprocess.run(["mpg123", "-q", "-e", "f32", "-s", stream], capture_output=True, check=True).stdout
    with wave.open(str(source)) as file:
        original = np.frombuffer(file.readframes(file.getnframes()), "<i2").reshape(-1, 2) / 32768
    mono = "mono" in options
    original = original.mean(axis=1, keepdims=True) if mono else original
    coded = np.frombuffer(raw, "<f4").reshape(-1, original.shape[1]).astype(float)
    a, b = original[: 4 * RATE].sum(axis=1), coded[: 4 * RATE].sum(axis=1)
    size = 2 ** int(np.ceil(np.log2(len(a) + len(b))))
    delay = int(np.argmax(np.fft.irfft(np.fft.rfft(b, size) * np.conj(np.fft.rfft(a, size)), size)[:4000]))
    coded = coded[delay:]
    length = min(len(original), len(coded))
    return original[:length], coded[:length]


def segmental_snr(original, coded):
    count = len(original) // 960 * 960
    signal = (original[:count] ** 2).reshape(-1, 960).mean(axis=1)
    noise = ((coded - original)[:count] ** 2).reshape(-1, 960).mean(axis=1)
    loud = signal > 1e-7
    return np.clip(10 * np.log10(signal[loud] / (noise[loud] + 1e-14)), -10, 80).mean()


def restlessness(stream):
    """Changes a second in a Layer II stream of 48 kHz: subbands with bits, those for one frame, bounds."""
    kbps = (0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384)
    on, bounds, at = [], [], 0
    while at + 4 <= len(stream):
        mode, extension = stream[at + 3] >> 6, stream[at + 3] >> 4 & 3
        rate, channels = kbps[stream[at + 2] >> 4], 1 if mode == 3 else 2
        widths = [4] * 11 + [3] * 12 + [2] * 4 if rate / channels >= 56 else [4] * 2 + [3] * 6
        frame = stream[at : at + 3 * rate]
        bits = int.from_bytes(frame, "big")
        left = 8 * len(frame) - (32 if stream[at + 1] & 1 else 48)
        bounds.append(4 * extension + 4 if mode == 1 else 32)
        now = np.zeros((channels, 32), bool)
        for subband, width in enumerate(widths):
            shared = subband >= bounds[-1]
            for channel in range(1 if shared else channels):
                left -= width
                now[slice(None) if shared else channel, subband] = bits >> left & (1 << width) - 1
        on.append(now)
        at += len(frame)
    changed = np.diff(np.array(on), axis=0)
    a_second = RATE / 1152
    blips = (changed[1:] & changed[:-1]).mean(axis=(0, 1)).sum()
    return changed.mean(axis=(0, 1)).sum() * a_second, blips * a_second, np.mean(np.diff(bounds) != 0) * a_second


def judge(encoder, source, folder, options):
    original, coded = encoded(encoder, source, folder, options)
    rows = []
    for x, y in zip(original.T, coded.T):
        (nmr, disturbed), (short, _) = LONG.compare(x, y), SHORT.compare(x, y)
        rows.append((nmr, 100 * disturbed, short, segmental_snr(x, y)))
    return *np.mean(rows, axis=0), *restlessness((folder / "coded.mp2").read_bytes())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("encoder", type=pathlib.Path)
    parser.add_argument("files", nargs="*")
    parser.add_argument("--rates", default="128,192,256,384")
    parser.add_argument("--mode", default="stereo", choices=("stereo", "joint", "dual", "mono"))
    wanted = parser.parse_args()
    clips = {name: read_any(name) for name in wanted.files} or generated()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for number, samples in enumerate(clips.values()):
            write_wav(folder / f"{number}.wav", samples)
        print(f"{wanted.mode}, means of {len(clips)} files     NMR  disturbed   short     SNR  on/off  blips  bound")
        for rate in wanted.rates.split(","):
            for model in ("standard", "tuned"):
                options = ["--mode", wanted.mode, "--bitrate", rate, "--model", model]
                sources = [folder / f"{number}.wav" for number in range(len(clips))]
                rows = [judge(wanted.encoder, source, folder, options) for source in sources]
                means = np.mean(rows, axis=0)
                print("%4s kbit/s  %-8s  %9.2f dB  %6.1f %%  %6.2f  %6.2f  %6.1f  %5.1f  %5.1f" % (rate, model, *means))


if __name__ == "__main__":
    main()
