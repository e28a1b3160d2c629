"""docs/quality.md out of the measured results."""

from __future__ import annotations

from collections import Counter
from pathlib import Path

from evaluation import pictures
from evaluation.quality import Row
from evaluation.tables import against, number, overall, split, table

SECTIONS = ("quality", "voice", "stream", "stress", "pictures")
CORE = ("unprocessed", "orvel-16k", "orvel-16k-tiny", "RNNoise", "GTCRN")

OPENING = """# Quality

Written by `make evaluate`; every figure was measured by that command, none is typed, and every table
comes from one run in which all its systems hear the same audio. Ours run frame by frame (10 ms) through
the exported C functions of the built library; the others are the packages pinned in
`evaluation/requirements.txt` and `evaluation/peer-requirements.txt` and Debian's libspeexdsp1. Each
output is put in time with the input by the system's own latency (ours as the library tells it, the
others' measured by cross-correlation), and brought to the pair's rate where a system works at another.

The pairs mix speakers and noise recordings of the held-out split, which training never sees, at SNRs of
-5, 0, 5, 10 and 15 dB; the reference of a reverberant pair keeps the early reflections. Measured were
{counts}, of {seconds:g} s each.

- PESQ: wide-band, narrow-band at 8 kHz. STOI, ESTOI: intelligibility, 1 is best. SI-SDR: signal to
  distortion. OVRL: overall opinion predicted by DNSMOS without a reference, 1 to 5. The last stage of
  training our recurrent models listened to that network and to a relative of PESQ too, so these two are no
  independent judges of them.
- cut: share of speech frames (32 ms, within 25 dB of the loud ones) that come out over 12 dB too low.
- pauses: by how many dB the noise is lower where nobody speaks.
- CPU s/s: CPU seconds per second of audio while {jobs} processes of the evaluation, and whatever else
  runs, share the machine: compare the ratios, not the seconds. Resampling is not counted.
- latency: the audio taken by one call and the lag of the output.

More systems and a careful measurement of cost: [performance-peers.md](performance-peers.md).
"""


def _rows(results: dict) -> list[Row]:
    return [Row(**row) for row in results.get("rows", [])]


def _snr(row: Row) -> str:
    return f"{row.info['snr_db']:g} dB" if "snr_db" in row.info else "unknown"


def _room(row: Row) -> str:
    return {True: "reverberant", False: "dry"}.get(row.info.get("reverberant"), "unknown")


def _labels(rows: list[Row], label, key) -> list[str]:
    return list(dict.fromkeys(label(row) for row in sorted(rows, key=key)))


def _quality(results: dict) -> str:
    plain, rows, parts = results, _rows(results), []
    for rate, baseline in ((16000, "orvel-16k"), (8000, "orvel-8k"), (32000, "orvel-32k")):
        every = [row for row in rows if row.rate == rate]
        here = [row for row in every if not row.system.startswith("orvel-ff")]
        if not here:
            continue
        ours = [name for name in plain["models"] if any(row.system == name for row in here)]
        parts.append(f"## {rate // 1000} kHz\n")
        parts.append(overall(here, plain["systems"], baseline))
        parts.append(against(here, ours, "RNNoise"))
        notes = [(n, s["note"]) for n, s in plain["systems"].items() if s["note"]]
        if rate == 16000:
            parts += [f"{name}: {note}." for name, note in notes]
            parts.append("")
            here = [row for row in here if row.system in CORE]
        ratios = _labels(here, _snr, lambda row: row.info.get("snr_db", 0))
        rooms = _labels(here, _room, lambda row: row.info.get("reverberant", False))
        parts.append(split(here, _snr, ratios, ["pesq", "stoi", "si_sdr", "ovrl"]))
        parts.append(split(here, _room, rooms, ["pesq", "stoi", "si_sdr", "cut"]))
        feedforward = [row for row in every if row.system.startswith("orvel-ff")]
        if feedforward:
            chosen = {row.pair for row in feedforward}
            also = ("unprocessed", "orvel-16k")
            same = [row for row in every if row.pair in chosen and row.system in also]
            parts.append(f"The feed-forward models on {len(chosen)} of these pairs:\n")
            parts.append(overall(same + feedforward, plain["systems"], baseline))
    parts.append(_wide(plain.get("wide", [])))
    return "\n".join(parts)


def _wide(rows: list[dict]) -> str:
    if not rows:
        return ""
    lines = []
    for system in dict.fromkeys(row["system"] for row in rows):
        own = [row for row in rows if row["system"] == system]
        average = lambda key: sum(row[key] for row in own) / len(own)  # noqa: E731
        before, after, whole = average("before"), average("after"), average("whole")
        figures = (before, after, after - before, whole)
        lines.append([system, *(number(value, "{:+.1f}") for value in figures)])
    pairs = len({row["pair"] for row in rows})
    return (
        f"### The band above 8 kHz\n\n{pairs} clean wide-band recordings at 32 kHz: level above 8 kHz in "
        "dB relative to the whole input, before and after, and what the whole wave's level became.\n\n"
        + table(["", "before dB", "after dB", "change dB", "whole wave dB"], lines)
    )


