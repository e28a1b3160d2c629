"""Endless streams for the detector: speech that comes and goes in noise that changes."""

from __future__ import annotations

import numpy as np
import scipy.fft

from training.corpus import active_rms
from training.labels import onsets, voice_labels
from training.level import HOP, RATE, REFERENCE, levelled
from training.pools import Pool
from training.segments import change_speed, smooth_equaliser

# Sequences of a second, because the seconds of one minute are much alike: many streams tell more.
SEQUENCES, SEQUENCE_HOPS = 60, 100
# Minutes of speech and of noise kept for other mixes.
TRACKS = 48
PIECE_RMS = 1000.0
# Share of the minutes that begin with quiet noise, which the automatic level lifts without end.
QUIET_STARTS = 0.15


def varied(rng: np.random.Generator, waves: np.ndarray, speed: float, depth_db: float) -> np.ndarray:
    """(channels, samples) played faster or slower and with other frequencies stressed, now and then."""
    if rng.random() < 0.6:
        waves = change_speed(waves.T, np.exp(rng.uniform(-speed, speed))).T
    if rng.random() < 0.6:
        count = waves.shape[1]
        size = scipy.fft.next_fast_len(count, real=True)
        curve = smooth_equaliser(rng, np.fft.rfftfreq(size, 1.0 / RATE), depth_db)
        waves = scipy.fft.irfft(scipy.fft.rfft(waves, size) * curve, size)[:, :count]
    return np.asarray(waves, np.float32)


