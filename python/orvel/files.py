"""Where the shared library and the models lie."""

from __future__ import annotations

import os
from pathlib import Path

from orvel import _native

_PACKAGE = Path(__file__).resolve().parent
_CHECKOUT = _PACKAGE.parent.parent


def library_file() -> str:
    """The library to load: ORVEL_LIBRARY, else the one in the extension (""), the checkout's release build or
    the system's."""
    named = os.environ.get("ORVEL_LIBRARY")
    if named or _native.has_library_inside():
        return named or ""
    built = _CHECKOUT / "build" / "release" / "liborvel.so.1"
    return str(built) if built.exists() else "liborvel.so.1"


def model_folder() -> Path:
    """Where models are looked for: ORVEL_MODEL_DIR, else the wheel's, the checkout's or the system's folder."""
    named = os.environ.get("ORVEL_MODEL_DIR")
    if named:
        return Path(named)
    system = [Path("/usr/local/share/orvel/models"), Path("/usr/share/orvel/models")]
    folders = [_PACKAGE / "models", _CHECKOUT / "models", *system]
    return next((folder for folder in folders if folder.is_dir()), folders[0])
