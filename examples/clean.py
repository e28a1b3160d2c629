"""Cleans a recording: python examples/clean.py NOISY.wav CLEANED.wav (PYTHONPATH=python in a checkout)."""

import sys

import soundfile

import orvel

audio, rate = soundfile.read(sys.argv[1], dtype="int16", always_2d=True)
cleaned = orvel.clean(audio, rate, axis=0)
soundfile.write(sys.argv[2], cleaned, rate)
