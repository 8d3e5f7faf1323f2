#!/usr/bin/python3
"""`kestrel echo` and `kestrel serve` against DCMTK, on 127.0.0.1 with ports the system gives.

  - kestrel echo -> storescp; echoscu -> kestrel serve; a closed port; peers that reject
    (kestrel serve with a pdu.txt naming one RemoteAE, storescp --refuse, and dcmqrscp, which
    refuses an unknown called AE title) with their exact rejection texts;
  - storescu -> kestrel serve with pydicom's sample files: every file storescu can send is
    stored, and the stored file holds the same elements with the same values;
  - hostile peers (truncated and oversized PDUs, lengths that lie, full 16-byte AE titles,
    hundreds of presentation contexts, a peer that stops mid-message or never sends): after
    each, the next association is served normally;
  - eight storescu processes storing at once all succeed;
  - SIGTERM stops the server cleanly, even with a silent peer connected.
"""
import os
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import threading
import time
import unittest

import pydicom
from pydicom.uid import generate_uid

from dataset_compare import compare as differences
from loopback import free_port, wait_for_port

KESTREL = os.environ.get("KESTREL_BIN", "build/bin/kestrel")
SAMPLES = os.path.join(os.path.dirname(pydicom.__file__), "data", "test_files")
VERIFICATION = "1.2.840.10008.1.1"
CT_IMAGE = "1.2.840.10008.5.1.4.1.1.2"
IMPLICIT_LE = "1.2.840.10008.1.2"
ADVICE = ("\r\n\r\n* Ensure that the device you are trying to reach has the correct IP, AE Title "
          "and Port in your Destinations list\r\n* Ensure that your IP, AE Title and Port is "
          "configured on the server you are trying to reach\r\n* Ensure that the device you are "
          "trying to reach supports the SOP class and transfer syntax you are requesting")
# storescu proposes only uncompressed syntaxes unless told; these options propose the syntax a
# compressed file is in.
STORESCU_PROPOSAL = {
    "1.2.840.10008.1.2.4.50": ["-xy"], "1.2.840.10008.1.2.4.51": ["-xx"],
    "1.2.840.10008.1.2.4.57": ["-xs"], "1.2.840.10008.1.2.4.70": ["-xs"],
    "1.2.840.10008.1.2.4.90": ["-xv"], "1.2.840.10008.1.2.4.91": ["-xw"],
    "1.2.840.10008.1.2.5": ["-xr"],
}
UNCOMPRESSED = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2"}


def have_tools():
    return all(shutil.which(t) for t in ("storescp", "storescu", "echoscu", "dcmqrscp", "dcmdump"))


def run(*args, timeout=60):
    return subprocess.run([str(a) for a in args], capture_output=True, timeout=timeout)


class Serve:
    """kestrel serve on a free port, stopped with SIGTERM."""

    def __init__(self, store, *extra, cwd=None):
        # A home of its own, for the image database when no --db is given.
        self.home = tempfile.mkdtemp()
        self.process = subprocess.Popen(
            [KESTREL, "serve", "--port", "0", "--store", store, *extra],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, cwd=cwd,
            env=dict(os.environ, KESTREL_HOME=self.home))
        line = self.process.stdout.readline()
        if "listening on port" not in line:
            self.process.kill()
            raise RuntimeError("kestrel serve did not start: %r %s" % (
                line, self.process.stderr.read()))
        self.port = int(line.split("port ")[1].split()[0])

    def stop(self, timeout=15):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            self.process.wait(timeout)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.stderr = self.process.stderr.read()
        self.process.stdout.close()
        self.process.stderr.close()
        shutil.rmtree(self.home, ignore_errors=True)
        return self.process.returncode


