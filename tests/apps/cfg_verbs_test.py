"""What every verb answers, prints and changes; the manual's examples are some of it."""
import json
import re
import shutil
import subprocess
from html import escape

from cfg_runner import ENVIRONMENT, SOURCE, CfgTest, unittest

MANUAL = SOURCE / "apps/cfg/cfg.1"
USERS = r"halvoria\users"
REPORTS = r"halvoria\conf\reports"
NODE = r"halvoria\system\nodes\pacs01"

# command line, exit code, standard output (None: any), part of standard error
READS = [
    # paths
    (rf"get '{NODE}\properties\inet_address'", 0, "192.0.2.11\n", ""),
    ("get /halvoria/system//nodes/PACS01/properties/inet_address/", 0, "192.0.2.11\n", ""),
    ("get 'halvoria/system/nodes\\x'", 3, "", "begin with 'halvoria'"),
    ("get system/nodes", 3, "", r"(halvoria\system\nodes?)"),
    ("get halvoria/system/nods/pacs01", 3, "", r"halvoria\system has no 'nods'"),
    ("get ''", 2, "", "names nothing"),
    (r"get 'halvoria\system\nodes\<n>\properties\host'", 3, "", "the property <n> is not set"),
    (r"--property n=READ01 get 'halvoria\system\nodes\<n>\properties\host'", 0,
     "read01-desk\n", ""),
    ("--property n get halvoria/x", 2, "", "--property wants NAME=VALUE"),
    # get
    ("get halvoria/users/osei", 3, "", "is a key, not a value"),
    ("get halvoria/users/osei/x --default ''", 0, "\n", ""),
    ("get halvoria/conf/reports/margin_mm --type int", 0, "12\n", ""),
    ("get halvoria/conf/reports/margin_mm --type double", 0, "12.5\n", ""),
    ("get halvoria/conf/reports/paper --type int", 4, "", "'A4' is not of the type int"),
    ("get halvoria/conf/reports/paper --type double", 4, "", "not of the type double"),
    ("get halvoria/conf/reports/paper --type int --default 7", 0, "7\n", ""),
    ("get halvoria/conf/reports/paper --type int --default x", 2, "", "the default 'x'"),
    ("get halvoria/conf/reports/paper --type bool", 0, "false\n", "reads as false"),
    ("get halvoria/groups/radiologists/rights/sign --type bool", 0, "true\n", ""),
    ("get halvoria/system/applications/viewer/greeting", 0,
     "Welcome to the reading room.\nPlease log out when you leave.\n", ""),
    # ls, tree, stat
    ("ls", 0, "conf\\\ngroups\\\nsystem\\\nusers\\\n", ""),
    ("ls halvoria/conf/reports -l", 0,
     "header = <b>Harbour Hospital</b>\nmargin_mm = 12.5\npaper = A4\n", ""),
    ("ls halvoria/conf/reports/paper", 0, "paper\n", ""),
    ("ls -l halvoria/system/applications/viewer", 0, None, ""),
    ("tree halvoria/groups/administrators -c", 0,
     "halvoria\\groups\\administrators\\  (2 keys, 4 values)\n"
     "├── members\\  (0 keys, 1 value)\n│   └── member1 = brandt\n"
     "├── rights\\  (0 keys, 2 values)\n"
     "│   ├── configure = true\n│   └── read = true\n"
     "└── title = Administrators\n", ""),
    ("tree halvoria/groups -kc -d 1", 0,
     "halvoria\\groups\\  (9 keys, 16 values)\n├── administrators\\  (2 keys, 4 values)\n"
     "├── radiologists\\  (2 keys, 7 values)\n"
     "└── technologists\\  (2 keys, 5 values)\n", ""),
    ("tree halvoria/conf/reports/paper", 3, "", "is a value, not a key"),
    ("stat halvoria/conf/site/logo", 0, None, ""),
    # find
    ("find inet_address_o% --under halvoria/system/nodes/pacs01", 0,
     NODE + "\\properties\\inet_address_optional\n", ""),
    ("find 'halvoria/groups/%/rights/s%'", 0,
     "halvoria\\groups\\radiologists\\rights\\sign\n"
     "halvoria\\groups\\technologists\\rights\\send\n", ""),
    ("find 'halvoria/users/%/viewer/worklists'", 0,
     f"{USERS}\\marlow\\viewer\\worklists\\\n{USERS}\\osei\\viewer\\worklists\\\n", ""),
    ("find --like '%OSEI%'", 3, "", "nothing found"),
    ("find -i --like '%OSEI%'", 0,
     "halvoria\\groups\\radiologists\\members\\member2\n" + USERS + "\\osei\\name\n", ""),
    ("find paper --value a4 --ignore-case", 0, REPORTS + "\\paper\n", ""),
    ("find name --value 'Ken Tamura'", 0, USERS + "\\tamura\\name\n", ""),
    ("find halvoria/users/osei", 0, USERS + "\\osei\\\n", ""),
    ("find", 2, "", "wants a name or pattern"),
    ("find halvoria/users/% --under halvoria/users", 2, "", "leave out --under"),
    ("find tree", 3, "", "nothing found"),
    # the command line itself
    ("", 2, "", "a verb is missing"),
    ("frob", 2, "", "'frob' is not a verb"),
    ("blob frob x", 2, "", "'frob' is not a verb"),
    ("get", 2, "", "see 'cfg get --help'"),
    ("ls halvoria more", 2, "", "not expected: more"),
    ("get halvoria/x --type float", 2, "", "float"),
    ("ls --dry-run", 2, "", "ls writes nothing"),
    ("ls --params ''", 2, "", "--params names nothing"),
    ("--params= ls", 2, "", "--params names nothing"),
    ("ls --server localhost", 2, "", "--file and --server name two trees"),
    ("validate --json tree.xml", 0, None, ""),
]

