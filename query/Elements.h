#pragma once

// Small element helpers of the query services: text values in and out of data objects.

#include <cstdint>
#include <memory>
#include <string>

class DICOMObject;
class DICOMDataObject;
class VR;

namespace KESTREL::query_elements {

// The two letters of a VR packed as VR::TypeCode holds them.
uint16_t TypeCodeOf(const char* vr);
// The value as text without its padding; "" for a null element or one without value.
std::string Text(const VR* element);
// A new text element holding `value`, padded to an even length with a space (UI: left for
// the codec, which pads with a zero); null when memory ran out.
[[nodiscard]] VR* NewText(uint16_t group, uint16_t element, const std::string& value,
                          const char* vr);
[[nodiscard]] bool PushText(DICOMObject* target, uint16_t group, uint16_t element,
                            const std::string& value, const char* vr);
// Pushes a sequence element holding `item` as its one item.
[[nodiscard]] bool PushSequence(DICOMObject* target, uint16_t group, uint16_t element,
                                std::unique_ptr<DICOMDataObject> item);
// The first item of a sequence element, or null.
[[nodiscard]] DICOMDataObject* FirstItem(const VR* element);
// A sequence that arrived in implicit VR with a defined length is read as a plain value by a
// codec without a dictionary; this reads that value into the element's items
// (DICOMCodec::ExpandSequenceValue). True when the element holds items afterwards, or has no
// value at all.
[[nodiscard]] bool ExpandSequence(VR* element);

}  // namespace KESTREL::query_elements
