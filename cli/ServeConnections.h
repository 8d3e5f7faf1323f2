#pragma once

// The connections of `kestrel serve`, each served by a thread of its own, and the limits that
// keep a crowd of peers (or a hostile one) from starving the others:
//
//  - a connection that has not sent its association request yet is "waiting"; at most
//    `waiting` of them are kept, and a new one pushes the oldest out, so that idle sockets
//    cannot fill the server;
//  - an association takes a slot only once its request would be accepted; with every slot
//    taken, or the process's memory over its cap, the request is refused at once as a
//    transient local limit (PDU_Service::CheckCapacity), never left to wait;
//  - an association is "idle" between messages and "busy" while one is read and answered.
//
// Stopping ends the waiting and idle connections at once, lets the busy ones finish their
// message, and then (CutReading) ends what is still being received: a message that has fully
// arrived is answered before its association ends.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

class Connections {
 public:
  struct Limits {
    size_t associations = 64;  // slots
    size_t waiting = 256;      // connections before their request
    uint64_t memoryBytes = 0;  // the process's resident memory past which none is accepted; 0: none
  };

  explicit Connections(Limits limits) : limits_(limits) {}

  // A new connection, waiting for its request; gives its id.
  uint64_t Admit(int handle);
  // Its request would be accepted: takes a slot when there is one (and the memory allows).
  bool TakeSlot(uint64_t id);
  // A message begins; false when the server is stopping and the association should end.
  bool StartMessage(uint64_t id);
  // The message is answered; false when the server is stopping.
  bool EndMessage(uint64_t id);
  // The connection ends; called before its handle is closed, so that no later shutdown can
  // reach a handle the system has given to someone else.
  void Leave(uint64_t id);

  // Ends the waiting and idle connections and refuses every new message.
  void Stop();
  // Ends the receiving side of every connection left: a message still arriving is cut, one
  // being answered still gets its answer out.
  void CutReading();
  bool WaitForNone(std::chrono::steady_clock::duration limit);
  bool Stopping() const;

 private:
  enum class Phase { kWaiting, kIdle, kBusy };
  struct Entry {
    int handle;
    Phase phase;
  };
  size_t Count(Phase phase) const;
  bool MemoryAllows() const;

  const Limits limits_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::map<uint64_t, Entry> entries_;  // by id: the oldest first
  uint64_t next_ = 1;
  bool stopping_ = false;
};
