#!/usr/bin/env python3
"""Measures the Python package beside other libraries of Python, in turns within one process.

    bench/python_bench.py PHOTO.jpg [--publish]
    bench/python_bench.py PHOTO.jpg --ray            # 1,000 photos on a Ray cluster of this machine

Prints the tables; --publish writes docs/benchmarks-python.md (or its part about Ray). `make bench-python` does both.
"""

import argparse
import io
import os
import pathlib
import statistics
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import peximage as pex
from measure import Sample, compare
from PIL import Image
from python_peers import OpenCV, PexImage, Pillow, PyVips
from report import Fact, comparison_row, fact_row, markdown, processor
from ssimulacra2 import compute_ssimulacra2

PAGE = pathlib.Path(__file__).resolve().parent.parent / "docs" / "benchmarks-python.md"
SIDE, BUDGET = 2000, 300_000


def timed(work, times=1):
    """A way to run the work so many times; a Sample is the mean."""

    def run():
        begin, cpu_begin = time.perf_counter(), time.process_time()
        for _ in range(times):
            result = work()
        wall, cpu = time.perf_counter() - begin, time.process_time() - cpu_begin
        return Sample(wall * 1000 / times, cpu * 1000 / times, len(result) if isinstance(result, bytes) else 0)

    return run


def comparisons(path):
    """Each job of ours beside each peer that has it; goals are those of Pillow and pyvips."""
    data = path.read_bytes()
    array = np.ascontiguousarray(np.asarray(pex.open(data)))
    jobs = [
        ("bytes to 2000 px, 300 KB", lambda of: lambda: of.shrink(data, SIDE, BUDGET), 1, {Pillow: 1 / 5, PyVips: 1 / 3}),
        ("thumbnail of 256 px", lambda of: lambda: of.thumbnail(data, 256), 2, {Pillow: 1 / 3, PyVips: 1 / 2}),
        ("size of a file", lambda of: lambda: of.size(str(path)), 200, {}),
        ("array to picture and back", lambda of: lambda: of.round_trip(array), 2, {}),
        ("array to 2000 px, array", lambda of: lambda: of.reduce(array, SIDE), 2, {}),
    ]
    ours = PexImage()
    for name, job, times, goals in jobs:
        for peer in (Pillow, PyVips, OpenCV):
            try:
                job(peer())()
            except AttributeError:  # it has no such job
                continue
            peers_job = timed(job(peer()), times)
            yield compare(name, peer.name, timed(job(ours), times), peers_job, goals.get(peer))


