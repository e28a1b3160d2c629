"""The options that the programs of this package share, and how they are read."""

import argparse
from pathlib import Path

from evaluation import ROOT
from evaluation.pairs import STREAMS

BUILD = ROOT / "build"
_SHARED = {
    "--data": {"type": Path, "help": "folder of recordings to mix"},
    "--seconds": {"type": float, "default": 6.0, "help": "length of a pair"},
    "--streams": {"type": int, "default": STREAMS, "help": "minutes for the voice detectors"},
    "--library": {"type": Path, "default": BUILD / "release" / "liborvel.so.1"},
    "--command": {"type": Path, "default": BUILD / "release" / "tools" / "orvel"},
    "--models": {"type": Path, "default": ROOT / "models", "help": "folder of models"},
    "--scratch": {"type": Path, "default": BUILD / "evaluation", "help": "where mixes and results are kept"},
    "--jobs": {"type": int, "default": 2, "help": "processes"},
}


def parser(module: str, text: str, *shared: str) -> argparse.ArgumentParser:
    """A parser for `python -m module`, described by `text`, with the `shared` options named."""
    made = argparse.ArgumentParser(
        prog=f"python -m {module}",
        description=text,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    for name in shared:
        made.add_argument(name, **_SHARED[name])
    return made
