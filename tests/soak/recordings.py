#!/usr/bin/env python3
"""Ends recordings at random moments and looks at what is left of each.

  recordings.py CONTROL_PROGRAM WORKER RECORDINGS

Every one is of a live stream with a key frame every ten seconds, and is ended by Ctrl-C, by kill -9 of its parent
or of its worker, or by a full disk. A file with the name that was asked for has to be complete: ffmpeg decodes it
and says nothing. Every other one has to have what the server had sent until two seconds before the end. Prints a
table; ends with 1 where a file does not keep to that.
"""

import concurrent.futures
import http.server
import json
import os
import pathlib
import random
import resource
import signal
import subprocess
import sys
import tempfile
import threading
import time

STREAM_S = 30
MOST_LOST_MS = 2000
AT_ONCE = 4
PATIENCE_S = 60
KINDS = ("Ctrl-C", "kill -9 of the parent", "kill -9 of the worker", "full disk")


def tags_of_a_stream(folder):
    """(milliseconds, bytes) of each tag, the header in front."""
    file = folder / "stream.flv"
    subprocess.run(
        ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=s=320x180:r=25:d={STREAM_S}",
         "-f", "lavfi", "-i", f"sine=d={STREAM_S}", "-c:v", "libx264", "-preset", "ultrafast",
         "-g", "250", "-c:a", "aac", "-shortest", str(file)], check=True)
    data = file.read_bytes()
    at = 13  # the header of the file
    tags = [(0, data[:at])]
    while at + 11 <= len(data):
        size = int.from_bytes(data[at + 1:at + 4], "big") + 11 + 4
        ms = int.from_bytes(data[at + 4:at + 7], "big") | data[at + 7] << 24
        tags.append((ms, data[at:at + size]))
        at += size
    return tags


class Broadcast:
    """Sends each client the stream in real time, and knows by its path how far it is."""

    def __init__(self, tags):
        self.sent_ms = {}
        outer = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def log_message(self, *_):
                pass

            def do_GET(self):
                self.send_response(200)
                self.end_headers()
                begin = time.monotonic()
                try:
                    for ms, data in tags:
                        time.sleep(max(0.0, begin + ms / 1000 - time.monotonic()))
                        self.wfile.write(data)
                        outer.sent_ms[self.path] = ms
                    time.sleep(PATIENCE_S)
                except OSError:
                    pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def url(self, path):
        return f"http://127.0.0.1:{self.server.server_address[1]}{path}"


def recorded_ms(file):
    """How long the pictures last that a player finds."""
    times = subprocess.run(
        ["ffprobe", "-v", "quiet", "-select_streams", "v", "-show_entries", "packet=dts_time", "-of", "csv=p=0",
         str(file)], capture_output=True, text=True).stdout.split()
    times = [float(t.strip(",")) for t in times if t.strip(",") not in ("", "N/A")]
    return round(1000 * (times[-1] - times[0])) + 40 if times else 0


def complaints(file):
    return subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(file), "-f", "null", "-"],
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True).stderr.strip()


def limit_files(byte_count):
    """In the child: no file grows beyond that, and nobody is killed for it."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (byte_count, byte_count))


def wait_until(condition):
    end = time.monotonic() + PATIENCE_S
    while not condition() and time.monotonic() < end:
        time.sleep(0.02)
    return condition()


class Recording:
    def __init__(self, number, folder, broadcast, programs, chance):
        self.kind = KINDS[number % len(KINDS)]
        self.path = f"/{number}.flv"
        self.file = folder / f"{number}.mp4"
        self.partial = folder / f"{number}.partial.mp4"
        self.broadcast = broadcast
        self.after_s = chance.uniform(0.3, 8)
        self.room = chance.randint(20_000, 600_000)
        self.programs = programs
        self.log = folder / f"{number}.json"
        self.problems = []
        self.is_complete = False
        self.lost_ms = 0

    def run(self):
        control, worker = self.programs
        preparation = (lambda: limit_files(self.room)) if self.kind == "full disk" else None
        with open(self.log, "wb") as log:
            program = subprocess.Popen(
                [control, "export", self.broadcast.url(self.path), str(self.file), "--json", "--worker", worker],
                stdout=log, stderr=subprocess.PIPE, text=True, preexec_fn=preparation)
        self.end(program)
        sent_ms = self.broadcast.sent_ms.get(self.path, 0) if self.kind == "full disk" else self.sent_ms
        errors = program.communicate(timeout=PATIENCE_S)[1]
        self.look(sent_ms, errors)
        return self

    def worker_pid(self):
        for line in self.log.read_text().splitlines():
            try:
                event = json.loads(line)
            except ValueError:
                continue
            if event.get("event") == "connected":
                return event["pid"]
        return None

    def end(self, program):
        if self.kind == "full disk":
            program.wait(timeout=PATIENCE_S)
            return
        wait_until(lambda: self.path in self.broadcast.sent_ms and self.worker_pid() is not None)
        time.sleep(self.after_s)
        pid = self.worker_pid()
        self.sent_ms = self.broadcast.sent_ms[self.path]
        if self.kind == "Ctrl-C":
            program.send_signal(signal.SIGINT)
        elif self.kind == "kill -9 of the parent":
            program.kill()
        else:
            os.kill(pid, signal.SIGKILL)
        program.wait(timeout=PATIENCE_S)
        if not wait_until(lambda: not os.path.exists(f"/proc/{pid}")):
            self.problems.append("the worker does not end")

    def look(self, sent_ms, errors):
        self.is_complete = self.file.exists()
        file = self.file if self.is_complete else self.partial
        if self.is_complete and (said := complaints(file)):
            self.problems.append(f"ffmpeg says: {said}")
        self.lost_ms = sent_ms - (recorded_ms(file) if file.exists() else 0)
        if self.lost_ms > MOST_LOST_MS:
            self.problems.append(f"{self.lost_ms} ms of {sent_ms} are missing")
        if self.kind == "Ctrl-C" and not self.is_complete:
            self.problems.append("no file")
        if self.kind != "kill -9 of the parent" and self.partial.exists() and str(self.partial) not in errors:
            self.problems.append("nobody names the file")


def table(recordings):
    rows = ["| ended by | recordings | complete | in part | most is missing | wrong |", "|---|---|---|---|---|---|"]
    for kind in KINDS:
        those = [r for r in recordings if r.kind == kind]
        complete = sum(r.is_complete for r in those)
        lost_s = max((r.lost_ms for r in those), default=0) / 1000
        wrong = sum(bool(r.problems) for r in those)
        rows.append(f"| {kind} | {len(those)} | {complete} | {len(those) - complete} | {lost_s:.1f} s | {wrong} |")
    return "\n".join(rows)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    seed = int(os.environ.get("MEDIAWORKER_SOAK_SEED", random.randrange(2**31)))
    chance = random.Random(seed)
    print(f"seed {seed}", file=sys.stderr)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        broadcast = Broadcast(tags_of_a_stream(folder))
        recordings = [Recording(i, folder, broadcast, sys.argv[1:3], chance) for i in range(int(sys.argv[3]))]
        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            for recording in pool.map(Recording.run, recordings):
                for problem in recording.problems:
                    print(f"{recording.kind}, {recording.path}: {problem}", file=sys.stderr)
    print(table(recordings))
    sys.exit(1 if any(r.problems for r in recordings) else 0)


if __name__ == "__main__":
    main()
