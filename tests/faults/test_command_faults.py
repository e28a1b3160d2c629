"""The command when one call of the system fails: no crash, a true exit code, no part of a file, and the next run gives
what it would have given."""

import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "cli"))
from conftest import BUILD, folder, speech  # noqa: F401

INJECTOR = BUILD / "tests" / "faults" / "liborvel_fault_injector.so"
KINDS = ["memory", "mmap", "open", "read", "write", "thread"]
MOST = 40  # of each kind, spread over all calls

COMMANDS = {
    "clean": (["clean", "in.wav", "out/o.wav"], "out/o.wav"),
    "clean two files at once": (["clean", "--jobs", "2", "in.wav", "two.wav", "--out-dir", "out"], "out/in.wav"),
    "vad": (["vad", "--frames", "in.wav"], None),
}


@pytest.mark.parametrize("name", COMMANDS)
def test_every_call_of_the_system_fails_once(folder, name):  # noqa: F811
    arguments, target = COMMANDS[name]
    sound = folder.save("in.wav", speech(16000, 0.2), 16000)
    (folder / "two.wav").write_bytes(sound)
    (folder / "out").mkdir()

    def run(kind: int, call: int):
        """Exit code, standard error and what was given; the counts of a run without faults are in counts."""
        for path in (folder / "out").iterdir():
            path.unlink()
        environment = folder.environment() | {
            "LD_PRELOAD": str(INJECTOR), "ORVEL_FAULT": f"{kind} {call}", "ORVEL_FAULT_COUNTS": str(folder / "counts"),
        }  # fmt: skip
        done = subprocess.run(["orvel", *arguments], cwd=folder.path, env=environment, capture_output=True)
        given = folder / target if target else None
        output = done.stdout if given is None else given.read_bytes() if given.exists() else b""
        return done.returncode, done.stderr.decode(errors="replace"), output

    code, errors, expected = run(0, 0)
    assert code == 0 and expected, errors
    counts = [int(line) for line in (folder / "counts").read_text().split()]
    problems = []
    for kind, count in enumerate(counts):
        for call in sorted({1 + i * count // min(count, MOST) for i in range(min(count, MOST))}):
            code, errors, output = run(kind, call)
            if code < 0 or code > 100:
                problems.append(f"{KINDS[kind]} {call}: signal or abort, code {code}: {errors[-200:]}")
            elif code == 0 and output != expected:
                problems.append(f"{KINDS[kind]} {call}: success with another output")
            elif code != 0 and not errors.strip():
                problems.append(f"{KINDS[kind]} {call}: fails with code {code} without a reason")
            elif code != 0 and target and output not in (b"", expected):
                problems.append(f"{KINDS[kind]} {call}: part of a file is left")
            elif any(path.name.endswith(".part") for path in (folder / "out").iterdir()):
                problems.append(f"{KINDS[kind]} {call}: a .part file is left")
    print(f"\n{name}: " + ", ".join(f"{count} {kind}" for count, kind in zip(counts, KINDS)))
    assert not problems, "\n".join(problems)
    assert run(0, 0)[2] == expected
