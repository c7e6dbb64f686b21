#!/usr/bin/env python3
"""usage: count.py PROGRAM LIBRARY COMPILER LIST [--update]

Counts the instructions of single operations under callgrind and compares them with a checked-in
list. Fails if one has grown by more than 5 %.

Counts the library's own instructions and those of its header templates, in the thread that runs
the operation. Excludes the C and C++ runtime libraries and libcrypto, which select routines by
processor. The counts are valid for one compiler, which the list names; with any other, nothing is
compared and the test is skipped.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

TOLERANCE = 0.05
SKIPPED = 77


def own_instructions(dump, objects):
    """The operation's name, and the instructions spent in the objects; None for other threads."""
    total, name, own, called = 0, None, False, False
    for line in dump.read_text(errors="replace").splitlines():
        if line.startswith("desc: Trigger: Client Request: "):
            name = line.rsplit(": ", 1)[1].strip()
        elif line.startswith("thread: ") and line.split()[1] != "1":
            return None
        elif line.startswith("ob="):
            own = os.path.realpath(line[3:].strip()) in objects
        elif line.startswith("calls="):
            called = True  # the next line is the cost of the callee
        elif re.match(r"\d", line):
            total += int(line.split()[1]) if own and not called else 0
            called = False
    return (name, total) if name else None


def count(objects):
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(
            ["valgrind", "--quiet", "--tool=callgrind", "--separate-threads=yes",
             "--compress-strings=no", "--compress-pos=no", "--callgrind-out-file=dump", objects[0]],
            cwd=folder, stdout=subprocess.DEVNULL, check=True)
        # dump.NUMBER-THREAD, in the order of the operations.
        dumps = sorted(pathlib.Path(folder).glob("dump.*"),
                       key=lambda path: int(path.suffix[1:].split("-")[0]))
        return dict(filter(None, (own_instructions(dump, objects) for dump in dumps)))


def main():
    if len(sys.argv) not in (5, 6):
        sys.exit(__doc__)
    objects, compiler = [os.path.realpath(name) for name in sys.argv[1:3]], sys.argv[3]
    listing = pathlib.Path(sys.argv[4])
    if sys.argv[5:] == ["--update"]:
        lines = [f"{name} {number}" for name, number in count(objects).items()]
        listing.write_text("\n".join([f"# {compiler}", *lines, ""]))
        return 0

    first, *lines = listing.read_text().splitlines()
    if first != f"# {compiler}":
        print(f"Not compared: the list is for {first[2:]}, and this is {compiler}.")
        return SKIPPED
    listed, counts = {name: int(number) for name, number in map(str.split, lines)}, count(objects)
    failures = 0
    for name in {**listed, **counts}:
        before, now = listed.get(name, 0), counts.get(name, 0)
        grown = now > before * (1 + TOLERANCE) or now == 0  # new, slower or missing
        if grown or now < before * (1 - TOLERANCE):
            print(f"{name}: {before} instructions have become {now}")
        failures += grown
    print(f"{len(counts)} operations counted, {failures} failed.")
    if failures:
        print("After an intended change: cmake --build build/linux --target update-instruction-counts")
    return 1 if failures else 0


sys.exit(main())
