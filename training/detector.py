"""The voice activity model (version VAD_0.0.1): gain, features, labels, loss and records."""

from __future__ import annotations

import jax
import jax.numpy as jnp
import numpy as np

from training.adapt import widen
from training.bands import pooling_matrix
from training.chain import hamming_window
from training.corpus import active_rms
from training.network import init_recurrent, recurrent_entries, recurrent_params, run_recurrent
from training.pools import Pool, segment_length

VERSION = "VAD_0.0.1"
RATE = 8000
HOP = 80
FRAME = 240
BINS = FRAME // 2 + 1
HISTORY = 4
VARIANCE_FLOOR = 1e-7
REFERENCE = 2000.0
ATTACK = 0.01 ** (1.0 / 100.0)
DECAY = 0.01 ** (1.0 / 300.0)
FLOOR_ENERGY = 100.0**2
RISE = 2.0


def gain_levels(energy: np.ndarray, level: np.ndarray) -> np.ndarray:
    """Input gains (streams, hops) of the automatic level; ``level`` (streams,) is moved along."""
    out = np.empty(energy.shape, np.float32)
    for t in range(energy.shape[1]):
        e = energy[:, t]
        slow = ATTACK * level + (1.0 - ATTACK) * e
        fast = ATTACK * e + (1.0 - ATTACK) * level
        level[:] = np.where(e < FLOOR_ENERGY, DECAY * level, np.where(e <= RISE * level, slow, fast))
        out[:, t] = REFERENCE / (np.sqrt(level) + 1e-7)
    return out


def levelled(wave: np.ndarray, level: np.ndarray) -> np.ndarray:
    """Each hop of ``wave`` (streams, samples) times the gain of its own hop."""
    hops = wave.reshape(len(wave), -1, HOP)
    gains = gain_levels(np.mean(np.square(hops, dtype=np.float64), axis=2), level)
    return (hops * gains[:, :, None]).reshape(wave.shape)


