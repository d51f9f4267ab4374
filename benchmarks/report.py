#!/usr/bin/env python3
"""Writes tables.md and plots from the results.json of benchmarks/run: benchmarks/report.py DIRECTORY."""

import json
import pathlib
import statistics
import sys

import plots

BASELINE = "abseil-alone"
WORKLOADS = {
    "growing_random": "insert, growing", "presized_random": "insert, presized", "present_random": "present", "absent_random": "absent",
    "stream_zipf": "import stream", "growing_sequential": "sequential: insert", "present_sequential": "sequential: present",
    "growing_decimals": "decimals: insert", "present_decimals": "decimals: present",
    "growing_multiples": "multiples of 2^20: insert", "present_multiples": "multiples of 2^20: present",
}


class Results:
    """Values of each benchmark by repetition."""

    def __init__(self, document):
        self.context = document["context"]
        self.runs = {}
        for run in document["results"]:
            self.runs.setdefault((run["program"], run["name"]), {})[run["repetition"]] = run

    def values(self, program, name, key):
        return {repetition: run[key] for repetition, run in self.runs.get((program, name), {}).items() if key in run}

    def median(self, program, name, key):
        values = self.values(program, name, key)
        return statistics.median(values.values()) if values else None

    def rates(self, name):
        """Operations per second by repetition: by processor time for one thread, by the clock for more."""
        if name.endswith("threads:1"):
            return {repetition: 1e9 / value for repetition, value in self.values("JobBenchmark", name, "cpu_ns").items()}
        return self.values("JobBenchmark", name, "items_per_second")

    def rate(self, name):
        rates = self.rates(name)
        return statistics.median(rates.values()) if rates else None

    def ratio(self, name, other):
        """The median of the ratios within a repetition."""
        rates, others = self.rates(name), self.rates(other)
        ratios = [rates[repetition] / others[repetition] for repetition in rates if repetition in others]
        return statistics.median(ratios) if ratios else None

    def contestants(self):
        names = [name.split("/")[1] for program, name in self.runs if program == "JobBenchmark" and not name.startswith("reverse")]
        return list(dict.fromkeys(names))


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def number(value, unit=""):
    if value is None:
        return ""
    digits = 0 if abs(value) >= 100 else 1 if abs(value) >= 10 else 2
    return f"{value:.{digits}f}{unit}" if value >= 0.01 or value == 0 else f"{value:.1g}{unit}"


def millions(value):
    return number(value / 1e6 if value is not None else None)


def job_tables(results):
    parts = []
    workloads = [workload for workload in WORKLOADS if any(name.startswith(workload + "/") for _, name in results.runs)]
    for threads in (1, 2):
        rows, ratio_rows = [], []
        for contestant in results.contestants():
            names = [f"{workload}/{contestant}/threads:{threads}" for workload in workloads]
            if not any(results.rates(name) for name in names):
                continue
            rows.append([contestant] + [millions(results.rate(name)) for name in names])
            others = [f"{workload}/{BASELINE if threads == 1 else contestant}/threads:1" for workload in workloads]
            if threads == 1:
                ratio_rows.append([contestant] + [number(results.ratio(name, other)) for name, other in zip(names, others)])
            else:  # both by the clock
                ratios = []
                for name, other in zip(names, others):
                    two, one = results.median("JobBenchmark", name, "items_per_second"), results.median("JobBenchmark", other, "items_per_second")
                    ratios.append(number(two / one if two and one else None))
                ratio_rows.append([contestant] + ratios)
        if rows:
            header = [""] + [WORKLOADS[workload] for workload in workloads]
            measure = "one thread, by its processor time" if threads == 1 else "two threads, by the clock"
            parts.append(f"### The job: millions of operations per second, {measure}\n\n" + table(header, rows))
            title = f"as multiples of {BASELINE}" if threads == 1 else "two threads as multiples of one, by the clock"
            parts.append(f"### The job: {title}\n\n" + table(header, ratio_rows))
    names = sorted({name for program, name in results.runs if program == "JobBenchmark" and name.startswith("reverse")})
    if names:
        parts.append("### From an ID to its value and its text, one thread\n\n" + table(["", "millions per second"], [["/".join(name.split("/")[:2]), millions(results.rate(name))] for name in names]))
    return parts


def limit_tables(results):
    names = sorted({name for program, name in results.runs if program == "LimitsBenchmark"})
    if not names:
        return []
    rates = {name: 1e9 / results.median("LimitsBenchmark", name, "cpu_ns") for name in names}
    parts = ["### Limits of this machine's memory\n\n" + table(["", "millions per second"], [[name, millions(rates[name])] for name in names])]
    shares = []
    for workload, limit in (("present_random", "prefetched_reads"), ("absent_random", "prefetched_reads"), ("growing_random", "prefetched_writes"), ("presized_random", "prefetched_writes")):
        for contestant in ("kavix", "kavix-batched"):
            rate = results.rate(f"{workload}/{contestant}/threads:1")
            if rate:
                shares.append([f"{WORKLOADS[workload]}, {contestant}", f"{limit}, huge pages", f"{100 * rate / rates[limit + '/pages:huge']:.0f} %"])
    if shares:
        parts.append("### Share of the limits that is reached\n\n" + table(["", "limit", "share"], shares))
    return parts


