"""Measures of voice-activity scores against labels, both one value for each 10 ms."""

from __future__ import annotations

from dataclasses import dataclass

import numpy as np

from training.labels import runs, without_short_runs

HOPS_PER_SECOND = 100
MOST_LAG = 20  # hops
ONSET_PAUSE = 30  # hops without speech before a word start counts as an onset
ONSET_LIMIT = 100  # hops after which an onset counts as missed


def labels_of(clean: np.ndarray, rate: int) -> np.ndarray:
    """Where the clean wave has speech: its 30 ms level lies within 30 dB of the loud parts and 8 dB
    over the floor; gaps up to 120 ms belong to the speech, bursts under 40 ms do not."""
    hop = rate // HOPS_PER_SECOND
    power = np.mean(np.square(clean[: len(clean) // hop * hop].reshape(-1, hop)), axis=1)
    level = 10.0 * np.log10(np.convolve(power, np.ones(3) / 3.0, "same") + 1e-10)
    loud, floor = np.percentile(level, 97), np.percentile(level, 5)
    if loud < -80.0:
        return np.zeros(len(level), bool)
    active = level > min(max(loud - 30.0, floor + 8.0), loud - 10.0)
    return without_short_runs(~without_short_runs(~active, 12), 4)


def roc(scores: np.ndarray, labels: np.ndarray) -> tuple[np.ndarray, np.ndarray, np.ndarray]:
    """False-alarm rate, hit rate and threshold at every distinct score, from strict to lax."""
    order = np.argsort(-scores, kind="stable")
    scores, labels = scores[order], labels[order].astype(bool)
    last = np.append(np.flatnonzero(np.diff(scores)), len(scores) - 1)
    hits, alarms = np.cumsum(labels)[last], np.cumsum(~labels)[last]
    hit_rate = np.concatenate([[0.0], hits / max(hits[-1], 1)])
    alarm_rate = np.concatenate([[0.0], alarms / max(alarms[-1], 1)])
    return alarm_rate, hit_rate, np.concatenate([[np.inf], scores[last]])


def auc(scores: np.ndarray, labels: np.ndarray) -> float:
    """Area under the ROC curve."""
    alarm_rate, hit_rate, _ = roc(scores, labels)
    return float(np.trapezoid(hit_rate, alarm_rate))


def f1(decisions: np.ndarray, labels: np.ndarray) -> float:
    """Harmonic mean of precision and recall."""
    both = np.count_nonzero(decisions & labels)
    return 2.0 * both / max(np.count_nonzero(decisions) + np.count_nonzero(labels), 1)


def best_f1(scores: np.ndarray, labels: np.ndarray) -> tuple[float, float]:
    """The highest F1 over all thresholds, and that threshold."""
    alarm_rate, hit_rate, thresholds = roc(scores, labels)
    positive = np.count_nonzero(labels)
    hits, alarms = hit_rate * positive, alarm_rate * (len(labels) - positive)
    values = 2.0 * hits / np.maximum(hits + alarms + positive, 1)
    best = int(np.argmax(values))
    return float(values[best]), float(thresholds[best])


def best_lag(scores: np.ndarray, labels: np.ndarray) -> tuple[int, float]:
    """The delay of the scores, in hops, at which they fit the labels best, and the area there."""
    areas = [auc(scores[lag:], labels[: len(labels) - lag]) for lag in range(MOST_LAG + 1)]
    best = int(np.argmax(areas))
    return best, areas[best]


@dataclass
class Events:
    """Whole segments: found at the wrong place, not found, and how late found ones begin."""

    false_alarms: int
    misses: int
    onset_delays: list[int]


def events(decisions: np.ndarray, labels: np.ndarray) -> Events:
    """Compares segments. Decisions are smoothed the same for everyone: gaps under 200 ms closed, then
    segments under 50 ms dropped. A false alarm touches no speech; a miss is speech that nothing touches
    from its beginning to 100 ms behind its end."""
    labels = labels.astype(bool)
    smooth = without_short_runs(~without_short_runs(~decisions.astype(bool), 20), 5)
    alarms = sum(not labels[max(b - 10, 0) : e].any() for b, e in runs(smooth))
    speech = runs(labels)
    misses = sum(not smooth[b : e + 10].any() for b, e in speech)
    delays, raw = [], decisions.astype(bool)
    for begin, end in speech:
        if begin < ONSET_PAUSE or labels[begin - ONSET_PAUSE : begin].any():
            continue
        if raw[begin - 10 : begin].any():
            continue  # decided before the onset: that is no reaction to it
        window = raw[begin : min(begin + ONSET_LIMIT, end)]
        if window.any():
            delays.append(int(np.argmax(window)))
    return Events(alarms, misses, delays)


def summarise(streams: list[dict]) -> tuple[list[dict], dict]:
    """One row of figures and one ROC curve (false-alarm rate, hit rate) for each detector.

    `streams` come from the voice task: labels, and scores by detector, one value for each 10 ms.
    """
    labels = np.concatenate([stream["labels"] for stream in streams]).astype(bool)
    minutes = len(labels) / HOPS_PER_SECOND / 60.0
    seconds = sum(stream["seconds"] for stream in streams)
    rows, curves = [], {}
    for name, threshold in streams[0]["thresholds"].items():
        scores = np.concatenate([stream["scores"][name] for stream in streams])
        decisions = scores >= threshold
        best, best_threshold = best_f1(scores, labels)
        lag, area = best_lag(scores, labels)
        found = [events(stream["scores"][name] >= threshold, stream["labels"]) for stream in streams]
        delays = [delay * 10.0 for one in found for delay in one.onset_delays]
        alarm_rate, hit_rate, _ = roc(scores, labels)
        keep = np.unique(np.linspace(0, len(hit_rate) - 1, 400).astype(int))
        curves[name] = (alarm_rate[keep], hit_rate[keep])
        rows.append(
            {
                "name": name,
                "auc": auc(scores, labels),
                "auc_without_lag": area,
                "lag_ms": lag * 10.0,
                "f1": f1(decisions, labels),
                "best_f1": best,
                "best_threshold": best_threshold,
                "alarm_share": float(np.mean(decisions[~labels])),
                "miss_share": float(np.mean(~decisions[labels])),
                "alarms_per_minute": sum(one.false_alarms for one in found) / minutes,
                "misses_per_minute": sum(one.misses for one in found) / minutes,
                "onset_ms": float(np.median(delays)) if delays else float("nan"),
                "onset_90_ms": float(np.percentile(delays, 90)) if delays else float("nan"),
                "onsets": len(delays),
                "cpu": sum(stream["cpu"][name] for stream in streams) / seconds,
            }
        )
    return rows, curves
