"""The feed-forward mask models (versions 0.0.1 to 0.0.4): inputs, losses and exported records.

Versions 0.0.1 and 0.0.2 also feed back a running average of what the gains removed; it is followed
without gradients, and the mask is then trained on it as on any other input.
"""

from __future__ import annotations

from dataclasses import dataclass

import jax
import jax.numpy as jnp
import numpy as np

from training import chain, losses
from training.mixing import Batch, StreamMixer
from training.pools import Pool


@dataclass(frozen=True)
class Traits:
    """What sets a version apart."""

    hamming: bool  # Hamming analysis; synthesis from the unwindowed frame and a triangle window
    feedback: bool  # noise average among the inputs, per-element scale and shift in the blocks
    rescale: bool  # features follow the rescale gain
    power: bool  # log band powers, else log magnitudes per bin


TRAITS = {
    "0.0.1": Traits(hamming=True, feedback=True, rescale=False, power=False),
    "0.0.2": Traits(hamming=False, feedback=True, rescale=False, power=False),
    "0.0.3": Traits(hamming=False, feedback=False, rescale=True, power=False),
    "0.0.4": Traits(hamming=False, feedback=False, rescale=True, power=True),
}


def run_layers(params: dict, x: jax.Array) -> jax.Array:
    """Values of the last layer before the sigmoid, for inputs (..., n)."""
    layer = 0
    while f"B{layer}" in params:
        a = x @ params[f"A{layer}"] + params[f"a{layer}"]
        x = x @ params[f"B{layer}"] + params[f"b{layer}"] + jax.nn.relu(a)
        if f"m{layer}" in params:
            x = x * params[f"m{layer}"] - params[f"r{layer}"]
        layer += 1
    return x @ params["O"] + params["o"]


