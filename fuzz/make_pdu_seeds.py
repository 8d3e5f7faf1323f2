#!/usr/bin/python3
"""Starting inputs for pdu_fuzzer: whole conversations as a peer would send them.

  make_pdu_seeds.py DIR

The first byte of each input chooses the side (0 acceptor, 1 requester). On the requester side
the bytes 0xF1 and 0xF3 stand for the two presentation context IDs the fuzz target proposes.
"""
import os
import struct
import sys

APP = b"1.2.840.10008.3.1.1.1"
VERIFICATION = b"1.2.840.10008.1.1"
CT = b"1.2.840.10008.5.1.4.1.1.2"
IMPLICIT = b"1.2.840.10008.1.2"
EXPLICIT = b"1.2.840.10008.1.2.1"


def item(kind, payload):
    return struct.pack(">BBH", kind, 0, len(payload)) + payload


def pdu(kind, body):
    return struct.pack(">BBI", kind, 0, len(body)) + body


def user_info():
    return item(0x50, item(0x51, struct.pack(">I", 16384)) + item(0x52, b"1.2.3.4") +
                item(0x55, b"KEST"))


def associate(kind, contexts):
    """contexts: (id, abstract syntax or result byte, transfer syntaxes)."""
    items = item(0x10, APP)
    for context_id, what, syntaxes in contexts:
        if kind == 1:
            payload = bytes([context_id, 0, 0, 0]) + item(0x30, what)
        else:
            payload = bytes([context_id, 0, what, 0])
        for syntax in syntaxes:
            payload += item(0x40, syntax)
        items += item(0x20 if kind == 1 else 0x21, payload)
    body = struct.pack(">HH", 1, 0) + b"KESTREL".ljust(16) + b"FUZZPEER".ljust(16) + bytes(32)
    return pdu(kind, body + items + user_info())


def element(group, number, value):
    if len(value) % 2:
        value += b"\0"
    return struct.pack("<HHI", group, number, len(value)) + value


def command(sop_class, field, message_id, with_data, extra=b""):
    body = (element(0, 0x0002, sop_class) + element(0, 0x0100, struct.pack("<H", field)) +
            element(0, 0x0110 if field < 0x8000 else 0x0120, struct.pack("<H", message_id)) +
            extra + element(0, 0x0800, struct.pack("<H", 0x0102 if with_data else 0x0101)))
    return element(0, 0, struct.pack("<I", len(body))) + body


def data_tf(values):
    body = b""
    for context_id, control, fragment in values:
        body += struct.pack(">IBB", len(fragment) + 2, context_id, control) + fragment
    return pdu(4, body)


RELEASE_RQ = pdu(5, bytes(4))
RELEASE_RP = pdu(6, bytes(4))

data_set = (element(0x0008, 0x0016, CT) + element(0x0008, 0x0018, b"1.2.3.4.5") +
            element(0x0008, 0x1140, b"") + element(0x0010, 0x0010, b"DOE^JOHN") +
            element(0x0028, 0x0010, struct.pack("<H", 4)) + element(0x7FE0, 0x0010, bytes(32)))

conversations = {
    "acceptor_echo": b"\0" + associate(1, [(1, VERIFICATION, [IMPLICIT])]) +
    data_tf([(1, 3, command(VERIFICATION, 0x0030, 1, False))]) + RELEASE_RQ,
    "acceptor_store": b"\0" + associate(1, [(1, CT, [EXPLICIT, IMPLICIT]), (3, CT, [IMPLICIT])]) +
    data_tf([(3, 3, command(CT, 0x0001, 3, True,
                            element(0, 0x0700, b"\0\0") + element(0, 0x1000, b"1.2.3.4.5")))]) +
    data_tf([(3, 0, data_set[:20])]) + data_tf([(3, 2, data_set[20:])]) + RELEASE_RQ,
    "acceptor_unknown": b"\0" + associate(1, [(1, CT, [IMPLICIT])]) +
    data_tf([(1, 3, command(CT, 0x0020, 5, True)), (1, 2, data_set)]) + pdu(7, bytes(4)),
    "requester_echo": b"\1" + associate(2, [(0xF1, 0, [IMPLICIT]), (0xF3, 3, [IMPLICIT])]) +
    data_tf([(0xF1, 3, command(VERIFICATION, 0x8030, 3, False, element(0, 0x0900, b"\0\0")))]) +
    RELEASE_RP,
    "requester_store": b"\1" + associate(2, [(0xF1, 4, [IMPLICIT]), (0xF3, 0, [IMPLICIT])]) +
    data_tf([(0xF3, 3, command(CT, 0x8001, 3, False, element(0, 0x0900, b"\0\0")))]) +
    RELEASE_RQ,
    "requester_reject": b"\1" + pdu(3, bytes([0, 1, 1, 3])),
}

os.makedirs(sys.argv[1], exist_ok=True)
for name, data in conversations.items():
    with open(os.path.join(sys.argv[1], name), "wb") as f:
        f.write(data)
