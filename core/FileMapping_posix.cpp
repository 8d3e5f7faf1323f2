#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "kestrel/FileMapping.h"

FileMapping::~FileMapping() { Close(); }

void FileMapping::Close() {
  if (data_) munmap(data_, size_);
  if (handle_ >= 0) close(handle_);
  data_ = nullptr;
  size_ = 0;
  handle_ = -1;
}

bool FileMapping::OffsetOf(const void* data, uint64_t length, uint64_t* offset) const {
  const auto begin = reinterpret_cast<uintptr_t>(data_);
  const auto at = reinterpret_cast<uintptr_t>(data);
  if (!data_ || at < begin || at - begin > size_ || length > size_ - (at - begin)) return false;
  *offset = at - begin;
  return true;
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
  if (ok && data_)
    handle_ = handle;
  else if (handle >= 0)
    close(handle);
  return ok;
}
