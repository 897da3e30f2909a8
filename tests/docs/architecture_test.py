#!/usr/bin/python3
"""Whether the tables of docs/architecture.md say what the build and the sources do.

    architecture_test.py SOURCE_FOLDER BUILD_FOLDER
"""
import glob
import os
import re
import sys

WORLDS = {"Qt", "Qt Core", "Qt Widgets", "Qt Multimedia", "libseccomp on Linux", "–", "parent"}
TOPS = ("src", "parent", "widgets", "quick", "tools")


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def table(page, header):
    """The rows of the table with this header, as lists of cells."""
    rows = page.partition(header + "\n")[2].split("\n")
    cells = []
    for row in rows[1:]:
        if not row.startswith("|"):
            break
        cells.append([cell.strip() for cell in row.strip("|").split(" | ")])
    if not cells:
        raise AssertionError("no table: " + header)
    return cells


def names(cell):
    return re.findall(r"`([^`]+)`", cell)


class Complaints:
    def __init__(self):
        self.count = 0

    def compare(self, what, page, truth):
        for side, found in (("only on the page", set(page) - set(truth)), ("not on the page", set(truth) - set(page))):
            for each in sorted(found):
                self.count += 1
                print("%s: %s: %s" % (what, side, each))


def folders(page, source, build, complaints):
    rows = {names(row[0])[0]: row for row in table(page, "| folder | target | what it is | uses |")}
    built = [os.path.relpath(os.path.dirname(path), source)
             for top in TOPS for path in glob.glob("%s/%s/**/CMakeLists.txt" % (source, top), recursive=True)]
    complaints.compare("folders", rows, [folder for folder in built if folder not in ("src", "tools")])
    for folder, row in rows.items():
        text = read("%s/%s/CMakeLists.txt" % (source, folder)) if folder in built else ""
        targets = re.findall(r"^ *(?:mw_library|add_executable|add_library)\((\w[\w-]*)(?! ALIAS)[\s)]", text, re.MULTILINE)
        complaints.compare("targets of " + folder, names(row[1]), targets)
    for rule in read(build + "/include-rules.txt").splitlines():
        folder, _, *allowed = rule.split()
        if "src/" + folder not in rows:
            continue
        cell = rows["src/" + folder][3].replace(" (headers)", "")
        uses = {each.strip() for each in cell.split(",")} - WORLDS
        complaints.compare("what src/%s uses" % folder, uses, set(allowed) - {folder})


def pairs(page, source, complaints):
    section = page.partition("### Platform differences\n")[2].partition("\n### ")[0]
    shown = set()
    for text in names(section):
        match = re.match(r"(.*?)\{(.*?)\}(.*)\.cpp$", text)
        if match:
            before, choices, after = match.groups()
            shown.update(before + choice + after + ".cpp" for choice in choices.split(","))
    there = {os.path.relpath(path, source) for top in TOPS
             for path in glob.glob("%s/%s/**/*.cpp" % (source, top), recursive=True)
             if re.search(r"_(posix|windows|linux)\.cpp$", path)}
    complaints.compare("platforms", shown, there)


def threads(page, source, complaints):
    shown = {name for row in table(page, "| thread | made by | runs | waits for | ends by |") for name in names(row[0])}
    begun = set()
    for path in glob.glob(source + "/src/**/*.cpp", recursive=True):
        text = read(path)
        begun.update(re.findall(r'enterThread\("([^"]+)"\)', text))
        # Those whose owner names them.
        begun.update(re.findall(r'"((?:video|audio) decoder)"', text))
    complaints.compare("threads", shown, begun)


def constants(page, source, complaints):
    """What tables name as Class::kConstant is there."""
    sources = {os.path.basename(path).split(".")[0]: read(path) for path in glob.glob(source + "/src/**/*.h", recursive=True)}
    wanted = set(re.findall(r"`(\w+)::(k\w+)`", page))
    there = {(owner, constant) for owner, constant in wanted if constant in sources.get(owner, "")}
    complaints.compare("constants", ["::".join(each) for each in wanted], ["::".join(each) for each in there])


def namespaces(page, source, complaints):
    shown = {name for row in table(page, "| namespace | covers | why |") for name in names(row[0])}
    shown = {"mediaworker" + name if name.startswith("::") else name for name in shown}
    used = set()
    for top in TOPS:
        for path in glob.glob("%s/%s/**/*.h" % (source, top), recursive=True):
            used.update(re.findall(r"^namespace ([\w:]+) \{", read(path), re.MULTILINE))
    # Small ones of a single header, and one for all of what people use, are named there.
    small = {"exit_code", "fault_guard", "local_path", "message_type", "packet_file", "mediaworker",
             "mediaworker::ctl::standard_output"}
    complaints.compare("namespaces", shown, used - small)


def main(source, build):
    page = read(source + "/docs/architecture.md")
    complaints = Complaints()
    folders(page, source, build, complaints)
    pairs(page, source, complaints)
    threads(page, source, complaints)
    constants(page, source, complaints)
    namespaces(page, source, complaints)
    return 1 if complaints.count else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
