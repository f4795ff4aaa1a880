"""The cases of card_tests.py about "orvane-card doctor" and "orvane-card log": set-ups with one thing wrong, and what the
tool makes of them."""

import datetime
import hashlib
import json
import re
import shutil
import struct
import subprocess

from cases import contains, equal, remove_folder
from tool_run import LAB, openssl

READER = "Brightfold Orvane OrvaneDSC"
SERIAL = "0012AB"
STEPS = ("service", "reader", "card", "registration", "driver", "library", "acquire", "token", "files", "keys", "log",
         "freshness", "store", "logon")
# The emulated system has no service that copies certificates, so this link is never reached, and says why.
NEVER_REACHED = "store"
INSTALLED = ("registration", "driver", "library", "log", "logon")
LOG_FOLDER = "Brightfold/orvane-card"
# This user's stores of certificates in the registry, and the numbers of what stands beside a certificate there.
STORES = "HKEY_CURRENT_USER\\Software\\Microsoft\\SystemCertificates"
KEY_PROPERTY, HASH_PROPERTY, CERTIFICATE_PROPERTY = 2, 3, 32
PROVIDER_TYPE, SIGNATURE = 1, 2


def examine(run, reader=READER, serial=SERIAL, arguments=(), lines=()):
    """Runs doctor; returns its status and, by step, what it found."""
    status, documents = run.tool(reader, serial, lines, *arguments, "doctor")
    steps = documents[0]["result"]["steps"]
    equal(tuple(step["step"] for step in steps), STEPS, "steps")
    equal(documents[0]["ok"], status == 0, "success")
    return status, {step["step"]: step for step in steps}


def expect(run, status, state, broken, text, advice, *, ok=None, **how):
    """Exactly the step `broken` has `state`, with these parts in finding and advice; the steps in `ok` are ok (by default
    all others that can be) and the rest is not reached."""
    actual, steps = examine(run, **how)
    good = [step for step in STEPS if step not in (broken, NEVER_REACHED)] if ok is None else ok
    states = {step: state if step == broken else "ok" if step in good else "not reached" for step in STEPS}
    equal({step: steps[step]["state"] for step in STEPS}, states, f"states, {steps}")
    equal(actual, status, "exit status")
    contains(steps[broken]["finding"], text, f"finding about {broken}")
    contains(steps[broken]["advice"], advice, f"advice about {broken}")


def before(step):
    """The links that are fine when `step` is broken: those before it, the log, and the logon process once the minidriver's
    file has been looked at."""
    return STEPS[:STEPS.index(step)] + ("log", "logon")[:1 if step == "registration" else 2]


def healthy(run):
    status, steps = examine(run)
    equal({step: steps[step]["state"] for step in STEPS},
          {step: "not reached" if step == NEVER_REACHED else "ok" for step in STEPS}, f"states, {steps}")
    equal((status, {steps[step]["advice"] for step in STEPS}), (0, {None}), "exit status and advice")
    contains(steps["keys"]["finding"], "3 keys, each with its certificate: Orvane test user (0012AB key 1), ", "keys")
    contains(steps["log"]["finding"], "\\Brightfold\\orvane-card\\", "log file")
    contains(steps["store"]["finding"], "This system has no service that copies them there (CertPropSvc)", "store")


def without_card(run):
    """What is installed is looked at without a card, too."""
    expect(run, 3, "broken", "service", "SCARD_E_NO_SERVICE", "Plug the token in", ok=INSTALLED, reader=None)
    expect(run, 3, "broken", "reader", "Windows sees no card reader", "plug it in", ok=("service", *INSTALLED),
           reader="none")
    expect(run, 3, "broken", "card", f'There is no card in "{READER} 00 00"', "Plug the token in",
           ok=("service", "reader", *INSTALLED), serial="-")
    expect(run, 3, "broken", "reader", 'There is no reader "Other".', 'There is: "Brightfold', ok=("service", *INSTALLED),
           arguments=("--reader", "Other"))
    expect(run, 3, "broken", "reader", '"orvanedsc" is a part of several readers\' names: "', "as only one of them has",
           ok=("service", *INSTALLED), arguments=("--reader", "orvanedsc"))


