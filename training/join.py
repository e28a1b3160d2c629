"""Two trainings of one model, side by side in a wider one.

``python -m training.join --config FILE --weights A.bin B.bin --out DIR``

The joined network has the units of both, nothing between the two, and the mean of their outputs: an
ensemble in one file, and a good start for training on. The configuration's ``hidden`` is that of both
together. A detector is calibrated when it is trained on.
"""

from __future__ import annotations

import argparse
import tomllib

import numpy as np

from training.average import require_same_inputs
from training.export import export_model
from training.kinds import make_model
from training.weights_file import read_weights


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


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--config", required=True)
    parser.add_argument("--weights", required=True, nargs=2)
    parser.add_argument("--out", required=True)
    args = parser.parse_args()
    with open(args.config, "rb") as handle:
        config = tomllib.load(handle)
    loaded = []
    for path in args.weights:
        entries = read_weights(path)
        hidden = entries["BaesNonLinear"][0].shape[0]
        model = make_model({**config, "model": {**config["model"], "hidden": hidden}})
        loaded.append(model.from_entries(entries))
    (first, stats), (second, others) = loaded
    require_same_inputs(stats, others)
    params, model = join(first, second), make_model(config)
    if len(params["a"]) != model.hidden:
        raise SystemExit(f"the two files have {len(params['a'])} units together, the configuration {model.hidden}")
    export_model(args.out, config, model.entries(params, stats))


if __name__ == "__main__":
    main()
