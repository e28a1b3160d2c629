"""Writes docs/tuning.md: every tuning key with its effect on the demo recording, as numbers.

    .venv/bin/python samples/tuning_report.py --build build/release

Needs what `make demo` installs, the release build and the trained models.
"""
import argparse
import json
import resource
import shutil
import subprocess
import tempfile
from pathlib import Path

import numpy as np

import demo
import measure
import noisy_speech
from noisy_speech import RATE

ROOT = demo.ROOT
TRAINED = "0.0.5"
GATE = "0.0.1"

# Key stem -> settings to try, each a row: stem -> value. Stems not named keep their defaults.
TRIED = {
    "ORVEL_SMOOT_COEF": [{"ORVEL_SMOOT_COEF": value} for value in ("0.75", "0.5", "0.25")],
    "ORVEL_SMOOT_RM_MODIFY": [{"ORVEL_SMOOT_RM_MODIFY": "TRUE"}, {"ORVEL_SMOOT_RM_MODIFY": "FALSE"}],
    "ORVEL_HIGH_FREQ_SMOOT": [{"ORVEL_HIGH_FREQ_SMOOT": "TRUE"}],
    "ORVEL_ENABLE_WINDOW_AFTER": [{"ORVEL_ENABLE_WINDOW_AFTER": "FALSE"}],
    "ORVEL_WINDOW_AFTER": [{"ORVEL_WINDOW_AFTER": "HAMMING"}],
    "ORVEL_ENABLE_CLIP_FIX": [{"ORVEL_ENABLE_CLIP_FIX": "TRUE", "ORVEL_CLIP_FIX_POINT": "8000"}],
    "ORVEL_CLIP_FIX_POINT": [{"ORVEL_ENABLE_CLIP_FIX": "TRUE", "ORVEL_CLIP_FIX_POINT": value}
                             for value in ("12000", "4000")],
    "ORVEL_ENABLE_THRESH_CUT": [{"ORVEL_ENABLE_THRESH_CUT": "TRUE"}],
    "ORVEL_THRESH_CUT_REF_EN": [{"ORVEL_ENABLE_THRESH_CUT": "TRUE", "ORVEL_THRESH_CUT_REF_EN": value}
                                for value in ("1", "1000")],
    "ORVEL_ENABLE_RM_THRESHOLD": [{"ORVEL_ENABLE_RM_THRESHOLD": "TRUE"}],
    "ORVEL_RM_THRESHOLD": [{"ORVEL_ENABLE_RM_THRESHOLD": "TRUE", "ORVEL_RM_THRESHOLD": value}
                           for value in ("0.1", "0.25", "1")],
    "ORVEL_ENABLE_RESCALE": [{"ORVEL_ENABLE_RESCALE": "FALSE"}],
    "ORVEL_RESCALE_REF_AMPL": [{"ORVEL_ENABLE_RM_THRESHOLD": "TRUE", "ORVEL_RM_THRESHOLD": "0.001",
                                "ORVEL_RESCALE_REF_AMPL": value} for value in ("500", "8000")],
    "ORVEL_RESCALE_REF_EN": [{"ORVEL_ENABLE_RM_THRESHOLD": "TRUE", "ORVEL_RM_THRESHOLD": "0.001",
                              "ORVEL_RESCALE_REF_EN": value} for value in ("1", "1000000")],
    "ORVEL_SKIP_FRAME": [{"ORVEL_SKIP_FRAME": "TRUE"}],
    "ORVEL_VOLUME_UP": [{"ORVEL_VOLUME_UP": "TRUE", "ORVEL_VOLUME_UP_PERCENT": "50"}],
    "ORVEL_VOLUME_UP_PERCENT": [{"ORVEL_VOLUME_UP": "TRUE", "ORVEL_VOLUME_UP_PERCENT": value}
                                for value in ("20", "100")],
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
noise at {snr:g} dB SNR, see `samples/README.md`) with `orvel-16k` (version {trained}), and with the
constructed gate (version {gate}) where the trained model's version lacks the key. This page is written
by `samples/tuning_report.py`; no figure in it is typed.

