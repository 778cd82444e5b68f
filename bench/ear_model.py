"""Noise-to-mask ratios after the FFT-based ear model of ITU-R BS.1387 (basic version).

Written from the formulas of the Recommendation; not checked for conformance with it.
"""
import numpy as np

BANDS_PER_BARK = 4
LOWEST_HZ, HIGHEST_HZ = 80.0, 18000.0
FULL_SCALE_DB = 92.0  # sound pressure level of a sine at full scale


def bark(hz):
    return 7 * np.arcsinh(hz / 650)


def hertz(z):
    return 650 * np.sinh(z / 7)


class EarModel:
    """One channel at one sampling rate. The Recommendation's windows have 2048 samples; shorter ones see less of
    the bass and more of the time."""

    def __init__(self, rate, length=2048):
        self.rate, self.length, self.hop = rate, length, length // 2
        self.window = np.sqrt(8 / 3) * 0.5 * (1 - np.cos(2 * np.pi * np.arange(length) / (length - 1)))
        lines = np.arange(length // 2 + 1) * rate / length
        self.gain = self._outer_ear(lines) * self._calibration()
        self._lay_bands(lines)
        self._lay_spreading()

    @staticmethod
    def _outer_ear(hz):
        khz = np.maximum(hz, 1.0) / 1000
        db = -0.6 * 3.64 * khz**-0.8 + 6.5 * np.exp(-0.6 * (khz - 3.3) ** 2) - 1e-3 * khz**3.6
        return 10 ** (db / 10)

    def _calibration(self):
        sine = np.sin(2 * np.pi * 1019.5 / self.rate * np.arange(self.length))
        return 10 ** (FULL_SCALE_DB / 10) / np.max(np.abs(np.fft.rfft(self.window * sine)) ** 2)

    def _lay_bands(self, lines):
        edges = np.arange(bark(LOWEST_HZ), bark(HIGHEST_HZ), 1 / BANDS_PER_BARK)
        low, high = edges, np.minimum(edges + 1 / BANDS_PER_BARK, bark(HIGHEST_HZ))
        self.count = len(edges)
        self.centre = hertz((low + high) / 2)
        half = self.rate / self.length / 2
        # How much of each line's width lies in each band.
        inside = np.minimum(hertz(high), lines[:, None] + half) - np.maximum(hertz(low), lines[:, None] - half)
        self.share = np.maximum(inside, 0) / (2 * half)
        self.internal_noise = 10 ** (0.4 * 0.364 * (self.centre / 1000) ** -0.8)
        step = np.arange(self.count) / BANDS_PER_BARK
        self.offset = 10 ** (-np.where(step <= 12, 3.0, 0.25 * step) / 10)
        decay_s = 0.008 + 100 / self.centre * (0.030 - 0.008)
        self.decay = np.exp(-self.hop / self.rate / decay_s)

    def _lay_spreading(self):
        self.scale = 1.0
        self.scale = self._spread(np.ones((1, self.count)))

    def _spread(self, energy):
        """Energies of frames and bands, spread over neighbours: 27 dB a Bark downwards; upwards by level."""
        level = 10 * np.log10(energy)
        up = 10 ** ((-24 - 230 / self.centre + 0.2 * level) / 10 / BANDS_PER_BARK)
        down = 10 ** (-2.7 / BANDS_PER_BARK)
        n = self.count
        index = np.arange(n)
        whole = (1 - down ** (index + 1)) / (1 - down) + (1 - up ** (n - index)) / (1 - up) - 1
        peak = (energy / whole) ** 0.4
        # The 0.4th powers of all maskers add up; both sums are recursions over the bands.
        total = np.zeros_like(energy)
        below = np.zeros(len(energy))
        for band in range(n - 1, -1, -1):
            below = peak[:, band] + below * down**0.4
            total[:, band] = below
        for masker in range(n - 1):
            reach = np.arange(1, n - masker)
            total[:, masker + 1 :] += peak[:, masker, None] * (up[:, masker, None] ** 0.4) ** reach
        return total**2.5 / self.scale

    def spectrum(self, signal):
        """Energies of frames and lines behind the outer ear."""
        frames = (len(signal) - self.length) // self.hop + 1
        index = np.arange(self.length) + self.hop * np.arange(frames)[:, None]
        return np.abs(np.fft.rfft(signal[index] * self.window, axis=1)) ** 2 * self.gain

    def masks(self, spectrum):
        spread = self._spread(np.maximum(spectrum @ self.share, 1e-12) + self.internal_noise)
        masked, state = np.empty_like(spread), np.zeros(self.count)
        for frame, energy in enumerate(spread):
            state = self.decay * state + (1 - self.decay) * energy
            masked[frame] = np.maximum(state, energy)
        return masked * self.offset

    def compare(self, original, coded):
        """Noise-to-mask ratio in dB, and the share of frames in which some band's noise is 1.5 dB above its mask."""
        a, b = self.spectrum(original), self.spectrum(coded)
        noise = (np.sqrt(a) - np.sqrt(b)) ** 2 @ self.share
        audible = a.sum(axis=1) > 1e3
        ratio = (noise / self.masks(a))[audible]
        if not len(ratio):
            return 0.0, 0.0
        disturbed = np.mean(ratio.max(axis=1) > 10**0.15)
        return 10 * np.log10(ratio.mean() + 1e-12), disturbed
