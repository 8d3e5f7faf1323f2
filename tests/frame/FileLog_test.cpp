#include "frame/FileLog.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tests/frame/FrameTestSupport.h"

namespace {

using kestrel_test::FileExists;
using kestrel_test::kSection;
using kestrel_test::ReadWholeFile;
using kestrel_test::RunInChild;
using kestrel_test::ScopedEnv;
using kestrel_test::ScopedSettings;
using kestrel_test::TempDir;

KESTREL::platform::LocalTime FifthOfJanuary() { return {2004, 1, 5, 9, 3, 7, 45}; }

class FileLogTest : public testing::Test {
 protected:
  void SetUp() override { KESTREL::SetFileLogClock(FifthOfJanuary); }
  void TearDown() override { KESTREL::SetFileLogClock(nullptr); }
  TempDir dir_;
};

TEST(FileLogRecordTest, NumbersAreWrittenWithoutPadding) {
  struct RecordCase {
    KESTREL::platform::LocalTime time;
    const char* expected;
  };
  const RecordCase cases[] = {
      {{2004, 1, 5, 9, 3, 7, 45}, "2004/1/5 9:3:7.45 a.dcm: gone\n"},
      {{2023, 12, 31, 23, 59, 59, 999}, "2023/12/31 23:59:59.999 a.dcm: gone\n"},
      {{2000, 1, 1, 0, 0, 0, 0}, "2000/1/1 0:0:0.0 a.dcm: gone\n"},
      {{2010, 10, 10, 10, 10, 10, 100}, "2010/10/10 10:10:10.100 a.dcm: gone\n"},
  };
  for (const RecordCase& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(KESTREL::FormatFileLogRecord(c.time, "a.dcm", "gone\n"), c.expected);
  }
}

TEST_F(FileLogTest, AppendsOneRecordPerFailureEndedByTheSystemText) {
  ScopedSettings settings(dir_, ScopedSettings::WithLogDir(dir_.path()));
  kestrel_test::WriteWholeFile(dir_.File("FILE.LOG"), "earlier record\n");
  errno = ENOENT;
  KESTREL::LogFileFailure("/images/1.dcm");
  KESTREL::LogFileFailure("/images/2.dcm", EACCES);
  std::string expected = std::string("earlier record\n") +
                         "2004/1/5 9:3:7.45 /images/1.dcm: " + std::strerror(ENOENT) + "\n" +
                         "2004/1/5 9:3:7.45 /images/2.dcm: " + std::strerror(EACCES) + "\n";
  EXPECT_EQ(ReadWholeFile(dir_.File("FILE.LOG")), expected);
}

TEST_F(FileLogTest, FollowsAChangedLogDirAtTheNextRecord) {
  TempDir second;
  ScopedSettings settings(dir_, ScopedSettings::WithLogDir(dir_.path()));
  KESTREL::LogFileFailure("one", ENOENT);
  settings.Rewrite(ScopedSettings::WithLogDir(second.path()));
  KESTREL::LogFileFailure("two", ENOENT);
  EXPECT_NE(ReadWholeFile(dir_.File("FILE.LOG")).find(" one: "), std::string::npos);
  EXPECT_EQ(ReadWholeFile(dir_.File("FILE.LOG")).find(" two: "), std::string::npos);
  EXPECT_NE(ReadWholeFile(second.File("FILE.LOG")).find(" two: "), std::string::npos);
}

TEST_F(FileLogTest, UnwritableLogDirDropsTheRecord) {
  std::string missing = dir_.File("no/such/dir");
  ScopedSettings settings(dir_, ScopedSettings::WithLogDir(missing));
  KESTREL::LogFileFailure("lost", ENOENT);
  EXPECT_FALSE(FileExists(missing));
  EXPECT_FALSE(FileExists(missing + "/FILE.LOG"));
}

TEST_F(FileLogTest, MissingLogDirTriesTheRootAndDropsWhatItCannotWrite) {
  const std::string files[] = {
      std::string(kSection) + "UHN=1\n",                                   // no value
      "",                                                                  // no section
      std::string(kSection) + "Log Dir=/" + std::string(250, 'x') + "\n",  // too long to read
  };
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    ScopedSettings settings(dir_, file);
    EXPECT_EQ(KESTREL::FileLogPath(), "/FILE.LOG");
  }
  ScopedEnv noFile("KESTREL_SETTINGS", dir_.File("absent.ini").c_str());
  EXPECT_EQ(KESTREL::FileLogPath(), "/FILE.LOG");

  // Let the logger try it for real, as a user who may not write to "/": no crash, no file.
  bool existedBefore = FileExists("/FILE.LOG");
  int code = RunInChild([] {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 2;
    KESTREL::LogFileFailure("nowhere", ENOENT);
    return 0;
  });
  EXPECT_EQ(code, 0);
  EXPECT_EQ(FileExists("/FILE.LOG"), existedBefore);
}

}  // namespace
