"""The study's GRU: gradients by hand are those of its forward pass, records lead back."""

import jax
import jax.numpy as jnp
import numpy as np
from conftest import CONFIGS

from training.gru import gru_loop
from training.model import enhance, load_exported, load_model
from training.weights_file import export_model


def test_gradient_of_the_loop_is_that_of_its_hops():
    rng = np.random.default_rng(2)
    ready = rng.normal(size=(7, 3, 16)).astype(np.float32)
    gates, branches = rng.normal(0.0, 0.4, (2, 4, 8)).astype(np.float32)
    state = rng.normal(size=(3, 4)).astype(np.float32)

    def plain(ready, gates, branches, state):
        ys, blends = [], []
        for t in range(7):
            u = ready[t, :, :8] + state @ gates
            v = ready[t, :, 8:] + (jax.nn.sigmoid(u[:, :4]) * state) @ branches
            y = v[:, 4:] + jax.nn.relu(v[:, :4])
            state = state + jax.nn.sigmoid(u[:, 4:]) * (y - state)
            ys.append(y)
            blends.append(u[:, 4:])
        return jnp.sum(jnp.sin(jnp.stack(ys))) + jnp.sum(jnp.cos(state)) + jnp.sum(jnp.sin(jnp.stack(blends)))

    def fast(*args):
        y, last, blends = gru_loop(*args)
        return jnp.sum(jnp.sin(y)) + jnp.sum(jnp.cos(last)) + jnp.sum(jnp.sin(blends))

    slopes = [jax.jit(jax.grad(function, (0, 1, 2, 3)))(ready, gates, branches, state) for function in (fast, plain)]
    for got, want in zip(*slopes):
        np.testing.assert_allclose(got, want, rtol=1e-3, atol=1e-4)


def test_exported_records_lead_back_to_the_same_cleaner(tmp_path):
    config, model = load_model(CONFIGS / "study" / "gru.toml")
    bands = model.shape.bands
    params = model.init(np.random.default_rng(1))
    stats = {"MU": np.full(bands, 12.0, np.float32), "SD": np.full(bands, 3.0, np.float32)}
    exported = load_exported(export_model(tmp_path, config, model.entries(params, stats)))
    wave = np.random.default_rng(3).normal(0.0, 3000.0, 16000).astype(np.float32)
    out = enhance(model, params, stats, wave)
    assert np.std(out) > 100.0
    assert np.array_equal(enhance(exported.model, exported.params, exported.stats, wave), out)
