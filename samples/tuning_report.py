"""Writes a page on the tuning keys: every key with its effect on the demo recording, as numbers.

    python -m samples.tuning_report --build build/release

Goes to build/tuning.md, with --write to docs/tuning.md. Needs what `make demo` and `make evaluate`
install, the release build and the trained models.
"""

import argparse
import json
import subprocess
import time
from pathlib import Path

import numpy as np

import orvel
from evaluation.quality import table
from samples import ROOT, noisy_speech
from samples.demo import SNR_DB
from samples.noisy_speech import RATE
from training.measures import si_sdr, stoi

# Key stem -> settings to try, each a row: stem -> value. Stems not named keep their defaults.
TRIED = {
    "ORVEL_SMOOT_COEF": [{"ORVEL_SMOOT_COEF": value} for value in ("0.75", "0.5", "0.25")],
    "ORVEL_SMOOT_RM_MODIFY": [{"ORVEL_SMOOT_RM_MODIFY": "TRUE"}, {"ORVEL_SMOOT_RM_MODIFY": "FALSE"}],
    "ORVEL_HIGH_FREQ_SMOOT": [{"ORVEL_HIGH_FREQ_SMOOT": "TRUE"}],
    "ORVEL_ENABLE_WINDOW_AFTER": [{"ORVEL_ENABLE_WINDOW_AFTER": "FALSE"}],
    "ORVEL_WINDOW_AFTER": [{"ORVEL_WINDOW_AFTER": "HAMMING"}],
    "ORVEL_ENABLE_CLIP_FIX": [{"ORVEL_ENABLE_CLIP_FIX": "TRUE", "ORVEL_CLIP_FIX_POINT": "8000"}],
    "ORVEL_CLIP_FIX_POINT": [
        {"ORVEL_ENABLE_CLIP_FIX": "TRUE", "ORVEL_CLIP_FIX_POINT": value} for value in ("12000", "4000")
    ],
    "ORVEL_ENABLE_THRESH_CUT": [{"ORVEL_ENABLE_THRESH_CUT": "TRUE"}],
    "ORVEL_THRESH_CUT_REF_EN": [
        {"ORVEL_ENABLE_THRESH_CUT": "TRUE", "ORVEL_THRESH_CUT_REF_EN": value} for value in ("1", "1000")
    ],
    "ORVEL_ENABLE_RM_THRESHOLD": [{"ORVEL_ENABLE_RM_THRESHOLD": "TRUE"}],
    "ORVEL_RM_THRESHOLD": [
        {"ORVEL_ENABLE_RM_THRESHOLD": "TRUE", "ORVEL_RM_THRESHOLD": value} for value in ("0.1", "0.25", "1")
    ],
    "ORVEL_ENABLE_RESCALE": [{"ORVEL_ENABLE_RESCALE": "FALSE"}],
    "ORVEL_RESCALE_REF_AMPL": [
        {"ORVEL_ENABLE_RM_THRESHOLD": "TRUE", "ORVEL_RM_THRESHOLD": "0.001", "ORVEL_RESCALE_REF_AMPL": value}
        for value in ("500", "8000")
    ],
    "ORVEL_RESCALE_REF_EN": [
        {"ORVEL_ENABLE_RM_THRESHOLD": "TRUE", "ORVEL_RM_THRESHOLD": "0.001", "ORVEL_RESCALE_REF_EN": value}
        for value in ("1", "1000000")
    ],
    "ORVEL_SKIP_FRAME": [{"ORVEL_SKIP_FRAME": "TRUE"}],
    "ORVEL_VOLUME_UP": [{"ORVEL_VOLUME_UP": "TRUE", "ORVEL_VOLUME_UP_PERCENT": "50"}],
    "ORVEL_VOLUME_UP_PERCENT": [
        {"ORVEL_VOLUME_UP": "TRUE", "ORVEL_VOLUME_UP_PERCENT": value} for value in ("20", "100")
    ],
}

# Keys that act only where the pauses are far quieter than the speech.
QUIET_SNR_DB = 30.0
NEEDS_QUIET = ("ORVEL_ENABLE_THRESH_CUT", "ORVEL_THRESH_CUT_REF_EN")

