// Reading a DICOMDIR into the tree: the records are reached only through the offsets of the
// root, next and lower-level links, and every offset is checked against the records the file
// really holds. A record is visited once at most, so a damaged or hostile file costs no more
// than one pass over its records.
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DirectoryParser.h"
#include "FileIDs.h"
#include "RecordTypes.h"
#include "kestrel/CDicomDirectory.h"
#include "kestrel/Status.h"

namespace fs = std::filesystem;
using KESTREL::dicomdir::Record;
using KESTREL::dicomdir::Tag;

namespace {

constexpr char kMediaStorageDirectory[] = "1.2.840.10008.1.3.10";
constexpr uintmax_t kMaxFileSize = 256u << 20;
constexpr size_t kMaxProblems = 200;

// PS3.3 F.3.2.2: the links and the kind of each record.
constexpr uint32_t kNext = Tag(0x0004, 0x1400);
constexpr uint32_t kInUse = Tag(0x0004, 0x1410);
constexpr uint32_t kLower = Tag(0x0004, 0x1420);
constexpr uint32_t kType = Tag(0x0004, 0x1430);
constexpr uint32_t kFileID = Tag(0x0004, 0x1500);
constexpr uint32_t kSOPClass = Tag(0x0004, 0x1510);
constexpr uint32_t kSOPInstance = Tag(0x0004, 0x1511);
constexpr uint32_t kTransferSyntax = Tag(0x0004, 0x1512);

bool ReadWholeFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
  std::error_code ec;
  uintmax_t size = fs::file_size(path, ec);
  if (ec) {
    error = "cannot read " + path;
    return false;
  }
  if (size > kMaxFileSize) {
    error = path + " is too large for a directory";
    return false;
  }
  std::ifstream in(path, std::ios::binary);
  bytes.resize(static_cast<size_t>(size));
  if (!in || !in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size))) {
    error = "cannot read " + path;
    return false;
  }
  return true;
}

}  // namespace

class DicomDirectoryReader {
 public:
  DicomDirectoryReader(CDicomDirectory& directory, const KESTREL::dicomdir::Directory& parsed,
                       size_t fileSize)
      : directory_(directory), parsed_(parsed), fileSize_(fileSize) {
    for (size_t i = 0; i < parsed.records.size(); ++i) index_[parsed.records[i].offset] = i;
    visited_.assign(parsed.records.size(), false);
    base_ = fs::path(directory.path_).parent_path().string();
    if (base_.empty()) base_ = ".";
  }

  // The tree; false when a link was broken.
  bool Build() {
    uint32_t root = parsed_.firstRootOffset;
    if (!root && !parsed_.records.empty()) {
      Problem("(0004,1200) gives no first record; reading from the first record of the file");
      root = parsed_.records.front().offset;
    }
    uint32_t last = 0;
    Chain(
        root, "(0004,1200)", [&](const Record& r) { RootRecord(r); }, &last);
    if (!broken_ && parsed_.lastRootOffset && last && parsed_.lastRootOffset != last)
      Problem("(0004,1202) names the record at byte " + std::to_string(parsed_.lastRootOffset) +
              ", but the last root record is at byte " + std::to_string(last));
    ReportUnreached();
    return !broken_;
  }
  // What broke the first link, after Build gave false.
  const std::string& BrokenText() const { return brokenText_; }

 private:
  // Visits the active records of the chain that starts at `offset`; `last` receives the
  // offset of the last record of the chain.
  template <class Visit>
  void Chain(uint32_t offset, std::string from, Visit visit, uint32_t* last = nullptr) {
    while (offset) {
      auto found = index_.find(offset);
      if (found == index_.end()) {
        Broken("the offset " + std::to_string(offset) + " in " + from +
               (offset >= fileSize_ ? " lies past the end of the file"
                                    : " points at no directory record"));
        return;
      }
      if (visited_[found->second]) {
        Broken("the record at byte " + std::to_string(offset) + " is reached twice from " + from +
               " (a loop)");
        return;
      }
      visited_[found->second] = true;
      const Record& record = parsed_.records[found->second];
      if (last) *last = offset;
      // PS3.3 F.3.2.2: an in-use flag of 0000 marks a record that is no longer part of the set.
      if (record.Number(kInUse, 0xFFFF) != 0) visit(record);
      from = "the record at byte " + std::to_string(offset);
      offset = record.Number(kNext);
    }
  }

