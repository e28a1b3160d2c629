"""A long stream whose noise, ratio and level change with every piece, against fresh sessions.

Both runs hear the same audio, so their difference is what the stream's past does to the model.
"""

from __future__ import annotations

import numpy as np

from evaluation.metrics import si_sdr, stoi
from evaluation.pairs import Pair
from evaluation.suppressors import Suppressor

LEVELS_DB = (-20.0, -36.0, -28.0, -45.0, -24.0)


def pieces(pairs: list[Pair], seconds: float) -> list[tuple[np.ndarray, np.ndarray]]:
    """Noisy and clean pieces, `seconds` in all, each at the next of five levels (of the noisy wave)."""
    out, length = [], 0.0
    for index in range(10_000):
        if length >= seconds:
            break
        pair = pairs[index % len(pairs)]
        level = 10.0 ** (LEVELS_DB[index % len(LEVELS_DB)] / 20.0)
        gain = level / max(np.sqrt(np.mean(np.square(pair.noisy))), 1e-6)
        gain = min(gain, 0.99 / np.max(np.abs(pair.noisy)))
        out.append((pair.noisy * gain, pair.clean * gain))
        length += len(pair.noisy) / pair.rate
    return out


def compare(system: Suppressor, parts: list[tuple[np.ndarray, np.ndarray]]) -> list[dict]:
    """For every fourth piece: time in the stream, STOI and SI-SDR inside the stream and in a fresh session."""
    noisy = np.concatenate([part[0] for part in parts])
    running = system.clean_file(noisy, system.rate)
    rows, at = [], 0
    for index, (noisy_part, clean) in enumerate(parts):
        if index % 4:  # every fourth piece is enough to see a trend
            at += len(clean)
            continue
        inside = running[at : at + len(clean)]
        fresh = system.clean_file(noisy_part, system.rate)
        row = {"seconds": at / system.rate}
        for name, out in (("stream", inside), ("fresh", fresh)):
            row[f"stoi_{name}"] = stoi(out, clean, system.rate)
            row[f"si_sdr_{name}"] = si_sdr(out, clean)
        rows.append(row)
        at += len(clean)
    return rows


def summary(rows: list[dict], parts: int = 5) -> list[dict]:
    """Means over consecutive fifths of the stream."""
    out = []
    for chunk in np.array_split(np.arange(len(rows)), min(parts, len(rows))):
        part = [rows[index] for index in chunk]
        means = {key: float(np.mean([row[key] for row in part])) for key in part[0]}
        out.append(means | {"seconds": part[0]["seconds"]})
    return out
