"""A desktop without a screen, for tests and pictures of the viewer: Xvfb keeps its pixels in a file, and
xdotool types. A context manager:

    with VirtualDesktop(width, height) as desktop:
        desktop.start(command)
        desktop.press("Right")
        picture = desktop.screenshot()
"""
import mmap
import os
import pathlib
import struct
import subprocess
import tempfile
import time
import zlib


class Picture:
    """Pixels as R G B, rows top first."""

    def __init__(self, width, height, rows):
        self.width, self.height, self.rows = width, height, rows

    def pixel(self, x, y):
        return tuple(self.rows[y][3 * x:3 * x + 3])

    def part(self, x, y, width, height):
        return Picture(width, height, [row[3 * x:3 * (x + width)] for row in self.rows[y:y + height]])

    def write_png(self, path):
        def chunk(kind, data):
            return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

        header = struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)
        lines = b"".join(b"\0" + bytes(row) for row in self.rows)
        pathlib.Path(path).write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header)
                                       + chunk(b"IDAT", zlib.compress(lines, 9)) + chunk(b"IEND", b""))


def read_xwd(data):
    """A picture from an X window dump with 32 bits a pixel."""
    fields = struct.unpack(">25I", data[:100])
    header, width, height, bits, stride, colors = (fields[i] for i in (0, 4, 5, 11, 12, 19))
    assert bits == 32, bits
    begin = header + 12 * colors
    rows = []
    for y in range(height):
        line = data[begin + y * stride:begin + y * stride + 4 * width]
        row = bytearray(3 * width)
        row[0::3], row[1::3], row[2::3] = line[2::4], line[1::4], line[0::4]  # stored as B G R x
        rows.append(row)
    return Picture(width, height, rows)


class VirtualDesktop:
    PATIENCE = 30  # seconds for anything to show

    def __init__(self, width, height):
        self.folder = tempfile.TemporaryDirectory()
        ready, told = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(told), "-screen", "0", f"{width}x{height}x24", "-fbdir", self.folder.name,
             "-nocursor", "-noreset", "-nolisten", "tcp"], pass_fds=[told], stderr=subprocess.DEVNULL)
        os.close(told)
        with os.fdopen(ready) as line:
            self.display = ":" + line.readline().strip()
        self.programs = []
        # Without a window manager keys go to the window below the pointer; all are at the upper left.
        subprocess.run(["xdotool", "mousemove", "20", "20"], env=self.environment(), check=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for program in self.programs:
            program.kill()
            program.wait()
        self.server.terminate()
        self.server.wait()
        self.folder.cleanup()

    def environment(self, **more):
        return {**os.environ, "DISPLAY": self.display, "QT_QPA_PLATFORM": "xcb",
                "XDG_RUNTIME_DIR": self.folder.name, **more}

    def start(self, command, **environment):
        program = subprocess.Popen(command, env=self.environment(**environment), stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self.programs.append(program)
        return program

    def press(self, *keys):
        subprocess.run(["xdotool", "key", *keys], env=self.environment(), check=True)

    def screenshot(self):
        with open(pathlib.Path(self.folder.name) / "Xvfb_screen0", "rb") as file:
            with mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as memory:
                return read_xwd(memory[:])

    def wait_until(self, shows):
        """The first screenshot for which `shows` is true; None when there is none for too long."""
        deadline = time.monotonic() + self.PATIENCE
        while time.monotonic() < deadline:
            picture = self.screenshot()
            if shows(picture):
                return picture
            time.sleep(0.02)
        return None
