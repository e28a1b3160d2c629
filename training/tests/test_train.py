"""A run that is cut and taken up again, on a small data folder made for it."""

import csv
import subprocess
import sys

import numpy as np
import pytest
import soundfile
from conftest import ROOT

from training.train import main

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
layers = 3

[training]
seed = 3
streams = 4
slots = 8
plain = 0.5
clicks = 0.1
short_products = true
checkpoint_every = 4

[[stage]]
kind = "mask"
updates = 8
learning_rate = 2e-3
alpha = 1.5

[[stage]]
kind = "output"
updates = 8
learning_rate = 1e-3
alpha = 1.0
spectral = 1.0
ratio = 0.02
envelope = 0.3
soap = true

[keys]
ORVEL_COMPRESS_RATE_v0_0_5 = "1"
"""


@pytest.fixture(scope="module")
def data(tmp_path_factory):
    """A data folder without a manifest, and a pool filled from it, so that both runs see the same."""
    folder = tmp_path_factory.mktemp("data")
    rng = np.random.default_rng(1)
    for kind in ("speech", "noise"):
        for k in range(24):
            path = folder / kind / f"voice{k % 3}" / f"{k}.wav"
            path.parent.mkdir(parents=True, exist_ok=True)
            time = np.arange(16000) / 8000.0
            tone = np.sin(2 * np.pi * (150 + 10 * k) * time) * (np.sin(2 * np.pi * time) > 0)
            soundfile.write(path, 0.1 * (tone if kind == "speech" else rng.normal(size=16000)), 8000)
    (folder / "config.toml").write_text(CONFIG)
    arguments = ["--data", folder, "--pool", folder / "pool", "--rate", "8000", "--slots", "8", "--limit", "8"]
    subprocess.run([sys.executable, "-m", "training.pools", *map(str, arguments)], cwd=ROOT, check=True)
    return folder


def run(data, work, *extra):
    arguments = ["--config", data / "config.toml", "--data", data, "--work", work, "--pool", data / "pool"]
    main([*map(str, arguments), "--workers", "0", *extra])
    with (work / "small-model" / "curve.csv").open(newline="") as handle:
        rows = list(csv.DictReader(handle))
    return [(r["update"], r["stage"], r["train_loss"], r["valid_loss"]) for r in rows]


def test_a_cut_run_follows_the_same_curve_and_a_warm_start_the_weights(data, tmp_path):
    whole = run(data, tmp_path / "whole")
    assert [row[0] for row in whole] == ["4", "8", "12", "16"]
    first = run(data, tmp_path / "cut", "--stop-after", "8")
    assert len(first) == 2
    # Killed while it wrote: the half-written file is left alone, a row past the checkpoint is dropped.
    folder = tmp_path / "cut" / "small-model"
    (folder / "checkpoint.tmp").write_bytes(b"half")
    with (folder / "curve.csv").open("a") as handle:
        handle.write("12,output,0,0,1.0,1.0,1.0\n")
    assert run(data, tmp_path / "cut") == whole
    want, got = (tmp_path / k / "small-model" / "export" / "small-model.bin" for k in ("whole", "cut"))
    assert want.read_bytes() == got.read_bytes()
    warm = run(data, tmp_path / "warm", "--stop-after", "4", "--init-from", str(want))
    assert float(warm[0][3]) < float(whole[0][3])


def test_missing_data_is_named(tmp_path):
    (tmp_path / "c.toml").write_text(CONFIG)
    arguments = ["--config", tmp_path / "c.toml", "--data", tmp_path / "none", "--work", tmp_path / "w"]
    with pytest.raises(ValueError, match="neither MANIFEST.tsv nor speech/"):
        main([*map(str, arguments), "--workers", "0"])
