#!/usr/bin/python3
"""Compares what Tavik makes of clips with what FFmpeg's own AAC encoder makes of them: the tables and the chart of
docs/quality.md.

Usage: quality.py RESULTS TAVIK CLIPS [DOCUMENT]

RESULTS is the directory that the measurements are left in, TAVIK the program, CLIPS a directory of raw 16-bit stereo
samples at 44.1 kHz. With DOCUMENT its generated tables are replaced, and the chart in the directory charts beside it;
otherwise the tables are printed.
"""

import subprocess
import sys
import tempfile
from dataclasses import astuple, dataclass
from pathlib import Path

import numpy as np

from charts import Series, bit_rate_marks, line_chart
from document import (FRAME_LENGTH, SAMPLE_RATE, SHOWN_BIT_RATE, Report, Rows, kilobits, markdown, publish,
                      replace_file)
from nmr import FRAME, FULL_SCALE, EarModel, Nmr, Source, decibels, windowed_spectra

BIT_RATES = [64000, 96000, 128000, 160000, 192000]  # of both channels
CHANNELS = 2
PCM = ["-f", "s16le", "-ar", str(SAMPLE_RATE), "-ac", str(CHANNELS)]
TAVIK = "Tavik"
FFMPEG = "FFmpeg"
ENCODERS = {  # with the options of ffmpeg
    TAVIK: [],
    FFMPEG: [],
    "FFmpeg without PNS": ["-aac_pns", "0"],
    "FFmpeg, fast coder": ["-aac_coder", "fast"],
}
BAND = 16  # lines of a spectrum that the bandwidth looks at together
LOST = 10  # dB below the source
AUDIBLE = -90  # dB below a sine of full scale, from which on the source has something to lose
WIDE = 18000  # Hz that a source has to reach for the bandwidth of the encoders to show
LONGEST_LAG = 4096  # samples
CORRELATED = 2**19  # samples from the start on that tell it


