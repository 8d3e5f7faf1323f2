#pragma once

// The exception the print objects (CBasicFilmSession, CBasicFilmBox, CBasicGrayscaleImageBox)
// throw when a printer answers a request with a warning or a failure status. Besides what
// CDICOMException reads from the response, it gives the status's class with a print-specific
// sentence, and a sentence interpreting the status for the kind of print object and the DIMSE
// operation that received it (PS3.4 Annex H).
//
// Also the generic status interpreter, which words any status of a DIMSE-N answer in one line.

#include <cstdint>
#include <string>

#include "kestrel/CDICOMException.h"
#include "kestrel/Export.h"

class DICOMCommandObject;

namespace KESTREL {

// The print object kinds an interpretation is chosen by; also indices of their names.
enum PRINT_OBJECT_KIND {
  PRINT_BASIC_FILM_SESSION = 0,
  PRINT_BASIC_FILM_BOX = 1,
  PRINT_BASIC_GRAYSCALE_IMAGE_BOX = 2,
  PRINT_BASIC_COLOR_IMAGE_BOX = 3,
  PRINT_PRINTER = 4,
  PRINT_PRESENTATION_LUT = 5,
  PRINT_PULL_PRINT_REQUEST = 6,
  PRINT_BASIC_PRINT_IMAGE_OVERLAY_BOX = 7,
  PRINT_UNKNOWN_OBJECT = 8,
};

// The DIMSE operations an interpretation is chosen by.
enum PRINT_OPERATION {
  PRINT_N_CREATE = 0,
  PRINT_N_SET = 1,
  PRINT_N_ACTION = 2,
  PRINT_N_GET = 3,
  PRINT_N_EVENT_REPORT = 4,
  PRINT_N_DELETE = 5,
  PRINT_UNKNOWN_OPERATION = 6,
};

class KESTREL_API CDICOMPrintException : public CDICOMException {
 public:
  // As CDICOMException: reads the response command set `pDCO` (not kept; may be null).
  explicit CDICOMPrintException(DICOMCommandObject* pDCO);
  ~CDICOMPrintException() override;

  // The interpretation sentence once GetStatusInterpretation has run, before that the
  // sentence of GetStatusText.
  const char* what() const noexcept override;

  // The class of Status: the base's category and general text when the general table knows
  // the status. Otherwise a status whose top four bits are B is a print-specific warning (1),
  // C a print-specific failure (2), each with a sentence saying so; anything else stays
  // unknown (4) with a sentence saying it could not be determined.
  int GetStatusText(std::string& text) const override;

  // Sets RequestName to the object kind's name, ":" and the operation's name
  // ("BasicFilmBox:NAction") and Interpretation (and `text`) to the sentence that explains
  // Status for them, or "Unable to interpret the error, or no additional interpretation
  // applies" when none does. Indices out of range count as "Unknown". Returns 1.
  virtual int GetStatusInterpretation(int objectKind, int operation, std::string& text);

  // The names of the two tables: "BasicFilmSession" ... "Unknown", "NCreate" ... "Unknown".
  static const char* ObjectKindName(int objectKind);
  static const char* OperationName(int operation);

 private:
  std::string printWhat_;
};

// The generic interpreter's line for a DIMSE status: "<class>: <meaning> 0x<status>", the
// status in lower-case hexadecimal ("Failure: Missing attribute 0x120"; "Success:  0x0";
// "Unknown: Status code not recognized 0xc123" for a status it does not know).
KESTREL_API std::string InterpretDimseStatus(uint16_t status);

}  // namespace KESTREL
