#pragma once

// A UID held as text of at most 64 characters (PS3.5 9.1). SOP class UIDs are handed out by the
// GetUID of each service class and compared as text.

#include <cstddef>
#include <cstdint>
#include <string>

#include "kestrel/Export.h"

class VR;

class KESTREL_API UID {
 public:
  static constexpr size_t kMaxLength = 64;

  UID() = default;
  // Implicit, so that a literal can be passed where a UID is expected. A text longer than 64
  // characters leaves the UID empty (see Set).
  UID(const char* text);         // NOLINT(google-explicit-constructor)
  UID(const std::string& text);  // NOLINT(google-explicit-constructor)

  // False, and the UID left empty, when the text is longer than 64 characters: a cut UID
  // could compare equal to another one.
  bool Set(const char* text, size_t length);
  bool Set(const std::string& text) { return Set(text.data(), text.size()); }
  // From a data element's value, without its padding (trailing NULs and blanks). False for a
  // null element or one longer than 64 characters.
  bool Set(const VR* element);

  const char* GetBuffer() const { return text_; }
  size_t GetSize() const { return length_; }
  bool IsEmpty() const { return length_ == 0; }
  std::string ToString() const { return std::string(text_, length_); }

  bool operator==(const UID& other) const;
  bool operator!=(const UID& other) const { return !(*this == other); }

 private:
  char text_[kMaxLength + 1] = {};
  uint8_t length_ = 0;
};

// A new UID, unique without any registration: "2.25." followed by the decimal value of a random
// 128-bit UUID (PS3.5 B.2), at most 44 characters. For new instances, series and studies.
KESTREL_API UID GenerateUID();
