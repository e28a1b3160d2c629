"""A study: a small network that shares its weights over frequency and remembers per band.

``training/configs/study/bands.toml`` trains it beside one of version 0.0.5 at the same computing time; the
library has no such cleaner. Per hop, every band has a vector of channels. A block mixes bands (grouped
matrices over the bands, the same for all channels of a group), then time (per band and channel a state that
is blended by a gate which, like the new value, depends on the input alone, so that all hops of a sequence
are computed at once but for the blend: L. Feng et al., "Were RNNs All We Needed?", 2024, arXiv 2410.01201).
The output is a gain and a turn of the phase per band, spread over the bins by triangles.
"""

from __future__ import annotations

import jax
import jax.numpy as jnp
import numpy as np

from training import chain, losses
from training.configuration import mixes
from training.mixing import Batch, StreamMixer
from training.network import product
from training.pools import Pool

VERSION = "study-bands"
POWER_OFFSET = 1000.0  # as for the other cleaners: what lies below is silence
# Of the parts of the spectrum as inputs: compressed to the power 0.3, and scaled to a size of about one.
COMPLEX_POWER, COMPLEX_SCALE = -0.35, 0.04
GROUPS = 4
NEIGHBOURS = (-2, -1, 1, 2)
INPUTS = 1 + len(NEIGHBOURS) + 3  # and the hop before, real and imaginary part


def triangles(bins: int, bands: int) -> np.ndarray:
    """(bands, bins) weights that add up to one per bin: half of the bands are single bins, the others widen."""
    low = bands // 2
    centres = np.concatenate([np.arange(low), np.geomspace(low, bins - 1, bands - low)])
    return np.stack([np.interp(np.arange(bins), centres, row) for row in np.eye(bands)]).astype(np.float32)


