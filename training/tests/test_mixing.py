"""Mixes, labels and weight files: what the training and the library must be able to rely on."""

from dataclasses import astuple

import numpy as np
import pytest

from training import device_mixing
from training.device_mixing import DeviceMixer
from training.labels import voice_labels
from training.level import RescaleTracker, frame_energies
from training.minutes import MinuteMixer
from training.mixing import Batch, StreamMixer
from training.pools import Pool, segment_length
from training.weights_file import encode, read_weights, write_weights

RATE = 8000


@pytest.fixture()
def pool(tmp_path, monkeypatch):
    """Four speech and four noise slots: a tone as speech, noise as noise."""
    monkeypatch.setattr(device_mixing, "MADE", 2)
    pool = Pool(tmp_path / "pool", RATE, 4, 4)
    rng = np.random.default_rng(1)
    time = np.arange(segment_length(RATE)) / RATE
    for slot in range(4):
        pool.speech[slot] = np.rint(4000.0 * np.sin(2 * np.pi * (300 + 100 * slot) * time))
        pool.noise[slot] = np.rint(rng.normal(0.0, 3000.0, len(time)))
    pool.speech_kind[:] = 1
    pool.noise_kind[:] = 1
    return pool


MIXERS = pytest.mark.parametrize("kind", [StreamMixer, DeviceMixer])


@MIXERS
def test_streams_carry_on_from_sequence_to_sequence(pool, kind):
    mixer = kind(pool, 64, 128, seed=1, cold=0.0, hard=0.05)
    tracker = RescaleTracker(64, RATE, 128)
    before = mixer.next()
    tracker.gains(frame_energies(np.asarray(before.noisy), 128))
    for _ in range(3):
        after = mixer.next()
        np.testing.assert_array_equal(after.noisy[:, :128], before.noisy[:, -128:])
        np.testing.assert_array_equal(after.target[:, :128], before.target[:, -128:])
        gains = tracker.gains(frame_energies(np.asarray(after.noisy), 128))
        np.testing.assert_allclose(after.gain, gains, rtol=1e-3)
        before = after


@MIXERS
def test_mixes_cover_the_levels_and_ratios(pool, kind):
    mixer = kind(pool, 64, 128, seed=2)
    levels, ratios, silent = [], [], 0
    for _ in range(6):
        batch = mixer.next()
        batch = Batch(*map(np.asarray, astuple(batch)))
        noise = batch.noisy - batch.target
        power = lambda w: np.mean(np.square(w[:, 128:]), axis=1) + 1e-9  # noqa: E731
        levels.append(10 * np.log10(power(batch.noisy) / 32768.0**2))
        voiced = batch.voiced > 0
        silent += int(np.sum(~voiced))
        ratios.append(10 * np.log10(power(batch.target) / power(noise))[voiced])
        assert np.abs(batch.noisy).max() <= 32768.0
        assert (batch.target[~voiced] == 0.0).mean() > 0.99
    levels, ratios = np.concatenate(levels), np.concatenate(ratios)
    assert np.percentile(levels, 5) < -42.0 and np.percentile(levels, 95) > -18.0
    assert 0.25 < np.mean(ratios < 3.0) < 0.7
    assert np.percentile(ratios, 3) < -4.0 and np.percentile(ratios, 90) > 12.0
    assert 0.02 < silent / len(levels) < 0.15


