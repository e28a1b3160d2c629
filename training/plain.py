"""Speech and noise as they were recorded: no rooms, no equalisation, no change of speed."""

from __future__ import annotations

import numpy as np

from training.corpus import Corpus
from training.synth import babble, coloured


def plain_voice(corpus: Corpus, rng: np.random.Generator, count: int) -> tuple[np.ndarray, str]:
    """``count`` samples of one speaker's recordings with pauses of 0.1 to 0.5 s, and who it is."""
    groups: dict[str, list] = {}
    talking = [clip for clip in corpus.speech if "svd" not in clip.group]  # not the sustained vowels
    for clip in talking or corpus.speech:
        groups.setdefault(clip.group, []).append(clip)
    if corpus.rate > 16000:
        wide = {g: c for g, c in groups.items() if c[0].wide}
        for clip in corpus.speech:
            if clip.wide:
                wide.setdefault(clip.group, []).append(clip)
        if wide and rng.random() < 0.7:
            groups = wide
    name = sorted(groups)[rng.integers(len(groups))]
    clips, parts, filled = groups[name], [], 0
    while filled < count:
        part = clips[rng.integers(len(clips))].samples
        part = part[: count - filled + corpus.rate // 2]
        parts += [np.zeros(int(rng.uniform(0.1, 0.5) * corpus.rate), np.float32), part]
        filled += len(part) + len(parts[-2])
    return np.concatenate(parts)[:count], name


def plain_noise(corpus: Corpus, rng: np.random.Generator, count: int) -> tuple[np.ndarray, str]:
    """``count`` samples of one noise recording, repeated where it is short, and its kind; sometimes babble."""
    if rng.random() < 0.12:
        return babble(rng, count, corpus.rate, corpus), "generated babble"
    clip = corpus.noise[rng.integers(len(corpus.noise))]
    start = rng.integers(len(clip.samples))
    samples = np.tile(clip.samples, 2 + (count + start) // len(clip.samples))[start : start + count]
    if np.sqrt(np.mean(np.square(samples))) < 1e-3 or rng.random() < 0.2:
        floor = coloured(rng, count, corpus.rate)
        samples = samples + floor / np.std(floor) * 0.2 * (np.std(samples) + 1e-3)
    return samples, clip.group
