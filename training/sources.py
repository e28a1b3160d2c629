"""What a model was trained on, from the data's own manifest: the section on data and licences of its card."""

from __future__ import annotations

import re
from collections import Counter
from pathlib import Path

from training.corpus import list_files

UNKNOWN = """**Not stated.** The training data does not say where its recordings come from or what their licences
are. Fill this in before the model is passed on."""


def describe_sources(data: str | Path) -> str:
    """Markdown on the recordings of the training split, by kind, source and licence.

    Sources are told from the manifest's columns ``source`` (its first word) and ``licence``. What these
    columns leave open stays open; without a manifest the text is a remark that nothing is stated.
    """
    data = Path(data)
    if not (data / "MANIFEST.tsv").exists():
        return UNKNOWN + "\n"
    counts: Counter = Counter()
    for row in list_files(data):
        if row["split"] == "train":
            source = re.split(r"[ :]", (row.get("source") or "").strip())[0]
            counts[row["path"].split("/", 1)[0], source, (row.get("licence") or "").strip()] += 1
    if not any(source or licence for _, source, licence in counts):
        return UNKNOWN + "\n"
    lines = ["| Kind | Source | Licence | Recordings |", "|---|---|---|---:|"]
    for (kind, source, licence), count in sorted(counts.items()):
        lines.append(f"| {kind} | {source or '**not stated**'} | {licence or '**not stated**'} | {count} |")
    files = "`MANIFEST.tsv`" + (" and `LICENCES.md`" if (data / "LICENCES.md").exists() else "")
    lines += ["", f"Authors and the attributions to give are in the data's {files}. Synthetic rooms and noises are"]
    lines += ["generated. None of the recordings is part of the model's files."]
    return "\n".join(lines) + "\n"


def write_sources(path: Path, data: str | Path) -> None:
    """Writes ``describe_sources`` to ``path``, for the card of the model beside it."""
    path.write_text(describe_sources(data), encoding="utf-8")


def read_sources(weights: Path) -> str:
    """The text for the card of a weight file: from NAME.sources.md or sources.md beside it, or a remark."""
    for path in (weights.with_suffix(".sources.md"), weights.with_name("sources.md")):
        if path.exists():
            return path.read_text(encoding="utf-8").strip()
    return UNKNOWN
