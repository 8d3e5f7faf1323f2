#include "vxCommon.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <regex>
#include <string>

#include "tests/frame/FrameTestSupport.h"

namespace {

using kestrel_test::kSection;
using kestrel_test::ReadLines;
using kestrel_test::ScopedEnv;
using kestrel_test::ScopedSettings;
using kestrel_test::TempDir;

TEST(StripUHNTest, ReducesAnIdentifierToItsCore) {
  struct StripCase {
    const char* id;
    const char* core;
  };
  const StripCase cases[] = {
      {"123", "123"},
      {"000123", "123"},
      {"  000123  ", "123"},
      {"UHN-000123", "123"},
      {" UHN-000123 ", "123"},
      {"TGH 0045", "45"},
      {"mgh_0100", "100"},  // zeros after the first digit stay
      {"ab/7", "7"},
      {"Site.12", "12"},
      {"Site:012", "12"},
      {"A0012", "A0012"},      // letters without a separator are part of the identifier
      {"12-0034", "12-0034"},  // a prefix is letters only
      {"UHN-", "UHN-"},        // nothing would be left
      {"0000", "0"},           // all zeros keep one
      {"UHN-000", "0"},
      {"0", "0"},
      {"", ""},
      {"   ", ""},
      {"\t0012", "\t0012"},  // only blanks are trimmed
      {"UHN-A00", "A00"},
  };
  for (const StripCase& c : cases) {
    EXPECT_EQ(StripUHN(c.id), c.core) << "identifier \"" << c.id << "\"";
  }
}

class CommonLogTest : public testing::Test {
 protected:
  std::vector<std::string> LogLines() const { return ReadLines(logDir_.File("kestrel.log")); }
  TempDir dir_;
  TempDir logDir_;
};

// "2004-01-05 09:03:07.045 [1] text"
void ExpectLine(const std::string& line, int level, const std::string& text) {
  static const std::regex stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[(-?\d+)\] (.*)$)");
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(line, parts, stamp)) << line;
  EXPECT_EQ(parts[1].str(), std::to_string(level)) << line;
  EXPECT_EQ(parts[2].str(), text) << line;
}

TEST_F(CommonLogTest, EveryCallIsOneTimestampedLineWithItsLevel) {
  ScopedSettings settings(dir_, ScopedSettings::WithLogDir(logDir_.path()));
  Log("ERROR: Unable to connect to pacs\r\n", 1);
  Log("first\r\n\r\n* second\r\n* third", 2);
  LogFileError("/images/a.dcm", 1, ENOENT);
  LogFileError("/images/b.dcm", 2, 0);
  LogFunctionError("CBasicRecordSet::Delete", 1, "%s (%d tries)", "locked", 3);
  LogFooter(1);
  Log("", 3);

  std::vector<std::string> lines = LogLines();
  ASSERT_EQ(lines.size(), 7u);
  ExpectLine(lines[0], 1, "ERROR: Unable to connect to pacs");
  ExpectLine(lines[1], 2, "first * second * third");
  ExpectLine(lines[2], 1, std::string("File error: /images/a.dcm: ") + std::strerror(ENOENT));
  ExpectLine(lines[3], 2, "File error: /images/b.dcm");
  ExpectLine(lines[4], 1, "Function error: CBasicRecordSet::Delete: locked (3 tries)");
  ExpectLine(lines[5], 1, "----------------------------------------");
  ExpectLine(lines[6], 3, "");
}

TEST_F(CommonLogTest, WithoutALogDirectoryErrorsGoToStandardError) {
  const std::string files[] = {
      std::string(kSection) + "UHN=1\n",                           // no "Log Dir"
      std::string(kSection) + "Log Dir=\n",                        // empty
      ScopedSettings::WithLogDir(dir_.File("missing/directory")),  // cannot be written
  };
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    ScopedSettings settings(dir_, file);
    testing::internal::CaptureStderr();
    Log("to the console", 1);
    Log("a warning", 2);
    Log("only for the file", 3);
    std::string console = testing::internal::GetCapturedStderr();
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = console.find('\n', start)) != std::string::npos;
         start = end + 1) {
      lines.push_back(console.substr(start, end - start));
    }
    ASSERT_EQ(lines.size(), 2u) << console;
    ExpectLine(lines[0], 1, "to the console");
    ExpectLine(lines[1], 2, "a warning");
  }
  EXPECT_FALSE(kestrel_test::FileExists(dir_.File("missing")));
}

TEST_F(CommonLogTest, TheFlagAsksForALineWhenAValueIsMissing) {
  ScopedSettings settings(dir_, ScopedSettings::WithLogDir(logDir_.path()));
  EXPECT_EQ(GetRegLocalMachineStr("Install Dir", 0), "");
  EXPECT_EQ(GetRegLocalMachineInt("UHN", 0), 0);
  EXPECT_TRUE(LogLines().empty());

  EXPECT_EQ(GetRegLocalMachineStr("Install Dir", 1), "");
  EXPECT_EQ(GetRegLocalMachineInt("UHN", 1), 0);
  EXPECT_EQ(GetRegLocalMachineStr("Log Dir", 1), logDir_.path());  // present: no line
  std::vector<std::string> lines = LogLines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find("\"Install Dir\""), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find("\"UHN\""), std::string::npos) << lines[1];

  // Asked again (every association asks), the same missing value is not reported again.
  for (int i = 0; i < 3; ++i) {
    GetRegLocalMachineStr("Install Dir", 1);
    GetRegLocalMachineInt("UHN", 1);
  }
  EXPECT_EQ(LogLines().size(), 2u);
}

}  // namespace
