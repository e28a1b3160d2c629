"""Figures of each voice detector over all streams together."""

from __future__ import annotations

import numpy as np

from evaluation import voice


def summarise(streams: list[dict]) -> tuple[list[dict], dict]:
    """One row of figures and one ROC curve (false-alarm rate, hit rate) for each detector.

    `streams` come from the voice task: labels, and scores by detector, one value for each 10 ms.
    """
    labels = np.concatenate([stream["labels"] for stream in streams]).astype(bool)
    minutes = len(labels) / voice.HOPS_PER_SECOND / 60.0
    seconds = sum(stream["seconds"] for stream in streams)
    rows, curves = [], {}
    for name, threshold in streams[0]["thresholds"].items():
        scores = np.concatenate([stream["scores"][name] for stream in streams])
        decisions = scores >= threshold
        best, best_threshold = voice.best_f1(scores, labels)
        lag, area = voice.best_lag(scores, labels)
        found = [
            voice.events(stream["scores"][name] >= threshold, stream["labels"]) for stream in streams
        ]
        delays = [delay * 10.0 for one in found for delay in one.onset_delays]
        alarm_rate, hit_rate, _ = voice.roc(scores, labels)
        keep = np.unique(np.linspace(0, len(hit_rate) - 1, 400).astype(int))
        curves[name] = (alarm_rate[keep], hit_rate[keep])
        rows.append(
            {
                "name": name,
                "auc": voice.auc(scores, labels),
                "auc_without_lag": area,
                "lag_ms": lag * 10.0,
                "f1": voice.f1(decisions, labels),
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
