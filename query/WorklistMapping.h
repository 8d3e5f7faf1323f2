#pragma once

// Which worklist attribute (PS3.4 Table K.6-1) comes from which column of the RIS orders.

#include <cstddef>
#include <cstdint>
#include <string>

class CWorklistOrderSet;

namespace KESTREL::worklist {

constexpr uint16_t kStepSequenceGroup = 0x0040;
constexpr uint16_t kStepSequenceElement = 0x0100;  // Scheduled Procedure Step Sequence

struct Attribute {
  uint16_t group;
  uint16_t element;
  bool inStep;  // in the Scheduled Procedure Step Sequence item, else at the top level
  const char* vr;
  std::string (*value)(const CWorklistOrderSet& order);
};

// The attribute at that place, or null when the orders do not provide it.
const Attribute* FindAttribute(uint16_t group, uint16_t element, bool inStep);
// Every attribute of the step item, for a sequence key asked without an item.
const Attribute* StepAttributes(size_t& count);

// Whether an order's modality matches a Modality key: a key without wild cards is translated
// to the RIS name and compared with the order's column (so "DX" finds the orders of "General
// Radiography", which are answered as "CR"); a key with wild cards is matched against the
// order's modality translated to DICOM.
[[nodiscard]] bool ModalityMatches(const std::string& key, const CWorklistOrderSet& order);

// A Study Instance UID for an order that has none: "2.25." and the decimal form of a 128-bit
// hash of the order's key, so that every query gives the same UID for the same order.
std::string StudyUIDForOrder(const std::string& orderTableID);

}  // namespace KESTREL::worklist
