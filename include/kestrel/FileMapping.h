#pragma once

#include <cstdint>

#include "kestrel/Export.h"

// A whole file mapped into memory, private to this process: the bytes may be read and written
// through Data(), and writes never reach the file. DICOMCodec::LoadMapped leaves large values
// in the mapping instead of copying them, so the mapping must outlive every object loaded from
// it. A file cut shorter by someone else while it is mapped makes reads past its new end fail
// with SIGBUS: map only files that no one rewrites in place.
class KESTREL_API FileMapping {
 public:
  FileMapping() = default;
  ~FileMapping();
  FileMapping(const FileMapping&) = delete;
  FileMapping& operator=(const FileMapping&) = delete;

  // Maps the file, replacing any earlier mapping. False, with the system's error code in
  // `error` when it is not null, when the file cannot be opened or mapped; an empty file maps
  // to no bytes and succeeds.
  bool Open(const char* path, int* error = nullptr);
  void Close();

  uint8_t* Data() const { return data_; }
  uint64_t Size() const { return size_; }
  // The mapped file, open while it is mapped (-1 when nothing is): for copying its bytes to
  // another file without going through memory.
  int GetHandle() const { return handle_; }
  // Where `length` bytes at `data` lie in the file, when they lie within the mapping.
  bool OffsetOf(const void* data, uint64_t length, uint64_t* offset) const;

 private:
  uint8_t* data_ = nullptr;
  uint64_t size_ = 0;
  int handle_ = -1;
};
