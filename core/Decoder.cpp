// Decoding of byte streams into data objects. Every length read from the stream is checked
// against the bytes that remain before anything is allocated for it.
#include <memory>
#include <new>
#include <string>

#include "TransferSyntax.h"
#include "ValueContext.h"
#include "ValueRepresentation.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/RTC.h"

namespace {

constexpr uint16_t kTypeSQ = MakeTypeCode('S', 'Q');
constexpr uint16_t kTypeUN = MakeTypeCode('U', 'N');
constexpr uint32_t kUndefinedLength = 0xFFFFFFFF;
// Real data sets nest sequences a handful of levels deep; a stream nesting deeper than this is
// hostile, and following it would only exhaust the stack.
constexpr int kMaxDepth = 64;
// What an element or item costs beside its value, counted against the held limit: an empty
// element dropped past the limit would otherwise cost nothing, and a stream of millions of
// them everything.
constexpr uint64_t kElementCost = 64;

bool IsPixelData(const VR& element) { return element.Group == 0x7FE0 && element.Element == 0x0010; }

bool IsItemGroup(uint16_t group) { return group == 0xFFFE || group == 0xFFE0; }

bool IsVRLetters(const uint8_t letters[2]) {
  return letters[0] >= 'A' && letters[0] <= 'Z' && letters[1] >= 'A' && letters[1] <= 'Z';
}

uint16_t Swap16(uint16_t v) { return static_cast<uint16_t>((v << 8) | (v >> 8)); }

// Pushes an element, keeping it with the caller when the object refuses it.
bool PushElement(DICOMObject* object, std::unique_ptr<VR>& element) {
  if (!object->Push(element.get())) return false;
  element.release();
  return true;
}

}  // namespace

bool DICOMCodec::Decode(ByteBuffer& buffer, DICOMObject* object, int mode) {
  if (!object) return false;
  *context_ = ValueContext();  // a new data set
  held_ = 0;
  buffer.SetBigEndian(IsBigEndianMode(mode));
  return DecodeElements(buffer, object, mode, true);
}

bool DICOMCodec::DecodeImplicitItems(ByteBuffer& buffer, DICOMObject* object) {
  if (!object) return false;
  return DecodeElements(buffer, object, kModeImplicitLittle, false);
}

bool DICOMCodec::DecodeExplicitItems(ByteBuffer& buffer, DICOMObject* object) {
  if (!object) return false;
  int mode = buffer.IsBigEndian() ? kModeExplicitBig : kModeExplicitLittle;
  return DecodeElements(buffer, object, mode, false);
}

// Every way down (the items of a sequence, the content of an item) passes here and counts one
// level, so that sequences nested without items between them are limited too; 64 nested items
// take 128 levels.
bool DICOMCodec::DecodeSequenceItems(ByteBuffer& buffer, DICOMObject* object, int mode) {
  if (depth_ > 2 * kMaxDepth) return false;
  ++depth_;
  bool ok = mode == kModeImplicitLittle ? DecodeImplicitItems(buffer, object)
                                        : DecodeExplicitItems(buffer, object);
  --depth_;
  return ok;
}

void DICOMCodec::SetHoldLimits(uint32_t valueBytes, uint64_t heldBytes) {
  valueLimit_ = valueBytes;
  heldLimit_ = heldBytes;
}

// Whether a value of `length` bytes is read into its element (SetHoldLimits); a value that
// does not fit what is left to hold uses it up.
bool DICOMCodec::HoldsValue(uint32_t length) {
  if (valueLimit_ && length > valueLimit_) return false;
  if (heldLimit_ && held_ + length > heldLimit_) {
    held_ = heldLimit_;
    return false;
  }
  held_ += length;
  return true;
}

// Whether an element (null: an item) is kept at all once the held limit is reached.
bool DICOMCodec::HoldsElement(const VR* element, bool top) {
  if (!heldLimit_) return true;
  if (held_ < heldLimit_) {
    held_ += kElementCost;
    return true;
  }
  return element && top && IsPixelData(*element);
}

// One item of a sequence: its content is read into a new data set that then becomes the next
// item of the element last pushed into `object` (or is dropped past the held limit).
bool DICOMCodec::DecodeItem(ByteBuffer& buffer, DICOMObject* object, int mode, uint32_t length) {
  auto item = std::unique_ptr<DICOMDataObject>(new (std::nothrow) DICOMDataObject);
  if (!item) return false;
  const bool kept = HoldsElement(nullptr, false);
  bool ok;
  if (length == kUndefinedLength) {
    ok = DecodeSequenceItems(buffer, item.get(), mode);
  } else {
    ByteBuffer content(buffer, length);
    ok = DecodeSequenceItems(content, item.get(), mode);
    content.SkipRest();
  }
  if (!ok) return false;
  if (!kept) return true;
  if (!object->PushItem(item.get())) return false;
  item.release();
  return true;
}

