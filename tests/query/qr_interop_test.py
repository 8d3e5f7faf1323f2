#!/usr/bin/python3
"""Query and retrieve against DCMTK and Orthanc, all on 127.0.0.1:
  - findscu (patient root -P and study root -S, every level) and movescu against `kestrel serve`
    holding pydicom's samples sent by storescu, on SQLite and, with KESTREL_TEST_PG, PostgreSQL:
    the same matches and values as the files hold; names and IDs with quotes, "%", "_", "^" and
    ISO_IR 100 characters; a wild card query over 1,000 studies and a C-CANCEL; a move of a
    300-image series, to an unknown destination, and to a node that refuses one SOP class;
  - `kestrel find` and `kestrel move` against dcmqrscp (its storage area filled by storescu) and
    against Orthanc (skipped when the Debian package `orthanc` is not installed).
"""
import glob
import json
import os
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import pydicom
from pydicom.uid import generate_uid

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "interop"))
from loopback import free_port, wait_for_port  # noqa: E402
from net_interop_test import (KESTREL, SAMPLES, Serve, associate_rq, command, elements,  # noqa: E402
                              have_tools, pdv, read_pdu, sendable_samples, uid)
from serve_robustness_test import status_of  # noqa: E402
from store_interop_test import PG, Index, text_of  # noqa: E402

MR_IMAGE = "1.2.840.10008.5.1.4.1.1.4"


def run(*args, timeout=180, env=None):
    """Arguments may be bytes (keys in ISO 8859-1)."""
    return subprocess.run([a if isinstance(a, bytes) else str(a) for a in args],
                          capture_output=True, timeout=timeout, env=env)


def samples():
    """(path, storescu options) of the samples of distinct studies and instances."""
    chosen, seen = [], set()
    for path, options in sendable_samples():
        ds = pydicom.dcmread(path, stop_before_pixels=True)
        study, series = ds.get("StudyInstanceUID"), ds.get("SeriesInstanceUID")
        if study and series and study not in seen and ds.SOPInstanceUID not in seen:
            seen.update((study, ds.SOPInstanceUID))
            chosen.append((path, options))
    return chosen


def make_images(folder, count, patient, name, study=None, series=None, sop_class=None,
                latin1=False):
    """`count` small images of one series (CT, or MR_small's class), new UIDs."""
    os.makedirs(folder, exist_ok=True)
    source = "MR_small.dcm" if sop_class == MR_IMAGE else "CT_small.dcm"
    ds = pydicom.dcmread(os.path.join(SAMPLES, source))
    ds.Rows = ds.Columns = 8
    ds.PixelData = bytes(128)
    ds.PatientID, ds.PatientName = patient, name
    if latin1:
        ds.SpecificCharacterSet = "ISO_IR 100"
    ds.StudyInstanceUID, ds.SeriesInstanceUID = study or generate_uid(), series or generate_uid()
    for i in range(count):
        ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = generate_uid()
        ds.InstanceNumber = i + 1
        ds.save_as(os.path.join(folder, "%04d.dcm" % i))
    return ds.StudyInstanceUID, ds.SeriesInstanceUID


