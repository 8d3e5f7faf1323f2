// Runs the built `kestrel name` command, when the tool has been built beside the tests.
#include <gtest/gtest.h>

#include <string>

#include "tests/frame/ToolRun.h"

namespace {

using kestrel_test::RunTool;
using kestrel_test::ToolRun;

class NameCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!kestrel_test::ToolBuilt()) GTEST_SKIP() << "no tool at " << kestrel_test::ToolPath();
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
    const ToolRun run = RunTool(c.args);
    EXPECT_EQ(run.exitCode, 0) << c.args;
    EXPECT_EQ(run.out, c.out) << c.args;
  }
}

TEST_F(NameCommandTest, SelfTestReportsSixteenGroupsAndSucceeds) {
  const ToolRun run = RunTool("name --self-test");
  EXPECT_EQ(run.exitCode, 0);
  int lines = 0;
  for (char c : run.out) lines += c == '\n';
  EXPECT_EQ(lines, 16) << run.out;
  EXPECT_EQ(run.out.find("failed\n"), std::string::npos) << run.out;
}

TEST_F(NameCommandTest, UsageErrorsExitWith64) {
  for (const char* args : {"name", "name --self-test Doe", "name --self-test --film",
                           "name --bogus Doe", "name Doe Roe"}) {
    const ToolRun run = RunTool(args);
    EXPECT_EQ(run.exitCode, 64) << args;
    EXPECT_EQ(run.out.find("DICOM:"), std::string::npos) << args;
  }
}

}  // namespace
