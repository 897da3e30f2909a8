#!/usr/bin/python3
"""Makes the Debian packages of a build folder, looks into them, and uses them in a clean root.

    package_test.py BUILD_FOLDER SOURCE_FOLDER

The root holds what every Debian system has and what the package depends on, nothing else: all of it copied from the
packages of this machine, so that no network is needed. A dependency that is not declared is missing there.
Exit status: 0 good, 77 where the rights for it are missing, anything else bad.
"""
import glob
import gzip
import http.server
import json
import os
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import threading

sys.dont_write_bytecode = True  # beside the source
import hardening

SKIPPED = 77
LEFT_OUT = ("/usr/share/doc/", "/usr/share/man/", "/usr/share/locale/", "/usr/share/info/", "/usr/share/icons/")
PROGRAMS = ("mediaworker", "mediaworker-ctl", "mediaworker-view")


def run(*command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if result.returncode != 0:
        raise AssertionError("%s: exit status %d\n%s" % (" ".join(command), result.returncode, result.stdout))
    return result.stdout


def check(condition, *what):
    if not condition:
        raise AssertionError(" ".join(str(each) for each in what))


def fields(text):
    """The fields of a control file."""
    return dict(re.findall(r"^(\S+): (.*(?:\n[ \t].*)*)", text, re.MULTILINE))


class Installed:
    """The packages of this machine, as dpkg knows them."""

    def __init__(self):
        with open("/var/lib/dpkg/status", encoding="utf-8") as file:
            stanzas = file.read().split("\n\n")
        self.stanzas, self.providers, self.essential = {}, {}, []
        for stanza in stanzas:
            package = fields(stanza)
            if package.get("Status", "").endswith(" installed"):
                name = package["Package"]
                self.stanzas.setdefault(name, stanza)
                for provided in re.findall(r"([^\s,(]+)(?: \([^)]*\))?(?:,|$)", package.get("Provides", "")):
                    self.providers.setdefault(provided, name)
                if package.get("Essential") == "yes":
                    self.essential.append(name)

    def closure(self, dependencies):
        """All packages that have to be there for these, the essential ones among them."""
        found, waiting = set(), list(self.essential) + self.chosen(dependencies)
        while waiting:
            name = waiting.pop()
            if name not in found:
                found.add(name)
                package = fields(self.stanzas[name])
                waiting += self.chosen(package.get("Depends", "")) + self.chosen(package.get("Pre-Depends", ""))
        return sorted(found)

    def chosen(self, dependencies):
        """For each of the dependencies one that is installed here."""
        names = []
        for alternatives in filter(None, (each.strip() for each in dependencies.split(","))):
            for alternative in alternatives.split("|"):
                name = re.match(r"\s*([^\s(:\[]+)", alternative).group(1)
                name = name if name in self.stanzas else self.providers.get(name)
                if name:
                    names.append(name)
                    break
            else:
                raise AssertionError("not installed on this machine: " + alternatives)
        return names


def make_root(root, installed, packages):
    """A system of these packages."""
    for link in ("bin", "sbin", "lib", "lib32", "lib64", "libx32"):
        if os.path.islink("/" + link):
            os.symlink(os.readlink("/" + link), root + "/" + link)
            os.makedirs(root + "/" + os.readlink("/" + link), exist_ok=True)
    info = root + "/var/lib/dpkg/info"
    for folder in (info, root + "/var/lib/dpkg/updates", root + "/tmp", root + "/dev", root + "/etc"):
        os.makedirs(folder, exist_ok=True)
    for name in packages:
        for record in glob.glob("/var/lib/dpkg/info/%s.list" % name) + glob.glob("/var/lib/dpkg/info/%s:*.list" % name):
            shutil.copy2(record, info)
            with open(record, encoding="utf-8") as file:
                paths = file.read().splitlines()
            for path in paths:
                if path.startswith(LEFT_OUT) or not os.path.lexists(path):
                    continue
                target = root + path
                if os.path.isdir(path) and not os.path.islink(path):
                    os.makedirs(target, exist_ok=True)
                elif not os.path.lexists(target):
                    os.makedirs(os.path.dirname(target), exist_ok=True)
                    shutil.copy2(path, target, follow_symlinks=False)
    # What installation scripts choose among packages, and would choose here.
    if os.path.isdir("/etc/alternatives"):
        shutil.copytree("/etc/alternatives", root + "/etc/alternatives", symlinks=True, dirs_exist_ok=True)
        libraries = "/usr/lib/" + run("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip()
        for link in os.scandir("/etc/alternatives"):
            for folder in ("/usr/bin", libraries):
                path = os.path.join(folder, link.name.split("-")[0])
                if os.path.islink(path) and not os.path.lexists(root + path):
                    os.symlink(os.readlink(path), root + path)
    if not os.path.lexists(root + "/bin/sh"):
        os.symlink("dash", root + "/bin/sh")
    with open(root + "/var/lib/dpkg/status", "w", encoding="utf-8") as file:
        file.write("".join(installed.stanzas[name] + "\n\n" for name in packages))
    for name, minor in (("null", 3), ("urandom", 9)):
        os.mknod(root + "/dev/" + name, 0o666 | stat.S_IFCHR, os.makedev(1, minor))
    run("ldconfig", "-r", root)


def files_below(root):
    """All paths but those of dpkg's own records."""
    found = set()
    for folder, folders, files in os.walk(root):
        found.update(os.path.relpath(os.path.join(folder, name), root) for name in folders + files)
    return {path for path in found if not path.startswith(("var/lib/dpkg/", "var/log/", "var/cache/", "etc/ld.so.cache"))}


def check_contents(deb, folder, forbidden):
    """Owners, modes, and nothing in the files about where they were built."""
    for line in run("dpkg-deb", "--contents", deb).splitlines():
        check(re.match(r"(d|-)rw[x-]r-[x-]r-[x-] root/root ", line), "mode or owner:", line)
    run("dpkg-deb", "--extract", deb, folder)
    for parent, _, files in os.walk(folder):
        for name in files:
            path = os.path.join(parent, name)
            with open(path, "rb") as file:
                content = file.read()
            for where in forbidden:
                check(not re.search(rb"(?<![\w.-])" + re.escape(os.fsencode(where)) + rb"/", content), path, "names", where)
            if content.startswith(b"\x7fELF"):
                check(not re.search("RPATH|RUNPATH", run("readelf", "--dynamic", path)), path, "has a run path")
                check(".debug_info" not in run("readelf", "--sections", "--wide", path), path, "is not stripped")
            if content.startswith((b"\x7fELF", b"!<arch>")):
                check(not hardening.flaws(path), path, hardening.flaws(path))


def check_about(folder, package, version):
    """What every package of Debian says about itself."""
    about = "%s/usr/share/doc/%s/" % (folder, package)
    with open(about + "copyright", encoding="utf-8") as file:
        text = file.read()
    for said in ("Copyright: the mediaworker authors", "grants no licence", "Qt and FFmpeg", "shared libraries"):
        check(said in text, said, "is missing in the copyright file of", package)
    with open(about + "changelog.gz", "rb") as file:
        check(file.read(8) == b"\x1f\x8b\x08\0\0\0\0\0", "changelog.gz holds a name or a time")
    with gzip.open(about + "changelog.gz") as packed, tempfile.NamedTemporaryFile() as plain:
        shutil.copyfileobj(packed, plain)
        plain.flush()
        newest = fields(run("dpkg-parsechangelog", "-l", plain.name))
    check(newest.get("Source") == "mediaworker" and newest.get("Version") == version, newest)
    check(re.match(r"[^<]+ <[^>]+@[^>]+>$", newest["Maintainer"]), newest)
    check(re.match(r"[A-Z][a-z]{2}, \d{2} [A-Z][a-z]{2} \d{4} ", newest["Date"]), newest)


def check_policy(debs):
    """Debian's own checker has no complaint; what it is told to pass over stands in the package, with the reason."""
    if not shutil.which("lintian"):
        print("left out: there is no lintian")
        return
    run("lintian", "--allow-root", "--no-cfg", "--fail-on=error,warning", *debs)


def check_runtime(deb, folder):
    control = fields(run("dpkg-deb", "--field", deb))
    check(control["Package"] == "mediaworker", control)
    check(os.path.basename(deb) == "mediaworker_%(Version)s_%(Architecture)s.deb" % control, deb)
    depends = control["Depends"]
    for needed in (r"libavcodec(-extra)?\d+ \(>=", r"libavformat(-extra)?\d+ \(>=", r"libavutil\d+ \(>=", r"libqt5core5",
                   r"libqt5network5", r"libqt5multimedia5", r"libqt5widgets5", r"libc6 \(>="):
        check(re.search(needed, depends), needed, "is missing in", depends)
    for recommended in ("libqt5multimedia5-plugins", "ca-certificates"):
        check(recommended in control["Recommends"], control["Recommends"])
    for program in PROGRAMS:
        check(os.access(folder + "/usr/bin/" + program, os.X_OK), program)
        with gzip.open("%s/usr/share/man/man1/%s.1.gz" % (folder, program), "rt") as page:
            text = page.read()
        check(".SH NAME\n" + program + " \\- " in text, "the page of", program)
        check("mediaworker " + control["Version"] in text, "the version in the page of", program)
    check(glob.glob(folder + "/usr/lib/mediaworker/libmediaworker_sound.so"), "the sound module is missing")
    check(os.path.exists(folder + "/usr/share/doc/mediaworker/docs/protocol.md"), "the protocol is missing")
    share = folder + "/usr/share/"
    for path in ("applications/mediaworker-view.desktop", "icons/hicolor/scalable/apps/mediaworker-view.svg",
                 "icons/hicolor/48x48/apps/mediaworker-view.png", "metainfo/org.example.mediaworker.view.metainfo.xml",
                 "bash-completion/completions/mediaworker-ctl", "bash-completion/completions/mediaworker-view",
                 "zsh/vendor-completions/_mediaworker"):
        check(os.path.getsize(share + path) > 0, path)
    check(not glob.glob(folder + "/usr/include"), "headers are for the other package")
    return depends


def check_dev(deb, folder, version):
    control = fields(run("dpkg-deb", "--field", deb))
    check(os.path.basename(deb) == "mediaworker-dev_%(Version)s_%(Architecture)s.deb" % control, deb)
    check("mediaworker (= %s)" % version in control["Depends"], control["Depends"])
    check("qtbase5-dev" in control["Depends"], control["Depends"])
    check(glob.glob(folder + "/usr/lib/**/mediaworkerConfig.cmake", recursive=True), "the CMake package")
    for name, header in (("parent", "WorkerProcess"), ("widgets", "StreamWidget"), ("quick", "MediaStream")):
        check(os.path.exists("%s/usr/include/mediaworker/%s/%s.h" % (folder, name, header)), "headers of", name)
        check(glob.glob("%s/usr/lib/**/libmediaworker_%s.a" % (folder, name), recursive=True), "the library", name)
    check("qtdeclarative5-dev" in control["Suggests"], control["Suggests"])
    for example in ("minimal", "widgets", "quick"):
        check(os.path.exists("%s/usr/share/doc/mediaworker-dev/examples/%s/main.cpp" % (folder, example)), "example", example)
    check(not os.path.exists(folder + "/usr/bin"), "programs are for the other package")


def serve(folder):
    """A film of ten seconds on a free port of this machine."""
    run("ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=320x180:rate=25", "-t", "10",
        "-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "ultrafast", "-g", "25", folder + "/archive.flv")

    class Handler(http.server.SimpleHTTPRequestHandler):
        def __init__(self, *arguments):
            super().__init__(*arguments, directory=folder)

        def log_message(self, *arguments):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return "http://127.0.0.1:%d/archive.flv" % server.server_port


def check_use(root, deb, url):
    before = files_below(root)
    run("dpkg", "--root=" + root, "--install", deb)
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/tmp", "QT_QPA_PLATFORM": "offscreen", "LC_ALL": "C.UTF-8"}
    in_root = ("chroot", root)
    for program in PROGRAMS[1:]:
        check("mediaworker" in run(*in_root, program, "--version", env=environment), program)
    for page, commands in (("mediaworker-ctl", ([], ["play"], ["export"])), ("mediaworker-view", ([],))):
        with gzip.open("%s/usr/share/man/man1/%s.1.gz" % (root, page), "rt") as file:
            described = set(re.findall(r"--[a-z-]+", file.read().replace("\\-", "-")))
        taken = set()
        for command in commands:
            taken.update(re.findall(r"--[a-z-]+", run(*in_root, page, *command, "--help", env=environment)))
        check(len(taken) > 5 and described == taken, page, "differs from its page in", sorted(described ^ taken))
    told = run(*in_root, "mediaworker-ctl", "play", url, "--seconds", "2", "--snapshots", "/tmp/pictures", "--json",
               env=environment, timeout=60)
    check(len([line for line in told.splitlines() if line.startswith("{") and json.loads(line)]) >= 2, told)
    pictures = glob.glob(root + "/tmp/pictures/*.png")
    check(len(pictures) >= 2, told)
    for picture in pictures:
        with open(picture, "rb") as file:
            check(file.read(24).endswith(b"\0\0\1\x40\0\0\0\xb4"), picture, "is not 320 x 180")
    shutil.rmtree(root + "/tmp/pictures")
    run(*in_root, "mediaworker-ctl", "export", url, "/tmp/out.mp4", "--duration", "10", env=environment, timeout=60)
    check(os.path.getsize(root + "/tmp/out.mp4") > 10000, "the export is empty")
    os.remove(root + "/tmp/out.mp4")
    run("dpkg", "--root=" + root, "--purge", "mediaworker")
    after = files_below(root)
    check(after == before, "left behind:", sorted(after - before), "taken away:", sorted(before - after))
    check(not glob.glob(root + "/var/lib/dpkg/info/mediaworker*"), "dpkg still knows it")


def skip(why):
    print("SKIPPED:", why)
    sys.exit(SKIPPED)


def main(build, source):
    if os.geteuid() != 0:
        skip("only root can install packages and change the root")
    with tempfile.TemporaryDirectory(prefix="mediaworker-package-") as folder:
        os.chmod(folder, 0o755)
        try:
            os.mknod(folder + "/null", 0o666 | stat.S_IFCHR, os.makedev(1, 3))
            with open(folder + "/null", "wb"):
                pass
            run("chroot", "/", "/bin/true")
        except (AssertionError, OSError) as reason:
            skip("this root may not make devices or change the root: %s" % reason)
        debs = folder + "/debs"
        run("cpack", "--config", build + "/CPackConfig.cmake", "-G", "DEB", "-B", debs)
        found = sorted(glob.glob(debs + "/*.deb"))
        check(len(found) == 2, found)
        development, runtime = found
        for deb, name in ((runtime, "runtime"), (development, "dev")):
            check_contents(deb, folder + "/" + name, [build, source])
        depends = check_runtime(runtime, folder + "/runtime")
        version = fields(run("dpkg-deb", "--field", runtime))["Version"]
        check_dev(development, folder + "/dev", version)
        check_about(folder + "/runtime", "mediaworker", version)
        check_about(folder + "/dev", "mediaworker-dev", version)
        check_policy(found)

        installed = Installed()
        packages = installed.closure(depends)
        check("ffmpeg" not in packages and "libqt5multimedia5-plugins" not in packages, "the root is not clean")
        root = folder + "/root"
        os.mkdir(root)
        make_root(root, installed, packages)
        check_use(root, runtime, serve(folder))
        print("%d packages in the root; %s" % (len(packages), depends))


if __name__ == "__main__":
    main(os.path.realpath(sys.argv[1]), os.path.realpath(sys.argv[2]))
