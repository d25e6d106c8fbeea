#!/usr/bin/python3
"""Makes the tables of docs/performance.md from what scripts/benchmark measured.

Usage: report.py RESULTS [DOCUMENT]

RESULTS is the directory with the measurements. With DOCUMENT its generated tables are replaced, each between the lines
"<!-- begin: NAME -->" and "<!-- end: NAME -->"; otherwise they are printed.
"""

import hashlib
import re
import sys
from collections import Counter
from fnmatch import fnmatch
from pathlib import Path

from hot_loops import cycles_per_iteration, hottest_loops
from icount_profile import TOOLS, Profile, output_of, short_name, source_files, source_line

FRAME_LENGTH = 1024
PROFILED_BIT_RATE = 128000
SAMPLE_RATE = 44100
HOT_LOOPS = 12
CPUS = {"Cortex-A55": "cortex-a55", "Neoverse N1": "neoverse-n1"}
POWERS = "3/4 powers"
SIZE_LIMIT = 60 * 1024  # bytes of code and all tables but those of the 3/4 powers
POWERS_LIMIT = 128 * 1024
LISTED_TABLE = 500  # bytes from which on a table that TABLES does not know has a line of its own

# By the source file of a function, below src/; the first pattern that fits counts.
STAGES = {
    "staging and peaks": ["interface/stream_control*", "interface/staging*", "filterbank/block_switching*",
                          "*peaks*"],
    "windows, MDCT, FFT": ["filterbank/*"],
    "mid/side": ["tools/ms*", "tools/mid*"],
    "TNS": ["tools/*"],
    "scale factors": ["quant/scale_factors*", "quant/pow*34*"],
    "rate loop": ["quant/*"],
    "bitstream": ["bitstream/*"],
}
REST = "rest"

# What the tables buy: name, pattern of the symbols, text. The first pattern that fits counts.
TABLES = [
    (POWERS, "_pow34$|pow34_q11$", "3/4 power of most magnitudes by one look-up, of the others by one and a scaling"),
    ("Huffman codebooks", "_huff", "the standard's, a word each for length and code: one look-up each"),
    ("joined lengths", "_lengths$", "lengths in two codebooks by one look-up"),
    ("TNS coefficients", "_asinf_index_|tns_index", "index of a coefficient by one look-up, no arc sine"),
    ("FFT rotations", "fft_rotations", "sines and cosines of the FFT"),
    ("MDCT rotations", "_W2$|_W4$|_rotations$", "sines and cosines before and behind the FFT of an MDCT"),
    ("windows", "_SLW$|_SSW$|_window$", "rising halves of the sine windows"),
    ("bands", "SwbOffset", "the standard's scale-factor bands"),
    ("gains", "_ipow20$|_gains$", "the quantizer's gain by one look-up"),
]

Rows = list[list[str]]


def markdown(header: list[str], rows: Rows) -> str:
    """A table; columns of numbers are aligned to the right."""
    numeric = [all(re.match(r"[\d*]|$", row[i]) for row in rows) for i in range(len(header))]
    rule = ["---:" if right else "---" for right in numeric]
    return "\n".join("| " + " | ".join(row) + " |" for row in [header, rule, *rows])


def kilobits(bit_rate: int) -> str:
    return f"{bit_rate // 1000} kbit/s"


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


def instruction_table(counts: str) -> str:
    rates = {bit_rate: count / seconds for bit_rate, (count, seconds) in count_by_bit_rate(counts).items()}
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


def stage_of(source_file: str) -> str:
    for stage, patterns in STAGES.items():
        if any(fnmatch(source_file, pattern) for pattern in patterns):
            return stage
    return REST


def stage_table(profile: Profile, library_with_lines: Path, seconds: float) -> str:
    files = source_files(library_with_lines, [function.address for function in profile.functions])
    counts = Counter({stage: 0 for stage in [*STAGES, REST]})
    for function in profile.functions:
        counts[stage_of(files[function.address])] += profile.executed_in(function)
    counts[REST] += profile.outside
    frames = seconds * SAMPLE_RATE / FRAME_LENGTH * 2
    lines = [(stage, counts[stage]) for stage in [*STAGES, REST]] + [("all", profile.total())]
    rows = [[stage, f"{count / seconds / 1e6:.3f} M", f"{count / frames:,.0f}",
             f"{100 * count / profile.total():.1f} %"] for stage, count in lines]
    return markdown(["stage", "instructions per second of audio", "per channel and frame", "share"], rows)


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


def speed_table(speed: str, cpu: str) -> str:
    rows: Rows = []
    for line in speed.splitlines():
        match = re.match(r" *(\d+)  all +([\d.]+) x .*peer +([\d.]+) x .*ratio +([\d.]+) +([\d.]+) ... ([\d.]+)", line)
        if match:
            rate, tavik, peer, ratio, low, high = match.groups()
            rows.append([kilobits(int(rate)), f"{float(tavik):.0f}", f"{float(peer):.0f}", f"**{ratio}**",
                         f"{low} to {high}"])
    table = markdown(["bit rate", "Tavik, x real time", "FFmpeg's encoder, x real time", "ratio",
                      "in single repetitions"], rows)
    return f"{table}\n\nOn one core of: {cpu}."


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


def make_tables(results: Path) -> dict[str, str]:
    counts = (results / "counts.txt").read_text()
    seconds = count_by_bit_rate(counts)[PROFILED_BIT_RATE][1]
    library = results / "libtavik.so"
    profile = Profile(library, results / "blocks.txt")
    digest = hashlib.sha256((results / "clips.txt").read_bytes()).hexdigest()[:16]
    clips = len((results / "clips.txt").read_text().splitlines())
    return {
        "clips": f"{clips} clips, {seconds:.1f} seconds of audio; digest of their samples: `{digest}`.",
        "instructions": instruction_table(counts),
        "stages": stage_table(profile, results / "libtavik-lines.so", seconds),
        "speed": speed_table((results / "speed.txt").read_text(), (results / "cpu.txt").read_text().strip()),
        "loops": loop_table(profile, results / "libtavik-lines.so", seconds),
        "footprint": footprint_table(library),
    }


def replace_tables(document: str, tables: dict[str, str]) -> str:
    for name, table in tables.items():
        begin, end = f"<!-- begin: {name} -->\n", f"\n<!-- end: {name} -->"
        if document.count(begin) != 1 or document.count(end) != 1:
            raise RuntimeError(f"the document has no place for the table {name}")
        head, _, tail = document.partition(begin)
        document = head + begin + table + end + tail.partition(end)[2]
    return document


def main() -> None:
    tables = make_tables(Path(sys.argv[1]))
    if len(sys.argv) > 2:
        document = Path(sys.argv[2])
        document.write_text(replace_tables(document.read_text(), tables))
    else:
        print("\n\n".join(f"## {name}\n\n{table}" for name, table in tables.items()))


if __name__ == "__main__":
    main()
