#pragma once

#include <cstdint>

namespace KESTREL {

// The general meaning of a DIMSE status (PS3.7 Annex C) and its category, a
// DIMSE_STATUS_CATEGORY value. Statuses outside the general table give the "Unknown response"
// text and category 4; their meaning belongs to the service.
int DimseStatusText(uint16_t status, const char** text);

}  // namespace KESTREL
