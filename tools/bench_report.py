#!/usr/bin/env python3
"""Reports benchmark results: a table, and a chart of the ratios.

usage: bench_report.py RESULTS [--svg FILE] [--docs DIR]

RESULTS contains Google Benchmark's JSON as FAMILY.RUN.json, from any number of runs. Every figure is
the median of the runs. A benchmark is named WORKLOAD/WHO, where WHO is "ours", "peer:NAME" or
"limit:NAME". --docs replaces the figures in DIR/performance.md, between "<!-- figures: FAMILY -->" and
"<!-- end -->", and DIR/performance.svg.
"""

import argparse
import collections
import fnmatch
import glob
import json
import math
import os
import re
import statistics
import xml.sax.saxutils

# The targets: workload, quantity, and limit. A side ("peer:...") or "best peer" means the ratio of our
# cost to that side's.
KIB, MIB = 1 << 10, 1 << 20
TARGETS = [
    ("log_a_line/*", "peer:spdlog", 0.95),
    ("filter_out_a_line", "time", 1.5e-9),
    ("parse_and_print/components:8", "peer:std", 0.7),
    ("join_paths/components:8", "peer:POCO", 1.0),
    ("parent_path/components:8", "peer:POCO", 1.0),
    ("copy_a_path/components:8", "peer:POCO", 1.0),
    # The best checks known have these shares of the speed of a plain read.
    ("IsU8_of_[me]*/bytes:64", "limit:or", 3.75),
    (f"IsU8_of_[me]*/bytes:{4 * KIB}", "limit:or", 7.45),
    (f"IsU8_of_[me]*/bytes:{MIB}", "limit:or", 6.44),
    ("IsU8_of_ASCII/bytes:64", "limit:or", 1.2),
    ("IsASCII/bytes:64", "limit:or", 1.2),
    (f"IsU8_of_ASCII/bytes:{4 * KIB}", "limit:or", 0.8),
    (f"IsASCII/bytes:{4 * KIB}", "limit:or", 0.8),
    (f"*To*/bytes:{4 * KIB}", "peer:range", 1.1),
    (f"*To*/bytes:{MIB}", "peer:range", 1.1),
    (f"split*/bytes:{KIB}", "peer:Abseil", 1.0),
    (f"trim/bytes:{KIB}", "peer:Abseil", 1.0),
    (f"to_*_case/bytes:{KIB}", "peer:Abseil", 1.0),
    (f"find_a_substring/bytes:{KIB}", "peer:Abseil", 1.0),
    ("compare_a_prefix/bytes:*", "peer:Abseil", 1.3),
    (f"replace_characters/bytes:{KIB}", "peer:Abseil", 1.0),
    ("SHA-256_digest/bytes:64", "peer:OpenSSL", 1.05),
    (f"SHA-256_digest/bytes:{MIB}", "peer:OpenSSL", 1.05),
    (f"read_a_file/bytes:{4 * KIB}", "peer:GLib", 1.2),
    ("read_a_file/*", "peer:GLib", 1.0),
    ("peak_memory_of_reading_a_file/*", "memory", 257 * MIB),
    (f"write_a_file/bytes:{4 * KIB}", "peer:std", 1.15),
    ("write_a_file/*", "peer:std", 1.1),
    ("transfer_between_threads/capacity:1024/*", "peer:Boost", 1.0),
    ("transfer_between_threads/capacity:16/*", "peer:Abseil", 1.5),
    ("memory_of_*", "best peer", 1.1),
    ("run_empty_tasks/*", "best peer", 1.0),
    ("first_task_of_a_new_pool", "peer:Asio", 1.5),
    ("start_and_stop_a_timer/*", "peer:Asio", 1.0),
    ("pass_with_no_timer_due/queued:100000", "time", 1e-6),
    ("fire_timers_due_at_once/queued:10000", "time", 1e-6),
    ("*_a_TsString/characters:12", "limit:malloc+memcpy", 1.15),
    ("*_a_TsString/characters:200", "limit:malloc+memcpy", 1.15),
    ("digest_system_headers/jobs:1", "peer:sha256sum", 0.9),
    ("digest_system_headers/jobs:2", "peer:sha256sum", 1.0),
]

# The parameters that are sizes. The report shows how a workload grows with them.
SIZES = ("bytes", "components", "characters", "queued")

