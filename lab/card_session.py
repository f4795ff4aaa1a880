#!/usr/bin/env python3
"""Runs one command in an emulated system with the real PC/SC stack: pcscd, virtual readers, and a virtual card in each.

Called by lab/in-system as "card_session.py ROOT READERS-AND-COMMAND": for each reader the words
    reader NAME SERIAL [CONTROL-LINE...]
(see virtual_card.py for control lines: they are carried out before the command starts), then "--" and the command, which
runs inside ROOT. Without such words there is no reader; SERIAL "-" leaves a reader empty. Windows programs see the readers
in the order of their names' first mention. pcscd appends " 00 00" to the name, and " 00 01" for a second reader of the same
name, which is the other slot of the first; there are three names at most, with two slots each. Reader number N, from 0 in
the order of the words, listens for control lines on localhost port 35970 + N. The status is the command's.

If a folder of the machine is shown inside as /out, the first card can also be controlled from the machine, through the
local socket card-control in it, and what every card was asked is found there afterwards, as hex, in card-commands.txt:
one line a reader, the commands separated by blanks, or "none".
"""

import os
import pathlib
import shutil
import subprocess
import sys
import time

sys.dont_write_bytecode = True  # root runs this; the tree stays as it is
import virtual_card  # noqa: E402

FIRST_PORT = 35963
FIRST_CONTROL = 35970
NAMES, SLOTS = 3, 2
DRIVER = "usr/lib/pcsc/drivers/serial/libifdvpcd.so"
EAGER = "/usr/lib/eager_reader.so"  # see eager_reader.c


class Failure(Exception):
    """The command was not run, and why."""


def fail(text):
    raise Failure(text)


def reader_ports(readers):
    """The port of each reader: each name has two, one for each slot of the reader driver."""
    names, ports = [], []
    for name, _, _ in readers:
        if name not in names:
            names.append(name)
        ports.append(FIRST_PORT + SLOTS * names.index(name))
        while ports[-1] in ports[:-1]:
            ports[-1] += 1
    return ports


def reader_config(root, readers, ports):
    """The text of pcscd's configuration. All readers are in one, since the order of several files is anyone's guess."""
    text = ""
    for number, ((name, _, _), port) in enumerate(zip(readers, ports)):
        if any(name == earlier for earlier, _, _ in readers[:number]):
            continue
        # The driver keeps its slots in variables of the process; under another name it is loaded once more, with its own.
        driver = f"/run/reader-driver-{number}.so"
        shutil.copyfile(root / DRIVER, root / driver[1:])
        text += f'FRIENDLYNAME "{name}"\nDEVICENAME /dev/null:{port:#x}\nLIBPATH {driver}\nCHANNELID {port:#x}\n\n'
    return text


def parse(words):
    readers = []
    while words and words[0] != "--":
        if words.pop(0) != "reader":
            fail("expected 'reader NAME SERIAL'")
        readers.append((words.pop(0), words.pop(0), []))
        while words and words[0] not in ("reader", "--"):
            readers[-1][2].append(words.pop(0))
    names = [name for name, _, _ in readers]
    if len(set(names)) > NAMES or any(names.count(name) > SLOTS for name in names):
        fail(f"there are {NAMES} names of readers at most, with {SLOTS} readers each")
    return readers, words[1:]


def session(root, words):
    """Runs the command with its readers, and returns its status. Leaves threads behind, so it is the last that a process does."""
    readers, command = parse(words)
    folder = root / "etc/reader.conf.d"
    for old in folder.iterdir():
        old.unlink()
    ports = reader_ports(readers)
    if readers:
        (folder / "readers").write_text(reader_config(root, readers, ports))
    cards = [virtual_card.VirtualCard(port, serial) for port, (_, serial, _) in zip(ports, readers)]
    (root / "run/pcscd").mkdir(parents=True, exist_ok=True)
    with open(root / "run/pcscd.log", "wb") as log:
        pcscd = subprocess.Popen(["pcscd", "-f", "--info", "--disable-polkit"], stdout=log, stderr=log,
                                 env={**os.environ, "LD_PRELOAD": EAGER}, preexec_fn=lambda: os.chroot(root))
    # Only now, as what is done between fork and exec above must find no other thread.
    for number, card in enumerate(cards):
        virtual_card.serve_control(card, ("127.0.0.1", FIRST_CONTROL + number))
    deadline = time.monotonic() + 60

    def wait_for(is_reached, what):
        while not is_reached():
            if pcscd.poll() is not None or time.monotonic() > deadline:
                fail(f"{what}:\n" + (root / "run/pcscd.log").read_text(errors="replace"))
            time.sleep(0.02)

    wait_for((root / "run/pcscd/pcscd.comm").exists, "pcscd did not start")
    inserted = [card for card, (_, serial, _) in zip(cards, readers) if serial != "-"]
    for card, (_, _, lines) in zip(cards, readers):
        # A card that says from the start who it is need not leave and come back, which the reader can miss.
        for line in (line for line in lines if line.startswith("atr ")):
            card.control(line)
        if card in inserted:
            card.insert()
    # The reader has noticed its card a moment before programs can see it; then this line is written.
    wait_for(lambda: (root / "run/pcscd.log").read_bytes().count(b"Card ATR: ") >= len(inserted), "a card was not noticed")
    for card, (_, _, lines) in zip(cards, readers):
        for line in (line for line in lines if not line.startswith("atr ")):
            answer = card.control(line)
            if answer.startswith("error"):
                fail(answer)

    out = root / "out"
    is_controlled = bool(cards) and os.path.ismount(out)
    if is_controlled:
        virtual_card.serve_control(cards[0], str(out / "card-control"))
        (out / "card-control").chmod(0o666)

    directory = os.environ.pop("IN_SYSTEM_DIRECTORY", "/")
    inside = ["unshare", f"--root={root}", f"--wd={directory}", *command]
    status = subprocess.run(inside, check=False).returncode
    if is_controlled:
        (out / "card-control").unlink()
        (out / "card-commands.txt").write_text("".join(card.control("commands") + "\n" for card in cards))
    pcscd.kill()
    pcscd.wait()
    return status if status >= 0 else 128 - status


def main():
    try:
        sys.exit(session(pathlib.Path(sys.argv[1]), sys.argv[2:]))
    except Failure as failure:
        print(f"card session: {failure}", file=sys.stderr)
        sys.exit(125)


if __name__ == "__main__":
    main()
