"""The parts of the emulation that the library comparison cannot tell apart when they fail."""

import jax
import jax.numpy as jnp
import numpy as np
import pytest
from conftest import CONFIGS, config

from training.adapt import adapt, band_edges, shared_bands, shared_statistics, widen
from training.bands import compressed_widths, expansion_index
from training.combine import join
from training.model import load_exported, make_model
from training.network import gated_loop, init_recurrent, run_recurrent, short_products
from training.weights_file import export_model, read_weights


@pytest.mark.parametrize(
    ("bins", "rate", "single", "bands"),
    [(16, 1, 8, 12), (256, 2, 64, 128), (256, 1, 128, 192), (512, 3, 64, 160), (128, 1, 64, 96), (256, 0, 256, 256)],
)
def test_bands_fill_the_bins_and_spread_back(bins, rate, single, bands):
    widths = compressed_widths(bins, rate)
    assert (widths.count(1), len(widths), sum(widths)) == (single, bands, bins)
    index = expansion_index(bands, rate)
    want = np.repeat(np.arange(bands), widths)
    np.testing.assert_array_equal(index, want)


def test_hand_written_gradient_of_the_state_loop():
    rng = np.random.default_rng(2)
    ready = rng.normal(size=(7, 3, 12)).astype(np.float32)
    loop = rng.normal(0.0, 0.4, (4, 12)).astype(np.float32)
    state = rng.normal(size=(3, 4)).astype(np.float32)

    def plain(ready, loop, state):
        ys, gates = [], []
        for t in range(7):
            v = ready[t] + state @ loop
            y = v[:, 4:8] + jax.nn.relu(v[:, :4])
            state = state + jax.nn.sigmoid(v[:, 8:]) * (y - state)
            ys.append(y)
            gates.append(v[:, 8:])
        return jnp.sum(jnp.sin(jnp.stack(ys))) + jnp.sum(jnp.cos(state)) + jnp.sum(jnp.sin(jnp.stack(gates)))

    def fast(ready, loop, state):
        y, last, gates = gated_loop(ready, loop, state)
        return jnp.sum(jnp.sin(y)) + jnp.sum(jnp.cos(last)) + jnp.sum(jnp.sin(gates))

    slopes = [jax.jit(jax.grad(function, (0, 1, 2)))(ready, loop, state) for function in (fast, plain)]
    for got, want in zip(*slopes):
        np.testing.assert_allclose(got, want, rtol=1e-3, atol=1e-4)


def test_short_products_give_nearly_the_same_gradient():
    rng = np.random.default_rng(8)
    params = init_recurrent(rng, inputs=12, hidden=32, layers=3, outputs=2)
    inputs = jnp.asarray(rng.normal(size=(30, 4, 12)), jnp.float32)

    def slope(short):
        def loss(params):
            with short_products(short):
                values, state, *_ = run_recurrent(params, inputs, jnp.zeros((4, 32)))
            return jnp.sum(jnp.sin(values)) + jnp.sum(jnp.square(state))

        return jax.jit(jax.grad(loss))(params)

    exact, short = slope(False), slope(True)
    for name, want in exact.items():
        error = np.linalg.norm(short[name] - want) / np.linalg.norm(want)
        assert 0.0 < error < 0.03, name


def test_gradient_of_a_loop_that_runs_away_stays_bounded():
    rng = np.random.default_rng(3)
    ready = rng.normal(size=(80, 3, 12)).astype(np.float32)
    loop = np.concatenate([np.zeros((4, 4)), 3.0 * np.eye(4), np.zeros((4, 4))], axis=1).astype(np.float32)
    loss = lambda ready: jnp.sum(gated_loop(ready, loop, np.ones((3, 4), np.float32))[0])  # noqa: E731
    grads = np.asarray(jax.jit(jax.grad(loss))(ready))
    # What enters at a hop has the norm of four ones, 2; unbounded, 80 hops of gain 2 make 1e24 of it.
    assert np.isfinite(grads).all()
    assert np.abs(grads[0, 0, 4:8]).max() <= 5.0 * 2.0 + 1.0


