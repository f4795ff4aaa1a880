#!/usr/bin/env python3
"""The runs through the real PC/SC stack: orvane-card and the DLL in the emulated system, with a virtual card.

    lab/card_tests.py ARCH REPORT.xml [CASE...]     ARCH: arm64 or x64; the report is of the JUnit kind; CASE: only these

Each case starts stacks of its own, most of them in a system that stays up. It looks at what the tool reports, at the commands
that reached the card and at the minidriver's log. Four tokens are connected: 0012AB, the first of the list, 77CC01, and two for
decryption and PINs: 88DEC1 with current firmware and 88DEC2 with an old one, the FIPS switch and two tries.
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # the tree stays as it is
import doctor_cases  # noqa: E402
import list_cases  # noqa: E402
import log_cases  # noqa: E402
import pin_cases  # noqa: E402
import reader_cases  # noqa: E402
import report_cases  # noqa: E402
from cases import carry_out, contains, equal, remove_folder  # noqa: E402
from standing_system import Systems  # noqa: E402
from tool_run import LAB, REPOSITORY, Run, openssl  # noqa: E402

SERIAL_IN_NAME = "Brightfold Orvane 0012AB"
LONG_COMMAND = "Brightfold Orvane OrvaneDSC"
SHORT_COMMAND = "Brightfold Smart Token"
LONG, SHORT = "FFFF00D5000000", "FFFF00A200"
PIN, OTHER_PIN, WRONG_PIN = "24681357", "97531864", "11111111"
SO_PIN, OTHER_SO_PIN = "87654321", "12348765"

# name: reader name, the card's serial, control lines, serial bound to, commands the card saw, a line of the log
SERIAL_CASES = {
    "SerialInReaderName": (SERIAL_IN_NAME, "FFFFFF", [], "0012AB", "none", "Using serial=0012AB for hScard="),
    "LongCommand": (LONG_COMMAND, "77CC01", [], "77CC01", LONG, "SLE serial via APDU: 77CC01"),
    "ShortCommand": (SHORT_COMMAND, "77CC01", [], "77CC01", SHORT, "OrvaneKey serial via APDU: 77CC01"),
    "LongCommandRefused": (
        LONG_COMMAND, "77CC01", ["status 6A82"], "0012AB", LONG, "SLE serial APDU failed, falling back to index: 0"),
    "LongCommandOddStatus": (
        LONG_COMMAND, "77CC01", ["raw 41429001"], "0012AB", LONG, "SLE serial APDU failed, falling back to index: 0"),
    "LongCommandNothingButStatus": (
        LONG_COMMAND, "77CC01", ["raw 9000"], "0012AB", LONG, "SLE serial APDU failed, falling back to index: 0"),
    "ShortCommandRefused": (
        SHORT_COMMAND, "77CC01", ["status 6A82"], "0012AB", SHORT, "Serial APDU failed, falling back to index: 0"),
    "ShortCommandStatusNotLookedAt": (
        SHORT_COMMAND, "FFFFFF", ["raw 3737434330316A82"], "77CC01", SHORT, "OrvaneKey serial via APDU: 77CC01"),
}


def serial_case(run, reader, serial, lines, bound, commands, log_line):
    status, documents = run.tool(reader, serial, lines, "read", "cardid")
    equal(status, 0, f"exit status, {documents}")
    equal(documents[0]["result"]["hex"].replace(" ", "").upper(), ((bound * 3)[:16]).encode().hex().upper(), "cardid")
    equal(set(run.card_commands().split()), {commands}, "commands that reached the card")
    contains(run.log(), log_line, "log")


def no_pin_in_log(run):
    log = run.log()
    if any(pin in log for pin in (PIN, OTHER_PIN, WRONG_PIN, SO_PIN, OTHER_SO_PIN)):
        raise AssertionError("a PIN stands in the log")


def empty_reader(run):
    status, documents = run.tool(LONG_COMMAND, "-", [], "info")
    equal((status, documents[0]["ok"]), (3, False), f"exit status and success, {documents}")
    equal(run.log(), "", "log")


def badge_comes_first(run):
    """The first reader holds a card of another kind; the token is taken, unless --reader says otherwise."""
    run.first_card = ["atr 3B00"]
    status, documents = run.tool(LONG_COMMAND, "0012AB", [], "info")
    equal((status, documents[0]["ok"]), (0, True), f"exit status and success, {documents}")
    equal([reader["atr"].replace(" ", "") for reader in documents[0]["result"]["readers"]][:1], ["3B00"], "first card's ATR")
    equal(documents[0]["result"]["reader"], f"{LONG_COMMAND} 00 01", "the reader taken")
    status, documents = run.tool(LONG_COMMAND, "0012AB", [], "--reader", f"{LONG_COMMAND} 00 00", "info")
    equal((status, documents[0]["ok"]), (3, False), f"exit status and success, {documents}")


def pulled_during_serial_command(run):
    """The card leaves while the minidriver waits for its answer: the first connected token serves."""
    status, documents = run.tool(LONG_COMMAND, "77CC01", ["pull"], "read", "cardid")
    equal(run.card_commands(), LONG, "commands that reached the card")
    contains(run.log(), "SLE serial APDU failed, falling back to index: 0", "log")
    contains(run.log(), "resolved serial number :: 0012AB", "log")
    if status not in (0, 3):
        raise AssertionError(f"exit status {status}: {documents}")


def pulled_during_session(run):
    """The card leaves between two commands: the tool says so, nothing hangs, and the minidriver is torn down."""
    process = run.start(SHORT_COMMAND, "77CC01", [], "--json", "session")
    process.stdin.write("read cardid\n")
    process.stdin.flush()
    first = json.loads(process.stdout.readline())
    equal(first["ok"], True, f"before, {first}")
    run.control("remove")
    deadline = time.monotonic() + 60
    answer = first
    while answer["ok"] and time.monotonic() < deadline:
        process.stdin.write("-read cardid\n")
        process.stdin.flush()
        answer = json.loads(process.stdout.readline())
    process.stdin.close()
    process.stdout.read()
    process.wait()
    equal((answer["ok"], answer["error"]["status"]["name"]), (False, "SCARD_W_REMOVED_CARD"), f"after, {answer}")
    contains(run.log(), "Delete Context Success", "log")


def signs(run):
    """A wrong PIN, the right one, and a signature with every signing key that OpenSSL verifies."""
    (run.out / "text").write_bytes(bytes(range(256)) * 40)
    (run.out / "signed").mkdir()
    status, documents = run.tool(
        LONG_COMMAND, "0012AB", [], "session", "-c", "-pin verify", "-c", "pin verify", "-c",
        "sign --all --no-pin Z:/out/text --output-dir Z:/out/signed", stdin=f"{WRONG_PIN}\n{PIN}\n")
    equal(status, 0, f"exit status, {documents}")
    equal([document["ok"] for document in documents], [False, True, True], "success of the commands")
    equal(documents[0]["error"]["status"]["name"], "SCARD_W_WRONG_CHV", "wrong PIN")
    equal(documents[0]["error"]["attemptsRemaining"], 7, "attempts left")
    signatures = sorted((run.out / "signed").glob("signature-*.bin"))
    equal([path.name for path in signatures], ["signature-1.bin", "signature-3.bin"], "signatures")
    for signature in signatures:
        certificate = signature.with_name(signature.name.replace("signature", "certificate")).with_suffix(".der")
        key = subprocess.run(["openssl", "x509", "-inform", "DER", "-in", certificate, "-noout", "-pubkey"],
                             check=True, capture_output=True).stdout
        key_file = run.folder / "key.pem"
        key_file.write_bytes(key)
        verified = subprocess.run(
            ["openssl", "dgst", "-sha256", "-verify", key_file, "-signature", signature, run.out / "text"],
            check=False, capture_output=True, text=True)
        equal(verified.stdout.strip(), "Verified OK", signature.name)
    no_pin_in_log(run)


def encrypt(run, container, padding):
    """Encrypts a text for a container whose certificate was read off the card; returns the text."""
    text = f"for container {container} with {padding}\n".encode()
    (run.out / "text").write_bytes(text)
    key = run.folder / "key.pem"
    key.write_bytes(
        openssl("x509", "-inform", "DER", "-in", run.out / f"kxc{container}.der", "-noout", "-pubkey"))
    options = ["-pkeyopt", "rsa_padding_mode:oaep", "-pkeyopt", "rsa_oaep_md:sha256"] if padding == "oaep" else []
    openssl("pkeyutl", "-encrypt", "-pubin", "-inkey", key, "-in", run.out / "text",
            "-out", run.out / f"block-{container}-{padding}", *options)
    return text


def read_certificates(run, serial, containers):
    commands = [part for each in containers for part in ("-c", f"read kxc{each} -o Z:/out/kxc{each}.der")]
    status, documents = run.tool(LONG_COMMAND, serial, [], "session", *commands)
    equal(status, 0, f"exit status, {documents}")


def decrypt_command(container, padding):
    return (f"decrypt --no-pin -k {container + 1} --padding {padding} Z:/out/block-{container}-{padding}"
            f" -o Z:/out/plain-{container}-{padding}")


def statuses(documents):
    """For each command "ok", or the name of the status it failed with."""
    return ["ok" if document["ok"] else document["error"]["status"]["name"] for document in documents]


def decrypts(run):
    """What OpenSSL encrypted for keys of 1024 to 4096 bits comes back, with both paddings. The PIN change makes the
    minidriver learn the firmware's version, on which OAEP depends; the old PIN is then wrong and the new one right."""
    read_certificates(run, "88DEC1", range(4))
    blocks = [(container, padding) for container in range(4) for padding in ("pkcs1", "oaep")]
    texts = {block: encrypt(run, *block) for block in blocks}
    commands = ["pin verify", "-" + decrypt_command(1, "oaep"), "pin change", *(decrypt_command(*each) for each in blocks),
                "pin forget", "-" + decrypt_command(1, "pkcs1"), "-pin verify", "pin verify", "pin change"]
    status, documents = run.tool(
        LONG_COMMAND, "88DEC1", [], "session", *(part for each in commands for part in ("-c", each)),
        stdin="\n".join([PIN, PIN, OTHER_PIN, PIN, OTHER_PIN, OTHER_PIN, PIN, ""]))
    equal(statuses(documents), ["ok", "SCARD_E_UNSUPPORTED_FEATURE", "ok", *["ok"] * 8, "ok", "SCARD_E_INVALID_PARAMETER",
                                "SCARD_W_WRONG_CHV", "ok", "ok"], f"answers, {documents}")
    equal(status, 0, "exit status")
    for container, padding in blocks:
        equal((run.out / f"plain-{container}-{padding}").read_bytes(), texts[container, padding],
              f"text of container {container} with {padding}")


