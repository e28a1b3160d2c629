#!/usr/bin/python3
"""Compares two files of orvel_outputs and prints a table: compare.py EXPECTED GOT.

Fails where outputs are further apart than 1e-5 of full scale or one step of 16 bits, or scores of voice activity
than 1e-5. Feed-forward models at a rate below their own are held to FAINT: half of their bins are empty, and
rounding in the transform decides their logarithms. x86's own kernel sets are 4.2e-5 and two steps apart there.
"""

import array
import math
import sys

MOST = (1e-5, 1)
FAINT = (2e-4, 6)
FAINT_STREAMS = {(f"orvel-ff-v{version}", 8000) for version in (1, 2, 3)}


def records(path):
    """{(model, rate, kind): (inputs, outputs)}"""
    found = {}
    with open(path, "rb") as file:
        while line := file.readline():
            model, rate, kind, *counts = line.decode().split()
            values = []
            for count in map(int, counts):
                part = array.array("f")
                part.frombytes(file.read(4 * count))
                if len(part) != count:
                    sys.exit(f"{path}: is cut in {model} at {rate} Hz")
                values.append(part)
            found[model, int(rate), kind] = values
    return found


def main(expected_path, got_path):
    expected, got = records(expected_path), records(got_path)
    if not expected or expected.keys() != got.keys():
        sys.exit(f"streams differ: {sorted(expected.keys() ^ got.keys())}")
    failed = 0
    print(
        "| model | Hz | largest difference, full scale 1 | steps of 16 bits | most |\n"
        "| --- | ---: | ---: | ---: | ---: |"
    )
    for key, (inputs, outputs) in expected.items():
        model, rate, kind = key
        if got[key][0] != inputs or len(got[key][1]) != len(outputs) or not any(outputs):
            sys.exit(f"{model} at {rate} Hz: another input, another length or silence")
        pairs = list(zip(outputs, got[key][1]))
        apart = max(abs(a - b) for a, b in pairs)
        steps = max(abs(math.trunc(a * 32768) - math.trunc(b * 32768)) for a, b in pairs)
        most_float, most_steps = FAINT if (model, rate) in FAINT_STREAMS else MOST
        bad = not apart <= most_float or (kind == "cleaner" and steps > most_steps)
        failed += bad
        print(
            f"| {model} | {rate} | {apart:.1e} | {steps if kind == 'cleaner' else ''} |"
            f" {most_steps}{' TOO FAR' if bad else ''} |"
        )
    print(f"{len(expected) - failed} of {len(expected)} streams are near enough")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
