"""The cases of card_tests.py about PINs on their way to the token, and about what else a person gives to orvane-card: which
of it costs an attempt, and what the tool says."""

import json
import subprocess

from cases import contains, equal

READER = "Brightfold Orvane OrvaneDSC"
PIN, OTHER_PIN, WRONG_PIN = "24681357", "97531864", "11111111"


def bytes_to_tool(run, serial, data, *arguments):
    """Runs orvane-card with these bytes as its standard input; returns status, output and standard error."""
    process = run.start(READER, serial, [], *arguments)
    # What subprocess makes of a text would not be these bytes.
    output, errors = process.communicate(data.decode("latin-1")) if data.isascii() else communicate_bytes(process, data)
    return process.returncode, output, errors


def communicate_bytes(process, data):
    process.stdin.buffer.write(data)
    return process.communicate()


def asked(run):
    """How often the token was asked for a PIN, by the minidriver's log."""
    return run.log().count("invalid password for [") + run.log().count("CardAuthenticateEx: returning SCARD_S_SUCCESS")


def attempts(run):
    """The attempts show after a wrong PIN alone; the last one comes with a warning."""
    commands = ["-pin verify", "pin verify", "-pin verify", "-pin verify", "-pin verify"]
    process = run.start(READER, "88DEC2", [], "session", *(part for each in commands for part in ("-c", each)))
    output, errors = process.communicate("\n".join([WRONG_PIN, PIN, WRONG_PIN, WRONG_PIN, PIN, ""]))
    equal(process.returncode, 0, f"status, {errors}")
    equal(output.count("The user PIN is right.\n"), 1, f"right PINs in {output}")
    equal("ttempts left" in output, False, f"attempts in {output}")
    equal(errors.count("One attempt is left: the next wrong PIN blocks the PIN."), 2, f"warnings in {errors}")
    equal(errors.count("the PIN is blocked [CardAuthenticateEx: SCARD_W_CHV_BLOCKED (0x8010006C)]"), 2, f"in {errors}")


def impossible_pins(run):
    """What cannot be meant is refused before the token is asked."""
    mark = b"\xef\xbb\xbf"
    for data, problem in (
            (b"24681357 \r\n", "the PIN begins or ends with a blank"), (b" 24681357\n", "the PIN begins or ends with a blank"),
            (b"123\n", "the PIN is too short"), (b"\n", "the PIN is empty"), (b"1" * 64 + b"\n", "the PIN is too long"),
            (b"pass\xe4\n", "the PIN holds a character beyond A to Z"), ("pass\u00e4\n".encode(), "beyond A to Z"),
            (PIN.encode("utf-16") + b"\n", "the PIN is no plain text"), (PIN.encode() + mark, "beyond A to Z")):
        status, _, errors = bytes_to_tool(run, "0012AB", data, "pin", "verify")
        equal(status, 2, f"status for {data}, {errors}")
        contains(errors, problem, f"{data}")
        contains(errors, "no attempt was used up", f"{data}")
    equal(asked(run), 0, "PINs that the token saw")
    # A mark at the beginning and both kinds of line ends are no part of a PIN.
    status, _, errors = bytes_to_tool(run, "0012AB", mark + PIN.encode() + b"\r\n", "pin", "verify")
    equal((status, asked(run)), (0, 1), f"status and PINs that the token saw, {errors}")


def piped_change(run):
    """Three lines: the new PIN is compared with its repetition. Two will do."""
    for lines, status, problem in (
            ([PIN, OTHER_PIN, "97531865"], 2, "the two new PINs differ; nothing was changed"),
            ([PIN, OTHER_PIN, OTHER_PIN, PIN], 2, "more lines came than PINs; nothing was changed"),
            (["246", OTHER_PIN], 2, "the PIN is too short"),
            ([WRONG_PIN, OTHER_PIN], 6, "the current PIN is wrong [CardChangeAuthenticatorEx: SCARD_W_WRONG_CHV"),
            ([PIN, OTHER_PIN, OTHER_PIN, ""], 0, ""), ([PIN, OTHER_PIN], 0, "")):
        actual, _, errors = bytes_to_tool(run, "88DEC1", ("\r\n".join(lines) + "\r\n").encode(), "pin", "change")
        equal(actual, status, f"status for {lines}, {errors}")
        contains(errors, problem, f"{lines}")


def administrator(run):
    """The administrator's verification is that of the user PIN: said before one is read, and said again after it."""
    status, output, errors = bytes_to_tool(run, "0012AB", f"{PIN}\n".encode(), "pin", "verify", "--admin")
    equal(status, 0, f"status, {errors}")
    contains(errors, "counts as a wrong user PIN and uses up one of the user's attempts", "before")
    contains(output, "The user PIN is right; by it", "after")
    status, _, errors = bytes_to_tool(run, "0012AB", b"\n", "pin", "verify", "--admin")
    equal((status, asked(run)), (2, 1), f"status and PINs that the token saw, {errors}")


def verified_again(run):
    """A PIN is looked at although another one was right before it."""
    _, documents = run.tool(READER, "0012AB", [], "session", "-c", "pin verify", "-c", "-pin verify",
                            stdin=f"{PIN}\n{WRONG_PIN}\n")
    equal([document["ok"] for document in documents], [True, False], f"answers, {documents}")
    equal(documents[0]["result"]["attemptsRemaining"], None, "attempts after a right PIN")
    equal(documents[1]["error"]["attemptsRemaining"], 7, "attempts after a wrong one")


