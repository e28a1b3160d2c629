"""Held-out noisy/clean pairs: ``python -m training.evalset --data DIR --out DIR --rate 16000``.

Speakers and noise recordings come from the validation split alone; the same seed gives the same
pairs. Writes NNN_noisy.wav, NNN_clean.wav and NNN_room.wav (16-bit) and pairs.json with the ratio, the
noise, the speaker and whether the pair is reverberant. Of a reverberant pair the clean file keeps the
early reflections, the room file the whole room; otherwise they are the same. The detector's streams
(``--streams``) are one minute each, with labels in JSON.
"""

from __future__ import annotations

import argparse
import json
import sys
from pathlib import Path

import numpy as np
import scipy.fft
import soundfile

from training import InputError
from training.corpus import Corpus, active_rms, load_corpus
from training.labels import voice_labels
from training.level import HOP, RATE
from training.plain import plain_noise, plain_voice
from training.rooms import EARLY, faded, room_response

RATIOS = (-5.0, 0.0, 5.0, 10.0, 15.0)


def make_pair(corpus: Corpus, index: int, seed: int, seconds: float = 8.0) -> tuple[dict, dict]:
    """Pair ``index`` of a set: its waves (noisy, clean, room) in [-1, 1], and what it is made of."""
    rng = np.random.default_rng([seed, index])
    rate = corpus.rate
    count = int(seconds * rate)
    voice, speaker = plain_voice(corpus, rng, count)
    noise, kind = plain_noise(corpus, rng, count)
    ratio = RATIOS[index % len(RATIOS)]
    reverberant = index // len(RATIOS) % 5 < 2
    if reverberant:
        response = room_response(rng, rate)
        size = scipy.fft.next_fast_len(count + len(response), real=True)
        spectrum = scipy.fft.rfft(voice, size)
        source = scipy.fft.irfft(spectrum * scipy.fft.rfft(response, size), size)[:count]
        clean = scipy.fft.irfft(spectrum * scipy.fft.rfft(faded(response, rate, EARLY), size), size)[:count]
    else:
        source = clean = voice
    level = active_rms(clean, rate)
    noise = noise * (level / np.sqrt(np.mean(np.square(noise))) * 10.0 ** (-ratio / 20.0))
    noisy = source + noise
    gain = 10.0 ** (rng.uniform(-36.0, -20.0) / 20.0) / np.sqrt(np.mean(np.square(noisy)))
    gain = min(gain, 0.99 / max(np.max(np.abs(noisy)), np.max(np.abs(clean))))
    info = {"snr_db": ratio, "reverberant": bool(reverberant), "noise": kind, "speaker": speaker}
    waves = {"noisy": noisy, "clean": clean, "room": source}
    return {name: (wave * gain).astype(np.float32) for name, wave in waves.items()}, info


def make_stream(corpus: Corpus, index: int, seed: int, seconds: float = 60.0) -> tuple[np.ndarray, np.ndarray, dict]:
    """Stream ``index`` for the detector: noisy and clean of one minute; speech about half of the time."""
    rng = np.random.default_rng([seed, 1000 + index])
    rate = corpus.rate
    count = int(seconds * rate)
    clean = np.zeros(count, np.float32)
    at = int(rng.uniform(0.5, 3.0) * rate)
    while at < count - 2 * rate:
        part, _ = plain_voice(corpus, rng, int(rng.uniform(1.5, 6.0) * rate))
        part = part[: count - at] * 10.0 ** (rng.uniform(-4.0, 4.0) / 20.0)
        clean[at : at + len(part)] = part
        at += len(part) + int(rng.uniform(0.8, 5.0) * rate)
    parts = [plain_noise(corpus, rng, int(10.0 * rate))[0] for _ in range(int(seconds // 10) + 1)]
    parts = [p / np.sqrt(np.mean(np.square(p))) * 10.0 ** (rng.uniform(-3.0, 3.0) / 20.0) for p in parts]
    noise = np.concatenate(parts)[:count]
    ratio = float(rng.choice((0.0, 5.0, 10.0, 15.0)))
    noisy = clean + noise * active_rms(clean, rate) * 10.0 ** (-ratio / 20.0)
    gain = 10.0 ** (rng.uniform(-36.0, -22.0) / 20.0) / np.sqrt(np.mean(np.square(noisy)))
    gain = min(gain, 0.99 / np.max(np.abs(noisy)))
    return (noisy * gain).astype(np.float32), (clean * gain).astype(np.float32), {"snr_db": ratio}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--data", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--rate", type=int, default=16000, choices=(8000, 16000, 32000))
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--seconds", type=float, default=8.0)
    parser.add_argument("--seed", type=int, default=2024)
    parser.add_argument("--streams", action="store_true", help="one-minute streams for the detector")
    args = parser.parse_args()
    if args.streams and args.rate != RATE:
        sys.exit(f"evalset: streams are labelled at {RATE} Hz: give --rate {RATE}")
    try:
        corpus = load_corpus(args.data, args.rate, "valid", lambda text: print(text, file=sys.stderr))
    except InputError as error:
        sys.exit(f"evalset: {error}")
    out = Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    infos = []
    for index in range(args.count):
        if args.streams:
            noisy, clean, info = make_stream(corpus, index, args.seed)
            waves = {"noisy": noisy, "clean": clean}
        else:
            waves, info = make_pair(corpus, index, args.seed, args.seconds)
        for name, samples in waves.items():
            soundfile.write(out / f"{index:03d}_{name}.wav", samples, args.rate, subtype="PCM_16")
        if args.streams:
            labels = voice_labels(np.rint(clean[: len(clean) // HOP * HOP] * 32768.0))
            info["voiced_hops_10ms"] = "".join("1" if v else "0" for v in labels)
        infos.append({"id": f"{index:03d}", "rate": args.rate, **info})
    (out / "pairs.json").write_text(json.dumps(infos, indent=1) + "\n")
    print(f"{len(infos)} pairs in {out}")


if __name__ == "__main__":
    main()
