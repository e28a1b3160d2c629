"""Cleans the demo recording with the built command, measures what happened and draws it.

python -m samples.demo --build build/release --out build/demo
"""

import argparse
import shutil
import subprocess
from pathlib import Path

import numpy as np

from samples import ROOT, noisy_speech
from training.measures import si_sdr, stoi

SNR_DB = 8.0
LOWEST_DB, HIGHEST_DB = -120, -40


def draw(path, panels):
    """Spectrograms of (title, samples) pairs, one below the other on one scale; a PNG of few colours."""
    from io import BytesIO

    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from PIL import Image

    figure, axes = plt.subplots(
        len(panels), 1, figsize=(11, 2.6 * len(panels)), sharex=True, sharey=True, layout="constrained"
    )
    for axis, (title, samples) in zip(axes, panels):
        # Faint noise, far below anything audible, keeps digital silence drawable.
        floor = np.random.default_rng(0).normal(0.0, 1e-7, len(samples))
        image = axis.specgram(
            samples + floor,
            NFFT=512,
            Fs=noisy_speech.RATE,
            noverlap=384,
            vmin=LOWEST_DB,
            vmax=HIGHEST_DB,
            cmap="magma",
        )[3]
        axis.set_title(title, loc="left")
        axis.set_ylabel("Frequency (kHz)")
        axis.yaxis.set_major_formatter(lambda hertz, _: f"{hertz / 1000:g}")
    axes[-1].set_xlabel("Time (s)")
    figure.colorbar(image, ax=axes, label="Power density (dB per Hz)", pad=0.01)
    buffer = BytesIO()
    figure.savefig(buffer, dpi=80)
    Image.open(buffer).convert("RGB").quantize(128, dither=Image.Dither.NONE).save(path, optimize=True)


def main():
    """Runs the demo; see the module's text."""
    parser = argparse.ArgumentParser(prog="python -m samples.demo", description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--out", type=Path, default=ROOT / "build" / "demo", help="where sounds and picture go")
    parser.add_argument("--picture", type=Path, help="copy the picture here, as docs/img/demo.png")
    options = parser.parse_args()
    options.out.mkdir(parents=True, exist_ok=True)
    original_file, noisy_file, cleaned_file = (options.out / f"{name}.wav" for name in ("original", "noisy", "cleaned"))

    speech, noisy = noisy_speech.make(SNR_DB)
    noisy_speech.write_wav(original_file, speech)
    noisy_speech.write_wav(noisy_file, noisy)
    seconds = len(speech) / noisy_speech.RATE
    print(f"Mixed {seconds:.1f} s of read speech with ventilation noise at {SNR_DB:g} dB SNR.")

    command = [options.build / "tools" / "orvel", "clean", "--verbose", "--force", "--model", "orvel-16k"]
    command += ["--model-dir", ROOT / "models", noisy_file, cleaned_file]
    run = subprocess.run(command, text=True, stderr=subprocess.PIPE, check=False)
    if run.returncode:
        raise SystemExit(f"demo: {run.stderr.strip()}")
    summary = run.stderr.splitlines()[-1].removeprefix("cleaned ")
    print(f"Cleaned it with the trained model orvel-16k: {summary}.")

    noisy, rate = noisy_speech.read_wav(noisy_file)
    cleaned, _ = noisy_speech.read_wav(cleaned_file)
    if len(cleaned) != len(noisy):
        raise SystemExit(f"demo: the output has {len(cleaned)} samples instead of {len(noisy)}")
    print(f"Noise between the words: {noisy_speech.noise_reduction_db(speech, noisy, cleaned):.1f} dB lower.")
    print(f"Signal to distortion: {si_sdr(noisy, speech):.1f} dB before, {si_sdr(cleaned, speech):.1f} dB after.")
    before, after = stoi(noisy, speech, rate), stoi(cleaned, speech, rate)
    print(f"Intelligibility (STOI, 1 is best): {before:.3f} before, {after:.3f} after.")

    picture = options.out / "spectrograms.png"
    draw(picture, [("Noisy", noisy), ("Cleaned", cleaned), ("Original, without noise", speech)])
    if options.picture:
        shutil.copyfile(picture, options.picture)
    for path in (noisy_file, cleaned_file, original_file, picture, *filter(None, [options.picture])):
        print(f"  {path.relative_to(Path.cwd()) if path.is_relative_to(Path.cwd()) else path}")


if __name__ == "__main__":
    main()
