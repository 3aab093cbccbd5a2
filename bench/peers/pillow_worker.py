#!/usr/bin/env python3
"""Pillow's part of the benchmarks, spoken to like bench-worker.

    pillow_worker.py serve FOLDER                    answers requests on standard input
    pillow_worker.py resize IN.ppm WIDTH HEIGHT OUT.ppm

A request is "resample/FROM-TO THREADS"; the answer is the milliseconds it took, those of
processor time, and 0. Pillow has one thread.
"""

import sys
import time

from PIL import Image

PICTURES = {}


def picture(folder, width):
    """The photo at a width; warm memory, as resizing has touched it before it is timed."""
    if width not in PICTURES:
        PICTURES[width] = Image.open(f"{folder}/photo-{width}.ppm")
        PICTURES[width].load()
    return PICTURES[width]


def resize(image, width, height):
    return image.resize((width, height), Image.Resampling.LANCZOS)


def answer(folder, request):
    job, _threads = request.split()
    start, end = (int(width) for width in job.split("/")[1].split("-"))
    image = picture(folder, start)
    begin, cpu_begin = time.perf_counter(), time.process_time()
    resize(image, end, end * image.height // image.width)
    return (time.perf_counter() - begin) * 1000, (time.process_time() - cpu_begin) * 1000


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
