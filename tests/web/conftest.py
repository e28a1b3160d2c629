"""A recording, the page on a server of this machine, and the browser; what every test has to leave in order."""

import json
import os
from pathlib import Path

import numpy as np
import pytest
import soundfile
import soxr
from browser import ROOT, Site, chromium
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

from samples.noisy_speech import RATE, make

os.environ.setdefault("ORVEL_LIBRARY", str(ROOT / "build/free/liborvel.so.1"))


def steps(samples):
    """In steps of 16 bits."""
    return np.clip(np.round(np.asarray(samples, np.float64) * 32768.0), -32768, 32767)


@pytest.fixture(scope="session")
def folder(tmp_path_factory) -> Path:
    return tmp_path_factory.mktemp("web")


@pytest.fixture(scope="session")
def recording(folder):
    """A function: the path of noisy speech of 16 bits with so many channels at a rate, in a format."""
    noisy = make(snr_db=5)[1]

    def write(rate: int, channels: int = 1, suffix: str = "wav", seconds: int = 12) -> Path:
        path = folder / f"in-{rate}-{channels}-{seconds}.{suffix}"
        one = np.resize(noisy, seconds * RATE)
        one = one if rate == RATE else soxr.resample(one, RATE, rate)
        soundfile.write(path, np.stack([one * (1.0 - 0.3 * c) for c in range(channels)], axis=1), rate)
        return path

    return write


@pytest.fixture(scope="session")
def site(folder):
    found = Site(folder)
    yield found
    found.close()


@pytest.fixture(scope="session")
def browser(folder, recording):
    with chromium(folder, microphone=recording(48000)) as driver:
        yield driver


def allow_microphone(driver, site, setting):
    """`setting`: "granted" or "denied"."""
    wanted = {"permission": {"name": "microphone"}, "setting": setting, "origin": site.address.rstrip("/")}
    driver.execute_cdp_cmd("Browser.setPermission", wanted)


@pytest.fixture
def page(browser, site):
    """The page, newly loaded. Afterwards its console must be empty, but for what the test took out of it, and
    everything that it fetched its own."""
    site.faults.clear()
    browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
    allow_microphone(browser, site, "granted")
    browser.get("about:blank")
    for kind in ("browser", "performance"):
        browser.get_log(kind)
    browser.get(site.address)
    yield Page(browser, site)
    assert [entry["message"] for entry in browser.get_log("browser")] == []
    events = [json.loads(entry["message"])["message"] for entry in browser.get_log("performance")]
    asked = [e["params"]["request"]["url"] for e in events if e["method"] == "Network.requestWillBeSent"]
    assert asked and all(url.startswith((site.address, f"blob:{site.address}")) for url in asked), asked


class Page:
    """The page as its reader uses it."""

    def __init__(self, driver, site):
        self.driver, self.site = driver, site

    def __getitem__(self, name):
        return self.driver.find_element(By.ID, name)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def wait(self, condition, seconds=240):
        return WebDriverWait(self.driver, seconds, 0.05).until(lambda _: condition())

    def state(self):
        return self.run("return document.body.dataset.ready")

    def choose(self, path):
        self["file"].send_keys(str(path))

    def clean(self, path):
        """Waits until a file is cleaned."""
        self.run("document.body.dataset.ready = ''")
        self.choose(path)
        self.wait(lambda: self.state() == "yes" or self["error"].text)
        assert self["error"].text == ""

    def set(self, name, value):
        """Moves a slider or chooses from a list, as its events say."""
        self.run(
            "const e = document.getElementById(arguments[0]); e.value = arguments[1];"
            "for (const name of ['input', 'change']) e.dispatchEvent(new Event(name));",
            name,
            value,
        )

    def download(self, folder):
        """What the link gives, (samples, channels) in steps of 16 bits, and the rate."""
        path = folder / self["download"].get_attribute("download")
        path.unlink(missing_ok=True)
        self["download"].click()
        self.wait(path.exists)
        samples, rate = soundfile.read(path, dtype="int16", always_2d=True)
        return samples.astype(int), rate
