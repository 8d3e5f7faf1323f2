// The family bases: ownership of replaced buffers, indexed access to text and binary values,
// and the text padding rules.
#include "kestrel/VR_XXTYPED.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "TextRules.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"

namespace {

// A buffer of `length` bytes (at least one, so that an empty value is still a value) holding
// `bytes`, or null when memory runs out.
char* NewBuffer(const void* bytes, uint32_t length) {
  char* buffer = new (std::nothrow) char[length ? length : 1];
  if (!buffer) return nullptr;
  if (length && bytes) std::memcpy(buffer, bytes, length);
  if (!length) buffer[0] = 0;
  return buffer;
}

void DestroyItems(VR* element) {
  if (!element->SequenceItems) return;
  for (uint32_t i = 0; i < element->SequenceItems->GetSize(); ++i)
    delete element->SequenceItems->Get(i);
  element->SequenceItems->RemoveAll();
  delete element->SequenceItems;
  element->SequenceItems = nullptr;
}

}  // namespace

namespace KESTREL::typed_text {

bool PadTrailingZeros(uint32_t length, void* data) {
  if (!length) return false;
  auto* bytes = static_cast<char*>(data);
  for (uint32_t i = length; i-- > 0;) {
    if (bytes[i] == 0)
      bytes[i] = ' ';
    else if (bytes[i] != ' ')
      break;
  }
  return true;
}

bool CutTrailingBlanks(uint32_t length, void* data) {
  if (!length) return false;
  auto* bytes = static_cast<char*>(data);
  uint32_t end = length;
  while (end > 0 && bytes[end - 1] == ' ') --end;
  if (end < length) bytes[end] = 0;
  return true;
}

}  // namespace KESTREL::typed_text

// ---- VR_XXTYPED ----

VR_XXTYPED::VR_XXTYPED() = default;

VR_XXTYPED::VR_XXTYPED(uint16_t group, uint16_t element, uint32_t length, void* data)
    : VR(group, element, length, data) {}

VR_XXTYPED::~VR_XXTYPED() = default;

uint32_t VR_XXTYPED::GetSize() const { return 0; }
bool VR_XXTYPED::ToStorage(uint32_t length, void*) const { return length != 0; }
bool VR_XXTYPED::FromStorage(uint32_t length, void*) const { return length != 0; }
uint16_t VR_XXTYPED::GetTypeCode() const { return TypeCode; }

VR_XXTYPED* VR_XXTYPED::Cast(VR* element) { return dynamic_cast<VR_XXTYPED*>(element); }

void VR_XXTYPED::Destroy(VR* element) { delete element; }

void VR_XXTYPED::AdoptBuffer(char* buffer, uint32_t length) {
  if (OwnsData && Data) delete[] static_cast<char*>(Data);
  Data = buffer;
  Length = length;
  // Reported first: when the database cannot take it, the element keeps it.
  bool reported = Database && Database->Report(Group, Element, buffer, length, TypeCode);
  OwnsData = reported ? 0 : 1;
}

void VR_XXTYPED::ClearValue() {
  if (OwnsData && Data) delete[] static_cast<char*>(Data);
  Data = nullptr;
  Length = 0;
  OwnsData = 1;
  DestroyItems(this);
}

bool VR_XXTYPED::SetValue(const void* data, uint32_t length) {
  char* buffer = NewBuffer(data, length);
  if (!buffer) return false;
  if (length) ToStorage(length, buffer);
  AdoptBuffer(buffer, length);
  return true;
}

// ---- VR_XXMULTISTRING ----

uint32_t VR_XXMULTISTRING::GetCount() const {
  if (!Data || !Length) return 0;
  const char* bytes = static_cast<const char*>(Data);
  return 1 + static_cast<uint32_t>(std::count(bytes, bytes + Length, '\\'));
}

