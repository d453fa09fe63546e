"""What goes over the wire between the command and the service, as docs/protocol.* say it."""
import contextlib
import re
import shutil
import socket
import struct
import subprocess
import sys
import threading

from cfg_runner import SOURCE, CfgTest, unittest
from svcfg_runner import Service

PROTO = SOURCE / "docs/protocol.proto"
PAGE = SOURCE / "docs/protocol.md"
sys.path.insert(0, str(SOURCE / "docs"))
from protocol_client import FIELDS, Client, Refused, decoded  # noqa: E402


class Wire:
    """Passes one connection after the other on to a port, and keeps what was sent."""

    def __init__(self, port):
        self.port = port
        self.sent = {"requests": b"", "answers": b""}
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.own_port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except OSError:
                return
            server = socket.create_connection(("127.0.0.1", self.port))
            for kind, source, target in (("requests", client, server), ("answers", server, client)):
                threading.Thread(target=self.copy, args=(kind, source, target), daemon=True).start()

    def copy(self, kind, source, target):
        with source, contextlib.suppress(OSError):
            while data := source.recv(65536):
                self.sent[kind] += data
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)

    def frames(self, kind):
        data, frames = self.sent[kind], []
        while data:
            (length,) = struct.unpack(">I", data[:4])
            frames.append(data[4:4 + length])
            data = data[4 + length:]
        return frames


def decode(frame):
    done = subprocess.run(["protoc", f"--proto_path={PROTO.parent}", "--decode=halvoria.cfg.Frame",
                           PROTO.name], input=frame, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=True)
    return done.stdout.decode()


@unittest.skipUnless(shutil.which("protoc"), "protoc is not installed")
class Protocol(CfgTest):
    def setUp(self):
        super().setUp()
        service = Service(self.folder)
        self.addCleanup(service.stop)
        self.wire = Wire(service.port)
        self.addCleanup(self.wire.listener.close)

    def run_over(self, line):
        code, _, error = self.run_cfg(f"--server 127.0.0.1:{self.wire.own_port} {line}")
        self.assertEqual(code, 0, error)

    def test_every_field_of_an_exchange_has_a_name(self):
        self.run_over("import tree.xml")
        self.run_over("get halvoria/users/osei/name")
        self.run_over("ls halvoria/conf")
        self.run_over("export halvoria/conf conf.xml")
        self.run_over("rm halvoria/groups")
        texts = {}
        for kind in ("requests", "answers"):
            frames = self.wire.frames(kind)
            self.assertGreater(len(frames), 10)
            texts[kind] = [decode(frame) for frame in frames]
            for text in texts[kind]:
                self.assertNotRegex(text, r"(?m)^\d+", "a field without a name")
                self.assertTrue(text.startswith('name: "'), text)
        asked = "".join(texts["requests"])
        for command in ("CONN_PING", "CFG_LOCK", "CFG_WRITE_SUB", "CFG_UNLOCK", "CFG_GET_VAL",
                        "CFG_GET_SUB_PATHS", "CFG_GET_SUB_SEQ", "CFG_DEL_SUB"):
            self.assertIn(f'name: "{command}"', asked)
        self.assertIn('result: "Dr. Kwame Osei"', "".join(texts["answers"]))

    def test_the_page_shows_an_exchange_as_it_is(self):
        self.run_over("import tree.xml")
        self.run_over("get halvoria/users/osei/name")
        page = PAGE.read_text()
        shown = page.split("## One exchange")[1].split("```")[1]
        for kind in ("requests", "answers"):
            text = [t for t in map(decode, self.wire.frames(kind)) if "osei" in t or "Osei" in t][-1]
            for line in text.splitlines():
                if not line.startswith("user_name"):
                    self.assertIn(line, shown)


