"""A client of the configuration service in Python's standard library, after protocol.md.

    with Client("127.0.0.1", 5020) as tree:
        tree.ask("CFG_SET_VALUE", path="halvoria\\\\conf\\\\site\\\\phone", value="1")
        print(tree.ask("CFG_GET_VAL", path="halvoria\\\\conf\\\\site\\\\phone")["result"])
        for path, text in tree.tree("halvoria\\\\conf"):
            print(path, text)
"""
import getpass
import socket
import struct

NAME, MORE, SERVICE, VERSION, ERROR = 1, 2, 3, 4, 5
FIELDS = {"security_token": 1970002, "user_name": 5020002, "application": 5020003,
          "path": 5020004, "seq_number": 5020005, "compressed": 5020006, "subtree": 5020007,
          "tree_chunk": 5020008, "result": 5020009, "success_code": 5020010, "value": 5020011,
          "count": 5020012, "value_name": 5020013, "merge": 5020014, "index": 5020015,
          "number": 5020016, "reason": 5020017}
NAMES = {number: name for name, number in FIELDS.items()}
NUMBERS = {"compressed", "success_code", "count", "merge", "index", "number"}
EMPTY_TREE = b"\\EMPTY_SUB_TREE\\"


class Refused(Exception):
    """What the service said when it refused a request or the connection."""


def varint(number):
    number &= (1 << 64) - 1  # negative ones take ten bytes
    out = b""
    while number > 0x7F:
        out += bytes([number & 0x7F | 0x80])
        number >>= 7
    return out + bytes([number])


def encoded(number, value):
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    data = value.encode() if isinstance(value, str) else value
    return varint(number << 3 | 2) + varint(len(data)) + data


def decoded(frame):
    """The fields of a frame, in their order: pairs of a number and an int or bytes."""
    at = 0

    def read_varint():
        nonlocal at
        number = shift = 0
        while True:
            byte = frame[at]
            at += 1
            number |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return number - (1 << 64) if number >> 63 else number

    while at < len(frame):
        key = read_varint()
        value = read_varint()
        if key & 7 == 2:
            value, at = frame[at:at + value], at + value
        yield key >> 3, value


class Client:
    """One session. Not for several threads at once."""

    def __init__(self, host, port, user=None, application="python", timeout=10):
        self.socket = socket.create_connection((host, port), timeout)
        self.who = (user or getpass.getuser(), application)
        self.is_introduced = False

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, command, arguments):
        frame = encoded(NAME, command) + encoded(MORE, 0)
        if not self.is_introduced:
            frame += encoded(SERVICE, "CFG_SERVICE") + encoded(VERSION, 1)
            self.is_introduced = True
        if command != "CONN_PING":
            frame += encoded(FIELDS["user_name"], self.who[0])
            frame += encoded(FIELDS["application"], self.who[1])
        for name, value in arguments:
            frame += encoded(FIELDS[name], value)
        self.socket.sendall(struct.pack(">I", len(frame)) + frame)

    def bytes(self, size):
        data = b""
        while len(data) < size:
            part = self.socket.recv(size - len(data))
            if not part:
                raise ConnectionError("the service closed the connection")
            data += part
        return data

    def frames(self):
        """The frames of one answer, each without the connection's own fields."""
        more = 1
        while more:
            fields = list(decoded(self.bytes(struct.unpack(">I", self.bytes(4))[0])))
            own = {number: value for number, value in fields if number < 100}
            if ERROR in own:
                raise Refused(own[ERROR].decode())
            more = own.get(MORE, 0)
            yield [(NAMES[number], value) for number, value in fields if number >= 100]

    def ask(self, command, rules=None, **arguments):
        """Sends a command with its arguments in the order of the page, and gives the fields of its
        answer; a field that comes more than once, and `result` of a list, is a list of bytes."""
        given = list(arguments.items())
        if rules is not None:  # behind the name that they are asked for, before `merge`
            given[1:1] = [("count", len(rules)), *(("path", rule) for rule in rules)]
        self.send(command, given)
        answer = {}
        for frame in self.frames():
            for name, value in frame:
                if name in answer or (name == "result" and "count" in answer):
                    kept = answer.setdefault(name, [])
                    if not isinstance(kept, list):
                        kept = answer[name] = [kept]
                    kept.append(value)
                else:
                    answer[name] = value
        return answer

    def tell(self, command):
        """For the commands that are not answered."""
        self.send(command, [])

    def tree(self, path, seq_number="", command="CFG_GET_SUB_SEQ"):
        """The records of a streamed tree: pairs of a path below `path`, and a text or, for a key, b""."""
        self.send(command, [("path", path), ("seq_number", seq_number), ("compressed", 0)])
        for frame in self.frames():
            for name, chunk in frame:
                if name != "tree_chunk":
                    continue
                texts = chunk.split(b"\0")
                for record in zip(texts[:-1:2], texts[1::2]):
                    if record[0] != EMPTY_TREE:
                        yield record
