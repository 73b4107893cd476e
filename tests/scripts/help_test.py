"""Every script tells its use, and refuses what it does not know, before it does anything."""
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPTS = Path(os.environ["NQ360_SOURCE"], "scripts")
# All that a script finds: what it does besides telling its use fails.
TOOLS = ["sh", "env", "python3", "sed", "dirname", "basename"]


class Help(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copytree(SCRIPTS, self.folder / "tree" / "scripts")
        (self.folder / "bin").mkdir()
        for tool in TOOLS:
            (self.folder / "bin" / tool).symlink_to(shutil.which(tool))

    def names(self):
        names = sorted(path.name for path in SCRIPTS.iterdir() if path.is_file())
        self.assertIn("demo", names)
        return names

    def run_script(self, name, *arguments):
        before = self.files()
        ended = subprocess.run([f"scripts/{name}", *arguments], cwd=self.folder / "tree",
                               env={"PATH": str(self.folder / "bin"), "HOME": str(self.folder), "LANG": "C.UTF-8",
                                    "PYTHONDONTWRITEBYTECODE": "1"},
                               stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        self.assertEqual(self.files(), before, "a file was made")
        return ended

    def files(self):
        return sorted(str(path) for path in self.folder.rglob("*"))

    def test_help_is_the_use(self):
        for name in self.names():
            with self.subTest(script=name):
                ended = self.run_script(name, "--help")
                self.assertEqual((ended.returncode, ended.stderr), (0, ""))
                self.assertRegex(ended.stdout, rf"(?im)^usage: (scripts/)?{name}\b")
                self.assertRegex(ended.stdout, r"[A-Z][^:]+\.\s", "it does not say what it does")

    def test_an_unknown_option_is_refused_with_the_use(self):
        for name in self.names():
            with self.subTest(script=name):
                ended = self.run_script(name, "--no-such-option")
                self.assertEqual((ended.returncode, ended.stdout), (2, ""))
                self.assertIn("--no-such-option", ended.stderr)
                self.assertRegex(ended.stderr, rf"(?im)^usage: (scripts/)?{name}\b")


if __name__ == "__main__":
    unittest.main()
