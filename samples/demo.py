"""Cleans the demo recording with the built command, measures what happened and draws it.

    python samples/demo.py --build build/release --out build/demo
"""
import argparse
import subprocess
from pathlib import Path

import measure
import noisy_speech

SNR_DB = 8.0
ROOT = Path(__file__).resolve().parent.parent


def choose_model(build):
    """Options that select the trained default, or the constructed gate where it is missing."""
    trained = ROOT / "models"
    if (trained / "orvel-16k.ctl").exists():
        return "the trained model orvel-16k", ["--model", "orvel-16k", "--model-dir", str(trained)]
    gate = build / "gate-model" / "orvel-gate.ctl"
    return "the constructed spectral gate (no trained models here)", ["--model", str(gate)]


def draw(path, panels):
    """Spectrograms of (title, samples) pairs, one below the other on one scale."""
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    figure, axes = plt.subplots(len(panels), 1, figsize=(12, 3.2 * len(panels)), sharex=True,
                                layout="constrained")
    for axis, (title, samples) in zip(axes, panels):
        # A faint floor, far below anything audible, keeps digital silence drawable.
        _, _, _, image = axis.specgram(samples + 1e-7, NFFT=512, Fs=noisy_speech.RATE, noverlap=384,
                                       vmin=-120, vmax=-40, cmap="magma")
        axis.set_title(title, loc="left")
        axis.set_ylabel("Hz")
    axes[-1].set_xlabel("seconds")
    figure.colorbar(image, ax=axes, label="dB per Hz", pad=0.01)
    figure.savefig(path, dpi=100)


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    arguments.add_argument("--out", type=Path, default=ROOT / "build" / "demo")
    options = arguments.parse_args()
    options.out.mkdir(parents=True, exist_ok=True)
    noisy_file, cleaned_file = options.out / "noisy.wav", options.out / "cleaned.wav"

    speech, noisy = noisy_speech.make(SNR_DB)
    noisy_speech.write_wav(options.out / "original.wav", speech)
    noisy_speech.write_wav(noisy_file, noisy)
    print(f"Mixed {len(speech) / noisy_speech.RATE:.1f} s of read speech with ventilation noise at "
          f"{SNR_DB:g} dB SNR.")

    model, selection = choose_model(options.build)
    command = [options.build / "tools" / "orvel", "clean", "--verbose", "--force", *selection,
               noisy_file, cleaned_file]
    run = subprocess.run(command, check=True, text=True, stderr=subprocess.PIPE)
    summary = run.stderr.splitlines()[-1].removeprefix("cleaned ")
    print(f"Cleaned it with {model}: {summary}.")

    noisy, _ = noisy_speech.read_wav(noisy_file)
    cleaned, _ = noisy_speech.read_wav(cleaned_file)
    if len(cleaned) != len(noisy):
        raise SystemExit(f"the output has {len(cleaned)} samples instead of {len(noisy)}")
    print(f"Noise between the words: "
          f"{measure.noise_reduction_db(speech, noisy, cleaned):.1f} dB lower.")
    print(f"Signal to distortion: {measure.si_sdr_db(speech, noisy):.1f} dB before, "
          f"{measure.si_sdr_db(speech, cleaned):.1f} dB after.")
    print(f"Intelligibility (STOI, 1 is best): {measure.stoi(speech, noisy):.3f} before, "
          f"{measure.stoi(speech, cleaned):.3f} after.")

    picture = options.out / "spectrograms.png"
    draw(picture, [("noisy", noisy), ("cleaned", cleaned)])
    for path in (noisy_file, cleaned_file, options.out / "original.wav", picture):
        print(f"  {path.relative_to(Path.cwd()) if path.is_relative_to(Path.cwd()) else path}")


if __name__ == "__main__":
    main()
