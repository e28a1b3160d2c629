"""The report, quality.md with its pictures, out of the measured results."""

from __future__ import annotations

from collections import Counter
from pathlib import Path

from evaluation import pictures, segments, work
from evaluation.quality import HEADINGS, REFERRED, Row, against, columns, number, overall, split, table
from orvel import Model

# Each section and the entry of the results that holds it.
SECTIONS = {
    "quality": "rows",
    "words": "words",
    "situations": "situations",
    "voice": "voice",
    "segments": "segments",
    "stream": "long",
    "stress": "stress",
    "pictures": "examples",
}
# The kinds of model that a section measures; the others measure cleaners.
USES = {"voice": ["detector"], "segments": ["detector"], "stress": ["cleaner", "detector"]}
# The systems beside ours in the tables by ratio and room.
SHOWN = ("unprocessed", "RNNoise", "GTCRN")

OPENING = """# Quality

Written by `make evaluate ARGS=--write`; every figure was measured by that command, none is typed, and
every table comes from one run in which all its systems get the same audio. Ours run frame by frame
(10 ms) through the exported C functions of the built library; the others are the packages pinned in
`evaluation/requirements.txt` and `evaluation/peer-requirements.txt` and Debian's libspeexdsp1. Each
output is put in time with the input by the system's own latency (ours as the library tells it, the
others' measured by cross-correlation), and brought to the pair's rate where a system works at another.

The pairs mix speakers and noise recordings of the held-out split, which training never sees, at SNRs of
-5, 0, 5, 10 and 15 dB. The reference is the speech in its room: a cleaner that takes the room away is
marked down for it. Reverberant pairs are also measured against the speech with its early reflections
(faded out from 35 to 85 ms). Measured were {counts}, of {seconds:g} s each.

- PESQ: wide-band, narrow-band at 8 kHz. STOI, ESTOI: intelligibility, 1 is best. SI-SDR: signal to
  distortion. P.808, OVRL: overall opinion predicted by the two networks of DNSMOS without a reference, 1 to
  5. What the loss of a model held is said on its card; that measure is no independent judge of it.
- cut: share of speech frames (32 ms, within 25 dB of the loud ones) that come out over 12 dB too low.
- pauses: by how many dB the noise is lower in speech pauses.
- lines: share of the pairs with a steady tone in the pauses of the output that input and clean speech
  lack, over -60 dB re speech; the loudest of all. from 0, 1, ... kHz: by how much speech itself comes out
  higher or lower in that octave (the output's least-squares fit to clean speech).
- CPU s/s: CPU seconds per second of audio while {jobs} processes of the evaluation, and whatever else
  runs, share the machine: compare the ratios, not the seconds. Resampling is not counted.
- latency: the audio taken by one call and the lag of the output.

More systems and a careful measurement of cost: [performance-peers.md](performance-peers.md).
"""


def _rows(results: dict) -> list[Row]:
    return [Row(**row) for row in results.get("rows", [])]


def _rates(rows: list[Row]) -> list[int]:
    return sorted({row.rate for row in rows}, key=lambda rate: (rate != work.MAIN_RATE, rate))


def _snr(row: Row) -> str:
    return f"{row.info['snr_db']:g} dB" if "snr_db" in row.info else "unknown"


def _room(row: Row) -> str:
    return {True: "reverberant", False: "dry"}.get(row.info.get("reverberant"), "unknown")


def _labels(rows: list[Row], label, key) -> list[str]:
    return list(dict.fromkeys(label(row) for row in sorted(rows, key=key)))