def no_transaction_while_waiting(run):
    """Windows resets a card whose transaction is idle for five seconds, and people type more slowly than that: PINs are
    asked for outside; what needs the PIN then is in one transaction with its verification."""
    read_certificates(run, "88DEC1", [1])
    encrypt(run, 1, "pkcs1")
    commands = ["pin verify", "pin forget", "sign --all --pin-stdin Z:/out/text", "pin forget",
                decrypt_command(1, "pkcs1").replace("--no-pin", "--pin-stdin"), "pin change"]
    process = run.start(LONG_COMMAND, "88DEC1", [], "--json", "--trace", "session",
                        *(part for each in commands for part in ("-c", each)))
    output, errors = process.communicate("\n".join([PIN, PIN, PIN, PIN, OTHER_PIN, ""]))
    equal(process.returncode, 0, f"exit status, {output}, {errors}")
    steps, depth = [], 0
    for line in errors.splitlines():
        word = line.removeprefix("trace: ").split(" ")[0]
        if line.endswith(" asked for"):
            equal(depth, 0, f"transactions at '{line}' in\n{errors}")
            steps.append("PIN")
        elif word == "SCardBeginTransaction":
            depth += 1
        elif word == "SCardEndTransaction":
            depth -= 1
            steps.append("end")
        elif word in ("CardAuthenticateEx", "CardSignData", "CardRSADecrypt", "CardChangeAuthenticatorEx"):
            equal(depth, 1, f"transactions at '{line}' in\n{errors}")
            steps.append(word)
    shown = " ".join(steps)
    contains(shown, "PIN CardAuthenticateEx end", "pin verify")
    contains(shown, "PIN CardAuthenticateEx CardSignData end", "sign")
    contains(shown, "PIN CardAuthenticateEx CardRSADecrypt end", "decrypt")
    contains(shown, "PIN PIN CardChangeAuthenticatorEx end", "pin change")


