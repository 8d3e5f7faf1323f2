#include "FileLog.h"

#include <atomic>
#include <cstdio>
#include <vector>

namespace KESTREL {
namespace {

constexpr char kRecordFormat[] = "%d/%d/%d %d:%d:%d.%d %s: %s";
constexpr char kFileName[] = "/FILE.LOG";

std::atomic<LocalTimeSource> clock{nullptr};

}  // namespace

std::string FormatFileLogRecord(const platform::LocalTime& time, const std::string& text,
                                const std::string& systemMessage) {
  int length = std::snprintf(nullptr, 0, kRecordFormat, time.year, time.month, time.day, time.hour,
                             time.minute, time.second, time.millisecond, text.c_str(),
                             systemMessage.c_str());
  if (length < 0) return std::string();
  std::vector<char> record(static_cast<size_t>(length) + 1);
  std::snprintf(record.data(), record.size(), kRecordFormat, time.year, time.month, time.day,
                time.hour, time.minute, time.second, time.millisecond, text.c_str(),
                systemMessage.c_str());
  return std::string(record.data(), static_cast<size_t>(length));
}

std::string FileLogPath() {
  // Read fresh for every record: the setting may change while the library is loaded. A
  // missing value is not an error here; the path then tried is "/FILE.LOG".
  std::string directory;
  if (!platform::ReadRegistryValue("Log Dir", &directory)) directory.clear();
  return directory + kFileName;
}

void LogFileFailure(const std::string& text) { LogFileFailure(text, platform::LastError()); }

void LogFileFailure(const std::string& text, int error) {
  std::string systemMessage = platform::ErrorMessage(error);
  LocalTimeSource source = clock.load();
  platform::LocalTime now = source ? source() : platform::CurrentLocalTime();
  // The system message ends the line; nothing is added after it. A log that cannot be opened
  // loses the record, and nobody is told: the logger is what would tell them.
  (void)platform::AppendText(FileLogPath(), FormatFileLogRecord(now, text, systemMessage));
}

void SetFileLogClock(LocalTimeSource source) { clock.store(source); }

}  // namespace KESTREL
