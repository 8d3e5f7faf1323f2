// Encoding of data objects into byte streams, in the three modes.
#include <cstring>
#include <memory>

#include "core/TransferSyntax.h"
#include "core/ValueRepresentation.h"
#include "kestrel/DICOMCodec.h"

namespace {

constexpr uint16_t kTypeUN = MakeTypeCode('U', 'N');
constexpr uint16_t kTypeSQ = MakeTypeCode('S', 'Q');
constexpr uint16_t kTypeUL = MakeTypeCode('U', 'L');
constexpr uint16_t kTypeOB = MakeTypeCode('O', 'B');

bool IsItemGroup(uint16_t group) { return group == 0xFFFE || group == 0xFFE0; }

bool HasItems(const VR* element) {
  return element->SequenceItems && element->SequenceItems->GetSize() != 0;
}

// The VR written in an explicit stream. An element that never learnt its VR (read from an
// implicit stream without a dictionary, or built without one) goes out as UN, a sequence as SQ
// and a group length as UL: two zero letters would make the stream unreadable. A value too
// long for a 16-bit length goes out as UN, whose header has room for it. Encapsulated pixel
// data always goes out as OB: some writers label it OW, and readers that trust the label then
// take the fragments for words and refuse the odd lengths they find.
uint16_t ExplicitTypeCode(const VR* element, uint32_t length) {
  uint16_t typeCode = element->TypeCode;
  if (element->Group == 0x7FE0 && element->Element == 0x0010 && HasItems(element))
    return kTypeOB;
  if (typeCode == 0) {
    if (HasItems(element)) return kTypeSQ;
    if (element->Element == 0) return kTypeUL;
    return kTypeUN;
  }
  if (!HasLongHeader(typeCode) && length > 0xFFFF) return kTypeUN;
  return typeCode;
}

// Writes a value, swapping its numbers to big endian on the way when the buffer is big endian.
// The element's own bytes are never changed: it may point at memory its owner still uses.
void WriteValue(ByteBuffer& buffer, const VR* element) {
  if (!element->Data) {
    buffer.WriteZeros(element->Length);
    return;
  }
  unsigned width = SwapWidth(element->TypeCode);
  if (!buffer.IsBigEndian() || width == 1) {
    buffer.WriteBytes(element->Data, element->Length);
    return;
  }
  const auto* data = static_cast<const uint8_t*>(element->Data);
  uint8_t chunk[65536];
  for (uint32_t done = 0; done < element->Length;) {
    uint32_t n = element->Length - done;
    if (n > sizeof chunk) n = sizeof chunk;
    std::memcpy(chunk, data + done, n);
    SwapValues(chunk, n, width);
    buffer.WriteBytes(chunk, n);
    done += n;
  }
}

void WriteDelimiter(ByteBuffer& buffer, uint16_t element) {
  buffer.Write16(0xFFFE);
  buffer.Write16(element);
  buffer.Write32(0);
}

}  // namespace

void SwapValues(uint8_t* data, uint32_t length, unsigned width) {
  for (uint32_t i = 0; i + width <= length; i += width) {
    for (unsigned a = 0, b = width - 1; a < b; ++a, --b) {
      uint8_t t = data[i + a];
      data[i + a] = data[i + b];
      data[i + b] = t;
    }
  }
}

bool DICOMCodec::Encode(DICOMObject* object, ByteBuffer& buffer, int mode, bool dropMeta) {
  if (!object) return false;
  buffer.SetBigEndian(IsBigEndianMode(mode));
  return EncodeElements(object, buffer, mode, dropMeta, true);
}

bool DICOMCodec::EncodeImplicitItem(DICOMObject* object, ByteBuffer& buffer) {
  if (!object) return false;
  return EncodeElements(object, buffer, kModeImplicitLittle, false, false);
}

bool DICOMCodec::EncodeExplicitItem(DICOMObject* object, ByteBuffer& buffer) {
  if (!object) return false;
  int mode = buffer.IsBigEndian() ? kModeExplicitBig : kModeExplicitLittle;
  return EncodeElements(object, buffer, mode, false, false);
}