class DcmtkPeer:
    """A DCMTK acceptor on a free port."""

    def __init__(self, *args, cwd=None):
        self.port = free_port()
        self.process = subprocess.Popen(
            [*args, str(self.port)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            cwd=cwd)
        if not wait_for_port(self.port):
            self.process.kill()
            raise RuntimeError("%s did not start" % args[0])

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


# -- PDUs for the hostile peers (PS3.8 9.3) --------------------------------------------------

def item(item_type, payload):
    return struct.pack(">BBH", item_type, 0, len(payload)) + payload


def associate_rq(calling=b"HOSTILE", called=b"KESTREL", syntaxes=(VERIFICATION,)):
    items = item(0x10, b"1.2.840.10008.3.1.1.1")
    for i, syntax in enumerate(syntaxes):
        context = bytes([(2 * i + 1) % 256, 0, 0, 0]) + item(0x30, syntax.encode()) + \
            item(0x40, IMPLICIT_LE.encode())
        items += item(0x20, context)
    items += item(0x50, item(0x51, struct.pack(">I", 16384)) + item(0x52, b"1.2.3.4"))
    body = struct.pack(">HH", 1, 0) + called.ljust(16)[:16] + calling.ljust(16)[:16] + \
        bytes(32) + items
    return struct.pack(">BBI", 1, 0, len(body)) + body


def uid(text):
    data = text if isinstance(text, bytes) else text.encode()
    return data + b"\0" * (len(data) % 2)


def elements(pairs, group=0):
    """Implicit VR little endian elements; `pairs` of (element, value) or ((group, element),
    value), in tag order."""
    out = b""
    for tag, value in pairs:
        g, e = tag if isinstance(tag, tuple) else (group, tag)
        out += struct.pack("<HHI", g, e, len(value)) + value
    return out


def command(pairs):
    body = elements(pairs)
    return struct.pack("<HHII", 0, 0, 4, len(body)) + body


def store_rq(sop_class, instance):
    return command([(0x0002, uid(sop_class)), (0x0100, struct.pack("<H", 1)),
                    (0x0110, struct.pack("<H", 3)), (0x0700, struct.pack("<H", 0)),
                    (0x0800, struct.pack("<H", 0)), (0x1000, uid(instance))])


def pdv(data, control):
    return struct.pack(">BBIIBB", 4, 0, len(data) + 6, len(data) + 2, 1, control) + data


def context_results(body):
    """The (ID, result) of every presentation context item of an A-ASSOCIATE-AC body."""
    results, at = [], 68
    while at + 4 <= len(body):
        item_type, length = body[at], struct.unpack(">H", body[at + 2:at + 4])[0]
        if item_type == 0x21:
            results.append((body[at + 4], body[at + 6]))
        at += 4 + length
    return results


def read_pdu(sock, seconds=5):
    """(type, body) of the next PDU, or None when the peer closed or went silent."""
    sock.settimeout(seconds)
    try:
        header = b""
        while len(header) < 6:
            chunk = sock.recv(6 - len(header))
            if not chunk:
                return None
            header += chunk
        length = struct.unpack(">I", header[2:6])[0]
        body = b""
        while len(body) < length:
            chunk = sock.recv(min(65536, length - len(body)))
            if not chunk:
                return None
            body += chunk
        return header[0], body
    except (socket.timeout, ConnectionError):
        return None


def closed_within(sock, seconds):
    """True when the peer closes the connection before `seconds` pass."""
    sock.settimeout(seconds)
    try:
        while True:
            if not sock.recv(65536):
                return True
    except socket.timeout:
        return False
    except ConnectionError:
        return True


def stored_path(store, ds):
    """Where kestrel serve keeps an instance: <store>/<study>/<series>/<instance>.dcm."""
    return os.path.join(store, ds.StudyInstanceUID, ds.SeriesInstanceUID,
                        ds.SOPInstanceUID + ".dcm")


def files_below(directory):
    return [os.path.join(d, f) for d, _, names in os.walk(directory) for f in names]


def sendable_samples():
    """(path, storescu options) for every sample with SOP class and instance UIDs in a transfer
    syntax that storescu can propose and the server can read."""
    chosen = []
    for name in sorted(os.listdir(SAMPLES)):
        if not name.endswith(".dcm"):
            continue
        path = os.path.join(SAMPLES, name)
        dump = run("dcmdump", path)
        if dump.returncode != 0 or b"E: " in dump.stderr or b"W: DcmItem" in dump.stderr:
            continue  # damaged on purpose, or beyond DCMTK: storescu cannot send it
        try:
            ds = pydicom.dcmread(path)
            syntax = str(ds.file_meta.TransferSyntaxUID)
            ds.SOPClassUID, ds.SOPInstanceUID  # noqa: B018 (both must be there)
        except Exception:
            continue
        if syntax in UNCOMPRESSED:
            chosen.append((path, []))
        elif syntax in STORESCU_PROPOSAL:
            chosen.append((path, STORESCU_PROPOSAL[syntax]))
    return chosen


@unittest.skipUnless(have_tools(), "DCMTK tools not installed")
class EchoAndRejection(unittest.TestCase):
    def assert_rejected(self, result, why):
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr.decode(), "Error: Unable to connect to 127.0.0.1\r\n"
                         "Permanent Rejection from Service User because " + why + ADVICE + "\n")

    def test_kestrel_echo_to_storescp(self):
        scp = DcmtkPeer("storescp", "--ignore")
        try:
            for options in ([], ["--repeat", "20", "--aet", "A" * 16]):
                result = run(KESTREL, "echo", *options, "127.0.0.1", scp.port)
                self.assertEqual(result.returncode, 0, result.stderr)
        finally:
            scp.stop()

    def test_connection_failures_say_what_happened(self):
        # Without an A-ASSOCIATE-RJ there is no rejection to explain: the text says what
        # happened instead, after the usual first line.
        silent = socket.socket()  # completes the TCP handshake, then never answers
        silent.bind(("127.0.0.1", 0))
        silent.listen(4)
        closing = socket.socket()
        closing.bind(("127.0.0.1", 0))
        closing.listen(4)
        stop = threading.Event()

        def close_each():
            closing.settimeout(0.2)
            while not stop.is_set():
                try:
                    closing.accept()[0].close()
                except OSError:
                    pass

        closer = threading.Thread(target=close_each)
        closer.start()
        closed_port = free_port()
        cases = [
            ("127.0.0.1", closed_port, 10, "The connection to 127.0.0.1 port %d was refused: "
                                       "nothing listens there" % closed_port),
            ("no-such-host.invalid", 104, 10, "The host no-such-host.invalid is not known"),
            ("127.0.0.1", "no-such-service", 10,
             "The port no-such-service is neither a number nor a known service name"),
            ("127.0.0.1", silent.getsockname()[1], 1,
             "No answer to the association request came within 1 s"),
            ("127.0.0.1", closing.getsockname()[1], 30,
             "The peer closed the connection without answering the association request"),
        ]
        try:
            for host, port, timeout, why in cases:
                result = run(KESTREL, "echo", "--timeout", str(timeout), host, port)
                self.assertEqual(result.returncode, 1, why)
                self.assertEqual(result.stderr.decode(),
                                 "Error: Unable to connect to %s\r\n%s\r\n" % (host, why))
        finally:
            stop.set()
            closer.join()
            silent.close()
            closing.close()

    def test_long_ae_title_is_a_usage_error(self):
        for option in ("--aet", "--aec"):
            result = run(KESTREL, "echo", option, "A" * 17, "127.0.0.1", "104")
            self.assertEqual(result.returncode, 64, option)

    def test_kestrel_serve_with_one_remote_ae_rejects_others(self):
        with tempfile.TemporaryDirectory() as work:
            config = os.path.join(work, "pdu.txt")
            with open(config, "w") as f:
                f.write("# the only peer allowed\nworkstation WS1 RemoteAE\n")
            server = Serve(os.path.join(work, "store"), "--config", config)
            try:
                self.assert_rejected(run(KESTREL, "echo", "--aet", "WS2", "127.0.0.1",
                                         server.port), "your Application Entity Title is not known")
                self.assertNotEqual(run("echoscu", "-aet", "WS2", "127.0.0.1",
                                        server.port).returncode, 0)
                self.assertEqual(run("echoscu", "-aet", "WS1", "127.0.0.1",
                                     server.port).returncode, 0)
                self.assertEqual(run(KESTREL, "echo", "--aet", "WS1", "127.0.0.1",
                                     server.port).returncode, 0)
            finally:
                self.assertEqual(server.stop(), 0)

    def test_dcmtk_acceptors_that_reject(self):
        scp = DcmtkPeer("storescp", "--refuse")
        try:
            self.assert_rejected(run(KESTREL, "echo", "127.0.0.1", scp.port),
                                 "DICOM connection could not be made")
        finally:
            scp.stop()
        with tempfile.TemporaryDirectory() as work:
            os.mkdir(os.path.join(work, "db"))
            port = free_port()
            config = os.path.join(work, "qr.cfg")
            with open(config, "w") as f:
                f.write("NetworkTCPPort = %d\nMaxPDUSize = 16384\nMaxAssociations = 4\n"
                        "HostTable BEGIN\nHostTable END\nVendorTable BEGIN\nVendorTable END\n"
                        "AETable BEGIN\nQRSCP %s RW (10, 1024mb) ANY\nAETable END\n"
                        % (port, os.path.join(work, "db")))
            qr = subprocess.Popen(["dcmqrscp", "-c", config, str(port)],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                self.assertTrue(wait_for_port(port))
                self.assert_rejected(run(KESTREL, "echo", "--aec", "WRONG", "127.0.0.1", port),
                                     "called Application Entity Title is not known")
                self.assertEqual(run(KESTREL, "echo", "--aec", "QRSCP", "127.0.0.1",
                                     port).returncode, 0)
            finally:
                qr.terminate()
                qr.wait(10)


@unittest.skipUnless(have_tools(), "DCMTK tools not installed")
class StoreToKestrel(unittest.TestCase):
    def test_storescu_sample_files(self):
        samples = sendable_samples()
        self.assertGreater(len(samples), 20)
        with tempfile.TemporaryDirectory() as store:
            server = Serve(store)
            try:
                for path, options in samples:
                    name = os.path.basename(path)
                    result = run("storescu", "-R", *options, "127.0.0.1", server.port, path)
                    self.assertEqual(result.returncode, 0,
                                     "%s: %s" % (name, result.stderr.decode()[-400:]))
                    sent = pydicom.dcmread(path)
                    received = stored_path(store, sent)
                    self.assertTrue(os.path.exists(received), name)
                    stored = pydicom.dcmread(received)
                    self.assertEqual(stored.file_meta.MediaStorageSOPInstanceUID,
                                     sent.SOPInstanceUID, name)
                    self.assertEqual(stored.file_meta.SourceApplicationEntityTitle.strip(),
                                     "STORESCU", name)
                    self.assertEqual(differences(sent, stored), [], name)
                    os.remove(received)
            finally:
                self.assertEqual(server.stop(), 0)
            self.assertIn("%d objects stored" % len(samples), server.stderr)
            self.assertEqual(files_below(store), [], "nothing but the objects sent")

    def test_eight_peers_storing_at_once(self):
        with tempfile.TemporaryDirectory() as work:
            source = pydicom.dcmread(os.path.join(SAMPLES, "CT_small.dcm"))
            peers = []
            for peer in range(8):
                folder = os.path.join(work, "peer%d" % peer)
                os.mkdir(folder)
                for i in range(6):
                    source.SOPInstanceUID = generate_uid()
                    source.file_meta.MediaStorageSOPInstanceUID = source.SOPInstanceUID
                    source.save_as(os.path.join(folder, "%d.dcm" % i))
                peers.append(folder)
            store = os.path.join(work, "store")
            server = Serve(store)
            try:
                processes = [subprocess.Popen(
                    ["storescu", "-aet", "PEER%d" % i, "+sd", "127.0.0.1", str(server.port),
                     folder], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
                    for i, folder in enumerate(peers)]
                for process in processes:
                    _, err = process.communicate(timeout=120)
                    self.assertEqual(process.returncode, 0, err.decode())
            finally:
                self.assertEqual(server.stop(), 0)
            self.assertEqual(len(files_below(store)), 48)
            for folder in peers:
                for name in os.listdir(folder):
                    sent = pydicom.dcmread(os.path.join(folder, name))
                    stored = pydicom.dcmread(stored_path(store, sent))
                    self.assertEqual(differences(sent, stored), [])


@unittest.skipUnless(have_tools(), "DCMTK tools not installed")
class HostilePeers(unittest.TestCase):
    """Each hostile peer is followed by an echo that must be answered."""

    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.TemporaryDirectory()
        cls.server = Serve(os.path.join(cls.work.name, "store"), "--timeout", "2",
                           "--idle-timeout", "2")

    @classmethod
    def tearDownClass(cls):
        code = cls.server.stop()
        cls.work.cleanup()
        assert code == 0, code

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.server.port), timeout=5)

    def assert_next_association_served(self):  # echoscu -> kestrel serve
        result = run("echoscu", "-to", "5", "127.0.0.1", self.server.port)
        self.assertEqual(result.returncode, 0, result.stderr)

    def associate(self, sock, **kwargs):
        sock.sendall(associate_rq(**kwargs))
        answer = read_pdu(sock)
        self.assertIsNotNone(answer)
        self.assertEqual(answer[0], 2, "A-ASSOCIATE-AC")
        return answer

    def test_oversized_request_and_lying_item_length_are_aborted(self):
        lying_item = bytearray(associate_rq())
        lying_item[74 + 2:74 + 4] = struct.pack(">H", 0xFFF0)  # application context item
        for request in (struct.pack(">BBI", 1, 0, 0xFFFFFFFF) + bytes(100), bytes(lying_item)):
            with self.connect() as sock:
                sock.sendall(request)
                answer = read_pdu(sock)
                self.assertEqual(answer[0] if answer else None, 7, "A-ABORT")
                self.assertTrue(closed_within(sock, 5))
            self.assert_next_association_served()

    def test_request_whose_length_lies(self):
        request = bytearray(associate_rq())
        request[2:6] = struct.pack(">I", len(request) - 6 + 500)
        with self.connect() as sock:
            sock.sendall(bytes(request))
            start = time.time()
            self.assertTrue(closed_within(sock, 10), "dropped after the time-out")
            self.assertLess(time.time() - start, 8)
        self.assert_next_association_served()

    def test_full_sixteen_byte_ae_titles(self):
        with self.connect() as sock:
            self.associate(sock, calling=b"ABCDEFGHIJKLMNOP", called=b"QRSTUVWXYZ012345")
            sock.sendall(struct.pack(">BBI", 5, 0, 4) + bytes(4))  # A-RELEASE-RQ
            answer = read_pdu(sock)
            self.assertEqual(answer[0] if answer else None, 6)
        self.assert_next_association_served()

    def test_hundreds_of_presentation_contexts(self):
        syntaxes = ["1.2.840.10008.5.1.4.1.1.%d" % i for i in range(400)]
        with self.connect() as sock:
            _, body = self.associate(sock, syntaxes=syntaxes)
            results = context_results(body)
            self.assertEqual(len(results), 400, "one answer per context")
            self.assertEqual({result for _, result in results}, {0})
        self.assert_next_association_served()

    def test_peer_stopping_mid_message(self):
        with self.connect() as sock:
            self.associate(sock)
            # A P-DATA-TF announcing 100000 bytes of command, of which 50 come.
            sock.sendall(struct.pack(">BBIIBB", 4, 0, 100006, 100002, 1, 0x03) + bytes(50))
        self.assert_next_association_served()

    def test_peer_that_never_sends(self):
        with self.connect() as sock:
            start = time.time()
            # Another association is served while this one waits.
            self.assert_next_association_served()
            self.assertTrue(closed_within(sock, 10))
            self.assertLess(time.time() - start, 8)
        with self.connect() as sock:
            self.associate(sock)
            self.assertTrue(closed_within(sock, 10), "silent after the association too")
        self.assert_next_association_served()

    def test_garbage_and_unknown_pdus(self):
        for junk in (b"\x01\x00\x00", bytes(range(256)) * 4, b"\x09\x00\x00\x00\x00\x04abcd",
                     b"\x04\x00\x00\x00\x00\x06\x00\x00\x00\x02\x01\x03"):
            with self.connect() as sock:
                sock.sendall(junk)
                closed_within(sock, 5)
            self.assert_next_association_served()

    def test_command_for_a_service_not_offered(self):
        # (command field, response field, status): C-FIND for the Verification class is a
        # class serve does not answer C-FIND for; N-GET is an operation it has no handler for.
        for field, answer_field, status in ((0x0020, 0x8020, 0x0122), (0x0110, 0x8110, 0x0211)):
            group = command([(0x0002, uid(VERIFICATION)), (0x0100, struct.pack("<H", field)),
                             (0x0110, struct.pack("<H", 7)), (0x0800, struct.pack("<H", 0x0101))])
            with self.connect() as sock:
                self.associate(sock)
                sock.sendall(pdv(group, 0x03))
                answer = read_pdu(sock)
                self.assertEqual(answer[0], 4)
                response = answer[1][6:]
                self.assertIn(struct.pack("<HHIH", 0, 0x0100, 2, answer_field), response)
                self.assertIn(struct.pack("<HHIH", 0, 0x0900, 2, status), response)
            self.assert_next_association_served()


@unittest.skipUnless(have_tools(), "DCMTK tools not installed")
class Stopping(unittest.TestCase):
    def test_sigterm_with_a_silent_peer_connected(self):
        with tempfile.TemporaryDirectory() as store:
            server = Serve(store, "--grace", "1")
            with socket.create_connection(("127.0.0.1", server.port)) as sock:
                sock.sendall(associate_rq())
                self.assertEqual(read_pdu(sock)[0], 2)
                start = time.time()
                self.assertEqual(server.stop(), 0)
                self.assertLess(time.time() - start, 5)
                self.assertTrue(closed_within(sock, 2))
            self.assertIn("stopped; 1 associations", server.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
