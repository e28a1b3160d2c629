"""The library under test comes from ORVEL_LIBRARY, or from the release build."""

import evaluation.threads  # noqa: F401, must come before numpy

import os
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parent.parent.parent


@pytest.fixture(scope="session")
def library_path() -> Path:
    """The built shared library; a missing one is an error, not a skip."""
    path = Path(os.environ.get("ORVEL_LIBRARY", ROOT / "build" / "release" / "liborvel.so.1"))
    assert path.exists(), f"{path} is not built; set ORVEL_LIBRARY"
    return path
