#include "kestrel/CStandardStorage.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "kestrel/CUnknownStorage.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/ModalityStorage.h"

namespace {

using Factory = CStorage* (*)();

template <class Storage>
CStorage* Make() {
  return new (std::nothrow) Storage();
}

// The SOP classes Load knows, in the order they are compared. The images "for processing" are
// made into the class "for presentation", whose modules serve them as well.
struct Known {
  const char* uid;
  Factory make;
};
const Known kKnownClasses[] = {
    {CCRStorage::kSOPClassUID, &Make<CCRStorage>},
    {CCTStorage::kSOPClassUID, &Make<CCTStorage>},
    {CDXStorage::kSOPClassUID, &Make<CDXStorage>},
    {CDXRStorage::kSOPClassUID, &Make<CDXStorage>},
    {CMGStorage::kSOPClassUID, &Make<CMGStorage>},
    {CMGRStorage::kSOPClassUID, &Make<CMGStorage>},
    {CMRStorage::kSOPClassUID, &Make<CMRStorage>},
    {CUSStorage::kSOPClassUID, &Make<CUSStorage>},
    {CUSNStorage::kSOPClassUID, &Make<CUSNStorage>},
    {CSCStorage::kSOPClassUID, &Make<CSCStorage>},
    {CXAStorage::kSOPClassUID, &Make<CXAStorage>},
    {CRFStorage::kSOPClassUID, &Make<CRFStorage>},
    {CXABiStorage::kSOPClassUID, &Make<CXABiStorage>},
    {CNMStorage::kSOPClassUID, &Make<CNMStorage>},
    {CNMNStorage::kSOPClassUID, &Make<CNMNStorage>},
    {CUSMStorage::kSOPClassUID, &Make<CUSMStorage>},
    {CUSNMStorage::kSOPClassUID, &Make<CUSNMStorage>},
    {CPETStorage::kSOPClassUID, &Make<CPETStorage>},
};

constexpr uint16_t kPixelDataGroup = 0x7FE0, kPixelData = 0x0010;
// Values of Lossy Image Compression longer than this are not looked at.
constexpr uint32_t kLossyValueLimit = 1024;

}  // namespace

CStandardStorage::CStandardStorage() = default;
CStandardStorage::~CStandardStorage() = default;

void CStandardStorage::NoteLossy(DICOMDataObject* dataSet) {
  // PS3.3 C.7.6.1.1.5: "01" means the image has undergone lossy compression. The flag is only
  // ever set, so that it keeps telling of the last lossy file.
  VR* lossy = dataSet->Find(0x0028, 0x2110);
  if (!lossy || lossy->Length >= kLossyValueLimit) return;
  std::string value;
  if (lossy->Data) value.assign(static_cast<const char*>(lossy->Data), lossy->Length);
  value = value.c_str();  // as a terminated string: anything after a zero byte is not read
  if (value.find('1') != std::string::npos) lossy_ = true;
}

DICOMDataObject* CStandardStorage::Open(const std::string& path) {
  DICOMCodec codec;
  std::unique_ptr<DICOMDataObject> dataSet(codec.LoadFile(path.c_str()));
  if (!dataSet) return nullptr;
  VR* pixels = dataSet->Find(kPixelDataGroup, kPixelData);
  if (!pixels) return nullptr;
  pixelDataLength_ = pixels->Length;
  NoteLossy(dataSet.get());
  SetUID(dataSet.get());
  return dataSet.release();
}

CStorage* CStandardStorage::Load(const std::string& path, char* pszTransferSyntaxUID, int nLength) {
  DICOMCodec codec;
  std::unique_ptr<DICOMDataObject> dataSet(codec.LoadFile(path.c_str()));
  if (!dataSet) return nullptr;
  NoteLossy(dataSet.get());
  if (pszTransferSyntaxUID && nLength > 0) {
    UID syntax;
    syntax.Set(dataSet->Find(0x0002, 0x0010));
    size_t copied = std::min<size_t>(syntax.GetSize(), static_cast<size_t>(nLength));
    std::memcpy(pszTransferSyntaxUID, syntax.GetBuffer(), copied);
    if (copied < static_cast<size_t>(nLength)) pszTransferSyntaxUID[copied] = 0;
  }

  VR* pixels = dataSet->Find(kPixelDataGroup, kPixelData);
  if (!pixels) return nullptr;
  if (pixels->Length) pixelDataLength_ = pixels->Length;

  SetUID(dataSet.get());
  CStorage* storage = CreateStorage(uid_);
  if (storage) storage->GetIOD()->MoveFrom(dataSet.get());
  return storage;
}

CStorage* CStandardStorage::CreateStorage(const UID& sopClassUID) {
  for (const Known& known : kKnownClasses) {
    if (sopClassUID == UID(known.uid)) return known.make();
  }
  return nullptr;
}

CStorage* CStandardStorage::LoadStorage(const std::string& path, UID* heldSyntax,
                                        FileReadResult* result, int* error) {
  DICOMCodec codec;
  FileReadResult read = FileReadResult::kCannotOpen;
  std::unique_ptr<DICOMDataObject> dataSet(codec.LoadFile(path.c_str(), &read, error));
  if (result) *result = read;
  if (read != FileReadResult::kComplete) return nullptr;
  NoteLossy(dataSet.get());
  if (heldSyntax) heldSyntax->Set(dataSet->Find(0x0002, 0x0010));
  VR* pixels = dataSet->Find(kPixelDataGroup, kPixelData);
  if (pixels && pixels->Length) pixelDataLength_ = pixels->Length;
  SetUID(dataSet.get());
  std::unique_ptr<CStorage> storage(pixels ? CreateStorage(uid_) : nullptr);
  if (!storage) storage.reset(new (std::nothrow) CUnknownStorage());
  if (!storage) return nullptr;
  storage->GetIOD()->MoveFrom(dataSet.get());
  return storage.release();
}

bool CStandardStorage::SetUID(const UID& uid) {
  uid_ = uid;
  return true;
}

bool CStandardStorage::SetUID(DICOMDataObject* pDDO) {
  return SetUID(pDDO ? pDDO->Find(0x0008, 0x0016) : nullptr);
}

bool CStandardStorage::SetUID(VR* vr) { return uid_.Set(vr); }

int CStandardStorage::GetUID(UID& uid) {
  uid = uid_;
  return 1;
}

CSCStorage* CStandardStorage::CreateSCStorage() { return new CSCStorage(); }
