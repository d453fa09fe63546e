"""What happens to files: which tree is taken, and what survives failures, kills and rivals."""
import fcntl
import json
import os
import re
import resource
import signal
import subprocess

from cfg_runner import CFG, ENVIRONMENT, CfgTest, unittest

PARAMETERS = "cfg_type = file\nxml_file = {}\nlocal_host_ip = 192.0.2.11\n"
SITE = "get halvoria/conf/site/name"


def many_nodes(example, count):
    """The example with so many values more: a tree that takes its time to be saved."""
    nodes = "".join(
        f"<node>\n<path_segment>halvoria\\z\\v{i:06}</path_segment>\n"
        f"<parent_path_segment>halvoria\\z</parent_path_segment>\n<value>{i}</value>\n</node>\n\n"
        for i in range(count))
    return example.replace(b"</branch>", nodes.encode() + b"</branch>")


class Files(CfgTest):
    def start(self, *words):
        return subprocess.Popen([CFG, *words], cwd=self.folder, env=ENVIRONMENT)

    def write(self, name, text):
        (self.folder / name).write_text(text)

    def test_a_tree_is_taken_from_the_first_place_that_names_one(self):
        for name in ("file", "params", "environment", "default"):
            self.run_cfg(f"--create --file {name}.xml set halvoria/conf/site/name {name}")
        self.write("params.txt", PARAMETERS.format("params.xml"))
        self.write("environment.txt", PARAMETERS.format("environment.xml"))
        self.write("CfgConnectionParams.txt", PARAMETERS.format("default.xml"))
        named = {**ENVIRONMENT, "HALVORIA_CFG_FILE": "environment.txt"}
        gone = {**ENVIRONMENT, "HALVORIA_CFG_FILE": "gone.txt"}
        self.write("gone.txt", PARAMETERS.format("gone.xml"))
        self.write("memory.txt", "cfg_type = memory\n")
        for options, environment, code, output, error in [
            ("--file file.xml --params params.txt", named, 0, "file\n", ""),
            ("--params params.txt", named, 0, "params\n", ""),
            ("", named, 0, "environment\n", ""),
            ("", ENVIRONMENT, 0, "default\n", ""),
            ("", gone, 5, "", "cannot open <gone.xml>"),
            ("", {**gone, "HALVORIA_CFG_FILE": "missing.txt"}, 5, "", "missing.txt"),
            ("--params missing.txt", named, 5, "", "missing.txt"),
            ("--params memory.txt", named, 5, "", "cfg type <memory> is not supported"),
            ("--file missing.xml", named, 5, "", "cannot open <missing.xml>"),
            ("--file .", named, 5, "", "it is a folder"),
        ]:
            with self.subTest(options, environment=environment.get("HALVORIA_CFG_FILE")):
                got = self.run_cfg(f"{options} {SITE}", env=environment)
                self.assertEqual(got[:2], (code, output), got[2])
                self.assertIn(error, got[2])
        self.assertEqual(self.run_cfg("--params params.txt set halvoria/conf/site/name new")[0], 0)
        self.assertEqual(self.run_cfg("--file params.xml " + SITE)[1], "new\n")
        # Properties of the local node come with the parameters.
        self.write("CfgConnectionParams.txt", PARAMETERS.format("tree.xml"))
        line = "get 'halvoria/system/nodes/<CurrMachine>/properties/host'"
        self.assertEqual(self.run_cfg(line)[1], "rack1-03\n")

    def test_a_piece_of_a_tree_can_be_read_but_not_changed(self):
        self.on_tree("export halvoria/users users.xml")
        code, output, _ = self.run_cfg("--file users.xml get halvoria/users/osei/language")
        self.assertEqual((code, output), (0, "en\n"))
        before = (self.folder / "users.xml").read_bytes()
        code, _, error = self.run_cfg("--file users.xml set halvoria/users/osei/language fr")
        self.assertEqual((code, (self.folder / "users.xml").read_bytes()), (1, before))
        self.assertIn("holds only halvoria\\users", error)

    def test_no_export_writes_over_the_tree_itself(self):
        before = self.tree_bytes()
        self.write("params.txt", PARAMETERS.format("tree.xml"))
        os.symlink("tree.xml", self.folder / "symbolic.xml")
        os.link(self.folder / "tree.xml", self.folder / "hard.xml")
        for name in ("tree.xml", "./tree.xml", f"{self.folder}/tree.xml", "symbolic.xml", "hard.xml"):
            for line in (f"--file tree.xml export halvoria/conf {name}",
                         f"--file tree.xml --dry-run export --format bytes halvoria/conf {name}",
                         f"--file {name} blob get halvoria/conf/site/logo tree.xml",
                         f"--params params.txt export halvoria/conf {name}"):
                code, _, error = self.run_cfg(line)
                self.assertEqual(code, 1, line)
                self.assertIn("is the file of the tree itself", error)
        self.assertEqual(self.tree_bytes(), before)

    def test_export_and_import_give_the_same_bytes(self):
        before = self.tree_bytes()
        self.on_tree("export halvoria file.xml")
        piped = self.on_tree("export halvoria -")[1].encode()
        self.run_cfg("--create --file new.xml import -", before)
        for name in ("file.xml", "new.xml"):
            self.assertEqual((self.folder / name).read_bytes(), before, name)
        self.assertEqual(piped, before)

    # A program may be started without them. A text of this length is told to the log while the file
    # is written.
    def test_no_line_gets_into_the_tree_of_a_command_without_standard_streams(self):
        for closed in ((0, 2), (1, 2), (0, 1, 2)):
            done = subprocess.run([CFG, "-vv", "--file", "tree.xml", "set", r"halvoria\conf\long",
                                   "x" * 20000], cwd=self.folder, env=ENVIRONMENT, check=False,
                                  preexec_fn=lambda streams=closed: [os.close(i) for i in streams])
            self.assertEqual(done.returncode, 0, closed)
            self.assertEqual(self.on_tree("get halvoria/conf/long")[:2], (0, "x" * 20000 + "\n"), closed)
            self.assertEqual(self.on_tree("rm halvoria/conf/long")[0], 0, closed)
        without_input = subprocess.run(
            [CFG, "--file", "tree.xml", "blob", "put", r"halvoria\conf\site\logo", "-"],
            cwd=self.folder, env=ENVIRONMENT, stderr=subprocess.DEVNULL, check=False,
            preexec_fn=lambda: os.close(0))
        self.assertEqual(without_input.returncode, 4)

    def test_byte_arrays_hold_the_same_trees(self):
        before = self.tree_bytes()
        self.on_tree("export --format bytes halvoria all.bin")
        self.on_tree("export --format bytes --header halvoria/users users.bin")
        piped = self.folder / "piped.bin"
        with open(piped, "wb") as file:
            subprocess.run([CFG, "--file", "tree.xml", "export", "--format", "bytes",
                            "halvoria\\users", "-"], cwd=self.folder, env=ENVIRONMENT, stdout=file,
                           check=True)
        self.assertTrue((self.folder / "users.bin").read_bytes().endswith(piped.read_bytes()))
        for line in ("diff all.bin tree.xml", "diff users.bin piped.bin",
                     "--file tree.xml diff halvoria/users users.bin"):
            self.assertEqual(self.run_cfg(line)[:2], (0, ""), line)
        self.run_cfg("--file new.xml --create import all.bin")
        self.assertEqual((self.folder / "new.xml").read_bytes(), before)

        for line in ("import --format bytes users.bin", "import --under halvoria piped.bin"):
            self.on_tree("rm halvoria/users/osei")
            self.assertEqual(self.on_tree(line)[0], 0, line)
            self.assertEqual(self.on_tree("get halvoria/users/osei/language")[1], "en\n", line)
        self.on_tree("set halvoria/users/osei/language fr")
        self.on_tree("import --mode no-overwrite users.bin")
        self.assertEqual(self.on_tree("get halvoria/users/osei/language")[1], "fr\n")
        self.on_tree("import --mode replace users.bin")
        self.assertEqual(self.run_cfg("diff tree.xml new.xml")[:2], (0, ""))

        facts = json.loads(self.run_cfg("--json stat users.bin")[1])
        self.assertEqual((facts["form"], facts["path"], facts["size"], facts["values_below"]),
                         ("bytes with header", "halvoria\\users",
                          os.path.getsize(self.folder / "users.bin"), 31))
        self.assertIn("bytes\n", self.run_cfg("stat piped.bin")[1])
        self.assertEqual(self.run_cfg("--file all.bin get halvoria/users/osei/language")[1], "en\n")

    def test_a_file_of_a_key_with_any_name_holds_that_key(self):
        nodes = "<node><path_segment>{0}</path_segment></node>" \
                "<node><path_segment>{0}\\v</path_segment><value>1</value></node>"
        for name in ("halvoria", "<site>"):
            shown = name.replace("<", "&lt;")
            (self.folder / "two.xml").write_text("<tree><branch>" + "</branch><branch>".join(
                nodes.format(path) for path in ("halvoria\\users", f"halvoria\\{shown}\\in"))
                + "</branch></tree>")
            (self.folder / "new.xml").unlink(missing_ok=True)
            tree = "--file new.xml --create --property site=users "
            self.assertEqual(self.run_cfg(tree + "import two.xml")[0], 0, name)
            self.assertEqual(self.run_cfg(tree + "diff halvoria two.xml")[:2], (0, ""), name)
            if name == "<site>":  # which a path on the command line stands for another key
                continue
            for form in ("--format xml", "--format bytes --header"):
                self.run_cfg(tree + f"export {form} halvoria\\{name} one")
                for line in ("validate one", tree + f"diff halvoria\\{name} one"):
                    self.assertEqual(self.run_cfg(line)[0], 0, name + form)
                self.run_cfg(tree + f"rm halvoria\\{name}")
                self.assertEqual(self.run_cfg(tree + "import one")[0], 0, name + form)
                self.assertEqual(self.run_cfg(tree + "diff halvoria two.xml")[:2], (0, ""), name + form)

    def test_byte_arrays_that_do_not_fit_change_nothing(self):
        self.on_tree("export --format bytes halvoria/users users.bin")
        self.on_tree("export --format bytes --header halvoria/users placed.bin")
        whole = (self.folder / "users.bin").read_bytes()
        (self.folder / "cut.bin").write_bytes(whole[:500])
        before = self.tree_bytes()
        for line, code, message in (
                ("import users.bin", 4, "users.bin holds users, but the root of tree.xml is 'halvoria'"),
                ("import --under halvoria placed.bin", 2, "it belongs below halvoria"),
                ("import --under halvoria/gone users.bin", 3, "halvoria has no 'gone'"),
                ("import --under halvoria cut.bin", 4, "cut.bin is no whole byte array: "),
                ("import --format bytes tree.xml", 4, "tree.xml is no byte array"),
                ("import --format xml users.bin", 4, "users.bin is a byte array and no XML"),
                ("import --mode value-list users.bin", 4, "no list of values"),
                ("export --header halvoria new.xml", 2, "--header goes with --format bytes"),
                ("export --format bytes halvoria gone/new.bin", 1, "gone")):
            answer = self.on_tree(line)
            self.assertEqual(answer[0], code, line)
            self.assertIn(message, answer[2], line)
        self.assertEqual(self.tree_bytes(), before)
        code, _, error = self.run_cfg("--file users.bin set users/x y")
        self.assertEqual((code, (self.folder / "users.bin").read_bytes()), (1, whole))
        self.assertIn("users.bin is a byte array; import it", error)

    def test_a_write_that_fails_leaves_the_tree_as_it_was(self):
        before = self.tree_bytes()
        code, _, error = self.run_cfg(
            "--file tree.xml set halvoria/a b",
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (20000, 20000)))
        self.assertEqual(code, 1)
        self.assertRegex(error, "cannot save tree.xml: .*too large")
        os.chmod(self.folder / "tree.xml", 0o444)
        code, _, error = self.on_tree("set halvoria/a b")
        self.assertEqual(code, 1)
        self.assertIn("cannot save tree.xml", error)
        self.assertEqual(self.tree_bytes(), before)
        self.assertEqual(sorted(os.listdir(self.folder)), ["tree.xml"])
        self.assertEqual(self.on_tree("export halvoria gone/out.xml")[0], 1)
        self.assertEqual(self.on_tree("blob get halvoria/conf/site/logo gone/logo.png")[0], 1)

    # From where the command itself can be loaded to where there is enough.
    def test_memory_that_runs_out_is_said_and_loses_nothing(self):
        if re.search("/(asan|tsan)/", CFG):
            self.skipTest("a sanitizer maps more than there is")
        before, outcomes = self.tree_bytes(), set()
        for limit in range(40 << 20, 160 << 20, 500_000):
            options = {"preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit)),
                       "cwd": self.folder, "env": ENVIRONMENT, "stderr": subprocess.PIPE}
            if subprocess.run([CFG, "--version"], stdout=subprocess.DEVNULL, check=False,
                              **options).returncode != 0:
                continue  # a library that it is linked to cannot begin
            done = subprocess.run([CFG, "--file", "tree.xml", "set", "halvoria/conf/site/phone", "1"],
                                  check=False, **options)
            outcomes.add(done.returncode)
            if done.returncode == 0:
                break
            self.assertIn(done.returncode, (1, 5), done.stderr)
            self.assertRegex(done.stderr.decode(), "(out of memory|memory r[au]ns? out)")
            self.assertEqual(self.tree_bytes(), before)
        self.assertIn(0, outcomes)
        self.assertIn(5, outcomes)
        self.assertEqual(sorted(os.listdir(self.folder)), ["tree.xml"])

    def test_a_change_that_changes_nothing_writes_nothing(self):
        def state():
            status = os.stat(self.folder / "tree.xml")
            return status.st_ino, status.st_ctime_ns

        before = state()
        for line in ("set halvoria/conf/reports/paper A4", "import tree.xml"):
            self.assertEqual(self.on_tree(line)[0], 0)
            self.assertEqual(state(), before)
        self.on_tree("set halvoria/conf/reports/paper A5")
        self.assertNotEqual(state(), before)

    def test_writers_at_the_same_time_lose_nothing(self):
        self.write("params.txt", PARAMETERS.format("tree.xml"))
        os.symlink("tree.xml", self.folder / "link.xml")
        for tree in ("tree.xml", "new.xml"):
            ways = [["--file", tree, "--create"]] * 4
            if tree == "tree.xml":
                ways += [["--params", "params.txt"], ["--file", "link.xml"]] * 2
            runs = [self.start(*way, "set", f"halvoria/written/v{i}", str(i))
                    for i, way in enumerate(ways)]
            self.assertEqual([run.wait() for run in runs], [0] * len(runs))
            names = self.run_cfg(f"--file {tree} ls halvoria/written")[1].split()
            self.assertEqual(sorted(names), [f"v{i}" for i in range(len(ways))])

    def test_a_writer_waits_for_another_one_only_so_long(self):
        with open(self.folder / "tree.xml", "rb+") as rival:
            fcntl.flock(rival, fcntl.LOCK_EX)
            code, _, error = self.on_tree("--wait 0 set halvoria/a b")
            self.assertEqual(code, 5)
            self.assertIn("another writer keeps tree.xml locked", error)
            self.assertEqual(self.on_tree(SITE)[0], 0)
            self.assertEqual(self.on_tree("--wait 0 --dry-run set halvoria/a b")[0], 0)

    def test_a_kill_while_saving_leaves_the_old_tree_or_the_new_one(self):
        old = many_nodes(self.tree_bytes(), 60000)
        (self.folder / "tree.xml").write_bytes(old)
        self.start("--file", "tree.xml", "set", "halvoria/killed", "0").wait()
        new = self.tree_bytes()
        caught = 0
        for _ in range(6):
            (self.folder / "tree.xml").write_bytes(old)
            run = self.start("--file", "tree.xml", "set", "halvoria/killed", "0")
            while run.poll() is None:
                if any(name.endswith(".tmp") for name in os.listdir(self.folder)):
                    run.send_signal(signal.SIGKILL)
                    break
            caught += run.wait() == -signal.SIGKILL
            self.assertIn(self.tree_bytes(), (old, new))
            for name in os.listdir(self.folder):
                if name.endswith(".tmp"):
                    os.remove(self.folder / name)
        self.assertGreater(caught, 0)

    def test_output_that_cannot_be_written_is_told_and_a_reader_that_left_is_not(self):
        for verb in (["tree"], ["export", "halvoria", "-"], ["--json", "find", "name"],
                     ["blob", "get", "halvoria/conf/site/logo"], ["--help"]):
            reader, gone = os.pipe()
            os.close(reader)
            full = os.open("/dev/full", os.O_WRONLY)
            for output, code, error in ((full, 1, "No space left on device"), (gone, 0, "")):
                with self.subTest(verb, code=code):
                    run = subprocess.run([CFG, "--file", "tree.xml", *verb], cwd=self.folder,
                                         env=ENVIRONMENT, check=False, text=True, stdout=output,
                                         stderr=subprocess.PIPE)
                    self.assertEqual(run.returncode, code)
                    self.assertIn(error, run.stderr)
                    self.assertEqual(bool(error), bool(run.stderr))
                os.close(output)

    def test_deep_and_wide_trees_are_shown(self):
        deep = "halvoria\\" + "a\\" * 3000 + "v"
        example = self.tree_bytes().decode()
        self.write("deep.xml", example.replace("halvoria\\conf\\reports\\paper", deep))
        code, output, _ = self.run_cfg("--file deep.xml tree halvoria/a")
        self.assertEqual((code, output.count("\n")), (0, 3001))
        self.assertLess(len(output), 3001 * 200)
        self.assertEqual(self.run_cfg("--file deep.xml --json tree halvoria/a")[1].count("}"), 3001)
        self.assertEqual(self.run_cfg(f"--file deep.xml get '{deep}'")[1], "A4\n")
        code, _, error = self.on_tree("set halvoria" + "/b" * 5000 + " x")
        self.assertEqual(code, 1)
        self.assertIn("more than 4096 levels", error)


if __name__ == "__main__":
    unittest.main(verbosity=2)
