"""Runs every command and every code block of the documents.

Blocks run in a scratch folder with small recordings, against the library and the command of the
release build. NOT_RUN lists what cannot run here, why, and how it is checked instead.
"""

import functools
import os
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import soundfile
from blocks import ROOT, blocks_of, commands_of, documents

BUILD = Path(os.environ.get("ORVEL_BUILD", ROOT / "build" / "release"))
PYTHON = sys.executable

# (pattern of the command, check in place of a run, reason)
NOT_RUN = [
    (r"(sudo )?make\b", "make", "installs packages, builds or runs for minutes to hours"),
    (r"\.ci/|scripts/|bench/", "script", "builds, measures or fuzzes for minutes to hours"),
    (r"python -m samples", "source", "measures for a minute with packages of the demo"),
    (r"python -m orvel\.corpus", "module", "needs a corpus; python/tests/test_corpus.py runs it"),
    (r"pip install", "package", "installs packages; make wheel-test does"),
    (r"python -m (training|evaluation)", "module", "needs recordings that are not part of the project"),
    (r"(LADSPA_PATH=\S+ )?pipewire|gst-launch-1.0|ffmpeg .*[=:]orvel", "hosts", "tests/plugins runs it in the host"),
    (r"sudo apt install", "Debian", "scripts/check-packages installs them on a bare system"),
    (r"cmake --preset|cmake --build --preset|ctest --preset", "preset", "builds everything"),
]
# Programs that stand in for those that need a sound card, or packages that nothing else here needs.
STAND_INS = {
    "arecord": "#!/bin/bash\nexec head -c 96000 /dev/zero\n",
    "ffmpeg": "#!/bin/bash\nexec cat noisy.wav\n",
    "aplay": "#!/bin/bash\nexec cat > played.raw\n",
}
ALL = [block for document in documents() for block in blocks_of(document)]
# What needs more packages is run by python/tests/ecosystem.
PYTHON_BLOCKS = [b for b in ALL if b.language == "python" and not re.search("import (datasets|lhotse)", b.text)]


def run(command, folder, **environment):
    """Runs a shell command in `folder`; the test fails with all it said when the command fails."""
    done = subprocess.run(
        ["bash", "-o", "pipefail", "-c", command],
        cwd=folder,
        text=True,
        capture_output=True,
        timeout=300,
        env={**os.environ, **{name: str(value) for name, value in environment.items()}},
    )
    assert done.returncode == 0, f"{command}\nexit code {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout + done.stderr


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    """The library as installed."""
    folder = tmp_path_factory.mktemp("prefix")
    run(f"cmake --install {BUILD} --prefix {folder}", ROOT)
    return folder


@pytest.fixture(scope="session")
def scratch(tmp_path_factory, prefix):
    """A folder with recordings under the names that the documents use, and stand-ins in bin/."""
    folder = tmp_path_factory.mktemp("scratch")
    random = np.random.default_rng(5)
    tone = np.sin(np.arange(96000) * 0.03) * (np.arange(96000) // 12000 % 2)
    sound = 0.2 * tone + 0.01 * random.standard_normal(96000)
    for name in ("noisy.wav", "in.wav", "talk.wav", "one.flac", "two.flac", "meeting.ogg", "call.wav"):
        soundfile.write(folder / name, sound, 48000)
    (folder / "noisy.raw").write_bytes((sound * 32767).astype("<i2").tobytes())
    # The program that README's commands compile.
    (folder / "app.c").write_text(
        whole_program(next(b for b in ALL if b.document == "README.md" and b.language == "c"))
    )
    (folder / "models").symlink_to(ROOT / "models")
    (folder / "bin").mkdir()
    for name, text in STAND_INS.items():
        (folder / "bin" / name).write_text(text)
        (folder / "bin" / name).chmod(0o755)
    return folder


@pytest.fixture(scope="session")
def environment(prefix, scratch):
    libraries = next(prefix.glob("lib*/**/liborvel.so")).parent
    return {
        "PATH": f"{scratch / 'bin'}:{prefix / 'bin'}:{Path(PYTHON).parent}:{os.environ['PATH']}",
        "PKG_CONFIG_PATH": libraries / "pkgconfig",
        "LD_LIBRARY_PATH": libraries,
        "PYTHONPATH": ROOT / "python",
        "ORVEL_LIBRARY": libraries / "liborvel.so.1",
    }


@functools.cache
def module_help(module):
    return run(f"{PYTHON} -m {module} --help", ROOT, PYTHONPATH=f"{ROOT}:{ROOT / 'python'}")


def options_in(command):
    return re.findall(r"(?<![\w-])(--[a-z][a-z-]*)", command)


def check_instead(how, command, block):
    """What stands in for running a command of NOT_RUN."""
    words = shlex.split(command.removeprefix("sudo "), comments=True)
    if how == "make":
        targets = [word for word in words[1:] if "=" not in word and word != "TARGET"]
        settings = [word for word in words[1:] if "=" in word]
        if "train" in targets:
            settings = settings or ["MODEL=orvel-16k", "DATA=folder"]
        run(shlex.join(["make", "-n", *settings, *(targets or ["help"])]), ROOT)
    elif how == "hosts":
        assert block.document.endswith("plugins.md"), f"{block}: tests/plugins reads docs/plugins.md only"
    elif how == "Debian":
        for file in words[2:]:
            assert file.removeprefix(".") in (ROOT / "scripts/check-packages").read_text(), (
                f"{block}: {file} is not tried"
            )
    elif how == "package":
        assert words[2].partition("[")[0] in ("orvel", "./python"), f"{block}: no package of this project"
    elif how == "preset":
        presets = re.findall(r'"name": "([a-z-]+)"', (ROOT / "CMakePresets.json").read_text())
        for preset in re.findall(r"--preset (\S+)", command):
            assert preset in presets, f"{block}: no preset {preset}"
    else:
        program = words[0] if how == "script" else words[2]
        path = ROOT / (program if how == "script" else f"{program.replace('.', '/')}.py")
        assert how != "script" or os.access(path, os.X_OK), f"{block}: {program} is no program of this project"
        known = module_help(program) if how == "module" else path.read_text()
        for option in options_in(command):
            assert option in known, f"{block}: {program} knows no {option}"


def rule_for(command):
    return next(((how, reason) for pattern, how, reason in NOT_RUN if re.match(pattern, command)), None)


@pytest.mark.parametrize("block", [b for b in ALL if b.language == "sh" and not b.inline], ids=str)
def test_shell_block(block, scratch, environment):
    commands = commands_of(block.text)
    assert commands, f"{block}: an empty block"
    for command in commands:
        rule = rule_for(command)
        if rule:
            check_instead(rule[0], command, block)
        else:
            run(command, scratch, **environment)
            for name in ("clean.wav", "out.wav", "cleaned", "talk-clean.wav", "report.html"):
                path = scratch / name
                shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)


