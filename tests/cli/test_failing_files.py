"""What cannot be opened, written or closed: the reason is said, the exit code is that of an error, and no part of a
file is left."""

import shlex
import sys
from pathlib import Path

import pytest
from conftest import speech

REFUSE = shlex.join([sys.executable, str(Path(__file__).with_name("refuse_calls.py"))])


@pytest.fixture
def place(folder):
    """The folder with a recording and an empty folder for outputs."""
    folder.save("in.wav", speech(16000, 1.0), 16000)
    (folder / "out").mkdir()
    return folder


# The disk is full when the last byte comes: some formats write it while they are closed. With and without
# files that have no name until they are complete.
@pytest.mark.parametrize("format", ["wav", "flac", "ogg", "opus", "mp3", "aiff", "au", "caf", "w64", "rf64", "raw"])
def test_a_full_disk_is_seen_up_to_the_last_byte(place, format):
    place.run(f"orvel clean in.wav whole.{format}")
    size = (place / f"whole.{format}").stat().st_size
    for most in (size - 1, size // 2, 10):
        for start in ("", f"{REFUSE} nameless EOPNOTSUPP "):
            command = f"{start}prlimit --fsize={most} orvel clean in.wav out/o.{format} 2> >(cat >&2)"
            place.refuses([(command, 4, f"out/o.{format}: writing failed: File too large")])
            assert place.listed("out") == ""


def test_what_the_system_refuses_is_said(place):
    io = "failed: Input/output error"
    read_only = f"{REFUSE} nameless EOPNOTSUPP {REFUSE} create EROFS"
    place.refuses([
        (f"{REFUSE} fsync EIO orvel clean in.wav out/o.wav", 4, f"out/o.wav: writing {io}"),
        (f"{REFUSE} close EIO orvel clean in.wav out/o.wav", 4, f"out/o.wav: closing {io}"),
        (f"{REFUSE} close EIO orvel clean in.wav out/o.raw", 4, f"out/o.raw: closing {io}"),
        (f"{REFUSE} close-output EIO orvel clean in.wav - > whole.raw", 4, f"standard output: closing {io}"),
        (f"{REFUSE} close-output EIO orvel vad in.wav > scores", 4, f"standard output: closing {io}"),
        (f"{REFUSE} linkat EPERM orvel clean in.wav out/o.wav", 4, "cannot name the finished file"),
        (f"{read_only} orvel clean in.wav out/o.wav", 4, "cannot create a file in 'out': Read-only"),
    ])  # fmt: skip
    assert place.listed("out") == ""
    # File systems that can do less.
    for call, error in (("nameless", "EOPNOTSUPP"), ("renameat2", "EINVAL"), ("fsync", "EINVAL")):
        for option in ("", "--force"):
            place.run(f"rm -f out/*; {REFUSE} {call} {error} orvel clean {option} in.wav out/o.wav")
        place.refuses([(f"{REFUSE} {call} {error} orvel clean in.wav out/o.wav", 4, "exists already")])
        place.run("orvel clean in.wav usual.wav; cmp usual.wav out/o.wav; rm usual.wav")


def test_standard_output_is_checked(place):
    commands = ["clean in.wav -", "clean --container wav in.wav -", "vad in.wav", "vad --frames --json in.wav"]
    commands += ["info orvel-16k", "models", "models --json", "keys", "--help", "clean --help", "--version"]
    for command in commands:
        for target in ("> /dev/full", ">&-"):
            place.refuses([(f"orvel {command} {target}", 4, "standard output: writing failed")])


def test_too_few_descriptors_are_named(place):
    """However few there are: the work is done, or the message says that they ran out."""
    place.run("orvel clean in.wav in.flac")
    commands = ["clean in.flac out/o.wav", "clean in.flac out/o.raw", "clean --set A=1 in.flac out/o.ogg"]
    for command in [*commands, "clean in.flac -", "cat | clean - out/o.flac", "vad in.flac"]:
        before, _, command = command.rpartition("| ")
        before = f"{before} in.flac |" if before else ""
        for most in range(4, 20):  # below 4 the program's own libraries cannot be loaded
            script = f"{before} prlimit --nofile={most} orvel {command} > printed 2> said; echo $?"
            code = int(place.run(script).text)
            if code == 0:
                break
            assert "Too many open files" in (place / "said").read_text(), f"{command}: {most} descriptors"
            assert place.listed("out") == ""
        assert code == 0 and most > 4, f"{command}: the limit was never reached"
        place.run("rm -f out/*")
