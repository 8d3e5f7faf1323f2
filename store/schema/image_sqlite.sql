-- The image database on SQLite. Identifiers are written in brackets, as everywhere in the
-- library, and put in the driver's quoting when the statements run. Columns are listed in the
-- order the record sets bind them. Tables that exist already are left as they are.

-- Readers never wait for a writer, and a writer waits only for another writer.
PRAGMA journal_mode = WAL;

CREATE TABLE IF NOT EXISTS [Patient] (
  [EthnicGroup] TEXT,
  [OtherPatientID] TEXT,
  [OtherPatientNames] TEXT,
  [PatientBirthTime] TEXT,
  [PatientComments] TEXT,
  [PatientID] TEXT,
  [PatientsBirthDate] TEXT,
  [PatientsName] TEXT,
  [PatientsSex] TEXT,
  [PatientUID] INTEGER PRIMARY KEY AUTOINCREMENT
);
-- One row per patient ID and name, whoever writes: the storing code matches patients on
-- these two, and a name that is null is one name (SQLite keeps nulls apart in a unique
-- index, so the index takes char(0) in their place).
CREATE UNIQUE INDEX IF NOT EXISTS [Patient_PatientIDName]
  ON [Patient] ([PatientID], ifnull([PatientsName], char(0)));

CREATE TABLE IF NOT EXISTS [Study] (
  [AccessDate] TEXT,
  [AccessionNumber] TEXT,
  [AccessTime] TEXT,
  [AdditionalPatientsHistory] TEXT,
  [AdmittingDiagnosesDescription] TEXT,
  [Modality] TEXT,
  [NameOfPhysiciansReadingStudy] TEXT,
  [Occupation] TEXT,
  [OperatorsName] TEXT,
  [PatientID] TEXT,
  [PatientsAge] TEXT,
  [PatientsSize] TEXT,
  [PatientsWeight] TEXT,
  [PatientUID] INTEGER,
  [ReferencedStudySequence] TEXT,
  [ReferringPhysiciansName] TEXT,
  [Status] TEXT,
  [StudyDate] TEXT,
  [StudyDescription] TEXT,
  [StudyID] TEXT,
  [StudyInstanceUID] TEXT NOT NULL PRIMARY KEY,
  [StudyTime] TEXT,
  [InstitutionalDepartmentName] TEXT,
  [InstitutionName] TEXT
);
CREATE INDEX IF NOT EXISTS [Study_PatientUID] ON [Study] ([PatientUID]);

CREATE TABLE IF NOT EXISTS [Series] (
  [BodyPartExamined] TEXT,
  [LargestPixelValueInSeries] TEXT,
  [Laterality] TEXT,
  [Modality] TEXT,
  [OperatorsName] TEXT,
  [PatientPosition] TEXT,
  [PerformingPhysiciansName] TEXT,
  [ProtocolName] TEXT,
  [ReferencedStudyComponent] TEXT,
  [SeriesDate] TEXT,
  [SeriesDescription] TEXT,
  [SeriesInstanceUID] TEXT NOT NULL PRIMARY KEY,
  [SeriesNumber] TEXT,
  [SeriesTime] TEXT,
  [SmallestPixelValueInSeries] TEXT,
  [FrameOfReferenceUID] TEXT
);
CREATE INDEX IF NOT EXISTS [Series_ReferencedStudyComponent]
  ON [Series] ([ReferencedStudyComponent]);

