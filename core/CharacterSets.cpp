#include "kestrel/CharacterSets.h"

#include <iconv.h>

#include <cstdint>

namespace {

// The iconv names of the single-byte and multi-byte sets that convert without code extension
// escapes (PS3.3 Tables C.12-2 and C.12-3, and the ISO 2022 forms of the single-byte sets,
// whose G1 bytes are the same).
struct CharacterSet {
  const char* term;
  const char* iconv;
};

constexpr CharacterSet kSets[] = {
    {"ISO_IR 100", "ISO-8859-1"},
    {"ISO 2022 IR 100", "ISO-8859-1"},
    {"ISO_IR 101", "ISO-8859-2"},
    {"ISO 2022 IR 101", "ISO-8859-2"},
    {"ISO_IR 109", "ISO-8859-3"},
    {"ISO 2022 IR 109", "ISO-8859-3"},
    {"ISO_IR 110", "ISO-8859-4"},
    {"ISO 2022 IR 110", "ISO-8859-4"},
    {"ISO_IR 144", "ISO-8859-5"},
    {"ISO 2022 IR 144", "ISO-8859-5"},
    {"ISO_IR 127", "ISO-8859-6"},
    {"ISO 2022 IR 127", "ISO-8859-6"},
    {"ISO_IR 126", "ISO-8859-7"},
    {"ISO 2022 IR 126", "ISO-8859-7"},
    {"ISO_IR 138", "ISO-8859-8"},
    {"ISO 2022 IR 138", "ISO-8859-8"},
    {"ISO_IR 148", "ISO-8859-9"},
    {"ISO 2022 IR 148", "ISO-8859-9"},
    {"ISO_IR 203", "ISO-8859-15"},
    {"ISO 2022 IR 203", "ISO-8859-15"},
    {"ISO_IR 166", "TIS-620"},
    {"ISO 2022 IR 166", "TIS-620"},
    {"ISO_IR 13", "SHIFT_JIS"},
    {"GB18030", "GB18030"},
    {"GBK", "GBK"},
};

std::string Trimmed(const std::string& text) {
  size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return std::string();
  return text.substr(first, text.find_last_not_of(" \0", std::string::npos, 2) - first + 1);
}

const char* IconvName(const std::string& specificCharacterSet) {
  const char* found = nullptr;
  size_t start = 0;
  for (;;) {
    size_t end = specificCharacterSet.find('\\', start);
    std::string term = Trimmed(specificCharacterSet.substr(start, end - start));
    for (const CharacterSet& set : kSets)
      if (term == set.term) found = set.iconv;
    if (end == std::string::npos) return found;
    start = end + 1;
  }
}

bool IsASCII(const std::string& text) {
  for (unsigned char c : text)
    if (c >= 0x80) return false;
  return true;
}

std::string FromLatin1(const std::string& text) {
  std::string out;
  out.reserve(text.size() * 2);
  for (unsigned char c : text) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// Empty when iconv cannot convert the whole text.
std::string Convert(const std::string& text, const char* from) {
  iconv_t cd = iconv_open("UTF-8", from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::string();
  std::string out(text.size() * 4 + 4, '\0');
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  char* to = &out[0];
  size_t outLeft = out.size();
  size_t result = iconv(cd, &in, &inLeft, &to, &outLeft);
  iconv_close(cd);
  if (result == static_cast<size_t>(-1) || inLeft) return std::string();
  out.resize(out.size() - outLeft);
  return out;
}

}  // namespace

namespace KESTREL {

bool IsValidUTF8(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const size_t size = text.size();
  for (size_t i = 0; i < size;) {
    unsigned char lead = bytes[i];
    if (lead < 0x80) {
      ++i;
      continue;
    }
    int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : -1;
    if (extra < 0 || lead > 0xF4 || i + static_cast<size_t>(extra) >= size) return false;
    uint32_t code = lead & (0x3F >> extra);
    for (int k = 1; k <= extra; ++k) {
      if ((bytes[i + k] & 0xC0) != 0x80) return false;
      code = (code << 6) | (bytes[i + k] & 0x3F);
    }
    static const uint32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
      return false;
    i += static_cast<size_t>(extra) + 1;
  }
  return true;
}

std::string ToUTF8(const std::string& text, const std::string& specificCharacterSet) {
  if (IsASCII(text)) return text;
  if (const char* from = IconvName(specificCharacterSet)) {
    std::string converted = Convert(text, from);
    if (!converted.empty()) return converted;
  }
  return IsValidUTF8(text) ? text : FromLatin1(text);
}

}  // namespace KESTREL
