"""The mixes of ``training.mixing``, made on the accelerator: pools go there once, mixes never leave it.

An accelerator takes batches faster than a processor mixes them. The same odds and levels as in StreamMixer;
random numbers differ, so runs with either are alike but not equal.
"""

from __future__ import annotations

from functools import partial

import jax
import jax.numpy as jnp
import numpy as np

from training.corpus import active_rms
from training.level import REFERENCE_AMPLITUDE, REFERENCE_ENERGY, SHORT_FRAMES
from training.mixing import (
    FADE_SECONDS,
    HARD_GOES_ON,
    MORE_MUSIC_ALONE,
    NOTHING_ASKED,
    ODDS,
    UNSPOKEN,
    Batch,
    sequence_length,
)
from training.pools import Pool
from training.synth import hard_signal, music

# Segments of music and of hard signals, which a processor makes beforehand.
MADE = 48


def _tracker(streams: int, long: int) -> dict:
    """RescaleTracker's state as newly made."""
    start = REFERENCE_AMPLITUDE**2
    return {
        "short": jnp.zeros((streams, SHORT_FRAMES)),
        "queue": jnp.zeros((streams, long)).at[:, 0].set(start),
        "total": jnp.full(streams, start),
        "count": jnp.ones(streams, jnp.int32),
        "at": jnp.full(streams, 1 % long, jnp.int32),
    }


def _gains(tracker: dict, energy: jax.Array) -> tuple[dict, jax.Array]:
    """RescaleTracker.gains: the state moved along and the gains (streams, hops)."""
    long, rows = tracker["queue"].shape[1], jnp.arange(len(energy))

    def hop(state, e):
        short = jnp.concatenate([state["short"][:, 1:], e[:, None] / SHORT_FRAMES], axis=1)
        loud = jnp.sum(short, axis=1) >= REFERENCE_ENERGY
        at, full = state["at"], state["count"] >= long
        old = state["queue"][rows, at]
        state = {
            "short": short,
            "queue": state["queue"].at[rows, at].set(jnp.where(loud, e, old)),
            "total": state["total"] + jnp.where(loud, e - jnp.where(full, old, 0.0), 0.0),
            "count": state["count"] + (loud & ~full),
            "at": jnp.where(loud, (at + 1) % long, at),
        }
        return state, state["total"] / state["count"]

    tracker, levels = jax.lax.scan(hop, tracker, energy.T)
    gains = REFERENCE_AMPLITUDE / jnp.sqrt(jnp.maximum(levels.T, 1e-6))
    return tracker, jnp.where(levels.T > 1e-6, gains, 1.0)


