#pragma once

// The files of the core: one owner for a stdio stream, and the operations it goes through,
// which a test can replace to make the failures a system gives only on a bad day (a full disk
// part-way through a write, a rename that fails, a disk that cannot be flushed).

#include <cstddef>
#include <cstdio>

namespace KESTREL {

struct FileOperations {
  std::FILE* (*open)(const char* path, const char* mode);
  size_t (*write)(const void* data, size_t size, std::FILE* file);
  int (*close)(std::FILE* file);  // flushes first; a failed flush is a failed close
  int (*rename)(const char* from, const char* to);
  int (*remove)(const char* path);
  int (*sync)(std::FILE* file);            // flushes the stream and forces its bytes to the disk
  int (*syncDirectory)(const char* path);  // forces a directory's entries to the disk
};

// The system's sync operations (File_posix.cpp).
int SyncStream(std::FILE* file);
int SyncDirectoryNamed(const char* path);

// The operations in use: the C library's unless a test replaced them.
const FileOperations& GetFileOperations();
// Replaces the operations for the whole process and gives back the ones replaced.
FileOperations SetFileOperations(const FileOperations& operations);

// Takes the advisory lock of an open file without waiting: false when another open file
// description holds it. The lock goes with the file's close, or with its process.
bool TryLock(std::FILE* file);

// An open stream, closed when the owner goes (a close that fails there is not reported: call
// Close to know).
class File {
 public:
  File() = default;
  File(const char* path, const char* mode) : file_(GetFileOperations().open(path, mode)) {}
  ~File() { (void)Close(); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  explicit operator bool() const { return file_ != nullptr; }
  std::FILE* get() const { return file_; }
  // All `size` bytes, or false.
  [[nodiscard]] bool Write(const void* data, size_t size) {
    return file_ && GetFileOperations().write(data, size, file_) == size;
  }
  // Flushes and closes; false when that failed (the data may not be on disk).
  [[nodiscard]] bool Close() {
    if (!file_) return true;
    std::FILE* file = file_;
    file_ = nullptr;
    return GetFileOperations().close(file) == 0;
  }

 private:
  std::FILE* file_ = nullptr;
};

}  // namespace KESTREL
