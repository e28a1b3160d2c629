"""Hands out the tasks of an evaluation to processes and collects their results."""

from __future__ import annotations

import multiprocessing
import time
from collections.abc import Iterable
from concurrent.futures import Future, ProcessPoolExecutor
from dataclasses import dataclass
from pathlib import Path

from evaluation import quality, voice_summary, work
from evaluation.pairs import PairFiles, list_pairs, make_pairs, make_streams

RATES = (16000, 8000, 32000)
EXAMPLES = 10
WIDE_CLIPS = 12
FEEDFORWARD_SHARE = 3  # the older versions are measured on every third clip


@dataclass(frozen=True)
class Settings:
    """What to measure with; times in seconds."""

    library: Path
    models: Path
    data: Path
    pairs: list[Path]
    scratch: Path
    clips: int
    seconds: float
    streams: int
    long: float
    jobs: int
    minutes: float
    sections: frozenset[str]


def pair_sets(settings: Settings) -> dict[int, list[PairFiles]]:
    """Pairs by rate: the given folders, or mixes of the held-out recordings."""
    if settings.pairs:
        listed = [list_pairs(folder) for folder in settings.pairs]
        return {files[0].load().rate: quality.spread(files, settings.clips) for files in listed}
    names = work.models_in(settings.models)
    wanted = {work.rate_of(name) for name in names if name != work.VOICE_MODEL}
    sets = {}
    for rate in (rate for rate in RATES if rate in wanted):
        count = settings.clips if rate == work.MAIN_RATE else -(-settings.clips // 2)
        folder = make_pairs(settings.data, settings.scratch, rate, 60, settings.seconds)
        sets[rate] = quality.spread(list_pairs(folder), count)
    return sets


def _flat(futures: Iterable[Future]) -> list:
    return [item for future in futures for item in future.result()]


def quality_tasks(sets: dict[int, list[PairFiles]], models: list[str]) -> list[tuple]:
    """Arguments of `submit` for all pairs, the rates evenly mixed so that an early end is fair."""
    placed = []
    for files in sets.values():
        for index, pair in enumerate(files):
            placed.append((index / len(files), (work.pair_task, pair, files[0], True)))
    if any(name.startswith("orvel-ff") for name in models):
        files = sets.get(work.MAIN_RATE, [])
        for index in range(0, len(files), FEEDFORWARD_SHARE):
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
        print(f"{done} of {len(pairs)} clips, {time.monotonic() - started:.0f} s", flush=True)
    return rows, systems


def measure_all(settings: Settings) -> dict:
    """The results of every section asked for; `roc` and `examples` hold arrays for pictures."""
    sets = pair_sets(settings)
    names = work.models_in(settings.models)
    cleaners = [name for name in names if name != work.VOICE_MODEL]
    recurrent = [name for name in cleaners if not name.startswith("orvel-ff")]
    wants = settings.sections.__contains__
    main = sets.get(work.MAIN_RATE, [])
    results: dict = {"models": names, "jobs": settings.jobs}
    context = multiprocessing.get_context("spawn")
    with ProcessPoolExecutor(
        settings.jobs, context, work.open_workshop, (settings.library, settings.models)
    ) as pool:
        submit = pool.submit
        if wants("quality"):
            pairs = [submit(*task) for task in quality_tasks(sets, names)]
            wide = sets.get(32000, [])
            wide = [submit(work.wide_band_task, f, wide[0]) for f in wide[:WIDE_CLIPS]]
        if wants("pictures") and "orvel-16k" in names:
            examples = [submit(work.example_task, f, "orvel-16k") for f in main[:EXAMPLES]]
        if wants("voice"):
            folder = make_streams(settings.data, settings.scratch)
            chosen = quality.spread(list_pairs(folder), settings.streams)
            voiced = [submit(work.voice_task, f) for f in chosen]
            results["voice_snr"] = [f.info["snr_db"] for f in chosen]
        if wants("stress"):
            stressed = [submit(work.stress_task, name) for name in cleaners]
            detectors = [name for name in names if name == work.VOICE_MODEL]
            spoken = [submit(work.voice_stress_task, name) for name in detectors]
        if wants("stream"):
            long = {
                name: submit(work.changing_task, name, sets[work.rate_of(name)], settings.long)
                for name in recurrent
                if work.rate_of(name) in sets
            }

        if wants("quality"):
            rows, systems = collect(pairs, settings.minutes * 60.0)
            results |= {"rows": rows, "systems": systems, "seconds": settings.seconds}
            results["wide"] = _flat(wide)
        if wants("pictures"):
            results["examples"] = [future.result() for future in examples]
        if wants("voice"):
            streams = [future.result() for future in voiced]
            results["voice"], results["roc"] = voice_summary.summarise(streams)
            results["voice_seconds"] = sum(stream["seconds"] for stream in streams)
        if wants("stress"):
            results |= {"stress": _flat(stressed), "voice_stress": _flat(spoken)}
        if wants("stream"):
            results["long"] = {name: future.result() for name, future in long.items()}
    return results
