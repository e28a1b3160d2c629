"""Endless mixed streams for training: a fresh pairing of pool segments at every refill."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np
import scipy.fft

from training.corpus import active_rms
from training.level import RescaleTracker, frame_energies
from training.pools import Pool, segment_length
from training.synth import hard_signal, music

FADE_SECONDS = 0.01  # of speech where a pause begins or ends
# Odds that a stream of hard signals lasts for another segment: half a minute in the mean.
HARD_GOES_ON = 0.8
# Level of the wanted speech that leaves the output of hard signals out of the loss. A network that is asked to
# mute sweeps learns a state that it cannot leave when speech follows. Steady tones are asked to be muted: without
# that, a cleaner lets them pass more and more.
NOTHING_ASKED = 1e9
# Level of speech that noise without speech is measured by, relative to the noise.
UNSPOKEN = 0.3
# How much likelier music is in noise without speech.
MORE_MUSIC_ALONE = 3.0
# Shares of segments: "cold" begins a stream anew, "clean" has no noise, "alone" no speech, "hard" nothing but
# signals that are hard on the state (`synth.hard_signal`), "pauses" no speech in its first or last seconds,
# "music" generated music as its noise.
ODDS = {"cold": 0.4, "clean": 0.04, "alone": 0.06, "hard": 0.0, "pauses": 0.0, "music": 0.0}


def sequence_length(rate: int, step: int) -> int:
    """Samples of one training sequence: half of a pool segment, in whole hops of ``step`` samples."""
    return segment_length(rate) // 2 // step * step


@dataclass
class Batch:
    """One training sequence of every stream.

    ``noisy`` and ``target`` are (streams, (hops + 1) * step) in 16-bit units, one step of history
    included; ``gain`` is (streams, hops); ``norm`` and ``wide`` are per stream; ``cold`` marks
    streams that begin anew.
    """

    noisy: np.ndarray
    target: np.ndarray
    gain: np.ndarray
    norm: np.ndarray
    wide: np.ndarray
    cold: np.ndarray
    voiced: np.ndarray


class StreamMixer:
    """Mixes ``streams`` endless streams and cuts them into sequences; ``odds`` takes the place of some of ODDS."""

    def __init__(self, pool: Pool, streams: int, step: int, seed, **odds: float):
        self.pool, self.streams, self.step = pool, streams, step
        self.odds = ODDS | odds
        self.rng = np.random.default_rng(seed)
        self.sequence = sequence_length(pool.rate, step)
        self.length = 2 * self.sequence
        self.tracker = RescaleTracker(streams, pool.rate, step)
        shape = (streams, self.length)
        self.noisy = np.zeros(shape, np.float32)
        self.target = np.zeros(shape, np.float32)
        self.norm = np.ones(streams, np.float32)
        self.wide = np.zeros(streams, np.float32)
        self.voiced = np.zeros(streams, np.float32)
        self.hard = np.zeros(streams, bool)
        self.tail_noisy = np.zeros((streams, step), np.float32)
        self.tail_target = np.zeros((streams, step), np.float32)
        # Half of the streams are refilled at each sequence, so that the work is even.
        self.phase = np.arange(streams) % 2
        self.turn = 0
        for stream in range(streams):
            self._refill(stream)

    def _noise(self, music_odds: float) -> np.ndarray:
        if self.rng.random() < music_odds:
            return music(self.rng, self.length, self.pool.rate).astype(np.float32)
        out = np.zeros(self.length, np.float32)
        for k in range(self.rng.choice(3, p=(0.6, 0.28, 0.12)) + 1):
            part = self.pool.noise[self.pool.draw_noise(self.rng), : self.length]
            shift = int(self.rng.integers(self.length))
            gain = 1.0 if k == 0 else 10.0 ** (self.rng.uniform(-15.0, 3.0) / 20.0)
            out[: self.length - shift] += gain * part[shift:]
            out[self.length - shift :] += gain * part[:shift]
        if self.rng.random() < 0.15:  # the noise starts, stops or changes its level
            points = np.cumsum(self.rng.exponential(0.3, 6))
            levels = self.rng.uniform(-25.0, 0.0, 6)
            at = np.searchsorted(points, np.linspace(0.0, points[-1], self.length // self.step)).clip(0, 5)
            out *= np.repeat(10.0 ** (levels[at] / 20.0), self.step).astype(np.float32)[: self.length]
        return out

    def _ratio(self) -> float:
        """Signal-to-noise ratio in dB; low ones more often than they would be met."""
        if self.rng.random() < 0.4:
            return self.rng.uniform(-8.0, 3.0)
        return float(np.clip(self.rng.normal(7.0, 8.0), -8.0, 30.0))

    def _mute(self, *waves: np.ndarray) -> None:
        """Take the speech out of the first 0.3 to 3 s, or of the last ones: noise comes before and lasts longer."""
        seconds = np.arange(self.length) / self.pool.rate
        if self.rng.random() < 0.5:
            seconds = seconds[::-1]
        gate = np.clip((seconds - self.rng.uniform(0.3, 3.0)) / FADE_SECONDS, 0.0, 1.0).astype(np.float32)
        for wave in waves:
            wave *= gate

    def _refill_hard(self, stream: int) -> None:
        """Nothing but what makes a state loop that is too strong run away, or stay where it was driven, if it lasts."""
        wave, steady = hard_signal(self.rng, self.length, self.pool.rate)
        self.noisy[stream], self.target[stream] = np.rint(wave), 0.0
        self.norm[stream] = UNSPOKEN * np.sqrt(np.mean(np.square(wave))) if steady else NOTHING_ASKED
        self.wide[stream], self.voiced[stream] = 1.0, 0.0

    def _refill(self, stream: int) -> None:
        rng, rate = self.rng, self.pool.rate
        self.hard[stream] = rng.random() < (HARD_GOES_ON if self.hard[stream] else self.odds["hard"])
        if self.hard[stream]:
            self._refill_hard(stream)
            return
        slot = self.pool.draw_speech(self.rng)
        source, target = self.pool.speech[slot, :, : self.length].astype(np.float32)
        self.wide[stream] = self.pool.speech_kind[slot] == 2
        speech_level = active_rms(target, rate)
        if rng.random() < self.odds["pauses"]:
            self._mute(source, target)
        kind = rng.random()
        if kind < self.odds["alone"] or speech_level < 1.0:
            speech_level = 0.0
            source, target = np.zeros_like(source), np.zeros_like(target)
            mix = self._noise(MORE_MUSIC_ALONE * self.odds["music"])
        elif kind < self.odds["alone"] + self.odds["clean"]:
            mix = source + rng.normal(0.0, rng.uniform(0.0, 0.5), self.length).astype(np.float32)
        else:
            noise = self._noise(self.odds["music"])
            noise_level = np.sqrt(np.mean(np.square(noise))) + 1e-3
            mix = source + noise * (speech_level / noise_level * 10.0 ** (-self._ratio() / 20.0))
        own = speech_level if speech_level > 0.0 else np.sqrt(np.mean(np.square(mix))) * UNSPOKEN
        total = np.sqrt(np.mean(np.square(mix))) + 1e-3
        gain = 32768.0 * 10.0 ** (rng.uniform(-46.0, -14.0) / 20.0) / max(total, own)
        mix *= gain
        target = target * gain
        mix, target = self._degrade(mix, target)
        self.noisy[stream] = np.clip(np.rint(mix), -32768.0, 32767.0)
        self.target[stream] = target
        self.norm[stream] = max(own * gain, 1.0)
        self.voiced[stream] = speech_level > 0.0

    def _degrade(self, mix: np.ndarray, target: np.ndarray) -> tuple[np.ndarray, np.ndarray]:
        """Now and then the faults of real inputs: clipping, a companding codec, a lower sample rate."""
        kind = self.rng.random()
        if kind < 0.05:
            top = np.percentile(np.abs(mix), self.rng.uniform(97.0, 99.9)) + 1.0
            mix = np.clip(mix, -top, top)
        elif kind < 0.09:
            scaled = np.clip(mix / 32768.0, -1.0, 1.0)
            code = np.sign(scaled) * np.log1p(255.0 * np.abs(scaled)) / np.log(256.0)
            code = np.rint(code * 127.0) / 127.0
            mix = np.sign(code) * np.expm1(np.abs(code) * np.log(256.0)) / 255.0 * 32768.0
        elif kind < 0.13:
            edge = int(self.rng.uniform(0.4, 0.95) * (self.length // 2))
            both = scipy.fft.rfft(np.stack([mix, target]))
            both[:, edge:] = 0.0
            mix, target = scipy.fft.irfft(both, self.length)
        return mix.astype(np.float32), target.astype(np.float32)

    def _half_of(self, wave: np.ndarray, second: np.ndarray) -> np.ndarray:
        return np.where(second[:, None], wave[:, self.sequence : 2 * self.sequence], wave[:, : self.sequence])

    def next(self) -> Batch:
        """The next sequence of every stream."""
        self.turn += 1
        cold = np.zeros(self.streams, bool)
        rows = np.arange(self.streams)
        second = (self.turn + self.phase) % 2 == 1
        for stream in rows[~second]:
            driven = self.hard[stream]
            self._refill(stream)
            # What follows hard signals has to cope with the state that they left.
            cold[stream] = self.rng.random() < self.odds["cold"] and not driven
        self.tracker.reset(cold)
        self.tail_noisy[cold] = 0.0
        self.tail_target[cold] = 0.0
        noisy = np.concatenate([self.tail_noisy, self._half_of(self.noisy, second)], axis=1)
        target = np.concatenate([self.tail_target, self._half_of(self.target, second)], axis=1)
        self.tail_noisy = noisy[:, -self.step :].copy()
        self.tail_target = target[:, -self.step :].copy()
        gain = self.tracker.gains(frame_energies(noisy, self.step))
        return Batch(noisy, target, gain, self.norm.copy(), self.wide.copy(), cold, self.voiced.copy())
