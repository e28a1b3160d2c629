"""The page in Debian's Chromium: files, microphone, errors, and what a reader can see and reach."""

import json
import wave

import numpy as np
import pytest
import soundfile
from conftest import allow_microphone, steps
from selenium.webdriver.common.keys import Keys

import orvel

# (rate, channels, suffix, model, strength in dB or None)
FILES = [
    (48000, 1, "wav", "orvel-16k", None),
    (16000, 1, "wav", "orvel-16k", None),
    (44100, 2, "flac", "", 12),
]


@pytest.mark.parametrize(("rate", "channels", "suffix", "model", "limit"), FILES)
def test_a_file_is_cleaned_as_by_the_library(page, folder, recording, rate, channels, suffix, model, limit):
    path = recording(rate, channels, suffix)
    page.set("model", model)
    if limit is not None:
        page.set("strength", limit)
    page.clean(path)
    got, got_rate = page.download(folder)
    noisy = soundfile.read(path, dtype="float32", always_2d=True)[0].T
    if suffix != "wav":  # the browser's own decoder: full scale of positive samples is 32767
        noisy = np.where(noisy > 0, noisy * (32768 / 32767), noisy).astype(np.float32)
    want = steps(orvel.clean(noisy, rate, model=model or "orvel-32k", attenuation_limit=limit)).T
    assert (got.shape, got_rate) == (want.shape, rate)
    assert np.abs(got - want).max() <= 1
    assert np.abs(want - steps(noisy.T)).max() > 1000  # there was something to clean


def test_settings_are_applied_to_the_open_file(page, folder, recording):
    page.clean(recording(16000))
    full = page.download(folder)[0]
    page.run("document.body.dataset.ready = ''")
    page.set("strength", 0)
    page.wait(lambda: page.state() == "yes")
    assert page["strength-text"].text == "0 dB at most"
    none = page.download(folder)[0]
    noisy = soundfile.read(recording(16000), dtype="int16", always_2d=True)[0].astype(int)
    assert np.std(none - noisy) < 0.05 * np.std(noisy) < 0.5 * np.std(full - noisy)


def test_the_switch_keeps_the_place(page, recording):
    page.set("model", "orvel-16k-tiny")
    page.clean(recording(16000, seconds=40))

    def clocks():
        """Of the day, and of the player."""
        return np.array(page.run("return [performance.now() / 1000, Number(document.getElementById('seek').value)]"))

    def pressed():
        return [button.text for button in page.driver.find_elements("css selector", '[aria-pressed="true"]')]

    page.set("seek", 1)
    page["play"].click()
    page.wait(lambda: clocks()[1] > 1.2)
    start = clocks()
    page.driver.switch_to.active_element.send_keys("2")
    assert pressed() == ["After"] and page["play"].get_attribute("aria-label") == "Pause"
    passed = clocks() - start
    assert 0 < passed[1] < passed[0] + 0.5
    page["play"].click()
    stopped = clocks()[1]
    page.run("document.body.dataset.ready = ''")
    page.set("strength", 20)  # another sound takes the place of the one that is heard
    page.wait(lambda: page.state() == "yes")
    assert clocks()[1] == stopped
    page.run("document.activeElement.blur()")
    page.driver.switch_to.active_element.send_keys(Keys.ARROW_LEFT, "1")
    assert clocks()[1] == pytest.approx(stopped - 1.0, abs=0.02) and pressed() == ["Before"]


def test_the_microphone_is_cleaned_and_kept(page, folder):
    page["microphone"].click()
    page.wait(lambda: page.state() == "live" or page["error"].text)
    assert page["error"].text == ""
    page.wait(lambda: page["clock"].text >= "0:05")
    pixels = (
        "const c = document.getElementById('after');"
        "return [...c.getContext('2d').getImageData(0, 0, c.width, c.height).data.filter((_, i) => i % 64 === 0)]"
    )
    assert len(set(page.run(pixels))) > 20  # a picture, not a plain ground
    page["microphone"].click()
    page.wait(lambda: page.state() == "yes")
    cleaned, rate = page.download(folder)
    assert rate == 48000 and len(cleaned) / rate > 4.5
    assert page["download"].get_attribute("download") == "microphone-cleaned.wav"
    assert 100 < np.abs(cleaned).max() < 32768


def wav_of(path, seconds, rate=8000):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(1)
        file.setframerate(rate)
        file.writeframes(b"\x80" * (seconds * rate))


def make_bad_files(folder):
    (folder / "empty.wav").write_bytes(b"")
    (folder / "notes.wav").write_text("no sound\n" * 1000)
    wav_of(folder / "silent.wav", 0)
    wav_of(folder / "long.wav", 20 * 60 + 61)


