#pragma once

// Copying and moving elements between data objects. The core has no copy operation: these are
// the typed layer's, used by the module classes and the storage objects.
//
// A data object can be read without draining it only while it is filling (not sealed): the
// elements are then reached through its group list, in no particular order.

#include <cstdint>

class DICOMObject;
class DICOMDataObject;
class VR;

namespace KESTREL::typed_copy {

// Calls visit(VR*) for every element of `object` (not its sequence items). False when the
// object is sealed (being popped), when nothing can be read.
template <class Visit>
[[nodiscard]] bool ForEachElement(DICOMObject* object, Visit visit);

// A new plain element with a copy of `source`'s tag, VR and value, without sequence items;
// null when memory runs out. The caller owns it.
[[nodiscard]] VR* CopyElement(const VR* source);
// A new data object holding copies of every element of `source`, items included; null when
// memory runs out or `source` cannot be read. The caller owns it.
[[nodiscard]] DICOMDataObject* CopyObject(DICOMObject* source);
// Pushes a copy of `source` into `target`, then a copy of each of its sequence items, so that
// the target counts the items' lengths as if it had decoded them. False on failure.
[[nodiscard]] bool PushCopy(DICOMObject* target, const VR* source);
// Pushes copies of everything `source` holds into `target`. A typed data object (CO_Abstract)
// is read through its attributes, a plain one through its groups. False when something could
// not be copied or `source` cannot be read.
[[nodiscard]] bool CopyInto(DICOMObject* source, DICOMObject* target);
// Pops every element out of `source` and pushes it into `target`, dropping group lengths (a
// data object computes its own). Elements the target refuses are destroyed. Returns the number
// of elements taken.
uint32_t MoveInto(DICOMObject* source, DICOMObject* target);

}  // namespace KESTREL::typed_copy

#include "ElementCopy.inl"
