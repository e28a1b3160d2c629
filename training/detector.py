"""The voice activity model (version VAD_0.0.1): features, loss and records."""

from __future__ import annotations

import jax
import jax.numpy as jnp
import numpy as np

from training.adapt import widen
from training.bands import pooling_matrix
from training.chain import hamming_window
from training.level import HOP, RATE
from training.losses import range_penalty
from training.minutes import MinuteMixer
from training.network import init_recurrent, recurrent_entries, recurrent_params, run_recurrent
from training.pools import Pool

VERSION = "VAD_0.0.1"
FRAME = 240
BINS = FRAME // 2 + 1
HISTORY = 4
VARIANCE_FLOOR = 1e-7
SILENT = 0.35  # share of the outputs without speech that get the score 0


def raw_features(wave: jax.Array) -> jax.Array:
    """Log band powers of levelled (streams, FRAME - HOP history + samples): (streams, hops, 61)."""
    blocks = wave.reshape(wave.shape[0], -1, HOP)
    parts = [blocks[:, k : blocks.shape[1] - (FRAME // HOP - 1) + k] for k in range(FRAME // HOP)]
    spectrum = jnp.fft.rfft(jnp.concatenate(parts, axis=2) * hamming_window(FRAME))
    power = jnp.square(spectrum.real) + jnp.square(spectrum.imag)
    return jnp.log(power @ pooling_matrix(BINS) + 1.0)


class DetectorModel:
    """What the trainer needs to know about the detector."""

    step = HOP

    def __init__(self, config: dict):
        model = config["model"]
        self.config = config
        self.hidden, self.layers = model["hidden"], model["layers"]
        self.delay = model["label_delay"]
        self.features = pooling_matrix(BINS).shape[1]

    @staticmethod
    def described(entries: dict) -> dict:
        """The configuration's section on the model, out of a weight file's records."""
        return {
            "version": VERSION,
            "sample_rate": entries["SampleRate"],
            "hidden": entries["BaesNonLinear"][0].shape[0],
            "layers": len(entries["WeightNonLinear"]),
            "label_delay": 0,
        }

    def mixer(self, pool: Pool, streams: int, seed) -> MinuteMixer:
        return MinuteMixer(pool, streams, seed, FRAME - HOP, self.delay)

    def init(self, rng: np.random.Generator) -> dict:
        return init_recurrent(rng, self.features * HISTORY, self.hidden, self.layers, 1)

    def statistics(self, mixer: MinuteMixer, batches: int = 12) -> dict:
        """Mean and variance per feature."""
        sums = jax.jit(lambda w: (jnp.mean(raw_features(w), (0, 1)), jnp.mean(jnp.square(raw_features(w)), (0, 1))))
        parts = [[np.asarray(v, np.float64) for v in sums(mixer.next()["wave"])] for _ in range(batches)]
        mean, square = np.mean(parts, axis=0)
        return {"MU": mean.astype(np.float32), "SD": np.maximum(square - mean**2, 1e-3).astype(np.float32)}

    def carry(self, streams: int, stats: dict) -> dict:
        """Zero state; the history holds normalised frames of zeros."""
        zero = -stats["MU"] / jnp.sqrt(stats["SD"] + VARIANCE_FLOOR)
        return {
            "state": jnp.zeros((streams, self.hidden), jnp.float32),
            "past": jnp.broadcast_to(zero, (streams, HISTORY - 1, self.features)),
        }

    def scores(self, params: dict, carry: dict, stats: dict, wave: jax.Array, cold: jax.Array):
        """Raw outputs (streams, hops) for a levelled wave with history, and the next carry."""
        raw, _, carry = self._run(params, carry, stats, wave, cold)
        return raw, carry

    def _run(self, params: dict, carry: dict, stats: dict, wave: jax.Array, cold: jax.Array):
        """As ``scores``, with the first layer's values between."""
        fresh = self.carry(wave.shape[0], stats)
        state = jnp.where(cold[:, None], 0.0, carry["state"])
        past = jnp.where(cold[:, None, None], fresh["past"], carry["past"])
        f = (raw_features(wave) - stats["MU"]) / jnp.sqrt(stats["SD"] + VARIANCE_FLOOR)
        full = jnp.concatenate([past, f], axis=1)
        inputs = jnp.concatenate([full[:, k : k + f.shape[1]] for k in range(HISTORY)], axis=2)
        raw, state, first, _ = run_recurrent(params, inputs.transpose(1, 0, 2), state)
        return raw[:, :, 0].T, first, {"state": jax.lax.stop_gradient(state), "past": full[:, f.shape[1] :]}

    def loss(self, params: dict, carry: dict, stats: dict, batch: dict, stage: dict):
        """Cross-entropy of the raw output with the delayed label; word starts may count for more."""
        raw, first, carry = self._run(params, carry, stats, batch["wave"], batch["cold"])
        label = batch["label"]
        weight = 1.0 + stage.get("onset", 0.0) * batch["onset"]
        return range_penalty(first) + jnp.mean(weight * (jax.nn.softplus(raw) - label * raw)), carry

    def arrays(self, batch: dict) -> dict:
        return batch

    def entries(self, params: dict, stats: dict, calibration: dict | None = None) -> dict:
        """Records of the weight file; ``calibration`` holds the two score vectors."""
        params = {name: np.asarray(value) for name, value in params.items()}
        return {
            "Version": VERSION,
            "SampleRate": RATE,
            "FrameLength": FRAME,
            "MU": np.asarray(stats["MU"]),
            "SD": np.asarray(stats["SD"]),
            **recurrent_entries(params, linear_output=True),
            **(calibration or {}),
        }

    def from_entries(self, entries: dict) -> tuple[dict, dict]:
        """Parameters and statistics of an exported model; a narrower network is widened."""
        params = widen(recurrent_params(entries, linear_output=True), self.hidden, np.random.default_rng(0))
        return params, {"MU": entries["MU"], "SD": entries["SD"]}

    def calibrate(self, params: dict, stats: dict, pool: Pool, seed: int, sequences: int = 60) -> dict:
        """The raw outputs of the scores 0, 0.5 and 1 on a validation pool.

        That of 0.5 has the best F1, 0.5 % exceed that of 1, and the share SILENT of those without speech lies
        below that of 0, near which plain noise lies.
        """
        mixer, streams = self.mixer(pool, 32, [seed, 11]), 32
        carry, run = self.carry(streams, stats), jax.jit(self.scores)
        raw, labels = [], []
        for _ in range(sequences):
            batch = mixer.next()
            values, carry = run(params, carry, stats, batch["wave"], batch["cold"])
            raw.append(np.asarray(values).ravel())
            labels.append(batch["label"].ravel())
        raw, labels = np.concatenate(raw), np.concatenate(labels) > 0.5
        order = np.argsort(-raw)
        hits = np.cumsum(labels[order])
        f1 = 2.0 * hits / (np.arange(1, len(raw) + 1) + labels.sum())
        low, high = np.percentile(raw[~labels], 100.0 * SILENT), np.percentile(raw, 99.5)
        best = float(raw[order[np.argmax(f1)]])
        return {
            "Test_MINMAX": np.array([low, high], np.float32),
            "Test_BestF1": np.array([np.clip(best, low + 1e-3, high - 1e-3)], np.float32),
        }
