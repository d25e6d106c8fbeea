#!/usr/bin/python3
"""Makes the tables and charts of docs/performance.md from what scripts/benchmark measured.

Usage: report.py RESULTS [DOCUMENT]

RESULTS is the directory with the measurements. With DOCUMENT its generated tables are replaced, each between the lines
"<!-- begin: NAME -->" and "<!-- end: NAME -->", and the charts in the directory charts beside it; otherwise the tables
are printed.
"""

import hashlib
import re
import sys
from collections import Counter
from dataclasses import dataclass
from fnmatch import fnmatch
from pathlib import Path

from charts import Bar, Series, bar_chart, bit_rate_marks, line_chart
from document import FRAME_LENGTH, SAMPLE_RATE, SHOWN_BIT_RATE, Report, Rows, kilobits, markdown, publish
from hot_loops import cycles_per_iteration, hottest_loops
from icount_profile import TOOLS, Profile, output_of, short_name, source_files, source_line

HOT_LOOPS = 12
CPUS = {"Cortex-A55": "cortex-a55", "Neoverse N1": "neoverse-n1"}
POWERS = "3/4 powers"
SIZE_LIMIT = 64 * 1024  # bytes of code and all tables but those of the 3/4 powers
POWERS_LIMIT = 128 * 1024
LISTED_TABLE = 500  # bytes from which on a table that TABLES does not know has a line of its own

# By the source file of a function, below src/; the first pattern that fits counts.
STAGES = {
    "staging and peaks": ["interface/stream*", "interface/staging*", "filterbank/*switching*", "filterbank/*attack*",
                          "*peaks*"],
    "windows, MDCT, FFT": ["filterbank/*"],
    "mid/side": ["tools/ms*", "tools/mid*", "tools/*stereo*"],
    "TNS": ["tools/*"],
    "scale factors": ["quant/scale_factor*", "quant/*pow*34*"],
    "rate loop": ["quant/*"],
    "bitstream": ["bitstream/*"],
}
REST = "rest"

# The peers' names in what tavik_speed prints.
ENCODER = "ffmpeg-encoder"
DECODERS = {"ffmpeg-decoder": "FFmpeg", "faad-decoder": "faad"}
VARIANTS = {"x86-64": "4, SSE2", "x86-64-v2": "4, SSE4.1", "x86-64-v3": "8, AVX2"}

# What the tables buy: name, pattern of the symbols, text. The first pattern that fits counts.
TABLES = [
    (POWERS, "_pow34$|pow34_q11$", "3/4 power of most magnitudes by one look-up, of the others by one and a scaling"),
    ("Huffman codebooks", "_huff", "the standard's, a word each for length and code: one look-up each"),
    ("joined lengths", "_lengths$", "lengths in two codebooks by one look-up"),
    ("TNS coefficients", "_asinf_index_|tns_index", "index of a coefficient by one look-up, no arc sine"),
    ("FFT twiddle factors", "fft_twiddles", "sines and cosines of the FFT, in the order in which lanes load them"),
    ("MDCT twiddle factors", "_W2$|_W4$|_twiddles$", "sines and cosines before and after the FFT of an MDCT"),
    ("windows", "_SLW$|_SSW$|_window$", "rising halves of the sine windows"),
    ("bands", "SwbOffset", "the standard's scale-factor bands"),
    ("gains", "_ipow20$|_gains$", "the quantizer's gain by one look-up"),
]

# ---- Instructions ----


def count_by_bit_rate(counts: str) -> dict[int, tuple[int, float]]:
    """Instructions and seconds of audio of all clips together."""
    totals: dict[int, tuple[int, float]] = {}
    for bit_rate, seconds, count in re.findall(r"bit_rate (\d+) seconds ([\d.]+)\nICOUNT (\d+)", counts):
        before = totals.get(int(bit_rate), (0, 0.0))
        totals[int(bit_rate)] = (before[0] + int(count), before[1] + float(seconds))
    return totals


def clip_range(counts: str, wanted: int) -> tuple[float, float]:
    """The cheapest and the dearest clip at a bit rate, in instructions per second of audio."""
    found = re.findall(r"bit_rate (\d+) seconds ([\d.]+)\nICOUNT (\d+)", counts)
    rates = [int(count) / float(seconds) for bit_rate, seconds, count in found if int(bit_rate) == wanted]
    return min(rates), max(rates)


