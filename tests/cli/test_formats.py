"""Containers, encodings, and what is kept of a file besides its sound; damaged files."""

import numpy as np
import pytest
import soundfile
from conftest import best_lag, snr_db, speech


@pytest.mark.parametrize(
    ("given", "name", "kept"),
    [
        ("WAV PCM_24", "o.wav", "WAV PCM_24"),
        ("WAV PCM_U8", "o.wav", "WAV PCM_U8"),
        ("WAV FLOAT", "o.wav", "WAV FLOAT"),
        ("WAV ULAW", "o.wav", "WAV ULAW"),
        ("FLAC PCM_24", "o", "FLAC PCM_24"),
        ("WAV PCM_U8", "o.FLAC", "FLAC PCM_S8"),
        ("WAV FLOAT", "o.flac", "FLAC PCM_24"),
        ("CAF ALAC_24", "o.wav", "WAV PCM_24"),
        ("MP3 MPEG_LAYER_III", "o.wav", "WAV PCM_16"),
        ("MP3 MPEG_LAYER_III", "o.mp3", "MP3 MPEG_LAYER_III"),
        ("OGG OPUS", "o.ogg", "OGG OPUS"),
        ("WAV PCM_16", "o.opus", "OGG OPUS"),
    ],
)
def test_the_encoding_is_kept_where_the_container_holds_it(folder, given, name, kept):
    folder.save("in", speech(16000, 0.5, 2), 16000, *given.split())
    folder.run(f"orvel clean in {name}")
    assert folder.encoding(name) == kept
    before, after = folder.load("in"), folder.load(name)
    assert after.shape == before.shape
    assert best_lag(before[:, 0], after[:, 0]) == 0


def test_what_a_container_cannot_hold_is_said(folder):
    folder.save("in.wav", speech(44100, 0.2), 44100)
    folder.save("six.wav", speech(16000, 0.2, 6), 16000)
    rows = [("in.wav o.opus", 4, "Opus only supports"), ("six.wav o.mp3", 4, "6 channel(s)")]
    folder.refuses([(f"orvel clean {words}", *rest) for words, *rest in rows])


def test_fine_encodings_keep_their_resolution(folder):
    # A sound 20 dB below a 16-bit step survives in 24 bits.
    folder.save("in.wav", speech(16000, 0.5) * 2.0**-17, 16000, subtype="PCM_24")
    folder.run("orvel clean in.wav out.wav")
    assert snr_db(folder.load("in.wav"), folder.load("out.wav")) > 20.0


def test_titles_go_along(folder):
    with soundfile.SoundFile(folder / "in.flac", "w", 16000, 1, "PCM_16") as file:
        file.title = "a title"
        file.write(np.full(1600, 0.1))
    folder.run("orvel clean in.flac out.flac")
    with soundfile.SoundFile(folder / "out.flac") as file:
        assert file.title == "a title"


def test_nan_and_overloads_stay_finite(folder):
    sound = speech(22050, 0.5)
    sound[[1000, 2000, 3000], 0] = np.nan, np.inf, -3e38
    folder.save("in.wav", sound, 22050, subtype="FLOAT")
    folder.run("orvel clean in.wav out.wav")
    out = folder.load("out.wav")
    assert out.shape == sound.shape and np.all(np.abs(out) <= 4.0)


@pytest.mark.parametrize(
    "encoding",
    ["WAV PCM_16", "WAVEX PCM_24", "WAV IMA_ADPCM", "FLAC PCM_16", "AIFF PCM_16", "AU FLOAT", "W64 PCM_16"]
    + ["RF64 PCM_16", "OGG VORBIS", "MP3 MPEG_LAYER_III"],
)
def test_what_is_missing_of_a_cut_file_is_said_and_the_rest_is_cleaned(folder, encoding):
    whole = folder.save("whole", speech(16000, 3.0), 16000, *encoding.split())
    (folder / "cut").write_bytes(whole[: len(whole) * 6 // 10])
    text = folder.run("orvel clean cut out.wav", code=3).err
    assert "cut: cut short: " in text
    if encoding not in ("OGG VORBIS", "WAV IMA_ADPCM"):  # which do not say how long they are
        assert "48000 samples (3.00 s) expected" in text
    kept = len(folder.load("out.wav"))
    assert kept > 10000 and f"{kept} samples" in text


def test_damaged_files_are_refused_or_read_as_far_as_they_go(folder):
    random = np.random.default_rng(7)
    for encoding, rate, channels in (("WAV PCM_16", 16000, 1), ("FLAC PCM_16", 44100, 2), ("OGG VORBIS", 16000, 1)):
        good = folder.save("good", speech(rate, 0.2, channels), rate, *encoding.split())
        for _ in range(8):
            bad = bytearray(good)
            for place in random.integers(0, 64, 4):  # where lengths, rates and channel counts stand
                bad[place] = random.integers(0, 256)
            (folder / "bad").write_bytes(bad)
            script = "orvel clean -f bad out.wav; code=$?; case $code in 0|3|4|5) echo $code; exit 0; esac; exit $code"
            result = folder.run(script)
            assert result.text == "0\n" or "bad" in result.err


def test_what_is_no_sound_file_is_named(folder):
    (folder / "text.wav").write_text("this is no sound\n")
    (folder / "film.m4a").write_bytes(b"\0\0\0\x20ftypM4A ")
    rows = {
        "text.wav": "text.wav: no audio that can be read",
        "missing.wav": "missing.wav: cannot open: No such file",
        "models": "models: is a directory",
        "film.m4a": "ffmpeg -i 'film.m4a' ",
    }
    folder.refuses([(f"orvel clean {name} out.wav", 3, reason) for name, reason in rows.items()])
    assert not (folder / "out.wav").exists()