def registry(run, old, new):
    run.registry = run.folder / "changed.reg"
    text = (LAB / "orvane.reg").read_text()
    contains(text, old, "registry")
    run.registry.write_text(text.replace(old, new))


def registration(run):
    run.registry = None
    expect(run, 4, "broken", "registration", "knows no card type with an Orvane token's ATR", "Install the minidriver",
           ok=before("registration"))
    registry(run, "Microsoft Base Smart Card Crypto Provider", "Another Provider")
    expect(run, 4, "broken", "registration", '"Crypto Provider" as "Another Provider" instead of exactly',
           "Install the minidriver again", ok=before("registration"))
    # The command line names the minidriver; the registry is then nothing to stop at.
    run.registry = None
    expect(run, 12, "warning", "registration", "What follows is about the minidriver named with --driver", "Install",
           arguments=("--driver", "Z:\\build\\OrvaneMinidriver.dll"))


def copied_build(run):
    """The case gets programs of its own, to damage them."""
    original = run.directory
    run.directory = run.folder / "build"
    shutil.rmtree(run.directory, ignore_errors=True)
    run.directory.mkdir()
    for name in ("orvane-card.exe", "OrvaneMinidriver.dll", "OrvaneDSCLibrary.dll"):
        shutil.copy(original / name, run.directory)
    return run.directory


def patch_machine(path):
    """Makes a program file say that it is for 32-bit x86."""
    content = bytearray(path.read_bytes())
    header = struct.unpack_from("<I", content, 0x3C)[0]
    struct.pack_into("<H", content, header + 4, 0x014C)
    path.write_bytes(content)


def minidriver_file(run):
    driver = copied_build(run) / "OrvaneMinidriver.dll"
    patch_machine(driver)
    kind = {"arm64": "ARM64", "x64": "x64"}[run.arch]
    expect(run, 4, "broken", "driver", f"is built for x86 (32 bits), but this program runs as {kind}", "Install",
           ok=before("driver"))
    driver.write_text("no library")
    expect(run, 4, "broken", "driver", "is no program library", "Install", ok=before("driver"))
    shutil.copy(run.directory / "orvane-card.exe", driver)
    expect(run, 4, "broken", "acquire", "is no minidriver: it has no function CardAcquireContext", "Another library",
           ok=before("acquire"))
    driver.unlink()
    driver.mkdir()
    expect(run, 4, "broken", "driver", "There is no file Z:\\build\\OrvaneMinidriver.dll", "Install",
           ok=before("driver"))
    driver.rmdir()
    expect(run, 4, "broken", "driver", "There is no file Z:\\build\\OrvaneMinidriver.dll", "Install",
           ok=before("driver"))


def token_library(run):
    library = copied_build(run) / "OrvaneDSCLibrary.dll"
    content = library.read_bytes()
    equal(content.count(b"bcrypt.dll\0"), 1, "imports of the token library")
    library.write_bytes(content.replace(b"bcrypt.dll\0", b"absent.dll\0"))
    expect(run, 4, "broken", "library", "OrvaneDSCLibrary.dll needs absent.dll, which is not there", "Install",
           ok=before("library"))
    patch_machine(library)
    expect(run, 4, "broken", "library", "is built for x86 (32 bits)", "Install", ok=before("library"))
    library.write_bytes(content[:5000])
    expect(run, 4, "broken", "library", "OrvaneDSCLibrary.dll does not load", "is damaged or built for another",
           ok=before("library"))
    library.write_text("no library")
    expect(run, 4, "broken", "library", "is no program library", "Install", ok=before("library"))
    library.unlink()
    expect(run, 4, "broken", "library", "OrvaneDSCLibrary.dll is missing", "token's own software", ok=before("library"))


