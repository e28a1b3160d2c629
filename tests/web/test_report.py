"""The page of `orvel report` in Debian's Chromium: it draws, plays its sounds in step and loads nothing."""

import json
import os
import subprocess

import pytest
from browser import ROOT, chromium
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

from samples.noisy_speech import RATE, make, write_wav

BUILD = os.environ.get("ORVEL_BUILD", ROOT / "build/free")
# Notes when sources start and the gains through which they are heard.
SPY = """
window.starts = []; window.gains = [];
const start = AudioBufferSourceNode.prototype.start, Gain = GainNode;
AudioBufferSourceNode.prototype.start = function (...at) { starts.push(at.join()); return start.apply(this, at); };
window.GainNode = class extends Gain { constructor(...given) { super(...given); gains.push(this); } };
"""
HEARD = "return gains.slice(-3).map((each) => each.gain.value)"


@pytest.mark.parametrize(("width", "scheme", "paper"), [(1280, "light", 251), (390, "dark", 18)])
def test_report(tmp_path, width, scheme, paper):
    write_wav(tmp_path / "noisy.wav", make(snr_db=5)[1][: 20 * RATE])
    subprocess.run([f"{BUILD}/tools/orvel", "report", "noisy.wav", "-o", "page.html"], cwd=tmp_path, check=True)
    with chromium(tmp_path) as driver:
        wait = WebDriverWait(driver, 20)
        size = {"width": width, "height": 844, "deviceScaleFactor": 1, "mobile": width < 500}
        driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
        media = [{"name": "prefers-color-scheme", "value": scheme}]
        driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": media})
        driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": SPY})
        driver.get(f"file://{tmp_path}/page.html")
        wait.until(lambda _: driver.execute_script("return document.body.dataset.ready") == "yes")
        assert driver.execute_script("return document.documentElement.scrollWidth") <= width
        colour = driver.execute_script("return getComputedStyle(document.body).backgroundColor")
        assert colour.startswith(f"rgb({paper},")

        pictures = set()
        for view in ("removed", "after", "before"):
            driver.find_element(By.CSS_SELECTOR, f"[data-view={view}]").click()
            pictures.add(driver.execute_script("return document.getElementById('spectrum').toDataURL()"))
        assert len(pictures) == 3

        seconds = lambda: int(driver.find_element(By.ID, "clock").text[2:4])  # noqa: E731
        driver.find_element(By.ID, "play").click()
        wait.until(lambda _: seconds() >= 1)
        starts = driver.execute_script("return starts")
        assert len(starts) == 3 and len(set(starts)) == 1
        assert driver.execute_script(HEARD) == [1, 0, 0]
        driver.find_element(By.CSS_SELECTOR, "[data-view=after]").click()
        wait.until(lambda _: driver.execute_script(HEARD) == pytest.approx([0, 1, 0], abs=0.01))
        before = seconds()
        wait.until(lambda _: seconds() > before)
        driver.execute_script("document.getElementById('wave').click()")  # at the left edge
        again = driver.execute_script("return starts")[3:]
        assert len(again) == 3 and {each.split(",")[1] for each in again} == {"0"}

        asked = [json.loads(entry["message"])["message"] for entry in driver.get_log("performance")]
        asked = [e["params"]["request"]["url"] for e in asked if e["method"] == "Network.requestWillBeSent"]
        assert asked == [f"file://{tmp_path}/page.html"] and not driver.get_log("browser")
