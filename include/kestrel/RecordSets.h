#pragma once

// The record sets of the image database, one per table or join. Each binds its columns, in the
// order listed, to the public fields of the same names; text columns are read up to 255 bytes.
// Unless a set says otherwise it connects with "ODBC;DSN=DICOMServer;UID=admin" when it was
// given no connection or one whose connect string is empty, and with that connection's connect
// string otherwise (see GetDefaultConnect).

#include <cstdint>
#include <string>

#include "kestrel/CBasicRecordset.h"
#include "kestrel/Export.h"

// Table Patient; SQL "[Patient]".
class KESTREL_API CPatientSet : public CBasicRecordset {
 public:
  explicit CPatientSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string EthnicGroup;
  std::string OtherPatientID;
  std::string OtherPatientNames;
  std::string PatientBirthTime;
  std::string PatientComments;
  std::string PatientID;
  std::string PatientsBirthDate;
  std::string PatientsName;
  std::string PatientsSex;
  int32_t PatientUID = 0;  // the row's key; studies refer to it
};

// The same columns, SQL and bindings as CPatientSet, for the query services.
class KESTREL_API CPatientQuerySet : public CPatientSet {
 public:
  explicit CPatientQuerySet(CDatabase* pDatabase = nullptr);
};

// Table Study; SQL "[Study]".
class KESTREL_API CStudySet : public CBasicRecordset {
 public:
  explicit CStudySet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string AccessDate;
  std::string AccessionNumber;
  std::string AccessTime;
  std::string AdditionalPatientsHistory;
  std::string AdmittingDiagnosesDescription;
  std::string Modality;
  std::string NameOfPhysiciansReadingStudy;
  std::string Occupation;
  std::string OperatorsName;
  std::string PatientID;
  std::string PatientsAge;
  std::string PatientsSize;
  std::string PatientsWeight;
  int32_t PatientUID = 0;  // key of the owning Patient row
  std::string ReferencedStudySequence;
  std::string ReferringPhysiciansName;
  std::string Status;
  std::string StudyDate;
  std::string StudyDescription;
  std::string StudyID;
  std::string StudyInstanceUID;
  std::string StudyTime;
  std::string InstitutionalDepartmentName;
  std::string InstitutionName;
};

// Study joined with its Patient: SQL "[Study], [Patient]", default filter
// "[Study].PatientUID = [Patient].PatientUID"; one row per study that has a patient. Read-only.
class KESTREL_API CStudyQuerySet : public CBasicRecordset {
 public:
  explicit CStudyQuerySet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string AccessDate;
  std::string AccessionNumber;
  std::string AccessTime;
  std::string AdditionalPatientsHistory;
  std::string AdmittingDiagnosesDescription;
  std::string EthnicGroup;
  std::string Modality;
  std::string NameOfPhysiciansReadingStudy;
  std::string Occupation;
  std::string OperatorsName;
  std::string OtherPatientID;
  std::string OtherPatientNames;
  std::string PatientPatientID;   // [Patient].PatientID
  int32_t PatientPatientUID = 0;  // [Patient].PatientUID
  std::string PatientBirthTime;
  std::string PatientComments;
  std::string PatientsAge;
  std::string PatientsBirthDate;
  std::string PatientsName;
  std::string PatientsSex;
  std::string PatientsSize;
  std::string PatientsWeight;
  std::string ReferencedStudySequence;
  std::string ReferringPhysiciansName;
  std::string Status;
  std::string StudyPatientID;   // [Study].PatientID
  int32_t StudyPatientUID = 0;  // [Study].PatientUID
  std::string StudyDate;
  std::string StudyDescription;
  std::string StudyID;
  std::string StudyInstanceUID;
  std::string StudyTime;
  std::string InstitutionName;
  std::string InstitutionalDepartmentName;
};

// Table Series; SQL "[Series]", default sort "[SeriesDate] ASC, [SeriesTime] ASC,
// [SeriesNumber] ASC".
class KESTREL_API CSeriesSet : public CBasicRecordset {
 public:
  explicit CSeriesSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string BodyPartExamined;
  std::string LargestPixelValueInSeries;
  std::string Laterality;
  std::string Modality;
  std::string OperatorsName;
  std::string PatientPosition;
  std::string PerformingPhysiciansName;
  std::string ProtocolName;
  std::string ReferencedStudyComponent;  // the owning study
  std::string SeriesDate;
  std::string SeriesDescription;
  std::string SeriesInstanceUID;
  std::string SeriesNumber;
  std::string SeriesTime;
  std::string SmallestPixelValueInSeries;
  std::string FrameOfReferenceUID;
};

