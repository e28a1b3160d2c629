"""Corpora through Ray on two local nodes: the same outputs as without Ray, whatever is killed."""

import contextlib
import json
import os
import subprocess
import sys
import tarfile
import time
from pathlib import Path

import numpy as np
import psutil
import pytest
import soundfile

FILES = 24
KILLER = """
import os, soundfile
plain = soundfile.SoundFile.__init__
def deadly(self, file, *others, **named):
    if str(file).endswith("05.wav"):
        os._exit(9)
    plain(self, file, *others, **named)
soundfile.SoundFile.__init__ = deadly
"""


@pytest.fixture(scope="module")
def noisy(tmp_path_factory):
    """The same recordings, one of them broken, in a folder, a list and shards."""
    folder = tmp_path_factory.mktemp("noisy")
    (folder / "tree").mkdir()
    (folder / "shards").mkdir()
    random = np.random.default_rng(3)
    for number in range(FILES):
        soundfile.write(folder / "tree" / f"{number:02}.wav", 0.05 * random.standard_normal(16000 * 8), 16000)
    (folder / "tree" / "broken.wav").write_bytes(b"RIFF")
    paths = sorted((folder / "tree").iterdir())
    (folder / "list.jsonl").write_text("".join(json.dumps({"audio_filepath": f"tree/{p.name}"}) + "\n" for p in paths))
    for first in range(0, len(paths), 5):
        with tarfile.open(folder / "shards" / f"{first}.tar", "w") as tar:
            for path in paths[first : first + 5]:
                tar.add(path, path.name)
    return folder


@pytest.fixture(scope="module")
def nodes():
    """A cluster of two nodes, and the second one."""
    from ray.cluster_utils import Cluster

    cluster = Cluster(initialize_head=True, head_node_args={"num_cpus": 1})
    yield cluster, cluster.add_node(num_cpus=1)
    cluster.shutdown()


def start(task, source, out, *options, **environment):
    command = [sys.executable, "-m", "orvel.corpus", task, source, out, "--quiet", "--group", "3", *options]
    return subprocess.Popen(command, stdout=subprocess.PIPE, text=True, env={**os.environ, **environment})


def finish(run):
    out, _ = run.communicate(timeout=400)
    report = json.loads(out)
    return run.returncode, report["recordings"], report["errors"]


def outputs(folder):
    files = [path for path in folder.rglob("*") if path.is_file() and path.suffix != ".jsonl"]
    return {str(path.relative_to(folder)): path.read_bytes() for path in files if path.name[0] not in ".s"}


@pytest.mark.parametrize("task, source", [("vad", "tree"), ("clean", "list.jsonl"), ("clean", "shards")])
def test_every_form_of_input_comes_out_as_without_ray(task, source, noisy, nodes, tmp_path):
    for name, options in (("plain", ["--jobs", "2"]), ("ray", ["--ray", nodes[0].address])):
        assert finish(start(task, noisy / source, tmp_path / name, *options)) == (1, FILES, 1)
    plain, ray = outputs(tmp_path / "plain"), outputs(tmp_path / "ray")
    assert len(plain) == (5 if source == "shards" else FILES) and plain == ray


def busy(raylet):
    """Its workers that clean."""
    for child in raylet.children(recursive=True):
        with contextlib.suppress(psutil.Error):
            if "transform" in " ".join(child.cmdline()):
                yield child


def test_a_killed_worker_and_a_killed_node_lose_nothing(noisy, nodes, tmp_path):
    assert finish(start("clean", noisy / "tree", tmp_path / "plain", "--jobs", "1")) == (1, FILES, 1)
    cluster, node = nodes
    run = start("clean", noisy / "tree", tmp_path / "ray", "--ray", cluster.address)
    raylets = [psutil.Process(process.pid) for kind, process in node.live_processes() if kind == "raylet"]
    journal, end = tmp_path / "ray" / "journal.jsonl", time.monotonic() + 200.0
    for done, whole in ((1, False), (3, True)):
        workers = []
        while not (journal.exists() and len(journal.read_text().splitlines()) > done and (workers or whole)):
            assert time.monotonic() < end and run.poll() is None
            time.sleep(0.02)
            workers = list(busy(raylets[0]))
        for process in [*(raylets if whole else []), *workers]:
            process.kill()
    cluster.remove_node(node, allow_graceful=False)
    assert finish(run) == (1, FILES, 1)
    plain, ray = outputs(tmp_path / "plain"), outputs(tmp_path / "ray")
    assert len(plain) == FILES and plain == ray


@pytest.mark.parametrize("options", [["--jobs", "2"], ["--ray", "local"]])
def test_a_recording_that_kills_its_worker_is_named(options, noisy, tmp_path):
    (tmp_path / "sitecustomize.py").write_text(KILLER)
    run = start("clean", noisy / "tree", tmp_path / "out", *options, PYTHONPATH=str(tmp_path))
    assert finish(run) == (1, FILES - 1, 2) and len(outputs(tmp_path / "out")) == FILES - 1
    errors = [json.loads(line) for line in (tmp_path / "out" / "errors.jsonl").read_text().splitlines()]
    assert {Path(one["input"]).name: "died" in one["error"] for one in errors} == {"broken.wav": False, "05.wav": True}
