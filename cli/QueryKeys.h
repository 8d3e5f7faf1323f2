#pragma once

// The query keys of the C-FIND commands: "-k KEY=VALUE", KEY a keyword ("PatientName") or a
// tag ("0010,0010", "(0010,0010)"); "-k KEY" alone asks for the attribute without matching.

#include <cstdint>
#include <string>

class DICOMObject;
class RTC;

struct QueryKey {
  uint16_t group = 0;
  uint16_t element = 0;
  std::string value;
};

// False with `error` for a keyword the dictionary does not know or a malformed tag.
[[nodiscard]] bool ParseQueryKey(const std::string& text, const RTC* dictionary, QueryKey& key,
                                 std::string& error);

// Gives every element (in sequences too) that has no VR the one the dictionary knows, so that
// the DICOM JSON model of an answer read in implicit VR names its VRs.
void AssignVRs(DICOMObject* object, const RTC* dictionary);
