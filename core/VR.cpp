#include <new>

#include "kestrel/DICOMObject.h"

VR::VR() = default;

VR::VR(uint16_t group, uint16_t element, uint32_t length, bool allocate)
    : Group(group), Element(element), Length(length) {
  // Values are always even in length; the extra byte of an odd one is a zero.
  bool odd = (Length & 1) != 0;
  if (odd) ++Length;
  if (allocate) {
    char* buffer = new (std::nothrow) char[Length ? Length : 1];
    Data = buffer;
    if (buffer && odd) buffer[Length - 1] = 0;
  }
}

VR::VR(uint16_t group, uint16_t element, uint32_t length, void* data)
    : Group(group), Element(element), Length(length), Data(data) {}

VR::VR(uint16_t group, uint16_t element, uint32_t length, void* data, bool ownsData)
    : Group(group), Element(element), Length(length), Data(data), OwnsData(ownsData) {}

VR::~VR() {
  if (OwnsData && Data) delete[] static_cast<char*>(Data);
  Data = nullptr;
  if (SequenceItems) {
    // First to last; the nodes go with the list.
    for (uint32_t i = 0; i < SequenceItems->GetSize(); ++i) delete SequenceItems->Get(i);
    SequenceItems->RemoveAll();
    delete SequenceItems;
    SequenceItems = nullptr;
  }
}

bool VR::operator>(const VR& other) const {
  return Group > other.Group || (Group == other.Group && Element > other.Element);
}

bool VR::operator<(const VR& other) const {
  return Group < other.Group || (Group == other.Group && Element < other.Element);
}

bool VR::operator==(const VR& other) const {
  return Group == other.Group && Element == other.Element;
}
