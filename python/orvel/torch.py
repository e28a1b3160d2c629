"""Noise removal as a module of torch, for CPU tensors; imported only where torch is installed."""

from __future__ import annotations

import torch

from orvel.recordings import check_rate, clean


class Denoise(torch.nn.Module):
    """Removes noise from waveforms (..., time) of float32 or float64; no gradient passes through it.

    `rate`, `model`, `attenuation_limit`: as `orvel.clean`; each row of the leading dimensions is a recording of
    its own. Raises ValueError for a tensor that is not floating point, empty, on another device than the CPU, or
    that has NaN or infinite samples.
    """

    def __init__(self, rate: int, *, model: str | None = None, attenuation_limit: float | None = None) -> None:
        super().__init__()
        check_rate(rate)
        self.rate, self.model, self.attenuation_limit = rate, model, attenuation_limit

    def forward(self, waveform: torch.Tensor) -> torch.Tensor:
        if waveform.device.type != "cpu":
            raise ValueError(f"waveform: on {waveform.device}, not on the CPU")
        if not waveform.numel():
            raise ValueError(f"waveform: shape {tuple(waveform.shape)} is empty")
        rows = waveform.detach().reshape(-1, waveform.shape[-1]).numpy()
        cleaned = clean(rows, self.rate, model=self.model, attenuation_limit=self.attenuation_limit)
        return torch.from_numpy(cleaned).reshape(waveform.shape)

    def extra_repr(self) -> str:
        return f"rate={self.rate}, model={self.model}, attenuation_limit={self.attenuation_limit}"
