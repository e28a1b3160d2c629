"""Mean of two trainings of one model: ``python -m training.average --config F --weights A.bin B.bin --out DIR``.

Between the weights before and after a short stage lie models with a share of the stage's effect;
``--share`` is the weight of the second file. ``--loop 0.95`` also scales what the first layer's
branches take from the state: a loop that runs away at rare inputs (``training.bounded``) is held
back by a few per cent.
"""

from __future__ import annotations

import argparse
import tomllib

import numpy as np

from training.export import export_model
from training.kinds import make_model
from training.weights_file import read_weights


def average(first: dict, second: dict, share: float) -> dict:
    """Parameters at ``share`` of the way from ``first`` to ``second``."""
    return {name: np.float32((1.0 - share) * value + share * second[name]) for name, value in first.items()}


def with_loop(params: dict, scale: float) -> dict:
    """Parameters whose state loop is ``scale`` times as strong; the gate stays."""
    return {name: np.float32(scale) * value if name in ("Ah", "Bh") else value for name, value in params.items()}


def require_same_inputs(stats: dict, others: dict) -> None:
    """Ends the program when two files cannot be combined."""
    if any(not np.array_equal(stats[name], others[name]) for name in stats):
        raise SystemExit("the two files normalise their inputs differently: they are not one model's")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--config", required=True)
    parser.add_argument("--weights", required=True, nargs=2)
    parser.add_argument("--share", type=float, default=0.5)
    parser.add_argument("--loop", type=float, default=1.0, help="strength of the state loop")
    parser.add_argument("--out", required=True)
    args = parser.parse_args()
    with open(args.config, "rb") as handle:
        config = tomllib.load(handle)
    model = make_model(config)
    (first, stats), (second, others) = (model.from_entries(read_weights(path)) for path in args.weights)
    require_same_inputs(stats, others)
    params = with_loop(average(first, second, args.share), args.loop)
    export_model(args.out, config, model.entries(params, stats))


if __name__ == "__main__":
    main()
