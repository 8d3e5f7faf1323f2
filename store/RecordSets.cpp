#include "kestrel/RecordSets.h"

// The bindings below are the image database's schema as the workstation knows it: the column
// names, the order of the calls and the default SQL, filters and sorts are what callers and
// other programs on the same database depend on, so they are kept exactly.

namespace {

constexpr char kImageDatabase[] = "ODBC;DSN=DICOMServer;UID=admin";
constexpr char kImageDatabaseNoUser[] = "ODBC;DSN=DICOMServer";
constexpr char kSeriesSort[] = "[SeriesDate] ASC, [SeriesTime] ASC, [SeriesNumber] ASC";

}  // namespace

// --- Patient ---

CPatientSet::CPatientSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
}
std::string CPatientSet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CPatientSet::GetDefaultSQL() { return "[Patient]"; }
void CPatientSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[EthnicGroup]", EthnicGroup);
  pFX->Text("[OtherPatientID]", OtherPatientID);
  pFX->Text("[OtherPatientNames]", OtherPatientNames);
  pFX->Text("[PatientBirthTime]", PatientBirthTime);
  pFX->Text("[PatientComments]", PatientComments);
  pFX->Text("[PatientID]", PatientID);
  pFX->Text("[PatientsBirthDate]", PatientsBirthDate);
  pFX->Text("[PatientsName]", PatientsName);
  pFX->Text("[PatientsSex]", PatientsSex);
  pFX->Long("[PatientUID]", PatientUID);
}

CPatientQuerySet::CPatientQuerySet(CDatabase* pDatabase) : CPatientSet(pDatabase) {}

// --- Study ---

CStudySet::CStudySet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) { SetDefaultType(dynaset); }
std::string CStudySet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CStudySet::GetDefaultSQL() { return "[Study]"; }
void CStudySet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[AccessDate]", AccessDate);
  pFX->Text("[AccessionNumber]", AccessionNumber);
  pFX->Text("[AccessTime]", AccessTime);
  pFX->Text("[AdditionalPatientsHistory]", AdditionalPatientsHistory);
  pFX->Text("[AdmittingDiagnosesDescription]", AdmittingDiagnosesDescription);
  pFX->Text("[Modality]", Modality);
  pFX->Text("[NameOfPhysiciansReadingStudy]", NameOfPhysiciansReadingStudy);
  pFX->Text("[Occupation]", Occupation);
  pFX->Text("[OperatorsName]", OperatorsName);
  pFX->Text("[PatientID]", PatientID);
  pFX->Text("[PatientsAge]", PatientsAge);
  pFX->Text("[PatientsSize]", PatientsSize);
  pFX->Text("[PatientsWeight]", PatientsWeight);
  pFX->Long("[PatientUID]", PatientUID);
  pFX->Text("[ReferencedStudySequence]", ReferencedStudySequence);
  pFX->Text("[ReferringPhysiciansName]", ReferringPhysiciansName);
  pFX->Text("[Status]", Status);
  pFX->Text("[StudyDate]", StudyDate);
  pFX->Text("[StudyDescription]", StudyDescription);
  pFX->Text("[StudyID]", StudyID);
  pFX->Text("[StudyInstanceUID]", StudyInstanceUID);
  pFX->Text("[StudyTime]", StudyTime);
  pFX->Text("[InstitutionalDepartmentName]", InstitutionalDepartmentName);
  pFX->Text("[InstitutionName]", InstitutionName);
}

// --- Study joined with Patient ---

