"""Timing two ways of doing the same job in turns: A B A B …"""

import os
import statistics
import subprocess
import time
from dataclasses import dataclass, field


@dataclass
class Sample:
    """One run: how long it took, and what else is known of it."""

    milliseconds: float
    cpu_milliseconds: float  # of all threads together
    bytes: int = 0
    peak_kilobytes: int = 0


@dataclass
class Comparison:
    """The runs of a job by us and by a peer, one pair after the other."""

    job: str
    peer: str
    goal: float | None  # the ratio ours / peer that is to be reached
    ours: list[Sample] = field(default_factory=list)
    theirs: list[Sample] = field(default_factory=list)

    def ratios(self):
        return [a.milliseconds / b.milliseconds for a, b in zip(self.ours, self.theirs)]

    def ratio(self):
        return statistics.median(self.ratios())

    def cpu_ratio(self):
        """Of processor time, which hardly changes while other programs keep the machine busy."""
        return statistics.median(a.cpu_milliseconds / b.cpu_milliseconds for a, b in zip(self.ours, self.theirs))

    def reached(self):
        return None if self.goal is None else self.ratio() <= self.goal


def median_ms(samples):
    return statistics.median(sample.milliseconds for sample in samples)


def peak_megabytes(samples):
    """In units of 1,000,000 bytes; the median, as runs differ by a thread's stack."""
    return statistics.median(sample.peak_kilobytes for sample in samples) * 1024 / 1e6


def compare(job, peer, run_ours, run_theirs, goal=None, rounds=9):
    """Runs both once to warm up and then in turns; each run gives a Sample."""
    comparison = Comparison(job, peer, goal)
    run_ours(), run_theirs()
    for _ in range(rounds):
        comparison.ours.append(run_ours())
        comparison.theirs.append(run_theirs())
    return comparison


def process(*command):
    """A way to run a whole process, from its start until it was waited for."""
    words = [str(word) for word in command]

    def run():
        begin = time.perf_counter()
        silent = [(os.POSIX_SPAWN_OPEN, stream, os.devnull, os.O_WRONLY, 0) for stream in (1, 2)]
        child = os.posix_spawnp(words[0], words, os.environ, file_actions=silent)
        _, status, usage = os.wait4(child, 0)
        milliseconds = (time.perf_counter() - begin) * 1000
        if status != 0:
            raise RuntimeError(f"{' '.join(words)}: status {os.waitstatus_to_exitcode(status)}")
        cpu = (usage.ru_utime + usage.ru_stime) * 1000
        return Sample(milliseconds, cpu, peak_kilobytes=usage.ru_maxrss)

    return run


class Worker:
    """A process that does jobs inside itself when asked, and times them itself."""

    def __init__(self, *command):
        self.command = [str(word) for word in command]
        # Huge pages for everybody's memory, not only for what the library allocates.
        pages = {"GLIBC_TUNABLES": "glibc.malloc.hugetlb=1"}
        self.child = subprocess.Popen(self.command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                      env=os.environ | pages)

    def job(self, name, threads=1, times=1):
        """A way to run a job. Short ones are better run several `times` in a row, after one that does not count: a
        mean of those, as memory, caches and cores are then as awake as they are amid other work."""
        def run():
            self.child.stdin.write(f"{name} {threads} {times}\n")
            self.child.stdin.flush()
            answer = self.child.stdout.readline().split()
            if len(answer) != 3:
                raise RuntimeError(f"{self.command[0]}: no answer to {name}")
            return Sample(float(answer[0]), float(answer[1]), int(answer[2]))

        return run

    def close(self):
        self.child.stdin.close()
        self.child.wait()
