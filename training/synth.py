"""Generated noises, to widen what the recordings offer."""

from __future__ import annotations

import numpy as np

from training.corpus import Corpus


def shaped(rng: np.random.Generator, count: int, rate: int, curve) -> np.ndarray:
    """Gaussian noise whose amplitude spectrum follows ``curve(frequency in Hz)``."""
    spectrum = np.fft.rfft(rng.normal(size=count))
    freq = np.fft.rfftfreq(count, 1.0 / rate)
    return np.fft.irfft(spectrum * curve(freq), count)


def coloured(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Noise falling with a random slope between white and brown, a bit rising at times."""
    slope = rng.uniform(-0.3, 2.2) / 2.0
    return shaped(rng, count, rate, lambda f: np.maximum(f, 40.0) ** -slope)


def band(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Noise in one to three smooth bands."""
    centres = np.exp(rng.uniform(np.log(80.0), np.log(0.45 * rate), rng.integers(1, 4)))
    widths = centres * rng.uniform(0.1, 0.7, len(centres))
    return shaped(
        rng,
        count,
        rate,
        lambda f: 0.02 + sum(np.exp(-0.5 * ((f - c) / w) ** 2) for c, w in zip(centres, widths)),
    )


def modulated(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Noise whose level swings, slowly like wind or at the pace of syllables."""
    base = coloured(rng, count, rate) if rng.random() < 0.5 else band(rng, count, rate)
    corner = np.exp(rng.uniform(np.log(0.3), np.log(12.0)))
    points = max(4, int(count / rate * corner * 2))
    swing = np.interp(np.linspace(0, points - 1, count), np.arange(points), rng.normal(size=points))
    return base * 10.0 ** (swing * rng.uniform(3.0, 10.0) / 20.0)


def hum(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Mains or machine hum: harmonics of a slightly wandering low tone, over a noise floor."""
    base = rng.choice([50.0, 60.0, rng.uniform(25.0, 400.0)])
    drift = np.cumsum(rng.normal(size=count // 256 + 2)) * rng.uniform(0.0, 0.02)
    pitch = base * (1.0 + 0.02 * np.interp(np.arange(count) / 256.0, np.arange(len(drift)), np.tanh(drift)))
    phase = 2.0 * np.pi * np.cumsum(pitch) / rate
    out = np.zeros(count)
    decay = rng.uniform(0.3, 1.5)
    for k in range(1, rng.integers(2, 24)):
        if base * k < 0.45 * rate:
            out += np.sin(k * phase + rng.uniform(0, 6.28)) * k**-decay * rng.uniform(0.2, 1.0)
    return out + coloured(rng, count, rate) * rng.uniform(0.0, 0.05) * np.std(out) * 20.0


def fan(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """A fan or engine: broadband noise, amplitude pulsing at the blade rate, and its tone."""
    rate_hz = rng.uniform(8.0, 180.0)
    phase = 2.0 * np.pi * rate_hz * np.arange(count) / rate
    depth = rng.uniform(0.1, 0.7)
    noise = coloured(rng, count, rate)
    noise /= np.std(noise)
    tone = sum(np.sin(k * phase + rng.uniform(0, 6.28)) / k for k in range(1, 8))
    return noise * (1.0 + depth * np.sin(phase)) + rng.uniform(0.0, 1.0) * tone


def single_clicks(rng: np.random.Generator, count: int, scattered: int, spacing: int, top: float) -> np.ndarray:
    """Single samples in silence: some at random times and of random height, and ``top`` every ``spacing``."""
    out = np.zeros(count)
    at = rng.integers(0, count, scattered)
    out[at] = rng.uniform(-top - 1.0, top, scattered)
    out[::spacing] = top
    return out


def click_train(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Loud single samples in silence, 3 to 100 a second, some regular and of one height, in 16-bit units."""
    density = np.exp(rng.uniform(np.log(3.0), np.log(100.0)))
    regular = rng.uniform() * (rng.random() < 0.7)
    top = 32767.0 * 10.0 ** (rng.uniform(-20.0, 0.0) / 20.0)
    scattered = int((1.0 - regular) * density * count / rate)
    spacing = int(rate / (regular * density)) if regular > 0.0 else count
    return np.roll(single_clicks(rng, count, scattered, spacing, top), rng.integers(count))


def sweeps(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """One tone that rises, falls or does both, over and over, in 0.05 to 12 s each; amplitude 1."""
    low, high = np.exp(rng.uniform(np.log(20.0), np.log(500.0))), rng.uniform(0.1, 0.49) * rate
    place = np.mod(np.arange(count) / rate / np.exp(rng.uniform(np.log(0.05), np.log(12.0))), 1.0)
    kind = rng.integers(3)
    if kind > 0:
        place = 1.0 - place if kind == 1 else 0.5 - 0.5 * np.cos(2 * np.pi * place)
    pitch = low * (high / low) ** place if rng.random() < 0.7 else low + (high - low) * place
    return np.sin(2 * np.pi * np.cumsum(pitch) / rate)


def steady_tones(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """The mean of one to three tones of amplitude 1 that never change."""
    time = np.arange(count) / rate
    tones = [np.sin(2 * np.pi * np.exp(rng.uniform(np.log(50.0), np.log(0.48 * rate))) * time) for _ in range(3)]
    return np.mean(tones[: rng.integers(1, 4)], axis=0)


def hard_signal(rng: np.random.Generator, count: int, rate: int) -> tuple[np.ndarray, bool]:
    """What is hardest on a recurrent state, alone and loud, in 16-bit units; and whether it is steady.

    Clicks, sweeps and pulses, or tones, which are steady.
    """
    kind, top = rng.random(), 32767.0 * 10.0 ** (rng.uniform(-20.0, 0.0) / 20.0)
    if kind < 0.35:
        return click_train(rng, count, rate), False
    if kind < 0.75:
        return top * sweeps(rng, count, rate), False
    if kind < 0.87:
        period = np.exp(rng.uniform(np.log(0.0005), np.log(0.03)))
        inside = np.mod(np.arange(count) / rate / period, 1.0) < rng.uniform(0.1, 0.9)
        return top * np.where(inside, -1.0, 1.0), False
    return top * steady_tones(rng, count, rate), True


def clicks(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Short damped bursts at random or regular times."""
    out = np.zeros(count)
    spacing = rng.uniform(0.03, 0.8) * rate
    regular = rng.random() < 0.3
    position = rng.uniform(0.0, spacing)
    while position < count - 8:
        length = int(rate * np.exp(rng.uniform(np.log(0.001), np.log(0.06))))
        time = np.arange(min(length * 4, count - int(position)))
        tone = np.sin(2 * np.pi * rng.uniform(200.0, 0.4 * rate) * time / rate)
        mix = rng.uniform(0.0, 1.0)
        burst = (mix * tone + (1.0 - mix) * rng.normal(size=len(time))) * np.exp(-time / length)
        out[int(position) : int(position) + len(time)] += burst * rng.uniform(0.2, 1.0)
        position += spacing if regular else rng.exponential(spacing) + 1.0
    return out + 1e-3 * rng.normal(size=count)


def tones(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Beeps, sirens and sweeps with a few harmonics."""
    time = np.arange(count) / rate
    out = np.zeros(count)
    for _ in range(rng.integers(1, 4)):
        start, end = np.exp(rng.uniform(np.log(150.0), np.log(0.4 * rate), 2))
        period = rng.uniform(0.2, 4.0)
        kind = rng.integers(3)
        if kind == 0:
            pitch = np.full(count, start)
        elif kind == 1:
            pitch = start + (end - start) * np.mod(time / period, 1.0)
        else:
            pitch = start * (end / start) ** (0.5 + 0.5 * np.sin(2 * np.pi * time / period))
        on = np.mod(time / period + rng.random(), 1.0) < rng.uniform(0.3, 1.2)
        phase = 2 * np.pi * np.cumsum(pitch) / rate
        for k in range(1, rng.integers(2, 6)):
            out += np.where(pitch * k < 0.45 * rate, np.sin(k * phase), 0.0) * on / k**1.2
    return out + 0.02 * coloured(rng, count, rate)


def music(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """A beat of chords that are struck or held, a bass below and a shaker above, in one key."""
    scale = np.array([0, 2, 4, 5, 7, 9, 11]) if rng.random() < 0.6 else np.array([0, 2, 3, 5, 7, 8, 10])
    root, beat = rng.uniform(40.0, 62.0), np.exp(rng.uniform(np.log(0.25), np.log(1.6))) * rate
    held, brightness = rng.uniform(0.1, 2.5), rng.uniform(0.6, 2.0)
    # Of strings the higher harmonics die away sooner, of pipes all together; beeps have one.
    damping, harmonics = rng.uniform(0.0, 1.2), rng.integers(1, 12)
    shaker, bass = max(0.0, rng.uniform(-0.3, 0.3)), rng.uniform(0.0, 1.0)  # half of it has no shaker
    out = np.zeros(count)
    for number, start in enumerate(np.arange(rng.uniform(0.0, beat), count - 8, beat).astype(int)):
        time = np.arange(min(int(min(3.0 * beat, beat + rate)), count - start)) / rate
        fade = np.minimum(time * 200.0, 1.0) * np.minimum((time[-1] - time) * 50.0, 1.0)
        degree = rng.integers(7)
        notes = [root + 12.0 * (k > 6) + scale[k % 7] for k in degree + 2 * np.arange(rng.integers(1, 4))]
        if number % 2 == 0 and bass > 0.3:
            notes.append(root - 12.0 + scale[degree])
        for note in notes:
            hertz = 440.0 * 2.0 ** ((note - 57.0) / 12.0)
            for k in range(1, int(min(harmonics, 0.45 * rate / hertz)) + 1):
                tone = np.sin(2 * np.pi * hertz * k * time) * np.exp(-time / held * k**damping)
                out[start : start + len(time)] += fade * tone * k**-brightness
        out[start : start + len(time)] += shaker * rng.normal(size=len(time)) * np.exp(-time * 40.0)
    return out + 1e-3 * rng.normal(size=count)


def babble(rng: np.random.Generator, count: int, rate: int, corpus: Corpus) -> np.ndarray:
    """Several speakers at once, some of them played backwards."""
    out = np.zeros(count)
    for _ in range(rng.integers(3, 14)):
        part = np.zeros(0, np.float32)
        while len(part) < count:
            clip = corpus.speech[rng.integers(len(corpus.speech))].samples
            part = np.concatenate([part, clip])
        voice = part[:count] if rng.random() < 0.6 else part[:count][::-1]
        out += np.roll(voice, rng.integers(count)) * 10.0 ** (rng.uniform(-10.0, 0.0) / 20.0)
    return out


def steps(rng: np.random.Generator, count: int, rate: int) -> np.ndarray:
    """Stationary noise whose level jumps every few hundred milliseconds."""
    base = coloured(rng, count, rate)
    pieces = rng.integers(2, 20)
    levels = 10.0 ** (rng.uniform(-20.0, 0.0, pieces) / 20.0)
    return base * levels[np.minimum(np.arange(count) * pieces // count, pieces - 1)]


def generated_noise(rng: np.random.Generator, count: int, corpus: Corpus) -> np.ndarray:
    """One generated noise of ``count`` samples at the corpus rate, of any level."""
    rate = corpus.rate
    kinds = [coloured, band, modulated, hum, fan, clicks, tones, steps, None]
    odds = np.array([3.0, 2.0, 3.0, 2.0, 2.0, 2.0, 1.5, 1.0, 5.0])
    kind = kinds[rng.choice(len(kinds), p=odds / odds.sum())]
    return babble(rng, count, rate, corpus) if kind is None else kind(rng, count, rate)
