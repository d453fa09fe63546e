"""Every verb over the central service: what it does with a file, it does with a service."""
import contextlib
import json
import signal
import socket
import sqlite3
import subprocess
import sys
import time

import cfg_runner
import cfg_verbs_test
from cfg_runner import SOURCE, CfgTest, unittest
from svcfg_runner import Service, run_svcfg

sys.path.insert(0, str(SOURCE / "docs"))
from protocol_client import Client, Refused  # noqa: E402

NODE = r"halvoria\system\nodes\pacs01"


def sorted_lines(text):
    """Children come in the order of their names from a service, in their own from a file."""
    return sorted(text.splitlines())


class OverTheService(cfg_verbs_test.OddNames, cfg_verbs_test.VerbTables):
    def setUp(self):
        self.service = None
        super().setUp()
        self.service = Service(self.folder)
        self.addCleanup(self.service.stop)
        self.fresh_tree()

    def fresh_tree(self):
        super().fresh_tree()
        if self.service:
            code, _, error = self.on_store("import tree.xml --mode replace")
            self.assertEqual(code, 0, error)

    def on_store(self, line, stdin=""):
        return self.run_cfg(f"--server {self.service.address} " + line, stdin)

    def test_reads_print_what_they_print_from_a_file(self):
        for line, code, _, error in cfg_verbs_test.READS:
            if "--server" in line:
                continue
            with self.subTest(line):
                got_code, output, got_error = self.on_store(line)
                self.assertEqual(got_code, code, got_error)
                self.assertIn(error.replace("tree.xml", self.service.address), got_error)
                from_file = self.on_tree(line)[1]
                if not line.startswith("stat"):
                    self.assertEqual(sorted_lines(output.replace("├", "└")),
                                     sorted_lines(from_file.replace("├", "└")))

    def test_writes_change_just_that_and_dry_runs_print_it(self):
        for line, stdin, code, error, changes in cfg_verbs_test.WRITES:
            with self.subTest(line):
                self.fresh_tree()
                self.assertEqual(self.on_store("export halvoria before.xml")[0], 0)
                got_code, dry_output, got_error = self.on_store("--dry-run " + line, stdin)
                self.assertEqual(got_code, code, got_error)
                self.assertEqual(self.on_store("diff before.xml halvoria")[1], "")
                got_code, output, got_error = self.on_store(line, stdin)
                self.assertEqual((got_code, output), (code, ""), got_error)
                self.assertIn(error.replace("tree.xml", self.service.address), got_error)
                difference = self.on_store("diff before.xml halvoria")[1]
                self.assertEqual(sorted_lines(dry_output), sorted_lines(difference))
                if changes is not None:
                    self.assertEqual(sorted_lines(difference), sorted(changes))

    def params(self, more, port=0):
        text = (f"cfg_type = remote\nremote_server_name = 127.0.0.1\n"
                f"remote_server_port = {port or self.service.port}\nlocal_host_ip = 127.0.0.1\n")
        (self.folder / "params.txt").write_text(text + more)
        return text

    def test_synced_files_are_read_with_the_service_and_without(self):
        text = self.params("")
        (self.folder / "params.txt").write_text(
            text.replace("remote\n", "synced_file\n", 1) + f"xml_file = {self.folder}/kept.cfg\n")
        get = rf"get {NODE}\properties\inet_address"
        ann = "--params params.txt --property CurrUser=ann "
        expected = self.on_store(get)[1]
        self.assertEqual(self.run_cfg(ann + get), (0, expected, ""))
        self.assertEqual(self.run_cfg(rf"{ann} set {NODE}\properties\inet_address 192.0.2.99")[0], 0)
        self.assertEqual(self.on_store(get)[1], "192.0.2.99\n")
        self.assertEqual(self.run_cfg(ann + get), (0, "192.0.2.99\n", ""))
        user_of_nobody = self.run_cfg(r"--params params.txt ls halvoria\users")
        self.assertIn("--property CurrUser=NAME", user_of_nobody[2])

        code, facts, error = self.run_cfg("--json stat kept.cfg")
        self.assertEqual((code, error), (0, ""))
        facts = json.loads(facts)
        self.assertEqual((facts["form"], facts["user"], facts["checksums"], facts["encrypted"]),
                         ("synced file", "ann", "agree", False))
        self.assertEqual(self.run_cfg("diff tree.xml kept.cfg")[0], 1)
        self.assertEqual(self.run_cfg("--file kept.cfg " + get)[1], "192.0.2.99\n")
        self.assertIn("is kept by programs", self.run_cfg("--file kept.cfg set halvoria/x y")[2])
        self.assertEqual(json.loads(self.run_cfg("--json stat tvk_user_cfg_ann_kept.cfg")[1])["path"],
                         r"halvoria\users")

        self.service.stop(signal.SIGKILL)
        code, output, error = self.run_cfg("--params params.txt " + get)
        self.assertEqual((code, output), (0, "192.0.2.99\n"))
        self.assertIn("is not current, but stale since", error)
        self.assertEqual(self.run_cfg("--params params.txt set halvoria/x y")[0], 5)
        damaged = bytearray((self.folder / "kept.cfg").read_bytes())
        damaged[len(damaged) // 2] ^= 1
        (self.folder / "copy.cfg").write_bytes(damaged)
        (self.folder / "copy.cfg.sum").write_bytes((self.folder / "kept.cfg.sum").read_bytes())
        code, _, error = self.run_cfg("stat copy.cfg")
        self.assertEqual(code, 4)
        self.assertIn("copy.cfg is a synced file, but not whole: its data has another checksum", error)
        self.service = Service(self.folder)

    def test_a_parameters_file_names_the_service_or_the_database(self):
        remote = self.params("")
        database = (f"cfg_type = db\nuser = x\nconn_string = sqlite:{self.folder}/tree.sqlite\n"
                    f"local_host_ip = 127.0.0.1\n")
        for kind, text in (("remote", remote), ("db", database)):
            with self.subTest(kind):
                (self.folder / "params.txt").write_text(text)
                line = "--params params.txt "
                self.assertEqual(self.run_cfg(f"{line} get '{NODE}\\properties\\inet_address'")[:2],
                                 (0, "192.0.2.11\n"))
                self.assertEqual(self.run_cfg(f"{line} set halvoria/by {kind}")[0], 0)
                self.assertEqual(self.on_store("get halvoria/by")[1], kind + "\n")
                code, output, error = self.run_cfg(f"{line} ping")
                self.assertEqual(code, 0 if kind == "remote" else 2, error)
                self.assertIn("answers in" if kind == "remote" else "names no service", output + error)
        self.assertEqual(self.run_cfg("--params params.txt export halvoria ./tree.sqlite")[0], 1)

    def test_the_log_says_who_changed_what(self):
        self.on_store("set halvoria/conf/reports/paper A5")
        self.on_store("rm halvoria/users/osei")
        log = self.service.log_text()
        self.assertRegex(log, r"user '\w+', application 'cfg', session \d+ from 127.0.0.1:\d+: "
                              r"CFG_SET_VALUE halvoria\\conf\\reports\\paper")
        self.assertIn(r"CFG_DEL_SUB halvoria\users\osei", log)
        self.assertRegex(log, r"CFG_WRITE_SUB halvoria \(\d+ keys, \d+ values\)")
        self.assertNotIn("A5", log)
        self.params("")
        self.assertEqual(self.run_cfg("--params params.txt set halvoria/by params")[0], 0)
        self.assertRegex(self.service.log_text(), r"user '(?!CFG)\w+', application 'cfg', session \d+ "
                         r"from 127.0.0.1:\d+: CFG_SET_VALUE halvoria\\by")

    def test_connections_are_as_the_parameters_file_says(self):
        self.params("connection_properties = connssl\n")
        for verb in ("set halvoria/in plain", "get halvoria/users/osei/name", "ping"):
            code, output, error = self.run_cfg(f"--params params.txt {verb}")
            self.assertEqual((code, output), (5, ""))
            self.assertIn("there is no encryption (TLS) yet", error)
        self.assertEqual(self.on_store("get halvoria/in")[0], 3)
        with socket.create_server(("127.0.0.1", 0)) as silent:
            self.params("connection_properties = answer_timeout=0.2\n", silent.getsockname()[1])
            for verb in ("set halvoria/in vain", "ls", "ping"):
                code, _, error = self.run_cfg(f"--params params.txt {verb}")
                self.assertEqual(code, 5)
                self.assertIn("no answer within 200 ms", error)

    def test_a_service_that_is_not_there_is_exit_code_5(self):
        code, output, error = self.on_store("ping")
        self.assertEqual((code, error), (0, ""))
        self.assertRegex(output, r"^CFG_SERVICE at 127.0.0.1:\d+ answers in [0-9.]+ ms\n$")
        self.assertEqual(json.loads(self.on_store("--json ping")[1])["service"], "CFG_SERVICE")
        other = Service(self.folder / "..", "--store", f"sqlite:{self.folder}/other.sqlite")
        self.assertEqual(other.stop(), 0)
        for verb in ("ping", "get halvoria/x", "set halvoria/x y", "ls"):
            code, output, error = self.run_cfg(f"--server {other.address} {verb}")
            self.assertEqual((code, output), (5, ""))
            self.assertIn(other.address, error)
            self.assertIn("refused", error)
        for address in ("", "host:", ":1", "[::1", "host:http", "host:99999"):
            self.assertEqual(self.run_cfg(f"--server '{address}' ping")[0], 2, address)

    def test_a_ping_tells_a_full_service_and_a_store_that_fails_apart(self):
        with sqlite3.connect(self.folder / "tree.sqlite") as store:
            store.execute("ALTER TABLE store RENAME TO gone")
            code, output, error = self.on_store("ping")
            self.assertEqual((code, output), (5, ""))
            self.assertRegex(error, "answers, but its store does not: .*the store failed: cannot")
            store.execute("ALTER TABLE gone RENAME TO store")
            self.assertEqual(self.on_store("ping")[0], 0)
        other = Service(self.folder, "--store", f"sqlite:{self.folder}/other.sqlite",
                        "--max-sessions", "1")
        self.addCleanup(other.stop)
        with socket.create_connection(("127.0.0.1", other.port)):
            for verb in ("ping", "ls"):
                code, _, error = self.run_cfg(f"--server {other.address} {verb}")
                self.assertEqual(code, 5)
                self.assertIn(f"the service at {other.address} refuses: the sessions are full: "
                              "there are 1", error)

    def test_a_killed_run_leaves_nothing_half_done(self):
        command = [cfg_runner.CFG, "--server", self.service.address, "set", "halvoria/slow", "-"]
        with subprocess.Popen(command, stdin=subprocess.PIPE, env=cfg_runner.ENVIRONMENT) as waiting:
            waiting.kill()
        self.assertEqual(self.on_store("set halvoria/after x")[0], 0)
        self.assertEqual(self.on_store("get halvoria/slow")[0], 3)


class TheServiceItself(CfgTest):
    def test_settings_are_printed_with_their_origin(self):
        (self.folder / "svcfg.conf").write_text("workers = 7\n")
        code, output, error = run_svcfg("--config", str(self.folder / "svcfg.conf"), "--port", "7001",
                                        "--print-config", SVCFG_MAX_SESSIONS="9")
        self.assertEqual((code, error), (0, ""))
        lines = {line.split(" = ")[0]: line for line in output.splitlines()}
        self.assertRegex(lines["port"], r"^port = 7001 +# flag$")
        self.assertRegex(lines["max_sessions"], r"^max_sessions = 9 +# SVCFG_MAX_SESSIONS$")
        self.assertRegex(lines["workers"], r"^workers = 7 +# .*svcfg.conf$")
        self.assertRegex(lines["listen"], r"^listen = 127.0.0.1 +# default$")
        (self.folder / "again.conf").write_text(output)
        code, again, _ = run_svcfg("--config", str(self.folder / "again.conf"), "--print-config")
        self.assertEqual(code, 0)
        self.assertIn("port = 7001", again)

    def test_it_says_what_it_cannot_do(self):
        first = Service(self.folder)
        for arguments, code, error in [
            (["--listen", "0.0.0.0"], 2, "not an address of this computer's loopback"),
            (["--port", "http"], 2, "port (flag): 'http' is not a number"),
            (["--prot", "1"], 2, "--prot"),
            (["--config", "/none/svcfg.conf"], 2, "/none/svcfg.conf"),
            (["--store", "host=127.0.0.1 port=1 dbname=none", "--store-wait", "0"], 1,
             "cannot open the store host=127.0.0.1"),
            (["--log-level", "loud"], 2, "loud"),
            (["--store", "sqlite:/none/tree.sqlite", "--port", "0"], 1, "/none/tree.sqlite"),
            (["--store", f"sqlite:{self.folder}/other.sqlite", "--port", str(first.port)], 1,
             f"{first.port} is in use"),
            (["--store", f"sqlite:{self.folder}/tree.xml", "--port", "0"], 1, "tree.xml"),
        ]:
            with self.subTest(arguments):
                got_code, output, got_error = run_svcfg("--config", "/dev/null", *arguments)
                self.assertEqual((got_code, output), (code, ""), got_error)
                self.assertIn(error, got_error)
        self.assertEqual(first.stop(), 0)

    def test_it_waits_for_a_database_until_it_is_told_to_end(self):
        service = Service(self.folder, "--store", "host=127.0.0.1 port=1 dbname=none", wait=False)
        while "it is tried again" not in service.log_text():
            self.assertIsNone(service.process.poll())
            time.sleep(0.05)
        self.assertEqual(service.stop(), 0)

    def test_the_store_is_for_its_owner_only(self):
        service = Service(self.folder)
        self.assertEqual((self.folder / "tree.sqlite").stat().st_mode & 0o777, 0o600)
        self.assertEqual(service.stop(), 0)

    def test_clients_leave_files_to_the_store_and_the_log(self):
        code, _, error = run_svcfg("--config", "/dev/null", "--port", "0", "--store",
                                   f"sqlite:{self.folder}/tree.sqlite", files=60)
        self.assertEqual(code, 1)
        self.assertIn("the limit of open files, 60, is too low", error)
        service = Service(self.folder, "--max-streams", "4", files=200)
        self.addCleanup(service.stop)
        self.assertRegex(service.log_text(), "the limit of open files, 200, is too low: "
                         r"max-sessions = 2000 takes \d+; there is room for 8\d sessions")
        with contextlib.ExitStack() as clients:
            all_of_them = [clients.enter_context(Client("127.0.0.1", service.port))
                           for _ in range(300)]
            first, unread = all_of_them[0], all_of_them[1:9]
            for i in range(64):
                first.ask("CFG_SET_VALUE", path=f"halvoria\\t\\v{i}", value="w" * 200_000)
            for client in unread:  # each takes a connection to the store
                client.send("CFG_GET_SUB_SEQ",
                            [("path", "halvoria"), ("seq_number", ""), ("compressed", 0)])
            self.assertEqual(first.ask("CFG_SET_VALUE", path="halvoria\\after", value="x"),
                             {"success_code": 1})
            self.assertEqual(len(list(first.tree("halvoria"))), 66)
            with self.assertRaisesRegex(Refused, "no descriptors left for connections"):
                all_of_them[-1].ask("CFG_GET_MAX_SEQ")
            self.assertIn("CFG_SET_VALUE halvoria\\after: done", service.log_text())
            self.assertIn("connections were closed at once", service.log_text())
        while True:
            with contextlib.suppress(Refused), Client("127.0.0.1", service.port) as next_one:
                self.assertEqual(next_one.ask("CFG_GET_VAL", path="halvoria\\after"),
                                 {"result": b"x"})
                break

    def test_it_ends_at_sigterm_and_comes_back_with_everything(self):
        service = Service(self.folder)
        line = f"--server {service.address} "
        self.assertEqual(self.run_cfg(line + "set halvoria/x kept")[0], 0)
        self.assertEqual(service.stop(signal.SIGTERM), 0)
        again = Service(self.folder, port=service.port)
        self.assertEqual(self.run_cfg(line + "get halvoria/x")[:2], (0, "kept\n"))
        self.assertEqual(again.stop(signal.SIGINT), 0)

    def test_a_read_that_takes_too_long_or_that_nobody_wants_ends(self):
        records = [(rf"halvoria\conf\k{n}\v{m}", "1") for n in range(200) for m in range(50)]
        (self.folder / "large.xml").write_text(cfg_verbs_test.document(*records))
        service = Service(self.folder, "--read-time", "1")
        code, _, error = self.run_cfg(f"--server {service.address} import large.xml")
        self.assertEqual(code, 0, error)
        asked = {"path": "conf", "rules": ["halvoria"] * 1000, "merge": 1}
        with Client("127.0.0.1", service.port, timeout=60) as client:
            with self.assertRaisesRegex(Refused, "it takes more than 1 seconds"):
                client.ask("CFG_GET_SUB_MERGE", **asked)
            rules = [("path", rule) for rule in asked["rules"]]
            client.tell("CFG_ENABLE_EXTENDED_TIMEOUT")
            client.send("CFG_GET_SUB_MERGE", [("path", "conf"), ("count", 1000), *rules, ("merge", 1)])
        while "its client is gone" not in service.log_text():
            time.sleep(0.05)
        self.assertEqual(service.stop(), 0)

    def test_a_damaged_store_is_told_and_saved(self):
        service = Service(self.folder)
        line = f"--server {service.address} "
        for name in ("before", "damaged", "sound"):
            self.assertEqual(self.run_cfg(line + f"set halvoria/k/{name} text_of_{name}")[0], 0)
        self.assertEqual(service.stop(), 0)
        store, saved = self.folder / "tree.sqlite", self.folder / "saved.xml"
        self.assertEqual(run_svcfg("--check", f"sqlite:{store}")[:2],
                         (0, "4 entries below the root are sound, and nothing is wrong\n"))
        store.write_bytes(store.read_bytes().replace(b"text_of_damaged", b"text_of_dAmaged"))
        code, output, _ = run_svcfg("--check", f"sqlite:{store}", "--salvage", str(saved))
        place = "there is damage at <halvoria\\k\\damaged>\n"
        self.assertEqual((code, output), (1, place + "3 entries below the root are sound\n"))
        self.assertEqual((self.folder / "saved.xml.damage").read_text(), place)
        self.assertEqual(self.run_cfg(f"--file {saved} get halvoria/k/sound")[:2],
                         (0, "text_of_sound\n"))
        self.assertEqual(self.run_cfg(f"--file {saved} get halvoria/k/damaged")[0], 3)

        service = Service(self.folder, port=service.port)
        self.assertNotEqual(self.run_cfg(line + "get halvoria/k/damaged")[0], 0)
        self.assertNotEqual(self.run_cfg(line + "get halvoria/k")[0], 0)
        self.assertEqual(self.run_cfg(line + "set halvoria/other/x 1")[0], 0)
        self.assertEqual(self.run_cfg(line + "get halvoria/other/x")[:2], (0, "1\n"))
        self.assertIn("there is damage at <halvoria\\k\\damaged>", service.log_text())
        self.assertEqual(service.stop(), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