UNITS_OF_TIME = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
WHO = re.compile(r"ours|peer:.*|limit:.*")
DROPPED = re.compile(r"real_time|manual_time|iterations:\d+")


# ---- results ----


class Side:
    """One side of a workload: the medians of its runs."""

    def __init__(self):
        self.values = collections.defaultdict(list)

    def add(self, entry):
        # With several threads or files, the time is wall-clock time; otherwise the thread's processor
        # time.
        by_clock = re.search(r"/(real|manual)_time", entry["name"])
        time = entry["real_time" if by_clock else "cpu_time"] * UNITS_OF_TIME[entry["time_unit"]]
        if "items_per_second" in entry:
            time = 1 / entry["items_per_second"]
        self.values["time"].append(time)
        if "memory_bytes" in entry:
            self.values["memory"].append(entry["memory_bytes"])
        if "bytes_per_second" in entry:
            self.values["rate"].append(entry["bytes_per_second"])

    def median(self, what):
        return statistics.median(self.values[what]) if self.values[what] else None

    def cost(self):
        """Returns the memory if it was measured, otherwise the time."""
        return self.median("memory") or self.median("time")

    def text(self):
        memory, rate = self.median("memory"), self.median("rate")
        if memory:
            return f"{memory / MIB:.1f} MiB"
        return time_text(self.median("time")) + (f" ({rate / 1e9:.3g} GB/s)" if rate else "")


class Workload:
    def __init__(self, name):
        self.name = name
        self.sides = collections.defaultdict(Side)

    def best(self, kind):
        """Returns the name and the side of the cheapest peer or limit."""
        sides = [(who, side) for who, side in self.sides.items() if who.startswith(kind)]
        return min(sides, key=lambda pair: pair[1].cost(), default=(None, None))

    def ratio(self, who):
        other = self.best("peer")[1] if who == "best peer" else self.sides.get(who)
        return self.sides["ours"].cost() / other.cost() if other else None

    def target(self):
        """Returns the target and whether it is met, or None if there is no target or no result for it."""
        for pattern, what, bound in TARGETS:
            if fnmatch.fnmatchcase(self.name, pattern):
                break
        else:
            return None
        if what in ("time", "rate", "memory"):
            value = self.sides["ours"].median(what)
            if what == "rate":
                return f"≥ {bound / 1e9:g} GB/s", value >= bound
            limit = time_text(bound) if what == "time" else f"{bound / MIB:.0f} MiB"
            return f"≤ {limit}", value <= bound
        ratio = self.ratio(what)
        if ratio is None:
            return None
        other = what.split(":")[-1]
        return f"≤ {bound:.3g} × {other}: {ratio_text(ratio)}", ratio <= bound

    def title(self):
        first, *parameters = self.name.split("/")
        return ", ".join([first.replace("_", " ")] + [parameter_text(p) for p in parameters])


def time_text(seconds):
    for unit, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= scale:
            return f"{seconds / scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


def ratio_text(ratio):
    return f"{ratio:.2f}" if ratio < 100 else f"{ratio:.0f}"


def parameter_text(parameter):
    key, _, value = parameter.partition(":")
    if key == "bytes":
        number = int(value)
        for unit, scale in (("MiB", MIB), ("KiB", KIB)):
            if number >= scale:
                return f"{number // scale} {unit}"
        return f"{number} B"
    if key == "capacity":
        return f"capacity {value}"
    if key == "queued":
        return f"{int(value):,} queued"
    return f"{value} {key if value != '1' else key.rstrip('s')}"


def read_results(folder):
    """Returns the machine's description, and the workloads of each family."""
    families = {}
    context = {}
    for path in sorted(glob.glob(os.path.join(folder, "*.json"))):
        family = os.path.basename(path).split(".")[0]
        with open(path, encoding="utf-8") as file:
            results = json.load(file)
        context = results["context"] or context
        workloads = families.setdefault(family, {})
        for entry in results["benchmarks"]:
            if entry.get("error_occurred"):
                raise SystemExit(f"{entry['name']}: {entry['error_message']}")
            parts = [part for part in entry["name"].split("/") if not DROPPED.fullmatch(part)]
            who = next(part for part in parts if WHO.fullmatch(part))
            parts.remove(who)
            name = "/".join(parts)
            workloads.setdefault(name, Workload(name)).sides[who].add(entry)
    return context, {
        family: sort_by_size(workloads.values()) for family, workloads in sorted(families.items())
    }


