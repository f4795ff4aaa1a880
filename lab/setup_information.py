"""The setup information file: that what the repository's check of it says can be trusted, and what a package's file installs.

Part of lab/package_tests.py; needs no emulated system. Wine's setup functions carry out the files and the registry of an
installation section, but no device installation, and they verify nothing; so that part is checked as text.
"""

import pathlib
import re
import sys

from cases import equal

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "scripts/lib"))
import check_inf  # noqa: E402

# A broken copy: what is replaced in the file, by what, and all that the check must then find, but for what nobody uses in
# consequence.
BROKEN = [
    ("[SourceDisksNames]\n1 = %DiskName%", "[SourceDisksNames]\n1 = Disk", "the text diskname is not used"),
    ('DiskName = "Orvane minidriver"\n', "", "1235: no text %diskname%"),
    ('DiskName = "Orvane minidriver"\n', 'DiskName = "a"\nDiskName = "b"\n', "the text diskname is there twice"),
    ("Provider    = %Company%", 'Provider    = "Microsoft"', "1204: the provider has to be named, and is not Microsoft"),
    ("CatalogFile = orvane.cat\n", "", "1233: no catalog is named, so the package cannot be signed"),
    ("PnpLockdown = 1\n", "", "pnplockdown is not 1"),
    ("Class       = SmartCard\n", "Class       = SmartCardReader\n", "class is not SmartCard"),
    ("{990A2BD7-", "{50DD5230-", "classguid is not {990A2BD7-E738-46c7-B26F-1CF8FB9F1391}"),
    (r"DriverVer   = .*,(.*)\n", r"DriverVer   = 13/01/2026,\1\n", "1217: the date of DriverVer is none"),
    (r"DriverVer   = .*,(.*)\n", r"DriverVer   = 2026/01/01,\1\n", "1217: DriverVer is not MM/DD/YYYY,A.B.C.D"),
    (r"DriverVer   = (.*),.*\n", r"DriverVer   = \1,1.0.0\n", "1217: DriverVer is not MM/DD/YYYY,A.B.C.D"),
    (r"DriverVer   = (.*),.*\n", r"DriverVer   = \1,99.0.1.0\n", "DriverVer says 99.0.1.0, the project "),
    ("Orvane, NTarm64, NTamd64", "Orvane, NTarm64, NTamd64, NTx86",
     "[Manufacturer] names NTarm64, NTamd64, NTx86, not NTarm64, NTamd64", "1203: there is no [Orvane.NTx86], which"),
    ("[Orvane.NTarm64]", "[Orvane]", "1203: there is no [Orvane.NTarm64], which", "2083: nobody uses [Orvane]"),
    (r"(\[Orvane.NTarm64\]\n.*CID_)50", r"\g<1>51",
     "[Orvane.NTarm64]: the hardware identifier is not made of the ATR's historical bytes"),
    ("[Orvane_Device.NTamd64.Services]", "[Orvane_Device.NTamd64.Service]",
     "1203: there is no [Orvane_Device.NTamd64.Services], which", "2083: nobody uses [Orvane_Device.NTamd64.Service]"),
    (r"(\[Orvane_Device.NTamd64.HW\]\n)Include.*\n", r"\1", "1313: [Orvane_Device.NTamd64.HW] has Needs without Include"),
    (r"(\[Orvane_Device.NTamd64.HW\]\n.*\nNeeds.*)\.HW\n", r"\1\n", "1310: [Orvane_Device.NTamd64.HW] needs UmPass, which"),
    (r"(\[Orvane_Device.NTamd64\]\n)", r"\1DelFiles = Orvane_Files\n",
     "1300: [Orvane_Device.NTamd64] has DelFiles, which is not for a driver package of this kind"),
    (r"(\[Orvane_Device.NTamd64\]\n.*\n.*\n)CopyFiles.*\n", r"\1",
     "[Orvane_Device.NTamd64] does not both copy files and write to the registry"),
    ("[Orvane_Files]", "[Orvane_Files_Other]", "1203: there is no [Orvane_Files], which CopyFiles names",
     "2083: nobody uses [Orvane_Files_Other]", "[SourceDisksFiles.arm64] has OrvaneMinidriver.dll, which nobody copies",
     "[SourceDisksFiles.amd64] has OrvaneMinidriver.dll, which nobody copies"),
    ("Orvane_Files = 11", "Orvane_Files = 10,System32", "1322: [Orvane_Files] goes to 10,System32; allowed: 13, 11"),
    ("Orvane_Files = 11\n", "", "1322: [Orvane_Files] goes to none; allowed: 13, 11"),
    ("Orvane_Files = 11\n", "Orvane_Files = 11\nOthers = 11\n", "[DestinationDirs] has Others, which nobody copies"),
    ("[Orvane_Files]\nOrvaneMinidriver.dll\n", "[Orvane_Files]\nOrvaneMinidriver.dll\nother.dll\n",
     "1230: other.dll is not in [SourceDisksFiles.arm64]", "1230: other.dll is not in [SourceDisksFiles.amd64]"),
    ("dll = 1,arm64", "dll = 2,arm64", "[SourceDisksFiles.arm64]: there is no disk 2"),
    ("dll = 1,arm64", "dll = 1,arm", "the packages have no arm/OrvaneMinidriver.dll"),
    (r"SmartCards\\Brightfold", r"SmartCard\\Brightfold",
     *(rf"1320: HKLM\%CardKey%\{name}: not below a key where a driver package may write"
       for name in ("ATR", "ATRMask", "Crypto Provider", "Smart Card Key Storage Provider", "80000001"))),
    (r"(\[Orvane_Registry\]\n)", r'\1HKLM, "SOFTWARE\\Brightfold\\Orvane", "logLevel", 0x00010003, 2\n',
     r"1320: HKLM\SOFTWARE\Brightfold\Orvane\logLevel: not below a key where a driver package may write"),
    (r'HKLM(, %CardKey%,\s+"80000001")', r"HKCU\1", r"1320: HKCU\%CardKey%\80000001: the root is neither HKR nor HKLM"),
    ('0x00000000, "OrvaneMinidriver.dll"', '"OrvaneMinidriver.dll"',
     r"HKLM\%CardKey%\80000001: not root, key, name, type and value"),
    ('0x00000000, "OrvaneMinidriver.dll"', '0x00000000, "OrvaneMinidriver.dll",',
     'a line that is not complete: HKLM, %CardKey%, "80000001",                        0x00000000, "OrvaneMinidriver.dll",'),
    (r"\Z", "\n[DefaultInstall.NTamd64]\nCopyFiles = Orvane_Files\n",
     "1212: [DefaultInstall.NTamd64] cannot stand beside [Manufacturer]"),
    (r"\Z", "\n[Orvane_Files]\n", "[Orvane_Files] is there twice"),
    (r"\Z", "\n[Spare]\n", "2083: nobody uses [Spare]"),
    (r"\A", "Stray\n", "a line before the first section: Stray"),
    ("; Setup", "; \u2013 Setup", "not everything is ASCII"),
]


