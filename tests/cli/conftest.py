"""The orvel command as a user runs it, in a folder with small models of its own."""

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import pytest
import soundfile

from training.weights_file import write_weights

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("ORVEL_BUILD", ROOT / "build" / "release"))


def all_pass(rate: int, bias: float = 60.0) -> dict:
    """A mask of 1 from DC to the highest bin, in the version whose windows add up to 1; or a lower one."""
    frame = rate * 32 // 1000
    bins = frame // 2 + 1
    zero = [np.zeros((2 * bins, bins))]
    return {
        "Version": "0.0.2", "SampleRate": rate, "FrameLength": frame, "Step": frame // 2, "FiltrBegin": 0,
        "FiltrEnd": bins, "PreviewFrames": 1, "CoefficientNumber": bins, "NATFrameCount": 1,
        "MU": np.zeros(2 * bins), "SD": np.ones(2 * bins), "WeightLinear": zero, "WeightNonLinear": zero,
        "BaesLinear": [], "BaesNonLinear": [np.full(bins, bias)], "HeadenMultiplier": [], "HeadenReducer": [],
    }  # fmt: skip


def _recurrent(inputs: int, state: int, widths: list[int], random: np.random.Generator) -> dict:
    """The layers of a recurrent network with random weights."""
    rows = [state + inputs, *widths[:-1]]
    dense = lambda n, m: random.uniform(-2.0, 2.0, (n, m)) / np.sqrt(n)  # noqa: E731
    return {
        "WeightGRU": [dense(rows[0], state)], "BaesGRU": [random.uniform(-0.5, 0.5, state)],
        "WeightLinear": [dense(*shape) for shape in zip(rows, widths)],
        "WeightNonLinear": [dense(*shape) for shape in zip(rows, widths)],
        "BaesLinear": [random.uniform(-0.3, 0.3, width) for width in widths],
        "BaesNonLinear": [random.uniform(-0.1, 0.9, width) for width in widths],
    }  # fmt: skip


def closed() -> dict:
    """A model of version 0.0.5 that lets nothing pass."""
    model = {
        "Version": "0.0.5", "SampleRate": 16000, "FrameLength": 512, "Step": 256, "FiltrBegin": 2, "FiltrEnd": 50,
        "PreviewFrames": 3, "CoefficientNumber": 257, "MU": np.full(24, 17.0), "SD": np.full(24, 5.0),
    } | _recurrent(72, 12, [12, 12, 24], np.random.default_rng(1))  # fmt: skip
    model["WeightNonLinear"][-1][:] = 0.0
    model["BaesNonLinear"][-1][:] = -60.0
    return model


def detector() -> dict:
    """A detector with random weights; its score follows the sound."""
    random = np.random.default_rng(1)
    return {
        "Version": "VAD_0.0.1", "SampleRate": 8000, "FrameLength": 240, "MU": random.uniform(15.0, 17.0, 61),
        "SD": random.uniform(5.0, 13.0, 61), "Test_MINMAX": np.array([-2.5, 3.0]), "Test_BestF1": np.array([0.4]),
    } | _recurrent(244, 10, [10, 2], random)  # fmt: skip


def speech(rate: int, seconds: float, channels: int = 1) -> np.ndarray:
    """Syllables and pauses over noise, (frames, channels), on the grid of 16 bits; every channel differs."""
    time = np.arange(int(rate * seconds)) / rate
    syllable = np.where(time / 0.16 % 3 < 2, np.sin(np.pi * time / 0.16) ** 2, 0.0)
    phase = 2 * np.pi * np.cumsum(140.0 + 40.0 * np.sin(2 * np.pi * 0.9 * time)) / rate
    sound = []
    for c in range(channels):
        voice = sum(np.sin(k * phase + 0.3 * k + c) / k for k in range(1, 13))
        noise = np.random.default_rng(c).uniform(-400.0, 400.0, len(time))
        sound.append(np.trunc(5500.0 * syllable * voice + noise) / 32768.0)
    return np.stack(sound, axis=1).astype(np.float32)


def power_db(sound: np.ndarray) -> float:
    return 10.0 * np.log10(np.mean(np.square(sound, dtype=float)) + 1e-20)


def snr_db(original: np.ndarray, other: np.ndarray) -> float:
    return power_db(original) - power_db(original - other)


def best_lag(original: np.ndarray, other: np.ndarray, most: int = 200) -> int:
    """Samples by which `other` comes later than `original`."""
    part = original[most:-most]
    return int(np.argmax(np.correlate(other, part, "valid"))) - most


@dataclass
class Result:
    code: int
    out: bytes
    err: str

    @property
    def text(self) -> str:
        return self.out.decode()


@dataclass
class Folder:
    """A folder in which shell commands run; `orvel` is the command under test."""

    path: Path

    def __truediv__(self, name: str) -> Path:
        return self.path / name

    def environment(self) -> dict:
        path = f"{BUILD / 'tools'}:{os.environ['PATH']}"
        return {**os.environ, "PATH": path, "ORVEL_MODEL_DIR": str(self / "models")}

    def run(self, script: str, stdin: bytes = b"", code: int = 0) -> Result:
        """What a script gave; the test fails unless it ended with `code`."""
        command = ["bash", "-o", "pipefail", "-c", script]
        done = subprocess.run(command, cwd=self.path, input=stdin, capture_output=True, env=self.environment())
        result = Result(done.returncode, done.stdout, done.stderr.decode(errors="replace"))
        assert result.code == code, f"{script}\n{result.err}"
        return result

    def refuses(self, rows: list[tuple[str, int, str]]) -> None:
        """Each row: a script, its exit code, and what it says on standard error."""
        for script, code, words in rows:
            result = self.run(script, code=code)
            assert words in result.err, script
            assert result.out == b"", script

    def add_model(self, name: str, weights: dict, keys: str = "") -> None:
        write_weights(self / f"models/{name}.bin", weights)
        (self / f"models/{name}.ctl").write_text(f"WEIGHT {name}.bin\n{keys}")

    def save(self, name: str, sound: np.ndarray, rate: int, format: str = "WAV", subtype: str = "PCM_16") -> bytes:
        soundfile.write(self / name, sound, rate, format=format, subtype=subtype)
        return (self / name).read_bytes()

    def load(self, name: str) -> np.ndarray:
        return soundfile.read(self / name, dtype="float32", always_2d=True)[0]

    def encoding(self, name: str) -> str:
        info = soundfile.info(self / name)
        return f"{info.format} {info.subtype}"

    def listed(self, name: str = ".") -> str:
        return " ".join(sorted(path.name for path in (self / name).iterdir()))


@pytest.fixture
def folder(tmp_path) -> Folder:
    """Models orvel-8k, orvel-16k and orvel-32k that let everything pass, and orvel-vad."""
    here = Folder(tmp_path)
    (here / "models").mkdir()
    for rate in (8, 16, 32):
        here.add_model(f"orvel-{rate}k", all_pass(rate * 1000))
    here.add_model("orvel-vad", detector())
    return here
