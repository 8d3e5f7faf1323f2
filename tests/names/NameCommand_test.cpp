// Runs the built `kestrel name` command, when the tool has been built beside the tests.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/TestPaths.h"

namespace {

struct ToolResult {
  int exitCode;
  std::string out;
};

std::string ToolPath() { return TestBuildDir() + "/bin/kestrel"; }

// `args` is handed to the shell as written; callers quote with single quotes.
ToolResult RunTool(const std::string& args) {
  ToolResult run{-1, ""};
  FILE* pipe = popen((ToolPath() + " " + args + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return run;
  char buffer[4096];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, n);
  const int status = pclose(pipe);
  if (WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
  return run;
}

class NameCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (ToolPath().empty() || !std::ifstream(ToolPath()).good()) {
      GTEST_SKIP() << "kestrel tool not built at " << ToolPath();
    }
  }
};

TEST_F(NameCommandTest, PrintsBothForms) {
  struct Case {
    const char* args;
    const char* out;
  };
  const Case cases[] = {
      {"name 'Doe^John^Paul^Mr.^Ph.D'",
       "DICOM: DOE^JOHN^PAUL^MR.^PH.D\nDisplay: Mr. John Paul Doe, Ph.D\n"},
      {"name --film 'Doe^John^Paul^Mr.^Ph.D'",
       "DICOM: DOE^JOHN^PAUL^MR.^PH.D\nDisplay: DOE, JOHN PAUL\n"},
      {"name 'Van Dam, John'", "DICOM: VAN DAM^JOHN\nDisplay: John Van Dam\n"},
      {"name 'John Doe' --film", "DICOM: DOE^JOHN\nDisplay: John Doe\n"},
      {"name ''", "DICOM: \nDisplay: \n"},
  };
  for (const Case& c : cases) {
    const ToolResult run = RunTool(c.args);
    EXPECT_EQ(run.exitCode, 0) << c.args;
    EXPECT_EQ(run.out, c.out) << c.args;
  }
}

TEST_F(NameCommandTest, SelfTestReportsSixteenGroupsAndSucceeds) {
  const ToolResult run = RunTool("name --self-test");
  EXPECT_EQ(run.exitCode, 0);
  int lines = 0;
  for (char c : run.out) lines += c == '\n';
  EXPECT_EQ(lines, 16) << run.out;
  EXPECT_EQ(run.out.find("failed\n"), std::string::npos) << run.out;
}

TEST_F(NameCommandTest, UsageErrorsExitWith64) {
  for (const char* args : {"name", "name --self-test Doe", "name --self-test --film",
                           "name --bogus Doe", "name Doe Roe"}) {
    const ToolResult run = RunTool(args);
    EXPECT_EQ(run.exitCode, 64) << args;
    EXPECT_EQ(run.out.find("DICOM:"), std::string::npos) << args;
  }
}

}  // namespace
