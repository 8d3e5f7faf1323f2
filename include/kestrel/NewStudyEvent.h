#pragma once

// The system-wide event "NewStudyEvent": the storing code pulses it after it has written a
// study, and any process that shows studies waits on it to learn of the change.

#include <cstdint>
#include <memory>

#include "kestrel/Export.h"

namespace KESTREL {

// Pulses the event once: every process waiting on it wakes. False when the event cannot be
// opened or created.
KESTREL_API bool PulseNewStudyEvent();

// One process's handle on the event. Not copyable; one object per waiting thread.
class KESTREL_API CNewStudyEvent {
 public:
  // Opens the event, creating it when no process has yet. Pulses made before this point are
  // not seen by Wait.
  CNewStudyEvent();
  ~CNewStudyEvent();
  CNewStudyEvent(const CNewStudyEvent&) = delete;
  CNewStudyEvent& operator=(const CNewStudyEvent&) = delete;

  // False when the event could not be opened; every other call then fails.
  bool IsOpen() const;

  // Wakes every waiter in every process.
  bool Pulse();

  // Blocks until the event has been pulsed since this object was made or since the last Wait
  // that returned true, or until `timeoutMs` milliseconds have passed. True when pulsed. A
  // pulse that comes between two Wait calls is therefore not lost.
  bool Wait(uint32_t timeoutMs);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace KESTREL