def _voice(results: dict) -> str:
    plain = results
    if not plain.get("voice"):
        return ""
    lines = [
        [
            row["name"],
            f"{row['auc']:.4f}",
            f"{row['auc_without_lag']:.4f}",
            f"{row['lag_ms']:.0f}",
            f"{row['f1']:.3f}",
            f"{row['best_f1']:.3f}",
            f"{100 * row['alarm_share']:.1f}",
            f"{100 * row['miss_share']:.1f}",
            f"{row['alarms_per_minute']:.1f}",
            f"{row['misses_per_minute']:.1f}",
            f"{number(row['onset_ms'], '{:.0f}')} / {number(row['onset_90_ms'], '{:.0f}')}",
            f"{row['cpu']:.4f}",
        ]
        for row in plain["voice"]
    ]
    headings = ["", "ROC-AUC", "lag removed", "lag ms", "F1", "best F1", "alarm %", "missed %"]
    headings += ["alarms/min", "misses/min", "onset ms", "CPU s/s"]
    ratios = Counter(plain["voice_snr"])
    snr = ", ".join(f"{value:g} ({ratios[value]})" for value in sorted(ratios))
    return f"""## Voice activity

{plain["voice_seconds"] / 60:.0f} minutes of held-out speech, about half of it silence between the words,
under noise that changes every 10 s, at 16 kHz; SNR in dB (minutes): {snr}. Labels come from the
clean speech by its level (gaps up to 120 ms closed), every 10 ms; a score counts from the moment its
frame is complete. "lag removed" shifts each detector's scores by the lag that suits it best. F1, shares and events use each
detector's own threshold (ours 0.5; WebRTC: half of its four modes), "best F1" the best one on these
streams. alarm, missed: share of the hops. Events: segments after closing gaps under 200 ms and dropping
those under 50 ms. onset: median and 90th percentile of the delay at word starts after 300 ms of pause.

{table(headings, lines)}
![ROC curves](img/roc.png)
"""


def _stream(results: dict) -> str:
    parts = []
    for model, rows in results.get("long", {}).items():
        for key, name, form in (("stoi", "STOI", "{:.3f}"), ("si_sdr", "SI-SDR dB", "{:.1f}")):
            inside = [form.format(row[f"{key}_stream"]) for row in rows]
            fresh = [form.format(row[f"{key}_fresh"]) for row in rows]
            parts.append([f"{model}, {name}, in the stream", *inside])
            parts.append([f"{model}, {name}, fresh session", *fresh])
    if not parts:
        return ""
    first = next(iter(results.get("long", {}).values()))
    headings = ["", *(f"from {row['seconds'] / 60:.0f} min" for row in first)]
    return (
        "## A long stream\n\nOne session hears another speaker, noise, SNR and level (-20 to -45 dBFS)\n"
        "with every piece; beside it each piece alone in a fresh session. Every fourth piece is\n"
        "measured; means over fifths of the stream.\n\n" + table(headings, parts)
    )


def _stress(results: dict) -> str:
    plain = results
    if not plain.get("stress"):
        return ""
    models = list(dict.fromkeys(row["model"] for row in plain["stress"]))
    found = {(row["model"], row["signal"]): row for row in plain["stress"]}
    lines = []
    for signal in dict.fromkeys(row["signal"] for row in plain["stress"]):
        cells = []
        for model in models:
            row = found[model, signal]
            cells.append(f"{row['excess_db']:+.1f} / {row['drift_db']:+.1f}" if row["finite"] else "NOT FINITE")
        lines.append([signal, *cells])
    text = (
        "## Signals that are no speech\n\n60 s each. Loudest second of the output against the loudest of\n"
        "the input, then the last ten seconds against the second ten, in dB (levels under -90 dBFS\n"
        "count as -90): nothing may grow. All outputs are checked to be finite.\n\n" + table(["", *models], lines)
    )
    if plain["voice_stress"]:
        cells = [
            [row["signal"], "yes" if row["finite"] else "NO", f"{100 * row['voice']:.1f}"]
            for row in plain["voice_stress"]
        ]
        text += "\nThe voice detector on the same signals:\n\n"
        text += table(["", "finite", "called voice %"], cells)
    return text


def text(results: dict) -> str:
    """The report without its opening and pictures."""
    parts = [_quality(results), _voice(results), _stream(results), _stress(results)]
    return "\n".join(part for part in parts if part)


def write(results: dict, docs: Path, curves: Path) -> None:
    """Writes docs/quality.md and the pictures under docs/img."""
    images = docs / "img"
    images.mkdir(parents=True, exist_ok=True)
    plain = results
    heard = {(row.rate, row.pair): row.info for row in _rows(results)}
    counts = ", ".join(
        f"{len(infos)} pairs at {rate // 1000} kHz "
        f"({sum(bool(info.get('reverberant')) for info in infos)} reverberant)"
        for rate in (16000, 8000, 32000)
        if (infos := [info for (own, _), info in heard.items() if own == rate])
    )
    seconds = plain.get("seconds", 0.0)
    opening = OPENING.format(seconds=seconds, counts=counts or "no pairs", jobs=plain["jobs"])
    parts = [opening, text(results)]
    if results.get("roc"):
        pictures.draw_roc(results["roc"], images / "roc.png")
    if results.get("examples"):
        pictures.draw_examples(results["examples"], images / "spectrograms.png")
        parts.append(
            f"## Spectrograms\n\n{len(results['examples'])} of the pairs at 16 kHz: noisy, cleaned by "
            "orvel-16k, clean.\n\n![Spectrograms](img/spectrograms.png)\n"
        )
    if pictures.draw_curves(curves, images / "learning-curves.png"):
        parts.append(
            "## Learning curves\n\n"
            "Where a stage brings new terms into the loss, or other weights of them, the curve jumps:\n"
            "only what lies between two jumps can be compared.\n\n"
            "![Learning curves](img/learning-curves.png)\n"
        )
    (docs / "quality.md").write_text("\n".join(part.rstrip() + "\n" for part in parts))
