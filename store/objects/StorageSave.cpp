// Saving instances into the image store: the study/series/instance layout under the root,
// the rejected-object area, and writing to a named file.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <system_error>

#include "IndexText.h"
#include "kestrel/CStorage.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/Status.h"
#include "vxCommon.h"

namespace fs = std::filesystem;
using KESTREL::storage::Printf;

namespace {

constexpr char kStudyPrefix[] = "";  // study directories carry no prefix before the UID
constexpr char kRejectDirectory[] = "/RejSave";

constexpr char kSaveDDO[] = "KESTREL.dll : CStorage::Save(DDO) : ";
constexpr char kSaveBOOL[] = "KESTREL.dll : CStorage::Save(BOOL) : ";
constexpr char kSaveLog[] = "CStorage::Save(pDDO, pszTransferSyntaxUID): ";
constexpr char kRejectLog[] = "CStorage::RejectSave: ";

// The attributes that name the place of an instance, in the order they are read.
struct NamingAttribute {
  uint16_t group, element;
  const char* name;
};
constexpr NamingAttribute kNaming[] = {
    {0x0020, 0x000D, "StudyInstanceUID"},
    {0x0020, 0x000E, "SeriesInstanceUID"},
    {0x0008, 0x0018, "SOPInstanceUID"},
    {0x0008, 0x0020, "StudyDate"},
};

struct Naming {
  std::string values[4];  // study, series, instance, study date
  const std::string& Study() const { return values[0]; }
  const std::string& Series() const { return values[1]; }
  const std::string& Instance() const { return values[2]; }
};

// Reads the naming attributes of `object`, logging each one that is missing or empty; such a
// value stays empty and the save goes on.
Naming ReadNaming(DICOMObject* object, const char* logPrefix) {
  Naming naming;
  for (size_t i = 0; i < 4; ++i) {
    const NamingAttribute& a = kNaming[i];
    VR* vr = object->Find(a.group, a.element);
    if (!vr) {
      Log(std::string(logPrefix) + a.name + " vr = NULL", 3);
    } else if (!vr->Data) {
      Log(std::string(logPrefix) + a.name + " vr->Data = NULL", 3);
    } else {
      const char* text = static_cast<const char*>(vr->Data);
      naming.values[i] =
          KESTREL::storage::TrimTrailingBlanks(std::string(text, strnlen(text, vr->Length)));
    }
  }
  return naming;
}

bool Fail(const std::string& text) {
  KESTREL::SetLastErrorText(text);
  return false;
}

// A UID that is present must be one: nothing else may become a path component.
bool CheckNaming(const Naming& naming) {
  for (std::string uid : {naming.Study(), naming.Series(), naming.Instance()}) {
    if (!uid.empty() && !CStorage::IsSUIDValid(uid)) return Fail(kSaveDDO + ("Invalid UID " + uid));
  }
  return true;
}

// Makes `directory` and every missing directory above it, one level at a time from the top.
bool MakeDirectories(const std::string& directory, const char* failurePrefix) {
  std::error_code error;
  if (!directory.empty() && fs::is_directory(directory, error)) return true;
  for (size_t end = directory.find('/', 1);; end = directory.find('/', end + 1)) {
    const std::string level = directory.substr(0, end);
    if (!level.empty() && !fs::is_directory(level, error)) {
      fs::create_directory(level, error);
      if (!fs::is_directory(level, error))
        return Fail(failurePrefix + ("Could not create directory " + level));
    }
    if (end == std::string::npos) return true;
  }
}

// Writes the file meta group anew, keeping the Source Application Entity Title the object
// carries (a received instance names its sender there).
class StoreCodec : public DICOMCodec {
 public:
  explicit StoreCodec(DICOMObject* object) {
    if (VR* source = object->Find(0x0002, 0x0016); source && source->Data) {
      const char* text = static_cast<const char*>(source->Data);
      sourceAE_ = KESTREL::storage::TrimBlanks(std::string(text, strnlen(text, source->Length)));
    }
  }
  std::string GetLocalAETitle() const override { return sourceAE_; }

