#include "frame/FileHelpers.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "frame/FileLog.h"
#include "tests/frame/FrameTestSupport.h"

namespace {

using KESTREL::FileMode;
using kestrel_test::ReadLines;
using kestrel_test::ReadWholeFile;
using kestrel_test::ScopedSettings;
using kestrel_test::TempDir;

KESTREL::platform::LocalTime FixedTime() { return {2024, 2, 29, 13, 5, 0, 7}; }

std::string Record(const std::string& text, int error) {
  return std::string("2024/2/29 13:5:0.7 ") + text + ": " + std::strerror(error);
}

class FileHelpersTest : public testing::Test {
 protected:
  void SetUp() override { KESTREL::SetFileLogClock(FixedTime); }
  void TearDown() override { KESTREL::SetFileLogClock(nullptr); }
  std::vector<std::string> Records() const { return ReadLines(logDir_.File("FILE.LOG")); }

  TempDir dir_;
  TempDir logDir_;
  ScopedSettings settings_{dir_, ScopedSettings::WithLogDir(logDir_.path())};
};

TEST_F(FileHelpersTest, WriteSeekReadAndTheZeroByteRead) {
  const std::string name = dir_.File("image.dcm");
  kestrel_test::WriteWholeFile(name, "an older and much longer content");

  KESTREL::FileHandle out = KESTREL::FileOpen(name, FileMode::kWrite);
  ASSERT_NE(out, KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::FileWrite(out, "DICM", 4), 4);
  EXPECT_EQ(KESTREL::FileWrite(out, "data", 4), 4);
  KESTREL::FileClose(out);
  EXPECT_EQ(ReadWholeFile(name), "DICMdata") << "opening for writing must empty the file";

  KESTREL::FileHandle in = KESTREL::FileOpen(name, FileMode::kRead);
  ASSERT_NE(in, KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::FileSeek(in, 0, 2), 8);
  EXPECT_EQ(KESTREL::FileSeek(in, 4, 0), 4);
  EXPECT_EQ(KESTREL::FileSeek(in, -2, 1), 2);
  char buffer[16] = {};
  EXPECT_EQ(KESTREL::FileRead(in, buffer, sizeof buffer), 6);
  EXPECT_EQ(std::string(buffer, 6), "CMdata");
  // Nothing left: the same -1 as a failure.
  EXPECT_EQ(KESTREL::FileRead(in, buffer, sizeof buffer), -1);
  KESTREL::FileSeek(in, 0, 0);
  EXPECT_EQ(KESTREL::FileRead(in, buffer, 0), -1);
  KESTREL::FileClose(in);

  // End of file is no failure of the system, so nothing was logged.
  EXPECT_TRUE(Records().empty());
}

TEST_F(FileHelpersTest, EveryFailureIsLoggedWithTheFileName) {
  const std::string existing = dir_.File("existing.dcm");
  kestrel_test::WriteWholeFile(existing, "0123456789");
  const std::string absent = dir_.File("absent.dcm");
  const std::string noDirectory = dir_.File("no/dir/new.dcm");

  EXPECT_EQ(KESTREL::FileOpen(absent, FileMode::kRead), KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::FileOpen(noDirectory, FileMode::kWrite), KESTREL::kInvalidFileHandle);

  KESTREL::FileHandle readOnly = KESTREL::FileOpen(existing, FileMode::kRead);
  ASSERT_NE(readOnly, KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::FileWrite(readOnly, "x", 1), -1);
  EXPECT_EQ(KESTREL::FileSeek(readOnly, -5, 0), -1);
  KESTREL::FileClose(readOnly);

  KESTREL::FileHandle full = KESTREL::FileOpen("/dev/full", FileMode::kWrite);
  ASSERT_NE(full, KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::FileWrite(full, "0123456789", 10), -1);
  char byte;
  KESTREL::FileHandle writeOnly = KESTREL::FileOpen(dir_.File("w.dcm"), FileMode::kWrite);
  ASSERT_NE(writeOnly, KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::FileRead(writeOnly, &byte, 1), -1);
  KESTREL::FileClose(writeOnly);
  KESTREL::FileClose(full);

  const std::vector<std::string> expected = {
      Record(absent, ENOENT),   Record(noDirectory, ENOENT), Record(existing, EBADF),
      Record(existing, EINVAL), Record("/dev/full", ENOSPC), Record(dir_.File("w.dcm"), EBADF),
  };
  EXPECT_EQ(Records(), expected);
}

TEST_F(FileHelpersTest, TheNameTableFollowsOpenAndClose) {
  const std::string name = dir_.File("named.dcm");
  KESTREL::FileHandle file = KESTREL::FileOpen(name, FileMode::kWrite);
  ASSERT_NE(file, KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::OpenFileName(file), name);
  KESTREL::FileClose(file);
  EXPECT_EQ(KESTREL::OpenFileName(file), "");

  // A failed open leaves no entry behind.
  EXPECT_EQ(KESTREL::FileOpen(dir_.File("absent"), FileMode::kRead), KESTREL::kInvalidFileHandle);
  EXPECT_EQ(KESTREL::OpenFileName(KESTREL::kInvalidFileHandle), "");

  // Closing a handle twice fails the second time and is logged without a name.
  KESTREL::FileHandle again = KESTREL::FileOpen(name, FileMode::kRead);
  ASSERT_NE(again, KESTREL::kInvalidFileHandle);
  KESTREL::FileClose(again);
  KESTREL::FileClose(again);
  std::vector<std::string> records = Records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1], Record("", EBADF));
}

}  // namespace
