"""Cleans and scores with an installed wheel alone: run by scripts/wheel --test and by hand on a bare system."""

import tempfile
from pathlib import Path

import numpy as np
import soundfile

import orvel

assert {model.name for model in orvel.models()} == {
    "orvel-8k", "orvel-16k", "orvel-16k-tiny", "orvel-32k", "orvel-vad"
}  # fmt: skip
assert Path(orvel.__file__).parent in orvel.model_folder().parents
licences = Path(orvel.__file__).parent / "licenses"
assert "speexdsp" in (licences / "THIRD_PARTY.md").read_text() and (licences / "licenses" / "speexdsp.txt").exists()
for rate in (8000, 11025, 16000, 48000, 192000):
    time = np.arange(2 * rate) / rate
    voice = sum(np.sin(2.0 * np.pi * 140.0 * k * time + k) / k for k in range(1, 20)) * (time > 1.0)
    noisy = (2000.0 * voice + 300.0 * np.random.default_rng(1).standard_normal(len(time))).astype(np.int16)
    cleaned = orvel.clean(noisy, rate)
    assert cleaned.shape == noisy.shape and cleaned.dtype == np.int16
    quiet = slice(rate // 2, int(0.9 * rate))
    assert np.std(cleaned[quiet]) < 0.3 * np.std(noisy[quiet]), rate
    segments = orvel.VoiceDetector(rate).segments(noisy, threshold=0.45)
    assert segments and abs(segments[0].start - 1.0) < 0.1, segments
with tempfile.TemporaryDirectory() as folder:
    soundfile.write(f"{folder}/noisy.wav", noisy, rate)
    orvel.clean_file(f"{folder}/noisy.wav", f"{folder}/clean.flac")
    assert soundfile.info(f"{folder}/clean.flac").frames == len(noisy)
print("the wheel works:", orvel.Library().version)
