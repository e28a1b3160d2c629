"""Making of the augmented segments that the pools hold: speech with its target, and noise."""

from __future__ import annotations

import numpy as np
import scipy.fft
import soxr

from training.corpus import Clip, Corpus, active_rms
from training.plain import plain_noise, plain_voice
from training.rooms import RoomBank, faded
from training.synth import coloured, generated_noise

POOL_RMS = 3000.0  # level of a stored segment, in 16-bit units


def smooth_equaliser(rng: np.random.Generator, freq: np.ndarray, depth_db: float) -> np.ndarray:
    """Random smooth gain curve over ``freq`` (Hz), within about +-depth_db."""
    knots = np.array([0.0, 100.0, 200.0, 400.0, 800.0, 1600.0, 3200.0, 6400.0, 12800.0])
    gains = rng.uniform(-depth_db, depth_db, len(knots))
    return 10.0 ** (np.interp(np.log2(freq + 50.0), np.log2(knots + 50.0), gains) / 20.0)


def band_limit(rng: np.random.Generator, freq: np.ndarray, rate: int) -> np.ndarray:
    """Telephone band, or one of the usual lower sample rates."""
    kind = rng.integers(3)
    low = rng.uniform(150.0, 350.0) if kind == 0 else 1.0
    high = (3400.0, 4000.0, rng.uniform(3500.0, 0.48 * rate))[kind]
    rise = np.clip((freq - 0.8 * low) / (0.4 * low), 0.0, 1.0)
    return rise * np.clip((1.03 * high - freq) / (0.06 * high), 0.0, 1.0)


def change_speed(samples: np.ndarray, factor: float) -> np.ndarray:
    """(samples,) or (samples, channels) played ``factor`` times as fast, pitch moving along."""
    return soxr.resample(samples, 1000.0 * factor, 1000.0, quality="LQ")