def instruction_rates(counts: str) -> dict[int, float]:
    """Instructions per second of audio."""
    return {bit_rate: count / seconds for bit_rate, (count, seconds) in count_by_bit_rate(counts).items()}


def instruction_table(counts: str) -> str:
    rates = instruction_rates(counts)
    rows = []
    for bit_rate, rate in rates.items():
        low, high = clip_range(counts, bit_rate)
        frame = rate * FRAME_LENGTH / SAMPLE_RATE / 2
        rows.append([kilobits(bit_rate), f"{rate / 1e6:.2f} M", f"{frame:,.0f}", f"{low / 1e6:.2f} M",
                     f"{high / 1e6:.2f} M"])
    table = markdown(["bit rate", "instructions per second of audio", "per channel and frame", "cheapest clip",
                      "dearest clip"], rows)
    return f"{table}\n\nThe dearest bit rate takes {max(rates.values()) / min(rates.values()):.2f} times the " \
           "instructions of the cheapest."


def instruction_chart(counts: str) -> str:
    rates = instruction_rates(counts)
    ranges = [clip_range(counts, bit_rate) for bit_rate in rates]
    mean = Series("mean", list(rates.items()), [f"{rate / 1e6:.2f}" for rate in rates.values()], accent=True,
                  ranges=ranges)
    return line_chart("AArch64 instructions by bit rate",
                      "Million instructions per second of stereo audio; thin lines: cheapest to dearest clip", [mean],
                      bit_rate_marks(list(rates)), 0, max(high for _, high in ranges))


def stage_of(source_file: str) -> str:
    for stage, patterns in STAGES.items():
        if any(fnmatch(source_file, pattern) for pattern in patterns):
            return stage
    return REST


def count_by_stage(profile: Profile, library_with_lines: Path) -> dict[str, int]:
    files = source_files(library_with_lines, [function.address for function in profile.functions])
    counts = {stage: 0 for stage in [*STAGES, REST]}
    for function in profile.functions:
        counts[stage_of(files[function.address])] += profile.executed_in(function)
    counts[REST] += profile.outside
    return counts


def stage_table(counts: dict[str, int], seconds: float) -> str:
    total = sum(counts.values())
    frames = seconds * SAMPLE_RATE / FRAME_LENGTH * 2
    rows = [[stage, f"{count / seconds / 1e6:.3f} M", f"{count / frames:,.0f}", f"{100 * count / total:.1f} %"]
            for stage, count in [*counts.items(), ("all", total)]]
    return markdown(["stage", "instructions per second of audio", "per channel and frame", "share"], rows)


def stage_chart(counts: dict[str, int], seconds: float) -> str:
    total = sum(counts.values())
    bars = [Bar(stage, count, f"{count / seconds / 1e6:.2f} · {100 * count / total:.0f} %")
            for stage, count in counts.items()]
    return bar_chart("AArch64 instructions by stage",
                     f"Million instructions per second of stereo audio at {kilobits(SHOWN_BIT_RATE)}", bars)


def loop_table(profile: Profile, library_with_lines: Path, seconds: float) -> str:
    frames = seconds * SAMPLE_RATE / FRAME_LENGTH
    rows: Rows = []
    cycles_per_frame = Counter({name: 0.0 for name in CPUS})
    executed = 0
    for loop in hottest_loops(profile, HOT_LOOPS):
        cycles = {name: cycles_per_iteration(loop, cpu) for name, cpu in CPUS.items()}
        per_frame = loop.iterations / frames
        executed += loop.executed
        for name in CPUS:
            cycles_per_frame[name] += cycles[name] * per_frame
        place = source_line(library_with_lines, loop.body[-1].address)
        rows.append([f"`{short_name(loop.function.name)}`, {place}", f"{100 * loop.executed / profile.total():.1f} %",
                     f"{loop.executed / loop.iterations:.1f}", f"{per_frame:,.0f}",
                     *(f"{cycles[name]:.1f}" for name in CPUS),
                     *(f"{cycles[name] * per_frame:,.0f}" for name in CPUS)])
    rows.append(["these loops", f"{100 * executed / profile.total():.1f} %", *[""] * (2 + len(CPUS)),
                 *(f"{cycles_per_frame[name]:,.0f}" for name in CPUS)])
    return markdown(["innermost loop in", "share of instructions", "instructions per iteration",
                     "iterations per frame", *(f"{name}: cycles per iteration" for name in CPUS),
                     *(f"{name}: cycles per frame" for name in CPUS)], rows)