def _quality(results: dict) -> str:
    rows, parts = _rows(results), []
    models = [Model(**model) for model in results["models"]]
    older = {model.name for model in work.cleaners(models, older=True)}
    for rate in _rates(rows):
        ours = [model.name for model in work.cleaners(models, rate)]
        baseline = ours[0] if ours else ""
        every = [row for row in rows if row.rate == rate]
        here = [row for row in every if row.system not in older]
        parts.append(f"## {rate / 1000:g} kHz\n")
        parts.append(overall(here, results["systems"], baseline))
        parts.append(against(here, ours, "RNNoise"))
        if rate == work.MAIN_RATE:
            parts += [f"{name}: {about['note']}." for name, about in results["systems"].items() if about["note"]]
            parts.append("")
            here = [row for row in here if row.system in (*SHOWN, *ours)]
        ratios = _labels(here, _snr, lambda row: row.info.get("snr_db", 0))
        rooms = _labels(here, _room, lambda row: row.info.get("reverberant", False))
        parts.append(split(here, _snr, ratios, ["pesq", "stoi", "si_sdr", "ovrl"]))
        parts.append(split(here, _room, rooms, ["pesq", "stoi", "si_sdr", "cut"]))
        early = columns([row for row in here if row.info.get("reverberant")], [f"early_{key}" for key in REFERRED])
        parts.append(f"Reverberant pairs against early reflections:\n\n{early}" if early else "")
        keys = ["lines", "line", *(key for key in HEADINGS if key.startswith("from_"))]
        parts.append(f"Lines, and the level of speech by octave:\n\n{columns(here, keys)}")
        previous = [row for row in every if row.system in older]
        if previous:
            chosen = {row.pair for row in previous}
            same = [row for row in every if row.pair in chosen and row.system in ("unprocessed", baseline)]
            parts.append(f"The models of older versions on {len(chosen)} of these pairs:\n")
            parts.append(overall(same + previous, results["systems"], baseline))
    parts.append(_wide(results.get("wide", [])))
    return "\n".join(parts)


def _words(results: dict) -> str:
    counts = results.get("words")
    if not counts:
        return ""
    rows = [[name, f"{100 * wrong / max(said, 1):.1f}"] for name, (wrong, said) in counts.items()]
    return (
        f"## Recognised words\n\nWord errors of pocketsphinx on {results['words_pairs']} of the pairs at 16 kHz, "
        "against the words that it\nfinds in the clean speech. No loss and no choice of a model knows it.\n\n"
        + table(["", "word errors %"], rows)
    )


def _situations(results: dict) -> str:
    clips = results.get("situations")
    if not clips:
        return ""
    names, systems = list(clips[0]), list(clips[0][next(iter(clips[0]))])
    lines = []
    for system in systems:
        values = [[clip[name][system] for clip in clips] for name in names]
        lines.append([system, *(f"{sum(own) / len(own):.1f} / {min(own):.1f}" for own in values)])
    return (
        f"## Noise without speech\n\nBy how many dB it comes out lower, mean / least of {len(clips)} clips at 16 kHz: "
        "steady noise 5 dB below\nspeech from the first sample of a stream on; keystrokes behind the last word; "
        "generated music.\n\n" + table(["", *names], lines)
    )


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
    if not results.get("voice"):
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
        for row in results["voice"]
    ]
    headings = ["", "ROC-AUC", "lag removed", "lag ms", "F1", "best F1", "alarm %", "missed %"]
    headings += ["alarms/min", "misses/min", "onset ms", "CPU s/s"]
    ratios = Counter(results["voice_snr"])
    snr = ", ".join(f"{value:g} ({ratios[value]})" for value in sorted(ratios))
    return f"""## Voice activity

{results["voice_seconds"] / 60:.0f} minutes of held-out speech, about half of it silence between the words,
under noise that changes every 10 s, at 16 kHz; SNR in dB (minutes): {snr}. Labels come from the
clean speech by its level (gaps up to 120 ms closed), every 10 ms; a score counts from the moment its
frame is complete. "lag removed" shifts each detector's scores by the lag that suits it best. F1, shares
and events use each detector's own threshold (ours 0.5; WebRTC: half of its four modes), "best F1" the
best one on these streams. alarm, missed: share of the hops. Events: segments after closing gaps under
200 ms and dropping those under 50 ms. onset: median and 90th percentile of the delay at word starts
after 300 ms of pause.

{table(headings, lines)}
![ROC curves](img/roc.png)
"""


