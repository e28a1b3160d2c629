"""Whole corpora: every form of input, broken inputs, kills."""

import json
import os
import signal
import subprocess
import sys
import tarfile
import time

import numpy as np
import pytest
import soundfile
from conftest import BROKEN, FILES

import orvel
from orvel.corpus.__main__ import main

GOOD = sorted(FILES)


def sounds(folder):
    """Every recording below a folder, decoded: an Ogg file has a random number in it."""
    files = [path for path in sorted(folder.rglob("*")) if path.suffix in (".wav", ".flac", ".ogg")]
    return {path.relative_to(folder).as_posix(): soundfile.read(path)[0] for path in files}


def assert_same(some, others, most=0.0):
    """The same names and samples; batches of other recordings round floats in another way."""
    assert sorted(some) == sorted(others)
    for name, audio in some.items():
        loss = max(most, 0.02 if most and name.endswith(".ogg") else 0.0)
        assert audio.shape == others[name].shape and np.max(np.abs(audio - others[name])) <= loss, name


def lines(path):
    return [json.loads(line) for line in path.read_text().splitlines()]


@pytest.fixture(scope="module")
def cleaned(tree, tmp_path_factory):
    """The tree, cleaned in one run."""
    out = tmp_path_factory.mktemp("cleaned")
    assert main(["clean", str(tree), str(out), "--quiet", "--jobs", "1"]) == 1  # some are broken
    return out


def test_a_tree_keeps_its_names_formats_and_lengths(tree, cleaned):
    assert sorted(sounds(cleaned)) == GOOD
    for name, (rate, channels, subtype, _) in FILES.items():
        before, after = soundfile.info(tree / name), soundfile.info(cleaned / name)
        assert (after.samplerate, after.channels, after.subtype) == (rate, channels, subtype)
        assert after.frames == before.frames
        audio, _ = soundfile.read(tree / name, dtype="float32")
        alone = orvel.clean(audio, rate, axis=0)
        loss = 0.02 if subtype == "VORBIS" else 1e-4
        assert np.max(np.abs(soundfile.read(cleaned / name, dtype="float32")[0] - alone)) < loss
    assert sorted(line["input"] for line in lines(cleaned / "errors.jsonl")) == sorted(str(tree / n) for n in BROKEN)
    report = json.loads((cleaned / "summary.json").read_text())
    assert (report["recordings"], report["errors"]) == (len(FILES), len(BROKEN))
    assert report["hours"] == pytest.approx(sum(one[3] for one in FILES.values()) / 3600.0, abs=1e-4)
    assert report["level_after_dbfs"] < report["level_before_dbfs"] < 0.0


def test_a_second_run_does_what_is_left(tree, cleaned, capsys):
    stamps = {name: (cleaned / name).stat().st_mtime_ns for name in GOOD}
    with (cleaned / "journal.jsonl").open("a") as journal:
        journal.write('{"unit": 7, "resu')  # a kill in the middle of a line
    left = cleaned / "b" / ".c.wav.1234.part"
    left.write_bytes(b"half")
    (cleaned / "errors.jsonl").write_text("")
    assert main(["clean", str(tree), str(cleaned), "--quiet", "--jobs", "1"]) == 1
    assert len(lines(cleaned / "errors.jsonl")) == len(BROKEN) and not left.exists()
    assert all((cleaned / name).stat().st_mtime_ns >= stamps[name] for name in GOOD)
    assert main(["clean", str(tree), str(cleaned), "--quiet", "--attenuation-limit", "6"]) == 2
    assert "another folder" in capsys.readouterr().err


@pytest.mark.parametrize("form", ["jsonl", "scp"])
def test_lists_come_out_as_they_went_in(form, tree, cleaned, tmp_path):
    names = [*GOOD, *BROKEN]
    if form == "jsonl":
        source = tree / "list.jsonl"
        rows = [json.dumps({"audio_filepath": name, "text": name.upper()}) for name in names]
    else:
        source, rows = tree / "wav.scp", [f"utt{index} {name}" for index, name in enumerate(names)] + ["utt9 sox x |"]
    source.write_text("\n".join(rows) + "\n")
    assert main(["clean", str(source), str(tmp_path), "--quiet", "--jobs", "1"]) == 1
    if form == "jsonl":
        done = [(line["audio_filepath"], line["text"]) for line in lines(tmp_path / "manifest.jsonl")]
        assert done == [(name, name.upper()) for name in GOOD]
        assert_same(sounds(tmp_path), sounds(cleaned), 1e-4)
        return
    rows = [row.split() for row in (tmp_path / "wav.scp").read_text().splitlines()]
    assert [key for key, _ in rows] == [f"utt{index}" for index in range(len(GOOD))]
    for (_, path), name in zip(rows, GOOD, strict=True):
        assert soundfile.info(path).frames == soundfile.info(cleaned / name).frames
    assert any("command" in line["error"] for line in lines(tmp_path / "errors.jsonl"))


