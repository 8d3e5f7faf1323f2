#pragma once

// One presentation context of an association (PS3.8 9.3.2.2 and 9.3.3.2): an abstract syntax
// and the transfer syntaxes proposed for it, or, once answered, the result and the one transfer
// syntax chosen.

#include <cstdint>
#include <vector>

#include "kestrel/Export.h"
#include "kestrel/UID.h"

class KESTREL_API PresentationContext {
 public:
  // Results of an A-ASSOCIATE-AC, PS3.8 Table 9-18.
  static constexpr uint8_t kAcceptance = 0;
  static constexpr uint8_t kUserRejection = 1;
  static constexpr uint8_t kNoReason = 2;
  static constexpr uint8_t kAbstractSyntaxNotSupported = 3;
  static constexpr uint8_t kTransferSyntaxesNotSupported = 4;

  // Every presentation context made draws the next ID from the process-wide counter (odd,
  // stepped by 2, wrapping from 255 to 1).
  PresentationContext();
  PresentationContext(const UID& abstractSyntax, const UID& transferSyntax);

  void AddTransferSyntax(const UID& transferSyntax) { TransferSyntaxes.push_back(transferSyntax); }

  uint8_t PresentationContextID = 0;
  uint8_t Result = kAcceptance;       // meaningful in an answer only
  UID AbstractSyntax;                 // empty in an answer: the request's context ID names it
  std::vector<UID> TransferSyntaxes;  // proposed; an answer holds exactly one
};