def run(*command: str | Path) -> bytes:
    """What a command prints."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if done.returncode != 0:
        said = done.stderr.decode(errors="replace").strip().splitlines() or [f"exit status {done.returncode}"]
        raise RuntimeError(f"{Path(command[0]).name}: {said[-1]}")
    return done.stdout


# ---- Encoding and decoding, by the programs as their users call them ----


def encode(tavik: Path, encoder: str, clip: Path, bit_rate: int, coded: Path) -> None:
    if encoder == TAVIK:
        run(tavik, "-q", "-f", "--pcm", f"s16le:{SAMPLE_RATE}:{CHANNELS}", "-b", str(bit_rate), "-o", coded, clip)
    else:
        run("ffmpeg", "-v", "error", "-y", *PCM, "-i", clip, "-c:a", "aac", "-b:a", str(bit_rate), *ENCODERS[encoder],
            coded)


def decode(coded: Path, length: int) -> np.ndarray:
    """As many samples as the source has; the file declares what comes before them, and ffmpeg removes it."""
    raw = run("ffmpeg", "-v", "error", "-i", coded, "-f", "f32le", "-ac", str(CHANNELS), "-")
    samples = np.frombuffer(raw, "<f4").reshape(-1, CHANNELS) * FULL_SCALE
    if len(samples) < length:
        raise RuntimeError(f"{coded.name} has {len(samples)} samples, the clip {length}")
    return samples[:length]


def coded_rate(coded: Path) -> float:
    """Bit/s of the frames alone."""
    sizes = run("ffprobe", "-v", "error", "-show_entries", "packet=size", "-of", "csv=p=0", coded).split()
    return sum(int(size.strip(b",")) for size in sizes) * 8 * SAMPLE_RATE / FRAME_LENGTH / len(sizes)


def lag(source: np.ndarray, decoded: np.ndarray) -> int:
    """Samples by which the decoded signal comes late, by cross-correlation."""
    spectra = [np.fft.rfft(samples[:CORRELATED].sum(axis=1), 2 * CORRELATED) for samples in (source, decoded)]
    correlation = np.fft.irfft(spectra[0].conj() * spectra[1])
    return int(np.argmax(np.concatenate([correlation[-LONGEST_LAG:], correlation[:LONGEST_LAG]]))) - LONGEST_LAG


# ---- Measuring ----


def channel_spectra(samples: np.ndarray) -> list[np.ndarray]:
    return [windowed_spectra(channel) for channel in samples.T]


def mean_spectrum(channels: list[np.ndarray]) -> np.ndarray:
    """Powers over the whole clip in bands of equal width, both channels together."""
    lines = sum((spectra**2).mean(axis=0) for spectra in channels)
    return lines[:len(lines) // BAND * BAND].reshape(-1, BAND).sum(axis=1)


def frequency(band: int) -> float:
    """The lower edge of a band."""
    return band * BAND * SAMPLE_RATE / FRAME


class Clip:
    def __init__(self, file: Path, model: EarModel) -> None:
        self.file = file
        self.samples = np.fromfile(file, "<i2").reshape(-1, CHANNELS).astype(float)
        if len(self.samples) < SAMPLE_RATE or not self.samples.any():
            raise RuntimeError(f"{file.stem} is silent or shorter than a second")
        spectra = channel_spectra(self.samples)
        self.channels = [Source(model, channel) for channel in spectra]
        self.spectrum = mean_spectrum(spectra)
        tone = FULL_SCALE * np.sin(2 * np.pi * 1000 / SAMPLE_RATE * np.arange(SAMPLE_RATE))
        audible = decibels(self.spectrum / mean_spectrum([windowed_spectra(tone)] * CHANNELS).max()) > AUDIBLE
        self.audible_bands = int(np.flatnonzero(audible).max(initial=0)) + 1

    @property
    def bandwidth(self) -> float:
        return frequency(self.audible_bands)

    def kept_bandwidth(self, decoded: list[np.ndarray]) -> float:
        """Where the first band begins that the coded signal has lost."""
        loss = decibels(self.spectrum / np.maximum(mean_spectrum(decoded), 1e-9))[:self.audible_bands]
        return frequency(int(np.argmax(np.append(loss > LOST, True))))


def mean_nmr(some: list[Nmr]) -> Nmr:
    return Nmr(*np.mean([astuple(one) for one in some], axis=0))


@dataclass
class Result:
    clip: Clip
    encoder: str
    bit_rate: int  # asked for
    coded_rate: float
    nmr: Nmr  # the mean of the channels
    bandwidth: float  # Hz

    def __str__(self) -> str:
        return f"{self.clip.file.stem:24} {self.bit_rate:7}  {self.encoder:20} {self.coded_rate:8.0f} bit/s  " \
               f"NMR {self.nmr.total:6.2f} dB  median {self.nmr.median:6.2f} dB  disturbed {self.nmr.disturbed:.3f}  " \
               f"bandwidth {self.bandwidth:.0f} Hz"


def measure(tavik: Path, clip: Clip, encoder: str, bit_rate: int, coded: Path) -> Result:
    encode(tavik, encoder, clip.file, bit_rate, coded)
    decoded = decode(coded, len(clip.samples))
    if late := lag(clip.samples, decoded):
        raise RuntimeError(f"{clip.file.stem} by {encoder} at {kilobits(bit_rate)} is {late} samples late")
    spectra = channel_spectra(decoded)
    nmr = mean_nmr([source.compare(channel) for source, channel in zip(clip.channels, spectra)])
    return Result(clip, encoder, bit_rate, coded_rate(coded), nmr, clip.kept_bandwidth(spectra))


def measure_all(tavik: Path, files: list[Path]) -> list[Result]:
    model = EarModel(SAMPLE_RATE)
    results = []
    with tempfile.TemporaryDirectory() as directory:
        for clip in (Clip(file, model) for file in files):
            for bit_rate in BIT_RATES:
                for encoder in ENCODERS:
                    result = measure(tavik, clip, encoder, bit_rate, Path(directory) / "coded.m4a")
                    results.append(result)
                    print(result, file=sys.stderr, flush=True)
    return results


# ---- Tables ----


def signed(value: float) -> str:
    return f"{value:+.1f}".replace("-", "−")


def percent(share: float) -> str:
    return f"{100 * share:.0f} %"


class Group:
    """All clips by one encoder at one bit rate, and their means."""

    def __init__(self, results: list[Result], encoder: str, bit_rate: int) -> None:
        self.results = [result for result in results if (result.encoder, result.bit_rate) == (encoder, bit_rate)]
        self.nmr = mean_nmr([result.nmr for result in self.results])
        self.coded_rate = np.mean([result.coded_rate for result in self.results])

    def bandwidth(self) -> str:
        wide = [result.bandwidth for result in self.results if result.clip.bandwidth >= WIDE]
        return f"{np.mean(wide) / 1000:.1f} kHz" if wide else ""


def encoder_table(results: list[Result]) -> str:
    rows: Rows = []
    for bit_rate in BIT_RATES:
        for encoder in ENCODERS:
            group = Group(results, encoder, bit_rate)
            totals = [result.nmr.total for result in group.results]
            rows.append([kilobits(bit_rate), encoder, f"{group.coded_rate / 1000:.1f}",
                         f"**{signed(group.nmr.total)}**", signed(min(totals)), signed(max(totals)),
                         signed(group.nmr.median), percent(group.nmr.disturbed), group.bandwidth()])
    return markdown(["asked for", "encoder", "kbit/s", "NMR, dB", "best clip", "worst clip", "median frame",
                     "disturbed frames", "bandwidth"], rows)


def compared(first: str, figures: list[str]) -> list[str]:
    """The head of a table that has each figure of both encoders."""
    return [first, *(f"{name}: {figure}" for figure in figures for name in (TAVIK, FFMPEG))]


def clip_table(results: list[Result]) -> str:
    pairs = list(zip(*(Group(results, encoder, SHOWN_BIT_RATE).results for encoder in (TAVIK, FFMPEG))))
    rows = [[f"{pair[0].clip.file.stem} ({pair[0].clip.bandwidth / 1000:.1f} kHz)",
             *(signed(result.nmr.total) for result in pair), *(signed(result.nmr.median) for result in pair),
             *(percent(result.nmr.disturbed) for result in pair)] for pair in pairs]
    table = markdown(compared("clip (its bandwidth)", ["NMR, dB", "median frame", "disturbed frames"]), rows)
    ahead = sum(tavik.nmr.total < ffmpeg.nmr.total for tavik, ffmpeg in pairs)
    ahead_in_median = sum(tavik.nmr.median < ffmpeg.nmr.median for tavik, ffmpeg in pairs)
    return f"{table}\n\nTavik has the lower NMR with {ahead} of {len(pairs)} clips, in the median frame with " \
           f"{ahead_in_median}."


def attack_table(results: list[Result]) -> str:
    rows: Rows = []
    for bit_rate in BIT_RATES:
        both = [Group(results, encoder, bit_rate).nmr for encoder in (TAVIK, FFMPEG)]
        rows.append([kilobits(bit_rate), *(signed(nmr.total) for nmr in both), *(signed(nmr.rest) for nmr in both),
                     *(percent(nmr.before_attacks) for nmr in both)])
    figures = ["NMR, dB", "without the worst frames", "worst frames before attacks"]
    return markdown(compared("asked for", figures), rows)


def nmr_chart(results: list[Result]) -> str:
    """Means over the clips, by the mean of the bit rates that came out."""
    lines = {}
    for encoder in (TAVIK, FFMPEG):
        groups = [Group(results, encoder, bit_rate) for bit_rate in BIT_RATES]
        lines[encoder] = [(group.coded_rate, group.nmr.total) for group in groups]
    ours_below = [ours[1] < theirs[1] for ours, theirs in zip(lines[TAVIK], lines[FFMPEG])]
    series = [Series(encoder, line, [signed(nmr) for _, nmr in line], accent=encoder == TAVIK,
                     below=[below == (encoder == TAVIK) for below in ours_below])
              for encoder, line in lines.items()]
    values = [nmr for line in lines.values() for _, nmr in line]
    return line_chart("Noise-to-mask ratio of Tavik and of FFmpeg's encoder",
                      "Noise-to-mask ratio in dB, mean of the clips, over the bit rate that came out; lower is better",
                      series, bit_rate_marks(BIT_RATES), min(values) - 2, max(0, *values), (0, "threshold of masking"))


def conditions(results: list[Result]) -> str:
    clips = {result.clip.file: result.clip for result in results}.values()
    wide = sum(clip.bandwidth >= WIDE for clip in clips)
    version = run("ffmpeg", "-version").decode().split()[2]
    return f"{len(clips)} clips, {wide} of them with a bandwidth of {WIDE // 1000} kHz or more; ffmpeg {version}."


def make_report(results: list[Result]) -> Report:
    return Report({"conditions": conditions(results), "encoders": encoder_table(results),
                   "clips": clip_table(results), "attacks": attack_table(results)}, {"nmr": nmr_chart(results)})


def main() -> None:
    directory, tavik, clips = map(Path, sys.argv[1:4])
    try:
        results = measure_all(tavik, sorted(clips.glob("*.raw")))
        replace_file(directory / "quality.txt", "".join(f"{result}\n" for result in results))
        publish(make_report(results), Path(sys.argv[4]) if len(sys.argv) > 4 else None)
    except OSError as error:
        sys.exit(f"quality.py: {error.filename}: {error.strerror}")
    except RuntimeError as error:
        sys.exit(f"quality.py: {error}")


if __name__ == "__main__":
    main()
