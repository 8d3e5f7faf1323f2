#pragma once

// Text of the character-set dependent value representations (SH, LO, ST, LT, UC, UT, PN) in
// UTF-8, the form in which the image and RIS databases hold it and in which the query
// services answer (Specific Character Set "ISO_IR 192", PS3.3 C.12.1.1.2).

#include <string>

#include "kestrel/Export.h"

namespace KESTREL {

// `text` converted from the character set named by `specificCharacterSet` (the value of
// (0008,0005); several values may be given, separated by "\", and the last one that names a
// set is used). ASCII text comes back unchanged. Text in UTF-8 (ISO_IR 192), in the default
// repertoire (no set named), or in a set that cannot be converted (multi-byte ISO 2022 code
// extensions) is kept when it is valid UTF-8 and read as ISO 8859-1 otherwise, so the result
// is always valid UTF-8 and never fails.
KESTREL_API std::string ToUTF8(const std::string& text, const std::string& specificCharacterSet);

// Whether `text` is valid UTF-8 (shortest forms, no surrogates, nothing above U+10FFFF).
KESTREL_API bool IsValidUTF8(const std::string& text);

}  // namespace KESTREL
