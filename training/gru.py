"""A study: a cleaner 0.0.5 whose first layer has both gates of a GRU.

The gate of 0.0.5 blends the state; here a second one, r, lies before what the branches take from the state
(K. Cho et al., "Learning Phrase Representations using RNN Encoder-Decoder", 2014, arXiv 1406.1078):
r = sigmoid(R u + r0), then A and B see (r state, input) in place of u = (state, input).
``training/configs/study/gru.toml`` trains it beside the others; the library has no such cleaner.
"""

from __future__ import annotations

import jax
import jax.numpy as jnp
import numpy as np

from training.network import bounded_step, init_recurrent, product, upper_layers
from training.recurrent import RecurrentModel

VERSION = "study-gru"


@jax.custom_vjp
def gru_loop(ready: jax.Array, gates: jax.Array, branches: jax.Array, state: jax.Array):
    """As ``network.gated_loop``, differentiated by hand for the same reasons.

    ``ready`` is (hops, streams, 4 * hidden): what the input gives to r, to the blending gate and to the
    branches; ``gates`` and ``branches``, both (hidden, 2 * hidden), are what the state gives.
    """
    return _forward(ready, gates, branches, state)[0]


def _forward(ready, gates, branches, state):
    hidden = state.shape[1]

    def hop(state, ready):
        u = ready[:, : 2 * hidden] + product(state, gates)
        r = jax.nn.sigmoid(u[:, :hidden])
        v = ready[:, 2 * hidden :] + product(r * state, branches)
        y = v[:, hidden:] + jax.nn.relu(v[:, :hidden])
        z = jax.nn.sigmoid(u[:, hidden:])
        return state + z * (y - state), (y, u[:, hidden:], r, v[:, :hidden] >= 0.0, state)

    last, (y, gate, r, on, before) = jax.lax.scan(hop, state, ready)
    return (y, last, gate), (y, gate, r, on, before, gates, branches)


def _backward(saved, grads):
    y, gate, r, on, before, gates, branches = saved
    d_y, d_last, d_gate = grads
    bounded, hidden = bounded_step(d_y), before.shape[2]

    def hop(d_state, at):
        d_y, d_gate, y, gate, r, on, before = at
        z = jax.nn.sigmoid(gate)
        d_y = d_y + d_state * z
        d_z = d_gate + d_state * (y - before) * z * (1.0 - z)
        d_v = jnp.concatenate([jnp.where(on, d_y, 0.0), d_y], axis=1)
        d_seen = product(d_v, branches.T)
        d_u = jnp.concatenate([d_seen * before * r * (1.0 - r), d_z], axis=1)
        d_state = d_state * (1.0 - z) + d_seen * r + product(d_u, gates.T)
        return bounded(d_state), jnp.concatenate([d_u, d_v], axis=1)

    d_start, d_ready = jax.lax.scan(hop, d_last, (d_y, d_gate, y, gate, r, on, before), reverse=True)
    rows = d_ready.reshape(-1, 4 * hidden)
    d_gates = before.reshape(-1, hidden).T @ rows[:, : 2 * hidden]
    d_branches = (r * before).reshape(-1, hidden).T @ rows[:, 2 * hidden :]
    return d_ready, d_gates, d_branches, d_start


gru_loop.defvjp(_forward, _backward)


class GruModel(RecurrentModel):
    """What the trainer needs to know about one such model, made from its configuration."""

    @staticmethod
    def described(entries: dict) -> dict:
        """The configuration's section on the model, out of a weight file's records."""
        above = max((int(name[1:]) for name in entries if name[0] == "A" and name[1:].isdigit()), default=0)
        return {**RecurrentModel.described_input(entries), "hidden": len(entries["r"]), "layers": above + 2}

    def init(self, rng: np.random.Generator) -> dict:
        """Random parameters, the new gate half open."""
        shape, hidden = self.shape, self.hidden
        inputs = shape.bands * shape.preview
        params = init_recurrent(rng, inputs, hidden, self.layers, shape.bands)
        for name, rows in (("Rx", inputs), ("Rh", hidden)):
            params[name] = rng.normal(0.0, 0.3 / np.sqrt(rows), (rows, hidden)).astype(np.float32)
        params["r"] = np.zeros(hidden, np.float32)
        return params

    def run(self, params: dict, inputs: jax.Array, state: jax.Array):
        """As ``network.run_recurrent``."""
        joined = {end: jnp.concatenate([params[k + end] for k in "RGAB"], axis=1) for end in "xh"}
        biases = jnp.concatenate([params[k] for k in "rgab"])
        gates, branches = jnp.split(joined["h"], 2, axis=1)
        first, state, gate = gru_loop(product(inputs, joined["x"]) + biases, gates, branches, state)
        return upper_layers(params, first), state, first, gate

    def entries(self, params: dict, stats: dict) -> dict:
        """Records of the weight file, in which every matrix has its own name."""
        return self.input_entries(VERSION, stats) | {name: np.asarray(value) for name, value in params.items()}

    def from_entries(self, entries: dict) -> tuple[dict, dict]:
        """Parameters and statistics of an exported model."""
        bands = self.shape.bands
        params = {k: v for k, v in entries.items() if isinstance(v, np.ndarray) and k not in ("MU", "SD")}
        return params, {"MU": entries["MU"][:bands], "SD": entries["SD"][:bands]}