FRENCH = [f"- {USERS}\\osei\\language = en", f"+ {USERS}\\osei\\language = fr"]

# command line, standard input, exit code, part of standard error, what it changes
WRITES = [
    ("set halvoria/a/B/c '-- text'", "", 0, "",
     ["+ halvoria\\a\\", "+ halvoria\\a\\b\\", "+ halvoria\\a\\b\\c = -- text"]),
    ("set halvoria/conf/reports/paper -- -x", "", 0, "",
     ["- halvoria\\conf\\reports\\paper = A4", "+ halvoria\\conf\\reports\\paper = -x"]),
    ("set halvoria/conf/reports/paper A4", "", 0, "", []),
    ("set halvoria/n -", "one\r\n\ttwo\n", 0, "", ["+ halvoria\\n = one\\r\\n\\ttwo"]),
    ("set halvoria/n ' '", "", 0, "", ["+ halvoria\\n =  "]),
    ("set halvoria/n ''", "", 4, "an empty text cannot be stored", []),
    ("set halvoria/n -", b"a\x01", 4, "U+0001", []),
    ("set halvoria/n -", b"a\xff", 4, "byte 0xFF, is not UTF-8", []),
    ("set halvoria/conf x", "", 1, "is a key and cannot hold a text", []),
    ("set halvoria/conf/reports/paper/x y", "", 1, "paper is a value", []),
    ("set 'halvoria/ a/x' y", "", 4, "begins or ends with a blank", []),
    ("set 'halvoria/it%s/x' y", "", 1, "invalid char <0x25>", []),
    ("set 'halvoria/<who>/x' y", "", 3, "the property <who> is not set", []),
    ("set other/x y", "", 3, "begin with 'halvoria'", []),
    ("rm halvoria/conf/reports halvoria/conf/reports/paper", "", 0, "4 removed",
     ["- halvoria\\conf\\reports\\", "- halvoria\\conf\\reports\\header = <b>Harbour Hospital</b>",
      "- halvoria\\conf\\reports\\margin_mm = 12.5", "- halvoria\\conf\\reports\\paper = A4"]),
    ("rm halvoria/conf/reports halvoria/conf/nothing", "", 3, "has no 'nothing'", []),
    ("rm halvoria", "", 1, "is the root", []),
    ("cp halvoria/groups/administrators/rights halvoria/users/", "", 0, "3 added",
     [f"+ {USERS}\\rights\\", f"+ {USERS}\\rights\\configure = true",
      f"+ {USERS}\\rights\\read = true"]),
    ("cp halvoria/users/osei/name halvoria/users/tamura/name", "", 1, "--force replaces it", []),
    ("cp -f halvoria/users/osei/name halvoria/users/tamura/viewer", "", 0, "",
     [f"- {USERS}\\tamura\\viewer\\", f"- {USERS}\\tamura\\viewer\\layout = 2x2",
      f"- {USERS}\\tamura\\viewer\\zoom = 1.5", f"+ {USERS}\\tamura\\viewer = Dr. Kwame Osei"]),
    ("cp halvoria/conf/reports halvoria/conf/reports/old", "", 0, "4 added",
     ["+ halvoria\\conf\\reports\\old" + end for end in (
         "\\", "\\header = <b>Harbour Hospital</b>", "\\margin_mm = 12.5", "\\paper = A4")]),
    ("cp halvoria halvoria", "", 1, "is the root", []),
    ("mv halvoria/conf/reports/paper halvoria/conf/reports/sheet", "", 0, "",
     ["- halvoria\\conf\\reports\\paper = A4", "+ halvoria\\conf\\reports\\sheet = A4"]),
    ("mv halvoria/groups halvoria/groups/all", "", 1, "itself or below it", []),
    ("mv -f halvoria/users/osei/viewer halvoria/users/osei", "", 1, "cannot be replaced by it", []),
    ("merge halvoria/users/tamura/viewer halvoria/users/lindqvist/viewer", "", 0, "1 changed",
     [f"- {USERS}\\lindqvist\\viewer\\zoom = 1.25", f"+ {USERS}\\lindqvist\\viewer\\zoom = 1.5"]),
    ("merge --keep halvoria/users/tamura/viewer halvoria/users/lindqvist/viewer", "", 0,
     "0 changed", []),
    ("merge halvoria/users/tamura/name halvoria/users/osei", "", 3, "is a value", []),
    ("merge halvoria/users/tamura halvoria/users/osei/name", "", 1, "is a value", []),
    # a list of values: one that is there, one that is new
    ("import list.xml --mode value-list", "", 0, "1 added, 1 changed",
     [*FRENCH, f"+ {USERS}\\osei\\town = Wick"]),
    ("import list.xml --mode value-list --keep", "", 0, "1 added, 0 changed",
     [f"+ {USERS}\\osei\\town = Wick"]),
    # a piece of a tree: against it the user osei lost a value, got one and has another language
    ("import piece.xml", "", 0, "1 added, 1 changed, 0 removed",
     [*FRENCH, f"+ {USERS}\\osei\\town = Wick"]),
    ("import piece.xml --mode no-overwrite", "", 0, "1 added",
     [f"+ {USERS}\\osei\\town = Wick"]),
    ("import piece.xml --mode replace", "", 0, "1 added, 1 changed, 1 removed",
     [*FRENCH, f"- {USERS}\\osei\\viewer\\zoom = 1.25", f"+ {USERS}\\osei\\town = Wick"]),
    ("import piece.xml --keep", "", 2, "--keep goes with", []),
    ("import piece.xml --mode value-list", "", 4, "piece.xml:", []),
    ("import key_in_list.xml --mode value-list", "", 1,
     r"at item halvoria\users\osei  with value x", []),
    ("import other_root.xml", "", 4, "the root of tree.xml is 'halvoria'", []),
    ("import cut.xml", "", 4, "cut.xml:", []),
    ("import gone.xml", "", 4, "cannot open <gone.xml>", []),
    ("blob put halvoria/conf/text -", "žluť" * 200, 0, "", None),
    ("blob put halvoria/conf/text -", b"\x00\xff", 4, "--base64 stores it", []),
    ("blob put halvoria/conf/reports/paper - --base64", b"\x00", 1, "is a value", []),
]


