"""Pictures for docs/quality.md, kept small: few colours, modest size."""

from __future__ import annotations

import csv
from io import BytesIO
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
from PIL import Image

from evaluation.pairs import Pair

LOWEST_DB, HIGHEST_DB = -110.0, -35.0


def _save(figure, path: Path, dpi: int) -> None:
    buffer = BytesIO()
    figure.savefig(buffer, dpi=dpi)
    plt.close(figure)
    image = Image.open(buffer).convert("RGB").quantize(64, dither=Image.Dither.NONE)
    image.save(path, optimize=True)


def draw_roc(curves: dict, path: Path) -> None:
    """Hit rate over false-alarm rate, false alarms on a logarithmic axis."""
    figure, axis = plt.subplots(figsize=(6, 4.5), layout="constrained")
    for name, (alarms, hits) in curves.items():
        axis.plot(np.maximum(alarms, 1e-4), hits, label=name, linewidth=2 if "orvel" in name else 1)
    axis.set(xscale="log", xlim=(1e-3, 1), ylim=(0.3, 1.0), xlabel="false-alarm rate", ylabel="hit rate")
    axis.grid(alpha=0.3)
    axis.legend(loc="lower right")
    _save(figure, path, 90)


def draw_examples(examples: list[tuple[Pair, np.ndarray]], path: Path) -> None:
    """One row for each pair: noisy, cleaned, clean, all on one scale."""
    figure, axes = plt.subplots(
        len(examples),
        3,
        figsize=(13, 1.5 * len(examples)),
        sharex=True,
        sharey=True,
        squeeze=False,
        layout="constrained",
    )
    for row, (pair, cleaned) in zip(axes, examples):
        for axis, wave in zip(row, (pair.noisy, cleaned, pair.clean)):
            # Noise far below the scale keeps digital silence finite: minus infinity would draw white.
            floor = np.random.default_rng(0).normal(0.0, 1e-7, len(wave))
            axis.specgram(
                wave + floor,
                NFFT=512,
                noverlap=256,
                Fs=pair.rate,
                mode="psd",
                cmap="magma",
                vmin=LOWEST_DB,
                vmax=HIGHEST_DB,
            )
        ratio, room = pair.info.get("snr_db"), pair.info.get("reverberant")
        about = f"{ratio:g} dB, {pair.info.get('noise', '')}" if ratio is not None else pair.name
        row[0].set_ylabel("Hz")
        row[0].set_title(about + (", reverberant" if room else ""), fontsize=8, loc="left", pad=2)
    for axis, name in zip(axes[0], ("noisy", "cleaned", "clean")):
        axis.set_title(name, fontsize=10, pad=2)
    for axis in axes[-1]:
        axis.set_xlabel("s")
    _save(figure, path, 75)


def draw_curves(folder: Path, path: Path) -> bool:
    """Validation loss of every training log in `folder`; tells whether there was one."""
    logs = {log.stem: list(csv.DictReader(log.open())) for log in sorted(folder.glob("*.csv"))}
    logs = {name: rows for name, rows in logs.items() if rows}
    if not logs:
        return False
    columns = 3
    lines = -(-len(logs) // columns)
    figure, axes = plt.subplots(lines, columns, figsize=(11, 2.4 * lines), squeeze=False, layout="constrained")
    for axis in axes.flat[len(logs) :]:
        axis.set_visible(False)
    for axis, (name, rows) in zip(axes.flat, logs.items()):
        for stage in dict.fromkeys(row["stage"] for row in rows):
            part = [row for row in rows if row["stage"] == stage]
            axis.plot(
                [int(row["update"]) for row in part],
                [float(row["valid_loss"]) for row in part],
                label=stage,
                marker=".",
                markersize=3,
            )
        axis.set_title(name, fontsize=9)
        axis.set_xlabel("updates", fontsize=8)
        axis.set_ylabel("validation loss", fontsize=8)
        axis.tick_params(labelsize=7)
        axis.grid(alpha=0.3)
        axis.legend(fontsize=7)
    _save(figure, path, 80)
    return True
