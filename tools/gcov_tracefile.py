#!/usr/bin/env python3
"""Converts GCC's coverage counters of src and include to a tracefile for gcovr.

usage: gcov_tracefile.py BUILD TRACEFILE

Most sources are compiled several times, into the library and into tests, and templates are compiled for
several types. Here each line and each of its branches counts once. gcovr alone would count branches to
exceptions as ordinary branches in functions that were not called. The explorer's objects are left out: its
atomics have branches that the library does not have.
"""

import collections
import functools
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def reports_of(build):
    """Yields (file, report) for each object file and each of our sources in it."""
    for counters in sorted(build.rglob("*.gcda")):
        if "explorer.dir" in counters.parts:
            continue
        output = subprocess.run(["gcov", "--stdout", "--json", "--branch-probabilities", counters],
                                cwd=build, check=True, capture_output=True).stdout
        report = json.loads(output)
        for of_file in report["files"]:
            # The library's paths are relative to the source folder: -ffile-prefix-map.
            folders = (report["current_working_directory"], ROOT)
            for path in {pathlib.Path(folder, of_file["file"]).resolve() for folder in folders}:
                if path.is_file() and (ROOT / "src" in path.parents or ROOT / "include" in path.parents):
                    yield path, of_file


@functools.lru_cache(maxsize=None)
def lines_without_code(path):
    """The numbers of the lines with only braces, parentheses and semicolons. GCC counts the cleanup after
    an exception there."""
    lines = enumerate(path.read_text().splitlines(), 1)
    return {number for number, line in lines if re.fullmatch(r"[\s{}();]*", line)}


def main():
    build, tracefile = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
    lines = collections.defaultdict(collections.Counter)  # file => line => count
    branches = collections.defaultdict(collections.Counter)  # file, line => branch => count
    for path, report in reports_of(build):
        # All instances of a template begin at the same position.
        places = {each["name"]: (each["start_line"], each["start_column"])
                  for each in report["functions"]}
        for line in report["lines"]:
            number, place = line["line_number"], places.get(line.get("function_name"))
            if number in lines_without_code(path):
                continue
            lines[path][number] += line["count"]
            for index, branch in enumerate(line["branches"]):
                if not branch["throw"]:
                    branches[path, number][place, index] += branch["count"]

    files = [{"file": str(path.relative_to(ROOT)), "functions": [], "lines": [
        {"line_number": number, "count": count, "gcovr/noncode": False, "gcovr/excluded": False,
         "branches": [{"count": taken, "fallthrough": False, "throw": False}
                      for taken in branches[path, number].values()]}
        for number, count in sorted(lines[path].items())]} for path in sorted(lines)]
    with open(tracefile, "w", encoding="utf-8") as output:
        json.dump({"gcovr/format_version": "0.3", "files": files}, output)


if __name__ == "__main__":
    main()
