#include "FileHelpers.h"

#include <map>
#include <mutex>

#include "FileLog.h"

namespace KESTREL {
namespace {

// Handle to file name, for naming the file when a later call on the handle fails.
struct OpenFiles {
  std::mutex mutex;
  std::map<FileHandle, std::string> names;
};

// Never destroyed: files may still be closed by other static objects' destructors.
OpenFiles& Table() {
  static OpenFiles* table = new OpenFiles;
  return *table;
}

// The error must survive the table lookup on its way to the log.
void LogFailureOn(FileHandle file) {
  int error = platform::LastError();
  LogFileFailure(OpenFileName(file), error);
}

}  // namespace

FileHandle FileOpen(const std::string& name, FileMode mode) {
  FileHandle file =
      mode == FileMode::kRead ? platform::OpenForReading(name) : platform::CreateForWriting(name);
  if (file == kInvalidFileHandle) {
    LogFileFailure(name);
    return kInvalidFileHandle;
  }
  OpenFiles& table = Table();
  std::lock_guard<std::mutex> lock(table.mutex);
  table.names[file] = name;
  return file;
}

int64_t FileSeek(FileHandle file, int64_t offset, int origin) {
  int64_t position = platform::Seek(file, offset, origin);
  if (position < 0) {
    LogFailureOn(file);
    return -1;
  }
  return position;
}

int64_t FileRead(FileHandle file, void* buffer, size_t size) {
  int64_t got = platform::Read(file, buffer, size);
  if (got < 0) {
    LogFailureOn(file);
    return -1;
  }
  return got == 0 ? -1 : got;
}

int64_t FileWrite(FileHandle file, const void* buffer, size_t size) {
  int64_t put = platform::Write(file, buffer, size);
  if (put < 0) {
    LogFailureOn(file);
    return -1;
  }
  return put;
}

// The table stays locked from the close to the erase: a descriptor number freed by the close
// can be handed to another thread's open at once, and that file's name must not be erased.
void FileClose(FileHandle file) {
  std::string name;
  bool closed;
  int error;
  {
    OpenFiles& table = Table();
    std::lock_guard<std::mutex> lock(table.mutex);
    auto found = table.names.find(file);
    if (found != table.names.end()) name = found->second;
    closed = platform::Close(file);
    error = platform::LastError();
    table.names.erase(file);
  }
  if (!closed) LogFileFailure(name, error);
}

std::string OpenFileName(FileHandle file) {
  OpenFiles& table = Table();
  std::lock_guard<std::mutex> lock(table.mutex);
  auto found = table.names.find(file);
  return found == table.names.end() ? std::string() : found->second;
}

}  // namespace KESTREL