  std::string Type(const Record& record) {
    std::string type = record.Text(kType);
    if (!KESTREL::dicomdir::IsKnownRecordType(type))
      Problem("the record at byte " + std::to_string(record.offset) + " has the unknown type \"" +
              type + "\"");
    return type;
  }

  template <class Node>
  void FillFile(Node& node, const Record& record, const std::string& type) {
    node.RecordType = type;
    node.Offset = record.offset;
    node.FileID = record.Text(kFileID);
    node.SOPClassUID = record.Text(kSOPClass);
    node.SOPInstanceUID = record.Text(kSOPInstance);
    node.TransferSyntaxUID = record.Text(kTransferSyntax);
    node.InstanceNumber = record.Text(Tag(0x0020, 0x0013));
    if (node.FileID.empty()) return;
    std::string why;
    node.Path = KESTREL::dicomdir::ResolveFileID(base_, node.FileID, why);
    if (node.Path.empty())
      Problem("the record at byte " + std::to_string(record.offset) + ": " + why);
  }

  std::unique_ptr<COtherObjects> Other(const Record& record, const std::string& type) {
    auto other = std::make_unique<COtherObjects>();
    FillFile(*other, record, type);
    return other;
  }

  void RootRecord(const Record& record) {
    std::string type = Type(record);
    if (type != "PATIENT") {
      directory_.others_.push_back(Other(record, type));
      return;
    }
    auto patient = std::make_unique<CPatient>();
    patient->Offset = record.offset;
    patient->PatientID = record.Text(Tag(0x0010, 0x0020));
    patient->PatientName = record.Text(Tag(0x0010, 0x0010));
    patient->PatientBirthDate = record.Text(Tag(0x0010, 0x0030));
    patient->PatientSex = record.Text(Tag(0x0010, 0x0040));
    CPatient& p = *patient;
    directory_.patients_.push_back(std::move(patient));
    Chain(record.Number(kLower), From(record), [&](const Record& r) { PatientRecord(p, r); });
  }

  void PatientRecord(CPatient& patient, const Record& record) {
    std::string type = Type(record);
    if (type != "STUDY") {
      patient.Others.push_back(Other(record, type));
      return;
    }
    auto study = std::make_unique<CStudy>();
    study->Offset = record.offset;
    study->StudyInstanceUID = record.Text(Tag(0x0020, 0x000D));
    study->StudyID = record.Text(Tag(0x0020, 0x0010));
    study->StudyDate = record.Text(Tag(0x0008, 0x0020));
    study->StudyTime = record.Text(Tag(0x0008, 0x0030));
    study->StudyDescription = record.Text(Tag(0x0008, 0x1030));
    study->AccessionNumber = record.Text(Tag(0x0008, 0x0050));
    study->ReferringPhysicianName = record.Text(Tag(0x0008, 0x0090));
    CStudy& s = *study;
    patient.Studies.push_back(std::move(study));
    Chain(record.Number(kLower), From(record),
          [&](const Record& r) { StudyRecord(patient, s, r); });
  }

  void StudyRecord(CPatient& patient, CStudy& study, const Record& record) {
    std::string type = Type(record);
    if (type != "SERIES") {
      auto other = Other(record, type);
      directory_.NoteUnsupported(patient, study, "", other->SOPClassUID, type == "PRIVATE");
      study.Others.push_back(std::move(other));
      return;
    }
    auto series = std::make_unique<CSeries>();
    series->Offset = record.offset;
    series->SeriesInstanceUID = record.Text(Tag(0x0020, 0x000E));
    series->Modality = record.Text(Tag(0x0008, 0x0060));
    series->SeriesNumber = record.Text(Tag(0x0020, 0x0011));
    CSeries& s = *series;
    study.Series.push_back(std::move(series));
    Chain(record.Number(kLower), From(record),
          [&](const Record& r) { SeriesRecord(patient, study, s, r); });
  }

