"""Hands out the tasks of an evaluation to processes and collects their results."""

from __future__ import annotations

import multiprocessing
import threading
import time
from collections.abc import Callable, Iterable, Iterator
from concurrent.futures import Future, ProcessPoolExecutor
from contextlib import contextmanager
from dataclasses import asdict, dataclass
from pathlib import Path

from evaluation import quality, segments, voice, work
from evaluation.pairs import PAIRS, PairFiles, list_pairs, make_pairs, make_streams
from orvel import Model
from training.corpus import list_files

EXAMPLES = 10
WIDE_CLIPS = 12
WORD_PAIRS = 20
SITUATION_CLIPS = 12
OLDER_SHARE = 3  # older versions are measured on every third clip
SECONDS_BETWEEN_LINES = 5.0


@dataclass(frozen=True)
class Settings:
    """What to measure with; times in seconds."""

    library: Path
    models: Path
    command: Path
    data: Path | None
    pairs: list[Path]
    scratch: Path
    clips: int
    seconds: float
    streams: int
    long: float
    jobs: int
    minutes: float
    sections: frozenset[str]


def check(settings: Settings) -> list[Model]:
    """The models to measure. Raises OSError, ValueError or OrvelError when something needed is missing."""
    with work.open_library(settings.library, settings.models) as library:
        models = library.models()
    if not settings.command.exists():
        raise FileNotFoundError(f"no command {settings.command}: build it with `make build`")
    for folder in settings.pairs:
        list_pairs(folder)
    if settings.data is not None:
        list_files(settings.data)
    elif not settings.pairs or settings.sections & {"voice", "segments"}:
        raise ValueError("no recordings to mix from: name their folder with --data (make evaluate DATA=folder)")
    return models


class Progress:
    """A line now and then about how many tasks are done; the first one at once."""

    def __init__(self, say: Callable[[str], None]):
        self.say, self.started, self.said = say, time.monotonic(), 0.0
        self.done = self.all = 0
        self.lock = threading.Lock()

    def watch(self, future: Future) -> Future:
        """Counts the future now and when it is done."""
        with self.lock:
            self.all += 1
        future.add_done_callback(self._step)
        return future

    def _step(self, _future: Future) -> None:
        with self.lock:
            self.done += 1
            now = time.monotonic()
            if now - self.said < SECONDS_BETWEEN_LINES:
                return
            self.said = now
            self.say(f"{self.done} of {self.all} tasks, {now - self.started:.0f} s")