def broken_copies():
    """The check finds nothing in the file as it is, and in each broken copy what is broken, and nothing else."""
    text, version, names = check_inf.filled_in()
    text = text.replace("\r\n", "\n")
    equal(check_inf.check(text, version, names), [], "problems of the file as it is")
    for old, new, *messages in BROKEN:
        pattern = old if re.search(r"\\|\.\*", old) else re.escape(old)
        changed, times = re.subn(pattern, new if pattern == old else lambda _, new=new: new, text, count=1)
        equal(times, 1, f"places of {old}")
        found = check_inf.check(changed, version, names)
        missing = [message for message in messages if not any(each.startswith(message) for each in found)]
        others = [each for each in found if not each.startswith(("2083", *messages))]
        equal((missing, others), ([], []), f"what is not found, and what is besides, after {old} became {new}")


def content(package, version, historical):
    """What stands in a package's file, section by section."""
    lines = [line.split(";")[0].strip() for line in (package / "orvane.inf").read_text().splitlines()]
    sections, section = {}, None
    for line in filter(None, lines):
        if line.startswith("["):
            section = sections.setdefault(line, [])
        else:
            section.append(re.sub(r"\s*([=,])\s*", r"\1", line))
    model = [rf"%CardName%=Orvane_Device,SCFILTER\CID_{historical}"]
    wanted = {"[Manufacturer]": ["%Company%=Orvane,NTarm64,NTamd64"], "[DestinationDirs]": ["Orvane_Files=11"],
              "[SourceDisksNames]": ["1=%DiskName%"], "[Orvane_Files]": ["OrvaneMinidriver.dll"]}
    for folder in ("arm64", "amd64"):
        device = f"[Orvane_Device.NT{folder}"
        wanted.update({
            f"[Orvane.NT{folder}]": model,
            f"{device}]": ["Include=umpass.inf", "Needs=UmPass", "CopyFiles=Orvane_Files", "AddReg=Orvane_Registry"],
            **{f"{device}.{part}]": ["Include=umpass.inf", f"Needs=UmPass.{part}"]
               for part in ("HW", "Services", "Interfaces")},
            f"[SourceDisksFiles.{folder}]": [f"OrvaneMinidriver.dll=1,{folder}"]})
    equal({name: rows for name, rows in sections.items() if name not in ("[Version]", "[Strings]", "[Orvane_Registry]")},
          wanted, "sections")
    year, month, day = re.search(r"^## [\d.]+ \((\d+)-(\d+)-(\d+)\)$", (package / "CHANGELOG.md").read_text(),
                                 re.MULTILINE).groups()
    equal(sections["[Version]"], [
        'Signature="$Windows NT$"', "Class=SmartCard", "ClassGuid={990A2BD7-E738-46c7-B26F-1CF8FB9F1391}",
        "Provider=%Company%", "CatalogFile=orvane.cat", f"DriverVer={month}/{day}/{year},{version}.0", "PnpLockdown=1"],
        "version")
