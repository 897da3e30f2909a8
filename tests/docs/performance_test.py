#!/usr/bin/python3
"""Whether docs/performance.md has the rows that bench/compare prints.

    performance_test.py SOURCE_FOLDER
"""
import re
import sys


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def printed(source):
    """The first text of each row, in the benchmarks that bench/compare runs."""
    script = read(source + "/bench/compare")
    found = re.findall(r'^ *row\("\w+", "([^"]+)"', script, re.MULTILINE)
    for program in re.findall(r"/bin/(\w+_bench)\"", script):
        text = read("%s/bench/%s.cpp" % (source, program))
        found += re.findall(r'\b(?:row\(|compareCosts\(|Wall\{)\s*"([^"]+)"', text)
    return found


def main():
    source = sys.argv[1]
    page = read(source + "/docs/performance.md").partition("| what | measured (ours, theirs) | bound | kept |\n")[2]
    rows = []
    for line in page.split("\n")[1:]:
        if not line.startswith("|"):
            break
        rows.append(line.strip("|").split(" | ")[0].strip())
    rows, truth = set(rows), set(printed(source))
    if len(truth) < 15:
        sys.exit("the benchmarks are not read as they are written")
    for row in sorted(rows - truth):
        print("no benchmark prints:", row)
    for row in sorted(truth - rows):
        print("not in docs/performance.md:", row)
    sys.exit(rows != truth)


if __name__ == "__main__":
    main()
