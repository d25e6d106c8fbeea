#!/usr/bin/python3
"""Checks the noise-to-mask ratio of nmr.py on signals for which it is known."""

import unittest

import numpy as np

from nmr import FRAME, STEP, EarModel, Nmr, Source, decibels, windowed_spectra

SECONDS = 4
RATE = 44100


def synthesise(magnitudes: np.ndarray, random: np.random.Generator, length: int) -> np.ndarray:
    """Noise with about these magnitudes in each frame, by overlapping frames of random phase."""
    window = np.hanning(FRAME)
    samples = np.zeros(length)
    for frame, row in enumerate(magnitudes):
        phases = np.exp(2j * np.pi * random.random(len(row)))
        samples[frame * STEP:][:FRAME] += window * np.fft.irfft(row * phases, FRAME)
    return samples


class NmrTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        """Noise that falls with frequency, beats slowly, and carries a chord."""
        random = np.random.default_rng(1)
        time = np.arange(SECONDS * RATE) / RATE
        white = np.fft.rfft(random.standard_normal(len(time)))
        pink = np.fft.irfft(white / np.sqrt(1 + np.arange(len(white))), len(time))
        chord = sum(np.sin(2 * np.pi * frequency * time) for frequency in (220, 277.2, 329.6, 1318.5))
        cls.random = random
        cls.samples = 4000 * pink / pink.std() * (1 + 0.5 * np.sin(2 * np.pi * 1.5 * time)) + 1500 * chord
        cls.model = EarModel(RATE)
        cls.source = Source(cls.model, windowed_spectra(cls.samples))

    def compare(self, coded: np.ndarray) -> Nmr:
        return self.source.compare(windowed_spectra(coded))

    def threshold_noise(self) -> np.ndarray:
        """Noise that has the power of the threshold in every frame and band."""
        model = self.model
        share = self.source.threshold / model.grouping.sum(axis=0) @ model.grouping.T
        gain = np.maximum(model.gain, model.gain.max() * 1e-5)
        # What frames of this window and step put back, as their mean over much noise tells.
        flat = synthesise(np.ones((200, FRAME // 2 + 1)), self.random, 201 * STEP)
        return synthesise(np.sqrt(share) / gain, self.random, len(self.samples)) / np.sqrt(
            (windowed_spectra(flat)**2).mean())

    def test_bands_are_those_of_the_model(self) -> None:
        self.assertEqual(self.model.bands, 109)
        np.testing.assert_allclose(self.model.edges[:3], [80, 103.445, 127.023], atol=0.001)
        np.testing.assert_allclose(self.model.centres[[0, 1, 108]], [91.708, 115.216, 17690.045], atol=0.003)
        np.testing.assert_allclose(decibels(self.model.offset[[0, 48, 108]]), [-3, -3, -6.75])

    def test_level_is_that_of_playback(self) -> None:
        """A sine at a quarter of full scale lies 12 dB below 92 dB, all its power in a few bands."""
        sine = 8192 * np.sin(2 * np.pi * 1019.5 / RATE * np.arange(RATE))
        line = (windowed_spectra(sine) * self.model.calibration(RATE)).max()
        self.assertAlmostEqual(2 * decibels(line), 92 - 12.04, delta=0.3)

    def test_the_same_signal_has_no_noise(self) -> None:
        result = self.compare(self.samples)
        self.assertLess(result.total, -100)
        self.assertEqual(result.disturbed, 0)

    def test_noise_at_the_threshold_is_at_0_dB(self) -> None:
        noise = self.threshold_noise()
        ratio = self.model.band_powers(windowed_spectra(noise)) / self.source.threshold
        self.assertAlmostEqual(decibels(ratio.mean()), 0, delta=0.2)
        # Only the part of noise that is in phase with the signal changes the magnitude: half of the power.
        self.assertAlmostEqual(self.compare(self.samples + 0.1 * noise).total, -20 - 3, delta=0.3)
        self.assertAlmostEqual(self.compare(self.samples + noise).total, -3, delta=0.3)

    def test_decibels_of_noise_are_decibels_of_the_ratio(self) -> None:
        noise = self.threshold_noise()
        totals = [self.compare(self.samples + 10**(level / 20) * noise).total for level in (-40, -30, -20)]
        np.testing.assert_allclose(np.diff(totals), 10, atol=0.3)

    def test_frames_are_disturbed_above_the_threshold(self) -> None:
        noise = self.threshold_noise()
        self.assertEqual(self.compare(self.samples + 0.1 * noise).disturbed, 0)
        self.assertGreater(self.compare(self.samples + 4 * noise).disturbed, 0.99)

    def test_a_tone_masks_above_itself_more_than_below(self) -> None:
        tone = 8192 * np.sin(2 * np.pi * 1000 / RATE * np.arange(RATE))
        threshold = decibels(Source(self.model, windowed_spectra(tone)).threshold[10])
        at = {frequency: np.argmin(np.abs(self.model.centres - frequency)) for frequency in (500, 1000, 2000)}
        self.assertGreater(threshold[at[2000]], threshold[at[500]] + 20)
        self.assertGreater(threshold[at[1000]], threshold[at[2000]] + 20)

    def test_a_sudden_silence_is_masked_for_a_while(self) -> None:
        half = self.samples[:RATE].copy()
        half[RATE // 2:] = 0
        threshold = decibels(Source(self.model, windowed_spectra(half)).threshold[:, 60])
        last = RATE // 2 // STEP
        self.assertLess(threshold[last + 1], threshold[last - 2])
        self.assertTrue((np.diff(threshold[last:last + 4]) < 0).all())


if __name__ == "__main__":
    unittest.main()
