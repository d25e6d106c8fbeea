"""Wrong usage, unusable input, output that cannot be written, interruption."""
import os
import re
import shutil
import signal
import subprocess
from pathlib import Path

import pytest
from audio_files import decode, ffmpeg, write_noise
from conftest import NOISE, unfinished
from waiting import PATIENCE, wait_until


@pytest.fixture
def tone(sound):
    shutil.copy(sound(), "tone.wav")


@pytest.mark.parametrize("pattern,arguments", [
    ("INPUT", ""),
    ("--bogus", "tone.wav --bogus"),
    ("--mode: .*quad", "tone.wav --mode quad"),
    ("--rate: .*44000", "tone.wav --rate 44000"),
    ("--ad.. excludes --ad..", "tone.wav --adts --adif"),
    ("excludes", "tone.wav --adif --raw-frames"),
    ("--tag: .*=calm", "tone.wav --tag =calm"),
    ("--bitrate: .*fast", "tone.wav -b fast"),
    ("-b 15998: must be 16000 to 529200 for 2 channels at 44100 Hz", "tone.wav -b 15998"),
    ("-b 64: .* 64k", "tone.wav -b 64"),
    ("-b 64001: must divide", "tone.wav -b 64001"),
    ("--pcm: .*s8", "tone.wav --pcm s8"),
    ("--pcm: .*s16le:44100:2:1", "tone.wav --pcm s16le:44100:2:1"),
    ("--jobs: .*", "tone.wav -j 0"),
    ("--output", "-"),
    ("standard input can be read only once", "- - -o new/"),
    ("standard input can be read only once", "- /dev/stdin -o new/"),
    ("--verify", "tone.wav -o - --verify"),
    ("--verify", "tone.wav -o pipe --verify"),
    ("only one input", "folder -o -"),
    ("tone.flac.*not a directory", "folder -o tone.flac"),
    ("--skip-existing", "tone.wav -f --skip-existing"),
    *[(f"{name}: use .m4a .mp4 .m4b .aac .adts .adif .*raw", f"tone.wav -o {name}")
      for name in ("x.mp3", "x.WAV", "x.ogg", "x.raw", "x.mkv", "x.anything")],
    ("x.m4a: with --adts use .aac .adts", "tone.wav --adts -o x.m4a"),
    ("x.mp3: with --m4a use .m4a .mp4 .m4b", "tone.wav --m4a -o x.mp3"),
    *[(f"{name}: .* several outputs; for a directory use {name}/", f"{inputs} -o {name}")
      for name, inputs in (("x.m4a", "tone.wav tone.flac"), ("x.mp3", "folder"))],
])
def test_wrong_usage(tavik, tone, pattern, arguments):
    Path("folder").mkdir()
    for copy in ("tone.flac", "folder/a.wav", "folder/b.wav"):
        shutil.copy("tone.wav", copy)
    os.mkfifo("pipe")
    tavik.refuse(2, pattern, *arguments.split())


def test_unusable_input(tavik, tone):
    Path("directory").mkdir()
    ffmpeg("-f", "lavfi", "-i", "color=red:s=64x64:d=1", "silent.mp4")
    for name, content in (("empty.wav", b""), ("line\nbreak\x1b\x7f.wav", b""), ("text.txt", b"not audio\n" * 2000),
                          ("header.wav", Path("tone.wav").read_bytes()[:44])):
        Path(name).write_bytes(content)
    for name, problem in (("missing.wav", ".*No such file"), ("empty.wav", ".*empty"), ("line\nbreak\x1b\x7f.wav", ""),
                          ("text.txt", ""), ("header.wav", ""), ("silent.mp4", ".*no audio"),
                          ("directory", ".*no audio")):
        tavik.refuse(3, re.sub("[\n\x1b\x7f]", r"[?]", name) + ": " + problem, name, "-o", "new/")


def test_advice_for_urls_and_directories_of_films(tavik):
    for url, advice in (("https://a.b/c.mp3", "curl .*tavik - "), ("rtsp://a.b/c", "ffmpeg .*tavik - "),
                        ("file:///a", "the file itself")):
        tavik.refuse(3, f"{url}: .*URL.*{advice}", url, "-o", "x.m4a")
    for name in ("films/sub/A.MKV", "films/b.mp4", "films/c.txt"):
        Path(name).parent.mkdir(parents=True, exist_ok=True)
        Path(name).touch()
    tavik.refuse(3, "films: no audio files, but 2 films; .*: tavik films/b.mp4", "films")


@pytest.mark.parametrize("kind,name,piped", [
    *[("truncated", name, False) for name in ("x.wav", "x.flac", "x.mp3", "x.ogg", "x.m4a")],
    *[("truncated", name, True) for name in ("x.wav", "x.flac")],  # others do not declare their length
    *[("damaged", name, False) for name in ("x.flac", "x.mp3", "x.ogg", "x.m4a")], ("damaged", "x.flac", True),
])
def test_damaged_input(tavik, sound, kind, name, piped):
    options = ("-c:a", "alac", "-movflags", "faststart") if name == "x.m4a" else ()
    data = sound(name, NOISE, 44100, 441000, *options).read_bytes()
    half = len(data) // 2
    data = data[:half] if kind == "truncated" else data[:half] + b"damage" * 500 + data[half + 3000:]
    Path(name).write_bytes(data)
    source, data = ("-", data) if piped else (name, None)
    run = tavik.run(source, "-o", "out.m4a", data=data)
    assert (run.status, len(run.err), len(run.out)) == (0, 1 + (kind == "damaged"), 1), run
    assert f": warning: {kind}" in run.err[0]
    assert run.err[1:] == [] or ": warning: hole of " in run.err[1]
    low, high = (150000, 240000) if kind == "truncated" else (430000 if name == "x.mp3" else 441000, 442000)
    assert low <= len(decode("out.m4a")[1]) <= high
    os.remove("out.m4a")
    tavik.refuse(3, kind, source, "-o", "out.m4a", "--strict", data=data)


