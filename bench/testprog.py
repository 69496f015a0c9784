"""Measures the test programs beside what people use for the same.

    testprog.py BUILD_DIR [ROUNDS]

What is not installed is left out with a sentence. Figures are medians of so many rounds.
"""

import contextlib
import json
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

BUILD = pathlib.Path(sys.argv[1]).resolve()
MODEL = str(BUILD / "bench/testprog_model")
ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 3
SCRATCH = tempfile.mkdtemp(prefix="testprog-bench-", dir=BUILD)
MEBIBYTES = 256  # of memory under test
BYTES = MEBIBYTES << 20
IMAGE = 1 << 30
FOREGROUND = 2  # seconds


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


def installed(name, package=None):
    if shutil.which(name):
        return True
    print(f"    {name} is not installed (package {package or name}).")
    return False


def show(what, value, unit, ratio=None, aim=""):
    shown = f"{ratio:.2f}" if ratio else ""
    print(f"    {what:44} {value:10.2f} {unit:12} {shown:>6}  {aim}", flush=True)


def show_beside_first(measures, rounds, unit):
    """Takes the measures in turn, so often, and shows the median of each and of its ratio to the
    first one's, round by round: what else the machine does moves that less."""
    rates = [[measure() for _, measure, _ in measures] for _ in range(rounds)]
    for i, (what, _, aim) in enumerate(measures):
        ratio = statistics.median(rate[i] / rate[0] for rate in rates)
        show(what, statistics.median(rate[i] for rate in rates), unit, ratio if i else None, aim)


# Memory. What counts is a byte that was written and read back.

def memtest_rate(test, pairs):
    """Bytes for a processor second of what eight more patterns add: so often (`pairs`) is each
    byte of the area written and read back with each. What comes with any number of them, the walking
    bits of WHOLE above all, must not outweigh that."""
    words = [program("memtest"), "-size", f"{MEBIBYTES}MB", "-tp", test, "-data"]
    _, one = run([*words, "0x55"])
    _, nine = run([*words, "+".join(["0x55", "0xaa", "0x33"] * 3)])
    return 8 * pairs * BYTES / (nine - one)


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
          " and as a part of plain write and verify", flush=True)
    measures = [("plain write and verify, words of 64 bits",
                 lambda: float(run([MODEL, "plain", str(BYTES)])[0]) / 1e9, "")]
    for test, pairs, aim in (("BMOVE", 5, "at least 0.8"), ("WHOLE", 3, "at least 0.8"),
                             ("IMOVE", 8, "")):
        measures.append((f"memtest {test}",
                         lambda t=test, p=pairs: memtest_rate(t, p) / 1e9, aim))
    if installed("memtester"):
        for name, mask, pairs in (("solid bits", 0x100, 64), ("checkerboard", 0x400, 64)):
            measures.append((f"memtester, {name}",
                             lambda m=mask, p=pairs: memtester_rate(m, p) / 1e9, ""))
    if installed("stressapptest"):
        measures.append(("stressapptest", lambda: stressapptest_rate() / 1e9, ""))
    show_beside_first(measures, ROUNDS, "GB/s")


# Disks, shown by images on the disk that the build folder lies on.

def image(name):
    path = f"{SCRATCH}/{name}"
    run(["dd", "if=/dev/urandom", f"of={path}", "bs=1M", f"count={IMAGE >> 20}", "conv=fsync"])
    return path


def hddtest(path, *words):
    environment = {"HDDTEST_IMAGES": f"/dev/bench={path}"}
    return [program("hddtest"), "-dev", "/dev/bench", *words], environment


def read_rate(words, environment):
    start = time.monotonic()
    run(words, **environment)
    return IMAGE / (time.monotonic() - start) / 1e6


def random_reads(path):
    """How many a second the foreground has done, one at a time and past the page cache."""
    out, _ = run(["fio", "--name=foreground", f"--filename={path}", "--readonly", "--rw=randread",
                  "--bs=4k", "--direct=1", "--time_based", f"--runtime={FOREGROUND}",
                  "--output-format=json"])
    return json.loads(out[out.index("{"):])["jobs"][0]["read"]["iops"]


@contextlib.contextmanager
def beside(words, environment):
    """Runs a command in the background, again and again; it gets some time to come into stride."""
    loop = f"while {shlex.join(words)}; do :; done"
    other = subprocess.Popen(["sh", "-c", loop], env={"PATH": os.environ["PATH"], **environment},
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                             start_new_session=True)
    try:
        time.sleep(0.5)
        yield
    finally:
        os.killpg(other.pid, signal.SIGTERM)
        other.wait()


def share_beside(path, words, environment):
    """The foreground's rate beside a command as a part of the rates before and after it."""
    before = random_reads(path)
    with beside(words, environment):
        rate = random_reads(path)
    return 2 * rate / (before + random_reads(path))


def disks():
    print(f"\nDisks, an image of {IMAGE >> 20} MiB: MB read a second, and as a part of dd's")
    path = image("disk")
    plain = ["dd", f"if={path}", "of=/dev/null", "bs=1M", "iflag=direct"]
    words, environment = hddtest(path, "-lv", "3")
    show_beside_first([("dd bs=1M iflag=direct", lambda: read_rate(plain, {}), ""),
                       ("hddtest sector", lambda: read_rate(words, environment), "at least 0.9")],
                      3 * ROUNDS, "MB/s")
    if not installed("fio"):
        return
    print("\nRate of random reads of 4 KiB (fio), beside another command and alone;"
          f" the median of {5 * ROUNDS} rounds")
    foreground = image("foreground")
    endless = ["/runtime", "600"]
    for what, (words, environment), aim in (
            ("hddtest sector", hddtest(path, "-budget", "600", *endless), "at least 0.9"),
            ("hddtest iorandom", hddtest(path, "-tp", "iorandom", "-sc", "0x80", *endless),
             "at least 0.9"),
            ("dd bs=1M iflag=direct", (plain, {}), "")):
        shares = [share_beside(foreground, words, environment) for _ in range(5 * ROUNDS)]
        show(what, statistics.median(shares), "of its rate", aim=aim)


def faults():
    print("\nFaults found, of a fixed list of modelled ones")
    for line in run([MODEL, "faults"])[0].splitlines():
        what, found, of = line.split(";")
        print(f"    {what:44} {found:>6} of {of}")


try:
    faults()
    memory()
    disks()
finally:
    shutil.rmtree(SCRATCH)
