"""The commands: what they refuse, where they write, and a whole small run."""

import hashlib
import os
import signal
import subprocess
import sys
import time

import numpy as np
import pytest
import soundfile

from evaluation import ROOT, __main__, peers, report
from evaluation.pairs import Pair
from evaluation.tests.voices import vowels


def digests():
    pages = [*(ROOT / "docs").glob("*.md"), *(ROOT / "docs" / "img").glob("*")]
    return {page: hashlib.sha256(page.read_bytes()).hexdigest() for page in pages}


@pytest.fixture
def files(tmp_path, library_path, command_path):
    """Options that name the build under test and a scratch folder of this test's own."""
    options = ["--library", library_path, "--command", command_path, "--scratch", tmp_path, "--out", tmp_path]
    return [str(option) for option in options]


@pytest.mark.parametrize(
    "arguments, words",
    [
        (["--nonsense"], "unrecognized arguments: --nonsense"),
        (["--only", "nonsense"], "invalid choice: 'nonsense'"),
        ([], "name their folder with --data"),
        (["--data", "/nowhere"], "no folder /nowhere"),
        (["--pairs", "/nowhere", "--only", "quality"], "/nowhere"),
        (["--models", "/nowhere"], "no models (*.ctl) in /nowhere"),
        (["--library", "/nowhere.so"], "/nowhere.so"),
        (["--command", "/nowhere"], "/nowhere"),
        (["--reuse"], "run without --reuse"),
        (["--write", "--only", "voice"], "--write needs every section"),
    ],
)
def test_what_is_unknown_or_missing_is_one_line(arguments, words, files, capsys):
    with pytest.raises(SystemExit) as stopped:
        __main__.main([*files, *arguments])
    text = capsys.readouterr().err or str(stopped.value)
    assert stopped.value.code not in (0, None) and words in text.splitlines()[-1]


def test_peers_refuses_missing_data(library_path):
    with pytest.raises(SystemExit, match="no folder /nowhere"):
        peers.main(["--data", "/nowhere", "--library", str(library_path)])


def test_peers_measure_each_system_in_a_process_of_its_own(library_path):
    clean = vowels(16000, 3.0).astype(np.float32)  # more than a pipe holds
    pairs = [Pair("000", 16000, clean, clean, clean)]
    where, core = (library_path, ROOT / "models"), min(os.sched_getaffinity(0))
    result = peers.round_robin("cleaner", ["orvel-16k-tiny"], pairs, core, where)["orvel-16k-tiny"]
    assert result["outputs"][0].shape == clean.shape and result["latency"] == pytest.approx(41.0)
    assert result["cpu"][0] > 0.0 and result["memory"] > 0.0
    with pytest.raises(RuntimeError, match="(?s)nowhere failed:.*OrvelError"):
        peers.round_robin("detector", ["nowhere"], pairs, core, where)


@pytest.fixture
def pairs(tmp_path, files):
    """Options for a run in one process on one pair."""
    folder = tmp_path / "given"
    folder.mkdir()
    clean = vowels(16000, 3.0)
    noisy = clean + 0.01 * np.random.default_rng(1).standard_normal(len(clean))
    for name, wave in (("clean", clean), ("noisy", noisy)):
        soundfile.write(folder / f"000_{name}.wav", wave, 16000)
    return [*files, "--pairs", str(folder), "--jobs", "1"]


def test_a_killed_run_leaves_no_process(pairs):
    long = [sys.executable, "-m", "evaluation", *pairs, "--only", "pictures", "stream", "--long", "60"]
    run = subprocess.Popen(long, cwd=ROOT, stdout=subprocess.PIPE, text=True, process_group=0)
    while "tasks," not in run.stdout.readline():  # said when the first task is done: the process is at work
        assert run.poll() is None
    run.kill()
    run.wait()
    for _ in range(100):
        try:
            os.killpg(run.pid, 0)
        except ProcessLookupError:
            return
        time.sleep(0.1)
    os.killpg(run.pid, signal.SIGKILL)
    pytest.fail("processes of the run go on")


def test_a_small_run_writes_beside_the_docs(tmp_path, files, pairs, capfd):
    before = digests()
    __main__.main([*pairs, "--only", "pictures"])
    assert digests() == before
    lines = capfd.readouterr().out.splitlines()
    assert lines[0] == "1 tasks in 1 processes" and lines[-1] == f"wrote {tmp_path / 'quality.md'}"
    page = (tmp_path / "quality.md").read_text()
    assert "cleaned by orvel-16k" in page and (tmp_path / "img" / "spectrograms.png").stat().st_size > 1000
    __main__.main([*files, "--reuse"])
    assert (tmp_path / "quality.md").read_text() == page


def test_tables_give_what_was_measured():
    def rows(system, pesq, rate, weight, cut=0.1):
        values = {"pesq": pesq, "stoi": 0.5, "estoi": 0.5, "si_sdr": 1.0, "ovrl": 2.0, "cut": cut}
        info = {"snr_db": 5.0, "reverberant": False}
        row = {"system": system, "pair": "000", "rate": rate, "info": info, "seconds": 2.0, "cpu_seconds": weight}
        return row | {"values": values | {"pause": float("nan")}}

    model = {"kind": "cleaner", "frame_length": 480, "hop": 240, "latency": 496, "weights": 5}
    results = {
        "jobs": 2,
        "models": [
            model | {"name": "new", "version": "0.0.6", "rate": 16000},
            model | {"name": "old", "version": "0.0.5", "rate": 16000},
        ],
        "systems": {name: {"latency": 41.0, "note": ""} for name in ("new", "old", "RNNoise", "unprocessed")},
        "rows": [
            rows("unprocessed", 1.0, 16000, 0.0),
            rows("new", 2.5, 16000, 0.02),
            rows("RNNoise", 2.0, 16000, 0.04, cut=0.25),
            rows("old", 2.25, 16000, 0.01),
        ],
    }
    text = report.text(results)
    assert "| new | 2.50 | 0.500 | 0.500 | 1.0 | 10.0 | – | 2.00 | – | 0.0100 | 1.00 | 41 |" in text
    assert "| new | +0.50 | +0.000 | +0.000 | +0.0 | – | +0.00 | +15.0 | 2.0 |" in text
    assert "| PESQ, new | 2.50 |" in text and "| PESQ, old |" not in text
    older = text.split("older versions on 1 of these pairs")[1]
    assert "| old | 2.25 |" in older and "| 0.0050 | 0.50 | 41 |" in older
