"""Warm start of one recurrent model from another: of other bands, or with fewer units.

Bands of equal position and width in Hz keep their input rows and output columns; what only the new
model has starts small, and its outputs start like those of the nearest band. Additional units start
with random inputs and without any effect on the others, so a widened network computes the same.
"""

from __future__ import annotations

import numpy as np

from training.bands import compressed_widths
from training.chain import Shape


def band_edges(shape: Shape) -> list[tuple[float, float]]:
    """Lower and upper edge in Hz of every band."""
    hertz = shape.sample_rate / shape.frame
    edges, start = [], shape.first_bin
    for width in compressed_widths(shape.used, shape.rate):
        edges.append((start * hertz, (start + width) * hertz))
        start += width
    return edges


def shared_bands(source: Shape, target: Shape) -> list[int | None]:
    """For every band of ``target`` the index of the same band in ``source``, or None."""
    known = {edge: k for k, edge in enumerate(band_edges(source))}
    return [known.get(edge) for edge in band_edges(target)]


def shared_statistics(source: dict, target: dict, order: list[int | None]) -> dict:
    """Statistics of the inputs: those of ``source`` in the bands of ``order``, of ``target`` elsewhere."""
    at = np.array([-1 if k is None else k for k in order])
    return {name: np.where(at < 0, value, source[name][at]) for name, value in target.items()}


def adapt(params: dict, source: Shape, target: Shape, rng: np.random.Generator) -> dict:
    """Parameters for ``target`` out of those for ``source``; both look at the same number of frames."""
    if source.preview != target.preview:
        raise ValueError(f"history of {source.preview} frames cannot start one of {target.preview}")
    if source.step * target.sample_rate != target.step * source.sample_rate:
        raise ValueError("the models differ in the time between hops")
    order = shared_bands(source, target)
    nearest = [k if k is not None else source.bands - 1 for k in order]
    out = dict(params)
    for key in ("Ax", "Bx", "Gx"):
        old = params[key].reshape(source.preview, source.bands, -1)
        new = rng.normal(0.0, 0.1 / np.sqrt(target.bands), (target.preview, target.bands, old.shape[2]))
        for to, at in enumerate(order):
            if at is not None:
                new[:, to] = old[:, at]
        out[key] = new.reshape(-1, old.shape[2]).astype(np.float32)
    out["O"] = np.ascontiguousarray(params["O"][:, nearest])
    out["o"] = np.ascontiguousarray(params["o"][nearest])
    return out


def widen(params: dict, hidden: int, rng: np.random.Generator) -> dict:
    """The same function with ``hidden`` units in every layer; only more, never fewer."""
    old = params["a"].shape[0]
    if hidden < old:
        raise ValueError(f"a network of {old} units cannot become one of {hidden}")
    return {name: _widened(name, value, old, hidden, rng) for name, value in params.items()}


def _widened(name: str, value: np.ndarray, old: int, new: int, rng: np.random.Generator) -> np.ndarray:
    from_units = name[1:] == "h" or name[1:].isdigit() or name == "O"
    to_units = name not in ("O", "o")
    rows = [] if value.ndim == 1 else [new if from_units else value.shape[0]]
    out = np.zeros([*rows, new if to_units else value.shape[-1]], np.float32)
    if to_units and value.ndim == 2:
        # As spread out as the old columns, whose scale training has settled.
        out[:, old:] = rng.normal(0.0, np.std(value), (out.shape[0], new - old))
    elif to_units:
        out[old:] = rng.permutation(np.resize(value, new - old)) if name == "g" else 0.0
    out[tuple(slice(n) for n in value.shape)] = value
    return out
