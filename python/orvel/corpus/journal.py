"""What a run has done, so that the next one goes on from there, and what it says at its end."""

from __future__ import annotations

import fcntl
import json
import math
import os
from pathlib import Path
from typing import Any

from orvel.corpus.plan import Plan, audio_key
from orvel.corpus.work import Result
from orvel.recordings import pending


class Journal:
    """journal.jsonl in a folder: the settings, then one line with the results of each unit that is done.

    Raises ValueError when the folder holds a run with other inputs or settings, or one that goes on.
    """

    def __init__(self, folder: Path, settings: dict[str, Any]) -> None:
        folder.mkdir(parents=True, exist_ok=True)
        self.folder, self.done = folder, dict[int, list[Result]]()
        self._lock = (folder / ".lock").open("w")
        try:
            fcntl.flock(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise ValueError(f"{folder}: another run works on it") from None
        for left in folder.rglob(".*.part"):  # by a run that was killed
            left.unlink()
        path = folder / "journal.jsonl"
        whole = path.read_bytes().rpartition(b"\n")[0] if path.exists() else b""  # a kill may have cut the last line
        lines = [json.loads(line) for line in whole.splitlines()]
        if lines and lines[0] != settings:
            raise ValueError(f"{folder}: holds a run with other inputs or options; choose another folder")
        for line in lines[1:]:
            self.done[line["unit"]] = line["results"]
        with pending(path) as part:
            part.write_text("".join(json.dumps(line) + "\n" for line in (lines or [settings])))
        self._file = path.open("a")

    def add(self, unit: int, results: list[Result]) -> None:
        """Notes that a unit is done; its outputs are in place."""
        self.done[unit] = results
        self._file.write(json.dumps({"unit": unit, "results": results}) + "\n")
        self._file.flush()
        os.fsync(self._file.fileno())

    def close(self) -> None:
        self._file.close()
        self._lock.close()

    @property
    def results(self) -> list[Result]:
        """Of all units, in their order."""
        return [result for unit in sorted(self.done) for result in self.done[unit]]


def _dbfs(squares: list[tuple[float, float]]) -> float | None:
    """Level of mean squares, each weighted with its seconds; None for silence or nothing."""
    seconds = sum(weight for _, weight in squares)
    mean = sum(square * weight for square, weight in squares) / seconds if seconds else 0.0
    return round(10.0 * math.log10(mean), 2) if mean > 0.0 else None


def summary(results: list[Result], elapsed: float, worked: list[Result]) -> dict[str, Any]:
    """Hours, speed and levels. `worked`: what this run did itself, in `elapsed` seconds."""
    good = [result for result in results if "error" not in result]
    seconds = sum(result["seconds"] for result in good)
    now = sum(result.get("seconds", 0.0) for result in worked)
    report = {
        "recordings": len(good),
        "errors": len(results) - len(good),
        "hours": round(seconds / 3600.0, 4),
        "elapsed_seconds": round(elapsed, 1),
        "times_real_time": round(now / elapsed, 1) if elapsed else None,
        "level_before_dbfs": _dbfs([(result["before"], result["seconds"]) for result in good]),
    }
    if any("after" in result for result in good):
        report["level_after_dbfs"] = _dbfs([(r["after"], r["seconds"]) for r in good if "after" in r])
    if any("speech" in result for result in good):
        report["speech_hours"] = round(sum(result["speech"] for result in good) / 3600.0, 4)
    return report


def write_text(path: Path, text: str) -> None:
    """A whole file or none."""
    with pending(path) as part:
        part.write_text(text)


def write_lists(folder: Path, plan: Plan, task: str, failed: set[str]) -> None:
    """The list that the outputs are found by, in the form that the inputs came in; without broken inputs."""
    items = [item for unit in plan.units for item in unit.items]
    if task == "vad" and plan.kind != "shards":
        texts = [(folder / f"{item.target}.json").read_text() for item in items if item.source not in failed]
        write_text(folder / "segments.jsonl", "".join(texts))
        if plan.kind == "scp":
            rows = [
                f"{item.key}-{index:04d} {item.key} {start:.3f} {end:.3f}\n"
                for item, text in zip([i for i in items if i.source not in failed], texts, strict=True)
                for index, (start, end, _) in enumerate(json.loads(text)["segments"])
            ]
            write_text(folder / "segments", "".join(rows))
    elif plan.kind == "scp":
        rows = [f"{item.key} {folder / item.target}\n" for item in items if item.source not in failed]
        write_text(folder / "wav.scp", "".join(rows))
    elif plan.kind == "jsonl":
        kept = [(line, item) for line, item in zip(plan.lines, items, strict=True) if item.source not in failed]
        rows = [json.dumps({**line, str(audio_key(line)): item.target}) + "\n" for line, item in kept]
        write_text(folder / "manifest.jsonl", "".join(rows))
