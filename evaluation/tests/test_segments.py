"""Counting of segments on cases made by hand, and both segmenters on a made-up voice."""

import numpy as np
import pytest
import soundfile

from evaluation import segments
from evaluation.tests.voices import vowels

# Labelled as speech: 1 to 2 s and 2.2 to 3 s (one stretch, for the pause is short), and 5 to 6 s, of 10 s.
LABELS = np.zeros(1000, bool)
for _begin, _end in ((100, 200), (220, 300), (500, 600)):
    LABELS[_begin:_end] = True
SPEECH = 2.8


@pytest.mark.parametrize(
    "found, expected",
    [
        # found, shared, false, missed, start errors, end errors
        ([(1.0, 3.0), (5.0, 6.0)], (3.0, SPEECH, 0, 0, [0.0, 0.0], [0.0, 0.0])),
        ([(0.9, 3.2), (5.1, 5.9)], (3.1, 2.6, 0, 0, [-0.1, 0.1], [0.2, -0.1])),
        ([(0.0, 10.0)], (10.0, SPEECH, 0, 0, [], [])),  # all of it: no bound is found
        ([], (0.0, 0.0, 0, 2, [], [])),
        ([(7.0, 8.0), (1.0, 3.0)], (3.0, 1.8, 1, 1, [0.0], [0.0])),
        ([(1.0, 2.0), (2.2, 3.0)], (1.8, 1.8, 0, 1, [0.0], [0.0])),  # split in the short pause
        ([(1.0, 2.5), (2.0, 3.0)], (2.0, 1.8, 0, 1, [0.0], [0.0])),  # overlapping ones count once
        ([(1.0, 3.0), (5.6, 6.0)], (2.4, 2.2, 0, 0, [0.0], [0.0, 0.0])),  # a start 600 ms late is another one
    ],
)
def test_counts(found, expected):
    counts = segments.compare(found, LABELS)
    assert counts.speech == pytest.approx(SPEECH) and counts.seconds == 10.0 and counts.breaks == 4
    got = (counts.found, counts.shared, counts.false_segments, counts.missed)
    assert got == pytest.approx(expected[:4])
    assert counts.start_errors == pytest.approx(expected[4])
    assert counts.end_errors == pytest.approx(expected[5])


@pytest.mark.parametrize(
    "found, true, expected",
    [
        ([1.3], [1.0, 1.5], [-0.2]),  # one found start counts for the nearer one alone
        ([1.0, 1.1], [1.2], [-0.1]),
        ([1.0, 5.5, 9.6], [9.0, 5.0, 1.1], [-0.1, 0.5]),
        ([], [1.0], []),
    ],
)
def test_bounds_are_paired_with_their_nearest(found, true, expected):
    assert sorted(segments.errors(found, true)) == pytest.approx(expected)


def test_speech_at_the_edges_of_a_recording_neither_starts_nor_ends_there():
    labels = np.ones(300, bool)
    labels[100:200] = False
    counts = segments.compare([(0.0, 1.05), (1.95, 3.0)], labels)
    assert counts.breaks == 2
    assert (counts.start_errors, counts.end_errors) == (pytest.approx([-0.05]), pytest.approx([0.05]))


def test_streams_are_summed_before_shares_are_taken():
    good, bad = segments.compare([(1.0, 3.0), (5.0, 6.0)], LABELS), segments.compare([(6.0, 9.0)], LABELS)
    both = segments.total([{"system": good}, {"system": bad}])["system"]
    assert (both.seconds, both.found, both.false_segments, both.missed) == (20.0, 6.0, 1, 2)
    line = segments.lines({"system": both}).splitlines()[2].split("|")[2:]
    cells = [cell.strip() for cell in line]
    assert cells[:3] == ["0.467", "0.500", "0.483"]  # 2.8 of 6.0, 2.8 of 5.6
    assert cells[3:7] == ["9.0", "3.0", "6.0", "50"]  # 3, 1 and 2 in a third of a minute; 4 bounds of 8


def test_a_command_that_fails_is_quoted(tmp_path, command_path):
    with pytest.raises(RuntimeError, match="missing.wav"):
        segments.orvel_segments(command_path, tmp_path / "missing.wav")


def test_segments_that_the_command_prints_are_read(tmp_path, command_path):
    wave = np.concatenate([np.zeros(16000), vowels(16000, 2.0), np.zeros(16000)])
    wave += 1e-4 * np.random.default_rng(3).standard_normal(len(wave))
    soundfile.write(tmp_path / "one.wav", wave, 16000)
    found = segments.orvel_segments(command_path, tmp_path / "one.wav")
    assert found and 0.7 < found[0][0] < 1.5 and 2.5 < found[-1][1] < 3.6
    assert segments.orvel_segments(command_path, tmp_path / "one.wav", ["--min-speech", "10000"]) == []
