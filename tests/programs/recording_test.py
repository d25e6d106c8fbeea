"""Endless inputs: recordings that survive failures, and streams."""
import fcntl
import os
import select
import signal
import struct
import subprocess
import threading
import time
from pathlib import Path

import pytest
from audio_files import atom, decode, lag, write_noise
from conftest import open_files, snapshot
from waiting import PATIENCE, wait_until


def start_recording(tavik, *arguments, seconds=3):
    """Starts the program, writes samples to it and keeps the pipe open; returns the process and the samples."""
    noise = write_noise("noise.wav", int(44100 * seconds))
    process = tavik.start("-", "--live", "--pcm", "s16le", *arguments, stdin=subprocess.PIPE)
    process.stdin.write(Path("noise.wav").read_bytes()[44:])
    process.stdin.flush()
    return process, noise


def end(process, *signals):
    """Sends signals while the pipe is open; returns the exit status, standard output and standard error."""
    for number in signals:
        process.send_signal(number)
        time.sleep(0.1)
    process.wait(timeout=PATIENCE)
    return process.returncode, process.stdout.read().decode(), process.stderr.read().decode()


def size(name):
    return Path(name).stat().st_size if Path(name).exists() else 0


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_an_interrupt_finishes_the_file(tavik, number):
    process, noise = start_recording(tavik, "-o", "x.m4a")
    wait_until(lambda: size("x.unfinished.m4a") > 30000)
    status, out, err = end(process, number)
    assert (status, err, out.startswith("standard input -> x.m4a: ")) == (0, "", True)
    assert [path.name for path in Path().glob("x*")] == ["x.m4a"]
    data = Path("x.m4a").read_bytes()
    assert data.index(b"moov") < data.index(b"mdat") and b"moof" not in data
    assert atom(data, "moov/trak/edts/elst") == struct.pack(">IIIiHH", 0, 1, len(noise), 1024, 1, 0)
    assert lag(decode("x.m4a", "ffmpeg", "-copyts", "-af", "atrim=start_pts=0")[1], noise) == 0
    tavik.encode("noise.wav", "-o", "y.m4a")
    assert Path("y.m4a").read_bytes() == data


@pytest.mark.parametrize("arguments,name", [
    ("-o x.m4a", "x.unfinished.m4a"), ("-o x.aac", "x.unfinished.aac"),
])
def test_a_killed_recording_lacks_only_its_end(tavik, arguments, name):
    process, noise = start_recording(tavik, *arguments.split(), seconds=5)
    wait_until(lambda: size(name) > 55000)
    process.kill()
    process.wait()
    rate, samples = decode(name)
    assert rate == 44100 and len(samples) > len(noise) - 2 * 44100 and abs(lag(samples, noise)) <= 1024
    before = snapshot()
    run = tavik.run("noise.wav", "--live", *arguments.split())
    assert run.status == 4 and f"{name}: exists already" in run.err[0] and snapshot() == before


def test_a_second_interrupt_ends_the_program(tavik):
    """Here the output cannot be completed: nobody reads from a small pipe."""
    os.mkfifo("pipe")
    reader = os.open("pipe", os.O_RDONLY | os.O_NONBLOCK)
    fcntl.fcntl(reader, fcntl.F_SETPIPE_SZ, 4096)
    process, _ = start_recording(tavik, "-o", "pipe", "--adts", "-b", "529200", seconds=0.3)
    assert select.select([reader], [], [], PATIENCE)[0]
    status, _, err = end(process, signal.SIGINT, signal.SIGINT)
    os.close(reader)
    assert (status, err) == (130, "tavik: interrupted\n")


def test_a_recording_that_fails_is_named(tavik):
    run = tavik.run("/dev/zero", "--pcm", "s16le", "--live", "-o", "x.aac", "-b", "500k", "--cbr",
                    within='ulimit -f 16; "$@"')
    assert run.status == 4 and run.err[0].endswith("File too large; the recording is kept in x.unfinished.aac")
    assert size("x.unfinished.aac") == 16384


def test_a_recording_that_cannot_be_read_back_is_kept(tavik):
    process, _ = start_recording(tavik, "-o", "x.m4a")
    wait_until(lambda: size("x.unfinished.m4a") > 30000)
    os.truncate("x.unfinished.m4a", 800)  # after the header; later writes leave a hole
    status, _, err = end(process, signal.SIGINT)
    assert (status, err) == (
        4, "tavik: x.unfinished.m4a: cannot read back; the recording is kept in x.unfinished.m4a\n")
    assert (Path("x.m4a").exists(), size("x.unfinished.m4a") > 0) == (False, True)


def test_an_interrupt_before_the_pipe_has_a_writer(tavik):
    os.mkfifo("pipe")
    process = tavik.start("pipe", "--pcm", "s16le", "--live", "-o", "x.m4a")
    wait_until(lambda: any("eventfd" in target for target, _ in open_files(process.pid)))
    status, _, err = end(process, signal.SIGINT)
    assert status == 3 and err.startswith("tavik: pipe: "), err


def test_mp4_frames_are_written_at_once(tavik):
    process, _ = start_recording(tavik, "-o", "-", seconds=1)
    timer = threading.Timer(PATIENCE, process.kill)
    timer.start()
    data = b""
    while data.count(b"moof") < 44100 // 1024 - 1:
        piece = os.read(process.stdout.fileno(), 65536)
        assert piece
        data += piece
    timer.cancel()
    process.stdin.close()
    rest = process.stdout.read()
    assert (process.wait(timeout=PATIENCE), (data + rest).count(b"moof")) == (0, 45)


def test_an_ignored_interrupt_stays_ignored(tavik):
    process = tavik.start("-", "--pcm", "s16le", "-o", "x.m4a", stdin=subprocess.PIPE, within='trap "" INT; exec "$@"')
    process.stdin.write(bytes(100000))
    process.stdin.flush()
    for _ in range(3):
        process.send_signal(signal.SIGINT)
        time.sleep(0.05)
    process.communicate(timeout=PATIENCE)
    assert process.returncode == 0 and len(decode("x.m4a")[1]) >= 25000
