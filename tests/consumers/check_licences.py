#!/usr/bin/env python3
"""docs/licences.md names every Debian package that a build links or loads, and a build without the GPL needs none of
those that the page puts under it. Usage: check_licences.py BUILD BUILD_WITHOUT_GPL"""
import pathlib
import re
import subprocess
import sys

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs/licences.md"
ARCHIVE = re.compile(r"/usr/\S+\.a\b")


def output(*command):
    return subprocess.run(command, capture_output=True, text=True).stdout


def needed_files(build):
    """Libraries that the loader opens for what was built, each with those that it needs in turn, and archives."""
    built = [path for folder in ("lib", "bin") for path in (build / folder).rglob("*")]
    objects = [path for path in built if path.is_file() and path.read_bytes()[:4] == b"\x7fELF"]
    tests = [path for path in objects if "test" in path.name]
    loaded = re.findall(r"(?:=> )?(/\S+) \(0x", output("ldd", *map(str, set(objects) - set(tests))))
    linked = ARCHIVE.findall(output("ninja", "-C", str(build), "-t", "commands", "peximage-tool"))
    return {path for path in [*loaded, *linked] if not path.startswith(str(build))}


def needed_packages(build):
    # The list of a package's files may have either path of a library, /lib being a link to /usr/lib.
    paths = {path for file in needed_files(build) for path in (file, str(pathlib.Path(file).resolve()))}
    both = paths | {path.removeprefix("/usr") for path in paths} | {f"/usr{path}" for path in paths}
    return set(re.findall(r"^([^\s:,]+)(?::\w+)?: /", output("dpkg", "-S", *both), re.M))


def main():
    rows = re.findall(r"^\|(.*)\|([^|]*)\|$", PAGE.read_text(encoding="utf-8"), re.M)
    licences = {name: licence.strip() for names, licence in rows for name in re.findall(r"`([^`]+)`", names)}
    gpl = {name for name, licence in licences.items() if licence.startswith("GPL")}
    whole, free = (needed_packages(pathlib.Path(build)) for build in sys.argv[1:3])
    if missing := (whole | free) - set(licences):
        sys.exit(f"{PAGE.name} does not name {sorted(missing)}")
    if not whole & gpl or len(free) < 20:
        sys.exit("the builds were not looked into")
    if free & gpl:
        sys.exit(f"the build without the GPL needs {sorted(free & gpl)}")


if __name__ == "__main__":
    main()
