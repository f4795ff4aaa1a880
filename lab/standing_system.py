#!/usr/bin/env python3
"""An emulated system that stays up, into which a test program sends one start of a Windows program after the other: to start
Wine takes several times as long as most programs do.

Test programs use the class Systems. A start finds what it would find in a system of its own (lab/run-windows): folders of the
machine that are there for it alone, its own readers and cards with a smart-card service and a network of their own, and the
registry and the files of a system that was just started. That the start before left nothing is looked at, not believed:

- A process that still runs, a file that was made, changed or removed, or a folder that is still in use make the next start go
  into a new system. So does a start that was broken off.
- When a system ends, Wine writes its registry down. It has to be that of a system in which nothing was started.

This file is two programs: the test program's side, and "ROOT FOLDER", called by lab/in-system, which is the system's own side.
Between them stands start_there.c, a process for each start, which has the input, the outputs and the status of the program that
it has started. A system ends with the test program, however that ends: it watches its standard input, which the test program
holds open.

There are hundreds of starts, so what the system's side does for one is done by itself: a fork instead of another Python, the
kernel's calls instead of the programs for them.
"""

import ctypes
import fcntl
import json
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
import traceback

sys.dont_write_bytecode = True  # root runs this, too; the tree stays as it is
import card_session  # noqa: E402

LAB = pathlib.Path(__file__).resolve().parent
TIME_LIMIT = 180  # seconds for one start
PATIENCE = 5  # seconds for what is still ending after a start
LONGEST = 1 << 16  # bytes of a request or an answer
REGISTRY_FILES = ("system.reg", "user.reg", "userdef.reg")
CERTIFICATES = r"(system|user)\.reg \[Software\\\\Microsoft\\\\SystemCertificates"
# Where a start may leave something: the smart-card service's own places, which every start begins by emptying.
SERVICE = ("run/", "etc/reader.conf.d/")
# What Wine may still be starting by itself when the first program ends.
WINE_ITSELF = ("services.exe", "winedevice.exe")
BROKEN = 125  # the status of a start that has come to nothing
# Of linux/mount.h, linux/sched.h, linux/sockios.h and linux/if.h.
MS_RDONLY, MS_REMOUNT, MS_BIND = 1, 32, 4096
CLONE_NEWNET = 0x40000000
SIOCSIFFLAGS, IFF_UP = 0x8914, 1
KERNEL = ctypes.CDLL(None, use_errno=True)


def connect(path):
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    connection.connect(str(path))
    return connection


# The test program's side.


class Standing:
    """One system that stays up, in a folder of its own for its socket and for what it says at its end."""

    def __init__(self, system, registry, folder, starter):
        folder.mkdir(parents=True)
        self._folder, self._socket, self._starter, self.begun = folder, folder / "socket", starter, None
        command = ["sudo"] if os.geteuid() != 0 else []
        command += [LAB / "in-system", "--registry", registry, "--outside", __file__, system, folder]
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        if self._process.stdout.readline() != b"ready\n":
            raise AssertionError("no system that stays up: it did not start")

    def _ask(self, word):
        try:
            with connect(self._socket) as connection:
                connection.send(json.dumps(word).encode())
                return connection.recv(LONGEST).decode()
        except OSError:
            return ""

    def is_fit(self):
        """True if it is up and the start before has left nothing."""
        return self._ask("fit?") == "yes"

    def is_busy(self):
        return self.begun is not None and self.begun.poll() is None

    def start(self, binds, readers, command, environment):
        """Starts a program there; returns its process, with pipes."""
        request = json.dumps({"binds": binds, "readers": readers, "command": command, "environment": environment})
        pipe = subprocess.PIPE
        self.begun = subprocess.Popen([self._starter, self._socket, str(TIME_LIMIT), request],
                                      stdin=pipe, stdout=pipe, stderr=pipe, text=True)
        return self.begun

    def end(self):
        """Ends it; returns how its registry is not as it was, "" if it is."""
        self._ask("end")
        self._process.stdin.close()
        self._process.wait()
        self._process.stdout.close()
        said = self._folder / "registry"
        return said.read_text() if said.exists() else "it has not said how its registry is"


