#pragma once

#include <cstdint>
#include <string>

class VR;

// Encoding modes, as passed between the file layer, the network layer and the codec.
constexpr int kModeImplicitLittle = 100;
constexpr int kModeExplicitLittle = 101;
constexpr int kModeExplicitBig = 102;

[[nodiscard]] inline bool IsBigEndianMode(int mode) {
  return mode != kModeImplicitLittle && mode != kModeExplicitLittle;
}

// The mode of a transfer syntax UID, or 0 when the UID is not one the codec can read.
int ModeOfTransferSyntax(const char* uid);

// The UID text of a (0002,0010) value as the codec compares it: at most (length modulo 64)
// bytes, cut at the first NUL, with one trailing space dropped.
std::string TransferSyntaxText(const VR* element);
