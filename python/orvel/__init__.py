"""ORVEL from Python: removes ambient noise from speech and scores voice activity.

    import orvel

    cleaned = orvel.clean(audio, 16000)                   # an array, as long as it was
    orvel.clean_file("noisy.flac", "clean.flac")          # a file, in blocks
    cleaner = orvel.Cleaner(48000, channels=2)            # a stream, in blocks of any length
    block = cleaner.process(block)
    segments = orvel.VoiceDetector(16000).segments(audio)

`python -m orvel.corpus` cleans folders and shards with every core; `orvel.torch.Denoise` is a module for torch.
`Library` gives the C interface's models and sessions. The library comes from ORVEL_LIBRARY, else it is the one
inside the wheel, in a checkout the release build. Models come from ORVEL_MODEL_DIR, else from the wheel, the
checkout or share/orvel/models. Messages of the library go to the logger "orvel".
"""

from orvel.files import model_folder
from orvel.library import (
    CleaningSession,
    DetectionSession,
    Library,
    Model,
    OrvelError,
    Statistics,
    clean_together,
)
from orvel.recordings import clean, clean_file
from orvel.shipped import RATES, models
from orvel.streams import Cleaner
from orvel.voice import Segment, VoiceDetector

__all__ = [
    "RATES",
    "Cleaner",
    "CleaningSession",
    "DetectionSession",
    "Library",
    "Model",
    "OrvelError",
    "Segment",
    "Statistics",
    "VoiceDetector",
    "clean",
    "clean_file",
    "clean_together",
    "model_folder",
    "models",
]
