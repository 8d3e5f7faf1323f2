#include "JsonWriter.h"

#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "ElementValue.h"
#include "kestrel/DICOMObject.h"

using nlohmann::ordered_json;

namespace {

std::string Base64(const uint8_t* data, size_t length) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((length + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < length; i += 3) {
    uint32_t n = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += kAlphabet[(n >> 6) & 63];
    out += kAlphabet[n & 63];
  }
  if (i < length) {
    uint32_t n = data[i] << 16;
    if (i + 1 < length) n |= data[i + 1] << 8;
    out += kAlphabet[n >> 18];
    out += kAlphabet[(n >> 12) & 63];
    out += i + 1 < length ? kAlphabet[(n >> 6) & 63] : '=';
    out += '=';
  }
  return out;
}

std::string TagKey(const VR* element) {
  char key[9];
  std::snprintf(key, sizeof key, "%04X%04X", element->Group, element->Element);
  return key;
}

std::string Trim(const std::string& text) {
  size_t begin = text.find_first_not_of(' ');
  if (begin == std::string::npos) return std::string();
  return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// IS and DS values are JSON numbers; a value that is no number stays a string.
ordered_json NumberOrString(const std::string& text, bool integer) {
  std::string value = Trim(text);
  if (value.empty()) return nullptr;
  char* end = nullptr;
  if (integer) {
    long long n = std::strtoll(value.c_str(), &end, 10);
    if (end && *end == 0) return n;
  } else {
    double d = std::strtod(value.c_str(), &end);
    if (end && *end == 0) return d;
  }
  return value;
}

ordered_json PersonName(const std::string& text) {
  if (text.empty()) return nullptr;
  static const char* const kGroups[] = {"Alphabetic", "Ideographic", "Phonetic"};
  ordered_json name = ordered_json::object();
  size_t start = 0;
  for (const char* group : kGroups) {
    size_t end = text.find('=', start);
    std::string part =
        text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    // Trailing empty components may be left out (PS3.5 6.2), so a group of separators only
    // ("^^^^") is an empty group.
    if (part.find_first_not_of('^') != std::string::npos) name[group] = part;
    if (end == std::string::npos) break;
    start = end + 1;
  }
  if (name.empty()) return nullptr;
  return name;
}

// Encapsulated pixel data as its bytes on the wire: each fragment with its item header, then
// the sequence delimiter.
std::string EncapsulatedBase64(VR* element) {
  std::string bytes;
  auto put32 = [&bytes](uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes += static_cast<char>((v >> (8 * i)) & 0xFF);
  };
  Array<DICOMDataObject*>* items = element->SequenceItems;
  for (uint32_t i = 0; i < items->GetSize(); ++i) {
    while (VR* popped = items->Get(i)->Pop()) {
      std::unique_ptr<VR> fragment(popped);
      if (fragment->Element != 0xE000) continue;
      put32(0xE000FFFE);
      put32(fragment->Length);
      if (fragment->Data) bytes.append(static_cast<const char*>(fragment->Data), fragment->Length);
    }
  }
  put32(0xE0DDFFFE);
  put32(0);
  return Base64(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// The iconv name of a DICOM character set term; empty when the text is already ASCII or
// UTF-8, or when the term is one we do not transcode (ISO 2022 code extensions).
std::string IconvName(const std::string& term) {
  static const struct {
    const char* term;
    const char* iconv;
  } kSets[] = {
      {"ISO_IR 100", "ISO-8859-1"}, {"ISO_IR 101", "ISO-8859-2"},
      {"ISO_IR 109", "ISO-8859-3"}, {"ISO_IR 110", "ISO-8859-4"},
      {"ISO_IR 144", "ISO-8859-5"}, {"ISO_IR 127", "ISO-8859-6"},
      {"ISO_IR 126", "ISO-8859-7"}, {"ISO_IR 138", "ISO-8859-8"},
      {"ISO_IR 148", "ISO-8859-9"}, {"ISO_IR 203", "ISO-8859-15"},
      {"ISO_IR 166", "TIS-620"},    {"ISO_IR 13", "SHIFT_JIS"},
      {"GB18030", "GB18030"},       {"GBK", "GBK"},
  };
  for (const auto& set : kSets)
    if (term == set.term) return set.iconv;
  return std::string();
}

// Text of the character-set dependent VRs in UTF-8, as the JSON model requires. Bytes that do
// not convert are left for the JSON writer to replace.
std::string ToUtf8(const std::string& text, const std::string& charset) {
  std::string name = IconvName(charset);
  if (name.empty()) return text;
  iconv_t cd = iconv_open("UTF-8", name.c_str());
  if (cd == reinterpret_cast<iconv_t>(-1)) return text;
  std::string out(text.size() * 4 + 4, '\0');
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  char* to = &out[0];
  size_t outLeft = out.size();
  size_t result = iconv(cd, &in, &inLeft, &to, &outLeft);
  iconv_close(cd);
  if (result == static_cast<size_t>(-1)) return text;
  out.resize(out.size() - outLeft);
  return out;
}

bool IsCharsetText(const std::string& vr) {
  return vr == "SH" || vr == "LO" || vr == "ST" || vr == "LT" || vr == "UC" || vr == "UT" ||
         vr == "PN";
}

ordered_json ElementJson(VR* element, const std::string& charset) {
  std::string vr = VRName(element);
  bool hasItems = element->SequenceItems && element->SequenceItems->GetSize();
  if (hasItems && element->Group == 0x7FE0 && element->Element == 0x0010) {
    return {{"vr", vr == "OW" ? "OW" : "OB"}, {"InlineBinary", EncapsulatedBase64(element)}};
  }
  if (hasItems) vr = "SQ";
  ordered_json out = {{"vr", vr}};
  if (vr == "SQ") {
    ordered_json items = ordered_json::array();
    for (uint32_t i = 0; hasItems && i < element->SequenceItems->GetSize(); ++i)
      items.push_back(ToDicomJson(element->SequenceItems->Get(i), charset));
    if (!items.empty()) out["Value"] = items;
    return out;
  }
  if (!element->Length || !element->Data) return out;
  ordered_json values = ordered_json::array();
  if (vr == "PN") {
    for (const std::string& text : TextValues(element, vr))
      values.push_back(PersonName(ToUtf8(text, charset)));
  } else if (vr == "IS" || vr == "DS") {
    for (const std::string& text : TextValues(element, vr))
      values.push_back(NumberOrString(text, vr == "IS"));
  } else if (IsTextVR(vr)) {
    for (const std::string& text : TextValues(element, vr)) {
      if (text.empty())
        values.push_back(nullptr);
      else
        values.push_back(IsCharsetText(vr) ? ToUtf8(text, charset) : text);
    }
  } else if (vr == "AT") {
    for (const std::string& tag : NumberValues(element, vr)) values.push_back(tag);
  } else if (vr == "US" || vr == "SS" || vr == "UL" || vr == "SL" || vr == "SV" || vr == "UV" ||
             vr == "FL" || vr == "FD") {
    for (const std::string& number : NumberValues(element, vr)) {
      ordered_json value = ordered_json::parse(number, nullptr, false);
      if (value.is_discarded())
        values.push_back(number);  // NaN and infinities
      else
        values.push_back(value);
    }
  } else {
    // The value as it is encoded: an odd length gets its padding byte.
    std::string bytes(static_cast<const char*>(element->Data), element->Length);
    if (bytes.size() & 1) bytes.push_back('\0');
    out["InlineBinary"] = Base64(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return out;
  }
  // A value of padding or separators only is no value (PS3.18 F.2.5: the Value is left out).
  bool anyValue = false;
  for (const ordered_json& value : values) anyValue = anyValue || !value.is_null();
  if (anyValue) out["Value"] = values;
  return out;
}

}  // namespace

ordered_json ToDicomJson(DICOMObject* object, std::string charset) {
  ordered_json out = ordered_json::object();
  while (VR* popped = object->Pop()) {
    std::unique_ptr<VR> element(popped);
    // The model holds the data set alone: no group lengths, no file meta information.
    if (element->Element == 0 || element->Group == 2) continue;
    if (element->Group == 8 && element->Element == 5) {
      // Only the first term: the code extensions of ISO 2022 are not transcoded.
      charset = TextValues(element.get(), "CS").front();
      if (!IconvName(charset).empty()) {
        out["00080005"] = {{"vr", "CS"}, {"Value", {"ISO_IR 192"}}};
        continue;
      }
    }
    out[TagKey(element.get())] = ElementJson(element.get(), charset);
  }
  return out;
}