  void SeriesRecord(CPatient& patient, CStudy& study, CSeries& series, const Record& record) {
    std::string type = Type(record);
    if (type == "IMAGE") {
      auto image = std::make_unique<CImages>();
      FillFile(*image, record, type);
      image->Supported = CDicomDirectory::IsSupportedSOPClass(image->SOPClassUID);
      if (!image->Supported)
        directory_.NoteUnsupported(patient, study, series.Modality, image->SOPClassUID, false);
      series.Images.push_back(std::move(image));
      return;
    }
    auto other = Other(record, type);
    directory_.NoteUnsupported(patient, study, series.Modality, other->SOPClassUID,
                               type == "PRIVATE");
    series.Others.push_back(std::move(other));
  }

  static std::string From(const Record& record) {
    return "the lower-level link of the record at byte " + std::to_string(record.offset);
  }

  void ReportUnreached() {
    size_t unreached = 0;
    for (size_t i = 0; i < visited_.size(); ++i)
      if (!visited_[i] && parsed_.records[i].Number(kInUse, 0xFFFF) != 0) ++unreached;
    if (unreached)
      Problem(std::to_string(unreached) + " directory records are not reached from the root");
  }

  void Broken(const std::string& text) {
    if (!broken_) brokenText_ = text;
    broken_ = true;
    Problem(text);
  }

  void Problem(const std::string& text) {
    std::vector<std::string>& problems = directory_.problems_;
    if (problems.size() < kMaxProblems)
      problems.push_back(text);
    else if (problems.size() == kMaxProblems)
      problems.push_back("(further problems not listed)");
  }

  CDicomDirectory& directory_;
  const KESTREL::dicomdir::Directory& parsed_;
  size_t fileSize_;
  std::string base_;
  std::map<uint32_t, size_t> index_;
  std::vector<bool> visited_;
  bool broken_ = false;
  std::string brokenText_;
};

CDicomDirectory::CDicomDirectory() = default;

CDicomDirectory::~CDicomDirectory() = default;

void CDicomDirectory::Close() {
  path_.clear();
  fileSetID_.clear();
  patients_.clear();
  others_.clear();
  problems_.clear();
  unsupported_.clear();
}

int CDicomDirectory::Open(const std::string& path) {
  Close();
  path_ = path;
  auto fail = [this](const std::string& error) {
    problems_.push_back(error);
    KESTREL::SetLastErrorText("KESTREL.dll : CDicomDirectory::Open() : " + error + " (" + path_ +
                              ")");
    return 0;
  };
  std::error_code ec;
  if (fs::is_directory(path, ec)) {
    std::string why;
    path_ = KESTREL::dicomdir::ResolveFileID(path, "DICOMDIR", why);
    if (path_.empty()) return fail("no DICOMDIR in " + path);
  }
  std::vector<uint8_t> bytes;
  KESTREL::dicomdir::Directory parsed;
  std::string error;
  if (!ReadWholeFile(path_, bytes, error) || !KESTREL::dicomdir::Parse(bytes, parsed, error))
    return fail(error);
  if (!parsed.mediaStorageSOPClass.empty() && parsed.mediaStorageSOPClass != kMediaStorageDirectory)
    return fail("the file is not a media directory but of the SOP class " +
                parsed.mediaStorageSOPClass);
  fileSetID_ = parsed.fileSetID;
  problems_ = parsed.warnings;
  DicomDirectoryReader reader(*this, parsed, bytes.size());
  if (!reader.Build()) {
    KESTREL::SetLastErrorText("KESTREL.dll : CDicomDirectory::Open() : " + reader.BrokenText() +
                              " (" + path_ + ")");
    return 0;
  }
  return 1;
}
