#pragma once

// The file helpers of the DICOM file code. Each one writes a FILE.LOG record naming the file
// when the operating system call fails. Handles are file descriptors.

#include <cstddef>
#include <cstdint>
#include <string>

#include "Platform.h"

namespace KESTREL {

using FileHandle = platform::FileHandle;
constexpr FileHandle kInvalidFileHandle = platform::kInvalidFileHandle;

enum class FileMode {
  kRead,   // an existing file, for reading
  kWrite,  // created, or emptied when it exists, for writing
};

// The handle, or kInvalidFileHandle when the file cannot be opened. The name is kept until
// FileClose, to name the file in later records.
FileHandle FileOpen(const std::string& name, FileMode mode);
// Moves the file position; `origin` is 0 (start), 1 (current position) or 2 (end). The new
// position, or -1.
int64_t FileSeek(FileHandle file, int64_t offset, int origin);
// Up to `size` bytes. Gives -1 on failure and also when no byte was read: end of file and a
// failed read look the same to the caller, who stops either way.
int64_t FileRead(FileHandle file, void* buffer, size_t size);
// All `size` bytes, or -1.
int64_t FileWrite(FileHandle file, const void* buffer, size_t size);
// Closes the handle, then forgets its name.
void FileClose(FileHandle file);

// The name `file` was opened with, or "" when it is not open through FileOpen.
std::string OpenFileName(FileHandle file);

}  // namespace KESTREL
