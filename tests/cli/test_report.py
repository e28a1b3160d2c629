"""`orvel report`: its figures against measures of our own, its sounds, and what it refuses."""

import base64
import io
import json
import re

import numpy as np
import pytest
import soundfile
from conftest import all_pass, closed, power_db, speech
from scipy.signal import lfilter, resample_poly


def parts(page: str) -> tuple[dict, dict, np.ndarray]:
    """The page's figures, its sounds with their rates, and its scores."""
    inside = dict(re.findall(r'<script type="[a-z/]+" id="([a-z-]+)">(.*?)</script>', page, re.DOTALL))
    unpacked = {name: base64.b64decode(text, validate=True) for name, text in inside.items() if name != "data"}
    sounds = {n.removeprefix("sound-"): soundfile.read(io.BytesIO(b)) for n, b in unpacked.items() if "sound-" in n}
    return json.loads(inside["data"]), sounds, np.frombuffer(unpacked["scores"], np.uint8)


def loudness(sound: np.ndarray) -> float:
    """Integrated loudness of 48 kHz mono by ITU-R BS.1770: its two filters, blocks of 400 ms, two gates."""
    shelf = [1.53512485958697, -2.69169618940638, 1.19839281085285], [1.0, -1.69065929318241, 0.73248077421585]
    pass_ = [1.0, -2.0, 1.0], [1.0, -1.99004745483398, 0.99007225036621]
    weighted = lfilter(*pass_, lfilter(*shelf, sound))
    power = np.array([np.mean(weighted[i : i + 19200] ** 2) for i in range(0, len(sound) - 19199, 4800)])
    level = lambda p: -0.691 + 10 * np.log10(p)  # noqa: E731
    power = power[level(power) > -70.0]
    return level(power[level(power) > level(power.mean()) - 10.0].mean())


def test_figures_agree_with_measures_of_our_own(folder):
    before = speech(48000, 6.0)[:, 0]
    after = np.round(before * 0.5 * 32768) / 32768
    folder.save("noisy.wav", before, 48000)
    folder.save("clean.wav", after, 48000)
    folder.run("orvel report noisy.wav clean.wav -o page.html")
    figures, sounds, scores = parts((folder / "page.html").read_text())
    spoken = json.loads(folder.run("orvel vad --json --padding 150 noisy.wav").out)["segments"]
    time = (np.arange(len(before)) // 480) / 100
    inside = sum((time >= s["start"]) & (time + 0.01 <= s["end"]) for s in spoken).astype(bool)
    touched = sum((time + 0.01 > s["start"]) & (time < s["end"]) for s in spoken).astype(bool)
    for name, sound in (("before", before), ("after", after)):
        said, rate = sounds[name]
        assert rate == 48000 and np.array_equal(said.astype(np.float32), sound.astype(np.float32)), name
        assert figures[name]["integrated_lufs"] == pytest.approx(loudness(sound), abs=0.1)
        peak = 20 * np.log10(np.abs(resample_poly(sound, 4, 1)).max())
        assert figures[name]["true_peak_dbtp"] == pytest.approx(peak, abs=0.3)
        for key, where in (("speech_dbfs", inside), ("between_words_dbfs", ~touched)):
            known = power_db(sound[where]) if where.any() else None
            assert figures[name][key] == (known if known is None else pytest.approx(known, abs=0.02)), key
    assert np.allclose(sounds["removed"][0], before - after, atol=1 / 32768)
    assert len(scores) == 600 and figures["duration"] == 6.0


def test_cleans_as_the_clean_command_does(folder):
    folder.add_model("orvel-16k", closed())
    # rate of the recording, its channels, rate of the page
    for rate, channels, shown in ((16000, 1, 16000), (44100, 2, 44100), (96000, 1, 48000), (4000, 3, 8000)):
        folder.save("in.wav", speech(rate, 1.5, channels), rate)
        page = folder.run("orvel clean -f in.wav out.wav && orvel report in.wav -o -").text
        figures, sounds, _ = parts(page)
        after, at = sounds["after"]
        assert (at, len(after)) == (shown, 1.5 * shown) and figures["channels"] == channels
        assert all(len(sound) == len(after) for sound, _ in sounds.values())
        if shown == rate:
            assert np.allclose(after, folder.load("out.wav").mean(axis=1), atol=1.1 / 32768)


def test_shows_a_part_and_stands_alone(folder):
    sound = speech(16000, 6.0)
    folder.save("<script><b>&.wav", sound, 16000)
    page = folder.run("orvel report --start 2 --duration 1.5 '<script><b>&.wav' -o -").text
    figures, sounds, scores = parts(page)
    assert figures["noisy"] == "<script><b>&.wav" and "<h1>&lt;script&gt;&lt;b&gt;&amp;.wav</h1>" in page
    assert np.array_equal(sounds["before"][0], sound[32000:56000, 0]) and len(scores) == 150
    assert "{{" not in page and not re.search(r"(src|href)=|https?:|@import|url\(", page)
    folder.save("quiet.wav", np.zeros(8000), 16000)
    figures, _, _ = parts(folder.run("orvel report quiet.wav -o -").text)
    assert figures["before"]["integrated_lufs"] is None and figures["before"]["speech_dbfs"] is None


def test_refuses_what_makes_no_page(folder):
    folder.add_model("orvel-16k", all_pass(16000))
    for name, rate, seconds in (
        ("in.wav", 16000, 1),
        ("short.wav", 16000, 0.5),
        ("rate.wav", 8000, 1),
        ("long.wav", 8000, 301),
    ):
        folder.save(name, speech(rate, seconds), rate)
    (folder / "there.html").write_text("mine")
    folder.save("empty.wav", np.zeros((0, 1)), 16000)
    (folder / "text.wav").write_text("no sound")
    folder.refuses([
        ("orvel report in.wav", 2, "--output"),
        ("orvel report in.wav -o there.html", 4, "there.html: exists already"),
        ("orvel report in.wav -o in.wav", 2, "in.wav: is input and output at once"),
        ("orvel report in.wav short.wav -o p.html", 3, "short.wav: has 0.500 s, in.wav 1.000 s"),
        ("orvel report in.wav rate.wav -o p.html", 3, "rate.wav: has 8000 Hz, in.wav 16000 Hz"),
        ("orvel report long.wav -o p.html", 2, "long.wav: longer than 300 s"),
        ("orvel report --start 2 in.wav -o p.html", 3, "in.wav: ends before --start"),
        ("orvel report --duration 301 in.wav -o p.html", 2, "--duration"),
        ("orvel report --model orvel-16k in.wav in.wav -o p.html", 2, "nothing is cleaned"),
        ("orvel report empty.wav -o p.html", 3, "empty.wav: holds no samples"),
        ("orvel report text.wav -o p.html", 3, "text.wav: no audio"),
        ("orvel report in.wav -o missing/p.html", 4, "missing"),
    ])  # fmt: skip
    assert not (folder / "p.html").exists() and (folder / "there.html").read_text() == "mine"
