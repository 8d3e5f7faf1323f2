#!/usr/bin/python3
"""The modality worklist against DCMTK:
  - findscu -W against `kestrel serve --ris` with orders in the RIS database, on SQLite and
    (when KESTREL_TEST_PG names a server) PostgreSQL: matching on modality (translated to the
    RIS names), date range, station AE title and patient name with wild cards;
  - `kestrel worklist` against wlmscpfs serving a worklist folder made with dump2dcm.
"""
import glob
import json
import os
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import unittest

import pydicom

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "interop"))
from loopback import free_port, wait_for_port  # noqa: E402
from net_interop_test import KESTREL, Serve  # noqa: E402

PG = os.environ.get("KESTREL_TEST_PG", "")

PATIENTS = [("T1", "PID001", "John", "Doe", "1970-05-04 00:00:00", "M"),
            ("T2", "PID002", "Jane", "Smith", "1980-01-02 00:00:00", "F"),
            ("T3", "PID003", "Anne", "Doherty", "1990-07-08 00:00:00", "F")]
ORDERS = [("O1", "PID001", "ACC1", "MRI", "2024-03-01 09:30:00", "MR Brain", "MR1AE"),
          ("O2", "PID002", "ACC2", "General Radiography", "2024-03-02 14:00:00", "Chest", "CR1AE"),
          ("O3", "PID001", "ACC3", "Ultrasound", "2024-03-05 08:00:00", "Abdomen", "US1AE"),
          ("O4", "PID003", "ACC4", "MRI", "2024-03-02 16:00:00", "MR Knee", "MR2AE")]


def run(*args, timeout=60, **kw):
    return subprocess.run([str(a) for a in args], capture_output=True, text=True,
                          errors="replace", timeout=timeout, **kw)


def have_tools():
    return all(shutil.which(t) for t in ("findscu", "wlmscpfs", "dump2dcm"))


def insert_statements(prefix):
    statements = []
    for p in PATIENTS:
        statements.append("INSERT INTO %sPatientTable (PatientTableID, PatientID, FirstName, "
                          "LastName, DOB, Sex) VALUES ('%s', '%s', '%s', '%s', '%s', '%s')"
                          % ((prefix,) + p))
    for o in ORDERS:
        statements.append("INSERT INTO %sOrderTable (OrderTableID, PatientID, FillerOrderNumber, "
                          "Modality, StartDateTime, StudyDescription, StudyLocation) VALUES "
                          "('%s', '%s', '%s', '%s', '%s', '%s', '%s')" % ((prefix,) + o))
    return statements


def connect_value(connect, key):
    for pair in connect.split(";"):
        if "=" in pair and pair.split("=", 1)[0].lower() == key.lower():
            return pair.split("=", 1)[1]
    return ""


class FindscuAgainstServe:
    """The cases, on a RIS database made by make_database()."""

    def findscu(self, *keys):
        out = tempfile.mkdtemp(dir=self.work)
        # The return keys first: a later -k of the same attribute would replace the caller's.
        asked = ["ScheduledProcedureStepSequence[0].ScheduledProcedureStepID", "PatientName"]
        result = run("findscu", "-W", "-X", "-od", out,
                     *sum((["-k", k] for k in asked + list(keys)), []),
                     "127.0.0.1", self.server.port)
        self.assertEqual(result.returncode, 0, result.stderr)
        answers = [pydicom.dcmread(f) for f in sorted(glob.glob(os.path.join(out, "rsp*.dcm")))]
        return answers, {a.ScheduledProcedureStepSequence[0].ScheduledProcedureStepID
                         for a in answers}

    def test_matching(self):
        step = "ScheduledProcedureStepSequence[0]."
        cases = [
            ([], {"O1", "O2", "O3", "O4"}),
            ([step + "Modality=MR"], {"O1", "O4"}),
            ([step + "Modality=CR"], {"O2"}),
            ([step + "ScheduledProcedureStepStartDate=20240302-20240305"], {"O2", "O3", "O4"}),
            ([step + "ScheduledStationAETitle=MR1AE"], {"O1"}),
            ([step + "ScheduledStationAETitle=MR?AE"], {"O1", "O4"}),
            (["PatientName=DO*"], {"O1", "O3", "O4"}),
            (["PatientName=d?e^*"], {"O1", "O3"}),
            (["PatientName=Do*", step + "Modality=MR",
              step + "ScheduledProcedureStepStartDate=-20240301"], {"O1"}),
        ]
        for keys, expected in cases:
            self.assertEqual(self.findscu(*keys)[1], expected, keys)

    def test_answer_values(self):
        answers, _ = self.findscu("PatientName=Smith*", "AccessionNumber", "PatientID",
                                  "ScheduledProcedureStepSequence[0].Modality",
                                  "ScheduledProcedureStepSequence[0].ScheduledStationAETitle")
        self.assertEqual([(str(a.PatientName), a.AccessionNumber, a.PatientID,
                           a.ScheduledProcedureStepSequence[0].Modality,
                           a.ScheduledProcedureStepSequence[0].ScheduledStationAETitle)
                          for a in answers], [("Smith^Jane", "ACC2", "PID002", "CR", "CR1AE")])


