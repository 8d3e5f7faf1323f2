#pragma once

// Helpers of the module setters of the storage objects: each sets one attribute from a
// pointer, leaving it alone when the pointer is null (see CStorage.h for the rules).

#include <cstdint>

#include "kestrel/Array.h"

class DICOMDataObject;
class VR_XXTYPED;

namespace KESTREL::storage {

// Text through the element's typed Set (whole value, VR rules applied); "" leaves the
// attribute present and empty. False when memory runs out.
[[nodiscard]] bool SetText(VR_XXTYPED* element, const char* text);
// One binary value (GetSize() bytes) through the element's typed Set.
[[nodiscard]] bool SetBinary(VR_XXTYPED* element, const void* value);
// A copy of every item; an empty list leaves an empty sequence.
[[nodiscard]] bool SetItems(VR_XXTYPED* element, Array<DICOMDataObject*>* items);

// True when every one of `results` is true.
template <class... Results>
[[nodiscard]] bool All(Results... results) {
  return (... && results);
}

}  // namespace KESTREL::storage
