"""scripts/check-docs finds what is wrong, in a small project that is right but for one thing."""

import subprocess
import sys

import pytest
from blocks import ROOT

HEADER = "#define ORV_VERSION_{} {}\n"
PROJECT = {
    "include/orvel/orv_version.h": "".join(
        HEADER.format(*pair) for pair in [("MAJOR", 2), ("MINOR", 1), ("PATCH", 0), ("STRING", '"2.1.0"')]
    ),
    "CHANGELOG.md": "## [Unreleased]\n\n## [2.1.0] - 2030-01-02\n\n## [2.0.0] - 2029-01-02\n",
    "README.md": "Version 2.1.0. [more](docs/quality.md), `scripts/*`, `scripts/run`, `models/NAME.md`\n\n"
    "| | PESQ | CPU |\n|---|---|---|\n| `ours` | 1.5 | 1 |\n",
    "docs/quality.md": "|  | PESQ | × orvel-16k |\n| --- | --- | --- |\n| ours | 1.50 | 1.00 |\n",
    "docs/performance.md": "Frames of 10 ms.\n<!-- begin table -->\n1.5\n<!-- end table -->\n",
    "docs/troubleshooting.md": "`PATH: cannot be opened, is it there` means that it is not.\n",
    "weights/open.cpp": 'throw Error(path + ": cannot be "\n  "opened, is it there");\n',
    "scripts/run": "",
    "web/package.json": '{ "version": "2.1.0" }',
}
FAULTS = [
    ("CHANGELOG.md", "2.1.0", "2.2.0", "CHANGELOG.md: the newest release is 2.2.0, the version 2.1.0"),
    ("CHANGELOG.md", " - 2029-01-02", "", "CHANGELOG.md: the release 2.0.0 has no date"),
    ("README.md", "Version 2.1.0", "Version 2.0.0", "README.md: states version 2.0.0, the version is 2.1.0"),
    ("include/orvel/orv_version.h", '"2.1.0"', '"2.1.1"', "orv_version.h: ORV_VERSION_STRING is not 2.1.0"),
    ("README.md", "docs/quality.md", "docs/good.md", "README.md:1: docs/good.md does not exist"),
    ("README.md", "`scripts/run`", "`scripts/walk`", "README.md:1: scripts/walk does not exist"),
    ("README.md", "`scripts/*`", "`tools/*`", "README.md:1: tools/* does not exist"),
    ("README.md", "| 1.5 |", "| 1.6 |", "README.md: ours, PESQ: 1.6, in docs/quality.md 1.50"),
    ("web/package.json", "2.1.0", "2.0.0", "web/package.json: the version is not 2.1.0"),
    ("weights/open.cpp", "is it", "was it", "does not quote 'cannot be opened, was it there' of weights/open.cpp"),
    ("docs/performance.md", "10 ms", "10.5 ms", "docs/performance.md:1: the figure 10.5 is typed"),
]


def check(folder, *fault):
    name, old, new = fault or ("README.md", "", "")
    for path, text in PROJECT.items():
        (folder / path).parent.mkdir(parents=True, exist_ok=True)
        (folder / path).write_text(text.replace(old, new, 1) if path == name else text)
    subprocess.run(["git", "init", "-q", folder], check=True)
    command = [sys.executable, ROOT / "scripts" / "check-docs", folder]
    return subprocess.run(command, text=True, capture_output=True)


def test_a_right_project_passes(tmp_path):
    done = check(tmp_path)
    assert done.returncode == 0, done.stderr


@pytest.mark.parametrize(("name", "old", "new", "message"), FAULTS, ids=[fault[3] for fault in FAULTS])
def test_a_fault_is_named(tmp_path, name, old, new, message):
    done = check(tmp_path, name, old, new)
    assert done.returncode == 1
    assert message in done.stderr and done.stderr.count("\n") == 1
