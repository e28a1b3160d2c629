"""Runs a plan: with processes on one machine, or as a Ray Data pipeline."""

from __future__ import annotations

import hashlib
import json
import multiprocessing
import os
import threading
import time
import warnings
from collections import deque
from collections.abc import Iterator
from concurrent.futures import FIRST_COMPLETED, Future, ProcessPoolExecutor, wait
from concurrent.futures.process import BrokenProcessPool
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

from orvel.corpus.journal import Journal, summary, write_lists, write_text
from orvel.corpus.plan import Plan, Unit, make_plan
from orvel.corpus.work import Audio, Result, Task, work_on
from orvel.streams import Cleaner
from orvel.voice import SegmentOptions, VoiceDetector

Done = Iterator[tuple[int, list[Result]]]
RAY_RETRIES = 3  # of a unit whose worker or node dies


@dataclass(frozen=True)
class Options:
    """`group`: recordings that a worker takes at a time. `jobs`: workers, by default one a core. `ray`: the address
    of a Ray cluster, "local" for one on this machine; then `jobs` is left to Ray."""

    task: Task
    group: int = 64
    jobs: int = field(default_factory=lambda: len(os.sched_getaffinity(0)))
    ray: str | None = None
    progress: bool = True


def do_unit(unit: Unit, out: str, task: Task) -> list[Result]:
    """Does one unit; its outputs are in place afterwards. A function of its arguments alone: doing it twice does no
    harm and gives the same files."""
    if unit.shard:
        from orvel.corpus.shards import work_on_shard

        return work_on_shard(unit.items[0], out, task)
    suffix = ".json" if task.name == "vad" else ""
    faults: list[Result] = [{"input": item.source, "error": item.fault} for item in unit.items if item.fault]
    audios = [
        Audio(item.source, item.source, Path(item.target).suffix, Path(out) / (item.target + suffix))
        for item in unit.items
        if not item.fault
    ]
    return faults + work_on(audios, task)


def run(source: str, out: str, options: Options) -> dict[str, Any]:
    """Cleans or scores everything in `source` into `out`, and goes on where an earlier run was ended.

    Both as `python -m orvel.corpus --help` tells; `out` may have an address (s3://...) for shards, journal and
    reports then go to ./NAME.orvel. Writes errors.jsonl and summary.json and returns the summary. Broken inputs end
    up in errors.jsonl and have no output; the next run tries them again. Raises ValueError when there is nothing to
    do or `out` holds another run.
    """
    start = time.monotonic()
    _check(options.task)
    plan = make_plan(source, options.group)
    remote = "://" in out
    if remote and plan.kind != "shards":
        raise ValueError(f"{out}: only shards can go to an address")
    folder = Path(out.rstrip("/").rpartition("/")[2] + ".orvel") if remote else Path(out).absolute()
    digest = hashlib.sha256()
    for unit in plan.units:
        digest.update(_packed(unit).encode())
    settings = {"task": asdict(options.task), "group": options.group, "units": digest.hexdigest()}
    journal = Journal(folder, settings)
    where = out if remote else str(folder)
    todo = {
        number: unit
        for number, unit in enumerate(plan.units)
        if any("error" in result for result in journal.done.get(number, [{"error": ""}]))
    }
    worked: list[Result] = []
    errors = (folder / "errors.jsonl").open("w")
    try:
        with _bar(plan, todo, options.progress) as advance:
            for number, results in (_on_ray if options.ray else _in_processes)(todo, where, options):
                journal.add(number, results)
                worked += results
                for result in results:
                    if "error" in result:
                        print(json.dumps(result), file=errors, flush=True)
                advance(len(plan.units[number].items), results)
    finally:
        journal.close()
        errors.close()
    results = journal.results
    failed = [result for result in results if "error" in result]
    write_text(folder / "errors.jsonl", "".join(json.dumps(result) + "\n" for result in failed))
    write_lists(folder, plan, options.task.name, {result["input"] for result in failed})
    report = summary(results, time.monotonic() - start, worked)
    write_text(folder / "summary.json", json.dumps(report, indent=1) + "\n")
    return report


def _check(task: Task) -> None:
    """Raises ValueError or OrvelError for options that no recording could be worked on with."""
    if task.name == "vad":
        VoiceDetector(16000, model=task.model)
        SegmentOptions(task.threshold)
    else:
        Cleaner(48000, model=task.model, attenuation_limit=task.attenuation_limit)


