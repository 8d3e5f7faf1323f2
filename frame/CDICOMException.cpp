#include "kestrel/CDICOMException.h"

#include <cstdio>
#include <cstring>

#include "DimseStatus.h"
#include "kestrel/DICOMObject.h"

namespace KESTREL {
namespace {

// Command group elements read here, PS3.7 Table E.1-1 and E.2-1.
constexpr uint16_t kCommandGroup = 0x0000;
constexpr uint16_t kAffectedSOPClassUID = 0x0002;
constexpr uint16_t kRequestedSOPClassUID = 0x0003;
constexpr uint16_t kStatus = 0x0900;
constexpr uint16_t kOffendingElement = 0x0901;
constexpr uint16_t kErrorComment = 0x0902;
constexpr uint16_t kAffectedSOPInstanceUID = 0x1000;
constexpr uint16_t kEventTypeID = 0x1002;
constexpr uint16_t kAttributeIdentifierList = 0x1005;
constexpr uint16_t kActionTypeID = 0x1008;

// Text values come padded to an even length, UIDs with a NUL and other strings with a blank;
// the padding is no part of the value.
std::string TextOf(DICOMCommandObject* command, uint16_t element) {
  VR* vr = command->Find(kCommandGroup, element);
  if (!vr || !vr->Data || vr->Length == 0) return std::string();
  std::string text(static_cast<const char*>(vr->Data), vr->Length);
  while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
  return text;
}

// An AT value is a list of tags, each as two 16-bit halves (group, element) in host order.
// Each byte is printed on its own without padding, so (0010,0020) reads "(010,020) ": a loose
// form, but the one users of these texts know.
std::string TagsOf(DICOMCommandObject* command, uint16_t element) {
  VR* vr = command->Find(kCommandGroup, element);
  if (!vr || !vr->Data) return std::string();
  const auto* bytes = static_cast<const unsigned char*>(vr->Data);
  std::string tags;
  for (uint32_t at = 0; at + 4 <= vr->Length; at += 4) {
    uint16_t group;
    uint16_t elementNumber;
    std::memcpy(&group, bytes + at, 2);
    std::memcpy(&elementNumber, bytes + at + 2, 2);
    char text[32];
    std::snprintf(text, sizeof text, "(%x%x,%x%x) ", group >> 8, group & 0xFF, elementNumber >> 8,
                  elementNumber & 0xFF);
    tags += text;
  }
  return tags;
}

int16_t SignedOf(DICOMCommandObject* command, uint16_t element) {
  VR* vr = command->Find(kCommandGroup, element);
  if (!vr || !vr->Data || vr->Length != 2) return -1;
  int16_t value;
  std::memcpy(&value, vr->Data, 2);
  return value;
}

}  // namespace

CDICOMException::CDICOMException(DICOMCommandObject* pDCO) {
  if (pDCO) {
    Status = pDCO->GetUInt16(kCommandGroup, kStatus);
    OffendingElements = TagsOf(pDCO, kOffendingElement);
    ErrorComment = TextOf(pDCO, kErrorComment);
    AffectedSOPClassUID = TextOf(pDCO, kAffectedSOPClassUID);
    AffectedSOPInstanceUID = TextOf(pDCO, kAffectedSOPInstanceUID);
    AttributeIdentifierList = TagsOf(pDCO, kAttributeIdentifierList);
    RequestedSOPClassUID = TextOf(pDCO, kRequestedSOPClassUID);
    RequestedSOPInstanceUID = TextOf(pDCO, kAffectedSOPInstanceUID);
    EventTypeID = SignedOf(pDCO, kEventTypeID);
    ActionTypeID = SignedOf(pDCO, kActionTypeID);
  }
  const char* general = nullptr;
  DimseStatusText(Status, &general);
  what_ = general;
}

CDICOMException::~CDICOMException() = default;

const char* CDICOMException::what() const noexcept { return what_.c_str(); }

int CDICOMException::GetStatusText(std::string& text) const {
  const char* general = nullptr;
  int category = DimseStatusText(Status, &general);
  text = general;
  return category;
}

}  // namespace KESTREL
