#!/usr/bin/env python3
"""Drives the viewer by keys on a desktop without a screen and looks at what it shows. The programs are named
by the environment: PEXIMAGE, SAMPLE_SCENE."""
import http.server
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from virtual_desktop import Picture, VirtualDesktop  # noqa: E402

TOOL = os.environ["PEXIMAGE"]
SCENE = os.environ["SAMPLE_SCENE"]
RED, GREEN, BLUE, YELLOW = (200, 20, 30), (10, 180, 60), (30, 40, 210), (220, 200, 0)
GROUND = (38, 40, 44)


def quarters(width, height):
    """Red and green above, blue and yellow below."""
    above = bytearray(bytes(RED) * (width // 2) + bytes(GREEN) * (width - width // 2))
    below = bytearray(bytes(BLUE) * (width // 2) + bytes(YELLOW) * (width - width // 2))
    return Picture(width, height, [above if y < height // 2 else below for y in range(height)])


def plain(width, height, color):
    return Picture(width, height, [bytearray(bytes(color) * width)] * height)


def is_near(a, b, tolerance=3):
    return all(abs(x - y) <= tolerance for x, y in zip(a, b))


def lights(picture, area):
    """How many pixels of a part are clearly brighter than the ground."""
    part = picture.part(*area)
    return sum(min(row[i:i + 3]) > 120 for row in part.rows for i in range(0, 3 * part.width, 3))


class SlowServer:
    """Sends a picture when it is told to."""

    def __init__(self, content):
        self.released = threading.Event()
        server = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                server.released.wait(60)
                self.send_response(200 if self.path != "/missing.png" else 404)
                self.send_header("Content-Length", str(len(content)))
                self.end_headers()
                self.wfile.write(content)

            def log_message(self, *_):
                pass

        self.http = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.http.serve_forever, daemon=True).start()

    def address(self, path):
        return f"http://127.0.0.1:{self.http.server_port}{path}"

    def close(self):
        self.released.set()
        self.http.shutdown()
        self.http.server_close()


class ViewerTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.desktop = VirtualDesktop(800, 600)
        self.addCleanup(self.desktop.__exit__)

    def file(self, name, picture):
        path = self.folder / name
        picture.write_png(path)
        return str(path)

    def view(self, *items, scale=1):
        return self.desktop.start([TOOL, "view", *items], QT_SCALE_FACTOR=str(scale),
                                  XDG_CACHE_HOME=str(self.folder / "cache"))

    def assert_shows(self, points, tolerance=3):
        """Waits until the pixels at some points have their colours."""
        def all_there(picture):
            return all(is_near(picture.pixel(*point), color, tolerance) for point, color in points.items())

        picture = self.desktop.wait_until(all_there)
        if picture is None:
            seen = self.desktop.screenshot()
            self.fail(f"wanted {points}, seen {[seen.pixel(*point) for point in points]}")
        return picture

    def test_goes_through_pictures(self):
        viewer = self.view(self.file("a.png", quarters(400, 300)), self.file("b.png", plain(400, 200, RED)),
                           self.file("c.png", plain(200, 300, BLUE)))
        four = {(100, 75): RED, (300, 75): GREEN, (100, 225): BLUE, (300, 225): YELLOW, (199, 149): RED,
                (200, 150): YELLOW}
        self.assert_shows(four)
        self.desktop.press("Right")
        self.assert_shows({(200, 55): RED, (200, 245): RED, (200, 45): GROUND, (200, 255): GROUND})
        self.desktop.press("End")
        self.assert_shows({(105, 5): BLUE, (295, 295): BLUE, (95, 150): GROUND, (305, 150): GROUND})
        self.desktop.press("Right", "Home")  # nothing comes after the last
        self.assert_shows(four)
        self.desktop.press("q")
        self.assertEqual(viewer.wait(30), 0)

    def test_shows_photos_as_the_library_reduces_them(self):
        photo, reduced = self.folder / "photo.jpg", self.folder / "reduced.jpg"
        subprocess.run([SCENE, str(photo)], check=True)
        self.view(str(photo))
        self.assertIsNotNone(self.desktop.wait_until(lambda p: p.pixel(300, 200) not in ((0, 0, 0), GROUND)))
        picture = self.settled()
        width = max(x for x in range(picture.width) if picture.pixel(x, 10) != (0, 0, 0)) + 1
        height = max(y for y in range(picture.height) if picture.pixel(10, y) != (0, 0, 0)) + 1
        shown, decoded = self.folder / "shown.png", self.folder / "decoded.png"
        picture.part(0, 0, width, height).write_png(shown)
        subprocess.run([TOOL, "resize", str(photo), "-o", str(decoded), "--size", f"{width}x{height}"], check=True,
                       stdout=subprocess.DEVNULL)
        grids = [self.colors(path) for path in (shown, decoded)]
        for a, b in zip(*grids):
            self.assertTrue(is_near([255 * v for v in a], [255 * v for v in b], 2), (a, b))

    def settled(self):
        """A screenshot after which nothing has changed."""
        last = [self.desktop.screenshot()]

        def unchanged(picture):
            same = picture.rows == last[0].rows
            last[0] = picture
            return same

        return self.desktop.wait_until(unchanged)

    def colors(self, path):
        told = subprocess.run([TOOL, "colors", str(path), "--grid", "12x9", "--json"], check=True,
                              capture_output=True).stdout
        return json.loads(told)[0]["grid"]

    def test_zooms_and_moves(self):
        self.view(self.file("large.png", quarters(1600, 1200)))
        fitted = {(10, 10): RED, (310, 230): RED, (330, 250): YELLOW, (630, 470): YELLOW}  # to 640 × 480
        self.assert_shows(fitted)
        self.desktop.press("1")  # every pixel of the picture is one of the screen
        self.assert_shows({(10, 10): RED, (319, 239): RED, (320, 240): YELLOW})
        self.desktop.press("shift+Right")  # the window moves to the right, the picture to the left
        self.assert_shows({(259, 10): RED, (262, 10): GREEN, (262, 239): GREEN, (262, 241): YELLOW})
        self.desktop.press(*["shift+Right"] * 20)  # not beyond the picture's edge
        self.assert_shows({(2, 10): GREEN, (637, 470): YELLOW})
        self.desktop.press("0")
        self.assert_shows(fitted)

    def test_uses_all_pixels_of_a_dense_screen(self):
        stripes = Picture(300, 200, [bytearray((bytes(RED) + bytes(BLUE)) * 150)] * 200)
        self.view(self.file("stripes.png", stripes), scale=2)
        # A window of at least 160 × 120 points: the picture, 300 × 200 pixels, is in its middle at (10, 20).
        picture = self.assert_shows({(10, 22): RED, (11, 22): BLUE, (308, 219): RED, (309, 219): BLUE})
        self.assertTrue(is_near(picture.pixel(5, 100), GROUND))

    def test_tells_why_there_is_no_picture(self):
        broken = self.folder / "broken.jpg"
        broken.write_bytes(b"no picture")
        middle = (100, 100, 600, 300)
        self.view(self.file("a.png", plain(790, 500, GROUND)), str(self.folder / "none.jpg"), str(broken))
        self.assert_shows({(400, 10): GROUND})  # a window of 640 × 405
        for _ in range(2):
            self.desktop.press("Right")
            self.assertIsNotNone(self.desktop.wait_until(lambda p: lights(p, middle) > 100))
            self.desktop.press("Home")
            self.assertIsNotNone(self.desktop.wait_until(lambda p: lights(p, middle) == 0))
            self.desktop.press("Right")

    def test_shows_a_placeholder_until_a_remote_picture_arrives(self):
        server = SlowServer(pathlib.Path(self.file("x.png", quarters(300, 300))).read_bytes())
        self.addCleanup(server.close)
        self.view(server.address("/x.png"), server.address("/missing.png"))
        waiting = self.desktop.wait_until(lambda p: p.pixel(5, 5) == GROUND and lights(p, (200, 120, 400, 300)) > 500)
        self.assertIsNotNone(waiting)
        server.released.set()
        picture = self.desktop.wait_until(
            lambda p: any(is_near(p.pixel(x, y), YELLOW) for x in range(0, 700, 50) for y in range(0, 500, 50)))
        self.assertIsNotNone(picture)
        self.desktop.press("Right")  # a picture in the body of an answer that tells of an error
        self.assertIsNotNone(self.desktop.wait_until(
            lambda p: 20 < lights(p, (100, 100, 600, 300)) and not any(
                is_near(p.pixel(x, y), YELLOW) for x in range(0, 700, 50) for y in range(0, 500, 50))))


if __name__ == "__main__":
    unittest.main(verbosity=2)