CStudyQuerySet::CStudyQuerySet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
  Filter = "[Study].PatientUID = [Patient].PatientUID";
}
std::string CStudyQuerySet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CStudyQuerySet::GetDefaultSQL() { return "[Study], [Patient]"; }
void CStudyQuerySet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[AccessDate]", AccessDate);
  pFX->Text("[AccessionNumber]", AccessionNumber);
  pFX->Text("[AccessTime]", AccessTime);
  pFX->Text("[AdditionalPatientsHistory]", AdditionalPatientsHistory);
  pFX->Text("[AdmittingDiagnosesDescription]", AdmittingDiagnosesDescription);
  pFX->Text("[EthnicGroup]", EthnicGroup);
  pFX->Text("[Modality]", Modality);
  pFX->Text("[NameOfPhysiciansReadingStudy]", NameOfPhysiciansReadingStudy);
  pFX->Text("[Occupation]", Occupation);
  pFX->Text("[OperatorsName]", OperatorsName);
  pFX->Text("[OtherPatientID]", OtherPatientID);
  pFX->Text("[OtherPatientNames]", OtherPatientNames);
  pFX->Text("[Patient].PatientID", PatientPatientID);
  pFX->Long("[Patient].PatientUID", PatientPatientUID);
  pFX->Text("[PatientBirthTime]", PatientBirthTime);
  pFX->Text("[PatientComments]", PatientComments);
  pFX->Text("[PatientsAge]", PatientsAge);
  pFX->Text("[PatientsBirthDate]", PatientsBirthDate);
  pFX->Text("[PatientsName]", PatientsName);
  pFX->Text("[PatientsSex]", PatientsSex);
  pFX->Text("[PatientsSize]", PatientsSize);
  pFX->Text("[PatientsWeight]", PatientsWeight);
  pFX->Text("[ReferencedStudySequence]", ReferencedStudySequence);
  pFX->Text("[ReferringPhysiciansName]", ReferringPhysiciansName);
  pFX->Text("[Status]", Status);
  pFX->Text("[Study].PatientID", StudyPatientID);
  pFX->Long("[Study].PatientUID", StudyPatientUID);
  pFX->Text("[StudyDate]", StudyDate);
  pFX->Text("[StudyDescription]", StudyDescription);
  pFX->Text("[StudyID]", StudyID);
  pFX->Text("[StudyInstanceUID]", StudyInstanceUID);
  pFX->Text("[StudyTime]", StudyTime);
  pFX->Text("[InstitutionName]", InstitutionName);
  pFX->Text("[InstitutionalDepartmentName]", InstitutionalDepartmentName);
}

// --- Series ---

CSeriesSet::CSeriesSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
  Sort = kSeriesSort;
}
std::string CSeriesSet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CSeriesSet::GetDefaultSQL() { return "[Series]"; }
void CSeriesSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[BodyPartExamined]", BodyPartExamined);
  pFX->Text("[LargestPixelValueInSeries]", LargestPixelValueInSeries);
  pFX->Text("[Laterality]", Laterality);
  pFX->Text("[Modality]", Modality);
  pFX->Text("[OperatorsName]", OperatorsName);
  pFX->Text("[PatientPosition]", PatientPosition);
  pFX->Text("[PerformingPhysiciansName]", PerformingPhysiciansName);
  pFX->Text("[ProtocolName]", ProtocolName);
  pFX->Text("[ReferencedStudyComponent]", ReferencedStudyComponent);
  pFX->Text("[SeriesDate]", SeriesDate);
  pFX->Text("[SeriesDescription]", SeriesDescription);
  pFX->Text("[SeriesInstanceUID]", SeriesInstanceUID);
  pFX->Text("[SeriesNumber]", SeriesNumber);
  pFX->Text("[SeriesTime]", SeriesTime);
  pFX->Text("[SmallestPixelValueInSeries]", SmallestPixelValueInSeries);
  pFX->Text("[FrameOfReferenceUID]", FrameOfReferenceUID);
}

// --- Series with image counts ---

