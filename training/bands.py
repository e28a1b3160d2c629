"""Band layout of the compressed features, and the way masks spread back over bins."""

from __future__ import annotations

import numpy as np


def compressed_widths(bins: int, rate: int) -> list[int]:
    """Widths of the bands that ``bins`` spectral bins are summed into at a compression rate.

    Raises ValueError when the last band would run past the bins.
    """
    single = (2 * bins) // 2 ** (rate + 1)
    widths = [1] * min(single, bins)
    position, width, octave = single, 2, single
    while position < bins:
        if position == 2 * octave:
            width, octave = 2 * width, position
        widths.append(width)
        position += width
    if sum(widths) != bins:
        raise ValueError(f"{bins} bins do not end on a band at compression rate {rate}")
    return widths


def compression_matrix(bins: int, rate: int) -> np.ndarray:
    """(bins, bands) matrix of zeros and ones that sums powers into bands."""
    widths = compressed_widths(bins, rate)
    out = np.zeros((bins, len(widths)), np.float32)
    start = 0
    for j, width in enumerate(widths):
        out[start : start + width, j] = 1.0
        start += width
    return out


def expansion_index(bands: int, rate: int) -> np.ndarray:
    """For each bin the band whose mask it takes; filled from the top band downwards."""
    bins = (bands * 2 ** (rate + 1)) // (rate + 2)
    index = np.arange(bins)
    index[bands:] = -1
    width, half = 2**rate, bins
    to, source = bins - 1, bands - 1
    while source < to:
        if to < half // 2:
            width //= 2
            half //= 2
            if width == 1:
                break
        index[to - width + 1 : to + 1] = source
        to -= width
        source -= 1
    return index


def pooling_matrix(bins: int) -> np.ndarray:
    """(bins, features) matrix of the detector's pooling: averages, widths doubling each octave."""
    extra = 1 if bins % 8 == 1 else 0
    single = bins // 4 + extra
    columns = [(i, 1) for i in range(single)]
    position, width, octave = single, 2, bins // 4
    while position < bins:
        if position - extra == 2 * octave:
            width, octave = 2 * width, 2 * octave
        columns.append((position, width))
        position += width
    out = np.zeros((bins, len(columns)), np.float32)
    for j, (start, size) in enumerate(columns):
        out[start : start + size, j] = 1.0 / size
    return out