class FeedForwardModel:
    """What the trainer needs to know about one feed-forward model."""

    soft = False

    def __init__(self, config: dict):
        model = config["model"]
        self.config = config
        self.version = model["version"]
        self.traits = TRAITS[self.version]
        self.shape = chain.Shape(
            model["sample_rate"],
            model["step"],
            model["first_bin"],
            model["end_bin"],
            model["compression_rate"] if self.traits.power else 0,
            model["preview_frames"],
        )
        self.step = self.shape.step
        self.average = model.get("average_frames", 0)
        self.hidden, self.layers = model["hidden"], model["layers"]
        self.window = (chain.hamming_window if self.traits.hamming else chain.vorbis_window)(self.shape.frame)

    @staticmethod
    def described(entries: dict) -> dict:
        """The configuration's section on the model, out of a weight file's records."""
        return {
            **chain.described_frames(entries),
            "compression_rate": entries.get("CompressionRate", 0),
            "average_frames": entries.get("NATFrameCount", 0),
            "hidden": entries["BaesNonLinear"][0].shape[0],
            "layers": len(entries["WeightNonLinear"]),
        }

    def mixer(self, pool: Pool, streams: int, seed) -> StreamMixer:
        """Endless streams out of ``pool``."""
        return StreamMixer(pool, streams, self.step, seed)

    def init(self, rng: np.random.Generator) -> dict:
        """Random parameters."""
        bands = self.shape.bands
        inputs = bands * (self.shape.preview + (1 if self.traits.feedback else 0))
        params = {}
        for layer in range(self.layers - 1):
            for key, share in (("A", 1.0), ("B", 0.3)):
                params[f"{key}{layer}"] = rng.normal(0.0, np.sqrt(share / inputs), (inputs, self.hidden))
            params[f"a{layer}"] = params[f"b{layer}"] = np.zeros(self.hidden)
            if self.traits.feedback:
                params[f"m{layer}"], params[f"r{layer}"] = np.ones(self.hidden), np.zeros(self.hidden)
            inputs = self.hidden
        params["O"] = rng.normal(0.0, 0.5 / np.sqrt(inputs), (inputs, bands))
        params["o"] = np.zeros(bands)
        return {name: value.astype(np.float32) for name, value in params.items()}

    def _features(self, spectrum: jax.Array, gain: jax.Array) -> jax.Array:
        gain = gain if self.traits.rescale else jnp.ones_like(gain)
        if self.traits.power:
            return chain.features(spectrum, gain, self.shape)
        used = spectrum[:, :, self.shape.first_bin : self.shape.end_bin]
        return jnp.log(gain[:, :, None] * jnp.abs(used) + 1.0)

    def statistics(self, mixer: StreamMixer, batches: int = 24) -> dict:
        """Mean and deviation per band; the noise average is measured with its own."""

        @jax.jit
        def sums(noisy, target, gain):
            spectrum = chain.spectra(noisy, self.step, self.window)
            f = self._features(spectrum, gain)
            removed = self._features(spectrum - chain.spectra(target, self.step, self.window), gain)
            mean = lambda v: jnp.mean(v, axis=(0, 1))  # noqa: E731
            return mean(f), mean(jnp.square(f)), mean(removed), mean(jnp.square(removed))

        parts = []
        for _ in range(batches):
            batch = mixer.next()
            parts.append([np.asarray(v, np.float64) for v in sums(batch.noisy, batch.target, batch.gain)])
        mean, square, other_mean, other_square = np.mean(parts, axis=0)
        deviation = lambda m, s: np.sqrt(np.maximum(s - m**2, 1e-4))  # noqa: E731
        repeat = self.shape.preview
        mu, sd = [mean] * repeat, [deviation(mean, square)] * repeat
        if self.traits.feedback:
            mu.append(other_mean)
            sd.append(deviation(other_mean, other_square))
        return {"MU": np.concatenate(mu).astype(np.float32), "SD": np.concatenate(sd).astype(np.float32)}

    def carry(self, streams: int, stats: dict) -> dict:
        """Start of all streams: raw zeros in the history and in the noise average."""
        bands = self.shape.bands
        start = {"past": jnp.zeros((streams, self.shape.preview - 1, bands), jnp.float32)}
        if self.traits.feedback:
            start["queue"] = jnp.zeros((streams, self.average, bands), jnp.float32)
        return start

    def _inputs(self, params: dict, stats: dict, spectrum: jax.Array, gain: jax.Array, carry: dict):
        """Normalised inputs (streams, hops, n) and the next carry."""
        history, past = chain.with_history(self._features(spectrum, gain), carry["past"], self.shape.preview)
        if not self.traits.feedback:
            return (history - stats["MU"]) / stats["SD"], {"past": past}
        magnitude = jnp.abs(spectrum[:, :, self.shape.first_bin : self.shape.end_bin])

        def hop(queue, at):
            history, magnitude = at
            average = jnp.mean(queue, axis=1)
            x = (jnp.concatenate([history, average], axis=1) - stats["MU"]) / stats["SD"]
            gain = jnp.square(jax.nn.sigmoid(run_layers(params, x)))
            removed = jnp.log(magnitude * (1.0 - gain) + 1.0)
            return jnp.concatenate([queue[:, 1:], removed[:, None]], axis=1), x

        queue, x = jax.lax.scan(hop, carry["queue"], (history.transpose(1, 0, 2), magnitude.transpose(1, 0, 2)))
        return jax.lax.stop_gradient(x.transpose(1, 0, 2)), {"past": past, "queue": jax.lax.stop_gradient(queue)}

    def clean(self, params: dict, stats: dict, wave: jax.Array, gain: jax.Array, carry: dict):
        """One sequence through the chain.

        Returns the output wave, a dict with the spectrum and the last layer's values before the
        sigmoid, and the next carry.
        """
        spectrum = chain.spectra(wave, self.step, self.window)
        x, carry = self._inputs(jax.lax.stop_gradient(params), stats, spectrum, gain, carry)
        logits = run_layers(params, x)
        gains = jnp.square(chain.expand(jax.nn.sigmoid(logits), self.shape))
        if self.traits.hamming:
            raw = jnp.fft.rfft(chain.frames(wave, self.step))
            out = chain.resynthesise(gains * raw, chain.triangle_window(self.shape.frame))
        else:
            out = chain.resynthesise(gains * spectrum, self.window)
        return out, {"spectrum": spectrum, "logits": logits}, carry

    def loss(self, params: dict, carry: dict, stats: dict, batch: dict, stage: dict):
        """Loss of one sequence and the carry into the next; ``stage`` is static."""
        fresh = self.carry(batch["noisy"].shape[0], stats)
        cold = batch["cold"][:, None, None]
        carry = {name: jnp.where(cold, fresh[name], carry[name]) for name in fresh}
        out, inside, carry = self.clean(params, stats, batch["noisy"], batch["gain"], carry)
        total = losses.range_penalty(inside["logits"])
        if stage["kind"] == "mask":
            return total + losses.sequence_mask_loss(inside, batch, self.window, self.shape, stage), carry
        return total + losses.sequence_output_loss(out, batch, self.shape, stage), carry

    def arrays(self, batch: Batch) -> dict:
        """The parts of a batch, all of which ``loss`` takes."""
        return vars(batch)

    def entries(self, params: dict, stats: dict) -> dict:
        """Records of the weight file. Every list holds one entry per layer; the unused ones are zero."""
        shape, hidden = self.shape, range(self.layers - 1)
        p = {name: np.asarray(value) for name, value in params.items()}
        out = {
            "Version": self.version,
            "SampleRate": shape.sample_rate,
            "FrameLength": shape.frame,
            "Step": shape.step,
            "CoefficientNumber": shape.bins,
            "FiltrBegin": shape.first_bin,
            "FiltrEnd": shape.end_bin,
            "PreviewFrames": shape.preview,
            "MU": np.asarray(stats["MU"]),
            "SD": np.asarray(stats["SD"]),
            "WeightNonLinear": [p[f"A{k}"] for k in hidden] + [p["O"]],
            "BaesNonLinear": [p[f"a{k}"] for k in hidden] + [p["o"]],
            "WeightLinear": [p[f"B{k}"] for k in hidden] + [np.zeros_like(p["O"])],
            "BaesLinear": [p[f"b{k}"] for k in hidden] + [np.zeros_like(p["o"])],
        }
        if self.traits.power:
            out["CompressionRate"] = shape.rate
        if self.traits.feedback:
            out["NATFrameCount"] = self.average
            out["HeadenMultiplier"] = [p[f"m{k}"] for k in hidden]
            out["HeadenReducer"] = [p[f"r{k}"] for k in hidden]
        return out

    def from_entries(self, entries: dict) -> tuple[dict, dict]:
        """Parameters and statistics of an exported model of the same shape."""
        params = {}
        for layer in range(len(entries["WeightNonLinear"]) - 1):
            for key, bias, kind in (("A", "a", "NonLinear"), ("B", "b", "Linear")):
                params[f"{key}{layer}"] = entries[f"Weight{kind}"][layer]
                params[f"{bias}{layer}"] = entries[f"Baes{kind}"][layer]
            if self.traits.feedback:
                params[f"m{layer}"] = entries["HeadenMultiplier"][layer]
                params[f"r{layer}"] = entries["HeadenReducer"][layer]
        params["O"], params["o"] = entries["WeightNonLinear"][-1], entries["BaesNonLinear"][-1]
        return {k: np.array(v, np.float32) for k, v in params.items()}, {"MU": entries["MU"], "SD": entries["SD"]}
