"""The models that come with the package, loaded on first use and shared by the whole process."""

from __future__ import annotations

import threading
from functools import cache

from orvel.library import Library, Model, OrvelError

RATES = (8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000)
"""Rates that streams take, Hz."""

_DEFAULTS = ("orvel-8k", "orvel-16k", "orvel-32k")
_loading = threading.Lock()


@cache
def _shared() -> Library:
    return Library()


def _ready(library: Library, name: str) -> Model:
    with _loading:
        loaded = {model.name: model for model in library.models()}
        return loaded.get(name) or library.load(name)


def choose(library: Library | None, rate: int, model: str | None, kind: str) -> tuple[Library, str | None]:
    """The library to use and the model's name; loads the model where the library is the shared one."""
    if library is not None:
        return library, model
    library = _shared()
    if model is None and kind == "detector":
        model = "orvel-vad"
    if model is None:
        shipped = [_ready(library, name) for name in _DEFAULTS if (library.folder / f"{name}.ctl").exists()]
        fitting = [one for one in shipped if one.rate <= rate]
        if not fitting:
            raise OrvelError(f"no model for {rate} Hz in {library.folder}")
        model = max(fitting, key=lambda one: one.rate).name
    return library, _ready(library, model).name


def models() -> list[Model]:
    """The models in the model folder (`model_folder()`), all of them loaded.

    Raises OrvelError that names a damaged one.

    >>> import orvel
    >>> [(model.name, model.rate) for model in orvel.models() if model.name in ("orvel-16k", "orvel-vad")]
    [('orvel-16k', 16000), ('orvel-vad', 8000)]
    """
    library = _shared()
    return [_ready(library, path.stem) for path in sorted(library.folder.glob("*.ctl"))]
