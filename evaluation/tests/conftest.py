"""The library and the command under test: in ORVEL_BUILD, or in the release build."""

import os
from pathlib import Path

import pytest

from evaluation import ROOT
from orvel import Library

BUILD = Path(os.environ.get("ORVEL_BUILD", ROOT / "build" / "release"))


@pytest.fixture(scope="session")
def library_path() -> Path:
    """The built shared library; a missing one is an error, not a skip."""
    path = Path(os.environ.get("ORVEL_LIBRARY", BUILD / "liborvel.so.1"))
    assert path.exists(), f"{path} is not built; set ORVEL_LIBRARY"
    return path


@pytest.fixture(scope="session")
def command_path() -> Path:
    """The built command."""
    path = BUILD / "tools" / "orvel"
    assert path.exists(), f"{path} is not built; set ORVEL_BUILD"
    return path


@pytest.fixture(scope="module")
def library(library_path):
    """The library with a small model."""
    with Library(ROOT / "models", file=library_path) as opened:
        opened.load("orvel-16k-tiny")
        yield opened
