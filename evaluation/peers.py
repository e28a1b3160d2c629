"""Measures cost, memory, latency and quality beside other systems and writes a page.

Every system lives in a process of its own, all pinned to the same core, and the clips go round-robin:
each clip through every system before the next one, so that whatever else the machine does affects all of
them alike. The page goes to build/evaluation; --write puts it into docs/. With the defaults it takes some
ten minutes.
"""

import argparse
import multiprocessing
import os
import sys
import traceback
from pathlib import Path

import numpy as np

from evaluation import ROOT, options, voice, work
from evaluation.detectors import OrvelDetector, RNNoiseDetector, SileroDetector, TenDetector, WebRTCDetector
from evaluation.networks import GTCRN, DeepFilterNet, NSNet2
from evaluation.pairs import PAIRS, Pair, list_pairs, make_pairs, make_streams
from evaluation.quality import number, spread, table
from evaluation.suppressors import Orvel, RNNoise, Speex, WebRTC
from orvel import Library, OrvelError
from training import measures
from training.corpus import list_files

RATE = work.MAIN_RATE
OTHER_CLEANERS = {
    "RNNoise": RNNoise,
    "WebRTC NS": WebRTC,
    "SpeexDSP": lambda: Speex(RATE),
    "NSNet2": NSNet2,
    "GTCRN": GTCRN,
    "DeepFilterNet 3": DeepFilterNet,
}
OTHER_DETECTORS = {
    "RNNoise": RNNoiseDetector,
    "Silero": SileroDetector,
    "TEN VAD": TenDetector,
    "WebRTC VAD": WebRTCDetector,
}


def memory_kib(field: str) -> int:
    """A memory figure of this process, such as VmHWM, the highest resident size so far."""
    for line in Path("/proc/self/status").read_text().splitlines():
        if line.startswith(field + ":"):
            return int(line.split()[1])
    raise OSError(f"/proc/self/status has no {field}")


def make(kind: str, name: str, library: Path, models: Path):
    """The system called `name`: one of our models, or one of the others."""
    others = OTHER_CLEANERS if kind == "cleaner" else OTHER_DETECTORS
    if name in others:
        return others[name]()
    opened = Library(models, file=library)
    opened.load(name)
    return Orvel(opened, name, RATE) if kind == "cleaner" else OrvelDetector(opened, name)


def serve(pipe, kind: str, name: str, core: int, library: Path, models: Path) -> None:
    """One system's process: answers every wave with (output, CPU seconds) until None comes."""
    work.end_with_parent()
    try:
        os.sched_setaffinity(0, {core})
        before = memory_kib("VmRSS")
        system = make(kind, name, library, models)
        speech = pipe.recv()
        if kind == "cleaner":
            system.calibrate(speech, RATE)
            pipe.send(system.latency_ms)
        else:
            system.scores(speech)
            pipe.send(float(system.frame_ms))
        while (wave := pipe.recv()) is not None:
            start = system.cpu_seconds
            out = system.clean_file(wave, RATE) if kind == "cleaner" else system.scores(wave)
            pipe.send((out, system.cpu_seconds - start))
        pipe.send(memory_kib("VmHWM") - before)
    except Exception:  # the parent decides; without an answer it would wait for ever
        pipe.send(traceback.format_exc())


def ask(pipe, name: str, wave: np.ndarray | None):
    """A system's answer to a wave; raises RuntimeError with its traceback when it failed."""
    try:
        pipe.send(wave)
    except ConnectionError:  # its last words are still to be read
        pass
    try:
        got = pipe.recv()
    except (EOFError, ConnectionError):
        raise RuntimeError(f"{name} ended without a word") from None
    if isinstance(got, str):
        raise RuntimeError(f"{name} failed:\n{got}")
    return got


def round_robin(kind: str, names: list[str], pairs: list[Pair], core: int, where: tuple) -> dict:
    """Every clip through every system in turn; outputs, CPU seconds, latency and memory by name."""
    context = multiprocessing.get_context("spawn")
    pipes, processes, results = {}, [], {}
    for name in names:
        pipes[name], child = context.Pipe()
        process = context.Process(target=serve, args=(child, kind, name, core, *where), daemon=True)
        process.start()
        child.close()  # so that the end of the process is noticed here
        processes.append(process)
        results[name] = {"latency": ask(pipes[name], name, pairs[0].clean), "cpu": [], "outputs": []}
    for number_of, pair in enumerate(pairs, 1):
        for name in names:
            out, cpu = ask(pipes[name], name, pair.noisy)
            results[name]["outputs"].append(out)
            results[name]["cpu"].append(cpu)
        print(f"{kind}s: {number_of} of {len(pairs)} clips", flush=True)
    for name in names:
        results[name]["memory"] = ask(pipes[name], name, None) / 1024.0
    for process in processes:
        process.join()
    return results


def lines_of(results: dict, pairs: list[Pair], baseline: str, quality: dict[str, list[str]]) -> list:
    """Table lines: CPU, ratio to the baseline, its spread over the clips, memory, latency, quality."""
    seconds = np.array([len(pair.noisy) / pair.rate for pair in pairs])
    unit = np.array(results[baseline]["cpu"]) / seconds
    lines = []
    for name, result in results.items():
        own = np.array(result["cpu"]) / seconds
        ratios = own / unit
        low, high = np.percentile(ratios, [10, 90])
        lines.append(
            [
                name,
                f"{own.mean():.5f}",
                f"{own.mean() / unit.mean():.2f}",
                f"{low:.2f} – {high:.2f}",
                f"{result['memory']:.0f}",
                f"{result['latency']:.0f}",
                *quality[name],
            ]
        )
    return lines