def messages_of_the_minidriver(run):
    """A log that cannot be written does not bury the tool's output, whether it goes to one place or two."""
    (run.temp / "Brightfold").write_text("in the way")
    process = run.start(READER, "0012AB", [], "list")
    output, errors = process.communicate()
    equal(process.returncode, 0, f"status, {errors}")
    said = [line for line in errors.splitlines() if "Unable to write log" in line]
    equal(len(said), 1, f"lines in {errors}")
    contains(said[0], " times): its log cannot be written", "the line")
    equal(int(said[0].split("(")[1].split(" ")[0]) > 20, True, f"count in {said[0]}")
    equal("Unable" in output, False, f"lines in {output}")
    contains(output, "Orvane test CA", "output")


def decryption(run):
    """Without -k the first key that can decrypt is taken when the default one cannot; what cannot is refused as that."""
    certificate = run.out / "kxc1.der"
    status, documents = run.tool(READER, "0012AB", [], "read", "kxc1", "-o", "Z:/out/kxc1.der")
    equal(status, 0, f"exit status, {documents}")
    key_file = run.folder / "key.pem"
    key_file.write_bytes(subprocess.run(["openssl", "x509", "-inform", "DER", "-in", certificate, "-noout", "-pubkey"],
                                        check=True, capture_output=True).stdout)
    (run.out / "text").write_text("for container 1")
    subprocess.run(["openssl", "pkeyutl", "-encrypt", "-pubin", "-inkey", key_file, "-in", run.out / "text", "-out",
                    run.out / "block"], check=True)
    status, documents = run.tool(READER, "0012AB", [], "decrypt", "--pin-stdin", "Z:/out/block", "-o", "Z:/out/plain",
                                 stdin=f"{PIN}\n")
    equal((status, documents[0]["result"]["container"]), (0, 1), f"status and container, {documents}")
    equal((run.out / "plain").read_text(), "for container 1", "text")
    process = run.start(None, None, [], "decrypt", "/?")
    contains(process.communicate()[0].replace("\n", " "), "[the default one, or the first that", "help")
    for serial, padding, key, status, problem in (
            ("88DEC2", "OAEP", "2", 9, "OAEP is not offered: the token's firmware is older than 2.0.0, or the minidriver has"),
            ("0012AB", "oaep", "1", 5, "key 1 of 3 (signing) is not one that can decrypt"),
            ("0012AB", "pkcs1", "1", 5, "key 1 of 3 (signing) is not one that can decrypt")):
        actual, documents = run.tool(READER, serial, [], "decrypt", "-k", key, "--padding", padding, "--pin-stdin",
                                     "Z:/out/block", "-o", "Z:/out/plain", stdin=f"{PIN}\n")
        equal(actual, status, f"status, {documents}")
        contains(documents[0]["error"]["message"], problem, f"{padding} with key {key}")


def forgiving_input(run):
    """Help in many ways, letter case, a part of a reader's name; and a hint for what is not known."""
    for arguments, status, text in (
            (["/?"], 0, "Looks at a smart-card token"), (["help"], 0, "Looks at a smart-card token"),
            (["-?"], 0, "Looks at a smart-card token"), (["-v"], 0, "orvane-card "), (["help", "log"], 0, "--follow"),
            (["LOG", "/?"], 0, "--follow"), (["pin", "help"], 0, "forget"),
            (["Pin", "Verify", "--HELP"], 0, "For the administrator, for whom the minidriver verifies the user PIN, too"),
            (["pin", "verify", "/?"], 0, "the attempts left are shown, as far as the token tells them"),
            (["pin", "change", "/?"], 0, "The administrator PIN instead of the user PIN"),
            (["lsit"], 2, 'Did you mean "list"?'), (["verify"], 2, 'Did you mean "pin verify"?'),
            (["log", "--proces", "chrome"], 2, 'Did you mean "--process"?'), (["certificates"], 2, "--help")):
        process = run.start(None, None, [], *arguments)
        output, errors = process.communicate()
        equal(process.returncode, status, f"status of {arguments}, {errors}")
        contains(errors if status else output, text, f"{arguments}")
    output, errors = run.start(None, None, [], "--JSON", "lsit").communicate()
    equal(json.loads(output)["exitCode"], 2, f"document about a wrong command line, {errors}")
    status, documents = run.tool(READER, "0012AB", [], "--reader", "orvanedsc", "info")
    equal(status, 3, f"{documents}")
    contains(documents[0]["error"]["message"], '"orvanedsc" is a part of several readers\' names: "', "message")
    status, documents = run.tool(READER, "0012AB", [], "--reader", "orvanedsc 00 00", "INFO")
    equal((status, documents[0]["result"]["reader"]), (0, f"{READER} 00 00"), f"{documents}")
    status, documents = run.tool(READER, "0012AB", [], "--reader", "other", "info")
    equal(status, 3, f"{documents}")
    contains(documents[0]["error"]["advice"], f'There is: "{READER} 00 00"', "advice")
    process = run.start(None, None, [], "session", "-c", "help pin verify", "-c", "-LSIT")
    output, errors = process.communicate()
    contains(output, "--admin", "help in a session")
    contains(errors, 'Did you mean "list"?', "hint in a session")


CASES = {
    "PinAttempts": attempts,
    "PinImpossible": impossible_pins,
    "PinPipedChange": piped_change,
    "PinAdministrator": administrator,
    "PinVerifiedAgain": verified_again,
    "MessagesOfTheMinidriver": messages_of_the_minidriver,
    "DecryptionRefused": decryption,
    "ForgivingInput": forgiving_input,
}
