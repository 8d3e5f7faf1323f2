#include "Counters.h"

#include <atomic>

namespace KESTREL {
namespace {

std::atomic<uint8_t> presentationContextCounter{1};
std::atomic<uint16_t> messageCounter{1};

}  // namespace

// fetch_add on the narrow types wraps exactly as "add 2, keep the low bits" must.
uint8_t DrawPresentationContextID() {
  return static_cast<uint8_t>(presentationContextCounter.fetch_add(2) + 2);
}

uint16_t DrawMessageID() { return static_cast<uint16_t>(messageCounter.fetch_add(2) + 2); }

}  // namespace KESTREL
