"""Cases of lab/package_tests.py: installing and removing while programs use the DLL, and failures half way.

Wine is like Windows in what matters here: a DLL that a program has loaded can neither be replaced nor deleted, but renamed.
Only in one thing it differs: what was to be deleted then goes when the program ends; on Windows it stays.
"""

from cases import contains, equal

INSTALL, UNINSTALL = r"Z:\build\package\install.cmd", r"Z:\build\package\uninstall.cmd"
NAME = "OrvaneMinidriver.dll"
DLL = rf"C:\windows\system32\{NAME}"
STAND_IN = r"Z:\build\tools\stand_in.exe"
# An older version: any other DLL will do, and this is one that nothing else needs.
OLDER = rf"copy /y Z:\build\tools\stand_in.exe {DLL}"
# Wine takes its own program, whatever file is there, unless it is told to take the file.
REFUSE = [r"reg add HKCU\Software\Wine\DllOverrides /f /v reg.exe /d native",
          r"mkdir C:\real", r"copy C:\windows\system32\reg.exe C:\real",
          rf"copy /y {STAND_IN} C:\windows\system32\reg.exe"]
ALLOW = r"set REFUSED="


class InUseCases:
    """The cases. tests: what package_tests.py has made; keys: those of an installation, by log level."""

    def __init__(self, tests, keys):
        self.tests, self.keys = tests, keys
        self.older = tests.stand_in.read_bytes()

    def held(self, steps):
        """Steps that are done while a program has the DLL loaded."""
        return (STAND_IN, DLL, steps)

    def run(self, name, steps, codes):
        """Carries out the steps in a system of their own and compares their exit codes."""
        run = self.tests.installation(name)
        equal(run.run(self.tests.package, steps), codes, f"exit codes, {run.output}")
        return run, run.state("before")

    def update(self):
        """The new DLL is in place at once, the old one beside it under a name of its own, also the second time, when another
        program has the new one loaded. Both go with the programs."""
        run, before = self.run("update-in-use", [
            OLDER, self.held([INSTALL, "STATE first", self.held([INSTALL, "STATE second"])]), INSTALL, "STATE after",
            UNINSTALL, "STATE removed"], [0, 0, 0, 0, 0, 0, 0])
        for name, asides in (("first", {NAME + ".old1"}), ("second", {NAME + ".old1", NAME + ".old2"}), ("after", set())):
            equal(run.state(name).difference(before), (self.keys(), {NAME} | asides), f"what is there, {name}")
            equal(run.state(name).dll == run.dll, True, f"the DLL is the package's, {name}")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, "Programs that had loaded the one before go on with it until they end.", "message")
        contains(run.output, "Its file is called OrvaneMinidriver.dll.old2 now.", "message")

    def removal(self):
        """Nothing finds the minidriver any more, the file is left under another name, and installing works at once. What is
        left goes when the program has ended."""
        run, before = self.run("removal-in-use", [
            INSTALL, self.held([UNINSTALL, "STATE half", UNINSTALL, INSTALL, "STATE again"]), UNINSTALL, "STATE removed"],
            [0, 2, 2, 0, 0, 0])
        equal(run.state("half").difference(before), ({}, {NAME + ".old1"}), "what is left while the program runs")
        equal(run.state("again").difference(before), (self.keys(), {NAME, NAME + ".old1"}), "what is there again")
        equal(run.state("again").dll == run.dll, True, "the DLL is the package's")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, "no program loads the DLL anew", "message")
        contains(run.output, "Its file is called OrvaneMinidriver.dll.old1 now.", "message")

    def leftovers(self):
        """Files that stepped aside in earlier runs go, protected or not; folders of such names are not ours."""
        make = [rf"echo rest>{DLL}.old1", rf"attrib +r {DLL}.old1", rf"echo rest>{DLL}.old99"]
        folder = [rf"mkdir {DLL}.old2", rf"echo mine>{DLL}.old2\file"]
        run, before = self.run("leftovers", [
            *make, *folder, INSTALL, "STATE installed", *make, UNINSTALL, "STATE removed", rf"del {DLL}.old2\file",
            rf"rmdir {DLL}.old2"], [0] * 12)
        equal(run.state("installed").difference(before), (self.keys(), {NAME, NAME + ".old2"}), "what is installed")
        equal(run.state("removed").difference(before), ({}, {NAME + ".old2"}), "what is left")

    def many_leftovers(self):
        """Without a free name for the one that is in use, all is as it was before."""
        run, before = self.run("many-leftovers", [
            OLDER, rf"for /l %%n in (1,1,99) do mkdir {DLL}.old%%n", "STATE full", self.held([INSTALL, "STATE refused"])],
            [0, 0, 1, 0])
        equal(run.state("refused").difference(run.state("full")), ({}, set()), "what the refusal changed")
        equal(run.state("refused").dll == self.older, True, "the DLL is the one before")
        equal(run.state("full").difference(before)[0], {}, "registry")
        contains(run.output, "Not installed: the minidriver that is there cannot be replaced.", "message")

    def not_registered(self):
        """A DLL that can be neither replaced nor renamed, and no card type yet: afterwards there is none either."""
        run, before = self.run("not-registered", [
            OLDER, rf"{INSTALL} <{DLL}", "STATE refused"], [0, 1])
        equal(run.state("refused").difference(before), ({}, {NAME}), "what the refusal changed")
        equal(run.state("refused").dll == self.older, True, "the DLL is the one before")

    def registry_refuses(self):
        """A registry that refuses in the middle of an installation: nothing is changed, with and without an earlier one. Only
        the log level does not matter, for without one the level is the same."""
        run, before = self.run("registry", [
            *REFUSE, "set REFUSED=ATRMask", INSTALL, ALLOW, "STATE fresh", INSTALL, OLDER, "set REFUSED=80000001", INSTALL,
            ALLOW, "STATE update", UNINSTALL, "set REFUSED=REG_DWORD", INSTALL, ALLOW, "STATE levelless", UNINSTALL,
            "STATE removed"], [0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0])
        equal(run.state("fresh").difference(before), ({}, set()), "what the refused installation left")
        equal(run.state("update").difference(before), (self.keys(), {NAME}), "what the refused update left")
        equal(run.state("update").dll == self.older, True, "the DLL is the one before the refused update")
        keys = {key: values for key, values in self.keys().items() if "SmartCards" in key}
        equal(run.state("levelless").difference(before), (keys, {NAME}), "without a log level")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, "Not installed: the registry cannot be written to.", "message")

    def registry_keeps(self):
        """A registry that refuses the first step of a removal: nothing is changed. Later: the rest is removed, and the message
        says what is left."""
        run, before = self.run("registry-keeps", [
            INSTALL, *REFUSE, "set REFUSED=delete", UNINSTALL, ALLOW, "STATE refused",
            r'set REFUSED=delete "HKLM\SOFTWARE\Brightfold', UNINSTALL, ALLOW, "STATE rest", UNINSTALL, "STATE removed"],
            [0, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0])
        equal(run.state("refused").difference(before), (self.keys(), {NAME}), "what the refused removal left")
        keys = {key: values for key, values in self.keys().items() if "SmartCards" not in key}
        equal(run.state("rest").difference(before), (keys, set()), "what the registry kept")
        equal(run.state("removed").difference(before), ({}, set()), "what is left")
        contains(run.output, "Not removed: the registry cannot be written to.", "message")
        contains(run.output, r"its registry key cannot be deleted: HKLM\SOFTWARE\Brightfold\Orvane", "message")

    def cases(self):
        return {"UpdatedInUse": self.update, "RemovedInUse": self.removal, "Leftovers": self.leftovers,
                "ManyLeftovers": self.many_leftovers, "HeldAndNotRegistered": self.not_registered,
                "RegistryRefuses": self.registry_refuses, "RegistryKeeps": self.registry_keeps}
