"""Signals and models that several tests share."""

import atexit
import os
import shutil
import tempfile

# Networks and waves are small here: nearly all the time would go into optimising what is compiled.
os.environ["XLA_FLAGS"] = (
    "--xla_cpu_multi_thread_eigen=false intra_op_parallelism_threads=1 "
    "--xla_backend_optimization_level=0 --xla_llvm_disable_expensive_passes=true"
)
os.environ.setdefault("OMP_NUM_THREADS", "1")
# Runs of the same model, in this process and in others, compile once.
os.environ["JAX_COMPILATION_CACHE_DIR"] = tempfile.mkdtemp(prefix="orvel-compiled-")
os.environ["JAX_PERSISTENT_CACHE_MIN_COMPILE_TIME_SECS"] = "0.3"
atexit.register(shutil.rmtree, os.environ["JAX_COMPILATION_CACHE_DIR"], ignore_errors=True)

from pathlib import Path

import numpy as np
import pytest

from training.configuration import load_config

ROOT = Path(__file__).resolve().parents[2]
MODELS = ROOT / "models"
CONFIGS = ROOT / "training" / "configs"


def config(name: str) -> dict:
    """The configuration of a shipped model."""
    return load_config(CONFIGS / f"{name}.toml")


@pytest.fixture(scope="session")
def speechlike():
    """Makes bursts of voiced sound over noise with pauses and level steps: (rate, seconds) to a wave."""

    def make(rate: int, seconds: float) -> np.ndarray:
        rng = np.random.default_rng(3)
        time = np.arange(int(rate * seconds)) / rate
        pitch = 120.0 + 30.0 * np.sin(2 * np.pi * 0.7 * time)
        phase = 2 * np.pi * np.cumsum(pitch) / rate
        voice = sum(np.sin(k * phase) / k for k in range(1, 20)) * (np.sin(2 * np.pi * 1.3 * time) > -0.3)
        level = np.where(time < 0.6 * seconds, 1500.0, 200.0)
        return np.rint(level * (voice + 0.3 * rng.normal(size=len(time)))).astype(np.float32)

    return make