def no_token(run):
    """Windows sees a card, but the token library no token."""
    run.tokens = run.folder / "no-tokens"
    run.tokens.mkdir()
    expect(run, 4, "broken", "acquire", "SCARD_E_NO_SMARTCARD", "Unplug the token", ok=before("acquire"))


def token_not_opened(run):
    """The reader's name leads to a serial that the token library does not know: nothing is said about what the token
    holds, and nobody is told to have keys or certificates replaced."""
    how = {"reader": "Brightfold Reader", "ok": before("token")}
    refused = 'The token in use has the serial "00", which stands in the reader\'s name. The token library could not open it'
    expect(run, 11, "broken", "token", refused, "do not have any renewed", **how)
    _, steps = examine(run, reader="Brightfold Reader")
    contains(steps["token"]["finding"], "(error 224 of the library)", "finding")
    # Errors only, which is what a machine without the value has; and on a fresh one the first lines are lost.
    registry(run, '"logLevel"=dword:00000003', "")
    remove_folder(run.temp / "Brightfold")
    expect(run, 11, "broken", "token", refused, "do not have any renewed", **how)
    # Without a log it cannot be known.
    registry(run, '"logLevel"=dword:00000003', '"logLevel"=dword:00000001')
    status, steps = examine(run, reader="Brightfold Reader")
    equal((status, steps["token"]["state"], steps["keys"]["state"]), (11, "broken", "not reached"), f"states, {steps}")
    contains(steps["token"]["finding"], "could open it is not known, and so neither is whether it holds keys", "finding")
    contains(steps["token"]["advice"], "do not have any renewed", "advice")


def token_by_position(run):
    """The token does not say its serial, and another one serves."""
    expect(run, 12, "warning", "token", 'The token in use has the serial "0012AB", but only its place among the connected '
           "tokens says so", "Take all other tokens out", serial="77CC01", lines=["status 6A82"])
    _, steps = examine(run, serial="77CC01")
    equal((steps["token"]["state"], steps["token"]["finding"]),
          ("ok", 'The token in use has the serial "77CC01", which it says itself. It is open.'), "told by the token")
    _, steps = examine(run, reader="Brightfold Orvane 0012AB")
    equal((steps["token"]["state"], steps["token"]["finding"]),
          ("ok", 'The token in use has the serial "0012AB", which stands in the reader\'s name. It is open.'), "in the name")


CARD_TYPES = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Cryptography\\Calais\\SmartCards"


def other_product_first(run):
    """Windows takes the first entry that fits; mending ours changes nothing."""
    text = (LAB / "orvane.reg").read_text()
    ours = text[text.index("[HKEY"):text.index("\n\n", text.index("[HKEY"))]
    other = ours.replace("Brightfold Orvane", "Alpha Card").replace("Z:\\\\build\\\\OrvaneMinidriver.dll", "alpha.dll")
    registry(run, f"[{CARD_TYPES}\\Brightfold Orvane]", f"{other}\n\n[{CARD_TYPES}\\Brightfold Orvane]")
    expect(run, 4, "broken", "registration",
           'Another product\'s entry, "Alpha Card" (alpha.dll), comes before ours, so Windows takes that product for this '
           'token. In the order in which Windows takes them: "Alpha Card" (alpha.dll), "Brightfold Orvane" '
           "(Z:\\build\\OrvaneMinidriver.dll).", "installing this minidriver again changes nothing", ok=before("registration"))
    # The other product is not there to be loaded; that is no matter of our files.
    status, documents = run.tool(READER, SERIAL, [], "list")
    equal(status, 4, f"exit status of list, {documents}")
    contains(documents[0]["error"]["message"], "alpha.dll\" does not load", "message of list")
    equal(documents[0]["error"]["advice"],
          'The registry entry "Alpha Card", of another product, is the one that Windows takes for this card. '
          '"orvane-card doctor" says what to do.', "advice of list")


