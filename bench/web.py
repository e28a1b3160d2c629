#!.venv/bin/python
"""Measures the package for browsers in Debian's Chromium: what a page fetches, and the share of a core that ten
minutes of audio at 48 kHz take in an OfflineAudioContext, in blocks of 128 samples.

The share is the processor time of all of Chromium's processes by the length of the audio. With --write the table
goes into docs/start/browser.md.
"""

import argparse
import gzip
import os
import re
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT), str(ROOT / "tests/web"), str(ROOT / "bench")]

import soxr  # noqa: E402
from browser import SITE, Site, call, chromium  # noqa: E402
from report import put, table  # noqa: E402

from samples.noisy_speech import RATE as SPEECH_RATE  # noqa: E402
from samples.noisy_speech import make  # noqa: E402

DOCUMENT = ROOT / "docs/start/browser.md"
RATE = 48000
PROGRAM = ["index.js", "stream.js", "orvel-worklet.js", "orvel.mjs", "orvel.wasm"]
RUNS = [
    ("no cleaner", None, None),
    ("orvel-16k-tiny", "orvel-16k-tiny", None),
    ("orvel-16k", "orvel-16k", None),
    ("orvel-32k", "orvel-32k", None),
    ("orvel-32k and orvel-vad", "orvel-32k", "orvel-vad"),
]


def zipped(names):
    """Bytes of the files, each with gzip."""
    return sum(len(gzip.compress((SITE / name).read_bytes(), 9)) for name in names)


def processor_seconds(parent):
    """Of a process and all below it."""
    times, parents = {}, {}
    for stat in Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = stat.read_text().rpartition(")")[2].split()
        except OSError:
            continue  # has ended
        pid = int(stat.parent.name)
        parents[pid], times[pid] = int(fields[1]), int(fields[11]) + int(fields[12])
    family = {parent}
    while more := {pid for pid, above in parents.items() if above in family} - family:
        family |= more
    return sum(times.get(pid, 0) for pid in family) / os.sysconf("SC_CLK_TCK")


def measure(driver, site, run, seconds):
    """Share of a core of one run."""
    _, model, detector = run
    options = {"url": "/scratch/in.f32", "rate": RATE, "seconds": seconds, "model": model, "detector": detector}
    before = processor_seconds(driver.service.process.pid)
    counts = call(driver, site, "offline", 3600, **options)
    if counts["blocks"] != counts["expected"] or counts["gaps"]:
        sys.exit(f"bench/web.py: {run[0]}: {counts}")
    return (processor_seconds(driver.service.process.pid) - before) / seconds


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=int, default=600, metavar="N", help="length of the audio (600)")
    parser.add_argument("--write", action="store_true", help=f"put the table into {DOCUMENT.relative_to(ROOT)}")
    arguments = parser.parse_args()
    rows = []
    with tempfile.TemporaryDirectory() as scratch:
        soxr.resample(make(snr_db=5)[1], SPEECH_RATE, RATE).astype("float32").tofile(f"{scratch}/in.f32")
        site = Site(Path(scratch))
        with chromium(Path(scratch)) as driver:
            version = driver.capabilities["browserVersion"]
            for run in RUNS:
                share = measure(driver, site, run, arguments.seconds)
                models = [f"models/{name}.{kind}" for name in run[1:] if name for kind in ("ctl", "bin")]
                fetched = f"{zipped(PROGRAM + models) / 1e6:.2f}" if models else "–"
                rows.append([run[0], fetched, f"{100 * share:.1f}"])
                print(*rows[-1], sep="\t", flush=True)
        site.close()
    processor = re.search(r"model name\s*:\s*(.*)", Path("/proc/cpuinfo").read_text())
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    text = (
        f"{table(['models', 'fetched, MB with gzip', 'of one core, %'], rows)}\n\n"
        f"The program alone has {zipped(PROGRAM) / 1e6:.2f} MB with gzip. {arguments.seconds // 60} minutes at 48 kHz,"
        f" Chromium {version},\n{processor[1] if processor else 'an unknown processor'}, load average {load} on"
        f" {os.cpu_count()} cores."
    )
    print(text)
    if arguments.write:
        put(DOCUMENT, {"browser": text})


if __name__ == "__main__":
    main()
