"""The cases of card_tests.py about what is on a token, as "list", "info", "files" and "export" show it."""

import re
import shutil

from cases import contains, equal
from tool_run import openssl

READER = "Brightfold Orvane OrvaneDSC"
SERIAL = "0012AB"
PIN, OTHER_PIN = "24681357", "97531864"
OTHER_READER = "Brightfold Smart Token"
OTHER_SERIAL = "77CC01"
UNKNOWN_SERIAL = "99AA99"
UNKNOWN_READER = f"Brightfold Orvane {UNKNOWN_SERIAL}"
COLUMNS = 80
OLD_FIRMWARE = "older than 2.0.0, or not read yet, which takes a PIN change in this session"
DATE = r"\d{4}-\d{2}-\d{2}"
CARD_COMMANDS = (["list"], ["info"], ["files"], ["props"], ["read", "cardid"], ["export"], ["pin", "forget"],
                 ["sign", "--no-pin", "--digest", "00" * 32])


def shown(run, *arguments, reader=READER, serial=SERIAL, lines=()):
    """What a command prints for people."""
    process = run.start(reader, serial, list(lines), *arguments)
    output, errors = process.communicate()
    return process.returncode, output, errors


def certificate(run, number):
    """The certificate of a key of the token, DER."""
    return openssl("x509", "-in", run.tokens / SERIAL / f"key{number}.crt", "-outform", "DER")


def thumbprint(run, number):
    text = openssl("x509", "-in", run.tokens / SERIAL / f"key{number}.crt", "-noout", "-fingerprint", "-sha1").decode()
    return text.strip().split("=")[1].replace(":", "").lower()


def list_fits(run):
    """In 80 columns stand subject, use, validity, issuer and thumbprint; no date is broken; long names are for --verbose."""
    status, output, errors = shown(run, "list")
    equal(status, 0, f"exit status, {errors}")
    contains(output, f'The token in use has the serial "{SERIAL}"', "output")
    for line in output.splitlines():
        if len(line) >= COLUMNS:
            raise AssertionError(f"a line of {len(line)} columns: {line}")
    equal(len(re.findall(DATE, output)), 6, f"whole dates in\n{output}")
    for number in (1, 2, 3):
        contains(output, thumbprint(run, number)[:8], "output")
    if re.search(r"[0-9A-F]{32}", output):
        raise AssertionError(f"the name of a container in\n{output}")
    status, output, errors = shown(run, "list", "--verbose")
    equal(status, 0, f"exit status, {errors}")
    contains(output, "Key 2 of 3 (encryption)", "output")
    contains(output, thumbprint(run, 2), "output")
    equal(len(re.findall(r"named \S{32}", output)), 3, f"names of containers in\n{output}")


def unknown_token(run):
    """A serial that the token library does not know: nothing is said about keys, and nothing is to be renewed."""
    for command in ("list", "info", "export"):
        status, documents = run.tool(UNKNOWN_READER, UNKNOWN_SERIAL, [], command)
        equal(status, 9, f"exit status, {documents}")
        error = documents[0]["error"]
        contains(error["message"], "whether it holds keys is unknown", f"message of {command}")
        contains(error["advice"], "plug it in again", f"advice of {command}")
        contains(error["message"], f'"{UNKNOWN_SERIAL}"', f"message of {command}")
        contains(error["message"], "error 224", f"message of {command}")
        if command == "export":
            continue
        token = documents[0]["result"]["token"]
        equal((token["serial"], token["serialFrom"], token["access"]), (UNKNOWN_SERIAL, "reader name", "refused"), command)
        status, output, errors = shown(run, command, reader=UNKNOWN_READER, serial=UNKNOWN_SERIAL)
        if "no key" in (output + errors).lower():
            raise AssertionError(f"'no keys' in\n{output}{errors}")
    (run.out / "block").write_bytes(bytes(256))
    for command in (["sign", "--no-pin", "--digest", "00" * 32], ["sign", "--no-pin", "--all", "--digest", "00" * 32],
                    ["decrypt", "--no-pin", "-k", "1", "Z:/out/block", "-o", "Z:/out/text"]):
        status, documents = run.tool(UNKNOWN_READER, UNKNOWN_SERIAL, [], *command)
        equal(status, 9, f"exit status of {command}, {documents}")
        contains(documents[0]["error"]["message"], "whether it holds keys is unknown", f"message of {command}")


