#!/usr/bin/env python3
"""One service, many clients, and one of them at a time that does its worst.

usage: soak.py SVCFG CFG SECONDS [CLIENTS]

The clients read values, keys and small trees at a walking pace and check each answer; one in ten counts
up a number of its own. Meanwhile one disturbance follows the other (disturb.py). Nobody else may notice:
no request fails or waits longer than the bounds below, every count is what was acknowledged, and the
service's memory comes back. Prints a line for each disturbance; exit code 1 when somebody noticed.
"""
import asyncio
import gzip
import json
import pathlib
import random
import struct
import subprocess
import sys
import tempfile
import time

import disturb

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "docs"))
from protocol_client import ERROR, FIELDS, MORE, Client, decoded, encoded  # noqa: E402

DATA = SOURCE.parent / "shared/data/packages.xml.gz"
EXAMPLE = SOURCE / "examples/installation.xml"
# Seconds that a request of somebody else may take. A write waits for whoever holds the lock, at most
# for the service's transaction-time.
READ_BOUND, WRITE_BOUND = 1.0, 5.0
SETTINGS = ["--write-wait", "4", "--transaction-time", "3"]
LIST_CUT = 3071  # bytes of a value that a list has
PACE = 0.5  # seconds between two requests of a client
MEMORY_BACK = 10 << 20  # bytes above a fresh service, ten seconds after the last large request
MEMORY_MOST = 500 << 20


class Notice(Exception):
    """What somebody noticed."""


class Guest:
    """One of the many: a connection that asks one thing after the other."""

    def __init__(self, number, values):
        self.number, self.values, self.count = number, values, 0

    async def open(self, port):
        self.reader, self.writer = await asyncio.open_connection("127.0.0.1", port)
        self.hello = encoded(3, "CFG_SERVICE") + encoded(4, 1)

    async def ask(self, command, bound, *fields):
        """The fields of the answer, and the seconds that it took."""
        frame = encoded(1, command) + encoded(2, 0) + self.hello
        self.hello = b""
        for name, value in (("user_name", f"guest{self.number}"), ("application", "soak"), *fields):
            frame += encoded(FIELDS[name], value)
        begin = time.monotonic()
        self.writer.write(struct.pack(">I", len(frame)) + frame)
        answer, more = [], 1
        while more:
            size = struct.unpack(">I", await self.reader.readexactly(4))[0]
            got = list(decoded(await self.reader.readexactly(size)))
            own = dict(field for field in got if field[0] < 100)
            if ERROR in own:
                raise Notice(f"{command} of guest {self.number}: {own[ERROR].decode()}")
            more = own.get(MORE, 0)
            answer += [field for field in got if field[0] >= 100]
        waited = time.monotonic() - begin
        if waited > bound:
            raise Notice(f"{command} of guest {self.number} took {waited:.1f} s")
        return answer, waited

    async def write(self):
        done, waited = await self.ask("CFG_SET_VALUE", WRITE_BOUND,
                                      ("path", f"{disturb.HOME}\\guest{self.number}"),
                                      ("value", str(self.count + 1)))
        if (FIELDS["success_code"], 1) not in done:
            raise Notice(f"a count of guest {self.number} was not taken")
        self.count += 1
        return waited

    async def read(self):
        path, text = random.choice(self.values)
        key = path.rsplit("\\", 1)[0]
        kind = random.randrange(10)
        if kind == 0:
            listed, waited = await self.ask("CFG_GET_SUB_TREE_VALUES", READ_BOUND, ("path", key))
            if text.encode()[:LIST_CUT] not in [value for _, value in listed]:
                raise Notice(f"{path} is missing in its list")
        elif kind == 1:
            tree, waited = await self.ask("CFG_GET_SUB_SEQ", READ_BOUND, ("path", key),
                                          ("seq_number", ""), ("compressed", 0))
            if text.encode() not in b"".join(v for _, v in tree if isinstance(v, bytes)):
                raise Notice(f"{path} is missing in its tree")
        else:
            got, waited = await self.ask("CFG_GET_VAL", READ_BOUND, ("path", path))
            if got != [(FIELDS["result"], text.encode())]:
                raise Notice(f"{path} is {got}, not {text!r}")
        return waited

    async def live(self, record):
        await asyncio.sleep(random.random() * PACE)
        kind, step = ("write", self.write) if self.number % 10 == 0 else ("read", self.read)
        while not record.is_over:
            try:
                record.waits[kind].append(await step())
            except Notice as problem:
                record.notices.append(str(problem))
            except (OSError, asyncio.IncompleteReadError) as problem:
                record.notices.append(f"guest {self.number} is put out: {problem}")
                return
            await asyncio.sleep(PACE)


