"""Measures the controller against the least that would do the same work.

    bench.py BUILD_DIR CSV-FILE [SECONDS]

In every round each run of the controller stands next to the run that it is measured against, and
the ratio is taken within the round. The rounds go on for so many seconds, three at least.
"""

import csv
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

BUILD = pathlib.Path(sys.argv[1]).resolve()
PATROL = str(BUILD / "patrol.exe")
PATROLCTL = str(BUILD / "patrolctl/patrolctl")
BASELINE = str(BUILD / "bench/baseline")
ANSWER = BUILD / "bench/answer"
SECONDS = float(sys.argv[3]) if len(sys.argv) > 3 else 45
LEAST_ROUNDS = 3
SCRATCH = pathlib.Path(tempfile.mkdtemp(prefix="bench-", dir=BUILD))
DISK = """<dev type="disk" phypath="/SCSI{0} /dev/sd{0:04}">
<attr name="type">HDD</attr>
<attr name="S/N">SN{0:06}</attr>
<attr name="vendor">V</attr>
<attr name="model">M</attr>
<attr name="status">ok</attr>
</dev>
"""


class Agent:
    """An agent with so many disks and no other component, in a directory of its own."""

    def __init__(self, disks, flags=("hdd_next_go=OFF", "hdd_next_go=ON")):
        """In every run the Schedule file has the second of `flags` wherever it had the first."""
        self.root = pathlib.Path(tempfile.mkdtemp(dir=SCRATCH))
        self.data, self.log, binaries = (self.root / name for name in ("data", "log", "bin"))
        for directory in (self.data, self.log, binaries):
            directory.mkdir()
        self.trace = self.log / "pat_trc_log"
        self.program = binaries / "hddtest"
        for name in ("get", "hddtest"):
            (binaries / name).symlink_to(ANSWER)
        self.environment = {"KVX_data": str(self.data), "KVX_log": str(self.log),
                            "KVX_bin": str(binaries), "KVX_PIPE": str(self.root / "none"),
                            "PATH": "/usr/bin:/bin"}
        (self.data / "pat_msge.txt").write_text('"E3895","System call error";\n')
        (self.data / "padiag.ini").write_text("")
        (self.data / "pat_env0.ini").write_text(
            "[CPUDIAG_EXE]\nOFF\n[MEMDIAG_EXE]\nOFF\n[HDDDIAG_EXE]\nON\n")
        (self.data / "devconf_new.xml").write_text("".join(DISK.format(i) for i in range(disks)))
        self.schedule_path = self.data / "pat_new_sche.txt"
        self.schedule = None
        self.run([PATROL, "reload"])
        self.schedule = self.schedule_path.read_text().replace(*flags)

    def refresh(self):
        """Puts the files back to what every run starts from."""
        for path in self.log.iterdir():
            path.unlink()
        if self.schedule is not None:
            self.schedule_path.write_text(self.schedule)

    def run(self, words, times=1):
        """Seconds on the clock and of processors (with all children) that a run takes."""
        clock = processors = 0
        for _ in range(times):
            self.refresh()
            start = time.perf_counter()
            pid = os.posix_spawn(words[0], words, self.environment, setsigdef=[signal.SIGPIPE],
                                 file_actions=[(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_RDWR, 0)])
            _, status, used = os.wait4(pid, 0)
            clock += time.perf_counter() - start
            processors += used.ru_utime + used.ru_stime
            if status != 0:
                raise RuntimeError(f"{words} failed")
        return clock / times, processors / times

    def peak(self, words):
        self.refresh()
        output = subprocess.check_output([BASELINE, "peak", *words], env=self.environment)
        return int(output), None

    def count_lines(self):
        """Bytes of the trace, and lines by who writes them: children, launches, waits."""
        counts = [0, 0, 0, 0]
        controller, waiting = None, False
        for path in sorted(self.log.glob("pat_trc_log*"), reverse=True):
            counts[0] += path.stat().st_size
            for line in path.read_text().splitlines():
                if "):[" not in line:  # the rest of a text with a line feed in it
                    continue
                writer = line.split()[2]
                controller = controller or writer
                waiting = waiting or "[WaitHddTest] Start." in line
                counts[1 if writer != controller else 3 if waiting else 2] += 1
        return counts


