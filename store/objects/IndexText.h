#pragma once

// Text for the image store and database, taken from the attributes of a stored instance: the
// value of an attribute as a column holds it, the trimming and cutting the columns need, and
// the pieces of SQL text built from such values.

#include <cstdint>
#include <string>

class ImageIODModule;
class VR;

namespace KESTREL::storage {

constexpr size_t kColumnWidth = 255;  // the text columns' bound length

// The value of attribute (group,element) of the instance, wherever it is held (a module or
// the other attributes): text values as stored, up to their first zero byte; binary numbers
// (US, SS, UL, SL, FL, FD) in decimal; several values joined by "\". Blanks at both ends are
// removed; text that is not ASCII is converted to UTF-8 from the instance's Specific Character
// Set (KESTREL::ToUTF8). "" when the attribute is absent or has no value; sequences and bulk
// values give "".
std::string AttributeText(ImageIODModule* iod, uint16_t group, uint16_t element);
// The same for one element; `typeCode` is its VR (0: text).
std::string ElementText(const VR* element, uint16_t typeCode);
// The element of an attribute with a value, wherever the instance holds it; null otherwise.
[[nodiscard]] VR* FindAttribute(ImageIODModule* iod, uint16_t group, uint16_t element);
// The first value of the same text.
std::string FirstValue(const std::string& text);

std::string TrimBlanks(const std::string& text);          // both ends
std::string TrimTrailingBlanks(const std::string& text);  // the end only
// At most `bytes` bytes, cut before a whole UTF-8 character.
std::string CutText(const std::string& text, size_t bytes);
// At most kColumnWidth bytes, the same way.
std::string CutToColumn(const std::string& text);

// `format` with printf-style arguments.
std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The value with its quotes doubled, for a quoted SQL literal.
std::string SqlText(const std::string& value);
// The value made into the inside of a LIKE pattern that matches it only as written: "\", "%"
// and "_" are preceded by "\", the escape character the pattern names (ESCAPE '\').
std::string LikeText(const std::string& value);

}  // namespace KESTREL::storage
