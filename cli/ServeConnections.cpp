#include "ServeConnections.h"

#include <fstream>
#include <string>

#include "kestrel/Socket.h"

namespace {

// The process's resident memory (VmRSS of /proc/self/status), 0 when it cannot be read.
uint64_t ResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string key;
  uint64_t kilobytes = 0;
  while (status >> key) {
    if (key == "VmRSS:") {
      status >> kilobytes;
      return kilobytes * 1024;
    }
    status.ignore(1 << 16, '\n');
  }
  return 0;
}

}  // namespace

uint64_t Connections::Admit(int handle) {
  std::lock_guard<std::mutex> lock(mutex_);
  // The system gives a handle again only once it was closed: an entry still holding it is on
  // its way out (its association closed it a moment ago) and must not be shut any more.
  for (auto& [id, entry] : entries_) {
    if (entry.handle == handle) entry.handle = -1;
  }
  if (Count(Phase::kWaiting) >= limits_.waiting) {
    // The oldest connection still silent makes room: its request read ends at once.
    for (auto& [id, entry] : entries_) {
      if (entry.phase != Phase::kWaiting) continue;
      Socket::Shutdown(entry.handle);
      break;
    }
  }
  const uint64_t id = next_++;
  entries_[id] = {handle, Phase::kWaiting};
  return id;
}

bool Connections::TakeSlot(uint64_t id) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = entries_.find(id);
  if (stopping_ || it == entries_.end() || it->second.phase != Phase::kWaiting) return false;
  if (Count(Phase::kIdle) + Count(Phase::kBusy) >= limits_.associations || !MemoryAllows())
    return false;
  it->second.phase = Phase::kIdle;
  return true;
}

bool Connections::StartMessage(uint64_t id) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = entries_.find(id);
  if (stopping_ || it == entries_.end()) return false;
  it->second.phase = Phase::kBusy;
  return true;
}

bool Connections::EndMessage(uint64_t id) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = entries_.find(id);
  if (it != entries_.end()) it->second.phase = Phase::kIdle;
  return !stopping_;
}

void Connections::Leave(uint64_t id) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.erase(id);
  }
  changed_.notify_all();
}

void Connections::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopping_ = true;
  for (auto& [id, entry] : entries_) {
    if (entry.phase == Phase::kWaiting)
      Socket::Shutdown(entry.handle);
    else if (entry.phase == Phase::kIdle)
      Socket::ShutdownReading(entry.handle);  // its A-ABORT can still go out
  }
}

void Connections::CutReading() {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& [id, entry] : entries_) Socket::ShutdownReading(entry.handle);
}

bool Connections::WaitForNone(std::chrono::steady_clock::duration limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, limit, [&] { return entries_.empty(); });
}

bool Connections::Stopping() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return stopping_;
}

size_t Connections::Count(Phase phase) const {
  size_t count = 0;
  for (const auto& [id, entry] : entries_) count += entry.phase == phase;
  return count;
}

bool Connections::MemoryAllows() const {
  return !limits_.memoryBytes || ResidentBytes() <= limits_.memoryBytes;
}
