"""The emulated chain against the built library, on random weights and on the shipped models.

The library is taken from ORVEL_LIBRARY; without that variable there is nothing to compare with.
"""

import os

import numpy as np
import pytest
from conftest import CONFIGS, MODELS, config

from training.detector import BINS, HISTORY, pooling_matrix
from training.export import export_model
from training.kinds import make_model
from training.library import Library
from training.stream import calibrated, detect, enhance
from training.weights_file import read_weights

LIBRARY = os.environ.get("ORVEL_LIBRARY")
pytestmark = pytest.mark.skipif(LIBRARY is None, reason="ORVEL_LIBRARY names no library")

NAMES = sorted(path.stem for path in CONFIGS.glob("*.toml"))
CLEANERS = [name for name in NAMES if name != "orvel-vad"]
# Largest difference allowed, as a share of the output's RMS: single precision on both sides, with
# another order of summation, carried along by the recurrent state.
TOLERANCE = 5e-3


def random_statistics(model, rng):
    if hasattr(model, "shape"):
        count = model.shape.bands * (model.shape.preview + (1 if getattr(model, "average", 0) else 0))
        count = count if model.config["model"]["version"] != "0.0.5" else model.shape.bands
    else:
        count = pooling_matrix(BINS).shape[1]
    return {
        "MU": rng.uniform(6.0, 9.0, count).astype(np.float32),
        "SD": rng.uniform(1.5, 4.0, count).astype(np.float32),
    }


def random_model(name, folder):
    """A model of the shipped shape with random weights, exported to ``folder``."""
    rng = np.random.default_rng(11)
    settings = config(name)
    settings["model"]["hidden"] = 48
    model = make_model(settings)
    params, stats = model.init(rng), random_statistics(model, rng)
    export_model(folder, settings, model.entries(params, stats))
    return model, params, stats


def shipped_model(name):
    model = make_model(config(name))
    params, stats = model.from_entries(read_weights(MODELS / f"{name}.bin"))
    return model, params, stats


def compare_clean(folder, name, model, params, stats, wave):
    rate = model.shape.sample_rate
    with Library(LIBRARY, folder) as library:
        library.load(name)
        got = library.clean(name, wave, rate)
    want = enhance(model, params, stats, wave)
    level = np.sqrt(np.mean(np.square(want)))
    assert level > 1.0, "the output must not be silent"
    assert np.max(np.abs(got - want)) < TOLERANCE * level + 0.01


@pytest.mark.parametrize("name", CLEANERS)
def test_random_weights_agree(name, tmp_path, speechlike):
    model, params, stats = random_model(name, tmp_path)
    compare_clean(tmp_path, name, model, params, stats, speechlike(model.shape.sample_rate, 3.0))


@pytest.mark.parametrize("name", CLEANERS)
def test_shipped_weights_agree(name, speechlike):
    model, params, stats = shipped_model(name)
    compare_clean(MODELS, name, model, params, stats, speechlike(model.shape.sample_rate, 4.0))


def test_random_detector_agrees(tmp_path, speechlike):
    model, params, stats = random_model("orvel-vad", tmp_path)
    assert params["Ax"].shape[0] == HISTORY * stats["MU"].size
    wave = speechlike(8000, 4.0)
    with Library(LIBRARY, tmp_path) as library:
        library.load("orvel-vad")
        got = library.detect("orvel-vad", wave)
    want = detect(model, params, stats, wave)
    assert np.std(want) > 1e-3
    np.testing.assert_allclose(got, want, atol=5e-3 * np.std(want))


def test_shipped_detector_agrees(speechlike):
    model, params, stats = shipped_model("orvel-vad")
    wave = speechlike(8000, 6.0)
    with Library(LIBRARY, MODELS) as library:
        library.load("orvel-vad")
        got = library.detect("orvel-vad", wave)
    want = calibrated(detect(model, params, stats, wave), read_weights(MODELS / "orvel-vad.bin"))
    assert np.ptp(want) > 0.1
    np.testing.assert_allclose(got, want, atol=2e-3)
