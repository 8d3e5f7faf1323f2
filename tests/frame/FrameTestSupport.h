#pragma once

// Helpers shared by the frame tests: temporary directories, environment variables restored on
// exit, a settings file standing for the registry, and child processes.

#include <functional>
#include <string>
#include <vector>

namespace kestrel_test {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sets (or, with a null value, unsets) a variable and puts the old value back.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::string old_;
  bool had_;
};

// Writes `text` as the settings file in `dir` and points KESTREL_SETTINGS at it.
class ScopedSettings {
 public:
  ScopedSettings(const TempDir& dir, const std::string& text);
  // A settings file with only "Log Dir".
  static std::string WithLogDir(const std::string& logDir);
  void Rewrite(const std::string& text);

 private:
  std::string path_;
  ScopedEnv env_;
};

extern const char kSection[];  // "[SOFTWARE\Vexa Medical\Vexa\Settings]\n"

std::string ReadWholeFile(const std::string& path);
std::vector<std::string> ReadLines(const std::string& path);
bool FileExists(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& text);

// Runs `body` in a forked child and gives its exit code (128 + signal when it was killed).
// The child leaves with _exit, so nothing of the test program's own clean-up runs twice.
int RunInChild(const std::function<int()>& body);

}  // namespace kestrel_test