def wrong_mask(run):
    registry(run, '"ATRMask"=hex:ff,ff', '"ATRMask"=hex:ff,00')
    expect(run, 4, "broken", "registration", "its ATRMask is FF 00 FF", "Install the minidriver again",
           ok=before("registration"))


def foreign_card(run):
    """For a bank card nobody is told to install our minidriver."""
    expect(run, 3, "broken", "card", "The card in \"" + READER + " 00 00\" is no Orvane token (its ATR is 3B 00).",
           "Plug the Orvane token in", ok=("service", "reader", *INSTALLED), lines=["atr 3B00"])
    run.registry = None
    status, steps = examine(run, lines=["atr 3B00"])
    equal((status, steps["card"]["state"]), (3, "broken"), f"status and card where nothing is installed, {steps}")
    equal(steps["registration"]["advice"],
          "Install the minidriver on this machine if Orvane tokens are to be used here; no other card needs it.", "advice")


def certificate_dates(run):
    """Expired, not yet valid and soon to expire are told apart, and the verdict does not hide them."""
    original = run.tokens / SERIAL
    run.tokens = run.folder / "tokens"
    shutil.copytree(original, run.tokens / SERIAL)
    file = run.tokens / SERIAL / "key2.crt"
    content = file.read_bytes()
    begin, end = re.findall(rb"\d{12}Z", content)[:2]
    today = datetime.datetime.now(datetime.timezone.utc)

    def with_dates(first, last):
        form = "%y%m%d%H%M%SZ"
        dates = [(today + datetime.timedelta(days=days)).strftime(form).encode() for days in (first, last)]
        file.write_bytes(content.replace(begin, dates[0], 1).replace(end, dates[1], 1))
        return [(today + datetime.timedelta(days=days)).strftime("%Y-%m-%d") for days in (first, last)]

    reached = [step for step in STEPS if step not in ("keys", NEVER_REACHED)]
    name = "The certificate of key 2 of 3 (encryption), "
    _, last = with_dates(-400, -35)
    expect(run, 12, "warning", "keys", f"{name}Orvane test user (0012AB key 2), expired on {last}.", "renewed", ok=reached)
    first, _ = with_dates(35, 400)
    expect(run, 12, "warning", "keys", f"{name}Orvane test user (0012AB key 2), becomes valid on {first}.", "Wait until",
           ok=reached)
    _, last = with_dates(-300, 12)
    expect(run, 12, "warning", "keys", f"expires in 12 days, on {last}.", "renewed before", ok=reached)
    process = run.start(READER, SERIAL, [], "doctor")
    output, errors = process.communicate()
    equal((process.returncode, "The chain holds:" in output), (12, False), f"status and verdict, {output}, {errors}")
    contains(output, 'Nothing is broken. The chain holds up to "Files of the card"; "Keys and certificates" has to be looked '
             "at next.", "verdict")


def verdict_with_the_table(run):
    """What was found stands on standard output, all of it."""
    run.registry = None
    process = run.start(READER, SERIAL, [], "doctor")
    output, errors = process.communicate()
    equal(process.returncode, 4, f"status, {errors}")
    contains(output, 'The chain is broken at "Registration"; begin there.', "standard output")
    equal("The chain" in errors, False, f"verdict on standard error, {errors}")
    run.registry = LAB / "orvane.reg"
    output, _ = run.start(READER, SERIAL, [], "doctor").communicate()
    contains(output, 'The chain holds up to "Keys and certificates". "Certificate store" could not be looked at', "verdict")


def keys(run):
    original = run.tokens / SERIAL
    run.tokens = run.folder / "tokens"
    token = run.tokens / SERIAL
    shutil.copytree(original, token)
    reached = [step for step in STEPS if step not in ("keys", NEVER_REACHED)]
    (token / "key2.crt").unlink()
    expect(run, 12, "warning", "keys", "Key 2 of 3 (encryption) has no certificate", "put on the token", ok=reached)
    shutil.copy(token / "key1.crt", token / "key2.crt")
    expect(run, 11, "broken", "keys", "The certificate of key 2 of 3 (encryption) belongs to another key", "replaced",
           ok=reached)
    for name in ("key1.crt", "key2.crt", "key3.crt"):
        (token / name).unlink()
    expect(run, 11, "broken", "keys", "No key on the token has a certificate", "put on the token", ok=reached)
    config = [line for line in (token / "token.conf").read_text().splitlines() if not line.startswith("key=")]
    (token / "token.conf").write_text("\n".join(config) + "\n")
    expect(run, 11, "broken", "keys", "The token was opened and holds no keys", "put on the token", ok=reached)


