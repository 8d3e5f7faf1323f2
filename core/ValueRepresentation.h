#pragma once

#include <cstdint>

#include "kestrel/DICOMObject.h"

// What the codec needs to know about a value representation code.

// The explicit-VR header with 2 reserved bytes and a 32-bit length (PS3.5 7.1.2). Beyond the
// five classic ones, the newer VRs defined with that header are included: a stream holding
// them cannot be read otherwise.
[[nodiscard]] inline bool HasLongHeader(uint16_t typeCode) {
  switch (typeCode) {
    case MakeTypeCode('O', 'B'):
    case MakeTypeCode('O', 'W'):
    case MakeTypeCode('S', 'Q'):
    case MakeTypeCode('U', 'N'):
    case MakeTypeCode('U', 'T'):
    case MakeTypeCode('O', 'D'):
    case MakeTypeCode('O', 'F'):
    case MakeTypeCode('O', 'L'):
    case MakeTypeCode('O', 'V'):
    case MakeTypeCode('S', 'V'):
    case MakeTypeCode('U', 'V'):
    case MakeTypeCode('U', 'C'):
    case MakeTypeCode('U', 'R'):
      return true;
    default:
      return false;
  }
}

// The byte that pads an odd-length value: a space for the text VRs, zero for all others (UI,
// and also DA, DT and AS, get a zero).
inline uint8_t PaddingByte(uint16_t typeCode) {
  switch (typeCode) {
    case MakeTypeCode('A', 'E'):
    case MakeTypeCode('C', 'S'):
    case MakeTypeCode('D', 'S'):
    case MakeTypeCode('I', 'S'):
    case MakeTypeCode('L', 'O'):
    case MakeTypeCode('L', 'T'):
    case MakeTypeCode('P', 'N'):
    case MakeTypeCode('S', 'H'):
    case MakeTypeCode('S', 'T'):
    case MakeTypeCode('T', 'M'):
    case MakeTypeCode('U', 'T'):
    case MakeTypeCode('U', 'C'):
    case MakeTypeCode('U', 'R'):
      return ' ';
    default:
      return 0;
  }
}

// The width in which a big endian stream holds the value's numbers; 1 for bytes and text.
// AT is two 16-bit halves.
inline unsigned SwapWidth(uint16_t typeCode) {
  switch (typeCode) {
    case MakeTypeCode('U', 'S'):
    case MakeTypeCode('S', 'S'):
    case MakeTypeCode('O', 'W'):
    case MakeTypeCode('A', 'T'):
      return 2;
    case MakeTypeCode('U', 'L'):
    case MakeTypeCode('S', 'L'):
    case MakeTypeCode('F', 'L'):
    case MakeTypeCode('O', 'L'):
    case MakeTypeCode('O', 'F'):
      return 4;
    case MakeTypeCode('F', 'D'):
    case MakeTypeCode('O', 'D'):
    case MakeTypeCode('O', 'V'):
    case MakeTypeCode('S', 'V'):
    case MakeTypeCode('U', 'V'):
      return 8;
    default:
      return 1;
  }
}

// Reverses every `width`-byte number of `data` in place; a trailing partial number is left.
void SwapValues(uint8_t* data, uint32_t length, unsigned width);
