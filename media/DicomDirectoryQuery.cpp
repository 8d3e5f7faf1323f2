// What is done with a directory once read: the study query, the clean-up of what the
// workstation cannot show, and the list of the files it references.
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kestrel/CDicomDirectory.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/KeyMatching.h"

namespace {

void SetSlot(CResult& row, int slot, const std::string& value) {
  if (!value.empty()) row.SetAt(slot, new std::string(value));
}

bool StudyHasModality(const CStudy& study, const std::string& modality) {
  for (const auto& series : study.Series)
    if (KESTREL::MatchKey(modality, series->Modality, "CS")) return true;
  return false;
}

std::unique_ptr<CResult> StudyRow(const CPatient& patient, const CStudy& study) {
  auto row = std::make_unique<CResult>();
  row->SetSize(CDicomDirectory::kStudyResultSize);
  SetSlot(*row, CDicomDirectory::kStudyInstanceUID, study.StudyInstanceUID);
  SetSlot(*row, CDicomDirectory::kStudyID, study.StudyID);
  SetSlot(*row, CDicomDirectory::kStudyDate, study.StudyDate);
  SetSlot(*row, CDicomDirectory::kStudyTime, study.StudyTime);
  SetSlot(*row, CDicomDirectory::kAccessionNumber, study.AccessionNumber);
  SetSlot(*row, CDicomDirectory::kReferringPhysicianName, study.ReferringPhysicianName);
  SetSlot(*row, CDicomDirectory::kStudyDescription, study.StudyDescription);
  SetSlot(*row, CDicomDirectory::kPatientName, patient.PatientName);
  SetSlot(*row, CDicomDirectory::kPatientID, patient.PatientID);
  std::set<std::string> seen;
  std::string modalities;
  size_t images = 0;
  for (const auto& series : study.Series) {
    images += series->Images.size();
    if (series->Modality.empty() || !seen.insert(series->Modality).second) continue;
    modalities += (modalities.empty() ? "" : "\\") + series->Modality;
  }
  SetSlot(*row, CDicomDirectory::kModalitiesInStudy, modalities);
  row->SetAt(CDicomDirectory::kNumberOfSeries,
             new std::string(std::to_string(study.Series.size())));
  row->SetAt(CDicomDirectory::kNumberOfImages, new std::string(std::to_string(images)));
  return row;
}

// Removes the elements `drop` says so of; the number removed.
template <class T, class Drop>
int RemoveIf(std::vector<std::unique_ptr<T>>& nodes, Drop drop) {
  int removed = 0;
  for (auto it = nodes.begin(); it != nodes.end();) {
    if (drop(**it)) {
      it = nodes.erase(it);
      ++removed;
    } else {
      ++it;
    }
  }
  return removed;
}

template <class T>
int RemoveAll(std::vector<std::unique_ptr<T>>& nodes) {
  int removed = static_cast<int>(nodes.size());
  nodes.clear();
  return removed;
}

void AddFile(std::vector<CDicomDirectory::ReferencedFile>& files, const CDirectoryRecord& record,
             const CPatient* patient, const CStudy* study, const CSeries* series) {
  if (record.FileID.empty()) return;
  CDicomDirectory::ReferencedFile file;
  file.Path = record.Path;
  file.FileID = record.FileID;
  file.RecordType = record.RecordType;
  file.SOPClassUID = record.SOPClassUID;
  file.SOPInstanceUID = record.SOPInstanceUID;
  file.TransferSyntaxUID = record.TransferSyntaxUID;
  if (patient) file.PatientID = patient->PatientID;
  if (study) file.StudyInstanceUID = study->StudyInstanceUID;
  if (series) file.SeriesInstanceUID = series->SeriesInstanceUID;
  file.Supported = record.Supported;
  files.push_back(std::move(file));
}

}  // namespace

int CDicomDirectory::StudyQuery(CResultsArray* pResults, const std::string& patientName,
                                const std::string& patientID, const std::string& studyDate,
                                const std::string& modality) const {
  if (!pResults) return 0;
  for (const auto& patient : patients_) {
    if (!KESTREL::MatchKey(patientName, patient->PatientName, "PN") ||
        !KESTREL::MatchKey(patientID, patient->PatientID, "LO"))
      continue;
    for (const auto& study : patient->Studies) {
      if (!KESTREL::MatchKey(studyDate, study->StudyDate, "DA")) continue;
      if (!KESTREL::TrimPadding(modality).empty() && !StudyHasModality(*study, modality)) continue;
      pResults->Add(StudyRow(*patient, *study).release());
    }
  }
  return 1;
}

int CDicomDirectory::RemoveUnsupported() {
  int removed = RemoveAll(others_);
  for (auto& patient : patients_) {
    removed += RemoveAll(patient->Others);
    for (auto& study : patient->Studies) {
      removed += RemoveAll(study->Others);
      for (auto& series : study->Series) {
        removed += RemoveAll(series->Others);
        removed += RemoveIf(series->Images, [](const CImages& image) { return !image.Supported; });
      }
      removed += RemoveIf(study->Series, [](const CSeries& s) { return s.Images.empty(); });
    }
    removed += RemoveIf(patient->Studies, [](const CStudy& s) { return s.Series.empty(); });
  }
  removed += RemoveIf(patients_, [](const CPatient& p) { return p.Studies.empty(); });
  return removed;
}

void CDicomDirectory::GetReferencedFiles(std::vector<ReferencedFile>& files) const {
  files.clear();
  for (const auto& patient : patients_) {
    for (const auto& study : patient->Studies) {
      for (const auto& series : study->Series) {
        for (const auto& image : series->Images)
          AddFile(files, *image, patient.get(), study.get(), series.get());
        for (const auto& other : series->Others)
          AddFile(files, *other, patient.get(), study.get(), series.get());
      }
      for (const auto& other : study->Others)
        AddFile(files, *other, patient.get(), study.get(), nullptr);
    }
    for (const auto& other : patient->Others)
      AddFile(files, *other, patient.get(), nullptr, nullptr);
  }
  for (const auto& other : others_) AddFile(files, *other, nullptr, nullptr, nullptr);
}
