#include "kestrel/UID.h"

#include <cstring>
#include <random>
#include <string>

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

UID GenerateUID() {
  // A version 4 UUID (RFC 4122: 122 random bits), read as one unsigned 128-bit number.
  static thread_local std::random_device device;
  unsigned __int128 value = 0;
  for (int i = 0; i < 4; ++i) value = (value << 32) | device();
  value &= ~(static_cast<unsigned __int128>(0xF000) << 64);  // version nibble
  value |= static_cast<unsigned __int128>(0x4000) << 64;
  value &= ~(static_cast<unsigned __int128>(0xC0) << 56);  // variant bits
  value |= static_cast<unsigned __int128>(0x80) << 56;
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(value % 10)));
    value /= 10;
  } while (value);
  return UID("2.25." + digits);
}
