"""The module for torch; run where torch is installed."""

import numpy as np
import pytest

torch = pytest.importorskip("torch")

import orvel  # noqa: E402
from orvel.torch import Denoise  # noqa: E402


def test_a_module_cleans_each_row():
    noisy = 0.05 * np.random.default_rng(1).standard_normal((2, 3, 8000)).astype(np.float32)
    out = Denoise(16000)(torch.from_numpy(noisy).requires_grad_())
    assert out.shape == noisy.shape and out.dtype == torch.float32 and not out.requires_grad
    assert np.array_equal(out[1, 2].numpy(), orvel.clean(noisy[1, 2], 16000))
    for wrong in (torch.zeros(0), torch.full((9,), float("nan")), torch.zeros(9, dtype=torch.complex64)):
        with pytest.raises(ValueError):
            Denoise(16000)(wrong)