def foreign_card(run):
    """A bank card is no matter of the minidriver: nothing is to be installed for it."""
    for command in CARD_COMMANDS:
        status, documents = run.tool(READER, SERIAL, ["atr 3B00"], *command)
        equal((status, documents[0]["exitCode"]), (3, 3), f"exit status of {command}, {documents}")
        error = documents[0]["error"]
        contains(error["message"], "is no Orvane token but a card of another kind (ATR 3B 00)", f"message of {command}")
        if "nstall" in error["advice"]:
            raise AssertionError(f"advice of {command}: {error['advice']}")


def info_all(run):
    """One pass over two readers with a token each, and one of another kind."""
    run.first_card = [f"serial {OTHER_SERIAL}"]
    status, documents = run.tool(READER, SERIAL, [], "info", "--all")
    equal(status, 0, f"exit status, {documents}")
    tokens = documents[0]["result"]["tokens"]
    equal([(each["token"]["serial"], each["token"]["serialFrom"], len(each["keys"])) for each in tokens],
          [(OTHER_SERIAL, "token", 1), (SERIAL, "token", 3)], "tokens")
    equal([each["reader"] for each in tokens], [f"{READER} 00 00", f"{READER} 00 01"], "readers")
    status, output, errors = shown(run, "info", "--all")
    equal(status, 0, f"exit status, {errors}")
    contains(output, f'"{OTHER_SERIAL}", which it says itself', "output")
    run.first_card, run.more_readers = [], [(OTHER_READER, OTHER_SERIAL)]
    status, documents = run.tool(READER, SERIAL, [], "info", "--all")
    tokens = documents[0]["result"]["tokens"]
    equal([(each["reader"], each["token"]["serial"]) for each in tokens],
          [(f"{READER} 00 00", SERIAL), (f"{OTHER_READER} 00 00", OTHER_SERIAL)], f"readers of two names, {documents}")
    run.first_card, run.more_readers = ["atr 3B00"], []
    status, documents = run.tool(READER, SERIAL, [], "info", "--all")
    equal((status, len(documents[0]["result"]["tokens"])), (0, 1), f"exit status and tokens, {documents}")
    status, documents = run.tool(READER, SERIAL, ["atr 3B00"], "info", "--all")
    equal((status, documents[0]["result"]["tokens"]), (3, []), f"without any token, {documents}")


def firmware(run):
    """The minidriver reads the firmware's version after a PIN change; of an old one it tells no more than before."""
    for serial, after in (("88DEC1", "2.0.0 or newer"), ("88DEC2", OLD_FIRMWARE)):
        commands = ["info", "pin change", "info", "pin change"]
        process = run.start(READER, serial, [], "session", *(part for each in commands for part in ("-c", each)))
        output, errors = process.communicate("\n".join([PIN, OTHER_PIN, OTHER_PIN, PIN, ""]))
        equal(process.returncode, 0, f"exit status, {output}{errors}")
        equal(re.findall(r"^Firmware: +(.+)$", output, re.MULTILINE), [OLD_FIRMWARE, after], f"firmware of {serial}")


def file_list(run):
    """Each certificate's file says to which key it belongs."""
    status, output, errors = shown(run, "files")
    equal(status, 0, f"exit status, {errors}")
    contains(output, "list of the keys", "output")
    contains(" ".join(output.split()), "certificate of key 2 of 3 (encryption)", "output")


