"""The study's network: bands that fill the bins, sequences that carry on, records that lead back."""

import numpy as np
from conftest import CONFIGS

from training.bandsplit import triangles
from training.model import load_exported, load_model
from training.weights_file import export_model

CONFIG, MODEL = load_model(CONFIGS / "study" / "bands.toml")


def started(model, seed=1):
    params = model.init(np.random.default_rng(seed))
    return params, {"MU": np.full(model.bands, 12.0, np.float32), "SD": np.full(model.bands, 3.0, np.float32)}


def test_bands_share_every_bin():
    weights = triangles(161, 40)
    assert np.allclose(weights.sum(axis=0), 1.0) and (weights >= 0.0).all()
    assert (np.count_nonzero(weights, axis=0) <= 2).all() and (weights.max(axis=1) > 0.5).all()


def test_two_halves_give_what_the_whole_gives():
    params, stats = started(MODEL)
    hops, step = 20, MODEL.step
    wave = np.random.default_rng(2).normal(0.0, 3000.0, (2, (2 * hops + 1) * step)).astype(np.float32)
    gain = np.random.default_rng(3).uniform(0.5, 2.0, (2, 2 * hops)).astype(np.float32)
    whole, _, _ = MODEL.clean(params, stats, wave, gain, MODEL.carry(2, stats))
    first, _, carry = MODEL.clean(params, stats, wave[:, : (hops + 1) * step], gain[:, :hops], MODEL.carry(2, stats))
    second, _, _ = MODEL.clean(params, stats, wave[:, hops * step :], gain[:, hops:], carry)
    assert np.std(whole) > 100.0
    # The hop on the border is overlapped by both halves.
    assert np.allclose(first[:, : hops * step], whole[:, : hops * step], atol=0.1)
    assert np.allclose(second[:, step:], whole[:, (hops + 1) * step :], atol=0.1)
    assert np.allclose(
        (first[:, hops * step :] + second[:, :step]), whole[:, hops * step : (hops + 1) * step], atol=0.1
    )


def test_exported_records_lead_back_to_the_parameters(tmp_path):
    params, stats = started(MODEL)
    exported = load_exported(export_model(tmp_path, CONFIG, MODEL.entries(params, stats)))
    assert exported.params.keys() == params.keys()
    assert all(np.array_equal(exported.params[name], params[name]) for name in params)
    assert exported.model.shape == MODEL.shape and exported.model.layers == MODEL.layers
