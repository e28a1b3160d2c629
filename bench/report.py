#!/usr/bin/python3
"""Tables of benchmark results: prints them, and keeps them in FOLDER/report.md.

FOLDER holds JSON files as bench/run and scripts/soak leave them; a table whose results are missing is
left out. With --write, everything between the lines `<!-- begin NAME -->` and `<!-- end NAME -->` of
DOCUMENT is replaced by the table of that name.
"""

import argparse
import json
import os
import pathlib
import platform
import re
import sys


def table(header, rows):
    """A Markdown table; columns whose last row has a number are aligned to the right."""
    align = ["---:" if re.fullmatch(r"[\d.,]+", str(cell)) else "---" for cell in rows[-1]]
    lines = [header, align, *rows]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in lines)


def micro(nanoseconds):
    return f"{nanoseconds / 1000:.2f}"


def least_times(report):
    """The least processor time of each benchmark's repetitions, in ns, and its last counters.

    In the order in which the program lists them, which is not that of its random interleaving.
    """
    unit = {"ns": 1.0, "us": 1e3, "ms": 1e6}
    times, counters = {}, {}
    for run in sorted(report["benchmarks"], key=lambda run: (run["family_index"], run["per_family_instance_index"])):
        if run.get("run_type") == "aggregate" or "error_occurred" in run:
            continue
        name = run["run_name"]
        time = run["cpu_time"] * unit[run["time_unit"]]
        times[name] = min(time, times.get(name, time))
        counters[name] = run
    return times, counters


def machine(results):
    report = results["sessions"]["context"]
    model = re.search(r"model name\s*:\s*(.*)", pathlib.Path("/proc/cpuinfo").read_text())
    caches = {c["level"]: c["size"] for c in report["caches"] if c["type"] != "Instruction"}
    sizes = ", ".join(f"L{level} {size // 1024} KiB" for level, size in sorted(caches.items()))
    load = ", ".join(f"{value:.1f}" for value in report["load_avg"])
    return (
        f"Measured on {model.group(1) if model else platform.machine()} ({sizes}), one core, with a"
        f" load average of {load} on {os.cpu_count()} cores."
    )


def stages(results):
    times, _ = least_times(results["stages"])
    by_stage = {}
    for name, time in times.items():
        stage, *arguments = name.split("/")
        values = [argument.split(":")[-1] for argument in arguments]
        label = stage if len(values) < 2 else f"{stage} {values[0]} to {values[1]} Hz, 10 ms"
        rate = values[0] if len(values) == 1 else "other"
        by_stage.setdefault(label, {})[rate] = time
    rates = ["8000", "16000", "32000"]
    rows = []
    for label, cells in by_stage.items():
        words = re.sub(r"([A-Z])", lambda match: " " + match.group(1).lower(), label)
        words = words if " to " not in label else label
        alone = micro(cells["other"]) if "other" in cells else ""
        rows.append([words, *(micro(cells[r]) if r in cells else "" for r in rates), alone])
    return table(["stage, µs per hop", "8 kHz", "16 kHz", "32 kHz", "one size"], rows)


def floor(results):
    times, counters = least_times(results["sessions"])
    models = [name.split("/", 1)[1] for name in times if name.startswith("products/")]
    flops = {m: 2 * counters[f"products/{m}"]["weights"] for m in models}
    hops = {m: counters[f"products/{m}"]["hops"] for m in models}
    per_hop = {name: time / hops[name.split("/")[1]] for name, time in times.items()}
    peak = max(flops[m] / per_hop[f"products/{m}"] for m in models)
    bandwidth = max(2 * flops[m] / per_hop[f"weightReads/{m}"] for m in models)
    rows = []
    for m in models:
        own = [n for n in per_hop if n.startswith(f"session/{m}/")]
        rate = min(own, key=lambda n: times[n])
        products, transforms = per_hop[f"products/{m}"], per_hop[f"transforms/{m}"]
        rows.append(
            [
                m,
                f"{flops[m] / 2e6:.2f}",
                micro(per_hop[rate]),
                micro(products),
                micro(transforms),
                f"{per_hop[rate] / (products + transforms):.2f}",
                micro(flops[m] / peak),
                micro(2 * flops[m] / bandwidth),
            ]
        )
    head = [
        "model",
        "million weights",
        "session at own rate, µs per hop",
        "its matrix products",
        "its transforms",
        "session / (products + transforms)",
        "weights × 2 flop at peak",
        "bytes of weights at bandwidth",
    ]
    return table(head, rows) + (
        f"\n\nHighest rate of a model's products: {peak:.1f} Gflop/s; of reading its weights: {bandwidth:.1f} GB/s."
    )


