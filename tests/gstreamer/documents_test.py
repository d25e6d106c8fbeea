"""The pipelines of docs/gstreamer.md as they stand there, with files in place of devices."""
import os
import re
import signal as signals
import socket
import subprocess
from pathlib import Path

import numpy
import pytest
from audio_files import decode, ffmpeg, lag, probe
from conftest import signal, write_wav
from waiting import PATIENCE, wait_until

GUIDE = Path(__file__).parents[2] / "docs" / "gstreamer.md"
SECTIONS = dict(section.split("\n", 1) for section in re.split(r"^#+ ", GUIDE.read_text(), flags=re.M)[1:])


def blocks(heading):
    """The code of a section, with a file for the loudspeaker."""
    return [code.replace("autoaudiosink", "wavenc ! filesink location=heard.wav")
            for code in re.findall(r"^```(?:sh|python)\n(.*?)^```$", SECTIONS[heading], re.M | re.S)]


def on_free_port(codes, port, kind):
    """The same code with another port than it states, and that port."""
    with socket.socket(type=kind) as listener:
        listener.bind(("", 0))
        free = listener.getsockname()[1]
    assert all(str(port) in code for code in codes)
    return [code.replace(str(port), str(free)) for code in codes], free


def run(code):
    process = subprocess.run(["bash", "-c", code], capture_output=True, text=True, timeout=PATIENCE, check=False)
    assert (process.returncode, process.stderr) == (0, ""), process


@pytest.fixture
def started():
    """started(*command): a process that is stopped as by Ctrl-C, by stop() or at the end."""
    processes = []

    def start(*command):
        processes.append(subprocess.Popen(command, start_new_session=True))
        return processes[-1]

    yield start
    for process in processes:
        stop(process)


def stop(process):
    if process.poll() is None:
        os.killpg(process.pid, signals.SIGINT)
    process.wait(PATIENCE)


def wait_for_bytes(path, size):
    wait_until(lambda: Path(path).exists() and Path(path).stat().st_size >= size)


def wait_for_listener(protocol, port):
    """Until a process listens at the port, without connecting."""
    tables = [Path(f"/proc/net/{protocol}{version}") for version in ("", "6")]
    state = "0A" if protocol == "tcp" else "07"
    listening = re.compile(f"^ *[0-9]+: [0-9A-F]+:{port:04X} [0-9A-F]+:0000 {state} ", re.M)
    wait_until(lambda: any(listening.search(table.read_text()) for table in tables if table.exists()))


@pytest.fixture
def song():
    """Three seconds of stereo with a title, song.flac, and its samples."""
    samples = signal(3 * 44100)
    write_wav("song.wav", samples)
    ffmpeg("-i", "song.wav", "-metadata", "title=Song", "song.flac")
    return samples / 32768


@pytest.fixture
def microphone(monkeypatch, tmp_path):
    """ALSA's default device hears 1 kHz at half the full scale, faster than it can be taken, so that stretches drop out."""
    tone = numpy.round(16384 * numpy.sin(2 * numpy.pi * numpy.arange(48000) / 48)).astype("<i2")
    (tmp_path / "microphone.raw").write_bytes(tone.tobytes())
    (tmp_path / ".asoundrc").write_text("pcm.!default { type file; slave.pcm null; file /dev/null; format raw; "
                                        f"infile {tmp_path}/microphone.raw }}\n")
    monkeypatch.setenv("HOME", str(tmp_path))


def expect_tone(path):
    rate, samples = decode(path)
    assert rate == 48000
    heard = samples[-24000:, 0]
    assert numpy.argmax(numpy.abs(numpy.fft.rfft(heard))) == pytest.approx(500, abs=10)  # steps of 2 Hz
    assert numpy.sqrt(numpy.mean(heard**2)) == pytest.approx(0.35, rel=0.1)


def expect_song(song, path, *options):
    _, decoded = decode(path, "ffmpeg", *options)
    assert lag(decoded, song) == 0
    assert len(song) <= len(decoded) < len(song) + 1024
    assert numpy.allclose(decoded[2048:len(song)], song[2048:], atol=0.15)


def test_file_to_m4a(song):
    run(*blocks("File to M4A"))
    expect_song(song, "song.m4a")
    assert "TAG:title=Song" in probe("song.m4a", "format_tags=title")


def test_microphone_to_adts(microphone, started):
    process = started("bash", "-c", *blocks("Microphone to ADTS"))
    wait_for_bytes("microphone.aac", 100000)
    stop(process)
    expect_tone("microphone.aac")


def test_rtp(song, started):
    (send, receive), port = on_free_port(blocks("RTP"), 5004, socket.SOCK_DGRAM)
    receiver = started("bash", "-c", receive)
    wait_for_listener("udp", port)
    run(send)
    stop(receiver)
    expect_song(song, "heard.wav")


def test_rtsp(microphone, started):
    (server, listener), port = on_free_port(blocks("RTSP"), 8554, socket.SOCK_STREAM)
    started("/usr/bin/python3", "-c", server)
    wait_for_listener("tcp", port)
    process = started("bash", "-c", listener)
    wait_for_bytes("heard.wav", 100000)
    stop(process)
    expect_tone("heard.wav")


def test_hls(song):
    run(*blocks("HLS"))
    assert len(list(Path().glob("segment*.ts"))) == 2
    expect_song(song, "playlist.m3u8")


def test_rtmp(song, started):
    """ffmpeg is the server."""
    (client,), port = on_free_port(blocks("RTMP"), 1935, socket.SOCK_STREAM)
    server = started("ffmpeg", "-v", "fatal", "-listen", "1", "-f", "flv", "-i", f"rtmp://127.0.0.1:{port}/live/key",
                     "-c", "copy", "received.mkv")
    wait_for_listener("tcp", port)
    # GStreamer misses something in the server's answer and says so.
    subprocess.run(["bash", "-c", client], capture_output=True, timeout=PATIENCE, check=True)
    server.wait(PATIENCE)
    expect_song(song, "received.mkv")


def test_properties_are_those_of_the_element():
    described = set(re.findall(r"^\| `([a-z-]+)` \|", SECTIONS["Properties"], re.M))
    shown = subprocess.run(["gst-inspect-1.0", "tavikenc"], capture_output=True, text=True, check=True).stdout
    properties = set(re.findall(r"^  ([a-z-]+) +: ", shown, re.M))
    inherited = {"hard-resync", "mark-granule", "name", "parent", "perfect-timestamp", "tolerance"}
    assert described == properties - inherited
