#include "kestrel/DICOMCodec.h"

#include "TransferSyntax.h"
#include "ValueContext.h"
#include "kestrel/RTC.h"

namespace {

// Identity written into file meta information and association requests.
constexpr char kImplementationClassUID[] = "1.2.804.990417.3";
constexpr char kImplementationVersionName[] = "Vexa ";

}  // namespace

DICOMCodec::DICOMCodec() : context_(std::make_unique<ValueContext>()) {}

DICOMCodec::~DICOMCodec() {
  if (ownsDictionary_) delete dictionary_;
}

bool DICOMCodec::AttachRTC(RTC* dictionary, bool owned) {
  if (ownsDictionary_ && dictionary_ != dictionary) delete dictionary_;
  dictionary_ = dictionary;
  ownsDictionary_ = owned;
  return true;
}

bool DICOMCodec::GetImplementationClass(std::string& uid) {
  uid = kImplementationClassUID;
  return true;
}

bool DICOMCodec::GetImplementationVersion(std::string& name) {
  name = kImplementationVersionName;
  return true;
}

int DICOMCodec::TransferSyntaxMode(const char* uid) { return uid ? ModeOfTransferSyntax(uid) : 0; }

std::string DICOMCodec::GetLocalAETitle() const { return std::string(); }
