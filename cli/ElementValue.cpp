#include "ElementValue.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "kestrel/DICOMObject.h"

namespace {

template <class T>
std::vector<T> Numbers(const VR* element) {
  std::vector<T> out(element->Data ? element->Length / sizeof(T) : 0);
  if (!out.empty()) std::memcpy(out.data(), element->Data, out.size() * sizeof(T));
  return out;
}

// The fewest digits that still read back as the same number: 9 for a float, 17 for a double.
std::string Format(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*g", digits, value);
  return text;
}

}  // namespace

std::string VRName(const VR* element) {
  if (element->TypeCode == 0) return element->Element == 0 ? "UL" : "UN";
  char name[3] = {static_cast<char>(element->TypeCode >> 8),
                  static_cast<char>(element->TypeCode & 0xFF), 0};
  return name;
}

bool IsTextVR(const std::string& vr) {
  static const char* const kText[] = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT",
                                      "PN", "SH", "ST", "TM", "UC", "UI", "UR", "UT"};
  for (const char* text : kText)
    if (vr == text) return true;
  return false;
}

std::string ValueText(const VR* element) {
  if (!element->Data) return std::string();
  std::string text(static_cast<const char*>(element->Data), element->Length);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
  return text;
}

std::vector<std::string> TextValues(const VR* element, const std::string& vr) {
  std::string text = ValueText(element);
  std::vector<std::string> values;
  if (vr == "LT" || vr == "ST" || vr == "UT" || vr == "UR") {
    values.push_back(text);
    return values;
  }
  size_t start = 0;
  for (;;) {
    size_t end = text.find('\\', start);
    values.push_back(
        text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return values;
}

std::vector<std::string> NumberValues(const VR* element, const std::string& vr) {
  std::vector<std::string> out;
  if (vr == "US")
    for (auto v : Numbers<uint16_t>(element)) out.push_back(std::to_string(v));
  else if (vr == "SS")
    for (auto v : Numbers<int16_t>(element)) out.push_back(std::to_string(v));
  else if (vr == "UL")
    for (auto v : Numbers<uint32_t>(element)) out.push_back(std::to_string(v));
  else if (vr == "SL")
    for (auto v : Numbers<int32_t>(element)) out.push_back(std::to_string(v));
  else if (vr == "SV")
    for (auto v : Numbers<int64_t>(element)) out.push_back(std::to_string(v));
  else if (vr == "UV")
    for (auto v : Numbers<uint64_t>(element)) out.push_back(std::to_string(v));
  else if (vr == "FL")
    for (auto v : Numbers<float>(element)) out.push_back(Format(v, 9));
  else if (vr == "FD")
    for (auto v : Numbers<double>(element)) out.push_back(Format(v, 17));
  else if (vr == "AT") {
    auto halves = Numbers<uint16_t>(element);
    for (size_t i = 0; i + 1 < halves.size(); i += 2) {
      char tag[9];
      std::snprintf(tag, sizeof tag, "%04X%04X", halves[i], halves[i + 1]);
      out.push_back(tag);
    }
  }
  return out;
}