CSeriesQuerySet::CSeriesQuerySet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(forwardOnly);
  Sort = kSeriesSort;
}
std::string CSeriesQuerySet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CSeriesQuerySet::GetDefaultSQL() {
  return "SELECT [Series].*, 0 as NumImages from [Series]";
}
void CSeriesQuerySet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[Modality]", Modality);
  pFX->Text("[SeriesInstanceUID]", SeriesInstanceUID);
  pFX->Text("[SeriesNumber]", SeriesNumber);
  pFX->Text("[Laterality]", Laterality);
  pFX->Text("[SeriesDate]", SeriesDate);
  pFX->Text("[SeriesTime]", SeriesTime);
  pFX->Text("[PerformingPhysiciansName]", PerformingPhysiciansName);
  pFX->Text("[ProtocolName]", ProtocolName);
  pFX->Text("[SeriesDescription]", SeriesDescription);
  pFX->Text("[OperatorsName]", OperatorsName);
  pFX->Text("[ReferencedStudyComponent]", ReferencedStudyComponent);
  pFX->Text("[BodyPartExamined]", BodyPartExamined);
  pFX->Text("[PatientPosition]", PatientPosition);
  pFX->Text("[SmallestPixelValueInSeries]", SmallestPixelValueInSeries);
  pFX->Text("[LargestPixelValueInSeries]", LargestPixelValueInSeries);
  pFX->Text("[FrameOfReferenceUID]", FrameOfReferenceUID);
  pFX->Int("[NumImages]", NumImages);
}

// --- Image ---

CImageSet::CImageSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) { SetDefaultType(dynaset); }
std::string CImageSet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CImageSet::GetDefaultSQL() { return "[Image]"; }
void CImageSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[SOPInstanceUID]", SOPInstanceUID);
  pFX->Text("[SeriesInstanceUID]", SeriesInstanceUID);
  pFX->Text("[StudyInstanceUID]", StudyInstanceUID);
  pFX->Text("[Modality]", Modality);
  pFX->Text("[SliceThickness]", SliceThickness);
  pFX->Text("[SpacingBetweenSlices]", SpacingBetweenSlices);
  pFX->Text("[InstanceNumber]", InstanceNumber);
  pFX->Text("[ImagePositionPatient]", ImagePositionPatient);
  pFX->Text("[ImageOrientationPatient]", ImageOrientationPatient);
  pFX->Text("[SliceLocation]", SliceLocation);
  pFX->Text("[AcquisitionTime]", AcquisitionTime);
  pFX->Text("[ImageTime]", ImageTime);
  pFX->Text("[SamplesPerPixel]", SamplesPerPixel);
  pFX->Text("[PhotometricInterpretation]", PhotometricInterpretation);
  pFX->Text("[PlanarConfiguration]", PlanarConfiguration);
  pFX->Text("[NumberOfFrames]", NumberOfFrames);
  pFX->Text("[Rows]", Rows);
  pFX->Text("[Columns]", Columns);
  pFX->Text("[PixelSpacing]", PixelSpacing);
  pFX->Text("[ImagerPixelSpacing]", ImagerPixelSpacing);
  pFX->Text("[PixelAspectRatio]", PixelAspectRatio);
  pFX->Text("[BitsAllocated]", BitsAllocated);
  pFX->Text("[BitsStored]", BitsStored);
  pFX->Text("[HighBit]", HighBit);
  pFX->Text("[PixelRepresentation]", PixelRepresentation);
  pFX->Text("[LossyImageCompression]", LossyImageCompression);
  pFX->Text("[EchoNumbers]", EchoNumbers);
  pFX->Text("[TransferSyntax]", TransferSyntax);
  pFX->Text("[SOPClassUID]", SOPClassUID);
  pFX->Text("[Manufacturer]", Manufacturer);
  pFX->Text("[ViewPosition]", ViewPosition);
  pFX->Text("[Laterality]", Laterality);
  pFX->Text("[PresentationIntentType]", PresentationIntentType);
  pFX->Text("[SeriesNumber]", SeriesNumber);
  pFX->Text("[SeriesDescription]", SeriesDescription);
  pFX->Text("[BodyPartExamined]", BodyPartExamined);
  pFX->Text("[ProtocolName]", ProtocolName);
  pFX->Text("[ManufacturersModelName]", ManufacturersModelName);
  pFX->Text("[ImageType]", ImageType);
  pFX->Text("[ViewCodeSequenceMeaning]", ViewCodeSequenceMeaning);
  pFX->Text("[ImageLaterality]", ImageLaterality);
  pFX->Text("[ConvolutionKernel]", ConvolutionKernel);
  pFX->Text("[FrameOfReferenceUID]", FrameOfReferenceUID);
}

