"""End-to-end tests of the command-line tool, run as a person or a script runs it.

PEXIMAGE and SAMPLE_SCENE in the environment name the built programs.
"""

import base64
import contextlib
import http.server
import json
import os
import pathlib
import pty
import re
import resource
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import unittest

TOOL = os.path.abspath(os.environ["PEXIMAGE"])
SAMPLE_SCENE = os.path.abspath(os.environ["SAMPLE_SCENE"])
README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
RESIZER = pathlib.Path(TOOL).parent / "CLIImageResizer"
COMMANDS = ("info", "shrink", "convert", "resize", "crop", "rotate", "split", "join", "watermark", "canvas", "composer", "pdf", "key", "mask", "colors", "exif", "filter", "cache", "fetch", "view")


def run(*arguments, cwd=None, program=TOOL, stdin=b"", **environment):
    done = subprocess.run([program, *map(str, arguments)], capture_output=True, cwd=cwd, timeout=120, input=stdin,
                          env={**os.environ, **environment})
    return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode()


@contextlib.contextmanager
def web_server(files):
    """Serves files by path on the loopback interface; gives its address, and a list of the paths asked for."""
    asked = []

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            asked.append(self.path)
            content = files.get(self.path.partition("?")[0])
            self.send_response(404 if content is None else 200)
            self.send_header("Content-Length", str(len(content or b"")))
            self.end_headers()
            self.wfile.write(content or b"")

        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        yield f"http://127.0.0.1:{server.server_port}", asked
    finally:
        server.shutdown()
        server.server_close()


def jpeg_size(path):
    """Width and height from the frame header, read without any image library."""
    data = pathlib.Path(path).read_bytes()
    assert data[:2] == b"\xff\xd8" and data[-2:] == b"\xff\xd9", path
    at = 2
    while True:
        marker, length = data[at + 1], struct.unpack(">H", data[at + 2 : at + 4])[0]
        if marker in (0xC0, 0xC1, 0xC2):
            height, width = struct.unpack(">HH", data[at + 5 : at + 9])
            return width, height
        at += 2 + length


def png_size(path):
    data = pathlib.Path(path).read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", path
    return struct.unpack(">II", data[16:24])


def told(path):
    """What exiftool reads, by group and name."""
    done = subprocess.run(["exiftool", "-j", "-n", "-a", "-G1", "-s", str(path)], capture_output=True, check=True)
    return json.loads(done.stdout)[0]


def pillow(path, other):
    """Format and size of a picture, and how much its colours differ from another's on average, as Pillow reads both."""
    script = ("import sys, json; from PIL import Image, ImageChops, ImageStat; a, b = map(Image.open, sys.argv[1:]);"
              "d = ImageStat.Stat(ImageChops.difference(a.convert('RGB'), b.convert('RGB'))).mean;"
              "print(json.dumps([a.format, a.size, sum(d) / 3]))")
    # Debian's own Python, which has its packages
    done = subprocess.run(["/usr/bin/python3", "-c", script, path, other], capture_output=True, check=True, timeout=60)
    return json.loads(done.stdout)


def pillow_save(path, kind):
    """A picture of 40 × 30 pixels as Pillow writes the format."""
    script = "import sys; from PIL import Image; Image.new('P', (40, 30)).save(sys.argv[1], sys.argv[2])"
    subprocess.run(["/usr/bin/python3", "-c", script, path, kind], check=True, timeout=60)


def heif_header(path):
    """The brand and the size that the boxes tell."""
    data = pathlib.Path(path).read_bytes()
    at = data.index(b"ispe") + 8
    return data[4:12].decode(), struct.unpack(">II", data[at : at + 8])


# Encrypted with a password that nobody knows.
LOCKED = (b"/ID [<00000000000000000000000000000000> <00000000000000000000000000000000>] "
          b"/Encrypt << /Filter /Standard /V 1 /R 2 /P -4 /O <%b> /U <%b> >>" % (b"3" * 64, b"5" * 64))


def two_page_pdf(trailer=b""):
    """Two empty pages of 200 × 100 points; readers make the missing cross-reference table themselves."""
    page = b"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] >>"
    objects = [b"<< /Type /Catalog /Pages 2 0 R >>", b"<< /Type /Pages /Count 2 /Kids [3 0 R 4 0 R] >>", page, page]
    body = b"".join(b"%d 0 obj\n%b\nendobj\n" % (i + 1, text) for i, text in enumerate(objects))
    return b"%PDF-1.4\n" + body + b"trailer\n<< /Size 5 /Root 1 0 R " + trailer + b" >>\n%%EOF\n"


def typed_in_zsh(folder, lines):
    """What the tab key makes of each line, in an interactive shell that finds its completions in the folder."""
    setup = ("PS1='ready> '; fpath=($PWD $fpath); autoload -U compinit; compinit -u -D; zle -N show; bindkey '^I' menu-complete; bindkey '^T' show; "
             "show() { print -r -- $BUFFER >> typed; BUFFER= }\n")
    ours, theirs = pty.openpty()
    shell = subprocess.Popen(["zsh", "-f", "-i"], cwd=folder, stdin=theirs, stdout=theirs, stderr=theirs, start_new_session=True,
                             env={**os.environ, "HOME": str(folder), "TERM": "xterm"})
    os.close(theirs)
    told = b""

    def wait_for(words):
        nonlocal told
        while words not in told:
            told += os.read(ours, 4096)
        told = told[told.index(words) + len(words):]

    os.write(ours, setup.encode())
    wait_for(b"ready> '")  # the echo of the command
    wait_for(b"ready> ")
    os.write(ours, "".join(line + "\t\x14" for line in lines).encode() + b"exit\n")
    with contextlib.suppress(OSError):  # the end of the shell
        wait_for(b"\0")
    shell.wait(60)
    os.close(ours)
    return [line.strip() for line in (folder / "typed").read_text().splitlines()]


