#include "tests/frame/FrameTestSupport.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kestrel_test {

const char kSection[] = "[SOFTWARE\\Vexa Medical\\Vexa\\Settings]\n";

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/kestrel-frame-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (!mkdtemp(buffer.data())) std::abort();
  path_ = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

ScopedEnv::ScopedEnv(const char* name, const char* value) : name_(name) {
  const char* old = std::getenv(name);
  had_ = old != nullptr;
  if (had_) old_ = old;
  if (value)
    setenv(name, value, 1);
  else
    unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
  if (had_)
    setenv(name_.c_str(), old_.c_str(), 1);
  else
    unsetenv(name_.c_str());
}

ScopedSettings::ScopedSettings(const TempDir& dir, const std::string& text)
    : path_(dir.File("settings.ini")), env_("KESTREL_SETTINGS", path_.c_str()) {
  Rewrite(text);
}

std::string ScopedSettings::WithLogDir(const std::string& logDir) {
  return std::string(kSection) + "Log Dir=" + logDir + "\n";
}

void ScopedSettings::Rewrite(const std::string& text) { WriteWholeFile(path_, text); }

std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

bool FileExists(const std::string& path) { return std::filesystem::exists(path); }

void WriteWholeFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

int RunInChild(const std::function<int()>& body) {
  std::fflush(nullptr);
  pid_t child = fork();
  if (child == 0) {
    int code = body();
    std::fflush(nullptr);
    _exit(code);
  }
  if (child < 0) return -1;
  int status = 0;
  if (waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace kestrel_test
