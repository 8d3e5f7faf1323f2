#include "IndexText.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "kestrel/CStorage.h"
#include "kestrel/CharacterSets.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/VR_XXTYPED.h"

namespace KESTREL::storage {

namespace {

template <typename Number>
std::string Numbers(const VR* element, const char* format) {
  std::string text;
  const auto* bytes = static_cast<const unsigned char*>(element->Data);
  for (uint32_t at = 0; at + sizeof(Number) <= element->Length; at += sizeof(Number)) {
    Number value;
    std::memcpy(&value, bytes + at, sizeof value);  // values are held in host byte order
    if (!text.empty()) text += '\\';
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    text += buffer;
  }
  return text;
}

bool IsBulk(uint16_t typeCode) {
  for (const char* bulk : {"OB", "OW", "OF", "OD", "OL", "OV", "UN", "SQ", "AT"}) {
    if (typeCode == MakeTypeCode(bulk[0], bulk[1])) return true;
  }
  return false;
}

}  // namespace

std::string TrimBlanks(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string TrimTrailingBlanks(const std::string& text) {
  const size_t last = text.find_last_not_of(' ');
  return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

std::string CutText(const std::string& text, size_t bytes) {
  if (text.size() <= bytes) return text;
  // Never inside a UTF-8 sequence: its continuation bytes are 10xxxxxx.
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0) == 0x80) --bytes;
  return text.substr(0, bytes);
}

std::string CutToColumn(const std::string& text) { return CutText(text, kColumnWidth); }

std::string ElementText(const VR* element, uint16_t typeCode) {
  if (!element || !element->Data || element->Length == 0) return std::string();
  switch (typeCode) {
    case MakeTypeCode('U', 'S'):
      return Numbers<uint16_t>(element, "%u");
    case MakeTypeCode('S', 'S'):
      return Numbers<int16_t>(element, "%d");
    case MakeTypeCode('U', 'L'):
      return Numbers<uint32_t>(element, "%u");
    case MakeTypeCode('S', 'L'):
      return Numbers<int32_t>(element, "%d");
    case MakeTypeCode('F', 'L'):
      return Numbers<float>(element, "%.9g");
    case MakeTypeCode('F', 'D'):
      return Numbers<double>(element, "%.17g");
    default:
      break;
  }
  if (IsBulk(typeCode)) return std::string();
  const char* data = static_cast<const char*>(element->Data);
  return TrimBlanks(std::string(data, strnlen(data, element->Length)));
}

VR* FindAttribute(ImageIODModule* iod, uint16_t group, uint16_t element) {
  if (!iod) return nullptr;
  VR_XXTYPED* typed = iod->GetAttribute(group, element);
  if (typed && typed->HasValue()) return typed;
  VR* other = iod->GetOtherAttributes()->Find(group, element);
  return other && (other->Data || other->SequenceItems) ? other : nullptr;
}

std::string AttributeText(ImageIODModule* iod, uint16_t group, uint16_t element) {
  VR* found = FindAttribute(iod, group, element);
  if (!found) return std::string();
  uint16_t typeCode = found->TypeCode;
  // A writer that did not know the attribute's VR sent it as UN (PS3.5 6.2.2): its bytes are
  // the value as the attribute's own VR would hold it, and the typed attribute knows that VR.
  if (VR_XXTYPED* typed = VR_XXTYPED::Cast(found);
      typed && (!typeCode || typeCode == MakeTypeCode('U', 'N')))
    typeCode = typed->GetTypeCode();
  std::string text = ElementText(found, typeCode);
  // The databases hold text in UTF-8 (PostgreSQL refuses any other bytes in a UTF8 database).
  for (unsigned char c : text) {
    if (c < 0x80) continue;
    return KESTREL::ToUTF8(text, ElementText(FindAttribute(iod, 0x0008, 0x0005), 0));
  }
  return text;
}

std::string FirstValue(const std::string& text) {
  return TrimBlanks(text.substr(0, text.find('\\')));
}

std::string Printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(&text[0], text.size() + 1, format, again);
  va_end(again);
  return text;
}

std::string SqlText(const std::string& value) {
  std::string text = value;
  CStorage::SQLStringFormat(text);
  return text;
}

std::string LikeText(const std::string& value) {
  std::string text;
  for (char c : value) {
    if (c == '\\' || c == '%' || c == '_') text += '\\';
    text += c;
  }
  return text;
}

}  // namespace KESTREL::storage
