"""`orvel vad`: scores at the times of the input; the report styles agree."""

import json

import numpy as np
import pytest
from conftest import speech

LAG = 2  # scores
CHANGES = "--threshold 0.4 --neg-threshold 0.3"


def test_other_rates_and_channels_give_the_times_of_the_input(folder):
    def change(rate, channels):
        """Number of the first score that moves when a sound begins after a second of silence."""
        sound = speech(rate, 3.0, channels)
        sound[:rate] = 0.0
        folder.save("in.wav", sound, rate)
        document = json.loads(folder.run("orvel vad --frames --json in.wav").out)
        scores = np.array([frame["score"] for frame in document["frames"]])
        assert len(scores) == 300 and document["duration"] == pytest.approx(3.0, abs=1e-3)
        return 80 + int(np.argmax(np.abs(scores[80:] - scores[80]) > 0.02))

    reference = change(8000, 1)
    assert abs(reference - (100 - LAG)) <= 2
    for rate, channels in ((44100, 1), (48000, 2), (11025, 1)):
        assert abs(change(rate, channels) - reference) <= 1


def test_styles_tell_the_same_segments(folder):
    sound = speech(8000, 4.0)
    folder.save("in.wav", sound, 8000)
    command = f"orvel vad {CHANGES} --min-speech 50"
    given = lambda style: folder.run(f"{command} {style} in.wav").text  # noqa: E731
    numbers = lambda lines: [[float(word) for word in line.split()] for line in lines]  # noqa: E731
    segments = [[s["start"], s["end"], s["mean_score"]] for s in json.loads(given("--json"))["segments"]]
    assert segments, "the signal has to give segments for the comparison"
    assert numbers(given("-q").splitlines()) == segments
    assert numbers(given("--csv").replace(",", " ").splitlines()[1:]) == segments
    assert numbers(given("--labels").replace("\tspeech ", " ").splitlines()) == segments
    for line, (start, end, _) in zip(given("--rttm").splitlines(), segments, strict=True):
        kind, name, channel, at, length, *rest = line.split()
        assert (kind, name, channel, *rest) == ("SPEAKER", "in", "1", "<NA>", "<NA>", "speech", "<NA>", "<NA>")
        assert (float(at), float(length)) == pytest.approx((start, end - start))
    # The same sound on a pipe.
    piped = folder.run(f"{command} - --rate 8000 --format f32le", sound.tobytes()).text
    assert numbers(piped.splitlines()) == segments


def test_many_inputs_come_in_their_order_with_their_names(folder):
    lines, names = [], []
    for i, seconds in enumerate((8.0, 2.0, 0.5, 3.0)):
        names.append(f"take, {i}.wav")
        folder.save(names[-1], speech(8000, seconds), 8000)
        lines += [f"{names[-1]}  {line}" for line in folder.run(f"orvel vad {CHANGES} '{names[-1]}'").text.splitlines()]
    assert lines
    all_of_them = f"orvel vad --jobs 3 {CHANGES} " + " ".join(f"'{name}'" for name in names)
    assert folder.run(all_of_them).text.splitlines() == lines
    given = lambda words: folder.run(f"{all_of_them} {words}", code=6)  # noqa: E731
    document = given("none.wav --json")
    assert "none.wav: cannot open" in document.err
    assert [part["input"] for part in json.loads(document.out)] == names
    csv = given("none.wav --csv").text
    assert csv.startswith("file,start,end,mean_score\n") and f'\n"{names[0]}",' in csv
    assert given("none.wav --rttm").text.startswith("SPEAKER take,_0 1 ")
    folder.run(f"{all_of_them} --labels", code=2)


def test_nothing_to_report_is_still_a_document(folder):
    for option, text in (("--csv", "file,start,end,mean_score\n"), ("--json", "[\n]\n"), ("--rttm", "")):
        assert folder.run(f"orvel vad {option} none nil", code=6).text == text


def test_wrong_options_and_models_are_refused(folder):
    whole = folder.save("in.wav", speech(8000, 0.2), 8000)
    (folder / "cut.wav").write_bytes(whole[:2000])
    folder.refuses([
        ("orvel vad --json --csv in.wav", 2, "--csv"),
        ("orvel vad --frames --rttm in.wav", 2, "--rttm"),
        ("orvel vad --threshold nan in.wav", 2, "'nan' is not a number from 0 to 1"),
        ("orvel vad --threshold 5 in.wav", 2, "'5' is not a number from 0 to 1"),
        ("orvel vad --neg-threshold -0.1 in.wav", 2, "is not a number from 0 to 1"),
        ("orvel vad --neg-threshold 0.9 in.wav", 2, "must not be above"),
        ("orvel vad none.wav", 3, "cannot open"),
        ("orvel vad --model orvel-16k in.wav", 5, "not for voice activity"),
        ("orvel vad cut.wav > /dev/null", 3, "cut short"),
    ])  # fmt: skip
