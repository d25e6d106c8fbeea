"""Wrong usage, input that cannot be used, output that cannot be written, interruption."""
import itertools
import os
import resource
import select
import shutil
import signal
import subprocess
from pathlib import Path

import pytest
from audio_files import decode, ffmpeg
from conftest import NOISE, feed
from waiting import PATIENCE, wait_until

USAGE = [
    ("INPUT", ""),
    ("--bogus", "tone.wav --bogus"),
    ("--mode: .*quad", "tone.wav --mode quad"),
    ("--rate: .*44000", "tone.wav --rate 44000"),
    ("--ad.. excludes --ad..", "tone.wav --adts --adif"),
    ("--m4a", "tone.wav --m4a --raw-frames"),
    ("--copyright-id: .*123", "tone.wav --copyright-id 123"),
    ("--bitrate: .*fast", "tone.wav -b fast"),
    ("--bitrate 15998: must be 16000 to 529200 bit/s for 2 channels at 44100 Hz", "tone.wav -b 15998"),
    ("8000 to 48000 bit/s for 1 channel at 8000 Hz", "tone.wav --mode mono --rate 8000 -b 64k"),
    ("--bitrate 64001: must divide", "tone.wav -b 64001"),
    ("--pcm: .*s8", "tone.wav --pcm s8"),
    ("--pcm: .*s16le:0", "tone.wav --pcm s16le:0"),
    ("--pcm: .*s16le:44100:2:1", "tone.wav --pcm s16le:44100:2:1"),
    ("--jobs: .*", "tone.wav -j 0"),
    ("--home: needs --adts", "tone.wav --home"),
    ("--output: .*PATH missing", "tone.wav -o"),
    ("--output", "-"),
    ("standard input", "- - -o new/"),
    ("--verify", "tone.wav -o - --verify"),
    ("--verify", "tone.wav -o pipe --verify"),
    ("one input", "tone.wav tone.flac -o -"),
    ("one input", "folder -o -"),
    ("--skip-existing", "tone.wav -f --skip-existing"),
]


@pytest.fixture
def tone(sound):
    shutil.copy(sound(), "tone.wav")


@pytest.mark.parametrize("pattern,arguments", USAGE)
def test_wrong_usage(tavik, tone, pattern, arguments):
    Path("folder").mkdir()
    for copy in ("tone.flac", "folder/a.wav", "folder/b.wav"):
        shutil.copy("tone.wav", copy)
    os.mkfifo("pipe")
    tavik.refuse(2, pattern, *arguments.split())


@pytest.mark.parametrize("name,content,pattern", [
    ("missing.wav", None, "missing.wav: .*No such file"),
    ("empty.wav", b"", "empty.wav: .*empty"),
    ("text.txt", b"not audio\n" * 2000, "text.txt: "),
    ("header.wav", "header", "header.wav: "),
    ("silent.mp4", "film", "silent.mp4: .*no audio"),
    ("line\nbreak\x1b.wav", b"", r"line\?break\?.wav: "),
    ("empty", "directory", "empty: .*no audio"),
])
def test_unusable_input(tavik, tone, name, content, pattern):
    if content == "header":
        content = Path("tone.wav").read_bytes()[:44]
    if content == "film":
        ffmpeg("-f", "lavfi", "-i", "color=red:s=64x64:d=1", name)
    elif content == "directory":
        Path(name).mkdir()
    elif content is not None:
        Path(name).write_bytes(content)
    tavik.refuse(3, pattern, name, "-o", "x.m4a")


def damage(source, target, kind):
    data = Path(source).read_bytes()
    half = len(data) // 2
    Path(target).write_bytes(data[:half] if kind == "truncated" else
                             data[:half] + b"damage" * 500 + data[half + 3000:])


ALAC = ("-c:a", "alac", "-movflags", "faststart")


@pytest.mark.parametrize("kind,name,piped", [
    *[("truncated", name, False) for name in ("x.wav", "x.flac", "x.mp3", "x.ogg", "x.m4a")],
    *[("truncated", name, True) for name in ("x.wav", "x.flac", "x.m4a")],  # the others do not tell their lengths
    *[("damaged", name, piped) for name in ("x.flac", "x.mp3", "x.ogg", "x.m4a") for piped in (False, True)],
])
def test_damaged_input(tavik, sound, kind, name, piped):
    options = ALAC if name == "x.m4a" else ()
    damage(sound(name, NOISE, 44100, 441000, *options), name, kind)
    data = Path(name).read_bytes() if piped else None
    source = "-" if piped else name
    run = tavik.run(source, "-o", "out.m4a", data=data)
    assert (run.status, len(run.err), len(run.out)) == (0, 1, 1), run
    assert f": warning: {kind}" in run.err[0]
    _, samples = decode("out.m4a")
    low, high = (150000, 240000) if kind == "truncated" else (380000, 441000)
    assert low <= len(samples) <= high
    os.remove("out.m4a")
    os.remove("decoded.wav")
    tavik.refuse(3, kind, source, "-o", "out.m4a", "--strict", data=data)


def test_what_follows_the_audio_is_no_damage(tavik, sound):
    for name, tag in (("x.flac", b"TAG".ljust(128, b"\0")), ("x.mp3", bytes(5000)), ("x.mp3", b"LYRICSBEGIN" * 99)):
        Path(name).write_bytes(sound(name, NOISE, 44100, 441000).read_bytes() + tag)
        tavik.encode(name, "--strict", "-f")


