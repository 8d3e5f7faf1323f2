#!/usr/bin/python3
"""Test data for the benchmarks in bench/, and the check of the converted files.

  make_data.py generate WORKDIR [--scale S] [--sets ct,small,large,studies]
      WORKDIR/in/ct/       a CT series: 300 axial 512x512 16-bit slices
      WORKDIR/in/small/    5,000 small CT images of 64x64 pixels
      WORKDIR/in/large/    one Enhanced CT file of 800 frames of 512x512 16-bit (about 400 MB)
      WORKDIR/in/studies/  10,000 studies of one 16x16 CT image (query figures; not made unless
                           named in --sets)
    All in explicit VR little endian, with preamble and file meta. --scale multiplies the
    counts (0.05 makes a quick run); --sets makes only some of them.

  make_data.py check IN OUT [OUT...]
      Each OUT must be in implicit VR little endian and hold the same elements with the same
      values as IN (file meta and group lengths aside) and the same pixel bytes.

Needs pydicom and numpy (Debian: python3-pydicom, python3-numpy); run with /usr/bin/python3.
"""
import argparse
import hashlib
import os
import struct
import sys

import numpy as np
import pydicom
from pydicom.dataset import Dataset, FileMetaDataset
from pydicom.sequence import Sequence
from pydicom.uid import ExplicitVRLittleEndian, ImplicitVRLittleEndian, generate_uid

CT_IMAGE = "1.2.840.10008.5.1.4.1.1.2"
ENHANCED_CT_IMAGE = "1.2.840.10008.5.1.4.1.1.2.1"
UID_ROOT = "1.2.826.0.1.3680043.9.7412."  # uids below are derived from fixed seeds: reruns match


def uid(*parts):
    return generate_uid(prefix=UID_ROOT, entropy_srcs=[str(s) for s in parts])


def phantom(side):
    """A body-like slice in stored values (HU + 1024): air, soft tissue, lungs, spine."""
    y, x = np.mgrid[0:side, 0:side].astype(np.float32) / side - 0.5
    image = np.zeros((side, side), np.float32)
    image[(x / 0.42) ** 2 + (y / 0.32) ** 2 < 1] = 1024 + 40
    for cx in (-0.18, 0.18):
        image[((x - cx) / 0.13) ** 2 + ((y + 0.02) / 0.2) ** 2 < 1] = 1024 - 820
    image[(x / 0.05) ** 2 + ((y - 0.2) / 0.05) ** 2 < 1] = 1024 + 700
    return image


