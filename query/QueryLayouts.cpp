#include "QueryLayouts.h"

namespace KESTREL::query_layouts {

namespace {

constexpr Attribute kNotFilled = {0, 0, "", ""};

// Patient root (Patient Root Query/Retrieve Information Model - FIND, PS3.4 C.6.1).
constexpr Attribute kPatientRootPatient[] = {
    {0x0010, 0x0010, "PN", "PatientName"},
    {0x0010, 0x0020, "LO", "PatientID"},
    {0x0010, 0x0040, "CS", "PatientSex"},
    {0x0010, 0x0030, "DA", "PatientBirthDate"},
};
constexpr Attribute kPatientRootStudy[] = {
    {0x0020, 0x000D, "UI", "StudyInstanceUID"},
    {0x0020, 0x0010, "SH", "StudyID"},
    {0x0008, 0x0020, "DA", "StudyDate"},
    {0x0008, 0x0030, "TM", "StudyTime"},
    {0x0008, 0x0050, "SH", "AccessionNumber"},
    {0x0008, 0x0090, "PN", "ReferringPhysicianName"},
    kNotFilled,
    {0x0008, 0x1030, "LO", "StudyDescription"},
    {0x0008, 0x1040, "LO", "InstitutionalDepartmentName"},
};
constexpr Attribute kPatientRootSeries[] = {
    {0x0020, 0x000E, "UI", "SeriesInstanceUID"},
    {0x0020, 0x0011, "IS", "SeriesNumber"},
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
};
constexpr Attribute kPatientRootImage[] = {
    {0x0008, 0x0018, "UI", "SOPInstanceUID"},
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    {0x0020, 0x0013, "IS", "InstanceNumber"},
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
    kNotFilled,
};

// Study root (PS3.4 C.6.2): the patient-root slots where both have them, the rest filled with
// what a study list, a series list and an image list show.
constexpr Attribute kStudyRootStudy[] = {
    {0x0020, 0x000D, "UI", "StudyInstanceUID"},
    {0x0020, 0x0010, "SH", "StudyID"},
    {0x0008, 0x0020, "DA", "StudyDate"},
    {0x0008, 0x0030, "TM", "StudyTime"},
    {0x0008, 0x0050, "SH", "AccessionNumber"},
    {0x0008, 0x0090, "PN", "ReferringPhysicianName"},
    {0x0008, 0x0061, "CS", "ModalitiesInStudy"},
    {0x0008, 0x1030, "LO", "StudyDescription"},
    {0x0008, 0x1040, "LO", "InstitutionalDepartmentName"},
    {0x0010, 0x0010, "PN", "PatientName"},
    {0x0010, 0x0020, "LO", "PatientID"},
    {0x0010, 0x0030, "DA", "PatientBirthDate"},
    {0x0010, 0x0040, "CS", "PatientSex"},
    {0x0020, 0x1206, "IS", "NumberOfStudyRelatedSeries"},
    {0x0020, 0x1208, "IS", "NumberOfStudyRelatedInstances"},
};
constexpr Attribute kStudyRootSeries[] = {
    {0x0020, 0x000E, "UI", "SeriesInstanceUID"},
    {0x0020, 0x0011, "IS", "SeriesNumber"},
    {0x0008, 0x0060, "CS", "Modality"},
    {0x0008, 0x103E, "LO", "SeriesDescription"},
    {0x0008, 0x0021, "DA", "SeriesDate"},
    {0x0008, 0x0031, "TM", "SeriesTime"},
    {0x0018, 0x0015, "CS", "BodyPartExamined"},
    {0x0018, 0x1030, "LO", "ProtocolName"},
    {0x0020, 0x0060, "CS", "Laterality"},
    {0x0008, 0x1050, "PN", "PerformingPhysicianName"},
    {0x0008, 0x1070, "PN", "OperatorsName"},
    {0x0020, 0x1209, "IS", "NumberOfSeriesRelatedInstances"},
    {0x0020, 0x000D, "UI", "StudyInstanceUID"},
};
constexpr Attribute kStudyRootImage[] = {
    {0x0008, 0x0018, "UI", "SOPInstanceUID"},
    {0x0008, 0x0016, "UI", "SOPClassUID"},
    {0x0020, 0x000E, "UI", "SeriesInstanceUID"},
    {0x0020, 0x000D, "UI", "StudyInstanceUID"},
    {0x0008, 0x0008, "CS", "ImageType"},
    {0x0020, 0x0013, "IS", "InstanceNumber"},
    {0x0008, 0x0033, "TM", "ContentTime"},
    {0x0008, 0x0032, "TM", "AcquisitionTime"},
    {0x0028, 0x0010, "US", "Rows"},
    {0x0028, 0x0011, "US", "Columns"},
    {0x0028, 0x0008, "IS", "NumberOfFrames"},
    {0x0020, 0x1041, "DS", "SliceLocation"},
    {0x0020, 0x0032, "DS", "ImagePositionPatient"},
    {0x0020, 0x0037, "DS", "ImageOrientationPatient"},
    {0x0028, 0x0004, "CS", "PhotometricInterpretation"},
    {0x0018, 0x0050, "DS", "SliceThickness"},
};

template <size_t N>
constexpr Layout Of(const Attribute (&slots)[N]) {
  return Layout{slots, static_cast<int>(N)};
}

}  // namespace

Level LevelOf(const std::string& text) {
  for (Level level : {Level::kPatient, Level::kStudy, Level::kSeries, Level::kImage})
    if (text.find(LevelKeyword(level)) != std::string::npos) return level;
  return Level::kNone;
}

const char* LevelKeyword(Level level) {
  switch (level) {
    case Level::kPatient:
      return "PATIENT";
    case Level::kStudy:
      return "STUDY";
    case Level::kSeries:
      return "SERIES";
    case Level::kImage:
      return "IMAGE";
    default:
      return "";
  }
}

Layout RowLayout(Root root, Level level) {
  const bool patientRoot = root == Root::kPatient;
  switch (level) {
    case Level::kPatient:
      return patientRoot ? Of(kPatientRootPatient) : Layout();
    case Level::kStudy:
      return patientRoot ? Of(kPatientRootStudy) : Of(kStudyRootStudy);
    case Level::kSeries:
      return patientRoot ? Of(kPatientRootSeries) : Of(kStudyRootSeries);
    case Level::kImage:
      return patientRoot ? Of(kPatientRootImage) : Of(kStudyRootImage);
    default:
      return Layout();
  }
}

}  // namespace KESTREL::query_layouts
