#include "kestrel/NewStudyEvent.h"

#include <mutex>

#include "NewStudyEventName.h"
#include "Platform.h"

namespace KESTREL {
namespace {

std::mutex& NameMutex() {
  static std::mutex* mutex = new std::mutex;
  return *mutex;
}

std::string& NameOverride() {
  static std::string* name = new std::string;
  return *name;
}

}  // namespace

std::string NewStudyEventName() {
  std::lock_guard<std::mutex> lock(NameMutex());
  return NameOverride().empty() ? kNewStudyEventName : NameOverride();
}

void SetNewStudyEventName(const std::string& name) {
  std::lock_guard<std::mutex> lock(NameMutex());
  NameOverride() = name;
}

bool PulseNewStudyEvent() {
  std::unique_ptr<platform::SharedEvent> event = platform::SharedEvent::Open(NewStudyEventName());
  return event && event->Pulse();
}

struct CNewStudyEvent::State {
  std::unique_ptr<platform::SharedEvent> event;
  uint64_t seen = 0;  // the generation of the last pulse this object has seen
};

CNewStudyEvent::CNewStudyEvent() : state_(new State) {
  state_->event = platform::SharedEvent::Open(NewStudyEventName());
  if (state_->event) state_->seen = state_->event->Generation();
}

CNewStudyEvent::~CNewStudyEvent() = default;

bool CNewStudyEvent::IsOpen() const { return state_->event != nullptr; }

bool CNewStudyEvent::Pulse() { return state_->event && state_->event->Pulse(); }

bool CNewStudyEvent::Wait(uint32_t timeoutMs) {
  if (!state_->event) return false;
  uint64_t now = state_->event->WaitForChange(state_->seen, timeoutMs);
  if (now == state_->seen) return false;
  state_->seen = now;
  return true;
}

}  // namespace KESTREL