def test_shards_keep_their_samples(shards, cleaned, tmp_path):
    assert main(["clean", str(shards), str(tmp_path), "--quiet", "--jobs", "2"]) == 1
    found = {}
    for path in sorted(tmp_path.glob("*.tar")):
        with tarfile.open(path) as tar:
            found.update({info.name: tar.extractfile(info).read() for info in tar})
    audio = {name: content for name, content in found.items() if not name.endswith(".json")}
    assert sorted(audio) == GOOD and len(found) == 2 * len(GOOD)
    for name in GOOD:
        assert json.loads(found[f"{name.partition('.')[0]}.json"]) == {"text": name}
        frames = soundfile.info(cleaned / name).frames
        (tmp_path / "one").write_bytes(audio[name])
        assert soundfile.info(tmp_path / "one").frames == frames
    assert {line["input"].rpartition(":")[2] for line in lines(tmp_path / "errors.jsonl")} == set(BROKEN)


def test_speech_is_listed(tree, shards, tmp_path):
    assert main(["vad", str(tree), str(tmp_path / "tree"), "--quiet", "--jobs", "1", "--threshold", "0.3"]) == 1
    found = {line["input"]: line for line in lines(tmp_path / "tree" / "segments.jsonl")}
    assert sorted(found) == sorted(str(tree / name) for name in GOOD)
    for name, (rate, _, _, seconds) in FILES.items():
        audio, _ = soundfile.read(tree / name, dtype="float32")
        alone = orvel.VoiceDetector(rate).segments(audio, axis=0, threshold=0.3)
        assert found[str(tree / name)]["segments"] == [[s.start, s.end, round(s.score, 4)] for s in alone]
        assert found[str(tree / name)]["duration"] == pytest.approx(seconds, abs=1e-3)
    assert main(["vad", str(shards), str(tmp_path / "shards"), "--quiet", "--jobs", "1"]) == 1
    with tarfile.open(tmp_path / "shards" / "part-0.tar") as tar:
        assert set(tar.getnames()) == {f"{name.partition('.')[0]}.vad.json" for name in GOOD[:3] + GOOD[3:4]}


def test_a_killed_worker_and_a_killed_run_lose_nothing(tree, cleaned, tmp_path):
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}
    for victim in ("worker", "run"):
        command = [sys.executable, "-m", "orvel.corpus", "clean", tree, tmp_path / victim, "--quiet"]
        command += ["--group", "2", "--jobs", "1"]
        run = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL)
        workers, end = "", time.monotonic() + 60.0
        while not workers and time.monotonic() < end:
            workers = subprocess.run(["pgrep", "-P", str(run.pid), "-f", "spawn_main"], capture_output=True).stdout
        os.kill(int(workers.split()[0]) if victim == "worker" else run.pid, signal.SIGKILL)
        code = run.wait(timeout=120)
        assert code == (1 if victim == "worker" else -signal.SIGKILL)
    again = subprocess.run(command, env=environment, stdout=subprocess.DEVNULL, check=False)
    assert again.returncode == 1
    assert_same(sounds(tmp_path / "worker"), sounds(tmp_path / "run"))
    assert_same(sounds(tmp_path / "worker"), sounds(cleaned), 1e-4)
    assert len(lines(tmp_path / "run" / "errors.jsonl")) == len(BROKEN)


@pytest.mark.parametrize(
    "arguments, words",
    [
        (["nowhere"], "nowhere"),
        (["{empty}"], "holds no audio"),
        (["{tree}", "--model", "orvel-none"], "orvel-none"),
        (["{tree}", "--attenuation-limit", "-1"], "attenuation_limit"),
    ],
)
def test_what_cannot_be_done_is_said(arguments, words, tree, tmp_path, capsys):
    (tmp_path / "empty").mkdir()
    source, *options = [one.format(tree=tree, empty=tmp_path / "empty") for one in arguments]
    assert main(["clean", source, str(tmp_path / "out"), *options]) == 2
    assert words in capsys.readouterr().err and not (tmp_path / "out").exists()