def looks(data):
    """SSIMULACRA2 of each library's 300 KB beside the photo reduced by a Lanczos filter from all of its pixels."""
    photo = Image.open(io.BytesIO(data))
    photo.load()
    with tempfile.TemporaryDirectory() as folder:
        reference, file = f"{folder}/reference.png", f"{folder}/file.png"
        photo.resize((SIDE, photo.height * SIDE // photo.width), Image.Resampling.LANCZOS).save(reference)

        def score(library):
            Image.open(io.BytesIO(library.shrink(data, SIDE, BUDGET))).save(file)
            return compute_ssimulacra2(reference, file)

        ours, peers = score(PexImage()), {library.name: score(library()) for library in (Pillow, PyVips, OpenCV)}
    reached = all(ours >= peer for peer in peers.values())
    return Fact("2000 px, 300 KB: SSIMULACRA2", f"{ours:.1f}", {name: f"{peer:.1f}" for name, peer in peers.items()},
                "no lower", reached)


def microseconds(work):
    """The least of several means: what else the machine does only adds to it."""
    return min(timed(work, 2000)().milliseconds * 1000 for _ in range(5))


def cost_of_calls():
    """Calls for which the library has nothing to do, on small pictures and on those whose calls can be interrupted."""
    small, large = (pex.from_array(np.zeros((side, side, 4), np.uint8)) for side in (16, 2000))
    pixels = np.zeros((16, 16, 4), np.uint8)
    for name, work in [
        ("a call: turn(360) of a small picture", lambda: small.turn(360)),
        ("a call: crop of a small picture", lambda: small.crop((0, 0, 8, 8))),
        ("a call: array to picture and back", lambda: np.asarray(pex.from_array(pixels))),
        ("a call that Ctrl-C can interrupt: turn(360) of 4 MP", lambda: large.turn(360)),
    ]:
        took = microseconds(work)
        yield Fact(f"{name}, µs", f"{took:.1f}", {}, "below 20", took < 20)


def scaling(data):
    """Photos a second that one and two threads of Python shrink, each on one core."""

    def rate(count):
        begin = time.perf_counter()
        with ThreadPoolExecutor(count) as threads:
            list(threads.map(lambda _: pex.shrink(data, max_side=SIDE, max_bytes=BUDGET), range(24)))
        return 24 / (time.perf_counter() - begin)

    pex.set_threads(1)
    one, two = (statistics.median(rate(count) for _ in range(3)) for count in (1, 2))
    pex.set_threads(0)
    return Fact("2000 px, 300 KB in two threads of Python: photos a second", f"{two:.1f}", {"one thread": f"{one:.1f}"})


class PillowShrinking:
    """What peximage.batch.Shrinking does, by Pillow."""

    def __init__(self, to, max_side, max_bytes):
        self.to, self.max_side, self.max_bytes = to, max_side, max_bytes

    def __call__(self, path):
        small = Pillow().shrink(pathlib.Path(path).read_bytes(), self.max_side, self.max_bytes)
        pathlib.Path(self.to, os.path.basename(path)).write_bytes(small)
        return {"path": path, "status": "written"}


def photos(path, folder, count):
    """Photos of 3 megapixels that differ as files do, behind the end of their picture."""
    data = pex.open(path).resize(max_side=2000).encode(quality=0.9).data
    names = [os.path.join(folder, f"{i}.jpg") for i in range(count)]
    for i, name in enumerate(names):
        pathlib.Path(name).write_bytes(data + b"%d" % i)
    return names


def plain_seconds(job, names):
    pex.set_threads(1)
    begin = time.perf_counter()
    for name in names:
        job(name)
    pex.set_threads(0)
    return time.perf_counter() - begin


def ray_seconds(job, names, workers):
    import peximage.ray
    import ray

    ray.init(num_cpus=workers, include_dashboard=False, log_to_driver=False, logging_level="error")
    ray.data.DataContext.get_current().enable_progress_bars = False
    warm = [name for name in names[: 32 * workers]]
    peximage.ray.run(lambda name: {"path": name}, warm).take_all()  # the processes are there
    begin = time.perf_counter()
    rows = peximage.ray.run(job, names).take_all()
    took = time.perf_counter() - begin
    ray.shutdown()
    assert all(row["status"] == "written" for row in rows) and len(rows) == len(names)
    return took


def ray_facts(path, count):
    from peximage.batch import Shrinking

    with tempfile.TemporaryDirectory() as folder:
        names = photos(path, folder, count)

        def job(kind):
            return kind(to=tempfile.mkdtemp(dir=folder), max_side=1000, max_bytes=100_000)

        def text(seconds):
            return f"{count / seconds:.1f}"

        plain = plain_seconds(job(Shrinking), names)
        yield Fact(f"{count} photos of 3 MP to 1000 px, 100 KB, plain process, one thread: photos a second", text(plain),
                   {Pillow.name: text(plain_seconds(job(PillowShrinking), names))})
        for workers in (1, 2):
            ours, theirs = (ray_seconds(job(kind), names, workers) for kind in (Shrinking, PillowShrinking))
            share = plain / ours
            yield Fact(f"the same under Ray, {workers} worker{'s' * (workers > 1)}", f"{text(ours)} ({share:.0%} of plain)",
                       {Pillow.name: text(theirs)}, "90 % of plain" if workers == 1 else None,
                       share >= 0.9 if workers == 1 else None)


def facts_table(facts):
    return markdown(["figure", "ours", "peers", "goal", "reached"], [fact_row(fact) for fact in facts])


def pictures_text(path):
    load = os.getloadavg()[0]
    busy = "; other work disturbed these times" if load > 1 else ""
    head = ["job", "ours", "peer", "peer's", "ratio", "min – max", "processor time", "goal", "reached"]
    rows = [comparison_row(comparison) for comparison in comparisons(path)]
    data = path.read_bytes()
    facts = [looks(data), *cost_of_calls(), scaling(data)]
    where = f"{processor()}, {os.cpu_count()} cores, load {load:.1f} before the start{busy}; " + "; ".join(
        [PexImage.name, *(peer.name for peer in (Pillow, PyVips, OpenCV)), f"Python {sys.version.split()[0]}"])
    return "\n".join([where, "", markdown(head, rows), "", facts_table(facts)])


def publish(heading, text):
    """Replaces what stands below a heading of the page, up to the next one."""
    before, _, rest = PAGE.read_text().partition(f"## {heading}\n")
    _, mark, after = rest.partition("\n## ")
    PAGE.write_text(f"{before}## {heading}\n\n{text}\n{mark}{after}")


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("photo", type=pathlib.Path)
    arguments.add_argument("--ray", action="store_true")
    arguments.add_argument("--photos", type=int, default=1000)
    arguments.add_argument("--publish", action="store_true")
    given = arguments.parse_args()
    text = facts_table(ray_facts(given.photo, given.photos)) if given.ray else pictures_text(given.photo)
    print(text)
    if given.publish:
        publish("On a cluster" if given.ray else "In one process", text)


if __name__ == "__main__":
    main()
