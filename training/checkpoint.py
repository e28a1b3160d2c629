"""Checkpoints that a kill at any moment cannot damage, and the learning curve beside them."""

from __future__ import annotations

import csv
import os
import pickle
from pathlib import Path

import jax
import numpy as np


def save(path: Path, state: dict) -> None:
    """Write ``state`` (nested dicts of arrays and numbers) beside ``path``, then swap it in."""
    temporary = path.with_suffix(".tmp")
    with temporary.open("wb") as handle:
        pickle.dump(jax.tree.map(np.asarray, state), handle)
        handle.flush()
        os.fsync(handle.fileno())
    os.replace(temporary, path)


def load(path: Path) -> dict | None:
    """The last checkpoint, or None when there is none."""
    if not path.exists():
        return None
    with path.open("rb") as handle:
        return pickle.load(handle)


class Curve:
    """A CSV file with one row per checkpoint; rows past the resumed update are dropped."""

    def __init__(self, path: Path, columns: list[str], resume_at: int):
        self.path, self.columns = path, columns
        rows = []
        if path.exists():
            with path.open(newline="") as handle:
                rows = [r for r in csv.DictReader(handle) if int(r["update"]) <= resume_at]
        with path.open("w", newline="") as handle:
            writer = csv.DictWriter(handle, columns)
            writer.writeheader()
            writer.writerows(rows)

    def add(self, row: dict) -> None:
        """Append one row at once, so that nothing is lost with the process."""
        with self.path.open("a", newline="") as handle:
            csv.DictWriter(handle, self.columns).writerow(row)
