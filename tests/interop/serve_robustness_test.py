#!/usr/bin/python3
"""`kestrel serve` on a bad day, through raw-PDU peers on 127.0.0.1 (label `robustness`):

  - 200 idle sockets and 32 silent associations leave an echo answered within 1 s; with every
    slot taken a request is refused at once as busy; a silent association is aborted;
  - memory stays bounded while a 200 MB object arrives beside an unfinished one;
  - a stop answers a message that has fully arrived and cuts one still arriving;
  - partial files of a server killed mid-write are removed by the next one, a live server's not;
  - UIDs that are not UIDs, a data set that is not the request's, AE titles with control
    characters are refused, and nothing a peer sends can forge a log line;
  - `kestrel send` reports what a folder holds that is no file.
"""
import os
import signal
import socket
import sqlite3
import struct
import subprocess
import tempfile
import threading
import time
import unittest

from net_interop_test import (CT_IMAGE, KESTREL, VERIFICATION, Serve, associate_rq, closed_within,
                              command, elements, files_below, pdv, read_pdu, store_rq, uid)

MR_IMAGE = "1.2.840.10008.5.1.4.1.1.4"
CHUNK = 16000


def echo_rq():
    return command([(0x0002, uid(VERIFICATION)), (0x0100, struct.pack("<H", 0x30)),
                    (0x0110, struct.pack("<H", 1)), (0x0800, struct.pack("<H", 0x0101))])


def image_head(sop_class, instance, pixel_bytes, study="1.2.3", series="1.2.3.4"):
    """A CT data set up to the header of its Pixel Data, which announces `pixel_bytes`."""
    return elements([((8, 0x16), uid(sop_class)), ((8, 0x18), uid(instance)),
                     ((8, 0x60), b"CT"), ((0x10, 0x20), b"P1"), ((0x20, 0x0D), uid(study)),
                     ((0x20, 0x0E), uid(series))]) + struct.pack("<HHI", 0x7FE0, 0x10, pixel_bytes)


def status_of(answer):
    """The Status (0000,0900) of a response PDU, and its Error Comment."""
    if not answer or answer[0] != 4:
        return None, None
    body = answer[1]
    at = body.find(struct.pack("<HHI", 0, 0x0900, 2))
    comment = body.find(struct.pack("<HH", 0, 0x0902))
    text = None
    if comment >= 0:
        length = struct.unpack("<I", body[comment + 4:comment + 8])[0]
        text = body[comment + 8:comment + 8 + length].decode().rstrip(" \0")
    return struct.unpack("<H", body[at + 8:at + 10])[0], text


class Peer:
    """A raw peer: one association, messages sent as P-DATA-TF of 16,000-byte values."""

    def __init__(self, port, **request):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=30)
        self.sock.sendall(associate_rq(**request))
        self.answer = read_pdu(self.sock)

    def send(self, data, last=True, command_set=False):
        for at in range(0, len(data), CHUNK):
            end = at + CHUNK >= len(data)
            self.sock.sendall(pdv(data[at:at + CHUNK], (1 if command_set else 0) |
                                  (2 if end and last else 0)))

    def stream(self, byte_count, last=True, command_set=False):
        """`byte_count` zero bytes of a message, without holding them."""
        block, blocks = pdv(bytes(CHUNK), int(command_set)), (byte_count - 1) // CHUNK
        for _ in range(blocks):
            self.sock.sendall(block)
        self.send(bytes(byte_count - blocks * CHUNK), last, command_set)

    def store(self, data_set, sop_class=CT_IMAGE, instance="1.2.3.4.5"):
        self.send(store_rq(sop_class, instance), command_set=True)
        self.send(data_set)
        return status_of(read_pdu(self.sock, 60))

    def close(self):
        self.sock.close()


def echo_seconds(port):
    start = time.monotonic()
    peer = Peer(port, syntaxes=(VERIFICATION,))
    peer.send(echo_rq(), command_set=True)
    status = status_of(read_pdu(peer.sock))[0]
    peer.close()
    return status, time.monotonic() - start


def wait_for(condition, seconds=10):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.02)
    return False


def peak_memory_mb(pid):
    with open("/proc/%d/status" % pid) as f:
        return int(next(line for line in f if line.startswith("VmHWM")).split()[1]) / 1024


