#include <ini.h>
#include <strings.h>
#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Platform.h"

namespace KESTREL {
namespace platform {
namespace {

// The machine-wide registry key the settings file stands for; its name is the section name.
constexpr char kSection[] = "SOFTWARE\\Vexa Medical\\Vexa\\Settings";
constexpr char kDefaultSettingsFile[] = "/etc/kestrel/settings.ini";

struct Lookup {
  const char* name;
  std::string value;
  bool found;
};

// Registry names are case-insensitive. A key cannot hold a value twice; the first line wins.
int MatchValue(void* user, const char* section, const char* name, const char* value) {
  auto* lookup = static_cast<Lookup*>(user);
  if (!lookup->found && strcasecmp(section, kSection) == 0 && strcasecmp(name, lookup->name) == 0) {
    lookup->value = value;
    lookup->found = true;
  }
  return 1;
}

struct LineSource {
  FILE* file;
  char* line = nullptr;
  size_t capacity = 0;
};

// inih reads into a buffer of its compiled-in size (200 bytes on Debian) and takes an indented
// line as the continuation of the previous value. Give it whole lines without indentation and
// turn a line too long for it into a comment, so that a long value reads as missing instead of
// as its first 199 characters.
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

bool ReadRegistryValue(const std::string& name, std::string* value) {
  const char* configured = std::getenv("KESTREL_SETTINGS");
  const char* path = configured && *configured ? configured : kDefaultSettingsFile;
  FILE* file = std::fopen(path, "r");
  if (!file) return false;
  Lookup lookup{name.c_str(), std::string(), false};
  LineSource source{file};
  // Lines inih cannot parse are skipped; the values around them still count.
  ini_parse_stream(NextLine, &source, MatchValue, &lookup);
  std::free(source.line);
  std::fclose(file);
  if (lookup.found) *value = lookup.value;
  return lookup.found;
}

}  // namespace platform
}  // namespace KESTREL
