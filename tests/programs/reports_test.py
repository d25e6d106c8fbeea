"""Lines, JSON and the progress bar; live streams."""
import itertools
import json
import os
import pty
import re
import select
import struct
import subprocess
import time
from pathlib import Path

import numpy
import pytest
from audio_files import decode, ffmpeg, levels, probe
from conftest import NOISE, feed
from waiting import PATIENCE

FORMATS = ["u8", "s16le", "s16be", "s24le", "s24be", "s32le", "s32be", "f32le", "f32be"]


def test_result_lines(tavik, sound):
    os.symlink(sound("left.wav"), "left.wav")
    line, = tavik.encode("left.wav").out
    size = os.stat("left.m4a").st_size
    assert re.fullmatch(rf"left.wav -> left.m4a: 44100 Hz, stereo, 128000 bit/s \(64000 per channel\), variable rate, "
                        rf"M4A, 3.000 s, {size} bytes, mean \d+ bit/s, [\d.]+x real time", line)
    line, = tavik.encode(sound("mono.wav", "0.5*sin(2*PI*440*t)"), "-o", "x.aac", "--cbr", "-b", "96k", "--mode",
                         "two-mono", "--rate", "48000").out
    assert re.search(r": 48000 Hz \(from 44100 Hz\), two mono channels \(from 1 channel\), 96000 bit/s "
                     r"\(48000 per channel\), constant rate, ADTS, .* mean 9(5[5-9]|6[0-4])\d\d bit/s", line)


@pytest.mark.parametrize("rate,bit_rate", [(8000, 12), (11025, 16), (12000, 17), (16000, 23), (22050, 32), (24000, 35),
                                           (32000, 46), (44100, 64), (48000, 64)])
def test_default_bit_rates(tavik, sound, rate, bit_rate):
    assert f" {bit_rate * 2}000 bit/s" in tavik.encode(sound(), "-o", "x.m4a", "--rate", rate).out[0]


def test_help_and_version(tavik):
    assert re.search(r"(?s)Usage:.*--output", tavik.encode("--help").data.decode())
    assert re.fullmatch(rb"tavik [\d.]+ \(library [\d.]+\)\n", tavik.encode("--version").data)


@pytest.mark.parametrize("arguments,out,err", [
    ("x.wav y.wav bad.wav", 3, 1), ("x.wav y.wav bad.wav -q", 0, 1), ("x.wav -q", 0, 0), ("x.wav", 1, 0),
    ("x.wav -o -", None, 1), ("x.wav -o - -q", None, 0),
])
def test_where_reports_go(tavik, sound, arguments, out, err):
    for name in ("x.wav", "y.wav"):
        os.symlink(sound(), name)
    Path("bad.wav").write_bytes(b"bad")
    run = tavik.run(*arguments.split())
    assert len(run.err) == err
    if out is None:
        Path("x.m4a").write_bytes(run.data)
        assert len(decode("x.m4a")[1]) >= 132300
    else:
        assert len(run.out) == out


def test_json(tavik, sound):
    os.symlink(sound("a.flac", NOISE, 44100, 441000), "a.flac")
    os.symlink(sound(), "b.wav")
    Path("b.m4a").write_bytes(b"old")
    Path('c"\n\\.wav').write_bytes(sound().read_bytes()[:100000])
    run = tavik.run("a.flac", "b.wav", 'c"\n\\.wav', "missing.wav", "--json", "--skip-existing", "--verify", "--rate",
                    "48000", "--cbr")
    assert (run.status, len(run.err)) == (1, 2)
    events = [json.loads(line) for line in run.out]
    files = {event["input"]: event for event in events if event["event"] not in ("progress", "summary")}
    a = files["a.flac"]
    stream = dict(line.split("=") for line in probe("a.m4a", "stream=sample_rate,channels,nb_frames,bit_rate"))
    assert (a["event"], a["output"], a["bytes"]) == ("encoded", "a.m4a", os.stat("a.m4a").st_size)
    assert [a["sample_rate"], a["channels"], a["frames"]] == [int(stream[key]) for key in (
        "sample_rate", "channels", "nb_frames")]
    assert (a["mode"], a["constant_rate"], a["verified"], a["warnings"]) == ("stereo", True, True, [])
    assert (a["bit_rate"], a["bit_rate_per_channel"], a["samples"], a["duration"]) == (128000, 64000, 480000, 10)
    assert abs(a["mean_bit_rate"] - int(stream["bit_rate"])) < 1000
    assert a["elapsed"] > 0 and a["speed"] == pytest.approx(10 / a["elapsed"], rel=0.1)
    assert files["b.wav"]["event"] == "skipped" and "exists" in files["b.wav"]["reason"]
    assert "truncated" in files['c"\n\\.wav']["warnings"][0]
    missing = files["missing.wav"]
    assert (missing["event"], missing["exit_code"]) == ("failed", 3) and "No such file" in missing["error"]
    summary = events[-1]
    assert [summary[key] for key in ("event", "files", "encoded", "skipped", "failed")] == ["summary", 4, 2, 1, 1]
    man_page = (Path(__file__).parents[2] / "programs" / "tavik" / "tavik.1").read_text()
    for event in events:
        assert [key for key in event if not re.search(rf"\b{key}\b", man_page)] == []
        if event["event"] == "progress":
            assert event["fraction"] is None or event["fraction"] == pytest.approx(
                event["seconds"] / event["duration"], abs=0.01)


