"""Measures the viewer on a desktop without a screen."""
import pathlib
import statistics
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
from virtual_desktop import VirtualDesktop  # noqa: E402

SCREEN = 1920, 1080


class Viewer:
    """The viewer at work, read by what it tells of itself."""

    def __init__(self, desktop, tool, *items):
        self.process = subprocess.Popen([tool, "view", "--verbose", *map(str, items)], env=desktop.environment(),
                                        stderr=subprocess.PIPE, text=True)

    def told(self, words):
        """The numbers of the next line that holds the words."""
        for line in self.process.stderr:
            if words in line:
                return [int(word) for word in line.replace("(", " ").split() if word.isdigit()]
        raise RuntimeError("the viewer ended")

    def resident_megabytes(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text(encoding="ascii")
        return int(status.split("VmRSS:")[1].split()[0]) / 1000

    def end(self):
        self.process.kill()
        self.process.wait()
        self.process.stderr.close()


def first_picture(tool, photo, rounds):
    """Medians: milliseconds from the window's making to its first picture, and of loading that."""
    shown, loading = [], []
    with VirtualDesktop(*SCREEN) as desktop:
        for _ in range(rounds):
            viewer = Viewer(desktop, tool, photo)
            loading.append(viewer.told("ready after")[2])
            shown.append(viewer.told("first picture drawn")[0])
            viewer.end()
    return statistics.median(shown), statistics.median(loading)


def paging(tool, photos, early):
    """Resident megabytes after so many photos, and after all."""
    with VirtualDesktop(*SCREEN) as desktop:
        viewer = Viewer(desktop, tool, *photos)
        viewer.told("picture 0 ready")
        for index in range(1, len(photos)):
            desktop.press("Right")
            viewer.told(f"picture {index} ready")
            if index == early:
                few = viewer.resident_megabytes()
        many = viewer.resident_megabytes()
        viewer.end()
    return few, many
