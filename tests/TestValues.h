#pragma once

#include <cstdint>
#include <string>

#include "kestrel/DICOMObject.h"

// The text value of an element of `object` without its padding (trailing NULs and blanks);
// empty when the element is missing or has no value.
inline std::string TextOf(DICOMObject* object, uint16_t group, uint16_t element) {
  VR* vr = object ? object->Find(group, element) : nullptr;
  if (!vr || !vr->Data) return std::string();
  std::string text(static_cast<const char*>(vr->Data), vr->Length);
  while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
  return text;
}