@pytest.mark.parametrize("arguments,has_bar", [([], True), (["--no-progress"], False), (["-q"], False)])
def test_progress_bar_on_a_terminal(tavik, sound, arguments, has_bar):
    data = sound("noise.wav", NOISE, 44100, 2646000).read_bytes()

    def slowly():
        for start in range(0, len(data), len(data) // 8):
            yield data[start:start + len(data) // 8]
            time.sleep(0.3)

    feed("in.wav", slowly())
    master, slave = pty.openpty()
    process = tavik.start("in.wav", "-o", "x.m4a", *arguments, stderr=slave)
    os.close(slave)
    shown = b""
    try:
        while piece := os.read(master, 4096):
            shown += piece
    except OSError:  # the other side is closed
        pass
    os.close(master)
    shown = shown.decode()
    assert process.wait(PATIENCE) == 0
    assert bool(re.search(r"\d ?%.*ETA", shown)) == has_bar
    assert re.sub(r"[^\r\n]*\r\x1b\[K", "", shown) == ""  # every bar is cleared away


# ---- Standard input ------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("sample_format", FORMATS)
def test_headerless_pcm(tavik, sound, sample_format):
    source = sound("two.wav", "0.5*sin(2*PI*440*t)|0.25*sin(2*PI*440*t)", 32000, 50100)
    Path("x.pcm").write_bytes(ffmpeg("-i", source, "-f", sample_format, "-"))
    tavik.encode("x.pcm", "--pcm", f"{sample_format}:32000:2", "-o", "x.m4a")
    tavik.encode("-", "--pcm", f"{sample_format}:32000", "-o", "y.m4a", data=Path("x.pcm").read_bytes())
    rate, samples = decode("x.m4a")
    assert (rate, len(samples) // 1024, levels(samples)) == (32000, 49, [-9, -15])
    assert Path("x.m4a").read_bytes() == Path("y.m4a").read_bytes()


@pytest.mark.parametrize("options", [("-f", "wav"), ("-f", "flac"), ("-f", "ogg"), ("-f", "mp3")])
def test_standard_input_of_unknown_length(tavik, sound, options):
    data = subprocess.run(["ffmpeg", "-v", "error", "-i", sound(), *options, "-"], stdout=subprocess.PIPE,
                          stdin=subprocess.DEVNULL, check=True).stdout
    run = tavik.encode("-", "-o", "x.m4a", data=data)
    assert run.out[0].startswith("standard input -> x.m4a: ")
    rate, samples = decode("x.m4a")
    assert rate == 44100 and 132300 <= len(samples) <= 132300 + 2304 and -10 <= levels(samples)[0] <= -9


def chunk(name, data, size=None):
    return name + struct.pack("<I", len(data) if size is None else size) + data + b"\0" * (len(data) % 2)


def format_chunk(tag=1, channels=2, bits=16, extension=b""):
    return chunk(b"fmt ", struct.pack("<HHIIHH", tag, channels, 44100, 44100 * channels * bits // 8, channels * bits // 8,
                                      bits) + extension)


# Quadraphonic, left and right at the side: mixed otherwise than without the mask of loudspeakers.
EXTENSION = struct.pack("<HHIH", 22, 16, 0x603, 1) + bytes.fromhex("000000001000800000aa00389b71")
SAMPLES = numpy.random.default_rng(1).integers(-9999, 9999, 40000, "<i2").tobytes()


@pytest.mark.parametrize("chunks", [
    format_chunk() + chunk(b"data", SAMPLES),
    format_chunk() + chunk(b"data", SAMPLES) + chunk(b"LIST", b"INFO" + SAMPLES[:2001]),
    chunk(b"JUNK", bytes(4093)) + format_chunk() + chunk(b"data", SAMPLES),
    format_chunk() + chunk(b"id3 ", b"x" * 70000) + chunk(b"data", SAMPLES),
    format_chunk(0xFFFE, 4, 16, EXTENSION) + chunk(b"data", SAMPLES),
    format_chunk(6, 2, 8) + chunk(b"data", SAMPLES),
    *[format_chunk() + chunk(b"data", SAMPLES, size) for size in (0, 0x7FFFFFDB, 0x80000000, 0xFFFFFFFF)],
    chunk(b"ds64", bytes(28)) + format_chunk() + chunk(b"data", SAMPLES),
], ids=itertools.count())
def test_wav_headers_mean_the_same_in_files_and_pipes(tavik, chunks):
    data = b"RIFF" + struct.pack("<I", 0x7FFFFFFF) + b"WAVE" + chunks
    Path("x.wav").write_bytes(data)
    tavik.encode("x.wav", "--strict")
    tavik.encode("-", "-o", "piped.m4a", "--strict", data=data)
    assert Path("piped.m4a").read_bytes() == Path("x.m4a").read_bytes()


@pytest.mark.parametrize("size", [len(SAMPLES), 0, (1 << 64) - 1])
def test_long_wav_on_a_pipe(tavik, size):
    data = (b"RF64" + b"\xff" * 4 + b"WAVE" + chunk(b"ds64", struct.pack("<QQQI", size, size, 0, 0)) + format_chunk() +
            chunk(b"data", SAMPLES + (b"LIST" if size == len(SAMPLES) else b""), 0xFFFFFFFF))
    tavik.encode("-", "-o", "x.m4a", "--strict", data=data)
    assert probe("x.m4a", "stream=duration_ts") == [f"duration_ts={len(SAMPLES) // 4}"]


@pytest.mark.parametrize("chunks", [
    chunk(b"fmt ", b"", 0xFFFFFFFF), format_chunk(), format_chunk() + b"da", chunk(b"data", SAMPLES),
], ids=itertools.count())
def test_wav_headers_that_are_none(tavik, chunks):
    tavik.refuse(3, "standard input: ", "-", "-o", "x.m4a", data=b"RIFF\xff\xff\xff\xffWAVE" + chunks)


def test_standard_input_begins_where_it_stands(tavik, sound):
    data = sound().read_bytes()
    Path("x.wav").write_bytes(data[:1000] + data)  # a longer file, by the header at its start
    for flags in (0, os.O_NONBLOCK):
        source = os.open("x.wav", os.O_RDONLY)
        os.lseek(source, 1000, os.SEEK_SET)
        if flags:
            feed("pipe", [data[:1000], data[1000:]])
            source = os.open("pipe", os.O_RDONLY | flags)
            select.select([source], [], [], PATIENCE)
        process = tavik.start("-", "-o", "x.m4a", "-f", "--strict", stdin=source)
        os.close(source)
        assert process.communicate(timeout=PATIENCE)[1] == b"" and process.returncode == 0
        assert probe("x.m4a", "stream=duration_ts") == ["duration_ts=132300"]


def test_memory_does_not_grow_with_the_input(tavik, sound):
    """96 Mbyte go in."""
    data = sound("noise.wav", "0.5*sin(2*PI*440*t)", 8000, 8000 * 600).read_bytes()
    process = tavik.start("-", "-o", "x.m4a", "--pcm", "s16le:8000:1", stdin=subprocess.PIPE)
    for _ in range(10):
        process.stdin.write(data)
    peak = int(re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{process.pid}/status").read_text())[1])
    assert process.communicate(timeout=PATIENCE)[1] == b""
    assert process.returncode == 0 and peak < 60000


def frames(stream):
    """Number of complete ADTS frames."""
    count = position = 0
    while position + 7 <= len(stream):
        position += int.from_bytes(stream[position + 3:position + 6], "big") >> 5 & 0x1FFF
        count += position <= len(stream)
    return count


@pytest.mark.parametrize("kind", ["wav", "pcm"])
def test_live_stream(tavik, sound, kind):
    """Input that pauses after each frame: what can be coded by then comes out, and waits for no more."""
    data = sound("noise.wav", NOISE, 44100, 132300).read_bytes()
    audio = data[-132300 * 4:]
    process = tavik.start("-", "-o", "-", "--adts", *(["--pcm", "s16le"] if kind == "pcm" else []),
                          stdin=subprocess.PIPE, bufsize=0)
    process.stdin.write(data[:-len(audio)] if kind == "wav" else b"")
    received = b""
    for given in range(1, 61):
        process.stdin.write(audio[(given - 1) * 4096:given * 4096])
        while frames(received) < given - 2:  # the encoder holds two
            assert select.select([process.stdout], [], [], PATIENCE)[0], f"{frames(received)} frames after {given}"
            piece = os.read(process.stdout.fileno(), 65536)
            assert piece, "the end of the output"
            received += piece
    process.communicate(timeout=PATIENCE)
