"""Handling of damage, levels, time stamps and several tracks of the input."""
import json
import re
import struct
import subprocess
from pathlib import Path

import numpy
import pytest
from audio_files import decode, ffmpeg, lag, probe, write_noise

VIDEO = ("-f", "lavfi", "-i", "color=red:s=64x64:r=25:d=12")
HOLES = "asetnsamples=240,aselect='not(lt(t,1)+between(t,3,4.9999)+between(t,7,7.2999)+between(t,9,9.0399))'"


def warnings(run):
    assert run.status == 0
    return [line.partition(": warning: ")[2] for line in run.err]


@pytest.mark.parametrize("name,places", [("x.flac", (30000, 70001, 99999)), ("x.wv", (30000, 70001, 99999))])
def test_a_flipped_bit_is_damage(tavik, sound, name, places):
    for place in places:
        data = bytearray(sound(name, "random(0)-0.5", 44100, 132300).read_bytes())
        data[place] ^= 16
        Path(name).write_bytes(data)
        assert re.fullmatch(r"damaged at \d\.\d{3} s \(.*\)", warnings(tavik.run(name, "-f", "-o", "x.m4a"))[0])
        Path("x.m4a").unlink()
        tavik.refuse(3, r"damaged at \d", name, "-o", "x.m4a", "--strict")


@pytest.mark.parametrize("options,bits", [((), 16), (("-c:a", "pcm_s24le"), 24)])
def test_flac_samples_are_checked_against_their_md5(tavik, options, bits):
    write_noise("x.wav", 50000)
    ffmpeg("-i", "x.wav", *options, "y.wav")
    ffmpeg("-i", "y.wav", "x.flac")
    tavik.encode("x.flac", "--strict")
    data = bytearray(Path("x.flac").read_bytes())
    assert data[8 + 12] % 2 * 16 + (data[8 + 13] >> 4) + 1 == bits
    data[8 + 18] ^= 1
    Path("x.flac").write_bytes(data)
    tavik.refuse(3, "MD5", "x.flac", "-o", "y.m4a", "--strict")
    assert "MD5" in warnings(tavik.run("x.flac", "-o", "y.m4a", "--verify"))[0]


def test_samples_above_full_scale(tavik, sound):
    """1000 samples of magnitude 2, others of 0.5, and one NaN."""
    samples = numpy.tile(numpy.array([0.5, -0.5], "<f4"), 20000)
    samples[1000:2000] *= 4
    samples[3000] = numpy.nan
    Path("x.pcm").write_bytes(samples.tobytes())
    pcm = ("x.pcm", "--pcm", "f32le:44100:1", "-f")
    assert warnings(tavik.run(*pcm)) == ["1,000 samples clipped, peak +6.0 dBFS; use --gain -6.1"]
    tavik.encode(*pcm, "--gain", "-6.1")
    assert warnings(tavik.run(*pcm, "--gain", "6.1"))[0].startswith("39,999 samples clipped, peak +12.1 dBFS; use --gain -6")
    tone = sound("tone.flac", "0.25*sin(2*PI*440*t)")
    for gain, level in (("0", -15), ("6.0206", -9), ("-20", -35)):
        tavik.encode(tone, "-o", "x.m4a", "-f", "--gain", gain)
        assert abs(20 * numpy.log10(numpy.std(decode("x.m4a")[1])) - level) < 0.1


def film(name, *options):
    """A film of 12 seconds whose sound is noise that starts after a second and has three holes."""
    noise = write_noise("noise.wav", 12 * 48000, 48000)
    ffmpeg(*VIDEO, "-i", "noise.wav", "-filter_complex", f"[1:a]{HOLES}[a]", "-map", "0:v", "-map", "[a]", *options, name)
    return noise


@pytest.mark.parametrize("name,options,arguments", [
    ("x.mkv", ("-c:a", "flac"), ""), ("x.ts", ("-c:a", "mp2", "-b:a", "384k"), ""), ("x.mp4", ("-c:a", "alac"), ""),
    ("x.mp4", ("-c:a", "alac"), "--start-edit --verify"), ("x.mkv", ("-c:a", "libvorbis"), "--rate 44100"),
])
def test_sound_stays_in_its_place_in_time(tavik, name, options, arguments):
    noise = film(name, *options)
    run = tavik.run(name, "-o", "x.m4a", "-b", "320k", "--json", *arguments.split())
    start, *holes = warnings(run)
    assert re.fullmatch(r"audio starts late, at (1\.0|0\.9)\d\d s: (silence|an edit) put before it", start)
    assert len(holes) == 3 and re.fullmatch(r"hole of 0\.[23]\d\d s at 7\.0\d\d s filled with silence", holes[1])
    kinds = [error["kind"] for error in json.loads(run.out[-2])["time_errors"]]
    assert kinds == ["late_start", "hole", "hole", "hole"]
    filters = "aresample=48000:async=1:first_pts=0" if "--start-edit" in arguments else "atrim=start_pts=0"
    _, decoded = decode("x.m4a", "ffmpeg", "-copyts", "-af", filters, "-ar", "48000")
    for begin in (1.5, 5.5, 7.5, 10):
        piece = slice(int(begin * 48000), int((begin + 1) * 48000))
        assert abs(lag(decoded[piece], noise[piece])) <= 48, begin