HEADING = """\
# Tuning keys

A control file sets tuning keys, one `KEY VALUE` per line; `orvel clean --set KEY=VALUE` puts one over
the control file for a single run. A key's full name is its stem and the version of the cleaner that
reads it, as in `ORVEL_SMOOT_COEF_v0_0_5`; `orvel info MODEL.ctl` shows a model's version and the keys
it comes with, `orvel keys` lists all stems. A key of another version is ignored, a value out of range
is replaced by the default with a warning. Switches are on for exactly `TRUE`.

The figures below were measured on the demo's recording ({seconds:.0f} s of read speech in ventilation
noise at {snr:g} dB SNR, see `samples/README.md`) with `{newest}, and where its version lacks the key with a
model of the newest version that has it. This page is written by `python -m samples.tuning_report --write`;
no figure in it is typed.

- **noise**: level between the words against the noisy input. Lower is quieter.
- **speech**: level of the original speech that is left in the output.
- **highs**: level above 4 kHz during speech, against the noisy input.
- **SI-SDR**, **STOI**: distortion and intelligibility against the original speech; higher is better.
- **peak**: highest output sample in 16-bit steps.
"""


COLUMNS = ["noise", "speech", "highs", "SI-SDR", "STOI", "peak"]


class Bench:
    """Cleans the demo's recording under any setting and measures what comes out."""

    def __init__(self, library_file):
        self.library = orvel.Library(ROOT / "models", file=library_file)
        models = [self.library.load(control.stem) for control in sorted((ROOT / "models").glob("*.ctl"))]
        cleaners = [model for model in models if model.kind == "cleaner" and model.rate == RATE]
        self.largest = {}  # version -> model
        for model in sorted(cleaners, key=lambda model: model.weights):
            self.largest[model.version] = model.name
        self.newest = max(self.largest, key=numbers)
        self.detector = next(model.name for model in models if model.kind == "detector")
        self.inputs = {}  # SNR in dB -> 16-bit samples
        for snr in (SNR_DB, QUIET_SNR_DB):
            self.speech, noisy = noisy_speech.make(snr)
            self.inputs[snr] = np.clip(np.round(noisy * 32768.0), -32768, 32767).astype(np.int16)
        self.cache = {}

    def version_of(self, key):
        """The newest version that reads the key and that a model is there for."""
        return max((version for version in key["versions"] if version in self.largest), key=numbers)

    def load(self, model, setting, suffix):
        """The model under a setting (stem -> value), loaded on first use; tells its name."""
        if not setting:
            return model
        keys = {f"{stem}_v{suffix}": value for stem, value in setting.items()}
        name = " ".join([model, *(f"{key}={value}" for key, value in keys.items())])
        if name not in {loaded.name for loaded in self.library.models()}:
            self.library.load(model, name, keys=keys)
        return name

    def row(self, version, setting, snr=SNR_DB, limit=None):
        """Figures as a list of texts in the order of COLUMNS."""
        name = self.load(self.largest[version], setting, version.replace(".", "_"))
        key = (name, snr, limit)
        if key not in self.cache:
            noisy = self.inputs[snr] / 32768.0
            cleaned = orvel.clean(self.inputs[snr], RATE, model=name, attenuation_limit=limit, library=self.library)
            cleaned = cleaned / 32768.0
            self.cache[key] = [
                f"{-noisy_speech.noise_reduction_db(self.speech, noisy, cleaned):+.1f} dB",
                f"{noisy_speech.speech_change_db(self.speech, cleaned):+.1f} dB",
                f"{self.highs(cleaned) - self.highs(noisy):+.1f} dB",
                f"{si_sdr(cleaned, self.speech):.1f} dB",
                f"{stoi(cleaned, self.speech, RATE):.3f}",
                f"{np.max(cleaned) * 32768:.0f}",
            ]
        return self.cache[key]

    def highs(self, samples):
        spectrum = np.fft.rfft(samples * noisy_speech.speaking(self.speech))
        upper = np.fft.rfftfreq(len(samples), 1.0 / RATE) > 4000.0
        return noisy_speech.power_db(np.abs(spectrum[upper]))

    def seconds_on_silence(self, setting, repeats=3):
        """Processor time of the cheapest of several runs over a minute of digital silence."""
        name = self.load(self.largest[self.newest], setting, self.newest.replace(".", "_"))
        times = []
        for _ in range(repeats):
            with self.library.cleaner(RATE, name) as session:
                start = time.process_time()
                session.process(np.zeros(60 * RATE))
                times.append(time.process_time() - start)
        return min(times)

    def scores(self, setting, suffix):
        name = self.load(self.detector, setting, suffix)
        return orvel.VoiceDetector(RATE, model=name, library=self.library).scores(self.inputs[SNR_DB])

    def refusal(self, setting):
        try:
            self.library.cleaner(RATE, self.load(self.largest[self.newest], setting, self.newest.replace(".", "_")))
        except orvel.OrvelError as error:
            return str(error)
        raise SystemExit(f"a setting that should be refused was taken: {setting}")