def old_firmware(run):
    """Before firmware 2.0.0 there is no OAEP; a FIPS token refuses SHA-1, and no token signs with RSA-1024."""
    read_certificates(run, "88DEC2", [1])
    for padding in ("pkcs1", "oaep"):
        encrypt(run, 1, padding)
    (run.out / "text").write_bytes(b"text")
    commands = ["pin verify", "pin change", decrypt_command(1, "pkcs1"), "-" + decrypt_command(1, "oaep"),
                "sign --no-pin -k 2 Z:/out/text -o Z:/out/signature --check",
                "-sign --no-pin -k 2 --hash sha1 Z:/out/text -o Z:/out/signature",
                "-sign --no-pin -k 1 Z:/out/text -o Z:/out/signature"]
    status, documents = run.tool(
        LONG_COMMAND, "88DEC2", [], "session", *(part for each in commands for part in ("-c", each)),
        stdin="\n".join([PIN, PIN, OTHER_PIN, ""]))
    equal(statuses(documents), ["ok", "ok", "ok", "SCARD_E_UNSUPPORTED_FEATURE", "ok", "SCARD_E_UNSUPPORTED_FEATURE",
                                "SCARD_E_UNSUPPORTED_FEATURE"], f"answers, {documents}")
    equal(status, 0, "exit status")
    contains(run.log(), "SHA1/MD5 signing blocked on FIPS 140-3 token", "log")
    contains(run.log(), "RSA-1024 signing not allowed — key size below 112-bit security strength", "log")