- **noise**: level between the words against the noisy input. Lower is quieter.
- **speech**: level of the original speech that is left in the output.
- **highs**: level above 4 kHz while somebody speaks, against the noisy input.
- **SI-SDR**, **STOI**: distortion and intelligibility against the original speech; higher is better.
- **peak**: highest output sample in 16-bit steps.
"""


class Bench:
    """Runs the command on the demo's recording and measures what it gives."""

    def __init__(self, build, folder):
        self.program = build / "tools" / "orvel"
        self.gate = build / "gate-model" / "orvel-gate.ctl"
        self.folder = folder
        # A copy: all rows come from the same weights, whatever happens to the originals meanwhile.
        self.models = shutil.copytree(ROOT / "models", folder / "models")
        self.speech = None
        self.inputs = {}  # SNR in dB -> samples as the command reads them
        for snr in (demo.SNR_DB, QUIET_SNR_DB):
            self.speech, noisy = noisy_speech.make(snr)
            noisy_speech.write_wav(folder / self.file(snr), noisy)
            self.inputs[snr], _ = noisy_speech.read_wav(folder / self.file(snr))
        self.cache = {}

    @staticmethod
    def file(snr):
        return f"noisy-{snr:g}.wav"

    def model(self, version):
        if version == GATE:
            return ["--model", str(self.gate)]
        return ["--model", "orvel-16k", "--model-dir", str(self.models)]

    def clean(self, version, options, source):
        output = self.folder / "cleaned.wav"
        subprocess.run([self.program, "clean", "--force", *self.model(version), *options,
                        self.folder / source, output], check=True, capture_output=True)
        return noisy_speech.read_wav(output)[0]

    def row(self, version, options, snr=demo.SNR_DB):
        """Figures as a dictionary from column to text."""
        key = (version, snr, *options)
        if key not in self.cache:
            cleaned = self.clean(version, options, self.file(snr))
            noisy = self.inputs[snr]
            self.cache[key] = {
                "noise": f"{-measure.noise_reduction_db(self.speech, noisy, cleaned):+.1f} dB",
                "speech": f"{measure.speech_change_db(self.speech, cleaned):+.1f} dB",
                "highs": f"{self.highs(cleaned) - self.highs(noisy):+.1f} dB",
                "SI-SDR": f"{measure.si_sdr_db(self.speech, cleaned):.1f} dB",
                "STOI": f"{measure.stoi(self.speech, cleaned):.3f}",
                "peak": f"{np.max(cleaned) * 32768:.0f}",
            }
        return self.cache[key]

    def highs(self, samples):
        spectrum = np.fft.rfft(samples * noisy_speech.speaking(self.speech))
        upper = np.fft.rfftfreq(len(samples), 1.0 / RATE) > 4000.0
        return measure.power_db(np.abs(spectrum[upper]))

    def seconds_on_silence(self, options, repeats=3):
        """Processor time of the cheapest of several runs over a minute of digital silence."""
        noisy_speech.write_wav(self.folder / "silence.wav", np.zeros(60 * RATE))
        times = []
        for _ in range(repeats):
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            self.clean(TRAINED, options, "silence.wav")
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            times.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
        return min(times)

    def scores(self, options):
        command = [self.program, "vad", "--frames", "--csv", "--model-dir", self.models, *options,
                   self.folder / self.file(demo.SNR_DB)]
        lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
        return np.array([float(line.split(",")[1]) for line in lines[1:]])

    def refusal(self, options):
        run = subprocess.run([self.program, "clean", *self.model(TRAINED), *options,
                              self.folder / self.file(demo.SNR_DB), self.folder / "refused.wav"],
                             capture_output=True, text=True)
        if run.returncode == 0:
            raise SystemExit("a setting that should be refused was taken: " + " ".join(options))
        return " ".join(run.stderr.split())


