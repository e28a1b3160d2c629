"""Quality of exported models through the emulated chain, beside the input and RNNoise, in one run.

``python -m training.measure --weights NAME.bin [...] --pairs DIR [--dnsmos] [--only-model]`` prints PESQ, STOI,
ESTOI, SI-SDR, the share of speech frames cut by more than 12 dB and optionally DNSMOS, overall, per ratio and by
room; then in how many clips there are steady lines that input and clean speech lack. ``DIR`` comes from
``training.evalset``. Reverberant pairs are measured against the speech with its early reflections (``early``)
and against the speech in the whole room (``room``). Needs the packages of evaluation/requirements.txt.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")

import argparse
import json
import sys
from pathlib import Path

import jax
import numpy as np
import soundfile

from training import InputError
from training.measures import cut_share, lag_of, pesq, resample, si_sdr, steady_lines, stoi
from training.model import enhance, load_exported
from training.opinion import RATE as OPINION_RATE
from training.opinion import load_network, opinion

_opinion = jax.jit(opinion)


def rnnoise(wave: np.ndarray, rate: int) -> np.ndarray:
    """``wave`` through RNNoise at 48 kHz and back, in time with the input."""
    from pyrnnoise import RNNoise

    up = np.concatenate([resample(wave, rate, 48000), np.zeros(4800)])
    denoiser = RNNoise(sample_rate=48000)
    samples = np.clip(np.rint(up * 32768.0), -32768, 32767).astype(np.int16)
    out = np.concatenate([frame.reshape(-1) for _, frame in denoiser.denoise_chunk(samples[None])])
    down = resample(out.astype(np.float64) / 32768.0, 48000, rate)
    lag = lag_of(down[: len(wave)], wave, rate // 20)
    return down[lag : lag + len(wave)]


def scores(out: np.ndarray, clean: np.ndarray, rate: int, dnsmos: bool) -> dict:
    """All measures of one output."""
    count = min(len(out), len(clean))
    out, clean = out[:count].astype(np.float64), clean[:count].astype(np.float64)
    result = {
        "pesq": pesq(out, clean, rate),
        "stoi": stoi(out, clean, rate),
        "estoi": stoi(out, clean, rate, extended=True),
        "si_sdr": si_sdr(out, clean),
        "cut": cut_share(out, clean, rate),
    }
    if dnsmos:
        result.update(zip(("sig", "bak", "ovrl"), opinions(out, rate)))
    return result


def opinions(out: np.ndarray, rate: int) -> np.ndarray:
    """DNSMOS' speech, background and overall scores; waves under nine seconds are repeated."""
    wave = np.clip(resample(out, rate, OPINION_RATE), -1.0, 1.0)
    size = OPINION_RATE * 901 // 100
    wave = np.tile(wave, -(-size // len(wave)))[:size].astype(np.float32)
    return np.asarray(_opinion(load_network(), wave[None]))[0]


def table(early: list[dict], room: list[dict], infos: list[dict]) -> str:
    """Means overall, per ratio and by room."""
    reverberant = [info["reverberant"] for info in infos]
    ratios = sorted({info["snr_db"] for info in infos})
    groups = [("all, early", early, [True] * len(early)), ("all, room", room, [True] * len(room))]
    groups += [(f"{r:g} dB, room", room, [info["snr_db"] == r for info in infos]) for r in ratios]
    groups += [("reverb, early", early, reverberant), ("reverb, room", room, reverberant)]
    groups += [("dry", room, [not value for value in reverberant])]
    lines = []
    for name, rows, pick in groups:
        chosen = [row for row, picked in zip(rows, pick) if picked]
        if chosen:
            means = "  ".join(f"{key} {np.nanmean([row[key] for row in chosen]):.3f}" for key in chosen[0])
            lines.append(f"  {name:13s} {means}")
    return "\n".join(lines)


def lines_text(found: list[list[tuple[float, float]]]) -> str:
    """In how many clips there are steady lines, and the strongest of all."""
    strongest = max((line for lines in found for line in lines), key=lambda line: line[1], default=None)
    text = f"  lines: in {sum(map(bool, found))} of {len(found)} clips"
    return text + (f", strongest {strongest[1]:.0f} dB re speech at {strongest[0]:.0f} Hz" if strongest else "")


def read_pair(folder: Path, name: str) -> tuple[dict, int]:
    """The waves of a pair by kind (noisy, clean, room), and their rate."""
    waves, rate = {}, 0
    for kind in ("noisy", "clean", "room"):
        path = folder / f"{name}_{kind}.wav"
        if kind == "room" and not path.exists():
            waves[kind] = waves["clean"]
            continue
        waves[kind], rate = soundfile.read(path, dtype="float32")
    return waves, rate


def main(arguments: list[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--weights", required=True, nargs="+")
    parser.add_argument("--pairs", required=True)
    parser.add_argument("--dnsmos", action="store_true")
    parser.add_argument("--only-model", action="store_true", help="leave out the input and RNNoise")
    parser.add_argument("--limit", type=int, help="only the first pairs")
    args = parser.parse_args(arguments)
    folder = Path(args.pairs)
    try:
        infos = json.loads((folder / "pairs.json").read_text())[: args.limit]
        systems = {} if args.only_model else {"input": lambda wave, rate: wave, "rnnoise": rnnoise}
        for path in args.weights:
            systems[path] = _cleaner(path, {info["rate"] for info in infos})
    except (InputError, OSError) as error:
        sys.exit(f"measure: {error}")
    rows: dict[str, dict] = {name: {"early": [], "room": [], "lines": []} for name in systems}
    for info in infos:
        waves, rate = read_pair(folder, info["id"])
        for name, system in systems.items():
            out, results = system(waves["noisy"], rate), rows[name]
            results["early"].append(scores(out, waves["clean"], rate, args.dnsmos))
            same = waves["room"] is waves["clean"] or np.array_equal(waves["room"], waves["clean"])
            results["room"].append(results["early"][-1] if same else scores(out, waves["room"], rate, args.dnsmos))
            results["lines"].append(steady_lines(out, waves["noisy"], waves["room"], rate))
    for name, results in rows.items():
        print(f"{name}\n{table(results['early'], results['room'], infos)}\n{lines_text(results['lines'])}")


def _cleaner(path: str, rates: set[int]):
    loaded = load_exported(path)
    if loaded.is_detector or rates != {loaded.rate}:
        raise InputError(f"{path} cleans {loaded.rate} Hz" if not loaded.is_detector else f"{path} is a voice detector")
    return lambda wave, rate: enhance(loaded.model, loaded.params, loaded.stats, wave * 32768.0) / 32768.0


if __name__ == "__main__":
    main()
