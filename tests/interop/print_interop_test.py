#!/usr/bin/python3
"""`kestrel printer` and `kestrel print` against DCMTK's print SCP dcmprscp, started on a free
loopback port with a configuration and a spool of its own in a temporary directory.

  - printer: the nine attribute lines, with the status dcmprscp keeps;
  - print: CT, MR and a MONOCHROME1 CR at display formats 1,1 and 2,2, in 8 and 12 bits: what
    dcmprscp stores (a stored print object per film, a hardcopy grayscale image per image box)
    is checked with pydicom: films, image boxes, rows, columns, bits and the inversion of the
    MONOCHROME1 image;
  - images that cannot be printed (compressed, colour) beside a good one: each reported, the
    good one printed, exit code 3;
  - a closed port: exit code 1 and the library's text.
"""
import glob
import os
import shutil
import subprocess
import tempfile
import unittest

import numpy
import pydicom
from pydicom.dataset import Dataset, FileMetaDataset
from pydicom.uid import ExplicitVRLittleEndian, generate_uid

from loopback import free_port, wait_for_port
from net_interop_test import DcmtkPeer

KESTREL = os.environ.get("KESTREL_BIN", "build/bin/kestrel")
SAMPLES = os.path.join(os.path.dirname(pydicom.__file__), "data", "test_files")
CT = os.path.join(SAMPLES, "CT_small.dcm")
MR = os.path.join(SAMPLES, "MR_small.dcm")
HARDCOPY_GRAYSCALE = "1.2.840.10008.5.1.1.29"
STORED_PRINT = "1.2.840.10008.5.1.1.27"

CONFIG = """[[GENERAL]]
[DATABASE]
Directory = {root}/db
[PRINT]
Directory = {root}/spool
[[COMMUNICATION]]
[PRINTER]
Aetitle = PRINTER
Description = Kestrel test printer
Hostname = localhost
Port = {port}
Type = LOCALPRINTER
DisplayFormat = 1,1\\1,2\\2,1\\2,2\\3,3
FilmSizeID = 8INX10IN\\14INX17IN
MediumType = PAPER\\CLEAR FILM\\BLUE FILM
FilmDestination = MAGAZINE\\PROCESSOR
MagnificationType = REPLICATE\\BILINEAR\\CUBIC\\NONE
MinDensity = 20
MaxDensity = 320
Supports12Bit = true
"""


def monochrome1_cr(path):
    """A 200 x 160 CR, MONOCHROME1, 12 of 16 bits: a ramp from 0 (white) to 4095 (black)."""
    meta = FileMetaDataset()
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    meta.MediaStorageSOPClassUID = "1.2.840.10008.5.1.4.1.1.1"
    meta.MediaStorageSOPInstanceUID = generate_uid()
    ds = Dataset()
    ds.file_meta = meta
    ds.SOPClassUID = meta.MediaStorageSOPClassUID
    ds.SOPInstanceUID = meta.MediaStorageSOPInstanceUID
    ds.Modality = "CR"
    ds.PatientName = "RAMP^CR"
    ds.Rows, ds.Columns = 200, 160
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME1"
    ds.BitsAllocated, ds.BitsStored, ds.HighBit, ds.PixelRepresentation = 16, 12, 11, 0
    ramp = numpy.linspace(0, 4095, 160).astype(numpy.uint16)
    ds.PixelData = numpy.tile(ramp, (200, 1)).tobytes()
    ds.is_little_endian, ds.is_implicit_VR = True, False
    ds.save_as(path, write_like_original=False)


