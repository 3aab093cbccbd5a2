#!/usr/bin/env python3
"""Pillow's part of the benchmarks, spoken to like bench-worker.

    pillow_worker.py serve FOLDER                    answers requests on standard input
    pillow_worker.py resize IN.ppm WIDTH HEIGHT OUT.ppm

A request is "resample/FROM-TO THREADS TIMES" or "table/WIDTH THREADS TIMES", the lookup table of FOLDER/table.cube; the
answer is the milliseconds it took, those of processor time, and 0, as of bench-worker. Pillow has one thread.
"""

import pathlib
import sys
import time

from PIL import Image, ImageFilter

PICTURES = {}  # and the table


def picture(folder, width):
    """The photo at a width; warm memory, as resizing has touched it before it is timed."""
    if width not in PICTURES:
        PICTURES[width] = Image.open(f"{folder}/photo-{width}.ppm")
        PICTURES[width].load()
    return PICTURES[width]


def table(folder):
    if "table" not in PICTURES:
        lines = pathlib.Path(folder, "table.cube").read_text().split("\n")
        side = int(lines[0].split()[1])
        entries = [float(number) for line in lines[1:] for number in line.split()]
        PICTURES["table"] = ImageFilter.Color3DLUT(side, entries)
    return PICTURES["table"]


def resize(image, width, height):
    return image.resize((width, height), Image.Resampling.LANCZOS)


def prepared(folder, job):
    """What is timed."""
    name, sizes = job.split("/")
    start, *end = (int(width) for width in sizes.split("-"))
    image = picture(folder, start)
    if name == "table":
        colours = table(folder)
        return lambda: image.filter(colours)
    return lambda: resize(image, end[0], end[0] * image.height // image.width)


def answer(folder, request):
    job, _threads, times = request.split()
    work, times = prepared(folder, job), int(times)
    if times > 1:
        work()
    begin, cpu_begin = time.perf_counter(), time.process_time()
    for _ in range(times):
        work()
    return (time.perf_counter() - begin) * 1000 / times, (time.process_time() - cpu_begin) * 1000 / times


def serve(folder):
    Image.core.set_blocks_max(64)  # freed memory is kept and used again
    for request in sys.stdin:
        print(*answer(folder, request), 0, flush=True)


def main():
    if sys.argv[1:2] == ["serve"] and len(sys.argv) == 3:
        serve(sys.argv[2])
    elif sys.argv[1:2] == ["resize"] and len(sys.argv) == 6:
        _, _, source, width, height, target = sys.argv
        resize(Image.open(source), int(width), int(height)).save(target)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
