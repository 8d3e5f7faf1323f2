#include "FileIDs.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace KESTREL::dicomdir {

namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    size_t end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) return parts;
    start = end + 1;
  }
}

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

// A name as a disc may present it, reduced for comparison: upper case, without ";1" and
// without a trailing '.'.
std::string Comparable(std::string name) {
  size_t version = name.rfind(';');
  if (version != std::string::npos) name.erase(version);
  if (!name.empty() && name.back() == '.') name.pop_back();
  for (char& c : name) c = Upper(c);
  return name;
}

// The entry of `directory` that `component` names, as written or else by comparison.
bool FindEntry(const fs::path& directory, const std::string& component, fs::path& found) {
  std::error_code error;
  if (fs::exists(directory / component, error)) {
    found = directory / component;
    return true;
  }
  const std::string wanted = Comparable(component);
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    if (Comparable(it->path().filename().string()) == wanted) {
      found = it->path();
      return true;
    }
  }
  return false;
}

}  // namespace

bool IsValidComponent(const std::string& component) {
  if (component.empty() || component.size() > kMaxComponentLength) return false;
  for (char c : component)
    if (!((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')) return false;
  return true;
}

bool MakeFileID(const std::string& relative, std::vector<std::string>& components,
                std::string& why) {
  components = Split(relative, '/');
  if (components.size() > kMaxComponents) {
    why = "more than 8 directory levels";
    return false;
  }
  for (const std::string& component : components) {
    if (!IsValidComponent(component)) {
      why = "\"" + component + "\" is not 1 to 8 characters of A-Z, 0-9 and _";
      return false;
    }
  }
  return true;
}

std::string ResolveFileID(const std::string& base, const std::string& fileID, std::string& why) {
  fs::path path = base;
  for (const std::string& component : Split(fileID, '\\')) {
    if (component.empty() || component == "." || component == ".." ||
        component.find('/') != std::string::npos || component.find('\0') != std::string::npos) {
      why = "the File ID \"" + fileID + "\" names no plain file";
      return std::string();
    }
    if (!FindEntry(path, component, path)) {
      why = "the file \"" + fileID + "\" is missing";
      return std::string();
    }
  }
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    why = "\"" + fileID + "\" is not a file";
    return std::string();
  }
  return path.string();
}

}  // namespace KESTREL::dicomdir
