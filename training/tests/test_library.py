"""The emulated chain against the built library (ORVEL_LIBRARY), on random weights and on the shipped models."""

import os

import numpy as np
import pytest
from conftest import CONFIGS, MODELS, config

import orvel
from training.detector import HISTORY
from training.model import calibrated, detect, enhance, load_exported, make_model
from training.weights_file import export_model

pytestmark = pytest.mark.skipif("ORVEL_LIBRARY" not in os.environ, reason="ORVEL_LIBRARY names no library")

# Random weights for every version, shipped weights for every rate of the newest one.
NAMES = sorted(path.stem for path in CONFIGS.glob("*.toml"))
CLEANERS = [name for name in NAMES if not config(name)["model"]["version"].startswith("VAD")]
SHIPPED = [name for name in CLEANERS if config(name)["model"]["version"] == "0.0.5"]
RANDOM = {config(name)["model"]["version"]: name for name in CLEANERS}.values()
# Largest difference allowed, as a share of the output's RMS: single precision on both sides, with
# another order of summation, carried along by the recurrent state.
TOLERANCE = 5e-3


def random_model(name, folder):
    """A model of the shipped shape with random weights, written to ``folder`` and read again."""
    rng = np.random.default_rng(11)
    settings = config(name)
    settings["model"]["hidden"] = 48
    model, count = make_model(settings), len(load_exported(MODELS / f"{name}.bin").stats["MU"])
    stats = {"MU": rng.uniform(6.0, 9.0, count), "SD": rng.uniform(1.5, 4.0, count)}
    stats = {key: value.astype(np.float32) for key, value in stats.items()}
    return load_exported(export_model(folder, settings, model.entries(model.init(rng), stats)))


def library_clean(folder, name, wave, rate):
    """``wave`` cleaned at the model's rate in calls of 10 ms, the session's latency cut off."""
    with orvel.Library(folder) as library:
        library.load(name)
        session = library.cleaner(rate, name)
        size = -(-(len(wave) + session.latency) // session.frame) * session.frame
        out = session.process(np.pad(wave / np.float32(32768.0), (0, size - len(wave))))
        return out[session.latency : session.latency + len(wave)] * 32768.0


def compare_clean(folder, name, loaded, wave):
    got = library_clean(folder, name, wave, loaded.rate)
    want = enhance(loaded.model, loaded.params, loaded.stats, wave)
    level = np.sqrt(np.mean(np.square(want)))
    assert level > 1.0, "the output must not be silent"
    assert np.max(np.abs(got - want)) < TOLERANCE * level + 0.01


@pytest.mark.parametrize("name", RANDOM)
def test_random_weights_agree(name, tmp_path, speechlike):
    loaded = random_model(name, tmp_path)
    # Longer than the four seconds that the followers of the level remember.
    compare_clean(tmp_path, name, loaded, speechlike(loaded.rate, 6.0))


@pytest.mark.parametrize("name", SHIPPED)
def test_shipped_weights_agree(name, speechlike):
    loaded = load_exported(MODELS / f"{name}.bin")
    compare_clean(MODELS, name, loaded, speechlike(loaded.rate, 3.0))


def library_scores(folder, wave):
    with orvel.Library(folder) as library:
        library.load("orvel-vad")
        return library.detector(8000, "orvel-vad").process(wave / np.float32(32768.0))


def test_detectors_agree(tmp_path, speechlike):
    wave = speechlike(8000, 4.0)
    random = random_model("orvel-vad", tmp_path)
    assert random.params["Ax"].shape[0] == HISTORY * random.stats["MU"].size
    want = detect(random.model, random.params, random.stats, wave)
    assert np.std(want) > 1e-3
    np.testing.assert_allclose(library_scores(tmp_path, wave), want, atol=5e-3 * np.std(want))
    shipped = load_exported(MODELS / "orvel-vad.bin")
    want = calibrated(detect(shipped.model, shipped.params, shipped.stats, wave), shipped.entries)
    assert np.ptp(want) > 0.1
    np.testing.assert_allclose(library_scores(MODELS, wave), want, atol=2e-3)
