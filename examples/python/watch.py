#!/usr/bin/python3
"""A complete parent: plays a stream in a worker, looks at its pictures, saves some of them, and sends commands.
Needs PyQt5 and numpy. docs/protocol.md has the reasons for everything that is done here."""
import argparse
import mmap
import os
import secrets
import struct
import sys
import threading

import numpy
from PyQt5.QtCore import QCoreApplication, QDir, QFile, QProcess, QSystemSemaphore
from PyQt5.QtGui import QImage
from PyQt5.QtNetwork import QLocalServer

CONNECTED, FRAME = 0, 1
COMMANDS = {"volume": 5, "pause": 6, "resume": 7, "stop-audio": 9}


class Channel:
    """The frame file, and the semaphore that guards it."""

    def __init__(self):
        self.name = "watch-" + secrets.token_hex(16)
        self.path = QDir.tempPath() + "/" + self.name
        self.semaphore = QSystemSemaphore(self.name, 1, QSystemSemaphore.Create)
        self.acquiring = None

    def acquire(self, seconds=1.0):
        """A worker that stands still, or (on Windows) died with the semaphore in its hands, never gives it
        back. So a thread waits for it, and goes on waiting where this function gave up."""
        if self.acquiring is None:
            self.acquiring = threading.Thread(target=self.semaphore.acquire, daemon=True)
            self.acquiring.start()
        self.acquiring.join(seconds)
        if self.acquiring.is_alive():
            return False
        self.acquiring = None
        return True

    def look(self, use):
        """What use() makes of a view of the picture (height x width x 4 bytes: blue, green, red, alpha), or
        None without a picture. The view is valid only during the call; the worker waits meanwhile."""
        if not self.acquire():
            return None
        try:
            with open(self.path, "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as mapping:
                width, height = struct.unpack_from("<II", mapping)
                if 0 < width * height * 4 <= len(mapping) - 72:
                    view = numpy.frombuffer(mapping, numpy.uint8, width * height * 4, 8).reshape(height, width, 4)
                    result = use(view)
                    del view  # or the mapping could not be closed
                    return result
        except (OSError, ValueError, struct.error):
            pass  # the file is missing, empty or short
        finally:
            self.semaphore.release()
        return None

    def remove(self):
        self.semaphore = None  # it goes with its last reference
        QFile.remove(self.path)


class Parent:
    def __init__(self, options):
        self.options, self.shown, self.link = options, 0, None
        self.received, self.log, self.commands = b"", b"", list(options.commands)
        self.channel = Channel()
        self.server = QLocalServer(socketOptions=QLocalServer.UserAccessOption, newConnection=self.accept)
        self.server.listen("watch-" + secrets.token_hex(16))
        os.environ["MEDIAWORKER_OPTIONS"] = "flv=standard,buffering=on,sync=on,sandbox=on"  # else: to the letter
        self.worker = QProcess(readyReadStandardError=self.read_log, finished=self.ended)
        self.worker.start(options.worker, [options.url, self.channel.name, self.server.serverName()])
        if not self.worker.waitForStarted():
            sys.exit("watch.py: the worker %s cannot be started: %s" % (options.worker, self.worker.errorString()))

    def accept(self):
        self.link = self.server.nextPendingConnection()
        self.link.readyRead.connect(self.read_link)
        self.server.close()  # nobody comes second
        self.read_link()

    def read_link(self):
        self.received += bytes(self.link.readAll())
        while len(self.received) >= 3:
            kind, size = struct.unpack_from("<BH", self.received)
            if len(self.received) < 3 + size:
                break
            data, self.received = self.received[3 : 3 + size], self.received[3 + size :]
            if kind == CONNECTED and size == 8:
                print("connected", *struct.unpack("<q", data), flush=True)
                self.write_command()
            elif kind == FRAME and size == 8:
                self.show(*struct.unpack("<q", data))

    def write_command(self):
        """The worker takes one packet for each arrival of bytes. So the next one is written when it has taken the
        last, however long that lasts: what arrives while it is busy would lie there unseen."""
        if self.commands and self.link.isOpen():
            self.link.write(self.commands.pop(0))

    def read_log(self):
        *lines, self.log = (self.log + bytes(self.worker.readAllStandardError())).split(b"\n")
        for line in lines:
            print("log", line.decode(errors="replace").encode("unicode_escape").decode(), flush=True)
            if b"Command from parent process: " in line:
                self.write_command()

    def show(self, milliseconds):
        picture = self.channel.look(lambda view: (view.copy(), view[..., :3].mean(axis=(0, 1)).round()))
        if picture is None or self.shown == self.options.pictures:
            return
        pixels, mean = picture
        height, width, _ = pixels.shape
        print("frame %d %dx%d bgr" % (milliseconds, width, height), *mean, flush=True)
        if self.options.save and self.shown % 25 == 0:
            image = QImage(pixels.data, width, height, width * 4, QImage.Format_RGB32)
            image.save(os.path.join(self.options.save, "%d.png" % milliseconds))
        self.shown += 1
        if self.shown == self.options.pictures:
            self.link.disconnectFromServer()  # the worker ends at that, with code 0

    def ended(self, code, status):
        if self.link and self.link.isOpen():
            self.read_link()  # what came last
        print("killed" if status == QProcess.CrashExit else "exit code %d" % code, self.shown, "pictures", flush=True)
        self.channel.remove()
        QCoreApplication.exit(0 if self.shown else 1)


def command(text):
    name, _, value = text.partition(":")
    data = struct.pack("<I", int(value)) if name == "volume" else b""
    return struct.pack("<BH", COMMANDS[name], len(data)) + data


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("url")
    parser.add_argument("--worker", default="mediaworker", metavar="FILE")
    parser.add_argument("--pictures", type=int, default=-1, metavar="N", help="end after as many")
    parser.add_argument("--save", metavar="FOLDER", help="for PNG files, named by their time stamps")
    parser.add_argument("--commands", type=command, nargs="+", default=[], help="volume:50 pause resume stop-audio")
    application, options = QCoreApplication(sys.argv), parser.parse_args()
    options.save and not os.path.isdir(options.save) and parser.error("there is no folder " + options.save)
    parent = Parent(options)
    sys.exit(application.exec_())
