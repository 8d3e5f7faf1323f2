#!/usr/bin/python3
"""`kestrel dicomdir` and `kestrel import` of a DICOMDIR against DCMTK and pydicom:
  - a DICOMDIR written by dcmmkdir (general purpose profile) is read into the tree the files
    hold, with the SR document beside the images and in the unsupported report;
  - ours (`make`, and `make --copy`) is read by dcmdump without complaint and by pydicom's
    FileSet with the same records, and dcmmkdir +A appends to it without complaint;
  - file names media do not allow are refused and nothing is written;
  - damaged directories end with exit 3, quickly.
"""
import json
import os
import shutil
import subprocess
import tempfile
import unittest

import pydicom
from pydicom.fileset import FileSet

KESTREL = os.environ.get("KESTREL_BIN", "build/bin/kestrel")
SAMPLES = os.path.join(os.path.dirname(pydicom.__file__), "data", "test_files")
TREE = os.path.join(SAMPLES, "dicomdirtests")


def run(*args, timeout=60):
    return subprocess.run([str(a) for a in args], capture_output=True, text=True,
                          errors="replace", timeout=timeout)


def have_tools():
    return all(shutil.which(t) for t in ("dcmmkdir", "dcmdump")) and os.path.isdir(TREE)


def file_set(folder):
    """The images of pydicom's sample tree under their PS3.10 names, and an SR document."""
    for patient in ("77654033", "98892001", "98892003"):
        shutil.copytree(os.path.join(TREE, patient), os.path.join(folder, patient))
    os.makedirs(os.path.join(folder, "REPORTS"))
    report = pydicom.dcmread(os.path.join(SAMPLES, "test-SR.dcm"))
    # The sample lacks keys a directory record must have; dcmmkdir would leave it out.
    report.PatientID, report.StudyID = "SR0001", "1"
    report.StudyDate, report.StudyTime = "20010213", "120000"
    report.save_as(os.path.join(folder, "REPORTS", "SR1"))


def files_in(folder):
    """(patient, study, series, instance) of every DICOM file, by its File ID."""
    out = {}
    for root, _, names in os.walk(folder):
        for name in names:
            path = os.path.join(root, name)
            if name == "DICOMDIR" or not pydicom.misc.is_dicom(path):
                continue
            ds = pydicom.dcmread(path, stop_before_pixels=True)
            file_id = os.path.relpath(path, folder).replace(os.sep, "\\")
            out[file_id] = (ds.PatientID, ds.StudyInstanceUID, ds.SeriesInstanceUID,
                            ds.SOPInstanceUID)
    return out


def tree_of(folder):
    """`kestrel dicomdir show --json` as {File ID: (patient, study, series, instance)}."""
    result = run(KESTREL, "dicomdir", "show", "--json", folder)
    assert result.returncode == 0, result.stderr
    shown = json.loads(result.stdout)
    out, others = {}, []
    for patient in shown["Patients"]:
        for study in patient["Studies"]:
            for series in study["Series"]:
                for record in series["Images"] + series["Others"]:
                    out[record["FileID"]] = (patient["PatientID"], study["StudyInstanceUID"],
                                             series["SeriesInstanceUID"],
                                             record["SOPInstanceUID"])
                    if record["RecordType"] != "IMAGE":
                        others.append(record["RecordType"])
    return out, others, shown


def clean_dcmdump(test, path):
    result = run("dcmdump", "-q", path)
    test.assertEqual(result.returncode, 0, result.stderr)
    test.assertEqual(result.stderr, "")


