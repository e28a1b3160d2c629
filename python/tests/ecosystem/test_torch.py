"""The module for torch and the map over lhotse's cuts; run where both are installed."""

import lhotse
import numpy as np
import pytest
import soundfile
import torch
from test_packages import block_of_the_document

import orvel
from orvel.torch import Denoise


def test_a_module_cleans_each_row():
    noisy = 0.05 * np.random.default_rng(1).standard_normal((2, 3, 8000)).astype(np.float32)
    out = Denoise(16000)(torch.from_numpy(noisy).requires_grad_())
    assert out.shape == noisy.shape and out.dtype == torch.float32 and not out.requires_grad
    assert np.max(np.abs(out[1, 2].numpy() - orvel.clean(noisy[1, 2], 16000))) < 1e-6
    for wrong in (torch.zeros(0), torch.full((9,), float("nan")), torch.zeros(9, dtype=torch.complex64)):
        with pytest.raises(ValueError):
            Denoise(16000)(wrong)


def test_a_map_over_cuts_from_the_documents(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    soundfile.write("in.wav", 0.05 * np.random.default_rng(1).standard_normal((16000, 2)), 16000)
    said = lhotse.SupervisionSegment("said", "in", 0.2, 0.5)
    cut = lhotse.utils.fastcopy(lhotse.Recording.from_file("in.wav").to_cut(), id="one", supervisions=[said])
    names = {"cuts": lhotse.CutSet.from_cuts([cut])}
    exec(block_of_the_document("lhotse"), names)
    (cleaned,) = names["cuts"]
    assert cleaned.supervisions == [said] and cleaned.load_audio().shape == (2, 16000)
    assert np.std(cleaned.load_audio()) < 0.5 * np.std(cut.load_audio())
