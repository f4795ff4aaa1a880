"""Running orvane-card in the emulated system, with what a case wants it to find there."""

import json
import pathlib
import socket
import subprocess

from cases import equal

LAB = pathlib.Path(__file__).resolve().parent
REPOSITORY = LAB.parent
# The temporary folder as the emulated system's files have it.
TEMP = "/wine/drive_c/users/root/AppData/Local/Temp"


def openssl(*arguments):
    """Runs openssl; returns its standard output."""
    return subprocess.run(["openssl", *arguments], check=True, capture_output=True).stdout


class Run:
    """One stack with one virtual card, in a folder of its own. What a case does not change is as it should be."""

    def __init__(self, arch, folder, tokens, systems):
        self.folder = folder
        self.systems = systems  # those that stay up
        self.arch = arch
        self.tokens = tokens
        self.out = folder / "out"
        self.temp = folder / "temp"
        self.directory = REPOSITORY / f"build/windows-{arch}"
        self.registry = LAB / "orvane.reg"
        self.is_temp_read_only = False
        self.first_card = []  # control lines of a card in a reader of the same name before the case's own
        self.more_readers = []  # pairs (reader name, the card's serial) of readers after the case's own
        for each in (self.out, self.temp):
            each.mkdir(parents=True)

    def start(self, reader, serial, lines, *arguments):
        """Starts orvane-card there. Without a reader's name there is no smart-card service; "none" is a service without
        readers."""
        readers = [(reader, "none", self.first_card)] if self.first_card else []
        readers += [(reader, serial, lines)] if reader not in (None, "none") else []
        readers += [(name, card, []) for name, card in self.more_readers]
        environment = {"ORVANE_SOFTTOKEN_DIR": "Z:\\tokens"}
        # What another registry is wanted for, and what runs beside another start, gets a system of its own.
        standing = self.systems.take() if self.registry == self.systems.registry else None
        if standing is not None:
            words = [word for name, card, controls in readers for word in ("reader", name, card, *controls)]
            binds = [("ro", self.directory, "/build"), ("rw", self.out, "/out"),
                     ("ro" if self.is_temp_read_only else "rw", self.temp, TEMP), ("ro", self.tokens, "/tokens")]
            return standing.start([(mode, str(source), target) for mode, source, target in binds],
                                  words if readers or reader else None, ["wine64", "./orvane-card.exe", *arguments], environment)
        command = [LAB / "run-windows", "--timeout", "180", "--directory", self.directory, "--out", self.out]
        command += ["--bind", f"{self.temp}:{TEMP}"] if self.is_temp_read_only else ["--temp", self.temp]
        command += ["--bind", f"{self.tokens}:/tokens"]
        command += [word for name, value in environment.items() for word in ("--env", f"{name}={value}")]
        command += ["--registry", self.registry] if self.registry else []
        command += ["--no-reader"] if reader == "none" else []
        for name, card, controls in readers:
            command += ["--reader", name, "--serial", card]
            command += [word for line in controls for word in ("--card", line)]
        pipe = subprocess.PIPE
        return subprocess.Popen(
            [*command, self.arch, "orvane-card.exe", *arguments], stdin=pipe, stdout=pipe, stderr=pipe, text=True)

    def tool(self, reader, serial, lines, *arguments, stdin=""):
        """Runs orvane-card there; returns its status and its JSON documents."""
        process = self.start(reader, serial, lines, "--json", *arguments)
        output, errors = process.communicate(stdin)
        documents = [json.loads(line) for line in output.splitlines() if line.startswith("{")] \
            if arguments[0] == "session" else [json.loads(output)] if output.strip() else []
        if not documents:
            raise AssertionError(f"status {process.returncode}, no JSON; standard error:\n{errors}")
        return process.returncode, documents

    def log(self):
        """The text of all of the minidriver's log files."""
        return "\n".join(path.read_text(errors="replace") for path in sorted(self.temp.rglob("*.LOG")))

    def card_commands(self):
        """What the card was asked."""
        return (self.out / "card-commands.txt").read_text().strip()

    def control(self, line):
        """Has the card carry out a control line while the tool runs."""
        with socket.socket(socket.AF_UNIX) as connection:
            connection.connect(str(self.out / "card-control"))
            connection.sendall(line.encode() + b"\n")
            equal(connection.makefile().readline().strip(), "ok", f"control line '{line}'")