def sessions(results):
    times, _ = least_times(results["sessions"])
    rows = {}
    for name, time in times.items():
        kind, model, *rate = name.split("/")
        if kind == "session":
            rows.setdefault(model, {})[rate[0]] = time
    rates = ["8000", "16000", "32000", "48000"]
    cells = [
        [m, *(f"{c[r] / 1e6:.2f}" if r in c else "" for r in rates), f"{1e9 / min(c.values()):.0f}"]
        for m, c in rows.items()
    ]
    return table(
        ["model, ms per second of audio", "8 kHz", "16 kHz", "32 kHz", "48 kHz", "times real time at best"], cells
    )


def frames(results):
    rows = []
    for r in results["frame_times"]:
        work, seen = r["work_ns_per_hop"], r["seen_ns_per_hop"]
        rows.append(
            [
                r["model"],
                r["rate"],
                *(micro(work[p]) for p in ("p50", "p99", "p99.9", "max")),
                f"{work['max'] / work['p50']:.2f}",
                micro(seen["p99.9"]),
                micro(seen["max"]),
            ]
        )
    return table(
        [
            "model, µs per hop",
            "rate",
            "p50",
            "p99",
            "p99.9",
            "max",
            "max / p50",
            "p99.9 with the machine's noise",
            "max with it",
        ],
        rows,
    )


def scale(results):
    rows = []
    for r in results["scale"]:
        ratio = r["hop_ns_among_all"] / r["hop_ns_alone"]
        rows.append(
            [
                r["model"],
                r["rate"],
                r["sessions"],
                f"{r['bytes_per_session'] / 1024:.0f}",
                f"{r['bytes_per_session'] * 10000 / 1e9:.2f}",
                f"{r['first_creation_ns'] / 1e6:.2f}",
                f"{r['creation_ns'] / 1e6:.3f}",
                micro(r["hop_ns_alone"]),
                micro(r["hop_ns_among_all"]),
                f"{ratio:.2f}",
                micro(r["hop_ns_all_in_turn"]),
            ]
        )
    return table(
        [
            "model",
            "rate",
            "sessions",
            "KiB each",
            "GB for 10 000",
            "first created, ms",
            "created, ms",
            "hop alone, µs",
            "hop beside all others, µs",
            "ratio",
            "hops of all in turn, µs",
        ],
        rows,
    )


def streams(results):
    """Streams per core over the size of the batch, drawn as bars, for each arithmetic that was measured."""
    builds = {"MKL": "streams", "Portable": "streams_portable"}
    return "\n\n".join(
        f"{name} arithmetic:\n\n" + streams_of(results[source][0])
        for name, source in builds.items()
        if source in results
    )


def streams_of(measured):
    rows = measured["rows"]
    per_core = {key: [1e9 / row[f"{key}_ns"] for row in rows] for key in ("together", "apart")}
    cell = max(per_core["together"]) / 30
    lines = []
    for row, together, apart in zip(rows, per_core["together"], per_core["apart"], strict=True):
        lines.append(
            [
                row["batch"] or "one by one",
                f"{row['together_ns'] / 1e6:.2f}",
                f"{together:.0f}",
                f"{together / per_core['together'][0]:.2f}",
                f"{row['apart_ns'] / 1e6:.2f}",
                f"{apart:.0f}",
                f"{apart / per_core['apart'][0]:.2f}",
                "█" * max(1, round(together / cell)),
            ]
        )
    header = ["sessions in a batch"]
    for hops in ("hops together", "hops apart"):
        header += [f"{hops}: ms per second of a stream", "streams per core", "× one by one"]
    return table([*header, "streams per core, hops together"], lines) + (
        f"\n\n{measured['model']} at {measured['rate']} Hz. {measured['weights'] / 1e6:.2f} million weights × 2 flop at"
        f" {measured['peak_gflops']:.1f} Gflop/s, the processor's peak in the same run:"
        f" {measured['bound_ns'] / 1e6:.2f} ms per second of a stream."
    )


def served(results, name):
    """Rows of bench-server: each mix was measured by a process of its own."""
    parts = [results[part] for part in sorted(results) if part.startswith("server")]
    return parts[0]["seconds"], [row for part in parts for row in part[name]]


def server(results):
    """Streams per core by mix and size of batch."""
    target = 100_000
    seconds, measured = served(results, "rows")
    rows = []
    for r in measured:
        streams = [r[name] if name in r else "" for name in ("mix", "batch", "held")]
        times = [f"{r[name]:.2f}" for name in ("usual_ms", "p999_ms", "worst_ms")]
        cores = f"{-(-target // r['held']):,}" if r.get("held") else ""
        rows.append([*streams, *times, f"{r['late_ticks']:,} of {r['ticks']:,}", cores])
    head = ["streams", "in a batch", "held by one core", "usual time, ms", "99.9 % within, ms"]
    return table([*head, f"worst in {seconds:g} s, ms", "late ticks", f"cores for {target:,}"], rows)