def cleaner_quality(outputs: list[np.ndarray], pairs: list[Pair]) -> list[str]:
    """PESQ, STOI and SI-SDR as text."""
    rate = pairs[0].rate
    each = [
        (measures.pesq(o, p.clean, rate), measures.stoi(o, p.clean, rate), measures.si_sdr(o, p.clean))
        for o, p in zip(outputs, pairs)
    ]
    means = np.nanmean(np.array(each), axis=0)
    return [number(m, form) for m, form in zip(means, ("{:.2f}", "{:.3f}", "{:.1f}"))]


def detector_quality(outputs: list[np.ndarray], pairs: list[Pair]) -> list[str]:
    """ROC-AUC as text."""
    labels = np.concatenate([voice.labels_of(p.clean, p.rate)[: len(o)] for o, p in zip(outputs, pairs)])
    return [f"{voice.auc(np.concatenate(outputs), labels):.4f}"]


TEXT = """# Cost beside other systems

Written by `make bench-peers ARGS=--write`, all figures from one run: {clips} held-out noisy clips of {seconds:g} s and
{streams} minutes for the detectors, 16 kHz, each clip through every system in turn, each system in a
process of its own on one thread, all on the same core. The machine was {load}; compare the ratios, not
the seconds.

- CPU: seconds per second of audio inside the system's calls. Resampling is left out.
- ratio: mean cost relative to {cleaner} (detectors: {detector}); 10th to 90th percentile over the clips.
- memory: the highest resident size above that before the system was loaded, with its weights, its
  run-time and the arrays that hold the clip.
- latency: the audio taken by one call and the lag of the output (detectors: the audio of one call).

## Noise suppressors

{cleaners}
## Voice detectors

{detectors}
NSNet2's published file takes whole recordings only, which makes it cheaper than a live stream would.
GTCRN and NSNet2 run in onnxruntime with their transforms in numpy. RNNoise is the library inside the
package pyrnnoise as it comes; a build for newer instruction sets costs less.
"""


def parse(arguments: list[str] | None) -> argparse.Namespace:
    """The options; leaves the process with a message for those that are unknown."""
    shared = ("--data", "--seconds", "--streams", "--library", "--models", "--scratch")
    parser = options.parser("evaluation.peers", __doc__, *shared)
    add = parser.add_argument
    add("--write", action="store_true", help="write docs/performance-peers.md")
    page = options.BUILD / "evaluation" / "performance-peers.md"
    add("--out", type=Path, default=page, help="write the page here")
    add("--clips", type=int, default=15)
    add("--core", type=int, default=max(os.sched_getaffinity(0)), help="the core that all systems run on")
    chosen = parser.parse_args(arguments)
    if chosen.data is None:
        parser.error("name the folder of recordings with --data")
    return chosen


def main(arguments: list[str] | None = None) -> None:
    """Measures and writes the page; one line on standard error for what is missing."""
    chosen = parse(arguments)
    where = (chosen.library.resolve(), chosen.models.resolve())
    busy = os.getloadavg()[0]
    try:
        with work.open_library(*where) as library:
            models = library.models()
        list_files(chosen.data)
    except (OSError, ValueError, OrvelError) as error:
        sys.exit(f"bench-peers: {error}")

    print(f"{chosen.clips} clips and {chosen.streams} minutes", flush=True)
    folder = make_pairs(chosen.data, chosen.scratch, RATE, PAIRS, chosen.seconds)
    pairs = [f.load() for f in spread(list_pairs(folder), chosen.clips)]
    ours = [model.name for model in work.cleaners(models, RATE)]
    cleaned = round_robin("cleaner", [*ours, *OTHER_CLEANERS], pairs, chosen.core, where)
    quality = {name: cleaner_quality(r["outputs"], pairs) for name, r in cleaned.items()}
    first_cleaner = next(iter(cleaned))
    cleaners = lines_of(cleaned, pairs, first_cleaner, quality)

    folder = make_streams(chosen.data, chosen.scratch)
    streams = [f.load() for f in spread(list_pairs(folder), chosen.streams)]
    voices = [model.name for model in work.detectors(models)]
    scored = round_robin("detector", [*voices, *OTHER_DETECTORS], streams, chosen.core, where)
    areas = {name: detector_quality(r["outputs"], streams) for name, r in scored.items()}
    first_detector = next(iter(scored))
    detectors = lines_of(scored, streams, first_detector, areas)

    shared = ["", "CPU s/s", "ratio", "spread", "memory MiB", "latency ms"]
    page = TEXT.format(
        clips=len(pairs),
        seconds=chosen.seconds,
        streams=len(streams),
        load=f"under a load of {busy:.1f} when the run began ({os.cpu_count()} cores)",
        cleaner=first_cleaner,
        detector=first_detector,
        cleaners=table([*shared, "PESQ", "STOI", "SI-SDR dB"], cleaners),
        detectors=table([*shared, "ROC-AUC"], detectors),
    )
    target = ROOT / "docs" / "performance-peers.md" if chosen.write else chosen.out
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text(page)
    print(f"{page}\nwrote {target}")


if __name__ == "__main__":
    main()
