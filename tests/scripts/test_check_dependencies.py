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

# name, what the check has to say, files laid over the good tree
BAD = [
    ("upwards within the platform", "geometry includes raster, which stands above it",
     {"peximage/platform/geometry/Up.h": '#include "peximage/platform/raster/Image.h"\n'}),
    ("from beside the rooms into one", "platform includes geometry",
     {"peximage/platform/Export.h": '#include "peximage/platform/geometry/Point.h"\n'}),
    ("out of the platform", "platform includes image, which stands above it",
     {"peximage/platform/raster/Out.cpp": '#include "peximage/image/Photo.h"\n'}),
    ("a room that the check does not know", "folder attic has no rank",
     {"peximage/platform/attic/Box.h": '#include "peximage/platform/geometry/Point.h"\n'}),
    ("upwards within the library", "image includes pixels, which stands above it",
     {"peximage/image/Up.h": '#include "peximage/pixels/P.h"\n', "peximage/pixels/P.h": ""}),
    ("one program's parts in another", "neither of its own folder nor below it",
     {"apps/viewer/A.cpp": '#include "apps/tool/Text.h"\n', "apps/tool/Text.h": ""}),
    ("the library's rooms in a module", "neither of its own folder nor below it",
     {"modules/heif/A.cpp": '#include "peximage/image/Photo.h"\n'}),
    ("a relative path", 'begins with "peximage/"', {"peximage/image/Rel.cpp": '#include "Photo.h"\n'}),
    ("a file that is gone", "no such file", {"peximage/image/Gone.cpp": '#include "peximage/No.h"\n'}),
    ("its own header in angles", "in quotes", {"peximage/image/A.cpp": "#include <peximage/image/Photo.h>\n"}),
    ("another library in a source", "other libraries", {"peximage/image/F.cpp": "#include <fmt/format.h>\n"}),
    ("another library, spaced out", "other libraries", {"peximage/image/T.h": "  #  include  <tbb/task.h>\n"}),
    ("all of JSON", "other libraries", {"peximage/image/J.h": "#include <nlohmann/json.hpp>\n"}),
    ("a public header that needs another library",
     "JpegError.h: jpeglib.h: a public header includes another library",
     {"peximage/image/Leak.h": '#include "peximage/platform/codecs/jpeg/JpegError.h"\nPEX_EXPORT int leak();\n'}),
    ("a public header that needs a kernel",
     "JpegScan.h: peximage/platform/raster/kernels/Row.h: a public header includes a kernel",
     {"peximage/peximage.h": '#include "peximage/platform/codecs/jpeg/JpegScan.h"\n'}),
    ("a circle of three", "A.h -> peximage/image/B.h -> peximage/image/C.h -> peximage/image/A.h",
     {f"peximage/image/{a}.h": f'#include "peximage/image/{b}.h"\n' for a, b in ("AB", "BC", "CA")}),
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
        for name, message, files in BAD:
            with self.subTest(name):
                result = run_on({**GOOD, **files})
                self.assertEqual(result.returncode, 1)
                self.assertIn(message, result.stderr)
                self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)

    def test_refuses_a_folder_without_sources(self):
        self.assertEqual(run_on({"README.md": ""}).returncode, 1)


if __name__ == "__main__":
    unittest.main()
