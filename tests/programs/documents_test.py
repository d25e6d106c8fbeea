"""The man page and the completions of the shells offer the options that --help prints, no more and no less."""
import os
import pty
import re
import subprocess
from pathlib import Path

import pytest
from waiting import PATIENCE

SOURCES = Path(__file__).parents[2] / "programs" / "tavik"
COMPLETIONS = SOURCES / "completions"
VALUES = {"--mode": "mono stereo two-mono",
          "--rate": "48000 44100 32000 24000 22050 16000 12000 11025 8000",
          "--pcm": "u8 s16le s16be s24le s24be s32le s32be f32le f32be"}

ZSH = """
fpath=({folder} $fpath); autoload -Uz compinit; compinit -D -u; PS1=
compadd() {{
    local -a hits
    [[ " $* " == *" -"(O|A|D)" "* ]] || {{ builtin compadd -A hits "$@"; print -l -- $hits >>hits; }}
    builtin compadd "$@"
}}
tavik() :
{line}\t
exit
"""


def words(*command):
    run = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, check=True)
    assert not run.stderr, run.stderr
    return {line.split("\t")[0] for line in run.stdout.splitlines()}


def bash(line):
    script = """source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _tavik
                printf '%s\\n' "${COMPREPLY[@]}" """
    return words("bash", "--norc", "-c", script, "bash", COMPLETIONS / "tavik.bash", *line.split(" "))


def fish(line):
    script = 'source $argv[1]; complete -C "$argv[2]"'
    return words("fish", "--no-config", "-c", script, COMPLETIONS / "tavik.fish", line)


def zsh(line):
    """Typed on a terminal; what the completion adds is noted in the file `hits`."""
    Path("hits").write_text("")
    master, slave = pty.openpty()
    shell = subprocess.Popen(["zsh", "-f", "-i"], stdin=slave, stdout=slave, stderr=slave, start_new_session=True)
    os.close(slave)
    os.write(master, ZSH.format(folder=COMPLETIONS, line=line).encode())
    try:
        while os.read(master, 4096):
            pass
    except OSError:  # the shell has ended
        pass
    os.close(master)
    shell.wait(PATIENCE)
    return set(Path("hits").read_text().split())


@pytest.fixture(scope="module")
def options(tavik):
    """Short and long options of the help text."""
    columns = re.findall(r"(?m)^ +(-\S*)", tavik.encode("--help").data.decode())
    found = {option for column in columns for option in column.split(",")}
    assert {"-o", "--output", "--help"} < found
    return found


def test_man_page(options):
    page = (SOURCES / "tavik.1").read_text()
    described = [word for item in re.findall(r"(?m)^\.It (Fl .*)", page) for word in re.findall(r"Fl (\S+)", item)]
    assert sorted("-" + word for word in described) == sorted(options)
    assert {"-" + word for word in re.findall(r"\bFl (\S+)", page)} <= options
    assert not words("mandoc", "-T", "lint", "-W", "warning", SOURCES / "tavik.1")


@pytest.mark.parametrize("shell", [bash, fish, zsh])
def test_completions(options, shell):
    assert shell("tavik -") == options
    for option, values in VALUES.items():
        assert shell(f"tavik {option} ") == set(values.split())