class Data:
    """The files of the tests, made once: the samples, the tricky names, 1,000 studies, a series
    of 300 images and a study of two CT images and one MR image."""

    def __init__(self, work):
        self.samples = samples()
        self.folders = {k: os.path.join(work, k) for k in ("tricky", "many", "series", "mixed")}
        for i, (patient, name) in enumerate([("ID'1", "O'Brien^Anne"), ("ID%_2", "100%_Test^X"),
                                             ("ID3", "100 Other^Y"), ("ID^4", "M\xfcller^J\xfcrgen")]):
            make_images(os.path.join(self.folders["tricky"], str(i)), 1, patient, name,
                        latin1=name.startswith("M"))
        for i in range(1000):
            make_images(os.path.join(self.folders["many"], str(i)), 1, "W%04d" % i,
                        "WILDCARD^%04d" % i)
        self.big_study, self.big_series = make_images(self.folders["series"], 300, "S300", "BIG")
        self.mixed, _ = make_images(self.folders["mixed"], 2, "MIXED", "MIXED^CT")
        make_images(os.path.join(self.folders["mixed"], "mr"), 1, "MIXED", "MIXED^CT",
                    study=self.mixed, sop_class=MR_IMAGE)

    def store(self, port, aec, small=False):
        """storescu of everything (only the samples and tricky names when `small`, to another
        archive). Returns the headers of the files the receiver took: kestrel serve must take
        every one; an archive may refuse a class or a compressed syntax it cannot store."""
        stored = []
        for path, options in self.samples:
            result = run("storescu", "-R", "-aec", aec, *options, "127.0.0.1", port, path)
            assert small or result.returncode == 0, result.stderr
            if result.returncode == 0:
                stored.append(path)
        folders = ["tricky"] + ([] if small else ["many", "series", "mixed"])
        for folder in folders:
            result = run("storescu", "-aec", aec, "+sd", "+r", "127.0.0.1", port,
                         self.folders[folder], timeout=600)
            assert result.returncode == 0, result.stderr
        stored += glob.glob(os.path.join(self.folders["tricky"], "**", "*.dcm"), recursive=True)
        return [pydicom.dcmread(p, stop_before_pixels=True) for p in stored]


def findscu(work, port, root, level, *keys, extra=()):
    """The answers of one C-FIND, as data sets, and the findscu run."""
    out = tempfile.mkdtemp(dir=work)
    args = ["findscu", root, "-X", "-od", out, *extra, "-k", "QueryRetrieveLevel=" + level]
    for key in keys:
        args += ["-k", key]
    result = run(*args, "127.0.0.1", port)
    return [pydicom.dcmread(f) for f in sorted(glob.glob(os.path.join(out, "rsp*.dcm")))], result


def counts(movescu_stderr):
    """(completed, failed, warning) of the final C-MOVE response movescu printed."""
    final = movescu_stderr.rsplit(b"Final Move Response", 1)[-1].decode(errors="replace")
    found = {}
    for kind in ("Completed", "Failed", "Warning"):
        match = re.search(kind + r" Suboperations\s*:\s*(\d+)", final)
        found[kind] = int(match.group(1)) if match else None
    return found["Completed"], found["Failed"], found["Warning"]


value = text_of


