"""WebDataset shards: tar files whose consecutive members with one stem are a sample."""

from __future__ import annotations

import io
import shutil
import tarfile
import tempfile
from collections.abc import Callable, Iterator
from pathlib import Path, PurePosixPath
from typing import Any

import fsspec

from orvel.corpus.plan import SUFFIXES, Item
from orvel.corpus.work import Audio, Result, Task, work_on
from orvel.recordings import pending

Member = tuple[tarfile.TarInfo, bytes]
MOST_HELD = 64 << 20  # bytes of samples in memory at a time


def work_on_shard(item: Item, out: str, task: Task) -> list[Result]:
    """Reads a shard and writes it anew below `out`; results as `work_on`, named SHARD:MEMBER.

    `clean`: every recording is replaced, everything else copied. `vad`: a sample has its KEY.vad.json alone. A
    sample with a broken recording is left out. The shard is complete or absent; for stores with an address it
    is written to a temporary file and put in place by fsspec.
    """
    results: list[Result] = []
    try:
        with fsspec.open(item.source, "rb") as source, tarfile.open(fileobj=source, mode="r|*") as shard:
            _place(out, item.target, lambda target: results.extend(_rewrite(shard, target, item, task)))
    except Exception as error:
        return [{"input": item.source, "error": f"{type(error).__name__}: {error}"}]
    return results


def _place(out: str, name: str, write: Callable[[Any], None]) -> None:
    fs, root = fsspec.core.url_to_fs(out)
    if "file" in (fs.protocol if isinstance(fs.protocol, tuple) else (fs.protocol,)):
        path = Path(root) / name
        path.parent.mkdir(parents=True, exist_ok=True)
        with pending(path) as part, part.open("wb") as target:
            write(target)
        return
    with tempfile.TemporaryFile() as target:
        write(target)
        target.seek(0)
        with fs.open(f"{root.rstrip('/')}/{name}", "wb") as remote:
            shutil.copyfileobj(target, remote, 1 << 20)


def _rewrite(shard: tarfile.TarFile, target: Any, item: Item, task: Task) -> list[Result]:
    results: list[Result] = []
    with tarfile.open(fileobj=target, mode="w|") as out:
        batch: list[list[Member]] = []
        held = 0
        for sample in _samples(shard):
            batch.append(sample)
            held += sum(info.size for info, _ in sample)
            if len(batch) == task.batch or held > MOST_HELD:
                results += _write(out, batch, item, task)
                batch, held = [], 0
        results += _write(out, batch, item, task)
    return results


def _key(name: str) -> str:
    return str(PurePosixPath(name).with_name(PurePosixPath(name).name.partition(".")[0]))


def _samples(shard: tarfile.TarFile) -> Iterator[list[Member]]:
    sample: list[Member] = []
    for info in shard:
        if not info.isfile():
            continue
        content = shard.extractfile(info)
        assert content is not None
        if sample and _key(sample[0][0].name) != _key(info.name):
            yield sample
            sample = []
        sample.append((info, content.read()))
    if sample:
        yield sample


def _is_audio(info: tarfile.TarInfo) -> bool:
    return PurePosixPath(info.name).suffix.lower() in SUFFIXES


def _write(out: tarfile.TarFile, batch: list[list[Member]], item: Item, task: Task) -> list[Result]:
    sinks: dict[str, io.BytesIO] = {}
    audios = []
    for info, content in (member for sample in batch for member in sample if _is_audio(member[0])):
        sinks[info.name] = io.BytesIO()
        name = f"{item.source}:{info.name}"
        audios.append(Audio(name, io.BytesIO(content), PurePosixPath(info.name).suffix, sinks[info.name]))
    results = work_on(audios, task)
    broken = {result["input"] for result in results if "error" in result}
    for sample in batch:
        if any(f"{item.source}:{info.name}" in broken for info, _ in sample):
            continue
        for info, content in sample:
            if task.name == "vad" and not _is_audio(info):
                continue
            if info.name in sinks:
                content = sinks[info.name].getvalue()
            if task.name == "vad":
                info.name = f"{_key(info.name)}.vad.json"
            info.size = len(content)
            out.addfile(info, io.BytesIO(content))
    return results
