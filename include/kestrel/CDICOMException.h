#pragma once

// The exception a service throws when a peer answers a DIMSE request with a status that is
// neither success nor pending. Only the print objects throw it (through CDICOMPrintException).

#include <cstdint>
#include <exception>
#include <string>

#include "kestrel/Export.h"

class DICOMCommandObject;

namespace KESTREL {

// The class of a DIMSE status, as GetStatusText gives it (PS3.7 Annex C).
enum DIMSE_STATUS_CATEGORY {
  DIMSE_STATUS_SUCCESS = 0,
  DIMSE_STATUS_WARNING = 1,
  DIMSE_STATUS_FAILURE = 2,
  DIMSE_STATUS_CANCEL = 3,
  DIMSE_STATUS_UNKNOWN = 4,
};

class KESTREL_API CDICOMException : public std::exception {
 public:
  // Reads the response command set `pDCO` (not kept, not deleted; may be null). Every missing
  // element leaves its field at the default given below.
  explicit CDICOMException(DICOMCommandObject* pDCO);
  ~CDICOMException() override;

  // The general text of Status, as GetStatusText gives it.
  const char* what() const noexcept override;

  // Sets `text` to the general meaning of Status and returns its category, a
  // DIMSE_STATUS_CATEGORY value.
  virtual int GetStatusText(std::string& text) const;

  uint16_t Status = 0;  // (0000,0900)
  // (0000,0901): every tag as "(%x%x,%x%x) " from its four bytes group-high, group-low,
  // element-high, element-low, unpadded, so (0010,0020) reads "(010,020) ".
  std::string OffendingElements;
  std::string ErrorComment;             // (0000,0902)
  std::string AffectedSOPClassUID;      // (0000,0002)
  std::string AffectedSOPInstanceUID;   // (0000,1000)
  std::string AttributeIdentifierList;  // (0000,1005), tags in the form of OffendingElements
  std::string RequestedSOPClassUID;     // (0000,0003)
  // Also from (0000,1000), not from (0000,1001): both instance fields carry the affected SOP
  // instance UID. Callers depend on that, so it is kept.
  std::string RequestedSOPInstanceUID;
  int16_t EventTypeID = -1;   // (0000,1002); -1 when absent
  int16_t ActionTypeID = -1;  // (0000,1008); -1 when absent
  // Left empty here and filled by subclasses: the failed request ("BasicFilmBox:NAction") and
  // the sentence interpreting the status for it.
  std::string RequestName;
  std::string Interpretation;

 private:
  std::string what_;
};

}  // namespace KESTREL