bool VR_XXMULTISTRING::Get(uint32_t index, std::string& out) const {
  if (!Data || !Length) return false;
  const char* bytes = static_cast<const char*>(Data);
  const char* end = bytes + Length;
  const char* start = bytes;
  for (uint32_t skipped = 0; skipped < index; ++skipped) {
    const char* separator = std::find(start, end, '\\');
    if (separator == end) return false;
    start = separator + 1;
  }
  const char* stop = std::find(start, end, '\\');
  std::string value(start, stop);
  value.push_back(0);  // room for the terminator FromStorage may write
  FromStorage(static_cast<uint32_t>(stop - start), &value[0]);
  out.assign(value.c_str());
  return true;
}

bool VR_XXMULTISTRING::Set(uint32_t index, const std::string& value) {
  uint32_t width = GetSize();
  if (!width) width = static_cast<uint32_t>(value.size());
  std::string field(width, ' ');
  std::memcpy(&field[0], value.data(), std::min<size_t>(width, value.size()));
  if (width) ToStorage(width, &field[0]);

  const char* bytes = static_cast<const char*>(Data);
  const uint32_t count = GetCount();
  const uint64_t position = uint64_t{index} + 1;
  std::string result;
  if (position > count) {
    // Appending: one separator fewer than the positions skipped, so a value placed right
    // after the last one joins it.
    if (count) result.assign(bytes, Length);
    result.append(static_cast<size_t>(position - count - 1), '\\');
    result += field;
  } else {
    const char* end = bytes + Length;
    const char* start = bytes;
    for (uint32_t i = 0; i < index; ++i) start = std::find(start, end, '\\') + 1;
    const char* stop = std::find(start, end, '\\');
    result.assign(bytes, start);
    result += field;
    if (stop != end) {
      result += '\\';
      result.append(stop + 1, end);
    }
  }
  char* buffer = NewBuffer(result.data(), static_cast<uint32_t>(result.size()));
  if (!buffer) return false;
  AdoptBuffer(buffer, static_cast<uint32_t>(result.size()));
  return true;
}

bool VR_XXMULTISTRING::Get(std::string& out) const { return Get(0, out); }
bool VR_XXMULTISTRING::Set(const std::string& value) { return Set(0, value); }

// ---- VR_XXSTRING ----

bool VR_XXSTRING::ToStorage(uint32_t length, void* data) const {
  return KESTREL::typed_text::PadTrailingZeros(length, data);
}

bool VR_XXSTRING::FromStorage(uint32_t length, void* data) const {
  return KESTREL::typed_text::CutTrailingBlanks(length, data);
}

// ---- VR_XXMULTIBINARY ----

uint32_t VR_XXMULTIBINARY::GetCount() const {
  uint32_t width = GetSize();
  return width && Data ? Length / width : 0;
}

bool VR_XXMULTIBINARY::Get(uint32_t index, void* out) const {
  uint32_t width = GetSize();
  if (!out || !width || index >= GetCount()) return false;
  std::memcpy(out, static_cast<const char*>(Data) + uint64_t{index} * width, width);
  FromStorage(width, out);
  return true;
}

bool VR_XXMULTIBINARY::Set(uint32_t index, const void* value) {
  uint32_t width = GetSize();
  if (!value || !width) return false;
  if (index >= GetCount()) {
    uint64_t grown = (uint64_t{index} + 1) * width;
    if (grown > 0xFFFFFFFEu) return false;  // 0xFFFFFFFF means "undefined length"
    char* buffer = new (std::nothrow) char[grown];
    if (!buffer) return false;
    std::memset(buffer, 0, grown);
    if (Data) std::memcpy(buffer, Data, std::min<uint64_t>(Length, grown));
    AdoptBuffer(buffer, static_cast<uint32_t>(grown));
  }
  char* slot = static_cast<char*>(Data) + uint64_t{index} * width;
  std::memcpy(slot, value, width);
  ToStorage(width, slot);
  return true;
}

bool VR_XXMULTIBINARY::Get(void* out) const { return Get(0, out); }
bool VR_XXMULTIBINARY::Set(const void* value) { return Set(0, value); }
