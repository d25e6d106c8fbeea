"""Which files are read and written, and what happens to existing files."""
import json
import os
import shutil
import signal
from pathlib import Path

import pytest
from audio_files import write_noise
from conftest import NOISE, snapshot, unfinished
from waiting import PATIENCE, wait_until


def names(directory="."):
    return sorted(str(path.relative_to(directory)) for path in Path(directory).rglob("*") if path.is_file())


@pytest.fixture
def music(sound):
    """A directory `music` with two songs and files to ignore, and songs outside of it."""
    for name in ("music/a.wav", "music/sub/b.wav", "music/.hidden.wav", "music/.hid/c.wav", "other.wav", "-o.wav",
                 "side:2._Allegro_(live)"):
        Path(name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(sound(), name)
    Path("music/notes.txt").write_text("text")
    Path("music/link").symlink_to("..")


@pytest.mark.parametrize("arguments,made", [
    ("-- -o.wav", ["-o.m4a"]),
    ("side:2._Allegro_(live)", ["side:2._Allegro_(live).m4a"]),
    ("other.wav --adts", ["other.aac"]),
    ("other.wav --adif", ["other.adif"]),
    ("other.wav --raw-frames", ["other.raw"]),
    ("other.wav music/a.wav", ["music/a.m4a", "other.m4a"]),
    ("other.wav -o new/", ["new/other.m4a"]),
    ("other.wav -o music --adts", ["music/other.aac"]),
    ("other.wav music/a.wav -o new", ["new/a.m4a", "new/other.m4a"]),
    ("music", ["music/a.m4a", "music/sub/b.m4a"]),
    ("music/ -o music/new", ["music/new/a.m4a", "music/new/sub/b.m4a"]),
    ("music other.wav -o new/deep --adts", ["new/deep/music/a.aac", "new/deep/music/sub/b.aac", "new/deep/other.aac"]),
])
def test_names_of_outputs_and_a_second_run(tavik, music, arguments, made):
    before = names()
    run = tavik.encode(*arguments.split())
    assert sorted(set(names()) - set(before)) == made
    assert len(run.out) == len(made) + (len(made) > 1)
    if len(made) > 1:
        assert run.out[-1].startswith(f"{len(made)} files: {len(made)} encoded; 0:0{3 * len(made)} of audio in ")

    before = snapshot()
    run = tavik.run(*arguments.split())
    assert (run.status, len(run.err)) == (1 if len(made) > 1 else 4, len(made))
    assert all("exists already (-f replaces it)" in line for line in run.err)
    run = tavik.encode("--skip-existing", *arguments.split())
    assert sum(": skipped, exists already" in line for line in run.out) == len(made)
    assert len(made) == 1 or run.out[-1].startswith(f"{len(made)} files: 0 encoded, {len(made)} skipped; ")
    assert len(tavik.encode("-f", *arguments.split()).out) == len(made) + (len(made) > 1)
    assert snapshot() == before


def test_originals_with_the_extension_of_outputs(tavik, music, sound):
    """Files with such names that tavik has not made are treated like any other input."""
    shutil.copy(sound("alac.m4a", NOISE, 44100, 50000, "-c:a", "alac"), "music/a.m4a")
    shutil.copy(sound("tone.mp2"), "music/a.aac")  # in spite of its name
    before = snapshot("music")
    for form, name in (("--m4a", "a.m4a"), ("--adts", "a.aac")):
        run = tavik.run("music", form, "-f")
        assert run.status == 1 and f"tavik: music/{name}: is an input file" in run.err
        assert f"music/{name} -> music/{name}: skipped, would be its own output" in run.out
    before_all = names()
    assert all(snapshot("music")[path] == content for path, content in before.items())
    run = tavik.run("music", "-o", "new")
    assert sorted(run.err) == [f"tavik: music/{name}: new/{place}.m4a is also the output of music/{other}"
                               for name, place, other in (("a.aac", "a", "a.m4a"), ("a.m4a", "a", "a.aac"),
                                                          ("a.wav", "a", "a.aac"), ("sub/b.aac", "sub/b", "sub/b.wav"),
                                                          ("sub/b.wav", "sub/b", "sub/b.aac"))]
    assert names() == sorted(before_all)


def test_outputs_of_earlier_runs_are_not_inputs(tavik, music):
    """MP4 files that the program has made, next to their originals."""
    for arguments, made in (("music", ["a.m4a", "sub/b.m4a"]), ("music --adts -o new", ["a.aac", "sub/b.aac"]),
                            ("music --mode mono -f", ["a.m4a", "sub/b.m4a"])):
        events = [json.loads(line) for line in tavik.encode(*arguments.split(), "--json", "--no-progress").out]
        assert sorted(event["output"].split("/", 1)[1] for event in events[:-1]) == made
    os.remove("music/a.wav")
    out = tavik.encode("music", "--skip-existing").out
    assert "music/a.m4a -> music/a.m4a: skipped, would be its own output" in out


@pytest.mark.parametrize("output,place", [([], "music"), (["-o", "new"], "new")])
def test_update(tavik, music, output, place):
    """Missing and older outputs are made, newer ones are kept, and originals are never replaced."""
    Path("music/sub/new.WAV").write_bytes(Path("other.wav").read_bytes())
    assert len(tavik.encode("music", "--update", *output).out) == 4
    for name, seconds in (("a", 0), ("sub/b", -1)):
        made = os.stat(f"{place}/{name}.m4a").st_mtime_ns
        os.utime(f"music/{name}.wav", ns=(made, made - seconds * 10**9))
    os.remove(f"{place}/sub/new.m4a")
    old = os.stat(f"{place}/sub/b.m4a").st_ino
    run = tavik.encode("music", "--update", "-j", "1", *output)
    assert [line.split(" -> ")[0] for line in run.out[:3] if "skipped, is up to date" in line] == ["music/a.wav"]
    assert run.out[3].startswith("3 files: 2 encoded, 1 skipped")
    assert os.stat(f"{place}/sub/b.m4a").st_ino != old


def test_same_output_twice(tavik, music):
    shutil.copy("other.wav", "a.wav")
    run = tavik.run("a.wav", "music/a.wav", "a.wav", "music/sub/../../other.wav", "other.wav", "-o", "new", "-j", "4")
    assert (run.status, len(run.err), Path("new").exists()) == (1, 5, False)
    assert all("new/" in line and "is also the output of" in line for line in run.err)


@pytest.mark.parametrize("name,force", [("other.m4a", "-f"), ("./music/../other.m4a", ""), ("hard.m4a", "-f"),
                                        ("soft.m4a", "-f")])
def test_an_input_is_never_overwritten(tavik, music, name, force):
    Path("other.wav").rename("other.m4a")
    Path("hard.m4a").hardlink_to("other.m4a")
    Path("soft.m4a").symlink_to("other.m4a")
    tavik.refuse(4, "is an input file", "other.m4a", "-o", name, *force.split())


def test_a_file_on_a_standard_stream_is_never_overwritten(tavik, music):
    Path("other.m4a").symlink_to("other.wav")
    tavik.refuse(4, "is an input file", "-", "-o", "other.m4a", "-f", within='"$@" <other.wav')
    tavik.refuse(4, "is an input file", "other.wav", "-o", "-", within='"$@" >>other.wav')


def test_an_output_is_never_another_input(tavik, music):
    Path("new").mkdir()
    Path("new/other.m4a").hardlink_to("music/a.wav")
    before = snapshot("music")
    run = tavik.run("other.wav", "music", "-o", "new", "-f")
    assert (run.status, len(run.err)) == (1, 1) and "is an input file" in run.err[0]
    assert snapshot("music") == before
    assert names("new") == ["music/a.m4a", "music/sub/b.m4a", "other.m4a"]


def test_existing_output(tavik, sound):
    Path("old.m4a").write_bytes(b"old")
    Path("old.m4a").chmod(0o604)
    Path("link.m4a").symlink_to("old.m4a")
    tavik.refuse(4, r"link.m4a: exists already \(-f replaces it\)", sound(), "-o", "link.m4a")
    tavik.encode(sound(), "-o", "link.m4a", "-f")
    tavik.encode(sound(), "-o", "new.m4a")
    assert Path("link.m4a").is_symlink()
    assert Path("old.m4a").read_bytes() == Path("new.m4a").read_bytes()
    assert [os.stat(name).st_mode & 0o777 for name in ("old.m4a", "new.m4a")] == [0o604, 0o640]


def test_output_that_appears_while_its_file_is_encoded(tavik, sound):
    os.mkfifo("pipe")
    appears = 'until ls -l /proc/[0-9]*/fd 2>&1 | grep -q "$PWD/#"; do sleep 0.01; done; echo other >x.m4a'
    pieces = f"head -c -9 {sound()}; {appears}; tail -c 9 {sound()}"
    run = tavik.run("pipe", "-o", "x.m4a", within=f'({pieces}) >pipe 2>/dev/null & "$@"')
    assert (run.status, len(run.err)) == (4, 1) and "exists" in run.err[0]
    assert (Path("x.m4a").read_text(), names()) == ("other\n", ["x.m4a"])


def start_endless(tavik, request, name, fault="none"):
    """A run that is encoding an endless input."""
    environment = f"LD_PRELOAD={request.config.getoption('--faulty-io')} TAVIK_TEST_FAULT={fault}"
    process = tavik.start("/dev/zero", "--pcm", "s16le", "-o", name, within=f'exec env {environment} "$@"')
    named = f".tavik-{process.pid}-1.tmp"
    wait_until(lambda: sum(unfinished(process)) + sum(file.stat().st_size for file in Path().rglob(named)) > 10000)
    return process


def kill(process):
    process.kill()
    process.wait()


def test_a_killed_run_leaves_nothing(tavik, request, sound):
    """If the file system has no unnamed files, the next run removes the file, unless it is in use."""
    kill(start_endless(tavik, request, "x.m4a"))
    assert names() == []
    kill(start_endless(tavik, request, "x.m4a", "unnamed"))
    Path(names()[0]).rename(".tavik-1-1.tmp")  # as if from another process
    running = start_endless(tavik, request, "y.m4a", "unnamed")
    assert len(names()) == 1 and names() != [".tavik-1-1.tmp"]
    tavik.encode(sound(), "-o", "z.m4a")
    kill(running)
    assert len(names()) == 2
    tavik.encode(sound(), "-o", "z.m4a", "-f")
    assert names() == ["z.m4a"]


@pytest.mark.parametrize("fault", ["none", "unnamed"])
def test_a_directory_that_is_renamed_during_the_run(tavik, request, fault):
    Path("a").mkdir()
    process = start_endless(tavik, request, "a/x.m4a", fault)
    Path("a").rename("b")
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=PATIENCE)
    assert (process.returncode, names()) == (143, [])


def test_bad_files_among_good_ones_and_jobs(tavik, music):
    """The number of jobs changes neither outputs nor messages."""
    Path("music/bad.flac").write_bytes(b"not audio" * 1000)
    Path("silence").mkdir()
    for i in range(4):
        write_noise(f"music/{i}.wav", 50000 * (i + 1))
    results = []
    for jobs in ("1", "4"):
        run = tavik.run("silence", "music", "missing.wav", "other.wav", "-o", f"new{jobs}", "-j", jobs)
        assert (run.status, len(run.err), len(run.out)) == (1, 3, 8)
        assert run.out[-1].startswith("10 files: 7 encoded, 3 failed; 0:21 of audio in ")
        assert sorted(line.split(":")[1] for line in run.err) == [" missing.wav", " music/bad.flac", " silence"]
        results.append([Path(f"new{jobs}", name).read_bytes() for name in names(f"new{jobs}")])
    assert len(results[0]) == 7 and results[0] == results[1]
