"""Runs scripts/check-dependencies on small made-up trees."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "check-dependencies"

GOOD = {
    "peximage/platform/Export.h": "#include <memory>\n",
    "peximage/platform/geometry/Point.h": "#include <cmath>\n#include <nlohmann/json_fwd.hpp>\n",
    "peximage/platform/raster/kernels/Row.h": '#include "peximage/platform/geometry/Point.h"\n',
    "peximage/platform/raster/Image.h": '#include "peximage/platform/Export.h"\n',
    "peximage/platform/raster/Image.cpp": '#include "peximage/platform/raster/Image.h"\n'
    '#include "peximage/platform/raster/kernels/Row.h"\n#include <lcms2.h>\n#include <sys/mman.h>\n',
    "peximage/platform/codecs/jpeg/JpegError.h": "#include <jpeglib.h>\n",
    "peximage/platform/codecs/jpeg/JpegScan.h": '#include "peximage/platform/raster/kernels/Row.h"\n',
    "peximage/platform/codecs/jpeg/Jpeg.cpp": '#include "peximage/platform/codecs/jpeg/JpegError.h"\n',
    "peximage/image/Photo.h": '#include "peximage/platform/raster/Image.h"\nclass PEX_EXPORT Photo;\n',
}

# name, files laid over the good tree, what the check has to say
BAD = [
    (
        "upwards within the platform",
        {"peximage/platform/geometry/Up.h": '#include "peximage/platform/raster/Image.h"\n'},
        "geometry includes raster, which stands above it",
    ),
    (
        "from beside the rooms into one",
        {"peximage/platform/Export.h": '#include "peximage/platform/geometry/Point.h"\n'},
        "platform includes geometry",
    ),
    (
        "out of the platform",
        {"peximage/platform/raster/Out.cpp": '#include "peximage/image/Photo.h"\n'},
        "platform includes image, which stands above it",
    ),
    (
        "a room that the check does not know",
        {"peximage/platform/attic/Box.h": '#include "peximage/platform/geometry/Point.h"\n'},
        "folder attic has no rank",
    ),
    (
        "upwards within the library",
        {"peximage/image/Up.h": '#include "peximage/pixels/P.h"\n', "peximage/pixels/P.h": ""},
        "image includes pixels, which stands above it",
    ),
    (
        "one program's parts in another",
        {"apps/viewer/A.cpp": '#include "apps/tool/Text.h"\n', "apps/tool/Text.h": ""},
        "neither of its own folder nor below it",
    ),
    (
        "the library's rooms in a module",
        {"modules/heif/A.cpp": '#include "peximage/image/Photo.h"\n'},
        "neither of its own folder nor below it",
    ),
    ("a relative path", {"peximage/image/Rel.cpp": '#include "Photo.h"\n'}, 'begins with "peximage/"'),
    ("a file that is gone", {"peximage/image/Gone.cpp": '#include "peximage/No.h"\n'}, "no such file"),
    ("its own header in angles", {"peximage/image/A.cpp": "#include <peximage/image/Photo.h>\n"}, "in quotes"),
    ("another library in a source", {"peximage/image/F.cpp": "#include <fmt/format.h>\n"}, "other libraries"),
    ("another library, spaced out", {"peximage/image/T.h": "  #  include  <tbb/task.h>\n"}, "other libraries"),
    ("all of JSON", {"peximage/image/J.h": "#include <nlohmann/json.hpp>\n"}, "other libraries"),
    (
        "a public header that needs another library",
        {"peximage/image/Leak.h": '#include "peximage/platform/codecs/jpeg/JpegError.h"\nPEX_EXPORT int leak();\n'},
        "JpegError.h: jpeglib.h: a public header includes another library",
    ),
    (
        "a public header that needs a kernel",
        {"peximage/peximage.h": '#include "peximage/platform/codecs/jpeg/JpegScan.h"\n'},
        "JpegScan.h: peximage/platform/raster/kernels/Row.h: a public header includes a kernel",
    ),
    (
        "a circle of three",
        {
            "peximage/image/A.h": '#include "peximage/image/B.h"\n',
            "peximage/image/B.h": '#include "peximage/image/C.h"\n',
            "peximage/image/C.h": '#include "peximage/image/A.h"\n',
        },
        "A.h -> peximage/image/B.h -> peximage/image/C.h -> peximage/image/A.h",
    ),
]


def run_on(files):
    with tempfile.TemporaryDirectory() as root:
        for name, text in files.items():
            path = pathlib.Path(root, name)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")
        return subprocess.run([sys.executable, SCRIPT, root], capture_output=True, text=True, check=False)


class CheckDependencies(unittest.TestCase):
    def test_accepts_a_good_tree(self):
        result = run_on(GOOD)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_names_each_violation(self):
        for name, files, message in BAD:
            with self.subTest(name):
                result = run_on({**GOOD, **files})
                self.assertEqual(result.returncode, 1)
                self.assertIn(message, result.stderr)
                self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)

    def test_refuses_a_folder_without_sources(self):
        self.assertEqual(run_on({"README.md": ""}).returncode, 1)


if __name__ == "__main__":
    unittest.main()