# ---- Time ----


@dataclass
class PeerSpeed:
    speed: float  # x real time
    ratio: float  # of its time to Tavik's
    low: float  # of single repetitions
    high: float


@dataclass
class Speed:
    """All clips together at a bit rate."""

    bit_rate: int
    tavik: float
    peers: dict[str, PeerSpeed]


def read_speeds(text: str) -> list[Speed]:
    speeds = []
    for line in text.splitlines():
        if match := re.match(r" *(\d+)  all +tavik ([\d.]+) x", line):
            found = re.findall(r"  (\S+) ([\d.]+) x \d+ bytes ratio ([\d.]+) ([\d.]+) \.\.\. ([\d.]+)", line)
            peers = {name: PeerSpeed(*map(float, figures)) for name, *figures in found}
            speeds.append(Speed(int(match[1]), float(match[2]), peers))
    return speeds


def speed_table(speeds: list[Speed], cpu: str) -> str:
    rows: Rows = []
    for speed in speeds:
        peer = speed.peers[ENCODER]
        rows.append([kilobits(speed.bit_rate), f"{speed.tavik:.0f}", f"{peer.speed:.0f}", f"**{peer.ratio:.2f}**",
                     f"{peer.low:.2f} to {peer.high:.2f}"])
    table = markdown(["bit rate", "Tavik, x real time", "FFmpeg's encoder, x real time", "ratio",
                      "in single repetitions"], rows)
    return f"{table}\n\nOn one core of: {cpu}."


def variant_table(results: Path) -> str:
    """Each variant of the library that was measured, with FFmpeg's encoder in turns."""
    rows: Rows = []
    for level, lanes in VARIANTS.items():
        if (measured := results / f"variant-{level}.txt").exists():
            speed = read_speeds(measured.read_text())[0]
            peer = speed.peers[ENCODER]
            rows.append([level, lanes, f"{speed.tavik:.0f}", f"**{peer.ratio:.2f}**",
                         f"{peer.low:.2f} to {peer.high:.2f}"])
    return markdown(["variant", "SIMD lanes", "Tavik, x real time", "ratio to FFmpeg's encoder",
                     "in single repetitions"], rows)


def speed_chart(speeds: list[Speed]) -> str:
    ours = [(speed.bit_rate, speed.tavik) for speed in speeds]
    theirs = [(speed.bit_rate, speed.peers[ENCODER].speed) for speed in speeds]
    series = [Series(name, points, [f"{y:.0f}" for _, y in points], accent=name == "Tavik")
              for name, points in {"Tavik": ours, "FFmpeg": theirs}.items()]
    marks = bit_rate_marks([speed.bit_rate for speed in speeds],
                           [f"{speed.peers[ENCODER].ratio:.1f} x" for speed in speeds])
    return line_chart("Speed of Tavik and of FFmpeg's encoder",
                      "Encoding speed, x real time, on one core; below: how many times faster Tavik is", series, marks,
                      0, max(y for _, y in ours))


def decoding_table(speeds: list[Speed]) -> str:
    """Beside decoders what counts is how long encoding takes in units of their time."""
    rows: Rows = []
    for speed in speeds:
        peers = [speed.peers[name] for name in DECODERS]
        rows.append([kilobits(speed.bit_rate), f"{speed.tavik:.0f}", *(f"{peer.speed:.0f}" for peer in peers),
                     *(f"**{peer.speed / speed.tavik:.2f}** ({1 / peer.high:.2f} to {1 / peer.low:.2f})"
                       for peer in peers)])
    table = markdown(["bit rate", "Tavik encodes, x real time",
                      *(f"{name} decodes, x real time" for name in DECODERS.values()),
                      *(f"encoding takes, times {name}'s decoding" for name in DECODERS.values())], rows)
    times = [f"{speed.peers[name].speed / speed.tavik:.2f} times as long as {decoder}'s decoding"
             for speed in speeds if speed.bit_rate == SHOWN_BIT_RATE for name, decoder in DECODERS.items()]
    return f"{table}\n\nAt {kilobits(SHOWN_BIT_RATE)} encoding takes {' and '.join(times)}."


