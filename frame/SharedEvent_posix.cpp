#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>

#include "Platform.h"

namespace KESTREL {
namespace platform {

// The layout every process maps. `ready` is written last by the creator, so a process that
// opens the object while it is still being set up waits for it instead of using a half-made
// mutex.
struct SharedEvent::Shared {
  std::atomic<uint32_t> ready;
  pthread_mutex_t mutex;
  pthread_cond_t changed;
  uint64_t generation;
};

namespace {

constexpr uint32_t kReady = 0x4E535456;  // "NSTV"
constexpr int kSetupPolls = 1000;        // 1 ms each: how long to wait for another creator

static_assert(std::atomic<uint32_t>::is_always_lock_free, "the flag is shared between processes");

void Pause() {
  timespec oneMillisecond{0, 1000000};
  nanosleep(&oneMillisecond, nullptr);
}

// A process that dies holding the mutex must not freeze every other process waiting for
// studies, hence a robust mutex: the next locker takes it over and carries on.
bool Lock(pthread_mutex_t* mutex) {
  int result = pthread_mutex_lock(mutex);
  if (result == EOWNERDEAD) return pthread_mutex_consistent(mutex) == 0;
  return result == 0;
}

bool Initialise(SharedEvent::Shared* shared) {
  pthread_mutexattr_t mutexAttributes;
  pthread_mutexattr_init(&mutexAttributes);
  pthread_mutexattr_setpshared(&mutexAttributes, PTHREAD_PROCESS_SHARED);
  pthread_mutexattr_setrobust(&mutexAttributes, PTHREAD_MUTEX_ROBUST);
  int mutexResult = pthread_mutex_init(&shared->mutex, &mutexAttributes);
  pthread_mutexattr_destroy(&mutexAttributes);

  pthread_condattr_t conditionAttributes;
  pthread_condattr_init(&conditionAttributes);
  pthread_condattr_setpshared(&conditionAttributes, PTHREAD_PROCESS_SHARED);
  // Time-outs must not stretch or shrink when someone sets the clock.
  pthread_condattr_setclock(&conditionAttributes, CLOCK_MONOTONIC);
  int conditionResult = pthread_cond_init(&shared->changed, &conditionAttributes);
  pthread_condattr_destroy(&conditionAttributes);

  shared->generation = 0;
  if (mutexResult != 0 || conditionResult != 0) return false;
  shared->ready.store(kReady, std::memory_order_release);
  return true;
}

void* MapCreated(int fd) {
  if (ftruncate(fd, sizeof(SharedEvent::Shared)) != 0) return nullptr;
  void* memory =
      mmap(nullptr, sizeof(SharedEvent::Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory == MAP_FAILED) return nullptr;
  auto* shared = new (memory) SharedEvent::Shared;
  if (!Initialise(shared)) {
    munmap(memory, sizeof(SharedEvent::Shared));
    return nullptr;
  }
  return memory;
}

void* MapExisting(int fd) {
  struct stat status {};
  for (int poll = 0;; ++poll) {
    if (fstat(fd, &status) != 0) return nullptr;
    if (static_cast<size_t>(status.st_size) >= sizeof(SharedEvent::Shared)) break;
    if (poll == kSetupPolls) return nullptr;
    Pause();
  }
  void* memory =
      mmap(nullptr, sizeof(SharedEvent::Shared), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (memory == MAP_FAILED) return nullptr;
  auto* shared = static_cast<SharedEvent::Shared*>(memory);
  for (int poll = 0; shared->ready.load(std::memory_order_acquire) != kReady; ++poll) {
    if (poll == kSetupPolls) {
      munmap(memory, sizeof(SharedEvent::Shared));
      return nullptr;
    }
    Pause();
  }
  return memory;
}

timespec DeadlineAfter(uint32_t timeoutMs) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += timeoutMs / 1000;
  deadline.tv_nsec += static_cast<long>(timeoutMs % 1000) * 1000000;
  if (deadline.tv_nsec >= 1000000000) {
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000;
  }
  return deadline;
}

}  // namespace

std::unique_ptr<SharedEvent> SharedEvent::Open(const std::string& name) {
  void* memory = nullptr;
  int fd = shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd >= 0) {
    memory = MapCreated(fd);
    // A creator that failed half-way must not leave a name that nobody can ever open.
    if (!memory) shm_unlink(name.c_str());
  } else if (errno == EEXIST) {
    fd = shm_open(name.c_str(), O_RDWR | O_CLOEXEC, 0);
    if (fd >= 0) memory = MapExisting(fd);
  }
  if (fd >= 0) close(fd);  // the mapping stays valid without the descriptor
  if (!memory) return nullptr;
  return std::unique_ptr<SharedEvent>(new SharedEvent(static_cast<Shared*>(memory)));
}

bool SharedEvent::Remove(const std::string& name) { return shm_unlink(name.c_str()) == 0; }

SharedEvent::~SharedEvent() { munmap(shared_, sizeof(Shared)); }

uint64_t SharedEvent::Generation() {
  if (!Lock(&shared_->mutex)) return 0;
  uint64_t generation = shared_->generation;
  pthread_mutex_unlock(&shared_->mutex);
  return generation;
}

bool SharedEvent::Pulse() {
  if (!Lock(&shared_->mutex)) return false;
  ++shared_->generation;
  pthread_cond_broadcast(&shared_->changed);
  pthread_mutex_unlock(&shared_->mutex);
  return true;
}

uint64_t SharedEvent::WaitForChange(uint64_t seen, uint32_t timeoutMs) {
  timespec deadline = DeadlineAfter(timeoutMs);
  if (!Lock(&shared_->mutex)) return seen;
  while (shared_->generation == seen) {
    int result = pthread_cond_timedwait(&shared_->changed, &shared_->mutex, &deadline);
    if (result == EOWNERDEAD) {
      pthread_mutex_consistent(&shared_->mutex);
    } else if (result != 0 && result != EINTR) {
      break;  // time-out, or a condition that cannot be waited on
    }
  }
  uint64_t generation = shared_->generation;
  pthread_mutex_unlock(&shared_->mutex);
  return generation;
}

}  // namespace platform
}  // namespace KESTREL
