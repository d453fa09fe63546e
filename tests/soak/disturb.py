#!/usr/bin/env python3
"""Does one of the things that may disturb a service, as its only client or as many at once.

usage: disturb.py NAME PORT

A disturbance runs in a process of its own, so that it takes no time from those who watch. Its exit code
is 0 when it was answered as it may expect to be: that a lock which ran out of time is lost, say.
"""
import pathlib
import socket
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "docs"))
from protocol_client import Client, Refused  # noqa: E402

HOME = "halvoria\\soak"
WHOLE_TREE = [("path", "halvoria"), ("seq_number", ""), ("compressed", 0)]


def client(port):
    return Client("127.0.0.1", port, "vandal", "soak")


def expect(is_right, what):
    if not is_right:
        raise SystemExit(what)


def unread(port, count, command, fields):
    clients = [client(port) for _ in range(count)]
    for one in clients:
        one.send(command, fields)
    time.sleep(8)


def unread_trees(port):
    unread(port, 32, "CFG_GET_SUB_SEQ", WHOLE_TREE)


def unread_byte_arrays(port):
    unread(port, 40, "CFG_GET_SUB_LONG_VALUE", [("path", "halvoria")])


def a_thousand_rules(port):
    rules = [("path", "halvoria\\system")] * 1000
    unread(port, 4, "CFG_GET_SUB_MERGE",
           [("path", "applications"), ("count", len(rules)), *rules, ("merge", 1)])


def is_lock_lost(one):
    """What comes after the loss is refused, and UnLock says so; then all is as before."""
    try:
        one.ask("CFG_SET_VALUE", path=HOME + "\\vandal", value="2")
        return False
    except Refused:
        return one.ask("CFG_UNLOCK")["success_code"] == 0


def silent_lock(port):
    with client(port) as one:
        expect(one.ask("CFG_LOCK")["success_code"] == 1, "no lock")
        one.ask("CFG_SET_VALUE", path=HOME + "\\vandal", value="1")
        time.sleep(6)
        expect(is_lock_lost(one), "a lock that ran out of time is not lost")


def slow_reader_with_the_lock(port):
    with client(port) as one:
        expect(one.ask("CFG_LOCK")["success_code"] == 1, "no lock")
        one.send("CFG_GET_SUB_SEQ", WHOLE_TREE)
        time.sleep(6)


def torn_off_trees(port):
    for _ in range(60):
        with client(port) as one:
            one.send("CFG_GET_SUB_SEQ", WHOLE_TREE)
            one.bytes(100_000)


def nonsense(port):
    for data in (b"\xff" * 1000, b"\0\0\0\x05hello", b"\0\0", b"GET / HTTP/1.0\r\n\r\n"):
        for _ in range(50):
            with socket.create_connection(("127.0.0.1", port)) as one:
                one.sendall(data)


def refused_requests(port):
    with client(port) as one:
        for command, fields in [("CFG_GET_VAL", {"path": "x" * 9000}),
                                ("CFG_SET_VALUE", {"path": "vandal\\key", "value": "1"}),
                                ("CFG_SET_VALUE", {"path": HOME + "\\" + "x" * 3000, "value": "1"}),
                                ("CFG_NONSENSE", {})] * 100:
            try:
                answer = one.ask(command, **fields)
                expect(answer.get("success_code", 0) == 0, f"{command} was not refused")
            except Refused:
                pass
            except ConnectionError:
                one.socket.close()
                one = client(port)


def all_sessions(port):
    crowd = []
    try:
        while len(crowd) < 3000:
            crowd.append(socket.create_connection(("127.0.0.1", port)))
    except OSError:
        pass  # our own limit of descriptors
    time.sleep(2)


def large_writes(port):
    with client(port) as one:
        subtree = one.ask("CFG_GET_SUB_LONG_VALUE", path="halvoria\\system")["subtree"]
        for turn in range(20):
            done = one.ask("CFG_WRITE_SUB", subtree=subtree, path=f"{HOME}\\copy{turn % 3}")
            expect(done["success_code"] == 1, "a tree was not written")
        for turn in range(3):
            one.ask("CFG_DEL_SUB", path=f"{HOME}\\copy{turn}")


ALL = [unread_trees, unread_byte_arrays, a_thousand_rules, silent_lock, slow_reader_with_the_lock,
       torn_off_trees, nonsense, refused_requests, all_sessions, large_writes]

if __name__ == "__main__":
    next(one for one in ALL if one.__name__ == sys.argv[1])(int(sys.argv[2]))
