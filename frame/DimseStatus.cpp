#include "DimseStatus.h"

#include "kestrel/CDICOMException.h"

namespace KESTREL {
namespace {

struct StatusText {
  uint16_t status;
  const char* text;
  int category;
};

// General status codes, PS3.7 Annex C (C.1 to C.4) and, for A700, the storage refusal of
// PS3.4 Table B.2-1. 0105 reads "No such argument" like 0114, and 0107 and 0116 count as
// warnings; callers and their users know the texts as they are, so they are kept.
constexpr StatusText kGeneralStatuses[] = {
    {0x0000, "Success", DIMSE_STATUS_SUCCESS},
    {0x0105, "No such argument", DIMSE_STATUS_FAILURE},
    {0x0106, "Invalid attribute value", DIMSE_STATUS_FAILURE},
    {0x0107, "Attribute list error", DIMSE_STATUS_WARNING},
    {0x0110, "Processing failure", DIMSE_STATUS_FAILURE},
    {0x0111, "Duplicate SOP instance", DIMSE_STATUS_FAILURE},
    {0x0112, "No such object instance", DIMSE_STATUS_FAILURE},
    {0x0113, "No such event type", DIMSE_STATUS_FAILURE},
    {0x0114, "No such argument", DIMSE_STATUS_FAILURE},
    {0x0115, "Invalid argument type", DIMSE_STATUS_FAILURE},
    {0x0116, "Attribute value out of range", DIMSE_STATUS_WARNING},
    {0x0117, "Invalid object instance", DIMSE_STATUS_FAILURE},
    {0x0118, "No such SOP class", DIMSE_STATUS_FAILURE},
    {0x0119, "Class-instance conflict", DIMSE_STATUS_FAILURE},
    {0x0120, "Missing attribute", DIMSE_STATUS_FAILURE},
    {0x0121, "Missing attribute value", DIMSE_STATUS_FAILURE},
    {0x0122, "Refused: SOP class not supported", DIMSE_STATUS_FAILURE},
    {0x0123, "No such action type", DIMSE_STATUS_FAILURE},
    {0x0211, "Unrecognized operation", DIMSE_STATUS_FAILURE},
    {0x0212, "Mistyped argument", DIMSE_STATUS_FAILURE},
    {0x0213, "Resource limitation", DIMSE_STATUS_FAILURE},
    {0xA700, "No resources", DIMSE_STATUS_FAILURE},
    {0xFE00, "Request cancelled", DIMSE_STATUS_CANCEL},
};

constexpr char kUnknownStatus[] = "Unknown response; see service-specific interpretation";

}  // namespace

int DimseStatusText(uint16_t status, const char** text) {
  for (const StatusText& entry : kGeneralStatuses) {
    if (entry.status == status) {
      *text = entry.text;
      return entry.category;
    }
  }
  *text = kUnknownStatus;
  return DIMSE_STATUS_UNKNOWN;
}

}  // namespace KESTREL
