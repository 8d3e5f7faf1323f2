-- The RIS order database on SQLite, for sites without a RIS of their own and for tests. SQLite
-- has no owners: "[dbo]." is dropped when the statements run, and the tables live in the main
-- file. Tables that exist already are left as they are.

PRAGMA journal_mode = WAL;

CREATE TABLE IF NOT EXISTS [dbo].[PatientTable] (
  [PatientTableID] TEXT NOT NULL PRIMARY KEY,
  [PatientID] TEXT,
  [FirstName] TEXT,
  [LastName] TEXT,
  [DOB] TIMESTAMP,
  [Sex] TEXT
);
CREATE INDEX IF NOT EXISTS [PatientTable_PatientID] ON [dbo].[PatientTable] ([PatientID]);

CREATE TABLE IF NOT EXISTS [dbo].[OrderTable] (
  [OrderTableID] TEXT NOT NULL PRIMARY KEY,
  [PatientID] TEXT,
  [DateTimeTrans] TIMESTAMP,
  [EnteredBy] TEXT,
  [FillerOrderNumber] TEXT,
  [Modality] TEXT,
  [OrderControl] TEXT,
  [OrderControlCodeReason] TEXT,
  [OrderingMD] TEXT,
  [OrderStatus] TEXT,
  [PlacerOrderNumber] TEXT,
  [PlacingLocation] TEXT,
  [Priority] TEXT,
  [Radiologist] TEXT,
  [StartDateTime] TIMESTAMP,
  [StudyDateTime] TIMESTAMP,
  [StudyDescription] TEXT,
  [StudyLocation] TEXT,
  [Technologist] TEXT,
  [VisitID] TEXT,
  [RequestedDateTime] TIMESTAMP,
  [FillerField1] TEXT,
  [Site] TEXT
);
CREATE INDEX IF NOT EXISTS [OrderTable_PatientID] ON [dbo].[OrderTable] ([PatientID]);
