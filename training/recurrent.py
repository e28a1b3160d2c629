"""The recurrent mask model (version 0.0.5): statistics, losses and exported records."""

from __future__ import annotations

import jax
import jax.numpy as jnp
import numpy as np

from training import chain, losses
from training.adapt import adapt, widen
from training.configuration import mixes
from training.mixing import Batch, StreamMixer
from training.network import init_recurrent, recurrent_entries, recurrent_params, run_recurrent
from training.pools import Pool

VERSION = "0.0.5"


class RecurrentModel:
    """What the trainer needs to know about one 0.0.5 model, made from its configuration."""

    def __init__(self, config: dict):
        model = config["model"]
        self.config = config
        self.shape = chain.Shape(
            model["sample_rate"],
            model["step"],
            model["first_bin"],
            model["end_bin"],
            model["compression_rate"],
            model["preview_frames"],
        )
        self.hidden, self.layers = model["hidden"], model["layers"]
        self.soft = config.get("keys", {}).get("ORVEL_SMOOT_RM_MODIFY_v0_0_5") == "TRUE"
        self.window = chain.vorbis_window(self.shape.frame)
        self.step = self.shape.step
        freq = np.arange(self.shape.first_bin, self.shape.end_bin) * self.shape.sample_rate / self.shape.frame
        centres = (freq @ chain.compression_matrix(self.shape.used, self.shape.rate)) / np.sum(
            chain.compression_matrix(self.shape.used, self.shape.rate), axis=0
        )
        self.above = (centres > 8000.0).astype(np.float32)

    @staticmethod
    def described(entries: dict) -> dict:
        """The configuration's section on the model, out of a weight file's records."""
        return {
            **RecurrentModel.described_input(entries),
            "hidden": entries["BaesNonLinear"][0].shape[0],
            "layers": len(entries["WeightNonLinear"]),
        }

    @staticmethod
    def described_input(entries: dict) -> dict:
        """The part of ``described`` that does not depend on the network."""
        return {**chain.described_frames(entries), "compression_rate": entries.get("CompressionRate", 2)}

    def mixer(self, pool: Pool, streams: int, seed, kind: type = StreamMixer) -> StreamMixer:
        """Endless streams out of ``pool``; ``kind`` may be DeviceMixer."""
        return kind(pool, streams, self.step, seed, **mixes(self.config))

    def init(self, rng: np.random.Generator) -> dict:
        """Random parameters."""
        shape = self.shape
        return init_recurrent(rng, shape.bands * shape.preview, self.hidden, self.layers, shape.bands)

    def statistics(self, mixer: StreamMixer, batches: int = 24) -> dict:
        """Mean and deviation of the features per band over mixes."""

        @jax.jit
        def sums(noisy, gain):
            f = chain.features(chain.spectra(noisy, self.step, self.window), gain, self.shape)
            return jnp.mean(f, axis=(0, 1)), jnp.mean(jnp.square(f), axis=(0, 1))

        parts = []
        for _ in range(batches):
            batch = mixer.next()
            parts.append([np.asarray(v, np.float64) for v in sums(batch.noisy, batch.gain)])
        mean, square = np.mean(parts, axis=0)
        return {
            "MU": mean.astype(np.float32),
            "SD": np.sqrt(np.maximum(square - mean**2, 1e-4)).astype(np.float32),
        }

    def carry(self, streams: int, stats: dict) -> dict:
        """State of all streams at their start: zero state, and a raw-zero feature history."""
        past = jnp.broadcast_to(-stats["MU"] / stats["SD"], (streams, self.shape.preview - 1, self.shape.bands))
        return {"state": jnp.zeros((streams, self.hidden), jnp.float32), "past": past}

    def run(self, params: dict, inputs: jax.Array, state: jax.Array):
        """The network over one sequence: see ``run_recurrent``."""
        return run_recurrent(params, inputs, state)

    def clean(self, params: dict, stats: dict, wave: jax.Array, gain: jax.Array, carry: dict):
        """One sequence through the chain.

        Returns the output wave, a dict with the spectrum, the last layer's values before the sigmoid
        and the first layer's with its gates, and the next carry.
        """
        shape = self.shape
        spectrum = chain.spectra(wave, self.step, self.window)
        f = (chain.features(spectrum, gain, shape) - stats["MU"]) / stats["SD"]
        inputs, past = chain.with_history(f, carry["past"], shape.preview)
        logits, state, first, gate = self.run(params, inputs.transpose(1, 0, 2), carry["state"])
        logits = logits.transpose(1, 0, 2)
        mask = chain.expand(jax.nn.sigmoid(logits), shape)
        gains = chain.soft_square(mask) if self.soft else jnp.square(mask)
        out = chain.resynthesise(gains * spectrum, self.window)
        inside = {"spectrum": spectrum, "logits": logits, "first": first, "gate": gate}
        return out, inside, {"state": jax.lax.stop_gradient(state), "past": past}

    def loss(self, params: dict, carry: dict, stats: dict, batch: dict, stage: dict):
        """Loss of one sequence and the carry into the next; ``stage`` is static."""
        fresh = self.carry(batch["noisy"].shape[0], stats)
        cold = batch["cold"][:, None]
        carry = {
            "state": jnp.where(cold, 0.0, carry["state"]),
            "past": jnp.where(cold[:, :, None], fresh["past"], carry["past"]),
        }
        out, inside, carry = self.clean(params, stats, batch["noisy"], batch["gain"], carry)
        total = losses.range_penalty(inside["logits"]) + losses.range_penalty(inside["first"])
        total += losses.holding_penalty(inside["gate"])
        if stage["kind"] == "mask":
            known = 1.0 - self.above * (1.0 - batch["wide"][:, None, None])
            return total + losses.sequence_mask_loss(inside, batch, self.window, self.shape, stage, known), carry
        return total + losses.sequence_output_loss(out, batch, self.shape, stage), carry

    def arrays(self, batch: Batch) -> dict:
        """The parts of a batch, all of which ``loss`` takes."""
        return vars(batch)

    def entries(self, params: dict, stats: dict) -> dict:
        """Records of the weight file."""
        params = {name: np.asarray(value) for name, value in params.items()}
        return self.input_entries(VERSION, stats) | recurrent_entries(params)

    def input_entries(self, version: str, stats: dict) -> dict:
        """The records that do not depend on the network."""
        shape = self.shape
        return {
            "Version": version,
            "SampleRate": shape.sample_rate,
            "FrameLength": shape.frame,
            "Step": shape.step,
            "CoefficientNumber": shape.bins,
            "FiltrBegin": shape.first_bin,
            "FiltrEnd": shape.end_bin,
            "PreviewFrames": shape.preview,
            "CompressionRate": shape.rate,
            "MU": np.tile(np.asarray(stats["MU"]), shape.preview),
            "SD": np.tile(np.asarray(stats["SD"]), shape.preview),
        }

    def from_entries(self, entries: dict) -> tuple[dict, dict | None]:
        """Parameters and statistics of an exported model.

        A narrower network is widened. A model of another rate is adapted band by band; its
        statistics do not fit and are None.
        """
        bands, rng = self.shape.bands, np.random.default_rng(0)
        params = widen(recurrent_params(entries), self.hidden, rng)
        compression = entries.get("CompressionRate", 2)
        source = chain.Shape(
            entries["SampleRate"],
            entries["Step"],
            entries["FiltrBegin"],
            entries["FiltrEnd"],
            compression,
            entries["PreviewFrames"],
        )
        if source == self.shape:
            return params, {"MU": entries["MU"][:bands], "SD": entries["SD"][:bands]}
        return adapt(params, source, self.shape, rng), None
