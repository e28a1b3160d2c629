"""The recurrent mask network in jax: parameters, evaluation over sequences, exported form.

One hop computes, with u = (state, input): a = A u + a0, b = B u + b0, y = b + max(a, 0),
z = sigmoid(G u + g0), new state = (1 - z) state + z y; further layers are of the same kind without
a state, and the last layer is affine. The output of a hop uses y, not the new state.
"""

from __future__ import annotations

from contextlib import contextmanager

import jax
import jax.numpy as jnp
import numpy as np


def init_recurrent(rng: np.random.Generator, inputs: int, hidden: int, layers: int, outputs: int) -> dict:
    """Random parameters, scaled so that the linear state loop starts out stable."""

    def normal(rows, columns, scale):
        return rng.normal(0.0, scale, (rows, columns)).astype(np.float32)

    params = {
        "Ax": normal(inputs, hidden, np.sqrt(1.0 / inputs)),
        "Bx": normal(inputs, hidden, np.sqrt(0.3 / inputs)),
        "Gx": normal(inputs, hidden, 0.3 * np.sqrt(1.0 / inputs)),
        "Ah": normal(hidden, hidden, 0.3 * np.sqrt(1.0 / hidden)),
        "Bh": normal(hidden, hidden, 0.3 * np.sqrt(1.0 / hidden)),
        "Gh": normal(hidden, hidden, 0.3 * np.sqrt(1.0 / hidden)),
        "a": np.zeros(hidden, np.float32),
        "b": np.zeros(hidden, np.float32),
        # A spread of memories: update rates from a few hundredths to a quarter at the start.
        "g": (-2.5 + rng.uniform(-1.5, 1.5, hidden)).astype(np.float32),
    }
    for layer in range(1, layers - 1):
        params[f"A{layer}"] = normal(hidden, hidden, np.sqrt(1.0 / hidden))
        params[f"B{layer}"] = normal(hidden, hidden, np.sqrt(0.3 / hidden))
        params[f"a{layer}"] = np.zeros(hidden, np.float32)
        params[f"b{layer}"] = np.zeros(hidden, np.float32)
    params["O"] = normal(hidden, outputs, 0.5 * np.sqrt(1.0 / hidden))
    params["o"] = np.zeros(outputs, np.float32)
    return params


_short = False


@contextmanager
def short_products(on: bool = True):
    """What is traced inside multiplies matrices in bfloat16 with sums in single precision.

    Up to twice as fast where the processor knows the format; good for gradients, not for figures.
    """
    global _short
    before, _short = _short, on
    try:
        yield
    finally:
        _short = before


def product(a: jax.Array, b: jax.Array) -> jax.Array:
    """``a @ b`` for a matrix ``b``, also in its gradients in the kind of product that is set."""
    return _short_product(a, b) if _short else a @ b


def _rounded(a: jax.Array, b: jax.Array) -> jax.Array:
    return jnp.matmul(a.astype(jnp.bfloat16), b.astype(jnp.bfloat16), preferred_element_type=jnp.float32)


@jax.custom_vjp
def _short_product(a, b):
    return _rounded(a, b)


def _short_backward(saved, grad):
    a, b = saved
    # The second stays in single precision: sums over transposed rows are slow in the short format.
    return _rounded(grad, b.T), a.reshape(-1, a.shape[-1]).T @ grad.reshape(-1, grad.shape[-1])


_short_product.defvjp(lambda a, b: (_rounded(a, b), (a, b)), _short_backward)


def layer_count(params: dict) -> int:
    """Layers, the last one included."""
    return 2 + sum(1 for name in params if name[0] == "A" and name[1:].isdigit())


# Bound on the gradient that the loop carries back, in units of the largest that enters at any hop.
# The loop may amplify for a while; without a bound a few streams drown the others of the batch.
GRADIENT_BOUND = 5.0


def bounded_step(d_y: jax.Array):
    """What keeps the gradient of every stream's state within ``GRADIENT_BOUND``; ``d_y`` enters from above."""
    top = GRADIENT_BOUND * jnp.max(jnp.linalg.norm(d_y, axis=2, keepdims=True), axis=0)

    def bounded(d_state):
        size = jnp.linalg.norm(d_state, axis=1, keepdims=True)
        return d_state * jnp.minimum(1.0, top / (size + 1e-20))

    return bounded


@jax.custom_vjp
def gated_loop(ready: jax.Array, loop: jax.Array, state: jax.Array):
    """The state loop of the first layer: its values per hop, the final state, and the gates before the sigmoid.

    ``ready`` is (hops, streams, 3 * hidden), what the input gives to the branches and the gate;
    ``loop`` is (hidden, 3 * hidden). Differentiated by hand: the gradient of ``loop`` is one product
    over all hops after the backward loop, instead of a sum that every hop adds a full matrix to; and
    the gradient of each stream's state stays within ``GRADIENT_BOUND``.
    """
    return _loop_forward(ready, loop, state)[0]