CREATE TABLE IF NOT EXISTS [Image] (
  [SOPInstanceUID] TEXT NOT NULL PRIMARY KEY,
  [SeriesInstanceUID] TEXT,
  [StudyInstanceUID] TEXT,
  [Modality] TEXT,
  [SliceThickness] TEXT,
  [SpacingBetweenSlices] TEXT,
  [InstanceNumber] TEXT,
  [ImagePositionPatient] TEXT,
  [ImageOrientationPatient] TEXT,
  [SliceLocation] TEXT,
  [AcquisitionTime] TEXT,
  [ImageTime] TEXT,
  [SamplesPerPixel] TEXT,
  [PhotometricInterpretation] TEXT,
  [PlanarConfiguration] TEXT,
  [NumberOfFrames] TEXT,
  [Rows] TEXT,
  [Columns] TEXT,
  [PixelSpacing] TEXT,
  [ImagerPixelSpacing] TEXT,
  [PixelAspectRatio] TEXT,
  [BitsAllocated] TEXT,
  [BitsStored] TEXT,
  [HighBit] TEXT,
  [PixelRepresentation] TEXT,
  [LossyImageCompression] TEXT,
  [EchoNumbers] TEXT,
  [TransferSyntax] TEXT,
  [SOPClassUID] TEXT,
  [Manufacturer] TEXT,
  [ViewPosition] TEXT,
  [Laterality] TEXT,
  [PresentationIntentType] TEXT,
  [SeriesNumber] TEXT,
  [SeriesDescription] TEXT,
  [BodyPartExamined] TEXT,
  [ProtocolName] TEXT,
  [ManufacturersModelName] TEXT,
  [ImageType] TEXT,
  [ViewCodeSequenceMeaning] TEXT,
  [ImageLaterality] TEXT,
  [ConvolutionKernel] TEXT,
  [FrameOfReferenceUID] TEXT
);
CREATE INDEX IF NOT EXISTS [Image_SeriesInstanceUID] ON [Image] ([SeriesInstanceUID]);
CREATE INDEX IF NOT EXISTS [Image_StudyInstanceUID] ON [Image] ([StudyInstanceUID]);

CREATE TABLE IF NOT EXISTS [Server] (
  [AE Title] TEXT,
  [Hostname] TEXT,
  [Port] TEXT,
  [Server ID] INTEGER PRIMARY KEY AUTOINCREMENT,
  [Description] TEXT,
  [Type] TEXT,
  [DeviceID] TEXT,
  [Source] TEXT,
  [Default] INTEGER NOT NULL DEFAULT 0
);
CREATE INDEX IF NOT EXISTS [Server_AETitle] ON [Server] ([AE Title]);

CREATE TABLE IF NOT EXISTS [Login] (
  [Index] INTEGER PRIMARY KEY AUTOINCREMENT,
  [Description] TEXT,
  [DomainNameOrWebService] TEXT,
  [Type] TEXT
);

CREATE TABLE IF NOT EXISTS [Presets] (
  [FnKey] INTEGER,
  [Level] INTEGER,
  [Modality] TEXT,
  [Preset] TEXT,
  [PresetID] INTEGER PRIMARY KEY AUTOINCREMENT,
  [Window] INTEGER
);

CREATE TABLE IF NOT EXISTS [Template] (
  [Index] INTEGER PRIMARY KEY AUTOINCREMENT,
  [SOPInstanceUID] TEXT,
  [SeriesInstanceUID] TEXT,
  [StudyInstanceUID] TEXT,
  [Filename] TEXT,
  [OffsetX] REAL,
  [OffsetY] REAL,
  [Angle] REAL,
  [RotateAxisX] REAL,
  [RotateAxisY] REAL,
  [FlippedHorz] INTEGER,
  [FlippedVert] INTEGER,
  [Locked] INTEGER,
  [Labelled] INTEGER,
  [LabelX] REAL,
  [LabelY] REAL,
  [PixelSpacingColumn] REAL,
  [PixelSpacingRow] REAL,
  [CheckSum] INTEGER
);
CREATE INDEX IF NOT EXISTS [Template_SOPInstanceUID] ON [Template] ([SOPInstanceUID]);

CREATE TABLE IF NOT EXISTS [TemplateAttachment] (
  [Index] INTEGER PRIMARY KEY AUTOINCREMENT,
  [SOPInstanceUID] TEXT,
  [SeriesInstanceUID] TEXT,
  [StudyInstanceUID] TEXT,
  [Index1] INTEGER,
  [Index2] INTEGER,
  [PointName1] TEXT,
  [PointName2] TEXT
);
CREATE INDEX IF NOT EXISTS [TemplateAttachment_SOPInstanceUID]
  ON [TemplateAttachment] ([SOPInstanceUID]);
