"""Whole pipelines with the element under test: runs gst-launch-1.0, and a signal to find again behind them.

Runs under pytest: PYTHONPATH=tests/support pytest-3 tests/gstreamer --plugins=DIRECTORY. Every test works in an empty
directory of its own.
"""
import os
import shutil
import subprocess
import wave

import numpy
import pytest
from waiting import PATIENCE


def pytest_addoption(parser):
    parser.addoption("--plugins", required=True, type=os.path.realpath, help="directory of the plug-in")


@pytest.fixture(scope="session")
def registry(tmp_path_factory):
    return tmp_path_factory.mktemp("gstreamer") / "registry.bin"


@pytest.fixture(autouse=True)
def directory(request, registry, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    monkeypatch.setenv("GST_PLUGIN_PATH", request.config.getoption("--plugins"))
    monkeypatch.setenv("GST_REGISTRY", str(registry))
    yield
    shutil.rmtree(tmp_path)


def gst(pipeline):
    """Runs a pipeline to its end; it must have nothing to complain about."""
    command = ["gst-launch-1.0", "-q", *pipeline.split()]
    run = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False)
    assert (run.returncode, run.stderr) == (0, ""), run


def signal(samples, channels=2):
    """Noise that is the louder the lower: one that coding keeps and correlation finds, of independent channels."""
    noise = numpy.cumsum(numpy.random.default_rng(1).standard_normal((samples + 199, channels)), axis=0)
    noise = numpy.array([numpy.convolve(column, numpy.eye(1, 200)[0] - 1 / 200, "valid") for column in noise.T]).T
    return numpy.round(noise / numpy.abs(noise).max() * 20000).astype("<i2")


def write_wav(path, samples, rate=44100):
    with wave.open(str(path), "wb") as file:
        file.setparams((samples.shape[1], 2, rate, 0, "NONE", ""))
        file.writeframes(samples.tobytes())


def read_raw(path, channels=2):
    with open(path, "rb") as file:
        return numpy.frombuffer(file.read(), "<i2").reshape(-1, channels) / 32768


def signal_to_noise(source, decoded):
    """In dB, over the length of `source`, of which nothing may be missing."""
    assert len(decoded) >= len(source)
    difference = decoded[: len(source)] - source
    return 10 * numpy.log10(numpy.sum(source**2) / numpy.sum(difference**2))
