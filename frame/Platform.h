#pragma once

// The operating system seam of the frame: thread slots, loadable modules, local time, error
// texts, files, the settings file standing for the registry, and the process-shared event. The
// Linux bodies are in the *_posix.cpp files of this folder; nothing else in frame/ includes a
// system header.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace KESTREL {
namespace platform {

// Thread-local slots (pthread keys). The destructor runs for a thread's non-null value when the
// thread exits.
using ThreadSlot = unsigned int;
[[nodiscard]] bool CreateThreadSlot(ThreadSlot* slot, void (*destructor)(void*));
void DeleteThreadSlot(ThreadSlot slot);
[[nodiscard]] void* GetThreadSlotValue(ThreadSlot slot);
[[nodiscard]] bool SetThreadSlotValue(ThreadSlot slot, void* value);

// Loadable modules. LoadModule gives null and fills `error` when the module is not there.
[[nodiscard]] void* LoadModule(const std::string& fileName, std::string* error);
[[nodiscard]] void* FindModuleSymbol(void* module, const char* name);
void UnloadModule(void* module);

std::string GetEnvironment(const char* name);

struct LocalTime {
  int year;
  int month;
  int day;
  int hour;
  int minute;
  int second;
  int millisecond;
};
LocalTime CurrentLocalTime();

// The calling thread's last error number (errno), and the text for one: strerror() followed by
// a line end, so that records built from it stay one per line.
int LastError();
void SetLastError(int error);
std::string ErrorMessage(int error);

// Files by descriptor. All give -1 (or false) on failure with the reason in LastError().
using FileHandle = int;
constexpr FileHandle kInvalidFileHandle = -1;
FileHandle OpenForReading(const std::string& name);
FileHandle CreateForWriting(const std::string& name);
int64_t Seek(FileHandle file, int64_t offset, int origin);
int64_t Read(FileHandle file, void* buffer, size_t size);
int64_t Write(FileHandle file, const void* buffer, size_t size);
[[nodiscard]] bool Close(FileHandle file);
// Appends `text` to the file at `path` the way a stdio "a" stream does: opened, written and
// closed in one go. False when the file cannot be opened.
[[nodiscard]] bool AppendText(const std::string& path, const std::string& text);

// The registry value `name` under "SOFTWARE\Vexa Medical\Vexa\Settings", read from the settings
// file ($KESTREL_SETTINGS, else /etc/kestrel/settings.ini) on every call. False when the file,
// the section or the value is missing.
[[nodiscard]] bool ReadRegistryValue(const std::string& name, std::string* value);

// A pulse event shared by every process that opens the same name: a shared-memory object with
// a process-shared mutex, condition variable and generation counter.
class SharedEvent {
 public:
  // Opens the event, creating it when it does not exist yet. Null when it cannot be had.
  static std::unique_ptr<SharedEvent> Open(const std::string& name);
  // Removes the name from the system; processes holding the event keep using it.
  [[nodiscard]] static bool Remove(const std::string& name);

  ~SharedEvent();
  SharedEvent(const SharedEvent&) = delete;
  SharedEvent& operator=(const SharedEvent&) = delete;

  uint64_t Generation();
  // Steps the generation and wakes every waiter.
  [[nodiscard]] bool Pulse();
  // Blocks until the generation differs from `seen` or `timeoutMs` pass; gives the generation
  // then current.
  uint64_t WaitForChange(uint64_t seen, uint32_t timeoutMs);

  struct Shared;  // the layout in shared memory, private to the _posix file

 private:
  explicit SharedEvent(Shared* shared) : shared_(shared) {}
  Shared* shared_;
};

}  // namespace platform
}  // namespace KESTREL
