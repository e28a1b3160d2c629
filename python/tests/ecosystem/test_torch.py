"""The module for torch; run where torch is installed."""

import numpy as np
import pytest
import torch

import orvel
from orvel.torch import Denoise


def test_a_module_cleans_each_row():
    noisy = 0.05 * np.random.default_rng(1).standard_normal((2, 3, 8000)).astype(np.float32)
    out = Denoise(16000)(torch.from_numpy(noisy).requires_grad_())
    assert out.shape == noisy.shape and out.dtype == torch.float32 and not out.requires_grad
    assert np.max(np.abs(out[1, 2].numpy() - orvel.clean(noisy[1, 2], 16000))) < 1e-6
    for wrong in (torch.zeros(0), torch.full((9,), float("nan")), torch.zeros(9, dtype=torch.complex64)):
        with pytest.raises(ValueError):
            Denoise(16000)(wrong)