def numbers(version):
    return [int(part) for part in version.split(".")]


def key_table(bench, key):
    version = bench.version_of(key)
    snr = QUIET_SNR_DB if key["stem"] in NEEDS_QUIET else SNR_DB
    rows = [["as shipped", *bench.row(version, {}, snr)]]
    for setting in TRIED[key["stem"]]:
        title = ", ".join(f"`{stem}` {value}" for stem, value in setting.items())
        rows.append([title, *bench.row(version, setting, snr)])
    remark = "" if version == bench.newest else f"Measured with `{bench.largest[version]}` (version {version}). "
    remark += "" if snr == SNR_DB else f"Measured with the noise at {snr:g} dB SNR."
    return (remark.strip() + "\n\n" if remark else "") + table(["setting", *COLUMNS], rows)


def special(bench, key):
    """What the common table does not show."""
    stem = key["stem"]
    if stem == "ORVEL_SKIP_FRAME":
        ratio = bench.seconds_on_silence({stem: "TRUE"}) / bench.seconds_on_silence({})
        return f"A minute of digital silence took {ratio:.2f} times the processor time with it.\n"
    if stem == "ORVEL_COMPRESS_RATE":
        text = bench.refusal({stem: "1"})
        return f"A rate that the weights are not made for is refused:\n\n```text\n{text}\n```\n"
    if stem == "ORVEL_VAD_ENABLE_STATE_RESET":
        suffix = key["names"][0].removeprefix(f"{stem}_v")
        change = np.max(np.abs(bench.scores({}, suffix) - bench.scores({stem: "TRUE"}, suffix)))
        return (
            f"Largest change of a score of `{bench.detector}` on the recording: {change:.5f}. The reset "
            "asks for more frames without a voice than its memory can hold, so it never comes.\n"
        )
    return ""


def page(bench, keys):
    """The whole page."""
    newest = f"{bench.largest[bench.newest]}` (version {bench.newest})"
    heading = HEADING.format(seconds=len(bench.speech) / RATE, snr=SNR_DB, newest=newest)
    parts = [heading]
    limits = [["none", *bench.row(bench.newest, {})]]
    limits += [[f"{limit} dB", *bench.row(bench.newest, {}, limit=limit)] for limit in (30, 20, 12, 6)]
    parts.append(
        "## Attenuation limit\n\nNot a key but a call (`Orv_NC_SetAttenuationLimit`, `--attenuation-limit`): no "
        "frequency is lowered by more than this. It keeps a natural background and hides artefacts.\n\n"
        + table(["setting", *COLUMNS], limits)
    )
    for key in keys:
        parts.append(
            f"## {key['stem']}\n\n{key['meaning']}\n\nValues: {key['values']}. "
            f"Versions: {', '.join(key['versions'])}.\n"
        )
        parts += [key_table(bench, key)] if key["stem"] in TRIED else []
        parts += filter(None, [special(bench, key)])
    return "\n".join(parts)


def main():
    """Measures and writes the page."""
    parser = argparse.ArgumentParser(prog="python -m samples.tuning_report", description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    parser.add_argument("--out", type=Path, default=ROOT / "build" / "tuning.md", help="write the page here")
    parser.add_argument("--write", action="store_true", help="write docs/tuning.md")
    options = parser.parse_args()
    command = [options.build / "tools" / "orvel", "keys", "--json"]
    keys = json.loads(subprocess.run(command, check=True, capture_output=True).stdout)
    text = page(Bench(options.build / "liborvel.so.1"), keys)
    target = ROOT / "docs" / "tuning.md" if options.write else options.out
    target.parent.mkdir(exist_ok=True)
    target.write_text(text)
    print(f"wrote {target}")


if __name__ == "__main__":
    main()
