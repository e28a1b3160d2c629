"""Measures the shipped models and the command beside others and writes a report with pictures.

The report goes to build/evaluation; --write puts it into docs/. Pairs of noisy and clean speech are mixed
from held-out recordings of --data first. On two cores the pairs are measured for --minutes at most (10 by
default), and everything else takes about as long again; --only, --clips and --streams shorten it.
"""

import argparse
import hashlib
import pickle
import sys
import time
from pathlib import Path

from evaluation import ROOT, report
from evaluation.pairs import STREAMS
from evaluation.run import Settings, check, measure_all
from orvel import OrvelError


def parse(arguments: list[str] | None) -> argparse.Namespace:
    """The options; leaves the process with a message for those that are unknown."""
    parser = argparse.ArgumentParser(
        prog="python -m evaluation",
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    add, build = parser.add_argument, ROOT / "build"
    add("--data", type=Path, help="folder of recordings to mix")
    add(
        "--pairs",
        type=Path,
        action="append",
        default=[],
        help="folder of noisy/clean pairs instead of mixes, once for each rate",
    )
    add("--write", action="store_true", help="write docs/quality.md and docs/img")
    add("--out", type=Path, default=build / "evaluation", help="write the report here")
    add(
        "--only",
        nargs="+",
        default=list(report.SECTIONS),
        choices=list(report.SECTIONS),
        help="measure these; sections left out are taken from earlier runs on the same files",
    )
    add("--reuse", action="store_true", help="measure nothing, write the report from earlier runs")
    add("--clips", type=int, default=60, help="pairs at 16 kHz (half as many at 8 and 32 kHz)")
    add("--seconds", type=float, default=6.0, help="length of a pair")
    add("--streams", type=int, default=STREAMS, help="minutes for the voice detectors")
    add("--long", type=float, default=600.0, help="seconds of the stream of changing noise")
    add("--jobs", type=int, default=2, help="processes")
    add("--minutes", type=float, default=10.0, help="begin no further pair after this time")
    add("--library", type=Path, default=build / "release" / "liborvel.so.1")
    add("--command", type=Path, default=build / "release" / "tools" / "orvel")
    add("--models", type=Path, default=ROOT / "models", help="folder of models")
    add("--scratch", type=Path, default=build / "evaluation", help="where pairs and results are kept")
    return parser.parse_args(arguments)


def main(arguments: list[str] | None = None) -> None:
    """Measures what the options ask for and writes the report; one line on standard error for what is missing."""
    options = parse(arguments)
    settings = Settings(
        options.library,
        options.models,
        options.command,
        options.data,
        options.pairs,
        options.scratch,
        options.clips,
        options.seconds,
        options.streams,
        options.long,
        options.jobs,
        options.minutes,
        frozenset(options.only),
    )
    say = lambda text: print(text, flush=True)  # noqa: E731
    stored = options.scratch / "results.pickle"
    try:
        digest = digest_of(options.library, options.command, *options.models.glob("*.*"))
        results = pickle.loads(stored.read_bytes()) if stored.exists() else {}
        # Sections measured earlier count as long as library, command and models are the same.
        results = results if results.get("digest") == digest else {}
        if options.reuse and not results:
            raise FileNotFoundError(f"{stored} holds no results of these files: run without --reuse")
        asked = [] if options.reuse else options.only
        missing = [name for name, key in report.SECTIONS.items() if name not in asked and key not in results]
        if options.write and missing:
            raise ValueError(f"--write needs every section; neither asked for nor measured yet: {', '.join(missing)}")
        models = [] if options.reuse else check(settings)
    except (OSError, ValueError, OrvelError) as error:
        sys.exit(f"evaluate: {error}")
    options.scratch.mkdir(parents=True, exist_ok=True)
    if not options.reuse:
        start = time.monotonic()
        results |= measure_all(settings, models, say) | {"digest": digest}
        say(f"measured in {time.monotonic() - start:.0f} s")
        stored.write_bytes(pickle.dumps(results))
    target = ROOT / "docs" if options.write else options.out
    say(f"wrote {report.write(results, target, ROOT / 'training' / 'curves')}")


def digest_of(*files: Path) -> str:
    """One digest of all the files' names and contents; text beside the models does not count."""
    digest = hashlib.sha256()
    for path in sorted(path for path in files if path.suffix != ".md"):
        digest.update(path.name.encode() + path.read_bytes())
    return digest.hexdigest()


if __name__ == "__main__":
    main()