@MIXERS
def test_speech_pauses_at_the_ends_and_music_takes_the_place_of_recordings(pool, kind):
    pool.noise[:] = 0
    mixer = kind(pool, 64, 128, seed=4, clean=0.0, alone=0.5, pauses=1.0, music=1.0)
    state = mixer.state if kind is DeviceMixer else vars(mixer)
    noisy, target, voiced = (np.asarray(state[name]) for name in ("noisy", "target", "voiced"))
    assert 0.3 < 1.0 - voiced.mean() < 0.7
    assert (np.square(noisy - target).mean(axis=1) > 0.1).all()
    spoken = target[voiced > 0]
    ends = [np.abs(part).max(axis=1) < 1.0 for part in (spoken[:, : RATE // 4], spoken[:, -RATE // 4 :])]
    # One end of each segment; clipping and lower rates smear some of them.
    assert np.mean(ends[0] != ends[1]) > 0.85 and 0.3 < np.mean(ends[0]) < 0.7


def test_hard_signals_last_and_carry_their_state(pool):
    mixer = StreamMixer(pool, 64, 128, seed=3, cold=1.0, hard=0.05)
    shares, lasting, asked = [], 0, []
    for _ in range(12):
        before = mixer.hard.copy()
        batch = mixer.next()
        shares.append(mixer.hard.mean())
        assert (np.abs(batch.noisy[mixer.hard][:, 128:]).max(axis=1) > 100.0).all()
        assert not batch.target[mixer.hard][:, 128:].any() and not batch.voiced[mixer.hard].any()
        assert not batch.cold[before].any()
        lasting += int(np.sum(before & mixer.hard))
        asked.append(mixer.norm[mixer.hard] < 32768.0)
    assert 0.03 < np.mean(shares) < 0.5 and lasting > 20
    # Only steady tones are in the loss.
    assert 0.02 < np.mean(np.concatenate(asked)) < 0.3


@pytest.mark.parametrize("delay", [0, 3])
def test_minutes_carry_on_with_their_labels(pool, delay):
    history = 160
    mixer = MinuteMixer(pool, 5, seed=4, history=history, delay=delay)
    before, shares, refilled = mixer.next(), [], False
    for _ in range(70):
        after = mixer.next()
        for stream in np.flatnonzero(~after["cold"]):
            np.testing.assert_array_equal(after["wave"][stream, :history], before["wave"][stream, -history:])
        refilled |= after["cold"].any()
        assert after["wave"].shape[1] - history == after["label"].shape[1] * 80
        assert np.all(after["onset"] <= after["label"])
        shares.append(after["label"].mean())
        before = after
    assert refilled and 0.3 < np.mean(shares) < 0.7
    # Labels lie on the tones, which every minute that has any holds above its noise on the whole.
    labels = mixer.labels[:, 0] > 0.5
    level = np.mean(np.square(mixer.wave.reshape(5, -1, 80)), axis=2)
    level /= level.mean(axis=1, keepdims=True)
    assert np.mean(level[labels]) > np.mean(level[~labels])


def test_labels_follow_the_bursts():
    rng = np.random.default_rng(3)
    clean = rng.normal(0.0, 2.0, 4 * RATE)
    clean[RATE : 2 * RATE] += rng.normal(0.0, 3000.0, RATE)
    clean[2 * RATE + 400 : 3 * RATE] += rng.normal(0.0, 3000.0, RATE - 400)  # a gap of 50 ms is closed
    clean[int(3.5 * RATE) : int(3.5 * RATE) + 60] += 1500.0  # a click is no speech
    labels = voice_labels(clean)
    assert labels.shape == (400,)
    np.testing.assert_allclose(labels[103:297], 1.0)
    assert labels[:97].sum() + labels[303:].sum() == 0.0
    assert voice_labels(np.zeros(RATE)).sum() == 0.0


def test_damaged_weight_files_are_refused(tmp_path):
    path = tmp_path / "w.bin"
    write_weights(path, {"Step": -1, "Real": 0.5, "Matrix": np.eye(2, dtype=np.float32)})
    assert encode("Step", -1) == b"\x04\0\0\0Step\x01\0\0\0\xff\xff\xff\xff"
    back, raw = read_weights(path), path.read_bytes()
    assert list(back) == ["Step", "Real", "Matrix"] and (back["Step"], back["Real"]) == (-1, 0.5)
    path.write_bytes(raw[:-2])
    with pytest.raises(ValueError, match="cut short"):
        read_weights(path)
    path.write_bytes(raw + b"\x01\0\0\0a\x09\0\0\0")
    with pytest.raises(ValueError, match="unknown type 9"):
        read_weights(path)
