#pragma once

// The built `kestrel` tool for the command tests: where it is, and one run of it.

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tests/TestPaths.h"

namespace kestrel_test {

struct ToolRun {
  int exitCode = -1;
  std::string out;
};

inline std::string ToolPath() { return TestBuildDir() + "/bin/kestrel"; }

inline bool ToolBuilt() { return std::ifstream(ToolPath()).good(); }

// `args` is handed to the shell as written (callers quote with single quotes); standard error
// goes where `redirect` says ("2>&1" joins it to the output).
inline ToolRun RunTool(const std::string& args, const std::string& redirect = "2>/dev/null") {
  ToolRun run;
  FILE* pipe = popen((ToolPath() + " " + args + " " + redirect).c_str(), "r");
  if (pipe == nullptr) return run;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
  const int status = pclose(pipe);
  if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
  return run;
}

}  // namespace kestrel_test
