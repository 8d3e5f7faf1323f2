#include "kestrel/Notifier.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/frame/FrameTestSupport.h"

namespace {

using kestrel_test::ReadLines;
using kestrel_test::ScopedSettings;
using kestrel_test::TempDir;

std::vector<std::string>& Received() {
  static std::vector<std::string> received;
  return received;
}

void Receive(const std::string& text) { Received().push_back(text); }

TEST(NotifierTest, TheHostReplacesItAndNullBringsBackTheDefault) {
  Received().clear();
  EXPECT_EQ(KESTREL::SetNotifier(Receive), KESTREL::DefaultNotifier);
  KESTREL::Notify("ERROR: Unable to connect to pacs\r\n");
  EXPECT_EQ(Received(), std::vector<std::string>{"ERROR: Unable to connect to pacs\r\n"});
  EXPECT_EQ(KESTREL::SetNotifier(nullptr), Receive);

  TempDir dir;
  ScopedSettings settings(dir, std::string(kestrel_test::kSection) + "UHN=0\n");
  testing::internal::CaptureStderr();
  KESTREL::Notify("back to the default");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "back to the default\n");
  EXPECT_EQ(Received().size(), 1u);
}

TEST(NotifierTest, DefaultWritesToStandardErrorAndTheCommonLog) {
  TempDir dir;
  ScopedSettings settings(dir, ScopedSettings::WithLogDir(dir.path()));
  testing::internal::CaptureStderr();
  KESTREL::DefaultNotifier("KESTREL - TK_Library_Initialization failed: (3) no licence.");
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "KESTREL - TK_Library_Initialization failed: (3) no licence.\n");
  std::vector<std::string> log = ReadLines(dir.File("kestrel.log"));
  ASSERT_EQ(log.size(), 1u);
  EXPECT_NE(log[0].find("[1] KESTREL - TK_Library_Initialization failed: (3) no licence."),
            std::string::npos)
      << log[0];
}

}  // namespace