def has_namespaces():
    return subprocess.run(["unshare", "-rm", "true"], capture_output=True, check=False).returncode == 0


@pytest.mark.skipif(not has_namespaces(), reason="needs a mount namespace")
def test_full_file_system(tavik, sound):
    Path("small").mkdir()
    command = 'mount -t tmpfs -o size=64k tmpfs small; "$@"; status=$?; ls -A small >left; exit $status'
    source = sound("noise.flac", NOISE, 44100, 882000)
    for name in ("x.m4a", "x.aac"):
        run = tavik.run(source, "-o", f"small/{name}", prefix=["unshare", "-rm", "sh", "-c", command, "sh"])
        assert (run.status, len(run.err), Path("left").read_text()) == (4, 1, ""), run
        assert f"small/{name}: " in run.err[0] and "No space left" in run.err[0]


def test_outputs_that_cannot_be_written(tavik, tone):
    Path("file").touch()
    Path("locked").mkdir(0o555)
    # root without the right to ignore permissions
    prefix = ["setpriv", "--bounding-set=-dac_override,-dac_read_search"] if os.geteuid() == 0 else []
    tavik.refuse(4, "locked.*Permission denied", "tone.wav", "-o", "locked/x.m4a", prefix=prefix)
    tavik.refuse(4, "none.*No such file", "tone.wav", "-o", "none/x.m4a")
    tavik.refuse(4, "file.*Not a directory", "tone.wav", "-o", "file/x.m4a")
    tavik.refuse(2, "file.*not a directory", "tone.wav", "tone.wav", "-o", "file")


def test_devices_that_are_full(tavik, tone):
    device = "/dev/full"
    if os.geteuid() == 0:  # root could replace that of the machine
        device = "full"
        try:
            os.mknod(device, 0o20666, os.makedev(1, 7))
        except PermissionError:
            pytest.skip("needs to make a device")
    for name in ("--adts", "--m4a"):
        run = tavik.run("tone.wav", "-o", device, name)
        assert (run.status, len(run.err)) == (4, 1) and f"{device}: " in run.err[0] and "No space" in run.err[0]
    for arguments in (["tone.wav", "-o", "-", "--adts"], ["tone.wav"], ["--help"]):
        with open(device, "wb") as output:
            run = tavik.run(*arguments, stdout=output)
        assert (run.status, len(run.err)) == (4, 1) and "tavik: standard output: cannot write" in run.err[0]
    assert Path(device).is_char_device()


@pytest.mark.parametrize("fault,message", [
    ("write", "verification failed"), ("fsync", "cannot write: Input/output error"),
    ("close", "cannot write: No space left"),
])
@pytest.mark.parametrize("name", ["x.m4a", "x.aac", "x.adif", "x.raw"])
def test_disks_that_fail(tavik, tone, request, monkeypatch, fault, message, name):
    faulty_io = request.config.getoption("--faulty-io")
    if faulty_io is None:
        pytest.skip("--faulty-io is not given")
    monkeypatch.setenv("TAVIK_TEST_FAULT", fault)
    form = ["--raw-frames"] if name == "x.raw" else []
    tavik.refuse(4, f"{name}: {message}", "tone.wav", "-o", name, "--verify", *form,
                 prefix=["env", f"LD_PRELOAD={faulty_io}"])


@pytest.mark.parametrize("form", ["--adts", "--m4a"])
def test_broken_pipes_and_file_size_limits(tavik, sound, form):
    source = sound("noise.flac", NOISE, 44100, 882000)
    os.mkfifo("pipe")
    for output in ("-", "pipe"):
        pipe = os.open("pipe", os.O_RDONLY | os.O_NONBLOCK)
        process = tavik.start(source, "-o", output, form)
        ready, _, _ = select.select([process.stdout if output == "-" else pipe], [], [], PATIENCE)
        assert ready
        process.stdout.close()
        os.close(pipe)
        assert process.wait(PATIENCE) == 4
        assert b"Broken pipe" in process.stderr.read()
    Path("old").write_bytes(b"old")
    tavik.refuse(4, "old.*File too large", source, "-o", "old", "-f", form,
                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (16384, resource.RLIM_INFINITY)))


@pytest.mark.parametrize("number,status", [(signal.SIGINT, 130), (signal.SIGTERM, 143), (signal.SIGHUP, 129)])
@pytest.mark.parametrize("inputs", [1, 3])
def test_interruption(tavik, sound, number, status, inputs):
    """In the middle of inputs that never end."""
    data = sound("noise.wav", NOISE, 44100, 882000).read_bytes()
    Path("new").mkdir()
    names = [f"{i}.wav" for i in range(inputs)]
    for i, name in enumerate(names):
        Path(f"new/{i}.m4a").write_bytes(b"old")
        feed(name, itertools.repeat(data))
    process = tavik.start(*names, "--pcm", "s16le", "-o", "new/0.m4a" if inputs == 1 else "new", "-f", "-j", "4")
    wait_until(lambda: sum(path.stat().st_size > 100000 for path in Path("new").glob(".tavik*")) == inputs)
    process.send_signal(number)
    out, err = process.communicate(timeout=PATIENCE)
    assert (process.returncode, out, len(err.splitlines())) == (status, b"", 1), err
    assert sorted(os.listdir("new")) == [f"{i}.m4a" for i in range(inputs)]
    assert all(path.read_bytes() == b"old" for path in Path("new").iterdir())
