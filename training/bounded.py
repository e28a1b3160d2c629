"""Long hostile inputs through a model's emulated chain: ``python -m training.bounded --weights NAME.bin``.

Prints for 60 s each of silence, full-scale noise, faint noise, tone, square wave, clicks at several
densities, DC, bursts and ten mixtures of clicks, sweeps, pulses and tones the largest state of the first
and of the last half and the largest output; fails when a value is not finite, or the state still grows
at the end, or passes 200 in a mixture.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")

import argparse
import sys

import jax
import numpy as np

from training import InputError
from training.detector import FRAME, DetectorModel
from training.level import HOP, REFERENCE, RescaleTracker, frame_energies, levelled
from training.model import load_exported
from training.synth import hard_signal, single_clicks

SECONDS = 60
MIXED_STATE = 200.0


def clicks(rng: np.random.Generator, rate: int, per_second: int) -> np.ndarray:
    """Half of them regular and of full scale, half at random times and of random height.

    Single samples fill all bands at once, which is what starts a state loop that is too strong.
    """
    return single_clicks(rng, SECONDS * rate, SECONDS * per_second // 2, 2 * rate // per_second, 32767.0)


def hard_signals(rng: np.random.Generator, rate: int) -> np.ndarray:
    """One hard signal after the other, six seconds of each."""
    return np.concatenate([hard_signal(rng, 6 * rate, rate)[0] for _ in range(SECONDS // 6)])


def hostile_inputs(rate: int) -> dict[str, np.ndarray]:
    """Waves in 16-bit units by name."""
    rng = np.random.default_rng(1)
    count = SECONDS * rate
    time = np.arange(count) / rate
    burst = rng.normal(0.0, 9000.0, count) * (np.sin(2 * np.pi * 0.5 * time) > 0.6)
    waves = {
        "silence": np.zeros(count),
        "full-scale noise": rng.uniform(-32768.0, 32767.0, count),
        "faint noise": rng.normal(0.0, 1.0, count),
        "tone": 30000.0 * np.sin(2 * np.pi * 1000.0 * time),
        "square": 32767.0 * np.sign(np.sin(2 * np.pi * 220.0 * time)),
        **{f"{rate_hz} clicks a second": clicks(rng, rate, rate_hz) for rate_hz in (3, 12, 40)},
        "dc": np.full(count, 20000.0),
        "bursts": burst,
        **{f"hard signals {k}": hard_signals(np.random.default_rng(k), rate) for k in range(10)},
    }
    return {name: np.clip(np.rint(wave), -32768, 32767).astype(np.float32) for name, wave in waves.items()}


def largest_values(model, params: dict, stats: dict, wave: np.ndarray) -> tuple[float, float, float]:
    """Largest state in the first and in the last half, and largest output, over the whole wave."""
    detector = isinstance(model, DetectorModel)
    step = model.step
    wave = wave[: len(wave) // (step * 100) * step * 100]
    carry = model.carry(1, stats)
    if detector:
        wave = levelled(wave[None], np.full(1, REFERENCE**2))[0]
        full, history = np.concatenate([np.zeros(FRAME - HOP, np.float32), wave]), FRAME - HOP
        run = jax.jit(lambda w, g, c: model.scores(params, c, stats, w, np.zeros(1, bool)))
        gains = None
    else:
        full, history = np.concatenate([np.zeros(step, np.float32), wave]), step
        gains = RescaleTracker(1, model.shape.sample_rate, step).gains(frame_energies(full[None], step))

        def clean(w, g, c):
            out, _, c = model.clean(params, stats, w, g, c)
            return out, c

        run = jax.jit(clean)
    states, loudest, block = [], 0.0, 100 * step
    for k in range(len(wave) // block):
        part = full[None, k * block : (k + 1) * block + history]
        out, carry = run(part, None if gains is None else gains[:, k * 100 : (k + 1) * 100], carry)
        loudest = max(loudest, float(np.max(np.abs(out))))
        states.append(float(np.max(np.abs(carry["state"]))) if "state" in carry else 0.0)
    half = len(states) // 2
    return max(states[:half]), max(states[half:]), loudest


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--weights", required=True)
    args = parser.parse_args()
    try:
        loaded = load_exported(args.weights)
    except InputError as error:
        sys.exit(f"bounded: {error}")
    failed = False
    for name, wave in hostile_inputs(loaded.rate).items():
        first, last, loudest = largest_values(loaded.model, loaded.params, loaded.stats, wave)
        # The halves of a mixture hold other signals: there the size counts. Speech keeps below 20.
        grown = max(first, last) > MIXED_STATE if name.startswith("hard") else last > 2.0 * first + 1.0
        bad = grown or not np.isfinite(first + last + loudest)
        failed |= bad
        print(f"{name:19s} state {first:8.2f} then {last:8.2f}  output {loudest:9.1f}{'  UNBOUNDED' if bad else ''}")
    if failed:
        raise SystemExit(1)


if __name__ == "__main__":
    main()
