#!/usr/bin/env python3
"""Mutation tests: changes the library in one place at a time and checks that a test fails.

usage: mutate.py [--most N] [FILE...]

Works on a copy of the tree in build/mutate. Builds and runs only the tests of the changed file's family,
one program after the other, until one fails or exceeds its time limit: first in a quick build, then with
the sanitizers. A mutant that no test notices survives; docs/testing.md lists the acceptable kinds. Tries
all mutants, or with --most at most N per file: a random selection that is the same each time.
"""

import argparse
import functools
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
TREE = WORK / "tree"

# The test programs for each file, those that notice most mutants first.
TESTS = {
    "include/common/blocking_queue.h": ["blocking_queue_test", "lock_faults_test",
                                        "memory_faults_test", "races_test",
                                        "allocation_counts_test"],
    "include/common/file_utils.h": ["file_utils_test"],
    "include/common/log.h": ["log_test"],
    "include/common/path.h": ["path_test", "path_resolver_test"],
    "include/common/thread_pool.h": ["thread_pool_test"],
    "include/common/timer.h": ["timer_test", "timer_manager_test"],
    "include/common/ts_string.h": ["ts_string_test", "ts_string_allocation_test"],
    "src/charset_cvt.cpp": ["charset_cvt_test", "allocation_counts_test"],
    "src/file_utils.cpp": ["file_utils_test", "file_utils_platform_test", "file_faults_test",
                           "memory_faults_test", "allocation_counts_test"],
    "src/latch.cpp": ["latch_test", "lock_faults_test", "races_test"],
    "src/log.cpp": ["log_test", "log_platform_test", "memory_faults_test",
                    "allocation_counts_test"],
    "src/message_format.cpp": ["log_test"],
    "src/misc.cpp": ["misc_test"],
    "src/path.cpp": ["path_test", "path_platform_test", "memory_faults_test",
                     "allocation_counts_test"],
    "src/path_resolver.cpp": ["path_resolver_test", "path_resolver_platform_test"],
    "src/string_utils.cpp": ["string_utils_test", "allocation_counts_test"],
    "src/sys_info.cpp": ["sys_info_test", "sys_info_platform_test"],
    "src/thread_pool.cpp": ["worker_test", "thread_pool_test", "lock_faults_test",
                            "memory_faults_test", "races_test", "allocation_counts_test"],
    "src/timer.cpp": ["timer_manager_test", "timer_test", "lock_faults_test", "memory_faults_test",
                      "races_test", "allocation_counts_test", "exit_child"],
    "src/ts_string.cpp": ["ts_string_test", "ts_string_allocation_test", "allocation_counts_test"],
    "src/timer_heap.h": ["timer_manager_test", "timer_test", "races_test"],
    "src/byte_block_loops.h": ["utf8_check_test", "charset_cvt_test"],
    "src/utf8_check.cpp": ["utf8_check_test", "charset_cvt_test"],
    "src/utf8_check_avx2.cpp": ["utf8_check_test", "charset_cvt_test"],
    "src/worker.cpp": ["worker_test", "thread_pool_test", "lock_faults_test", "races_test"],
    "src/worker.h": ["worker_test", "thread_pool_test"],
    "src/platform/platform.h": ["file_faults_test"],
    "src/platform/posix/clock.cpp": ["log_test", "timer_test"],
    "src/platform/posix/environment.cpp": ["platform_test", "kernel_release_test", "charset_cvt_test",
                                           "sys_info_test"],
    "src/platform/posix/file.cpp": ["platform_test", "file_utils_test", "file_faults_test"],
    "src/platform/posix/module.cpp": ["library_unload_test", "timer_test", "exit_child"],
    "src/platform/posix/locale.cpp": ["charset_cvt_test", "string_utils_test"],
    "src/platform/posix/native_path.cpp": ["path_test", "file_utils_test"],
    "src/platform/posix/file_status.cpp": ["platform_test", "path_test", "file_utils_test",
                                       "file_faults_test"],
    "src/platform/posix/paths.cpp": ["platform_test", "path_test"],
    "src/platform/posix/utf.cpp": ["path_test", "charset_cvt_test"],
}

CONFIGURE = ["cmake", "-G", "Ninja", "-S", str(TREE), "-DTARSIO_BUILD_TESTS=ON",
             "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"]
BUILDS = {
    WORK / "quick": ["-DCMAKE_BUILD_TYPE=Debug",
                     "-DCMAKE_CXX_FLAGS=-O0 -g0 -w -D_GLIBCXX_ASSERTIONS"],
    WORK / "sanitized": ["-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_COMPILER=clang++",
                         "-DTARSIO_SANITIZE=address;undefined",
                         "-DCMAKE_CXX_FLAGS=-g0 -w -D_GLIBCXX_ASSERTIONS"],
}


# ---- mutants ----