# One request after the other, as a client without any library asks, and what the page says of each.
# fmt: off
T = "halvoria\\t"
EXCHANGES = [
    ("CFG_SET_VALUE", {"path": T + r"\B", "value": "Two"}, {"success_code": 1}),
    ("CFG_SET_VALUE", {"path": T + r"\a", "value": "one"}, {"success_code": 1}),
    ("CFG_SET_VALUE", {"path": T + r"\k\x", "value": "deep"}, {"success_code": 1}),
    ("CFG_SET_VALUE", {"path": T + r"\k2\y", "value": "other"}, {"success_code": 1}),
    ("CFG_SET_VALUE", {"path": T + r"\a\c", "value": "x"},
     {"success_code": 0, "reason": rb"path <halvoria\t\a>: it is a value, nothing can be below it"}),
    ("CFG_SET_VALUE", {"path": T + r"\c", "value": ""},
     {"success_code": 0, "reason": rb"path <halvoria\t\c>: a value is not empty"}),
    ("CFG_SET_VALUE", {"path": r"other\x", "value": "x"},
     {"success_code": 0, "reason": rb"path <other\x>: values are below 'halvoria' only"}),
    ("CFG_SET_VALUE", {"path": T + r"\a%b", "value": "x"},
     {"success_code": 0, "reason": rb"path <halvoria\t\a%b>: path validation refuses it"}),
    ("CFG_DEL_SUB", {"path": T + r"\a%b"},
     {"success_code": 0, "reason": rb"path <halvoria\t\a%b>: path validation refuses it"}),
    ("CFG_DEL_SUB", {"path": ""}, {"success_code": 0, "reason": b"path <>: no path is given"}),
    ("CFG_WRITE_SUB", {"subtree": b"abc", "path": T},
     {"success_code": 0, "reason": b"the subtree is not well formed"}),
    ("CFG_GET_VAL", {"path": "\\" + T.upper() + r"\\b"}, {"result": b"Two"}),
    ("CFG_GET_VAL", {"path": T + r"\none"}, {"result": b""}),
    ("CFG_GET_VAL_INX", {"path": T, "index": 0}, {"result": b"one"}),
    ("CFG_GET_VAL_NAME", {"path": T, "index": 1}, {"result": b"b"}),
    ("CFG_GET_VAL_NAME", {"path": T, "index": 2}, {"result": b""}),
    ("CFG_GET_VAL_NUM", {"path": T}, {"number": 2}),
    ("CFG_GET_SUB_NUM", {"path": T}, {"number": 2}),
    ("CFG_GET_SUB_ENTRIES_COUNT", {"path": T}, {"number": 6}),
    ("CFG_GET_SUB_EXISTS", {"path": T + r"\k"}, {"success_code": 1}),
    ("CFG_GET_SUB_EXISTS", {"path": T + r"\a"}, {"success_code": 0}),
    ("CFG_GET_SUB_PATHS", {"path": T}, {"count": 2, "result": [b"k", b"k2"]}),
    ("CFG_GET_SUB_PATHS", {"path": T + r"\k"}, {"count": 0}),
    ("CFG_GET_SUB_PATHS", {"path": T + r"\none"}, {}),
    ("CFG_GET_SUB_TREE_VALUES", {"path": T}, {"count": 2, "result": [b"a", b"one", b"b", b"Two"]}),
    ("CFG_GET_VALUE_BY_SEARCH_RULE", {"value_name": "x", "rules": [T, T + r"\k"]},
     {"success_code": 1, "value": b"deep", "path": rb"halvoria\t\k"}),
    ("CFG_GET_VALUE_BY_SEARCH_RULE", {"value_name": T + r"\a", "rules": [""]},
     {"success_code": 1, "value": b"one", "path": rb"halvoria\t\a"}),
    ("CFG_FILL_PATH", {"path": T + r"\%\x"}, {"count": 1, "result": [rb"halvoria\t\k\x"]}),
    ("CFG_FILL_PATH_NAME_VALUE", {"path": T + r"\%", "value_name": "y", "value": "other"},
     {"result": rb"halvoria\t\k2"}),
    ("CFG_DEL_SUB", {"path": T + r"\none"}, {"success_code": 1}),
    ("CFG_DEL_VAL", {"path": T + r"\none"}, {"success_code": 1}),
    ("CFG_UNLOCK", {}, {"success_code": 1}),
    ("CFG_LOCK", {}, {"success_code": 1}),
    ("CFG_DEL_VAL", {"path": T + r"\a"}, {"success_code": 1}),
    ("CFG_ROLLBACK", {}, {"success_code": 1}),
    ("CFG_UNLOCK", {}, {"success_code": 1}),
    ("CFG_GET_VAL", {"path": T + r"\a"}, {"result": b"one"}),
]
REFUSED = [
    ("NO_SUCH_COMMAND", {}, "there is no command 'NO_SUCH_COMMAND'"),
    ("CFG_SET_VALUE", {"value": "x", "path": T}, "CFG_SET_VALUE: the path is missing"),
    ("CFG_GET_VAL", {"path": T + "n" * 8192}, "the path is longer than 8192 bytes"),
    ("CFG_GET_VALUE_BY_SEARCH_RULE", {"value_name": "x", "rules": [T] * 1001}, "1001 rules"),
]
# fmt: on


