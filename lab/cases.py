"""What the test programs of this folder share: comparing, and carrying out cases with a report of the JUnit kind."""

import concurrent.futures
import itertools
import subprocess
import time
import xml.etree.ElementTree as ElementTree

# Many a case waits, for a program that watches a token or for a time limit; with three, another has the processor then.
AT_A_TIME = 3


def equal(actual, expected, what):
    if actual != expected:
        raise AssertionError(f"{what}: expected {expected!r}, got {actual!r}")


def contains(text, part, what):
    if part not in text:
        raise AssertionError(f"{what}: '{part}' is missing in\n{text}")


def carry_out(suite_name, cases, report, last=()):
    """Carries out the cases, functions by name, some at a time, and those named in `last` by themselves when all others are
    done; prints and reports each. Returns how many failed."""
    suite = ElementTree.Element("testsuite", name=suite_name, tests=str(len(cases)))

    def one(name):
        begun, problem = time.monotonic(), None
        try:
            cases[name]()
        except Exception as exception:  # whatever goes wrong is this case's failure
            problem = f"{type(exception).__name__}: {exception}"
        return name, time.monotonic() - begun, problem

    failed = 0
    with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as pool:
        done = pool.map(one, [name for name in cases if name not in last])
        for name, seconds, problem in itertools.chain(done, map(one, last)):
            case = ElementTree.SubElement(suite, "testcase", classname=suite_name, name=name, time=f"{seconds:.1f}")
            print(f"{'FAILED' if problem else 'passed'} {name} ({seconds:.1f} s)", flush=True)
            if problem:
                failed += 1
                print(problem, flush=True)
                ElementTree.SubElement(case, "failure", message=problem)
    ElementTree.ElementTree(suite).write(report, encoding="utf-8", xml_declaration=True)
    return failed


def remove_folder(folder):
    """Removes a folder with what programs in an emulated system wrote into it, which belongs to root."""
    if subprocess.run(["rm", "-rf", folder], check=False, stderr=subprocess.DEVNULL).returncode != 0:
        subprocess.run(["sudo", "-n", "rm", "-rf", folder], check=False)