def raw_features(wave: jax.Array) -> jax.Array:
    """Log band powers of levelled (streams, FRAME - HOP history + samples): (streams, hops, 61)."""
    blocks = wave.reshape(wave.shape[0], -1, HOP)
    parts = [blocks[:, k : blocks.shape[1] - (FRAME // HOP - 1) + k] for k in range(FRAME // HOP)]
    spectrum = jnp.fft.rfft(jnp.concatenate(parts, axis=2) * hamming_window(FRAME))
    power = jnp.square(spectrum.real) + jnp.square(spectrum.imag)
    return jnp.log(power @ pooling_matrix(BINS) + 1.0)


def voice_labels(clean: np.ndarray) -> np.ndarray:
    """One for hops with speech, from the clean wave (samples,); zeros when there is none.

    A hop counts when its 30 ms frame lies within 30 dB of the loud ones and 8 dB over the floor;
    gaps up to 120 ms are closed, bursts under 40 ms dropped.
    """
    power = np.mean(np.square(clean.reshape(-1, HOP)), axis=1)
    padded = np.concatenate([power[:1], power, power[-1:]])
    power = np.convolve(padded, np.ones(3) / 3.0, "valid")
    loud = 10.0 * np.log10(np.percentile(power, 97) + 1e-9)
    level = 10.0 * np.log10(power + 1e-9)
    floor = np.percentile(level, 5)
    if loud < 0.0:
        return np.zeros(len(power), np.float32)
    active = level > min(max(loud - 30.0, floor + 8.0), loud - 10.0)
    return _drop_runs(~_drop_runs(~active, 12), 4).astype(np.float32)


def _drop_runs(flags: np.ndarray, shorter: int) -> np.ndarray:
    """Clear the runs of set flags that are shorter than ``shorter``."""
    edges = np.flatnonzero(np.diff(np.concatenate([[False], flags, [False]]).astype(np.int8)))
    out = flags.copy()
    for begin, end in zip(edges[::2], edges[1::2]):
        if end - begin < shorter:
            out[begin:end] = False
    return out


def onsets(labels: np.ndarray) -> np.ndarray:
    """One in the first 120 ms of every stretch of speech that follows 300 ms without any."""
    out = np.zeros_like(labels)
    for begin in np.flatnonzero(np.diff(np.concatenate([[0.0], labels])) > 0.0):
        if not labels[max(begin - 30, 0) : begin].any():
            out[begin : begin + 12] = labels[begin : begin + 12]
    return out


class DetectorMixer:
    """Endless streams for the detector: levelled wave, delayed labels, and where speech begins."""

    def __init__(self, pool: Pool, streams: int, seed, delay: int):
        self.pool, self.streams, self.delay = pool, streams, delay
        self.rng = np.random.default_rng(seed)
        self.length = segment_length(RATE) // HOP * HOP
        self.half = self.length // 2 // HOP * HOP
        self.level = np.full(streams, REFERENCE**2)
        self.wave = np.zeros((streams, self.length), np.float32)
        # Labels and onsets side by side.
        self.labels = np.zeros((streams, 2, self.length // HOP), np.float32)
        self.tail = np.zeros((streams, FRAME - HOP), np.float32)
        self.past_labels = np.zeros((streams, 2, delay), np.float32)
        self.phase, self.turn = np.arange(streams) % 2, 0
        for stream in range(streams):
            self._refill(stream)

    def _slot(self, kinds: np.ndarray) -> int:
        while True:
            slot = int(self.rng.integers(len(kinds)))
            if kinds[slot]:
                return slot

    def _refill(self, stream: int) -> None:
        rng = self.rng
        source, target = self.pool.speech[self._slot(self.pool.speech_kind), :, : self.length].astype(np.float32)
        level = active_rms(target, RATE)
        if rng.random() < 0.12 or level < 1.0:
            source, target, level = np.zeros_like(source), np.zeros_like(target), 0.0
        elif rng.random() < 0.45:  # speech comes and goes
            gate = np.zeros(self.length, np.float32)
            for _ in range(rng.integers(1, 3)):
                begin = rng.integers(0, self.length)
                gate[begin : begin + int(rng.exponential(2.0) * RATE)] = 1.0
            source, target = source * gate, target * gate
        noise = np.zeros(self.length, np.float32)
        for k in range(rng.choice(3, p=(0.65, 0.27, 0.08)) + 1):
            part = self.pool.noise[self._slot(self.pool.noise_kind)][: self.length].astype(np.float32)
            noise += np.roll(part, rng.integers(self.length)) * (1.0 if k == 0 else 10.0 ** rng.uniform(-0.75, 0.15))
        noise_level = np.sqrt(np.mean(np.square(noise))) + 1e-3
        ratio = 60.0 if rng.random() < 0.06 else np.clip(rng.normal(6.0, 8.0), -8.0, 35.0)
        reference = level if level > 0.0 else noise_level
        mix = source + noise * (reference / noise_level * 10.0 ** (-ratio / 20.0) if level > 0.0 else 1.0)
        total = np.sqrt(np.mean(np.square(mix))) + 1e-3
        gain = 32768.0 * 10.0 ** (rng.uniform(-46.0, -14.0) / 20.0) / max(total, level)
        self.wave[stream] = np.clip(np.rint(mix * gain), -32768.0, 32767.0)
        labels = voice_labels(target) if level > 0.0 else np.zeros(self.length // HOP, np.float32)
        self.labels[stream] = labels, onsets(labels)

    def next(self) -> dict:
        """The next sequence of every stream: ``wave`` with history, ``label``, ``onset``, ``cold``."""
        self.turn += 1
        rows = np.arange(self.streams)
        second = (self.turn + self.phase) % 2 == 1
        cold = np.zeros(self.streams, bool)
        for stream in rows[~second]:
            self._refill(stream)
            cold[stream] = self.rng.random() < 0.3
        self.level[cold] = REFERENCE**2
        self.tail[cold] = 0.0
        self.past_labels[cold] = 0.0
        start = np.where(second, self.half, 0)
        at = start[:, None] + np.arange(self.half)[None, :]
        hop_at = start[:, None] // HOP + np.arange(self.half // HOP)[None, :]
        wave = levelled(self.wave[rows[:, None], at], self.level)
        labels = np.stack([self.labels[row][:, at] for row, at in enumerate(hop_at)])
        labels = np.concatenate([self.past_labels, labels], axis=2)
        wave = np.concatenate([self.tail, wave], axis=1)
        self.tail = wave[:, -(FRAME - HOP) :].copy()
        self.past_labels = labels[:, :, labels.shape[2] - self.delay :].copy()
        label, onset = labels[:, 0, : self.half // HOP], labels[:, 1, : self.half // HOP]
        return {"wave": wave, "label": label, "onset": onset, "cold": cold}


class DetectorModel:
    """What the trainer needs to know about the detector."""

    step = HOP

    def __init__(self, config: dict):
        model = config["model"]
        self.config = config
        self.hidden, self.layers = model["hidden"], model["layers"]
        self.delay = model["label_delay"]
        self.features = pooling_matrix(BINS).shape[1]

    def mixer(self, pool: Pool, streams: int, seed) -> DetectorMixer:
        return DetectorMixer(pool, streams, seed, self.delay)

    def init(self, rng: np.random.Generator) -> dict:
        return init_recurrent(rng, self.features * HISTORY, self.hidden, self.layers, 1)

    def statistics(self, mixer: DetectorMixer, batches: int = 12) -> dict:
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
        fresh = self.carry(wave.shape[0], stats)
        state = jnp.where(cold[:, None], 0.0, carry["state"])
        past = jnp.where(cold[:, None, None], fresh["past"], carry["past"])
        f = (raw_features(wave) - stats["MU"]) / jnp.sqrt(stats["SD"] + VARIANCE_FLOOR)
        full = jnp.concatenate([past, f], axis=1)
        inputs = jnp.concatenate([full[:, k : k + f.shape[1]] for k in range(HISTORY)], axis=2)
        raw, state, _ = run_recurrent(params, inputs.transpose(1, 0, 2), state)
        return raw[:, :, 0].T, {"state": jax.lax.stop_gradient(state), "past": full[:, f.shape[1] :]}

    def loss(self, params: dict, carry: dict, stats: dict, batch: dict, stage: dict):
        """Cross-entropy of the raw output with the delayed label; word starts may count for more."""
        raw, carry = self.scores(params, carry, stats, batch["wave"], batch["cold"])
        label = batch["label"]
        weight = 1.0 + stage.get("onset", 0.0) * batch["onset"]
        return jnp.mean(weight * (jax.nn.softplus(raw) - label * raw)), carry

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

    def calibrate(self, params: dict, stats: dict, pool: Pool, seed: int, sequences: int = 40) -> dict:
        """The raw output of the best F1, and the 0.5 and 99.5 percentiles, on a validation pool."""
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
        low, high = np.percentile(raw, (0.5, 99.5))
        best = float(raw[order[np.argmax(f1)]])
        return {
            "Test_MINMAX": np.array([low, high], np.float32),
            "Test_BestF1": np.array([np.clip(best, low + 1e-3, high - 1e-3)], np.float32),
        }
