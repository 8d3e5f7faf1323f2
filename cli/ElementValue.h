#pragma once

#include <cstdint>
#include <string>
#include <vector>

class VR;

// How the tool reads the value of an element for display.

// The two VR letters; "UN" for an element that never learnt its VR (a group length is "UL").
std::string VRName(const VR* element);
[[nodiscard]] bool IsTextVR(const std::string& vr);
// The value as text, without the trailing padding (blanks and NULs).
std::string ValueText(const VR* element);
// Text values split at backslashes (the multi-valued VRs) or whole (LT, ST, UT, UR).
std::vector<std::string> TextValues(const VR* element, const std::string& vr);
// The binary numbers of US, SS, UL, SL, FL, FD, SV, UV as text, and AT as "ggggeeee".
std::vector<std::string> NumberValues(const VR* element, const std::string& vr);
