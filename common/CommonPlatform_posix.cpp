#include <fcntl.h>
#include <ini.h>
#include <strings.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CommonPlatform.h"

namespace KESTREL::common {
namespace {

// The machine-wide registry key the settings file stands for; its name is the section name.
constexpr char kSection[] = "SOFTWARE\\Vexa Medical\\Vexa\\Settings";
constexpr char kDefaultSettingsFile[] = "/etc/kestrel/settings.ini";

struct Lookup {
  const char* name;
  std::string* value;
  bool found;
};

// Registry value names are case-insensitive, and so is the match here. The first definition
// wins: a registry key cannot hold a value twice, so a repeated line is a slip.
int MatchValue(void* user, const char* section, const char* name, const char* value) {
  auto* lookup = static_cast<Lookup*>(user);
  if (!lookup->found && strcasecmp(section, kSection) == 0 && strcasecmp(name, lookup->name) == 0) {
    *lookup->value = value;
    lookup->found = true;
  }
  return 1;
}

struct LineSource {
  FILE* file;
  char* line = nullptr;
  size_t capacity = 0;
};

// inih reads lines into a buffer of its compiled-in size (200 bytes on Debian) and takes an
// indented line as the continuation of the previous value. Hand it whole lines without their
// indentation, and replace a line too long for it by a comment: a long value then reads as
// missing rather than as its first 199 characters.
char* NextLine(char* buffer, int size, void* stream) {
  auto* source = static_cast<LineSource*>(stream);
  ssize_t length = getline(&source->line, &source->capacity, source->file);
  if (length < 0) return nullptr;
  const char* start = source->line;
  while (length > 0 && (*start == ' ' || *start == '\t')) {
    ++start;
    --length;
  }
  if (length >= size) {
    std::strcpy(buffer, ";\n");
  } else {
    std::memcpy(buffer, start, length);
    buffer[length] = '\0';
  }
  return buffer;
}

}  // namespace

std::string SettingsFilePath() {
  const char* path = std::getenv("KESTREL_SETTINGS");
  return path && *path ? path : kDefaultSettingsFile;
}

bool ReadSetting(const std::string& name, std::string* value) {
  FILE* file = std::fopen(SettingsFilePath().c_str(), "r");
  if (!file) return false;
  std::string found;
  Lookup lookup{name.c_str(), &found, false};
  LineSource source{file};
  // A line inih cannot parse is skipped; the values around it still count.
  ini_parse_stream(NextLine, &source, MatchValue, &lookup);
  std::free(source.line);
  std::fclose(file);
  if (lookup.found) *value = found;
  return lookup.found;
}

bool AppendToFile(const std::string& path, const std::string& line) {
  int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  // O_APPEND with one write keeps lines from several processes whole.
  ssize_t written = write(fd, line.data(), line.size());
  close(fd);
  return written == static_cast<ssize_t>(line.size());
}

void WriteToStandardError(const std::string& line) {
  ssize_t ignored = write(STDERR_FILENO, line.data(), line.size());
  (void)ignored;
}

std::string LocalTimestamp() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03ld", local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                now.tv_nsec / 1000000);
  return text;
}

std::string ErrorText(int errorCode) {
  char buffer[256];
  // GNU strerror_r: the result may or may not be the buffer.
  return strerror_r(errorCode, buffer, sizeof buffer);
}

}  // namespace KESTREL::common
