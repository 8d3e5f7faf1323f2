#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kestrel/FileMapping.h"

FileMapping::~FileMapping() { Close(); }

void FileMapping::Close() {
  if (data_) munmap(data_, size_);
  data_ = nullptr;
  size_ = 0;
}

bool FileMapping::Open(const char* path, int* error) {
  Close();
  int handle = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  struct stat info {};
  bool ok = handle >= 0 && fstat(handle, &info) == 0;
  if (ok && info.st_size > 0) {
    // Copy-on-write, so that a caller writing into a value (swapping it, say) changes only its
    // own copy; read ahead, since decoding and sending both go through the file in order.
    void* at = mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ | PROT_WRITE, MAP_PRIVATE,
                    handle, 0);
    ok = at != MAP_FAILED;
    if (ok) {
      data_ = static_cast<uint8_t*>(at);
      size_ = static_cast<uint64_t>(info.st_size);
      (void)madvise(data_, size_, MADV_SEQUENTIAL);
      (void)madvise(data_, size_, MADV_WILLNEED);
    }
  }
  if (!ok && error) *error = errno ? errno : EIO;
  if (handle >= 0) close(handle);
  return ok;
}
