"""Runs scripts/setup with stand-ins for the package tools."""
import os
import pathlib
import subprocess
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "setup"
LIST = "# what it needs\nalpha\nbeta # with a reason\n\ngamma\n"


class Setup(unittest.TestCase):
    def run_with(self, installed, user="0"):
        """Runs the script where only `installed` is there; returns its result and the calls of apt-get."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "list.txt").write_text(LIST, encoding="utf-8")
            answers = "".join(f"echo '{name} {state}'\n" for name, state in installed.items())
            self.add_program(root, "dpkg-query", answers)
            self.add_program(root, "apt-get", f'echo "$*" >> {root}/calls\n')
            self.add_program(root, "id", f"echo {user}\n")
            for name in ("bash", "env", "grep", "sed", "tr", "dirname"):
                (root / name).symlink_to(pathlib.Path("/usr/bin", name))
            result = subprocess.run(
                ["/usr/bin/bash", SCRIPT, root / "list.txt"],
                env={**os.environ, "PATH": folder}, capture_output=True, text=True, check=False,
            )
            calls = root / "calls"
            return result, calls.read_text(encoding="utf-8").splitlines() if calls.exists() else []

    @staticmethod
    def add_program(root, name, body):
        path = root / name
        path.write_text("#!/usr/bin/bash\n" + body, encoding="utf-8")
        path.chmod(0o755)

    def test_says_and_does_nothing_when_all_is_there(self):
        result, calls = self.run_with(dict.fromkeys(("alpha", "beta", "gamma"), "installed"))
        self.assertEqual((result.returncode, result.stdout, result.stderr, calls), (0, "", "", []))

    def test_installs_just_what_is_missing(self):
        result, calls = self.run_with({"alpha": "installed", "gamma": "config-files"})
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(calls[-1].split()[-2:], ["beta", "gamma"])
        self.assertNotIn("alpha", calls[-1])

    def test_tells_what_to_install_where_it_may_not(self):
        result, calls = self.run_with({"alpha": "installed"}, user="1000")
        self.assertEqual((result.returncode, calls), (1, []))
        self.assertIn("apt-get install beta gamma", result.stderr)


if __name__ == "__main__":
    unittest.main()
