"""Training of one model: ``python -m training.train --config FILE --data DIR``.

The data is a folder with MANIFEST.tsv or with speech/, noise/ and optionally rir/ folders of recordings.
On two current processor cores, one of them for the mixes, orvel-ff-* take about ten minutes and the other
models two hours or more; the first line comes within ten seconds, and later ones tell the time that is left.
The run can be cut at any moment: started again with the same arguments it goes on from the last
checkpoint and follows the same curve. Exit status: 0, 2 for wrong arguments, data or configurations, 1
for what fails on the way.
"""

from __future__ import annotations

import os

os.environ.setdefault("XLA_FLAGS", "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1")
os.environ.setdefault("OMP_NUM_THREADS", "1")

import argparse
import sys
from dataclasses import fields

from training import InputError, WorkerDied


def count(text: str) -> int:
    """A whole number above 0, for the argument parser."""
    value = int(text)
    if value < 1:
        raise argparse.ArgumentTypeError(f"must be 1 or more, not {value}")
    return value


def main(arguments: list[str] | None = None) -> int:
    """Trains; returns the exit status."""
    parser = argparse.ArgumentParser(
        prog="training.train", description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--config", required=True, help="model configuration (TOML)")
    parser.add_argument("--data", required=True, help="folder of recordings")
    parser.add_argument("--work", default="build/training", help="checkpoints, curves and pools (%(default)s)")
    parser.add_argument("--out", help="folder of the exported files (default: in the work folder)")
    parser.add_argument("--pool", help="an existing pool to share instead of the run's own")
    parser.add_argument("--workers", type=int, default=1, help="processes that renew the pool (%(default)s)")
    parser.add_argument("--init-from", help="weight file to start from (default: the configuration's)")
    parser.add_argument("--stop-after", type=count, metavar="N", help="stop after N updates in all and export")
    parser.add_argument("--checkpoint-minutes", type=float, help="write a checkpoint at least this often")
    parser.add_argument("--streams", type=count, help="streams at once (default: the configuration's)")
    parser.add_argument("--mix-on-device", action="store_true", help="mix on the accelerator (cleaners 0.0.5)")
    args = parser.parse_args(arguments)
    print(f"training with {args.config} on {args.data}", flush=True)
    # Loading jax takes seconds: the help and the first line come before.
    from training.corpus import list_files
    from training.model import load_model
    from training.sources import write_sources
    from training.trainer import Settings, Trainer

    try:
        config, _ = load_model(args.config)
        list_files(args.data)
        trainer = Trainer(Settings(**{f.name: getattr(args, f.name) for f in fields(Settings)}), config)
        path = trainer.run()
        write_sources(path.with_suffix(".sources.md"), args.data)
    except InputError as error:
        print(f"train: {error}", file=sys.stderr)
        return 2
    except WorkerDied as error:
        print(f"train: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("train: cut; the same command goes on from the last checkpoint", file=sys.stderr)
        return 130
    print(f"exported {path} and {path.with_suffix('.ctl').name}; `python -m training.card` writes its card")
    return 0


if __name__ == "__main__":
    sys.exit(main())
