"""Our models as a suppressor beside others, and which of them are measured."""

import numpy as np
import pytest

from evaluation import ROOT, work
from evaluation.suppressors import Orvel
from evaluation.tests.voices import vowels
from orvel import Model
from training.measures import lag_of, level_db

MODEL = "orvel-16k-tiny"


@pytest.mark.parametrize("length", [48000, 47993, 100])
def test_cleaned_file_keeps_length_and_time(library, length):
    wave = vowels(16000)[:length].astype(np.float32)
    system = Orvel(library, MODEL)
    out = system.clean_file(wave, 16000)
    assert len(out) == length and system.rate == 16000
    assert np.array_equal(out, system.clean_file(wave, 16000))  # each from a fresh stream
    if length > 1600:
        assert lag_of(out, wave, 1600) <= 1
        heard = slice(16000, None)  # a made-up voice may pass for music until then
        assert level_db(out[heard]) == pytest.approx(level_db(wave[heard]), abs=3.0)


def test_models_are_chosen_by_what_they_are_not_by_their_names():
    def model(name, kind, version, rate, weights):
        return Model(name, kind, version, rate, 480, 240, 496, weights)

    models = [
        model("a", "cleaner", "0.0.5", 16000, 10),
        model("b", "cleaner", "0.0.10", 16000, 10),
        model("c", "cleaner", "0.0.10", 16000, 30),
        model("d", "cleaner", "0.0.10", 8000, 20),
        model("e", "detector", "VAD_0.0.1", 8000, 20),
    ]
    names = lambda found: [one.name for one in found]  # noqa: E731
    assert names(work.cleaners(models)) == ["c", "d", "b"]
    assert names(work.cleaners(models, 16000)) == ["c", "b"]
    assert names(work.cleaners(models, older=True)) == ["a"]
    assert names(work.detectors(models)) == ["e"]


def test_every_shipped_model_is_measured(library_path):
    with work.open_library(library_path, ROOT / "models") as library:
        models = library.models()
    measured = [*work.cleaners(models), *work.cleaners(models, older=True), *work.detectors(models)]
    assert {model.name for model in measured} == {path.stem for path in (ROOT / "models").glob("*.ctl")}
