// kestrel dicomdir show [--json] PATH: a DICOMDIR's patient/study/series/image tree, the
// problems met reading it, and the report of the objects the workstation cannot show.
// kestrel dicomdir make [--copy SOURCE] [--file-set-id ID] DIR: writes DIR/DICOMDIR for the
// DICOM files under DIR (with --copy, after copying SOURCE's files into DIR under PS3.10 names).
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "ExitCodes.h"
#include "kestrel/CDicomDirectory.h"
#include "kestrel/Status.h"

using nlohmann::ordered_json;

namespace {

struct ShowOptions {
  std::string path;
  bool json = false;
};

struct MakeOptions {
  std::string dir;
  std::string copyFrom;
  std::string fileSetID = "KESTREL";
  bool quiet = false;
};

std::string Lines(std::string text) {
  for (size_t at; (at = text.find("\r\n")) != std::string::npos;) text.erase(at, 1);
  return text;
}

ordered_json RecordJson(const CDirectoryRecord& record) {
  return {{"RecordType", record.RecordType},
          {"FileID", record.FileID},
          {"Path", record.Path},
          {"SOPClassUID", record.SOPClassUID},
          {"SOPClass", CDicomDirectory::GetSOPClassDescription(record.SOPClassUID)},
          {"SOPInstanceUID", record.SOPInstanceUID},
          {"TransferSyntaxUID", record.TransferSyntaxUID},
          {"InstanceNumber", record.InstanceNumber},
          {"Supported", record.Supported},
          {"Offset", record.Offset}};
}

template <class List>
ordered_json RecordsJson(const List& records) {
  ordered_json out = ordered_json::array();
  for (const auto& record : records) out.push_back(RecordJson(*record));
  return out;
}

ordered_json SeriesJson(const CSeries& series) {
  return {{"SeriesInstanceUID", series.SeriesInstanceUID}, {"Modality", series.Modality},
          {"SeriesNumber", series.SeriesNumber},           {"Offset", series.Offset},
          {"Images", RecordsJson(series.Images)},          {"Others", RecordsJson(series.Others)}};
}

ordered_json StudyJson(const CStudy& study) {
  ordered_json series = ordered_json::array();
  for (const auto& s : study.Series) series.push_back(SeriesJson(*s));
  return {{"StudyInstanceUID", study.StudyInstanceUID},
          {"StudyID", study.StudyID},
          {"StudyDate", study.StudyDate},
          {"StudyTime", study.StudyTime},
          {"StudyDescription", study.StudyDescription},
          {"AccessionNumber", study.AccessionNumber},
          {"ReferringPhysicianName", study.ReferringPhysicianName},
          {"Offset", study.Offset},
          {"Series", series},
          {"Others", RecordsJson(study.Others)}};
}

ordered_json DirectoryJson(const CDicomDirectory& directory) {
  ordered_json patients = ordered_json::array();
  for (const auto& patient : directory.GetPatients()) {
    ordered_json studies = ordered_json::array();
    for (const auto& study : patient->Studies) studies.push_back(StudyJson(*study));
    patients.push_back({{"PatientID", patient->PatientID},
                        {"PatientName", patient->PatientName},
                        {"PatientBirthDate", patient->PatientBirthDate},
                        {"PatientSex", patient->PatientSex},
                        {"Offset", patient->Offset},
                        {"Studies", studies},
                        {"Others", RecordsJson(patient->Others)}});
  }
  std::string report;
  directory.GetUnsupportedMessage(report);
  return {{"Path", directory.GetPath()},
          {"FileSetID", directory.GetFileSetID()},
          {"Patients", patients},
          {"Others", RecordsJson(directory.GetOtherObjects())},
          {"Problems", directory.GetProblems()},
          {"UnsupportedReport", report}};
}

void PrintRecord(const CDirectoryRecord& record, const char* indent) {
  std::cout << indent << record.RecordType << ' ' << record.FileID << "  "
            << CDicomDirectory::GetSOPClassDescription(record.SOPClassUID) << "  "
            << record.SOPInstanceUID << (record.Supported ? "" : "  (not supported)") << '\n';
}

void PrintTree(const CDicomDirectory& directory) {
  std::cout << "DICOMDIR " << directory.GetPath() << "  File-set ID: " << directory.GetFileSetID()
            << '\n';
  for (const auto& patient : directory.GetPatients()) {
    std::cout << "Patient " << patient->PatientID << "  " << patient->PatientName << '\n';
    for (const auto& study : patient->Studies) {
      std::cout << "  Study " << study->StudyInstanceUID << "  " << study->StudyDate << "  ID "
                << study->StudyID << "  " << study->StudyDescription << '\n';
      for (const auto& series : study->Series) {
        std::cout << "    Series " << series->SeriesInstanceUID << "  " << series->Modality << "  #"
                  << series->SeriesNumber << '\n';
        for (const auto& image : series->Images) PrintRecord(*image, "      ");
        for (const auto& other : series->Others) PrintRecord(*other, "      ");
      }
      for (const auto& other : study->Others) PrintRecord(*other, "    ");
    }
    for (const auto& other : patient->Others) PrintRecord(*other, "  ");
  }
  for (const auto& other : directory.GetOtherObjects()) PrintRecord(*other, "");
  if (!directory.GetProblems().empty()) {
    std::cout << "\nProblems:\n";
    for (const std::string& problem : directory.GetProblems()) std::cout << "  " << problem << '\n';
  }
  std::string report;
  directory.GetUnsupportedMessage(report);
  if (!report.empty()) std::cout << "\nObjects that cannot be shown:\n" << Lines(report);
}

void PrintLastError() {
  std::string text = KESTREL::GetLastErrorText();
  std::cerr << Lines(text);
  if (text.empty() || text.back() != '\n') std::cerr << '\n';
}

int RunShow(const ShowOptions& options) {
  CDicomDirectory directory;
  bool read = directory.Open(options.path) != 0;
  if (!read && directory.GetPatients().empty() && directory.GetOtherObjects().empty()) {
    PrintLastError();
    return kExitLocalFailure;
  }
  if (options.json)
    std::cout << DirectoryJson(directory).dump(2, ' ', false,
                                               ordered_json::error_handler_t::replace)
              << '\n';
  else
    PrintTree(directory);
  if (read) return kExitOk;
  PrintLastError();
  return kExitLocalFailure;
}

int RunMake(const MakeOptions& options) {
  std::vector<std::string> problems;
  int written = options.copyFrom.empty()
                    ? CDicomDirectory::WriteForFolder(options.dir, options.fileSetID, &problems)
                    : CDicomDirectory::CopyForMedia(options.copyFrom, options.dir,
                                                    options.fileSetID, &problems);
  if (!written) {
    PrintLastError();
    return kExitLocalFailure;
  }
  if (!options.quiet)
    for (const std::string& problem : problems)
      std::cerr << "kestrel dicomdir: " << problem << '\n';
  CDicomDirectory check;
  if (!check.Open(options.dir)) {
    PrintLastError();
    return kExitLocalFailure;
  }
  std::vector<CDicomDirectory::ReferencedFile> files;
  check.GetReferencedFiles(files);
  if (!options.quiet)
    std::cout << "kestrel dicomdir: wrote " << check.GetPath() << " (" << check.GetPatients().size()
              << " patients, " << files.size() << " files)\n";
  return kExitOk;
}

}  // namespace