class Systems:
    """The systems of a test program that stay up: one for each of its threads, and those that they had before."""

    def __init__(self, arch, registry, folder):
        self.registry = registry
        self._arch, self._folder = arch, folder
        self._lock, self._mine, self._all, self._system = threading.Lock(), threading.local(), [], None

    def _new(self):
        with self._lock:
            if self._system is None:
                files = " ".join(f'. "{LAB.parent}/scripts/lib/{name}.sh";' for name in ("common", "packages", "systems"))
                self._system = subprocess.run(
                    ["bash", "-c", f'{files} ensureSystem "$0" >&2 && systemDir "$0"', self._arch],
                    stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
                self._folder.mkdir(parents=True)
                subprocess.run(["clang", "-std=gnu11", "-O1", "-Wall", "-Wextra", "-Werror", LAB / "start_there.c",
                                "-o", self._folder / "start_there"], check=True)
            standing = Standing(self._system, self.registry, self._folder / str(len(self._all)), self._folder / "start_there")
            self._all.append(standing)
            return standing

    def take(self):
        """The system of the calling thread, fit for a start; None while the start before has not ended."""
        standing = getattr(self._mine, "standing", None)
        if standing is not None and standing.is_busy():
            return None
        if standing is None or not standing.is_fit():
            self._mine.standing = standing = self._new()
        return standing

    def end(self):
        """Ends all of them; fails if a registry is not as it was."""
        with self._lock:
            left = [text for text in (each.end() for each in self._all) if text]
            self._all = []
        if left:
            raise AssertionError("left in the registry:\n" + "\n".join(left))


# The system's own side.


def registry_of(folder):
    """The keys that Wine has written down, each with its values: {file and key: lines}, without the times."""
    keys = {}
    for name in REGISTRY_FILES:
        for part in (folder / name).read_text(encoding="latin-1").split("\n[")[1:]:
            head, *lines = part.splitlines()
            keys[f"{name} [{head.rpartition(' ')[0]}"] = sorted(
                line for line in lines if line and not line.startswith("#time="))
    return keys


def is_made_by_wine(key, lines):
    """True for what Wine makes in the registry when a program first asks for certificates: the folders of the stores, and the
    roots that it trusts."""
    return bool(re.match(CERTIFICATES, key)) and (not lines or "\\\\Root\\\\Certificates\\\\" in key)


def must(result):
    """Fails with the kernel's reason if one of its calls has."""
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def bind(source, place, mode):
    """Shows a folder in another place, too."""
    must(KERNEL.mount(source.encode(), place.encode(), None, MS_BIND, None))
    if mode == "ro":
        must(KERNEL.mount(None, place.encode(), None, MS_REMOUNT | MS_BIND | MS_RDONLY, None))


def leave_network():
    """Gives this process a network of its own, with localhost alone."""
    must(KERNEL.unshare(CLONE_NEWNET))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, SIOCSIFFLAGS, struct.pack("16sH22x", b"lo", IFF_UP))


