#include "StoreObject.h"

#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include "kestrel/CDatabase.h"
#include "kestrel/CStandardStorage.h"
#include "kestrel/CStorage.h"
#include "kestrel/CUnknownStorage.h"
#include "kestrel/DICOMFileWriter.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"

namespace fs = std::filesystem;

namespace {

// C-STORE statuses, PS3.4 Table B.2-1.
constexpr uint16_t kSuccess = 0x0000;
constexpr uint16_t kOutOfResources = 0xA700;       // Refused: Out of Resources
constexpr uint16_t kDataSetDoesNotMatch = 0xA900;  // Error: Data Set does not match SOP Class
constexpr uint16_t kCannotUnderstand = 0xC000;     // Error: Cannot understand

struct NamingUID {
  uint16_t group, element;
  const char* name;
};
constexpr NamingUID kNamingUIDs[] = {
    {0x0020, 0x000D, "Study Instance UID"},
    {0x0020, 0x000E, "Series Instance UID"},
    {0x0008, 0x0018, "SOP Instance UID"},
};

StoreResult Result(StoreOutcome outcome, uint16_t status, std::string comment,
                   std::string detail = std::string()) {
  StoreResult result;
  result.outcome = outcome;
  result.status = status;
  result.comment = comment.substr(0, 64);
  result.detail = std::move(detail);
  return result;
}

// The store names files by the three UIDs: each must be there and be a UID, so that no value
// can point outside the store.
bool CheckNaming(DICOMDataObject* dataSet, std::string uids[3], StoreResult* refusal) {
  for (int i = 0; i < 3; ++i) {
    const VR* vr = dataSet->Find(kNamingUIDs[i].group, kNamingUIDs[i].element);
    const bool valid = UIDValue(vr, &uids[i]);
    if (uids[i].empty()) {
      *refusal = Result(StoreOutcome::kRefused, kDataSetDoesNotMatch,
                        std::string("No ") + kNamingUIDs[i].name);
      return false;
    }
    if (!valid) {
      *refusal =
          Result(StoreOutcome::kRefused, kDataSetDoesNotMatch,
                 std::string("Invalid ") + kNamingUIDs[i].name,
                 "not a UID: " + std::string(static_cast<const char*>(vr->Data), vr->Length));
      return false;
    }
  }
  return true;
}

// Takes the value of Pixel Data (7FE0,0010) out of its element while it lives, and puts it back
// after: the storage object that indexes an image needs no copy of its pixels.
class PixelsSetAside {
 public:
  explicit PixelsSetAside(DICOMDataObject* dataSet) : pixels_(dataSet->Find(0x7FE0, 0x0010)) {
    if (!pixels_) return;
    data_ = pixels_->Data;
    length_ = pixels_->Length;
    items_ = pixels_->SequenceItems;
    pixels_->Data = nullptr;
    pixels_->Length = 0;
    pixels_->SequenceItems = nullptr;
  }
  ~PixelsSetAside() {
    if (!pixels_) return;
    pixels_->Data = data_;
    pixels_->Length = length_;
    pixels_->SequenceItems = items_;
  }
  PixelsSetAside(const PixelsSetAside&) = delete;
  PixelsSetAside& operator=(const PixelsSetAside&) = delete;

 private:
  VR* pixels_;
  void* data_ = nullptr;
  uint32_t length_ = 0;
  Array<DICOMDataObject*>* items_ = nullptr;
};

// The storage object of a SOP class, one per class the library stores and thread, and one
// CUnknownStorage per thread for every other class (`image` says which it is): building one
// lays out every attribute of its modules, which costs more than reading a header into it, and
// Set clears what the last object left.
CStorage* StorageFor(const UID& sopClass, bool* image) {
  thread_local std::map<std::string, std::unique_ptr<CStorage>> known;
  thread_local std::unique_ptr<CStorage> unknown;
  const std::string key = sopClass.ToString();
  auto found = known.find(key);
  if (found != known.end()) {
    *image = true;
    return found->second.get();
  }
  std::unique_ptr<CStorage> made(CStandardStorage::CreateStorage(sopClass));
  *image = made != nullptr;
  if (made) return (known[key] = std::move(made)).get();
  if (!unknown) unknown = std::make_unique<CUnknownStorage>();
  return unknown.get();
}

// Where an object goes and the storage object that indexes it: the decisions that do not
// depend on how its file is written. The storage object is let go empty, so that no value of
// this object stays held until the next.
struct Placement {
  std::string uids[3];
  std::string file;  // root/Study/Series/SOP.dcm
  CStorage* storage = nullptr;
  bool setAside = false;  // an image without pixels: root/RejSave/..., not indexed
  Placement() = default;
  Placement(const Placement&) = delete;
  Placement& operator=(const Placement&) = delete;
  ~Placement() {
    if (storage) storage->GetIOD()->Clear();
  }
};

bool Place(DICOMDataObject* dataSet, const std::string& root, SetAside setAside, Placement& place,
           StoreResult* refusal) {
  if (!CheckNaming(dataSet, place.uids, refusal)) return false;
  const std::string tail = "/" + place.uids[0] + "/" + place.uids[1] + "/" + place.uids[2] + ".dcm";
  UID sopClass;
  sopClass.Set(dataSet->Find(0x0008, 0x0016));
  bool imageClass = false;
  place.storage = StorageFor(sopClass, &imageClass);
  place.storage->SetRoot(root);
  // An image of a class the library knows is nothing without its pixels: it is kept aside,
  // where the workstation's staff can look at it, and not indexed.
  const bool mustBeImage = imageClass || setAside == SetAside::kAllWithoutPixels;
  place.setAside = mustBeImage && !dataSet->Find(0x7FE0, 0x0010);
  place.file = root + (place.setAside ? "/RejSave" : "") + tail;
  return true;
}

StoreResult SetAsideResult(const std::string& path) {
  StoreResult result = Result(StoreOutcome::kSetAside, kDataSetDoesNotMatch,
                              "No Pixel Data: not an image, set aside");
  result.path = path;
  return result;
}

// Indexes what was just written at `place.file`. Without its rows the new file must not
// stay; one that was there before keeps the rows that name it.
StoreResult Index(Placement& place, bool existed, const std::string& syntax, CDatabase& database) {
  if (!place.storage->UpdateDatabase(&database, syntax.c_str())) {
    std::error_code error;
    if (!existed) fs::remove(place.file, error);
    return Result(StoreOutcome::kFailed, kOutOfResources, "Could not index the image",
                  KESTREL::GetLastErrorText());
  }
  StoreResult result = Result(StoreOutcome::kStored, kSuccess, "");
  result.path = place.file;
  return result;
}

}  // namespace