// Where the element loop of one level stands: its mode, and for the top level of a stream
// the transfer syntax met in the meta group, which takes over once the meta group ends.
struct DICOMCodec::DecodeLevel {
  int mode;
  bool top;
  bool syntaxPending = false;
  bool metaSeen = false;  // group 0002 read, and no transfer syntax in it so far
  std::string syntax;
};

bool DICOMCodec::DecodeElements(ByteBuffer& buffer, DICOMObject* object, int mode, bool top) {
  ContextLevel context(*context_);
  DecodeLevel level{mode, top, false, false, std::string()};
  while (buffer.HasBytes()) {
    uint16_t group, number;
    if (!buffer.Read16(group)) return false;
    // The meta group ends at the first group other than 0002 (group 0001, though not allowed
    // in a data set, does occur in real files and must already be read in the new syntax).
    const bool metaEnds = top && group != 2;
    if (metaEnds && level.syntaxPending && !SwitchSyntax(buffer, level, group)) return false;
    if (!buffer.Read16(number)) return false;
    if (IsItemGroup(group)) {
      bool end = false;
      if (!DecodeItemTag(buffer, object, level.mode, number, end)) return false;
      if (end) return true;
      continue;
    }
    auto element = std::unique_ptr<VR>(new (std::nothrow) VR);
    if (!element) return false;
    element->Group = group;
    element->Element = number;
    uint32_t length;
    bool explicitVR;
    if (!ReadElementHeader(buffer, level, metaEnds, *element, length, explicitVR)) return false;
    if (!DecodeValue(buffer, object, level, element, length, explicitVR)) return false;
  }
  return true;
}

// The mode of the transfer syntax the meta group named; `group`, read in the old byte order,
// is turned round when the byte order changes.
bool DICOMCodec::SwitchSyntax(ByteBuffer& buffer, DecodeLevel& level, uint16_t& group) {
  level.syntaxPending = false;
  const int newMode = ModeOfTransferSyntax(level.syntax.c_str());
  if (!newMode) return false;
  if (IsBigEndianMode(newMode) != IsBigEndianMode(level.mode)) {
    group = Swap16(group);
    buffer.SetBigEndian(IsBigEndianMode(newMode));
  }
  level.mode = newMode;
  return true;
}

// An item or a delimiter: `end` is set at the delimiter of this level.
bool DICOMCodec::DecodeItemTag(ByteBuffer& buffer, DICOMObject* object, int mode, uint16_t number,
                               bool& end) {
  uint32_t length;
  if (!buffer.Read32(length)) return false;
  if (number == 0xE0DD || number == 0xE00D) {
    end = true;
    return true;
  }
  if (length != kUndefinedLength && (number != 0xE000 || length > buffer.Remaining())) return false;
  return DecodeItem(buffer, object, mode, length);
}

// The VR (explicit streams; the dictionary's in implicit ones) and the length of an element.
bool DICOMCodec::ReadElementHeader(ByteBuffer& buffer, DecodeLevel& level, bool metaEnds,
                                   VR& element, uint32_t& length, bool& explicitVR) {
  // Item content in an explicit stream carries command elements without a VR.
  explicitVR = level.mode != kModeImplicitLittle && (level.top || element.Group != 0);
  if (level.top && element.Group == 2) level.metaSeen = !level.syntaxPending;
  const bool metaSeen = level.metaSeen;
  if (metaEnds) level.metaSeen = false;
  if (!explicitVR) {
    if (!buffer.Read32(length)) return false;
    if (dictionary_) element.TypeCode = LookUpTypeCode(element);
    return true;
  }
  uint8_t letters[2];
  if (!buffer.ReadBytes(letters, 2)) return false;
  element.TypeCode = MakeTypeCode(static_cast<char>(letters[0]), static_cast<char>(letters[1]));
  if (metaEnds && metaSeen && !IsVRLetters(letters) && !buffer.IsBigEndian()) {
    // A meta group without a transfer syntax, followed by an implicit data set: the two bytes
    // are the low half of a 32-bit length, and the rest is implicit VR.
    uint16_t high;
    if (!buffer.Read16(high)) return false;
    length = letters[0] | (letters[1] << 8) | (static_cast<uint32_t>(high) << 16);
    level.mode = kModeImplicitLittle;
    explicitVR = false;
    element.TypeCode = dictionary_ ? LookUpTypeCode(element) : 0;
    return true;
  }
  if (HasLongHeader(element.TypeCode)) {
    uint16_t reserved;
    return buffer.Read16(reserved) && buffer.Read32(length);
  }
  uint16_t shortLength;
  if (!buffer.Read16(shortLength)) return false;
  length = shortLength;
  return true;
}

uint16_t DICOMCodec::LookUpTypeCode(const VR& element) const {
  return ResolveTypeCode(dictionary_, element.Group, element.Element, *context_);
}

