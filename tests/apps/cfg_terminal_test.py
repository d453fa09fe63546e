"""What people see who sit before it: completion in a real bash, and lines that fit."""
import fcntl
import os
import pty
import select
import shutil
import struct
import subprocess
import termios
import threading

from cfg_runner import CFG, ENVIRONMENT, SOURCE, CfgTest, unittest

# the line before the cursor, the first line of the answer, the words of the answer
OFFERS = [
    ("cfg g", "words", ["get"]),
    ("cfg blob ", "words", ["get", "put"]),
    ("cfg ls --js", "words", ["--json"]),
    ("cfg rm --dr", "words", ["--dry-run"]),
    ("cfg ls --dr", "words", []),
    ("cfg import --mode no", "words", ["no-overwrite"]),
    ("cfg get x --type=d", "words", ["double"]),
    ("cfg import tr", " files", []),
    ("cfg --file tr", " files", []),
    ("cfg --file tree.xml diff tr", " files", []),
    ("cfg --file tree.xml diff h tr", " files", []),
    # paths, with the separators and quotes of what is typed; a lone key gives what is below it
    ("cfg --file tree.xml get halvoria/groups/adm", "words nospace",
     ["halvoria/groups/administrators/" + name for name in ("members/", "rights/", "title")]),
    ("cfg --file=tree.xml get halvoria/groups/administrators/members", "words",
     ["halvoria/groups/administrators/members/member1"]),
    (r"cfg --file tree.xml get 'halvoria\conf\reports\p", "words",
     [r"halvoria\conf\reports\paper"]),
    (r'cfg --file tree.xml get "halvoria\\conf\\reports\\p', "words",
     [r"halvoria\\conf\\reports\\paper"]),
    (r"cfg --file tree.xml get halvoria\\conf\\reports\\p", "words",
     [r"halvoria\\conf\\reports\\paper"]),
    (r"cfg --file tree.xml get halvoria\conf\reports\p", "words",
     [r"halvoria\\conf\\reports\\paper"]),
    ("cfg --file tree.xml get HALVORIA/Conf/reports/p", "words", ["halvoria/conf/reports/paper"]),
    ("cfg --file tree.xml get halvoria/odd/t", "words", [r"halvoria/odd/two\ \$words"]),
    ("cfg --file tree.xml get 'halvoria\\odd\\t", "words", [r"halvoria\odd\two $words"]),
    ("cfg --file tree.xml get halvoria/odd/sl", "words", []),  # that name holds a slash
    ("cfg --file tree.xml get 'halvoria\\odd\\sl", "words", [r"halvoria\odd\slash/ed"]),
    ("cfg --file tree.xml rm halvoria/odd/x halvoria/odd/t", "words",
     [r"halvoria/odd/two\ \$words"]),
    ("cfg --file tree.xml get halvoria/conf/reports/paper ", "words", []),
    ("cfg --file tree.xml get nothing/", "words", []),
    ("cfg --file gone.xml get halvoria/", None, []),
    ("cfg --file tree.xml set halvoria/n 'some te", "words", []),
]

# what is typed before the tabulator, what stands there afterwards
TYPED = [
    ("cfg va", "cfg validate "),
    ("cfg --file tree.xml get hal", "cfg --file tree.xml get halvoria/"),
    ("cfg --file tree.xml get halvoria/conf/re", "cfg --file tree.xml get halvoria/conf/reports/"),
    (r"cfg --file tree.xml get 'halvoria\conf\reports\pa",
     r"cfg --file tree.xml get 'halvoria\conf\reports\paper' "),
    (r"cfg --file tree.xml get halvoria\\conf\\reports\\pa",
     r"cfg --file tree.xml get halvoria\\conf\\reports\\paper "),
    ("cfg --file=tree.xml get halvoria/odd/a", "cfg --file=tree.xml get halvoria/odd/a:104 "),
    ("cfg --file=tree.xml get halvoria/odd/a:1", "cfg --file=tree.xml get halvoria/odd/a:104 "),
    ("cfg --file=tr", "cfg --file=tree.xml "),
    ("cfg import --mode rep", "cfg import --mode replace "),
]


