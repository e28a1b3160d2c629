"""Adam with warm-up, cosine decay, a bound on the gradient and a running average of the weights."""

from __future__ import annotations

from dataclasses import dataclass

import jax
import jax.numpy as jnp


@dataclass(frozen=True)
class Schedule:
    """Settings of one training stage; ``decay`` belongs to the average that is kept."""

    updates: int
    learning_rate: float
    warmup: int = 100
    floor: float = 0.02
    bound: float = 0.1
    decay: float = 0.998


def init_optimiser(params: dict) -> dict:
    """Moments at zero and the average at the start parameters."""
    zero = jax.tree.map(jnp.zeros_like, params)
    return {"m": zero, "v": zero, "mean": params, "count": jnp.zeros((), jnp.float32)}


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
    m = jax.tree.map(lambda m, g: 0.9 * m + 0.1 * scale * g, state["m"], grads)
    v = jax.tree.map(lambda v, g: 0.99 * v + 0.01 * jnp.square(scale * g), state["v"], grads)
    hat_m, hat_v = 1.0 - 0.9**count, 1.0 - 0.99**count
    params = jax.tree.map(
        lambda p, m, v: p - rate * (m / hat_m) / (jnp.sqrt(v / hat_v) + 1e-8), params, m, v
    )
    # The average starts fast, so that a warm start is not dragged along for ever.
    decay = jnp.minimum(schedule.decay, (1.0 + count) / (10.0 + count))
    mean = jax.tree.map(lambda a, p: decay * a + (1.0 - decay) * p, state["mean"], params)
    return params, {"m": m, "v": v, "mean": mean, "count": count}, norm