@unittest.skipUnless(have_tools(), "DCMTK or pydicom's sample files not installed")
class DicomdirInterop(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp()
        self.folder = os.path.join(self.work, "SET")
        file_set(self.folder)

    def tearDown(self):
        shutil.rmtree(self.work)

    def test_dcmmkdir_directory_reads_into_the_files_tree(self):
        result = subprocess.run(["dcmmkdir", "+r", "+id", "."], cwd=self.folder,
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertNotIn("cannot be added", result.stderr)
        tree, others, shown = tree_of(self.folder)
        self.assertEqual(tree, files_in(self.folder))
        self.assertEqual(others, ["SR DOCUMENT"])
        self.assertIn("Unsupported SOP Classes: Comprehensive SR\r\n", shown["UnsupportedReport"])
        self.assertEqual(shown["Problems"], [])

    def test_import_of_a_medium(self):
        # kestrel import of a DICOMDIR (dcmmkdir's) imports the images it references and prints
        # the report of the SR document it leaves out.
        result = subprocess.run(["dcmmkdir", "+r", "+id", "."], cwd=self.folder,
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        home = os.path.join(self.work, "home")
        env = dict(os.environ, KESTREL_HOME=home)
        result = subprocess.run([KESTREL, "import", os.path.join(self.folder, "DICOMDIR")],
                                capture_output=True, text=True, env=env, timeout=120)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("Unsupported SOP Classes: Comprehensive SR", result.stdout)
        stored = {os.path.basename(f)[:-4] for _, _, names in os.walk(os.path.join(home, "store"))
                  for f in names if f.endswith(".dcm")}
        images = {v[3] for k, v in files_in(self.folder).items() if not k.startswith("REPORTS")}
        self.assertEqual(stored, images)

    def test_our_directory_for_dcmdump_pydicom_and_dcmmkdir(self):
        result = run(KESTREL, "dicomdir", "make", self.folder)
        self.assertEqual(result.returncode, 0, result.stderr)
        directory = os.path.join(self.folder, "DICOMDIR")
        clean_dcmdump(self, directory)
        expected = files_in(self.folder)
        fs = FileSet(directory)
        records = {}
        for instance in fs:
            ds = instance.load()
            file_id = os.path.relpath(instance.path, self.folder).replace(os.sep, "\\")
            records[file_id] = (ds.PatientID, ds.StudyInstanceUID, ds.SeriesInstanceUID,
                                instance.SOPInstanceUID)
        self.assertEqual(records, expected)
        self.assertEqual(tree_of(self.folder)[0], expected)

        # dcmmkdir appends a new file to it without complaint.
        os.makedirs(os.path.join(self.folder, "EXTRA"))
        shutil.copy(os.path.join(SAMPLES, "CT_small.dcm"), os.path.join(self.folder, "EXTRA",
                                                                      "CTSMALL"))
        result = subprocess.run(["dcmmkdir", "+A", "+id", ".", "EXTRA/CTSMALL"], cwd=self.folder,
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")
        self.assertEqual(tree_of(self.folder)[0], files_in(self.folder))

    def test_copy_lays_files_out_under_media_names(self):
        source = os.path.join(self.work, "lower case source")
        os.makedirs(source)
        for name in ("CT_small.dcm", "MR_small.dcm", "test-SR.dcm", "rtplan.dcm"):
            shutil.copy(os.path.join(SAMPLES, name), source)
        out = os.path.join(self.work, "OUT")
        result = run(KESTREL, "dicomdir", "make", "--copy", source, out)
        self.assertEqual(result.returncode, 0, result.stderr)
        clean_dcmdump(self, os.path.join(out, "DICOMDIR"))
        copied = files_in(out)
        self.assertEqual(len(copied), 4)
        self.assertTrue(all(len(part) <= 8 for fid in copied for part in fid.split("\\")))
        self.assertEqual(len(list(FileSet(os.path.join(out, "DICOMDIR")))), 4)
        self.assertEqual(tree_of(out)[0], copied)

    def test_names_media_do_not_allow_are_refused(self):
        shutil.copy(os.path.join(SAMPLES, "CT_small.dcm"), os.path.join(self.folder, "ct.dcm"))
        result = run(KESTREL, "dicomdir", "make", self.folder)
        self.assertEqual(result.returncode, 3)
        self.assertIn("ct.dcm", result.stderr)
        self.assertFalse(os.path.exists(os.path.join(self.folder, "DICOMDIR")))

    def test_damaged_directories_end_quickly(self):
        self.assertEqual(run(KESTREL, "dicomdir", "make", self.folder).returncode, 0)
        path = os.path.join(self.folder, "DICOMDIR")
        with open(path, "rb") as f:
            good = f.read()
        first = int.from_bytes(good[good.index(b"\x04\x00\x00\x12UL") + 8:][:4], "little")
        loop = bytearray(good)
        loop[first + 16:first + 20] = first.to_bytes(4, "little")  # next record: itself
        for name, data in (("truncated", good[:len(good) // 3]), ("loop", bytes(loop)),
                           ("empty", b"")):
            with open(path, "wb") as f:
                f.write(data)
            result = run(KESTREL, "dicomdir", "show", path, timeout=10)
            self.assertEqual(result.returncode, 3, name)
            self.assertIn("CDicomDirectory::Open()", result.stderr, name)


if __name__ == "__main__":
    unittest.main()
