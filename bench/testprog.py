"""Measures the test programs beside what people use for the same.

    testprog.py BUILD_DIR [ROUNDS]

What is not installed is left out with a sentence. Figures are medians of so many rounds.
"""

import os
import pathlib
import re
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile

BUILD = pathlib.Path(sys.argv[1]).resolve()
MODEL = str(BUILD / "bench/testprog_model")
ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 3
SCRATCH = tempfile.mkdtemp(prefix="testprog-bench-", dir=BUILD)
MEBIBYTES = 256  # of memory under test
BYTES = MEBIBYTES << 20


def program(name):
    return str(BUILD / "bin" / name)


def run(words, **environment):
    """Runs a command; its output and the processor seconds that it took."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(words, env={"PATH": os.environ["PATH"], "KVX_data": SCRATCH, **environment},
                          cwd=SCRATCH, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", check=False)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    if done.returncode != 0:
        raise RuntimeError(f"{words} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def median(measure):
    return statistics.median(measure() for _ in range(ROUNDS))


def installed(name, package=None):
    if shutil.which(name):
        return True
    print(f"    {name} is not installed (package {package or name}).")
    return False


def show(what, value, unit, base=None, aim=""):
    ratio = f"{value / base:.2f}" if base else ""
    print(f"    {what:44} {value:10.2f} {unit:12} {ratio:>6}  {aim}")


# Memory. What counts is a byte that was written and read back.

def memtest_rate(test, pairs):
    """Bytes for a processor second of what one more pattern adds: so often is each byte of the
    area written and read back with it."""
    words = [program("memtest"), "-size", f"{MEBIBYTES}MB", "-tp", test, "-data"]
    _, one = run([*words, "0x55"])
    _, three = run([*words, "0x55+0xaa+0x33"])
    return 2 * pairs * BYTES / (three - one)


def memtester_rate(mask, pairs):
    """The same for one of its tests, with the test of addresses that always comes first."""
    _, seconds = run(["memtester", f"{MEBIBYTES}M", "1"], MEMTESTER_TEST_MASK=hex(mask))
    return (16 + pairs) * BYTES / seconds


def stressapptest_rate():
    """It copies and checks: what it has completed was read and written once."""
    out, seconds = run(["stressapptest", "-s", "15", "-M", str(MEBIBYTES), "-m", "1"])
    done = re.search(r"Completed: ([0-9.]+)M in", out)
    return float(done.group(1)) * (1 << 20) / 2 / seconds


def memory():
    print(f"\nMemory, {MEBIBYTES} MiB: GB written and read back in a processor second,"
          " and as a part of plain write and verify")
    plain = median(lambda: float(run([MODEL, "plain", str(BYTES)])[0])) / 1e9
    show("plain write and verify, words of 64 bits", plain, "GB/s")
    for test, pairs, aim in (("BMOVE", 5, "at least 0.8"), ("WHOLE", 3, "at least 0.8"),
                             ("IMOVE", 8, "")):
        show(f"memtest {test}", median(lambda t=test, p=pairs: memtest_rate(t, p)) / 1e9, "GB/s",
             plain, aim)
    if installed("memtester"):
        for name, mask, pairs in (("solid bits", 0x100, 64), ("checkerboard", 0x400, 64)):
            show(f"memtester, {name}", median(lambda m=mask, p=pairs: memtester_rate(m, p)) / 1e9,
                 "GB/s", plain)
    if installed("stressapptest"):
        show("stressapptest", median(stressapptest_rate) / 1e9, "GB/s", plain)


def faults():
    print("\nFaults found, of a fixed list of modelled ones")
    for line in run([MODEL, "faults"])[0].splitlines():
        what, found, of = line.split(";")
        print(f"    {what:44} {found:>6} of {of}")


try:
    faults()
    memory()
finally:
    shutil.rmtree(SCRATCH)
