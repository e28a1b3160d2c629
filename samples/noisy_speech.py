"""The demo's recording, and what is measured on it once it is cleaned.

Read speech from a Debian package, mixed here with ventilation noise. Both are reproducible: the speech is
installed by scripts/setup, the noise comes from a fixed seed.
"""

import wave
from pathlib import Path

import numpy as np

RATE = 16000
SPEECH_FOLDER = Path("/usr/share/pocketsphinx/test/data/librivox")
SPEECH_PATTERN = "sense_and_sensibility_01_austen_64kb-*.wav"
SPEECH_RMS = 0.05  # of the stretches with speech, full scale 1
LEAD_IN = 1.0  # seconds of noise before the first word
PAUSE = 0.7  # seconds between the pieces


def read_wav(path):
    """Samples of a 16-bit mono file as floats with full scale 1, and the rate in Hz."""
    with wave.open(str(path)) as file:
        if file.getnchannels() != 1 or file.getsampwidth() != 2:
            raise ValueError(f"{path}: not 16-bit mono")
        samples = np.frombuffer(file.readframes(file.getnframes()), dtype="<i2")
        return samples / 32768.0, file.getframerate()


def write_wav(path, samples, rate=RATE):
    """Writes floats with full scale 1 as a 16-bit mono file; clips."""
    integers = np.clip(np.round(np.asarray(samples) * 32768.0), -32768, 32767).astype("<i2")
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(rate)
        file.writeframes(integers.tobytes())


def load_speech():
    """The pieces of the reading with pauses of digital silence between them."""
    files = sorted(SPEECH_FOLDER.glob(SPEECH_PATTERN))
    if not files:
        raise SystemExit(f"no recordings in {SPEECH_FOLDER}: install pocketsphinx-testdata")
    parts = [np.zeros(int(LEAD_IN * RATE))]
    for file in files:
        samples, rate = read_wav(file)
        if rate != RATE:
            raise ValueError(f"{file}: {rate} Hz instead of {RATE} Hz")
        parts += [samples - samples.mean(), np.zeros(int(PAUSE * RATE))]
    speech = np.concatenate(parts)
    return speech * (SPEECH_RMS / np.sqrt(np.mean(speech[speaking(speech)] ** 2)))


def ventilation(count, seed=1):
    """Steady noise of a fan: broad noise that falls with frequency, blade tones and mains hum."""
    random = np.random.default_rng(seed)
    spectrum = np.fft.rfft(random.standard_normal(count))
    frequency = np.fft.rfftfreq(count, 1.0 / RATE)
    spectrum *= 1.0 / np.sqrt(1.0 + (frequency / 250.0) ** 2) + 0.08
    noise = np.fft.irfft(spectrum, count)
    noise /= np.sqrt(np.mean(noise**2))
    time = np.arange(count) / RATE
    for hertz, level in ((50.0, 0.2), (100.0, 0.3), (186.0, 0.35), (372.0, 0.2)):
        noise += level * np.sin(2.0 * np.pi * hertz * time + random.uniform(0.0, 2.0 * np.pi))
    return noise / np.sqrt(np.mean(noise**2))


def speaking(speech, threshold_db=-30.0, frame=320):
    """True at the samples of 20 ms frames within threshold_db of the loud ones."""
    count = len(speech) // frame
    energy = np.mean(speech[: count * frame].reshape(count, frame) ** 2, axis=1)
    loud = energy > np.percentile(energy, 95) * 10.0 ** (threshold_db / 10.0)
    flags = np.repeat(loud, frame)
    return np.concatenate([flags, np.zeros(len(speech) - len(flags), dtype=bool)])


def make(snr_db):
    """Clean speech, and the same with noise; snr_db is taken over the stretches with speech."""
    speech = load_speech()
    noise = ventilation(len(speech)) * SPEECH_RMS * 10.0 ** (-snr_db / 20.0)
    return speech, speech + noise


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
