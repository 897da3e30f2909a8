#!/usr/bin/env python3
"""Runs a command, and then prints the processor time of the workers that ran meanwhile, the median of all:

    worker_cpu.py WORKER COMMAND...

    worker_cpu_s SECONDS

WORKER is the path of their program, which their command lines begin with, after a drive under Wine.

The system's own figures, since Wine has none of other processes. What is used in the last few milliseconds of a
worker is not seen.
"""
import os
import statistics
import subprocess
import sys
import time

TICKS = os.sysconf("SC_CLK_TCK")
PROGRAM = sys.argv[1].encode()


def workers():
    """Process id and seconds used of each worker that runs."""
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/cmdline", "rb") as file:
                program = file.read().split(b"\0", 1)[0].replace(b"\\", b"/")
            with open(f"/proc/{pid}/stat", "rb") as file:
                fields = file.read().rsplit(b")", 1)[1].split()
        except OSError:
            continue
        if program in (PROGRAM, b"Z:" + PROGRAM):
            yield pid, (int(fields[11]) + int(fields[12])) / TICKS


seen = {}
process = subprocess.Popen(sys.argv[2:])
while process.poll() is None:
    seen.update(workers())
    time.sleep(0.005)
print(f"worker_cpu_s {statistics.median(seen.values()):.2f}")
sys.exit(process.returncode)