def overload(results):
    """What becomes of more streams than a core can serve."""
    _, measured = served(results, "overload")
    columns = ("mix", "batch", "offered", "shed", "late_while_shedding", "late_after_shedding")
    head = ["streams", "in a batch", "offered", "shed", "late ticks while shedding", "late ticks in the minute after"]
    return table(head, [[r[name] for name in columns] for r in measured])


def soak(results):
    r = results["soak"]
    rows = [
        [
            f"{p['audio_hours']:.2f}",
            f"{p['cpu_ms_per_audio_second']:.3f}",
            f"{p['resident_bytes'] / 1e6:.1f}",
            f"{p['heap_bytes'] / 1e6:.2f}",
        ]
        for p in r["parts"]
    ]
    before, after = (r[f"heap_bytes_without_sessions_{w}"] / 1e6 for w in ("before", "after"))
    return table(["hours of audio", "ms per second of audio", "resident, MB", "heap, MB"], rows) + (
        f"\n\n{r['audio_hours']:g} hours of audio through {r['sessions_at_once']} sessions at a time,"
        f" {r['sessions_opened']} opened in all. Frames refused or not finite: {r['bad_frames']}."
        f" Heap without any session: {before:.3f} MB before, {after:.3f} MB after."
    )


def arithmetic(results):
    rows = []
    for r in results["arithmetic"]:
        times = r.get("ns_per_second")
        cells = [f"{times[0] / 1e6:.2f}", f"{times[1] / 1e6:.2f}", f"{times[0] / times[1]:.2f}"] if times else [""] * 3
        rows.append([r["model"], r["rate"], *cells, f"{r['floats']:.1e}", f"{r['steps']:.0f}" if "steps" in r else ""])
    head = [
        "model and keys",
        "Hz",
        "MKL, ms per second of audio",
        "portable",
        "MKL / portable",
        "largest difference, full scale 1",
        "steps of 16 bits",
    ]
    return table(head, rows)


def memory(results):
    """Memory of a session at 48 kHz in two builds, and of the weights that all sessions of a model share."""
    _, counters = least_times(results["sessions"])
    each = [
        {r["model"]: f"{r['bytes_per_session'] / 1024:.0f}" for r in results.get(build, []) if r["rate"] == 48000}
        for build in ("scale_free", "scale")
    ]
    rows = []
    for model, free in each[0].items():
        weights = counters[f"products/{model}"]["weights"]
        rows.append([model, free, each[1].get(model, ""), f"{4 * weights / 1024:.0f}"])
    return table(
        ["model", "free build, KiB", "MKL and libresample, KiB", "weights of all sessions together, KiB"], rows
    )


TABLES = {
    "memory": ("scale_free", memory),
    "machine": ("sessions", machine),
    "stages": ("stages", stages),
    "floor": ("sessions", floor),
    "sessions": ("sessions", sessions),
    "frames": ("frame_times", frames),
    "scale": ("scale", scale),
    "streams": ("streams", streams),
    "server": ("server1", server),
    "overload": ("server1", overload),
    "arithmetic": ("arithmetic", arithmetic),
    "soak": ("soak", soak),
}


def put(document, tables):
    """Replaces the tables in a document, which must have a place for each."""
    text = document.read_text()
    for name, rendered in tables.items():
        begin, end = f"<!-- begin {name} -->\n", f"<!-- end {name} -->"
        if begin not in text or end not in text:
            sys.exit(f"{document} has no place for '{name}'")
        before, rest = text.split(begin)
        text = before + begin + rendered + "\n" + end + rest.split(end, 1)[1]
    document.write_text(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path, metavar="FOLDER")
    parser.add_argument("--write", type=pathlib.Path, metavar="DOCUMENT")
    arguments = parser.parse_args()
    results = {}
    for path in sorted(arguments.folder.glob("*.json")):
        try:
            results[path.stem] = json.loads(path.read_text())
        except json.JSONDecodeError as error:
            sys.exit(f"{path}: not a whole JSON file: {error}")
    tables = {name: render(results) for name, (source, render) in TABLES.items() if source in results}
    if not tables:
        sys.exit(f"{arguments.folder} holds no results")
    report = "\n".join(f"## {name}\n\n{rendered}\n" for name, rendered in tables.items())
    (arguments.folder / "report.md").write_text(report)
    print(report, end="")
    if arguments.write:
        put(arguments.write, tables)


if __name__ == "__main__":
    main()
