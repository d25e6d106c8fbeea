"""Lines, JSON and the progress bar; standard input and live streams."""
import base64
import itertools
import json
import os
import re
import select
import struct
import subprocess
from pathlib import Path

import numpy
import pytest
from audio_files import decode, ffmpeg, levels, probe, write_noise
from waiting import PATIENCE


def test_result_lines(tavik, sound):
    os.symlink(sound("left.wav"), "left.wav")
    line, = tavik.encode("left.wav").out
    size = os.stat("left.m4a").st_size
    assert re.fullmatch(r"left.wav -> left.m4a: 0:03, stereo 44.1 kHz, \d+ kbit/s, "
                        rf"{size / 1000:.0f} kB, [\d.]+x", line)
    line, *details = tavik.encode(sound("mono.wav", "0.5*sin(2*PI*440*t)"), "-o", "x.aac", "--cbr", "-b", "96k",
                                  "--mode", "two-mono", "--rate", "48000", "-v").out
    assert ": 0:03, two-mono 48 kHz, 96 kbit/s, " in line
    assert details[:2] == ["  source: 1 channel at 44100 Hz",
                           "  coding: ADTS, constant rate, 96000 bit/s (48000 per channel)"]
    assert re.fullmatch(rf"  result: 3.000 s, 144000 samples, \d+ frames, {os.stat('x.aac').st_size} bytes, "
                        r"9(5[5-9]|6[0-4])\d\d bit/s", details[2])
    for rate, bit_rate in ((8000, 12), (11025, 16), (12000, 17), (16000, 23), (22050, 32), (24000, 35), (32000, 46)):
        assert f" {bit_rate * 2}000 bit/s" in tavik.encode("left.wav", "-f", "-v", "--rate", rate).out[2]
    assert re.fullmatch(rb"tavik [\d.]+ \(library [\d.]+\)\n", tavik.encode("--version").data)


@pytest.mark.parametrize("arguments,status,out,err", [
    ("x.wav bad.wav", 1, 2, 1), ("x.wav bad.wav -q", 1, 0, 1),
    ("x.wav -o -", 0, 0, 1), ("x.wav -o /dev/stdout -q", 0, 0, 0),
])
def test_where_reports_go(tavik, sound, arguments, status, out, err):
    os.symlink(sound(), "x.wav")
    Path("bad.wav").write_bytes(b"bad")
    run = tavik.run(*arguments.split(), within=None if "bad.wav" in arguments else '"$@" >x.m4a')
    assert (run.status, len(run.out), len(run.err)) == (status, out, err)
    assert len(decode("x.m4a")[1]) >= 132300


def test_json(tavik, sound):
    write_noise("a.wav", 441000)
    os.symlink(sound(), "b.wav")
    Path("b.m4a").write_bytes(b"old")
    Path('c"\n\\.wav').write_bytes(sound().read_bytes()[:100000])
    run = tavik.run("a.wav", "b.wav", 'c"\n\\.wav', "missing.wav", "--json", "--skip-existing", "--verify", "--rate",
                    "48000", "--cbr")
    assert (run.status, len(run.err)) == (1, 2)
    events = [json.loads(line) for line in run.out]
    files = {event.get("input"): event for event in events if event["event"] != "progress"}
    a, b, c, missing, summary = (files[name] for name in ("a.wav", "b.wav", 'c"\n\\.wav', "missing.wav", None))
    stream = dict(line.split("=") for line in probe("a.m4a", "stream=nb_frames,bit_rate"))
    expected = {"event": "encoded", "output": "a.m4a", "bytes": os.stat("a.m4a").st_size, "sample_rate": 48000,
                "channels": 2, "frames": int(stream["nb_frames"]), "mode": "stereo", "constant_rate": True,
                "verified": True, "warnings": [], "bit_rate": 128000, "bit_rate_per_channel": 64000,
                "samples": 480000, "duration": 10}
    assert a == a | expected
    assert abs(a["mean_bit_rate"] - int(stream["bit_rate"])) < 1000
    assert a["elapsed"] > 0 and a["speed"] == pytest.approx(10 / a["elapsed"], rel=0.1)
    assert b["event"] == "skipped" and "exists" in b["reason"]
    assert "truncated" in c["warnings"][0]
    assert (missing["event"], missing["exit_code"]) == ("failed", 3) and "No such file" in missing["error"]
    assert events[-1] == summary | {"event": "summary", "files": 4, "encoded": 2, "skipped": 1, "failed": 1}

    man_page = (Path(__file__).parents[2] / "programs" / "tavik" / "tavik.1").read_text()
    for event in events:
        assert [key for key in event if not re.search(rf"\b{key}\b", man_page)] == []
        if event["event"] == "progress":
            assert event["fraction"] == pytest.approx(event["seconds"] / event["duration"], abs=0.01)