def lexical_tables(results):
    parts = []
    for operation, contestants in (("parse_integer", ("kavix", "from_chars")), ("print_integer", ("kavix", "to_chars")), ("parse_decimal", ("kavix", "from_chars-double")), ("print_decimal", ("kavix", "to_chars-double"))):
        rows = []
        for digits in range(1, 20):
            rates = [results.median("LexicalBenchmark", f"{operation}/{contestant}/{digits}", "items_per_second") for contestant in contestants]
            if None not in rates:
                rows.append([str(digits)] + [number(1e9 / rate) for rate in rates] + ([number(rates[0] / rates[1])] if len(rates) == 2 else []))
        if rows:
            parts.append(f"### {operation.replace('_', ' ')}: nanoseconds by the number of digits\n\n" + table(["digits", *contestants] + (["speedup"] if len(contestants) == 2 else []), rows))
    return parts


def scale_series(results, operation, width, threads, key, convert=lambda value: value):
    prefix = f"{operation}/{width}/threads:{threads}/"
    points = []
    for program, name in results.runs:
        if program == "ScaleBenchmark" and name.startswith(prefix):
            value = results.median(program, name, key)
            if value is not None:
                points.append((int(name[len(prefix):]), convert(value)))
    return sorted(points)


def scale_tables(results):
    parts = []
    to_nanoseconds = lambda rate: 1e9 / rate
    for width in ("32-bit", "64-bit"):
        columns = [(f"{operation.replace('_', ' ')}, {threads} thread{'s' if threads > 1 else ''}: ns", scale_series(results, operation, width, threads, "items_per_second", to_nanoseconds))
                   for operation in ("insert", "insert_batched", "present", "present_batched") for threads in (1, 2, 8)]
        memory = [("bytes per value: buckets", scale_series(results, "insert", width, 1, "bucket_bytes_per_value")), ("all", scale_series(results, "insert", width, 1, "bytes_per_value")),
                  ("peak during growth", scale_series(results, "growth", width, 1, "peak_bytes_per_value"))]
        memory += [(f"longest operation, {threads} threads: ms", scale_series(results, "growth", width, threads, "longest_operation_ms")) for threads in (1, 2, 8)]
        for title, group in (("nanoseconds per operation, by the clock", columns), ("memory and waits", memory)):
            group = [(name, dict(points)) for name, points in group if points]
            values = sorted({value for _, points in group for value in points})
            if values:
                rows = [[f"{value:,}"] + [number(points.get(value)) for _, points in group] for value in values]
                parts.append(f"### Scale, {width} IDs: {title}\n\n" + table(["values"] + [name for name, _ in group], rows))
    return parts


def write_plots(results, directory):
    for workload, title in WORKLOADS.items():
        bars = [(contestant, results.rate(f"{workload}/{contestant}/threads:1")) for contestant in results.contestants()]
        bars = [(name, rate / 1e6) for name, rate in bars if rate]
        if bars:
            (directory / f"job-{workload}.svg").write_text(plots.bars(f"{title}: millions per second, one thread", bars))
    for name, title, key, operations, convert in (
            ("scale-time", "nanoseconds per operation, 32-bit IDs", "items_per_second", ("insert", "insert_batched", "present", "present_batched"), lambda rate: 1e9 / rate),
            ("scale-longest", "longest operation while growing, milliseconds", "longest_operation_ms", ("growth",), lambda value: value)):
        lines = [(f"{operation.replace('_', ' ')}, {threads}", scale_series(results, operation, "32-bit", threads, key, convert)) for operation in operations for threads in (1, 2, 8)]
        lines = [line for line in lines if len(line[1]) > 1]
        if lines:
            (directory / f"{name}.svg").write_text(plots.lines(title, lines))
    memory = [(f"{label}, {width}", [point for point in scale_series(results, operation, width, 1, key) if point[0] >= 10000])
              for width in ("32-bit", "64-bit") for label, operation, key in (("at rest", "insert", "bytes_per_value"), ("peak", "growth", "peak_bytes_per_value"))]
    memory = [line for line in memory if len(line[1]) > 1]
    if memory:
        (directory / "scale-memory.svg").write_text(plots.lines("bytes per value", memory))


def write(directory):
    results = Results(json.loads((directory / "results.json").read_text()))
    context, machine = results.context, results.context["machine"]
    head = (f"{machine['processor']}, {machine['processors']} processors, {machine['memoryGB']} GB; Linux {machine['kernel']}, huge pages {machine['hugePages']}; "
            f"{machine['compiler']}, {machine['options']}. Command: `{context['command']}`, {context['date']}; "
            f"load {context['loadBefore'][0]:.1f} before, {context['loadAfter'][0]:.1f} after. Medians of {context['repetitions']} repetitions"
            + (f" ({context['slowRepetitions']} of the slower peers)" if context["slowRepetitions"] != context["repetitions"] else "") + ".\n")
    (directory / "tables.md").write_text("\n".join([head] + job_tables(results) + limit_tables(results) + lexical_tables(results) + scale_tables(results)))
    write_plots(results, directory)


if __name__ == "__main__":
    write(pathlib.Path(sys.argv[1]))
