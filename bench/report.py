"""The results as Markdown tables and as JSON, with the machine and the versions."""

import json
import os
import pathlib
import subprocess
from dataclasses import asdict, dataclass

from measure import median_ms


@dataclass
class Fact:
    """A figure that is no time."""

    name: str
    ours: str
    peers: dict
    goal: str | None = None
    reached: bool | None = None


def line_of(*command, contains=""):
    """The first line of a program's output that contains the words."""
    done = subprocess.run([str(w) for w in command], capture_output=True, text=True, check=False)
    lines = [line for line in (done.stdout + done.stderr).splitlines() if contains in line]
    return lines[0].strip() if lines else "unknown"


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":")[1].strip()
    return "unknown"


def huge_pages():
    setting = pathlib.Path("/sys/kernel/mm/transparent_hugepage/enabled")
    return setting.read_text().split("[")[1].split("]")[0] if setting.exists() else "none"


def environment(programs, convert, load):
    worker = subprocess.run([programs / "bench-worker", "versions"], capture_output=True, text=True, check=True)
    magick = line_of(convert, "-version").split()
    pillow = line_of("/usr/bin/python3", "-c", "import PIL; print('Pillow', PIL.__version__)")
    return {
        "processor": processor(),
        "cores": os.cpu_count(),
        "huge pages": huge_pages(),
        "kernel": os.uname().release.split("-")[0],
        "load": load,
        "versions": [line_of(programs / "peximage", "--version"), " ".join(magick[1:3]), pillow,
                     *worker.stdout.splitlines(), line_of("gcc", "--version")],
    }


def goal_text(goal):
    if goal is None:
        return ""
    return f"≤ 1/{1 / goal:.3g}" if goal < 0.5 else f"≤ {goal:.3g}"


def verdict(reached):
    return "" if reached is None else "yes" if reached else "**no**"


def ratio_text(ratio):
    """As people say it: our time in the peer's, or one so-manyth of it."""
    return f"1/{1 / ratio:.1f}" if ratio < 0.5 else f"{ratio:.2f}"


def markdown(head, rows):
    """Padded, so that it reads as plain text too."""
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    lines = [head, ["-" * width for width in widths], *rows]
    return "\n".join("| " + " | ".join(cell.ljust(w) for cell, w in zip(line, widths)) + " |" for line in lines)


def comparison_row(comparison):
    ratios = comparison.ratios()
    spread = f"{ratio_text(min(ratios))} – {ratio_text(max(ratios))}"
    return [comparison.job, f"{median_ms(comparison.ours):.1f} ms", comparison.peer,
            f"{median_ms(comparison.theirs):.1f} ms", ratio_text(comparison.ratio()), spread,
            ratio_text(comparison.cpu_ratio()), goal_text(comparison.goal), verdict(comparison.reached())]


def fact_row(fact):
    peers = ", ".join(f"{name} {value}" for name, value in fact.peers.items())
    return [fact.name, fact.ours, peers, fact.goal or "", verdict(fact.reached)]


def environment_text(where):
    busy = "; other work disturbed these times" if where["load"] > 1 else ""
    return "\n".join([
        f"{where['processor']}, {where['cores']} cores, huge pages: {where['huge pages']}, Linux {where['kernel']}, "
        f"load {where['load']:.1f} before the start{busy}  ",
        "; ".join(where["versions"]),
        "",
        "Ratios are ours over the peer's: medians over pairs of runs in turns, by the clock, and in processor time",
        "(all threads together), which other work on the machine disturbs less.",
    ])


def table_text(comparisons, facts, where):
    parts = ["", environment_text(where), "",
             markdown(["job", "ours", "peer", "peer's", "ratio", "min – max", "processor time", "goal", "reached"],
                      [comparison_row(c) for c in comparisons])]
    if facts:
        parts += ["", markdown(["figure", "ours", "peers", "goal", "reached"], [fact_row(f) for f in facts])]
    return "\n".join(parts)


def page(tables):
    """The tables as a page of the documentation, with how they were measured."""
    method = (pathlib.Path(__file__).parent / "method.md").read_text(encoding="utf-8")
    return "\n".join(["# Benchmarks", "", "Written by `scripts/run-bench build/bench --publish`, from one run. "
                      "[performance.md](performance.md) tells what to make of it.", "",
                      "![The peers' times over ours](images/bench.svg)", tables, "", method])


def comparison_record(comparison):
    ratios = comparison.ratios()
    return {
        "job": comparison.job, "peer": comparison.peer,
        "oursMs": [s.milliseconds for s in comparison.ours], "peerMs": [s.milliseconds for s in comparison.theirs],
        "oursCpuMs": [s.cpu_milliseconds for s in comparison.ours],
        "peerCpuMs": [s.cpu_milliseconds for s in comparison.theirs], "cpuRatio": comparison.cpu_ratio(),
        "ratio": {"median": comparison.ratio(), "min": min(ratios), "max": max(ratios)},
        "goal": comparison.goal, "reached": comparison.reached(),
    }


def json_text(comparisons, facts, where):
    record = {"environment": where, "comparisons": [comparison_record(c) for c in comparisons],
              "facts": [asdict(fact) for fact in facts]}
    return json.dumps(record, indent=2, ensure_ascii=False) + "\n"
