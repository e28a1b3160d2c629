"""Quality of an exported model through the emulated chain, beside the input and RNNoise, in one run.

``python -m training.measure --config FILE --weights NAME.bin --pairs DIR [--dnsmos] [--only-model]``
prints PESQ, STOI, SI-SDR and optionally DNSMOS OVRL, overall, per ratio and for reverberant pairs,
and the share of speech frames cut by more than 12 dB. ``DIR`` comes from ``training.evalset``.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")

import argparse
import json
import tomllib
import warnings
from pathlib import Path

import jax
import numpy as np
import pesq
import pystoi
import soundfile
import soxr

from training.kinds import make_model
from training.opinion import RATE as OPINION_RATE
from training.opinion import load_network, opinion
from training.stream import enhance
from training.weights_file import read_weights

warnings.filterwarnings("ignore")
_opinion = jax.jit(opinion)


def si_sdr(out: np.ndarray, clean: np.ndarray) -> float:
    """Scale-invariant ratio in dB."""
    along = np.dot(out, clean) / np.dot(clean, clean)
    rest = out - along * clean
    return float(10.0 * np.log10(along**2 * np.dot(clean, clean) / (np.dot(rest, rest) + 1e-9)))


def cut_share(out: np.ndarray, clean: np.ndarray, rate: int) -> float:
    """Share of the speech frames (32 ms within 25 dB of the loud ones) that lie 12 dB or more too low."""
    size = rate * 32 // 1000
    count = min(len(out), len(clean)) // size
    power = lambda w: np.mean(np.square(w[: count * size].reshape(count, size)), axis=1) + 1e-9  # noqa: E731
    o, c = 10 * np.log10(power(out)), 10 * np.log10(power(clean))
    speech = c > np.percentile(c, 95) - 25.0
    return float(np.mean(o[speech] < c[speech] - 12.0))


def delay_of(out: np.ndarray, clean: np.ndarray, most: int) -> int:
    """Lag of ``out`` against ``clean`` in samples, by correlation."""
    size = 1 << (len(clean) + most).bit_length()
    cross = np.fft.irfft(np.fft.rfft(out, size) * np.conj(np.fft.rfft(clean, size)), size)
    return int(np.argmax(cross[:most]))


def rnnoise(wave: np.ndarray, rate: int) -> np.ndarray:
    """``wave`` (16-bit units) through RNNoise at 48 kHz and back, in time with the input."""
    from pyrnnoise import RNNoise

    up = np.concatenate([soxr.resample(wave, rate, 48000), np.zeros(4800)])
    denoiser = RNNoise(sample_rate=48000)
    samples = np.clip(np.rint(up), -32768, 32767).astype(np.int16)
    out = np.concatenate([frame.reshape(-1) for _, frame in denoiser.denoise_chunk(samples[None])])
    down = soxr.resample(out.astype(np.float64), 48000, rate)
    lag = delay_of(down[: len(wave)], wave, rate // 20)
    return down[lag : lag + len(wave)]


def scores(out: np.ndarray, clean: np.ndarray, rate: int, dnsmos: bool) -> dict:
    """All measures of one output, both waves in 16-bit units."""
    count = min(len(out), len(clean))
    out, clean = out[:count].astype(np.float64), clean[:count].astype(np.float64)
    low = 8000 if rate == 8000 else 16000
    o, c = (w if rate == low else soxr.resample(w, rate, low) for w in (out, clean))
    result = {
        "pesq": pesq.pesq(low, c / 32768, o / 32768, "nb" if low == 8000 else "wb"),
        "stoi": pystoi.stoi(clean, out, rate),
        "si_sdr": si_sdr(out, clean),
        "cut": cut_share(out, clean, rate),
    }
    if dnsmos:
        result.update(zip(("sig", "bak", "ovrl"), opinions(out, rate)))
    return result


def opinions(out: np.ndarray, rate: int) -> np.ndarray:
    """DNSMOS' speech, background and overall scores; waves under nine seconds are repeated."""
    wave = out if rate == OPINION_RATE else soxr.resample(out, rate, OPINION_RATE)
    wave = np.clip(wave / 32768.0, -1.0, 1.0)
    size = OPINION_RATE * 901 // 100
    wave = np.tile(wave, -(-size // len(wave)))[:size].astype(np.float32)
    return np.asarray(_opinion(load_network(), wave[None]))[0]


def table(rows: list[dict], infos: list[dict]) -> str:
    """Means overall, per ratio and over the reverberant pairs."""
    groups = [("all", [True] * len(rows))]
    groups += [(f"{r:g} dB", [i["snr_db"] == r for i in infos]) for r in sorted({i["snr_db"] for i in infos})]
    groups += [("reverb", [i["reverberant"] for i in infos]), ("dry", [not i["reverberant"] for i in infos])]
    lines = []
    for name, pick in groups:
        chosen = [r for r, p in zip(rows, pick) if p]
        if chosen:
            means = "  ".join(f"{k} {np.mean([r[k] for r in chosen]):.3f}" for k in chosen[0])
            lines.append(f"  {name:7s} {means}")
    return "\n".join(lines)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--config", required=True)
    parser.add_argument("--weights", required=True)
    parser.add_argument("--pairs", required=True)
    parser.add_argument("--dnsmos", action="store_true")
    parser.add_argument("--only-model", action="store_true", help="leave out the input and RNNoise")
    parser.add_argument("--limit", type=int)
    args = parser.parse_args()
    with open(args.config, "rb") as handle:
        model = make_model(tomllib.load(handle))
    params, stats = model.from_entries(read_weights(args.weights))
    folder = Path(args.pairs)
    infos = json.loads((folder / "pairs.json").read_text())[: args.limit]
    systems = {"model": lambda w, rate: enhance(model, params, stats, w)}
    if not args.only_model:
        systems = {"input": lambda w, rate: w, "rnnoise": rnnoise, **systems}
    rows: dict[str, list] = {name: [] for name in systems}
    for info in infos:
        noisy, rate = soundfile.read(folder / f"{info['id']}_noisy.wav", dtype="float32")
        clean, _ = soundfile.read(folder / f"{info['id']}_clean.wav", dtype="float32")
        for name, system in systems.items():
            out = system(noisy * 32768.0, rate)
            rows[name].append(scores(out, clean * 32768.0, rate, args.dnsmos))
    for name, values in rows.items():
        print(f"{name}\n{table(values, infos)}")


if __name__ == "__main__":
    main()