class KestrelServeCases:
    """findscu and movescu against kestrel serve; self.serve, self.index and DATA are set."""

    def find(self, root, level, *keys, **kw):
        return findscu(self.work, self.serve.port, root, level, *keys, **kw)

    def test_findscu_every_level_and_root(self):
        headers = self.headers
        by = lambda keyword: {value(ds, keyword) for ds in headers}  # noqa: E731
        for root in ("-P", "-S"):
            for ds in headers:
                studies, _ = self.find(root, "STUDY", "StudyInstanceUID=" + ds.StudyInstanceUID,
                                       "PatientID", "StudyDate", "AccessionNumber", "StudyID")
                self.assertEqual(len(studies), 1, ds.filename)
                for keyword in ("StudyDate", "AccessionNumber", "StudyID"):
                    self.assertEqual(value(studies[0], keyword), value(ds, keyword), keyword)
                series, _ = self.find(root, "SERIES", "StudyInstanceUID=" + ds.StudyInstanceUID,
                                      "SeriesInstanceUID", "Modality", "SeriesNumber")
                self.assertEqual([(value(s, "SeriesInstanceUID"), value(s, "Modality"))
                                  for s in series],
                                 [(ds.SeriesInstanceUID, value(ds, "Modality"))], ds.filename)
                images, _ = self.find(root, "IMAGE", "StudyInstanceUID=" + ds.StudyInstanceUID,
                                      "SeriesInstanceUID=" + ds.SeriesInstanceUID,
                                      "SOPInstanceUID", "SOPClassUID", "InstanceNumber")
                self.assertEqual([(value(i, "SOPInstanceUID"), value(i, "SOPClassUID"),
                                   value(i, "InstanceNumber")) for i in images],
                                 [(ds.SOPInstanceUID, ds.SOPClassUID,
                                   value(ds, "InstanceNumber"))], ds.filename)
        patients, _ = self.find("-P", "PATIENT", "PatientID", "PatientName=*")
        found = {value(p, "PatientID") for p in patients}
        self.assertTrue(by("PatientID") - {""} <= found, by("PatientID") - found)
        images, _ = self.find("-S", "IMAGE", "SeriesInstanceUID=" + DATA.big_series,
                              "InstanceNumber")
        self.assertEqual(sorted(int(value(i, "InstanceNumber")) for i in images),
                         list(range(1, 301)))

    def test_names_ids_and_wild_cards(self):
        def ids(*keys, root="-S", level="STUDY"):
            answers, result = self.find(root, level, "PatientID", *keys)
            self.assertEqual(result.returncode, 0, result.stderr)
            return {value(a, "PatientID") for a in answers}

        self.assertEqual(ids("PatientName=o'brien*"), {"ID'1"})
        self.assertEqual(ids("PatientID=ID'1"), {"ID'1"})
        self.assertEqual(ids("PatientName=100%_*"), {"ID%_2"})
        self.assertEqual(ids("PatientID=ID%_?"), {"ID%_2"})
        self.assertEqual(ids("PatientID=ID_*"), set(), '"_" is no wild card')
        self.assertEqual(ids("PatientID=ID^4", root="-P", level="PATIENT"), {"ID^4"})
        answers, _ = self.find("-S", "STUDY", "SpecificCharacterSet=ISO_IR 100", "PatientName",
                               b"PatientName=M\xfcller*")
        self.assertEqual([str(a.PatientName) for a in answers], ["M\xfcller^J\xfcrgen"])
        self.assertEqual(answers[0].SpecificCharacterSet, "ISO_IR 192")
        self.assertEqual(len(ids("PatientName=WILDCARD*")), 1000)
        self.assertEqual(ids("PatientName=wildcard^00?5"), {"W%04d" % i for i in range(5, 100, 10)})
        self.assertEqual(len(ids("StudyDate=20040119-20040826", "PatientName=WILD*")), 1000)

    def test_cancel_stops_the_answer(self):
        # The C-CANCEL goes out with the request, so it waits in the socket before the first
        # answer: a provider that looks for it between matches stops at once, whatever the
        # speed of its database (findscu --cancel races the provider's socket buffers).
        study_root_find = "1.2.840.10008.5.1.4.1.2.2.1"
        find_rq = command([(0x0002, uid(study_root_find)), (0x0100, struct.pack("<H", 0x0020)),
                           (0x0110, struct.pack("<H", 7)), (0x0700, struct.pack("<H", 0)),
                           (0x0800, struct.pack("<H", 0x0102))])
        keys = elements([((0x0008, 0x0052), b"STUDY "), ((0x0010, 0x0010), b"WILDCARD^*")])
        cancel_rq = command([(0x0100, struct.pack("<H", 0x0FFF)), (0x0120, struct.pack("<H", 7)),
                             (0x0800, struct.pack("<H", 0x0101))])
        with socket.create_connection(("127.0.0.1", self.serve.port), timeout=30) as sock:
            sock.sendall(associate_rq(syntaxes=(study_root_find,)))
            self.assertEqual(read_pdu(sock)[0], 2)
            sock.sendall(pdv(find_rq, 3) + pdv(keys, 2) + pdv(cancel_rq, 3))
            pending, status = 0, 0xFF00
            while status in (0xFF00, 0xFF01, None):
                answer = read_pdu(sock, 30)
                self.assertIsNotNone(answer, "the answer stopped without a final status")
                status = status_of(answer)[0]
                pending += status in (0xFF00, 0xFF01)
        self.assertEqual(status, 0xFE00, "Cancel")
        self.assertLess(pending, 1000)

    def add_destination(self, title, port):
        result = run(KESTREL, "db", "server", "add", "--db", self.index.connect, title, "127.0.0.1",
                     port)
        self.assertEqual(result.returncode, 0, result.stderr)

    def movescu(self, root, destination, *keys):
        args = ["movescu", root, "-d", "-aem", destination]
        for key in keys:
            args += ["-k", key]
        return run(*args, "127.0.0.1", self.serve.port, timeout=600)

    def test_movescu_to_storescp(self):
        out = tempfile.mkdtemp(dir=self.work)
        port = free_port()
        log_path = os.path.join(self.work, "storescp-%d.log" % port)
        log_file = open(log_path, "wb")  # a pipe nobody reads would stop storescp when full
        storescp = subprocess.Popen(["storescp", "+xa", "-d", "-od", out, str(port)],
                                    stdout=subprocess.DEVNULL, stderr=log_file)
        try:
            self.assertTrue(wait_for_port(port))
            self.add_destination("STORESCP", port)
            result = self.movescu("-S", "STORESCP", "QueryRetrieveLevel=SERIES",
                                  "StudyInstanceUID=" + DATA.big_study,
                                  "SeriesInstanceUID=" + DATA.big_series)
            self.assertEqual(result.returncode, 0, result.stderr[-500:])
            self.assertEqual(counts(result.stderr), (300, 0, 0), result.stderr[-500:])
            for path, _ in DATA.samples:  # each in its own syntax, or one storescp accepted
                ds = pydicom.dcmread(path)
                result = self.movescu("-P", "STORESCP", "QueryRetrieveLevel=IMAGE",
                                      "PatientID=" + value(ds, "PatientID"),
                                      "StudyInstanceUID=" + ds.StudyInstanceUID,
                                      "SeriesInstanceUID=" + ds.SeriesInstanceUID,
                                      "SOPInstanceUID=" + ds.SOPInstanceUID)
                self.assertEqual(counts(result.stderr), (1, 0, 0), path)
                got = pydicom.dcmread(glob.glob(os.path.join(out, "*" + ds.SOPInstanceUID))[0])
                self.assertEqual(got.get("PixelData"), ds.get("PixelData"), path)
            result = self.movescu("-S", "NOWHERE", "QueryRetrieveLevel=STUDY",
                                  "StudyInstanceUID=" + DATA.big_study)
            self.assertIn(b"0xa801", result.stderr.lower(), result.stderr[-500:])
        finally:
            storescp.terminate()
            storescp.wait(timeout=30)
            log_file.close()
        with open(log_path, "rb") as f:
            log = f.read()
        self.assertEqual(len(os.listdir(out)), 300 + len(DATA.samples))
        self.assertIn(b"Move Originator AE Title", log)

    def test_destination_refusing_a_class(self):
        config = os.path.join(self.work, "ct-only.txt")
        with open(config, "w") as f:
            f.write("Verification 1.2.840.10008.1.1 abstract\nCT 1.2.840.10008.5.1.4.1.1.2 abstract\n")
        refuser = Serve(os.path.join(self.work, "refuser"), "--config", config)
        try:
            self.add_destination("CTONLY", refuser.port)
            result = self.movescu("-P", "CTONLY", "QueryRetrieveLevel=PATIENT", "PatientID=MIXED")
        finally:
            refuser.stop()
        self.assertEqual(counts(result.stderr), (2, 1, 0), result.stderr[-500:])
        mr = glob.glob(os.path.join(DATA.folders["mixed"], "mr", "*.dcm"))[0]
        self.assertIn(pydicom.dcmread(mr).SOPInstanceUID.encode(), result.stderr,
                      "the failed SOP instance list names the MR image")


