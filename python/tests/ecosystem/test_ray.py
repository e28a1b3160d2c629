"""Corpora through Ray on two local nodes, one of which is killed."""

import contextlib
import json
import os
import signal
import subprocess
import sys
import time

import numpy as np
import psutil
import pytest
import soundfile

FILES = 24


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    folder = tmp_path_factory.mktemp("corpus")
    random = np.random.default_rng(3)
    for number in range(FILES):
        soundfile.write(folder / f"{number:02}.wav", 0.05 * random.standard_normal(16000 * 8), 16000)
    (folder / "broken.wav").write_bytes(b"RIFF")
    return folder


def corpus(tree, out, *options):
    command = [sys.executable, "-m", "orvel.corpus", "clean", tree, out, "--quiet", "--group", "3", *options]
    return subprocess.Popen(command, stdout=subprocess.PIPE, text=True)


def sounds(folder):
    return {path.name: soundfile.read(path, dtype="int16")[0] for path in sorted(folder.glob("*.wav"))}


def test_a_killed_node_loses_nothing(tree, tmp_path):
    from ray.cluster_utils import Cluster

    plain = corpus(tree, tmp_path / "plain", "--jobs", "1")
    assert plain.wait(timeout=300) == 1
    cluster = Cluster(initialize_head=True, head_node_args={"num_cpus": 1})
    try:
        node = cluster.add_node(num_cpus=1)
        run = corpus(tree, tmp_path / "ray", "--ray", cluster.address)
        journal, end = tmp_path / "ray" / "journal.jsonl", time.monotonic() + 200.0
        while not (journal.exists() and len(journal.read_text().splitlines()) > 2):
            assert time.monotonic() < end and run.poll() is None, run.communicate()
            time.sleep(0.1)
        for process in node.live_processes():  # the raylet and its workers, at once
            for child in psutil.Process(process[1].pid).children(recursive=True):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(child.pid, signal.SIGKILL)
        cluster.remove_node(node, allow_graceful=False)
        out, _ = run.communicate(timeout=400)
        assert run.returncode == 1 and json.loads(out)["recordings"] == FILES
    finally:
        cluster.shutdown()
    expected, found = sounds(tmp_path / "plain"), sounds(tmp_path / "ray")
    assert sorted(found) == sorted(expected) and len(found) == FILES
    assert all(np.array_equal(found[name], expected[name]) for name in expected)
