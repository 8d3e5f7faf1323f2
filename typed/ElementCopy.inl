#pragma once

#include "kestrel/DICOMObject.h"

namespace KESTREL::typed_copy {

template <class Visit>
bool ForEachElement(DICOMObject* object, Visit visit) {
  if (!object || object->Sealed) return false;
  for (uint32_t i = 0; i < object->Groups.GetSize(); ++i) {
    VRGroupPQueue* group = object->Groups.Get(i);
    if (!group) continue;
    for (uint32_t j = 0; j < group->GetSize(); ++j) {
      if (VR* element = group->Get(j)) visit(element);
    }
  }
  return true;
}

}  // namespace KESTREL::typed_copy