@pytest.mark.parametrize(("name", "shared"), [("orvel-8k", 96), ("orvel-32k", 128)])
def test_other_rates_start_from_the_default_band_by_band(name, shared):
    source, target = make_model(config("orvel-16k")), make_model(config(name))
    source_edges, target_edges = band_edges(source.shape), band_edges(target.shape)
    assert source_edges[:shared] == target_edges[:shared]
    rng = np.random.default_rng(4)
    old = source.init(rng)
    new = adapt(old, source.shape, target.shape, rng)
    np.testing.assert_array_equal(new["Ax"][:shared], old["Ax"][:shared])
    np.testing.assert_array_equal(new["O"][:, :shared], old["O"][:, :shared])
    assert new["O"].shape == (old["O"].shape[0], target.shape.bands)
    known, own = ({"MU": np.full(shape.bands, fill)} for shape, fill in ((source.shape, 1.0), (target.shape, 2.0)))
    merged = shared_statistics(known, own, shared_bands(source.shape, target.shape))["MU"]
    assert merged.tolist() == [1.0] * shared + [2.0] * (target.shape.bands - shared)


def test_a_widened_network_computes_the_same():
    rng = np.random.default_rng(6)
    narrow = init_recurrent(rng, inputs=5, hidden=7, layers=4, outputs=3)
    wide = widen(narrow, 12, rng)
    inputs = rng.normal(size=(20, 2, 5)).astype(np.float32)
    run = jax.jit(run_recurrent)
    want, *_ = run(narrow, inputs, np.zeros((2, 7), np.float32))
    got, _, first, _ = run(wide, inputs, np.zeros((2, 12), np.float32))
    np.testing.assert_allclose(got, want, atol=1e-5)
    assert np.std(first[:, :, 7:]) > 0.01, "the new units must have something to learn from"
    with pytest.raises(ValueError, match="12 units cannot become one of 7"):
        widen(wide, 7, rng)


def test_joined_networks_give_the_mean_of_both():
    rng = np.random.default_rng(8)
    halves = [init_recurrent(rng, inputs=5, hidden=hidden, layers=4, outputs=3) for hidden in (7, 4)]
    inputs = rng.normal(size=(20, 2, 5)).astype(np.float32)
    run = jax.jit(run_recurrent)
    want = [run(half, inputs, np.zeros((2, len(half["a"])), np.float32))[0] for half in halves]
    got = run(join(*halves), inputs, np.zeros((2, 11), np.float32))[0]
    np.testing.assert_allclose(got, 0.5 * (want[0] + want[1]), atol=1e-5)


@pytest.mark.parametrize("name", sorted(path.stem for path in CONFIGS.glob("*.toml")))
def test_exported_records_lead_back_to_the_parameters(name, tmp_path):
    settings = config(name)
    settings["model"]["hidden"] = 12
    model = make_model(settings)
    rng = np.random.default_rng(5)
    params = {k: rng.normal(size=v.shape).astype(np.float32) for k, v in model.init(rng).items()}
    count = {"VAD_0.0.1": 61}.get(settings["model"]["version"])
    if count is None:
        count = model.shape.bands * (1 if settings["model"]["version"] == "0.0.5" else model.shape.preview)
        count += model.shape.bands if getattr(model, "average", 0) else 0
    stats = {"MU": rng.normal(size=count).astype(np.float32), "SD": rng.uniform(1, 2, count).astype(np.float32)}
    path = export_model(tmp_path, settings, model.entries(params, stats))
    back, back_stats = model.from_entries(read_weights(path))
    assert back.keys() == params.keys()
    for key, value in params.items():
        np.testing.assert_array_equal(back[key], value)
    np.testing.assert_array_equal(back_stats["MU"], stats["MU"])
    assert f"WEIGHT {name}.bin\n" in (tmp_path / f"{name}.ctl").read_text()
    # The files alone tell the shape, and whether the masks are squared softly.
    again = load_exported(path)
    assert type(again.model) is type(model) and getattr(again.model, "soft", None) == getattr(model, "soft", None)
    assert getattr(again.model, "shape", None) == getattr(model, "shape", None)
    assert (again.model.hidden, again.model.layers) == (12, model.layers)
    np.testing.assert_array_equal(again.params["o"], params["o"])
