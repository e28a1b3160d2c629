"""Detector measures on constructed scores and segments."""

import numpy as np
import pytest

from evaluation import voice
from evaluation.detectors import VoiceDetector


def flags(*runs: tuple[int, int], length: int = 1000) -> np.ndarray:
    out = np.zeros(length, bool)
    for begin, end in runs:
        out[begin:end] = True
    return out


def test_area_equals_the_share_of_rightly_ordered_pairs():
    rng = np.random.default_rng(3)
    labels = rng.random(400) < 0.4
    scores = np.round(rng.standard_normal(400) + labels, 1)  # many ties, which count half
    hits, others = scores[labels][:, None], scores[~labels][None, :]
    expected = np.mean((hits > others) + 0.5 * (hits == others))
    assert voice.auc(scores, labels) == pytest.approx(expected, abs=1e-9)


def test_best_f1_is_found_by_trying_every_threshold():
    rng = np.random.default_rng(4)
    labels = rng.random(300) < 0.5
    scores = np.round(rng.random(300) * 0.7 + labels * 0.3, 2)
    tried = {t: voice.f1(scores >= t, labels) for t in np.unique(scores)}
    value, threshold = voice.best_f1(scores, labels)
    assert value == pytest.approx(max(tried.values()))
    assert tried[threshold] == pytest.approx(value)


@pytest.mark.parametrize("lag", [0, 3, 12])
def test_lag_of_delayed_scores_is_found_and_removed(lag):
    labels = flags((100, 180), (300, 420), (600, 640))
    scores = np.concatenate([np.zeros(lag), labels.astype(float)])[: len(labels)]
    assert voice.best_lag(scores, labels) == (lag, pytest.approx(1.0))


@pytest.mark.parametrize(
    "decided, alarms, misses, delays",
    [
        ([(100, 200), (500, 600)], 0, 0, [0, 0]),
        ([(104, 200), (512, 600)], 0, 0, [4, 12]),
        ([(100, 200)], 0, 1, [0]),
        ([(100, 200), (300, 330), (500, 600)], 1, 0, [0, 0]),
        ([(100, 140), (150, 200), (500, 600)], 0, 0, [0, 0]),  # a short gap splits nothing
        ([(100, 200), (300, 303), (500, 600)], 0, 0, [0, 0]),  # a flicker is no segment
        ([(95, 200), (500, 600)], 0, 0, [0]),  # on before the word: no reaction to it
    ],
)
def test_events(decided, alarms, misses, delays):
    found = voice.events(flags(*decided), flags((100, 200), (500, 600)))
    assert (found.false_alarms, found.misses, found.onset_delays) == (alarms, misses, delays)


def test_labels_follow_the_level_and_close_short_gaps():
    rate, hop = 16000, 160
    wave = np.random.default_rng(5).standard_normal(1000 * hop) * 1e-5
    tone = 0.1 * np.sin(np.arange(1000 * hop) * 0.3)
    spoken = flags((100, 200), (210, 300), (600, 700), (850, 851))
    labels = voice.labels_of(wave + tone * np.repeat(spoken, hop), rate)
    expected = flags((99, 301), (599, 701))  # frames of 30 ms reach one hop beyond; a click is dropped
    assert np.array_equal(labels, expected)
    assert not voice.labels_of(np.zeros(16000), rate).any()


def test_scores_of_longer_frames_count_from_their_end():
    class Numbered(VoiceDetector):
        frame_ms = 32

        def _scores(self, wave):
            return np.arange(1, len(self.frames(wave)) + 1)

    scores = Numbered().scores(np.zeros(16000, np.float32))
    assert len(scores) == 100
    # 32 ms end within the fourth hop, 64 ms within the seventh, 96 ms within the tenth.
    assert scores[:11].tolist() == [0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3]
