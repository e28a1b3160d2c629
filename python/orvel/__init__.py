"""ORVEL from Python: removes ambient noise from speech and scores voice activity.

    import orvel

    cleaned = orvel.clean(audio, 16000)                   # an array, as long as it was
    cleaner = orvel.Cleaner(48000, channels=2)            # a stream, in blocks of any length
    block = cleaner.process(block)
    scores = orvel.VoiceDetector(16000).scores(audio)     # one for each 10 ms

`Library` gives the C interface's models and sessions. The shared library is looked for in ORVEL_LIBRARY,
in the checkout's release build and in the system's folders, models in ORVEL_MODEL_DIR, in the checkout
and in share/orvel/models. Messages of the library go to the logger "orvel".
"""

from orvel.library import CleaningSession, DetectionSession, Library, Model, OrvelError, Statistics, model_folder
from orvel.streams import RATES, Cleaner, VoiceDetector, clean, models

__all__ = [
    "RATES",
    "Cleaner",
    "CleaningSession",
    "DetectionSession",
    "Library",
    "Model",
    "OrvelError",
    "Statistics",
    "VoiceDetector",
    "clean",
    "model_folder",
    "models",
]