class PrintSCP(DcmtkPeer):  # started with a configuration of its own, stopped as the others
    def __init__(self, root):
        self.root = root
        self.port = free_port()
        for sub in ("db", "spool"):
            os.makedirs(os.path.join(root, sub), exist_ok=True)
        config = os.path.join(root, "dcmpstat.cfg")
        with open(config, "w") as f:
            f.write(CONFIG.format(root=root, port=self.port))
        self.process = subprocess.Popen(["dcmprscp", "-c", config, "-p", "PRINTER"],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if not wait_for_port(self.port):
            self.stop()
            raise RuntimeError("dcmprscp did not start")

    def stored(self, prefix, sop_class):
        found = [pydicom.dcmread(path)
                 for path in glob.glob(os.path.join(self.root, "db", prefix + "_*.dcm"))]
        assert all(str(ds.SOPClassUID) == sop_class for ds in found), prefix
        return found


def kestrel(*args):
    return subprocess.run([KESTREL, *map(str, args)], capture_output=True, text=True, timeout=120)


@unittest.skipUnless(shutil.which("dcmprscp") and os.path.exists(KESTREL) and os.path.exists(CT),
                     "needs dcmprscp, the tool and pydicom's samples")
class PrintToDcmprscp(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.scp = PrintSCP(os.path.join(self.tmp.name, "printer"))
        self.cr = os.path.join(self.tmp.name, "cr_mono1.dcm")
        monochrome1_cr(self.cr)

    def tearDown(self):
        self.scp.stop()
        self.tmp.cleanup()

    def films(self):
        """Each stored print object's display format and its image boxes' hardcopy images."""
        images = {str(ds.SOPInstanceUID): ds for ds in self.scp.stored("HG", HARDCOPY_GRAYSCALE)}
        films = []
        for sp in self.scp.stored("SP", STORED_PRINT):
            fmt = str(sp.FilmBoxContentSequence[0].ImageDisplayFormat)
            boxes = sorted(sp.ImageBoxContentSequence, key=lambda box: box.ImageBoxPosition)
            films.append((fmt, [images[str(box.ReferencedImageSequence[0]
                                           .ReferencedSOPInstanceUID)] for box in boxes]))
        return sorted(films, key=lambda film: film[1][0].Rows)

    def test_printer_reports_its_status(self):
        result = kestrel("printer", "--aec", "PRINTER", "127.0.0.1", self.scp.port)
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        self.assertEqual([line.split(":")[0] for line in lines], [
            "Printer Status", "Printer Status Info", "Printer Name", "Manufacturer",
            "Manufacturer's Model Name", "Device Serial Number", "Software Versions",
            "Date of Last Calibration", "Time of Last Calibration"])
        self.assertEqual(lines[:2], ["Printer Status: NORMAL", "Printer Status Info: NORMAL"])

    def test_one_image_per_film(self):
        result = kestrel("print", "--aec", "PRINTER", "--format", "STANDARD\\1,1",
                         "127.0.0.1", self.scp.port, CT, MR, self.cr)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(result.stdout.count("BasicFilmBox:NAction"), 3, result.stdout)
        films = self.films()
        self.assertEqual([(fmt, len(images)) for fmt, images in films],
                         [("STANDARD\\1,1", 1)] * 3)
        self.assertEqual([(ds.Rows, ds.Columns) for _, (ds,) in films],
                         [(64, 64), (128, 128), (200, 160)])
        for _, (ds,) in films:
            self.assertEqual((ds.BitsAllocated, ds.BitsStored, ds.HighBit), (8, 8, 7))
            self.assertEqual(ds.PhotometricInterpretation, "MONOCHROME2")

    def test_four_boxes_in_twelve_bits(self):
        result = kestrel("print", "--aec", "PRINTER", "--format", "STANDARD\\2,2", "--bits",
                         "12", "--film-size", "14INX17IN", "127.0.0.1", self.scp.port,
                         CT, MR, self.cr)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        films = self.films()
        self.assertEqual(len(films), 1)
        fmt, images = films[0]
        self.assertEqual(fmt, "STANDARD\\2,2")
        self.assertEqual([(ds.Rows, ds.Columns) for ds in images], [(128, 128), (64, 64),
                                                                    (200, 160)])
        for ds in images:
            self.assertEqual((ds.BitsAllocated, ds.BitsStored, ds.HighBit), (16, 12, 11))
        # MONOCHROME1: the stored 0 at the left is white, so it prints at the top of the range.
        cr = images[2].pixel_array
        self.assertEqual((int(cr[0, 0]), int(cr[0, -1])), (4095, 0))

    def test_images_that_cannot_be_printed(self):
        jpeg = os.path.join(SAMPLES, "JPEG-lossy.dcm")
        rgb = os.path.join(SAMPLES, "SC_rgb_small_odd.dcm")
        result = kestrel("print", "--aec", "PRINTER", "127.0.0.1", self.scp.port, jpeg, CT, rgb)
        self.assertEqual(result.returncode, 3, result.stderr)
        self.assertIn(jpeg + ": KESTREL.dll : CPrintImage::Convert : compressed pixel data "
                      "(transfer syntax 1.2.840.10008.1.2.4.51) cannot be printed", result.stderr)
        self.assertIn(rgb + ": KESTREL.dll : CPrintImage::Convert : only grayscale images",
                      result.stderr)
        self.assertIn("1 files done, 2 failed", result.stderr)
        self.assertEqual([(ds.Rows, ds.Columns) for _, (ds,) in self.films()], [(128, 128)])

    def test_closed_port(self):
        port = free_port()
        for command in ("printer", "print"):
            result = kestrel(command, "127.0.0.1", port, *([CT] if command == "print" else []))
            self.assertEqual(result.returncode, 1, command)
            self.assertIn("ERROR: Unable to connect to 127.0.0.1\nThe connection to 127.0.0.1 "
                          "port %d was refused: nothing listens there\n" % port, result.stderr)


if __name__ == "__main__":
    unittest.main()