def _segments(results: dict) -> str:
    if not results.get("segments"):
        return ""
    counts = results["segments"]
    minutes = next(iter(counts.values())).seconds / 60.0
    return f"""## Segments

What `orvel vad` prints with its defaults on {minutes:.0f} of these minutes, beside Silero's own segmenter
(package silero-vad, its defaults). precision: share of the segments' time that is labelled as speech;
recall: share of the labelled time that lies inside segments. false: segments without any speech; missed:
stretches of speech that no segment touches. A bound is where speech starts or stops for 300 ms or more;
it is found when a segment's own start or end lies within 500 ms of it. start, end: median error of
these and 90th percentile of its size, positive when late.

{segments.lines(counts)}"""


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
        "## A long stream\n\nOne session gets another speaker, noise, SNR and level (-20 to -45 dBFS)\n"
        "with every piece; beside it each piece alone in a fresh session. Every fourth piece is\n"
        "measured; means over fifths of the stream.\n\n" + table(headings, parts)
    )


def _stress(results: dict) -> str:
    if not results.get("stress"):
        return ""
    models = list(dict.fromkeys(row["model"] for row in results["stress"]))
    found = {(row["model"], row["signal"]): row for row in results["stress"]}
    lines = []
    for signal in dict.fromkeys(row["signal"] for row in results["stress"]):
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
    if results["voice_stress"]:
        cells = [
            [row["signal"], "yes" if row["finite"] else "NO", f"{100 * row['voice']:.1f}"]
            for row in results["voice_stress"]
        ]
        text += "\nThe voice detector on the same signals:\n\n"
        text += table(["", "finite", "called voice %"], cells)
    return text


def text(results: dict) -> str:
    """The report without its opening and pictures."""
    parts = [
        _quality(results),
        _words(results),
        _situations(results),
        _voice(results),
        _segments(results),
        _stream(results),
        _stress(results),
    ]
    return "\n".join(part for part in parts if part)


def write(results: dict, folder: Path, curves: Path) -> Path:
    """Writes quality.md and the pictures in img/ into the folder; tells the page's path."""
    images = folder / "img"
    images.mkdir(parents=True, exist_ok=True)
    heard = {(row.rate, row.pair): row.info for row in _rows(results)}
    counts = ", ".join(
        f"{len(infos)} pairs at {rate / 1000:g} kHz "
        f"({sum(bool(info.get('reverberant')) for info in infos)} reverberant)"
        for rate in _rates(_rows(results))
        if (infos := [info for (own, _), info in heard.items() if own == rate])
    )
    seconds = results.get("seconds", 0.0)
    opening = OPENING.format(seconds=seconds, counts=counts or "no pairs", jobs=results["jobs"])
    parts = [opening, text(results)]
    if results.get("roc"):
        pictures.draw_roc(results["roc"], images / "roc.png")
    if results.get("examples"):
        pictures.draw_examples(results["examples"], images / "spectrograms.png")
        parts.append(
            f"## Spectrograms\n\n{len(results['examples'])} of the pairs at 16 kHz: noisy, cleaned by "
            f"{results['example_model']}, clean.\n\n![Spectrograms](img/spectrograms.png)\n"
        )
    if pictures.draw_curves(curves, images / "learning-curves.png"):
        parts.append(
            "## Learning curves\n\n"
            "Where a stage brings new terms into the loss, or other weights of them, the curve jumps:\n"
            "only what lies between two jumps can be compared.\n\n"
            "![Learning curves](img/learning-curves.png)\n"
        )
    page = folder / "quality.md"
    page.write_text("\n".join(part.rstrip() + "\n" for part in parts))
    return page