def blank_out(text):
    """Returns the source with comments, literals, preprocessor lines and code for other compilers replaced
    by spaces, so that only code is left."""
    pattern = re.compile(
        r'^#if defined\(_MSC_VER\).*?^#(?:else|endif)'
        r'|//[^\n]*|/\*.*?\*/|L?R"\((?:.*?)\)"|L?"(?:\\.|[^"\\\n])*"|L?\'(?:\\.|[^\'\\\n])+\''
        r'|^[ \t]*#(?:\\\n|[^\n])*', re.S | re.M)
    return pattern.sub(lambda m: re.sub(r"[^\n]", " ", m.group()), text)


REPLACEMENTS = [
    # A pattern, and the replacements for its first group.
    (r" (==) ", ["!="]),
    (r" (!=) ", ["=="]),
    (r" (<) ", [">=", "<="]),
    (r" (>) ", ["<=", ">="]),
    (r" (<=) ", [">", "<"]),
    (r" (>=) ", ["<", ">"]),
    (r" (&&) ", ["||"]),
    (r" (\|\|) ", ["&&"]),
    (r" (\+) ", ["-"]),
    (r" (-) ", ["+"]),
    (r" (\+=) ", ["-="]),
    (r" (-=) ", ["+="]),
    (r" (&) ", ["|"]),
    (r"(\+\+)\*?\w", ["--"]),
    (r"(--)\*?\w", ["++"]),
    (r"\b(true)\b", ["false"]),
    (r"\b(false)\b", ["true"]),
    (r"(!)[\w(:]", [""]),
    (r"[(=,?:] (-)\w", [""]),
    (r"([\w.>-]*\bnotify_(?:one|all)\(\))", ["static_cast<void>(0)"]),
    (r"^ *((?:const )?std::(?:lock_guard|unique_lock)<[^;]*;)", [";"]),
    (r"^ *(throw\b[^;]*;)", [";"]),
    (r"\b((?:break|continue);)", [";"]),
    (r"\breturn (?!(?:true|false|0|nullptr|FILE_OPT_SUCCESS|FileType::kNone);)([^;{}]+);", ["{}"]),
]