@unittest.skipUnless(have_tools(), "DCMTK tools not installed")
class ServeOnSQLite(KestrelServeCases, unittest.TestCase):
    backend = "sqlite"

    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        cls.index = Index(cls.work, cls.backend)
        cls.serve = Serve(os.path.join(cls.work, "store"), "--db", cls.index.connect)
        try:
            cls.headers = DATA.store(cls.serve.port, "KESTREL")
        except BaseException:
            cls.tearDownClass()
            raise

    @classmethod
    def tearDownClass(cls):
        cls.serve.stop()
        cls.index.drop()
        shutil.rmtree(cls.work, ignore_errors=True)


@unittest.skipUnless(have_tools() and PG, "DCMTK tools or KESTREL_TEST_PG missing")
class ServeOnPostgreSQL(ServeOnSQLite):
    backend = "postgresql"


class ArchiveCases:
    """kestrel find and kestrel move against another archive (self.port, self.aec) holding the
    samples and the tricky names."""

    def kestrel(self, *args, env=None):
        return run(KESTREL, args[0], "--aet", "MOVER", "--aec", self.aec, *args[1:], "127.0.0.1",
                   self.port, env=env)

    def test_kestrel_find_every_level(self):
        def column(result, name):
            lines = result.stdout.decode().splitlines()
            self.assertTrue(lines, result.stderr)
            at = lines[0].split("\t").index(name)
            return [line.split("\t")[at] for line in lines[1:]]

        for ds in self.headers:
            pid, study = value(ds, "PatientID"), ds.StudyInstanceUID
            series, image = ds.SeriesInstanceUID, ds.SOPInstanceUID
            patient_keys = ["PatientID=" + pid]
            # (root, level, keys, column, the value it must hold): each level of both roots.
            for root, level, keys, name, expected in (
                    ("patient", "PATIENT", patient_keys, "PatientID", pid),
                    ("patient", "STUDY", patient_keys + ["StudyInstanceUID=" + study],
                     "StudyInstanceUID", study),
                    ("patient", "SERIES", patient_keys + ["StudyInstanceUID=" + study,
                                                          "SeriesInstanceUID=" + series],
                     "SeriesInstanceUID", series),
                    ("patient", "IMAGE", patient_keys + ["StudyInstanceUID=" + study,
                                                         "SeriesInstanceUID=" + series],
                     "SOPInstanceUID", image),
                    ("study", "STUDY", ["StudyInstanceUID=" + study], "StudyInstanceUID", study),
                    ("study", "SERIES", ["StudyInstanceUID=" + study], "SeriesInstanceUID",
                     series),
                    ("study", "IMAGE", ["StudyInstanceUID=" + study,
                                        "SeriesInstanceUID=" + series], "SOPInstanceUID", image)):
                if level == "PATIENT" and not pid:
                    continue
                args = ["find", "--root", root, "--level", level]
                for key in keys:
                    args += ["-k", key]
                found = column(self.kestrel(*args), name)
                self.assertIn(expected, found, (root, level, ds.filename))
                if level != "PATIENT":
                    self.assertEqual(len(found), 1, (root, level, ds.filename))
            result = self.kestrel("find", "--json", "--level", "STUDY", "-k",
                                  "StudyInstanceUID=" + study, "-k", "StudyDate")
            studies = json.loads(result.stdout)
            self.assertEqual(studies[0]["00080020"].get("Value", [""])[0], value(ds, "StudyDate"))
        result = self.kestrel("find", "--root", "patient", "--level", "PATIENT", "-k",
                              "PatientName=O'Brien*")
        self.assertIn("O'Brien^Anne\tID'1", result.stdout.decode())

    def test_kestrel_move_into_its_store(self):
        home = tempfile.mkdtemp(dir=self.work)
        store = os.path.join(home, "store")
        for ds in self.headers:
            result = self.kestrel("move", "--port", self.move_port, "--store", store, "--level",
                                  "SERIES", "--study", ds.StudyInstanceUID, "--series",
                                  ds.SeriesInstanceUID, env=dict(os.environ, KESTREL_HOME=home))
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn(b"completed 1, failed 0, warning 0", result.stdout)
            got = os.path.join(store, ds.StudyInstanceUID, ds.SeriesInstanceUID,
                               ds.SOPInstanceUID + ".dcm")
            self.assertEqual(pydicom.dcmread(got).get("PixelData"),
                             pydicom.dcmread(ds.filename).get("PixelData"), ds.filename)


