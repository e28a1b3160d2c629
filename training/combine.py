"""One model out of two trainings of it.

``python -m training.combine mean|join|bands --config FILE --weights A.bin B.bin --out DIR``

``mean`` takes the mean of the weights. Between the weights before and after a short stage lie models with a
share of the stage's effect; ``--share`` is the weight of the second file. ``--loop 0.95`` also scales what the
first layer's branches take from the state: a loop that runs away at rare inputs (``training.bounded``) is held
back by a few per cent. ``--gate 0.9`` does so for its gate: a state then keeps itself less.

``join`` puts the two side by side in a wider network: the units of both, nothing between them, and the mean of
their outputs. That is an ensemble in one file, and a good start for training on. The configuration's ``hidden``
is that of both together. A detector is calibrated when it is trained on.

``bands`` gives the first model, of another rate, the bands of the second: it cleans what both rates hold as it
did. Bands that it lacks start as in a warm start (``training.adapt``) and want training; their statistics are
those of the second file, of which nothing else is taken.
"""

from __future__ import annotations

import argparse
import sys

import numpy as np

from training import InputError
from training.adapt import shared_bands, shared_statistics
from training.model import Exported, load_exported, load_model
from training.weights_file import export_model


def mean(first: dict, second: dict, share: float) -> dict:
    """Parameters at ``share`` of the way from ``first`` to ``second``."""
    return {name: np.float32((1.0 - share) * value + share * second[name]) for name, value in first.items()}


def with_loop(params: dict, loop: float, gate: float) -> dict:
    """Parameters whose branches take ``loop`` times as much from the state, and whose gate ``gate`` times."""
    scale = {"Ah": loop, "Bh": loop, "Gh": gate}
    return {name: np.float32(scale.get(name, 1.0)) * value for name, value in params.items()}


def join(first: dict, second: dict) -> dict:
    """Parameters of the network that averages the outputs of two."""
    return {name: np.float32(_joined(name, first[name], second[name])) for name in first}


def _joined(name: str, a: np.ndarray, b: np.ndarray) -> np.ndarray:
    if name == "o":
        return 0.5 * (a + b)
    if name == "O":
        return 0.5 * np.concatenate([a, b])
    if a.ndim == 1 or name[1:] == "x":
        return np.concatenate([a, b], axis=-1)
    return np.block([[a, np.zeros((len(a), b.shape[1]))], [np.zeros((len(b), a.shape[1])), b]])


def bands(model, first: Exported, second: Exported, lift: float) -> tuple[dict, dict]:
    """Parameters and statistics of ``first`` with the bands of ``second``. Raises InputError.

    ``lift`` is added to the output's bias in the bands that ``first`` lacks.
    """
    if any(getattr(part, "shape", None) is None for part in (first.model, model)) or "Ah" not in first.params:
        raise InputError("only recurrent cleaners take the bands of another rate")
    if getattr(second.model, "shape", None) != model.shape:
        raise InputError("the second file has other bands than the configuration")
    try:
        params, _ = model.from_entries(first.entries)
    except ValueError as error:
        raise InputError(str(error)) from None
    order = shared_bands(first.model.shape, model.shape)
    params["o"] = params["o"] + np.float32(lift) * np.array([k is None for k in order], np.float32)
    return params, shared_statistics(first.stats, second.stats, order)


def main(arguments: list[str] | None = None) -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("how", choices=("mean", "join", "bands"))
    parser.add_argument("--config", required=True)
    parser.add_argument("--weights", required=True, nargs=2)
    parser.add_argument("--share", type=float, default=0.5, help="mean: weight of the second file")
    parser.add_argument("--loop", type=float, default=1.0, help="mean, bands: strength of the state loop")
    parser.add_argument("--gate", type=float, default=1.0, help="mean, bands: strength of the state in the gate")
    parser.add_argument(
        "--lift", type=float, default=0.0, help="bands: opens the masks of new bands, before the logistic"
    )
    parser.add_argument("--out", required=True)
    args = parser.parse_args(arguments)
    try:
        config, model = load_model(args.config)
        first, second = (load_exported(path) for path in args.weights)
        if args.how == "join" and "Ah" not in first.params:
            raise InputError("only recurrent networks can be joined")
        if args.how == "bands":
            params, stats = bands(model, first, second, args.lift)
            params = with_loop(params, args.loop, args.gate)
        elif any(not np.array_equal(value, second.stats.get(name)) for name, value in first.stats.items()):
            raise InputError("the two files normalise their inputs differently: they are not one model's")
        elif args.how == "mean":
            params = mean(first.params, second.params, args.share)
            params, stats = with_loop(params, args.loop, args.gate), first.stats
        else:
            params, stats = join(first.params, second.params), first.stats
            if len(params["a"]) != model.hidden:
                raise InputError(f"{args.config}: {model.hidden} units, the two files make {len(params['a'])}")
    except InputError as error:
        sys.exit(f"combine: {error}")
    export_model(args.out, config, model.entries(params, stats))


if __name__ == "__main__":
    main()