class SegmentMaker:
    """Draws augmented segments of a fixed length from the sources of one split; a share stays ``plain``.

    The target of reverberant speech keeps the whole room, or what ``room_fade`` leaves of it: full up to
    the first time in seconds, gone at the second.
    """

    def __init__(
        self,
        corpus: Corpus,
        count: int,
        rng: np.random.Generator,
        plain: float = 0.0,
        room_fade: tuple[float, float] | None = None,
    ):
        self.plain, self.room_fade = plain, room_fade
        self.corpus = corpus
        self.count = count
        self.rng = rng
        self.rooms = RoomBank(corpus.rir, corpus.rate)
        self._groups: dict[str, list[Clip]] = {}
        for clip in corpus.speech:
            self._groups.setdefault(clip.group, []).append(clip)
        seconds = {g: sum(len(c.samples) for c in clips) / corpus.rate for g, clips in self._groups.items()}
        # A speaker counts for the root of what there is of him, and one-sentence speakers for little.
        weight = {g: np.sqrt(s) if s > 5.0 else 0.12 * s for g, s in seconds.items()}
        if corpus.rate > 16000:
            for group, clips in self._groups.items():
                weight[group] *= 3.0 if clips[0].wide else 0.5
        self._names = list(weight)
        total = np.array(list(weight.values()))
        self._odds = total / total.sum()

    def _voice(self) -> tuple[np.ndarray, bool]:
        """One speaker's utterances with pauses, filling the segment, and whether they are wide."""
        rng, rate = self.rng, self.corpus.rate
        clips = self._groups[self._names[rng.choice(len(self._names), p=self._odds)]]
        speed = rng.uniform(0.86, 1.15) if rng.random() < 0.4 else 1.0
        parts, filled, wide = [], 0, True
        while filled < self.count:
            clip = clips[rng.integers(len(clips))]
            start = rng.integers(0, max(1, len(clip.samples) - rate))
            part = clip.samples[start : start + self.count + rate]
            if speed != 1.0:
                part = change_speed(part, speed)
            gap = np.zeros(int(rng.exponential(0.25) * rate), np.float32)
            parts += [gap, part] if rng.random() < 0.6 else [part, gap]
            filled += len(part) + len(gap)
            wide = wide and clip.wide
        return np.concatenate(parts)[: self.count], wide

    def speech(self) -> tuple[np.ndarray, np.ndarray, bool]:
        """(input part, target, content above 8 kHz): two float32 arrays of ``count`` samples."""
        rng, rate = self.rng, self.corpus.rate
        if rng.random() < self.plain:
            voice = plain_voice(self.corpus, rng, self.count)[0] * POOL_RMS
            return voice, voice, False
        voice, wide = self._voice()
        if rng.random() < 0.15:  # a second speaker takes a turn
            other, other_wide = self._voice()
            cut = rng.integers(self.count // 4, 3 * self.count // 4)
            voice = np.concatenate([voice[:cut], other[cut:] * 10.0 ** (rng.uniform(-6.0, 6.0) / 20.0)])
            wide = wide and other_wide
        if rng.random() < 0.15:  # speech in a part of the segment only
            begin, end = np.sort(rng.integers(0, self.count, 2))
            keep = np.zeros(self.count, np.float32)
            keep[begin:end] = 1.0
            voice = voice * keep
        if rng.random() < 0.3:  # a talker who moves or turns
            points = rng.uniform(-8.0, 3.0, 5)
            voice = voice * 10.0 ** (np.interp(np.linspace(0, 4, self.count), np.arange(5), points) / 20.0)

        size = scipy.fft.next_fast_len(self.count + rate, real=True)
        freq = np.fft.rfftfreq(size, 1.0 / rate)
        curve = np.ones(len(freq))
        if rng.random() < 0.7:
            curve = curve * smooth_equaliser(rng, freq, 7.0)
        if rng.random() < 0.10:
            curve = curve * band_limit(rng, freq, rate)
        spectrum = scipy.fft.rfft(voice.astype(np.float32), size) * curve
        if rng.random() < 0.45:
            response = self.rooms.draw(rng)
            source = target = self._in_room(spectrum, response[:rate], size)
            if self.room_fade:
                target = self._in_room(spectrum, faded(response, rate, self.room_fade), size)
        else:
            source = target = scipy.fft.irfft(spectrum, size)[: self.count]
        level = active_rms(target, rate)
        gain = POOL_RMS / level if level > 1e-4 else 0.0
        return source * gain, target * gain, wide

    def _in_room(self, spectrum: np.ndarray, response: np.ndarray, size: int) -> np.ndarray:
        return scipy.fft.irfft(spectrum * scipy.fft.rfft(response, size), size)[: self.count]

    def _recording(self) -> np.ndarray:
        rng, rate = self.rng, self.corpus.rate
        clips = self.corpus.noise
        clip = clips[rng.integers(len(clips))]
        if rng.random() < 0.35:  # long recordings have more to give than one draw in a thousand
            clip = max((clips[i] for i in rng.integers(0, len(clips), 4)), key=lambda c: len(c.samples))
        samples = clip.samples
        if rng.random() < 0.5:
            factor = rng.uniform(0.7, 1.4)
            if rate > 16000 and not clip.wide and rng.random() < 0.6:
                factor *= 1.8
            samples = change_speed(samples, factor)
        if rng.random() < 0.3:
            samples = samples[::-1]
        shift = rng.integers(len(samples))
        repeats = 1 + (self.count + shift) // len(samples)
        return np.tile(samples, repeats + 1)[shift : shift + self.count]

    def noise(self) -> np.ndarray:
        """One noise segment of ``count`` samples, float32."""
        if self.rng.random() < self.plain:
            samples = plain_noise(self.corpus, self.rng, self.count)[0]
        else:
            samples = self._changed_noise()
        level = np.sqrt(np.mean(np.square(samples)))
        return (samples * (POOL_RMS / max(level, 1e-6))).astype(np.float32)

    def _changed_noise(self) -> np.ndarray:
        rng, rate = self.rng, self.corpus.rate
        if rng.random() < 0.72:
            samples = self._recording()
        else:
            samples = generated_noise(rng, self.count, self.corpus)
        samples = np.asarray(samples, np.float32)
        if rng.random() < 0.6:
            size = scipy.fft.next_fast_len(self.count, real=True)
            freq = np.fft.rfftfreq(size, 1.0 / rate)
            curve = smooth_equaliser(rng, freq, 9.0)
            spectrum = scipy.fft.rfft(samples, size) * curve
            if rng.random() < 0.25:
                spectrum *= scipy.fft.rfft(self.rooms.draw(rng)[:rate], size)
            samples = scipy.fft.irfft(spectrum, size)[: self.count]
        if rng.random() < 0.5:
            floor = coloured(rng, self.count, rate)
            depth = 10.0 ** (rng.uniform(-35.0, -8.0) / 20.0)
            samples = samples + floor * (depth * np.std(samples) / (np.std(floor) + 1e-9))
        return samples
