#!.venv/bin/python
"""Pass band, aliasing and delay of the two resamplers that sessions can be built with, beside soxr.

Builds both programs, measures tones, and prints a table; with --write it puts the table into
docs/resamplers.md and draws docs/img/resamplers.png. Runs in the project's .venv (numpy, soxr, matplotlib).
"""

import argparse
import json
import pathlib
import subprocess

import numpy as np
import soxr

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILDS = {"libresample": "release", "speexdsp": "free"}
DRAWN = [(48000, 16000), (16000, 48000)]
LEVEL = 10000.0


def measured(build):
    subprocess.run(["scripts/build", build, "orvel_resampler_response"], check=True, cwd=ROOT)
    program = ROOT / "build" / build / "bench" / "orvel_resampler_response"
    return json.loads(subprocess.run([program], check=True, capture_output=True, text=True).stdout)


def by_soxr(conversion):
    """The same tones through soxr's high quality, whose delay is compensated."""
    rate_in, rate_out = conversion["from"], conversion["to"]
    points = []
    for frequency, _, _ in conversion["points"]:
        n = np.arange(int(0.6 * rate_in))
        tone = (LEVEL * np.sin(2 * np.pi * frequency / rate_in * n)).astype(np.float32)
        out = soxr.resample(tone, rate_in, rate_out, quality="HQ").astype(float)
        # Half a second: whole periods of every tone.
        out = out[rate_out // 20 : rate_out // 20 + rate_out // 2]
        kept = frequency < rate_out / 2
        turn = np.exp(2j * np.pi * frequency / rate_out * np.arange(len(out)))
        amplitude = 2 * np.mean(out * turn.conj()) if kept else 0
        rest = out - (amplitude * turn).real
        level = 20 * np.log10(max(np.sqrt(2 * np.mean(rest**2)) / LEVEL, 1e-12))
        points.append((frequency, 20 * np.log10(abs(amplitude) / LEVEL) if kept else None, level))
    return {**conversion, "delay": None, "points": points}


def row(name, conversion):
    nyquist = min(conversion["from"], conversion["to"]) / 2
    points = conversion["points"]

    def edge(decibels):
        inside = [f for f, gain, _ in points if gain is not None and gain >= -decibels]
        return f"{max(inside) / nyquist:.2f}"

    def worst(low, high):
        levels = [rest for f, _, rest in points if low <= f / nyquist < high]
        return f"{max(levels):.0f}" if levels else ""

    delay = "" if conversion["delay"] is None else f"{1000 * conversion['delay'] / conversion['to']:.2f}"
    return [
        f"{conversion['from']} to {conversion['to']}",
        name,
        edge(0.5),
        edge(3),
        worst(0, 0.8),
        worst(0.8, 1.2),
        worst(1.2, 99),
        delay,
    ]


def draw(results, path):
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, panels = pyplot.subplots(1, 2, figsize=(11, 4), sharey=True)
    for panel, pair in zip(panels, DRAWN):
        for name, conversions in results.items():
            points = next(c["points"] for c in conversions if (c["from"], c["to"]) == pair)
            kept = [(f / 1000, g) for f, g, _ in points if g is not None]
            (line,) = panel.plot(*zip(*kept), label=f"{name}: the tone")
            rest = [(f / 1000, r) for f, _, r in points]
            panel.plot(*zip(*rest), ":", color=line.get_color(), label=f"{name}: what else comes out")
        panel.set_title(f"{pair[0]} to {pair[1]} Hz")
        panel.set_xlabel("frequency of the input tone, kHz")
        panel.set_ylim(-150, 5)
        panel.grid(alpha=0.3)
    panels[0].set_ylabel("level, dB of the input")
    panels[1].legend(fontsize=7, loc="center right")
    figure.tight_layout()
    path.parent.mkdir(exist_ok=True)
    figure.savefig(path, dpi=90)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--write", action="store_true", help="update docs/resamplers.md and its picture")
    arguments = parser.parse_args()
    results = {name: measured(build) for name, build in BUILDS.items()}
    results["soxr HQ"] = [by_soxr(conversion) for conversion in results["libresample"]]
    head = [
        "Hz",
        "resampler",
        "-0.5 dB at",
        "-3 dB at",
        "worst, below 0.8",
        "worst, 0.8 to 1.2",
        "worst, above 1.2",
        "delay, ms",
    ]
    lines = [head, ["---"] * 2 + ["---:"] * 6]
    for conversions in zip(*results.values()):
        lines += [row(name, conversion) for name, conversion in zip(results, conversions)]
    table = "\n".join("| " + " | ".join(line) + " |" for line in lines)
    print(table)
    if arguments.write:
        document = ROOT / "docs" / "resamplers.md"
        text = document.read_text()
        begin, end = "<!-- begin resamplers -->\n", "<!-- end resamplers -->"
        document.write_text(text.split(begin)[0] + begin + table + "\n" + end + text.split(end)[1])
        draw(results, ROOT / "docs" / "img" / "resamplers.png")


if __name__ == "__main__":
    main()
