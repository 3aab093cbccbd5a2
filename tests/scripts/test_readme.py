"""What the pages in Markdown show and name is there: code in the programs that are built and run, and files."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Pages whose code is compiled, and the programs that it stands in.
COMPILED = {"README.md": ["tests/consumers/main.cpp"], "docs/guide.md": sorted(
    str(path.relative_to(ROOT)) for path in (ROOT / "examples/guide").glob("*.cpp"))}
# Folders that a path in a text may begin with; other words with slashes are no paths.
ROOMS = {path.name for path in ROOT.iterdir() if path.is_dir()} - {"build", ".git"}


def pages():
    return [*ROOT.glob("*.md"), *(page for room in sorted(ROOMS) for page in (ROOT / room).rglob("*.md"))]


def missing_in(page):
    """The links and paths of a page that lead nowhere."""
    text = page.read_text(encoding="utf-8")
    links = [link.split("#")[0] for link in re.findall(r"\]\(([^)\s]+)\)", text) if "://" not in link]
    paths = [path for path in re.findall(r"`([\w./-]+)`", text) if path.split("/")[0] in ROOMS and "/" in path]
    return [link for link in links if link and not (page.parent / link).exists()] + \
        [path for path in paths if not (ROOT / path).exists()]


class Pages(unittest.TestCase):
    def test_code_is_compiled(self):
        for page, programs in COMPILED.items():
            text = "\n".join((ROOT / program).read_text(encoding="utf-8") for program in programs)
            code = "".join(text.split())
            blocks = re.findall(r"```cpp\n(.*?)```", (ROOT / page).read_text(encoding="utf-8"), re.S)
            self.assertTrue(blocks, page)
            for part in "\n\n".join(blocks).split("\n\n"):
                self.assertTrue("".join(part.split()) in code, f"{page}: no program has this\n{part}")

    def test_links_and_paths_lead_somewhere(self):
        missing = {str(page.relative_to(ROOT)): missing_in(page) for page in pages()}
        self.assertEqual({page: names for page, names in missing.items() if names}, {})

    def test_pictures_are_small(self):
        files = [path for path in (ROOT / "docs").rglob("*") if path.suffix in (".jpg", ".png", ".svg")]
        self.assertTrue(files)
        self.assertLess(sum(path.stat().st_size for path in files), 3_000_000)


if __name__ == "__main__":
    unittest.main()
