"""Draws the pictures of docs/concepts.md from runs on the demo's recording.

python -m samples.concepts --build build/release
"""

import argparse
import os
import subprocess
import tempfile
from pathlib import Path

import numpy as np
import soxr

from samples import ROOT, noisy_speech

PICTURES = ROOT / "docs/img"


def save(figure, name):
    """A PNG of few colours."""
    from io import BytesIO

    from PIL import Image

    buffer = BytesIO()
    figure.savefig(buffer, dpi=80)
    picture = Image.open(buffer).convert("RGB").quantize(64, dither=Image.Dither.NONE)
    picture.save(PICTURES / name, optimize=True)
    print(f"  docs/img/{name}")


def cleaned(command, samples, rate, *options):
    """What `orvel clean` makes of the samples."""
    with tempfile.TemporaryDirectory() as folder:
        there, here = Path(folder, "in.wav"), Path(folder, "out.wav")
        noisy_speech.write_wav(there, samples, rate)
        run = [command, "clean", "--quiet", "--model-dir", ROOT / "models", *options, there, here]
        subprocess.run(run, check=True)
        return noisy_speech.read_wav(here)[0]


def latency(plt):
    """A word through a session that is called as a host calls it: nothing is taken out."""
    import orvel

    speech, _ = noisy_speech.make(8.0)
    rate = noisy_speech.RATE
    loud = int(np.argmax(np.abs(speech)))
    part = speech[loud - rate // 2 : loud + rate // 2]
    with orvel.Library(ROOT / "models") as library:
        library.load("orvel-16k.ctl")
        with library.cleaner(rate) as session:
            frames = part[: len(part) // session.frame * session.frame].astype(np.float32)
            output = session.process(frames)
            late = session.latency
    time = np.arange(len(frames)) / rate * 1000
    figure, axis = plt.subplots(figsize=(9, 3), layout="constrained")
    axis.plot(time, frames, label="input", lw=0.8)
    axis.plot(time, output, label=f"output, {late / rate * 1000:.0f} ms later", lw=0.8)
    middle = 500
    axis.set_xlim(middle - 40, middle + 80)
    axis.set_xlabel("Time (ms)")
    axis.legend(loc="upper right")
    save(figure, "latency.png")


def limit(plt, command):
    """The level over time, in frames of 50 ms."""
    _, noisy = noisy_speech.make(8.0)
    rate, frame = noisy_speech.RATE, noisy_speech.RATE // 20
    figure, axis = plt.subplots(figsize=(9, 3.2), layout="constrained")
    curves = [("noisy", noisy)] + [
        (name, cleaned(command, noisy, rate, *options))
        for name, options in (
            ("limit of 6 dB", ("--attenuation-limit", "6")),
            ("limit of 12 dB", ("--attenuation-limit", "12")),
            ("no limit", ()),
        )
    ]
    for name, sound in curves:
        level = [10 * np.log10(np.mean(f**2) + 1e-9) for f in sound[: 8 * rate].reshape(-1, frame)]
        axis.plot(np.arange(len(level)) * 0.05, level, label=name, lw=1)
    axis.set_xlabel("Time (s)")
    axis.set_ylabel("Level (dBFS)")
    axis.legend(loc="lower right", ncols=4, fontsize=8)
    save(figure, "limit.png")


def models(plt, command):
    """Mean spectra of one sound at 48 kHz, cleaned by models of three rates."""
    _, noisy = noisy_speech.make(8.0)
    wide = soxr.resample(noisy, noisy_speech.RATE, 48000)[: 8 * 48000]
    # The recording ends at 8 kHz: noise above it shows what passes.
    wide = wide + np.random.default_rng(3).normal(0.0, 0.003, len(wide))
    figure, axis = plt.subplots(figsize=(9, 3.2), layout="constrained")
    sounds = [("input", wide)] + [
        (name, cleaned(command, wide, 48000, "--model", name, "--attenuation-limit", "12"))
        for name in ("orvel-32k", "orvel-16k", "orvel-8k")
    ]
    for name, sound in sounds:
        frames = np.lib.stride_tricks.sliding_window_view(sound, 2048)[::1024] * np.hanning(2048)
        power = np.mean(np.abs(np.fft.rfft(frames)) ** 2, axis=0)
        axis.plot(np.fft.rfftfreq(2048, 1 / 48000) / 1000, 10 * np.log10(power + 1e-9), label=name, lw=1)
    axis.set_xlabel("Frequency (kHz), limit of 12 dB")
    axis.set_ylabel("Power (dB)")
    axis.set_ylim(-60, None)
    axis.legend(loc="upper right", ncols=4, fontsize=8)
    save(figure, "models.png")


def main():
    """See the module's text."""
    parser = argparse.ArgumentParser(prog="python -m samples.concepts", description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    build = parser.parse_args().build.resolve()
    os.environ.setdefault("ORVEL_LIBRARY", str(build / "liborvel.so.1"))
    os.sys.path.insert(0, str(ROOT / "python"))
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    latency(plt)
    limit(plt, build / "tools" / "orvel")
    models(plt, build / "tools" / "orvel")


if __name__ == "__main__":
    main()
