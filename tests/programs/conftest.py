"""The program under test, and fixtures and functions that its tests share.

Runs under pytest: PYTHONPATH=tests/support pytest-3 tests/programs --program=PATH --faulty-io=PATH. Every test works in
an empty directory of its own.
"""
import collections
import contextlib
import functools
import os
import re
import shutil
import signal
import subprocess
from pathlib import Path

import pytest
from audio_files import ffmpeg
from waiting import PATIENCE

TONE = "0.5*sin(2*PI*440*t)|0"  # left channel only
NOISE = "random(0)-0.5|random(1)-0.5"
Run = collections.namedtuple("Run", "status out err data")


def pytest_addoption(parser):
    parser.addoption("--program", required=True, type=os.path.realpath, help="the program tavik")
    parser.addoption("--faulty-io", required=True, type=os.path.realpath, help="library to preload: failing disks")


class Program:
    def __init__(self, path):
        self.path = path
        self.running = []

    def start(self, *arguments, within=None, **streams):
        """`within`: a bash script that runs the command, which it gets as "$@"."""
        streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **streams}
        shell = ["bash", "-c", within, "bash"] if within else []
        command = [*shell, self.path, *[it if isinstance(it, bytes) else str(it) for it in arguments]]
        self.running.append(subprocess.Popen(command, start_new_session=True, **streams))
        return self.running[-1]

    def run(self, *arguments, data=None, **options):
        """Runs the program to its end; `data` is its standard input. Its messages must be plain text."""
        process = self.start(*arguments, **({"stdin": subprocess.PIPE} if data else {}), **options)
        out, err = process.communicate(data, timeout=PATIENCE)
        assert re.fullmatch(rb"([^\0-\x1f\x7f]+\n)*", err), err
        return Run(process.returncode, out.decode(errors="replace").splitlines(), err.decode().splitlines(), out)

    def encode(self, *arguments, **options):
        """A run that must succeed without a message."""
        run = self.run(*arguments, **options)
        assert (run.status, run.err) == (0, []), run
        return run

    def refuse(self, status, pattern, *arguments, **options):
        """A run that must fail with a one-line message and change no files below the directory."""
        before = snapshot()
        run = self.run(*arguments, **options)
        assert (run.status, run.out, len(run.err)) == (status, [], 1), run
        assert re.fullmatch(f"tavik: .*{pattern}.*", run.err[0]), run.err
        assert snapshot() == before


@pytest.fixture(scope="session")
def tavik(request):
    return Program(request.config.getoption("--program"))


@pytest.fixture(autouse=True)
def directory(tavik, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    previous = os.umask(0o027)
    yield
    os.umask(previous)
    while tavik.running:
        with contextlib.suppress(ProcessLookupError):  # it has ended already
            os.killpg(tavik.running.pop().pid, signal.SIGKILL)
    shutil.rmtree(tmp_path)


@pytest.fixture(scope="session")
def sound(tmp_path_factory):
    """sound(name, expression, rate, samples, *FFmpeg options) makes such a file once and returns its path."""

    @functools.lru_cache(maxsize=None)
    def make(name="tone.wav", expression=TONE, rate=44100, samples=132300, *options):
        path = tmp_path_factory.mktemp("sound") / name
        source = f"aevalsrc={expression}:s={rate},atrim=end_sample={samples}"
        ffmpeg("-f", "lavfi", "-i", source, *options, path)
        return path

    return make


def unfinished(process):
    """Sizes of the unnamed files that the process or its children are writing."""
    processes = [process.pid, *map(int, Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text().split())]
    return [size for pid in processes for target, size in open_files(pid) if "/#" in target]


def open_files(pid):
    """Target and size of each open file of a process."""
    for file in Path(f"/proc/{pid}/fd").iterdir():
        with contextlib.suppress(FileNotFoundError):  # has been closed
            yield os.readlink(file), file.stat().st_size


def snapshot(directory="."):
    """Names, contents and permissions of everything below the directory."""
    return {path: (path.lstat().st_mode, path.is_file() and path.read_bytes()) for path in Path(directory).rglob("*")}
