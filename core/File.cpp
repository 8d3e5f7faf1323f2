#include "File.h"

#include <atomic>

namespace KESTREL {
namespace {

size_t Write(const void* data, size_t size, std::FILE* file) {
  return std::fwrite(data, 1, size, file);
}

const FileOperations kSystem = {&std::fopen,  &Write,      &std::fclose,       &std::rename,
                                &std::remove, &SyncStream, &SyncDirectoryNamed};
std::atomic<const FileOperations*> current{&kSystem};
FileOperations replaced;

}  // namespace

const FileOperations& GetFileOperations() { return *current.load(); }

FileOperations SetFileOperations(const FileOperations& operations) {
  FileOperations previous = GetFileOperations();
  replaced = operations;
  current.store(&replaced);
  return previous;
}

}  // namespace KESTREL
