"""Segments of speech that the command prints, and Silero's, against labels.

    python -m evaluation.segments --data DIR                    # the report's minutes
    python -m evaluation.segments --streams DIR -- --threshold 0.6 --min-silence 200

What follows `--` goes to `orvel vad`. Any folder of NNN_noisy.wav and NNN_clean.wav will do. Settings are
better chosen on other minutes than the report's: with another `--seed` the same recordings are mixed anew.
Labels come from the clean wave (`evaluation.voice.labels_of`).
"""

import json
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field
from functools import cache
from importlib.util import find_spec
from pathlib import Path
from types import ModuleType

import numpy as np
import soundfile

from evaluation import options
from evaluation.pairs import SEED, Pair, list_pairs, make_streams
from evaluation.quality import number, table
from evaluation.voice import HOPS_PER_SECOND, labels_of
from training.labels import runs

BREAK = 0.3  # seconds without speech that make a start or an end
NEAR = 0.5  # a start or end farther away than this is another one

Intervals = list[tuple[float, float]]


@dataclass
class Counts:
    """What was counted over one or more streams; times and errors in seconds, late errors positive."""

    seconds: float = 0.0
    found: float = 0.0  # time inside found segments
    speech: float = 0.0  # time labelled as speech
    shared: float = 0.0  # both
    segments: int = 0
    false_segments: int = 0  # found segments without any speech inside
    missed: int = 0  # stretches of speech that no segment touches
    breaks: int = 0  # starts, and as many ends
    start_errors: list[float] = field(default_factory=list)
    end_errors: list[float] = field(default_factory=list)

    def __add__(self, other: "Counts") -> "Counts":
        return Counts(*(mine + theirs for mine, theirs in zip(vars(self).values(), vars(other).values())))


def joined(intervals: Intervals, gap: float = 0.0) -> Intervals:
    """The intervals in order; those that overlap or lie less than `gap` apart become one."""
    out: Intervals = []
    for begin, end in sorted(intervals):
        if out and (begin <= out[-1][1] or begin - out[-1][1] < gap - 1e-9):
            out[-1] = (out[-1][0], max(end, out[-1][1]))
        else:
            out.append((begin, end))
    return out


def overlap(intervals: Intervals, others: Intervals) -> float:
    """Time that lies in both lists, each without overlaps in itself."""
    return sum(max(0.0, min(b, d) - max(a, c)) for a, b in intervals for c, d in others)


def errors(found: list[float], true: list[float]) -> list[float]:
    """found - true of all pairs that are each other's nearest and no more than NEAR apart."""
    if not found or not true:
        return []
    distance = np.subtract.outer(np.array(found), np.array(true))
    nearest_true, nearest_found = np.abs(distance).argmin(axis=1), np.abs(distance).argmin(axis=0)
    pairs = [(row, column) for column, row in enumerate(nearest_found) if nearest_true[row] == column]
    return [float(distance[pair]) for pair in pairs if abs(distance[pair]) <= NEAR]


def compare(found: Intervals, labels: np.ndarray) -> Counts:
    """One stream's segments, in seconds, against its labels, one for each 10 ms."""
    found = joined(found)
    speech = [(begin / HOPS_PER_SECOND, end / HOPS_PER_SECOND) for begin, end in runs(labels)]
    stretches = joined(speech, BREAK)
    length = len(labels) / HOPS_PER_SECOND
    # Where the recording itself begins or ends inside speech nothing starts or stops.
    starts = [begin for begin, _ in stretches if begin > 0.0]
    ends = [end for _, end in stretches if end < length]
    return Counts(
        seconds=length,
        found=sum(end - begin for begin, end in found),
        speech=sum(end - begin for begin, end in speech),
        shared=overlap(found, speech),
        segments=len(found),
        false_segments=sum(overlap([one], speech) <= 0.0 for one in found),
        missed=sum(overlap(found, [one]) <= 0.0 for one in stretches),
        breaks=len(starts) + len(ends),
        start_errors=errors([begin for begin, _ in found], starts),
        end_errors=errors([end for _, end in found], ends),
    )


def orvel_segments(command: Path, sound: Path, options: list[str] | None = None) -> Intervals:
    """What `orvel vad --json` prints for a sound file; raises RuntimeError with the command's words."""
    run = subprocess.run(
        [command, "vad", "--json", *(options or []), sound], capture_output=True, text=True, check=False
    )
    if run.returncode:
        raise RuntimeError(f"{command} vad: exit code {run.returncode}: {run.stderr.strip()}")
    return [(segment["start"], segment["end"]) for segment in json.loads(run.stdout)["segments"]]