NUMBER = r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d+)(?=[uUlL]*(?![\w.']))"
NO_CALL = r"(?:return|if|while|for|switch|throw|else|delete|case|catch|do|static_assert)\b"
CALL = re.compile(r"^ +(?!" + NO_CALL + r")((?:[\w:*]+|\(\))(?:(?:\.|->)[\w]+(?:\(\))?)*\([^;{}]*\);)", re.M)
CONDITION = re.compile(r"\b(?:if|while) \(")


def closing(code, start):
    """Returns the index of the parenthesis that closes the one before `start`, or -1."""
    depth = 1
    for index in range(start, len(code)):
        depth += {"(": 1, ")": -1}.get(code[index], 0)
        if depth == 0:
            return index
    return -1


def mutants_of(text):
    """Returns all mutants of a source as (begin, end, replacement)."""
    code = blank_out(text)
    found = set()
    for pattern, replacements in REPLACEMENTS:
        for match in re.finditer(pattern, code, re.M):
            begin, end = match.span(1)
            for replacement in replacements if match.group(1).strip() else []:
                found.add((begin, end, replacement))
    for match in re.finditer(NUMBER, code):
        octal = match.group().startswith("0") and match.group().isdigit()
        value = int(match.group(), 8 if octal else 0)
        found.add((match.start(), match.end(), str(value + 1)))
        if value > 0:
            found.add((match.start(), match.end(), str(value - 1)))
    for match in CALL.finditer(code):
        before = code[:match.start()].rstrip()
        if before and before[-1] in ";{}":
            found.add((match.start(1), match.end(1), ";"))
    for match in CONDITION.finditer(code):
        begin, end = match.end(), closing(code, match.end())
        # Skips conditions that declare a variable.
        if end > 0 and ";" not in code[begin:end] and " = " not in code[begin:end]:
            found.add((begin, end, "!(" + text[begin:end] + ")"))
    return sorted(found)


def describe(text, mutant):
    begin, end, replacement = mutant
    line = text.count("\n", 0, begin) + 1
    before = " ".join(text[begin:end].split()) or "nothing"
    after = " ".join(replacement.split()) or "nothing"
    return line, f"{before[:60]} => {after[:66]}"


# ---- building and running ----

def kill_session(process):
    """Kills a session leader and all processes in its session."""
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if os.getsid(int(entry.name)) == process.pid:
                os.kill(int(entry.name), signal.SIGKILL)
        except (ValueError, ProcessLookupError):
            pass
    process.wait()


def build(folder, program):
    """Returns whether the build succeeded, and its output."""
    command = ["cmake", "--build", str(folder), "--target", program, "--", "-j2", "--quiet"]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return done.returncode == 0, done.stdout


class Test:
    """One case of a test program, run in a separate process."""

    def __init__(self, entry):
        properties = {each["name"]: each["value"] for each in entry["properties"]}
        self.name = entry["name"]
        self.command = entry["command"]
        self.folder = properties["WORKING_DIRECTORY"]
        self.environment = dict(each.split("=", 1) for each in properties.get("ENVIRONMENT", []))
        for each in properties.get("ENVIRONMENT_MODIFICATION", []):
            name, value = each.split("=string_append:", 1)
            self.environment[name] = os.environ.get(name, "") + value
        self.limit = 600  # seconds; lowered once the test's duration is known

    def start(self, temporary):
        return subprocess.Popen(self.command, cwd=self.folder, start_new_session=True,
                                env={**os.environ, **self.environment, "TMPDIR": temporary},
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def run_tests(tests):
    """Runs four tests at a time until one fails. Returns the failed one or None, and the time of each."""
    waiting, running, times = list(tests), {}, {}
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        try:
            while waiting or running:
                while waiting and len(running) < 4:
                    test = waiting.pop(0)
                    running[test.start(folder)] = (test, time.monotonic())
                for process, (test, start) in list(running.items()):
                    elapsed = time.monotonic() - start
                    if process.poll() is None and elapsed < test.limit:
                        continue
                    if process.returncode != 0:
                        late = " (time limit)" if process.returncode is None else ""
                        return test.name + late, times
                    times[test] = elapsed
                    del running[process]
                time.sleep(0.005)
        finally:
            for process in running:
                kill_session(process)
    return None, times


@functools.lru_cache(maxsize=None)
def tests_of(folder, program):
    """Builds a program and runs its tests without a mutant. Returns the tests, fastest first."""
    built, output = build(folder, program)
    if not built:
        sys.exit(f"cannot build {program}:\n{output}")
    listed = subprocess.run(["ctest", "--test-dir", str(folder), "--show-only=json-v1",
                             "-L", f"^{program}$"], check=True, capture_output=True)
    failed, times = run_tests([Test(entry) for entry in json.loads(listed.stdout)["tests"]])
    if failed or not times:
        sys.exit(f"{program} fails without a mutant: {failed}")
    for test, seconds in times.items():
        test.limit = 5 + 5 * seconds
    return sorted(times, key=times.get)


def try_mutant(programs):
    """Returns 'killed' and the test that failed, 'survived', or 'invalid' if it does not compile."""
    for folder in BUILDS:
        for program in programs:
            if not build(folder, program)[0]:
                return "invalid", ""
            failed = run_tests(tests_of(folder, program))[0]
            if failed:
                return "killed", f"{failed}, {folder.name}"
    return "survived", ""


# ---- main ----

def prepare():
    """Copies the tree. Unchanged files keep their time, so that they are not built again."""
    names = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True, capture_output=True)
    for name in names.stdout.decode().split("\0"):
        source, copy = ROOT / name, TREE / name
        if not name or not source.is_file():
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            shutil.copyfile(source, copy)
    for folder, options in BUILDS.items():
        subprocess.run([*CONFIGURE, "-B", str(folder), *options], check=True,
                       stdout=subprocess.DEVNULL)


def mutate_file(name, most):
    """Tries the mutants of one file. Returns the number killed, and the survivors."""
    for folder in BUILDS:
        for program in TESTS[name]:
            tests_of(folder, program)
    path = TREE / name
    text = path.read_text()
    candidates = mutants_of(text)
    random.Random(name).shuffle(candidates)
    killed, survivors = 0, []
    try:
        for mutant in candidates:
            if killed + len(survivors) == most:
                break
            begin, end, replacement = mutant
            path.write_text(text[:begin] + replacement + text[end:])
            outcome, reason = try_mutant(TESTS[name])
            if outcome == "invalid":
                continue
            line, change = describe(text, mutant)
            print(f"{outcome:8}  {name}:{line}: {change}" + (f"   [{reason}]" if reason else ""),
                  flush=True)
            if outcome == "killed":
                killed += 1
            else:
                survivors.append(f"{name}:{line}: {change}")
    finally:
        path.write_text(text)
    return killed, survivors


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--most", type=int, help="try at most this many mutants per file")
    parser.add_argument("files", nargs="*", metavar="FILE")
    arguments = parser.parse_args()
    unknown = [name for name in arguments.files if name not in TESTS]
    if unknown:
        parser.error("no tests listed for " + " ".join(unknown))
    files = arguments.files or list(TESTS)
    prepare()

    killed, survivors = 0, []
    for name in files:
        of_file, alive = mutate_file(name, arguments.most)
        print(f"-- {name}: {of_file} of {of_file + len(alive)} killed", flush=True)
        killed += of_file
        survivors += alive
    total = killed + len(survivors)
    print(f"\n{killed} of {total} mutants killed ({100 * killed / max(total, 1):.1f} %)")
    for survivor in survivors:
        print("survived", survivor)


if __name__ == "__main__":
    main()
