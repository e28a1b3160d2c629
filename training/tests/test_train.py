"""Whole runs on a small data folder made for them: cut and taken up again, with wrong input, with dead workers."""

import csv
import os
import re
import signal
import subprocess
import sys
import tarfile
import time

import numpy as np
import pytest
import soundfile
from conftest import CONFIGS, MODELS, ROOT

from training import accelerator, device_mixing, trainer
from training.pools import Pool, Workers
from training.train import main
from training.trainer import Guard

CONFIG = """
[model]
name = "small-model"
version = "0.0.5"
sample_rate = 8000
step = 128
first_bin = 0
end_bin = 128
compression_rate = 1
preview_frames = 2
hidden = 16
layers = 2

[training]
seed = 3
streams = 2
slots = 8
plain = 0.5
hard = 0.1
room_fade = [0.035, 0.085]
short_products = true
checkpoint_every = 4

[[stage]]
kind = "mask"
updates = 6
learning_rate = 2e-3
alpha = 1.5

[[stage]]
kind = "output"
updates = 4
learning_rate = 1e-3
alpha = 1.0
spectral = 1.0
ratio = 0.02
envelope = 0.3
soap = true

[keys]
ORVEL_COMPRESS_RATE_v0_0_5 = "1"
"""


def write_data(folder, counts=(12, 12)):
    rng = np.random.default_rng(1)
    time_s = np.arange(16000) / 8000.0
    for kind, count in zip(("speech", "noise"), counts):
        for k in range(count):
            path = folder / kind / f"voice{k % 3}" / f"{k}.wav"
            path.parent.mkdir(parents=True, exist_ok=True)
            tone = np.sin(2 * np.pi * (150 + 10 * k) * time_s) * (np.sin(2 * np.pi * time_s) > 0)
            soundfile.write(path, 0.1 * (tone if kind == "speech" else rng.normal(size=16000)), 8000)
    return folder


@pytest.fixture(autouse=True)
def few_validation_segments(monkeypatch):
    monkeypatch.setattr(trainer, "VALID_SEGMENTS", 8)
    monkeypatch.setattr(trainer, "VALID_BATCHES", 3)


@pytest.fixture(scope="module")
def data(tmp_path_factory):
    """A data folder without a manifest, and a pool filled from it, so that both runs see the same."""
    folder = write_data(tmp_path_factory.mktemp("data"))
    (folder / "config.toml").write_text(CONFIG)
    arguments = ["--data", folder, "--pool", folder / "pool", "--rate", "8000", "--slots", "8", "--limit", "8"]
    subprocess.run([sys.executable, "-m", "training.pools", *map(str, arguments)], cwd=ROOT, check=True)
    return folder


def run(data, work, *extra):
    arguments = ["--config", data / "config.toml", "--data", data, "--work", work, "--pool", data / "pool"]
    assert main([*map(str, arguments), "--workers", "0", *extra]) == 0
    with (work / "small-model" / "curve.csv").open(newline="") as handle:
        return [(r["update"], r["stage"], r["train_loss"], r["valid_loss"]) for r in csv.DictReader(handle)]


def test_a_cut_run_follows_the_same_curve_and_a_warm_start_the_weights(data, tmp_path):
    whole = run(data, tmp_path / "whole")
    assert [row[0] for row in whole] == ["4", "6", "10"]
    first = run(data, tmp_path / "cut", "--stop-after", "4")
    folder = tmp_path / "cut" / "small-model"
    assert len(first) == 1 and (folder / "export" / "small-model.bin").exists()
    # Killed while it wrote: the half-written file is left alone, a row past the checkpoint is dropped.
    (folder / "checkpoint.tmp").write_bytes(b"half")
    with (folder / "curve.csv").open("a") as handle:
        handle.write("6,mask,0,0,1.0,1.0,1.0\n")
    assert run(data, tmp_path / "cut") == whole
    want, got = (tmp_path / k / "small-model" / "export" / "small-model.bin" for k in ("whole", "cut"))
    assert want.read_bytes() == got.read_bytes()
    assert "not say" in want.with_suffix(".sources.md").read_text()
    warm = run(data, tmp_path / "warm", "--stop-after", "3", "--init-from", str(want))
    assert warm[-1][0] == "3" and float(warm[0][3]) < float(whole[0][3])


WRONG = [
    ("{configs}/orvel-17k.toml", "{data}", r"no model 'orvel-17k' in .*configs; known models: .*orvel-16k, .*-vad"),
    ("{data}/config.toml", "{tmp}/none", r"no folder .*none"),
    ("{data}/config.toml", "{tmp}/empty", r"neither MANIFEST.tsv nor speech/ and noise/ .*not readable: 1 \.m4a"),
    ("{data}/config.toml", "{tmp}/three", r"2 recordings of speech and 1 of noise, at least"),
    ("{data}/config.toml", "{tmp}/manifest", r"MANIFEST.tsv: no column class_or_speaker, split"),
    ("{tmp}/typo.toml", "{data}", r"typo.toml: \[training\] has an unknown key 'sedd'; known: seed"),
    ("{tmp}/bands.toml", "{data}", r"bands.toml: \[model\] 126 bins do not end on a band"),
    ("{data}/config.toml --init-from {tmp}/typo.toml", "{data}", r"cannot start from .*typo.toml"),
    ("{data}/config.toml --workers 0 --pool {tmp}/pool", "{data}", r"an empty pool, and no worker"),
]