class MinuteMixer:
    """Mixes minutes of levelled wave and cuts them into sequences.

    ``history`` samples of the wave go before each sequence; labels come ``delay`` hops late.
    """

    def __init__(self, pool: Pool, streams: int, seed, history: int, delay: int):
        self.pool, self.streams, self.delay = pool, streams, delay
        self.rng = np.random.default_rng(seed)
        self.sequence = SEQUENCE_HOPS * HOP
        self.length = SEQUENCES * self.sequence
        self.level = np.full(streams, REFERENCE**2)
        self.wave = np.zeros((streams, self.length), np.float32)
        # Labels and onsets side by side.
        self.labels = np.zeros((streams, 2, self.length // HOP), np.float32)
        self.tail = np.zeros((streams, history), np.float32)
        self.past_labels = np.zeros((streams, 2, delay), np.float32)
        self.speech_tracks: list = []
        self.noise_tracks: list = []
        # Streams begin at different times, so that the work is even.
        self.turn = np.arange(streams) % SEQUENCES
        for stream in range(streams):
            self._refill(stream)

    def _speech(self) -> tuple[np.ndarray, np.ndarray]:
        """A minute of pieces of speech of 1.5 to 6 s, 0.8 to 5 s apart, with its labels and onsets."""
        rng = self.rng
        out = np.zeros((2, self.length), np.float32)
        at = int(rng.uniform(0.0, 5.0) * RATE)
        while at < self.length - 2 * RATE:
            pair = self.pool.speech[self.pool.draw_speech(rng)]
            pair = varied(rng, pair.astype(np.float32), speed=0.15, depth_db=6.0)
            count = min(int(rng.uniform(1.5, 6.0) * RATE), pair.shape[1], self.length - at)
            first = rng.integers(pair.shape[1] - count + 1)
            pair = pair[:, first : first + count]
            level = active_rms(pair[1], RATE)
            if level > 1.0:
                out[:, at : at + count] = pair * (PIECE_RMS / level * 10.0 ** (rng.uniform(-5.0, 5.0) / 20.0))
            at += count + int(rng.uniform(0.8, 5.0) * RATE)
        labels = voice_labels(out[1])
        return out[0], np.stack([labels, onsets(labels)])

    def _noise(self) -> np.ndarray:
        """A minute of noise of another kind and level every few seconds."""
        rng, parts, filled = self.rng, [], 0
        while filled < self.length:
            count = int(rng.uniform(3.0, 12.0) * RATE)
            part = np.zeros(count, np.float32)
            for k in range(rng.choice(3, p=(0.65, 0.28, 0.07)) + 1):
                one = self.pool.noise[self.pool.draw_noise(rng)][None]
                one = varied(rng, one.astype(np.float32), speed=0.4, depth_db=9.0)[0]
                if rng.random() < 0.3:
                    one = one[::-1]
                one = np.resize(np.roll(one, rng.integers(len(one))), count)
                part += one * (1.0 if k == 0 else 10.0 ** (rng.uniform(-15.0, 3.0) / 20.0))
            level = np.sqrt(np.mean(np.square(part))) + 1e-3
            parts.append(part * (PIECE_RMS / level * 10.0 ** (rng.uniform(-5.0, 5.0) / 20.0)))
            filled += count
        return np.concatenate(parts)[: self.length]

    def _track(self, tracks: list, make):
        """A minute that has often been used in another mix already: making one takes its time."""
        if len(tracks) < TRACKS:
            tracks.append(make())
            return tracks[-1]
        at = int(self.rng.integers(TRACKS))
        if self.rng.random() < 0.5:
            tracks[at] = make()
        return tracks[at]

    def _refill(self, stream: int) -> None:
        rng = self.rng
        speech, labels = self._track(self.speech_tracks, self._speech)
        lowest, highest = -46.0, -16.0
        kind = rng.random()
        if kind < 0.08:
            speech, labels = np.zeros_like(speech), np.zeros_like(labels)
        if kind < 0.05:  # the noise of a quiet input, which the automatic level lifts without end
            lowest, highest = -100.0, -50.0
        ratio = 60.0 if rng.random() < 0.06 else np.clip(rng.normal(7.0, 7.0), -6.0, 30.0)
        mix = speech + self._track(self.noise_tracks, self._noise) * 10.0 ** (-ratio / 20.0)
        gain = 32768.0 * 10.0 ** (rng.uniform(lowest, highest) / 20.0) / (np.sqrt(np.mean(np.square(mix))) + 1e-3)
        mix *= gain
        if kind > 1.0 - QUIET_STARTS:
            labels = self._quiet_start(mix, mix - speech * gain, labels)
        self.wave[stream] = np.clip(np.rint(mix), -32768.0, 32767.0)
        self.labels[stream] = labels

    def _quiet_start(self, mix: np.ndarray, noise: np.ndarray, labels: np.ndarray) -> np.ndarray:
        """Puts far softer noise alone in front, and sudden steps of the level behind; returns the labels."""
        rng, labels = self.rng, labels.copy()
        count = int(rng.uniform(10.0, 50.0) * RATE) // HOP * HOP
        level = np.sqrt(np.mean(np.square(noise[:count]))) + 1e-3
        mix[:count] = noise[:count] * (32768.0 * 10.0 ** (rng.uniform(-85.0, -52.0) / 20.0) / level)
        labels[:, : count // HOP] = 0.0
        if rng.random() < 0.3:
            at = count + int(rng.uniform(1.0, 6.0) * RATE)
            mix[at:] *= 10.0 ** (rng.uniform(-20.0, 12.0) / 20.0)
        return labels

    def next(self) -> dict:
        """The next sequence of every stream: ``wave`` with history, ``label``, ``onset``, ``cold``."""
        cold = np.zeros(self.streams, bool)
        for stream in np.flatnonzero(self.turn == SEQUENCES):
            self._refill(stream)
            self.turn[stream] = 0
            cold[stream] = self.rng.random() < 0.5
        self.level[cold] = REFERENCE**2
        self.tail[cold] = 0.0
        self.past_labels[cold] = 0.0
        hops = SEQUENCE_HOPS
        wave = np.stack([w[t * self.sequence : (t + 1) * self.sequence] for w, t in zip(self.wave, self.turn)])
        labels = np.stack([v[:, t * hops : (t + 1) * hops] for v, t in zip(self.labels, self.turn)])
        self.turn += 1
        wave = np.concatenate([self.tail, levelled(wave, self.level)], axis=1)
        labels = np.concatenate([self.past_labels, labels], axis=2)
        self.tail = wave[:, wave.shape[1] - self.tail.shape[1] :].copy()
        self.past_labels = labels[:, :, labels.shape[2] - self.delay :].copy()
        return {"wave": wave, "label": labels[:, 0, :hops], "onset": labels[:, 1, :hops], "cold": cold}
