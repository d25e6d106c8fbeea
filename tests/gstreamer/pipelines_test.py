"""Audio that passes through containers and packets decodes to the source: not late, and complete at the end.

Without a priming frame the first 1024 samples are not exact.
"""
import math

import numpy
import pytest
from audio_files import decode, lag, probe, write_noise
from conftest import gst, read_raw, signal_to_noise

RATE = 44100
FRAME = 1024
GOOD = 25  # dB, minimum signal-to-noise ratio at this bit rate; with a delay of one sample it is below 15
SOURCE = "filesrc location=in.wav ! wavparse"
ENCODER = "tavikenc bitrate=320000"
TO_RAW = "audioconvert ! audio/x-raw,format=S16LE ! filesink location=out.raw"


def expect_source(source, decoded, exact_start=False):
    """`decoded` must be the source without delay, padded at most to a whole frame."""
    start = 0 if exact_start else FRAME
    assert len(source) <= len(decoded) <= FRAME * math.ceil(len(source) / FRAME)
    if len(source) > 2 * FRAME:
        assert lag(decoded, source) == 0
        assert signal_to_noise(source[start:], decoded[start:]) > GOOD
        assert signal_to_noise(source[-100:], decoded[len(source) - 100:]) > GOOD - 5


@pytest.mark.parametrize("mode,muxer", [
    *[("auto", muxer) for muxer in ("mp4mux", "mp4mux fragment-duration=200", "qtmux", "matroskamux", "mpegtsmux",
                                    "flvmux streamable=true")],
    # No channelConfiguration describes these; the program_config_element has to be passed on.
    *[("two-mono", muxer) for muxer in ("matroskamux", "aacparse ! matroskamux", "mp4mux", "mpegtsmux")],
])
def test_containers(mode, muxer):
    source = write_noise("in.wav", RATE + 57)
    gst(f"{SOURCE} ! {ENCODER} channel-mode={mode} ! {muxer} ! filesink location=out")
    expect_source(source, decode("out")[1])


@pytest.mark.parametrize("samples", [1, 1023, 1024, 1025, 5000])
def test_lengths(samples):
    """Lengths declared by containers; and samples that GStreamer's decoders clip at the start and the end."""
    source = write_noise("in.wav", samples)
    gst(f"{SOURCE} ! tee name=t ! queue ! {ENCODER} ! tee name=u ! queue "
        f"! mp4mux movie-timescale={RATE} ! filesink location=out.mp4 "
        f"u. ! queue ! qtmux movie-timescale={RATE} ! filesink location=out.mov "
        "u. ! queue ! matroskamux ! filesink location=out.mkv "
        f"t. ! queue ! {ENCODER} priming=true ! avdec_aac ! {TO_RAW}")
    for path in ("out.mp4", "out.mov"):
        assert sorted(probe(path, "stream=duration_ts,time_base")) == [f"duration_ts={samples}", f"time_base=1/{RATE}"]
    (length,) = probe("out.mkv", "format=duration")
    assert float(length.split("=")[1]) == pytest.approx(samples / RATE, abs=1.1e-3)  # milliseconds
    decoded = read_raw("out.raw")
    assert len(decoded) == samples
    expect_source(source, decoded, exact_start=True)


def test_adif():
    source = write_noise("in.wav", RATE + 57)
    gst(f"{SOURCE} ! {ENCODER} ! audio/mpeg,stream-format=adif ! filesink location=out.aac")
    decoded = decode("out.aac", "faad")[1]
    expect_source(source, numpy.concatenate([source[:FRAME], decoded]))  # faad omits the first frame


@pytest.mark.parametrize("muxer", ["mp4mux", "matroskamux", "mpegtsmux"])
def test_priming_frame_comes_before_the_start(muxer):
    """If the segment starts early enough, the stream begins one frame earlier: in sync with a stream without priming
    frame in the same container, and exact from its first sample on."""
    gst("audiotestsrc wave=red-noise num-buffers=40 timestamp-offset=1000000000 ! tee name=t "
        f"! audio/x-raw,format=S16LE,rate={RATE},channels=2 ! queue ! filesink location=source.raw "
        f"t. ! queue ! {ENCODER} priming=true ! {muxer} name=muxer ! filesink location=out "
        f"t. ! queue ! {ENCODER} ! muxer.")
    source = read_raw("source.raw")
    starts = [float(line.split("=")[1]) for line in probe("out", "stream=start_time")]
    tracks = [decode("out", "ffmpeg", "-map", f"-0:a:{other}")[1] for other in (1, 0)]
    primed = numpy.argmin(starts)
    assert abs(starts[0] - starts[1]) == pytest.approx(FRAME / RATE, abs=1.1e-3)
    assert [lag(track, source) for track in tracks] == ([FRAME, 0] if primed == 0 else [0, FRAME])
    # The noise differs in every run; without priming frame the ratio would be about 5 dB.
    assert signal_to_noise(source[:FRAME], tracks[primed][FRAME:]) > 15


@pytest.mark.parametrize("output", ["mp4mux", "audio/mpeg,stream-format=adts"])
def test_priming_frame_without_time(output):
    """Neither format can declare that the samples of the priming frame are to be skipped: they come first."""
    source = write_noise("in.wav", RATE + 57)
    gst(f"{SOURCE} ! {ENCODER} priming=true ! {output} ! filesink location=out")
    expect_source(source, decode("out", "ffmpeg")[1][FRAME:], exact_start=True)
