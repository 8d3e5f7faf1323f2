#include "kestrel/CO_Abstract.h"

#include <cstring>
#include <new>
#include <typeinfo>

#include "ElementCopy.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"

CO_Abstract::CO_Abstract(const char* name, const CO_AttributeInfo* table, uint32_t count,
                         VRReferentialIntegrityDatabase* database)
    : name_(name), database_(database) {
  if (!database_) {
    ownDatabase_ = std::make_unique<VRReferentialIntegrityDatabase>();
    database_ = ownDatabase_.get();
  }
  slots_.reserve(count);
  for (uint32_t i = 0; i < count; ++i) {
    std::unique_ptr<VR_XXTYPED> element(table[i].Create());
    element->Group = table[i].Group;
    element->Element = table[i].Element;
    // The dictionary's VR, which is what an implicit VR stream leaves unsaid; a value taken in
    // later brings its own when it knows it.
    if (auto* other = dynamic_cast<VR_OX*>(element.get()))
      other->SetOXTypeCode(table[i].TypeCode);
    else
      element->TypeCode = table[i].TypeCode;
    element->Database = database_;
    VR_XXTYPED* raw = element.get();
    slots_.push_back(Slot{&table[i], raw, std::move(element)});
  }
}

CO_Abstract::~CO_Abstract() {
  // The base destructor must find nothing to pop: the copies being handed out are plain
  // elements and go with popping_.
  Sealed = 0;
}

VR_XXTYPED* CO_Abstract::GetAttribute(uint16_t group, uint16_t element) {
  for (Slot& slot : slots_)
    if (slot.info->Group == group && slot.info->Element == element) return slot.element;
  return nullptr;
}

bool CO_Abstract::Accepts(uint16_t group, uint16_t element) {
  return GetAttribute(group, element) != nullptr;
}

bool CO_Abstract::PushOther(VR*) { return false; }
bool CO_Abstract::PushOtherItem(DICOMObject*) { return false; }

void CO_Abstract::ClearValues() {
  for (Slot& slot : slots_) slot.element->ClearValue();
}

bool CO_Abstract::ShareAttribute(uint32_t index, VR_XXTYPED* shared) {
  Slot& slot = slots_[index];
  if (!shared || typeid(*shared) != typeid(*slot.element)) return false;
  slot.owned.reset();
  slot.element = shared;
  return true;
}

bool CO_Abstract::TakeValue(VR_XXTYPED* target, VR* source) {
  // A buffer the element owns is moved; one it only points at (a literal, a member, another
  // database's buffer) is copied, since its owner may free it.
  char* buffer;
  bool moved = source->Data && source->OwnsData;
  if (moved) {
    buffer = static_cast<char*>(source->Data);
  } else {
    buffer = new (std::nothrow) char[source->Length ? source->Length : 1];
    if (!buffer) return false;
    if (source->Data && source->Length)
      std::memcpy(buffer, source->Data, source->Length);
    else
      std::memset(buffer, 0, source->Length ? source->Length : 1);
  }
  if (moved) source->Data = nullptr;
  target->ClearValue();
  target->AdoptBuffer(buffer, source->Length);
  target->SequenceItems = source->SequenceItems;
  source->SequenceItems = nullptr;
  if (source->TypeCode) {
    if (auto* other = dynamic_cast<VR_OX*>(target))
      other->SetOXTypeCode(source->TypeCode);
    else
      target->TypeCode = source->TypeCode;
  } else if (dynamic_cast<VR_OX*>(target) || dynamic_cast<VR_XS*>(target)) {
    // A value that came without its VR, for an attribute whose VR depends on the data set
    // ("OB or OW", "US or SS"): the VR is left open (the class keeps its working choice) and
    // is decided when the value is written, as for any element without a VR.
    target->TypeCode = 0;
  }
  VR_XXTYPED::Destroy(source);
  return true;
}

bool CO_Abstract::Push(VR* element) {
  if (!element || Sealed) return false;
  if (element->Length == 0xFFFFFFFF) element->Length = 0;
  if (element->Element == 0) {
    VR_XXTYPED::Destroy(element);  // group lengths are always recomputed
    return true;
  }
  VR_XXTYPED* target = GetAttribute(element->Group, element->Element);
  if (target) {
    // Our own element pushed back into us: there is nothing to take.
    if (VR_XXTYPED::Cast(element) == target) return false;
    if (!TakeValue(target, element)) return false;
    lastAttribute_ = target;
    lastWasOther_ = false;
    return true;
  }
  if (!PushOther(element)) return false;
  lastAttribute_ = nullptr;
  lastWasOther_ = true;
  return true;
}

bool CO_Abstract::PushItem(DICOMObject* item) {
  if (!item || Sealed) return false;
  if (lastWasOther_) return PushOtherItem(item);
  if (!lastAttribute_) return false;
  if (!lastAttribute_->SequenceItems) {
    auto* items = new (std::nothrow) Array<DICOMDataObject*>();
    if (!items) return false;
    items->ClearOnDelete = 1;
    lastAttribute_->SequenceItems = items;
  }
  lastAttribute_->SequenceItems->Add(static_cast<DICOMDataObject*>(item));
  return true;
}

VR* CO_Abstract::Pop() {
  if (!popping_) {
    popping_.reset(new (std::nothrow) DICOMDataObject);
    if (!popping_) return nullptr;
    if (!WriteTo(popping_.get())) {
      popping_.reset();
      return nullptr;
    }
    ClearValues();
    lastAttribute_ = nullptr;
    lastWasOther_ = false;
    Sealed = 1;
  }
  VR* next = popping_->Pop();
  if (!next) {
    popping_.reset();
    Sealed = 0;
  }
  return next;
}

bool CO_Abstract::Clear() {
  ClearValues();
  popping_.reset();
  Sealed = 0;
  lastAttribute_ = nullptr;
  lastWasOther_ = false;
  return true;
}

bool CO_Abstract::WriteTo(DICOMObject* target) {
  if (!target) return false;
  bool ok = true;
  for (Slot& slot : slots_)
    if (slot.element->HasValue() && !KESTREL::typed_copy::PushCopy(target, slot.element))
      ok = false;
  return ok;
}

bool CO_Abstract::ReadFrom(DICOMObject* source) {
  if (!source || source == this) return false;
  // A typed source is read through a plain copy of its attributes.
  std::unique_ptr<DICOMDataObject> plain;
  if (dynamic_cast<CO_Abstract*>(source)) {
    plain.reset(new (std::nothrow) DICOMDataObject);
    if (!plain || !KESTREL::typed_copy::CopyInto(source, plain.get())) return false;
    source = plain.get();
  }
  Clear();
  bool ok = true;
  bool readable = KESTREL::typed_copy::ForEachElement(source, [&](VR* element) {
    if (element->Element == 0 || !Accepts(element->Group, element->Element)) return;
    if (!KESTREL::typed_copy::PushCopy(this, element)) ok = false;
  });
  return readable && ok;
}

uint32_t CO_Abstract::MoveFrom(DICOMObject* source) {
  if (!source || source == this) return 0;
  Clear();
  return KESTREL::typed_copy::MoveInto(source, this);
}
