#include "ModuleSetters.h"

#include <cstring>
#include <new>
#include <string>

#include "kestrel/CO_Abstract.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/VR_XXTYPED.h"

namespace KESTREL::storage {

bool SetText(VR_XXTYPED* element, const char* text) {
  if (!text) return true;
  if (!element) return false;
  element->ClearValue();
  // An empty text is an empty value, not a field of blanks of the VR's width.
  if (!*text) return element->SetValue(nullptr, 0);
  if (auto* multi = dynamic_cast<VR_XXMULTISTRING*>(element)) return multi->Set(0, text);
  return element->SetValue(text, static_cast<uint32_t>(std::strlen(text)));
}

bool SetBinary(VR_XXTYPED* element, const void* value) {
  if (!value) return true;
  auto* binary = dynamic_cast<VR_XXMULTIBINARY*>(element);
  if (!binary) return false;
  binary->ClearValue();
  return binary->Set(0, value);
}

bool SetItems(VR_XXTYPED* element, Array<DICOMDataObject*>* items) {
  if (!items) return true;
  if (!element) return false;
  element->ClearValue();
  auto* list = new (std::nothrow) Array<DICOMDataObject*>();
  if (!list) return false;
  element->SequenceItems = list;
  for (uint32_t i = 0; i < items->GetSize(); ++i) {
    DICOMDataObject* copy = CopyDataObject(items->Get(i));
    if (!copy) return false;
    list->Add(copy);
  }
  return true;
}

}  // namespace KESTREL::storage