def _loop_forward(ready, loop, state):
    hidden = state.shape[1]

    def hop(state, ready):
        v = ready + product(state, loop)
        y = v[:, hidden : 2 * hidden] + jax.nn.relu(v[:, :hidden])
        z = jax.nn.sigmoid(v[:, 2 * hidden :])
        return state + z * (y - state), (y, v[:, 2 * hidden :], v[:, :hidden] >= 0.0, state)

    last, (y, gate, on, before) = jax.lax.scan(hop, state, ready)
    return (y, last, gate), (y, gate, on, before, loop)


def _loop_backward(saved, grads):
    y, gate, on, before, loop = saved
    d_y, d_last, d_gate = grads
    back, bounded = loop.T, bounded_step(d_y)

    def hop(d_state, at):
        d_y, d_gate, y, gate, on, before = at
        z = jax.nn.sigmoid(gate)
        d_y = d_y + d_state * z
        d_gate = d_gate + d_state * (y - before) * z * (1.0 - z)
        d_v = jnp.concatenate([jnp.where(on, d_y, 0.0), d_y, d_gate], axis=1)
        d_state = d_state * (1.0 - z) + product(d_v, back)
        return bounded(d_state), d_v

    d_start, d_ready = jax.lax.scan(hop, d_last, (d_y, d_gate, y, gate, on, before), reverse=True)
    hidden = before.shape[2]
    d_loop = before.reshape(-1, hidden).T @ d_ready.reshape(-1, 3 * hidden)
    return d_ready, d_loop, d_start


gated_loop.defvjp(_loop_forward, _loop_backward)


def run_recurrent(params: dict, inputs: jax.Array, state: jax.Array):
    """Values of the last layer before any sigmoid, the final state, the first layer's values and its gates.

    ``inputs`` is (hops, streams, n), ``state`` (streams, hidden).
    """
    from_input = product(inputs, jnp.concatenate([params["Ax"], params["Bx"], params["Gx"]], axis=1))
    from_input = from_input + jnp.concatenate([params["a"], params["b"], params["g"]])
    loop = jnp.concatenate([params["Ah"], params["Bh"], params["Gh"]], axis=1)
    first, state, gate = gated_loop(from_input, loop, state)
    return upper_layers(params, first), state, first, gate


def upper_layers(params: dict, y: jax.Array) -> jax.Array:
    """Values of the last layer before any sigmoid from those of the first."""
    for layer in range(1, layer_count(params) - 1):
        a = product(y, params[f"A{layer}"]) + params[f"a{layer}"]
        y = product(y, params[f"B{layer}"]) + params[f"b{layer}"] + jax.nn.relu(a)
    return product(y, params["O"]) + params["o"]


def recurrent_entries(params: dict, linear_output: bool = False) -> dict:
    """The network's records for a weight file; the state comes first among the rows.

    Every list holds one entry per layer. The branch of the last layer that is not used is zero.
    """
    stack = lambda k: np.concatenate([params[k + "h"], params[k + "x"]])  # noqa: E731
    nonlinear, linear = [stack("A")], [stack("B")]
    nonlinear_bias, linear_bias = [params["a"]], [params["b"]]
    for layer in range(1, layer_count(params) - 1):
        nonlinear.append(params[f"A{layer}"])
        linear.append(params[f"B{layer}"])
        nonlinear_bias.append(params[f"a{layer}"])
        linear_bias.append(params[f"b{layer}"])
    unused, unused_bias = np.zeros_like(params["O"]), np.zeros_like(params["o"])
    nonlinear.append(unused if linear_output else params["O"])
    nonlinear_bias.append(unused_bias if linear_output else params["o"])
    linear.append(params["O"] if linear_output else unused)
    linear_bias.append(params["o"] if linear_output else unused_bias)
    return {
        "WeightLinear": linear,
        "WeightNonLinear": nonlinear,
        "BaesLinear": linear_bias,
        "BaesNonLinear": nonlinear_bias,
        "WeightGRU": [stack("G")],
        "BaesGRU": [params["g"]],
    }


def recurrent_params(entries: dict, linear_output: bool = False) -> dict:
    """Parameters from the records of a weight file; inverse of ``recurrent_entries``."""
    last = len(entries["WeightNonLinear"]) - 1
    hidden = entries["BaesNonLinear"][0].shape[0]
    out = {}
    for key, name in (("A", "WeightNonLinear"), ("B", "WeightLinear"), ("G", "WeightGRU")):
        out[key + "h"], out[key + "x"] = entries[name][0][:hidden], entries[name][0][hidden:]
    out["a"], out["b"], out["g"] = entries["BaesNonLinear"][0], entries["BaesLinear"][0], entries["BaesGRU"][0]
    for layer in range(1, last):
        out[f"A{layer}"], out[f"B{layer}"] = entries["WeightNonLinear"][layer], entries["WeightLinear"][layer]
        out[f"a{layer}"], out[f"b{layer}"] = entries["BaesNonLinear"][layer], entries["BaesLinear"][layer]
    kind = "Linear" if linear_output else "NonLinear"
    out["O"], out["o"] = entries["Weight" + kind][last], entries["Baes" + kind][last]
    return {name: np.array(value, np.float32) for name, value in out.items()}