def sort_by_size(workloads):
    """Groups workloads with the same name, in order of their parameters."""
    first = {}
    for workload in workloads:
        first.setdefault(workload.name.split("/")[0], len(first))
    return sorted(workloads, key=lambda w: (
        first[w.name.split("/")[0]], [int(n) for n in re.findall(r":(\d+)", w.name)]))


def growth(workloads):
    """Yields (title, size, larger size, exponent) for the two largest of three or more sizes."""
    series = collections.defaultdict(list)
    for workload in workloads:
        for parameter in workload.name.split("/")[1:]:
            key, _, value = parameter.partition(":")
            if key in SIZES:
                name = workload.name.replace("/" + parameter, "")
                series[name, key].append((int(value), parameter, workload))
    for (name, _), points in series.items():
        if len(points) < 3:
            continue
        points.sort(key=lambda point: point[0])
        (small, small_text, before), (large, large_text, last) = points[-2:]
        ours = [w.sides["ours"].median("time") for w in (before, last)]
        exponent = math.log(ours[1] / ours[0]) / math.log(large / small)
        yield (name.replace("_", " "), parameter_text(small_text), parameter_text(large_text),
               exponent)


# ---- tables ----

HEADINGS = ("workload", "ours", "best peer", "limit", "ours / best peer", "target", "")


def rows(workloads):
    for workload in workloads:
        peer, peer_side = workload.best("peer")
        limit, limit_side = workload.best("limit")
        ratio = workload.ratio("best peer")
        target = workload.target()
        yield (
            workload.title(),
            workload.sides["ours"].text(),
            f"{peer_side.text()} {peer.split(':')[1]}" if peer else "",
            f"{limit_side.text()} {limit.split(':')[1]}" if limit else "",
            ratio_text(ratio) if ratio else "",
            target[0] if target else "",
            ("met" if target[1] else "MISSED") if target else "",
        )


def growth_text(workloads):
    named = [f"{title} n^{exponent:.2f} ({small} to {large})"
             for title, small, large, exponent in growth(workloads)]
    return "Growth: " + "; ".join(named) + "." if named else ""