def pair_sets(settings: Settings, models: list[Model], say: Callable[[str], None]) -> dict[int, list[PairFiles]]:
    """Pairs by rate: the given folders, or mixes of the held-out recordings."""
    if settings.pairs:
        listed = [list_pairs(folder) for folder in settings.pairs]
        return {files[0].load().rate: quality.spread(files, settings.clips) for files in listed}
    sets = {}
    rates = {model.rate for model in work.cleaners(models)}
    for rate in sorted(rates, key=lambda rate: (rate != work.MAIN_RATE, rate)):
        count = settings.clips if rate == work.MAIN_RATE else -(-settings.clips // 2)
        say(f"pairs at {rate} Hz")
        folder = make_pairs(settings.data, settings.scratch, rate, PAIRS, settings.seconds)
        sets[rate] = quality.spread(list_pairs(folder), count)
    return sets


@contextmanager
def _cancelling(pool: ProcessPoolExecutor) -> Iterator[ProcessPoolExecutor]:
    """A pool whose processes end after the tasks at hand when the body fails, not after all of them."""
    try:
        yield pool
    finally:
        pool.shutdown(cancel_futures=True)


def _flat(futures: Iterable[Future]) -> list:
    return [item for future in futures for item in future.result()]


def quality_tasks(sets: dict[int, list[PairFiles]], models: list[Model]) -> list[tuple]:
    """Arguments of `submit` for all pairs, the rates evenly mixed so that an early end is fair."""
    placed = []
    for rate, files in sets.items():
        for index, pair in enumerate(files):
            placed.append((index / len(files), (work.pair_task, pair, files[0], True)))
        if work.cleaners(models, rate, older=True):
            for index in range(0, len(files), OLDER_SHARE):
                placed.append((index / len(files), (work.pair_task, files[index], files[0], False)))
    return [task for _, task in sorted(placed, key=lambda item: item[0])]


def collect(pairs: list[Future], limit: float) -> tuple[list[dict], dict]:
    """Rows and facts of the systems from all pairs that are done, or begun, within `limit` seconds."""
    started = time.monotonic()
    rows, systems = [], {}
    for done, future in enumerate(pairs, 1):
        if time.monotonic() - started > limit:
            # All at once: while one is waited for, the processes would begin the next ones.
            for waiting in pairs[done - 1 :]:
                waiting.cancel()
        if future.cancelled():
            continue
        part = future.result()
        rows += part["rows"]
        for name, about in part["systems"].items():
            systems.setdefault(name, about)
    return rows, systems


def add_counts(parts: list[dict[str, tuple[int, int]]]) -> dict[str, tuple[int, int]]:
    """Sums by system."""
    names = dict.fromkeys(name for part in parts for name in part)
    return {name: tuple(map(sum, zip(*(part[name] for part in parts if name in part)))) for name in names}


def measure_all(settings: Settings, models: list[Model], say: Callable[[str], None]) -> dict:
    """The results of every section asked for; `roc` and `examples` hold arrays for pictures."""
    wants = settings.sections.__contains__
    needs_pairs = settings.sections & {"quality", "words", "situations", "pictures", "stream"}
    sets = pair_sets(settings, models, say) if needs_pairs else {}
    main = sets.get(work.MAIN_RATE, [])
    current, older = work.cleaners(models), work.cleaners(models, older=True)
    results: dict = {"models": [asdict(model) for model in models], "jobs": settings.jobs}
    chosen = []
    if wants("voice") or wants("segments"):
        say("streams for the voice detectors")
        folder = make_streams(settings.data, settings.scratch)
        chosen = quality.spread(list_pairs(folder), settings.streams)
    context = multiprocessing.get_context("spawn")
    workshop = (settings.library, settings.models, settings.command)
    with _cancelling(ProcessPoolExecutor(settings.jobs, context, work.open_workshop, workshop)) as pool:
        progress = Progress(say)
        submit = lambda *task: progress.watch(pool.submit(*task))  # noqa: E731
        if wants("quality"):
            pairs = [submit(*task) for task in quality_tasks(sets, models)]
            wide = next((files for rate, files in sets.items() if rate > work.MAIN_RATE), [])
            wide = [submit(work.wide_band_task, f, wide[0]) for f in wide[:WIDE_CLIPS]]
        if wants("words"):
            heard = [submit(work.words_task, f, main[0]) for f in main[:WORD_PAIRS]]
        if wants("situations"):
            situated = [submit(work.situations_task, f, main[0], i) for i, f in enumerate(main[:SITUATION_CLIPS])]
        if wants("pictures"):
            ours = [model.name for model in current if model.rate == work.MAIN_RATE][:1]
            examples = [submit(work.example_task, f, name) for name in ours for f in main[:EXAMPLES]]
        if wants("voice"):
            voiced = [submit(work.voice_task, f) for f in chosen]
        if wants("segments"):
            segmented = [submit(work.segments_task, f) for f in chosen]
        if wants("stress"):
            stressed = [submit(work.stress_task, model.name) for model in [*current, *older]]
            spoken = [submit(work.voice_stress_task, model.name) for model in work.detectors(models)]
        if wants("stream"):
            long = {
                model.name: submit(work.changing_task, model.name, sets[model.rate], settings.long)
                for model in current
                if model.rate in sets
            }
        say(f"{progress.all} tasks in {settings.jobs} processes")

        if wants("quality"):
            rows, systems = collect(pairs, settings.minutes * 60.0)
            results |= {"rows": rows, "systems": systems, "seconds": settings.seconds}
            results["wide"] = _flat(wide)
        if wants("words"):
            results |= {"words": add_counts([future.result() for future in heard]), "words_pairs": len(heard)}
        if wants("situations"):
            results["situations"] = [future.result() for future in situated]
        if wants("pictures"):
            results["examples"] = [future.result() for future in examples]
            results["example_model"] = ", ".join(ours)
        if wants("voice"):
            streams = [future.result() for future in voiced]
            results["voice"], results["roc"] = voice.summarise(streams)
            results["voice_seconds"] = sum(stream["seconds"] for stream in streams)
            results["voice_snr"] = [f.info.get("snr_db", float("nan")) for f in chosen]
        if wants("segments"):
            results["segments"] = segments.total([future.result() for future in segmented])
        if wants("stress"):
            results |= {"stress": _flat(stressed), "voice_stress": _flat(spoken)}
        if wants("stream"):
            results["long"] = {name: future.result() for name, future in long.items()}
    return results
