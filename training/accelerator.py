"""A training run packed for a machine with an accelerator: ``python -m training.accelerator --help``.

Writes one archive with recordings of the training and validation splits as Opus, their manifest, this package,
the configuration and the weights to start from. Unpacked there, ``./run MINUTES`` fills a pool on all cores,
trains with the mixes on the device and leaves checkpoints and weights in ``out/``; called again it goes on.
"""

from __future__ import annotations

import argparse
import csv
import io
import sys
import tarfile
from pathlib import Path

import numpy as np
import soundfile

from training import InputError
from training.corpus import list_files

ROOT = Path(__file__).resolve().parent.parent
COLUMNS = ("path", "class_or_speaker", "split")
RUN = """#!/bin/sh
# Fills the pool, trains for some minutes on the accelerator and exports: ./run [MINUTES [STREAMS]]
set -eu
cd "$(dirname "$0")"
workers=$(($(nproc) - 1))
timeout --signal=INT "$((${1:-9} * 60))" python3 -m training.train --config config.toml --data data --work out \\
  --init-from start.bin --workers "$((workers > 0 ? workers : 1))" --streams "${2:-128}" --mix-on-device \\
  --checkpoint-minutes 1 || [ $? -eq 124 ] || [ $? -eq 130 ]
"""


def chosen(rows: list[dict], seed: int) -> list[dict]:
    """The recordings in an order of which every beginning has all speakers and kinds of noise about evenly."""
    rng, groups = np.random.default_rng(seed), {}
    for index in rng.permutation(len(rows)):
        row = rows[index]
        groups.setdefault((row["path"].split("/", 1)[0], row["class_or_speaker"]), []).append(row)
    turns = [(turn / len(group), row) for group in groups.values() for turn, row in enumerate(group)]
    return [row for _, row in sorted(turns, key=lambda item: item[0])]


def encoded(path: Path) -> bytes:
    """The recording as Opus, which keeps what 16 kHz models hear at a third of FLAC's size."""
    samples, rate = soundfile.read(path, dtype="float32", always_2d=True)
    out = io.BytesIO()
    if rate not in (8000, 12000, 16000, 24000, 48000):
        import soxr

        samples, rate = soxr.resample(samples, rate, 48000 if rate > 24000 else 24000), 48000 if rate > 24000 else 24000
    soundfile.write(out, samples.mean(axis=1), rate, format="OGG", subtype="OPUS")
    return out.getvalue()


def pack(data: Path, config: Path, start: Path, archive: Path, megabytes: float, seed: int = 1) -> int:
    """Writes the archive; returns how many recordings found room. Raises InputError when none did."""
    room, kept, table = int(megabytes * 1e6), 0, io.StringIO()
    manifest = csv.writer(table, delimiter="\t")
    manifest.writerow(COLUMNS)
    with tarfile.open(archive, "w") as tar:

        def add(name: str, content: bytes, mode: int = 0o644) -> None:
            nonlocal room
            entry = tarfile.TarInfo(name)
            entry.size, entry.mode = len(content), mode
            tar.addfile(entry, io.BytesIO(content))
            room -= 512 + (len(content) + 511) // 512 * 512

        add("run", RUN.encode(), 0o755)
        add("config.toml", config.read_bytes())
        add("start.bin", start.read_bytes())
        for path in sorted((ROOT / "training").glob("*.*")):
            if path.suffix in (".py", ".npz"):
                add(f"training/{path.name}", path.read_bytes())
        rows = list_files(data)
        responses = [row for row in rows if row["path"].startswith("rir/")]
        for row in responses + chosen([row for row in rows if row not in responses], seed):
            if row["split"] not in ("train", "valid"):
                continue
            source = data / row["path"]
            content = source.read_bytes() if row in responses else encoded(source)
            if len(content) + 100_000 > room:
                break
            row = {**row, "path": row["path"] if row in responses else str(Path(row["path"]).with_suffix(".opus"))}
            add(f"data/{row['path']}", content)
            manifest.writerow([row[column] for column in COLUMNS])
            kept += 1
        add("data/MANIFEST.tsv", table.getvalue().encode())
    if not kept:
        archive.unlink()
        raise InputError(f"{archive}: no recording fits into {megabytes:g} MB")
    return kept


def main(arguments: list[str] | None = None) -> int:
    """Packs; returns the exit status."""
    parser = argparse.ArgumentParser(
        prog="training.accelerator", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("archive", type=Path, help="tar file to write")
    parser.add_argument("--data", type=Path, required=True, help="folder of recordings")
    parser.add_argument("--config", type=Path, required=True, help="model configuration (TOML)")
    parser.add_argument("--init-from", type=Path, required=True, help="weight file to start from")
    parser.add_argument("--megabytes", type=float, default=55.0, help="size of the archive at most (%(default)g)")
    args = parser.parse_args(arguments)
    try:
        kept = pack(args.data, args.config, args.init_from, args.archive, args.megabytes)
    except (InputError, OSError, soundfile.LibsndfileError) as error:
        print(f"accelerator: {error}", file=sys.stderr)
        return 2
    print(f"{args.archive}: {kept} recordings, {args.archive.stat().st_size / 1e6:.1f} MB")
    return 0


if __name__ == "__main__":
    sys.exit(main())