bool DICOMCodec::EncodeElements(DICOMObject* object, ByteBuffer& buffer, int mode, bool dropMeta,
                                bool top) {
  std::unique_ptr<VR> pendingSyntax;
  // Where the value of the last group length written sits, so that a second group length of
  // the same group pushed by the caller can be folded into it instead of written twice.
  size_t groupLengthOffset = 0;
  uint16_t groupLengthGroup = 0;
  bool groupLengthWritten = false;

  while (VR* popped = object->Pop()) {
    std::unique_ptr<VR> element(popped);
    if (dropMeta && element->Group == 2) continue;
    bool explicitVR = mode != kModeImplicitLittle;
    if (element->Element == 0 && element->Group != 0 && element->Group != 2 && explicitVR) continue;
    if (top && pendingSyntax && element->Group != 2) {
      int newMode = ModeOfTransferSyntax(TransferSyntaxText(pendingSyntax.get()).c_str());
      if (!newMode) return false;
      if (newMode != mode) {
        mode = newMode;
        buffer.SetBigEndian(IsBigEndianMode(mode));
      }
      pendingSyntax.reset();
    }
    if (element->Element == 0 && groupLengthWritten && element->Group == groupLengthGroup) {
      // The object counted this element into the value already written; take it back out.
      uint32_t value;
      if (buffer.Peek32(groupLengthOffset, value))
        (void)buffer.Patch32(groupLengthOffset, value - (element->Length + 8 + (element->Length & 1)));
      continue;
    }
    if (element->Element == 0) {
      groupLengthOffset = buffer.Written() + 8;
      groupLengthGroup = element->Group;
      groupLengthWritten = true;
    } else if (element->Group != groupLengthGroup) {
      groupLengthWritten = false;
    }
    if (!EncodeElement(element.get(), buffer, mode)) return false;
    if (top && element->Group == 2 && element->Element == 0x0010 && !HasItems(element.get()))
      pendingSyntax = std::move(element);
  }
  return true;
}

bool DICOMCodec::EncodeElement(VR* element, ByteBuffer& buffer, int mode) {
  uint32_t length = element->Length;
  bool pad = (length & 1) != 0;
  if (pad) ++length;
  bool items = HasItems(element);

  buffer.Write16(element->Group);
  buffer.Write16(element->Element);
  uint16_t typeCode = element->TypeCode;
  if (mode != kModeImplicitLittle) {
    typeCode = ExplicitTypeCode(element, length);
    buffer.Write8(static_cast<uint8_t>(typeCode >> 8));
    buffer.Write8(static_cast<uint8_t>(typeCode));
    if (HasLongHeader(typeCode)) {
      buffer.Write16(0);
      buffer.Write32(items ? 0xFFFFFFFF : length);
    } else {
      buffer.Write16(static_cast<uint16_t>(length));
    }
  } else {
    buffer.Write32(items ? 0xFFFFFFFF : length);
  }
  WriteValue(buffer, element);
  if (pad) buffer.Write8(PaddingByte(typeCode));
  if (!items) return true;

  if (element->Group == 0x7FE0 && element->Element == 0x0010)
    return WriteEncapsulated(element->SequenceItems, buffer);
  Array<DICOMDataObject*>* list = element->SequenceItems;
  for (uint32_t i = 0; i < list->GetSize(); ++i) {
    buffer.Write16(0xFFFE);
    buffer.Write16(0xE000);
    buffer.Write32(0xFFFFFFFF);
    bool ok = mode == kModeImplicitLittle ? EncodeImplicitItem(list->Get(i), buffer)
                                          : EncodeExplicitItem(list->Get(i), buffer);
    if (!ok) return false;
    WriteDelimiter(buffer, 0xE00D);
  }
  WriteDelimiter(buffer, 0xE0DD);
  return true;
}

bool DICOMCodec::WriteEncapsulated(Array<DICOMDataObject*>* items, ByteBuffer& buffer) {
  if (!items) return false;
  for (uint32_t i = 0; i < items->GetSize(); ++i) {
    DICOMDataObject* item = items->Get(i);
    if (!item) continue;
    while (VR* popped = item->Pop()) {
      std::unique_ptr<VR> fragment(popped);
      if (!IsItemGroup(fragment->Group) || fragment->Element != 0xE000) continue;
      buffer.Write16(fragment->Group);
      buffer.Write16(fragment->Element);
      buffer.Write32(fragment->Length);
      if (fragment->Data) buffer.WriteBytes(fragment->Data, fragment->Length);
      else buffer.WriteZeros(fragment->Length);
      break;
    }
  }
  WriteDelimiter(buffer, 0xE0DD);
  return true;
}