bool UIDValue(const VR* vr, std::string* text) {
  text->clear();
  if (!vr || !vr->Data) return false;
  std::string value(static_cast<const char*>(vr->Data), vr->Length);
  if (!value.empty() && value.back() == '\0')
    value.pop_back();
  else
    while (!value.empty() && value.back() == ' ') value.pop_back();
  *text = value;
  return CStorage::IsSUIDValid(value);
}

StoreResult StoreObject(DICOMDataObject* dataSet, const std::string& transferSyntax,
                        const std::string& root, CDatabase& database, SetAside setAside) {
  Placement place;
  StoreResult refusal;
  if (!Place(dataSet, root, setAside, place, &refusal)) return refusal;
  const char* syntax = transferSyntax.c_str();
  if (place.setAside) {
    if (!place.storage->RejectSave(dataSet, syntax))
      return Result(StoreOutcome::kFailed, kOutOfResources, "Could not set the object aside",
                    KESTREL::GetLastErrorText());
    return SetAsideResult(place.file);
  }
  bool read;
  {
    PixelsSetAside pixels(dataSet);
    read = place.storage->Set(dataSet);
  }
  if (!read) return Result(StoreOutcome::kFailed, kCannotUnderstand, "The data set cannot be read");
  std::error_code error;
  const bool existed = fs::exists(place.file, error);
  std::string written;
  if (!place.storage->Save(dataSet, written, syntax))
    return Result(StoreOutcome::kFailed, kOutOfResources, "Could not write the image file",
                  KESTREL::GetLastErrorText());
  return Index(place, existed, transferSyntax, database);
}

StoreResult StoreWrittenFile(DICOMFileWriter& file, DICOMDataObject* header,
                             const std::string& transferSyntax, const std::string& root,
                             CDatabase& database, bool sync) {
  Placement place;
  StoreResult refusal;
  if (!Place(header, root, SetAside::kImagesWithoutPixels, place, &refusal)) return refusal;
  if (!place.setAside && !place.storage->Set(header))
    return Result(StoreOutcome::kFailed, kCannotUnderstand, "The data set cannot be read");
  std::error_code error;
  const bool existed = fs::exists(place.file, error);
  if (!file.Commit(place.file, sync))
    return Result(
        StoreOutcome::kFailed, kOutOfResources,
        place.setAside ? "Could not set the object aside" : "Could not write the image file",
        std::strerror(file.GetError()));
  if (place.setAside) return SetAsideResult(place.file);
  return Index(place, existed, transferSyntax, database);
}

std::string ImageIndexConnect(const std::string& connect) {
  return connect.empty() ? KESTREL::GetEmbeddedImageConnect(KESTREL::GetKestrelHome()) : connect;
}

std::string DefaultStoreRoot() {
  const std::string home = KESTREL::GetKestrelHome();
  return home.empty() ? std::string() : home + "/store";
}

bool OpenImageIndex(const std::string& connect, CDatabase& database, std::string* error) {
  if (connect.empty() && !KESTREL::PrepareEmbeddedDatabase(KESTREL::GetKestrelHome())) {
    *error = KESTREL::GetLastErrorText();
    return false;
  }
  try {
    database.Open(ImageIndexConnect(connect));
  } catch (const CDBException& e) {
    *error = "cannot open the image database: " + e.GetErrorMessage();
    return false;
  }
  if (!KESTREL::CreateImageTables(database)) {
    *error = KESTREL::GetLastErrorText();
    return false;
  }
  return true;
}