def test_overlaps_are_cut_and_other_clocks_ignored(tavik):
    for i, offset in enumerate((0, 2.7, 1000)):
        ffmpeg("-f", "lavfi", "-i", "sine=440:d=3", "-c:a", "mp2", "-output_ts_offset", offset, f"{i}.ts")
    Path("x.ts").write_bytes(b"".join(Path(f"{i}.ts").read_bytes() for i in range(3)))
    run = tavik.run("x.ts", "-o", "x.m4a")
    overlap, jump = warnings(run)[-2:]
    assert re.fullmatch(r"overlap of 0\.3\d\d s at 3\.0\d\d s cut", overlap)
    assert re.fullmatch(r"jump of the time stamps by 994\.\d\d\d s at 5\.\d\d\d s ignored", jump)
    assert abs(len(decode("x.m4a")[1]) / 44100 - 8.7) < 0.1


def test_tracks(tavik):
    languages = ("eng", "deu", "fra")
    tracks = [["-f", "lavfi", "-i", f"sine={440 * (i + 1)}:d=1"] for i in range(3)]
    maps = [["-map", str(i), f"-metadata:s:a:{i}", f"language={language}"] for i, language in enumerate(languages)]
    ffmpeg(*sum(tracks, []), *sum(maps, []), "-c:a", "flac", "x.mka")
    for option, number in (("--track=1", 1), ("--track=3", 3), ("--language=deu", 2), ("--language=FRA", 3)):
        run = tavik.encode("x.mka", "-o", "x.m4a", "-f", "--json", option)
        found = json.loads(run.out[-2])
        assert (found["track"], found["tracks"], found["language"]) == (number, 3, languages[number - 1])
        spectrum = numpy.abs(numpy.fft.rfft(decode("x.m4a")[1][:44100, 0]))
        assert numpy.argmax(spectrum) == 440 * number
        assert probe("x.m4a", "stream_tags=language") == [f"TAG:language={languages[number - 1]}"]
    for option in ("--track=4", "--language=ita"):
        tavik.refuse(3, r"no such audio track, it has 1 \(eng\), 2 \(deu\), 3 \(fra\)", "x.mka", "-o", "y.m4a", option)


def test_pipes_give_the_same_as_files(tavik):
    noise = write_noise("noise.wav", 100001)
    for name, options in (("vbr.mp3", ("-q:a", "4")), ("x.mp4", ("-c:a", "alac", "-movflags", "faststart"))):
        ffmpeg("-i", "noise.wav", *options, name)
        tavik.encode("-", "-o", "x.m4a", "-f", data=Path(name).read_bytes())
        assert probe("x.m4a", "stream=duration_ts") == [f"duration_ts={len(noise)}"]
    ffmpeg("-i", "noise.wav", "-c:a", "alac", "x.mov")
    tavik.refuse(3, "its index at the end", "-", "-o", "y.m4a", data=Path("x.mov").read_bytes())


def loudness(path):
    run = subprocess.run(["ffmpeg", "-hide_banner", "-i", path, "-af", "ebur128=peak=sample", "-f", "null", "-"],
                         capture_output=True, text=True, check=True)
    summary = run.stderr.rpartition("Summary:")[2]
    return [float(re.search(rf"{key}: +(\S+) ", summary)[1]) for key in ("I", "Peak")]


def test_loudness_is_normalised(tavik):
    """A quiet file, a loud one, and one above full scale."""
    Path("a").mkdir()
    for name, factor in (("a/1.wav", 0.05), ("a/2.wav", 0.5), ("a/3.wav", 2)):
        expression = f"{factor}*sin(2*PI*997*t)|{factor}*sin(2*PI*997*t)"
        ffmpeg("-f", "lavfi", "-i", f"aevalsrc={expression}:s=44100:d=5", "-c:a", "pcm_f32le", name)
    before = {i: loudness(f"a/{i}.wav") for i in (1, 2, 3)}
    run = tavik.encode("a", "-o", "t", "--apply-loudness", "track", "--json")
    assert [loudness(f"t/{i}.m4a")[0] for i in (1, 2, 3)] == pytest.approx([-18] * 3, abs=0.2)
    found = {event["input"]: event for event in map(json.loads, run.out) if event["event"] == "encoded"}
    for i in (1, 2, 3):
        event = found[f"a/{i}.wav"]
        assert event["gain"] == pytest.approx(-18 - before[i][0], abs=0.1) and event["track_gain"] == 0
        assert event["track_peak"] == pytest.approx(10**((before[i][1] + event["gain"]) / 20), abs=0.01)
    run = tavik.encode("a", "-o", "b", "--apply-loudness", "album")
    after = [loudness(f"b/{i}.m4a")[0] for i in (1, 2, 3)]
    assert numpy.diff(after) == pytest.approx(numpy.diff([before[i][0] for i in (1, 2, 3)]), abs=0.3)
    assert max(after) < -14
    tavik.refuse(2, "cannot be read twice", "-", "--loudness", "-o", "y.m4a", data=Path("a/1.wav").read_bytes())
    tavik.refuse(2, "--loudness: only M4A", "a/1.wav", "--loudness", "--adts")
