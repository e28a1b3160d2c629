"""The optimiser on problems whose answer is known."""

import jax
import jax.numpy as jnp
import numpy as np
import pytest

from training.optimiser import Schedule, apply_gradients, init_optimiser


def remaining(soap: bool, updates: int = 240) -> float:
    """Share of a regression's loss that is left; its inputs are mixed and 0.1 to 10 in size."""
    rng = np.random.default_rng(5)
    shape = np.geomspace(0.1, 10.0, 32)[:, None] * np.linalg.qr(rng.normal(size=(32, 32)))[0]
    draw = lambda count: (rng.normal(size=(count, 32)) @ shape).astype(np.float32)  # noqa: E731
    wanted = rng.normal(size=(32, 16)).astype(np.float32)
    schedule = Schedule(updates, 0.1, warmup=20, bound=1e9, soap=soap, turn_every=10)
    params = {"Ah": jnp.zeros((16, 16)), "Ax": jnp.zeros((16, 16))}
    state = init_optimiser(params, schedule)

    def loss(params, inputs):
        return jnp.mean(jnp.square(inputs @ (jnp.concatenate([params["Ah"], params["Ax"]]) - wanted)))

    @jax.jit
    def step(params, state, update, inputs):
        return apply_gradients(schedule, params, state, jax.grad(loss)(params, inputs), update)

    check = draw(4096)
    first = loss(params, check)
    for update in range(updates):
        params, state, _ = step(params, state, float(update), draw(32))
    return float(loss(params, check) / first)


def test_soap_turns_to_what_correlated_inputs_hide():
    adam, soap = remaining(soap=False), remaining(soap=True)
    assert soap < 1e-3
    assert soap < 0.3 * adam


@pytest.mark.parametrize("soap", [False, True])
def test_bound_holds_against_a_huge_gradient(soap):
    schedule = Schedule(100, 0.01, warmup=1, bound=0.1, soap=soap)
    params = {"A1": jnp.ones((16, 16)), "o": jnp.ones(3)}
    state = init_optimiser(params, schedule)
    step = jax.jit(lambda *args: apply_gradients(schedule, *args))
    for update in range(30):
        grads = jax.tree.map(lambda p: jnp.full_like(p, 1e12 if update == 25 else 1e-3), params)
        params, state, norm = step(params, state, grads, float(update))
        if update == 25:
            assert norm > 1e12
    assert all(np.isfinite(p).all() and np.abs(p - 1.0).max() < 1.0 for p in params.values())
