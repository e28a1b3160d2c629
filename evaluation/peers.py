"""`python -m evaluation.peers`: cost, memory, latency and quality beside other systems.

Every system lives in a process of its own, all pinned to the same core, and the clips go round-robin:
each clip through every system before the next one, so that whatever else the machine does meets all of
them alike. Writes docs/performance-peers.md.
"""

import evaluation.threads  # noqa: F401, must come before numpy

import argparse
import multiprocessing
import os
import traceback
from pathlib import Path

import numpy as np

from evaluation import metrics, voice, work
from evaluation.detectors import OrvelDetector, RNNoiseDetector, SileroDetector, TenDetector
from evaluation.detectors import WebRTCDetector
from evaluation.networks import GTCRN, NSNet2, DeepFilterNet
from evaluation.orvel import Library
from evaluation.pairs import Pair, list_pairs, make_pairs, make_streams
from evaluation.quality import spread
from evaluation.suppressors import Orvel, RNNoise, Speex, WebRTC
from evaluation.tables import number, table

ROOT = Path(__file__).resolve().parent.parent
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
    opened = Library(library, models)
    opened.load(name)
    return Orvel(opened, name, RATE) if kind == "cleaner" else OrvelDetector(opened, name)


def serve(pipe, kind: str, name: str, core: int, library: Path, models: Path) -> None:
    """One system's process: answers every wave with (output, CPU seconds) until None comes."""
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


def answer(pipe, name: str):
    """The next answer of a system; raises RuntimeError with its traceback when it failed."""
    got = pipe.recv()
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
        processes.append(process)
        pipes[name].send(pairs[0].clean)
        results[name] = {"latency": answer(pipes[name], name), "cpu": [], "outputs": []}
    for pair in pairs:
        for name in names:
            pipes[name].send(pair.noisy)
            out, cpu = answer(pipes[name], name)
            results[name]["outputs"].append(out)
            results[name]["cpu"].append(cpu)
    for name in names:
        pipes[name].send(None)
        results[name]["memory"] = answer(pipes[name], name) / 1024.0
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
        (metrics.pesq(o, p.clean, rate), metrics.stoi(o, p.clean, rate), metrics.si_sdr(o, p.clean))
        for o, p in zip(outputs, pairs)
    ]
    means = np.nanmean(np.array(each), axis=0)
    return [number(m, form) for m, form in zip(means, ("{:.2f}", "{:.3f}", "{:.1f}"))]


def detector_quality(outputs: list[np.ndarray], pairs: list[Pair]) -> list[str]:
    """ROC-AUC as text."""
    labels = np.concatenate([voice.labels_of(p.clean, p.rate)[: len(o)] for o, p in zip(outputs, pairs)])
    return [f"{voice.auc(np.concatenate(outputs), labels):.4f}"]


TEXT = """# Cost beside other systems

Written by `make bench-peers`, all figures from one run: {clips} held-out noisy clips of {seconds:g} s and
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


def main() -> None:
    """Parses the options, measures and writes the page."""
    parser = argparse.ArgumentParser(prog="python -m evaluation.peers", description=__doc__)
    add = parser.add_argument
    add("--library", type=Path, default=ROOT / "build" / "release" / "liborvel.so.1")
    add("--models", type=Path, default=ROOT / "models")
    add("--data", type=Path, default=ROOT.parent / "shared" / "data", help="recordings to mix")
    add("--clips", type=int, default=15)
    add("--seconds", type=float, default=6.0)
    add("--streams", type=int, default=30, help="minutes for the detectors")
    add("--core", type=int, default=max(os.sched_getaffinity(0)))
    add("--scratch", type=Path, default=ROOT / "build" / "evaluation")
    add("--out", type=Path, default=ROOT / "docs" / "performance-peers.md")
    options = parser.parse_args()
    where = (options.library.resolve(), options.models.resolve())
    busy = os.getloadavg()[0]

    names = work.models_in(options.models)
    ours = [n for n in names if n != work.VOICE_MODEL and work.rate_of(n) == RATE]
    ours = [n for n in ours if not n.startswith("orvel-ff")]
    folder = make_pairs(options.data, options.scratch, RATE, 60, options.seconds)
    pairs = [f.load() for f in spread(list_pairs(folder), options.clips)]
    cleaned = round_robin("cleaner", [*ours, *OTHER_CLEANERS], pairs, options.core, where)
    quality = {name: cleaner_quality(r["outputs"], pairs) for name, r in cleaned.items()}
    cleaners = lines_of(cleaned, pairs, ours[0], quality)

    folder = make_streams(options.data, options.scratch)
    streams = [f.load() for f in spread(list_pairs(folder), options.streams)]
    voices = [work.VOICE_MODEL] if work.VOICE_MODEL in names else []
    scored = round_robin("detector", [*voices, *OTHER_DETECTORS], streams, options.core, where)
    areas = {name: detector_quality(r["outputs"], streams) for name, r in scored.items()}
    baseline = next(iter(scored))
    detectors = lines_of(scored, streams, baseline, areas)

    shared = ["", "CPU s/s", "ratio", "spread", "memory MiB", "latency ms"]
    page = TEXT.format(
        clips=len(pairs),
        seconds=options.seconds,
        streams=len(streams),
        load=f"under a load of {busy:.1f} when the run began ({os.cpu_count()} cores)",
        cleaner=ours[0],
        detector=baseline,
        cleaners=table([*shared, "PESQ", "STOI", "SI-SDR dB"], cleaners),
        detectors=table([*shared, "ROC-AUC"], detectors),
    )
    options.out.parent.mkdir(parents=True, exist_ok=True)
    options.out.write_text(page)
    print(page)


if __name__ == "__main__":
    main()
