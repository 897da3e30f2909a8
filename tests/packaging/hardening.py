#!/usr/bin/python3
"""Whether programs and libraries are made so that an overflow is of little use.

    hardening.py FILE...

Of a program or shared library: it can be loaded anywhere, its stack is no code, its table of imported functions is
read only after the start, and its functions watch over their stack. Of all: none prints or formats with a function of
the C library whose checks of sizes were left out. Of an archive: its functions watch over their stack.
"""
import re
import subprocess
import sys

# What every build that checks sizes calls by another name.
UNCHECKED = {"printf", "fprintf", "sprintf", "snprintf", "vprintf", "vfprintf", "vsprintf", "vsnprintf"}


def read(*options):
    return subprocess.run(("readelf", "--wide") + options, stdout=subprocess.PIPE, text=True, check=True).stdout


def flaws(path):
    """What is missing in a file, in words."""
    found = []
    is_archive = path.endswith(".a")
    symbols = set(re.findall(r" UND (\w+)", read("--symbols" if is_archive else "--dyn-syms", path)))
    if "__stack_chk_fail" not in symbols:
        found.append("no function watches over its stack")
    if symbols & UNCHECKED:
        found.append("without checks of sizes: " + ", ".join(sorted(symbols & UNCHECKED)))
    if is_archive:
        return found
    if not re.search(r"Type: +DYN ", read("--file-header", path)):
        found.append("is loaded to a fixed address")
    segments = read("--program-headers", path)
    if not re.search(r"^ +GNU_RELRO ", segments, re.MULTILINE):
        found.append("the table of imported functions can be written to")
    if not re.search(r"^ +GNU_STACK .* RW +0x", segments, re.MULTILINE):
        found.append("the stack can be executed")
    if not re.search(r"\(FLAGS_1\) .*\bNOW\b", read("--dynamic", path)):
        found.append("imported functions are looked up while it runs")
    return found


def main(paths):
    found = [path + ": " + flaw for path in paths for flaw in flaws(path)]
    print("\n".join(found) or "%d files are hardened" % len(paths))
    return 1 if found or not paths else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