class PythonClient(CfgTest):
    """docs/protocol_client.py at work, which is written from the page."""

    def setUp(self):
        super().setUp()
        service = Service(self.folder)
        self.addCleanup(service.stop)
        self.port = service.port
        self.client = Client("127.0.0.1", service.port)
        self.addCleanup(self.client.socket.close)

    def test_commands_mean_what_the_page_says(self):
        for command, arguments, answer in EXCHANGES:
            self.assertEqual(self.client.ask(command, **arguments), answer, command)
        for command, arguments, reason in REFUSED:
            with self.assertRaisesRegex(Refused, re.escape(reason)):
                self.client.ask(command, **arguments)
        self.client.tell("CFG_ENABLE_EXTENDED_TIMEOUT")
        self.client.send("CONN_PING", [])
        (size,) = struct.unpack(">I", self.client.bytes(4))
        self.assertEqual(list(decoded(self.client.bytes(size))),
                         [(1, b"CONN_PING"), (2, 0), (3, b"CFG_SERVICE"), (4, 1), (6, b"12.2.0.0")])
        with self.assertRaisesRegex(Refused, "not well formed"):
            self.client.ask("")
        with self.assertRaises(ConnectionError):
            self.client.ask("CFG_GET_MAX_SEQ")

    def test_the_page_lists_every_command_and_its_arguments_in_order(self):
        rows = re.findall(r"^\| `(\w+)` \| ([^|]*) \| ([^|]+) \| ?[^|]*\|$", PAGE.read_text(), re.M)
        self.assertEqual(len(rows), 37)
        meanings = PAGE.read_text().split("## What the commands mean")[1].split("## Limits")[0]
        for command, arguments, reply in rows:
            if reply.strip() == "nothing" or command == "CFG_LOCK":
                continue
            given = {}
            for name in re.findall(r"`(\w+)`|(RULES)", arguments):
                name = name[0] or "rules"
                given[name] = {"rules": ["halvoria"], "subtree": b"x"}.get(
                    name, 0 if name in ("index", "merge", "compressed") else "halvoria\\none")
            self.client.ask(command, **given)  # an argument out of place would be refused
            if not command.startswith(("CFG_UNLOCK", "CFG_ROLLBACK")):
                self.assertIn(f"`{command}`", meanings)

    def test_a_streamed_tree_is_what_the_page_says(self):
        ask, text = self.client.ask, "w" * 200_000
        ask("CFG_SET_VALUE", path=T + r"\k\x", value="1")
        ask("CFG_SET_VALUE", path=T + r"\long", value=text)
        self.assertEqual(list(self.client.tree(T.upper())),
                         [(b"k", b""), (rb"k\x", b"1"), (b"long", text.encode())])
        number = ask("CFG_GET_MAX_SEQ")["result"].decode()
        self.assertEqual(list(self.client.tree(T, number)), [])
        ask("CFG_DEL_VAL", path=T + r"\k\x")
        removed = list(self.client.tree(T, number, "CFG_GET_SUB_DEL_SEQ"))
        self.assertEqual(removed[-1], (rb"k\x", b""))
        for path, is_there in ((T + r"\k", True), (T + r"\none", False), (T + r"\%", False)):
            self.client.send("CFG_GET_SUB_SEQ",
                             [("path", path), ("seq_number", ""), ("compressed", 0)])
            fields = [field for frame in self.client.frames() for field in frame]
            chunks = [b"\\EMPTY_SUB_TREE\\\0\0"] * is_there + [b""]
            self.assertEqual(fields, [("path", path.encode())] +
                             [("tree_chunk", chunk) for chunk in chunks])

    def test_the_fields_have_the_numbers_of_the_description(self):
        numbers = dict(re.findall(r"(\w+) = (\d+);", PROTO.read_text()))
        for name, number in FIELDS.items():
            self.assertEqual(int(numbers[name]), number)
        lines = (SOURCE / "docs/protocol_client.py").read_text().splitlines()
        self.assertLessEqual(len(lines), 150)


if __name__ == "__main__":
    unittest.main(verbosity=2)