// The value after the header: a sequence's items, encapsulated fragments or the bytes.
bool DICOMCodec::DecodeValue(ByteBuffer& buffer, DICOMObject* object, DecodeLevel& level,
                             std::unique_ptr<VR>& element, uint32_t length, bool explicitVR) {
  if (length == kUndefinedLength)
    return DecodeUndefinedLength(buffer, object, level.mode, element, explicitVR);
  if (length > buffer.Remaining()) return false;
  const uint16_t group = element->Group, number = element->Element;
  // The meta group is always read: it says how the rest is.
  const bool limited = !(level.top && group == 2);
  const bool kept = !limited || HoldsElement(element.get(), level.top);
  // (0054,0220) is read as a sequence whatever its VR, so that it survives implicit streams
  // read without a dictionary.
  if (element->TypeCode == kTypeSQ || (group == 0x0054 && number == 0x0220)) {
    element->Length = 0;
    // A sequence dropped past the held limit still has its items read (and dropped).
    if (kept && !PushElement(object, element)) return false;
    ByteBuffer content(buffer, length);
    bool ok = DecodeSequenceItems(content, object, level.mode);
    content.SkipRest();
    return ok;
  }
  if (!kept || (length && limited && !HoldsValue(length))) {
    if (!buffer.Skip(length)) return false;
    return !kept || PushElement(object, element);
  }
  if (length && !ReadValue(buffer, *element, length)) return false;
  if (level.top && group == 2 && number == 0x0010) {
    level.syntax = TransferSyntaxText(element.get());
    level.syntaxPending = true;
  }
  context_->Note(element.get());
  return PushElement(object, element);
}

bool DICOMCodec::DecodeUndefinedLength(ByteBuffer& buffer, DICOMObject* object, int mode,
                                       std::unique_ptr<VR>& element, bool explicitVR) {
  element->Length = 0;
  const bool pixelData = IsPixelData(*element);
  // A sequence of undefined length whose VR is unknown to the sender holds implicit VR little
  // endian items (PS3.5 6.2.2); it is a sequence from here on.
  const bool unknownSequence = !pixelData && explicitVR && element->TypeCode == kTypeUN;
  if (unknownSequence) element->TypeCode = kTypeSQ;
  // Dropped past the held limit: its items and fragments are read and dropped too.
  if (HoldsElement(element.get(), depth_ == 0) && !PushElement(object, element)) return false;
  if (pixelData) return ReadEncapsulated(buffer, object);
  if (!unknownSequence) return DecodeSequenceItems(buffer, object, mode);
  const bool bigEndian = buffer.IsBigEndian();
  buffer.SetBigEndian(false);
  const bool ok = DecodeSequenceItems(buffer, object, kModeImplicitLittle);
  buffer.SetBigEndian(bigEndian);
  return ok;
}

// A value of at least borrowFrom_ bytes that needs no swapping stays where a mapped source
// holds it: the element points at it without owning it (LoadMapped).
bool DICOMCodec::ReadValue(ByteBuffer& buffer, VR& element, uint32_t length) {
  const bool swapped = buffer.IsBigEndian() && SwapWidth(element.TypeCode) > 1;
  if (borrowFrom_ && length >= borrowFrom_ && !swapped) {
    if (uint8_t* at = buffer.Borrow(length)) {
      element.Data = at;
      element.Length = length;
      element.OwnsData = 0;
      return true;
    }
  }
  return ReadValueBytes(buffer, element, length);
}

// `length` bytes (checked against what remains by the caller) in host byte order.
bool DICOMCodec::ReadValueBytes(ByteBuffer& buffer, VR& element, uint32_t length) {
  char* data = new (std::nothrow) char[length];
  if (!data) return false;
  element.Data = data;
  element.Length = length;
  if (!buffer.ReadBytes(data, length)) return false;
  const unsigned width = SwapWidth(element.TypeCode);
  if (buffer.IsBigEndian() && width > 1)
    SwapValues(reinterpret_cast<uint8_t*>(data), length, width);
  return true;
}

bool DICOMCodec::ReadEncapsulated(ByteBuffer& buffer, DICOMObject* object) {
  if (!object) return false;
  while (buffer.HasBytes()) {
    uint16_t group, number;
    uint32_t length;
    if (!buffer.Read16(group) || !buffer.Read16(number) || !buffer.Read32(length)) return false;
    if (group == 0xFEEE) return true;
    if (IsItemGroup(group) && number == 0xE0DD) return true;
    if (IsItemGroup(group) && number == 0xE000) {
      if (length > buffer.Remaining()) return false;
      if (!HoldsElement(nullptr, false) || (length && !HoldsValue(length))) {
        if (!buffer.Skip(length)) return false;
        continue;
      }
      auto fragment = std::unique_ptr<VR>(new (std::nothrow) VR);
      auto item = std::unique_ptr<DICOMDataObject>(new (std::nothrow) DICOMDataObject);
      if (!fragment || !item) return false;
      fragment->Group = group;
      fragment->Element = number;
      if (length && !ReadValue(buffer, *fragment, length)) return false;
      if (!PushElement(item.get(), fragment)) return false;
      if (!object->PushItem(item.get())) return false;
      item.release();
      continue;
    }
    if (length != 0xDDDDDDDD && !buffer.Skip(length)) return false;
  }
  // The buffer ran out before the sequence delimiter.
  return false;
}