def log_settings(run):
    registry(run, '"logLevel"=dword:00000003', '"logLevel"=dword:00000001')
    expect(run, 12, "warning", "log", "Nothing is written to the log, because logLevel is 1", "reg add")
    equal(run.log(), "", "log")
    registry(run, '"logLevel"=dword:00000003', '"logLevel"="3"')
    expect(run, 12, "warning", "log", "logLevel is no number", "reg add")
    run.registry = LAB / "orvane.reg"
    remove_folder(run.temp / "Brightfold")
    (run.temp / "Brightfold").write_text("in the way")
    expect(run, 12, "warning", "log", "\\Brightfold is a file, where a folder has to be", "Rename or remove")
    (run.temp / "Brightfold").unlink()
    (run.temp / LOG_FOLDER).parent.mkdir()
    (run.temp / LOG_FOLDER).write_text("in the way")
    expect(run, 12, "warning", "log", "\\Brightfold\\orvane-card is a file, where a folder has to be", "Rename or remove")
    registry(run, '"logLevel"=dword:00000003', '"logLevel"="' + "3" * 40 + '"')
    (run.temp / LOG_FOLDER).unlink()
    expect(run, 12, "warning", "log", "no number and too long to be read", "reg add")


def log_obstacles(run):
    """Whatever keeps the minidriver from writing its log is seen, also before there is anything of ours."""
    day = run.temp / LOG_FOLDER / f"{datetime.date.today()}.LOG"
    day.mkdir(parents=True)
    expect(run, 12, "warning", "log", f"\\Brightfold\\orvane-card\\{day.name} is a folder, where the log file has to be",
           "Rename or remove")
    remove_folder(run.temp / "Brightfold")
    run.is_temp_read_only = True
    expect(run, 12, "warning", "log", "nothing can be made in", "may write there")
    run.is_temp_read_only = False
    registry(run, '"logLevel"=dword:00000003', '"logLevel"=dword:00000300')
    expect(run, 12, "warning", "log", "logLevel is 0x300", "reg add")
    registry(run, '"logLevel"=dword:00000003', '"logLevel"=dword:00000004')
    _, steps = examine(run)
    contains(steps["log"]["finding"], "Errors are logged (logLevel is 4, which means errors only)", "level 4")


def log_folder_outside_code_page(run):
    """The minidriver asks for the temporary folder in the code page, so that doctor does, too."""
    run.registry = run.folder / "changed.reg"
    folder = "C:\\\\users\\\\\u4e2d"
    environment = f'\n[HKEY_CURRENT_USER\\Environment]\n"TMP"="{folder}"\n"TEMP"="{folder}"\n'
    run.registry.write_text((LAB / "orvane.reg").read_text() + environment, encoding="utf-16")
    expect(run, 12, "warning", "log", "and the minidriver looks for it as C:\\users\\?.", "TMP and TEMP")


def propagation_policy(run):
    registry(run, "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Brightfold\\Orvane]",
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Policies\\Microsoft\\Windows\\CertProp]\n\"CertPropEnabled\"=dword:00000000\n\n"
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Brightfold\\Orvane]")
    expect(run, 11, "broken", "store", "Not in this user's store: the certificate of key 1 of 3 (signing) (Orvane test user",
           "Turn on certificate propagation")


