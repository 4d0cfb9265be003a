#!/usr/bin/env python3
"""Breaks the code on purpose, one break of breaks.txt at a time, and tells which tests catch it.

  tests/breaks/breaks.py              all breaks that are there
  tests/breaks/breaks.py NAME...      those whose name, promise or file contains one of the words
  tests/breaks/breaks.py --check      only whether each break still fits the code exactly once

Nothing here is touched: a copy of the tree lies in build/breaks/tree, with a build of its own. A break that
does not compile, or that nothing catches, is a finding, and makes the exit code 1.
"""
import argparse
import fcntl
import os
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
COPY = ROOT / "build/breaks/tree"
BUILD = ROOT / "build/breaks/build"


class Break:
    def __init__(self, text):
        head, _, rest = text.partition("\nfind:\n")
        self.name = head.splitlines()[0].strip()
        self.fields = dict(line.split(": ", 1) for line in head.splitlines()[1:] if ": " in line)
        self.find, _, self.replace = (each.rstrip("\n") for each in rest.partition("\nreplace:\n"))
        self.promise, self.file = self.fields["promise"], self.fields["file"]
        self.tests = self.fields["tests"].split()

    def applied(self, content):
        count = content.count(self.find)
        if count != 1:
            raise ValueError(f"{self.name}: its text stands {count} times in {self.file}")
        return content.replace(self.find, self.replace)


def breaks():
    text = "\n" + (Path(__file__).parent / "breaks.txt").read_text()
    return [Break(each) for each in text.split("\n== ")[1:]]


def sync():
    """Makes the copy equal to the tree; what is equal keeps its time, so that little is built."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.splitlines()
    files = {name for name in listed if (ROOT / name).is_file()}
    for name in files:
        target, content = COPY / name, (ROOT / name).read_bytes()
        if not target.exists() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)
            target.chmod((ROOT / name).stat().st_mode)
    for path in [each for each in COPY.rglob("*") if each.is_file()]:
        if str(path.relative_to(COPY)) not in files:
            path.unlink()


def run(*command, seconds=900):
    try:
        return subprocess.run(command, capture_output=True, text=True, errors="replace", timeout=seconds,
                              env={**os.environ, "GTEST_BRIEF": "1", "GTEST_COLOR": "no"})
    except subprocess.TimeoutExpired:
        return None


def build(tests):
    if not (BUILD / "build.ninja").exists():
        run("cmake", "-S", COPY, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
            "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g0")
    chips = ["sim.so", "simlet.so", "template.so"]
    return run("cmake", "--build", BUILD, "-j2", "--target", *tests, *chips, seconds=7200)


def caught_by(tests):
    """The first tests of each program that fail, or how the program ended."""
    caught = []
    for test in tests:
        result = run(BUILD / "tests" / test)
        if result is None:
            caught.append(f"{test} (does not end)")
        elif result.returncode != 0:
            failed = list(dict.fromkeys(re.findall(r"^\[  FAILED  \] (\S+\.[^\s,]+)", result.stdout, re.M)))
            caught.append(f"{test}: {', '.join(failed[:4]) or 'stopped'} ({len(failed)})")
    return caught


def tried(each):
    target = COPY / each.file
    sound = target.read_text()
    target.write_text(each.applied(sound))
    try:
        built = build(each.tests)
        if built.returncode != 0:
            return False, "does not build:\n" + built.stdout[-2000:]
        caught = caught_by(each.tests)
        return bool(caught), "; ".join(caught) or "NOT caught"
    finally:
        target.write_text(sound)


def run_all(chosen):
    sync()
    missed = 0
    for each in chosen:
        is_caught, by = tried(each)
        missed += not is_caught
        print(f"{'caught' if is_caught else 'MISSED':7} {each.name} [{each.promise}]\n        {by}", flush=True)
    sys.exit(f"{missed} of {len(chosen)} breaks were not caught" if missed else 0)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("names", nargs="*")
    parser.add_argument("--check", action="store_true")
    options = parser.parse_args()
    chosen = [each for each in breaks() if not options.names or any(
        word in f"{each.name} {each.promise} {each.file}" for word in options.names)]
    if options.check:
        for each in chosen:
            each.applied((ROOT / each.file).read_text())
        return print(f"all {len(chosen)} breaks fit")
    COPY.mkdir(parents=True, exist_ok=True)
    with open(BUILD.parent / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)  # one at a time: they share the build
        run_all(chosen)


if __name__ == "__main__":
    main()
