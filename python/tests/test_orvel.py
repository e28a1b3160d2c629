"""The binding on the shipped models."""

import doctest
import importlib
import json
import logging
import os
import subprocess
import sys
import threading
import time
from pathlib import Path

import numpy as np
import pytest
import soundfile

import orvel

ROOT = Path(__file__).resolve().parent.parent.parent
MODELS = ROOT / "models"
BUILD = Path(os.environ.get("ORVEL_BUILD", ROOT / "build" / "release"))


@pytest.fixture(scope="session")
def wave():
    """Half a second of noise that comes and goes, float32 at 16 kHz."""
    time = np.arange(8000) / 16000.0
    noise = np.random.default_rng(1).standard_normal(8000) * 0.05
    return (noise * (1.0 + np.sin(2.0 * np.pi * 6.0 * time))).astype(np.float32)


@pytest.fixture
def library():
    with orvel.Library(MODELS) as opened:
        yield opened


def test_a_model_tells_what_it_is(library):
    assert library.load("orvel-16k-tiny") == library.model("orvel-16k-tiny")
    cleaner, detector = library.model("orvel-16k-tiny"), library.load("orvel-vad")
    assert (cleaner.kind, cleaner.rate, cleaner.hop) == ("cleaner", 16000, cleaner.frame_length // 2)
    assert (detector.kind, detector.rate) == ("detector", 8000)
    assert cleaner.weights > 10_000 and len(cleaner.version.split(".")) == 3
    assert library.models() == [cleaner, detector]
    with library.cleaner(16000, "orvel-16k-tiny") as session:
        assert session.latency == cleaner.latency
        session.process(np.zeros(480, np.float32))
        assert session.statistics() == orvel.Statistics(frames=3, failed_frames=0, state_resets=0)


def test_a_shipped_model_that_is_damaged_is_refused(tmp_path):
    controls = sorted(MODELS.glob("*.ctl"))
    assert controls
    for control in controls:
        weights = bytearray(control.with_suffix(".bin").read_bytes())
        weights[len(weights) // 2] ^= 1
        (tmp_path / control.with_suffix(".bin").name).write_bytes(weights)
        (tmp_path / control.name).write_text(control.read_text())
        with orvel.Library(tmp_path) as library, pytest.raises(orvel.OrvelError, match="SHA-256"):
            library.load(control.stem)


@pytest.mark.parametrize(
    "call, words",
    [
        (lambda library: library.load("nowhere"), "nowhere"),
        (lambda library: library.load("orvel-16k-tiny"), "orvel-16k-tiny"),  # the name is taken
        (lambda library: library.load("orvel-vad.bin.ctl"), "orvel-vad.bin"),
        (lambda library: library.load("nowhere", keys={"KEY": 1}), "nowhere"),
        (lambda library: library.load_bytes(b"no weights", "bytes"), ""),
        (lambda library: library.model("nowhere"), "nowhere"),
        (lambda library: library.cleaner(11025, "orvel-16k-tiny"), "11025"),
        (lambda library: library.cleaner(16000, "orvel-16k-tiny", frame_ms=25), "25"),
        (lambda library: library.cleaner(16000, "nowhere"), "nowhere"),
        (lambda library: library.detector(16000, "orvel-16k-tiny"), "orvel-16k-tiny"),
        (lambda library: library.cleaner(16000, "orvel-16k-tiny").limit(-1.0), ""),
    ],
)
def test_a_refusal_carries_the_reason_and_prints_nothing(library, call, words, capfd):
    library.load("orvel-16k-tiny")
    with pytest.raises(orvel.OrvelError) as caught:
        call(library)
    assert words in str(caught.value) and len(str(caught.value)) > 10
    assert capfd.readouterr() == ("", "")
    assert len(library.cleaner(16000, "orvel-16k-tiny").process(np.zeros(160))) == 160


def test_a_library_that_is_not_there_is_named(tmp_path, monkeypatch):
    monkeypatch.setenv("ORVEL_LIBRARY", str(tmp_path / "liborvel.so.1"))
    with pytest.raises(OSError, match="liborvel.so.1.*make build"):
        orvel.Library(MODELS)


def test_libraries_are_independent(wave, capfd):
    first, second = orvel.Library(MODELS), orvel.Library(MODELS)
    first.load("orvel-16k-tiny", "mine")
    second.load("orvel-ff-v3", "mine")
    sessions = [library.cleaner(16000, "mine") for library in (first, second, first)]
    outputs = [session.process(wave) for session in sessions]
    assert np.array_equal(outputs[0], outputs[2]) and not np.array_equal(outputs[0], outputs[1])
    first.close()
    with pytest.raises(orvel.OrvelError, match="closed"):
        sessions[0].process(wave)
    sessions[1].reset()
    assert np.array_equal(sessions[1].process(wave), outputs[1])
    second.close()
    sessions.clear()  # they ended with their libraries: nothing closes them a second time
    assert capfd.readouterr() == ("", "")


def test_sessions_keep_their_library_alive(wave):
    session = orvel.Library(MODELS).cleaner  # the library lives in the bound method alone
    session.__self__.load("orvel-16k-tiny")
    session = session(16000)
    assert np.isfinite(session.process(wave)).all()


def test_reset_begins_anew_and_keeps_the_limit(library, wave):
    library.load("orvel-16k-tiny")
    library.load("orvel-vad")
    free, limited = library.cleaner(16000, "orvel-16k-tiny"), library.cleaner(16000, "orvel-16k-tiny")
    limited.limit(0.0)
    detector = library.detector(16000)
    for session in (free, limited, detector):
        before = session.process(wave)
        assert not np.array_equal(session.process(wave), before)
        session.reset()
        assert np.array_equal(session.process(wave), before)
    assert not np.allclose(limited.process(wave), free.process(wave), atol=1e-3)


def test_keys_take_the_place_of_the_control_files(library, wave, caplog):
    key = "ORVEL_SMOOT_RM_MODIFY_v0_0_5"
    assert f"{key} TRUE" in (MODELS / "orvel-16k.ctl").read_text()
    library.load("orvel-16k", "shipped")
    library.load("orvel-16k", "same", keys={key: True})
    library.load("orvel-16k", "changed", keys={key: False})
    shipped, same, changed = (library.cleaner(16000, name).process(wave) for name in ("shipped", "same", "changed"))
    assert np.array_equal(shipped, same) and not np.array_equal(shipped, changed)
    with caplog.at_level(logging.WARNING, "orvel"):
        library.load("orvel-16k", "warned", keys={"ORVEL_SMOOT_COEF_v0_0_5": 7})
        library.cleaner(16000, "warned")
    assert "SMOOTH COEF" in caplog.text


@pytest.mark.parametrize("of_the_library", [True, False])
def test_audio_runs_without_the_gil_and_refuses_a_second_thread(of_the_library, library):
    library.load("orvel-16k")
    session, refused = library.cleaner(16000) if of_the_library else orvel.Cleaner(16000), []
    thread = threading.Thread(target=session.process, args=(np.zeros(16000 * 20, np.float32),))
    thread.start()
    time.sleep(0.01)
    while thread.is_alive():  # with the GIL held, this loop would not turn while audio runs
        try:
            session.reset()
        except RuntimeError as error:
            refused.append(str(error))
    assert len(refused) > 1000 and all("another thread" in text for text in refused)


@pytest.mark.parametrize("rate", [16000, 44100])
def test_blocks_of_any_length_give_one_stream(rate, wave):
    audio = np.stack([np.resize(wave, rate // 2), np.resize(wave[::-1], rate // 2)])
    whole = orvel.clean(audio, rate)
    cleaner, parts, at = orvel.Cleaner(rate, 2), [], 0
    for count in (1, 0, 7, 160, 3000, rate):
        parts.append(cleaner.process(audio[:, at : at + count]))
        assert parts[-1].shape == audio[:, at : at + count].shape
        at += count
    stream = np.concatenate([*parts, cleaner.flush()], axis=1)
    assert np.array_equal(stream[:, cleaner.latency :], whole)
    assert np.array_equal(whole[1], orvel.clean(audio[1], rate))
    # flush has reset the stream
    assert np.array_equal(cleaner.process(audio[:, :500]), stream[:, :500])


@pytest.mark.parametrize("dtype, scale", [("int16", 2**15), ("int32", 2**31), ("float32", 1), ("float64", 1)])
def test_type_and_layout_stay(dtype, scale, wave):
    steps = np.rint(wave * 2**15) / 2**15  # the same audio in every type
    audio = np.stack([steps, -steps], axis=1)
    out = orvel.clean((audio * scale).astype(dtype), 16000, axis=0)
    assert out.dtype == dtype and out.shape == audio.shape
    expected = orvel.clean(audio.T.astype(np.float32), 16000).T
    assert np.max(np.abs(out / scale - expected)) <= 0.51 * (2**-15 if dtype == "int16" else 2**-24)


def test_time_and_level_stay_where_nothing_is_removed(wave):
    out = orvel.clean(wave, 16000, attenuation_limit=0.0)
    assert np.max(np.abs(out - wave)) < 1e-3
    assert np.sqrt(np.mean(np.square(orvel.clean(wave, 16000)))) < 0.5 * np.sqrt(np.mean(np.square(wave)))


@pytest.mark.parametrize(
    "argument, call",
    [
        ("audio", lambda w: orvel.clean(w[:0], 16000)),
        ("audio", lambda w: orvel.clean(np.where(np.arange(len(w)) == 9, np.nan, w), 16000)),
        ("audio", lambda w: orvel.clean(w.reshape(2, 2, -1), 16000)),
        ("audio", lambda w: orvel.clean(w.astype(complex), 16000)),
        ("audio", lambda w: orvel.Cleaner(16000, 2).process(w)),
        ("audio", lambda w: orvel.VoiceDetector(16000).scores(w[:0])),
        ("axis", lambda w: orvel.clean(w, 16000, axis=1)),
        ("rate", lambda w: orvel.clean(w, 7999)),
        ("rate", lambda w: orvel.VoiceDetector(0)),
        ("channels", lambda w: orvel.Cleaner(16000, 0)),
        ("attenuation_limit", lambda w: orvel.clean(w, 16000, attenuation_limit=float("nan"))),
    ],
)
def test_arguments_that_do_not_fit_are_named(argument, call, wave):
    with pytest.raises(ValueError, match=f"^{argument}: "):
        call(wave)


def test_a_refused_block_leaves_the_stream_as_it_was(wave):
    plain, disturbed = orvel.Cleaner(16000), orvel.Cleaner(16000)
    for part in (wave[:300], wave[300:]):
        with pytest.raises(ValueError):
            disturbed.process(np.full(50, np.inf))
        assert np.array_equal(plain.process(part), disturbed.process(part))


def test_scores_lie_in_time_with_their_audio():
    rate = 16000
    time = np.arange(2 * rate) / rate
    voice = sum(np.sin(2.0 * np.pi * 140.0 * k * time + k) / k for k in range(1, 20))
    audio = np.where((time > 0.8) & (time < 1.4), 0.1 * voice, 0.0)
    audio += 1e-4 * np.random.default_rng(2).standard_normal(len(audio))
    detector = orvel.VoiceDetector(rate)
    scores = detector.scores(audio)
    assert len(scores) == 200 and np.all((scores >= 0.00001) & (scores <= 0.99999))
    assert np.array_equal(scores, detector.scores(np.stack([audio, audio])))
    voiced = np.flatnonzero(scores > 0.45)  # the detector's window of 30 ms reaches 20 ms beyond both ends
    assert 78 <= voiced[0] <= 80 and 139 <= voiced[-1] <= 141
    assert len(detector.scores(audio[:161])) == 2


def test_plain_noise_and_silence_score_near_zero():
    rate, random = 8000, np.random.default_rng(4)
    slope = np.maximum(np.fft.rfftfreq(10 * rate, 1.0 / rate), 1.0)
    for power in (0.0, 0.5, 1.0):  # white, pink, brown
        noise = np.fft.irfft(np.fft.rfft(random.standard_normal(10 * rate)) / slope**power)
        for level in (-50.0, -20.0):
            scores = orvel.VoiceDetector(rate).scores(10.0 ** (level / 20.0) * noise / np.std(noise))[100:]
            assert np.mean(scores) < 0.15 and np.mean(scores < 0.2) > 0.8
    assert np.all(orvel.VoiceDetector(rate).scores(np.zeros(rate)) < 0.01)


def test_the_default_model_fits_the_rate(wave):
    chosen = {rate: orvel.shipped.choose(None, rate, None, "cleaner")[1] for rate in (8000, 12000, 16000, 48000)}
    assert chosen == {8000: "orvel-8k", 12000: "orvel-8k", 16000: "orvel-16k", 48000: "orvel-32k"}
    assert {model.name for model in orvel.models()} == {path.stem for path in MODELS.glob("*.ctl")}


def test_example(tmp_path, wave):
    lines = (ROOT / "examples" / "clean.py").read_text().splitlines()
    assert len(lines) < 15
    source, target = tmp_path / "noisy.wav", tmp_path / "cleaned.wav"
    soundfile.write(source, np.stack([wave, wave], axis=1), 16000, subtype="PCM_16")
    command = [sys.executable, ROOT / "examples" / "clean.py", source, target]
    run = subprocess.run(command, env={"PYTHONPATH": str(ROOT / "python")}, capture_output=True, text=True, check=False)
    assert (run.returncode, run.stdout, run.stderr) == (0, "", "")
    cleaned, rate = soundfile.read(target)
    assert rate == 16000 and cleaned.shape == (8000, 2) and np.sqrt(np.mean(cleaned**2)) < 0.02


@pytest.mark.parametrize("name", ["shipped", "streams", "recordings", "voice"])
def test_docstrings_examples(name):
    failed, tried = doctest.testmod(importlib.import_module(f"orvel.{name}"))
    assert tried and not failed


@pytest.mark.parametrize("rate", [8000, 11025, 22050, 192000])
def test_any_rate_keeps_time_and_length(rate):
    time = np.arange(2 * rate) / rate
    tone = (0.2 * np.sin(2.0 * np.pi * 440.0 * time)).astype(np.float32)
    out = orvel.clean(tone, rate, attenuation_limit=0.0)
    middle = slice(rate // 4, -rate // 4)
    sample = 0.2 * 2.0 * np.pi * 440.0 / min(rate, 48000)  # what the tone changes in one
    assert out.shape == tone.shape and np.max(np.abs(out - tone)[middle]) < sample


@pytest.mark.parametrize("rate, channels", [(8000, 1), (16000, 1), (48000, 2), (11025, 1)])
def test_segments_are_those_of_the_command(rate, channels, tmp_path):
    time = np.arange(6 * rate) / rate
    voice = sum(np.sin(2.0 * np.pi * 140.0 * k * time + k) / k for k in range(1, 20))
    inside = np.isin((time * 4.0).astype(int), [2, 3, 4, 9, 10, 12, 22, 23])
    audio = 0.1 * voice * inside + 1e-3 * np.random.default_rng(2).standard_normal(len(time))
    soundfile.write(tmp_path / "in.wav", np.repeat(audio[:, None], channels, 1), rate, subtype="FLOAT")
    command = [BUILD / "tools" / "orvel", "vad", "--json", "--threshold", "0.4", tmp_path / "in.wav"]
    run = subprocess.run([*command, "--model-dir", MODELS], capture_output=True, check=True)
    expected = [(one["start"], one["end"]) for one in json.loads(run.stdout)["segments"]]
    audio, _ = soundfile.read(tmp_path / "in.wav", dtype="float32")
    found = orvel.VoiceDetector(rate).segments(audio, axis=0, threshold=0.4)
    assert len(expected) > 2 and len(found) == len(expected)
    np.testing.assert_allclose([(one.start, one.end) for one in found], expected, atol=0.011)


def test_a_batch_is_each_session_by_itself(library, wave):
    library.load("orvel-16k-tiny")
    audio = [np.roll(wave, shift)[: 160 * count] for shift, count in ((0, 50), (99, 3), (7, 20))]
    together = orvel.clean_together([library.cleaner(16000) for _ in audio], audio)
    for one, cleaned in zip(audio, together, strict=True):
        assert np.max(np.abs(library.cleaner(16000).process(one) - cleaned)) < 1e-4
    session = library.cleaner(16000)
    with pytest.raises(RuntimeError, match="another thread"):
        orvel.clean_together([session, session], audio[:2])
    assert len(session.process(audio[0])) == len(audio[0])
