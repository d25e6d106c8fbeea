"""Noise-to-mask ratio of a coded signal against its source, after the basic version of ITU-R BS.1387.

What is done, in the order of the model: frames of 2048 samples, half overlapping, with a Hann window; levels as if a
sine of full scale were played at 92 dB SPL; weighting by the outer and middle ear; powers in 109 bands of a quarter
Bark from 80 Hz to 18 kHz; internal noise; spreading over frequency, which depends on the level; spreading over time; an
offset from there to the threshold of masking. The noise is the difference of the two weighted magnitude spectra, in the
same bands, not spread.

The model is defined at 48 kHz. Here frames have as many samples at any sampling rate; bands and time constants are in
Hz and seconds and follow it.
"""

from dataclasses import dataclass

import numpy as np

FRAME = 2048
STEP = FRAME // 2
FULL_SCALE = 32768.0
PLAYBACK_LEVEL = 92.0  # dB SPL of a sine of full scale
CALIBRATION_TONE = 1019.5  # Hz
LOWEST, HIGHEST = 80.0, 18000.0  # Hz
BAND_WIDTH = 0.25  # Bark
SUM_EXPONENT = 0.4  # in which spread powers add up
LOWER_SLOPE = 27.0  # dB per Bark
DISTURBED = 1.5  # dB above the threshold, in one band, that make a frame a disturbed one
WORST = 0.05  # share of the frames
ATTACK = 10.0  # dB by which the threshold rises from a frame to the next one, in the band with most noise
LEAST_POWER = 1e-12


def decibels(power):
    return 10 * np.log10(power)


def bark(frequency):
    return 7 * np.arcsinh(frequency / 650)


def hertz(barks):
    return 650 * np.sinh(barks / 7)


def ear_weight(frequency):
    """The outer and middle ear, in dB."""
    kilohertz = np.maximum(frequency, 1.0) / 1000
    return (-2.184 * kilohertz**-0.8 + 6.5 * np.exp(-0.6 * (kilohertz - 3.3)**2) - 0.001 * kilohertz**3.6)


def windowed_spectra(samples: np.ndarray) -> np.ndarray:
    """Magnitudes, a row for each frame."""
    frames = np.lib.stride_tricks.sliding_window_view(samples, FRAME)[::STEP]
    return np.abs(np.fft.rfft(frames * np.hanning(FRAME), axis=1))


@dataclass
class Nmr:
    total: float  # dB, of the mean ratio of all frames and bands
    median: float  # dB, of the mean ratio in the frame that is in the middle
    disturbed: float  # share of the frames
    rest: float  # dB, of the mean ratio without the worst frames
    before_attacks: float  # share of the worst frames


class EarModel:
    def __init__(self, sample_rate: int) -> None:
        edges = np.minimum(np.arange(bark(LOWEST), bark(HIGHEST) + BAND_WIDTH, BAND_WIDTH), bark(HIGHEST))
        self.bands = len(edges) - 1
        self.centres = hertz((edges[:-1] + edges[1:]) / 2)
        self.edges = hertz(edges)
        lines = np.arange(FRAME // 2 + 1) * sample_rate / FRAME
        self.gain = self.calibration(sample_rate) * 10**(ear_weight(lines) / 20)
        # The part of each line that lies in each band, lines by bands.
        half = sample_rate / FRAME / 2
        overlap = np.minimum(self.edges[1:], lines[:, None] + half) - np.maximum(self.edges[:-1], lines[:, None] - half)
        self.grouping = np.maximum(overlap, 0) / (2 * half)
        self.internal_noise = 10**(0.1456 * (self.centres / 1000)**-0.8)
        barks = np.arange(self.bands) * BAND_WIDTH
        self.offset = 10**(-np.where(barks <= 12, 3.0, 0.25 * barks) / 10)
        time_constants = 0.008 + 100 / self.centres * (0.030 - 0.008)
        self.decay = np.exp(-STEP / (sample_rate * time_constants))
        self.flat_sum = np.sum(self.spreading(np.ones(self.bands))**SUM_EXPONENT, axis=0)

    @staticmethod
    def calibration(sample_rate: int) -> float:
        tone = FULL_SCALE * np.sin(2 * np.pi * CALIBRATION_TONE / sample_rate * np.arange(10 * FRAME))
        return 10**(PLAYBACK_LEVEL / 20) / windowed_spectra(tone).max()

    def spreading(self, powers: np.ndarray) -> np.ndarray:
        """Where the power of each band goes, as shares of it: bands of origin by bands."""
        distance = (np.arange(self.bands) - np.arange(self.bands)[:, None]) * BAND_WIDTH
        upper_slope = np.minimum(-24 - 230 / self.centres + 0.2 * decibels(powers), 0)
        slope = np.where(distance <= 0, LOWER_SLOPE, upper_slope[:, None])
        shares = 10**(slope * distance / 10)
        return shares / shares.sum(axis=1, keepdims=True)

    def spread(self, powers: np.ndarray) -> np.ndarray:
        rows = [np.sum((row[:, None] * self.spreading(row))**SUM_EXPONENT, axis=0) for row in powers]
        return (np.array(rows) / self.flat_sum)**(1 / SUM_EXPONENT)

    def band_powers(self, spectra: np.ndarray) -> np.ndarray:
        """As the ear gets them, from magnitudes or their differences."""
        return np.maximum((spectra * self.gain)**2 @ self.grouping, LEAST_POWER)

    def threshold(self, spectra: np.ndarray) -> np.ndarray:
        """The power of a band from which on noise is taken to be heard, for each frame."""
        excitation = self.spread(self.band_powers(spectra) + self.internal_noise)
        decaying = np.zeros(self.bands)
        for row in excitation:
            decaying = self.decay * decaying + (1 - self.decay) * row
            np.maximum(decaying, row, out=row)
        return excitation * self.offset


class Source:
    """One channel of a source, by its spectra; its thresholds serve all coded versions of it."""

    def __init__(self, model: EarModel, spectra: np.ndarray) -> None:
        self.model = model
        self.spectra = spectra
        self.threshold = model.threshold(spectra)

    def compare(self, coded: np.ndarray) -> Nmr:
        """With the spectra of a coded version."""
        noise = self.model.band_powers(self.spectra - coded)
        ratios = noise / self.threshold
        frames = ratios.mean(axis=1)
        order = np.argsort(frames)
        rest, worst = np.split(order, [len(order) - int(len(order) * WORST)])
        return Nmr(decibels(ratios.mean()), decibels(np.median(frames)),
                   (decibels(ratios.max(axis=1)) >= DISTURBED).mean(), decibels(frames[rest].mean()),
                   np.mean([self.rises_after(frame, ratios[frame].argmax()) for frame in worst]))

    def rises_after(self, frame: int, band: int) -> bool:
        """Whether the threshold rises to the next frame as it does at an attack."""
        following = min(frame + 1, len(self.threshold) - 1)
        return decibels(self.threshold[following, band] / self.threshold[frame, band]) > ATTACK