class BandModel:
    """What the trainer needs to know about one such model, made from its configuration."""

    def __init__(self, config: dict):
        model = config["model"]
        self.config = config
        rate, step = model["sample_rate"], model["step"]
        self.shape = chain.Shape(rate, step, 0, step, 1, 1)
        self.channels, self.layers, self.bands = model["hidden"], model["layers"], model["bands"]
        if self.channels % GROUPS:
            raise ValueError(f"hidden must be a multiple of {GROUPS}, not {self.channels}")
        self.step, self.window = step, chain.vorbis_window(2 * step)
        self.spread = triangles(step + 1, self.bands)
        self.pick = self.spread.T / np.sum(self.spread, axis=1)

    @staticmethod
    def described(entries: dict) -> dict:
        """The configuration's section on the model, out of a weight file's records."""
        layers = max(int(name[1:]) for name in entries if name[0] == "z" and name[1:].isdigit()) + 1
        bands, hidden = entries["bias"].shape
        return {
            "version": VERSION,
            "sample_rate": entries["SampleRate"],
            "step": entries["Step"],
            "hidden": hidden,
            "layers": layers,
            "bands": bands,
        }

    def mixer(self, pool: Pool, streams: int, seed, kind: type = StreamMixer) -> StreamMixer:
        """Endless streams out of ``pool``."""
        return kind(pool, streams, self.step, seed, **mixes(self.config))

    def init(self, rng: np.random.Generator) -> dict:
        """Random parameters."""
        channels, bands = self.channels, self.bands

        def normal(rows, columns, scale=1.0):
            return rng.normal(0.0, scale / np.sqrt(rows), (rows, columns)).astype(np.float32)

        params = {"embed": normal(INPUTS, channels), "bias": normal(bands, channels, 0.3)}
        for layer in range(self.layers):
            for group in range(GROUPS):
                params[f"mix{layer}.{group}"] = normal(bands, bands)
            params[f"mixed{layer}"] = normal(channels, channels, 0.5)
            for name in ("c", "g"):
                params[f"{name}{layer}"] = normal(channels, channels)
            params[f"z{layer}"] = normal(channels, channels, 0.3)
            params[f"zb{layer}"] = rng.uniform(-4.0, 0.0, channels).astype(np.float32)
            params[f"o{layer}"] = normal(channels, channels, 0.5)
        params["gain"], params["turn"] = normal(channels, 1, 0.3)[:, 0], np.zeros(channels, np.float32)
        params["level"] = np.full(bands, 1.0, np.float32)
        return params

    def statistics(self, mixer: StreamMixer, batches: int = 24) -> dict:
        """Mean and deviation of the log powers per band over mixes."""
        sums = jax.jit(lambda noisy, gain: self._power(self._spectrum(noisy), gain))
        values = []
        for _ in range(batches):
            batch = mixer.next()
            values.append(np.asarray(sums(batch.noisy, batch.gain), np.float64).reshape(-1, self.bands))
        values = np.concatenate(values)
        return {
            "MU": values.mean(axis=0).astype(np.float32),
            "SD": np.maximum(values.std(axis=0), 1e-2).astype(np.float32),
        }

    def carry(self, streams: int, stats: dict) -> dict:
        """State of all streams at their start: zeros, after silence."""
        past = jnp.broadcast_to((np.log(POWER_OFFSET) - stats["MU"]) / stats["SD"], (streams, self.bands))
        return {"state": jnp.zeros((streams, self.layers, self.bands, self.channels), jnp.float32), "past": past}

    def _spectrum(self, wave: jax.Array) -> jax.Array:
        return chain.spectra(wave, self.step, self.window)

    def _power(self, spectrum: jax.Array, gain: jax.Array) -> jax.Array:
        power = jnp.square(spectrum.real) + jnp.square(spectrum.imag)
        return jnp.log((power * jnp.square(gain)[:, :, None]) @ self.pick + POWER_OFFSET)

    def _inputs(self, spectrum: jax.Array, gain: jax.Array, stats: dict, past: jax.Array):
        """(streams, hops, bands, INPUTS), and what the next sequence needs of this one."""
        level = (self._power(spectrum, gain) - stats["MU"]) / stats["SD"]
        before = jnp.concatenate([past[:, None], level[:, :-1]], axis=1)
        wide = jnp.pad(level, ((0, 0), (0, 0), (2, 2)), mode="edge")
        around = [wide[:, :, 2 + k : 2 + k + self.bands] for k in NEIGHBOURS]
        scaled = spectrum * gain[:, :, None]
        real, imag = scaled.real @ self.pick, scaled.imag @ self.pick
        small = COMPLEX_SCALE * losses.power(jnp.square(real) + jnp.square(imag) + POWER_OFFSET, COMPLEX_POWER)
        return jnp.stack([level, *around, before, real * small, imag * small], axis=3), level[:, -1]

    def clean(self, params: dict, stats: dict, wave: jax.Array, gain: jax.Array, carry: dict):
        """One sequence through the chain: the output wave, the gains per band, and the next carry."""
        spectrum = self._spectrum(wave)
        inputs, past = self._inputs(spectrum, gain, stats, carry["past"])
        h = product(inputs, params["embed"]) + params["bias"]
        states = []
        for layer in range(self.layers):
            h = h + self._across(params, layer, _normed(h))
            more, state = self._along(params, layer, _normed(h), carry["state"][:, layer])
            h = h + more
            states.append(state)
        h = _normed(h)
        size = jax.nn.sigmoid(h @ params["gain"] + params["level"])
        turn = jnp.tanh(h @ params["turn"])
        mask = (size * jnp.cos(turn)) @ self.spread + 1j * ((size * jnp.sin(turn)) @ self.spread)
        out = chain.resynthesise(mask * spectrum, self.window)
        state = jax.lax.stop_gradient(jnp.stack(states, axis=1))
        return out, {"gains": size}, {"state": state, "past": past}

    def _across(self, params: dict, layer: int, h: jax.Array) -> jax.Array:
        parts = jnp.split(h, GROUPS, axis=3)
        mixed = [jnp.einsum("shkc,kl->shlc", part, params[f"mix{layer}.{group}"]) for group, part in enumerate(parts)]
        return product(jax.nn.silu(jnp.concatenate(mixed, axis=3)), params[f"mixed{layer}"])

    def _along(self, params: dict, layer: int, h: jax.Array, state: jax.Array):
        gate = jax.nn.sigmoid(product(h, params[f"z{layer}"]) + params[f"zb{layer}"])
        new = gate * product(h, params[f"c{layer}"])

        def hop(state, now):
            gate, new = now
            state = state - gate * state + new
            return state, state

        state, held = jax.lax.scan(hop, state, (gate.swapaxes(0, 1), new.swapaxes(0, 1)))
        opened = jax.nn.silu(product(h, params[f"g{layer}"]))
        return product(held.swapaxes(0, 1) * opened, params[f"o{layer}"]), state

    def loss(self, params: dict, carry: dict, stats: dict, batch: dict, stage: dict):
        """Loss of one sequence and the carry into the next; ``stage`` is static and of kind ``output``."""
        fresh = self.carry(batch["noisy"].shape[0], stats)
        cold = batch["cold"]
        carry = {
            "state": jnp.where(cold[:, None, None, None], 0.0, carry["state"]),
            "past": jnp.where(cold[:, None], fresh["past"], carry["past"]),
        }
        out, _, carry = self.clean(params, stats, batch["noisy"], batch["gain"], carry)
        return losses.sequence_output_loss(out, batch, self.shape, stage), carry

    def arrays(self, batch: Batch) -> dict:
        """The parts of a batch, all of which ``loss`` takes."""
        return vars(batch)

    def entries(self, params: dict, stats: dict) -> dict:
        """Records of the weight file."""
        head = {"Version": VERSION, "SampleRate": self.shape.sample_rate, "Step": self.step}
        return head | {name: np.asarray(value) for name, value in (stats | params).items()}

    def from_entries(self, entries: dict) -> tuple[dict, dict]:
        """Parameters and statistics of an exported model."""
        arrays = {name: value for name, value in entries.items() if isinstance(value, np.ndarray)}
        return {k: v for k, v in arrays.items() if k not in ("MU", "SD")}, {k: arrays[k] for k in ("MU", "SD")}


def _normed(h: jax.Array) -> jax.Array:
    return h * jax.lax.rsqrt(jnp.mean(jnp.square(h), axis=3, keepdims=True) + 1e-5)
