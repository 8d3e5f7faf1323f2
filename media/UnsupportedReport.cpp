// The objects of a medium the workstation cannot show, collected per patient and study, and
// the report that tells the user about them.
#include <string>

#include "kestrel/CDicomDirectory.h"
#include "kestrel/ModalityStorage.h"

namespace {

// The image classes the storage objects handle (ModalityStorage.h): what the workstation
// can show.
constexpr const char* kSupported[] = {
    CCRStorage::kSOPClassUID,   CCTStorage::kSOPClassUID,  CDXStorage::kSOPClassUID,
    CDXRStorage::kSOPClassUID,  CMGStorage::kSOPClassUID,  CMGRStorage::kSOPClassUID,
    CMRStorage::kSOPClassUID,   CNMStorage::kSOPClassUID,  CNMNStorage::kSOPClassUID,
    CPETStorage::kSOPClassUID,  CRFStorage::kSOPClassUID,  CSCStorage::kSOPClassUID,
    CUSStorage::kSOPClassUID,   CUSNStorage::kSOPClassUID, CUSMStorage::kSOPClassUID,
    CUSNMStorage::kSOPClassUID, CXAStorage::kSOPClassUID,  CXABiStorage::kSOPClassUID,
};

template <class Set, class Name>
std::string Joined(const Set& values, Name name) {
  std::string out;
  for (const std::string& value : values) {
    if (!out.empty()) out += ", ";
    out += name(value);
  }
  return out;
}

std::string StudyText(const CDicomDirectory::UnsupportedStudy& study) {
  std::string text = "\t- Study ID: " + study.StudyID +
                     "\r\n\t- Study Description: " + study.StudyDescription +
                     "\r\n\t- Study Date: " + study.StudyDate + "\r\n";
  text += "\t\t- Affected Modalities in Study: " +
          Joined(study.Modalities, [](const std::string& m) { return m; }) + "\r\n";
  text += "\t\t- Unsupported SOP Classes: " +
          Joined(study.SOPClassUIDs, &CDicomDirectory::GetSOPClassDescription) + "\r\n";
  if (study.PrivateRecord)
    text += "\t\t- At least one directory record of type PRIVATE was encountered\r\n";
  return text;
}

}  // namespace

bool CDicomDirectory::IsSupportedSOPClass(const std::string& uid) {
  for (const char* supported : kSupported)
    if (uid == supported) return true;
  return false;
}

void CDicomDirectory::NoteUnsupported(const CPatient& patient, const CStudy& study,
                                      const std::string& modality, const std::string& sopClassUID,
                                      bool privateRecord) {
  UnsupportedPatient& p = unsupported_[{patient.PatientID, patient.PatientName}];
  p.PatientID = patient.PatientID;
  p.PatientName = patient.PatientName;
  const std::string& key = study.StudyInstanceUID.empty() ? study.StudyID : study.StudyInstanceUID;
  UnsupportedStudy& s = p.Studies[key];
  s.StudyID = study.StudyID;
  s.StudyDescription = study.StudyDescription;
  s.StudyDate = study.StudyDate;
  if (!modality.empty()) s.Modalities.insert(modality);
  if (!sopClassUID.empty()) s.SOPClassUIDs.insert(sopClassUID);
  s.PrivateRecord = s.PrivateRecord || privateRecord;
}

void CDicomDirectory::GetUnsupportedMessage(std::string& text) const {
  text.clear();
  for (const auto& [key, patient] : unsupported_) {
    if (!text.empty()) text += "\r\n\r\n";
    text +=
        "Patient ID: " + patient.PatientID + "\r\nPatient Name: " + patient.PatientName + "\r\n";
    bool first = true;
    for (const auto& [uid, study] : patient.Studies) {
      if (!first) text += "\r\n";
      first = false;
      text += StudyText(study);
    }
  }
}