@cache
def _silero():
    # The segmenter and its network need numpy and onnxruntime alone, but the package imports torch at
    # once: where that is missing, an empty module stands in for it during the import.
    missing = find_spec("torch") is None
    if missing:
        from unittest.mock import MagicMock

        sys.modules["torch"] = stand_in = ModuleType("torch")
        stand_in.__getattr__ = lambda name: MagicMock()  # type: ignore[method-assign]
    try:
        import silero_vad
        import silero_vad.sequence_vad
    finally:
        if missing:
            del sys.modules["torch"]
    return silero_vad, silero_vad.load_silero_vad(sequence=True)


def silero_segments(wave: np.ndarray, rate: int) -> Intervals:
    """Silero's own segments with its defaults (package silero-vad), of a wave at 16 kHz."""
    package, network = _silero()
    found = package.get_speech_timestamps_sequence(np.asarray(wave, np.float32), network, sampling_rate=rate)
    return [(segment["start"] / rate, segment["end"] / rate) for segment in found]


def count_stream(pair: Pair, command: Path, options: list[str] | None = None, peers: bool = True) -> dict[str, Counts]:
    """One stream through the command and, with `peers`, through Silero's segmenter."""
    labels = labels_of(pair.clean, pair.rate)
    with tempfile.NamedTemporaryFile(suffix=".wav") as file:
        soundfile.write(file.name, pair.noisy, pair.rate, subtype="PCM_16")
        counts = {"orvel vad": compare(orvel_segments(command, Path(file.name), options), labels)}
    if peers:
        counts["Silero"] = compare(silero_segments(pair.noisy, pair.rate), labels)
    return counts


def total(streams: list[dict[str, Counts]]) -> dict[str, Counts]:
    """The sums over all streams by system."""
    return {name: sum((stream[name] for stream in streams), Counts()) for name in streams[0]}


def lines(counts: dict[str, Counts]) -> str:
    """The table of the report."""
    rows = []
    for name, c in counts.items():
        precision, recall = c.shared / max(c.found, 1e-9), c.shared / max(c.speech, 1e-9)
        minutes = c.seconds / 60.0
        cells = [f"{precision:.3f}", f"{recall:.3f}", f"{2.0 * c.shared / max(c.found + c.speech, 1e-9):.3f}"]
        cells += [f"{value / minutes:.1f}" for value in (c.segments, c.false_segments, c.missed)]
        cells.append(f"{100.0 * (len(c.start_errors) + len(c.end_errors)) / max(c.breaks, 1):.0f}")
        for each in (c.start_errors, c.end_errors):
            milliseconds = 1000.0 * np.array(each or [np.nan])
            high = number(np.percentile(np.abs(milliseconds), 90), "{:.0f}")
            cells.append(f"{number(np.median(milliseconds), '{:+.0f}')} / {high}")
        rows.append([name, *cells])
    headings = ["", "precision", "recall", "F1", "segments/min", "false/min", "missed/min"]
    return table([*headings, "bounds found %", "start ms", "end ms"], rows)


def main() -> None:
    """Parses the options, runs and prints the table."""
    shared = ("--data", "--command", "--scratch", "--jobs")
    parser = options.parser("evaluation.segments", __doc__.splitlines()[0], *shared)
    add = parser.add_argument
    add("--streams", type=Path, help="folder of NNN_noisy.wav and NNN_clean.wav at 16 kHz; default: made from --data")
    add("--seed", type=int, default=SEED, help="of the streams made from --data")
    add("--no-peers", action="store_true", help="leave out Silero")
    add("options", nargs="*", help="options for `orvel vad`, after --")
    chosen = parser.parse_args()
    if chosen.streams is None and chosen.data is None:
        parser.error("name the recordings with --data, or ready streams with --streams")
    task = lambda files: count_stream(files.load(), chosen.command, chosen.options, not chosen.no_peers)  # noqa: E731
    try:
        folder = chosen.streams or make_streams(chosen.data, chosen.scratch, chosen.seed)
        with ThreadPoolExecutor(chosen.jobs) as pool:
            streams = list(pool.map(task, list_pairs(folder)))
    except (OSError, ValueError, RuntimeError) as error:
        sys.exit(f"segments: {error}")
    print(lines(total(streams)))


if __name__ == "__main__":
    main()
