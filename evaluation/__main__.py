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

from evaluation import ROOT, options, report, work
from evaluation.run import Settings, check, measure_all
from orvel import OrvelError


def parse(arguments: list[str] | None) -> argparse.Namespace:
    """The options; leaves the process with a message for those that are unknown."""
    shared = ("--data", "--seconds", "--streams", "--jobs", "--library", "--command", "--models", "--scratch")
    parser = options.parser("evaluation", __doc__, *shared)
    add = parser.add_argument
    pairs = "folder of noisy/clean pairs instead of mixes, once for each rate"
    add("--pairs", type=Path, action="append", default=[], help=pairs)
    add("--write", action="store_true", help="write docs/quality.md and docs/img")
    add("--out", type=Path, default=options.BUILD / "evaluation", help="write the report here")
    sections = list(report.SECTIONS)
    only = "measure these; sections left out are taken from earlier runs on the same files"
    add("--only", nargs="+", default=sections, choices=sections, help=only)
    add("--reuse", action="store_true", help="measure nothing, write the report from earlier runs")
    add("--clips", type=int, default=60, help="pairs at 16 kHz (half as many at 8 and 32 kHz)")
    add("--long", type=float, default=600.0, help="seconds of the stream of changing noise")
    add("--minutes", type=float, default=10.0, help="begin no further pair after this time")
    return parser.parse_args(arguments)


def main(arguments: list[str] | None = None) -> None:
    """Measures what the options ask for and writes the report; one line on standard error for what is missing."""
    chosen = parse(arguments)
    settings = Settings(
        chosen.library,
        chosen.models,
        chosen.command,
        chosen.data,
        chosen.pairs,
        chosen.scratch,
        chosen.clips,
        chosen.seconds,
        chosen.streams,
        chosen.long,
        chosen.jobs,
        chosen.minutes,
        frozenset(chosen.only),
    )
    say = lambda text: print(text, flush=True)  # noqa: E731
    stored = chosen.scratch / "results.pickle"
    try:
        digests = section_digests(chosen)
        results = pickle.loads(stored.read_bytes()) if stored.exists() else {}
        # Sections measured earlier count as long as library, command and the models that they use are the same.
        known = results.setdefault("digests", {})
        for name, key in report.SECTIONS.items():
            if known.get(name) != digests[name]:
                results.pop(key, None)
        if chosen.reuse and not any(key in results for key in report.SECTIONS.values()):
            raise FileNotFoundError(f"{stored} holds no results of these files: run without --reuse")
        asked = [] if chosen.reuse else chosen.only
        missing = [name for name, key in report.SECTIONS.items() if name not in asked and key not in results]
        if chosen.write and missing:
            raise ValueError(f"--write needs every section; neither asked for nor measured yet: {', '.join(missing)}")
        models = [] if chosen.reuse else check(settings)
    except (OSError, ValueError, OrvelError) as error:
        sys.exit(f"evaluate: {error}")
    chosen.scratch.mkdir(parents=True, exist_ok=True)
    if not chosen.reuse:
        start = time.monotonic()
        results |= measure_all(settings, models, say)
        known |= {name: digests[name] for name in asked}
        say(f"measured in {time.monotonic() - start:.0f} s")
        stored.write_bytes(pickle.dumps(results))
    target = ROOT / "docs" if chosen.write else chosen.out
    say(f"wrote {report.write(results, target, ROOT / 'training' / 'curves')}")


def section_digests(chosen: argparse.Namespace) -> dict[str, str]:
    """For every section one digest of the library, the command and the models that it measures."""
    with work.open_library(chosen.library, chosen.models) as library:
        kinds = {model.name: model.kind for model in library.models()}
    digests = {}
    for name in report.SECTIONS:
        used = [
            path for path in chosen.models.glob("*.*") if kinds.get(path.stem) in report.USES.get(name, ["cleaner"])
        ]
        digests[name] = digest_of(chosen.library, chosen.command, *used)
    return digests


def digest_of(*files: Path) -> str:
    """One digest of all the files' names and contents; text beside the models does not count."""
    digest = hashlib.sha256()
    for path in sorted(path for path in files if path.suffix != ".md"):
        digest.update(path.name.encode() + path.read_bytes())
    return digest.hexdigest()


if __name__ == "__main__":
    main()
