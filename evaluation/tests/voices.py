"""A made-up voice: harmonics under moving formants, with pauses."""

import numpy as np


def vowels(rate: int, seconds: float = 3.0) -> np.ndarray:
    """Voice-like wave of `seconds`, peak 0.3."""
    time = np.arange(int(seconds * rate)) / rate
    pitch = 120.0 + 20.0 * np.sin(2.0 * np.pi * 0.7 * time)
    phase = 2.0 * np.pi * np.cumsum(pitch) / rate
    wave = np.zeros(len(time))
    for harmonic in range(1, int(0.45 * rate / 140.0)):
        frequency = harmonic * pitch
        formants = [(500 + 250 * np.sin(9 * time), 120), (1500 + 500 * np.sin(5 * time), 200), (2600, 300)]
        gain = sum(np.exp(-(((frequency - centre) / width) ** 2)) for centre, width in formants)
        wave += (gain + 0.003) * np.sin(harmonic * phase)
    wave *= np.clip(3.0 * np.sin(2.0 * np.pi * 1.5 * time), 0.0, 1.0)
    return 0.3 * wave / np.max(np.abs(wave))