class AskedAgent(Agent):
    """An agent that is asked about, with so many disks and, of each, twenty results."""

    def __init__(self, disks):
        super().__init__(disks)
        lines = [f"{time.strftime('%Y/%m/%d %H:%M:%S', time.gmtime(1.7e9 + 60 * i))} OK      "
                 f"hddtest /dev/sd{i % disks:04} [10s]\n" for i in range(20 * disks)]
        (self.log / "patstat0.txt").write_text("".join(lines))

    def refresh(self):
        """Asking changes nothing."""


def relaying_agent(records):
    """An agent with one disk, whose test program sends so many log records."""
    def record(kind, body):
        content = f"0x{kind:02x},0x01,{'hddtest':16},{'/dev/sda':16},\n{body}\n"
        return f"ONLPTL,0x{len(content):08x},{content}"

    agent = Agent(1)
    log = record(1, "0x01,00000,26/01/02 03:04:05 678.901,one more block was read")
    (agent.data / "stream").write_text(log * records + record(2, "0x01,0x00,0x00000000,"))
    agent.program.unlink()
    agent.program.write_text("#!/bin/sh\nexec cat $KVX_data/stream\n")
    agent.program.chmod(0o755)
    return agent


def lines_of(word, make_agent, size):
    """count_lines of a large run. The trace keeps its end alone: worked out from two small runs."""
    def counted(small_size):
        agent = make_agent(small_size)
        agent.run([PATROL, word])
        return agent.count_lines()

    few, more = 2, 12
    return [a + (b - a) * (size - few) // (more - few)
            for a, b in zip(counted(few), counted(more))]


