#!/usr/bin/env python3
"""Signs what can be signed, with osslsigncode, and finds what is not signed.

    signing.py PACKAGE...     names what is not signed in ZIP files, program files, MSI packages and cabinets; the status is 0
                              only if everything is

Signing itself is a part of make_packages.py, because what is signed goes into packages that are signed in their turn.
"""

import io
import pathlib
import struct
import subprocess
import sys
import tempfile
import zipfile

MSI_BEGIN = bytes.fromhex("D0CF11E0A1B11AE1")
# The stream that holds an MSI package's signature, as the directory of the file names it.
MSI_SIGNATURE = "\x05DigitalSignature".encode("utf-16-le")


def add_options(parser):
    """Adds the options that say how to sign to an argparse.ArgumentParser."""
    group = parser.add_argument_group("signing")
    group.add_argument("--sign", action="store_true", help="sign programs, DLLs, MSI packages and the submission")
    for name, meta, text in (
        ("--certificate", "FILE", "the certificate for it, in PEM; those between it and the root may follow"),
        ("--key", "FILE|URI", 'its key in PEM, or "pkcs11:..." for a key in a token'),
        ("--pkcs12", "FILE", "instead of both, a PKCS #12 file"),
        ("--pkcs11-module", "FILE", "the token's PKCS #11 library"),
        ("--password-file", "FILE",
         "the first line is the key's password or the token's PIN; without this file who sits at the console is asked"),
    ):
        group.add_argument(name, metavar=meta, help=text)
    group.add_argument("--time-stamp", metavar="URL", action="append", default=[],
                       help="a time-stamp server (RFC 3161); several are tried in turn")


class Signer:
    """Signs files as the options say. Ends the program with a message when they make no sense."""

    def __init__(self, options):
        if bool(options.pkcs12) == bool(options.certificate and options.key):
            sys.exit("error: --sign needs either --certificate and --key, or --pkcs12")
        in_token = (options.key or "").startswith("pkcs11:")
        if in_token and not options.pkcs11_module:
            sys.exit("error: a key in a token needs --pkcs11-module")
        if in_token and "pin-value" in options.key:
            sys.exit("error: on the command line everybody can read a PIN; --password-file names a file that holds it")
        files = [options.pkcs12, options.certificate, options.pkcs11_module, options.password_file]
        for file in [*files, None if in_token else options.key]:
            if file and not pathlib.Path(file).is_file():
                sys.exit(f"error: there is no file {file}")
        self._arguments = ["-h", "sha256", "-n", "Orvane minidriver"]
        self._arguments += ["-pkcs12", options.pkcs12] if options.pkcs12 else [
            "-certs", options.certificate, "-key", options.key]
        if in_token:
            self._arguments += ["-pkcs11module", options.pkcs11_module]
        if options.password_file:
            self._arguments += ["-readpass", options.password_file]
        for server in options.time_stamp:
            self._arguments += ["-ts", server]

    def signed(self, name, data):
        """The file's bytes with a signature, instead of one that it may have. Ends the program when that fails."""
        with tempfile.TemporaryDirectory() as folder:
            before, after = pathlib.Path(folder, "before"), pathlib.Path(folder, "after")
            before.write_bytes(data)
            done = subprocess.run(["osslsigncode", "sign", *self._arguments, "-in", before, "-out", after],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
            result = after.read_bytes() if done.returncode == 0 and after.exists() else b""
        if not is_signed(result):
            sys.exit(f"error: {name} cannot be signed\n{done.stdout}")
        return result


def is_signable(data):
    """Whether this is a file of a kind that carries its signature within itself."""
    return data.startswith((b"MZ", MSI_BEGIN, b"MSCF"))


def is_signed(data):
    """Whether a program file, an MSI package or a cabinet carries a signature; whose, and whether it is right, is another
    matter."""
    if data.startswith(b"MZ"):
        header = struct.unpack_from("<I", data, 0x3C)[0]
        address, size = struct.unpack_from("<II", data, header + 24 + 112 + 8 * 4)
        return 0 < address and 0 < size and address + size <= len(data)
    if data.startswith(MSI_BEGIN):
        return MSI_SIGNATURE in data
    # A cabinet's reserved field holds place and size of the signature behind its end: flag 4 says that there is the field.
    if not data.startswith(b"MSCF") or not struct.unpack_from("<H", data, 30)[0] & 4:
        return False
    return struct.unpack_from("<H", data, 36)[0] == 20 and struct.unpack_from("<I", data, 48)[0] > 0


def unsigned(name, data):
    """The names of what could be signed in a file and is not; the file's own, or those in a ZIP."""
    if data.startswith(b"PK"):
        with zipfile.ZipFile(io.BytesIO(data)) as package:
            return [f"{name}: {each}" for entry in package.namelist() for each in unsigned(entry, package.read(entry))]
    return [name] if is_signable(data) and not is_signed(data) else []


def main():
    if len(sys.argv) < 2:
        sys.exit("usage: signing.py PACKAGE...")
    found = [each for name in sys.argv[1:] for each in unsigned(name, pathlib.Path(name).read_bytes())]
    for each in found:
        print(f"not signed: {each}")
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
