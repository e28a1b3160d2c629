"""Pipes, FIFOs and descriptors in place of files: with a WAV header, with another format, and without."""

import signal

import numpy as np
import pytest
from conftest import snr_db, speech


def test_samples_come_back_aligned_and_alone_on_standard_output(folder):
    sound = speech(16000, 0.7, 2)
    raw = (sound * 32768).astype("<i2").tobytes()
    out = folder.run("orvel clean --verbose --rate 16000 --channels 2 - -", raw).out
    assert snr_db(sound, np.frombuffer(out, "<i2").reshape(-1, 2) / 32768.0) > 60.0


@pytest.mark.parametrize(
    ("format", "size", "subtype", "least_snr"),
    [("u8", 1, "PCM_U8", 20), ("s24le", 3, "PCM_24", 60), ("s32le", 4, "PCM_32", 60)]
    + [("f32le", 4, "FLOAT", 60), ("f64le", 8, "DOUBLE", 60)],
)
def test_every_format_is_the_inverse_of_itself(folder, format, size, subtype, least_snr):
    sound = speech(16000, 0.3)
    folder.save("in.wav", sound, 16000)
    # To samples, back to a file whose encoding holds the same ones, and as a WAV stream of unknown length.
    folder.run(f"""orvel clean --format {format} in.wav - > raw
                   orvel clean --rate 16000 --format {format} - back.wav < raw
                   orvel clean --container wav back.wav - | tee s.wav | orvel clean - piped.wav""")
    assert (folder / "raw").stat().st_size == size * len(sound)
    for name in ("back.wav", "piped.wav"):
        assert folder.encoding(name) == f"WAV {subtype}"
        assert snr_db(sound, folder.load(name)) > least_snr
    assert (folder / "s.wav").read_bytes()[40:44] == b"\xff\xff\xff\xff"


def test_every_name_of_a_pipe_works(folder):
    sound = speech(16000, 0.6, 2)
    folder.save("in.wav", sound, 16000, subtype="PCM_24")
    folder.save("in.flac", sound, 16000, "FLAC", "PCM_24")
    folder.save("law.wav", sound, 16000, subtype="ULAW")
    folder.run("orvel clean in.wav file.wav; orvel clean law.wav file-law.wav")
    expected, expected_law = folder.load("file.wav"), folder.load("file-law.wav")
    raw = "--rate 16000 --channels 2 --format s24le"
    for script in (
        "orvel clean - got.wav < in.wav",
        "cat in.wav | orvel clean - got.wav",
        "orvel clean /dev/fd/5 got.wav 5< in.wav",
        "orvel clean <(cat in.wav) got.wav",
        "mkfifo p; cat in.wav > p & orvel clean p got.wav",
        "cat in.flac | orvel clean /dev/stdin got.wav",
        "cat law.wav | orvel clean - got.wav",
        "orvel clean --container wav in.wav /dev/stdout | cat > got.wav",
        "orvel clean --container wav in.wav /dev/fd/1 > got.wav",
        "orvel clean --container wav in.wav >(cat > got.wav); sleep 0.2; wait",
        "mkfifo q.wav; cat q.wav > got.wav & orvel clean in.wav q.wav; wait $!",
        f"orvel clean {raw} <(tail -c +45 in.wav) got.wav",
        f"tail -c +45 in.wav > a.raw; orvel clean {raw} a.raw got.wav",
    ):
        assert folder.run(f"rm -f got.wav p q.wav; {script}").err == ""
        assert np.array_equal(folder.load("got.wav"), expected_law if "law" in script else expected), script
    # A file in place of a pipe gets its length.
    folder.run("orvel clean --container wav in.wav - > got.wav")
    assert (folder / "got.wav").read_bytes()[40:44] != b"\xff\xff\xff\xff"


def test_what_is_missing_is_said(folder):
    folder.save("in.wav", speech(16000, 1.0), 16000)
    missing = "16000 samples (1.00 s) expected, 10000 samples (0.62 s) found"
    folder.refuses([
        ("head -c 20044 in.wav | orvel clean - got.wav", 3, missing),
        ("printf '\\0\\0\\0 ftypM4A ' | orvel clean - m.wav", 3, "ffmpeg -i FILE -f wav -"),
    ])  # fmt: skip
    assert len(folder.load("got.wav")) == 10000
    odd = folder.run("orvel clean --rate 8000 - -", bytes(321))
    assert len(odd.out) == 320 and "1 bytes at the end" in odd.err


def test_a_closed_pipe_is_no_error(folder):
    folder.save("in.wav", speech(16000, 20.0), 16000)
    for command in ("clean in.wav -", "clean --container wav in.wav /dev/stdout", "vad --frames in.wav in.wav in.wav"):
        script = f"orvel {command} | head -c 10 > /dev/null; exit ${{PIPESTATUS[0]}}"
        assert folder.run(script, code=128 + signal.SIGPIPE).err == ""
