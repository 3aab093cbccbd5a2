#!/usr/bin/env python3
"""Measures the headline jobs beside their peers, in turns within one run.

    bench/run.py BUILD [--only WORD] [--publish]

Prints the tables and writes them to BUILD/results.md, .json and .svg (bars). With --only, the jobs whose names
contain the word; with --publish, docs/benchmarks.md is written, too. Every ratio is our time over the peer's; below
1 we are faster.
"""

import argparse
import json
import os
import pathlib
import shutil
import subprocess
from functools import partial

import viewer
from chart import chart
from measure import Worker, compare, peak_megabytes, process
from report import Fact, environment, json_text, page, table_text

BUDGET, LARGE_BUDGET = 300_000, 1_500_000
TWO_THREADS = 2


def output_of(*command):
    return subprocess.run([str(word) for word in command], check=True, capture_output=True, text=True).stdout


def find_convert():
    """ImageMagick's own program: Debian's name for it first, then whatever says that it is ImageMagick."""
    for name in ("convert-im6.q16", "convert-im7.q16", "/usr/bin/convert", "convert"):
        path = shutil.which(name)
        if path and output_of(path, "-version").startswith("Version: ImageMagick"):
            return path
    raise SystemExit("bench: ImageMagick's convert is missing; see scripts/packages-bench.txt")


def text_document(count):
    """Pages of A4 full of text, written by hand."""
    objects = [b"<< /Type /Catalog /Pages 2 0 R >>", b"", b"<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"]
    kids = []
    for page in range(count):
        lines = (b"BT /F1 10 Tf 50 %d Td (Page %d, line %d: the quick brown fox jumps over the lazy dog.) Tj ET"
                 % (800 - 12 * line, page, line) for line in range(60))
        content = b"\n".join(lines)
        objects.append(b"<< /Length %d >>\nstream\n%b\nendstream" % (len(content), content))
        objects.append(b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents %d 0 R "
                       b"/Resources << /Font << /F1 3 0 R >> >> >>" % len(objects))
        kids.append(b"%d 0 R" % len(objects))
    objects[1] = b"<< /Type /Pages /Count %d /Kids [%b] >>" % (count, b" ".join(kids))
    body = b"".join(b"%d 0 obj\n%b\nendobj\n" % (i + 1, text) for i, text in enumerate(objects))
    return b"%PDF-1.4\n" + body + b"trailer\n<< /Size " + str(len(objects) + 1).encode() + b" /Root 1 0 R >>\n%%EOF\n"


def cube_text(side):
    """A lookup table in which every channel depends on all three."""
    def entry(red, green, blue):
        return 0.9 * red ** 0.8 + 0.1 * blue, (0.8 * green + 0.2 * red) ** 1.2, 1 - (1 - blue) ** 1.1 * (1 - 0.1 * green)

    steps = [i / (side - 1) for i in range(side)]
    lines = (entry(r, g, b) for b in steps for g in steps for r in steps)
    return f"LUT_3D_SIZE {side}\n" + "\n".join("%.6f %.6f %.6f" % line for line in lines) + "\n"


