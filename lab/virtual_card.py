#!/usr/bin/env python3
"""A virtual token card for the virtual reader of vsmartcard (vpcd), and a line of control to it.

The reader driver listens on a port; to be connected is to be inserted. Every message is a 2-byte big-endian length and
that many bytes. A single byte is control (0 power off, 1 power on, 2 reset, 4 send the ATR), of which only the last wants
an answer; everything else is a command APDU.

The card answers its two serial commands (FF FF 00 D5 00 00 00 and FF FF 00 A2 00) with the serial and a status word, and
everything else with 6D 00. How it behaves can be changed while it runs, by a text line to the control port; each line is
answered by "ok", a result, or "error: ..." once it has taken effect:

    serial TEXT      the serial from now on
    status XXXX      the serial commands answer only this status word (9000: with the serial again)
    raw HEX          the serial commands answer exactly these bytes, at least one (the driver waits on without)
    pull             the card leaves the reader when the next serial command arrives, without an answer
    normal           back to the serial and 90 00
    remove, insert   the card leaves the reader; comes back
    atr HEX          another kind of card takes its place, with this ATR
    commands         the command APDUs so far, as hex, oldest first, and forgets them
"""

import argparse
import socket
import socketserver
import struct
import threading
import time

ATR = bytes.fromhex("3B 8E 80 01 50 4B 03 58 58 58 5F 44 53 43 5F 4B 45 59 4C")
SERIAL_COMMANDS = (bytes.fromhex("FF FF 00 D5 00 00 00"), bytes.fromhex("FF FF 00 A2 00"))


class VirtualCard:
    """One card and its connection to the reader; all methods may be called by any thread."""

    def __init__(self, port, serial):
        self._address = ("127.0.0.1", port)
        self._lock = threading.Condition()
        self._serial = serial.encode("latin-1")
        self._atr = ATR
        self._answer = None  # None: serial and 90 00; bytes: exactly these
        self._pull = False
        self._commands = []
        self._connection = None
        self._powered = False

    def insert(self, seconds=60):
        """Connects to the reader, for which it waits, and serves it on a thread of its own."""
        deadline = time.monotonic() + seconds
        while True:
            try:
                connection = socket.create_connection(self._address)
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)
        with self._lock:
            self._connection = connection
            self._powered = False
        threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def remove(self):
        """Leaves the reader."""
        with self._lock:
            if self._connection is not None:
                self._connection.shutdown(socket.SHUT_RDWR)
                self._connection.close()
                self._connection = None

    def _is_inserted(self):
        with self._lock:
            return self._connection is not None

    def wait_powered(self, seconds):
        """Waits until the reader has noticed the card; true if it has."""
        with self._lock:
            return self._lock.wait_for(lambda: self._powered, seconds)

    def control(self, line):
        """Carries out one control line and returns its answer."""
        word, _, rest = line.strip().partition(" ")
        rest = rest.strip()
        with self._lock:
            if word == "serial":
                self._serial = rest.encode("latin-1")
            elif word == "status" and len(bytes.fromhex(rest)) == 2:
                self._answer = None if rest == "9000" else bytes.fromhex(rest)
            elif word == "raw":
                self._answer = bytes.fromhex(rest)
            elif word == "pull":
                self._pull = True
            elif word == "atr" and rest:
                self._atr = bytes.fromhex(rest)
            elif word == "normal":
                self._answer, self._pull = None, False
            elif word == "commands":
                taken, self._commands = self._commands, []
                return " ".join(command.hex().upper() for command in taken) or "none"
            elif word not in ("remove", "insert"):
                return f"error: unknown line '{line.strip()}'"
        if word == "remove":
            self.remove()
        elif word == "insert":
            self.insert()
        elif word == "atr" and self._is_inserted():
            self.remove()
            self.insert()
            if not self.wait_powered(60):
                return "error: the reader did not notice the card"
        return "ok"

    def _serve(self, connection):
        try:
            while True:
                (length,) = struct.unpack(">H", self._exactly(connection, 2))
                answer = self._handle(self._exactly(connection, length))
                if answer is not None:
                    connection.sendall(struct.pack(">H", len(answer)) + answer)
        except (OSError, EOFError):
            pass
        finally:
            with self._lock:
                if self._connection is connection:
                    self._connection = None
            connection.close()

    def _handle(self, message):
        if len(message) == 1:
            with self._lock:
                self._powered = self._powered or message[0] in (1, 4)
                self._lock.notify_all()
            return self._atr if message[0] == 4 else None
        with self._lock:
            self._commands.append(message)
            if message not in SERIAL_COMMANDS:
                return bytes.fromhex("6D00")
            if self._pull:
                self._pull = False
                raise EOFError
            return self._serial + bytes.fromhex("9000") if self._answer is None else self._answer

    @staticmethod
    def _exactly(connection, count):
        data = b""
        while len(data) < count:
            piece = connection.recv(count - len(data))
            if not piece:
                raise EOFError
            data += piece
        return data


def serve_control(card, address):
    """Answers control lines on threads of its own; address: (host, port), or the path of a local socket."""

    class Handler(socketserver.StreamRequestHandler):
        def handle(self):
            for line in self.rfile:
                try:
                    answer = card.control(line.decode("latin-1"))
                except (ValueError, OSError) as problem:
                    answer = f"error: {problem}"
                self.wfile.write(answer.encode("latin-1") + b"\n")

    local = isinstance(address, str)

    class Server(socketserver.ThreadingUnixStreamServer if local else socketserver.ThreadingTCPServer):
        allow_reuse_address = True
        daemon_threads = True

    threading.Thread(target=Server(address, Handler).serve_forever, daemon=True).start()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--serial", default="0012AB", help="the card's serial")
    parser.add_argument("--port", type=int, default=35963, help="the port of the virtual reader")
    parser.add_argument("--control", type=int, default=35970, help="the port for control lines")
    options = parser.parse_args()
    card = VirtualCard(options.port, options.serial)
    serve_control(card, ("127.0.0.1", options.control))
    card.insert()
    threading.Event().wait()


if __name__ == "__main__":
    main()