# Names that an XML file can hold and path validation refuses, and others that are only odd.
REFUSED_NAMES = ["it%s", "it's", "tab\tx", "100%"]
ODD_NAMES = ["halvoria", "<who>", "a/b", "žluť&", "a<>b"]


def document(*records, keys=True):
    """An XML file of these paths and texts, and of the keys that they need."""
    nodes, seen = "", set()
    for path, text in records:
        names = path.split("\\")
        for end in range(1 if keys else len(names), len(names) + 1):
            at, above = "\\".join(names[:end]), "\\".join(names[:end - 1])
            if at not in seen:
                value = text if end == len(names) else ""
                nodes += (f"<node>\n<path_segment>{escape(at)}</path_segment>\n<parent_path_segment>"
                          f"{escape(above)}</parent_path_segment>\n<value>{escape(value)}</value>\n"
                          "</node>\n\n")
            seen.add(at)
    head = (SOURCE / "examples/installation.xml").read_text().split("<branch>")[0]
    return f"{head}<branch>\n\n{nodes}</branch>\n</tree>\n"


class OddNames:
    """Of a test that has `on_store`: the command on the tree that is tested."""

    def test_what_an_import_let_in_can_be_changed_moved_and_removed(self):
        for name in REFUSED_NAMES + ODD_NAMES:
            key = f"halvoria\\odd\\{name}"
            (self.folder / "odd.xml").write_text(document(
                (f"{key}\\v", "1"), (f"{key}\\{name}", "2"), (f"{key}\\deep\\{name}", "3"),
                ("halvoria\\odd\\it", "not meant")))
            self.assertEqual(self.on_store("import --mode replace odd.xml")[0], 0)
            may_be_made = name not in REFUSED_NAMES + ["<who>", "a<>b"]
            for line, is_done in [
                (f'set "{key}\\v" x', True),
                (f'set "{key}\\new" x', may_be_made),
                (f'set "halvoria\\odd\\{name}2" x', may_be_made),
                (f'cp halvoria/odd/it "halvoria\\odd\\{name}3"', may_be_made),
                (f'rm "{key}\\{name}" "{key}\\deep"', True),
                (f'mv "{key}" halvoria/odd/plain', True),
                (f'mv halvoria/odd/plain "{key}"', may_be_made),
                (f'cp -f halvoria/odd/it "halvoria\\odd\\{name}"', may_be_made),
            ]:
                with self.subTest(line):
                    code, _, error = self.on_store(line)
                    self.assertEqual(code == 0, is_done, error)
            expected = [("halvoria\\odd\\it", "not meant")]
            if may_be_made:
                expected += [(key, "not meant"), (f"{key}2", "x"), (f"{key}3", "not meant")]
            else:
                expected += [("halvoria\\odd\\plain\\v", "x")]
            (self.folder / "expected.xml").write_text(document(*expected))
            self.assertEqual(self.on_store("diff halvoria/odd expected.xml")[1], "", name)

    def test_a_key_named_like_the_root_takes_the_place_of_nothing(self):
        (self.folder / "paper").write_text("x" * 2000)
        before = self.on_store("export halvoria before_named.xml")
        self.assertEqual(before[0], 0, before)
        for lines in [
            ["cp halvoria/users halvoria/halvoria", "export halvoria/halvoria named.xml"],
            ["cp halvoria/users halvoria/other", "mv halvoria/other halvoria/halvoria"],
            ["merge halvoria/users halvoria/halvoria"],
            ["merge --keep halvoria/users halvoria/halvoria"],
            ["blob put halvoria/halvoria/paper paper"],
            ["import --mode overwrite named.xml"],
            ["import --mode no-overwrite named.xml"],
            ["import --mode replace named.xml"],
        ]:
            with self.subTest(lines[-1]):
                for line in lines:
                    code, _, error = self.on_store(line)
                    self.assertEqual(code, 0, error)
                self.assertIn("halvoria\\\n", self.on_store("ls halvoria")[1])
                self.assertEqual(self.on_store("rm halvoria/halvoria")[0], 0)
                self.assertEqual(self.on_store("diff halvoria before_named.xml")[1], "")