class System:
    """The system in ROOT, as seen from the machine's own files but with the system's processes and mounts."""

    def __init__(self, root, folder):
        self._root, self._folder = root, folder
        self._changes = pathlib.Path(f"{root}.layer/upper")  # where lab/in-system has what differs from the system's folder
        for each in (*SERVICE, "tokens"):
            (root / each).mkdir(parents=True, exist_ok=True)
            os.utime(root / each)  # with that it is among the changes from the beginning

    def _processes(self):
        """{number: name} of what runs."""
        found = {}
        for each in (self._root / "proc").iterdir():
            if each.name.isdigit():
                try:
                    found[each.name] = (each / "comm").read_text().strip()
                except OSError:  # it has ended
                    pass
        return found

    def _files(self):
        """What differs from the system's folder: {path: what would change with the content}."""
        found = {}
        for folder, folders, files in os.walk(self._changes):
            for name in files + folders:
                path = os.path.join(folder, name)
                try:
                    facts = os.lstat(path)
                except FileNotFoundError:  # Wine was just writing its registry down
                    continue
                found[os.path.relpath(path, self._changes)] = (facts.st_mode, facts.st_ino, *(
                    (facts.st_size, facts.st_mtime_ns) if name in files else ()))
        return {path: facts for path, facts in found.items()
                if not path.startswith(SERVICE) and not re.fullmatch(r"wine/(\w+\.reg|regf\w+\.tmp)", path)}

    def boot(self):
        """Starts Wine, which stays up without any program."""
        for command in (["wineserver", "-p"], ["wine64", "cmd", "/c", "exit"]):
            subprocess.run(["chroot", self._root, *command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, check=True)

    def halt(self):
        """Ends Wine, which writes its registry down; returns that."""
        servers = [number for number, name in self._processes().items() if name.startswith("wineserver")]
        for number in servers:
            os.kill(int(number), signal.SIGTERM)
        while any(number in self._processes() for number in servers):
            time.sleep(0.01)
        return registry_of(self._root / "wine")

    def begin(self):
        """Starts Wine. The first system of a test program ends it once more, for a registry to compare with."""
        untouched = self._folder.parent / "untouched-registry"
        if not untouched.exists():
            self.boot()
            untouched.with_suffix(f".{os.getpid()}").write_text(json.dumps(self.halt()))
            untouched.with_suffix(f".{os.getpid()}").rename(untouched)
        self._untouched = json.loads(untouched.read_text())
        self.boot()
        self._files_before = self._files()

    def farewell(self):
        """Ends Wine and writes down how the registry is not as it was."""
        keys = self.halt()
        changed = [f"{key}: {self._untouched.get(key)} became {keys.get(key)}"[:1000]
                   for key in sorted({*keys, *self._untouched})
                   if keys.get(key) != self._untouched.get(key) and not is_made_by_wine(key, keys.get(key))]
        (self._folder / "registry").write_text("\n".join(changed))

    def carry_out(self, request, standard, connection):
        """Carries out one request with the given input and outputs. Returns (status, what is left), or None if the other side
        has gone before the end, when everything here has to."""
        before = self._processes()
        for mode, source, target in request["binds"]:
            bind(source, f"{self._root}{target}", mode)
        process = os.fork()
        if process == 0:
            os._exit(self._run(request, standard))
        for number in standard:
            os.close(number)
        ended = os.pidfd_open(process)
        ready, _, _ = select.select([ended, connection, sys.stdin], [], [])
        os.close(ended)
        if ready != [ended]:
            return None
        status = os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])
        left = self._leftovers(before, request["binds"])
        return status if status >= 0 else 128 - status, left

    def _run(self, request, standard):
        """In a process of its own: runs the command of a request with the given input and outputs; returns its status."""
        try:
            for number, given in enumerate(standard):
                os.dup2(given, number)
            os.closerange(len(standard), os.sysconf("SC_OPEN_MAX"))
            leave_network()
            os.environ.update(request["environment"], IN_SYSTEM_DIRECTORY="/build")
            if request["readers"] is not None:
                return card_session.session(self._root, [*request["readers"], "--", *request["command"]])
            signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # which Python ignores
            os.chroot(self._root)
            os.chdir("/build")
            os.execvp(request["command"][0], request["command"])
        except card_session.Failure as failure:
            print(f"card session: {failure}", file=sys.stderr, flush=True)
        except BaseException:  # pylint: disable=broad-except
            traceback.print_exc()
            sys.stderr.flush()
        return BROKEN

    def _leftovers(self, before, binds):
        """Takes away what was there for a start alone; returns what else of it is left, "" if nothing."""
        deadline = time.monotonic() + PATIENCE
        places = [f"{self._root}{target}" for _, _, target in reversed(binds)]
        while True:
            running = [name for number, name in self._processes().items() if number not in before and name not in WINE_ITSELF]
            if not running:
                places = [place for place in places if KERNEL.umount2(place.encode(), 0) != 0]
            if not running and not places:
                break
            if time.monotonic() > deadline:
                return f"still running: {running}, still in use: {places}"
            time.sleep(0.02)
        shutil.rmtree(self._root / "run/pcscd")
        (self._root / "run/pcscd").mkdir()
        files = self._files()
        changed = {path for path in {*files, *self._files_before} if files.get(path) != self._files_before.get(path)}
        return f"changed: {sorted(changed)}" if changed else ""

    def serve(self):
        """Carries out requests until one is to end, is broken off, or the test program has gone."""
        left = ""
        with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as listener:
            listener.bind(str(self._folder / "socket"))
            (self._folder / "socket").chmod(0o666)
            listener.listen()
            self.begin()
            print("ready", flush=True)
            while True:
                if sys.stdin in select.select([listener, sys.stdin], [], [])[0]:
                    return
                connection, _ = listener.accept()
                with connection:
                    data, standard, _, _ = socket.recv_fds(connection, LONGEST, 3)
                    request = json.loads(data) if data else None
                    if request == "end":
                        self.farewell()
                        return
                    if request == "fit?":
                        connection.send(b"no" if left else b"yes")
                    elif request is not None:
                        done = self.carry_out(request, standard, connection)
                        if done is None:
                            self.farewell()
                            return
                        status, left = done
                        if left:
                            (self._folder / "left").write_text(left)
                        try:
                            connection.send(str(status).encode())
                        except OSError:  # broken off at the last moment
                            left = "nobody who waits for the status"


if __name__ == "__main__":
    System(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])).serve()
