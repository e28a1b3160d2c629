"""Synthetic rooms: image-source early reflections joined to a decaying noise tail."""

from __future__ import annotations

import numpy as np

SPEED_OF_SOUND = 343.0
# Full up to the first time and gone at the second, in seconds: the direct sound and early reflections.
EARLY = (0.035, 0.085)


def room_response(rng: np.random.Generator, rate: int) -> np.ndarray:
    """One random room response, float32, direct sound of height one at sample 0."""
    size = rng.uniform((2.2, 2.2, 2.2), (9.0, 8.0, 4.0))
    t60 = rng.uniform(0.12, 0.9)
    source = size * rng.uniform(0.15, 0.85, 3)
    distance = rng.uniform(0.3, 3.0)
    direction = rng.normal(size=3)
    direction /= np.linalg.norm(direction)
    microphone = np.clip(source + distance * direction, 0.1 * size, 0.9 * size)

    volume = float(np.prod(size))
    surface = 2.0 * float(size[0] * size[1] + size[0] * size[2] + size[1] * size[2])
    absorption = min(0.95, 0.161 * volume / (surface * t60))
    reflection = np.sqrt(1.0 - absorption)

    length = int(min(1.2, t60 * 1.1 + 0.05) * rate)
    early = _image_sources(size, source, microphone, reflection, rate, length)
    early *= np.exp(rng.normal(0.0, 0.15, length))
    tail = _tail(rng, t60, rate, length)

    # The tail takes over where the reflections become dense, at the energy they have there.
    cross = int(min(0.05, 0.35 * t60) * rate)
    window = max(1, rate // 100)
    level = np.sqrt(np.mean(np.square(early[cross : cross + 2 * window])) + 1e-12)
    own = np.sqrt(np.mean(np.square(tail[cross : cross + 2 * window])) + 1e-12)
    fade = np.clip((np.arange(length) - cross + window) / (2.0 * window), 0.0, 1.0)
    out = early * np.sqrt(1.0 - fade) + tail * (level / own) * np.sqrt(fade)
    peak = int(np.argmax(np.abs(out[: rate // 20])))
    out = out[peak:]
    return (out / out[0]).astype(np.float32)


def _image_sources(size, source, microphone, reflection, rate, length):
    order = 6
    n = np.arange(-order, order + 1)
    shifts = []
    for axis in range(3):
        plain = 2.0 * n * size[axis] + source[axis] - microphone[axis]
        mirrored = 2.0 * n * size[axis] - source[axis] - microphone[axis]
        bounces = np.concatenate([np.abs(2 * n), np.abs(2 * n - 1)])
        shifts.append((np.concatenate([plain, mirrored]), bounces))
    distance = np.sqrt(
        shifts[0][0][:, None, None] ** 2 + shifts[1][0][None, :, None] ** 2 + shifts[2][0][None, None, :] ** 2
    ).ravel()
    bounces = (shifts[0][1][:, None, None] + shifts[1][1][None, :, None] + shifts[2][1][None, None, :]).ravel()
    delay = distance / SPEED_OF_SOUND * rate
    delay -= delay.min()
    gain = reflection**bounces / np.maximum(distance, 0.1)
    keep = delay < length - 1
    base = np.floor(delay[keep]).astype(int)
    part = delay[keep] - base
    out = np.zeros(length)
    np.add.at(out, base, gain[keep] * (1.0 - part))
    np.add.at(out, base + 1, gain[keep] * part)
    return out


def _tail(rng, t60, rate, length):
    """Gaussian noise whose high part dies sooner than its low part."""
    time = np.arange(length) / rate
    noise = rng.normal(size=length)
    spectrum = np.fft.rfft(noise)
    corner = np.fft.rfftfreq(length, 1.0 / rate) / rng.uniform(1500.0, 5000.0)
    low = np.fft.irfft(spectrum / (1.0 + corner**2), length)
    high = noise - low
    return low * np.exp(-6.9 * time / t60) + high * np.exp(-6.9 * time / (t60 * rng.uniform(0.4, 0.9)))


def faded(response: np.ndarray, rate: int, fade: tuple[float, float]) -> np.ndarray:
    """The response in full up to ``fade[0]`` seconds, gone at ``fade[1]``."""
    full, end = (int(seconds * rate) for seconds in fade)
    out = response[:end].copy()
    if len(out) > full:
        ramp = np.arange(len(out) - full) / (end - full)
        out[full:] *= 0.5 + 0.5 * np.cos(np.pi * ramp)
    return out


class RoomBank:
    """Measured responses and a set of synthetic ones, drawn at random."""

    def __init__(self, measured: dict[str, list], rate: int, count: int = 200):
        """``measured`` holds the responses of every measured room by its name."""
        self._responses: list = [None] * count
        self._measured = list(measured.values())
        self.rate = rate

    def draw(self, rng: np.random.Generator) -> np.ndarray:
        """One response; one in eight is measured when there are any, every measured room as often."""
        if self._measured and rng.random() < 0.125:
            room = self._measured[rng.integers(len(self._measured))]
            return room[rng.integers(len(room))]
        at = rng.integers(len(self._responses))
        if self._responses[at] is None:
            self._responses[at] = room_response(rng, self.rate)
        return self._responses[at]
