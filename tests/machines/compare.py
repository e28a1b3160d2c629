#!/usr/bin/python3
"""Compares two files of orvel_outputs and prints a table: compare.py EXPECTED GOT.

Fails where outputs are further apart than 1e-5 of full scale or one step of 16 bits, or scores of voice activity
than 1e-5.
"""

import array
import math
import sys

MOST_FLOAT, MOST_STEPS = 1e-5, 1


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
    print("| model | Hz | largest difference, full scale 1 | steps of 16 bits |\n| --- | ---: | ---: | ---: |")
    for key, (inputs, outputs) in expected.items():
        model, rate, kind = key
        if got[key][0] != inputs or len(got[key][1]) != len(outputs) or not any(outputs):
            sys.exit(f"{model} at {rate} Hz: another input, another length or silence")
        pairs = list(zip(outputs, got[key][1]))
        apart = max(abs(a - b) for a, b in pairs)
        steps = max(abs(math.trunc(a * 32768) - math.trunc(b * 32768)) for a, b in pairs)
        bad = not apart <= MOST_FLOAT or (kind == "cleaner" and steps > MOST_STEPS)
        failed += bad
        print(f"| {model} | {rate} | {apart:.1e} | {steps if kind == 'cleaner' else ''} |{' TOO FAR' if bad else ''}")
    print(f"{len(expected) - failed} of {len(expected)} streams within {MOST_FLOAT:g} and one step")
    return failed != 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
