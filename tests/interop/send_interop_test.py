#!/usr/bin/python3
"""`kestrel send` against DCMTK's storescp, on 127.0.0.1 with ports the system gives (the
sample corpus in every syntax is send_fidelity_test.py's):

  - bad input beside good files: a file that is not DICOM, an unreadable file, a SOP class the
    peer refuses; each gets its own line on standard error, the others are still sent, and the
    exit code is the worst met (3 for a local failure, 1 for a refused SOP class).
"""
import os
import shutil
import subprocess
import tempfile
import unittest

import pydicom
from pydicom.uid import generate_uid

from loopback import free_port
from net_interop_test import KESTREL, SAMPLES, DcmtkPeer


def StoreSCP(directory, *options):
    return DcmtkPeer("storescp", "+xa", "-od", directory, "-aet", "ANY-SCP", *options)


def received(directory):
    found = {}
    for name in os.listdir(directory):
        ds = pydicom.dcmread(os.path.join(directory, name))
        found[str(ds.SOPInstanceUID)] = ds
    return found


def send(*args):
    return subprocess.run([KESTREL, "send", "--timeout", "20", *map(str, args)],
                          capture_output=True, text=True, timeout=120)


@unittest.skipUnless(shutil.which("storescp") and os.path.exists(KESTREL), "needs storescp")
class SendToStoreSCP(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.inbox = os.path.join(self.tmp.name, "inbox")
        os.mkdir(self.inbox)
        self.scp = StoreSCP(self.inbox)

    def tearDown(self):
        self.scp.stop()
        self.tmp.cleanup()

    def bad_input_tree(self):
        tree = os.path.join(self.tmp.name, "tree")
        os.makedirs(os.path.join(tree, "sub"))
        ct = pydicom.dcmread(os.path.join(SAMPLES, "CT_small.dcm"))
        ct.save_as(os.path.join(tree, "a_good.dcm"))
        with open(os.path.join(tree, "b_text.dcm"), "w") as f:
            f.write("this is not DICOM\n" * 20)
        unreadable = os.path.join(tree, "sub", "c_unreadable.dcm")
        shutil.copy(os.path.join(SAMPLES, "MR_small.dcm"), unreadable)
        os.chmod(unreadable, 0)
        private = pydicom.dcmread(os.path.join(SAMPLES, "MR_small.dcm"))
        private.SOPClassUID = "1.2.826.0.1.3680043.9.9999.1"
        private.file_meta.MediaStorageSOPClassUID = private.SOPClassUID
        private.SOPInstanceUID = generate_uid()
        private.save_as(os.path.join(tree, "d_refused.dcm"))
        good2 = pydicom.dcmread(os.path.join(SAMPLES, "MR_small.dcm"))
        good2.SOPInstanceUID = generate_uid()
        good2.file_meta.MediaStorageSOPInstanceUID = good2.SOPInstanceUID
        good2.save_as(os.path.join(tree, "e_good.dcm"))
        # Image Type values ahead of the SOP UIDs put them past the first 8 KiB and past the
        # first 64 KiB of the file: --batch must still find them, and propose their classes,
        # which no other file has (secondary capture, ultrasound).
        for name, values, sop_class in (("f_far_uids.dcm", 2000, "1.2.840.10008.5.1.4.1.1.7"),
                                        ("g_farther_uids.dcm", 9000,
                                         "1.2.840.10008.5.1.4.1.1.6.1")):
            far = pydicom.dcmread(os.path.join(SAMPLES, "CT_small.dcm"))
            far.ImageType = ["ORIGINAL"] * values
            far.SOPClassUID = far.file_meta.MediaStorageSOPClassUID = sop_class
            far.SOPInstanceUID = generate_uid()
            far.file_meta.MediaStorageSOPInstanceUID = far.SOPInstanceUID
            far.save_as(os.path.join(tree, name))
        return tree, unreadable

    def check_bad_input(self, *options):
        tree, unreadable = self.bad_input_tree()
        result = send(*options, "127.0.0.1", self.scp.port, tree)
        lines = result.stderr.splitlines()
        self.assertEqual(len([l for l in lines if "b_text.dcm: not a DICOM file" in l]), 1,
                         result.stderr)
        if os.geteuid() != 0:
            self.assertEqual(len([l for l in lines if "c_unreadable.dcm: cannot read" in l]), 1,
                             result.stderr)
        refused = [l for l in lines if l.startswith(os.path.join(tree, "d_refused.dcm") + ": ")]
        self.assertEqual(len(refused), 1, result.stderr)
        self.assertIn("rror: Unable to", refused[0])
        # The four good files (and the unreadable one when running as root) arrived.
        got = received(self.inbox)
        self.assertEqual(len(got), 4 if os.geteuid() != 0 else 5, result.stderr)
        # Worst code met: the local failures (3) outrank the refused SOP class (1).
        self.assertEqual(result.returncode, 3, result.stderr)

    def test_bad_input_one_association_each(self):
        self.check_bad_input()

    def test_bad_input_batch(self):
        self.check_bad_input("--batch")

    def test_refused_sop_class_alone_exits_1(self):
        tree, _ = self.bad_input_tree()
        for options in ([], ["--batch"]):
            result = send(*options, "127.0.0.1", self.scp.port, os.path.join(tree, "d_refused.dcm"))
            self.assertEqual(result.returncode, 1, result.stderr)

    def test_closed_port_exits_1_for_every_file(self):
        tree, _ = self.bad_input_tree()
        port = free_port()
        for options in ([], ["--batch"]):
            result = send(*options, "127.0.0.1", port, os.path.join(tree, "a_good.dcm"),
                          os.path.join(tree, "e_good.dcm"))
            self.assertEqual(result.returncode, 1, result.stderr)
            # Client speaks "Error:", the shared association "ERROR:", as the library has it.
            self.assertEqual(result.stderr.lower().count("error: unable to connect to 127.0.0.1"),
                             2, result.stderr)

    def test_fresh_install_prints_only_the_summary(self):
        # No settings file: the missing optional settings are logged, not printed.
        env = dict(os.environ, KESTREL_SETTINGS=os.path.join(self.tmp.name, "none.ini"))
        path = os.path.join(SAMPLES, "CT_small.dcm")
        result = subprocess.run([KESTREL, "send", "127.0.0.1", str(self.scp.port), path],
                                capture_output=True, text=True, env=env, timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(len(result.stderr.splitlines()), 1, result.stderr)
        self.assertTrue(result.stderr.startswith("send: 1 files done"), result.stderr)

    def test_for_processing_image_goes_as_what_it_is(self):
        # Held by the "for presentation" class, a DX "for processing" image still goes, and
        # arrives, under its own SOP class.
        processing = "1.2.840.10008.5.1.4.1.1.1.1.1"
        dx = pydicom.dcmread(os.path.join(SAMPLES, "CT_small.dcm"))
        dx.SOPClassUID = processing
        dx.file_meta.MediaStorageSOPClassUID = processing
        path = os.path.join(self.tmp.name, "dx.dcm")
        dx.save_as(path)
        for options in ([], ["--batch"]):
            result = send(*options, "127.0.0.1", self.scp.port, path)
            self.assertEqual(result.returncode, 0, result.stderr)
            arrived = received(self.inbox)[str(dx.SOPInstanceUID)]
            self.assertEqual(str(arrived.SOPClassUID), processing)
            self.assertEqual(str(arrived.file_meta.MediaStorageSOPClassUID), processing)

    def test_aborting_peer_fails_each_file_with_2(self):
        # The peer aborts every association once it has a request: with --batch each file
        # after the first gets an association of its own, and fails on it as the first did.
        tree, _ = self.bad_input_tree()
        aborting = StoreSCP(self.inbox, "--abort-after")
        try:
            files = [os.path.join(tree, "a_good.dcm"), os.path.join(tree, "e_good.dcm")]
            for options in ([], ["--batch"]):
                result = send(*options, "127.0.0.1", aborting.port, *files)
                self.assertEqual(result.returncode, 2, result.stderr)
                lines = [l for l in result.stderr.splitlines() if "Unable to write" in l]
                self.assertEqual(len(lines), 2, result.stderr)
        finally:
            aborting.stop()


if __name__ == "__main__":
    unittest.main()
