// The parts of the file operations that standard C++ has no words for: forcing data to the
// disk, and the advisory lock that tells a file being written from one left by a dead writer.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "File.h"

namespace KESTREL {

int SyncStream(std::FILE* file) {
  if (std::fflush(file) != 0) return -1;
  return fsync(fileno(file));
}

int SyncDirectoryNamed(const char* path) {
  int handle = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle < 0) return -1;
  int result = fsync(handle);
  const int error = errno;
  close(handle);
  errno = error;
  return result;
}

bool TryLock(std::FILE* file) {
  if (!file) return false;
  int result;
  do {
    result = flock(fileno(file), LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace KESTREL