def suffix(version):
    return "_v" + version.replace(".", "_")


def to_options(setting, version):
    return [word for stem, value in setting.items()
            for word in ("--set", f"{stem}{suffix(version)}={value}")]


def table(rows):
    """Markdown table of (title, figures)."""
    columns = list(rows[0][1])
    lines = ["| setting | " + " | ".join(columns) + " |", "|---" * (len(columns) + 1) + "|"]
    lines += ["| " + title + " | " + " | ".join(figures.values()) + " |" for title, figures in rows]
    return "\n".join(lines)


def key_table(bench, key):
    version = TRAINED if suffix(TRAINED) in key["suffixes"] else GATE
    snr = QUIET_SNR_DB if key["stem"] in NEEDS_QUIET else demo.SNR_DB
    rows = [("as shipped", bench.row(version, [], snr))]
    for setting in TRIED[key["stem"]]:
        title = ", ".join(f"`{stem}` {value}" for stem, value in setting.items())
        rows.append((title, bench.row(version, to_options(setting, version), snr)))
    remark = "" if snr == demo.SNR_DB else f"Measured with the noise at {snr:g} dB SNR.\n\n"
    return remark + table(rows)


def special(bench, stem):
    """What the common table does not show."""
    if stem == "ORVEL_SKIP_FRAME":
        plain = bench.seconds_on_silence([])
        skipping = bench.seconds_on_silence(to_options({stem: "TRUE"}, TRAINED))
        return ("\nA minute of digital silence took "
                f"{skipping / plain:.2f} times the processor time with it.\n")
    if stem == "ORVEL_COMPRESS_RATE":
        text = bench.refusal(["--set", f"{stem}{suffix(TRAINED)}=1"])
        return f"\nA rate that the weights are not made for is refused:\n\n```\n{text}\n```\n"
    if stem == "ORVEL_VAD_ENABLE_STATE_RESET":
        change = np.max(np.abs(bench.scores([]) - bench.scores(["--set", stem + "_v0_0_1=TRUE"])))
        return (f"\nLargest change of a score of `orvel-vad` on the recording: {change:.5f}. The reset "
                "asks for more frames without a voice than its memory can hold, so it never comes.\n")
    return ""


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("--build", type=Path, default=ROOT / "build" / "release")
    arguments.add_argument("--out", type=Path, default=ROOT / "docs" / "tuning.md")
    options = arguments.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(options.build, Path(folder))
        keys = json.loads(subprocess.run([bench.program, "keys", "--json"], check=True,
                                         capture_output=True).stdout)
        parts = [HEADING.format(seconds=len(bench.speech) / RATE, snr=demo.SNR_DB, trained=TRAINED,
                                gate=GATE)]
        limits = [("none", bench.row(TRAINED, []))]
        limits += [(f"{limit} dB", bench.row(TRAINED, ["--attenuation-limit", str(limit)]))
                   for limit in (30, 20, 12, 6)]
        parts.append("## Attenuation limit\n\nNot a key but a call (`Orv_NC_SetAttenuationLimit`, "
                     "`--attenuation-limit`): no frequency is lowered by more than this. It keeps a "
                     "natural background and hides what is wrong with the removal.\n\n"
                     + table(limits) + "\n")
        for key in keys:
            versions = key["suffixes"].replace("_v", "").replace("_", ".")
            if "_VAD_" in key["stem"]:
                versions = "VAD_" + versions
            parts.append(f"## {key['stem']}\n\n{key['meaning']}\n\nValues: {key['values']}. "
                         f"Versions: {', '.join(versions.split())}.\n")
            if key["stem"] in TRIED:
                parts.append(key_table(bench, key) + "\n")
            note = special(bench, key["stem"])
            if note:
                parts.append(note.strip("\n") + "\n")
    options.out.parent.mkdir(exist_ok=True)
    options.out.write_text("\n".join(parts))
    print(f"wrote {options.out}")


if __name__ == "__main__":
    main()
