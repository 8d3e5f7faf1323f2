// Writing the DICOMDIR of a folder: every DICOM file under it is read, grouped into patients,
// studies and series, and referenced by its File ID; and the copy that first lays files out
// under names PS3.10 allows.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "DirectoryParser.h"
#include "DirectoryWriter.h"
#include "FileIDs.h"
#include "RecordTypes.h"
#include "kestrel/CDicomDirectory.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Status.h"

namespace fs = std::filesystem;
using KESTREL::dicomdir::OutElement;
using KESTREL::dicomdir::OutRecord;
using KESTREL::dicomdir::RecordKeys;
using KESTREL::dicomdir::Tag;

namespace {

constexpr size_t kMaxListed = 20;

struct ScannedFile {
  std::vector<std::string> fileID;
  std::string sourcePath;
  std::string sopClass, sopInstance, transferSyntax, charset;
  std::string patientID, studyUID, seriesUID;
  long instanceNumber = 0;
  const RecordKeys* objectKeys = nullptr;
  std::vector<OutElement> patientKeys, studyKeys, seriesKeys, objectValues;
};

std::string Text(DICOMObject* object, uint16_t group, uint16_t element) {
  VR* vr = object->Find(group, element);
  if (!vr || !vr->Data || !vr->Length) return std::string();
  std::string value(static_cast<const char*>(vr->Data), vr->Length);
  size_t end = value.size();
  while (end && (value[end - 1] == ' ' || value[end - 1] == '\0')) --end;
  size_t begin = 0;
  while (begin < end && value[begin] == ' ') ++begin;
  return value.substr(begin, end - begin);
}

std::vector<OutElement> KeyValues(DICOMObject* object, const RecordKeys& keys,
                                  const std::string& charset) {
  std::vector<OutElement> out;
  if (!charset.empty()) out.push_back({Tag(0x0008, 0x0005), "CS", charset, {}});
  for (int i = 0; i < keys.count; ++i) {
    const KESTREL::dicomdir::KeyAttribute& key = keys.keys[i];
    out.push_back({Tag(key.group, key.element), key.vr, Text(object, key.group, key.element), {}});
  }
  return out;
}

// The Concept Name Code Sequence of a document (PS3.3 F.5): its first code, as the record's
// one item.
OutElement ConceptName(DICOMObject* object) {
  OutElement sequence{Tag(0x0040, 0xA043), "SQ", "", {}};
  VR* element = object->Find(0x0040, 0xA043);
  if (!element || !element->SequenceItems || !element->SequenceItems->GetSize()) return sequence;
  DICOMDataObject* code = element->SequenceItems->Get(0);
  sequence.item = {{Tag(0x0008, 0x0100), "SH", Text(code, 0x0008, 0x0100), {}},
                   {Tag(0x0008, 0x0102), "SH", Text(code, 0x0008, 0x0102), {}},
                   {Tag(0x0008, 0x0104), "LO", Text(code, 0x0008, 0x0104), {}}};
  return sequence;
}

bool HasDicomPrefix(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  char head[132];
  return in.read(head, sizeof head) && std::memcmp(head + 128, "DICM", 4) == 0;
}

// Reads what the records need from one file; false with the reason when it cannot be listed.
bool ScanFile(const fs::path& path, ScannedFile& file, std::string& why) {
  DICOMCodec codec;
  std::unique_ptr<DICOMDataObject> object(codec.LoadFile(path.c_str()));
  if (!object || !codec.WasLastLoadComplete()) {
    why = "cannot be read whole";
    return false;
  }
  DICOMDataObject* o = object.get();
  file.transferSyntax = Text(o, 0x0002, 0x0010);
  // The object's own UIDs; the meta group's copies stand in only when those are missing.
  file.sopClass = Text(o, 0x0008, 0x0016);
  if (file.sopClass.empty()) file.sopClass = Text(o, 0x0002, 0x0002);
  file.sopInstance = Text(o, 0x0008, 0x0018);
  if (file.sopInstance.empty()) file.sopInstance = Text(o, 0x0002, 0x0003);
  file.studyUID = Text(o, 0x0020, 0x000D);
  file.seriesUID = Text(o, 0x0020, 0x000E);
  if (file.transferSyntax.empty() || file.sopClass.empty() || file.sopInstance.empty() ||
      file.studyUID.empty() || file.seriesUID.empty()) {
    why = "lacks its transfer syntax, SOP class, SOP instance, study or series UID";
    return false;
  }
  file.objectKeys =
      KESTREL::dicomdir::ObjectKeys(file.sopClass, o->Find(0x7FE0, 0x0010) != nullptr);
  if (!file.objectKeys) {
    why = "is of the SOP class " + file.sopClass + ", which has no directory record type";
    return false;
  }
  file.charset = Text(o, 0x0008, 0x0005);
  file.patientID = Text(o, 0x0010, 0x0020);
  file.instanceNumber = std::strtol(Text(o, 0x0020, 0x0013).c_str(), nullptr, 10);
  file.patientKeys = KeyValues(o, KESTREL::dicomdir::PatientKeys(), file.charset);
  file.studyKeys = KeyValues(o, KESTREL::dicomdir::StudyKeys(), file.charset);
  file.seriesKeys = KeyValues(o, KESTREL::dicomdir::SeriesKeys(), file.charset);
  file.objectValues = KeyValues(o, *file.objectKeys, file.charset);
  if (file.objectKeys->codeSequence) file.objectValues.push_back(ConceptName(o));
  return true;
}

bool IsDirectoryFile(const fs::path& relative) {
  std::string name = relative.generic_string();
  for (char& c : name)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return name == "DICOMDIR" || name.rfind("DICOMDIR.KESTREL-NEW", 0) == 0;
}

// Every DICOM file under `folder`, in path order; names PS3.10 refuses go to `refused`, files
// that cannot be listed to `skipped`.
std::vector<ScannedFile> ScanFolder(const fs::path& folder, std::vector<std::string>& refused,
                                    std::vector<std::string>& skipped) {
  std::vector<fs::path> paths;
  std::error_code ec;
  for (fs::recursive_directory_iterator
           it(folder, fs::directory_options::skip_permission_denied, ec),
       end;
       !ec && it != end; it.increment(ec)) {
    if (it->is_regular_file(ec)) paths.push_back(it->path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<ScannedFile> files;
  for (const fs::path& path : paths) {
    fs::path relative = path.lexically_relative(folder);
    if (IsDirectoryFile(relative) || !HasDicomPrefix(path)) continue;
    ScannedFile file;
    std::string why;
    file.sourcePath = path.string();
    if (!KESTREL::dicomdir::MakeFileID(relative.generic_string(), file.fileID, why)) {
      refused.push_back(relative.generic_string() + ": " + why);
      continue;
    }
    if (!ScanFile(path, file, why)) {
      skipped.push_back(relative.generic_string() + " " + why + "; left out");
      continue;
    }
    files.push_back(std::move(file));
  }
  return files;
}

OutRecord Structure(const RecordKeys& keys, const std::vector<OutElement>& values) {
  OutRecord record;
  record.type = keys.type;
  record.keys = values;
  return record;
}

OutRecord ObjectRecord(const ScannedFile& file) {
  OutRecord record = Structure(*file.objectKeys, file.objectValues);
  record.fileID = file.fileID;
  record.sopClassUID = file.sopClass;
  record.sopInstanceUID = file.sopInstance;
  record.transferSyntaxUID = file.transferSyntax;
  return record;
}

// Patients by ID, their studies and series by UID, each series' files by instance number and
// then path.
std::vector<OutRecord> BuildTree(std::vector<ScannedFile>& files) {
  std::stable_sort(files.begin(), files.end(), [](const ScannedFile& a, const ScannedFile& b) {
    return a.instanceNumber < b.instanceNumber;
  });
  using SeriesMap = std::map<std::string, std::vector<const ScannedFile*>>;
  std::map<std::string, std::map<std::string, SeriesMap>> tree;
  for (const ScannedFile& file : files)
    tree[file.patientID][file.studyUID][file.seriesUID].push_back(&file);
  std::vector<OutRecord> patients;
  for (const auto& [patientID, studies] : tree) {
    const ScannedFile& first = *studies.begin()->second.begin()->second.front();
    patients.push_back(Structure(KESTREL::dicomdir::PatientKeys(), first.patientKeys));
    for (const auto& [studyUID, seriesMap] : studies) {
      OutRecord study =
          Structure(KESTREL::dicomdir::StudyKeys(), seriesMap.begin()->second.front()->studyKeys);
      for (const auto& [seriesUID, members] : seriesMap) {
        OutRecord series = Structure(KESTREL::dicomdir::SeriesKeys(), members.front()->seriesKeys);
        for (const ScannedFile* file : members) series.children.push_back(ObjectRecord(*file));
        study.children.push_back(std::move(series));
      }
      patients.back().children.push_back(std::move(study));
    }
  }
  return patients;
}

// PS3.10 8.2 and PS3.5 CS: up to 16 characters of A-Z, 0-9, blank and '_'.
bool IsValidFileSetID(const std::string& id) {
  if (id.size() > 16) return false;
  for (char c : id)
    if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ' || c == '_')) return false;
  return true;
}

std::string Listed(const std::vector<std::string>& items) {
  std::string text;
  for (size_t i = 0; i < items.size() && i < kMaxListed; ++i) text += "\r\n" + items[i];
  if (items.size() > kMaxListed)
    text += "\r\n(and " + std::to_string(items.size() - kMaxListed) + " more)";
  return text;
}

int Fail(const char* operation, const std::string& text) {
  KESTREL::SetLastErrorText(std::string("KESTREL.dll : CDicomDirectory::") + operation + " : " +
                            text);
  return 0;
}

// Names numbered from 1 within their parent folder: "PAT00001", "STU00001", ...
class Numbering {
 public:
  std::string Name(const char* prefix, const std::string& parent, const std::string& key) {
    auto [it, added] = numbers_.emplace(parent + '\n' + key, 0);
    if (added) it->second = ++last_[parent];
    char name[32];
    std::snprintf(name, sizeof name, "%s%05zu", prefix, it->second);
    return name;
  }

 private:
  std::map<std::string, size_t> numbers_;
  std::map<std::string, size_t> last_;
};

}  // namespace

int CDicomDirectory::WriteForFolder(const std::string& folder, const std::string& fileSetID,
                                    std::vector<std::string>* problems) {
  const char* operation = "WriteForFolder()";
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) return Fail(operation, folder + " is not a folder");
  if (!IsValidFileSetID(fileSetID))
    return Fail(operation, "the File-set ID \"" + fileSetID +
                               "\" is not up to 16 characters of A-Z, 0-9, blank and _");
  std::vector<std::string> refused, skipped;
  std::vector<ScannedFile> files = ScanFolder(folder, refused, skipped);
  if (problems) {
    problems->insert(problems->end(), refused.begin(), refused.end());
    problems->insert(problems->end(), skipped.begin(), skipped.end());
  }
  if (!refused.empty())
    return Fail(operation, std::to_string(refused.size()) +
                               " file names are not allowed on media (PS3.10 File IDs); no "
                               "DICOMDIR was written:" +
                               Listed(refused));
  std::vector<OutRecord> roots = BuildTree(files);
  std::string error;
  if (!KESTREL::dicomdir::WriteDirectory((fs::path(folder) / "DICOMDIR").string(), fileSetID, roots,
                                         error))
    return Fail(operation, error);
  return 1;
}

int CDicomDirectory::CopyForMedia(const std::string& source, const std::string& folder,
                                  const std::string& fileSetID,
                                  std::vector<std::string>* problems) {
  const char* operation = "CopyForMedia()";
  std::error_code ec;
  if (!fs::is_directory(source, ec)) return Fail(operation, source + " is not a folder");
  if (fs::exists(folder, ec) && !fs::is_empty(folder, ec))
    return Fail(operation, folder + " is not empty");
  if (!IsValidFileSetID(fileSetID))
    return Fail(operation, "the File-set ID \"" + fileSetID + "\" is not allowed");
  std::vector<fs::path> paths;
  for (fs::recursive_directory_iterator
           it(source, fs::directory_options::skip_permission_denied, ec),
       end;
       !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec) && !IsDirectoryFile(it->path().filename()) &&
        HasDicomPrefix(it->path()))
      paths.push_back(it->path());
  std::sort(paths.begin(), paths.end());
  std::vector<ScannedFile> files;
  for (const fs::path& path : paths) {
    ScannedFile file;
    std::string why;
    if (ScanFile(path, file, why)) {
      file.sourcePath = path.string();
      files.push_back(std::move(file));
    } else if (problems) {
      problems->push_back(path.string() + " " + why + "; not copied");
    }
  }
  std::vector<ScannedFile*> ordered;
  for (ScannedFile& file : files) ordered.push_back(&file);
  std::stable_sort(ordered.begin(), ordered.end(), [](const ScannedFile* a, const ScannedFile* b) {
    return std::tie(a->patientID, a->studyUID, a->seriesUID, a->instanceNumber) <
           std::tie(b->patientID, b->studyUID, b->seriesUID, b->instanceNumber);
  });
  Numbering numbering;
  for (const ScannedFile* file : ordered) {
    std::string p = numbering.Name("PAT", "", file->patientID);
    std::string st = numbering.Name("STU", p, file->studyUID);
    std::string se = numbering.Name("SER", p + "/" + st, file->seriesUID);
    std::string i = numbering.Name("IMG", p + "/" + st + "/" + se, file->sourcePath);
    fs::path target = fs::path(folder) / p / st / se / i;
    fs::create_directories(target.parent_path(), ec);
    if (ec || !fs::copy_file(file->sourcePath, target, ec) || ec)
      return Fail(operation, "cannot copy " + file->sourcePath + " to " + target.string());
  }
  return WriteForFolder(folder, fileSetID, problems);
}