class CommandLine(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.shared = tempfile.TemporaryDirectory()
        cls.photo = pathlib.Path(cls.shared.name) / "photo.jpg"
        subprocess.run([SAMPLE_SCENE, cls.photo, "640", "480"], check=True, capture_output=True)

    @classmethod
    def tearDownClass(cls):
        cls.shared.cleanup()

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.dir = pathlib.Path(temporary.name)

    def assertOnly(self, *names):
        """The folder holds these and nothing else, in particular no temporary file."""
        self.assertEqual(sorted(os.listdir(self.dir)), sorted(names))

    def place(self, *names):
        """Puts the photo there."""
        for name in names:
            path = self.dir / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(self.photo.read_bytes())

    def files(self, folder="out"):
        """The names of all files below, and the folder is gone."""
        top = self.dir / folder
        names = sorted(str(path.relative_to(top)) for path in top.rglob("*") if path.is_file())
        shutil.rmtree(top, ignore_errors=True)
        return " ".join(names)

    def check(self, command, cases, stdin=b""):
        """Each case: words after the command, the status, then patterns that standard output and error match."""
        for words, status, *patterns in cases:
            told = run(*shlex.split(f"{command} {words}"), cwd=self.dir, stdin=stdin)
            self.assertEqual(told[0], status, (words, told))
            for text, pattern in zip(told[1:], patterns):
                self.assertTrue(re.search(pattern, text), (words, told))

    def test_inputs_of_every_kind(self):
        self.place("in/a.jpg", "in/deep/b.JPG", "in/.c.jpg", "in/.d/e.jpg", "other/a.jpg", "x y.jpg", "odd[1].jpg", "in/out/f.jpg")
        (self.dir / "in" / "notes.txt").touch()
        (self.dir / "empty").mkdir()
        (self.dir / "lines").write_text("in/a.jpg\n\nx y.jpg\r\n")
        (self.dir / "nuls").write_bytes(b"in/a.jpg\0x y.jpg\0")
        (self.dir / "more").symlink_to("in")
        for words, status, results in (
                ("in -o out", 0, "a.jpg"), ("-r in -o out", 0, "a.jpg deep/b.JPG out/f.jpg"), ("in/a.jpg -o out/", 0, "a.jpg"),
                ("-r in other -o out", 0, "in/a.jpg in/deep/b.JPG in/out/f.jpg other/a.jpg"), ("-r in/. -o out", 0, "a.jpg deep/b.JPG out/f.jpg"),
                ("'*/a.jpg' -o out", 2, ""), ("'in/?.jpg' 'x*.jpg' -o out", 0, "a.jpg x y.jpg"), ("'odd[1].jpg' -o out/", 0, "odd[1].jpg"),
                ("--files-from lines -o out", 0, "a.jpg x y.jpg"), ("-0 --files-from nuls -o out", 0, "a.jpg x y.jpg"),
                ("other/a.jpg 'none*.jpg' -o out", 1, "a.jpg"), ("in other -o out", 2, ""), ("empty -o out", 1, ""), ("-0 in -o out", 2, ""), ("in/a.jpg in/a.jpg -o out", 2, ""),
                ("--files-from none -o out", 2, ""), ("-o out", 2, ""), ("in - -o out --format png", 0, "a.png stdin.png"),
                ("-r in -o in/out", 0, "")):
            code, _, errors = run("resize", "--width", 20, *shlex.split(words), cwd=self.dir, stdin=self.photo.read_bytes())
            self.assertEqual((code, self.files()), (status, results), (words, errors))
        self.assertEqual(self.files("in/out"), "a.jpg deep/b.JPG f.jpg")  # the results' own folder is not searched
        self.check("info", [("in other", 0, r"^in/a.jpg  .*\nother/a.jpg  .*\n$"), ("-r in", 0, r"^in/a.jpg .*\nin/deep/b.JPG .*\n$"),
                            ("empty", 1, "^$", "^peximage: empty: no pictures in it\n$")])

    def test_folders_that_cannot_be_searched_are_told(self):
        self.place("in/a/b.jpg", "in/z.jpg")
        deep = os.open(self.dir / "in", os.O_RDONLY)
        for _ in range(20):  # a path longer than the system takes
            os.mkdir("a" * 250, dir_fd=deep)
            deep, above = os.open("a" * 250, os.O_RDONLY, dir_fd=deep), deep
            os.close(above)
        os.close(deep)
        code, text, errors = run("resize", "--width", 20, "-r", "in", "-o", "out", "--json", cwd=self.dir)
        self.assertEqual((code, self.files()), (1, "a/b.jpg z.jpg"))
        self.assertEqual([row.get("error", {}).get("code") for row in json.loads(text)], [None, None, "cannotRead"])
        self.assertRegex(errors, "^peximage: in/a{250}/.*: File name too long\n$")

    def test_pictures_through_pipes(self):
        whole = self.photo.read_bytes()
        code, made, errors = run("resize", "-", "--width", 64, "-o", self.dir / "a.png", stdin=whole)
        self.assertEqual((code, errors, made.split("  ")[:2]), (0, "", [f"- → {self.dir}/a.png", "64×48"]))
        done = subprocess.run([TOOL, *"resize - --width 64 -o - --format png".split()], input=whole, capture_output=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, (self.dir / "a.png").read_bytes(), b""))
        done = subprocess.run([TOOL, *"shrink - --max-bytes 1MB -o - --format jpg".split()], input=whole, capture_output=True, timeout=60)
        self.assertEqual((done.stdout, done.stderr), (whole, b""))
        self.check("convert", [("- -o -", 2, "^$", "--format"), ("a.png a.png -o - --format jpg", 2, "^$", "one input"),
                               ("a.png -o - --format jpg --json", 2), ("- -o b.png", 1, "^$", "^peximage: -: is empty")])
        with open("/dev/full", "wb") as full:
            done = subprocess.run([TOOL, "convert", self.dir / "a.png", "-o", "-", "--format", "jpg"], stdout=full, stderr=subprocess.PIPE, timeout=60)
        self.assertEqual((done.returncode, b"the disk is full" in done.stderr), (1, True))

    def test_what_cannot_be_written_fails_alone(self):
        self.place("in/a.jpg", "in/d.jpg")
        for name, kind in (("b.gif", "GIF"), ("c.bmp", "BMP")):
            pillow_save(self.dir / "in" / name, kind)
        self.check("convert", [("in -o out", 1, r"a.jpg.*\n.*d.jpg.*\n2 files  .* bytes  2 failed\n$",
                                r"^peximage: in/b.gif: GIF cannot be written; .*--format\npeximage: in/c.bmp: BMP .*\n$")])
        self.assertEqual(self.files(), "a.jpg d.jpg")
        code, text, _ = run("convert", "in", "-o", "out", "--json", cwd=self.dir)
        self.assertEqual([row.get("error", {}).get("code") for row in json.loads(text)], [None, "badArgument", "badArgument", None])
        self.files()
        run("convert", "in/b.gif", "-o", "in/small.png", cwd=self.dir)  # of few bytes
        self.check("shrink", [("in -o out --max-bytes 3000", 1, r"small.png  40×30", "a.jpg|b.gif"), ("in -o out --max-bytes 60 --format png", 1, "", "PNG keeps no byte budget")])

    def test_dry_runs_and_what_is_there_already(self):
        self.place("in/a.jpg", "in/b.jpg")
        size = self.photo.stat().st_size
        self.check("resize --width 64 in -o out", [("--dry-run", 0, r"^in/a.jpg → out/a.jpg  64×48  would be written\n(.*\n){2}$")])
        self.check("shrink in -o out", [("--max-bytes 1MB --dry-run", 0, f"640×480  {size // 1000} {size % 1000:03} bytes  would be"),
                                        ("--max-bytes 9K --dry-run", 0, "at most 9 000 bytes  would be")])
        self.check("split in -o out --rows 2", [("--dry-run", 0, "2 tiles  would be")])
        self.assertOnly("in")
        self.place("out/a.jpg")
        os.utime(self.dir / "in" / "a.jpg", (1e9, 1e9))
        kept = (self.dir / "out" / "a.jpg").read_bytes()
        self.check("resize --width 64 in -o out --skip-existing", [
            ("", 0, r"^in/a.jpg → out/a.jpg  left out.*\n.*b.jpg  64×48 .*\n1 file  .*  1 left out\n$"), ("--json", 0, '"skipped": true')])
        self.assertEqual((self.dir / "out" / "a.jpg").read_bytes(), kept)
        os.utime(self.dir / "out" / "a.jpg", (9e8, 9e8))
        self.check("resize --width 64 in -o out --skip-existing", [("", 0, "a.jpg  64×48 ")])

    def test_lists_for_programs(self):
        self.place("a.jpg")
        (self.dir / "bad.jpg").write_bytes(b"\xff\xd8\xff")
        for command in ("info", "exif", "colors", "convert -o out"):
            code, text, errors = run(*command.split(), "a.jpg", "none.jpg", "bad.jpg", "--json", cwd=self.dir)
            rows = json.loads(text)
            self.assertEqual([row["file"] for row in rows], ["a.jpg", "none.jpg", "bad.jpg"], command)
            self.assertEqual(rows[1]["error"], {"code": "noSuchFile", "message": "no such file"})
            self.assertEqual((code, rows[2]["error"]["code"], errors.count("\n")), (1, "damaged", 2))
        self.check("info", [("a.jpg --json", 0, r"^\[\n"), ("none.jpg --json", 1, "noSuchFile"), ("a.jpg -q", 0, "^$", "^$")])

    def test_sizes_lengths_and_hints(self):
        self.place("a.jpg")
        self.check("shrink a.jpg -o o.jpg --dry-run --max-bytes", [
            (f"'{words}'", 0, f"at most {bytes} bytes") for words, bytes in (
                ("9000", "9 000"), ("9K", "9 000"), ("9 KB", "9 000"), ("9kb", "9 000"), ("9KiB", "9 216"), ("0.01MB", "10 000"), ("0.01M", "10 000"))])
        self.check("resize a.jpg -o o.jpg --dry-run", [("--max-side 300px", 0, "300×225"), ("--size 30x20px", 0, "30×20")])
        short = "^peximage: [^\n]{,120}\n.*--help'.\n$"
        self.check("", [
            ("shrink a.jpg -o o.jpg --max-bytes 9X", 2, "^$", short), ("shrink a.jpg -o o.jpg --max-side 0 --max-bytes 9K", 2, "^$", short),
            ("convert a.jpg -o o.jpg --quality 85", 2, "^$", "write 0.85"), ("convert a.jpg -o o.jpg -q 85", 2, "^$", "--quality"),
            ("convert a.jpg -o o.jpg --qualty 0.8", 2, "^$", "did you mean --quality"), ("convert a.jpg --ouput=o.jpg", 2, "^$", "did you mean --output"),
            ("shrnik a.jpg", 2, "^$", "did you mean shrink"), ("zzzzzz a.jpg", 2, "^$", "there is no command zzzzzz\n"),
            ("convert a.jpg -o o.jpg --wholly-other", 2, "^$", "there is no option --wholly-other\n"),
            ("convert a.jpg -o o.jpg -j 0", 2, "^$", short), ("split a.jpg -o o --rows 0", 2, "^$", short)])
        self.assertOnly("a.jpg")
        _, text, _ = run("convert", "--help")
        for ending in "jpg jpeg png tif tiff webp heic heif avif".split():
            self.assertRegex(text, rf"\b{ending}\b")

    def test_budgets_that_cost_too_much_quality_make_pictures_smaller(self):
        for name, budget in (("o.jpg", 6000), ("o.webp", 3000), ("o.avif", 1500)):
            found = {}
            for least in (0, 0.3, 0.8):
                code, text, errors = run("shrink", self.photo, "-o", self.dir / name, "--max-bytes", budget, "--min-quality", least)
                self.assertEqual((code, errors), (0, ""), name)
                self.assertLessEqual((self.dir / name).stat().st_size, budget)
                width, quality = re.search(r"  (\d+)×\d+  .*  quality ([0-9.]+)", text).groups()
                found[least] = int(width), float(quality), f"made smaller, to keep quality {least:.2f}" in text
            if name == "o.jpg":
                self.assertTrue(found[0][0] == 640 and found[0][1] < 0.3, found)
            for least, floor in ((0.3, 0.6), (0.8, 0.8)):
                self.assertTrue(found[least][0] < 640 and found[least][1] >= floor and found[least][2], (name, found))
                self.assertGreater((self.dir / name).stat().st_size, budget * 0.6)
            self.assertLess(found[0.8][0], found[0.3][0])

    def test_shrink_keeps_the_budget_and_says_so(self):
        out = self.dir / "small.jpg"
        for budget, limit in (("20KB", 20000), ("20KiB", 20480), ("15000", 15000), ("0.03MB", 30000)):
            code, text, errors = run("shrink", self.photo, "-o", out, "--max-side", 400, "--max-bytes", budget)
            self.assertEqual((code, errors), (0, ""))
            self.assertLessEqual(out.stat().st_size, limit)
            self.assertGreater(out.stat().st_size, limit * 0.8)
            self.assertEqual(jpeg_size(out), (400, 300))
            self.assertIn("400×300", text)
            self.assertEqual(text.count("\n"), 1)
        self.assertOnly("small.jpg")

    def photo_with_metadata(self):
        photo = self.dir / "photo.jpg"
        photo.write_bytes(self.photo.read_bytes())
        fields = ["Make=Maker", "Orientation#=6", "IFD0:XResolution=300", "IFD0:YResolution=300",
                  "IFD0:ResolutionUnit#=2",
                  "DateTimeOriginal=2021:07:14 18:03:55", "ExifImageWidth=640", "GPSLatitude=33.86", "GPSLatitudeRef=S",
                  "GPSAreaInformation=Hidden Valley", "XMP-xmp:Rating=4", "XMP-photoshop:City=Hidden Valley",
                  "XMP-tiff:Orientation#=6", "IPTC:City=Hidden Valley", "IPTC:Headline=Found"]
        subprocess.run(["exiftool", "-q", "-overwrite_original", *("-" + field for field in fields), photo], check=True)
        os.utime(photo, (1e9, 1e9))
        return photo

    def test_metadata_go_over_to_every_format(self):
        photo = self.photo_with_metadata()
        kept = {"IFD0:Make": "Maker", "ExifIFD:DateTimeOriginal": "2021:07:14 18:03:55", "GPS:GPSLatitude": 33.86,
                "XMP-xmp:Rating": 4, "XMP-tiff:Orientation": 1, "IFD0:XResolution": 300, "ExifIFD:ExifImageWidth": 480}
        for ending in ("jpg", "png", "tif", "webp", "heic", "avif"):
            out = self.dir / f"out.{ending}"
            code, _, errors = run("convert", photo, "-o", out, "--keep-time")
            self.assertEqual(code, 0, errors)
            fields, iptc = told(out), ending in ("jpg", "png", "tif")
            for key, value in kept.items():
                self.assertEqual(fields.get(key), value, (ending, key))
            self.assertEqual(fields.get("IFD0:Orientation"), 1, ending)
            self.assertEqual(fields.get("IPTC:Headline"), "Found" if iptc else None, ending)
            self.assertEqual("loses IPTC" in errors, not iptc, ending)
            self.assertEqual(out.stat().st_mtime, 1e9)
            run("convert", photo, "-o", out, "--metadata", "no-location")
            self.assertNotIn(b"Hidden", out.read_bytes())
            self.assertEqual(told(out).get("IFD0:Make"), "Maker", ending)
        code, _, errors = run("resize", photo, "-o", out.with_suffix(".jpg"), "--width", 100, "--metadata", "none")
        self.assertEqual((code, errors), (0, ""))
        self.assertFalse([key for key in told(out.with_suffix(".jpg")) if key.startswith(("IFD0:Make", "GPS", "XMP", "IPTC"))])

    def test_shrink_hands_on_what_is_small_enough(self):
        photo, out = self.photo_with_metadata(), self.dir / "small.jpg"
        self.assertEqual(run("shrink", photo, "-o", out, "--max-bytes", "1MB", "--max-side", 640)[0], 0)
        self.assertEqual(out.read_bytes(), photo.read_bytes())
        scan = photo.read_bytes()[photo.read_bytes().index(b"\xff\xdb"):]
        for choice in ("no-location", "none"):
            self.assertEqual(run("shrink", photo, "-o", out, "--max-bytes", "1MB", "--metadata", choice)[0], 0)
            self.assertTrue(out.read_bytes().endswith(scan), choice)
            self.assertNotIn(b"Hidden", out.read_bytes())
            self.assertEqual(told(out).get("IFD0:Orientation"), 6)
        run("shrink", photo, "-o", out, "--max-bytes", "1MB", "--max-side", 320)
        self.assertEqual(jpeg_size(out), (240, 320))
        photo.write_bytes(photo.read_bytes()[:9000])
        self.assertEqual(run("shrink", photo, "-o", out, "--max-bytes", "1MB")[::2], (0, f"peximage: {photo}: breaks off before its picture ends\n"))
        self.assertEqual(out.read_bytes(), photo.read_bytes())

    def test_what_is_worth_least_leaves_a_budget_first(self):
        photo, out, note = self.photo_with_metadata(), self.dir / "small.jpg", self.dir / "note"
        note.write_bytes(b"Note\0" * 6000)
        subprocess.run(["exiftool", "-q", "-overwrite_original", f"-MakerNotes<={note}", "-XMP-dc:Description=" + "word " * 1000, photo], check=True)
        for budget, lost in (("90K", ""), ("40K", "the maker's notes"), ("9K", "the maker's notes and XMP")):
            code, _, errors = run("shrink", photo, "-o", out, "--max-bytes", budget, "--dpi", 300)
            self.assertEqual((code, errors), (0, lost and f"peximage: {photo}: left out, for more than half of the budget: {lost}\n"), budget)
            self.assertEqual((told(out).get("IFD0:Make"), told(out).get("GPS:GPSLatitude")), ("Maker", 33.86), budget)

    def test_shrink_reports_as_json(self):
        out = self.dir / "small.jpg"
        code, text, _ = run("shrink", self.photo, "-o", out, "--max-bytes", "20KB", "--dpi", 300, "--json")
        self.assertEqual(code, 0)
        report, = json.loads(text)
        self.assertEqual(list(report), ["file", "output", "width", "height", "bytes", "quality"])
        self.assertEqual((report["width"], report["height"]), jpeg_size(out))
        self.assertEqual(report["bytes"], out.stat().st_size)
        self.assertEqual(out.read_bytes()[13:18], bytes([1, 1, 0x2C, 1, 0x2C]))

    def test_an_impossible_budget_fails_and_keeps_the_old_file(self):
        out = self.dir / "small.jpg"
        out.write_bytes(b"old")
        for budget in ("0", "1", "300"):
            code, text, errors = run("shrink", self.photo, "-o", out, "--max-bytes", budget)
            self.assertEqual((code, text), (1, ""))
            self.assertIn(f"{self.photo}: cannot be made as small as {budget} bytes", errors)
            self.assertEqual(errors.count("\n"), 1)
        self.assertEqual(out.read_bytes(), b"old")
        self.assertOnly("small.jpg")

    def test_convert_there_and_back(self):
        png, jpeg = self.dir / "a.png", self.dir / "b.jpeg"
        self.assertEqual(run("convert", self.photo, "-o", png, "--dpi", 144)[0], 0)
        self.assertEqual(png_size(png), (640, 480))
        self.assertEqual(run("convert", png, "-o", jpeg, "--quality", 0.5)[0], 0)
        self.assertEqual(jpeg_size(jpeg), (640, 480))
        _, text, _ = run("info", png, jpeg, "--json")
        first, second = json.loads(text)
        self.assertEqual((first["format"], second["format"]), ("PNG", "JPEG"))
        self.assertEqual((first["ratio"], first["dpi"], first["alpha"]), ("4:3", 144, False))

    def test_formats_by_name(self):
        exact, again = self.dir / "exact.png", self.dir / "again.png"
        run("convert", self.photo, "-o", exact)
        formats = {"a.tif": ("TIFF", 0), "a.TIFF": ("TIFF", 0), "a.webp": ("WEBP", 5), "a.heic": ("HEIF", 5),
                   "a.heif": ("HEIF", 5), "a.avif": ("AVIF", 5)}
        for name, (kind, most) in formats.items():
            out = self.dir / name
            code, text, errors = run("convert", self.photo, "-o", out)
            self.assertEqual((code, errors), (0, ""), name)
            self.assertIn("640×480", text)
            report, = json.loads(run("info", out, "--json")[1])
            self.assertEqual((report["format"].upper(), report["width"], report["height"]), (kind, 640, 480))
            self.assertEqual(run("convert", out, "-o", again)[0], 0)
            self.assertLessEqual(pillow(again, exact)[2], most, name)
            if kind in ("TIFF", "WEBP"):
                read, size, difference = pillow(out, exact)
                self.assertEqual((read, size), (kind, [640, 480]))
                self.assertLessEqual(difference, most, name)
            else:
                brand = {"HEIF": "ftypheic", "AVIF": "ftypavif"}[kind]
                self.assertEqual(heif_header(out), (brand, (640, 480)))
        for name in ("a.gif", "a.bmp", "a.pdf"):
            code, _, errors = run("convert", self.photo, "-o", self.dir / name)
            self.assertEqual(code, 2)
            self.assertIn("cannot be written", errors)
        self.assertOnly("exact.png", "again.png", *formats)

    def test_a_tiff_of_another_program(self):
        """Pillow writes it, in CMYK and in grey of 16 bits; what the colours are follows from the numbers."""
        script = ("import sys; from PIL import Image; Image.new('CMYK', (40, 30), (51, 102, 0, 51)).save(sys.argv[1], compression='tiff_lzw');"
                  "Image.new('I;16', (40, 30), 32896).save(sys.argv[2])")
        inks, grey = self.dir / "inks.tif", self.dir / "grey.tif"
        subprocess.run(["/usr/bin/python3", "-c", script, inks, grey], check=True, timeout=60)
        for path, colour in ((inks, (0.64, 0.48, 0.8)), (grey, (0.502, 0.502, 0.502))):
            average = json.loads(run("colors", path, "--json")[1])[0]["average"]
            for seen, expected in zip(average, colour):
                self.assertAlmostEqual(seen, expected, delta=0.006)

    def test_info_reads_the_header_only(self):
        _, text, errors = run("info", self.photo, "-v")
        self.assertIn("JPEG  640×480  4:3", text)
        read = int("".join(c for c in errors.split(": read ")[1] if c.isdigit()))
        self.assertLess(read, 10000)

    def test_south_and_west_are_negative(self):
        script = ("import sys; from PIL import Image; photo = Image.open(sys.argv[1]); exif = Image.Exif();"
                  "exif[0x8825] = {1: sys.argv[3], 2: (33.0, 30.0, 0.0), 3: sys.argv[4], 4: (70.0, 15.0, 0.0)}; photo.save(sys.argv[2], exif=exif)")
        path = self.dir / "place.jpg"
        for south, west, lat, lon in (("S", "W", -33.5, -70.25), ("N", "E", 33.5, 70.25), ("s", "E", -33.5, 70.25)):
            subprocess.run(["/usr/bin/python3", "-c", script, self.photo, path, south, west], check=True, timeout=60)
            told, exif = (json.loads(run(command, path, "--json")[1])[0] for command in ("info", "exif"))
            self.assertEqual((told["lat"], told["lon"]), (lat, lon))
            self.assertEqual(exif["coordinates"], {"lat": lat, "lon": lon})
            self.assertIn(f"lat {lat:.6f}", run("exif", path)[1])

    def test_info_tells_of_pictures_that_are_cut_short(self):
        whole = {"photo.jpg": self.photo.read_bytes()}
        for name in ("a.png", "a.tif", "a.webp"):
            self.assertEqual(run("convert", self.photo, "-o", self.dir / name)[0], 0)
            whole[name] = (self.dir / name).read_bytes()
        for name, data in whole.items():
            path = self.dir / name
            for cut in (data[: len(data) // 2], data[:-20]) if name != "a.tif" else ():
                path.write_bytes(cut)
                code, text, errors = run("info", path)
                self.assertEqual((code, errors), (0, ""), name)
                self.assertTrue(text.endswith("  incomplete\n"), text)
                self.assertIs(json.loads(run("info", path, "--json")[1])[0]["incomplete"], True)
            path.write_bytes(data + (b"more" if name == "photo.jpg" else b""))
            self.assertNotIn("incomplete", run("info", path)[1])
            self.assertNotIn("incomplete", json.loads(run("info", path, "--json")[1])[0])

    def test_what_is_missing_is_told_and_never_replaces_its_own_file(self):
        whole = self.photo.read_bytes()
        half, other, link = self.dir / "half.jpg", self.dir / "o.png", self.dir / "link.jpg"
        half.write_bytes(whole[: len(whole) // 2])
        link.symlink_to(half)
        for command in (["convert"], ["shrink", "--max-bytes", "40KB", "--max-side", "300"], ["rotate", "--turn", "90"],
                        ["resize", "--width", "50"], ["filter", "--exposure", "0.5"]):
            to = self.dir / "o.jpg"
            code, text, errors = run(*command, half, "-o", to)
            self.assertEqual(code, 0, errors)
            self.assertRegex(errors, rf"^peximage: {half}: \d\d % of the picture is missing\n$")
            for spelling in (half, link, self.dir / "." / "half.jpg"):
                code, text, errors = run(*command, half, "-o", spelling)
                self.assertEqual((code, text), (1, ""), command)
                self.assertRegex(errors, r"\d\d % of the picture is missing; --force")
                self.assertEqual(half.read_bytes(), whole[: len(whole) // 2])
        self.assertOnly("half.jpg", "link.jpg", "o.jpg")
        self.assertEqual(run("resize", "--width", "50", half, "-o", half, "--force")[0], 0)
        self.assertEqual(jpeg_size(half)[0], 50)

        start = whole.index(b"\xff\xda") + 20
        for data in (whole[:start], whole[:start] + b"\xff\xd9" + whole[start:]):
            half.write_bytes(data)
            self.assertEqual(run("convert", half, "-o", half, "--force")[0], 1)
            self.assertEqual(half.read_bytes(), data)

    def test_a_document_that_needs_a_password_says_so(self):
        document = self.dir / "locked.pdf"
        document.write_bytes(two_page_pdf(LOCKED))
        for command in (("info",), ("pdf", "-o", self.dir), ("convert", "-o", self.dir / "o.png")):
            self.assertEqual(run(command[0], document, *command[1:]),
                             (1, "", f"peximage: {document}: needs a password\n"))
        self.assertOnly("locked.pdf")

    def test_resize_family(self):
        cases = {
            ("--size", "100x50"): (100, 50),
            ("--width", "320"): (320, 240),
            ("--height", "120"): (160, 120),
            ("--max-side", "300"): (300, 225),
            ("--min-side", "240"): (320, 240),
            ("--max-side", "5000"): (640, 480),
        }
        for options, size in cases.items():
            out = self.dir / "r.png"
            self.assertEqual(run("resize", self.photo, "-o", out, *options)[0], 0, options)
            self.assertEqual(png_size(out), size)
        code, _, errors = run("resize", self.photo, "-o", self.dir / "x.png", "--width", 1000000000)
        self.assertEqual(code, 1)
        self.assertIn("cannot be made that large", errors)
        self.assertOnly("r.png")

    def test_many_inputs_go_to_a_folder_in_order(self):
        inputs = []
        for i in range(7):
            inputs.append(self.dir / f"in-{i}.jpg")
            inputs[-1].write_bytes(self.photo.read_bytes())
        inputs.insert(3, self.dir / "missing.jpg")
        inputs.insert(5, self.dir / "broken.jpg")
        inputs[5].write_bytes(b"\xff\xd8\xff\xe0 this is no picture")
        for jobs in (1, 3):
            out = self.dir / f"out{jobs}"
            code, text, errors = run("resize", *inputs, "-o", out, "--max-side", 64, "-j", jobs, "--format", "png")
            self.assertEqual(code, 1)
            self.assertEqual(sorted(os.listdir(out)), [f"in-{i}.png" for i in range(7)])
            self.assertEqual([line.split(" → ")[0] for line in text.splitlines()[:-1]],
                             [str(path) for path in inputs if path.name.startswith("in-")])
            self.assertEqual(errors, f"peximage: {inputs[3]}: no such file\npeximage: {inputs[5]}: damaged: its header cannot be read\n")

    def test_a_new_folder_is_made_whatever_the_format(self):
        twin = self.dir / "twin.jpg"
        twin.write_bytes(self.photo.read_bytes())
        for ending in ("jpg", "png", "tif", "webp", "heic", "avif"):
            out = self.dir / ending / "new"
            code, _, errors = run("convert", self.photo, twin, "-o", out, "--format", ending)
            self.assertEqual((code, errors, sorted(os.listdir(out))), (0, "", [f"photo.{ending}", f"twin.{ending}"]))
        for source, options, code, what in ((self.photo, (), 2, "out1 has no extension"),
                                            (self.photo, ("--format", "png"), 0, "")):
            self.assertEqual((code, what in (told := run("convert", source, "-o", "out1", *options, cwd=self.dir))[2]), (told[0], True))
        self.assertEqual(png_size(self.dir / "out1"), (640, 480))

    def test_budgets_count_pixels_whatever_the_resolution(self):
        sizes = []
        for dpi in (20, 72):
            source, out = self.dir / f"{dpi}.png", self.dir / f"{dpi}.heic"
            run("convert", self.photo, "-o", source, "--dpi", dpi)
            self.assertEqual(run("shrink", source, "-o", out, "--max-bytes", "2500")[0], 0)
            sizes.append(heif_header(out))
        self.assertEqual(sizes[0], sizes[1])

    def test_what_is_no_picture_is_told_apart(self):
        empty = self.dir / "empty.jpg"
        empty.touch()
        cases = {empty: "is empty", "/dev/null": "is no regular file",
                 self.dir / "nothing.png": "no such file", __file__: "not an image"}
        for path, reason in cases.items():
            for command in (("info",), ("convert", "-o", self.dir / "out.png")):
                code, text, errors = run(command[0], path, *command[1:])
                self.assertEqual((code, text, errors), (1, "", f"peximage: {path}: {reason}\n"))

    def test_names_and_texts_have_no_power_over_a_terminal(self):
        names = [b"a\x1b]0;title\x07\n.jpg", b"c1\xc2\x9b31m.jpg", b"latin\xff.jpg", "ü→.jpg".encode()]
        told = ["a\\x1b]0;title\\x07\\x0a.jpg", "c1\\x9b31m.jpg", "latin\\xff.jpg", "ü→.jpg"]
        for name in names:
            pathlib.Path(os.fsdecode(bytes(self.dir) + b"/" + name)).write_bytes(self.photo.read_bytes())
        inputs = [os.fsdecode(name) for name in names]
        code, text, _ = run("info", *inputs, cwd=self.dir)
        self.assertEqual((code, [line.split("  ")[0] for line in text.splitlines()]), (0, told))
        missing = [os.fsdecode(b"no" + name) for name in names]
        self.assertEqual(run("info", *missing, cwd=self.dir)[2],
                         "".join(f"peximage: no{name}: no such file\n" for name in told))
        code, text, _ = run("convert", *inputs, "-o", "out", "--json", cwd=self.dir)
        report = json.loads(text)
        self.assertEqual((code, len(report)), (0, 4))
        self.assertEqual([row.get("fileBytes") for row in report], [None, None, base64.b64encode(names[2]).decode(), None])
        self.assertEqual([row["file"] for row in report], [name.decode(errors="replace") for name in names])
        self.assertNotRegex(text, "[\x00-\x09\x0b-\x1f\x7f-\x9f]")

    def test_wrong_usage_exits_with_2_and_a_hint(self):
        photo, out = self.photo, self.dir / "o.jpg"
        calls = [(), ("nonsense",), ("shrink", photo), ("shrink", photo, "-o", out),
                 ("shrink", photo, "-o", out, "--max-bytes", "lots"), ("shrink", photo, "-o", out, "--max-bytes", "-5"),
                 ("shrink", photo, "-o", self.dir / "o.png", "--max-bytes", "5KB"),
                 ("shrink", photo, "-o", self.dir / "o.xyz", "--max-bytes", "5KB"),
                 ("convert", photo, "-o", out, "--quality", "1.5"), ("convert", photo, "-o", out, "--quality", "nan"),
                 ("convert", photo, "-o", out, "--quality", "0.5", "--max-bytes", "5KB"),
                 ("convert", photo, "-o", out, "--dpi", "0"), ("convert", photo, "-o", out, "--dpi", "-1"),
                 ("convert", photo, "-o", out, "--dpi", "70000"), ("convert", photo, photo, "-o", self.dir / "d"),
                 ("resize", photo, "-o", out), ("resize", photo, "-o", out, "--width", "0"),
                 ("resize", photo, "-o", out, "--width", "nan"), ("resize", photo, "-o", out, "--max-side", "inf"),
                 ("resize", photo, "-o", out, "--size", "10x"), ("resize", photo, "-o", out, "--width", "5", "--height", "5")]
        for call in calls:
            code, text, errors = run(*call)
            self.assertEqual((code, text), (2, ""), call)
            self.assertTrue(errors.startswith("peximage: ") and "--help" in errors, errors)
        self.assertOnly()

    def test_places_that_cannot_be_written(self):
        (self.dir / "file").write_bytes(b"x")
        code, _, errors = run("convert", self.photo, "-o", self.dir / "file" / "a.jpg")
        self.assertEqual(code, 1)
        self.assertIn("cannot write", errors)
        target = self.dir / "real.jpg"
        target.write_bytes(b"old")
        (self.dir / "link.jpg").symlink_to(target)
        self.assertEqual(run("convert", self.photo, "-o", self.dir / "link.jpg")[0], 0)
        self.assertTrue((self.dir / "link.jpg").is_symlink())
        self.assertEqual(jpeg_size(target), (640, 480))
        self.assertOnly("file", "real.jpg", "link.jpg")

    def test_a_full_disk_leaves_nothing_behind(self):
        for name, *options in (("big.png",), ("big.tif",), ("big.jpg", "--max-bytes", "50000"), ("big.webp",)):
            command = " ".join(["convert", f"'{self.photo}'", "-o", f"'{self.dir}/{name}'", *options])
            done = subprocess.run(["bash", "-c", f"ulimit -f 4; exec '{TOOL}' {command}"], capture_output=True, timeout=60)
            self.assertEqual(done.returncode, 1)
            self.assertRegex(done.stderr, rb"cannot write .*: File too large\n$")
        self.assertOnly()

    def test_a_signal_ends_what_cannot_be_interrupted(self):
        """A server that sends half a picture and then nothing."""
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.settimeout(60)
            for number in (signal.SIGTERM, signal.SIGHUP):
                address = f"http://127.0.0.1:{server.getsockname()[1]}/a.jpg"
                process = subprocess.Popen([TOOL, "fetch", address, "-o", self.dir / "a.jpg"], stderr=subprocess.PIPE,
                                           env={**os.environ, "XDG_CACHE_HOME": str(self.dir / "caches")})
                connection, _ = server.accept()
                connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n\xff\xd8")
                process.send_signal(number)
                _, errors = process.communicate(timeout=20)
                connection.close()
                self.assertEqual((process.returncode, errors), (128 + number, b"peximage: interrupted\n"))
        self.assertFalse((self.dir / "a.jpg").exists())

    def test_an_interrupt_leaves_whole_files_only(self):
        inputs = [self.dir / f"in-{i:03}.jpg" for i in range(200)]
        for path in inputs:
            path.write_bytes(self.photo.read_bytes())
        out = self.dir / "out"
        process = subprocess.Popen([TOOL, "convert", *inputs, "-o", out, "--format", "png", "-j", "1"],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        process.stdout.readline()  # the first one is done
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 130)
        self.assertIn(b"interrupted", errors)
        written = os.listdir(out)
        self.assertTrue(0 < len(written) < len(inputs))
        for name in written:
            self.assertEqual(png_size(out / name), (640, 480))

    def test_cutting_and_turning(self):
        cases = [
            (("crop", "--rect", "10,20,300,200"), (300, 200)),
            (("crop", "--rect", "600,0,300,200"), (40, 200)),
            (("crop", "--ratio", "1:1"), (480, 480)),
            (("crop", "--ratio", "1:1", "--zoom", "2"), (240, 240)),
            (("rotate", "--turn", "90"), (480, 640)),
            (("rotate", "--turn", "-90"), (480, 640)),
            (("rotate", "--turn", "180"), (640, 480)),
            (("rotate", "--straighten", "3"), (640, 480)),
            (("resize", "--fit", "200x200"), (200, 200)),
            (("resize", "--fill", "100x300"), (100, 300)),
        ]
        for (command, *options), size in cases:
            out = self.dir / "r.png"
            code, _, errors = run(command, self.photo, "-o", out, *options)
            self.assertEqual((code, errors, png_size(out)), (0, "", size), (command, options))
        run("rotate", self.photo, "-o", out, "--degrees", "30")
        width, height = png_size(out)
        self.assertTrue(790 <= width <= 800 and 733 <= height <= 740, (width, height))  # 640·cos + 480·sin
        code, text, errors = run("crop", self.photo, "-o", self.dir / "x.png", "--rect", "700,0,10,10")
        self.assertEqual((code, text, errors.count("\n")), (1, "", 1))

    def test_a_quarter_turn_goes_clockwise_on_screen(self):
        top, turned, left = self.dir / "top.png", self.dir / "turned.png", self.dir / "left.png"
        run("crop", self.photo, "-o", top, "--rect", "0,0,64,480")
        run("rotate", self.photo, "-o", turned, "--turn", "90")
        run("crop", turned, "-o", left, "--rect", "0,0,480,64")  # the left edge is on top now
        run("rotate", left, "-o", left, "--turn", "-90")
        self.assertEqual(left.read_bytes(), top.read_bytes())

    def test_turns_and_cuts_without_loss_are_those_of_jpegtran(self):
        def plain(data):  # the same coefficients, whatever their order and codes, and whatever stands around them
            return subprocess.run(["jpegtran", "-copy", "none"], input=data, capture_output=True, check=True).stdout

        def source(size, *how):
            ppm = subprocess.run(["djpeg", "-scale", "1/2", self.photo], capture_output=True, check=True).stdout[15:]
            width, height = size
            ppm = b"P6 %d %d 255\n" % size + b"".join(ppm[y * 960:][:3 * width] for y in range(height))
            return subprocess.run(["cjpeg", *how], input=ppm, capture_output=True, check=True).stdout

        ways = {"--turn 90": "-rotate 90", "--turn -90": "-rotate 270", "--turn 180": "-rotate 180", "--mirror horizontal": "-flip horizontal",
                "--mirror vertical": "-flip vertical", "--rect 32,16,45,31": "-crop 45x31+32+16"}
        sources = {"halved": source((96, 64)), "wide": source((96, 64), "-sample", "2x1"), "tall": source((96, 64), "-sample", "1x2", "-progressive"),
                   "full": source((88, 56), "-sample", "1x1"), "grey": source((88, 56), "-grayscale", "-sample", "2x2"), "odd": source((101, 75))}
        script = "import sys; from PIL import Image; Image.open(sys.argv[1]).convert('CMYK').resize((96, 64)).save(sys.argv[2])"
        subprocess.run(["/usr/bin/python3", "-c", script, self.photo, self.dir / "ink.jpg"], check=True, timeout=60)
        sources["ink"] = (self.dir / "ink.jpg").read_bytes()
        photo, out = self.dir / "a.jpg", self.dir / "b.jpg"
        for name, data in sources.items():
            photo.write_bytes(data)
            for way, other in ways.items():
                wanted = subprocess.run(["jpegtran", "-perfect", *other.split()], input=data, capture_output=True)
                done = run("crop" if "rect" in way else "rotate", photo, "-o", out, *way.split(), "--lossless")
                self.assertEqual(done[0], 1 if wanted.returncode else 0, (name, way, done))
                if done[0] == 0:
                    self.assertEqual(plain(out.read_bytes()), plain(wanted.stdout), (name, way))
        self.assertRegex(done[1], "45×31 .* bytes  without loss\n$")

        photo.write_bytes(sources["halved"])  # lies on its side; what else it says stays
        subprocess.run(["exiftool", "-q", "-overwrite_original", "-n", "-Orientation=6", "-Artist=me", "-GPSLatitude=5", "-GPSLatitudeRef=S",
                        "-XMP:Subject=sea", "-Comment=x", photo], check=True)
        self.check("rotate --turn 90 a.jpg -o b.jpg --metadata no-location", [("--progressive --lossless", 0, "without loss")])
        self.assertEqual(plain(out.read_bytes()), plain(subprocess.run(["jpegtran", "-rotate", "180", photo], capture_output=True).stdout))
        said = told(out)
        self.assertEqual([said.get(f"{key}") for key in ("IFD0:Orientation", "IFD0:Artist", "XMP-dc:Subject", "File:Comment", "GPS:GPSLatitude")],
                         [1, "me", "sea", "x", None])
        self.assertIn(b"\xff\xc2", out.read_bytes())  # progressive
        self.check("rotate a.jpg -o b.jpg", [("--turn 90 --quality 0.5", 0, "quality 0.5"), ("--turn 90 --lossless --quality 0.5", 2), ("--degrees 3 --lossless", 2)])
        photo.write_bytes(sources["odd"])
        self.check("rotate a.jpg -o b.jpg", [("--turn 90", 0, "quality 0.900"), ("--turn 90 --lossless", 1, "", "blocks of 16 pixels, and none begins down at 75")])
        photo.write_bytes(sources["halved"][:-300])
        self.check("rotate --turn 90 a.jpg", [("-o b.jpg", 0, "quality", "is missing"), ("-o b.jpg --lossless", 1, "", "damaged"), ("-o b.png --lossless", 1)])

    def test_pages_and_frames(self):
        # Frames of three sizes and places, which are left, cleared or taken back again; and what Pillow makes of them, on white.
        script = r"""
import sys; from PIL import Image, ImageChops, ImageDraw
def frame(i, size=(40, 30)):
    image = Image.new("RGBA", size); ImageDraw.Draw(image).rectangle((3 * i, 2 * i, 12 + 5 * i, 9 + 4 * i), [(200, 0, 0), (0, 90, 0), (0, 0, 250), (9, 9, 9)][i] + (255,)); image.putpixel((3 * i + 4, 2 * i + 4), (0, 0, 0, 0))
    return image
def on_white(image):
    return Image.alpha_composite(Image.new("RGBA", image.size, "white"), image.convert("RGBA"))
if len(sys.argv) == 1:
    frame(0).save("a.gif", save_all=True, append_images=[frame(1), frame(2), frame(3)], disposal=[1, 2, 3, 1])
    frame(0).save("a.webp", save_all=True, append_images=[frame(1), frame(2), frame(3)], lossless=True)
    frame(0).convert("RGB").save("a.tiff", save_all=True, append_images=[frame(1, (20, 30)), frame(2, (50, 20))])
    frame(0).convert("RGB").save("one.tiff")
for name in sys.argv[1:]:
    source = Image.open(f"a.{name}")
    for i in range(source.n_frames):
        source.seek(i); made = Image.open(f"out/a-{i + 1}.png")
        print(name, i, made.size == source.size and ImageChops.difference(on_white(made), on_white(source)).getextrema()[:3] == ((0, 0),) * 3)
"""
        def pillow_says(*words):
            return subprocess.run(["/usr/bin/python3", "-c", script, *words], cwd=self.dir, capture_output=True, check=True, timeout=60).stdout.decode().splitlines()
        pillow_says()
        for name, count in (("gif", 4), ("webp", 4), ("tiff", 3)):
            before = f"{(self.dir / f'a.{name}').stat().st_size:,}".replace(",", " ")
            self.check(f"convert a.{name} --format png --page all -o out", [("", 0, rf"(?s)^a.{name} page 1 → out/a-1.png  40×30  .*\n{count} files  {before} ", "^$")])
            self.assertEqual(pillow_says(name), [f"{name} {i} True" for i in range(count)])
            self.files()
        (self.dir / "two.pdf").write_bytes(two_page_pdf())
        self.check("convert -o b.png", [("a.tiff --page 2", 0, "a.tiff page 2 → b.png  20×30", "^$"), ("a.tiff", 0, "40×30", "^peximage: a.tiff: the first of 3 pages alone; --page all takes each\n$"),
                                        ("a.gif --page 5", 1, "^$", "^peximage: a.gif page 5: has no page 5; the last is 4\n$"), ("a.gif --page 0", 2), ("a.gif --page x", 2),
                                        ("one.tiff --page 2", 1, "", "the last is 1"), ("two.pdf --page 2", 0, "200×100")])
        self.check("info", [("a.tiff --page 3", 0, "a.tiff page 3  TIFF  50×20"), ("two.pdf --page all", 0, "page 1 .*\n.* page 2 ")])
        self.check("resize --max-side 9 --format jpg -o out one.tiff a.gif --page all", [("", 0, "^one.tiff → out/one.jpg .*\na.gif page 1 → out/a-1.jpg")])
        rows = json.loads(run("shrink", "a.webp", "--page", "3", "-o", "b.webp", "--max-bytes", "9K", "--json", cwd=self.dir)[1])
        self.assertEqual([(row["file"], row["page"]) for row in rows], [("a.webp", 3)])
        self.assertNotIn(b"ANIM", (self.dir / "b.webp").read_bytes())

    def test_split_and_join(self):
        code, text, _ = run("split", self.photo, "-o", self.dir, "--rows", 2, "--columns", 3, "--json")
        self.assertEqual(code, 0)
        rows = json.loads(text)
        self.assertEqual([len(row) for row in rows], [3, 3])
        self.assertEqual(sum(tile["width"] for tile in rows[0]), 640)
        self.assertEqual(sum(row[0]["height"] for row in rows), 480)
        self.assertOnly(*(f"photo-r{r}-c{c}.png" for r in range(2) for c in range(3)))
        for row in rows:
            for tile in row:
                self.assertEqual(png_size(tile["file"]), (tile["width"], tile["height"]))
        twin = pathlib.Path(self.shared.name) / "photo.png"
        run("convert", self.photo, "-o", twin)
        code, _, errors = run("split", self.photo, twin, "-o", self.dir, "--rows", 2, "--columns", 2)
        self.assertEqual(code, 2, errors)

        small = self.dir / "small.png"
        run("resize", self.photo, "-o", small, "--max-side", 320)
        sizes = {(): (640, 240), ("--scale", "max"): (1280, 480), ("--vertical",): (320, 480),
                 ("--vertical", "--scale", "max"): (640, 960)}
        for options, size in sizes.items():
            self.assertEqual(run("join", self.photo, small, "-o", self.dir / "j.png", *options)[0], 0)
            self.assertEqual(png_size(self.dir / "j.png"), size, options)

    def test_watermark_and_canvas(self):
        mark, out = self.dir / "mark.png", self.dir / "out.png"
        run("resize", self.photo, "-o", mark, "--max-side", 64)
        self.assertEqual(run("watermark", self.photo, mark, "-o", out, "--position", "Top Left", "--opacity", 0.5)[0], 0)
        self.assertEqual(png_size(out), (640, 480))
        self.assertEqual(run("watermark", self.photo, mark, "-o", out, "--position", "Middle")[0], 2)
        document = self.dir / "c.json"
        document.write_text("{ no document")
        code, _, errors = run("canvas", document, "-o", out)
        self.assertEqual((code, errors.count("\n")), (1, 1))
        layers = [{"source": {"identification": "url", "url": address}} for address in (mark.as_uri(), "file:///none.png")]
        document.write_text(json.dumps({"size": {"width": 40, "height": 30}, "layerList": layers}))
        code, text, errors = run("canvas", document, "-o", out)
        self.assertEqual((code, png_size(out), "40×30" in text), (1, (40, 30), True))
        self.assertEqual(errors, f"peximage: {document}: layer 2: file:///none.png is missing or no picture\n")

    def test_composer_documents(self):
        document = self.dir / "page.json"
        document.write_text('{"layerList": 5}')
        for verb in (("check",), ("guides",), ("replace", "a", "b", "-o", self.dir / "o.json")):
            code, text, errors = run("composer", document, *verb)
            self.assertEqual((code, text), (1, ""), verb)
            self.assertRegex(errors, r"peximage: .*: \S+: expected .+\n")
        self.assertEqual(run("composer", self.dir / "missing.json", "check")[0], 1)
        one = {"id": "c", "name": "C", "ratio": 1.5, "guideList_": [], "layerList": [], "shouldBeDeleted": False,
               "bgColor": {"red": 1, "green": 1, "blue": 1, "alpha": 1}}
        document.write_text(json.dumps({"configurationName": "Default", "composerList": [one, {**one, "layerList": 5}]}))
        code, _, errors = run("composer", document, "check")
        self.assertEqual((code, "list of 2 composers; --composer N" in errors), (1, True))
        alone = self.dir / "alone.json"
        alone.write_text(json.dumps(one))
        told = [run("composer", alone, "check"), run("composer", "--composer", 1, document, "check")]
        self.assertEqual((told[0][0], told[1][0]), (0, 0), told)
        self.assertEqual(told[0][1:], tuple(text.replace(str(document), str(alone)) for text in told[1][1:]))
        self.assertIn("layerList", run("composer", "--composer", 2, document, "check")[2])
        self.assertOnly("page.json", "alone.json")

        layer = {"id": "L", "layerType": "text", "image": {"type": "url", "ratio": 1, "resourceAccess": {}, "later": 1},
                 "shape": {"type": "circle", "style": {"strokeWidth": {"nonFinite": "nan"}, "fill": True, "fillStyle": "color",
                           "fillColor": {"red": 0.5, "green": 0, "blue": 0, "alpha": 1}}},
                 "text": {"text": "Draft", "later": [None]},
                 "transform": {"location": [0, 0], "scale": {"x": 1, "y": 1}, "rotation": 0, "opacity": 1}}
        page = {"later": {"than": "this"}, "id": "C", "name": "", "ratio": 1.5, "layerList": [layer, {**layer, "text": {}}],
                "guideList_": [], "bgColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1}, "shouldBeDeleted": False}
        document.write_text(json.dumps(page))
        code, text, _ = run("composer", document, "replace", "draft", "Final", "-o", document, "--json")
        self.assertEqual((code, json.loads(text)[0]["changed"]), (0, 1), "what cannot be compared has not changed")
        page["layerList"][0]["text"]["text"] = "Final"
        self.assertEqual(list(json.loads(document.read_text()).items()), list(page.items()), "all else stays")

    def test_keys_masks_and_colours(self):
        out = self.dir / "out.png"
        mask = self.dir / "mask.png"
        run("resize", self.photo, "-o", mask, "--size", "64x48")
        for command in (("key", self.photo, "--color", "#ffffff", "--tolerance", 200),
                        ("mask", self.photo, mask), ("mask", self.photo, mask, "--by", "alpha")):
            code, _, errors = run(*command, "-o", out)
            self.assertEqual((code, errors), (0, ""), command)
            self.assertEqual(png_size(out), (640, 480))
        code, text, _ = run("colors", self.photo, "--grid", "3x2", "--json")
        report, = json.loads(text)
        self.assertEqual((code, len(report["average"]), len(report["grid"])), (0, 4, 6))
        self.assertTrue(all(0 <= channel <= 1 for colour in report["grid"] for channel in colour))
        self.assertRegex(run("colors", self.photo)[1], r"photo.jpg  #[0-9a-f]{6}\n$")
        self.check_colors_of_halves()
        code, _, errors = run("key", self.photo, "--color", "ffffff", "-o", self.dir / "out.jpg")
        self.assertEqual((code, "JPEG has no transparency" in errors), (0, True))
        for wrong in (("key", self.photo, "-o", out, "--color", "ffffff", "--tolerance", "nan"),
                      ("crop", self.photo, "-o", out, "--ratio", "1:1", "--zoom", "nan"),
                      ("key", self.photo, "-o", out, "--color", "green"), ("key", self.photo, "-o", out),
                      ("mask", self.photo, "-o", out), ("mask", self.photo, self.dir / "none.png", "-o", out),
                      ("colors", self.photo, "--grid", "3")):
            self.assertEqual(run(*wrong)[0], 2, wrong)

    def test_masks_and_fills_at_any_resolution(self):
        white, grey, dense, out = (self.dir / name for name in ("white.png", "grey.png", "dense.jpg", "out.png"))
        run("filter", self.photo, "-o", white, "--fill", "ffffff")
        run("filter", self.photo, "-o", grey, "--fill", "808080")
        run("convert", self.photo, "-o", dense, "--dpi", 300)
        average = lambda: json.loads(run("colors", out, "--json")[1])[0]["average"]
        run("mask", dense, white, "-o", out)
        self.assertEqual(average()[3], 1)  # to the far corner
        run("mask", dense, grey, "-o", out)
        run("filter", out, "-o", out, "--fill", "804020")
        for told, wanted in zip(average(), (0x80, 0x40, 0x20, 255)):  # told with alpha multiplied in
            self.assertAlmostEqual(told, wanted / 255 * 128 / 255, delta=0.005)

    def check_colors_of_halves(self):
        """An image red above and blue below: grids that are coarser and finer than its quarter, and the mean."""
        halves, (red, blue) = self.dir / "halves.bmp", ([200 / 255, 0, 0, 1], [0, 0, 100 / 255, 1])
        pixels = b"\x64\x00\x00" * (32 * 16) + b"\x00\x00\xc8" * (32 * 16)  # B G R, the bottom row first
        halves.write_bytes(struct.pack("<2sIHHIIiiHHIIiiII", b"BM", 54 + len(pixels), 0, 0, 54, 40, 32, 32, 1, 24, 0, len(pixels),
                                       2835, 2835, 0, 0) + pixels)
        for columns, rows, exact in ((1, 4, (0, 3)), (8, 8, (0, 63)), (16, 32, (0, 240, 255, 256, 511)), (32, 32, (511, 512))):
            report, = json.loads(run("colors", halves, "--grid", f"{columns}x{rows}", "--json")[1])
            self.assertEqual(len(report["grid"]), columns * rows)
            for i in exact:
                wanted = red if i < columns * rows // 2 else blue
                self.assertTrue(all(abs(a - b) < 0.04 for a, b in zip(report["grid"][i], wanted)), (columns, rows, i))
            for told, wanted in zip(report["average"], (100 / 255, 0, 50 / 255, 1)):
                self.assertAlmostEqual(told, wanted, delta=0.04)

    def test_filters_go_in_the_order_given(self):
        small, a, b = (self.dir / f"{name}.png" for name in ("small", "a", "b"))
        run("resize", self.photo, "-o", small, "--width", 64)
        table = self.dir / "invert.cube"
        table.write_text("LUT_3D_SIZE 2\n" + "".join(f"{1 - r} {1 - g} {1 - b}\n" for b in (0, 1) for g in (0, 1) for r in (0, 1)))
        for steps in (("--sharpen", 0.5), ("--exposure", -1), ("--convolve", "0,-1,0,-1,7,-1,0,-1,0"), ("--lut", table),
                      ("--fill", "336699"), ("--gate", "both:0.5")):
            code, _, errors = run("filter", small, "-o", a, *steps)
            self.assertEqual((code, errors), (0, ""), steps)
        run("filter", small, "-o", a, "--lut", table, "--gate", "light:0.5")
        run("filter", small, "-o", b, "--gate", "light:0.5", "--lut", table)
        self.assertNotEqual(a.read_bytes(), b.read_bytes())
        run("filter", small, "-o", b, "--lut", table, "--lut", table, "--lut", table, "--gate", "light:0.5")
        self.assertEqual(a.read_bytes(), b.read_bytes())  # thrice is once
        for wrong in ((), ("--sharpen", "much"), ("--sharpen", "nan"), ("--convolve", "1,2,3"), ("--lut", small), ("--gate", "0.5"),
                      ("--fill", "blue"), ("--convolve", "1,2,3,4,5,6,7,8,99999")):
            self.assertEqual(run("filter", small, "-o", a, *wrong)[0], 2, wrong)

    def test_the_stored_cache(self):
        os.environ["XDG_CACHE_HOME"] = str(self.dir)
        self.addCleanup(os.environ.pop, "XDG_CACHE_HOME")
        out = self.dir / "out.jpg"
        self.assertEqual(run("cache", "Thumbs", "put", "a/b", self.photo)[::2], (0, ""))
        self.assertEqual(png_size(self.dir / "Thumbs" / "a" / "b.png"), (640, 480))
        self.assertEqual(json.loads(run("cache", "Thumbs", "list", "--json")[1])[0]["identifiers"], ["a/b"])
        self.assertEqual(run("cache", "Thumbs", "get", "a/b", "-o", out)[::2], (0, ""))
        self.assertEqual(jpeg_size(out), (640, 480))
        for wrong in (("get", "none", "-o", out), ("put", "../../x", self.photo), ("put", "x", self.dir / "none.jpg")):
            self.assertEqual(run("cache", "Thumbs", *wrong)[0], 1, wrong)
        self.assertIn("1 image left", run("cache", "Thumbs", "clean")[1])
        self.assertIn("0 images left", run("cache", "Thumbs", "clean", "--days", 0)[1])
        self.assertOnly("Thumbs", "out.jpg")

    def test_remote_pictures(self):
        small = self.dir / "remote.png"
        self.assertEqual(run("resize", self.photo, "-o", small, "--size", "60x40")[0], 0)
        other = self.dir / "other.png"
        self.assertEqual(run("resize", self.photo, "-o", other, "--size", "30x20")[0], 0)
        files = {"/a.png": small.read_bytes(), "/text.png": b"log in first"}
        caches = str(self.dir / "caches")
        with web_server(files) as (address, asked):
            for _ in range(2):  # the second time from the cache
                status, line, errors = run("fetch", f"{address}/a.png?size=1", "-o", self.dir / "a.jpg", XDG_CACHE_HOME=caches)
                self.assertEqual((status, errors), (0, ""))
                self.assertIn("60×40", line)
                self.assertEqual(jpeg_size(self.dir / "a.jpg"), (60, 40))
            self.assertEqual(asked, ["/a.png?size=1"])
            with web_server({"/a.png": other.read_bytes()}) as (elsewhere, _):
                self.assertEqual(run("fetch", f"{elsewhere}/a.png", "-o", self.dir / "same.png", XDG_CACHE_HOME=caches)[0], 0)
            self.assertEqual((self.dir / "same.png").read_bytes(), other.read_bytes())  # as they are, of that server
            run("fetch", f"{address}/a.png?size=1", "-o", self.dir / "a.jpg", "--refresh", XDG_CACHE_HOME=caches)
            self.assertEqual(asked.count("/a.png?size=1"), 2)
            (self.dir / "all").mkdir()
            status, told, errors = run("fetch", f"{address}/a.png", f"{address}/none.png", f"{address}/text.png", "-o",
                                       self.dir / "all", "--json", XDG_CACHE_HOME=caches)
            self.assertEqual(status, 1)
            self.assertEqual([("error" in row, row["file"].removeprefix(address)) for row in json.loads(told)],
                             [(False, "/a.png"), (True, "/none.png"), (True, "/text.png")])
            self.assertEqual(png_size(self.dir / "all" / "a.png"), (60, 40))
            self.assertEqual(sorted(errors.splitlines()), [f"peximage: {address}/none.png: the server answered 404",
                                                           f"peximage: {address}/text.png: not an image"])
        status, _, errors = run("fetch", "photo.jpg", "-o", self.dir / "a.jpg")
        self.assertEqual(status, 2)
        self.assertIn("no address", errors)

    def test_the_viewer_needs_a_desktop(self):
        nowhere = {"DISPLAY": "", "WAYLAND_DISPLAY": "", "QT_QPA_PLATFORM": "xcb"}
        status, told, errors = run("view", self.photo, **nowhere)
        self.assertEqual((status, told), (1, ""))
        self.assertRegex(errors, r"^peximage: [^\n]*\n$")
        self.assertEqual(run("view", **nowhere)[0], 2)

    def test_the_resizer_of_applications(self):
        small = self.dir / "resized.png"
        status, told, _ = run(self.photo, small, 120, program=RESIZER)
        self.assertEqual((status, told), (0, "DONE\n"))
        self.assertEqual(max(png_size(small)), 120)
        kept = small.read_bytes()
        for words in ((self.dir / "none.jpg", small, 10), (self.photo, small, 0), (self.photo, small, "ten"),
                      (self.photo, self.dir / "a.xyz", 10), (self.photo, self.photo / "a.png", 10), (self.photo, small)):
            status, told, _ = run(*words, program=RESIZER)
            self.assertNotEqual(status, 0, words)
            self.assertEqual(told.count("\n"), 1)
            self.assertFalse(told.strip().upper().endswith("DONE"), told)
        self.assertEqual(small.read_bytes(), kept)

    def test_pages_of_a_document(self):
        document = self.dir / "two.pdf"
        document.write_bytes(two_page_pdf())
        pages = self.dir / "pages"
        code, text, errors = run("pdf", document, "-o", pages, "--dpi", 144, "--json")
        self.assertEqual((code, errors), (0, ""))
        self.assertEqual([(row["width"], row["height"]) for row in json.loads(text)], [(400, 200), (400, 200)])
        self.assertEqual([png_size(pages / f"two-{n}.png") for n in (1, 2)], [(400, 200)] * 2)
        code, text, _ = run("pdf", document, "-o", pages, "--page", 2, "--dpi", 72, "--format", "jpg")
        self.assertEqual(jpeg_size(pages / "two-2.jpg"), (200, 100))
        self.assertEqual(sorted(os.listdir(pages)), ["two-1.png", "two-2.jpg", "two-2.png"])
        self.assertIn("200×100", run("info", document)[1])
        for arguments, what in ((("--page", 3), "no page 3"), (("--page", 0), "--page")):
            self.assertIn(what, run("pdf", document, "-o", pages, *arguments)[2])
        document.write_bytes(two_page_pdf()[:40])
        self.assertEqual(run("pdf", document, "-o", pages)[::2],
                         (1, f"peximage: {document}: not a PDF document\n"))

    def test_modules_are_found_however_the_tool_is_started(self):
        (self.dir / "peximage").mkdir()
        for module in ("heif", "tiff", "webp", "gif"):
            (self.dir / "peximage" / f"{module}.so").write_text("planted")
        (self.dir / "link").symlink_to(TOOL)
        self.assertEqual(run("convert", self.photo, "-o", self.dir / "a.heic")[0], 0)
        if not os.environ.get("SANITIZERS"):  # which open pipes to find out whether an address can be read
            few = subprocess.run([TOOL, "info", self.dir / "a.heic"], capture_output=True, timeout=120,
                                 preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (4, 4)))
            self.assertEqual((few.returncode, few.stderr),
                             (1, f"peximage: {self.dir}/a.heic: too many open files\n".encode()))
        folder = os.path.dirname(TOOL)
        starts = {"through PATH": ("peximage", {"PATH": folder}), "an empty name": ("", {}), "any name": ("a b/c", {}),
                  "a link": ("./link", {}), "a file of that name here": ("peximage/heif.so", {})}
        for what, (name, environment) in starts.items():
            done = subprocess.run([name, "--version"], executable=name if what == "a link" else TOOL, cwd=self.dir,
                                  env={**os.environ, **environment}, capture_output=True, timeout=120)
            self.assertIn("HEIF", done.stdout.decode().partition("writes")[2], what)
            made = subprocess.run([name, "convert", self.photo, "-o", "a.tiff"], executable=TOOL, cwd=self.dir,
                                  env={**os.environ, **environment}, capture_output=True, timeout=120)
            self.assertEqual((made.returncode, made.stderr), (0, b""), what)

    def test_the_manual_and_the_table_in_the_readme(self):
        self.assertEqual(run("--write-manual", self.dir), (0, "", ""))
        self.assertIn((self.dir / "commands.md").read_text(), README.read_text())
        pages = {path.name for path in (self.dir / "man1").iterdir()}
        self.assertEqual(pages, {"peximage.1", *(f"peximage-{command}.1" for command in COMMANDS)})
        for name in pages:
            done = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", self.dir / "man1" / name], capture_output=True, timeout=60,
                                  env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "100"})
            self.assertEqual((done.returncode, done.stderr), (0, b""), name)
            if name == "peximage-shrink.1":
                for words in ("--max-bytes SIZE", "-o,--output OUT", "peximage shrink photo.jpg -o small.jpg"):
                    self.assertIn(words, done.stdout.decode())

    def test_the_recipes_of_the_documentation(self):
        self.place("holiday/a.jpg", "holiday/b.jpg", "holiday/lake/c.jpg")
        two = "from PIL import Image; a = Image.new('L', (40, 30)); a.save('scan.tif', save_all=True, append_images=[a])"
        subprocess.run(["/usr/bin/python3", "-c", two], cwd=self.dir, check=True, timeout=60)
        blocks = re.findall(r"```(sh|make)\n(.*?)```", (README.parent / "docs" / "tool.md").read_text(), re.S)
        self.assertGreater(len(blocks), 9)
        for kind, text in blocks:
            (self.dir / "Makefile").write_text(text if kind == "make" else "")
            done = subprocess.run(["bash", "-ec", "mkdir -p small; make small/a.jpg" if kind == "make" else text], cwd=self.dir, timeout=120,
                                  env={**os.environ, "PATH": f"{os.path.dirname(TOOL)}:{os.environ['PATH']}"}, capture_output=True)
            self.assertEqual((done.returncode, done.stderr), (0, b""), text)
        for made in ("pages/scan-2.jpg", "web/lake/c.jpg", "modern/b.avif", "thumbs/lake/c.webp", "a.png", "out/b.jpg", "small/a.jpg", "part-1/a.jpg"):
            self.assertTrue((self.dir / made).is_file(), made)
        self.assertEqual(len(json.loads((self.dir / "photos.json").read_text())), 3)

    def test_completion_in_bash(self):
        run("--write-manual", self.dir)
        script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _peximage 2>&1; printf "%s\\n" "${COMPREPLY[@]}"'
        for words, wanted in (("sh", ["shrink"]), ("--v", ["--version"]), ("shrink --max-b", ["--max-bytes"]), ("convert --chroma ", ["auto", "full", "half"]),
                              ("convert a.jpg --effort n", ["normal"]), ("watermark --position Top\\ L", ["Top\\ Left"]), ("rotate --turn -", ["-90"]),
                              ("composer page.json ch", ["check"]), ("cache Thumbs put --j", ["--json"]), ("info ph", [""]), ("shrink -o x", [""])):
            call = ["peximage", *(word.replace("\\ ", " ") for word in re.split(r"(?<!\\) ", words))]
            done = subprocess.run(["bash", "-c", script, "bash", self.dir / "peximage.bash", *call], capture_output=True, timeout=60)
            self.assertEqual(done.stdout.decode().splitlines(), wanted, words)

    def test_completion_in_zsh_and_fish(self):
        run("--write-manual", self.dir)
        self.place("photo.jpg")
        lines = ("peximage shr", "peximage shrink --max-b", "peximage convert --chroma f", "peximage rotate --turn 18", "peximage watermark --position Top\\ L",
                 "peximage composer page.json che", "peximage info pho", "peximage cache Th put --j", "peximage convert -o pho")
        wanted = ("shrink", "--max-bytes", "full", "180", "Top Left", "check", "photo.jpg", "--json", "photo.jpg")
        told = [subprocess.run(["fish", "-c", f"source ./peximage.fish; complete -C '{line}'"], cwd=self.dir, capture_output=True, timeout=60,
                               env={**os.environ, "HOME": str(self.dir)}).stdout.decode().split("\t")[0].strip() for line in lines]
        self.assertEqual(told, list(wanted))
        self.assertEqual(typed_in_zsh(self.dir, lines), [line[: line.rindex("Top" if "Top" in line else " ")].rstrip() + " " + word.replace(" ", "\\ ")
                                                         for line, word in zip(lines, wanted)])

    def test_help_and_version(self):
        for call in (("--help",), ("--version",), *((command, "--help") for command in COMMANDS)):
            code, text, errors = run(*call)
            self.assertEqual((code, errors), (0, ""), call)
            self.assertTrue("Example: peximage" in text or len(call) == 1, text)


if __name__ == "__main__":
    unittest.main()
