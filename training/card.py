"""Model cards: ``python -m training.card --config FILE --weights FILE --metrics FILE --command TEXT``.

Writes NAME.md beside the weight file. Size, latency and training time come from the files, sources and
licences from NAME.sources.md, which training writes; the metrics are the recorded output of the command
that the card names.
"""

from __future__ import annotations

import argparse
import csv
import sys
from pathlib import Path

import numpy as np

from training import InputError
from training.configuration import load_config
from training.recurrent import VERSION as RECURRENT
from training.sources import read_sources
from training.weights_file import read_weights

LATENCY_MS = {32: 31, 30: 25}  # of the cleaner at calls of 10 ms, by frame length

LIMITS = {
    "clean": """Voices in the background count as noise only when they are many. Music and singing are treated as noise.
Speech that lies below the noise loses words; what is left of a noise that resembles speech can be heard as short
tones.""",
    "detect": """Scores voices of any kind: a single voice in the background is speech to it. Singing and some animal
sounds can be taken for speech. The score agrees best with the voice 30 to 60 ms after it; a caller who cuts audio at
the score should keep 60 ms before it.""",
    "older": """It is for hosts that must run this version of the cleaner, and an example of its weights. It lowers
noise in pauses, but speech in noise becomes no more intelligible: its ESTOI lies below the unprocessed
input's (docs/quality.md). Where there is a choice, take `orvel-16k-tiny`: it costs as much and is
better by every measure.""",
}


def weights_of(entries: dict) -> int:
    """Numbers that the network multiplies or adds; the branches that no version reads are left out."""
    detector = entries["Version"].startswith("VAD")
    unused = ("WeightNonLinear", "BaesNonLinear") if detector else ("WeightLinear", "BaesLinear")
    total = 0
    for name, value in entries.items():
        if isinstance(value, list):
            total += sum(v.size for v in (value[:-1] if name in unused else value))
    return total


def card_text(config: dict, entries: dict, weights: Path, metrics: str, command: str, curve: Path | None) -> str:
    """The card as Markdown."""
    name, version = config["model"]["name"], entries["Version"]
    detector = version.startswith("VAD")
    rate = entries["SampleRate"]
    lines = [f"# {name}", "", f"{config['model'].get('title', 'A model')}. Version {version}, {rate} Hz.", ""]
    lines += ["| | |", "|---|---|"]
    lines += [f"| Weights | {weights_of(entries):,} |", f"| File | {weights.stat().st_size:,} bytes |"]
    if detector:
        lines.append("| Frame | 10 ms, one score each; analysis over the last 30 ms |")
    else:
        frame = entries["FrameLength"] * 1000 // rate
        lines.append(f"| Frame | {frame} ms, every {frame / 2:g} ms |")
        if frame in LATENCY_MS:
            lines.append(f"| Latency | {LATENCY_MS[frame]} ms at calls of 10 ms, plus rate conversion |")
        inputs, preview = entries["WeightNonLinear"][0].shape[0], entries["PreviewFrames"]
        lines.append(f"| Inputs | {inputs} per hop, {preview} frame(s) |")
    keys = ", ".join(f"`{k} {v}`" for k, v in config.get("keys", {}).items())
    lines.append(f"| Tuning keys | {keys or 'none'} |")
    if curve is not None:
        with curve.open(newline="") as handle:
            last = list(csv.DictReader(handle))[-1]
        lines.append(f"| Training | {last['update']} updates, {float(last['hours']):.0f} hours of fresh mixes |")
    lines += ["", "## Data and licences", "", read_sources(weights), "", "## Measured", ""]
    if metrics:
        lines += ["Through the emulated chain, on speakers and recordings that training did not see;"]
        lines += ["`training.evalset` makes them (60 pairs of 6 s, 10 streams for the detector):", ""]
        lines += ["```", f"$ {command}", metrics.rstrip(), "```", ""]
    judges = {"opinion": "DNSMOS' network (`sig`, `bak`, `ovrl`)", "quality": "an estimate of PESQ (`pesq`)"}
    heard = [text for key, text in judges.items() if any(stage.get(key) for stage in config["stage"])]
    if heard:
        lines += [f"In the loss, and so no independent judge: {', '.join(heard)}.", ""]
    lines += ["`make evaluate` measures the built library beside other systems; its report is `docs/quality.md`.", ""]
    if detector:
        low, high = (float(v) for v in entries["Test_MINMAX"])
        best = float(np.ravel(entries["Test_BestF1"])[0])
        lines.append(
            f"A score of 0.5 is the raw output {best:.2f} of the best F1 on validation streams; 0 is {low:.2f}, near"
        )
        lines += [f"what plain noise gives, and 1 is {high:.2f}, which 0.5 % exceed there.", ""]
    lines += ["## Limits", "", LIMITS["detect" if detector else "clean"], ""]
    if not detector and version != RECURRENT:
        lines += ["## What it is for", "", LIMITS["older"], ""]
    return "\n".join(lines)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--config", required=True)
    parser.add_argument("--weights", required=True)
    parser.add_argument("--metrics", help="file with the output of the command")
    parser.add_argument("--command", default="", help="the command that printed the metrics")
    parser.add_argument("--curve", help="learning curve of the run")
    args = parser.parse_args()
    weights = Path(args.weights)
    try:
        config, entries = load_config(args.config), read_weights(weights)
    except InputError as error:
        sys.exit(f"card: {error}")
    metrics = Path(args.metrics).read_text() if args.metrics else ""
    curve = Path(args.curve) if args.curve else None
    weights.with_suffix(".md").write_text(card_text(config, entries, weights, metrics, args.command, curve))


if __name__ == "__main__":
    main()
