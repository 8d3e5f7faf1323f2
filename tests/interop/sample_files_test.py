#!/usr/bin/python3
"""Round trip of pydicom's sample files through `kestrel convert`, checked by DCMTK and
pydicom, and `kestrel dump --json` compared with DCMTK's dcm2json.

For every sample that dcmdump reads:
  - kestrel convert must write a file that dcmdump reads without an error, or refuse with
    exit 3 when the file's transfer syntax is one the library cannot read;
  - every element outside group 0002 (group lengths aside) must come back with the same
    value bytes; the only changes allowed are the padding of an odd-length value and the
    byte order of a big endian source;
  - where dcm2json can write the file, kestrel's JSON must hold the same attributes with the
    same values.
"""
import json
import math
import os
import re
import subprocess
import tempfile
import unittest

import pydicom

from dataset_compare import compare

KESTREL = os.environ.get("KESTREL_BIN", "build/bin/kestrel")
SAMPLES = os.path.join(os.path.dirname(pydicom.__file__), "data", "test_files")
# Syntaxes the library carries; a file in any other one is refused, not converted.
READABLE = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2",
            "1.2.840.10008.1.2.5", "1.2.840.10008.1.2.4.70", "1.2.840.10008.1.2.4.90",
            "1.2.840.10008.1.2.4.91"} | {"1.2.840.10008.1.2.4.%d" % n for n in range(50, 67)}


def run(*args):
    return subprocess.run(args, capture_output=True, text=True, errors="replace")


def samples():
    names = sorted(n for n in os.listdir(SAMPLES) if n.endswith(".dcm"))
    return [os.path.join(SAMPLES, n) for n in names]


def dcmdump_reads(path):
    result = run("dcmdump", "-q", path)
    return result.returncode == 0 and "E: " not in result.stderr


def json_values_equal(a, b):
    if isinstance(a, (int, float)) and isinstance(b, (int, float)):
        return math.isclose(a, b, rel_tol=1e-6, abs_tol=1e-9)
    if isinstance(a, str) and isinstance(b, str):
        return a.strip() == b.strip()
    if isinstance(a, dict) and isinstance(b, dict):
        return set(a) == set(b) and all(json_values_equal(a[k], b[k]) for k in a)
    if isinstance(a, list) and isinstance(b, list):
        return len(a) == len(b) and all(json_values_equal(x, y) for x, y in zip(a, b))
    return a == b


def compare_json(ours, theirs, where, problems):
    for key, element in theirs.items():
        # dcm2json rewrites the character set as it transcodes to UTF-8.
        if key == "00080005":
            continue
        if key not in ours:
            problems.append("%s %s: missing from kestrel's JSON" % (where, key))
            continue
        mine = ours[key]
        if element.get("vr") == "SQ" or mine.get("vr") == "SQ":
            items_a, items_b = element.get("Value", []), mine.get("Value", [])
            if len(items_a) != len(items_b):
                problems.append("%s %s: %d items, dcm2json %d" % (where, key, len(items_b), len(items_a)))
            for i, (x, y) in enumerate(zip(items_b, items_a)):
                compare_json(x, y, "%s %s[%d]" % (where, key, i), problems)
            continue
        # The VRs of private attributes come from each toolkit's own private dictionary; every
        # other VR (US or SS, private creators, the dictionary's) must be the same.
        private_data = int(key[:4], 16) & 1 and int(key[4:], 16) > 0xFF
        if not private_data and element.get("vr") != mine.get("vr"):
            problems.append("%s %s: VR %s, dcm2json %s" % (where, key, mine.get("vr"),
                                                           element.get("vr")))
        for field in ("Value", "InlineBinary"):
            if field in element and field in mine and not json_values_equal(mine[field], element[field]):
                problems.append("%s %s: %s %r, dcm2json %r" % (where, key, field,
                                                               str(mine[field])[:60], str(element[field])[:60]))
            elif (field in element) != (field in mine) and element.get("vr") == mine.get("vr"):
                problems.append("%s %s: %s present on one side only" % (where, key, field))
    for key in ours:
        if key not in theirs and key != "00080005":
            problems.append("%s %s: only in kestrel's JSON" % (where, key))


class SampleFilesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not os.path.isdir(SAMPLES) or not any(True for _ in samples()):
            raise unittest.SkipTest("pydicom's sample files are not installed")
        for tool in ("dcmdump", "dcm2json"):
            if run("which", tool).returncode != 0:
                raise unittest.SkipTest("DCMTK's %s is not installed" % tool)
        cls.readable = [p for p in samples() if dcmdump_reads(p)]

    def test_convert_round_trip(self):
        converted = 0
        with tempfile.TemporaryDirectory() as work:
            for path in self.readable:
                name = os.path.basename(path)
                with self.subTest(file=name):
                    original = pydicom.dcmread(path, force=True)
                    syntax = str(getattr(original.file_meta, "TransferSyntaxUID", "") or "")
                    out = os.path.join(work, name)
                    result = run(KESTREL, "convert", path, out)
                    if syntax and syntax not in READABLE:
                        self.assertEqual(result.returncode, 3, result.stderr)
                        self.assertFalse(os.path.exists(out), "a refused file was written")
                        continue
                    self.assertEqual(result.returncode, 0, result.stderr)
                    dump = run("dcmdump", out)
                    self.assertEqual(dump.returncode, 0, dump.stderr)
                    self.assertNotIn("E: ", dump.stderr)
                    self.assertEqual(compare(original, pydicom.dcmread(out), name), [])
                    converted += 1
        self.assertGreater(converted, 40)

    def test_json_matches_dcm2json(self):
        # Each sample as it is, and each uncompressed one in implicit VR, where every VR comes
        # from the dictionary and Pixel Representation.
        work = tempfile.TemporaryDirectory()
        self.addCleanup(work.cleanup)
        implicit = []
        for path in self.readable:
            out = os.path.join(work.name, "implicit_" + os.path.basename(path))
            if run("dcmconv", "+ti", path, out).returncode == 0:
                implicit.append(out)
        self.assertGreater(len(implicit), 15)
        compared = 0
        for path in self.readable + implicit:
            name = os.path.basename(path)
            syntax = str(getattr(pydicom.dcmread(path, stop_before_pixels=True, force=True).file_meta,
                                 "TransferSyntaxUID", "") or "")
            if syntax and syntax not in READABLE:
                continue
            theirs = run("dcm2json", path)
            if theirs.returncode != 0:
                continue  # dcm2json writes no compressed pixel data
            with self.subTest(file=name):
                ours = run(KESTREL, "dump", "--json", path)
                self.assertEqual(ours.returncode, 0, ours.stderr)
                problems = []
                compare_json(json.loads(ours.stdout), json.loads(theirs.stdout), name, problems)
                self.assertEqual(problems, [])
                compared += 1
        self.assertGreater(compared, 40)


class TextDump(unittest.TestCase):
    def test_dump_shows_what_the_file_holds_and_nothing_else(self):
        # Group lengths: the meta group's as the file holds it, once (group lengths of data
        # groups are retired; the data model drops them when it reads them, and the dump shows
        # none). A machine without a settings file prints nothing on standard error: missing
        # optional settings are logged, not shown.
        if run("which", "dcmdump").returncode != 0:
            self.skipTest("needs dcmdump")
        env = dict(os.environ, KESTREL_SETTINGS="/nonexistent/settings.ini")
        checked = 0
        for path in samples():
            if not dcmdump_reads(path):
                continue
            theirs = run("dcmdump", path).stdout.count("(0002,0000)")
            ours = subprocess.run([KESTREL, "dump", path], capture_output=True, text=True,
                                  env=env, errors="replace")
            if ours.returncode != 0:
                continue
            name = os.path.basename(path)
            if "damaged" not in ours.stderr:  # a syntax the codec cannot read is reported
                self.assertEqual(ours.stderr, "", name)
            lengths = [l for l in ours.stdout.splitlines() if re.match(r"\s*\([0-9a-f]{4},0000\)", l)]
            self.assertEqual(len(lengths), theirs, name)
            checked += 1
        self.assertGreater(checked, 40)


if __name__ == "__main__":
    unittest.main(verbosity=2)
