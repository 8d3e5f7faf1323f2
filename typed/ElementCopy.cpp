#include "ElementCopy.h"

#include <cstring>
#include <memory>
#include <new>

#include "kestrel/CO_Abstract.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/VR_XXTYPED.h"

namespace KESTREL::typed_copy {

VR* CopyElement(const VR* source) {
  if (!source) return nullptr;
  char* buffer = nullptr;
  if (source->Data) {
    buffer = new (std::nothrow) char[source->Length ? source->Length : 1];
    if (!buffer) return nullptr;
    if (source->Length) std::memcpy(buffer, source->Data, source->Length);
  }
  auto* copy = new (std::nothrow) VR(source->Group, source->Element, source->Length, buffer);
  if (!copy) {
    delete[] buffer;
    return nullptr;
  }
  copy->TypeCode = source->TypeCode;
  // An empty value is written as no value: the copy keeps its length 0 and no buffer.
  if (!source->Length) {
    delete[] buffer;
    copy->Data = nullptr;
  }
  return copy;
}

bool PushCopy(DICOMObject* target, const VR* source) {
  std::unique_ptr<VR> copy(CopyElement(source));
  if (!copy || !target->Push(copy.get())) return false;
  copy.release();
  if (!source->SequenceItems) return true;
  for (uint32_t i = 0; i < source->SequenceItems->GetSize(); ++i) {
    std::unique_ptr<DICOMDataObject> item(CopyObject(source->SequenceItems->Get(i)));
    if (!item || !target->PushItem(item.get())) return false;
    item.release();
  }
  return true;
}

DICOMDataObject* CopyObject(DICOMObject* source) {
  auto copy = std::unique_ptr<DICOMDataObject>(new (std::nothrow) DICOMDataObject);
  if (!copy || !CopyInto(source, copy.get())) return nullptr;
  return copy.release();
}

bool CopyInto(DICOMObject* source, DICOMObject* target) {
  if (!source || !target) return false;
  if (auto* typed = dynamic_cast<CO_Abstract*>(source)) return typed->WriteTo(target);
  bool ok = true;
  bool readable = ForEachElement(source, [&](VR* element) {
    if (!PushCopy(target, element)) ok = false;
  });
  return readable && ok;
}

uint32_t MoveInto(DICOMObject* source, DICOMObject* target) {
  uint32_t taken = 0;
  while (VR* element = source->Pop()) {
    // Group lengths are recomputed by whichever object the elements end up in.
    if (element->Element == 0 || !target->Push(element)) {
      VR_XXTYPED::Destroy(element);
      continue;
    }
    ++taken;
  }
  return taken;
}

}  // namespace KESTREL::typed_copy

DICOMDataObject* CopyDataObject(DICOMObject* source) {
  return source ? KESTREL::typed_copy::CopyObject(source) : nullptr;
}
