"""What the documentation shows works, and its types are right."""

import re
import subprocess
import sys
from pathlib import Path

import pytest
from PIL import Image as pillow

PAGE = Path(__file__).parents[2] / "docs" / "python.md"
SNIPPETS = re.findall(r"```python\n(.*?)```", PAGE.read_text(), re.S)


@pytest.fixture()
def folder(tmp_path, monkeypatch):
    exif = pillow.Exif()
    exif.get_ifd(0x8769)[0x9003] = "2021:07:14 18:30:05"
    pillow.new("RGB", (400, 300), "teal").save(tmp_path / "photo.jpg", exif=exif)
    monkeypatch.chdir(tmp_path)
    for name in ("XDG_DATA_HOME", "XDG_CACHE_HOME"):
        monkeypatch.setenv(name, str(tmp_path))
    return tmp_path


def test_snippets_run(folder):
    names = {"data": (folder / "photo.jpg").read_bytes()}
    for snippet in SNIPPETS:
        exec(compile(snippet, str(PAGE), "exec"), names)


SETTINGS = """
[tool.basedpyright]
typeCheckingMode = "strict"
reportUnusedExpression = false
[[tool.mypy.overrides]]
module = ["ray.*", "pyarrow.*"]
ignore_missing_imports = true
"""


PYRIGHT = ["basedpyright", "--pythonpath", sys.executable]


@pytest.mark.parametrize(
    "checker", [["mypy", "--strict", "snippets.py"], ["mypy", "--strict", "-p", "peximage"], PYRIGHT]
)
def test_types(folder, checker):
    (folder / "pyproject.toml").write_text(SETTINGS)
    (folder / "snippets.py").write_text("data = b''\n" + "\n".join(SNIPPETS))
    told = subprocess.run([sys.executable, "-m", *checker], capture_output=True, text=True)
    assert told.returncode == 0, told.stdout + told.stderr