class Robustness(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.TemporaryDirectory()
        self.store = os.path.join(self.work.name, "store")
        self.incoming = os.path.join(self.store, ".incoming")
        self.servers = []

    def tearDown(self):
        for server in self.servers:
            if not server.process.stdout.closed:
                server.stop()
        self.work.cleanup()

    def serve(self, *options):
        self.servers.append(Serve(self.store, *options))
        return self.servers[-1]

    def test_idle_peers_cannot_starve_the_others(self):
        server = self.serve()
        idle = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(200)]
        silent = [Peer(server.port) for _ in range(32)]
        self.assertEqual({peer.answer[0] for peer in silent}, {2})
        for _ in range(3):
            status, seconds = echo_seconds(server.port)
            self.assertEqual(status, 0)
            self.assertLess(seconds, 1.0)
        for sock in idle + [peer.sock for peer in silent]:
            sock.close()

        busy = self.serve("--max-associations", "2", "--idle-timeout", "1")
        held = [Peer(busy.port), Peer(busy.port)]
        start = time.monotonic()
        refused = Peer(busy.port).answer
        self.assertEqual(refused[0], 3, "A-ASSOCIATE-RJ")
        self.assertEqual(tuple(refused[1][1:4]), (2, 3, 2), "transient, local limit exceeded")
        self.assertLess(time.monotonic() - start, 1.0)
        for peer in held:  # silent past the idle time-out: aborted
            self.assertEqual(read_pdu(peer.sock, 5)[0], 7)
        self.assertEqual(echo_seconds(busy.port)[0], 0)

    def test_memory_is_bounded_whatever_the_object_size(self):
        server = self.serve()
        size = 200 << 20
        results = {}

        def whole():
            peer = Peer(server.port, syntaxes=(CT_IMAGE,))
            peer.send(store_rq(CT_IMAGE, "1.2.3.4.5"), command_set=True)
            peer.send(image_head(CT_IMAGE, "1.2.3.4.5", size), last=False)
            peer.stream(size)
            results["whole"] = status_of(read_pdu(peer.sock, 120))[0]

        def unfinished():
            peer = Peer(server.port, syntaxes=(CT_IMAGE,))
            peer.send(store_rq(CT_IMAGE, "1.2.3.4.6"), command_set=True)
            peer.send(image_head(CT_IMAGE, "1.2.3.4.6", 2 * size), last=False)
            peer.stream(size, last=False)
            peer.sock.sendall(struct.pack(">BBIBBBB", 7, 0, 4, 0, 0, 0, 0))  # A-ABORT
            peer.close()

        def huge_command():  # a command is held whole: past its limit, the association ends
            peer = Peer(server.port)
            try:
                peer.stream(size // 2, command_set=True)
            except OSError:
                results["command cut"] = True
            peer.close()

        threads = [threading.Thread(target=f) for f in (whole, unfinished, huge_command)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(180)
        self.assertEqual(results.get("whole"), 0)
        self.assertTrue(results.get("command cut"))
        if not os.environ.get("KESTREL_SANITIZED"):
            self.assertLess(peak_memory_mb(server.process.pid), 96)
        self.assertTrue(wait_for(lambda: os.listdir(self.incoming) == []))
        stored = os.path.join(self.store, "1.2.3", "1.2.3.4", "1.2.3.4.5.dcm")
        self.assertGreater(os.path.getsize(stored), size)

    def test_stop_answers_what_has_arrived_and_cuts_the_rest(self):
        index = os.path.join(self.work.name, "index.db")
        server = self.serve("--db", "DRIVER=SQLite3;Database=%s;" % index, "--grace", "1")
        # The index is held busy, so the first store waits for its rows after its file is in.
        lock = sqlite3.connect(index, isolation_level=None)
        lock.execute("BEGIN IMMEDIATE")
        arrived = Peer(server.port, syntaxes=(CT_IMAGE,))
        arrived.send(store_rq(CT_IMAGE, "1.2.3.4.5"), command_set=True)
        arrived.send(image_head(CT_IMAGE, "1.2.3.4.5", 4) + bytes(4))
        stored = os.path.join(self.store, "1.2.3", "1.2.3.4", "1.2.3.4.5.dcm")
        self.assertTrue(wait_for(lambda: os.path.exists(stored)))
        arriving = Peer(server.port, syntaxes=(CT_IMAGE,))
        arriving.send(store_rq(CT_IMAGE, "1.2.3.4.6"), command_set=True)
        arriving.send(image_head(CT_IMAGE, "1.2.3.4.6", 1000), last=False)
        self.assertTrue(wait_for(lambda: len(os.listdir(self.incoming)) == 1))
        server.process.send_signal(signal.SIGTERM)
        self.assertTrue(closed_within(arriving.sock, 5), "cut once the grace has passed")
        lock.execute("COMMIT")
        self.assertEqual(status_of(read_pdu(arrived.sock, 30))[0], 0)
        self.assertEqual(server.stop(), 0)
        self.assertEqual(os.listdir(self.incoming), [])

    def test_partial_files_of_a_dead_server_are_removed_at_start(self):
        def half_sent(server, instance):
            peer = Peer(server.port, syntaxes=(CT_IMAGE,))
            before = set(os.listdir(self.incoming))
            peer.send(store_rq(CT_IMAGE, instance), command_set=True)
            peer.send(image_head(CT_IMAGE, instance, 1 << 20), last=False)
            self.assertTrue(wait_for(lambda: set(os.listdir(self.incoming)) - before))
            return peer, (set(os.listdir(self.incoming)) - before).pop()

        dead = self.serve()
        _, left = half_sent(dead, "1.2.3.4.5")
        dead.process.kill()
        dead.process.wait()
        self.assertEqual(os.listdir(self.incoming), [left])
        live = self.serve()  # removes what the dead one left
        peer, writing = half_sent(live, "1.2.3.4.6")
        self.serve()  # another server of the same store: the live one's file stays
        self.assertEqual(os.listdir(self.incoming), [writing])
        peer.close()
        live.stop()
        self.assertIn("removed 1 partial file left in", live.stderr)

    def test_what_a_peer_sends_is_checked_and_cannot_forge_a_log_line(self):
        server = self.serve("--verbose")
        cases = [  # data set's class and instance, the request's, status and Error Comment
            (CT_IMAGE, b"1.2.3.4\0/../../x", "1.2.3.4", 0xA900, "Invalid SOP Instance UID"),
            (CT_IMAGE, b"1.2.3\nkestrel serve: forged", "1.2.3", 0xA900,
             "Invalid SOP Instance UID"),
            (CT_IMAGE, b"1.2.3.5", "1.2.3.4", 0xA900, "SOP Instance UID differs from the request's"),
            (MR_IMAGE, b"1.2.3.4", "1.2.3.4", 0xA900, "SOP Class UID differs from the request's"),
            (CT_IMAGE, b"1.2.3.4", "1.2.3.4", 0xC000, None),
        ]
        for sop_class, instance, asked, status, comment in cases:
            with self.subTest(instance=instance, sop_class=sop_class):
                peer = Peer(server.port, syntaxes=(CT_IMAGE,))
                data_set = image_head(sop_class, instance, 4) + bytes(4)
                if comment is None:  # file meta information in the data set
                    data_set = elements([((2, 0x10), uid("1.2.840.10008.1.2"))]) + data_set
                    comment = "The data set holds file meta information"
                self.assertEqual(peer.store(data_set, instance=asked), (status, comment))
                peer.close()
        for calling, called, reason in ((b"EVIL\nAE", b"KESTREL", 3),
                                        (b"WS1", b"K\x1b[2JESTREL", 7),
                                        (b"WS\\1", b"KESTREL", 3)):
            with self.subTest(calling=calling, called=called):
                answer = Peer(server.port, calling=calling, called=called).answer
                self.assertEqual((answer[0], tuple(answer[1][1:4])), (3, (1, 1, reason)))
        server.stop()
        self.assertEqual(files_below(self.store), [])
        self.assertNotIn("\nkestrel serve: forged", server.stderr)
        self.assertIn("not a UID: 1.2.3\\x0Akestrel serve: forged", server.stderr)

    def test_send_reports_what_is_no_file(self):
        folder = os.path.join(self.work.name, "in")
        os.mkdir(folder)
        os.symlink("/nonexistent", os.path.join(folder, "dangling"))
        os.mkfifo(os.path.join(folder, "fifo"))
        result = subprocess.run([KESTREL, "send", "127.0.0.1", "1", folder], capture_output=True,
                                text=True, timeout=30)
        self.assertEqual(result.returncode, 3)
        self.assertIn("dangling: a symbolic link to nothing", result.stderr)
        self.assertIn("fifo: not a regular file (a FIFO)", result.stderr)
        self.assertIn("0 files done, 2 failed", result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
