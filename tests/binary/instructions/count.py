#!/usr/bin/env python3
"""Counts the instructions of single operations under callgrind and compares them with a checked-in
list. Fails if one has grown by more than 5 %.

Counts the library's own instructions and those of its header templates, in the thread that runs
the operation. Excludes the C and C++ runtime libraries and libcrypto, which select routines by
processor. The counts are valid for one compiler, which the list names; with any other, nothing is
compared and the test is skipped.

usage: count.py --program FILE --library FILE --compiler TEXT --list FILE [--update]
"""

import argparse
import glob
import os
import re
import subprocess
import sys
import tempfile

TOLERANCE = 0.05
SKIPPED = 77


def own_instructions(dump, objects):
    """The operation's name, and the instructions spent in the objects; None for other threads."""
    total = 0
    name = None
    own = False
    called = False
    with open(dump, encoding="utf-8", errors="replace") as file:
        for line in file:
            if line.startswith("desc: Trigger: Client Request: "):
                name = line.rsplit(": ", 1)[1].strip()
            elif line.startswith("thread: ") and line.split()[1] != "1":
                return None
            elif line.startswith("ob="):
                own = os.path.realpath(line[3:].strip()) in objects
            elif line.startswith("calls="):
                called = True  # the next line is the cost of the callee
            elif re.match(r"\d", line):
                if own and not called:
                    total += int(line.split()[1])
                called = False
    return (name, total) if name else None


def count(program, library):
    objects = {os.path.realpath(program), os.path.realpath(library)}
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", "--separate-threads=yes",
             "--compress-strings=no", "--compress-pos=no", "--callgrind-out-file=dump",
             os.path.realpath(program)],
            cwd=folder, stdout=subprocess.DEVNULL, check=True)
        # dump.NUMBER-THREAD, in the order of the operations.
        dumps = sorted(glob.glob(os.path.join(folder, "dump.*")),
                       key=lambda path: int(path.rsplit(".", 1)[1].split("-")[0]))
        return dict(filter(None, (own_instructions(dump, objects) for dump in dumps)))


def read_list(path):
    """The compiler of the list, and its counts."""
    with open(path, encoding="utf-8") as file:
        compiler = file.readline().removeprefix("# ").strip()
        return compiler, {name: int(number) for name, number in map(str.split, file)}


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    for option in ("--program", "--library", "--compiler", "--list"):
        parser.add_argument(option, required=True)
    parser.add_argument("--update", action="store_true")
    options = parser.parse_args()

    if not options.update:
        compiler, listed = read_list(options.list)
        if compiler != options.compiler:
            print(f"Not compared: the list is for {compiler}, and this is {options.compiler}.")
            return SKIPPED
    counts = count(options.program, options.library)
    if options.update:
        with open(options.list, "w", encoding="utf-8") as file:
            file.write(f"# {options.compiler}\n")
            file.writelines(f"{name} {number}\n" for name, number in counts.items())
        return 0

    failures = 0
    for name in {**listed, **counts}:
        before, now = listed.get(name), counts.get(name)
        if before is None or now is None:
            print(f"{name}: only {'counted' if before is None else 'in the list'}")
            failures += 1
        elif now > before * (1 + TOLERANCE):
            print(f"{name}: {before} instructions have become {now} ({now / before - 1:+.1%})")
            failures += 1
        elif now < before * (1 - TOLERANCE):
            print(f"{name}: fewer, {before} have become {now} ({now / before - 1:+.1%})")
    print(f"{len(counts)} operations counted, {failures} failed.")
    if failures:
        print("After an intended change: cmake --build build/linux --target update-instruction-counts")
    return 1 if failures else 0


sys.exit(main())
