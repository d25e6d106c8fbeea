"""Streams and files decode to the samples of the source."""
import re
import struct
from pathlib import Path

import pytest
from audio_files import atom, decode, ffmpeg, lag, levels, probe, write_noise
from conftest import TONE

MONO = "0.5*sin(2*PI*440*t)"
LEFT = [-9, -99]

# decoder, rate, samples, levels; input, arguments. faad omits the first frame of streams.
STREAMS = [
    ("faad", 44100, 132096, LEFT, (), "-o x.aac"),
    ("ffmpeg", 44100, 133120, LEFT, (), "-o x.adts --mode two-mono"),
    ("ffmpeg", 44100, 133120, [-15], (), "-o x.aac --mode mono"),
    ("faad", 44100, 132096, LEFT, (), "-o x.adif --mode two-mono"),
    ("ffmpeg", 44100, 134144, LEFT, (), "-o x.aac --priming -b 529200"),
    ("ffmpeg", 44100, 133120, [-9, -9], ("mono.wav", MONO), "-o x.aac --mode stereo -b 16000"),
    ("ffmpeg", 48000, 144384, LEFT, ("high.wav", TONE, 96000, 288000, "-c:a", "pcm_s24le"), "-o x.aac"),
    ("ffmpeg", 16000, 48128, [-20, -20], ("six.flac", "0|0|0.5*sin(2*PI*440*t)|0|0|0:c=5.1", 13000, 39000), "-o x.aac"),
    ("ffmpeg", 44100, 133120, LEFT, (), "-o x.anything --m4a --mode two-mono"),
    ("ffmpeg", 44100, 133120, [-9], ("mono.wav", MONO), "-o x --cbr -b 32k"),
    ("faad", 44100, 133120, LEFT, (), "-o x.mp4"),
    *[("ffmpeg", 44100, decoded, None, ("odd.wav", MONO, 44100, samples), "-o x.aac")
      for samples, decoded in ((1, 2048), (1024, 2048), (1025, 2048), (2049, 3072))],
]


@pytest.mark.parametrize("decoder,rate,samples,level,source,arguments", STREAMS)
def test_decodes_to_the_source(tavik, sound, decoder, rate, samples, level, source, arguments):
    arguments = arguments.split()
    tavik.encode(sound(*source), *arguments)
    decoded_rate, decoded = decode(arguments[1], decoder)
    assert (decoded_rate, len(decoded)) == (rate, samples)
    assert level is None or levels(decoded) == level


@pytest.mark.parametrize("rate,samples,arguments,piped", [
    *[(44100, samples, "", piped) for samples, piped in ((1, True), (1023, False), (1024, True), (1025, False))],
    (44100, 100000, "", False), (44100, 100000, "", True), (8000, 20001, "", True), (96000, 100001, "", False),
    (48000, 1535, "--mode mono --cbr", False), (44100, 50000, "--rate 48000", True),
    (11025, 20000, "--rate 8000", True), (37800, 30000, "--rate 22050", False),
])
def test_mp4_has_the_samples_of_the_source_in_their_place(tavik, rate, samples, arguments, piped):
    """Debian 12's ffmpeg skips the samples before time 0, but plays the whole last frame."""
    write_noise("in.wav", samples, rate)
    output, within = ("-", '"$@" >x.m4a') if piped else ("x.m4a", None)
    tavik.encode("in.wav", *arguments.split(), "-q", "-o", output, within=within)
    decoded_rate, decoded = decode("x.m4a", "ffmpeg", "-copyts", "-af", "atrim=start_pts=0")
    _, reference = decode("in.wav", "ffmpeg", "-ar", decoded_rate)
    start, declared = (int(line.partition("=")[2]) for line in probe("x.m4a", "stream=start_pts,duration_ts"))
    assert abs(start + declared - samples * decoded_rate / rate) <= (decoded_rate != rate)
    assert 0 <= len(decoded) - start - declared < 1024
    assert lag(decoded, reference) == 0


def test_mp4_declares_priming_and_holds_the_frames_of_a_raw_stream(tavik):
    write_noise("x.wav", 100000)
    tavik.encode("x.wav")
    data = Path("x.m4a").read_bytes()
    assert struct.unpack(">II", atom(data, "moov/mvhd")[12:20]) == (44100, 100000)
    assert struct.unpack(">II", atom(data, "moov/trak/mdia/mdhd")[12:20]) == (44100, 101024)
    assert struct.unpack(">IIIiHH", atom(data, "moov/trak/edts/elst")) == (0, 1, 100000, 1024, 1, 0)
    assert atom(data, "moov/trak/mdia/minf/stbl/sgpd")[4:8] == b"roll"
    words = re.search(rb"(?s)iTunSMPB.{16}(( [0-9A-F]+)+)", data)[1].split()
    assert [int(word, 16) for word in words] == [0, 1024, 99 * 1024 - 101024, 100000] + [0] * 8
    tavik.encode("x.wav", "--raw-frames", "--priming")
    assert atom(data, "mdat") == Path("x.raw").read_bytes()


@pytest.mark.parametrize("kind", ["flac", "ogg", "mp3", "m4a"])
def test_tags_chapters_and_cover_are_copied(tavik, kind):
    tags = {"title": "Träume", "artist": "A", "album": "B", "album_artist": "C", "composer": "D", "genre": "Jazz",
            "date": "1999", "track": "3/12", "disc": "1/2", "comment": "three words here"}
    version = tavik.encode("--version").out[0].split()[-1].rstrip(")")
    expected = [f"TAG:{key}={value}" for key, value in {**tags, "encoder": f"Tavik {version}"}.items()]
    lines = "".join(f"{key}={value}\n" for key, value in tags.items())
    if kind in ("flac", "ogg"):  # they store totals separately; ffmpeg maps their comment to description
        expected[expected.index("TAG:comment=three words here")] = "TAG:description=three words here"
        lines = lines.replace("track=3/12", "track=3\ntracktotal=12").replace("disc=1/2", "disc=1\ndisctotal=2")
    Path("tags").write_text(f";FFMETADATA1\n{lines}[CHAPTER]\nTIMEBASE=1/10\nSTART=0\nEND=10\ntitle=Finale\n")
    ffmpeg("-f", "lavfi", "-i", "color=red:s=64x64", "-frames:v", "1", "cover.png")
    options = ["-map_metadata", "0", "-map", "1", *(["-c:a", "alac"] if kind == "m4a" else [])]
    if kind in ("mp3", "m4a"):  # ffmpeg writes no chapters to the others
        expected.append("TAG:title=Finale")
    if kind != "ogg":  # and no covers to this one
        options += ["-map", "2", "-c:v", "copy", "-disposition:v", "attached_pic"]
        expected.append("DISPOSITION:attached_pic=1")
    ffmpeg("-i", "tags", "-f", "lavfi", "-i", f"aevalsrc={TONE}:d=1", "-i", "cover.png", *options, f"song.{kind}")
    tavik.encode(f"song.{kind}", "-o", "x.m4a")
    found = probe("x.m4a", "format_tags:chapter_tags:stream_disposition=attached_pic")
    assert [line for line in expected if line not in found] == []
    assert (Path("cover.png").read_bytes() in Path("x.m4a").read_bytes()) == (kind != "ogg")


def test_options_reach_the_encoder(tavik, sound):
    pulses = sound("pulses.wav", "(random(0)-0.5)*pow(sin(2*PI*50*t)\\,8)", 44100, 44100)
    with_tns, without = (tavik.encode(pulses, "-q", "-o", "-", *option).data for option in ([], ["--no-tns"]))
    assert with_tns != without