// --- Server ---

CServersSet::CServersSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
}
std::string CServersSet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CServersSet::GetDefaultSQL() { return "[Server]"; }
void CServersSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Text("[AE Title]", AETitle);
  pFX->Text("[Hostname]", Hostname);
  pFX->Text("[Port]", Port);
  pFX->Long("[Server ID]", ServerID);
  pFX->Text("[Description]", Description);
  pFX->Text("[Type]", Type);
  pFX->Text("[DeviceID]", DeviceID);
  pFX->Text("[Source]", Source);
  pFX->Int("[Default]", Default);
}

// --- Login ---

CLoginSet::CLoginSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) { SetDefaultType(dynaset); }
std::string CLoginSet::GetDefaultConnect() { return SharedOrDefaultConnect(kImageDatabase); }
std::string CLoginSet::GetDefaultSQL() { return "[Login]"; }
void CLoginSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Long("[Index]", Index);
  pFX->Text("[Description]", Description);
  pFX->Text("[DomainNameOrWebService]", DomainNameOrWebService);
  pFX->Text("[Type]", Type);
}

// --- Presets ---

CPresetsSet::CPresetsSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
}
std::string CPresetsSet::GetDefaultConnect() { return kImageDatabaseNoUser; }
std::string CPresetsSet::GetDefaultSQL() { return "[Presets]"; }
void CPresetsSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Long("[FnKey]", FnKey);
  pFX->Long("[Level]", Level);
  pFX->Text("[Modality]", Modality);
  pFX->Text("[Preset]", Preset);
  pFX->Long("[PresetID]", PresetID);
  pFX->Long("[Window]", Window);
}

// --- Template ---

CTemplateSet::CTemplateSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
}
std::string CTemplateSet::GetDefaultConnect() { return kImageDatabase; }
std::string CTemplateSet::GetDefaultSQL() { return "[Template]"; }
void CTemplateSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Long("[Index]", Index);
  pFX->Text("[SOPInstanceUID]", SOPInstanceUID);
  pFX->Text("[SeriesInstanceUID]", SeriesInstanceUID);
  pFX->Text("[StudyInstanceUID]", StudyInstanceUID);
  pFX->Text("[Filename]", Filename);
  pFX->Double("[OffsetX]", OffsetX);
  pFX->Double("[OffsetY]", OffsetY);
  pFX->Double("[Angle]", Angle);
  pFX->Double("[RotateAxisX]", RotateAxisX);
  pFX->Double("[RotateAxisY]", RotateAxisY);
  pFX->Long("[FlippedHorz]", FlippedHorz);
  pFX->Long("[FlippedVert]", FlippedVert);
  pFX->Long("[Locked]", Locked);
  pFX->Long("[Labelled]", Labelled);
  pFX->Double("[LabelX]", LabelX);
  pFX->Double("[LabelY]", LabelY);
  pFX->Double("[PixelSpacingColumn]", PixelSpacingColumn);
  pFX->Double("[PixelSpacingRow]", PixelSpacingRow);
  pFX->Long("[CheckSum]", CheckSum);
}

// --- TemplateAttachment ---

CTemplateAttachmentSet::CTemplateAttachmentSet(CDatabase* pDatabase) : CBasicRecordset(pDatabase) {
  SetDefaultType(dynaset);
}
std::string CTemplateAttachmentSet::GetDefaultConnect() { return kImageDatabaseNoUser; }
std::string CTemplateAttachmentSet::GetDefaultSQL() { return "[TemplateAttachment]"; }
void CTemplateAttachmentSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->Long("[Index]", Index);
  pFX->Text("[SOPInstanceUID]", SOPInstanceUID);
  pFX->Text("[SeriesInstanceUID]", SeriesInstanceUID);
  pFX->Text("[StudyInstanceUID]", StudyInstanceUID);
  pFX->Long("[Index1]", Index1);
  pFX->Long("[Index2]", Index2);
  pFX->Text("[PointName1]", PointName1);
  pFX->Text("[PointName2]", PointName2);
}
