"""The cabinet with which the driver package is handed in to Microsoft's hardware programme."""

import calendar
import os
import pathlib
import subprocess
import tempfile

# Nothing may lie at the top of the cabinet: each driver package has a folder. This one is a single package for both
# architectures, since its setup information file names both. The programme wants the symbols and makes the catalogue itself.
FOLDER = "OrvaneMinidriver"


def cabinet(packages, symbols, folders, date):
    """The bytes of the cabinet. `packages` and `symbols` hold the files by name for each architecture, `folders` the name of
    an architecture's folder in the package; all files get the date (year, month, day)."""
    files = {}
    for arch, folder in folders.items():
        for name in ("orvane.inf", f"{folder}/OrvaneMinidriver.dll"):
            files[name] = packages[arch][name]
        files[f"{folder}/OrvaneMinidriver.pdb"] = symbols[arch]["OrvaneMinidriver.pdb"]
    # gcab takes a file's time, which a cabinet has as local time.
    environment = {**os.environ, "TZ": "UTC"}
    moment = calendar.timegm((*map(int, date), 0, 0, 0))
    with tempfile.TemporaryDirectory() as top:
        for name, data in files.items():
            path = pathlib.Path(top, FOLDER, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)
            path.chmod(0o644)
            os.utime(path, (moment, moment))
        subprocess.run(["gcab", "--create", "--zip", "submission.cab", *(f"{FOLDER}/{name}" for name in sorted(files))],
                       cwd=top, env=environment, check=True, stdout=subprocess.DEVNULL)
        return pathlib.Path(top, "submission.cab").read_bytes()