def _noise(key: jax.Array, slots: dict, music_odds: jax.Array) -> jax.Array:
    """One to three recordings at once, or music; now and then with steps of the level."""
    keys = jax.random.split(key, 8)
    length = slots["noise"].shape[1]
    parts = jax.random.choice(keys[0], 3, p=jnp.array([0.6, 0.28, 0.12])) + 1
    level = 10.0 ** (jax.random.uniform(keys[1], (3,), minval=-15.0, maxval=3.0) / 20.0)
    level = jnp.where(jnp.arange(3) < parts, level.at[0].set(1.0), 0.0)
    chosen = jax.random.randint(keys[2], (3,), 0, len(slots["noise"]))
    shift = jax.random.randint(keys[3], (3,), 0, length)
    recorded = sum(level[k] * jnp.roll(slots["noise"][chosen[k]].astype(jnp.float32), shift[k]) for k in range(3))
    steps = 10.0 ** (jax.random.uniform(keys[4], (8,), minval=-25.0, maxval=0.0) / 20.0)
    stepped = recorded * jnp.repeat(steps, -(-length // 8))[:length]
    recorded = jnp.where(jax.random.uniform(keys[5]) < 0.15, stepped, recorded)
    tune = slots["music"][jax.random.randint(keys[6], (), 0, len(slots["music"]))].astype(jnp.float32)
    return jnp.where(jax.random.uniform(keys[7]) < music_odds, tune, recorded)


def _degraded(key: jax.Array, mix: jax.Array, target: jax.Array) -> tuple[jax.Array, jax.Array]:
    """Clipping, a companding codec or a lower sample rate, as StreamMixer._degrade."""
    keys = jax.random.split(key, 3)
    kind, length = jax.random.uniform(keys[0]), len(mix)
    top = jnp.percentile(jnp.abs(mix), jax.random.uniform(keys[1], minval=97.0, maxval=99.9)) + 1.0
    scaled = jnp.clip(mix / 32768.0, -1.0, 1.0)
    code = jnp.rint(jnp.sign(scaled) * jnp.log1p(255.0 * jnp.abs(scaled)) / jnp.log(256.0) * 127.0) / 127.0
    companded = jnp.sign(code) * jnp.expm1(jnp.abs(code) * jnp.log(256.0)) / 255.0 * 32768.0
    edge = jax.random.uniform(keys[2], minval=0.4, maxval=0.95) * (length // 2)
    spectrum = jnp.fft.rfft(jnp.stack([mix, target]))
    narrow = jnp.fft.irfft(spectrum * (jnp.arange(length // 2 + 1) < edge), length)
    out = jnp.select([kind < 0.05, kind < 0.09, kind < 0.13], [jnp.clip(mix, -top, top), companded, narrow[0]], mix)
    return out, jnp.where((kind >= 0.09) & (kind < 0.13), narrow[1], target)


def _segment(key: jax.Array, hard: jax.Array, slots: dict, odds: dict, rate: int) -> dict:
    """One refill of one stream, as StreamMixer._refill."""
    keys = jax.random.split(key, 13)
    length, draw = slots["noise"].shape[1], jax.random.uniform
    hard = draw(keys[0]) < jnp.where(hard, HARD_GOES_ON, odds["hard"])
    slot = jax.random.randint(keys[1], (), 0, len(slots["speech"]))
    source, target = slots["speech"][slot].astype(jnp.float32)
    level = slots["level"][slot]
    seconds = jnp.arange(length) / rate
    seconds = jnp.where(draw(keys[2]) < 0.5, seconds[::-1], seconds)
    gate = jnp.clip((seconds - draw(keys[3], minval=0.3, maxval=3.0)) / FADE_SECONDS, 0.0, 1.0)
    gate = jnp.where(draw(keys[4]) < odds["pauses"], gate, 1.0)
    kind = draw(keys[5])
    alone = (kind < odds["alone"]) | (level < 1.0)
    clean = ~alone & (kind < odds["alone"] + odds["clean"])
    source, target = source * gate * ~alone, target * gate * ~alone
    noise = _noise(keys[6], slots, odds["music"] * jnp.where(alone, MORE_MUSIC_ALONE, 1.0))
    few = jnp.clip(7.0 + 8.0 * jax.random.normal(keys[7]), -8.0, 30.0)
    ratio = jnp.where(draw(keys[8]) < 0.4, draw(keys[9], minval=-8.0, maxval=3.0), few)
    loudness = jnp.sqrt(jnp.mean(jnp.square(noise))) + 1e-3
    scale = jnp.where(alone, 1.0, jnp.where(clean, 0.3 / loudness, level / loudness * 10.0 ** (-ratio / 20.0)))
    mix = source + scale * noise
    total = jnp.sqrt(jnp.mean(jnp.square(mix))) + 1e-3
    own = jnp.where(alone, UNSPOKEN * total, level)
    gain = 32768.0 * 10.0 ** (draw(keys[10], minval=-46.0, maxval=-14.0) / 20.0) / jnp.maximum(total, own)
    mix, target = _degraded(keys[11], mix * gain, target * gain)
    mix = jnp.clip(jnp.rint(mix), -32768.0, 32767.0)
    which = jax.random.randint(keys[12], (), 0, len(slots["hard"]))
    driven = slots["hard"][which].astype(jnp.float32)
    asked = jnp.where(slots["steady"][which], UNSPOKEN * jnp.sqrt(jnp.mean(jnp.square(driven))), NOTHING_ASKED)
    return {
        "noisy": jnp.where(hard, driven, mix),
        "target": jnp.where(hard, 0.0, target),
        "norm": jnp.where(hard, asked, jnp.maximum(own * gain, 1.0)),
        "wide": jnp.where(hard, 1.0, slots["wide"][slot]),
        "voiced": jnp.where(hard | alone, 0.0, 1.0),
        "hard": hard,
    }


# Compiled once for all mixers of the same sizes.
_segments = jax.jit(jax.vmap(_segment, in_axes=(0, 0, None, None, None)))


@partial(jax.jit, static_argnums=3)
def _sequence(state: dict, cold: jax.Array, second: jax.Array, step: int) -> tuple[dict, dict]:
    """The first or the ``second`` half of every stream's segment with its gains, and the state behind it."""
    streams, length = state["noisy"].shape
    fresh = _tracker(streams, state["tracker"]["queue"].shape[1])
    mark = lambda value: cold.reshape(-1, *[1] * (value.ndim - 1))  # noqa: E731
    tracker = jax.tree.map(lambda new, old: jnp.where(mark(old), new, old), fresh, state["tracker"])
    batch = {}
    for name in ("noisy", "target"):
        halves = state[name][:, : length // 2], state[name][:, length // 2 :]
        tail = jnp.where(cold[:, None], 0.0, state[f"{name}_tail"])
        batch[name] = jnp.concatenate([tail, jnp.where(second[:, None], halves[1], halves[0])], axis=1)
    blocks = jnp.sum(jnp.square(batch["noisy"].reshape(streams, -1, step)), axis=2)
    tracker, batch["gain"] = _gains(tracker, (blocks[:, :-1] + blocks[:, 1:]) / (2 * step))
    tails = {f"{name}_tail": batch[name][:, -step:] for name in ("noisy", "target")}
    return {**state, **tails, "tracker": tracker}, batch


class DeviceMixer:
    """Mixes streams on the default device; gives the batches that StreamMixer gives, as arrays there.

    ``odds`` takes the place of some of ODDS. The pool is read once: a pool that goes on being renewed
    is taken up by the next mixer.
    """

    def __init__(self, pool: Pool, streams: int, step: int, seed, **odds: float):
        self.streams, self.step, self.rate = streams, step, pool.rate
        self.odds = ODDS | odds
        self.sequence = sequence_length(pool.rate, step)
        self.slots = self._upload(pool, np.random.default_rng(seed))
        self.key = jax.random.key(np.random.SeedSequence(seed).generate_state(1)[0])
        quiet = {"noisy": (streams, 2 * self.sequence), "target": (streams, 2 * self.sequence)}
        state = {name: jnp.zeros(shape) for name, shape in quiet.items()}
        state |= {name: jnp.zeros(streams) for name in ("norm", "wide", "voiced")}
        state["hard"] = jnp.zeros(streams, bool)
        state["tracker"] = _tracker(streams, pool.rate * 4 // step)
        state |= {name: jnp.zeros((streams, step)) for name in ("noisy_tail", "target_tail")}
        self.state, self.turn = state, 0
        for half in (0, 1):
            self._renew(np.arange(half, streams, 2))

    def _upload(self, pool: Pool, rng: np.random.Generator) -> dict:
        filled = np.flatnonzero(pool.speech_kind)
        length = 2 * self.sequence

        def made(maker):
            return [maker(rng, length, pool.rate) for _ in range(MADE)]

        def stacked(waves, peak):
            return jnp.asarray(np.stack([np.rint(w * min(1.0, peak / np.abs(w).max())) for w in waves]), jnp.int16)

        hard, steady = zip(*made(hard_signal))
        return {
            "speech": jnp.asarray(pool.speech[filled, :, :length]),
            "level": jnp.asarray(
                [active_rms(pool.speech[slot, 1].astype(np.float32), pool.rate) for slot in filled], jnp.float32
            ),
            "wide": jnp.asarray(pool.speech_kind[filled] == 2, jnp.float32),
            "noise": jnp.asarray(pool.noise[np.flatnonzero(pool.noise_kind), :length]),
            "music": stacked([3000.0 * wave for wave in made(music)], 32000.0),
            "hard": stacked(hard, 32767.0),
            "steady": jnp.asarray(steady),
        }

    def _renew(self, rows: np.ndarray) -> None:
        self.key, key = jax.random.split(self.key)
        keys = jax.random.split(key, len(rows))
        fresh = _segments(keys, self.state["hard"][rows], self.slots, self.odds, float(self.rate))
        self.state |= {name: self.state[name].at[rows].set(value) for name, value in fresh.items()}

    def next(self) -> Batch:
        """The next sequence of every stream; half of the streams get their next segment first."""
        self.turn += 1
        second = (self.turn + np.arange(self.streams)) % 2 == 1
        rows, before = np.flatnonzero(~second), self.state["hard"]
        self._renew(rows)
        self.key, key = jax.random.split(self.key)
        cold = jax.random.uniform(key, (self.streams,)) < self.odds["cold"]
        cold = cold & ~jnp.asarray(second) & ~before
        self.state, batch = _sequence(self.state, cold, jnp.asarray(second), self.step)
        kept = {name: self.state[name] for name in ("norm", "wide", "voiced")}
        return Batch(**batch, **kept, cold=cold)