def test_names_that_are_no_utf8_in_json(tavik, sound):
    os.symlink(sound(), b"caf\xe9.wav")
    event = json.loads(tavik.encode(b"caf\xe9.wav", "-o", "café.m4a", "--json", "--no-progress").out[0])
    assert (event["input"], event["output"]) == ("caf�.wav", "café.m4a")
    assert base64.b64decode(event["input_base64"]) == b"caf\xe9.wav" and "output_base64" not in event


@pytest.mark.parametrize("closed,status", [("<&-", 0), ("2>&-", 0), (">&-", 4), ("<&- >&- 2>&-", 4)])
def test_standard_streams_that_are_closed_at_the_start(tavik, sound, closed, status):
    assert tavik.run(sound(), "-o", "x.m4a", "--verify", within=f'"$@" {closed}').status == status
    assert probe("x.m4a", "stream=duration_ts") == ["duration_ts=132300"]


@pytest.mark.parametrize("arguments,bars,lines", [("", 1, 1), ("--no-progress", 0, 1), ("-q", 0, 0)])
def test_progress_bar_on_a_terminal(tavik, arguments, bars, lines):
    write_noise("noise.wav", 441000)
    os.mkfifo("in.wav")
    # The pause in the middle is twice the interval between updates of the bar.
    slowly = "{ head -c 900000; sleep 0.2; cat; } <noise.wav >in.wav"
    run = tavik.encode("in.wav", "-o", "x.m4a", arguments, within=f'{slowly} & script -qec "$*" /dev/null')
    shown = run.data.decode()
    assert bool(re.search(r"\d ?%.*ETA", shown)) == bars
    rest = re.sub(r"[^\r\n]*\r\x1b\[K", "", shown)  # every bar is cleared, also before the line
    assert re.fullmatch(r"(in.wav -> x.m4a: .*\r\n)" + f"{{{lines}}}", rest)


@pytest.mark.parametrize("source", ["noise.wav", "- --pcm s16le"])
def test_progress_on_a_narrow_terminal(tavik, source):
    write_noise("noise.wav", 441000)
    run = tavik.encode(*source.split(), "-o", "x.m4a",
                       within='script -qec "stty cols 12; cat noise.wav | $*" /dev/null')
    bars = re.findall(r"\x1b\[K([^\r\n]+)(?=\r\x1b)", run.data.decode())
    assert bars and all(len(bar) < 12 for bar in bars)


