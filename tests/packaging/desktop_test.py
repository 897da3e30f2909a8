#!/usr/bin/python3
"""Whether the viewer's entry in menus, its description and its icons are as desktops want them.

    desktop_test.py BUILD_FOLDER SOURCE_FOLDER
"""
import configparser
import glob
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

NAME = "mediaworker-view"
SIZES = (16, 24, 32, 48, 64, 128, 256)


def check(condition, *what):
    if not condition:
        raise AssertionError(" ".join(str(each) for each in what))


def complain(*command):
    """Runs a checker, if it is there; what it says is a complaint."""
    if not shutil.which(command[0]):
        print("left out: there is no", command[0])
        return
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    check(result.returncode == 0, *command, "\n" + result.stdout)


def check_entry(path):
    complain("desktop-file-validate", "--warn-kde", path)
    entry = configparser.ConfigParser(interpolation=None, strict=True)
    entry.optionxform = str
    entry.read(path, encoding="utf-8")
    fields = entry["Desktop Entry"]
    check(fields["Icon"] == NAME and fields["Exec"].split()[0] == NAME and fields["TryExec"] == NAME, dict(fields))


def check_description(path):
    with open(path, encoding="utf-8") as file:
        text = file.read()
    root = xml.etree.ElementTree.fromstring(text)
    check(root.findtext("launchable") == NAME + ".desktop", "launchable")
    check(os.path.basename(path) == root.findtext("id") + ".metainfo.xml", path)
    # Only the owner can grant a licence; all else has to be good.
    with tempfile.TemporaryDirectory() as folder:
        granted = folder + "/" + os.path.basename(path)
        with open(granted, "w", encoding="utf-8") as file:
            file.write(text.replace("<metadata_license>LicenseRef-proprietary<", "<metadata_license>FSFAP<"))
        complain("appstreamcli", "validate", "--no-net", granted)


def check_icons(build):
    if not shutil.which("rsvg-convert"):
        print("left out: there is no rsvg-convert")
        return
    for size in SIZES:
        with open("%s/share/icons/%d/%s.png" % (build, size, NAME), "rb") as file:
            header = file.read(24)
        check(header[:8] == b"\x89PNG\r\n\x1a\n" and struct.unpack(">II", header[16:]) == (size, size), size)


def main(build, source):
    check_entry("%s/share/applications/%s.desktop" % (source, NAME))
    found = glob.glob(build + "/share/metainfo/*.metainfo.xml")
    check(len(found) == 1, found)
    check_description(found[0])
    check_icons(build)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
