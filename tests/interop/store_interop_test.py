#!/usr/bin/python3
"""The image store and its database through `kestrel serve` and `kestrel import`, against DCMTK.

  - storescu of pydicom's samples and of dcmconv's conversions (every transfer syntax): each
    file lands at <store>/<Study>/<Series>/<SOP>.dcm holding the elements sent, and the index
    has one row per patient, study, series and instance with the files' values;
  - 16 peers at once (two sending the same study), also into two servers sharing one store and
    database; a peer killed in the middle of an object; a full disk;
  - quotes, "%" and "_" in names and IDs through serve and import; importing twice.
Runs on SQLite, and on PostgreSQL too when KESTREL_TEST_PG names a server (scripts/pg.sh).
"""
import os
import re
import shutil
import socket
import sqlite3
import struct
import subprocess
import tempfile
import unittest

import pydicom
from pydicom.filebase import DicomBytesIO
from pydicom.filewriter import write_dataset
from pydicom.uid import generate_uid

from net_interop_test import (CT_IMAGE, KESTREL, SAMPLES, Serve, associate_rq, differences,
                              files_below, have_tools, pdv, read_pdu, sendable_samples,
                              store_rq, stored_path)

PG = os.environ.get("KESTREL_TEST_PG", "")
PROPOSE = {"1.2.840.10008.1.2": ["-xi"], "1.2.840.10008.1.2.1": ["-xe"],
           "1.2.840.10008.1.2.2": ["-xb"], "1.2.840.10008.1.2.1.99": ["-xd"]}
CONVERSIONS = {"+ti": "1.2.840.10008.1.2", "+te": "1.2.840.10008.1.2.1",
               "+tb": "1.2.840.10008.1.2.2", "+td": "1.2.840.10008.1.2.1.99"}
# Image columns every stored image fills, and the keyword each is named after.
IMAGE_COLUMNS = {c: c for c in (
    "SOPInstanceUID SeriesInstanceUID StudyInstanceUID Modality SliceThickness InstanceNumber "
    "ImagePositionPatient ImageOrientationPatient SliceLocation AcquisitionTime SamplesPerPixel "
    "PhotometricInterpretation PlanarConfiguration Rows Columns PixelSpacing PixelAspectRatio "
    "BitsAllocated BitsStored HighBit PixelRepresentation LossyImageCompression SOPClassUID "
    "Manufacturer Laterality SeriesNumber SeriesDescription BodyPartExamined ProtocolName "
    "ImageType FrameOfReferenceUID").split()}
IMAGE_COLUMNS.update(ImageTime="ContentTime", ManufacturersModelName="ManufacturerModelName")


def run(*args, timeout=120, env=None):
    return subprocess.run([str(a) for a in args], capture_output=True, text=True,
                          timeout=timeout, env=env)


def text_of(ds, keyword):
    """An attribute's value as the index holds it: trimmed, several values joined by "\\"."""
    value = ds.get(keyword)
    if isinstance(value, pydicom.multival.MultiValue):
        return "\\".join(str(v) for v in value)
    return "" if value is None else str(value).split("\0")[0].strip(" ")