def plain_table(lines):
    lines = [HEADINGS, *lines]
    widths = [max(len(line[i]) for line in lines) for i in range(len(HEADINGS))]
    return "\n".join(
        "  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)


def markdown_table(lines):
    """Leaves out the targets, which are internal to the project."""
    columns = HEADINGS.index("target")
    lines = [HEADINGS, ("---", *["--:"] * (columns - 1)), *lines]
    lines = [line[:columns] for line in lines]
    return "\n".join("| " + " | ".join(line) + " |" for line in lines)


def other_work(folder):
    """Returns the share of the processors' time that other programs took during the runs.

    The file has the processors' times before and after, then the shell's and its children's.
    """
    with open(os.path.join(folder, "processors"), encoding="utf-8") as file:
        before, after, _, children = (line.split() for line in file)
    user, nice, system, idle, waiting, interrupts, soft, stolen = (
        int(end) - int(begin) for begin, end in zip(before[1:9], after[1:9]))
    busy = user + nice + system + interrupts + soft + stolen
    own = 0
    for spent in children:
        minutes, seconds = spent.rstrip("s").split("m")
        own += (int(minutes) * 60 + float(seconds)) * os.sysconf("SC_CLK_TCK")
    return max(0.0, (busy - own) / (busy + idle + waiting))


def machine_text(context, share):
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    parts = [f"{model}, {os.cpu_count()} cores", context.get("compiler"), context.get("build_type")]
    peers = context.get("peers")
    text = ", ".join(filter(None, parts)) + (f"; compared with {peers}." if peers else ".")
    return text + f" Other programs took {share:.0%} of the processors' time."


# ---- chart ----

STYLE = """
  text { font: 12px sans-serif; fill: #24292f; }
  .page { fill: #ffffff; }
  .family { font-weight: bold; }
  .note { fill: #57606a; }
  .grid { stroke: #d0d7de; }
  .even { stroke: #57606a; stroke-width: 1.5; }
  .faster { fill: #2a9d8f; }
  .slower { fill: #d9763c; }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6edf3; }
    .page { fill: #0d1117; }
    .note { fill: #9da7b3; }
    .grid { stroke: #3d444d; }
    .even { stroke: #9da7b3; }
  }
"""
# Narrow enough for a phone: the name of a workload is above its bar.
LEFT, WIDTH, RIGHT, ROW, TOP = 16, 264, 140, 32, 64
BAR = 11
LEAST, MOST = 0.1, 10.0


def x_of(ratio):
    """Returns the position of a ratio on a logarithmic scale from LEAST to MOST."""
    part = math.log(min(max(ratio, LEAST), MOST) / LEAST) / math.log(MOST / LEAST)
    return LEFT + part * WIDTH


def chart(families):
    """Returns the chart: the ratio to the best peer for each workload with a target and a peer."""
    body = []

    def text(x, y, content, kind="", anchor="start"):
        body.append(f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">'
                    f"{xml.sax.saxutils.escape(content)}</text>")

    def line(x, kind, bottom):
        body.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="{TOP}" y2="{bottom}" class="{kind}"/>')

    drawn = {family: [w for w in workloads if w.target() and w.ratio("best peer")]
             for family, workloads in families.items()}
    drawn = {family: workloads for family, workloads in drawn.items() if workloads}
    height = TOP + ROW * sum(len(workloads) + 1 for workloads in drawn.values()) + 16
    text(16, 24, "Time or memory relative to the best peer (left of 1 is better)", "family")
    for ratio in (0.1, 0.2, 0.5, 1, 2, 5, 10):
        line(x_of(ratio), "even" if ratio == 1 else "grid", height - 12)
        text(x_of(ratio), TOP - 8, f"{ratio:g}", "note", "middle")

    y = TOP
    for family, workloads in drawn.items():
        y += ROW
        text(16, y - 5, family.replace("_", " "), "family")
        for workload in workloads:
            y += ROW
            ratio = workload.ratio("best peer")
            peer = workload.best("peer")[0].split(":")[1]
            kind = "faster" if ratio <= 1 else "slower"
            text(LEFT, y - BAR - 8, workload.title())
            left, right = sorted((x_of(1), x_of(ratio)))
            body.append(f'<rect x="{left:.1f}" y="{y - BAR - 3}" width="{right - left:.1f}" '
                        f'height="{BAR}" class="{kind}"/>')
            text(LEFT + WIDTH + 10, y - 5, f"{ratio_text(ratio)} × {peer}")
    width = LEFT + WIDTH + RIGHT
    # The namespace only identifies SVG; nothing is downloaded.
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}">\n<title>Ratios to the best peer</title>\n'
            f'<style>{STYLE}</style>\n<rect class="page" width="100%" height="100%"/>\n'
            + "\n".join(body) + "\n</svg>\n")


# ---- output ----


def write_docs(folder, machine, families):
    path = os.path.join(folder, "performance.md")
    with open(path, encoding="utf-8") as file:
        page = file.read()

    def figures(match):
        family = match[1]
        if family == "machine":
            content = machine
        elif family in families:
            workloads = families[family]
            content = "\n\n".join(
                part for part in (markdown_table(rows(workloads)), growth_text(workloads)) if part)
        else:
            return match[0]  # not measured in this run
        return f"<!-- figures: {family} -->\n{content}\n<!-- end -->"

    page = re.sub(r"<!-- figures: (\w+) -->\n.*?<!-- end -->", figures, page, flags=re.DOTALL)
    with open(path, "w", encoding="utf-8") as file:
        file.write(page)


def write(path, content):
    with open(path, "w", encoding="utf-8") as file:
        file.write(content)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("results")
    parser.add_argument("--svg")
    parser.add_argument("--docs")
    options = parser.parse_args()

    context, families = read_results(options.results)
    everything = [workload for workloads in families.values() for workload in workloads]
    machine = machine_text(context, other_work(options.results))
    print(machine + "\n")
    print(plain_table(rows(everything)) + "\n")
    print(growth_text(everything))
    targets = [target for target in (workload.target() for workload in everything) if target]
    print(f"\n{sum(met for _, met in targets)} of {len(targets)} targets met.")
    if options.svg:
        write(options.svg, chart(families))
        print(f"Chart of the ratios: {options.svg}")
    if options.docs:
        write_docs(options.docs, machine, families)
        write(os.path.join(options.docs, "performance.svg"), chart(families))


main()
