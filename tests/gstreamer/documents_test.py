"""The pipelines of docs/gstreamer.md: all their elements and properties exist, and they run, with files in place of
devices and network."""
import itertools
import re
import shlex
from pathlib import Path

import pytest
from audio_files import decode, ffmpeg, lag, probe, write_noise
from conftest import run

GUIDE = Path(__file__).parents[2] / "docs" / "gstreamer.md"
SECTIONS = dict(section.split("\n", 1) for section in re.split(r"^#+ ", GUIDE.read_text(), flags=re.M)[1:])
HEADINGS = ["File to M4A", "Microphone to ADTS", "RTP", "RTSP", "HLS", "RTMP"]
# Creates and links the elements of a pipeline with their properties, but does not start it.
CHECKER = """import gi, sys
gi.require_version("Gst", "1.0")
from gi.repository import Gst
Gst.init(None)
Gst.parse_launchv(sys.argv[1:])"""
# The RTSP server parses its pipeline only when the first client connects. Here it parses the pipeline and ends.
SERVES = "GLib.MainLoop().run()"
PARSES = 'Gst.parse_launch(factory.get_launch()); assert factory.get_launch().startswith("( alsasrc ! ")'


def blocks(heading):
    return re.findall(r"^```(?:sh|python)\n(.*?)^```$", SECTIONS[heading], re.M | re.S)


def changed(text, *changes):
    for old, new in changes:
        assert old in text
        text = text.replace(old, new)
    return text


def test_elements_and_properties():
    assert re.findall("^### (.*)", GUIDE.read_text(), re.M) == HEADINGS
    for code in itertools.chain(*map(blocks, HEADINGS)):
        program, *words = shlex.split(code.replace("\\\n", ""))
        if program == "gst-launch-1.0":
            run("/usr/bin/python3", "-c", CHECKER, *[word for word in words if word not in ("-e", "-q")])
        else:
            run("/usr/bin/python3", "-c", changed(code, (SERVES, PARSES), ("8554", "0")))


SPEAKER = ("autoaudiosink", "wavenc ! filesink location=heard.wav")


def rtp():
    """Connects the receiver's elements, starting with its caps, directly to the sender's."""
    send, receive = blocks("RTP")
    received = changed(receive, SPEAKER).partition("udpsrc port=5004 caps=")[2]
    return changed(send, ("udpsink host=127.0.0.1 port=5004", received))


def rtsp():
    server, listen = blocks("RTSP")
    served = "".join(re.findall(r'"(.*?)"', server[server.index("set_launch"):server.index("set_shared")]))
    sent = changed(served, ("( alsasrc", "filesrc location=song.flac ! decodebin"), ("name=pay0 pt=96 )", ""))
    return changed(listen, ("rtspsrc location=rtsp://127.0.0.1:8554/live", sent), SPEAKER)


@pytest.mark.parametrize("code,output,rate", [
    (blocks("File to M4A")[0], "song.m4a", 44100),
    (changed(blocks("Microphone to ADTS")[0], ("alsasrc", "filesrc location=song.flac ! decodebin")),
     "microphone.aac", 48000),
    (rtp(), "heard.wav", 44100),
    (rtsp(), "heard.wav", 48000),
    (blocks("HLS")[0], "playlist.m3u8", 44100),
    (changed(blocks("RTMP")[0], ("rtmp2sink location=rtmp://127.0.0.1:1935/live/key", "filesink location=live.flv")),
     "live.flv", 44100),
], ids=HEADINGS)
def test_pipeline(code, output, rate):
    write_noise("song.wav", 3 * 44100)
    ffmpeg("-i", "song.wav", "-metadata", "title=Song", "song.flac")
    run("bash", "-c", code)
    decoded_rate, decoded = decode(output)
    _, song = decode("song.wav", "ffmpeg", "-ar", decoded_rate)
    assert (decoded_rate, lag(decoded, song)) == (rate, 0)
    assert len(song) <= len(decoded) < len(song) + 1024
    if output == "song.m4a":
        assert "TAG:title=Song" in probe(output, "format_tags=title")
    if output == "playlist.m3u8":
        assert len(list(Path().glob("segment*.ts"))) == 2


def test_element_description():
    """Properties and their defaults as documented; a rank with which no automatic pipeline chooses the element."""
    shown = run("gst-inspect-1.0", "tavikenc")
    assert re.search(r"^  Rank +none.*\n(?:.*\n)+?  Klass +Codec/Encoder/Audio$", shown, re.M)
    described = re.findall(r"^\| `([a-z-]+)` \| `?([\w-]+)`? \|", SECTIONS["Properties"], re.M)
    properties = re.findall(r'^  ([a-z-]+) +: (?:.|\n   )*?Default: (?:\d+, )?"?([\w-]+)', shown, re.M)
    inherited = {"hard-resync", "mark-granule", "name", "parent", "perfect-timestamp", "tolerance"}
    assert dict(described) == {name: default for name, default in properties if name not in inherited}
