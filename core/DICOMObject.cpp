#include "kestrel/DICOMObject.h"

#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr uint16_t kTypeOB = MakeTypeCode('O', 'B');
constexpr uint16_t kTypeUL = MakeTypeCode('U', 'L');

// Encoded size of an element as the object counts it: 8 header bytes and the even value.
uint32_t CountedSize(const VR* element) { return element->Length + 8 + (element->Length & 1); }

// Group length elements of all groups but 0000 (commands) and 0002 (file meta) are always
// recomputed, so a pushed one is dropped.
bool IsRecomputedGroupLength(const VR* element) {
  return element->Element == 0 && element->Group != 0 && element->Group != 2;
}

}  // namespace

VRGroupPQueue::VRGroupPQueue(uint16_t group) : Group(group) {}

VRGroupPQueue::~VRGroupPQueue() {
  while (GetSize()) delete Pop();
}

bool VRGroupPQueue::Push(VR* element) {
  if (element->Group != Group) return false;
  // (0002,0001) OB has the long explicit-VR header, 4 bytes more than the 8 counted elsewhere.
  if (element->Group == 2 && element->Element == 1 && element->TypeCode == kTypeOB)
    Length += element->Length + 12;
  else
    Length += element->Length + 8;
  if (element->Length & 1) ++Length;
  PQueueOfPtr<VR*>::Push(element);
  return true;
}

VR* VRGroupPQueue::Pop() {
  if (GetSize() == 0) return nullptr;
  VR* element = PQueueOfPtr<VR*>::Pop();
  // Always 8 header bytes here, so a (0002,0001) leaves 4 bytes behind in Length.
  Length -= CountedSize(element);
  return element;
}

DICOMObject::DICOMObject() = default;

DICOMObject::~DICOMObject() {
  if (!Sealed) Seal();
  if (Sealed) {
    while (VR* element = Pop()) delete element;
  }
  delete PopGroup;
  PopGroup = nullptr;
  while (Groups.GetSize()) {
    delete Groups.Get(0);
    Groups.RemoveAt(0);
  }
}

bool DICOMObject::Push(VR* element) {
  if (Sealed) return false;
  if (element->Length == 0xFFFFFFFF) element->Length = 0;
  if (Forward) {
    bool taken = Forward->Push(element);
    if (taken && LastGroup) LastGroup->Length += element->Length + 8;
    return taken;
  }
  if (IsRecomputedGroupLength(element)) {
    delete element;
    return true;
  }
  if (LastGroup && LastGroup->Group == element->Group) {
    LastVR = element;
    Length += CountedSize(element);
    return LastGroup->Push(element);
  }
  for (uint32_t i = 0; i < Groups.GetSize(); ++i) {
    VRGroupPQueue* group = Groups.Get(i);
    if (!group) return false;
    if (group->Group == element->Group) {
      LastGroup = group;
      LastVR = element;
      Length += CountedSize(element);
      return group->Push(element);
    }
  }
  auto* group = new (std::nothrow) VRGroupPQueue(element->Group);
  if (!group) return false;
  LastVR = element;
  // 12 for the group length element this group will produce: 8 header bytes and a UL value.
  Length += 12 + CountedSize(element);
  LastGroup = group;
  Groups.Push(group);
  return group->Push(element);
}

bool DICOMObject::PushItem(DICOMObject* item) {
  if (Sealed || !LastVR) return false;
  if (!LastVR->SequenceItems) {
    auto* items = new (std::nothrow) Array<DICOMDataObject*>();
    if (!items) return false;
    items->ClearOnDelete = 1;
    LastVR->SequenceItems = items;
    // The sequence's own delimiters.
    if (LastGroup) LastGroup->Length += 16;
    Length += 16;
  }
  // Items are data sets; a command object never carries sequences.
  LastVR->SequenceItems->Add(static_cast<DICOMDataObject*>(item));
  // Each item adds its item and item-delimiter headers.
  if (LastGroup) LastGroup->Length += item->Length + 16;
  Length += item->Length + 16;
  return true;
}

bool DICOMObject::Seal() {
  while (Groups.GetSize()) {
    PQueueOfPtr<VRGroupPQueue*>::Push(Groups.Get(0));
    Groups.RemoveAt(0);
  }
  PopGroup = nullptr;
  Sealed = GetSize() != 0;
  return Sealed;
}

VR* DICOMObject::Pop() {
  if (!Sealed && !Seal()) return nullptr;
  for (;;) {
    if (!PopGroup) {
      if (GetSize() == 0) {
        Sealed = 0;
        LastGroup = nullptr;
        LastVR = nullptr;
        return nullptr;
      }
      PopGroup = PQueueOfPtr<VRGroupPQueue*>::Pop();
      Length -= 12;
      auto* groupLength = new (std::nothrow) VR(PopGroup->Group, 0, 4, true);
      if (!groupLength || !groupLength->Data) {
        delete groupLength;
        continue;  // out of memory: go on without the group length rather than lose elements
      }
      uint32_t value = PopGroup->Length;
      std::memcpy(groupLength->Data, &value, sizeof value);
      groupLength->TypeCode = kTypeUL;
      PopGroup->GroupLengthVR = groupLength;
      return groupLength;
    }
    if (VR* element = PopGroup->Pop()) {
      Length -= CountedSize(element);
      return element;
    }
    delete PopGroup;
    PopGroup = nullptr;
  }
}

bool DICOMObject::Clear() {
  while (VR* element = Pop()) delete element;
  LastGroup = nullptr;
  LastVR = nullptr;
  return true;
}

VR* DICOMObject::Find(uint16_t group, uint16_t element) {
  if (Sealed) return nullptr;
  for (uint32_t i = 0; i < Groups.GetSize(); ++i) {
    VRGroupPQueue* queue = Groups.Get(i);
    if (!queue) return nullptr;
    if (queue->Group != group) continue;
    for (uint32_t j = 0; j < queue->GetSize(); ++j) {
      VR* candidate = queue->Get(j);
      if (!candidate) return nullptr;
      if (candidate->Element == element) return candidate;
    }
    return nullptr;
  }
  return nullptr;
}

uint16_t DICOMObject::GetUInt16(uint16_t group, uint16_t element) {
  VR* found = Find(group, element);
  if (!found || !found->Data || found->Length != 2) return 0;
  uint16_t value;
  std::memcpy(&value, found->Data, sizeof value);
  return value;
}

DICOMDataObject::~DICOMDataObject() = default;
DICOMCommandObject::~DICOMCommandObject() = default;