 private:
  std::string sourceAE_;
};

bool WriteFile(const std::string& path, DICOMDataObject* object, const char* transferSyntax) {
  StoreCodec codec(object);
  return codec.SaveFile(path.c_str(), 3, object, transferSyntax);
}

// A name beside `path` that no other writer uses, in this process or another.
std::string WriterOwnName(const std::string& path) {
  static const uint64_t process = (uint64_t{std::random_device{}()} << 32) | std::random_device{}();
  static std::atomic<uint64_t> next{0};
  char suffix[48];
  std::snprintf(suffix, sizeof suffix, ".%016llx-%llu", static_cast<unsigned long long>(process),
                static_cast<unsigned long long>(next++));
  return path + suffix;
}

// Writes a file of the store. Two writers of one instance (two associations, two processes
// sharing the store) each write a file of their own and rename it into place: the last one
// wins whole, and neither can disturb the other's half-written file.
bool WriteStoreFile(const std::string& path, DICOMDataObject* object, const char* transferSyntax) {
  const std::string own = WriterOwnName(path);
  if (!WriteFile(own, object, transferSyntax)) return false;
  std::error_code error;
  fs::rename(own, path, error);
  if (!error) return true;
  fs::remove(own, error);
  return false;
}

// The instance's file below `top`: study directory, series directory, instance.
std::string InstanceFile(const std::string& top, const Naming& naming) {
  return Printf("%s/%s%s/%s/%s.dcm", top.c_str(), kStudyPrefix, naming.Study().c_str(),
                naming.Series().c_str(), naming.Instance().c_str());
}

// Writes `object` under `top` in the layout study/series/instance.dcm.
bool SaveUnder(const std::string& top, DICOMDataObject* object, const char* transferSyntax,
               const char* logPrefix, const char* directoryFailure, std::string* path) {
  if (!object) return Fail(kSaveDDO + std::string("Could not create image file "));
  const Naming naming = ReadNaming(object, logPrefix);
  if (!CheckNaming(naming)) return false;
  const std::string study = Printf("%s/%s%s", top.c_str(), kStudyPrefix, naming.Study().c_str());
  const std::string series = Printf("%s/%s%s/%s", top.c_str(), kStudyPrefix, naming.Study().c_str(),
                                    naming.Series().c_str());
  const std::string file = InstanceFile(top, naming);
  if (top.empty()) return Fail(directoryFailure + ("Could not create directory " + study));
  if (!MakeDirectories(series, directoryFailure)) return false;
  if (!WriteStoreFile(file, object, transferSyntax))
    return Fail(kSaveDDO + ("Could not create image file " + file));
  if (path) *path = file;
  return true;
}

// A plain copy of the object's own instance, which the file writer needs.
std::unique_ptr<DICOMDataObject> CopyOf(CStorage& storage) {
  auto copy = std::make_unique<DICOMDataObject>();
  if (!storage.GetIOD()->WriteTo(copy.get())) return nullptr;
  return copy;
}

}  // namespace

void CStorage::SetRoot(const std::string& root) { root_ = root; }

const std::string& CStorage::GetRoot() const { return root_; }

int CStorage::Save(DICOMDataObject* pDDO, const char* pszTransferSyntaxUID) {
  std::string path;
  return Save(pDDO, path, pszTransferSyntaxUID);
}

int CStorage::Save(DICOMDataObject* pDDO, std::string& path, const char* pszTransferSyntaxUID) {
  return SaveUnder(root_, pDDO, pszTransferSyntaxUID, kSaveLog, kSaveDDO, &path) ? 1 : 0;
}

int CStorage::Save(int bOverwrite) {
  std::unique_ptr<DICOMDataObject> copy = CopyOf(*this);
  if (!copy) {
    Fail(kSaveDDO + std::string("Could not create image file "));
    return 0;
  }
  if (!bOverwrite) {
    const Naming naming = ReadNaming(copy.get(), kSaveLog);
    std::error_code error;
    if (!root_.empty() && CheckNaming(naming) &&
        fs::is_regular_file(InstanceFile(root_, naming), error))
      return 1;
  }
  return SaveUnder(root_, copy.get(), nullptr, kSaveLog, kSaveBOOL, nullptr) ? 1 : 0;
}

int CStorage::SaveAs(const std::string& path) {
  std::unique_ptr<DICOMDataObject> copy = CopyOf(*this);
  if (copy && WriteFile(path, copy.get(), nullptr)) return 1;
  Fail("KESTREL.dll : CStorage::SaveAs(CString) : Unable to save DICOM object to " + path);
  return 0;
}

int CStorage::SaveAs(const std::string& path, DICOMDataObject* pDDO,
                     const char* pszTransferSyntaxUID) {
  if (pDDO && WriteFile(path, pDDO, pszTransferSyntaxUID)) return 1;
  Fail(
      "KESTREL.dll : CStorage::SaveAs(CString, DICOMDataObject *, char *) : Unable to save DICOM "
      "object to " +
      path);
  return 0;
}

int CStorage::RejectSave(DICOMDataObject* pDDO, const char* pszTransferSyntaxUID) {
  const std::string rejected = root_.empty() ? std::string() : root_ + kRejectDirectory;
  if (!rejected.empty() && !MakeDirectories(rejected, kSaveDDO)) return 0;
  return SaveUnder(rejected, pDDO, pszTransferSyntaxUID, kRejectLog, kSaveDDO, nullptr) ? 1 : 0;
}
