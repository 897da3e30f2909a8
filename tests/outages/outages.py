#!/usr/bin/env python3
"""A server that comes and goes, and the programs that wait for it: see scripts/outages.

    outages.py MINUTES STREAMS PROGRAMS

PROGRAMS is the folder of mediaworker-ctl and mediaworker-view. Half of the outages are a server that is gone (its process
is killed, connections are refused), the others one that stands still (its process is stopped, connections stay
open). Streams are written by ffmpeg, as cheap servers do: one of it per connection.
"""

import http.server
import json
import os
import re
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

UP_S = 15
DOWN_S = 5
LIMIT_S = 2.0
# This server sends nothing ahead: unless it is asked for a low latency, a worker first gathers a second.
GATHERED_S = 1.0
PICTURES_PER_SECOND = 25


class Camera(http.server.BaseHTTPRequestHandler):
    """Every path is a live stream; what is asked for is told on standard output."""

    film = ""

    def do_GET(self):
        os.write(1, (json.dumps({"t": time.monotonic(), "path": self.path}) + "\n").encode())  # in one piece
        self.send_response(200)
        self.send_header("Content-Type", "video/x-flv")
        self.end_headers()
        command = ["ffmpeg", "-v", "error", "-nostdin", "-readrate", "1", "-stream_loop", "-1", "-i", self.film]
        command += ["-c", "copy", "-f", "flv", "-flush_packets", "1", "-"]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as stream:
            try:
                while data := stream.stdout.read1(65536):
                    self.wfile.write(data)
            except OSError:
                pass
            finally:
                stream.kill()

    def log_message(self, *_):
        pass


def serve(port, film):
    Camera.film = film
    http.server.ThreadingHTTPServer.daemon_threads = True
    with http.server.ThreadingHTTPServer(("127.0.0.1", port), Camera) as server:
        server.serve_forever()


class Lines(threading.Thread):
    """The JSON lines that a program writes, each with the time at which it came."""

    def __init__(self, process):
        super().__init__(daemon=True)
        self.process = process
        self.seen = []
        self.start()

    def run(self):
        for line in self.process.stdout:
            self.seen.append((time.monotonic(), json.loads(line)))


class Server:
    def __init__(self, film):
        self.film = film
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        self.lines = []
        self.begin()

    def begin(self):
        command = [sys.executable, __file__, "--serve", str(self.port), self.film]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, start_new_session=True)
        self.lines.append(Lines(self.process))
        while True:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return time.monotonic()
            except OSError:
                time.sleep(0.01)

    def signal(self, number):
        os.killpg(self.process.pid, number)

    def outage(self, is_gone):
        """Five seconds of it. The time at which the server is back."""
        self.signal(signal.SIGKILL if is_gone else signal.SIGSTOP)
        if is_gone:
            self.process.wait()
        time.sleep(DOWN_S)
        if is_gone:
            return self.begin()
        back = time.monotonic()
        self.signal(signal.SIGCONT)
        return back

    def requests(self):
        return [(event["t"], event["path"]) for lines in self.lines for _, event in lines.seen]

    def end(self):
        self.signal(signal.SIGKILL)
        self.process.wait()


def film_in(folder):
    film = os.path.join(folder, "film.flv")
    command = ["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=640x360:rate=25", "-f", "lavfi"]
    command += ["-i", "sine=sample_rate=44100", "-t", "20", "-c:v", "libx264", "-preset", "veryfast"]
    command += ["-pix_fmt", "yuv420p", "-g", "25", "-c:a", "aac", film]
    subprocess.run(command, check=True)
    return film


def workers_of(parents):
    """The processes called mediaworker that these processes have started."""
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as stat:
                name, rest = re.match(r"\d+ \((.*)\) (.*)", stat.read()).groups()
        except OSError:
            continue
        state, parent = rest.split()[:2]
        if name == "mediaworker" and state != "Z" and int(parent) in parents:
            found.append(int(pid))
    return found


def first_after(times, moment):
    return min((t for t in times if t >= moment), default=None)


