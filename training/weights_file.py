"""Files of a model: the weight file, and the control file that names it and holds tuning keys.

A weight file is a row of self-describing little-endian records without a header.
A record is a name (u32 length, bytes), a u32 type code and the payload. Types: 0 real, 1 integer,
2 text, 3 vector of reals, 4 matrix, 5 list of vectors, 6 list of matrices.
"""

from __future__ import annotations

import hashlib
import os
import struct
from pathlib import Path

import numpy as np

from training import InputError


def _text(value: str) -> bytes:
    raw = value.encode()
    return struct.pack("<I", len(raw)) + raw


def _vector(value: np.ndarray) -> bytes:
    return struct.pack("<I", len(value)) + np.ascontiguousarray(value, "<f4").tobytes()


def _matrix(value: np.ndarray) -> bytes:
    return struct.pack("<II", *value.shape) + np.ascontiguousarray(value, "<f4").tobytes()


def encode(name: str, value) -> bytes:
    """One record. Lists of arrays become lists of vectors or of matrices by their dimension."""
    if isinstance(value, bool):
        raise TypeError(f"{name}: a weight file holds no booleans")
    if isinstance(value, float):
        return _text(name) + struct.pack("<If", 0, value)
    if isinstance(value, int):
        return _text(name) + struct.pack("<II", 1, value & 0xFFFFFFFF)
    if isinstance(value, str):
        return _text(name) + struct.pack("<I", 2) + _text(value)
    if isinstance(value, np.ndarray):
        if value.ndim == 1:
            return _text(name) + struct.pack("<I", 3) + _vector(value)
        return _text(name) + struct.pack("<I", 4) + _matrix(value)
    if isinstance(value, list):
        if all(v.ndim == 1 for v in value):
            return _text(name) + struct.pack("<II", 5, len(value)) + b"".join(map(_vector, value))
        return _text(name) + struct.pack("<II", 6, len(value)) + b"".join(map(_matrix, value))
    raise TypeError(f"{name}: cannot store a {type(value).__name__}")


def write_weights(path: str | Path, entries: dict) -> None:
    """Write all ``entries`` to ``path``, replacing the file in one step."""
    path = Path(path)
    temporary = path.with_suffix(path.suffix + ".tmp")
    temporary.write_bytes(b"".join(encode(name, value) for name, value in entries.items()))
    os.replace(temporary, path)


class _Reader:
    def __init__(self, raw: bytes, path: Path):
        self.raw, self.at, self.path = raw, 0, path

    def take(self, size: int) -> bytes:
        if self.at + size > len(self.raw):
            raise InputError(f"{self.path}: cut short at byte {self.at}")
        part = self.raw[self.at : self.at + size]
        self.at += size
        return part

    def u32(self) -> int:
        return struct.unpack("<I", self.take(4))[0]

    def text(self) -> str:
        return self.take(self.u32()).decode()

    def vector(self) -> np.ndarray:
        return np.frombuffer(self.take(4 * self.u32()), "<f4")

    def matrix(self) -> np.ndarray:
        rows, columns = self.u32(), self.u32()
        return np.frombuffer(self.take(4 * rows * columns), "<f4").reshape(rows, columns)


def read_weights(path: str | Path) -> dict:
    """All records of a weight file by name. Raises InputError for a missing or damaged file."""
    path = Path(path)
    try:
        reader = _Reader(path.read_bytes(), path)
    except OSError as error:
        raise InputError(f"{path}: {error.strerror}") from None
    entries: dict = {}
    while reader.at < len(reader.raw):
        name, code = reader.text(), reader.u32()
        if code == 0:
            entries[name] = struct.unpack("<f", reader.take(4))[0]
        elif code == 1:
            entries[name] = struct.unpack("<i", reader.take(4))[0]
        elif code == 2:
            entries[name] = reader.text()
        elif code == 3:
            entries[name] = reader.vector()
        elif code == 4:
            entries[name] = reader.matrix()
        elif code == 5:
            entries[name] = [reader.vector() for _ in range(reader.u32())]
        elif code == 6:
            entries[name] = [reader.matrix() for _ in range(reader.u32())]
        else:
            raise InputError(f"{path}: record {name!r} has unknown type {code}")
    return entries


def control_text(config: dict, digest: str) -> str:
    """Text of the control file: a comment, the weight file with its SHA-256, the tuning keys."""
    name = config["model"]["name"]
    lines = [f"# {config['model'].get('title', name)}", f"WEIGHT {name}.bin", f"#SHA256 {digest}"]
    lines += [f"{key} {value}" for key, value in config.get("keys", {}).items()]
    return "\n".join(lines) + "\n"


def read_control(path: str | Path) -> tuple[str, dict]:
    """The comment on the first line and the tuning keys of a control file; nothing when it is missing."""
    path, title, keys = Path(path), "", {}
    for line in path.read_text().splitlines() if path.exists() else ():
        if line.startswith("#"):
            title = title or line.lstrip("# ")
        elif line.strip():
            name, _, value = line.strip().partition(" ")
            keys[name] = value.strip()
    keys.pop("WEIGHT", None)
    return title, keys


def export_model(folder: str | Path, config: dict, entries: dict) -> Path:
    """Write NAME.bin and NAME.ctl into ``folder``; returns the path of the weight file."""
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    name = config["model"]["name"]
    write_weights(folder / f"{name}.bin", entries)
    temporary = folder / f"{name}.ctl.tmp"
    digest = hashlib.sha256((folder / f"{name}.bin").read_bytes()).hexdigest()
    temporary.write_text(control_text(config, digest))
    os.replace(temporary, folder / f"{name}.ctl")
    return folder / f"{name}.bin"
