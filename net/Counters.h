#pragma once

// The two process-wide ID counters of the network layer. Each starts at 1 and is stepped by 2
// before every use, so every ID drawn is odd. They are atomic: associations on several threads
// may draw at once (equal IDs on different associations would be harmless anyway).

#include <cstdint>

namespace KESTREL {

// Presentation context IDs (PS3.8 9.3.2.2: odd, 1 to 255): the result modulo 256, so the
// counter wraps from 255 to 1.
uint8_t DrawPresentationContextID();
// DIMSE Message IDs (PS3.7 E.1): the low 16 bits; the first draw of a process gives 3.
uint16_t DrawMessageID();

}  // namespace KESTREL