def waits_after(moments, times_of_each):
    """From each moment to the first time after it, for each of the lists; None where there is none."""
    firsts = [(m, first_after(times, m)) for m in moments for times in times_of_each]
    return [None if t is None else t - m for m, t in firsts]


def row(name, waits, limit=LIMIT_S):
    worst = max(waits) if waits and None not in waits else None
    known = [wait for wait in waits if wait is not None]
    middle = f"{statistics.median(known):.2f}" if known else "-"
    print(f"| {name} | {len(waits)} | {middle} | {'never' if worst is None else f'{worst:.2f}'} |")
    return worst is not None and worst <= limit


def main(minutes, streams, programs):
    environment = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    good = True
    with tempfile.TemporaryDirectory() as folder:
        server = Server(film_in(folder))
        url = f"http://127.0.0.1:{server.port}"
        ctl = os.path.join(programs, "mediaworker-ctl")
        controls = {
            words: [
                Lines(subprocess.Popen([ctl, "play", f"{url}/ctl/{i}.flv", "--reconnect", "--json", *options],
                                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=environment))
                for i in range(streams)
            ]
            for words, options in (("control program", []), ("with low latency", ["--low-latency"]))
        }
        paths = [f"/view/{i}.flv" for i in range(streams)]
        command = [os.path.join(programs, "mediaworker-view"), "--mute", "--statistics"]
        viewer = subprocess.Popen(command + [url + path for path in paths], stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, env=environment, text=True)
        begin = time.monotonic()
        returns = []
        down = 0.0
        while time.monotonic() < begin + 60 * minutes:
            time.sleep(UP_S)
            left = time.monotonic()
            kind = "gone" if len(returns) % 2 == 0 else "still"
            returns.append((kind, server.outage(kind == "gone")))
            down += returns[-1][1] - left
            print(f"outage {len(returns)}: server {kind} for {returns[-1][1] - left:.2f} s", flush=True)
        time.sleep(LIMIT_S + GATHERED_S)
        up = time.monotonic() - begin - down

        print(f"\n| {streams} streams each in | returns | back after s, median | worst |\n|---|---|---|---|")
        for kind, words in (("gone", "server gone"), ("still", "server standing still")):
            moments = [moment for k, moment in returns if k == kind]
            for name, programs_of in controls.items():
                shown = [[t for t, event in one.seen if event["event"] == "firstPicture"] for one in programs_of]
                limit = LIMIT_S + (0 if "low" in name else GATHERED_S)
                good &= row(f"{name}, {words}: first picture", waits_after(moments, shown), limit)
            # Who asked while the server stood still is answered when it goes on.
            asked = [[t for t, p in server.requests() if p == path] for path in paths]
            good &= row(f"viewer, {words}: request", waits_after(moments, asked))

        everyone = [one for programs_of in controls.values() for one in programs_of]
        parents = [control.process.pid for control in everyone] + [viewer.pid]
        workers = workers_of(parents)
        print(f"\nworkers at the end: {len(workers)}, of {len(everyone) + streams} streams")
        good &= len(workers) == len(everyone) + streams
        for control in everyone:
            control.process.terminate()
            control.process.wait(20)
        viewer.send_signal(signal.SIGTERM)
        text = viewer.communicate(timeout=20)[0]
        for line in text.splitlines():
            pictures = int(re.search(r"(\d+) shown", line).group(1))
            least = int((up - (LIMIT_S + GATHERED_S) * (len(returns) + 1)) * PICTURES_PER_SECOND)
            print(f"viewer, {line}; at least {least} in {up:.0f} s with a server")
            good &= pictures >= least
        left = workers_of(parents)
        good &= not left
        server.end()
    print("within all bounds" if good else "NOT within all bounds")
    return 0 if good else 1


if __name__ == "__main__":
    if len(sys.argv) == 4 and sys.argv[1] == "--serve":
        serve(int(sys.argv[2]), sys.argv[3])
    elif len(sys.argv) == 4:
        sys.exit(main(float(sys.argv[1]), int(sys.argv[2]), sys.argv[3]))
    else:
        sys.exit(__doc__)