def key_names(run):
    """A key has the same name wherever it is spoken of, with its number and what it is for."""
    (run.out / "text").write_text("for key 2")
    openssl("pkeyutl", "-encrypt", "-certin", "-inkey", run.tokens / SERIAL / "key2.crt", "-in", run.out / "text", "-out",
            run.out / "block")
    commands = ["pin verify", f"sign --all --digest {'00' * 32}", "decrypt Z:/out/block -o Z:/out/plain"]
    process = run.start(READER, SERIAL, [], "session", *(part for each in commands for part in ("-c", each)))
    output, errors = process.communicate(f"{PIN}\n")
    equal(process.returncode, 0, f"exit status, {output}{errors}")
    for number, purpose in ((1, "signing"), (3, "signing and encryption")):
        contains(output, f"Key {number} of 3 ({purpose}), Orvane test user ({SERIAL} key {number}): signature of 256 bytes",
                 "signatures")
    contains(output, "Key 2 of 3 (encryption): 9 bytes -> Z:/out/plain", "decryption")


def export(run):
    """The exported bytes are the certificate's; what identifies it is shown."""
    status, output, errors = shown(run, "export", "--key", "2", "-o", "Z:/out/two.der")
    equal(status, 0, f"exit status, {errors}")
    equal((run.out / "two.der").read_bytes(), certificate(run, 2), "DER")
    for part in ("The certificate of key 2 of 3 (encryption):", f"Thumbprint (SHA-1):    {thumbprint(run, 2)}", "E-mail:",
                 "Purpose:", "Key usage:", "Written to Z:/out/two.der"):
        contains(output, part, "output")
    status, documents = run.tool(READER, SERIAL, [], "export", "--thumbprint", thumbprint(run, 3)[:8].upper(), "--format",
                                 "PEM", "-o", "Z:/out/three.pem")
    equal((status, documents[0]["result"]["key"]), (0, 3), f"exit status and key, {documents}")
    equal(openssl("x509", "-in", run.out / "three.pem", "-outform", "DER"), certificate(run, 3), "PEM")
    process = run.start(READER, SERIAL, [], "export", "--key", "1", "--format", "pem", "-o", "-")
    output, errors = process.communicate()
    equal(process.returncode, 0, f"exit status, {errors}")
    (run.folder / "one.pem").write_text(output)
    equal(openssl("x509", "-in", run.folder / "one.pem", "-outform", "DER"), certificate(run, 1), "standard output")
    mail = run.folder / "mail"
    shutil.copytree(run.tokens / SERIAL, mail / SERIAL)
    openssl("req", "-x509", "-key", mail / SERIAL / "key1.key", "-keyform", "DER", "-subj", "/CN=Nora", "-days", "90", "-addext",
            "subjectAltName=email:nora@example.org", "-addext", "extendedKeyUsage=emailProtection,1.3.6.1.4.1.311.20.2.2",
            "-outform", "DER", "-out", mail / SERIAL / "key1.crt")
    run.tokens, usual = mail, run.tokens
    status, output, errors = shown(run, "export", "--key", "1")
    equal(status, 0, f"exit status, {errors}")
    for part in ("E-mail:                nora@example.org\n", "Purpose:               Secure Email, Smart Card Log-on\n"):
        contains(output, part, "a certificate for mail and logon")
    run.tokens = usual
    for arguments, expected in (([], 2), (["--key", "4"], 5), (["--thumbprint", "00000000"], 5), (["--thumbprint", "0"], 2),
                                (["--key", "1", "--thumbprint", "00000000"], 2)):
        status, documents = run.tool(READER, SERIAL, [], "export", *arguments)
        equal((status, documents[0]["exitCode"]), (expected, expected), f"{arguments}, {documents}")


CASES = {
    "ListFits": list_fits,
    "ListUnknownToken": unknown_token,
    "ForeignCard": foreign_card,
    "InfoAll": info_all,
    "InfoFirmware": firmware,
    "Files": file_list,
    "KeyNames": key_names,
    "Export": export,
}
