"""What there is to do: lists the inputs of a folder, a manifest or shards as units of work."""

from __future__ import annotations

import json
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from pathlib import Path, PurePosixPath
from typing import Any

SUFFIXES = frozenset(".wav .flac .ogg .oga .opus .mp3 .aif .aiff .au .caf .w64 .rf64".split())


@dataclass(frozen=True)
class Item:
    """A recording: where it is read and where, below the output folder, its result goes."""

    source: str
    target: str
    key: str = ""  # of a wav.scp
    fault: str = ""  # why it cannot be read, where the list itself says so


@dataclass(frozen=True)
class Unit:
    """What one worker does at a time: some recordings, cleaned together, or one shard."""

    items: tuple[Item, ...]
    shard: bool = False


@dataclass(frozen=True)
class Plan:
    """All units; `kind` tells where they come from: tree, jsonl, scp or shards."""

    kind: str
    units: list[Unit]
    lines: list[dict[str, Any]]  # of a JSON-lines manifest


def make_plan(source: str, group: int) -> Plan:
    """Units of a folder, of a manifest (.jsonl, .json), of a Kaldi list (.scp) or of tar shards: a folder of them,
    one file, a pattern such as s3://bucket/train-*.tar, all as fsspec takes them.

    Raises ValueError when there is nothing, or two inputs have one target.
    """
    lines: list[dict[str, Any]] = []
    path = Path(source)
    if source.endswith(".tar") or "://" in source or (path.is_dir() and any(path.glob("*.tar"))):
        kind, items = "shards", list(_shards(source))
    elif path.is_dir():
        kind, items = "tree", list(_tree(path))
    elif path.suffix in (".jsonl", ".json"):
        lines = [json.loads(line) for line in path.read_text().splitlines() if line.strip()]
        kind, items = "jsonl", [_of_manifest(path, line) for line in lines]
    elif path.suffix == ".scp":
        kind, items = "scp", [_of_scp(path, line) for line in path.read_text().splitlines() if line.strip()]
    else:
        raise ValueError(f"{source}: neither a folder nor a .jsonl, .scp or .tar file")
    if not items:
        raise ValueError(f"{source}: holds no audio")
    _check_targets(items)
    size = 1 if kind == "shards" else group
    units = [Unit(tuple(items[at : at + size]), kind == "shards") for at in range(0, len(items), size)]
    return Plan(kind, units, lines)


def _tree(folder: Path) -> Iterator[Item]:
    for path in sorted(folder.rglob("*")):
        if path.suffix.lower() in SUFFIXES and not path.name.startswith(".") and path.is_file():
            yield Item(str(path), path.relative_to(folder).as_posix())


def _inside(name: str) -> str:
    """A path below the output folder, whatever the list says: no root, no parents."""
    return "/".join(part for part in PurePosixPath(name).parts if part not in ("/", "..", "."))


def audio_key(line: dict[str, Any]) -> str | None:
    """The member of a manifest's line that names the audio."""
    return next((key for key in ("audio_filepath", "audio", "path", "wav") if isinstance(line.get(key), str)), None)


def _of_manifest(manifest: Path, line: dict[str, Any]) -> Item:
    key = audio_key(line)
    if key is None:
        raise ValueError(f"{manifest}: a line names no audio_filepath: {json.dumps(line)[:80]}")
    return Item(str(manifest.parent / line[key]), _inside(line[key]))


def _of_scp(scp: Path, line: str) -> Item:
    key, _, source = line.strip().partition(" ")
    source = source.strip()
    if not source or source.endswith("|"):
        return Item(source, f"wav/{_inside(key)}.wav", key, "a command, not a file; run it first")
    return Item(str(scp.parent / source), f"wav/{_inside(key)}{Path(source).suffix}", key)


def _shards(source: str) -> Iterator[Item]:
    import fsspec

    pattern = source if source.endswith(".tar") else f"{source.rstrip('/')}/*.tar"
    for file in sorted(fsspec.open_files(pattern), key=lambda file: str(file.path)):
        yield Item(file.fs.unstrip_protocol(file.path), PurePosixPath(file.path).name)


def _check_targets(items: Iterable[Item]) -> None:
    seen: dict[str, str] = {}
    for item in items:
        if seen.setdefault(item.target, item.source) != item.source:
            raise ValueError(f"{item.source} and {seen[item.target]} have one output, {item.target}")