class VerbTables(CfgTest):
    """With the files that the tables above import."""

    def setUp(self):
        super().setUp()
        shutil.copy(self.folder / "tree.xml", self.folder / "before.xml")
        self.on_tree("set halvoria/users/osei/language fr")
        self.on_tree("set halvoria/users/osei/town Wick")
        self.on_tree("rm halvoria/users/osei/viewer/zoom")
        self.on_tree("export halvoria/users/osei piece.xml")
        piece = (self.folder / "piece.xml").read_text()
        head, *nodes, tail = re.split(r"(?=<node>)|(?=</branch>)", piece)
        values = [n for n in nodes if r"\language<" in n or r"\town<" in n]
        (self.folder / "list.xml").write_text(head + "".join(values) + tail)
        (self.folder / "key_in_list.xml").write_text(document(
            (r"halvoria\a", "1"), (USERS + r"\osei", "x"), keys=False))
        (self.folder / "other_root.xml").write_text(piece.replace("halvoria", "elsewhere"))
        (self.folder / "cut.xml").write_text(piece[:900])
        self.fresh_tree()


class Verbs(OddNames, VerbTables):
    on_store = CfgTest.on_tree

    def test_reads_print_what_is_there(self):
        for line, code, output, error in READS:
            with self.subTest(line):
                got_code, got_output, got_error = self.on_tree(line)
                self.assertEqual(got_code, code, got_error)
                self.assertIn(error, got_error)
                self.assertEqual(bool(got_error), bool(error))
                if output is not None:
                    self.assertEqual(got_output, output)

    def test_writes_change_just_that_and_dry_runs_print_it(self):
        for line, stdin, code, error, changes in WRITES:
            with self.subTest(line):
                self.fresh_tree()
                before = self.tree_bytes()
                got_code, dry_output, got_error = self.on_tree("--dry-run " + line, stdin)
                self.assertEqual(got_code, code, got_error)
                self.assertEqual(self.tree_bytes(), before)
                got_code, output, got_error = self.on_tree(line, stdin)
                self.assertEqual((got_code, output), (code, ""), got_error)
                self.assertIn(error, got_error)
                _, difference, _ = self.run_cfg("diff before.xml tree.xml")
                self.assertEqual(sorted(dry_output.splitlines()),
                                 sorted(difference.splitlines()))
                if changes is not None:
                    self.assertEqual(difference.splitlines(), changes)

    def test_json_says_the_same_and_holds_any_text(self):
        rows = [
            ("get halvoria/users/osei/name",
             {"path": USERS + "\\osei\\name", "value": "Dr. Kwame Osei", "is_default": False}),
            ("get halvoria/conf/reports/margin_mm --type double",
             {"path": REPORTS + "\\margin_mm", "value": 12.5, "is_default": False}),
            ("get halvoria/users/osei/x --type int --default 4",
             {"path": USERS + "\\osei\\x", "value": 4, "is_default": True}),
            ("ls halvoria/users/osei/viewer",
             {"path": USERS + "\\osei\\viewer", "keys": ["worklists"],
              "values": {"layout": "3x2", "zoom": "1.25"}}),
            ("tree halvoria/groups/administrators",
             {"path": "halvoria\\groups\\administrators", "keys": 2, "values": 4,
              "tree": {"members": {"member1": "brandt"},
                       "rights": {"configure": "true", "read": "true"},
                       "title": "Administrators"}}),
            ("tree halvoria/users/osei -k -d 1",
             {"path": USERS + "\\osei", "keys": 2, "values": 8, "tree": {"viewer": None}}),
            ("find paper", [{"path": REPORTS + "\\paper", "value": "A4"}]),
            ("find nothing_like_it", []),
            ("diff halvoria/users/lindqvist/viewer halvoria/users/tamura/viewer",
             {"left": USERS + "\\lindqvist\\viewer", "right": USERS + "\\tamura\\viewer",
              "differences": [{"change": "changed", "path": "zoom", "old": "1.25", "new": "1.5"}]}),
            ("--dry-run set halvoria/n x",
             {"dry_run": True,
              "changes": [{"change": "added", "path": "halvoria\\n", "new": "x"}]}),
            ("rm halvoria/conf/reports/paper",
             {"dry_run": False,
              "changes": [{"change": "removed", "path": REPORTS + "\\paper", "old": "A4"}]}),
            ("stat halvoria/conf/reports/margin_mm",
             {"path": REPORTS + "\\margin_mm", "kind": "value", "length": 4, "tree": "tree.xml"}),
            ("export halvoria/conf/reports out.xml",
             {"dry_run": False, "path": REPORTS, "file": "out.xml", "is_new": True,
              "keys": 1, "values": 2}),
        ]
        for line, document in rows:
            with self.subTest(line):
                self.assertEqual(json.loads(self.on_tree("--json " + line)[1]), document)
        for line, document in [
            ("get halvoria/conf/x", {"error": "halvoria\\conf\\x: not found: halvoria\\conf has no 'x'",
                                     "exit_code": 3}),
            ("get", {"error": "path is required; see 'cfg get --help'", "exit_code": 2}),
            ("find nothing_like_it", {"note": "nothing found"}),
        ]:
            self.assertEqual(json.loads(self.on_tree("--json " + line)[2]), document)
        # Bytes that are not UTF-8 come from properties only; they must not end the run.
        code, output, _ = self.on_tree("--json get halvoria/\udcff --default x")
        self.assertEqual((code, json.loads(output)["value"]), (0, "x"))

    def test_diff_takes_keys_and_files_on_either_side(self):
        self.on_tree("export halvoria/users/osei osei.xml")
        self.on_tree("set halvoria/users/osei/language fr")
        for line, stdin, code, lines in [
            ("diff osei.xml halvoria/users/osei", "", 1, FRENCH),
            ("diff before.xml halvoria", "", 1, FRENCH),
            ("diff before.xml halvoria/users/osei", "", 1, FRENCH),
            ("diff before.xml tree.xml", "", 1, FRENCH),
            ("diff before.xml -", self.tree_bytes(), 1, FRENCH),
            ("diff before.xml halvoria/conf", "", 0, []),
            ("diff before.xml before.xml", "", 0, []),
        ]:
            with self.subTest(line):
                got_code, output, _ = self.on_tree(line, stdin)
                self.assertEqual((got_code, output.splitlines()), (code, lines))

    def test_blobs_come_back_byte_for_byte(self):
        for line, data in [
            ("blob put halvoria/conf/b -", "ž" * 600 + " <&>\r\n"),
            ("blob put halvoria/conf/b - --base64 --encoding raw", bytes(range(256)) * 9),
            ("blob put halvoria/conf/b -", ""),
            ("blob put halvoria/conf/b - --base64", ""),
        ]:
            with self.subTest(line):
                data = data if isinstance(data, bytes) else data.encode()
                self.assertEqual(self.on_tree(line, data)[0], 0)
                self.assertEqual(self.on_tree("blob get halvoria/conf/b out.bin")[0], 0)
                self.assertEqual((self.folder / "out.bin").read_bytes(), data)
        self.assertEqual(self.on_tree("blob get halvoria/conf/reports")[0], 3)
        self.on_tree("rm halvoria/conf/site/logo/chunk0003")
        code, output, error = self.on_tree("blob get halvoria/conf/site/logo")
        self.assertEqual((code, output), (4, ""))
        self.assertIn("chunk0003", error)

    def test_validate_names_the_place_of_a_fault(self):
        text = (self.folder / "before.xml").read_text()
        for name, content, place in [
            ("tag.xml", text.replace("<value>A4", "<value><b/>A4", 1), r":\d+:\d+: "),
            ("root.xml", text.replace(r"halvoria\conf<", r"other\conf<", 1), ":23:8: "),
            ("empty.xml", "", ":1:1: "),
            ("binary.xml", "\x00\x01\x02", r":1:\d+: "),
        ]:
            with self.subTest(name):
                (self.folder / name).write_text(content)
                code, output, error = self.run_cfg("validate " + name)
                self.assertEqual((code, output), (4, ""))
                self.assertRegex(error, "^cfg: " + name + place)
                self.assertEqual(self.run_cfg(f"--file {name} ls")[0], 5)

    def test_every_verb_has_help(self):
        verbs = "get ls tree find stat diff set rm cp mv merge export import validate".split()
        for verb in verbs + ["blob get", "blob put", ""]:
            code, output, error = self.run_cfg(verb + " --help")
            self.assertEqual((code, error), (0, ""))
            self.assertIn("Usage: cfg " + verb, output)

    def test_the_examples_of_the_manual_come_out_as_printed(self):
        shutil.copy(self.folder / "before.xml", self.folder / "installation.xml")
        examples = MANUAL.read_text().split(".Sh EXAMPLES")[1].replace("\\e", "\\")
        commands = 0
        for block in re.findall(r"\.Bd -literal.*\n((?:.*\n)*?)\.Ed", examples):
            for command, expected in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", block, re.M):
                done = subprocess.run(["bash", "-c", command], cwd=self.folder, check=False,
                                      env=ENVIRONMENT, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, text=True)
                self.assertEqual(done.stdout, expected, command + "\n" + done.stderr)
                commands += 1
        self.assertGreater(commands, 15)

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
    def test_the_manual_is_clean(self):
        done = subprocess.run(["mandoc", "-Tlint", MANUAL], check=False, stdout=subprocess.PIPE,
                              text=True)
        self.assertEqual(done.stdout, "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