class Record:
    """What happened during one disturbance."""

    def __init__(self):
        self.is_over = self.is_noticed = False
        self.begin()

    def begin(self):
        self.waits, self.notices, self.memory = {"read": [], "write": []}, [], 0

    def tell(self, name):
        def worst(kind):
            found = sorted(self.waits[kind]) or [0]
            return {"requests": len(self.waits[kind]),
                    "p99_ms": round(found[int(len(found) * .99)] * 1e3, 1),
                    "most_ms": round(found[-1] * 1e3, 1)}

        print(json.dumps({"while": name, "read": worst("read"), "write": worst("write"),
                          "memory_mb": self.memory >> 20, "noticed": self.notices[:3],
                          "more": max(0, len(self.notices) - 3)}), flush=True)
        self.is_noticed |= bool(self.notices)
        self.begin()


class Service:
    def __init__(self, svcfg, cfg, folder):
        self.cfg, self.folder = cfg, pathlib.Path(folder)
        self.process = subprocess.Popen(
            [svcfg, "--config", "/dev/null", "--store", f"sqlite:{folder}/tree.sqlite",
             "--port", "0", "--print-port", "--log-output", f"file:{folder}/svcfg.log", *SETTINGS],
            stdout=subprocess.PIPE)
        self.port = int(self.process.stdout.readline())

    def close(self):
        self.process.terminate()
        return self.process.wait(60)

    def client(self):
        return Client("127.0.0.1", self.port, "soak", "soak")

    def fill(self):
        """Imports what there is, and gives pairs of a path and its text."""
        document = self.folder / "tree.xml"
        with gzip.open(DATA) if DATA.exists() else open(EXAMPLE, "rb") as source:
            document.write_bytes(source.read())
        subprocess.run([self.cfg, "--server", f"127.0.0.1:{self.port}", "import", str(document)],
                       stdout=subprocess.DEVNULL, check=True)
        with self.client() as client:
            values = [(f"halvoria\\{path.decode()}", text.decode())
                      for path, text in client.tree("halvoria") if text]
        return [value for value in values if value[0].count("\\") > 2]

    def memory(self):
        """Bytes of its own: without the pages of the store's file, which the system can take."""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(status.split("RssAnon:")[1].split()[0]) << 10

    async def watch(self, record):
        while not record.is_over:
            record.memory = max(record.memory, self.memory())
            if record.memory > MEMORY_MOST:
                record.notices.append(f"the service takes {record.memory >> 20} MB")
                return
            await asyncio.sleep(0.2)

    def count_of(self, client, guest):
        return int(client.ask("CFG_GET_VAL", path=f"{disturb.HOME}\\guest{guest.number}")["result"])


async def disturb_once(name, port, record):
    process = await asyncio.create_subprocess_exec(
        sys.executable, disturb.__file__, name, str(port), stderr=subprocess.PIPE)
    _, complaint = await process.communicate()
    if process.returncode:
        record.notices.append(f"the disturbance itself: {complaint.decode().splitlines()[-1]}")


async def soak(service, seconds, clients):
    guests = [Guest(number, values) for values in [service.fill()] for number in range(clients)]
    for guest in guests:
        await guest.open(service.port)
    record = Record()
    living = [asyncio.create_task(guest.live(record)) for guest in guests]
    living.append(asyncio.create_task(service.watch(record)))
    await asyncio.sleep(5)
    record.tell("nothing")
    end = time.monotonic() + seconds
    turn = 0
    while turn < len(disturb.ALL) or time.monotonic() < end:
        name = disturb.ALL[turn % len(disturb.ALL)].__name__
        await disturb_once(name, service.port, record)
        await asyncio.sleep(2)
        record.tell(name)
        turn += 1
    record.is_over = True
    await asyncio.gather(*living)
    with service.client() as client:
        for guest in guests:
            if guest.count and guest.count != service.count_of(client, guest):
                record.notices.append(f"guest {guest.number} counted {guest.count}, the tree says "
                                      f"{service.count_of(client, guest)}")
    record.tell("the counts are compared")
    for guest in guests:
        guest.writer.close()
    return record.is_noticed


def main():
    svcfg, cfg, seconds = sys.argv[1:4]
    clients = int(sys.argv[4]) if len(sys.argv) > 4 else 200
    with tempfile.TemporaryDirectory() as folder:
        service = Service(svcfg, cfg, folder)
        fresh, is_noticed = service.memory(), True
        try:
            is_noticed = asyncio.run(soak(service, float(seconds), clients))
            time.sleep(10)  # what the service may take to give memory back
            above = service.memory() - fresh
            print(json.dumps({"memory_mb_fresh": fresh >> 20,
                              "memory_mb_above_it": round(above / 2**20, 1)}))
            is_noticed |= above > MEMORY_BACK
        finally:
            is_noticed |= service.close() != 0
        return int(is_noticed)


if __name__ == "__main__":
    sys.exit(main())
