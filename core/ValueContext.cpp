#include "ValueContext.h"

#include "PrivateDictionary.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

namespace {

constexpr uint16_t kTypeUS = MakeTypeCode('U', 'S');
constexpr uint16_t kTypeSS = MakeTypeCode('S', 'S');
constexpr uint16_t kTypeOW = MakeTypeCode('O', 'W');
constexpr uint16_t kTypeLO = MakeTypeCode('L', 'O');
constexpr uint16_t kTypeUL = MakeTypeCode('U', 'L');

struct Tag {
  uint16_t group;
  uint16_t element;
};

// The attributes PS3.6 gives as "US or SS", whose VR follows Pixel Representation.
constexpr Tag kSignedWithPixels[] = {
    {0x0018, 0x9810},  // Zero Velocity Pixel Value
    {0x0022, 0x1452},  // Mapped Pixel Value
    {0x0028, 0x0071},  // Perimeter Value (retired)
    {0x0028, 0x0104},  // Smallest Valid Pixel Value (retired)
    {0x0028, 0x0105},  // Largest Valid Pixel Value (retired)
    {0x0028, 0x0106},  // Smallest Image Pixel Value
    {0x0028, 0x0107},  // Largest Image Pixel Value
    {0x0028, 0x0108},  // Smallest Pixel Value in Series
    {0x0028, 0x0109},  // Largest Pixel Value in Series
    {0x0028, 0x0110},  // Smallest Image Pixel Value in Plane (retired)
    {0x0028, 0x0111},  // Largest Image Pixel Value in Plane (retired)
    {0x0028, 0x0120},  // Pixel Padding Value
    {0x0028, 0x0121},  // Pixel Padding Range Limit
    {0x0040, 0x9211},  // Real World Value Last Value Mapped
    {0x0040, 0x9216},  // Real World Value First Value Mapped
    {0x0060, 0x3004},  // Histogram First Bin Value
    {0x0060, 0x3006},  // Histogram Last Bin Value
};

// "US or SS" too, but the LUT descriptors: their first and third values are unsigned whatever
// the pixels are, and readers take the whole descriptor as US (PS3.3 C.11.1.1).
constexpr Tag kLUTDescriptors[] = {
    {0x0028, 0x1100}, {0x0028, 0x1101}, {0x0028, 0x1102}, {0x0028, 0x1103},
    {0x0028, 0x1111}, {0x0028, 0x1112}, {0x0028, 0x1113}, {0x0028, 0x3002},
};

// "US or OW" and "US or SS or OW": LUT data, which can be longer than a 16-bit length allows.
constexpr Tag kLUTData[] = {{0x0028, 0x1200}, {0x0028, 0x3006}};

template <size_t N>
bool Listed(const Tag (&table)[N], uint16_t group, uint16_t element) {
  for (const Tag& tag : table)
    if (tag.group == group && tag.element == element) return true;
  return false;
}

uint16_t Value16(const VR* element) {
  if (element->Length != 2 || !element->Data) return 0;
  const auto* bytes = static_cast<const uint8_t*>(element->Data);
  return static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
}

bool IsPrivateCreator(uint16_t group, uint16_t element) {
  return (group & 1) && element >= 0x0010 && element <= 0x00FF;
}

std::string CreatorName(const VR* element) {
  std::string name(static_cast<const char*>(element->Data), element->Length);
  name = name.c_str();  // up to a padding zero
  while (!name.empty() && name.back() == ' ') name.pop_back();
  size_t first = name.find_first_not_of(' ');
  return first == std::string::npos ? std::string() : name.substr(first);
}

}  // namespace

void ValueContext::Note(const VR* element) {
  if (IsPrivateCreator(element->Group, element->Element) && element->Data) {
    creators[(uint32_t{element->Group} << 8) | element->Element] = CreatorName(element);
    return;
  }
  if (element->Group == 0x0028 && element->Element == 0x0103 && element->Length == 2)
    pixelRepresentation = Value16(element);
}

uint16_t ResolveTypeCode(const RTC* dictionary, uint16_t group, uint16_t element,
                         const ValueContext& context) {
  if (element == 0) return kTypeUL;
  if (Listed(kSignedWithPixels, group, element))
    return context.pixelRepresentation == 1 ? kTypeSS : kTypeUS;
  if (Listed(kLUTDescriptors, group, element)) return kTypeUS;
  if (Listed(kLUTData, group, element)) return kTypeOW;
  if (IsPrivateCreator(group, element)) return kTypeLO;
  if ((group & 1) && element >= 0x1000) {
    auto creator = context.creators.find((uint32_t{group} << 8) | (element >> 8));
    if (creator != context.creators.end()) {
      uint16_t known = KESTREL::PrivateTypeCode(creator->second, group, element & 0xFF);
      if (known) return known;
    }
  }
  if (!dictionary) dictionary = GetInstalledRTC();
  return dictionary ? dictionary->GetTypeCode(group, element) : 0;
}
