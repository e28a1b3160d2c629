"""Shipped weights under the input that has made state loops run away."""

import numpy as np
import pytest
from conftest import MODELS

from training.bounded import clicks, hard_signals, largest_values
from training.model import load_exported


@pytest.mark.parametrize("name", ["orvel-8k", "orvel-16k", "orvel-16k-tiny", "orvel-32k"])
def test_clicks_and_sweeps_leave_the_state_bounded(name):
    loaded = load_exported(MODELS / f"{name}.bin")
    waves = [clicks(np.random.default_rng(1), loaded.rate, per_second)[: 20 * loaded.rate] for per_second in (12, 40)]
    waves += [hard_signals(np.random.default_rng(seed), loaded.rate)[: 30 * loaded.rate] for seed in (3, 5, 7)]
    wave = np.rint(np.concatenate(waves)).astype(np.float32)
    values = largest_values(loaded.model, loaded.params, loaded.stats, wave)
    assert np.isfinite(values).all() and max(values[:2]) < 200.0, values