// Series with an image count: SQL "SELECT [Series].*, 0 as NumImages from [Series]" (the query
// service gives SQL that counts), the sort of CSeriesSet, forward-only by default. Read-only.
class KESTREL_API CSeriesQuerySet : public CBasicRecordset {
 public:
  explicit CSeriesQuerySet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string Modality;
  std::string SeriesInstanceUID;
  std::string SeriesNumber;
  std::string Laterality;
  std::string SeriesDate;
  std::string SeriesTime;
  std::string PerformingPhysiciansName;
  std::string ProtocolName;
  std::string SeriesDescription;
  std::string OperatorsName;
  std::string ReferencedStudyComponent;
  std::string BodyPartExamined;
  std::string PatientPosition;
  std::string SmallestPixelValueInSeries;
  std::string LargestPixelValueInSeries;
  std::string FrameOfReferenceUID;
  int NumImages = 0;
};

// Table Image; SQL "[Image]"; 43 text columns.
class KESTREL_API CImageSet : public CBasicRecordset {
 public:
  explicit CImageSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string SOPInstanceUID;
  std::string SeriesInstanceUID;
  std::string StudyInstanceUID;
  std::string Modality;
  std::string SliceThickness;
  std::string SpacingBetweenSlices;
  std::string InstanceNumber;
  std::string ImagePositionPatient;
  std::string ImageOrientationPatient;
  std::string SliceLocation;
  std::string AcquisitionTime;
  std::string ImageTime;
  std::string SamplesPerPixel;
  std::string PhotometricInterpretation;
  std::string PlanarConfiguration;
  std::string NumberOfFrames;
  std::string Rows;
  std::string Columns;
  std::string PixelSpacing;
  std::string ImagerPixelSpacing;
  std::string PixelAspectRatio;
  std::string BitsAllocated;
  std::string BitsStored;
  std::string HighBit;
  std::string PixelRepresentation;
  std::string LossyImageCompression;
  std::string EchoNumbers;
  std::string TransferSyntax;
  std::string SOPClassUID;
  std::string Manufacturer;
  std::string ViewPosition;
  std::string Laterality;
  std::string PresentationIntentType;
  std::string SeriesNumber;
  std::string SeriesDescription;
  std::string BodyPartExamined;
  std::string ProtocolName;
  std::string ManufacturersModelName;
  std::string ImageType;
  std::string ViewCodeSequenceMeaning;
  std::string ImageLaterality;
  std::string ConvolutionKernel;
  std::string FrameOfReferenceUID;
};

// Table Server, the known DICOM nodes; SQL "[Server]".
class KESTREL_API CServersSet : public CBasicRecordset {
 public:
  explicit CServersSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  std::string AETitle;  // [AE Title]
  std::string Hostname;
  std::string Port;
  int32_t ServerID = 0;  // [Server ID], the row's key
  std::string Description;
  std::string Type;
  std::string DeviceID;
  std::string Source;
  int Default = 0;  // non-zero for the default node
};

// Table Login; SQL "[Login]".
class KESTREL_API CLoginSet : public CBasicRecordset {
 public:
  explicit CLoginSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  int32_t Index = 0;  // the row's key
  std::string Description;
  std::string DomainNameOrWebService;
  std::string Type;
};

// Table Presets; SQL "[Presets]"; always connects with "ODBC;DSN=DICOMServer".
class KESTREL_API CPresetsSet : public CBasicRecordset {
 public:
  explicit CPresetsSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  int32_t FnKey = 0;
  int32_t Level = 0;
  std::string Modality;
  std::string Preset;
  int32_t PresetID = 0;  // the row's key
  int32_t Window = 0;
};

// Table Template; SQL "[Template]"; always connects with "ODBC;DSN=DICOMServer;UID=admin".
class KESTREL_API CTemplateSet : public CBasicRecordset {
 public:
  explicit CTemplateSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  int32_t Index = 0;  // the row's key
  std::string SOPInstanceUID;
  std::string SeriesInstanceUID;
  std::string StudyInstanceUID;
  std::string Filename;
  double OffsetX = 0;
  double OffsetY = 0;
  double Angle = 0;
  double RotateAxisX = 0;
  double RotateAxisY = 0;
  int32_t FlippedHorz = 0;
  int32_t FlippedVert = 0;
  int32_t Locked = 0;
  int32_t Labelled = 0;
  double LabelX = 0;
  double LabelY = 0;
  double PixelSpacingColumn = 0;
  double PixelSpacingRow = 0;
  int32_t CheckSum = 0;
};

// Table TemplateAttachment; SQL "[TemplateAttachment]"; always connects with
// "ODBC;DSN=DICOMServer".
class KESTREL_API CTemplateAttachmentSet : public CBasicRecordset {
 public:
  explicit CTemplateAttachmentSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  int32_t Index = 0;  // the row's key
  std::string SOPInstanceUID;
  std::string SeriesInstanceUID;
  std::string StudyInstanceUID;
  int32_t Index1 = 0;
  int32_t Index2 = 0;
  std::string PointName1;
  std::string PointName2;
};
