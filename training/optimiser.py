"""Adam with warm-up, cosine decay, a bound on the gradient and a running average of the weights.

Where a stage asks for ``soap``, Adam works in the basis in which the gradients of a matrix are
uncorrelated (N. Vyas et al., "SOAP: Improving and Stabilizing Shampoo using Adam", 2024, arXiv
2409.11321). Neighbouring bands and frames say nearly the same, so that the gradient of an input matrix
lies almost in a few directions. Adam alone goes along these and hardly ever turns to the rest.
"""

from __future__ import annotations

from dataclasses import dataclass

import jax
import jax.numpy as jnp

# Decay of the averages of the gradient and of its square; turned bases bear, and want, more patience.
MEAN_DECAY, TURNED_MEAN_DECAY, SQUARE_DECAY = 0.9, 0.95, 0.99
# Updates that only gather moments before the first turned step.
GATHER = 19
# Decay of the second moments of rows and columns.
MOMENT_DECAY = 0.98
# The first bases come from few gradients: up to the second count they turn as often as the first says.
FIRST_TURNS = (10, 100)


@dataclass(frozen=True)
class Schedule:
    """Settings of one training stage; ``decay`` belongs to the average that is kept.

    SOAP's basis turns every ``turn_every`` updates. ``shrink`` pulls the matrices towards zero by this
    share of the learning rate at every update.
    """

    updates: int
    learning_rate: float
    warmup: int = 100
    floor: float = 0.02
    bound: float = 0.1
    decay: float = 0.998
    soap: bool = False
    turn_every: int = 50
    shrink: float = 0.0


def blocks(params: dict) -> list[tuple[str, ...]]:
    """Names of the matrices that SOAP turns; those that see state and input together are one.

    Narrow ones stay with Adam, where there is little to turn.
    """
    found: dict[str, tuple[str, ...]] = {}
    for name in sorted(params):
        if params[name].ndim == 2 and min(params[name].shape) >= 16:
            key = name[0] if name[1:] in ("h", "x") else name
            found[key] = (*found.get(key, ()), name)
    return list(found.values())


def _joined(tree: dict, names: tuple[str, ...]) -> jax.Array:
    return jnp.concatenate([tree[name] for name in names])


def init_optimiser(params: dict, schedule: Schedule) -> dict:
    """Moments at zero and the average at the start parameters."""
    zero = jax.tree.map(jnp.zeros_like, params)
    state = {"m": zero, "v": zero, "mean": params, "count": jnp.zeros((), jnp.float32)}
    if schedule.soap:
        state["blocks"] = {"+".join(names): init_block(*_joined(params, names).shape) for names in blocks(params)}
    return state


def learning_rate(schedule: Schedule, update: jax.Array) -> jax.Array:
    """Rate at an update counted from 0."""
    rise = jnp.minimum(1.0, (update + 1.0) / schedule.warmup)
    phase = jnp.clip(update / schedule.updates, 0.0, 1.0)
    fall = schedule.floor + (1.0 - schedule.floor) * 0.5 * (1.0 + jnp.cos(jnp.pi * phase))
    return schedule.learning_rate * rise * fall


def apply_gradients(schedule: Schedule, params: dict, state: dict, grads: dict, update, slower=1.0):
    """One update; returns the new parameters, the new state and the gradient norm before the bound."""
    norm = jnp.sqrt(sum(jnp.sum(jnp.square(g)) for g in jax.tree.leaves(grads)))
    scale = jnp.minimum(1.0, schedule.bound / (norm + 1e-12))
    count = state["count"] + 1.0
    rate = slower * learning_rate(schedule, update)
    beta = TURNED_MEAN_DECAY if schedule.soap else MEAN_DECAY
    grads = jax.tree.map(lambda g: scale * g, grads)
    m = jax.tree.map(lambda m, g: beta * m + (1.0 - beta) * g, state["m"], grads)
    v = jax.tree.map(lambda v, g: SQUARE_DECAY * v + (1.0 - SQUARE_DECAY) * jnp.square(g), state["v"], grads)
    hat_m, hat_v = 1.0 - beta**count, 1.0 - SQUARE_DECAY**count
    steps = jax.tree.map(lambda m, v: (m / hat_m) / (jnp.sqrt(v / hat_v) + 1e-8), m, v)
    new = {"m": m, "v": v, "count": count}
    if schedule.soap:
        new["blocks"] = {}
        for key, block in state["blocks"].items():
            names = tuple(key.split("+"))
            step, new["blocks"][key] = block_step(
                block, _joined(grads, names), _joined(m, names) / hat_m, count, SQUARE_DECAY, schedule.turn_every
            )
            ends = [sum(params[n].shape[0] for n in names[: k + 1]) for k in range(len(names) - 1)]
            steps.update(zip(names, jnp.split(step, ends)))
        rate = jnp.where(count <= GATHER, 0.0, rate)
    kept = 1.0 - schedule.shrink * rate
    params = jax.tree.map(lambda p, step: (p * kept if p.ndim == 2 else p) - rate * step, params, steps)
    # The average starts fast, so that a warm start is not dragged along for ever.
    decay = jnp.minimum(schedule.decay, (1.0 + count) / (10.0 + count))
    new["mean"] = jax.tree.map(lambda a, p: decay * a + (1.0 - decay) * p, state["mean"], params)
    return params, new, norm


def init_block(rows: int, columns: int) -> dict:
    """State for one matrix of this shape."""
    return {
        "rows": jnp.zeros((rows, rows)),
        "columns": jnp.zeros((columns, columns)),
        "row_basis": jnp.eye(rows),
        "column_basis": jnp.eye(columns),
        "v": jnp.zeros((rows, columns)),
    }


def block_step(state: dict, grad: jax.Array, mean: jax.Array, count: jax.Array, decay: float, every: int) -> tuple:
    """Direction to go against, and the new state.

    ``mean`` is the average of the gradients without its bias, ``count`` the update counted from 1 and
    ``decay`` that of the squares; the basis turns ``every`` so many updates.
    """
    rows = MOMENT_DECAY * state["rows"] + (1.0 - MOMENT_DECAY) * grad @ grad.T
    columns = MOMENT_DECAY * state["columns"] + (1.0 - MOMENT_DECAY) * grad.T @ grad

    def turned(_):
        return _turn(rows, state["row_basis"]), _turn(columns, state["column_basis"])

    early, until = FIRST_TURNS
    due = (count % every == 1.0) | ((count < until) & (count % min(early, every) == 1.0))
    left, right = jax.lax.cond(due, turned, lambda _: (state["row_basis"], state["column_basis"]), None)
    v = decay * state["v"] + (1.0 - decay) * jnp.square(left.T @ grad @ right)
    step = left.T @ mean @ right / (jnp.sqrt(v / (1.0 - decay**count)) + 1e-8)
    state = {"rows": rows, "columns": columns, "row_basis": left, "column_basis": right, "v": v}
    return left @ step @ right.T, state


def _turn(moments: jax.Array, basis: jax.Array) -> jax.Array:
    """One step of orthogonal iteration towards the eigenvectors of ``moments``."""
    return jnp.linalg.qr(moments @ basis + 1e-12 * basis)[0]
