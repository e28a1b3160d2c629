"""Figures of a cleaned recording whose clean original is known."""
import numpy as np

from noisy_speech import RATE, speaking


def power_db(samples):
    return 10.0 * np.log10(np.mean(np.square(samples)) + 1e-12)


def pauses(speech, after=1.0, frame=320):
    """True between the words, with a distance of one frame to speech, from `after` seconds on."""
    active = speaking(speech, threshold_db=-40.0, frame=frame)
    near = active.copy()
    near[frame:] |= active[:-frame]
    near[:-frame] |= active[frame:]
    near[: int(after * RATE)] = True
    return ~near


def noise_reduction_db(speech, noisy, cleaned):
    """By how much the power between the words falls."""
    between = pauses(speech)
    return power_db(noisy[between]) - power_db(cleaned[between])


def speech_change_db(speech, cleaned):
    """Level of the original speech that is left in the cleaned file: projection on the original."""
    active = speaking(speech)
    gain = np.dot(cleaned[active], speech[active]) / np.dot(speech[active], speech[active])
    return 20.0 * np.log10(abs(gain) + 1e-12)


def si_sdr_db(speech, other):
    """Scale-invariant signal-to-distortion ratio."""
    scaled = speech * (np.dot(other, speech) / np.dot(speech, speech))
    return 10.0 * np.log10(np.sum(scaled**2) / (np.sum((other - scaled) ** 2) + 1e-20))


def stoi(speech, other):
    """Short-time objective intelligibility, 0 to 1."""
    from pystoi import stoi as score

    return float(score(speech, other, RATE))
