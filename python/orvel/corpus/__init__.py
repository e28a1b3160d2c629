"""Cleans corpora and finds speech in them, with every core of one machine or, through Ray, of many.

    python -m orvel.corpus clean IN OUT
    python -m orvel.corpus vad IN OUT

`run` does the same from Python. See docs/corpora.md.
"""

from orvel.corpus.run import Options, run

__all__ = ["Options", "run"]
