#!/usr/bin/env python3
"""Looks for quantisation tables and rounding that give the best looking JPEGs for their bytes.

    search.py STATE.json PICTURE.png…

A set of numbers (`START` below) makes the three tables of one quality. One number after the other is changed a
little; a change stays when the pictures look better for their bytes, in the mean over all pictures. How they look
is told by SSIMULACRA2 and, of every second picture, by Butteraugli, each exchanged for bytes at the rate that the picture's own files have
around this quality, so that a change of size alone gains nothing. The state is written after each gain: a second
run goes on from there. Use pictures of some 450 x 450 pixels, cut from photos that were reduced by two or more
before, so that they carry no traces of an older JPEG file.

Environment: TRIAL (the program jpeg-trial, of the bench preset), SSIMULACRA2 and BUTTERAUGLI (the judges' programs),
COARSENESS (one or more numbers that the pictures take in turn; 1 is about quality 0.75), ROUNDS, JOBS. Needs libjpeg-turbo-progs and ImageMagick.
"""
import json
import math
import os
import random
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

TRIAL, SSIMULACRA2, BUTTERAUGLI = (os.environ[name] for name in ("TRIAL", "SSIMULACRA2", "BUTTERAUGLI"))

# Coarseness of each component at the mean tone and how it rises with the frequency; then the rounding.
START = {
    "y.start": 9.0, "y.mean": 0.9, "y.slope": 0.15, "y.power": 1.5, "y.diagonal": 0.3,
    "cb.start": 14.0, "cr.start": 8.0, "c.mean": 0.9, "c.slope": 0.2, "c.power": 1.5, "c.diagonal": 0.3,
    "deadZone": 0.10, "roundUp": 0.45, "bitWorth": 0.08,
}


def table(start, mean, slope, power, diagonal, scale):
    """64 entries in natural order."""
    def entry(u, v):
        frequency = math.sqrt(u * u + v * v + diagonal * u * v)
        return start * (1 + slope * frequency ** power) * (mean if u + v == 0 else 1)
    return [min(255, max(1, round(scale * entry(i % 8, i // 8)))) for i in range(64)]


def words_of(numbers, coarseness):
    """What jpeg-trial wants to know."""
    y = table(*(numbers["y." + key] for key in ("start", "mean", "slope", "power", "diagonal")), coarseness)
    chroma = [table(numbers[name + ".start"], *(numbers["c." + key] for key in ("mean", "slope", "power", "diagonal")), coarseness)
              for name in ("cb", "cr")]
    rounding = [numbers[key] for key in ("deadZone", "roundUp", "bitWorth")]
    return " ".join(map(str, rounding + y + chroma[0] + chroma[1]))


class Picture:
    """One picture with an encoder that has transformed it once."""

    def __init__(self, png, folder, coarseness, judges):
        self.coarseness, self.judges = coarseness, judges
        self.png, self.name = png, os.path.join(folder, os.path.basename(png))
        subprocess.run(["convert-im6.q16", png, "-depth", "8", self.name + ".ppm"], check=True)
        self.trial = subprocess.Popen([TRIAL, self.name + ".ppm"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)

    def look(self, numbers, factor=1.0):
        """Logarithm of the bytes, and what each judge says, more being better."""
        self.trial.stdin.write(f"{self.name}.jpg {words_of(numbers, self.coarseness * factor)}\n")
        self.trial.stdin.flush()
        size = int(self.trial.stdout.readline())
        subprocess.run(["djpeg", "-outfile", self.name + ".out.ppm", self.name + ".jpg"], check=True)
        return [math.log(size)] + [judge(self.png, self.name + ".out.ppm") for judge in self.judges]

    def calibrate(self, numbers):
        """Where the picture stands, and what a bit of each judge's score costs in bytes."""
        fine, coarse = (self.look(numbers, factor) for factor in (0.88, 1.14))
        self.prices = [(fine[0] - coarse[0]) / (f - c) for f, c in zip(fine[1:], coarse[1:])]
        self.base = self.look(numbers)

    def loss(self, numbers):
        """Logarithm of the bytes for the same look, against where it stood when calibrated."""
        now, base = self.look(numbers), self.base
        losses = [now[0] - base[0] - price * (n - b) for n, b, price in zip(now[1:], base[1:], self.prices)]
        return sum(losses) / len(losses)


def said(program, original, decoded):
    return subprocess.run([program, original, decoded], capture_output=True, text=True, check=True).stdout.split()


def ssimulacra2(original, decoded):
    return float(said(SSIMULACRA2, original, decoded)[0])


def butteraugli(original, decoded):
    words = said(BUTTERAUGLI, original, decoded)
    return -math.log(float(words[words.index("3-norm:") + 1]))


def moved(numbers, key, step):
    offset = {"diagonal": 0.1, "deadZone": 0.02, "bitWorth": 0.012, "roundUp": 0.03}.get(key.split(".")[-1])
    factor = {"power": 1.1, "slope": 1.3}.get(key.split(".")[-1], 1.12)
    changed = numbers[key] + step * offset if offset else numbers[key] * factor ** step
    return {**numbers, key: changed}


def main(state_path, paths):
    coarseness = [float(word) for word in os.environ.get("COARSENESS", "1").split()]
    numbers = {**START, **(json.load(open(state_path)) if os.path.exists(state_path) else {})}
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder, ThreadPoolExecutor(int(os.environ.get("JOBS", "2"))) as pool:
        pictures = [Picture(path, folder, coarseness[i // 2 % len(coarseness)], [ssimulacra2] + [butteraugli] * (i % 2))
                    for i, path in enumerate(paths)]

        def loss(candidate):
            return sum(pool.map(lambda p: p.loss(candidate), pictures)) / len(pictures)

        size = 1.0
        for turn in range(int(os.environ.get("ROUNDS", "3"))):
            list(pool.map(lambda p: p.calibrate(numbers), pictures))
            print(f"round {turn}: " + " ".join(f"{p.base[1]:.1f}" for p in pictures), flush=True)
            best, keys = 0.0, list(numbers)
            random.shuffle(keys)
            for key in keys:
                for direction in (1, -1):
                    gained = False
                    while (now := loss(candidate := moved(numbers, key, direction * size))) < best - 0.0003:
                        numbers, best, gained = candidate, now, True
                        json.dump(numbers, open(state_path, "w"), indent=1)
                        print(f"  {key} {numbers[key]:.4g}: {best:+.4f}", flush=True)
                    if gained:
                        break
            size *= 0.7


main(sys.argv[1], sys.argv[2:])