@pytest.mark.parametrize("block", [b for b in ALL if b.inline], ids=str)
def test_command_in_the_text(block, environment):
    rule = rule_for(block.text)
    if rule:
        check_instead(rule[0], block.text, block)
        return
    words = block.text.split()
    known = "".join(
        run(f"{words[0]} {command} --help", ROOT, **environment)
        for command in (words[1:2] if words[1:2] and re.fullmatch("[a-z]+", words[1]) else [""])
    )
    for option in options_in(block.text):
        assert option in known, f"{block}: {words[0]} knows no {option}"


def whole_program(block):
    """The block, with a main() around its declarations and statements where it has none."""
    if "main(" in block.text:
        return block.text
    lines = block.text.splitlines()
    last = max(i for i, line in enumerate(lines) if line.startswith("#include"))
    return "\n".join([*lines[: last + 1], "int main(void) {", *lines[last + 1 :], "return 0;", "}", ""])


@pytest.mark.parametrize("block", [b for b in ALL if b.language in ("c", "cpp")], ids=str)
def test_c_and_cpp_block(block, scratch, environment):
    source = scratch / f"block.{block.language}"
    source.write_text(whole_program(block))
    compiler = {"c": "cc -std=c99", "cpp": "c++ -std=c++20"}[block.language]
    run(
        f"{compiler} -Wall -Wextra -Werror {source.name} -o block $(pkg-config --cflags --libs orvel)",
        scratch,
        **environment,
    )
    run("./block < noisy.raw > cleaned.raw", scratch, **environment)
    assert (scratch / "cleaned.raw").stat().st_size == (scratch / "noisy.raw").stat().st_size


@pytest.mark.parametrize("block", PYTHON_BLOCKS, ids=str)
def test_python_block(block, scratch, environment):
    (scratch / "block.py").write_text(block.text)
    run(f"{PYTHON} block.py", scratch, **environment)


@pytest.mark.parametrize("block", [b for b in ALL if b.language == "cmake"], ids=str)
def test_cmake_block(block, scratch, prefix):
    folder = scratch / "cmake"
    folder.mkdir()
    (folder / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.16)\nproject(app LANGUAGES C)\nadd_executable(app app.c)\n" + block.text
    )
    (folder / "app.c").write_text("#include <orvel/orv_sdk.h>\nint main(void) { return !Orv_SDK_GlobalDestroy(); }\n")
    run(f"cmake -S . -B build -DCMAKE_PREFIX_PATH={prefix} && cmake --build build && build/app", folder)


def test_every_rule_is_needed():
    """A rule that matches no command any more would hide the next one that does."""
    commands = [c for b in ALL if b.language == "sh" for c in ([b.text] if b.inline else commands_of(b.text))]
    for pattern, _, _ in NOT_RUN:
        assert any(re.match(pattern, command) for command in commands), pattern
