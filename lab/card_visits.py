#!/usr/bin/env python3
"""A card that comes and goes, with several programs at it: what each visit brings, and what is left in the smart-card service.

    lab/card_visits.py ARCH VISITS PROGRAMS SEED

Each visit the token is connected and the card inserted; every program (tests/visits/) acquires a context, reads, has the PIN
checked and signs; then the card leaves, and the token with it. In every fourth visit they leave while the programs are at work,
at a moment that SEED decides; only then may a call fail, and only in the ways of PULLED. Prints what the service and the programs
hold after each tenth. The status is 0 only if every other visit brought a signature that OpenSSL verifies, no program was ever
stuck, nothing grew, no PIN stands in the log, and at the end nobody has the card: an exclusive connection is granted, and what the
service held for the programs is gone. (Lines of the log are not looked at one by one: the programs share a file,
and where Windows puts what is written at its end in one step, Wine asks for the end and then writes.)
"""

import collections
import contextlib
import pathlib
import random
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # the tree stays as it is
from cases import remove_folder  # noqa: E402

LAB = pathlib.Path(__file__).resolve().parent
REPOSITORY = LAB.parent
READER, SERIAL, PIN = "Brightfold Orvane OrvaneDSC", "0012AB", "24681357"
TOO_LONG = 150  # seconds; the programs themselves give up waiting for a card after 120
SETTLED = 100  # visits; growth in fewer says nothing
# Bytes: a heap may be cut up a little differently. In a thousand visits that is ten a visit, where what a C runtime keeps for a
# thread would be a thousand, and a context three thousand.
GROWTH = 10000
WOBBLE = 2  # threads and handles of a program: the system's pool of threads has one more or less at any moment
ENDING = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)
LONGEST_PULL = 1.5  # seconds after the programs saw the card
# How calls may fail when the card and the token leave in their midst: the first in the service's own ways, the others as the
# minidriver answers when its token is not connected any more.
PULLED = re.compile(r"SCard\w+: SCARD_(E_NO_SMARTCARD|W_REMOVED_CARD|W_UNPOWERED_CARD|E_READER_UNAVAILABLE)|"
                    r"CardAcquireContext: SCARD_E_NO_SMARTCARD|"
                    r"CardReadFile: (ERROR_FILE_NOT_FOUND|SCARD_E_FILE_NOT_FOUND|SCARD_E_NO_KEY_CONTAINER)|"
                    r"CardAuthenticateEx: SCARD_W_WRONG_CHV|CardSignData: SCARD_E_(INVALID_PARAMETER|NO_KEY_CONTAINER)")


class Finding(Exception):
    """What must not happen."""


