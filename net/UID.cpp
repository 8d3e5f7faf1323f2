#include "kestrel/UID.h"

#include <cstring>

#include "kestrel/DICOMObject.h"

UID::UID(const char* text) {
  if (text) Set(text, std::strlen(text));
}

UID::UID(const std::string& text) { Set(text); }

bool UID::Set(const char* text, size_t length) {
  std::memset(text_, 0, sizeof text_);
  length_ = 0;
  if (length > kMaxLength) return false;
  if (length) std::memcpy(text_, text, length);
  length_ = static_cast<uint8_t>(std::strlen(text_));  // an embedded NUL ends the text
  return true;
}

bool UID::Set(const VR* element) {
  if (!element) {
    Set("", 0);
    return false;
  }
  const char* data = static_cast<const char*>(element->Data);
  size_t length = data ? element->Length : 0;
  while (length && (data[length - 1] == '\0' || data[length - 1] == ' ')) --length;
  return Set(data, length);
}

bool UID::operator==(const UID& other) const {
  return length_ == other.length_ && std::memcmp(text_, other.text_, length_) == 0;
}
