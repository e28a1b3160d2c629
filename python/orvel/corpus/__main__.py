"""python -m orvel.corpus clean|vad IN OUT."""

from __future__ import annotations

import argparse
import contextlib
import json
import os
import sys

from orvel import OrvelError
from orvel.corpus.run import Options, run
from orvel.corpus.work import Task

DESCRIPTION = """\
IN is a folder of recordings, a manifest (.jsonl with audio_filepath, or Kaldi's wav.scp) or WebDataset shards: a
folder of .tar files, one file, or a pattern or address that fsspec takes. OUT is a folder (for shards also an
address): recordings keep their names below it. A run that was ended goes on when it is started again. Broken
inputs are listed in OUT/errors.jsonl, hours, speed and levels in OUT/summary.json. The exit code is 0 when
everything is done, 1 when inputs were broken, 2 when nothing could be done.
"""


def main(arguments: list[str] | None = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m orvel.corpus", description=DESCRIPTION)
    parser.add_argument("task", choices=("clean", "vad"), help="remove noise, or list the stretches with speech")
    parser.add_argument("source", metavar="IN")
    parser.add_argument("out", metavar="OUT")
    cores = len(os.sched_getaffinity(0))
    parser.add_argument("--jobs", type=int, default=cores, help="worker processes (default: %(default)s, the cores)")
    parser.add_argument("--batch", type=int, default=64, help="recordings cleaned at once by a worker (%(default)s)")
    parser.add_argument("--group", type=int, default=64, help="recordings that a worker takes at a time (%(default)s)")
    parser.add_argument("--model", help="by default the shipped one that fits each recording's rate")
    parser.add_argument("--attenuation-limit", type=float, metavar="DB", help="lower no frequency by more than this")
    parser.add_argument("--threshold", type=float, default=0.55, help="speech begins at this score (%(default)s)")
    parser.add_argument("--ray", metavar="ADDRESS", help='do it on a Ray cluster; "local" starts one here')
    parser.add_argument("--quiet", action="store_true", help="show no progress bar")
    given = parser.parse_args(arguments)
    for name in ("jobs", "batch", "group"):
        if getattr(given, name) < 1:
            parser.error(f"--{name}: {getattr(given, name)} is below 1")
    task = Task(given.task, given.batch, given.model, given.attenuation_limit, given.threshold)
    try:
        with contextlib.redirect_stdout(sys.stderr):  # Ray prints there what its nodes report
            report = run(given.source, given.out, Options(task, given.group, given.jobs, given.ray, not given.quiet))
    except (ImportError, OSError, ValueError, OrvelError) as error:
        print(f"orvel.corpus: {error}", file=sys.stderr)
        return 2
    print(json.dumps(report))
    return 1 if report["errors"] else 0


if __name__ == "__main__":
    sys.exit(main())
