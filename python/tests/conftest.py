"""A small corpus of every kind, with two broken files."""

import io
import json
import tarfile

import numpy as np
import pytest
import soundfile

FILES = {  # name: (rate, channels, subtype, seconds)
    "a.wav": (8000, 1, "PCM_16", 1.0),
    "b/b.flac": (16000, 1, "PCM_24", 9.3),
    "b/c.wav": (44100, 2, "FLOAT", 0.7),
    "d.ogg": (48000, 1, "VORBIS", 1.1),
    "e.wav": (11025, 1, "PCM_16", 4.5),
    "f.wav": (192000, 1, "PCM_24", 0.5),
    "g.wav": (16000, 1, "PCM_16", 0.013),
}
BROKEN = {"b/x.wav": b"RIFF", "y.flac": b""}


def sound(rate, channels, seconds, seed=1):
    """Noise with a tone that comes and goes, (samples, channels)."""
    time = np.arange(round(rate * seconds)) / rate
    tone = 0.2 * np.sin(2.0 * np.pi * 200.0 * time) * (np.sin(2.0 * np.pi * 2.0 * time) > 0.0)
    return tone[:, None] + 0.03 * np.random.default_rng(seed).standard_normal((len(time), channels))


@pytest.fixture(scope="session")
def tree(tmp_path_factory):
    """A folder with FILES and BROKEN."""
    folder = tmp_path_factory.mktemp("corpus")
    for name, (rate, channels, subtype, seconds) in FILES.items():
        (folder / name).parent.mkdir(exist_ok=True)
        soundfile.write(folder / name, sound(rate, channels, seconds), rate, subtype=subtype)
    for name, content in BROKEN.items():
        (folder / name).write_bytes(content)
    return folder


@pytest.fixture(scope="session")
def shards(tree, tmp_path_factory):
    """The same recordings as samples of two shards, each with a text beside it."""
    folder = tmp_path_factory.mktemp("shards")
    names = sorted([*FILES, *BROKEN])
    for number, some in enumerate((names[:5], names[5:])):
        with tarfile.open(folder / f"part-{number}.tar", "w") as tar:
            for name in some:
                text = json.dumps({"text": name}).encode()
                stem = name.partition(".")[0]
                for member, content in ((name, (tree / name).read_bytes()), (f"{stem}.json", text)):
                    info = tarfile.TarInfo(member)
                    info.size = len(content)
                    tar.addfile(info, io.BytesIO(content))
    return folder
