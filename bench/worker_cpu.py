#!/usr/bin/env python3
"""Runs a command, and then prints the processor time of the workers that ran meanwhile, the median of all:

    worker_cpu_s SECONDS

The system's own figures, since Wine has none of other processes. What is used in the last few milliseconds of a
worker is not seen.
"""
import os
import statistics
import subprocess
import sys
import time

TICKS = os.sysconf("SC_CLK_TCK")
NAMES = ("mediaworker", "mediaworker.exe")


def workers():
    """Process id and seconds used of each worker that runs."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
                name, rest = file.read().split("(", 1)[1].rsplit(")", 1)
        except OSError:
            continue
        if name in NAMES:
            fields = rest.split()
            yield pid, (int(fields[11]) + int(fields[12])) / TICKS


others = {pid for pid, _ in workers()}
seen = {}
process = subprocess.Popen(sys.argv[1:])
while process.poll() is None:
    seen.update((pid, seconds) for pid, seconds in workers() if pid not in others)
    time.sleep(0.005)
print(f"worker_cpu_s {statistics.median(seen.values()):.2f}")
sys.exit(process.returncode)
