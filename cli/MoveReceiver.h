#pragma once

// The storage node `kestrel move` runs while a move lasts: C-ECHO and C-STORE, each object
// saved into the image store and indexed as `kestrel serve` does.

#include <memory>
#include <string>

struct ServeSettings;

class MoveReceiver {
 public:
  MoveReceiver();
  ~MoveReceiver();  // Stop
  MoveReceiver(const MoveReceiver&) = delete;
  MoveReceiver& operator=(const MoveReceiver&) = delete;

  // Listens on `port` and serves each peer on a thread of its own. False with `error` set
  // when the port cannot be had.
  bool Start(int port, const ServeSettings& settings, std::string* error);
  // Accepts no more peers, gives those still connected `graceSeconds` to release, then cuts
  // them off, and waits for every thread.
  void Stop(int graceSeconds = 5);
  uint64_t Stored() const;
  uint64_t Failed() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};
