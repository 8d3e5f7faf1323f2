#include "kestrel/CDICOMPrintException.h"

#include <cstdio>

#include "PrintStatusTables.h"

namespace KESTREL {

CDICOMPrintException::CDICOMPrintException(DICOMCommandObject* pDCO) : CDICOMException(pDCO) {
  GetStatusText(printWhat_);
}

CDICOMPrintException::~CDICOMPrintException() = default;

const char* CDICOMPrintException::what() const noexcept { return printWhat_.c_str(); }

int CDICOMPrintException::GetStatusText(std::string& text) const {
  int category = CDICOMException::GetStatusText(text);
  if (category != DIMSE_STATUS_UNKNOWN) return category;
  // PS3.4 H.4: the print classes' own warnings are Bxxx and their failures Cxxx.
  switch (Status & 0xF000) {
    case 0xB000:
      text = print::kPrintWarningSentence;
      return DIMSE_STATUS_WARNING;
    case 0xC000:
      text = print::kPrintFailureSentence;
      return DIMSE_STATUS_FAILURE;
    default:
      text = print::kUndeterminedStatusSentence;
      return DIMSE_STATUS_UNKNOWN;
  }
}

int CDICOMPrintException::GetStatusInterpretation(int objectKind, int operation,
                                                  std::string& text) {
  RequestName = std::string(ObjectKindName(objectKind)) + ":" + OperationName(operation);
  Interpretation = print::InterpretationSentence(objectKind, operation, Status);
  printWhat_ = Interpretation;
  text = Interpretation;
  return 1;
}

const char* CDICOMPrintException::ObjectKindName(int objectKind) {
  return print::ObjectKindName(objectKind);
}

const char* CDICOMPrintException::OperationName(int operation) {
  return print::OperationName(operation);
}

std::string InterpretDimseStatus(uint16_t status) {
  const char* statusClass = nullptr;
  const char* meaning = nullptr;
  print::GenericStatusWords(status, &statusClass, &meaning);
  char hex[8];
  std::snprintf(hex, sizeof hex, "%x", status);
  return std::string(statusClass) + ": " + meaning + " 0x" + hex;
}

}  // namespace KESTREL