class Index:
    """The image database of a test: an SQLite file, or a PostgreSQL database made for it."""

    def __init__(self, work, backend):
        self.backend = backend
        if backend == "sqlite":
            self.path = os.path.join(work, "index.db")
            self.connect = "DRIVER=SQLite3;Database=%s;" % self.path
            return
        keys = dict(p.split("=", 1) for p in PG.strip(";").split(";"))
        self.env = dict(os.environ, PGPASSWORD=keys["PWD"])
        self.psql = ["psql", "-h", keys["Servername"], "-p", keys["Port"], "-U", keys["UID"],
                     "-v", "ON_ERROR_STOP=1", "-X", "-q"]
        self.name = "ki_%d_%s" % (os.getpid(), os.path.basename(work).lower().replace("-", ""))
        run(*self.psql, "-d", "postgres", "-c", "CREATE DATABASE " + self.name, env=self.env)
        self.connect = PG + "Database=%s;" % self.name

    def drop(self):
        if self.backend == "postgresql":
            run(*self.psql, "-d", "postgres", "-c",
                "DROP DATABASE IF EXISTS %s WITH (FORCE)" % self.name, env=self.env)

    def rows(self, table):
        """Every row as {lower-case column: value or None}."""
        if self.backend == "sqlite":
            with sqlite3.connect(self.path) as db:
                cursor = db.execute("SELECT * FROM [%s]" % table)
                names = [d[0].lower() for d in cursor.description]
                return [dict(zip(names, row)) for row in cursor]
        out = run(*self.psql, "-d", self.name, "-A", "-F", "\x1f", "-P", "null=\x02", "-c",
                  'SELECT * FROM "%s"' % table.lower(), env=self.env).stdout.split("\n")
        names = out[0].split("\x1f")
        return [{n: (None if v == "\x02" else v) for n, v in zip(names, line.split("\x1f"))}
                for line in out[1:-2]]


def backends():
    return ["sqlite"] + (["postgresql"] if PG else [])


def stored_files(store):
    return sorted(os.path.relpath(f, store) for f in files_below(store))


def make_series(folder, count, study=None, series=None, patient=("P1", "DOE^JANE"), side=None):
    """`count` CT images of one series, from CT_small, with new UIDs."""
    os.makedirs(folder, exist_ok=True)
    ds = pydicom.dcmread(os.path.join(SAMPLES, "CT_small.dcm"))
    ds.PatientID, ds.PatientName = patient
    ds.StudyInstanceUID = study or generate_uid()
    ds.SeriesInstanceUID = series or generate_uid()
    if side:
        ds.Rows = ds.Columns = side
        ds.PixelData = bytes(side * side * 2)
    paths = []
    for i in range(count):
        ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = generate_uid()
        paths.append(os.path.join(folder, "%03d.dcm" % i))
        ds.save_as(paths[-1])
    return paths