# ---- Size ----


def section_sizes(library: Path) -> dict[str, int]:
    found = re.findall(r"^(\.\S+) +(\d+)", output_of(TOOLS + "size", "-A", "-d", str(library)), re.MULTILINE)
    return {name: int(size) for name, size in found}


def table_sizes(library: Path) -> list[tuple[str, int]]:
    """Constant tables with all their bytes, largest first. Of two names of one table the exported one stands."""
    symbols: dict[str, tuple[str, int]] = {}  # by address
    for line in output_of(TOOLS + "nm", "-C", "-S", "--radix=d", str(library)).splitlines():
        match = re.match(r"(\d+) (\d+) ([rRdDVu]) (.+)", line)
        if match and (match[3] == "R" or match[1] not in symbols):
            symbols[match[1]] = (match[4], int(match[2]))
    return sorted(symbols.values(), key=lambda symbol: symbol[1], reverse=True)


def against(size: int, aim: int) -> str:
    return f"aim {aim:,}: " + (f"{aim - size:,} bytes left" if size <= aim else f"{size - aim:,} too many")


def footprint_table(library: Path) -> str:
    sections = section_sizes(library)
    code = sections[".text"]
    constants = sections[".rodata"] + sections.get(".data.rel.ro", 0)
    groups: Counter[str] = Counter()
    numbers: Counter[str] = Counter()
    for symbol, size in table_sizes(library):
        name = next((name for name, pattern, _ in TABLES if re.search(pattern, symbol)), f"`{short_name(symbol)}`")
        if size >= LISTED_TABLE or not name.startswith("`"):
            groups[name] += size
            numbers[name] += 1
    texts = {name: text for name, _, text in TABLES}
    total = code + constants
    rows = [["code", f"{code:,}", "", ""],
            *([name, f"{size:,}", str(numbers[name]), texts.get(name, "")] for name, size in groups.most_common()),
            ["other constants, alignment", f"{constants - groups.total():,}", "", ""],
            ["code and all tables", f"**{total:,}**", "", against(total, SIZE_LIMIT + POWERS_LIMIT)],
            [f"without the {POWERS}", f"**{total - groups[POWERS]:,}**", "",
             against(total - groups[POWERS], SIZE_LIMIT)]]
    return markdown(["AArch64", "bytes", "tables", "what it buys"], rows)


# ---- Document ----


def make_report(results: Path) -> Report:
    counts = (results / "counts.txt").read_text()
    seconds = count_by_bit_rate(counts)[SHOWN_BIT_RATE][1]
    library = results / "libtavik.so"
    library_with_lines = results / "libtavik-lines.so"
    profile = Profile(library, results / "blocks.txt")
    stages = count_by_stage(profile, library_with_lines)
    speeds = read_speeds((results / "speed.txt").read_text())
    digest = hashlib.sha256((results / "clips.txt").read_bytes()).hexdigest()[:16]
    clips = len((results / "clips.txt").read_text().splitlines())
    return Report({
        "clips": f"{clips} clips, {seconds:.1f} seconds of audio; digest of their samples: `{digest}`.",
        "instructions": instruction_table(counts),
        "stages": stage_table(stages, seconds),
        "speed": speed_table(speeds, (results / "cpu.txt").read_text().strip()),
        "variants": variant_table(results),
        "decoding": decoding_table(speeds),
        "loops": loop_table(profile, library_with_lines, seconds),
        "footprint": footprint_table(library),
    }, {
        "stages": stage_chart(stages, seconds),
        "instructions": instruction_chart(counts),
        "speed": speed_chart(speeds),
    })


def main() -> None:
    publish(make_report(Path(sys.argv[1])), Path(sys.argv[2]) if len(sys.argv) > 2 else None)


if __name__ == "__main__":
    main()