def pins(run):
    """The security officer's PIN changes by itself; the user PIN blocks after two wrong ones, and stays so."""
    commands = ["pin change --admin", "-pin change --admin", "-pin change", "-pin verify", "-pin verify"]
    _, documents = run.tool(
        LONG_COMMAND, "88DEC2", [], "session", *(part for each in commands for part in ("-c", each)),
        stdin="\n".join([SO_PIN, OTHER_SO_PIN, SO_PIN, OTHER_SO_PIN, WRONG_PIN, OTHER_PIN, WRONG_PIN, PIN, ""]))
    equal(statuses(documents), ["ok", "SCARD_W_WRONG_CHV", "SCARD_W_WRONG_CHV", "SCARD_W_CHV_BLOCKED",
                                "SCARD_W_CHV_BLOCKED"], f"answers, {documents}")
    no_pin_in_log(run)


def pin_nobody_asked_for(run):
    """A command fails before it asks for its PIN; the PIN is then the next line of the session, and is not shown."""
    for arguments in (["session"], ["--json", "session"]):
        process = run.start(None, None, [], *arguments)
        output, errors = process.communicate(f"-pin verify\n{PIN}\n")
        equal(process.returncode, 2, "exit status")
        contains(errors, "a line of standard input is no command", "standard error")
        if PIN in output + errors:
            raise AssertionError(f"a PIN was printed:\n{output}\n{errors}")


def too_long_pin(run):
    """What is refused as too long is read to its end: the next PIN is the next line."""
    status, documents = run.tool(
        LONG_COMMAND, "0012AB", [], "session", "-c", "-pin verify", "-c", "pin verify", stdin=f"{'1' * 300}\n{PIN}\n")
    equal(status, 0, f"exit status, {documents}")
    equal(documents[0]["error"]["message"], "the PIN is too long", "long PIN")
    equal(documents[1]["ok"], True, "right PIN")


def make_tokens(folder):
    maker = REPOSITORY / "softtoken/make_token.sh"
    for serial, keys, *options in (
            ("0012AB", "2048:sig,2048:kx,2048:both"),
            ("77CC01", "2048:sig"),
            ("88DEC1", "1024:kx,2048:kx,3072:both,4096:kx"),
            ("88DEC2", "1024:sig,2048:both", "--firmware", "1.9.9", "--fips", "--tries", "2")):
        subprocess.run([maker, "--folder", folder, "--serial", serial, "--keys", keys, "--pin", PIN,
                        "--sopin", SO_PIN, *options], check=True, stdout=subprocess.DEVNULL)


def main():
    arch, report = sys.argv[1], pathlib.Path(sys.argv[2])
    cases = {name: (lambda run, values=values: serial_case(run, *values)) for name, values in SERIAL_CASES.items()}
    cases["EmptyReader"] = empty_reader
    cases["BadgeComesFirst"] = badge_comes_first
    cases["PulledDuringSerialCommand"] = pulled_during_serial_command
    cases["PulledDuringSession"] = pulled_during_session
    cases["Signs"] = signs
    cases["Decrypts"] = decrypts
    cases["NoTransactionWhileWaiting"] = no_transaction_while_waiting
    cases["OldFirmware"] = old_firmware
    cases["Pins"] = pins
    cases["PinNobodyAskedFor"] = pin_nobody_asked_for
    cases["PinTooLong"] = too_long_pin
    cases.update(doctor_cases.CASES)
    cases.update(list_cases.CASES)
    cases.update(log_cases.CASES)
    cases.update(pin_cases.CASES)
    cases.update(reader_cases.CASES)
    cases.update(report_cases.CASES)
    wanted = sys.argv[3:]
    if wanted:
        cases = {name: cases[name] for name in wanted}
    folder = pathlib.Path(tempfile.mkdtemp(prefix="orvane-card-tests."))
    systems = Systems(arch, LAB / "orvane.reg", folder / "systems")
    try:
        make_tokens(folder / "tokens")
        cases = {name: (lambda name=name, case=case: case(Run(arch, folder / name, folder / "tokens", systems)))
                 for name, case in cases.items()}
        failed = carry_out("CardTests", {**cases, "NothingLeftInTheRegistry": systems.end}, report,
                           ["NothingLeftInTheRegistry"])
    finally:
        remove_folder(folder)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