class SliceMaker:
    """Slices of a phantom with noise; the noise comes from a small pool, rolled per slice."""

    def __init__(self, side, random_state=1):
        rng = np.random.default_rng(random_state)
        self.base = phantom(side)
        self.noise = rng.normal(0, 12, (8, side, side)).astype(np.float32)

    def slice(self, index):
        noise = np.roll(self.noise[index % 8], index // 8, axis=1)
        return np.clip(self.base + noise, 0, 4095).astype("<u2")


def ct_header(ds, study, series, number, side):
    ds.SpecificCharacterSet = "ISO_IR 100"
    ds.ImageType = ["ORIGINAL", "PRIMARY", "AXIAL"]
    ds.InstanceCreationDate = "20240115"
    ds.InstanceCreationTime = "101530.123000"
    ds.StudyDate = ds.SeriesDate = ds.AcquisitionDate = ds.ContentDate = "20240115"
    ds.StudyTime = "101204.000000"
    ds.SeriesTime = "101455.000000"
    ds.AcquisitionTime = "101512.650000"
    ds.ContentTime = "101530.123000"
    ds.AccessionNumber = "A2024011500123"
    ds.Modality = "CT"
    ds.Manufacturer = "Kestrel Test Scanners"
    ds.InstitutionName = "General Hospital"
    ds.ReferringPhysicianName = "Referrer^Robert"
    ds.StationName = "CTSTATION01"
    ds.StudyDescription = "CT CHEST ABDOMEN PELVIS W CONTRAST"
    code = Dataset()
    code.CodeValue = "CTCAP"
    code.CodingSchemeDesignator = "LOCAL"
    code.CodeMeaning = "CT CHEST ABDOMEN PELVIS W CONTRAST"
    ds.ProcedureCodeSequence = Sequence([code])
    ds.SeriesDescription = "AXIAL 1.0 SOFT TISSUE"
    ds.InstitutionalDepartmentName = "RADIOLOGY"
    ds.ManufacturerModelName = "Model 64"
    ds.PatientName = "Doe^Jane"
    ds.PatientID = "PID000123456"
    ds.PatientBirthDate = "19620304"
    ds.PatientSex = "F"
    ds.PatientAge = "061Y"
    ds.PatientSize = "1.68"
    ds.PatientWeight = "71.5"
    ds.BodyPartExamined = "CHEST"
    ds.ScanOptions = "HELICAL MODE"
    ds.SliceThickness = "1.0"
    ds.KVP = "120"
    ds.SpacingBetweenSlices = "1.0"
    ds.DataCollectionDiameter = "500.0"
    ds.DeviceSerialNumber = "SN64-00917"
    ds.SoftwareVersions = "VA48A"
    ds.ProtocolName = "CAP_ROUTINE"
    ds.ReconstructionDiameter = "360.0"
    ds.DistanceSourceToDetector = "1085.6"
    ds.DistanceSourceToPatient = "595.0"
    ds.GantryDetectorTilt = "0.0"
    ds.TableHeight = "152.5"
    ds.RotationDirection = "CW"
    ds.ExposureTime = "500"
    ds.XRayTubeCurrent = "280"
    ds.Exposure = "140"
    ds.FilterType = "BODY FILTER"
    ds.GeneratorPower = "34"
    ds.FocalSpots = "1.2"
    ds.ConvolutionKernel = "B30f"
    ds.PatientPosition = "FFS"
    ds.RevolutionTime = 0.5
    ds.SingleCollimationWidth = 0.6
    ds.TotalCollimationWidth = 38.4
    ds.TableSpeed = 46.08
    ds.TableFeedPerRotation = 23.04
    ds.SpiralPitchFactor = 0.6
    ds.StudyInstanceUID = study
    ds.SeriesInstanceUID = series
    ds.StudyID = "4711"
    ds.SeriesNumber = "3"
    ds.AcquisitionNumber = "1"
    ds.InstanceNumber = str(number)
    ds.FrameOfReferenceUID = uid("frame", study)
    ds.PositionReferenceIndicator = ""
    ds.SamplesPerPixel = 1
    ds.PhotometricInterpretation = "MONOCHROME2"
    ds.Rows = side
    ds.Columns = side
    spacing = 360.0 / side
    ds.PixelSpacing = [f"{spacing:.6f}", f"{spacing:.6f}"]
    ds.BitsAllocated = 16
    ds.BitsStored = 12
    ds.HighBit = 11
    ds.PixelRepresentation = 0
    ds.WindowCenter = "40"
    ds.WindowWidth = "400"
    ds.RescaleIntercept = "-1024"
    ds.RescaleSlope = "1"
    ds.RescaleType = "HU"


def file_meta(sop_class, sop_instance):
    meta = FileMetaDataset()
    meta.MediaStorageSOPClassUID = sop_class
    meta.MediaStorageSOPInstanceUID = sop_instance
    meta.TransferSyntaxUID = ExplicitVRLittleEndian
    meta.ImplementationClassUID = UID_ROOT + "99"
    meta.ImplementationVersionName = "KESTREL_BENCH"
    return meta


def write_explicit(ds, path):
    ds.is_little_endian = True
    ds.is_implicit_VR = False
    ds.save_as(path, write_like_original=False)


def write_series(directory, count, side, tag):
    """`count` single-frame CT images of side x side pixels, one per file."""
    os.makedirs(directory, exist_ok=True)
    study = uid(tag, "study")
    series = uid(tag, "series")
    maker = SliceMaker(side)
    ds = Dataset()
    ct_header(ds, study, series, 1, side)
    ds.SOPClassUID = CT_IMAGE
    for i in range(count):
        instance = uid(tag, "instance", i)
        z = -117.0 + i * 1.0
        ds.SOPInstanceUID = instance
        ds.InstanceNumber = str(i + 1)
        ds.ImagePositionPatient = ["-179.6484375", "-179.6484375", f"{z:.1f}"]
        ds.ImageOrientationPatient = ["1", "0", "0", "0", "1", "0"]
        ds.SliceLocation = f"{z:.1f}"
        ds.PixelData = maker.slice(i).tobytes()
        ds["PixelData"].VR = "OW"
        ds.file_meta = file_meta(CT_IMAGE, instance)
        write_explicit(ds, os.path.join(directory, f"{tag}{i + 1:05d}.dcm"))


SURNAMES = ["SMITH", "JONES", "TAYLOR", "BROWN", "WILSON", "DAVIES", "EVANS", "THOMAS", "JOHNSON",
            "ROBERTS", "WALKER", "WRIGHT", "THOMPSON", "WHITE", "HUGHES", "EDWARDS", "GREEN",
            "HALL", "WOOD", "HARRIS"]
GIVEN = ["JAMES", "MARY", "JOHN", "LINDA", "ROBERT", "SUSAN", "DAVID", "KAREN", "PAUL", "ANNE"]


def write_studies(directory, count):
    """`count` studies of one small CT image each, for the query figures: five studies per
    patient, names from 20 surnames and 10 given names, study dates over ten years."""
    os.makedirs(directory, exist_ok=True)
    ds = Dataset()
    ct_header(ds, "", "", 1, 16)
    ds.SOPClassUID = CT_IMAGE
    pixels = np.zeros((16, 16), "<u2").tobytes()
    for i in range(count):
        patient = i // 5
        ds.PatientID = f"P{patient:06d}"
        ds.PatientName = f"{SURNAMES[patient % 20]}^{GIVEN[(patient // 20) % 10]}^{patient}"
        ds.StudyInstanceUID = uid("studies", "study", i)
        ds.SeriesInstanceUID = uid("studies", "series", i)
        ds.SOPInstanceUID = instance = uid("studies", "instance", i)
        day = i % 3650
        ds.StudyDate = f"{2015 + day // 365:04d}{1 + (day % 365) // 31 % 12:02d}{1 + day % 28:02d}"
        ds.AccessionNumber = f"A{i:08d}"
        ds.StudyID = str(i)
        ds.PixelData = pixels
        ds["PixelData"].VR = "OW"
        ds.file_meta = file_meta(CT_IMAGE, instance)
        write_explicit(ds, os.path.join(directory, f"st{i:06d}.dcm"))


def write_multiframe(path, frames, side):
    """An Enhanced CT image of `frames` frames. The header is written by pydicom; the pixel data
    element, the last one, is appended frame by frame, so that no more than one frame is ever
    held in memory."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    study = uid("mf", "study")
    instance = uid("mf", "instance")
    ds = Dataset()
    ct_header(ds, study, uid("mf", "series"), 1, side)
    ds.SOPClassUID = ENHANCED_CT_IMAGE
    ds.SOPInstanceUID = instance
    ds.ImageType = ["ORIGINAL", "PRIMARY", "VOLUME", "NONE"]
    ds.NumberOfFrames = str(frames)
    shared = Dataset()
    measures = Dataset()
    measures.PixelSpacing = ds.PixelSpacing
    measures.SliceThickness = "1.0"
    shared.PixelMeasuresSequence = Sequence([measures])
    orientation = Dataset()
    orientation.ImageOrientationPatient = ["1", "0", "0", "0", "1", "0"]
    shared.PlaneOrientationSequence = Sequence([orientation])
    ds.SharedFunctionalGroupsSequence = Sequence([shared])
    per_frame = []
    for i in range(frames):
        group = Dataset()
        content = Dataset()
        content.FrameAcquisitionNumber = 1
        content.InStackPositionNumber = i + 1
        content.StackID = "1"
        content.DimensionIndexValues = [1, i + 1]
        group.FrameContentSequence = Sequence([content])
        position = Dataset()
        position.ImagePositionPatient = ["-179.6484375", "-179.6484375", f"{-117.0 + i * 0.5:.1f}"]
        group.PlanePositionSequence = Sequence([position])
        per_frame.append(group)
    ds.PerFrameFunctionalGroupsSequence = Sequence(per_frame)
    ds.file_meta = file_meta(ENHANCED_CT_IMAGE, instance)
    write_explicit(ds, path)

    maker = SliceMaker(side, random_state=2)
    length = frames * side * side * 2
    with open(path, "ab") as out:
        out.write(struct.pack("<HH2sHI", 0x7FE0, 0x0010, b"OW", 0, length))
        for i in range(frames):
            out.write(maker.slice(i).tobytes())


def generate(args):
    work = args.workdir
    scale = args.scale
    counts = {
        "ct": max(1, round(300 * scale)),
        "small": max(1, round(5000 * scale)),
        "frames": max(1, round(800 * scale)),
        "studies": max(1, round(10000 * scale)),
    }
    if "ct" in args.sets:
        write_series(os.path.join(work, "in", "ct"), counts["ct"], 512, "ct")
    if "small" in args.sets:
        write_series(os.path.join(work, "in", "small"), counts["small"], 64, "sm")
    if "large" in args.sets:
        write_multiframe(os.path.join(work, "in", "large", "multiframe.dcm"), counts["frames"],
                         512)
    if "studies" in args.sets:
        write_studies(os.path.join(work, "in", "studies"), counts["studies"])
    made = {"ct": f"{counts['ct']} CT slices", "small": f"{counts['small']} small images",
            "large": f"one file of {counts['frames']} frames",
            "studies": f"{counts['studies']} studies of one image"}
    print("generated " + ", ".join(made[s] for s in made if s in args.sets) + f" under {work}/in")


def pixel_digest(path, ds):
    """SHA-256 of the pixel bytes, which are the last bytes of the file in every file here."""
    frames = int(getattr(ds, "NumberOfFrames", 1) or 1)
    length = ds.Rows * ds.Columns * (ds.BitsAllocated // 8) * ds.SamplesPerPixel * frames
    digest = hashlib.sha256()
    with open(path, "rb") as f:
        f.seek(-length, os.SEEK_END)
        while True:
            block = f.read(1 << 22)
            if not block:
                break
            digest.update(block)
    return digest.hexdigest()


def comparable(ds):
    """Every element but sequences, the pixel data and group lengths: tag -> values as text."""
    out = {}
    for element in ds.iterall():
        if element.tag == 0x7FE00010 or element.tag.element == 0:
            continue
        if element.VR == "SQ":
            continue  # its items' elements come next in the walk
        out.setdefault(element.tag, []).append(repr(element.value))
    return out


def check(args):
    failures = 0
    ref = pydicom.dcmread(args.input, defer_size="1 MB", stop_before_pixels=True)
    ref_elements = comparable(ref)
    ref_pixels = pixel_digest(args.input, ref)
    for path in args.outputs:
        ds = pydicom.dcmread(path, defer_size="1 MB", stop_before_pixels=True)
        problems = []
        if ds.file_meta.TransferSyntaxUID != ImplicitVRLittleEndian:
            problems.append(f"transfer syntax {ds.file_meta.TransferSyntaxUID}")
        elements = comparable(ds)
        if elements != ref_elements:
            differ = sorted(set(elements) ^ set(ref_elements))
            differ += [t for t in ref_elements if t in elements and elements[t] != ref_elements[t]]
            problems.append(f"elements differ: {differ[:5]}")
        if pixel_digest(path, ds) != ref_pixels:
            problems.append("pixel bytes differ")
        if problems:
            failures += 1
            print(f"check: {path}: " + "; ".join(problems), file=sys.stderr)
    return 1 if failures else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    sub = parser.add_subparsers(dest="command", required=True)
    g = sub.add_parser("generate")
    g.add_argument("workdir")
    g.add_argument("--scale", type=float, default=1.0)
    g.add_argument("--sets", default="ct,small,large",
                   help="which of ct, small, large, studies to make")
    c = sub.add_parser("check")
    c.add_argument("input")
    c.add_argument("outputs", nargs="+")
    args = parser.parse_args()
    if args.command == "generate":
        generate(args)
        return 0
    return check(args)


if __name__ == "__main__":
    sys.exit(main())
