"""One question to a name server (RFC 1035), without the process that `dig` takes."""
import secrets
import socket
import struct

KINDS = {"TXT": 16, "SOA": 6}
NO_SUCH_NAME = 3


def look_up(server, name, kind, port=53, limit=10):
    """The data of the records there, of TXT records as dig shows them; None where nobody answers, or refuses to."""
    number = secrets.randbelow(1 << 16)
    labels = b"".join(bytes([len(label)]) + label.encode("ascii") for label in name.rstrip(".").split("."))
    question = struct.pack("!6H", number, 0x0100, 1, 0, 0, 0) + labels + b"\0" + struct.pack("!2H", KINDS[kind], 1)
    try:
        # By TCP no answer is too long, and a closed port is told at once.
        with socket.create_connection((server, port), timeout=limit) as connection, connection.makefile("rb") as stream:
            connection.sendall(struct.pack("!H", len(question)) + question)
            size, = struct.unpack("!H", stream.read(2))
            answer = stream.read(size)
    except (OSError, struct.error):
        return None
    answered, flags, questions, count = struct.unpack("!4H", answer[:8])
    if answered != number or flags & 15 not in (0, NO_SUCH_NAME):
        return None
    at = 12
    for _ in range(questions):
        at = after_name(answer, at) + 4
    found = []
    for _ in range(count):
        at = after_name(answer, at)
        of, _, _, size = struct.unpack("!HHIH", answer[at:at + 10])
        data = answer[at + 10:at + 10 + size]
        at += 10 + size
        if of == KINDS[kind]:
            found.append(text_of(data) if kind == "TXT" else data)
    return found


def after_name(message, at):
    """Where a name ends: with its root, or with a pointer."""
    while 0 < message[at] < 0xc0:
        at += 1 + message[at]
    return at + (2 if message[at] else 1)


def text_of(data):
    texts = []
    while data:
        texts.append('"' + data[1:1 + data[0]].decode("latin-1").replace("\\", "\\\\").replace('"', '\\"') + '"')
        data = data[1 + data[0]:]
    return " ".join(texts)
