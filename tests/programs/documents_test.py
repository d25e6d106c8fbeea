"""The man page and the shell completions have exactly the options that --help prints."""
import re
import subprocess
from pathlib import Path

import pytest
from waiting import PATIENCE

SOURCES = Path(__file__).parents[2] / "programs" / "tavik"
VALUES = {"--mode": "mono stereo two-mono",
          "--rate": "48000 44100 32000 24000 22050 16000 12000 11025 8000",
          "--pcm": "u8 s16le s16be s24le s24be s32le s32be f32le f32be"}


def run(*command):
    """Runs a command in the directory of the completions and returns the printed lines."""
    process = subprocess.run(command, cwd=SOURCES / "completions", capture_output=True, text=True, timeout=PATIENCE,
                             check=True)
    assert not process.stderr, process.stderr
    return process.stdout.splitlines()


def bash(line):
    script = """source tavik.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tavik
                printf '%s\\n' "${COMPREPLY[@]}" """
    return set(run("bash", "--norc", "-c", script, "bash", *line.split(" ")))


def fish(line):
    script = 'source tavik.fish; complete -C "$argv[1]"'
    return {line.split("\t")[0] for line in run("fish", "--no-config", "-c", script, line)}


def zsh(line):
    """Parses the arguments of zsh's function _arguments: OPTION[text]:message:(values)."""
    lines = run("zsh", "-f", "-c", '_arguments() { print -l -- "$@" }; source ./_tavik')
    found = dict(re.findall(r"(?m)^(?:\(.*?\)|\*)?(-[\w-]+)[+=]?\[.*?\](?::.*:\((.*)\))?", "\n".join(lines)))
    _, option, *value = line.split(" ")
    return set(found[option].split()) if value else set(found)


@pytest.fixture(scope="module")
def options(tavik):
    """Short and long options of the help text."""
    text = tavik.encode("--help").out
    assert [line for line in text if len(line) > 80] == []
    columns = re.findall(r"(?m)^ +(-\S*)", "\n".join(text))
    found = {option for column in columns for option in column.split(",")}
    assert {"-o", "--output", "--help"} < found
    return found


def test_man_page(options):
    page = (SOURCES / "tavik.1").read_text()
    described = [word for item in re.findall(r"(?m)^\.It (Fl .*)", page) for word in re.findall(r"Fl (\S+)", item)]
    assert sorted("-" + word for word in described) == sorted(options)
    assert {"-" + word for word in re.findall(r"\bFl (\S+)", page)} <= options
    assert not run("mandoc", "-T", "lint", "-W", "warning", SOURCES / "tavik.1")


@pytest.mark.parametrize("shell", [bash, fish, zsh])
def test_completions(options, shell):
    assert shell("tavik -") == options
    for option, values in VALUES.items():
        assert shell(f"tavik {option} ") == set(values.split())