class Terminal(CfgTest):
    def setUp(self):
        super().setUp()
        for name in ("two $words", "slash/ed", "a:104"):
            self.on_tree(f"set 'halvoria\\odd\\{name}' x")

    def test_completion_offers_what_fits(self):
        for line, kind, words in OFFERS:
            with self.subTest(line):
                run = subprocess.run([CFG, "__complete", "--", line, line.split(" ")[-1]],
                                     cwd=self.folder, env=ENVIRONMENT, check=False, text=True,
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                self.assertEqual((run.returncode, run.stderr), (0, ""))
                first, *offered = run.stdout.splitlines() or [None]
                self.assertEqual((first, offered), (kind, words))

    def test_completion_works_in_a_shell(self):
        os.mkfifo(self.folder / "typed")
        setup = (f"source {SOURCE}/apps/cfg/cfg.bash\nPS1=\n"
                 "bind 'set show-all-if-ambiguous on' 'set enable-bracketed-paste off'\n"
                 "tell() { printf '%s\\n' \"$READLINE_LINE\" > typed; }\n"
                 "bind -x '\"\\C-t\": tell'\n")
        (self.folder / "bashrc").write_text(setup)
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.folder)
            os.execvpe("bash", ["bash", "--noprofile", "--rcfile", "bashrc", "-i"],
                       {**ENVIRONMENT, "TERM": "dumb"})
        threading.Thread(target=drain, args=(terminal,), daemon=True).start()
        try:
            for typed, expected in TYPED:
                with self.subTest(typed):
                    # Clear the line, type, complete, tell.
                    os.write(terminal, b"\x15" + typed.encode() + b"\t\x14")
                    with open(self.folder / "typed") as answer:
                        self.assertEqual(answer.read().rstrip("\n"), expected)
        finally:
            os.write(terminal, b"\x15exit\n")
            os.waitpid(pid, 0)

    def test_lines_are_cut_to_the_terminal_and_hold_no_control_characters(self):
        self.on_tree("set halvoria/odd/escape -", "\x7f" + "ž" * 100)
        self.on_tree("set halvoria/odd/wide -", "画" * 100)
        for verb, option, width in (("tree", "-c", 40), ("ls", "-l", 25)):
            shown = self.shown_on_terminal(width, verb, option, "halvoria/odd")
            self.assertIn("escape = \\x7Fž", shown)
            self.assertIn("…", shown)
            for line in shown.splitlines():
                columns = sum(2 if letter == "画" else 1 for letter in line)
                self.assertLessEqual(columns, width, line)
        whole = self.shown_on_terminal(40, "get", "halvoria/x", "--default", "é" * 200)
        self.assertEqual(whole, "é" * 200 + "\n")
        ascii_lines = self.run_cfg("--file tree.xml tree halvoria/groups/administrators",
                                   env={**ENVIRONMENT, "LC_ALL": "C"})[1]
        self.assertIn("|-- members\\\n|   `-- member1 = brandt\n", ascii_lines)

    def shown_on_terminal(self, columns, *words):
        terminal, other_end = pty.openpty()
        fcntl.ioctl(other_end, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        run = subprocess.Popen([CFG, "--file", "tree.xml", *words], cwd=self.folder,
                               env=ENVIRONMENT, stdout=other_end, stderr=subprocess.PIPE)
        os.close(other_end)
        shown = drain(terminal)
        os.close(terminal)
        self.assertEqual((run.communicate()[1], run.returncode), (b"", 0))
        return shown.decode().replace("\r\n", "\n")


def drain(terminal):
    """Everything that comes until the other end is closed."""
    shown = b""
    while True:
        select.select([terminal], [], [])
        try:
            piece = os.read(terminal, 65536)
        except OSError:  # how a terminal says so
            return shown
        if not piece:
            return shown
        shown += piece


if __name__ == "__main__":
    if not shutil.which("bash"):
        del Terminal.test_completion_works_in_a_shell
    unittest.main(verbosity=2)