def stored(store, certificate, *properties):
    """The lines of a .reg file that put a certificate (DER) into one of this user's stores."""
    thumbprint = hashlib.sha1(certificate).digest()
    blob = b"".join(struct.pack("<3I", number, 1, len(data)) + data for number, data in (
        *properties, (HASH_PROPERTY, thumbprint), (CERTIFICATE_PROPERTY, certificate)))
    return f"\n[{STORES}\\{store}\\Certificates\\{thumbprint.hex().upper()}]\n\"Blob\"=hex:{blob.hex(',')}\n"


def key_property(container):
    """What ties a certificate to a key: a structure that says where two texts lie behind it."""
    texts = [(text + "\0").encode("utf-16-le") for text in (container, "Microsoft Base Smart Card Crypto Provider")]
    size = struct.calcsize("<7I")
    return KEY_PROPERTY, struct.pack("<7I", size, size + len(texts[0]), PROVIDER_TYPE, 0, 0, 0, SIGNATURE) + b"".join(texts)


def certificate_store(run):
    """What Windows has copied, as it lies in this user's store: tied and trusted, of an issuer whom nobody trusts, tied to
    another key, without any; and what the verdict makes of it."""
    serial = "77CC01"
    _, documents = run.tool(READER, serial, [], "list")
    container = documents[0]["result"]["containers"][0]["guid"]
    certificate = openssl("x509", "-in", run.tokens / serial / "key1.crt", "-outform", "DER")
    issuer = openssl("x509", "-in", run.tokens / ".ca/ca.crt", "-outform", "DER")
    name = f"The certificate of key 1 of 1 (signing), Orvane test user ({serial} key 1), "
    tied = stored("My", certificate, key_property(container))
    mends = "Delete it in certmgr.msc, below Personal. Then unplug the token and plug it in again;"
    for entries, status, state, finding, advice, verdict in (
            (tied + stored("Root", issuer), 0, "ok", "In this user's store, tied to their keys and trusted: Orvane test user",
             "", "The chain holds: the certificates are in this user's store, where programs find them."),
            (tied + stored("CA", issuer), 12, "warning", f"{name}comes from an issuer whom this machine does not trust.",
             "have its root certificate installed", 'The chain holds up to "Freshness numbers"; "Certificate store" has to be '
             "looked at next."),
            (tied, 12, "warning", f"{name}comes from an issuer whose certificate is not on this machine.", "installed",
             '"Certificate store" has to be looked at next.'),
            (stored("My", certificate, key_property("another")), 11, "broken", f"{name}is tied to another key: another instead "
             f"of {container}.", mends, 'The chain is broken at "Certificate store"; begin there.'),
            (stored("My", certificate), 11, "broken", f"{name}is in the store, but without its key.", mends,
             'The chain is broken at "Certificate store"; begin there.')):
        run.registry = run.folder / "changed.reg"
        run.registry.write_text((LAB / "orvane.reg").read_text() + entries)
        process = run.start(READER, serial, [], "doctor")
        output, errors = process.communicate()
        equal(process.returncode, status, f"exit status, {output}{errors}")
        for part in (f"{state:<13}Certificate store      {finding}", advice, verdict):
            contains(output, part, "output")


def logon_process(run):
    registry(run, "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Brightfold\\Orvane]",
             "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\Lsa]\n\"RunAsPPL\"=dword:00000001\n\n"
             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Brightfold\\Orvane]")
    expect(run, 12, "warning", "logon", "LSA protection is on (RunAsPPL 1), Smart App Control is off. Without a signature: "
           "Z:\\build\\OrvaneMinidriver.dll and Z:\\build\\OrvaneDSCLibrary.dll.", "that Microsoft has signed")