class Bench:
    def __init__(self, build, only):
        self.bin, self.only = build / "bin", only
        self.folder = build / "sample"
        self.photo, self.out = self.folder / "photo.jpg", self.folder / "out.jpg"
        self.progressive = self.folder / "progressive.jpg"
        self.tool = self.bin / "peximage"
        self.comparisons, self.facts = [], []

    def wanted(self, job):
        return self.only in job

    def compare(self, job, peer, ours, theirs, **how):
        if self.wanted(job):
            print(f"  {job}, {peer} …", flush=True)
            self.comparisons.append(compare(job, peer, ours, theirs, **how))
            return self.comparisons[-1]
        return None

    def fact(self, *fact):
        self.facts.append(Fact(*fact))

    # What is measured on.

    def prepare(self):
        self.folder.mkdir(exist_ok=True)
        self.make("photo.jpg", lambda path: output_of(self.bin / "sample-scene", path))
        for eighths, width in ((8, 4000), (4, 2000), (2, 1000)):
            self.make(f"photo-{width}.ppm",
                      lambda path, part=eighths: output_of(self.bin / "bench-worker", "decode", self.photo, part, path))
        self.make("progressive.jpg",
                  lambda path: output_of("jpegtran", "-progressive", "-outfile", path, self.photo))
        reduced = self.folder / "reduced.jpg"
        self.make("photo-24.jpg",
                  lambda path: output_of(self.tool, "resize", self.photo, "-o", path, "--size", "6000x4000"))
        self.make("reduced.jpg",
                  lambda path: output_of(self.tool, "resize", self.photo, "-o", path, "--max-side", "2000"))
        self.make("table.cube", lambda path: path.write_text(cube_text(33)))
        self.make("photo.png", lambda path: output_of(self.tool, "convert", reduced, "-o", path))

    def make(self, name, how):
        path = self.folder / name
        if not path.exists():
            print(f"bench: making {path}", flush=True)
            how(path)

    # Whole processes.

    def shrink(self, photo, max_bytes, max_side=None):
        side = ["--max-side", max_side] if max_side else []
        return process(self.tool, "shrink", photo, "-o", self.out, "--max-bytes", max_bytes, *side)

    def shrink_peers(self, photo, max_bytes, max_side=None):
        side = [max_side] if max_side else []
        resize = ["-resize", f"{max_side}x{max_side}"] if max_side else []
        extent = ["-define", f"jpeg:extent={max_bytes // 1000}KB"]
        return {
            "ImageMagick": process(find_convert(), photo, *resize, *extent, self.out),
            "libvips": process(self.bin / "vips-shrink", photo, self.out, max_bytes, *side),
            "libjpeg-turbo": process(self.bin / "turbo-shrink", photo, self.out, max_bytes, *side),
        }

    def shrinking(self, job, photo, max_bytes, max_side, goals):
        ours = self.shrink(photo, max_bytes, max_side)
        done = []
        for (peer, theirs), goal in zip(self.shrink_peers(photo, max_bytes, max_side).items(), goals):
            rounds = 9 if peer == "ImageMagick" else 21
            done.append(self.compare(job, peer, ours, theirs, goal=goal, rounds=rounds))
        if done[0]:
            peers = {c.peer: f"{peak_megabytes(c.theirs):.1f}" for c in done}
            peak = peak_megabytes(done[-1].ours)
            limited = max_side and photo == self.photo
            self.fact(f"{job}: peak memory, MB", f"{peak:.1f}", peers, "below 40" if limited else None,
                      peak < 40 if limited else None)

    def processes(self):
        self.shrinking("shrink to 2000 px, 300 KB", self.photo, BUDGET, 2000, (1 / 12, 1 / 5, 0.65))
        self.shrinking("shrink to 1.5 MB", self.photo, LARGE_BUDGET, None, (1 / 8, 1 / 4, 0.5))
        self.shrinking("shrink a progressive photo to 2000 px, 300 KB", self.progressive, BUDGET, 2000,
                       (None, None, None))
        self.compare("shrink to 1800 px, 300 KB", "ours to 2000 px", self.shrink(self.photo, BUDGET, 1800),
                     self.shrink(self.photo, BUDGET, 2000), goal=1.35, rounds=21)
        self.canvas()
        djpeg = process("djpeg", "-version")
        self.compare("--version", "djpeg -version", process(self.tool, "--version"), djpeg, goal=2, rounds=51)
        info = process(self.tool, "info", self.folder / "photo-24.jpg")
        self.compare("info, 24 MP", "djpeg -version", info, djpeg, rounds=51)
        if self.wanted("info, 24 MP"):
            self.count_header_bytes()
        self.metadata()
        self.documents()
        self.colours()
        self.resident_memory()
        self.viewing()
        self.qualities()

    def canvas(self):
        layer, document = self.folder / "reduced.jpg", self.folder / "canvas.json"
        placed = {"anchor": [0.5, 0.5], "position": [0.5, 0.5], "scale": 1, "opacity": 0.5}
        source = {"identification": "url", "url": layer.resolve().as_uri()}
        layers = [{"id": str(i), "type": "Image", "source": source, "spatialConforming": "None", "transform": placed}
                  for i in range(10)]
        document.write_text(json.dumps({"size": {"width": 2000, "height": 1500}, "layerList": layers}))
        half = ["(", layer, "-alpha", "set", "-channel", "A", "-evaluate", "multiply", "0.5", "+channel", ")"]
        over = [word for _ in range(10) for word in (*half, "-composite")]
        self.compare("10 layers of 3 MP from files to a file", "ImageMagick",
                     process(self.tool, "canvas", document, "-o", self.out),
                     process(find_convert(), "-size", "2000x1500", "xc:none", *over, self.out), goal=1, rounds=5)

    def metadata(self):
        job = "exif of 1,000 photos"
        if not self.wanted(job):
            return
        photo, folder = self.folder / "photo-exif.jpg", self.folder / "thousand"
        self.make(photo.name, lambda path: output_of("exiftool", "-DateTimeOriginal=2021:07:14 18:03:55", "-GPSLatitude=33.86",
                                                     "-GPSLongitude=151.21", "-o", path, self.photo))
        folder.mkdir(exist_ok=True)
        files = [folder / f"{i}.jpg" for i in range(1000)]
        for file in files:
            if not file.exists():
                os.link(photo, file)
        tags = ["-DateTimeOriginal", "-GPSLatitude", "-GPSLongitude"]
        self.compare(job, "exiftool", process(self.tool, "exif", *files), process("exiftool", "-n", *tags, *files),
                     goal=1 / 20, rounds=5)
        told = subprocess.run([self.tool, "exif", "-v", photo], check=True, capture_output=True, text=True).stderr
        read = int(told.split(": read ")[1].split(" bytes")[0].replace(" ", ""))
        self.fact(f"{job}: bytes read of each", f"{read:,}", {"file": f"{photo.stat().st_size:,}"}, "the header only",
                  read < photo.stat().st_size / 10)

    def documents(self):
        document, pages = self.folder / "document.pdf", self.folder / "pages"
        self.make(document.name, lambda path: path.write_bytes(text_document(20)))
        pages.mkdir(exist_ok=True)
        job = "20 pages of A4 at 150 dpi, as PNG"
        self.compare(job, "pdftoppm", process(self.tool, "pdf", document, "-o", pages, "--dpi", 150),
                     process("pdftoppm", "-png", "-r", 150, document, pages / "peer"), goal=1, rounds=3)
        self.compare(job, "pdftoppm, not packed", process(self.tool, "pdf", document, "-o", pages, "--dpi", 150),
                     process("pdftoppm", "-r", 150, document, pages / "peer"), rounds=9)

    def colours(self):
        job = "average colour and 16 × 16 grid of a 12 MP JPEG"
        ours = process(self.tool, "colors", self.photo, "--grid", "16x16")
        average = ["(", "+clone", "-scale", "1x1!", "-write", "txt:-", "+delete", ")"]
        self.compare(job, "ImageMagick -scale", ours,
                     process(find_convert(), self.photo, *average, "-scale", "16x16!", "txt:-"), goal=1 / 5)
        self.compare(job, "libvips thumbnail", ours, process(self.bin / "vips-colors", self.photo, 16, 16), goal=1,
                     rounds=21)

    def resident_memory(self):
        name, photos = "photos shrunk in one process: resident MB after 1,000 (after 10)", 1000
        if not self.wanted(name):
            return
        print(f"  {name} …", flush=True)
        few, many = map(float, output_of(self.bin / "bench-worker", "resident", self.photo,
                                         self.folder / "reduced.jpg", photos).split())
        self.fact(name, f"{many:.1f} ({few:.1f})", {}, "the same", many < 1.05 * few + 1)

    def qualities(self):
        name = "searches that find the plain search's quality"
        if not self.wanted(name):
            return
        print(f"  {name} …", flush=True)
        told = output_of(self.bin / "bench-worker", "qualities", self.folder).split()
        same, total, same_noise, total_noise = map(int, told)
        self.fact(f"{name}: photo at three sizes (half of it noise)",
                  f"{same} of {total} ({same_noise} of {total_noise})", {}, "all of the photo's", same == total)

    def viewing(self):
        name, count = "viewer: MB resident after paging through 500 photos (after 60)", 500
        if self.wanted(name):
            print(f"  {name} …", flush=True)
            photos = [self.folder / "photo-24.jpg", self.photo] * (count // 2)
            few, many = viewer.paging(self.tool, photos, 60)
            self.fact(name, f"{many:.0f} ({few:.0f})", {}, "bounded", many < 1.2 * few)
        name = "viewer: ms from its window to a 24 MP photo"
        if self.wanted(name):
            print(f"  {name} …", flush=True)
            shown, loading = viewer.first_picture(self.tool, self.folder / "photo-24.jpg", 15)
            self.fact(name, f"{shown:.0f}", {"loading it": f"{loading:.0f}"}, "at most 1.5 times as much",
                      shown <= 1.5 * loading)

    def count_header_bytes(self):
        photo = self.folder / "photo-24.jpg"
        told = subprocess.run([self.tool, "info", "-v", photo], check=True, capture_output=True, text=True).stderr
        read = int(told.split(": read ")[1].split(" bytes")[0].replace(" ", ""))
        size = photo.stat().st_size
        self.fact("info, 24 MP: bytes read", f"{read:,}", {"file": f"{size:,}"}, "the header only", read < size / 10)

    # Inside one process.

    def inside(self):
        own = Worker(self.bin / "bench-worker", "serve", self.folder)
        pillow = Worker("/usr/bin/python3", "bench/peers/pillow_worker.py", "serve", self.folder)
        self.searching(own)
        for sizes in ("4000-2000", "4000-500", "1000-2000"):
            self.resampling(sizes, own, pillow)
        self.compare("thumbnail of 256 px, 12 MP", "libjpeg-turbo at 1/8", own.job("thumbnail/ours", TWO_THREADS),
                     own.job("thumbnail/turbo"), goal=1.2, rounds=21)
        self.compare("thumbnail of 256 px, progressive, 12 MP", "libjpeg-turbo at 1/8",
                     own.job("thumbnail-progressive/ours", TWO_THREADS), own.job("thumbnail-progressive/turbo"),
                     rounds=21)
        self.compare("decode progressive JPG, 12 MP", "libjpeg-turbo", own.job("decode-progressive/ours", TWO_THREADS),
                     own.job("decode-progressive/plain"))
        self.codecs(own)
        self.geometry(own)
        self.filters(own, pillow)
        self.caches(own)
        own.close(), pillow.close()

    def searching(self, worker):
        for megapixels in (3, 12):
            for threads, goal in ((1, 3.0), (2, 2.0)):
                self.compare(f"search and write, {megapixels} MP, {self.threads(threads)}", "one libjpeg-turbo encode",
                             worker.job(f"search/{megapixels}/ours", threads),
                             worker.job(f"search/{megapixels}/turbo"), goal=goal, rounds=15)

    def resampling(self, sizes, own, pillow):
        job, name = f"resample/{sizes}/ours", f"resample {sizes.replace('-', ' to ')}"
        ours = partial(own.job, job, times=5)
        vips = partial(own.job, f"resample/{sizes}/vips", times=2)
        self.compare(f"{name}, 1 thread", "libvips", ours(1), vips(1), goal=1 / 10)
        self.compare(f"{name}, 2 threads", "libvips", ours(2), vips(2), goal=1 / 10)
        self.compare(f"{name}, 1 thread", "Pillow", ours(1), pillow.job(f"resample/{sizes}", times=2), goal=1 / 15)
        self.compare(f"{name}, 2 threads", "ours on 1", ours(2), ours(1), goal=1 / 1.7, rounds=21)
        if self.wanted(name):
            self.resampling_errors(name, *map(int, sizes.split("-")))

    def resampling_errors(self, name, start, end):
        worker, source = self.bin / "bench-worker", self.folder / f"photo-{start}.ppm"
        result = self.folder / "resized.ppm"
        sizes = (end, end * 3 // 4)
        errors = {}
        for who, command in {
            "ours": (worker, "resize", "ours", source, *sizes, result),
            "libvips": (worker, "resize", "vips", source, *sizes, result),
            "Pillow": ("/usr/bin/python3", "bench/peers/pillow_worker.py", "resize", source, *sizes, result),
        }.items():
            output_of(*command)
            inside, anywhere = map(float, output_of(worker, "errors", source, result).split())
            errors[who] = (inside, anywhere)
        ours = errors.pop("ours")
        peers = {who: f"{inside:.2f} ({anywhere:.2f})" for who, (inside, anywhere) in errors.items()}
        self.fact(f"{name}: largest error /255, inside (anywhere)", f"{ours[0]:.2f} ({ours[1]:.2f})", peers,
                  "at most 0.55", ours[1] <= 0.55)

    def codecs(self, worker):
        for name, size in (("jpg", "12 MP"), ("png", "3 MP")):
            library = {"jpg": "libjpeg-turbo", "png": "libpng"}[name]
            for verb in ("decode", "encode"):
                done = self.compare(f"{verb} {name.upper()}, {size}", library,
                                    worker.job(f"{verb}-{name}/ours", TWO_THREADS), worker.job(f"{verb}-{name}/plain"))
                if done and verb == "encode":
                    self.fact(f"{done.job}: bytes", f"{done.ours[0].bytes:,}", {library: f"{done.theirs[0].bytes:,}"})

    def geometry(self, worker):
        turns = {"turn": "quarter turn, 12 MP", "flip": "mirror, 12 MP"}
        for threads in (1, 2):
            on = self.threads(threads)
            for name, job in turns.items():
                for peer in ("libvips", "OpenCV"):
                    self.compare(f"{job}, {on}", peer, worker.job(f"{name}/ours", threads),
                                 worker.job(f"{name}/{peer.lower().removeprefix('lib')}", threads), goal=1)
            for name, job in (("rotate", "turn by 10°"), ("straighten", "straighten by 10°")):
                self.compare(f"{job}, 12 MP, {on}", "OpenCV, cubic", worker.job(f"{name}/ours", threads),
                             worker.job("rotate/opencv", threads), goal=1)
            # Of the copy's bandwidth 60 %: a layer is read, and what lies below it read and written.
            self.compare(f"layer at half opacity, 12 MP, {on}", "a copy", worker.job("layer/ours", threads),
                         worker.job("copy", threads), goal=1.5 / 0.6, rounds=21)
            for name, job in (("gate", "luminance gate"), ("key", "colour key"), ("fill", "fill")):
                self.compare(f"{job}, 12 MP, {on}", "a copy", worker.job(f"{name}/ours", threads),
                             worker.job("copy", threads), goal=1 / 0.6, rounds=21)
            self.compare(f"canvas of 10 layers of 3 MP, {on}", "libvips", worker.job("canvas/ours", threads),
                         worker.job("canvas/vips", threads), goal=1)
        self.compare("12 MP into 192 tiles", "a copy", worker.job("tiles/ours"), worker.job("copy"))

    def caches(self, worker):
        name = "200 hits among 10,000 in memory"
        for peer, job in (("a scan of the list", "scan"), ("a hash index", "index")):
            done = self.compare(name, peer, worker.job("memory-cache/ours"), worker.job(f"memory-cache/{job}"),
                                goal=1.2 if job == "scan" else None, rounds=15)
        if done:
            count = done.ours[0].bytes
            self.fact(f"{name}: allocations", f"{count}", {}, "none", count == 0)
        self.compare("stored JPEG of 450 × 300", "reading, and libjpeg-turbo", worker.job("stored-cache/ours"),
                     worker.job("stored-cache/turbo"), goal=1.2, rounds=21)

    def filters(self, worker, pillow):
        table = "lookup table of 33³, 12 MP"
        self.compare(f"{table}, 1 thread", "Pillow", worker.job("table/ours"), pillow.job("table/4000"), goal=1 / 5)
        self.compare(f"{table}, 2 threads", "ours on 1", worker.job("table/ours", 2), worker.job("table/ours"))
        for threads in (1, 2):
            on = self.threads(threads)
            self.compare(f"3 × 3 convolution, 12 MP, {on}", "OpenCV", worker.job("convolve/ours", threads),
                         worker.job("convolve/opencv", threads), goal=1)
            self.compare(f"sharpen with transparency, 12 MP, {on}", "ours, opaque",
                         worker.job("sharpen-alpha/ours", threads), worker.job("sharpen/ours", threads))
            for peer, name in (("vips", "libvips"), ("vips-tables", "libvips, exposure by a table")):
                self.compare(f"sharpen, expose and look up, 12 MP, {on}", name, worker.job("chain/ours", threads),
                             worker.job(f"chain/{peer}", threads), goal=1 / 2)
            for name, job in (("key", "new image, one colour keyed"), ("mask", "new image, masked by another")):
                self.compare(f"{job}, 12 MP, {on}", "a copy", worker.job(f"{name}-image/ours", threads),
                             worker.job("copy", threads), rounds=21)

    @staticmethod
    def threads(count):
        return "1 thread" if count == 1 else f"{count} threads"


def main():
    parser = argparse.ArgumentParser(description="Measures the headline jobs beside their peers.")
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--only", default="", metavar="WORD", help="only jobs whose names contain the word")
    parser.add_argument("--publish", action="store_true", help="write docs/benchmarks.md and its picture, too")
    arguments = parser.parse_args()
    if arguments.only and arguments.publish:
        parser.error("only a run of everything is published")
    load = os.getloadavg()[0]
    bench = Bench(arguments.build, arguments.only)
    bench.prepare()
    print("measuring:", flush=True)
    bench.processes()
    bench.inside()
    where = environment(bench.bin, find_convert(), load)
    (arguments.build / "results.json").write_text(json_text(bench.comparisons, bench.facts, where))
    (arguments.build / "results.svg").write_text(chart(bench.comparisons))
    tables = table_text(bench.comparisons, bench.facts, where)
    (arguments.build / "results.md").write_text(tables + "\n")
    if arguments.publish:
        docs = pathlib.Path(__file__).resolve().parents[1] / "docs"
        (docs / "benchmarks.md").write_text(page(tables), encoding="utf-8")
        (docs / "images/bench.svg").write_text(chart(bench.comparisons))
    print(tables)


if __name__ == "__main__":
    main()