BAD_FILES = {
    "empty.wav": "empty.wav is empty.",
    "notes.wav": "notes.wav is not a sound file that this browser can read.",
    "silent.wav": "silent.wav is not a sound file that this browser can read.",
    "long.wav": "long.wav is too long: it lasts 21:01, this page takes up to 20:00. The orvel command cleans files of"
    " any length.",
}


def test_a_bad_file_is_named_and_leaves_the_last_one(page, folder, recording):
    make_bad_files(folder)
    page.clean(recording(16000))
    before = page.download(folder)[0]
    for name, message in BAD_FILES.items():
        page.set("strength", 39)  # cleans anew, until the bad file comes in between
        page.set("strength", 40)
        page.choose(folder / name)
        page.wait(lambda: page["error"].text != "")
        assert page["error"].text == message
        page.wait(lambda: page.state() == "yes")
        assert np.array_equal(page.download(folder)[0], before)
    page.clean(recording(48000))  # the message goes with the next file


MODEL = "/models/orvel-16k.bin"
BAD_SITES = {
    "missing": ({MODEL: None}, "orvel-16k.bin cannot be fetched: status 404"),
    "cut": ({MODEL: b"\x00" * 1000}, "SHA-256"),
    "module": ({"/orvel.wasm": b"<html>"}, "orvel.wasm is damaged or not for this browser"),
}


@pytest.mark.parametrize("name", BAD_SITES)
def test_a_bad_part_of_the_site_is_named(page, recording, name):
    page.site.faults, message = dict(BAD_SITES[name][0]), BAD_SITES[name][1]
    page.driver.execute_cdp_cmd("Network.clearBrowserCache", {})
    page.choose(recording(16000))
    page.wait(lambda: page["error"].text != "")
    assert message in page["error"].text
    assert page.state() == "no" and page["download"].get_attribute("href") is None
    page.driver.get_log("browser")  # the browser's own line on status 404
    page.site.faults.clear()
    page.clean(recording(16000))  # a second try needs no new page


def test_a_refused_microphone_is_explained(page):
    allow_microphone(page.driver, page.site, "denied")
    page["microphone"].click()
    page.wait(lambda: page["error"].text != "")
    assert page["error"].text.startswith("The microphone may not be used: allow it for this page")
    assert page["microphone"].text == "Use the microphone"


def test_nothing_can_be_sent_elsewhere(page):
    elsewhere = page.site.address.replace("localhost", "127.0.0.1")
    script = """
      const [url, done] = arguments;
      fetch(url, { mode: "no-cors" }).then(() => done("sent"), () => done("refused"));
    """
    assert page.driver.execute_async_script(script, elsewhere + "index.html") == "refused"
    violation = page.driver.get_log("browser")
    assert violation and all("Content Security Policy" in entry["message"] for entry in violation)


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_it_fits_a_phone_and_can_be_read(page, recording, scheme):
    command = page.driver.execute_cdp_cmd
    command("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
    command("Emulation.setDeviceMetricsOverride", {"width": 390, "height": 844, "deviceScaleFactor": 2, "mobile": True})
    page.clean(recording(16000))
    assert page.run("return document.scrollingElement.scrollWidth") == 390
    small = page.run(
        "return [...document.querySelectorAll('button, select, .button')].filter((e) => e.offsetHeight &&"
        " e.offsetHeight < 44).map((e) => e.id)"
    )
    assert small == []
    colours = page.run(
        "const of = (e) => getComputedStyle(document.querySelector(e));"
        "return [of('h1').color, of('#status').color, of('#play').color, of('body').backgroundColor,"
        " of('#play').backgroundColor]"
    )
    ink, faint, on_accent, paper, accent = map(luminance, colours)
    assert (paper > 0.5) == (scheme == "light")
    for text, ground in ((ink, paper), (faint, paper), (on_accent, accent)):
        assert (max(text, ground) + 0.05) / (min(text, ground) + 0.05) >= 4.5
    # Everything that is used or seen has a name for a screen reader.
    nodes = page.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
    used = {"button", "slider", "combobox", "link", "image", "img", "checkbox", "progressbar"}
    found = [(n["role"]["value"], n.get("name", {}).get("value")) for n in nodes if not n["ignored"]]
    named = [(role, name) for role, name in found if role in used]
    assert len(named) >= 10 and all(name for _, name in named), json.dumps(named)


def luminance(colour):
    parts = np.array([float(part) for part in colour[colour.index("(") + 1 : -1].split(",")[:3]]) / 255
    linear = np.where(parts <= 0.04045, parts / 12.92, ((parts + 0.055) / 1.055) ** 2.4)
    return float(linear @ [0.2126, 0.7152, 0.0722])