class Visits:
    def __init__(self, arch, visits, programs, seed, folder):
        self._visits, self._programs, self._random = visits, programs, random.Random(seed)
        self._out, self._temp, self._tokens = folder / "out", folder / "temp", folder / "tokens"
        for each in (self._out, self._temp):
            each.mkdir()
        subprocess.run([REPOSITORY / "softtoken/make_token.sh", "--folder", self._tokens, "--serial", SERIAL, "--keys", "2048:sig",
                        "--pin", PIN], check=True, stdout=subprocess.DEVNULL)
        self._token, self._away = self._tokens / SERIAL, self._tokens / f".{SERIAL}"
        self._said = [[] for _ in range(programs)]  # the lines so far
        self._read = [0] * programs  # bytes of them
        self._signatures, self._failures = set(), collections.Counter()
        self._process = subprocess.Popen(
            [LAB / "run-windows", "--timeout", str(6 * 3600), "--out", self._out, "--temp", self._temp, "--bind",
             f"{self._tokens}:/tokens", "--env", "ORVANE_SOFTTOKEN_DIR=Z:\\tokens", "--registry", LAB / "orvane.reg", "--reader",
             READER, "--serial", "-", arch, "orvane_visits.exe", "all", "Z:\\out", PIN, str(visits), str(programs)])

    def _wait(self, is_reached, what):
        end = time.monotonic() + TOO_LONG
        while not is_reached():
            if time.monotonic() > end:
                raise Finding(f"stuck: {what}")
            if self._process.poll() is not None:
                raise Finding(f"the programs have ended before {what}")
            time.sleep(0.01)

    def _control(self, line):
        try:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.settimeout(TOO_LONG)
                connection.connect(str(self._out / "card-control"))
                connection.sendall(line.encode() + b"\n")
                answer = connection.makefile().readline().strip()
        except OSError as error:  # too long, or nobody listens any more
            answer = str(error)
        if answer != "ok":
            raise Finding(f"control line '{line}': {answer}")

    def _listen(self):
        for number in range(self._programs):
            path = self._out / f"said-{number + 1}.txt"
            if path.exists():
                with path.open("rb") as file:
                    file.seek(self._read[number])
                    text = file.read()
                whole = text[:text.rfind(b"\n") + 1]
                self._read[number] += len(whole)
                self._said[number] += whole.decode().splitlines()

    def _all_said(self, visit, words):
        """True if every program has said one of the words about a visit."""
        self._listen()
        return all(any(line.split()[:2] == [str(visit), word] for word in words for line in lines[-4:]) for lines in self._said)

    def _service(self):
        """The service's process: the one that sees our folder."""
        for path in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if b"pcscd" in (path / "cmdline").read_bytes() and (path / "root/out").samefile(self._out):
                    return path
            except OSError:
                continue
        raise Finding("there is no smart-card service")

    def _held_by_service(self):
        """Its threads and open files."""
        service = self._service()
        return len(list((service / "task").iterdir())), len(list((service / "fd").iterdir()))

    def _connect(self):
        if self._away.exists():
            self._away.rename(self._token)
        self._control("insert")

    def _leave(self):
        steps = [lambda: self._token.rename(self._away), lambda: self._control("remove")]
        self._random.shuffle(steps)
        for step in steps:
            step()

    def _one(self, visit):
        self._connect()
        self._wait(lambda: self._all_said(visit, ["present"]), f"all see the card of visit {visit}")
        is_pulled = visit % 4 == 0
        if is_pulled:
            time.sleep(self._random.uniform(0, LONGEST_PULL))
        else:
            self._wait(lambda: self._all_said(visit, ["signed", "failed"]), f"all have signed in visit {visit}")
        self._leave()
        self._wait(lambda: self._all_said(visit, ["gone"]), f"all have left visit {visit}")
        for number, lines in enumerate(self._said, 1):
            for _, word, *rest in (line.split() for line in lines if line.startswith(f"{visit} ")):
                if word == "signed":
                    self._signatures.add(rest[0])
                elif word == "failed":
                    call = re.search(r"\[(\w+: \w+)", " ".join(rest))
                    if not is_pulled or call is None or not PULLED.fullmatch(call[1]):
                        raise Finding(f"visit {visit}, program {number}: {' '.join(rest)}")
                    self._failures[call[1]] += 1

    def _held(self, visit):
        """What is held after a visit: by the service, and by each program."""
        last = [next(line for line in reversed(lines) if line.startswith(f"{visit} gone")) for lines in self._said]
        return [self._held_by_service(), *(tuple(map(int, line.split()[2:])) for line in last)]

    def play(self):
        self._wait((self._out / "card-control").exists, "the card is there")
        before = self._held_by_service()
        print(f"before: the service has {before[0]} threads and {before[1]} open files", flush=True)
        self._control(f"serial {SERIAL}")
        begun, tenths = time.monotonic(), []
        for visit in range(1, self._visits + 1):
            self._one(visit)
            if visit % max(1, self._visits // 10) == 0:
                tenths.append(self._held(visit))
                programs = "; ".join(
                    f"{heap} bytes, {handles} handles, {threads} threads" for heap, handles, threads in tenths[-1][1:])
                print(f"{visit} visits, {time.monotonic() - begun:.0f} s: the service {tenths[-1][0][0]} threads, "
                      f"{tenths[-1][0][1]} open files; the programs {programs}", flush=True)
        # The one connection more is of the program that will ask for the card alone.
        self._wait(lambda: all(now <= then + 1 for now, then in zip(self._held_by_service(), before)),
                   "the programs have left the service")
        self._connect()
        try:
            self._process.wait(TOO_LONG)
        except subprocess.TimeoutExpired:
            raise Finding("stuck: the end") from None
        self._judge(tenths)

    def _judge(self, tenths):
        ends = (self._out / "end.txt").read_text().split("\n") if (self._out / "end.txt").exists() else []
        if ends != ["good"] * self._programs + ["exclusive 00000000", ""]:
            raise Finding(f"at the end: {ends}")
        # In the first visits what programs load stays loaded.
        for first, last in zip(tenths[0], tenths[-1]) if self._visits >= SETTLED else ():
            allowed = (GROWTH, WOBBLE, WOBBLE) if len(first) == 3 else (0, 0)
            if any(end > begin + more for begin, end, more in zip(first, last, allowed)):
                raise Finding(f"it grew: {first} after a tenth, {last} at the end")
        for signature in self._signatures:
            self._verify(bytes.fromhex(signature))
        lines = [line for path in self._temp.rglob("*.LOG") for line in path.read_text(errors="replace").splitlines()]
        if not lines or any(PIN in line for line in lines):
            raise Finding("there is no log, or a PIN in it")
        print(f"{self._visits} visits, {self._programs} programs: {sum(self._failures.values())} calls ended by the card's leaving "
              f"({dict(self._failures)}), {len(self._signatures)} different signatures, all verified; {len(lines)} lines of log")

    def _verify(self, signature):
        key = subprocess.run(["openssl", "x509", "-inform", "DER", "-in", self._token / "key1.crt", "-noout", "-pubkey"],
                             check=True, capture_output=True)
        (self._out / "key.pem").write_bytes(key.stdout)
        (self._out / "hash").write_bytes(b"\x5a" * 32)
        (self._out / "signature").write_bytes(signature)
        verified = subprocess.run(
            ["openssl", "pkeyutl", "-verify", "-pubin", "-inkey", self._out / "key.pem", "-sigfile", self._out / "signature", "-in",
             self._out / "hash", "-pkeyopt", "digest:sha256"], check=False, capture_output=True)
        if verified.returncode != 0:
            raise Finding(f"OpenSSL does not verify the signature {signature.hex()}")

    def end(self):
        """Ends what still runs; the run of the programs clears up after itself."""
        for name in (signal.SIGTERM, signal.SIGKILL):
            if self._process.poll() is None:
                end_process(self._process, name)

    def report(self):
        """Says how far the programs have come, for a finding."""
        self.end()
        for number, lines in enumerate(self._said, 1):
            print(f"program {number} said last: {[line[:80] for line in lines[-3:]]}")
        if (self._out / "end.txt").exists():
            print(f"at the end: {(self._out / 'end.txt').read_text()}")


def end_process(process, name):
    """Sends the signal and waits a while; a run that became root's is asked as root."""
    try:
        process.send_signal(name)
    except PermissionError:
        subprocess.run(["sudo", "-n", "kill", f"-{name:d}", str(process.pid)], check=False)
    with contextlib.suppress(subprocess.TimeoutExpired):
        process.wait(20)


def main():
    arch, visits, programs, seed = sys.argv[1], *map(int, sys.argv[2:5])
    # What asks this program to end is to pass the clearing up below.
    for name in ENDING:
        signal.signal(name, lambda number, _: sys.exit(128 + number))
    folder, visitors = pathlib.Path(tempfile.mkdtemp(prefix="orvane-visits.")), None
    try:
        visitors = Visits(arch, visits, programs, seed, folder)
        visitors.play()
        return 0
    except Finding as finding:
        print(f"finding (seed {seed}): {finding}")
        visitors.report()
        return 1
    finally:
        for name in ENDING:
            signal.signal(name, signal.SIG_IGN)
        if visitors is not None:
            visitors.end()
        remove_folder(folder)


if __name__ == "__main__":
    sys.exit(main())
