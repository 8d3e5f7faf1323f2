#pragma once

#include <cstdint>
#include <string>

namespace KESTREL {

// The VR of the private attribute `element` (its low byte, the offset within its creator's
// block, PS3.5 7.8.1) of `group` reserved by `creator`, from the private dictionary installed
// beside the data dictionary (private.dic); 0 when the creator or the attribute is not known.
// The table is loaded on first use; lookups may run on any thread.
uint16_t PrivateTypeCode(const std::string& creator, uint16_t group, uint8_t element);

}  // namespace KESTREL