void AddDicomdirCommand(CLI::App& app, int& exitCode) {
  CLI::App* cmd =
      app.add_subcommand("dicomdir", "read or write the DICOMDIR of a medium or folder");
  cmd->require_subcommand(1);

  auto show = std::make_shared<ShowOptions>();
  CLI::App* showCmd = cmd->add_subcommand(
      "show", "print a DICOMDIR's tree and the report of objects that cannot be shown");
  showCmd->add_flag("--json", show->json, "print the tree as JSON");
  showCmd->add_option("PATH", show->path, "a DICOMDIR file, or the folder holding it")->required();
  showCmd->callback([show, &exitCode]() { exitCode = RunShow(*show); });

  auto make = std::make_shared<MakeOptions>();
  CLI::App* makeCmd =
      cmd->add_subcommand("make", "write DIR/DICOMDIR for the DICOM files under DIR");
  makeCmd->add_option("--copy", make->copyFrom,
                      "first copy the DICOM files under SOURCE into the empty DIR under PS3.10 "
                      "names (PAT00001/STU00001/SER00001/IMG00001)");
  makeCmd->add_option("--file-set-id", make->fileSetID,
                      "File-set ID: up to 16 characters of A-Z, 0-9, blank, _ (default KESTREL)");
  makeCmd->add_flag("--quiet", make->quiet, "print errors only");
  makeCmd->add_option("DIR", make->dir, "the folder of the file-set")->required();
  makeCmd->callback([make, &exitCode]() { exitCode = RunMake(*make); });
}
