"""The Python access to the library, on the shipped default model."""

import numpy as np
import pytest

from evaluation.metrics import lag_of, level_db
from evaluation.orvel import Library, OrvelError
from evaluation.suppressors import Orvel
from evaluation.tests.conftest import ROOT
from evaluation.tests.voices import vowels

MODEL = "orvel-16k"


@pytest.fixture(scope="module")
def library(library_path):
    with Library(library_path, ROOT / "models") as opened:
        opened.load(MODEL)
        yield opened


@pytest.mark.parametrize("rate", [16000, 48000])
def test_latency_is_the_lag_that_can_be_measured(library, rate):
    wave = vowels(rate)
    with library.cleaner(rate, MODEL) as session:
        session.limit(0.0)
        out = session.process(wave)
        assert abs(lag_of(out, wave, rate // 10) - session.latency) <= rate // 16000
        assert session.cpu_seconds > 0.0


@pytest.mark.parametrize("length", [48000, 47993, 100])
def test_cleaned_file_keeps_length_and_time(library, length):
    wave = vowels(16000)[:length].astype(np.float32)
    out = Orvel(library, MODEL, 16000).clean_file(wave, 16000)
    assert len(out) == length
    if length > 1600:
        assert lag_of(out, wave, 1600) <= 1
        assert level_db(out) == pytest.approx(level_db(wave), abs=6.0)


def test_streams_begin_fresh(library):
    system, wave = Orvel(library, MODEL, 16000), vowels(16000)
    assert np.array_equal(system.clean_file(wave, 16000), system.clean_file(wave, 16000))


def test_refusals_name_what_the_library_printed(library):
    with pytest.raises(OrvelError, match="nowhere"):
        library.load("nowhere")
    with pytest.raises(OrvelError):
        library.cleaner(11025, MODEL)
    with library.cleaner(16000, MODEL) as session, pytest.raises(ValueError, match="frames of 160"):
        session.process(np.zeros(161))
