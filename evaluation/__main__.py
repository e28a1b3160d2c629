"""`python -m evaluation`: measures the shipped models and writes docs/quality.md with its pictures."""

import evaluation.threads  # noqa: F401, must come before numpy

import argparse
import hashlib
import pickle
import time
from pathlib import Path

from evaluation import report
from evaluation.pairs import STREAMS
from evaluation.run import Settings, measure_all

ROOT = Path(__file__).resolve().parent.parent


def main() -> None:
    """Parses the options and runs."""
    parser = argparse.ArgumentParser(prog="python -m evaluation", description=__doc__)
    add = parser.add_argument
    add("--library", type=Path, default=ROOT / "build" / "release" / "liborvel.so.1")
    add("--models", type=Path, default=ROOT / "models")
    add("--data", type=Path, default=ROOT.parent / "shared" / "data", help="recordings to mix")
    add("--pairs", type=Path, action="append", default=[], help="folder of noisy/clean pairs "
        "instead of mixes, once for each rate")
    add("--clips", type=int, default=60, help="pairs at 16 kHz (half as many at 8 and 32 kHz)")
    add("--seconds", type=float, default=6.0, help="length of a pair")
    add("--streams", type=int, default=STREAMS, help="minutes for the voice detectors")
    add("--long", type=float, default=600.0, help="seconds of the stream of changing noise")
    add("--jobs", type=int, default=2, help="processes")
    add("--minutes", type=float, default=10.0, help="begin no further pair after this time")
    add("--only", nargs="+", default=list(report.SECTIONS), choices=report.SECTIONS,
        help="measure these; sections left out are taken from earlier runs on the same models")
    add("--reuse", action="store_true", help="write the report from earlier results")
    add("--scratch", type=Path, default=ROOT / "build" / "evaluation")
    add("--docs", type=Path, default=ROOT / "docs")
    options = parser.parse_args()
    settings = Settings(
        options.library, options.models, options.data, options.pairs, options.scratch,
        options.clips, options.seconds, options.streams, options.long, options.jobs,
        options.minutes, frozenset(options.only),
    )
    options.scratch.mkdir(parents=True, exist_ok=True)
    stored = options.scratch / "results.pickle"
    digest = digest_of(options.library, *options.models.glob("*.*"))
    start = time.monotonic()
    measured = {} if options.reuse else measure_all(settings)
    print(f"measured in {time.monotonic() - start:.0f} s")
    # Sections measured earlier count as long as library and models are the same.
    results = pickle.loads(stored.read_bytes()) if stored.exists() else {}
    results = (results if results.get("digest") == digest else {}) | measured | {"digest": digest}
    stored.write_bytes(pickle.dumps(results))
    report.write(results, options.docs, ROOT / "training" / "curves")
    print(f"wrote {options.docs / 'quality.md'}")


def digest_of(*files: Path) -> str:
    """One digest of all the files' names and contents; text beside the models does not count."""
    digest = hashlib.sha256()
    for path in sorted(path for path in files if path.suffix != ".md"):
        digest.update(path.name.encode() + path.read_bytes())
    return digest.hexdigest()


if __name__ == "__main__":
    main()
