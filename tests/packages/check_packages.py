#!/usr/bin/env python3
"""What the packages hold beside the product: symbols, signatures, the bill of materials. Nothing is installed here.

    tests/packages/check_packages.py PACKAGES REPORT.xml [CASE...]     PACKAGES: the folder that scripts/package filled

Needs both architectures built, and Debian's osslsigncode, gcab, cabextract, llvm, openssl, softhsm2, libengine-pkcs11-openssl
and python3-jsonschema. Names of cases after the report carry out these alone.
"""

import pathlib
import sys
import tempfile

sys.dont_write_bytecode = True  # the tree stays as it is
REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
for folder in ("lab", "scripts/lib", "tests/binary"):
    sys.path.insert(0, str(REPOSITORY / folder))
from bill_cases import BillCases  # noqa: E402
from cases import carry_out  # noqa: E402
from signature_cases import SignatureCases  # noqa: E402
from symbol_cases import SymbolCases  # noqa: E402


def main():
    packages, report, *wanted = sys.argv[1:]
    packages = pathlib.Path(packages).resolve()
    with tempfile.TemporaryDirectory(prefix="orvane-check-packages.") as folder:
        cases = {}
        for subject in (SymbolCases, SignatureCases, BillCases):
            own = pathlib.Path(folder, subject.__name__)
            own.mkdir()
            cases.update(subject(packages, own).cases())
        if unknown := set(wanted) - set(cases):
            sys.exit(f"no cases {', '.join(sorted(unknown))}")
        return 1 if carry_out("Packages", {name: cases[name] for name in wanted or cases}, report) else 0


if __name__ == "__main__":
    sys.exit(main())
