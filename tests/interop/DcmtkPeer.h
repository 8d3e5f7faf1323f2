#pragma once

// DCMTK's tools as peers of the interoperability tests: whether a tool is installed, whether
// dcmdump reads a file cleanly, and storescp run on a free loopback port.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "kestrel/Socket.h"

extern char** environ;

namespace kestrel_test {

inline bool HaveTool(const std::string& tool) {
  return std::system(("command -v " + tool + " >/dev/null 2>&1").c_str()) == 0;
}

// Whether DCMTK reads the file without complaint; some samples are damaged on purpose or hold
// what DCMTK misreads, and storescp would refuse them.
inline bool DcmtkReads(const std::string& path) {
  FILE* pipe = popen(("dcmdump '" + path + "' 2>&1 >/dev/null").c_str(), "r");
  if (!pipe) return false;
  std::string complaints;
  char buffer[512];
  while (std::fgets(buffer, sizeof buffer, pipe)) complaints += buffer;
  return pclose(pipe) == 0 && complaints.find("E: ") == std::string::npos &&
         complaints.find("W: DcmItem") == std::string::npos;
}

inline int FreePort() {
  Socket probe;
  probe.ListenOnFreePort();
  return probe.GetLocalPort();
}

// storescp on a free port, in a directory of its own; stopped with the object.
class Storescp {
 public:
  explicit Storescp(std::vector<std::string> options) : port_(FreePort()) {
    char pattern[] = "/tmp/kestrel-storescp-XXXXXX";
    dir_ = mkdtemp(pattern);
    std::vector<std::string> args = {"storescp", "-od", dir_};
    args.insert(args.end(), options.begin(), options.end());
    args.push_back(std::to_string(port_));
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    if (posix_spawnp(&pid_, "storescp", &actions, nullptr, argv.data(), environ) != 0) pid_ = 0;
    posix_spawn_file_actions_destroy(&actions);
    for (int i = 0; i < 200 && pid_; ++i) {  // up to 10 s for it to listen
      Socket probe;
      if (probe.Open("127.0.0.1", Port().c_str())) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  ~Storescp() {
    if (pid_) {
      kill(pid_, SIGTERM);
      int status;
      waitpid(pid_, &status, 0);
    }
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }
  std::string Port() const { return std::to_string(port_); }
  const std::string& Dir() const { return dir_; }

 private:
  int port_;
  pid_t pid_ = 0;
  std::string dir_;
};

}  // namespace kestrel_test