# ---- Standard input ------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("sample_format", "u8 s16le s16be s24le s24be s32le s32be f32le f32be".split())
def test_headerless_pcm(tavik, sound, sample_format):
    source = sound("two.wav", "0.5*sin(2*PI*440*t)|0.25*sin(2*PI*440*t)", 32000, 50100)
    Path("x.pcm").write_bytes(ffmpeg("-i", source, "-f", sample_format, "-"))
    tavik.encode("x.pcm", "--pcm", f"{sample_format}:32000:2")
    tavik.encode("-", "--pcm", f"{sample_format}:32000", "-o", "y.m4a", data=Path("x.pcm").read_bytes())
    rate, samples = decode("x.m4a")
    assert (rate, len(samples) // 1024, levels(samples)) == (32000, 49, [-9, -15])
    assert Path("x.m4a").read_bytes() == Path("y.m4a").read_bytes()


@pytest.mark.parametrize("kind", ["wav", "flac", "ogg", "mp3"])
def test_standard_input_of_unknown_length(tavik, sound, kind):
    run = tavik.encode("-", "-o", "x.m4a", within=f'ffmpeg -v quiet -i {sound()} -f {kind} - | "$@"')
    assert run.out[0].startswith("standard input -> x.m4a: ")
    rate, samples = decode("x.m4a")
    assert rate == 44100 and 132300 <= len(samples) <= 132300 + 2304 and -10 <= levels(samples)[0] <= -9


def chunk(name, data, size=None):
    return name + struct.pack("<I", len(data) if size is None else size) + data + b"\0" * (len(data) % 2)


def format_chunk(tag=1, channels=2, bits=16, extension=b""):
    frame = channels * bits // 8
    return chunk(b"fmt ", struct.pack("<HHIIHH", tag, channels, 44100, 44100 * frame, frame, bits) + extension)


# A channel mask for four channels, two of them at the sides. Without it, they would be mixed differently.
EXTENSION = struct.pack("<HHIH", 22, 16, 0x603, 1) + bytes.fromhex("000000001000800000aa00389b71")
SAMPLES = numpy.random.default_rng(1).integers(-9999, 9999, 40000, "<i2").tobytes()
FORMAT, DATA, ENDLESS = format_chunk(), chunk(b"data", SAMPLES), chunk(b"data", SAMPLES, 0xFFFFFFFF)


@pytest.mark.parametrize("samples,chunks", [
    (20000, FORMAT + DATA + chunk(b"LIST", b"INFO" + SAMPLES[:2001])),
    (20000, chunk(b"JUNK", bytes(4093)) + FORMAT + DATA),
    (20000, FORMAT + chunk(b"id3 ", b"x" * 70000) + DATA),
    (10000, format_chunk(0xFFFE, 4, 16, EXTENSION) + DATA),
    (40000, format_chunk(6, 2, 8) + DATA),
    (20000, chunk(b"ds64", bytes(28)) + FORMAT + DATA),
    *[(20000, FORMAT + chunk(b"data", SAMPLES, size)) for size in (0, 0x7FFFFFDB, 0x80000000, 0xFFFFFFFF)],
], ids=itertools.count())
def test_wav_headers_mean_the_same_in_files_and_pipes(tavik, samples, chunks):
    data = b"RIFF\xff\xff\xff\x7fWAVE" + chunks
    Path("x.wav").write_bytes(data)
    tavik.encode("x.wav", "--strict")
    tavik.encode("-", "-o", "piped.m4a", "--strict", data=data)
    assert Path("piped.m4a").read_bytes() == Path("x.m4a").read_bytes()
    assert probe("x.m4a", "stream=duration_ts") == [f"duration_ts={samples}"]


def test_other_wav_headers_on_a_pipe(tavik):
    """A 64-bit file, and broken headers."""
    size = len(SAMPLES)
    data = b"RF64\xff\xff\xff\xffWAVE" + chunk(b"ds64", struct.pack("<QQQI", size, size, 0, 0)) + FORMAT + ENDLESS
    tavik.encode("-", "-o", "x.m4a", "--strict", data=data + b"LIST")
    assert probe("x.m4a", "stream=duration_ts") == ["duration_ts=20000"]
    for chunks in (chunk(b"fmt ", b"", 0xFFFFFFFF), FORMAT, FORMAT + b"da", DATA):
        tavik.refuse(3, "standard input: ", "-", "-o", "new.m4a", data=b"RIFF\xff\xff\xff\xffWAVE" + chunks)


def test_standard_input_begins_at_its_current_position(tavik, sound):
    data = sound().read_bytes()
    Path("x.wav").write_bytes(data[:1000] + data)  # a longer file, by the header at its start
    tavik.encode("-", "-o", "x.m4a", "--strict",
                 within='{ dd bs=1000 count=1 of=/dev/null status=none; "$@"; } <x.wav')
    assert probe("x.m4a", "stream=duration_ts") == ["duration_ts=132300"]


def test_non_blocking_standard_input(tavik, sound):
    unblock = "import os, sys; os.set_blocking(0, False); os.execv(sys.argv[1], sys.argv[1:])"
    pause = f"{{ head -c 100000; sleep 0.2; cat; }} <{sound()}"
    tavik.encode("-", "-o", "x.m4a", "--strict", within=f'{pause} | python3 -c "{unblock}" "$@"')
    assert probe("x.m4a", "stream=duration_ts") == ["duration_ts=132300"]


def test_memory_does_not_grow_with_the_input(tavik, sound):
    """The input has 96 Mbyte."""
    data = sound("tone.wav", "0.5*sin(2*PI*440*t)", 8000, 8000 * 600).read_bytes()
    process = tavik.start("-", "-o", "x.m4a", "--pcm", "s16le:8000:1", stdin=subprocess.PIPE)
    for _ in range(10):
        process.stdin.write(data)
    peak = int(re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{process.pid}/status").read_text())[1])
    assert process.communicate(timeout=PATIENCE)[1] == b""
    assert process.returncode == 0 and peak < 60000


@pytest.mark.parametrize("kind", ["wav", "pcm"])
def test_live_stream(tavik, kind):
    """Input that pauses after each frame: every frame that can be coded is written at once.

    With a WAV header, the first 128 Kbyte are read before anything is decoded."""
    write_noise("noise.wav", 61440)
    data = Path("noise.wav").read_bytes()
    options, first = (["--pcm", "s16le"], 1) if kind == "pcm" else ([], 33)
    process = tavik.start("-", "-o", "-", "--adts", "--cbr", *options, stdin=subprocess.PIPE, bufsize=0)
    process.stdin.write(data[44 if kind == "pcm" else 0:44 + (first - 1) * 4096])
    received = b""
    for given in range(first, 61):
        process.stdin.write(data[44 + (given - 1) * 4096:44 + given * 4096])
        while len(received) < (given - 2) * 370:  # 370 bytes per frame; the encoder holds two frames
            assert select.select([process.stdout], [], [], PATIENCE)[0], f"{len(received)} bytes after {given} frames"
            piece = os.read(process.stdout.fileno(), 65536)
            assert piece, "unexpected end of the output"
            received += piece
        assert len(received) % 370 == 0
    process.communicate(timeout=PATIENCE)
