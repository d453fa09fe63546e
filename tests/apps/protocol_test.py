"""What goes over the wire between the command and the service, as docs/protocol.* say it."""
import contextlib
import shutil
import socket
import struct
import subprocess
import threading

from cfg_runner import SOURCE, CfgTest, unittest
from svcfg_runner import Service

PROTO = SOURCE / "docs/protocol.proto"


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
        page = (SOURCE / "docs/protocol.md").read_text()
        shown = page.split("## One exchange")[1].split("```")[1]
        for kind in ("requests", "answers"):
            text = [t for t in map(decode, self.wire.frames(kind)) if "osei" in t or "Osei" in t][-1]
            for line in text.splitlines():
                if not line.startswith("user_name"):
                    self.assertIn(line, shown)


if __name__ == "__main__":
    unittest.main(verbosity=2)
