// Encoding of data objects into byte streams, in the three modes.
#include <cstring>
#include <memory>

#include "TransferSyntax.h"
#include "ValueContext.h"
#include "ValueRepresentation.h"
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
// implicit stream without a dictionary, or built without one) takes the one the dictionary and
// the data set give (ResolveTypeCode); failing that it goes out as UN, a sequence as SQ. A value
// too long for a 16-bit length goes out as UN, whose header has room for it. Encapsulated pixel
// data always goes out as OB: some writers label it OW, and readers that trust the label then
// take the fragments for words and refuse the odd lengths they find.
uint16_t ExplicitTypeCode(const VR* element, uint16_t resolved, uint32_t length) {
  if (element->Group == 0x7FE0 && element->Element == 0x0010 && HasItems(element)) return kTypeOB;
  uint16_t typeCode = resolved;
  if (typeCode == 0) return HasItems(element) ? kTypeSQ : kTypeUN;
  if (typeCode == kTypeSQ && !HasItems(element) && element->Length) return kTypeUN;
  if (!HasLongHeader(typeCode) && length > 0xFFFF) return kTypeUN;
  return typeCode;
}

// Whether an element holds a sequence as the bytes of an implicit VR little endian item stream
// (PS3.5 6.2.2): read from an implicit stream by a codec without a dictionary, or as UN.
bool HoldsRawSequence(const VR* element, uint16_t resolved) {
  return resolved == kTypeSQ && !HasItems(element) && element->Data && element->Length;
}

// Writes a value, swapping its numbers to big endian on the way when the buffer is big endian.
// The element's own bytes are never changed: it may point at memory its owner still uses.
void WriteValue(ByteBuffer& buffer, const VR* element, uint16_t typeCode) {
  if (!element->Data) {
    buffer.WriteZeros(element->Length);
    return;
  }
  unsigned width = SwapWidth(typeCode);
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
  if (top) *context_ = ValueContext();  // a new data set
  ContextLevel level(*context_);
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
        (void)buffer.Patch32(groupLengthOffset,
                             value - (element->Length + 8 + (element->Length & 1)));
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

// The VR of an element as it is written: its own, or for an element that does not know it, the
// one the attached dictionary (else the installed one) and the data set so far give.
uint16_t DICOMCodec::TypeCodeToWrite(const VR* element) const {
  if (element->TypeCode) return element->TypeCode;
  return ResolveTypeCode(dictionary_, element->Group, element->Element, *context_);
}

bool DICOMCodec::EncodeElement(VR* element, ByteBuffer& buffer, int mode) {
  // An implicit stream carries no VR: the element is written as it is held.
  const uint16_t resolved =
      mode == kModeImplicitLittle ? element->TypeCode : TypeCodeToWrite(element);
  if (mode != kModeImplicitLittle && HoldsRawSequence(element, resolved))
    return EncodeRawSequence(element, buffer, mode);
  uint32_t length = element->Length;
  bool pad = (length & 1) != 0;
  if (pad) ++length;
  bool items = HasItems(element);

  buffer.Write16(element->Group);
  buffer.Write16(element->Element);
  uint16_t typeCode = resolved;
  if (mode != kModeImplicitLittle) {
    typeCode = ExplicitTypeCode(element, resolved, length);
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
  // UN holds its value as it came (PS3.5 6.2.2): never swapped.
  WriteValue(buffer, element, typeCode == kTypeUN ? kTypeOB : typeCode);
  if (pad) buffer.Write8(PaddingByte(typeCode));
  context_->Note(element);
  if (!items) return true;

  if (element->Group == 0x7FE0 && element->Element == 0x0010)
    return WriteEncapsulated(element->SequenceItems, buffer);
  return EncodeItems(element->SequenceItems, buffer, mode);
}

bool DICOMCodec::EncodeItems(Array<DICOMDataObject*>* list, ByteBuffer& buffer, int mode) {
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

// A sequence held as raw implicit VR items is read into items and written as any sequence, so
// that an explicit stream carries SQ with its items, each element with its own VR. Bytes that
// are not an item stream go out unchanged as UN.
bool DICOMCodec::EncodeRawSequence(VR* element, ByteBuffer& buffer, int mode) {
  if (!ExpandSequenceValue(element)) element->TypeCode = kTypeUN;
  return EncodeElement(element, buffer, mode);
}

bool DICOMCodec::ExpandSequenceValue(VR* element) {
  if (!element) return false;
  if (HasItems(element)) return true;
  if (!element->Data || !element->Length) return false;
  DICOMDataObject holder;
  auto sequence =
      std::unique_ptr<VR>(new (std::nothrow) VR(element->Group, element->Element, 0, false));
  if (!sequence) return false;
  sequence->TypeCode = kTypeSQ;
  VR* parsed = sequence.get();
  if (!holder.Push(sequence.get())) return false;
  sequence.release();
  ByteBuffer raw;
  raw.WriteBytes(element->Data, element->Length);
  raw.SetBigEndian(false);
  if (!DecodeSequenceItems(raw, &holder, kModeImplicitLittle) || raw.HasBytes() ||
      !HasItems(parsed))
    return false;
  if (element->OwnsData) delete[] static_cast<char*>(element->Data);
  element->Data = nullptr;
  element->Length = 0;
  element->TypeCode = kTypeSQ;
  element->SequenceItems = parsed->SequenceItems;
  parsed->SequenceItems = nullptr;
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
      if (fragment->Data)
        buffer.WriteBytes(fragment->Data, fragment->Length);
      else
        buffer.WriteZeros(fragment->Length);
      break;
    }
  }
  WriteDelimiter(buffer, 0xE0DD);
  return true;
}
