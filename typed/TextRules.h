#pragma once

#include <cstdint>

// The padding rules of text values, shared by the string family and by LT and ST.
namespace KESTREL::typed_text {

// Walking back from the last byte, each zero byte becomes a blank; stops at the first byte that
// is neither. False for length 0.
[[nodiscard]] bool PadTrailingZeros(uint32_t length, void* data);
// Cuts trailing blanks by writing a zero after the last other byte, when there were any to cut.
// False for length 0.
[[nodiscard]] bool CutTrailingBlanks(uint32_t length, void* data);

}  // namespace KESTREL::typed_text
