#!/usr/bin/python3
"""Every object arrives as it was: `kestrel send` of pydicom's sample files, and of each of them
converted by dcmconv to implicit VR little endian, explicit VR little endian and explicit VR big
endian, to DCMTK's storescp, one association per file and with --batch. storescp writes what it
receives in the syntax it accepted; each received file is compared with the file sent, element
by element, sequences recursively (dataset_compare.py).

Peers: storescp +xa (accepts every syntax: the compressed samples go in their own syntax),
+xe (prefers explicit VR little endian), +xi (implicit VR only), +xb (prefers big endian): an
uncompressed file must arrive whole in whichever syntax the peer chose. The counts per syntax
and peer are printed.
"""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import warnings

import pydicom

from dataset_compare import compare
from net_interop_test import KESTREL, SAMPLES, DcmtkPeer
from send_interop_test import received

CONVERSIONS = {"implicit": "+ti", "explicit": "+te", "big endian": "+tb"}
# Files the sender refuses before any association (syntaxes the codec cannot read) and the one
# sample storescp itself refuses (every element labelled UN by its writer): not expected there.
NOT_EXPECTED = {"image_dfl.dcm", "MR_small_jpeg_ls_lossless.dcm", "rtdose_rle.dcm"}


def storage_samples():
    """The samples that are storage instances and that dcmdump reads without an error."""
    found = []
    for name in sorted(os.listdir(SAMPLES)):
        path = os.path.join(SAMPLES, name)
        try:
            ds = pydicom.dcmread(path, stop_before_pixels=True)
            ds.SOPClassUID, ds.SOPInstanceUID, ds.file_meta.TransferSyntaxUID
        except Exception:
            continue
        if name.startswith("DICOMDIR"):
            continue
        if subprocess.run(["dcmdump", "-q", path], capture_output=True).returncode == 0:
            found.append(path)
    return found


def convert(files, directory):
    """The uncompressed files converted into each syntax: {syntax name: [paths]}."""
    variants = {}
    for name, option in CONVERSIONS.items():
        target = os.path.join(directory, name.replace(" ", "_"))
        os.mkdir(target)
        variants[name] = []
        for path in files:
            ds = pydicom.dcmread(path, stop_before_pixels=True)
            if ds.file_meta.TransferSyntaxUID.is_compressed:
                continue
            out = os.path.join(target, os.path.basename(path))
            if subprocess.run(["dcmconv", option, path, out], capture_output=True).returncode == 0:
                variants[name].append(out)
    return variants


def rounds(files):
    """The files split so that no SOP instance is sent twice to one inbox (storescp names
    what it receives after the SOP Instance UID)."""
    out = []
    for path in files:
        uid = str(pydicom.dcmread(path, stop_before_pixels=True).SOPInstanceUID)
        for chosen in out:
            if uid not in chosen:
                chosen[uid] = path
                break
        else:
            out.append({uid: path})
    return [list(chosen.values()) for chosen in out]


def send_to_storescp(acceptance, files, options, work):
    inbox = tempfile.mkdtemp(dir=work)
    scp = DcmtkPeer("storescp", acceptance, "-od", inbox)
    try:
        result = subprocess.run([KESTREL, "send", "--timeout", "20", *options, "127.0.0.1",
                                 str(scp.port), *files], capture_output=True, text=True,
                                timeout=300)
    finally:
        scp.stop()
    return result, received(inbox)


@unittest.skipUnless(shutil.which("storescp") and shutil.which("dcmconv") and
                     os.path.exists(KESTREL), "needs DCMTK and the kestrel tool")
class SendFidelity(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        warnings.simplefilter("ignore")
        cls.tmp = tempfile.TemporaryDirectory()
        cls.samples = storage_samples()
        cls.variants = convert(cls.samples, cls.tmp.name)
        cls.counts = []

    @classmethod
    def tearDownClass(cls):
        for line in cls.counts:
            print(line, file=sys.stderr)
        cls.tmp.cleanup()

    def check(self, syntax, files, acceptance, options, refused=()):
        """Sends `files`; every one not refused must arrive identical."""
        identical = 0
        for chosen in rounds(files):
            result, arrived = send_to_storescp(acceptance, chosen, options, self.tmp.name)
            for path in chosen:
                name = os.path.basename(path)
                sent = pydicom.dcmread(path)
                received = arrived.get(str(sent.SOPInstanceUID))
                if (syntax == "original" and name in NOT_EXPECTED) or name in refused:
                    continue
                self.assertIsNotNone(received, "%s %s %s: %s" % (
                    syntax, acceptance, name, result.stderr))
                self.assertEqual(compare(sent, received), [], "%s %s %s" % (
                    syntax, acceptance, name))
                identical += 1
        self.counts.append("send %-10s %-8s to storescp %s: %3d files, %3d arrived identical" % (
            " ".join(options) or "per file", syntax, acceptance, len(files), identical))

    def test_samples_in_their_own_syntax(self):
        self.assertGreater(len(self.samples), 40)
        for options in ([], ["--batch"]):
            self.check("original", self.samples, "+xa", options)

    def test_every_uncompressed_syntax_to_every_acceptance(self):
        for syntax, files in self.variants.items():
            self.assertGreater(len(files), 15, syntax)
            for acceptance in ("+xe", "+xi", "+xb"):
                for options in ([], ["--batch"]):
                    self.check(syntax, files, acceptance, options)

    def test_compressed_samples_to_a_peer_refusing_their_syntax(self):
        # storescp +xe accepts no compressed syntax: those files fail, each on its own line,
        # and the uncompressed ones of the same run still arrive.
        compressed = [p for p in self.samples
                      if pydicom.dcmread(p, stop_before_pixels=True)
                      .file_meta.TransferSyntaxUID.is_compressed]
        refused = {os.path.basename(p) for p in compressed}
        for options in ([], ["--batch"]):
            self.check("original", self.samples, "+xe", options, refused)


if __name__ == "__main__":
    unittest.main()