@unittest.skipUnless(have_tools(), "DCMTK not installed")
class SQLiteRIS(FindscuAgainstServe, unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp()
        path = os.path.join(self.work, "ris.db")
        connect = "DRIVER=SQLite3;Database=%s;" % path
        result = run(KESTREL, "db", "init", "--ris", "--db", connect)
        self.assertEqual(result.returncode, 0, result.stderr)
        with sqlite3.connect(path) as database:
            for statement in insert_statements(""):
                database.execute(statement)
        self.server = Serve(os.path.join(self.work, "store"), "--ris", connect)

    def tearDown(self):
        self.server.stop()
        shutil.rmtree(self.work)


@unittest.skipUnless(have_tools() and PG and shutil.which("psql"),
                     "DCMTK, psql or KESTREL_TEST_PG missing")
class PostgreSQLRIS(FindscuAgainstServe, unittest.TestCase):
    def psql(self, database, sql):
        env = dict(os.environ, PGPASSWORD=connect_value(PG, "PWD"))
        result = run("psql", "-v", "ON_ERROR_STOP=1", "-h", connect_value(PG, "Servername"),
                     "-p", connect_value(PG, "Port"), "-U", connect_value(PG, "UID"),
                     "-d", database, "-c", sql, env=env)
        self.assertEqual(result.returncode, 0, result.stderr)

    def setUp(self):
        self.work = tempfile.mkdtemp()
        self.database = "wl_%d_%d" % (os.getpid(), id(self) % 100000)
        self.psql("postgres", "CREATE DATABASE " + self.database)
        connect = PG + "Database=%s;" % self.database
        result = run(KESTREL, "db", "init", "--ris", "--db", connect)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.psql(self.database, ";".join(insert_statements("dbo.")))
        self.server = Serve(os.path.join(self.work, "store"), "--ris", connect)

    def tearDown(self):
        self.server.stop()
        self.psql("postgres", "DROP DATABASE IF EXISTS %s WITH (FORCE)" % self.database)
        shutil.rmtree(self.work)


# A worklist entry with every attribute wlmscpfs requires of one.
WORKLIST = ["""(0008,0005) CS [ISO_IR 100]
(0008,0050) SH [ACC{n}]
(0008,0090) PN [Ref^Doc]
(0010,0010) PN [{name}]
(0010,0020) LO [PID{n}]
(0010,0030) DA [19700101]
(0010,0040) CS [O]
(0020,000d) UI [1.2.3.{n}]
(0032,1060) LO [Procedure {n}]
(0040,0100) SQ
(fffe,e000) -
(0008,0060) CS [{modality}]
(0040,0001) AE [{station}]
(0040,0002) DA [{date}]
(0040,0003) TM [093000]
(0040,0006) PN [Rad^One]
(0040,0007) LO [Step {n}]
(0040,0009) SH [SPS{n}]
(fffe,e00d) -
(fffe,e0dd) -
(0040,1001) SH [RP{n}]
"""]


@unittest.skipUnless(have_tools(), "DCMTK not installed")
class WorklistAgainstWlmscpfs(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.mkdtemp()
        folder = os.path.join(self.work, "WLAE")
        os.makedirs(folder)
        open(os.path.join(folder, "lockfile"), "w").close()
        entries = [(1, "Doe^John", "CT", "CTAE", "20240301"),
                   (2, "Roe^Jane", "MR", "MRAE", "20240302"),
                   (3, "Doe^Anna", "MR", "MRAE", "20240303")]
        for n, name, modality, station, date in entries:
            dump = os.path.join(self.work, "%d.dump" % n)
            with open(dump, "w") as f:
                f.write(WORKLIST[0].format(n=n, name=name, modality=modality, station=station,
                                           date=date))
            result = run("dump2dcm", dump, os.path.join(folder, "%d.wl" % n))
            self.assertEqual(result.returncode, 0, result.stderr)
        self.port = free_port()
        self.process = subprocess.Popen(["wlmscpfs", "-dfp", self.work, str(self.port)],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.assertTrue(wait_for_port(self.port))

    def tearDown(self):
        self.process.terminate()
        self.process.wait(10)
        shutil.rmtree(self.work)

    def worklist(self, *args):
        return run(KESTREL, "worklist", "--aec", "WLAE", *args, "127.0.0.1", self.port)

    def test_rows_and_keys(self):
        result = self.worklist("-k", "Modality=MR", "-k", "PatientName=Doe*")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        header = lines[0].split("\t")
        self.assertEqual(header[:2], ["PatientName", "PatientID"])
        rows = [dict(zip(header, line.split("\t"))) for line in lines[1:]]
        expected = {"PatientID": "PID3", "Modality": "MR", "ScheduledStationAETitle": "MRAE",
                    "ScheduledProcedureStepStartDate": "20240303", "RequestedProcedureID": "RP3"}
        self.assertEqual([{k: row[k] for k in expected} for row in rows], [expected])

        result = self.worklist("--json", "-k", "0040,0002=20240301-20240302")
        self.assertEqual(result.returncode, 0, result.stderr)
        answers = json.loads(result.stdout)
        self.assertEqual(sorted(a["00100020"]["Value"][0] for a in answers), ["PID1", "PID2"])
        step = answers[0]["00400100"]["Value"][0]
        self.assertEqual(step["00400009"]["vr"], "SH")

    def test_usage_and_refusal(self):
        self.assertEqual(self.worklist("-k", "NoSuchKeyword=1").returncode, 64)
        result = run(KESTREL, "worklist", "--aec", "NOSUCHAE", "127.0.0.1", self.port)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("Unable to connect", result.stderr)


if __name__ == "__main__":
    unittest.main()