class _bar:
    """A progress bar over the inputs, with the speed against real time."""

    def __init__(self, plan: Plan, todo: dict[int, Unit], shown: bool) -> None:
        from tqdm import tqdm

        total = sum(len(unit.items) for unit in plan.units)
        done = total - sum(len(unit.items) for unit in todo.values())
        self._bar = tqdm(
            total=total, initial=done, unit="shard" if plan.kind == "shards" else "file", disable=not shown
        )
        self._start, self._seconds = time.monotonic(), 0.0

    def __enter__(self) -> Any:
        return self._advance

    def __exit__(self, *unused: object) -> None:
        self._bar.close()

    def _advance(self, items: int, results: list[Result]) -> None:
        self._seconds += sum(result.get("seconds", 0.0) for result in results)
        self._bar.set_postfix_str(f"{self._seconds / (time.monotonic() - self._start):.0f} x real time", refresh=False)
        self._bar.update(items)


def _in_processes(todo: dict[int, Unit], out: str, options: Options) -> Done:
    """Units in worker processes. When a worker dies, its unit and those beside it are done again one by one, in
    a worker each; what kills that one, too, is a fault of the input."""
    suspects = deque[tuple[int, Unit]]()
    waiting = deque(todo.items())
    while waiting:
        running: dict[Future[list[Result]], tuple[int, Unit]] = {}
        with _pool(options.jobs) as pool:
            try:
                while waiting or running:
                    while waiting and len(running) < options.jobs + 1:
                        number, unit = waiting.popleft()
                        running[pool.submit(do_unit, unit, out, options.task)] = number, unit
                    for future in wait(running, return_when=FIRST_COMPLETED).done:
                        results = future.result()
                        yield running.pop(future)[0], results
            except BrokenProcessPool:
                suspects.extend(running.values())
    for number, unit in suspects:
        yield number, _alone(unit, out, options)


def _alone(unit: Unit, out: str, options: Options) -> list[Result]:
    """A unit in a worker of its own; of one that kills it every item by itself."""
    try:
        with _pool(1) as pool:
            return pool.submit(do_unit, unit, out, options.task).result()
    except BrokenProcessPool:
        if len(unit.items) == 1:
            return [_deadly(unit)]
    return [result for single in _singles(unit) for result in _alone(single, out, options)]


def _singles(unit: Unit) -> list[Unit]:
    return [Unit((item,), unit.shard) for item in unit.items]


def _deadly(unit: Unit) -> Result:
    return {"input": unit.items[0].source, "error": "the worker process died of it"}


def _pool(jobs: int) -> ProcessPoolExecutor:
    return ProcessPoolExecutor(jobs, multiprocessing.get_context("spawn"), _end_with, (os.getpid(),))


def _end_with(parent: int) -> None:
    """A worker whose parent is killed ends, too, before another run begins to write."""

    def watch() -> None:
        while os.getppid() == parent:
            time.sleep(0.2)
        os._exit(1)

    threading.Thread(target=watch, daemon=True).start()


def _on_ray(todo: dict[int, Unit], out: str, options: Options) -> Done:
    """Units as rows of a Ray dataset. Ray schedules them and repeats those whose worker or node dies; what it gives
    up comes again with every item by itself."""
    import ray

    own = not ray.is_initialized()
    ray.init(address=options.ray, ignore_reinit_error=True, log_to_driver=False)
    try:
        context = ray.data.DataContext.get_current()
        context.enable_progress_bars, context.max_errored_blocks = False, -1
        left = dict(todo)
        for number, results in _dataset(left, out, options.task):
            del left[number]
            yield number, results
        for number, unit in left.items():
            singles = dict(enumerate(_singles(unit)))
            found = dict(_dataset(singles, out, options.task)) if len(singles) > 1 else {}
            yield number, [result for at, one in singles.items() for result in found.get(at, [_deadly(one)])]
    finally:
        if own:
            ray.shutdown()  # prints what its nodes still report


def _dataset(units: dict[int, Unit], out: str, task: Task) -> Done:
    from ray.data import from_items

    fields = asdict(task)

    def transform(row: dict[str, Any]) -> dict[str, Any]:
        results = do_unit(_unpacked(row["unit"]), out, Task(**fields))
        return {"number": row["number"], "results": json.dumps(results)}

    rows = [{"number": number, "unit": _packed(unit)} for number, unit in units.items()]
    if not rows:
        return
    # A block for each unit: what is lost with a node is done again, and nothing else.
    dataset = from_items(rows, override_num_blocks=len(rows))
    retries = {"max_retries": RAY_RETRIES}
    with warnings.catch_warnings():  # Ray has no other way yet to bound them
        warnings.simplefilter("ignore", DeprecationWarning)
        done = dataset.map(transform, num_cpus=1, ray_remote_args_fn=lambda: retries)
    for row in done.iter_rows():
        yield row["number"], json.loads(row["results"])


def _packed(unit: Unit) -> str:
    return json.dumps(asdict(unit))


def _unpacked(text: str) -> Unit:
    from orvel.corpus.plan import Item

    fields = json.loads(text)
    return Unit(tuple(Item(**item) for item in fields["items"]), fields["shard"])