@unittest.skipUnless(have_tools() and shutil.which("dcmconv"), "DCMTK tools not installed")
class StoreAndIndex(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp()
        self.store = os.path.join(self.work, "store")
        self.indexes = []

    def tearDown(self):
        for index in self.indexes:
            index.drop()
        shutil.rmtree(self.work, ignore_errors=True)

    def index(self, backend):
        self.indexes.append(Index(tempfile.mkdtemp(dir=self.work), backend))
        return self.indexes[-1]

    def serve(self, index, store=None):
        return Serve(store or self.store, "--db", index.connect)

    def assert_indexed(self, index, datasets):
        """One row per patient, study, series and instance, with the instances' values."""
        patients = {(text_of(ds, "PatientID") or "U" + ds.StudyInstanceUID[1:],
                     text_of(ds, "PatientName") or None) for ds in datasets}
        self.assertEqual(sorted((r["patientid"], r["patientsname"])
                                for r in index.rows("Patient")), sorted(patients))
        for table, keyword in (("Study", "StudyInstanceUID"), ("Series", "SeriesInstanceUID")):
            self.assertEqual(sorted(r[keyword.lower()] for r in index.rows(table)),
                             sorted({text_of(ds, keyword) for ds in datasets}), table)
        images = {r["sopinstanceuid"]: r for r in index.rows("Image")}
        self.assertEqual(sorted(images), sorted(text_of(ds, "SOPInstanceUID") for ds in datasets))
        for ds in datasets:
            row = images[text_of(ds, "SOPInstanceUID")]
            self.assertEqual(row["transfersyntax"], ds.file_meta.TransferSyntaxUID)
            for column, keyword in IMAGE_COLUMNS.items():
                self.assertEqual(row[column.lower()] or "", text_of(ds, keyword)[:255],
                                 "%s of %s" % (column, ds.filename))

    def test_storescu_of_every_transfer_syntax(self):
        sources, seen = [], set()
        converted = os.path.join(self.work, "converted")
        os.mkdir(converted)
        for path, options in sendable_samples():
            ds = pydicom.dcmread(path)
            if ds.SOPInstanceUID in seen:  # a sample in another syntax: a new instance
                ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = generate_uid()
                path = os.path.join(converted, os.path.basename(path))
                ds.save_as(path)
            seen.add(ds.SOPInstanceUID)
            sources.append((path, options or PROPOSE[ds.file_meta.TransferSyntaxUID]))
        for sample in ("CT_small.dcm", "MR_small.dcm", "rtplan.dcm"):
            for option, syntax in CONVERSIONS.items():
                ds = pydicom.dcmread(os.path.join(SAMPLES, sample))
                ds.SOPInstanceUID = ds.file_meta.MediaStorageSOPInstanceUID = generate_uid()
                source = os.path.join(converted, "src.dcm")
                ds.save_as(source)
                target = os.path.join(converted, "%s%s.dcm" % (sample, option))
                self.assertEqual(run("dcmconv", option, source, target).returncode, 0)
                sources.append((target, PROPOSE[syntax]))
        index = self.index("sqlite")
        server = self.serve(index)
        try:
            for path, options in sources:
                result = run("storescu", "-R", *options, "127.0.0.1", server.port, path)
                self.assertEqual(result.returncode, 0, "%s: %s" % (path, result.stderr[-300:]))
        finally:
            self.assertEqual(server.stop(), 0)
        sent = [pydicom.dcmread(path) for path, _ in sources]
        stored = [pydicom.dcmread(stored_path(self.store, ds)) for ds in sent]
        for ds, kept in zip(sent, stored):
            # A deflated data set is inflated by storescu for a server that does not take it.
            if ds.file_meta.TransferSyntaxUID != CONVERSIONS["+td"]:
                self.assertEqual(kept.file_meta.TransferSyntaxUID, ds.file_meta.TransferSyntaxUID)
            self.assertEqual(differences(ds, kept), [], ds.filename)
        self.assertEqual(len(stored_files(self.store)), len(sent))
        self.assert_indexed(index, [pydicom.dcmread(ds.filename) for ds in stored])
        print("storescu interop: %d files, %d transfer syntaxes" % (
            len(sent), len({ds.file_meta.TransferSyntaxUID for ds in sent})))

    def sixteen_peers(self, backend, servers):
        """16 storescu at once; peers 0 and 1 send the same study, the others their own."""
        index = self.index(backend)
        make_series(os.path.join(self.work, "shared"), 10)
        folders = [os.path.join(self.work, "shared")] * 2
        for peer in range(2, 16):
            folders.append(os.path.join(self.work, "peer%d" % peer))
            make_series(folders[-1], 10, patient=("P1", "DOE^JANE") if peer % 2 else
                        ("P%d" % peer, "PEER^%d" % peer))
        running = [self.serve(index) for _ in range(servers)]
        try:
            peers = [subprocess.Popen(["storescu", "-aet", "PEER%d" % i, "+sd", "127.0.0.1",
                                       str(running[i % servers].port), folder],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
                     for i, folder in enumerate(folders)]
            for peer in peers:
                _, err = peer.communicate(timeout=300)
                self.assertEqual(peer.returncode, 0, err.decode()[-300:])
        finally:
            for server in running:
                self.assertEqual(server.stop(), 0)
        sent = [pydicom.dcmread(os.path.join(f, n)) for f in set(folders) for n in os.listdir(f)]
        self.assertEqual(len(stored_files(self.store)), 150)
        for ds in sent:
            self.assertEqual(differences(ds, pydicom.dcmread(stored_path(self.store, ds))), [])
        self.assert_indexed(index, sent)

    def test_sixteen_peers_at_once_into_one_server_or_two_sharing_the_store(self):
        for backend in backends():
            for servers in (1, 2):
                with self.subTest(backend=backend, servers=servers):
                    try:
                        self.sixteen_peers(backend, servers)
                    finally:
                        shutil.rmtree(self.store, ignore_errors=True)

    def test_peer_killed_mid_object(self):
        index = self.index("sqlite")
        ds = pydicom.dcmread(make_series(os.path.join(self.work, "in"), 1, side=256)[0])
        body = DicomBytesIO()
        body.is_little_endian, body.is_implicit_VR = True, True
        write_dataset(body, ds)
        data = body.getvalue()
        command = store_rq(CT_IMAGE, ds.SOPInstanceUID)
        server = self.serve(index)
        try:
            with socket.create_connection(("127.0.0.1", server.port)) as sock:
                sock.sendall(associate_rq(syntaxes=(CT_IMAGE,)))
                self.assertEqual(read_pdu(sock)[0], 2)
                half = data[:len(data) // 2]
                pdvs = [(command, 3)] + [(half[i:i + 16000], 0) for i in range(0, len(half), 16000)]
                for value, control in pdvs:
                    sock.sendall(pdv(value, control))
                sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            result = run("storescu", "127.0.0.1", server.port, ds.filename)
            self.assertEqual(result.returncode, 0, result.stderr)
        finally:
            self.assertEqual(server.stop(), 0)
        self.assertEqual(stored_files(self.store), [os.path.relpath(stored_path(self.store, ds),
                                                                    self.store)])
        self.assertEqual(len(index.rows("Image")), 1)

    @unittest.skipUnless(os.geteuid() == 0, "mounting a small file system needs root")
    def test_full_disk_gives_failure_statuses(self):
        index = self.index("sqlite")
        os.mkdir(self.store)
        if run("mount", "-t", "tmpfs", "-o", "size=2m", "tmpfs", self.store).returncode != 0:
            self.skipTest("cannot mount a tmpfs here")
        try:
            paths = make_series(os.path.join(self.work, "in"), 12, side=512)  # 0.5 MB each
            server = self.serve(index)
            try:
                result = run("storescu", "-d", "-nh", "127.0.0.1", server.port, *paths)
            finally:
                self.assertEqual(server.stop(), 0)
            statuses = re.findall(r"DIMSE Status +: 0x(\w+)", result.stderr)
            self.assertEqual(len(statuses), 12, result.stderr[-500:])
            stored = stored_files(self.store)
            self.assertEqual(statuses.count("0000"), len(stored))
            self.assertEqual(set(statuses), {"0000", "a700"})  # Refused: Out of Resources
            self.assertGreater(len(stored), 0)
            self.assertEqual(len(re.findall(r"\(0000,0902\) LO \[Could not write the image file",
                                            result.stderr)), 12 - len(stored))
            # Each failure is in the server's log with its reason.
            self.assertEqual(server.stderr.count("No space left on device"), 12 - len(stored))
            self.assertFalse([f for f in stored if not f.endswith(".dcm")])
            self.assertEqual(len(index.rows("Image")), len(stored))
            for name in stored:
                self.assertEqual(len(pydicom.dcmread(os.path.join(self.store, name)).PixelData),
                                 512 * 512 * 2)
        finally:
            run("umount", self.store)

    def test_quotes_percent_and_underscore_round_trip(self):
        for backend in backends():
            with self.subTest(backend=backend):
                index = self.index(backend)
                tricky = [("O'1_%", "O'BRIEN^MARY%_"), ("X_1", "A''B"), ("X%1", "100%^X_Y")]
                via_serve = [make_series(os.path.join(self.work, backend, "s%d" % i), 2,
                                         patient=p)
                             for i, p in enumerate(tricky)]
                via_import = make_series(os.path.join(self.work, backend, "i"), 2,
                                         patient=("X11", "A'B"))
                server = self.serve(index)
                try:
                    for paths in via_serve:
                        self.assertEqual(run("storescu", "127.0.0.1", server.port,
                                             *paths).returncode, 0)
                finally:
                    self.assertEqual(server.stop(), 0)
                for _ in range(2):  # importing twice leaves one file and one row each
                    result = run(KESTREL, "import", "--store", self.store, "--db",
                                 index.connect, os.path.join(self.work, backend))
                    self.assertEqual(result.returncode, 0, result.stderr)
                    self.assertIn("import: 8 files done, 0 failed", result.stderr)
                paths = via_import + [p for ps in via_serve for p in ps]
                self.assertEqual(len(stored_files(self.store)), 8)
                self.assert_indexed(index, [pydicom.dcmread(p) for p in paths])
                shutil.rmtree(self.store)

    def test_serve_refuses_objects_without_a_place_and_sets_aside_images_without_pixels(self):
        folder = os.path.join(self.work, "in")
        nostudy, nopixels = make_series(folder, 2)
        ds = pydicom.dcmread(nostudy)
        del ds.StudyInstanceUID
        ds.save_as(nostudy)
        ds = pydicom.dcmread(nopixels)
        del ds.PixelData
        ds.save_as(nopixels)
        index = self.index("sqlite")
        server = self.serve(index)
        try:
            result = run("storescu", "-d", "-nh", "127.0.0.1", server.port, nostudy, nopixels)
        finally:
            self.assertEqual(server.stop(), 0)
        self.assertEqual(re.findall(r"DIMSE Status +: 0x(\w+)", result.stderr), ["a900"] * 2)
        self.assertEqual(re.findall(r"\(0000,0902\) LO \[([^]]*)\]", result.stderr),
                         ["No Study Instance UID", "No Pixel Data: not an image, set aside"])
        self.assertEqual(stored_files(self.store),
                         [os.path.relpath(stored_path(self.store + "/RejSave", ds), self.store)])
        self.assertEqual(index.rows("Image"), [])

    def test_import_reports_what_it_sets_aside(self):
        folder = os.path.join(self.work, "in")
        make_series(folder, 2)
        shutil.copy(os.path.join(SAMPLES, "rtplan.dcm"), folder)  # no pixel data
        # Every attribute written as UN by its maker: indexed by the attributes' own VRs.
        shutil.copy(os.path.join(SAMPLES, "rtdose_rle_1frame.dcm"), folder)
        with open(os.path.join(folder, "notes.txt"), "w") as f:
            f.write("not DICOM\n")
        ds = pydicom.dcmread(os.path.join(folder, "000.dcm"))
        del ds.SeriesInstanceUID
        ds.save_as(os.path.join(folder, "noseries.dcm"))
        index = self.index("sqlite")
        result = run(KESTREL, "import", "--store", self.store, "--db", index.connect, folder)
        self.assertEqual(result.returncode, 3)
        self.assertIn("import: 3 files done, 3 failed, %d bytes" % sum(
            os.path.getsize(os.path.join(folder, name))
            for name in ("000.dcm", "001.dcm", "rtdose_rle_1frame.dcm")), result.stderr)
        self.assertRegex(result.stderr, r"noseries.dcm: not imported: No Series Instance UID")
        self.assertRegex(result.stderr, r"notes.txt: not a DICOM file")
        self.assertRegex(result.stderr, r"rtplan.dcm: set aside as %s/RejSave/\S+\.dcm: No Pixel"
                         % re.escape(self.store))
        self.assertEqual(len(index.rows("Image")), 3)
        dose = pydicom.dcmread(os.path.join(SAMPLES, "rtdose_rle_1frame.dcm"))
        self.assertIn((dose.StudyInstanceUID, dose.StudyDate),
                      [(r["studyinstanceuid"], r["studydate"]) for r in index.rows("Study")])


if __name__ == "__main__":
    unittest.main()
