#!/usr/bin/python3
"""Makes the tables of docs/embedded.md from what scripts/embedded-facts measured.

Usage: embedded_report.py RESULTS DOCUMENT
"""

import re
import sys
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from document import FRAME_LENGTH, Report, markdown, publish

MODES = {"mono": "mono", "stereo": "stereo", "two_mono": "two channels"}
GATED = "-gated"  # the end of the names of clips that are there for the dearest call alone


@dataclass
class Run:
    """One configuration with all clips."""

    sample_rate: int
    mode: str
    bit_rate: int  # per channel
    mean: float  # million instructions per second of music
    dearest: float  # the dearest call of any clip, as if all were like it


def read_runs(text: str) -> list[Run]:
    runs = []
    for block in re.split(r"^run ", text, flags=re.MULTILINE)[1:]:
        rate, mode, bit_rate = block.splitlines()[0].split()
        clips = re.findall(r"clip (\S+) .* seconds ([\d.]+)\nICOUNT (\d+) .*dearest part (\d+)", block)
        music = [(float(seconds), int(count)) for name, seconds, count, _ in clips if not name.endswith(GATED)]
        if not music or len(music) == len(clips):
            raise RuntimeError(f"clips are missing: {block}")
        mean = sum(count for _, count in music) / sum(seconds for seconds, _ in music)
        dearest = max(int(part) for *_, part in clips) * int(rate) / FRAME_LENGTH
        runs.append(Run(int(rate), mode, int(bit_rate), mean / 1e6, dearest / 1e6))
    return runs


def instruction_table(runs: list[Run], wanted: Callable[[Run], bool]) -> str:
    """A row for each rate and bit rate, with the modes beside each other."""
    chosen = [run for run in runs if wanted(run)]
    rows = []
    keys = {(run.sample_rate, run.bit_rate) for run in chosen}
    for rate, bit_rate in sorted(keys, key=lambda key: (-key[0], key[1])):
        by_mode = {run.mode: run for run in chosen if (run.sample_rate, run.bit_rate) == (rate, bit_rate)}
        figures = [f"{figure:.2f}" for mode in MODES for figure in (by_mode[mode].mean, by_mode[mode].dearest)]
        rows.append([f"{rate / 1000:g} kHz", f"{bit_rate // 1000} kbit/s", *figures])
    heads = [f"{name}: {figure}" for name in MODES.values() for figure in ("mean", "dearest call")]
    return markdown(["sampling rate", "bit rate per channel", *heads], rows)


def figure_in(text: str, pattern: str) -> int:
    match = re.search(rf"^ *(\d+) +{pattern}", text, re.MULTILINE)
    if match is None:
        raise RuntimeError(f"no line with {pattern}")
    return int(match[1])


def memory_table(footprint: str, stack: str) -> str:
    rows = [["context, one per stream", figure_in(footprint, "context"), "RAM"],
            ["stack below `TAVIK_Encode`, proven bound", figure_in(stack, "TAVIK_Encode"), "RAM"],
            ["stack below `TAVIK_Init`, proven bound", figure_in(stack, "TAVIK_Init"), "RAM"],
            ["code", figure_in(footprint, r"code \("), "ROM"],
            ["constant tables", figure_in(footprint, "constant data"), "ROM"],
            ["writable or zero-initialised data of the library", 0, ""]]
    return markdown(["AArch64", "bytes", ""], [[what, f"{size:,}", where] for what, size, where in rows])


def main() -> None:
    results, document = Path(sys.argv[1]), Path(sys.argv[2])
    runs = read_runs((results / "embedded.txt").read_text())
    default_bit_rate = {run.sample_rate: run.bit_rate for run in reversed(runs)}  # the first that was measured
    tables = {
        "memory": memory_table((results / "footprint.txt").read_text(), (results / "stack.txt").read_text()),
        "rates": instruction_table(runs, lambda run: run.bit_rate == default_bit_rate[run.sample_rate]),
        "bit_rates": instruction_table(runs, lambda run: run.sample_rate >= 44100),
    }
    publish(Report(tables), document)


if __name__ == "__main__":
    main()