@pytest.mark.parametrize(("config", "folder", "message"), WRONG)
def test_wrong_input_is_one_line_and_status_2(data, tmp_path, capsys, config, folder, message):
    write_data(tmp_path / "three", (2, 1))
    (tmp_path / "empty" / "speech").mkdir(parents=True)
    (tmp_path / "empty" / "speech" / "a.m4a").touch()
    (tmp_path / "manifest").mkdir()
    (tmp_path / "manifest" / "MANIFEST.tsv").write_text("path\tseconds\n")
    (tmp_path / "typo.toml").write_text(CONFIG.replace("seed = 3", "sedd = 3"))
    (tmp_path / "bands.toml").write_text(CONFIG.replace("end_bin = 128", "end_bin = 126"))
    places = {"configs": CONFIGS, "data": data, "tmp": tmp_path}
    arguments = ["--config", *config.format(**places).split(), "--data", folder.format(**places)]
    assert main([*arguments, "--work", str(tmp_path / "work")]) == 2
    error = capsys.readouterr().err
    assert re.match(f"train: .*{message}", error) and error.count("\n") == 1, error


def wait_for(condition, seconds=120.0):
    end = time.monotonic() + seconds
    while not condition() and time.monotonic() < end:
        time.sleep(0.05)
    return condition()


def test_a_junk_file_is_skipped_and_named(tmp_path, capsys):
    folder = write_data(tmp_path / "data", (6, 6))
    (folder / "speech" / "voice0" / "junk.wav").write_bytes(b"RIFF but no sound")
    (folder / "config.toml").write_text(CONFIG)
    arguments = ["--config", folder / "config.toml", "--data", folder, "--work", tmp_path / "work"]
    assert main([*map(str, arguments), "--stop-after", "2"]) == 0
    told = capsys.readouterr().out
    assert re.search(r"warning: skipped .*junk.wav: ", told) and "exported" in told
    # The junk is in one split only, and read once.
    assert told.count("junk.wav") == 1


def test_a_packed_run_trains_elsewhere(tmp_path, capsys, monkeypatch):
    monkeypatch.setattr(device_mixing, "MADE", 2)
    folder, archive, there = write_data(tmp_path / "data", (6, 6)), tmp_path / "run.tar", tmp_path / "there"
    (tmp_path / "config.toml").write_text(CONFIG)
    given = ["--data", folder, "--config", tmp_path / "config.toml", "--init-from", MODELS / "orvel-8k.bin"]
    pack = lambda *size: accelerator.main([str(a) for a in [archive, *given, *size]])  # noqa: E731
    assert pack("--megabytes", 0.1) == 2 and "no recording fits" in capsys.readouterr().err and not archive.exists()
    assert pack() == 0
    with tarfile.open(archive) as tar:
        tar.extractall(there)
    monkeypatch.chdir(there)
    run = ["--config", "config.toml", "--data", "data", "--work", "out", "--streams", "4", "--mix-on-device"]
    assert main([*run, "--stop-after", "2"]) == 0
    assert {"checkpoint.pkl", "curve.csv"} < {path.name for path in (there / "out" / "small-model").iterdir()}


def test_a_killed_worker_ends_the_run(data, tmp_path, capsys, monkeypatch):
    def killed(self, *arguments):
        Workers.__original__(self, *arguments)
        os.kill(self._processes[0].pid, signal.SIGKILL)

    monkeypatch.setattr(Workers, "__original__", Workers.__init__, raising=False)
    monkeypatch.setattr(Workers, "__init__", killed)
    arguments = ["--config", data / "config.toml", "--data", data, "--work", tmp_path / "work"]
    assert main([*map(str, arguments)]) == 1
    assert "train: a pool worker ended with signal 9" in capsys.readouterr().err


def test_a_worker_that_fails_tells_why_and_none_outlives_its_parent(data, tmp_path):
    pool = Pool(tmp_path / "pool", 8000, 64, 64)
    failure = pytest.raises(RuntimeError, match=r"ended with status 1: no folder .*none")
    with Workers(1, tmp_path / "none", pool, {"seed": 1}) as workers, failure:
        wait_for(lambda: workers.check())
    script = (
        "import sys; from training.pools import Pool, Workers\n"
        "w = Workers(1, sys.argv[1], Pool(sys.argv[2], 8000, 64, 64), {'seed': 1})\n"
        "print(w._processes[0].pid, flush=True); sys.stdin.read()"
    )
    parent = subprocess.Popen(
        [sys.executable, "-c", script, str(data), str(tmp_path / "pool")],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd=ROOT,
    )  # fmt: skip
    worker = int(parent.stdout.readline())
    assert wait_for(lambda: pool.speech_kind.any())
    parent.kill()
    parent.communicate()

    def gone():
        try:
            with open(f"/proc/{worker}/stat") as handle:
                return handle.read().split()[2] == "Z"
        except FileNotFoundError:
            return True

    assert wait_for(gone)


def test_runaway_losses_restart_streams_then_go_back():
    guard = Guard([("old",), ("new",)])
    for k in range(50):
        # Updates with the opinion are lower throughout: that is no runaway of the others.
        assert guard.verdict(1.0 if k % 4 else -2.0, 0.1, bool(k % 4 == 0)) == "fine"
    assert [guard.verdict(9.0, 0.1, False) for _ in range(3)] == ["restart", "restart", "back"]
    assert guard.go_back() == ("old",) and guard.slower < 0.6
    assert guard.verdict(9.0, 0.1, False) == "fine"
    assert guard.verdict(float("nan"), 0.1, False) == "back"
