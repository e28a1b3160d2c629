"""Audio through the node, block by block: nothing is lost, late by what the node says, and nothing is allocated."""

import os
import re
import shutil
import subprocess

import numpy as np
import pytest
import soundfile
from browser import ROOT, SITE, call
from conftest import Page, allow_microphone

import orvel

RATE = 48000
# How long the stream in real time is; .ci/nightly asks for ten minutes.
LIVE_SECONDS = int(os.environ.get("ORVEL_LIVE_SECONDS", "10"))


@pytest.fixture
def streams(browser, site, folder, recording):
    """A function that calls one of harness.js with the recording at RATE."""
    samples = soundfile.read(recording(RATE), dtype="float32")[0]
    samples.tofile(folder / "stream.f32")

    def run(name, **options):
        patience = 600 + 2 * options["seconds"]
        return samples, call(browser, site, name, patience, url="/scratch/stream.f32", rate=RATE, **options)

    yield run
    browser.get("about:blank")  # what it held is freed


def floats(path):
    return np.fromfile(path, dtype=np.float32)


def assert_equal_streams(got, want):
    """Within a step of 16 bits, and not silent."""
    assert got.shape == want.shape
    assert np.abs(got - want).max() <= 1.0 / 32768.0
    assert np.std(want) > 0.001


def test_ten_minutes_in_an_offline_context(streams, folder):
    seconds = 600
    samples, counts = streams("offline", seconds=seconds, model="orvel-16k", out="out.f32")
    assert (counts["blocks"], counts["gaps"]) == (seconds * RATE / 128, 0)
    cleaner = orvel.Cleaner(RATE, model="orvel-16k")
    assert counts["latency"] == cleaner.latency
    assert_equal_streams(floats(folder / "out.f32"), cleaner.process(np.resize(samples, seconds * RATE)))


def test_a_stream_in_real_time(streams, folder):
    options = {"model": "orvel-16k", "detector": "orvel-vad", "seconds": LIVE_SECONDS}
    _, counts = streams("live", out="live", **options)
    before, after = floats(folder / "live.before"), floats(folder / "live.after")
    print(counts["blocks"], "blocks,", counts["stats"])
    assert counts["gaps"] == 0 and len(after) == len(before) == counts["blocks"] * 128 >= LIVE_SECONDS * RATE
    first = np.flatnonzero(before)[0]
    before[:first] = 1e-9  # until its input begins the node goes on as at a stream's end
    assert_equal_streams(after, orvel.Cleaner(RATE, model="orvel-16k").process(before))
    # The second output holds each score from the block on in which its 10 ms and the next 20 have come in.
    before[:first] = 0.0
    library, frame = orvel.Library(), RATE // 100
    library.load("orvel-vad")
    known = library.detector(RATE, "orvel-vad").process(before[: len(before) // frame * frame])[2:]
    shown = floats(folder / "live.voice")[3 * frame - 1 :: frame]
    assert np.abs(shown - known).max() < 1e-4
    assert max(counts["scores"]) > 0.5 > min(counts["scores"])


def test_the_strength_changes_while_it_runs(streams, folder):
    _, counts = streams("live", out="limited", model="orvel-16k", seconds=4, limits=[0, 100])
    before, after = floats(folder / "limited.before"), floats(folder / "limited.after")
    lag, part = counts["latency"], RATE
    left, right = slice(part, 2 * part), slice(len(before) - part - lag, len(before) - lag)
    # Without attenuation the band of the model passes as it was; then what is no speech goes down.
    levels = [np.std(after[lag:][s]) / np.std(before[s]) for s in (left, right)]
    assert levels[0] > 0.9 > 0.8 > levels[1]


def test_the_documents_example(browser, site, folder):
    """The block of docs/start/browser.md, in a page with a button."""
    document = (ROOT / "docs/start/browser.md").read_text()
    (block,) = re.findall(r"^```js\n(.*?)^```$", document, re.DOTALL | re.MULTILINE)
    # The node that the example connects to the output is handed to the test.
    watch = """
      const { connect } = AudioNode.prototype;
      AudioNode.prototype.connect = function (to, ...rest) {
        if (to === this.context.destination) window.cleaner = this;
        return connect.call(this, to, ...rest);
      };"""
    body = f"<button id=start>Start</button><script type=module>{block}{watch}</script>"
    (folder / "embed.html").write_text(f"<!doctype html>{body}")
    allow_microphone(browser, site, "granted")
    browser.get(f"{site.address}embed/embed.html")
    page = Page(browser, site)
    page["start"].click()
    page.wait(lambda: page.run("return window.cleaner?.voiceScore > 0.5 && cleaner.context.currentTime > 1"))
    rate, latency, limit = page.run(
        "return [cleaner.context.sampleRate, cleaner.latency, cleaner.attenuationLimit.value]"
    )
    assert (latency, limit) == (orvel.Cleaner(rate).latency, 24)
    browser.get("about:blank")


def test_no_block_allocates(tmp_path):
    """V8 has nothing to collect after minutes of blocks: 23 bytes a block would fill its space for the young. What
    the test itself makes is collected."""
    shutil.copy(ROOT / "tests/web/blocks.mjs", tmp_path)
    for seconds, waste, collected in (("120", "0", False), ("20", "1", True)):
        command = ["node", "--trace-gc", "--max-semi-space-size=1", tmp_path / "blocks.mjs", SITE, seconds, waste]
        done = subprocess.run(command, check=True, capture_output=True, text=True, timeout=600)
        during = re.search(r"^begin$(.*)^end$", done.stdout, re.DOTALL | re.MULTILINE)[1]
        assert ("Scavenge" in during) == collected, during
