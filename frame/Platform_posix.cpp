#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "Platform.h"

namespace KESTREL {
namespace platform {

static_assert(std::is_same<ThreadSlot, pthread_key_t>::value, "ThreadSlot must hold a key");
static_assert(SEEK_SET == 0 && SEEK_CUR == 1 && SEEK_END == 2, "seek origins are 0, 1, 2");

bool CreateThreadSlot(ThreadSlot* slot, void (*destructor)(void*)) {
  return pthread_key_create(slot, destructor) == 0;
}

void DeleteThreadSlot(ThreadSlot slot) { pthread_key_delete(slot); }

void* GetThreadSlotValue(ThreadSlot slot) { return pthread_getspecific(slot); }

bool SetThreadSlotValue(ThreadSlot slot, void* value) {
  return pthread_setspecific(slot, value) == 0;
}

void* LoadModule(const std::string& fileName, std::string* error) {
  void* module = dlopen(fileName.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module && error) {
    const char* text = dlerror();
    *error = text ? text : fileName + ": cannot be loaded";
  }
  return module;
}

void* FindModuleSymbol(void* module, const char* name) { return dlsym(module, name); }

void UnloadModule(void* module) { dlclose(module); }

std::string GetEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

LocalTime CurrentLocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  return LocalTime{local.tm_year + 1900,
                   local.tm_mon + 1,
                   local.tm_mday,
                   local.tm_hour,
                   local.tm_min,
                   local.tm_sec,
                   static_cast<int>(now.tv_nsec / 1000000)};
}

int LastError() { return errno; }

void SetLastError(int error) { errno = error; }

std::string ErrorMessage(int error) {
  char buffer[256];
  // GNU strerror_r: thread-safe, and the result may or may not be the buffer.
  return std::string(strerror_r(error, buffer, sizeof buffer)) + "\n";
}

FileHandle OpenForReading(const std::string& name) {
  return open(name.c_str(), O_RDONLY | O_CLOEXEC);
}

FileHandle CreateForWriting(const std::string& name) {
  return open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

int64_t Seek(FileHandle file, int64_t offset, int origin) {
  return lseek(file, static_cast<off_t>(offset), origin);
}

int64_t Read(FileHandle file, void* buffer, size_t size) {
  for (;;) {
    ssize_t got = read(file, buffer, size);
    if (got >= 0 || errno != EINTR) return got;
  }
}

// A disk file takes every byte or fails; write() may stop short (a signal, a full disk), so
// keep going until all is written or a real error comes back.
int64_t Write(FileHandle file, const void* buffer, size_t size) {
  const char* next = static_cast<const char*>(buffer);
  size_t left = size;
  while (left > 0) {
    ssize_t put = write(file, next, left);
    if (put < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    next += put;
    left -= static_cast<size_t>(put);
  }
  return static_cast<int64_t>(size);
}

// Don't retry close on EINTR: on Linux the descriptor is gone either way.
bool Close(FileHandle file) { return close(file) == 0; }

bool AppendText(const std::string& path, const std::string& text) {
  FILE* file = std::fopen(path.c_str(), "a");
  if (!file) return false;
  std::fputs(text.c_str(), file);
  std::fclose(file);
  return true;
}

}  // namespace platform
}  // namespace KESTREL
