#include "vxCommon.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "CommonPlatform.h"

namespace {

constexpr char kLogFileName[] = "/kestrel.log";
constexpr char kFooter[] = "----------------------------------------";
constexpr int kWarning = 2;
constexpr int kInformation = 3;

// Callers hand over texts ending in "\r\n", and some with line ends inside (the rejection text
// carries its advice on lines of its own). The log keeps one line per call: trailing line ends
// go, inner runs of them become one blank.
std::string OneLine(const std::string& text) {
  std::string line;
  line.reserve(text.size());
  bool pendingBreak = false;
  for (char c : text) {
    if (c == '\r' || c == '\n') {
      pendingBreak = true;
      continue;
    }
    if (pendingBreak && !line.empty()) line += ' ';
    pendingBreak = false;
    line += c;
  }
  return line;
}

void WriteLine(const std::string& text, int level) {
  std::string line = KESTREL::common::LocalTimestamp() + " [" + std::to_string(level) + "] " +
                     OneLine(text) + "\n";
  std::string directory;
  // The log is as fresh as the settings: a changed "Log Dir" counts from the next line on.
  if (KESTREL::common::ReadSetting("Log Dir", &directory) && !directory.empty() &&
      KESTREL::common::AppendToFile(directory + kLogFileName, line)) {
    return;
  }
  // Standard error belongs to the host program: only errors and warnings go there.
  if (level <= kWarning) KESTREL::common::WriteToStandardError(line);
}

// A setting is read each time it is needed, so a missing one would otherwise be reported once
// per use: a program sending a thousand files would repeat the same line a thousand times. It
// is reported once per name and settings file in a process, as information: every setting has
// a default, so a fresh installation without a settings file is not in error, and the line
// goes to the log file only, never to the host program's standard error.
void ReportMissing(const std::string& name, int flag) {
  if (!flag) return;
  const std::string file = KESTREL::common::SettingsFilePath();
  static std::mutex mutex;
  static std::set<std::pair<std::string, std::string>> reported;
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (!reported.emplace(name, file).second) return;
  }
  WriteLine("vxCommon : setting \"" + name + "\" not found in " + file, kInformation);
}

}  // namespace

std::string GetRegLocalMachineStr(const std::string& name, int flag) {
  std::string value;
  if (KESTREL::common::ReadSetting(name, &value)) return value;
  ReportMissing(name, flag);
  return std::string();
}

int GetRegLocalMachineInt(const std::string& name, int flag) {
  std::string text;
  if (KESTREL::common::ReadSetting(name, &text) && !text.empty()) {
    char* end = nullptr;
    errno = 0;
    long value = std::strtol(text.c_str(), &end, 0);
    if (errno == 0 && *end == '\0' && value >= INT_MIN && value <= INT_MAX) {
      return static_cast<int>(value);
    }
  }
  ReportMissing(name, flag);
  return 0;
}

void Log(const std::string& text, int level) { WriteLine(text, level); }

void LogFileError(const std::string& text, int level, int errorCode) {
  std::string line = "File error: " + text;
  if (errorCode != 0) line += ": " + KESTREL::common::ErrorText(errorCode);
  WriteLine(line, level);
}

void LogFunctionError(const char* text, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list sizing;
  va_copy(sizing, args);
  int length = std::vsnprintf(nullptr, 0, format, sizing);
  va_end(sizing);
  std::vector<char> detail(length > 0 ? length + 1 : 1, '\0');
  if (length > 0) std::vsnprintf(detail.data(), detail.size(), format, args);
  va_end(args);
  WriteLine(std::string("Function error: ") + (text ? text : "") + ": " + detail.data(), level);
}

void LogFooter(int level) { WriteLine(kFooter, level); }
