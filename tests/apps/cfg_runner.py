"""Runs the command for the tests beside this file.

Each of them is started as: TEST.py CFG SOURCE-FOLDER
"""
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

CFG = os.path.abspath(sys.argv.pop(1)) if len(sys.argv) > 2 else "cfg"
SOURCE = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else ".").resolve()

# Nothing of the caller's tree or log reaches the command.
ENVIRONMENT = {name: text for name, text in os.environ.items()
               if not name.startswith(("HALVORIA_", "KESTRAL_"))}
ENVIRONMENT.update(PATH=os.path.dirname(CFG) + ":" + os.environ["PATH"], LC_ALL="C.UTF-8")


class CfgTest(unittest.TestCase):
    """A folder of its own for each test, which holds the example as tree.xml."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="cfg_test_"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.fresh_tree()

    def fresh_tree(self):
        shutil.copy(SOURCE / "examples/installation.xml", self.folder / "tree.xml")

    def run_cfg(self, line, stdin="", **options):
        """The command with the words of `line`; shell quotes, but a backslash is a backslash."""
        words = shlex.shlex(line, posix=True, punctuation_chars=False)
        words.whitespace_split, words.escape, words.commenters = True, "", ""
        words = list(words)
        data = stdin if isinstance(stdin, bytes) else stdin.encode()
        options = {"env": ENVIRONMENT, "cwd": self.folder, **options}
        done = subprocess.run([CFG, *words], input=data, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=120, check=False, **options)
        # No line of the library's log gets between the command's own words.
        for text in done.stderr.decode().splitlines():
            self.assertTrue(text.startswith('{"' if "--json" in words else "cfg: "), text)
        return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode()

    def on_tree(self, line, stdin=""):
        return self.run_cfg("--file tree.xml " + line, stdin)

    def tree_bytes(self):
        return (self.folder / "tree.xml").read_bytes()