def baseline(mode, agent, lines):
    return [BASELINE, mode, str(agent.trace), str(lines[0] // sum(lines[1:]))]


class Row:
    def __init__(self, what, against, measure, compare, unit="ms", scale=1e3, aim=None):
        """`measure` and `compare` give an amount and seconds of processors; with the unit
        "1000/s" the amount is the time for `scale` thousand things."""
        self.what, self.against, self.measure, self.compare = what, against, measure, compare
        self.unit, self.scale, self.aim, self.rounds = unit, scale, aim, []

    def take_round(self):
        self.rounds.append((self.measure(), self.compare()))

    def shown(self, amount):
        return self.scale / amount if self.unit == "1000/s" else self.scale * amount

    def values(self):
        amounts = [[self.shown(cost[0]) for cost in costs] for costs in zip(*self.rounds)]
        ratios = [a / b for a, b in zip(*amounts)]
        processors = [m[1] / c[1] for m, c in self.rounds if c[1]]
        aim = f"at {'least' if self.unit == '1000/s' else 'most'} {self.aim}" if self.aim else ""
        numbers = [*map(statistics.median, amounts), statistics.median(ratios), min(ratios),
                   max(ratios)]
        return [self.what, self.against, self.unit, *(f"{number:.2f}" for number in numbers),
                f"{statistics.median(processors):.2f}" if processors else "", aim]


def pass_row(disks, aim=None):
    agent = Agent(disks)
    lines = lines_of("start", Agent, disks)
    loop = [*baseline("loop", agent, lines), str(disks), str(lines[1] // disks), str(lines[2]),
            str(lines[3]), str(agent.program)]
    return Row(f"pass over {disks} disk{'s' if disks > 1 else ''}",
               "forking, executing, draining and waiting for the same programs and appending as "
               "many trace lines", lambda: agent.run([PATROL, "start"]), lambda: agent.run(loop),
               aim=aim)


def per_disk_row(many, many_disks, few, few_disks, aim):
    row = Row(f"cost of a disk in a pass over {many_disks}",
              f"cost of a disk in a pass over {few_disks}", None, None, aim=aim)
    row.rounds = [([x / many_disks for x in a[0]], [x / few_disks for x in b[0]])
                  for a, b in zip(many.rounds, few.rounds)]
    return row


def relay_row(records, aim):
    agent = relaying_agent(records)
    lines = lines_of("start", relaying_agent, records)
    loop = [*baseline("loop", agent, lines), "1", *map(str, lines[1:]), "/bin/cat",
            str(agent.data / "stream")]
    return Row("log records relayed by a pass", "cat of the same stream, then as many trace lines",
               lambda: agent.run([PATROL, "start"]), lambda: agent.run(loop), "1000/s",
               records / 1e3, aim)


def start_up_row(what, word):
    agent = Agent(1, ("=ON", "=OFF"))
    return Row(what, "/bin/true", lambda: agent.run([PATROL, word], 20),
               lambda: agent.run(["/bin/true"], 20))


def asking_rows():
    small, few, many = AskedAgent(1), AskedAgent(100), AskedAgent(800)
    yield Row("patrolctl --version", "/bin/true", lambda: small.run([PATROLCTL, "--version"], 20),
              lambda: small.run(["/bin/true"], 20), aim=1.5)
    for word in ("status", "history", "metrics"):
        yield Row(f"patrolctl {word}, 800 disks",
                  "the same with 100 disks, and as many results of each",
                  lambda word=word: many.run([PATROLCTL, word]),
                  lambda word=word: few.run([PATROLCTL, word], 3), aim=10)


def memory_row(disks, mebibytes):
    agent = Agent(disks)
    return Row(f"peak memory of a pass over {disks} disks", "what it may have",
               lambda: agent.peak([PATROL, "start"]), lambda: (mebibytes << 20, None), "MiB",
               1 / (1 << 20), 1)


def schedule_row(word, disks, files):
    agent = Agent(disks)
    lines = lines_of(word, Agent, disks)
    least = [*baseline("files", agent, lines), str(lines[2]), str(agent.data / "devconf_new.xml"),
             *(str(agent.data / name) for name in files)]
    return Row(f"{word} with {disks} disks", "reading the configuration, replacing every file that "
               "results, synced, and appending as many trace lines", lambda: agent.run([PATROL, word]),
               lambda: agent.run(least))


def main():
    one, few, some, many = pass_row(1), pass_row(16), pass_row(128, 1.3), pass_row(1000)
    schedule_files = ["pat_new_sche.txt.old", "pat_new_sche.txt"]
    others = [relay_row(20000, 0.7), start_up_row("version", "version"),
              start_up_row("start with nothing due", "start"), memory_row(128, 6),
              schedule_row("reload", 1000, [*schedule_files, "pat_sche2.txt"]),
              schedule_row("confchg", 1000, schedule_files)]
    others += asking_rows()
    begin = time.monotonic()
    while len(one.rounds) < LEAST_ROUNDS or time.monotonic() - begin < SECONDS:
        for row in [one, few, some, many, *others]:
            row.take_round()
    rows = [one, few, some, many, per_disk_row(many, 1000, few, 16, 1.5), *others]

    with open(sys.argv[2], "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        writer.writerow(["what", "against", "unit", "measured", "baseline", "ratio", "lowest ratio",
                         "highest ratio", "ratio of processor time", "aim"])
        writer.writerows(row.values() for row in rows)
    print(f"{'':37} {'measured':>9} {'baseline':>9} {'':6} {'ratio':>6} {'(spread)':13} "
          f"{'processors':11} aim")
    for row in rows:
        what, against, unit, measured, compared, ratio, low, high, processors, aim = row.values()
        print(f"{what:37} {measured:>9} {compared:>9} {unit:6} {ratio:>6} {f'({low}-{high})':13} "
              f"{processors:11} {aim}\n    against {against}")
    print(f"Medians of {len(one.rounds)} rounds; \"processors\" is the ratio of processor time.")


try:
    main()
finally:
    shutil.rmtree(SCRATCH)
