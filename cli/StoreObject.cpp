#include "StoreObject.h"

#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "kestrel/CDatabase.h"
#include "kestrel/CStandardStorage.h"
#include "kestrel/CStorage.h"
#include "kestrel/CUnknownStorage.h"
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

// A UID value without its padding (a zero byte or blanks).
std::string UIDText(DICOMDataObject* dataSet, uint16_t group, uint16_t element) {
  VR* vr = dataSet->Find(group, element);
  if (!vr || !vr->Data) return std::string();
  const char* data = static_cast<const char*>(vr->Data);
  std::string text(data, strnlen(data, vr->Length));
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text;
}

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
    uids[i] = UIDText(dataSet, kNamingUIDs[i].group, kNamingUIDs[i].element);
    if (uids[i].empty()) {
      *refusal = Result(StoreOutcome::kRefused, kDataSetDoesNotMatch,
                        std::string("No ") + kNamingUIDs[i].name);
      return false;
    }
    if (!CStorage::IsSUIDValid(uids[i])) {
      *refusal = Result(StoreOutcome::kRefused, kDataSetDoesNotMatch,
                        std::string("Invalid ") + kNamingUIDs[i].name,
                        std::string("not a UID: ") + uids[i]);
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

}  // namespace

StoreResult StoreObject(DICOMDataObject* dataSet, const std::string& transferSyntax,
                        const std::string& root, CDatabase& database, SetAside setAside) {
  std::string uids[3];
  StoreResult refusal;
  if (!CheckNaming(dataSet, uids, &refusal)) return refusal;
  const std::string file = root + "/" + uids[0] + "/" + uids[1] + "/" + uids[2] + ".dcm";

  UID sopClass;
  sopClass.Set(dataSet->Find(0x0008, 0x0016));
  std::unique_ptr<CStorage> storage(CStandardStorage::CreateStorage(sopClass));
  const bool imageClass = storage != nullptr;
  if (!storage) storage = std::make_unique<CUnknownStorage>();
  storage->SetRoot(root);
  const char* syntax = transferSyntax.c_str();

  // An image of a class the library knows is nothing without its pixels: it is kept aside,
  // where the workstation's staff can look at it, and not indexed.
  const bool mustBeImage = imageClass || setAside == SetAside::kAllWithoutPixels;
  if (mustBeImage && !dataSet->Find(0x7FE0, 0x0010)) {
    if (!storage->RejectSave(dataSet, syntax))
      return Result(StoreOutcome::kFailed, kOutOfResources, "Could not set the object aside",
                    KESTREL::GetLastErrorText());
    StoreResult result = Result(StoreOutcome::kSetAside, kDataSetDoesNotMatch,
                                "No Pixel Data: not an image, set aside");
    result.path = root + "/RejSave/" + uids[0] + "/" + uids[1] + "/" + uids[2] + ".dcm";
    return result;
  }
  bool read;
  {
    PixelsSetAside pixels(dataSet);
    read = storage->Set(dataSet);
  }
  if (!read) return Result(StoreOutcome::kFailed, kCannotUnderstand, "The data set cannot be read");

  std::error_code error;
  const bool existed = fs::exists(file, error);
  std::string written;
  if (!storage->Save(dataSet, written, syntax))
    return Result(StoreOutcome::kFailed, kOutOfResources, "Could not write the image file",
                  KESTREL::GetLastErrorText());
  if (!storage->UpdateDatabase(&database, syntax)) {
    // Without its rows the new file must not stay; one that was there before keeps its rows.
    if (!existed) fs::remove(written, error);
    return Result(StoreOutcome::kFailed, kOutOfResources, "Could not index the image",
                  KESTREL::GetLastErrorText());
  }
  StoreResult result = Result(StoreOutcome::kStored, kSuccess, "");
  result.path = written;
  return result;
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