def test_data_after_the_audio_is_no_damage(tavik, sound):
    for name, tag in (("x.flac", b"TAG".ljust(128, b"\0")), ("x.mp3", bytes(5000)), ("x.mp3", b"LYRICSBEGIN" * 99)):
        Path(name).write_bytes(sound(name, NOISE, 44100, 441000).read_bytes() + tag)
        tavik.encode(name, "--strict", "-f")


def test_full_file_system(tavik):
    if subprocess.run(["unshare", "-rm", "true"], capture_output=True, check=False).returncode != 0:
        pytest.skip("needs a mount namespace")
    Path("small").mkdir()
    write_noise("x.wav", 441000)
    script = 'mount -t tmpfs -o size=64k tmpfs small; "$@"; status=$?; test -z "$(ls -A small)" && exit $status'
    for name in ("small/x.m4a", "small/x.aac"):
        tavik.refuse(4, f"{name}: .*No space left", "x.wav", "-o", name,
                     within=f"exec unshare -rm bash -c '{script}' bash \"$@\"")


def test_outputs_that_cannot_be_written(tavik, tone):
    Path("file").touch()
    Path("locked").mkdir(0o555)
    Path("old.m4a").touch(0o444)
    # root, but without the capability to ignore permissions
    within = 'setpriv --bounding-set=-dac_override,-dac_read_search "$@"' if os.geteuid() == 0 else None
    for name, problem in (("locked/x.m4a", "Permission denied"), ("none/x.m4a", "No such file"),
                          ("file/x.m4a", "Not a directory"), ("old.m4a", "Permission denied")):
        tavik.refuse(4, f"{name}: .*{problem}", "tone.wav", "-o", name, "-f", within=within)


@pytest.mark.parametrize("form", ["--adts", "--m4a"])
def test_full_streams_broken_pipes_and_size_limits(tavik, sound, form):
    source = sound("noise.flac", NOISE, 44100, 882000)
    os.mkfifo("pipe")
    Path("old").write_bytes(b"old")
    for output, problem, within in (
            ("-", "No space", '"$@" >/dev/full'),
            ("-", "Broken pipe", 'set -o pipefail; "$@" | head -c 1 >/dev/null'),
            ("pipe", "Broken pipe", 'head -c 1 pipe >/dev/null & "$@"'),
            ("old", "File too large", 'ulimit -f 16; "$@"')):
        tavik.refuse(4, f"{output if output != '-' else 'standard output'}: .*{problem}", source, "-o", output, "-f",
                     form, within=within)


def test_full_device(tavik, tone):
    device = "/dev/full"
    if os.geteuid() == 0:  # as root, a faulty program would replace the machine's device
        device = "full"
        try:
            os.mknod(device, 0o20666, os.makedev(1, 7))
        except PermissionError:
            pytest.skip("needs to make a device")
    tavik.refuse(4, f"{device}: .*No space", "tone.wav", "-o", device, "-f", "--adts")


def test_reports_that_cannot_be_written(tavik, tone):
    for arguments in (["tone.wav"], ["--help"]):
        run = tavik.run(*arguments, within='"$@" >/dev/full')
        assert run.status == 4 and "tavik: standard output: cannot write" in run.err[0]


@pytest.mark.parametrize("name", ["x.m4a", "x.aac", "x.adif", "x.raw"])
def test_verification(tavik, tone, request, name):
    """Accepts correct outputs; detects a disk that stores wrong data or reports a failed write late."""
    arguments = ["-o", name, "--verify", "--raw-frames" if name == "x.raw" else "--quiet"]
    for samples in (1, 3000, 100000):
        write_noise("noise.wav", samples)
        tavik.encode("noise.wav", *arguments, "-f")
    os.remove(name)
    for fault, message in (("write", "verification failed"), ("fsync", "cannot write: Input/output error"),
                           ("close", "cannot write: No space left")):
        environment = f"LD_PRELOAD={request.config.getoption('--faulty-io')} TAVIK_TEST_FAULT={fault}"
        tavik.refuse(4, f"{name}: {message}", "tone.wav", *arguments, within=f'exec env {environment} "$@"')


@pytest.mark.parametrize("number,status,inputs", [(signal.SIGINT, 130, 1), (signal.SIGTERM, 143, 3),
                                                  (signal.SIGHUP, 129, 1)])
def test_interruption(tavik, number, status, inputs):
    """While it encodes inputs that never end."""
    Path("new").mkdir()
    names = [f"{i}.wav" for i in range(inputs)]
    for i, name in enumerate(names):
        Path(f"new/{i}.m4a").write_bytes(b"old")
        os.mkfifo(name)
    feed = "".join(f"cat /dev/urandom >{name} & " for name in names)
    process = tavik.start(*names, "--pcm", "s16le", "-o", "new/0.m4a" if inputs == 1 else "new", "-f", "-j", "4",
                          within=f'{feed} exec "$@"')
    wait_until(lambda: sum(size > 100000 for size in unfinished(process)) == inputs)
    process.send_signal(number)
    out, err = process.communicate(timeout=PATIENCE)
    assert (process.returncode, out, len(err.splitlines())) == (status, b"", 1), err
    assert {path.name: path.read_bytes() for path in Path("new").iterdir()} == {
        f"{i}.m4a": b"old" for i in range(inputs)}
