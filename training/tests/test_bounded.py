"""Shipped weights under the input that has made state loops run away."""

import numpy as np
import pytest
from conftest import MODELS, config

from training.bounded import clicks, largest_values
from training.kinds import make_model
from training.weights_file import read_weights


@pytest.mark.parametrize("name", ["orvel-8k", "orvel-16k", "orvel-16k-tiny", "orvel-32k"])
@pytest.mark.parametrize("per_second", [12, 40])
def test_clicks_leave_the_state_bounded(name, per_second):
    settings = config(name)
    model = make_model(settings)
    params, stats = model.from_entries(read_weights(MODELS / f"{name}.bin"))
    wave = clicks(np.random.default_rng(1), settings["model"]["sample_rate"], per_second)
    values = largest_values(model, params, stats, np.rint(wave).astype(np.float32))
    assert np.isfinite(values).all() and max(values[:2]) < 200.0, values
