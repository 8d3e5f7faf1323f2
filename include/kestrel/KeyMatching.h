#pragma once

// Matching of C-FIND keys against attribute values (PS3.4 C.2.2.2), shared by the query
// services that answer from a database or a media directory. Values and keys are compared as
// text without their padding (leading and trailing blanks, trailing NULs).

#include <string>

#include "kestrel/Export.h"

namespace KESTREL {

// Wild card matching (PS3.4 C.2.2.2.4): '*' matches any run of characters, including none;
// '?' matches exactly one. With `foldCase` the ASCII letters compare without case; bytes at
// or above 0x80 always compare exactly.
KESTREL_API bool MatchWildcard(const std::string& pattern, const std::string& value,
                               bool foldCase = false);

// Range matching (PS3.4 C.2.2.2.5) of a DA, TM or DT value: "A-B", "A-" and "-B" are
// inclusive ranges; a key without '-' is a single value that must be equal. Dates and times
// are compared as digits (the '.' of old dates and ':' of old times are ignored); a time
// shorter than HHMMSS is completed with zeros on both sides. An empty value never matches.
KESTREL_API bool MatchRange(const std::string& key, const std::string& value);

// One key against one value for an attribute of value representation `vr` (two letters):
// an empty key, or one of only '*', matches everything (universal matching); DA, TM and DT
// use range matching;
// every other VR single value or wild card matching, with person names (PN) compared without
// case. An empty value matches only an empty key.
KESTREL_API bool MatchKey(const std::string& key, const std::string& value, const char* vr);

// The text of a value without its padding: leading and trailing blanks and trailing NULs.
KESTREL_API std::string TrimPadding(const std::string& text);

}  // namespace KESTREL