def log_command(run):
    """What the minidriver wrote is shown, filtered and explained; a PIN is never in it."""
    (run.temp / LOG_FOLDER).mkdir(parents=True)
    commands = ["-pin verify", "log --entry cardauthenticateex", "log --level error --lines 1", "log --list",
                "-log --process chrome"]
    status, documents = run.tool(
        READER, SERIAL, [], "session", *(part for each in commands for part in ("-c", each)), stdin="11111111\n")
    equal(status, 0, f"exit status, {documents}")
    lines = documents[1]["result"]["lines"]
    equal({line["call"] for line in lines}, {"CardAuthenticateEx"}, "calls")
    equal(lines[0]["message"], "CardAuthenticateEx :: LOG_FUNCTION_NAME = Entry", "first line")
    last = documents[2]["result"]["lines"]
    equal([(line["level"], line["message"]) for line in last],
          [("ERROR", "CardAuthenticateEx: wrong PIN, returning SCARD_W_WRONG_CHV")], "last error")
    equal(last[0]["explanations"], ["The PIN was wrong. After too many wrong ones it is blocked.",
                                    "the PIN is wrong: SCARD_W_WRONG_CHV (0x8010006B)"], "explanations")
    equal([file["process"] for file in documents[3]["result"]["files"]], ["orvane-card"], "files")
    equal((documents[4]["ok"], documents[4]["exitCode"]), (False, 10), "another program's log")
    if "11111111" in run.log():
        raise AssertionError("a PIN stands in the log")


def log_text(run):
    """In a pipe the lines come as they stand in the file."""
    folder = run.temp / "Brightfold/chrome"
    folder.mkdir(parents=True)
    text = "15/11::10:03:25:123-> ->ERROR ::=>ATR VALUE or length IS MISMATCH\n"
    (folder / "2026-11-14.LOG").write_text("old\n")
    (folder / "2026-11-15.LOG").write_text(text * 2)
    process = run.start(None, None, [], "log", "--process", "chrome.exe")
    output, errors = process.communicate()
    equal((process.returncode, output), (
        0, text + "    = Another kind of card is in the reader; only the Orvane token is served.\n" + text),
        f"status and output, {errors}")
    process = run.start(None, None, [], "log", "--date", "2026-11-14", "--no-explain")
    equal((process.communicate()[0], process.returncode), ("old\n", 0), "output and status")


def log_follow(run):
    """Lines show as they are written, those of the next day's file, too."""
    folder = run.temp / "Brightfold/chrome"
    folder.mkdir(parents=True)
    line = "15/11::10:03:25:123-> ->ERROR ::=>{}\n"
    (folder / "2026-11-15.LOG").write_text(line.format("one"))
    process = run.start(None, None, [], "--json", "log", "--follow")

    def shown():
        return json.loads(process.stdout.readline())["line"]["message"]

    try:
        equal(shown(), "one", "line that was there")
        with open(folder / "2026-11-15.LOG", "a", encoding="ascii") as file:
            file.write(line.format("two"))
        equal(shown(), "two", "appended line")
        (folder / "2026-11-16.LOG").write_text(line.format("three"))
        equal(shown(), "three", "line of the next day")
    finally:
        process.terminate()
        try:
            process.communicate(timeout=60)
        except subprocess.TimeoutExpired:
            process.kill()


CASES = {
    "DoctorHealthy": healthy,
    "DoctorWithoutCard": without_card,
    "DoctorRegistration": registration,
    "DoctorMinidriverFile": minidriver_file,
    "DoctorTokenLibrary": token_library,
    "DoctorNoToken": no_token,
    "DoctorTokenNotOpened": token_not_opened,
    "DoctorTokenByPosition": token_by_position,
    "DoctorOtherProductFirst": other_product_first,
    "DoctorWrongMask": wrong_mask,
    "DoctorForeignCard": foreign_card,
    "DoctorCertificateDates": certificate_dates,
    "DoctorVerdict": verdict_with_the_table,
    "DoctorKeys": keys,
    "DoctorLogSettings": log_settings,
    "DoctorLogObstacles": log_obstacles,
    "DoctorLogFolderOutsideCodePage": log_folder_outside_code_page,
    "DoctorPropagationPolicy": propagation_policy,
    "DoctorCertificateStore": certificate_store,
    "DoctorLogonProcess": logon_process,
    "Log": log_command,
    "LogText": log_text,
    "LogFollow": log_follow,
}
