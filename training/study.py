"""Networks of a study side by side: quality over computing time.

``python -m training.study --pairs DIR --picture FILE --curves CSV RUN=FOLDER ...`` measures the weight files
``UPDATE_SECONDS.bin`` in each folder, SECONDS being the processor time of the run until then, and draws PESQ and
ESTOI against the speech in its room over it. Without runs it draws the curves that are there. Needs the packages
of evaluation/requirements.txt.
"""

from __future__ import annotations

import argparse
import csv
import json
from pathlib import Path

import numpy as np

from training.measure import read_pair, scores
from training.model import enhance, load_exported

MEASURES = ("pesq", "stoi", "estoi", "si_sdr", "cut")
COLUMNS = ("run", "update", "seconds", *MEASURES)


def measured(path: Path, pairs: Path, limit: int | None) -> dict:
    """Means of the measures over the pairs."""
    loaded, rows = load_exported(path), []
    for info in json.loads((pairs / "pairs.json").read_text())[:limit]:
        waves, rate = read_pair(pairs, info["id"])
        out = enhance(loaded.model, loaded.params, loaded.stats, waves["noisy"] * 32768.0) / 32768.0
        rows.append(scores(out, waves["room"], rate, False))
    return {name: round(float(np.nanmean([row[name] for row in rows])), 4) for name in MEASURES}


def draw(curves: Path, picture: Path) -> None:
    """PESQ and ESTOI of all runs over minutes."""
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    with curves.open(newline="") as handle:
        rows = list(csv.DictReader(handle))
    figure, axes = plt.subplots(1, 2, figsize=(9, 3), layout="constrained")
    for axis, name in zip(axes, ("pesq", "estoi")):
        for run in dict.fromkeys(row["run"] for row in rows):
            part = sorted((float(row["seconds"]) / 60.0, float(row[name])) for row in rows if row["run"] == run)
            axis.plot(*zip(*part), marker=".", label=run)
        axis.set_xlabel("minutes on one core")
        axis.set_ylabel(name.upper())
        axis.grid(alpha=0.3)
        axis.legend(fontsize=8)
    figure.savefig(picture, dpi=80)


def main(arguments: list[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("runs", nargs="*", metavar="RUN=FOLDER")
    parser.add_argument("--pairs", type=Path, default=Path("build/pairs"))
    parser.add_argument("--limit", type=int, help="only the first pairs")
    parser.add_argument("--curves", type=Path, default=Path("training/curves/study/networks.csv"))
    parser.add_argument("--picture", type=Path, default=Path("docs/img/study.png"))
    args = parser.parse_args(arguments)
    if args.runs:
        rows = []
        for run, folder in (text.split("=", 1) for text in args.runs):
            for path in sorted(Path(folder).glob("*_*.bin"), key=lambda path: int(path.stem.split("_")[0])):
                update, seconds = path.stem.split("_")
                row = {"run": run, "update": update, "seconds": seconds, **measured(path, args.pairs, args.limit)}
                print(row, flush=True)
                rows.append(row)
        with args.curves.open("w", newline="") as handle:
            writer = csv.DictWriter(handle, COLUMNS)
            writer.writeheader()
            writer.writerows(rows)
    draw(args.curves, args.picture)


if __name__ == "__main__":
    main()
