// The concrete typed classes: their VR codes, widths and own rules. VR_PN's name conversions
// are in VR_PN.cpp.
#include <algorithm>
#include <cstdint>
#include <string>

#include "TextRules.h"
#include "kestrel/VR_XXTYPED.h"

namespace {

constexpr uint16_t Code(const char (&text)[3]) { return MakeTypeCode(text[0], text[1]); }

// Swaps the first half of the bytes against the second, then each half the same way, down to
// single bytes. For an even power of two that is a full reversal (4 bytes: 3 2 1 0); an odd
// count keeps its middle byte in place at each level.
void SwapHalves(uint8_t* bytes, uint32_t length) {
  if (length < 2) return;
  uint32_t half = length / 2;
  uint8_t* second = bytes + (length - half);
  for (uint32_t i = 0; i < half; ++i) {
    uint8_t t = bytes[i];
    bytes[i] = second[i];
    second[i] = t;
  }
  SwapHalves(bytes, half);
  SwapHalves(second, half);
}

}  // namespace

// Each concrete class: both constructors store the class's own VR code in TypeCode.
#define KESTREL_DEFINE_TYPED(Class, Base, VRCode)                             \
  Class::Class() { TypeCode = Code(VRCode); }                                 \
  Class::Class(uint16_t group, uint16_t element, uint32_t length, void* data) \
      : Base(group, element, length, data) {                                  \
    TypeCode = Code(VRCode);                                                  \
  }                                                                           \
  uint16_t Class::GetTypeCode() const { return Code(VRCode); }

KESTREL_DEFINE_TYPED(VR_AS, VR_XXSTRING, "AS")
KESTREL_DEFINE_TYPED(VR_CS, VR_XXSTRING, "CS")
KESTREL_DEFINE_TYPED(VR_DA, VR_XXSTRING, "DA")
KESTREL_DEFINE_TYPED(VR_DS, VR_XXSTRING, "DS")
KESTREL_DEFINE_TYPED(VR_IS, VR_XXSTRING, "IS")
KESTREL_DEFINE_TYPED(VR_LO, VR_XXSTRING, "LO")
KESTREL_DEFINE_TYPED(VR_PN, VR_XXSTRING, "PN")
KESTREL_DEFINE_TYPED(VR_SH, VR_XXSTRING, "SH")
KESTREL_DEFINE_TYPED(VR_TM, VR_XXSTRING, "TM")
KESTREL_DEFINE_TYPED(VR_UI, VR_XXSTRING, "UI")
KESTREL_DEFINE_TYPED(VR_AT, VR_XXBINARY, "AT")
KESTREL_DEFINE_TYPED(VR_FD, VR_XXBINARY, "FD")
KESTREL_DEFINE_TYPED(VR_OW, VR_XXBINARY, "OW")
KESTREL_DEFINE_TYPED(VR_SL, VR_XXBINARY, "SL")
KESTREL_DEFINE_TYPED(VR_SS, VR_XXBINARY, "SS")
KESTREL_DEFINE_TYPED(VR_UL, VR_XXBINARY, "UL")
KESTREL_DEFINE_TYPED(VR_US, VR_XXBINARY, "US")
KESTREL_DEFINE_TYPED(VR_LT, VR_XXTYPED, "LT")
KESTREL_DEFINE_TYPED(VR_ST, VR_XXTYPED, "ST")
KESTREL_DEFINE_TYPED(VR_SQ, VR_XXTYPED, "SQ")

#undef KESTREL_DEFINE_TYPED

uint32_t VR_AS::GetSize() const { return 4; }
uint32_t VR_DA::GetSize() const { return 8; }
uint32_t VR_AT::GetSize() const { return 4; }
uint32_t VR_FD::GetSize() const { return 8; }
uint32_t VR_OW::GetSize() const { return 1; }
uint32_t VR_SL::GetSize() const { return 4; }
uint32_t VR_SS::GetSize() const { return 2; }
uint32_t VR_UL::GetSize() const { return 4; }
uint32_t VR_US::GetSize() const { return 2; }

// ---- VR_DA ----

bool VR_DA::Get(uint32_t index, std::string& out) const {
  if (!VR_XXSTRING::Get(index, out)) return false;
  // An 8-character value is a date as it should be; anything else may be the old
  // "yyyy.mm.dd" form of ACR-NEMA, read without its dots.
  if (out.size() != 8) out.erase(std::remove(out.begin(), out.end(), '.'), out.end());
  return true;
}

bool VR_DA::Set(uint32_t index, const std::string& value) {
  std::string date;
  for (char c : value) {
    if (c == '.') continue;
    date.push_back(c);
    if (date.size() == 10) break;
  }
  return VR_XXSTRING::Set(index, date);  // the 8-byte field keeps the first 8
}

// ---- VR_UI ----

bool VR_UI::ToStorage(uint32_t length, void* data) const {
  if (!length) return false;
  // UIDs are padded with a zero byte (PS3.5 9.1).
  auto* bytes = static_cast<char*>(data);
  for (uint32_t i = length; i-- > 0 && bytes[i] == ' ';) bytes[i] = 0;
  return true;
}

// ---- VR_AT ----

bool VR_AT::ToStorage(uint32_t length, void* data) const {
  if (!length) return false;
  SwapHalves(static_cast<uint8_t*>(data), length);
  return true;
}

bool VR_AT::FromStorage(uint32_t length, void* data) const { return ToStorage(length, data); }

// ---- VR_OX ----

VR_OX::VR_OX() : OXTypeCode(Code("OW")) { TypeCode = OXTypeCode; }

VR_OX::VR_OX(uint16_t group, uint16_t element, uint32_t length, void* data)
    : VR_XXBINARY(group, element, length, data), OXTypeCode(Code("OW")) {
  TypeCode = OXTypeCode;
}

uint32_t VR_OX::GetSize() const { return OXTypeCode == Code("OW") ? 2 : 1; }
uint16_t VR_OX::GetTypeCode() const { return OXTypeCode; }

void VR_OX::SetOXTypeCode(uint16_t typeCode) {
  OXTypeCode = typeCode;
  TypeCode = typeCode;
}

// ---- VR_XS ----

VR_XS::VR_XS() { TypeCode = Code("US"); }

VR_XS::VR_XS(uint16_t group, uint16_t element, uint32_t length, void* data)
    : VR_XXBINARY(group, element, length, data) {
  TypeCode = Code("US");
}

uint32_t VR_XS::GetSize() const { return 2; }
uint16_t VR_XS::GetTypeCode() const { return TypeCode == Code("SS") ? Code("SS") : Code("US"); }

// ---- LT and ST: one text value with the usual padding ----

bool VR_LT::ToStorage(uint32_t length, void* data) const {
  return KESTREL::typed_text::PadTrailingZeros(length, data);
}
bool VR_LT::FromStorage(uint32_t length, void* data) const {
  return KESTREL::typed_text::CutTrailingBlanks(length, data);
}
bool VR_ST::ToStorage(uint32_t length, void* data) const {
  return KESTREL::typed_text::PadTrailingZeros(length, data);
}
bool VR_ST::FromStorage(uint32_t length, void* data) const {
  return KESTREL::typed_text::CutTrailingBlanks(length, data);
}
