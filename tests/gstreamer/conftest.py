"""Functions for tests that run whole pipelines with the element.

Runs under pytest: GST_PLUGIN_PATH=DIRECTORY PYTHONPATH=tests/support pytest-3 tests/gstreamer. Every test works in an
empty directory of its own.
"""
import shutil
import subprocess

import numpy
import pytest
from waiting import PATIENCE


@pytest.fixture(autouse=True)
def directory(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    yield
    shutil.rmtree(tmp_path)


def run(*command):
    """Runs a command, which must succeed and print nothing on standard error."""
    process = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=False)
    assert (process.returncode, process.stderr) == (0, ""), process
    return process.stdout


def gst(pipeline):
    run("gst-launch-1.0", "-q", *pipeline.split())


def read_raw(path, channels=2):
    with open(path, "rb") as file:
        return numpy.frombuffer(file.read(), "<i2").reshape(-1, channels) / 32768


def signal_to_noise(source, decoded):
    """In dB, over the length of `source`; `decoded` may not be shorter."""
    assert len(decoded) >= len(source)
    difference = decoded[: len(source)] - source
    return 10 * numpy.log10(numpy.sum(source**2) / numpy.sum(difference**2))
