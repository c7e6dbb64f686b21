#!/usr/bin/env python3
"""Digests every file under a directory with tarsio-digest and with sha256sum, and prints the times as
Google Benchmark's JSON.

usage: digest_bench.py TARSIO_DIGEST [DIR]
"""

import json
import os
import subprocess
import sys
import time


def names_under(directory):
    names = []
    for folder, _, files in os.walk(directory):
        for name in files:
            path = os.path.join(folder, name)
            # The program rejects names with a backslash or a colon.
            if os.path.isfile(path) and not os.path.islink(path) and not set(path) & set("\\:"):
                names.append(path)
    return sorted(names)


def seconds(command, names):
    text = "".join(name + "\0" for name in names).encode()
    begin = time.monotonic()
    subprocess.run(command, input=text, stdout=subprocess.DEVNULL, check=True)
    return time.monotonic() - begin


def main():
    program = sys.argv[1]
    names = names_under(sys.argv[2] if len(sys.argv) > 2 else "/usr/include")
    sides = {
        "ours": lambda jobs: seconds(
            [program, "--jobs", jobs, "--null", "--files-from", "-"], names),
        "peer:sha256sum": lambda jobs: seconds(["xargs", "-0", "-P", jobs, "sha256sum"], names),
        "limit:cat": lambda jobs: seconds(["xargs", "-0", "-P", jobs, "cat"], names),
    }
    sides["ours"]("1")  # loads the files into the system's cache
    benchmarks = []
    for jobs in ("1", "2"):
        for who, run in sides.items():
            elapsed = run(jobs)
            benchmarks.append({
                "name": f"digest_system_headers/jobs:{jobs}/{who}/real_time",
                "run_type": "iteration",
                "real_time": elapsed * 1e9,
                "time_unit": "ns",
                "items_per_second": len(names) / elapsed,
            })
    json.dump({"context": {}, "benchmarks": benchmarks}, sys.stdout, indent=1)


main()