class ArchiveFixture(ArchiveCases):
    """Starts the archive (`launch`, given the work folder) and stores the samples in it."""

    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        cls.port, cls.move_port = free_port(), free_port()
        cls.process = subprocess.Popen(cls.launch(cls.work), stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
        try:
            assert wait_for_port(cls.port)
            cls.headers = DATA.store(cls.port, cls.aec, small=True)
            assert len(cls.headers) > 10, "the archive took too few of the samples"
        except BaseException:
            cls.tearDownClass()
            raise

    @classmethod
    def tearDownClass(cls):
        cls.process.terminate()
        cls.process.wait(30)
        shutil.rmtree(cls.work, ignore_errors=True)


@unittest.skipUnless(have_tools(), "DCMTK tools not installed")
class AgainstDcmqrscp(ArchiveFixture, unittest.TestCase):
    aec = "QRSCP"

    @classmethod
    def launch(cls, work):
        os.makedirs(os.path.join(work, "db"))
        with open(os.path.join(work, "qr.cfg"), "w") as f:
            f.write("NetworkTCPPort = %d\nMaxPDUSize = 16384\nMaxAssociations = 16\n"
                    "HostTable BEGIN\nmover = (MOVER, 127.0.0.1, %d)\nHostTable END\n"
                    "VendorTable BEGIN\nVendorTable END\nAETable BEGIN\n"
                    "QRSCP %s RW (200, 1024mb) ANY\nAETable END\n"
                    % (cls.port, cls.move_port, os.path.join(work, "db")))
        return ["dcmqrscp", "-c", os.path.join(work, "qr.cfg")]


@unittest.skipUnless(have_tools() and shutil.which("Orthanc"), "DCMTK or Orthanc not installed")
class AgainstOrthanc(ArchiveFixture, unittest.TestCase):
    aec = "ORTHANC"

    @classmethod
    def launch(cls, work):
        config = {"Name": "qr", "StorageDirectory": os.path.join(work, "db"),
                  "IndexDirectory": os.path.join(work, "db"), "DicomAet": cls.aec,
                  "DicomPort": cls.port, "DicomCheckCalledAet": False, "HttpPort": free_port(),
                  "DicomAlwaysAllowStore": True, "DicomAlwaysAllowFind": True,
                  "DicomAlwaysAllowMove": True, "RemoteAccessAllowed": False, "Plugins": [],
                  "DicomModalities": {"mover": ["MOVER", "127.0.0.1", cls.move_port]}}
        with open(os.path.join(work, "orthanc.json"), "w") as f:
            json.dump(config, f)
        return ["Orthanc", os.path.join(work, "orthanc.json")]


class MoveFinalStatus(unittest.TestCase):
    def test_a_final_failure_status_exits_2(self):
        # kestrel move asking its own receiver, which serves no C-MOVE: the final status is
        # 0211 with no failed sub-operation, and the move must not count as done.
        port = free_port()
        with tempfile.TemporaryDirectory() as home:
            result = run(KESTREL, "move", "--port", port, "--store", os.path.join(home, "store"),
                         "--level", "STUDY", "--study", "1.2.3", "127.0.0.1", port,
                         env=dict(os.environ, KESTREL_HOME=home))
        self.assertEqual(result.returncode, 2, result.stdout + result.stderr)
        self.assertIn(b"status 0211", result.stdout)


DATA = None

if __name__ == "__main__":
    if have_tools():
        started = time.time()
        data_dir = tempfile.mkdtemp()
        DATA = Data(data_dir)
        print("data made in %.1f s" % (time.time() - started), file=sys.stderr)
    try:
        unittest.main(verbosity=2)
    finally:
        if DATA:
            shutil.rmtree(data_dir, ignore_errors=True)
