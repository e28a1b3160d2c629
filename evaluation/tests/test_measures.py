"""Measures against values known by construction."""

import numpy as np
import pytest

from evaluation.judges import word_errors
from evaluation.situations import reductions
from evaluation.suppressors import Unprocessed
from training import measures

RATE = 16000
FRAME = int(RATE * measures.FRAME_SECONDS)


def noise(seconds: float, seed: int) -> np.ndarray:
    return np.random.default_rng(seed).standard_normal(int(seconds * RATE)) * 0.1


def talk(seconds: float = 4.0) -> np.ndarray:
    """Noise that is loud for half a second and silent for the next."""
    wave = noise(seconds, 1)
    return wave * (np.arange(len(wave)) // (RATE // 2) % 2 == 0)


@pytest.mark.parametrize("decibels", [-10.0, 0.0, 25.0])
@pytest.mark.parametrize("scale", [0.01, 3.0])
def test_si_sdr_is_the_ratio_of_orthogonal_parts_at_any_scale(decibels, scale):
    clean, other = noise(2, 1), noise(2, 2)
    other -= np.dot(other, clean) / np.dot(clean, clean) * clean
    other *= np.linalg.norm(clean) / np.linalg.norm(other) * 10.0 ** (-decibels / 20.0)
    assert measures.si_sdr(scale * (clean + other), clean) == pytest.approx(decibels, abs=0.01)


@pytest.mark.parametrize("lowered_by, share", [(6.0, 0.0), (11.0, 0.0), (13.0, 0.25), (40.0, 0.25)])
def test_cut_share_counts_lowered_speech_frames(lowered_by, share):
    clean = noise(100 * measures.FRAME_SECONDS, 3)
    out = clean.copy()
    out[: 25 * FRAME] *= 10.0 ** (-lowered_by / 20.0)
    assert measures.cut_share(out, clean, RATE) == pytest.approx(share, abs=0.011)


def test_pause_attenuation_measures_the_pauses_alone():
    clean = talk()
    noisy = clean + noise(4.0, 5) * 0.1
    out = np.where(clean == 0.0, noisy * 10.0 ** (-18.0 / 20.0), noisy * 0.01)
    # Half a second is no whole number of frames: those on the border count as speech.
    assert measures.pause_attenuation(out, noisy, clean, RATE) == pytest.approx(18.0, abs=0.1)
    assert measures.pause_attenuation(np.zeros_like(noisy), noisy, clean, RATE) == pytest.approx(80.0, abs=0.1)
    assert np.isnan(measures.pause_attenuation(noisy, noisy, noise(4.0, 6), RATE))


@pytest.mark.parametrize("lag", [0, 1, 96, 496, 1599])
def test_lag_is_found_through_added_noise_and_filtering(lag):
    wave = np.convolve(noise(2.0, 7), [0.6, 0.3, 0.1])[: 2 * RATE]
    late = np.concatenate([np.zeros(lag), wave])[: len(wave)] * 0.3 + noise(2.0, 8) * 0.02
    assert measures.lag_of(late, wave, 1600) == lag


def test_intelligibility_and_quality_fall_with_noise():
    """The packages are wired with the clean wave as the reference, at both PESQ rates."""
    from evaluation.tests.voices import vowels

    for rate in (8000, 16000):
        clean = vowels(rate)
        other = np.random.default_rng(1).standard_normal(len(clean)) * np.std(clean)
        slightly, heavily = clean + 0.03 * other, clean + other
        for measure in (measures.pesq, measures.stoi):
            assert measure(clean, clean, rate) > measure(slightly, clean, rate)
            assert measure(slightly, clean, rate) > measure(heavily, clean, rate)
    assert measures.stoi(clean, clean, rate) == pytest.approx(1.0, abs=1e-6)


def test_band_gains_are_those_of_speech_alone():
    clean = noise(3.0, 9)
    low = np.fft.irfft(np.where(np.fft.rfftfreq(len(clean), 1 / RATE) < 2000.0, 1.0, 0.25) * np.fft.rfft(clean))
    gains = measures.band_gains(low + 0.3 * noise(3.0, 10), clean, RATE)
    assert gains == pytest.approx({"from_0": 0.0, "from_1000": 0.0, "from_2000": -12.0, "from_4000": -12.0}, abs=0.5)
    assert np.isnan(measures.band_gains(low, np.zeros_like(low), RATE)["from_0"])


@pytest.mark.parametrize(
    "words, reference, errors",
    [
        ("", "", 0),
        ("a b c", "a b c", 0),
        ("a c", "a b c", 1),
        ("a x c d", "a b c", 2),
        ("", "a b", 2),
        ("b a", "a b", 2),
    ],
)
def test_word_errors_count_insertions_deletions_and_replacements(words, reference, errors):
    assert word_errors(words.split(), reference.split()) == errors


class Late(Unprocessed):
    """Halves what comes after its first second: a cleaner that is slow to begin."""

    name = "late"

    def _stream(self, wave):
        return np.where(np.arange(len(wave)) < self.rate, wave, 0.5 * wave)


def test_situations_measure_where_no_speech_is():
    found = reductions([Unprocessed(RATE), Late(RATE)], talk(), RATE, seed=1)
    for name, by_system in found.items():
        expected = 0.0 if "noise" in name else 6.02
        assert by_system == {"unprocessed": pytest.approx(0.0, abs=0.01), "late": pytest.approx(expected, abs=0.01)}
