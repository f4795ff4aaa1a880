"""Signing: with a certification authority of the tests' own, keys in files and in a token."""

import argparse
import http.server
import os
import pathlib
import subprocess
import threading
import zipfile

import make_packages
import make_trial_kit
import signing
from cases import contains, equal

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
MAKE = REPOSITORY / "scripts/lib/make_packages.py"
PASSWORD, PIN = "a password", "27182818"


def run(*command, **how):
    """Runs a program that must succeed; returns what it printed."""
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False,
                          **how)
    if done.returncode != 0:
        raise AssertionError(f"{command[0]} {command[1]} failed: {done.stdout}{done.stderr}")
    return done.stdout


class SignatureCases:
    def __init__(self, packages, folder):
        self._packages, self._folder = packages, folder
        self._version, _ = make_packages.release()
        self._make_authority()

    def _make_authority(self):
        """An authority, a certificate for code from it, and the key: with a password, in PKCS #12, and plain."""
        at = self._folder
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", at / "ca.key", "-out", at / "ca.pem", "-days",
            "3650", "-subj", "/CN=Authority of the tests")
        run("openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", at / "plain.key", "-out", at / "signer.csr", "-subj",
            "/CN=Signer of the tests")
        (at / "extensions").write_text("keyUsage=digitalSignature\nextendedKeyUsage=codeSigning\n")
        run("openssl", "x509", "-req", "-in", at / "signer.csr", "-CA", at / "ca.pem", "-CAkey", at / "ca.key", "-days", "3650",
            "-CAcreateserial", "-extfile", at / "extensions", "-out", at / "signer.pem")
        (at / "password").write_text(PASSWORD + "\n")
        (at / "pin").write_text(PIN + "\n")
        run("openssl", "pkcs8", "-topk8", "-in", at / "plain.key", "-out", at / "signer.key", "-passout", f"file:{at}/password")
        run("openssl", "pkcs12", "-export", "-inkey", at / "plain.key", "-in", at / "signer.pem", "-out", at / "signer.p12",
            "-passout", f"file:{at}/password")

    def _key(self):
        at = self._folder
        return ["--certificate", at / "signer.pem", "--key", at / "signer.key", "--password-file", at / "password"]

    def _make(self, name, *options, **how):
        output = self._folder / name
        run(MAKE, *options, output, **how)
        return {path.name: path for path in output.iterdir()}

    def _verify(self, path):
        contains(run("osslsigncode", "verify", "-CAfile", self._folder / "ca.pem", "-in", path), "Number of verified signatures: 1",
                 f"signature of {path.name}")

    def _programs(self, package, name):
        """The programs in a ZIP, unpacked into a folder of this name."""
        target = self._folder / name
        with zipfile.ZipFile(package) as opened:
            opened.extractall(target)
        return {str(path.relative_to(target)): path for path in target.rglob("*")
                if path.is_file() and signing.is_signable(path.read_bytes())}

    def everything(self):
        """Whatever can be signed is: the authority's signature verifies, the checksums are those of what is delivered, and
        taking the signatures away gives the programs that were built."""
        made = self._make("signed", "--sign", "--submission", *self._key())
        equal(run(REPOSITORY / "scripts/lib/signing.py", *made.values()), "", "what is not signed")
        for name, path in made.items():
            if signing.is_signable(path.read_bytes()):
                self._verify(path)
        for arch, folder in make_packages.FOLDERS.items():
            package = f"OrvaneMinidriver-{self._version}-{arch}"
            programs = self._programs(made[package + ".zip"], f"signed-{arch}")
            equal(set(programs), {f"{package}/{name.format(folder=folder)}" for name in make_packages.SIGNABLE}, "programs")
            for program in programs.values():
                self._verify(program)
                bare = program.with_suffix(".bare")
                run("osslsigncode", "remove-signature", "-in", program, "-out", bare)
                built = REPOSITORY / f"build/windows-{arch}" / program.name
                equal(bare.read_bytes() == built.read_bytes(), True, f"{program.name} without its signature is what was built")
            run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=self._folder / f"signed-{arch}" / package)
        run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=self._folder / "signed")
        equal(any(name.endswith(".cab") for name in made), True, "a submission")

    def trial_kit(self):
        """So are the programs of the trial kit: where nothing unsigned runs, nothing could be tried."""
        output = self._folder / "kits"
        run(REPOSITORY / "scripts/lib/make_trial_kit.py", "--sign", *self._key(), output)
        for arch in make_packages.FOLDERS:
            kit = output / f"OrvaneMinidriver-{self._version}-trial-{arch}.zip"
            equal(signing.unsigned("kit", kit.read_bytes()), [], "what is not signed")
            programs = self._programs(kit, f"kit-{arch}")
            equal(len(programs), len(make_trial_kit.PROGRAMS), "programs")
            for program in programs.values():
                self._verify(program)
            run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=self._folder / f"kit-{arch}" / kit.stem)

    def twice(self):
        """Signing what is signed replaces the signature and nothing else; without its signature a program is what was built.
        What lies in the build folder is not touched."""
        signer = signing.Signer(signing_options(*self._key()))
        made = self._make("unsigned", "--submission")
        files = {"program": REPOSITORY / "build/windows-x64/OrvaneMinidriver.dll",
                 "package": made[f"OrvaneMinidriver-{self._version}-x64.msi"],
                 "cabinet": made[f"OrvaneMinidriver-{self._version}-submission.cab"]}
        for kind, file in files.items():
            before = file.read_bytes()
            once = signer.signed("once", before)
            again = signer.signed("again", once)
            equal(len(again), len(once), f"size of a {kind}")
            bare = []
            for name, data in (("once", once), ("again", again)):
                path = self._folder / f"{kind}-{name}"
                path.write_bytes(data)
                self._verify(path)
                run("osslsigncode", "remove-signature", "-in", path, "-out", path.with_suffix(".bare"))
                bare.append(path.with_suffix(".bare").read_bytes())
            equal((bare[0] == bare[1], file.read_bytes() == before), (True, True), f"what is below a {kind}'s signature")
            if kind == "program":
                equal(bare[0] == before, True, "the program that was built")

    def other_keys(self):
        """A PKCS #12 file and a key in a token do the same."""
        data = (REPOSITORY / "build/windows-arm64/orvane-card.exe").read_bytes()
        at = self._folder
        library = "/usr/lib/softhsm/libsofthsm2.so"
        (at / "token").mkdir()
        (at / "softhsm2.conf").write_text(f"directories.tokendir = {at}/token\nobjectstore.backend = file\n")
        os.environ["SOFTHSM2_CONF"] = str(at / "softhsm2.conf")
        run("softhsm2-util", "--init-token", "--free", "--label", "tests", "--so-pin", "31415926", "--pin", PIN)
        run("softhsm2-util", "--import", at / "plain.key", "--token", "tests", "--label", "signer", "--id", "01", "--pin", PIN)
        for name, options in (
            ("pkcs12", ["--pkcs12", at / "signer.p12", "--password-file", at / "password"]),
            ("token", ["--certificate", at / "signer.pem", "--key", "pkcs11:token=tests;object=signer;type=private",
                       "--pkcs11-module", library, "--password-file", at / "pin"]),
        ):
            path = at / f"{name}.exe"
            path.write_bytes(signing.Signer(signing_options(*options)).signed(name, data))
            self._verify(path)

    def time_stamp(self):
        """A signature with a time stamp says when, and goes on being valid after the certificate. The server of the stamps is
        one of the tests' own."""
        at = self._folder
        run("openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", at / "clock.key", "-out", at / "clock.csr", "-subj",
            "/CN=Clock of the tests")
        (at / "clock-extensions").write_text("extendedKeyUsage=critical,timeStamping\n")
        run("openssl", "x509", "-req", "-in", at / "clock.csr", "-CA", at / "ca.pem", "-CAkey", at / "ca.key", "-days", "3650",
            "-CAcreateserial", "-extfile", at / "clock-extensions", "-out", at / "clock.pem")
        (at / "clock.conf").write_text(
            f"[tsa]\nserial = {at}/clock.serial\ncrypto_device = builtin\nsigner_digest = sha256\n"
            "default_policy = 1.2.3.4.1\ndigests = sha256\naccuracy = secs:1\ness_cert_id_alg = sha256\n")
        (at / "clock.serial").write_text("01\n")

        class Clock(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                (at / "query").write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
                run("openssl", "ts", "-reply", "-config", at / "clock.conf", "-section", "tsa", "-queryfile", at / "query",
                    "-signer", at / "clock.pem", "-inkey", at / "clock.key", "-chain", at / "ca.pem", "-out", at / "reply")
                self.send_response(200)
                self.send_header("Content-Type", "application/timestamp-reply")
                self.end_headers()
                self.wfile.write((at / "reply").read_bytes())

            def log_message(self, *_):
                pass

        data = (REPOSITORY / "build/windows-arm64/OrvaneMinidriver.dll").read_bytes()
        path = at / "stamped.dll"
        with http.server.HTTPServer(("127.0.0.1", 0), Clock) as server:
            threading.Thread(target=server.serve_forever, daemon=True).start()
            address = f"http://127.0.0.1:{server.server_port}/"
            path.write_bytes(signing.Signer(signing_options(*self._key(), "--time-stamp", address)).signed("stamped", data))
            server.shutdown()
        said = run("osslsigncode", "verify", "-CAfile", at / "ca.pem", "-TSA-CAfile", at / "ca.pem", "-in", path)
        contains(said, "Number of verified signatures: 1", "signature")
        contains(said, "Timestamp Server Signature verification: ok", "time stamp")
        # Without an answer there is no signature: one that ends with its certificate is not what was asked for.
        try:
            signing.Signer(signing_options(*self._key(), "--time-stamp", address)).signed("stamped", data)
            raise AssertionError("a signature without its time stamp")
        except SystemExit as refusal:
            contains(str(refusal), "error: stamped cannot be signed", "message")

    def found(self):
        """What is not signed is named, alone or in a package; so is a signature that was cut off."""
        check = REPOSITORY / "scripts/lib/signing.py"
        done = subprocess.run([check, *sorted(self._packages.glob("OrvaneMinidriver-*"))], capture_output=True, text=True,
                              check=False)
        equal(done.returncode, 1, "status with unsigned packages")
        for arch, folder in make_packages.FOLDERS.items():
            for name in make_packages.SIGNABLE:
                contains(done.stdout, f"{arch}.zip: OrvaneMinidriver-{self._version}-{arch}/{name.format(folder=folder)}\n",
                         "what is not signed")
        signed = signing.Signer(signing_options(*self._key())).signed(
            "x", (REPOSITORY / "build/windows-x64/orvane-card.exe").read_bytes())
        equal(signing.unsigned("x", signed), [], "a signed program")
        equal(signing.unsigned("x", signed[:-1]), ["x"], "one that was cut off")

    def refusals(self):
        """Options that make no sense, or would show a secret, are refused before anything is made."""
        at = self._folder
        stale = at / "refused"
        stale.mkdir()
        (stale / "OrvaneMinidriver-0.zip").write_text("of somebody")
        neither = "error: --sign needs either --certificate and --key, or --pkcs12\n"
        rows = [
            ([], neither),
            (["--key", at / "signer.key"], neither),
            ([*self._key(), "--pkcs12", at / "signer.p12"], neither),
            (["--certificate", at / "signer.pem", "--key", "pkcs11:object=x"], "error: a key in a token needs --pkcs11-module\n"),
            (["--certificate", at / "signer.pem", "--key", "pkcs11:object=x;pin-value=1", "--pkcs11-module", MAKE],
             "error: on the command line everybody can read a PIN; --password-file names a file that holds it\n"),
            (["--certificate", at / "none.pem", "--key", at / "signer.key"], f"error: there is no file {at}/none.pem\n"),
        ]
        for options, message in rows:
            done = subprocess.run([MAKE, "--sign", *options, stale], capture_output=True, text=True, check=False)
            equal((done.returncode, done.stderr), (1, message), f"refusal of {options}")
            equal([path.name for path in stale.iterdir()], ["OrvaneMinidriver-0.zip"], "output folder")
        wrong = [*self._key()[:-1], at / "pin"]
        done = subprocess.run([MAKE, "--sign", *wrong, stale], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        equal((done.returncode, list(stale.iterdir())), (1, []), f"a wrong password, {done.stderr}")
        contains(done.stderr, "cannot be signed", "message")

    def submission(self):
        """The cabinet has one driver package in a folder of its own, for both architectures, with symbols; the same bytes
        again, wherever the clock stands."""
        made = [self._make(name, "--submission", env={**os.environ, "TZ": zone})
                for name, zone in (("first", "UTC"), ("second", "Asia/Tokyo"))]
        name = f"OrvaneMinidriver-{self._version}-submission.cab"
        equal(made[0][name].read_bytes() == made[1][name].read_bytes(), True, "the same bytes")
        run("cabextract", "--quiet", "--directory", self._folder / "cabinet", made[0][name])
        top = self._folder / "cabinet"
        files = {str(path.relative_to(top)): path.read_bytes() for path in top.rglob("*") if path.is_file()}
        wanted = {"OrvaneMinidriver/orvane.inf": None}
        for arch, folder in make_packages.FOLDERS.items():
            for each in ("OrvaneMinidriver.dll", "OrvaneMinidriver.pdb"):
                wanted[f"OrvaneMinidriver/{folder}/{each}"] = REPOSITORY / f"build/windows-{arch}" / each
        equal(set(files), set(wanted), "files")
        for each, built in wanted.items():
            if built:
                equal(files[each] == built.read_bytes(), True, f"{each} is what was built")
        contains(files["OrvaneMinidriver/orvane.inf"].decode(), f",{self._version}.0\r\n", "setup information")

    def cases(self):
        return {"SignsEverything": self.everything, "SignsTheTrialKit": self.trial_kit, "SigningTwice": self.twice,
                "OtherKeys": self.other_keys, "TimeStamp": self.time_stamp, "UnsignedIsFound": self.found,
                "SigningRefused": self.refusals, "Submission": self.submission}


def signing_options(*options):
    """What make_packages.py makes of these options."""
    parser = argparse.ArgumentParser()
    signing.add_options(parser)
    return parser.parse_args([str(option) for option in options])
