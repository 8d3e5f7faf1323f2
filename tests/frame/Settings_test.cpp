// The settings file standing for the registry key, read by the frame directly (for "Log Dir")
// and by the common library stand-in (for the rest). The two readers must agree, so every case
// runs against both.

#include <gtest/gtest.h>

#include <string>

#include "frame/Platform.h"
#include "tests/frame/FrameTestSupport.h"
#include "vxCommon.h"

namespace {

using kestrel_test::kSection;
using kestrel_test::ScopedEnv;
using kestrel_test::ScopedSettings;
using kestrel_test::TempDir;

struct SettingCase {
  const char* label;
  std::string file;
  const char* name;
  bool found;
  const char* value;
};

TEST(SettingsTest, BothReadersFindTheSameValues) {
  const std::string section = kSection;
  const std::string longLine = "Log Dir=/" + std::string(250, 'd') + "\n";
  const SettingCase cases[] = {
      {"plain", section + "Log Dir=/var/log/kestrel\n", "Log Dir", true, "/var/log/kestrel"},
      {"blanks around", section + "Log Dir =  /var/log/k  \n", "Log Dir", true, "/var/log/k"},
      {"blank inside value", section + "Install Dir=/opt/my kestrel\n", "Install Dir", true,
       "/opt/my kestrel"},
      {"names ignore case", "[software\\vexa medical\\VEXA\\settings]\nlog dir=/x\n", "Log Dir",
       true, "/x"},
      {"indented line is a value of its own", section + "UHN=1\n   Install Dir=/opt/k\n",
       "Install Dir", true, "/opt/k"},
      {"indented line leaves the one before alone", section + "UHN=1\n   Install Dir=/opt/k\n",
       "UHN", true, "1"},
      {"inline comment", section + "UHN=1 ; on for this site\n", "UHN", true, "1"},
      {"comment lines", "# settings\n" + section + "; none\nUHN=0\n", "UHN", true, "0"},
      {"first definition wins", section + "UHN=1\nUHN=0\n", "UHN", true, "1"},
      {"empty value", section + "Log Dir=\n", "Log Dir", true, ""},
      {"other section only", "[Other]\nLog Dir=/x\n", "Log Dir", false, ""},
      {"after another section", section + "[Other]\nLog Dir=/x\n", "Log Dir", false, ""},
      {"garbage lines skipped", section + "not a setting\nUHN=5\n", "UHN", true, "5"},
      {"value missing", section + "UHN=1\n", "Log Dir", false, ""},
      {"empty file", "", "Log Dir", false, ""},
      {"line too long reads as missing", section + longLine + "UHN=3\n", "Log Dir", false, ""},
      {"line too long leaves the rest", section + longLine + "UHN=3\n", "UHN", true, "3"},
      {"windows line ends", section + "Log Dir=/w\r\nUHN=2\r\n", "UHN", true, "2"},
  };
  TempDir dir;
  for (const SettingCase& c : cases) {
    SCOPED_TRACE(std::string(c.label) + ": " + c.name + " in\n" + c.file);
    ScopedSettings settings(dir, c.file);
    std::string direct = "untouched";
    EXPECT_EQ(KESTREL::platform::ReadRegistryValue(c.name, &direct), c.found);
    EXPECT_EQ(direct, c.found ? c.value : "untouched");
    EXPECT_EQ(GetRegLocalMachineStr(c.name, 0), c.value);
  }
}

TEST(SettingsTest, MissingOrUnreadableFileReadsAsMissingValues) {
  TempDir dir;
  const std::string paths[] = {dir.File("absent.ini"), dir.path() /* a directory */};
  for (const std::string& path : paths) {
    SCOPED_TRACE(path);
    ScopedEnv settings("KESTREL_SETTINGS", path.c_str());
    std::string value;
    EXPECT_FALSE(KESTREL::platform::ReadRegistryValue("Log Dir", &value));
    EXPECT_EQ(GetRegLocalMachineStr("Install Dir", 0), "");
    EXPECT_EQ(GetRegLocalMachineInt("UHN", 0), 0);
  }
}

TEST(SettingsTest, ValuesAreReadAgainOnEveryUse) {
  TempDir dir;
  ScopedSettings settings(dir, std::string(kSection) + "UHN=1\n");
  EXPECT_EQ(GetRegLocalMachineInt("UHN", 1), 1);
  settings.Rewrite(std::string(kSection) + "UHN=0\n");
  EXPECT_EQ(GetRegLocalMachineInt("UHN", 1), 0);
  settings.Rewrite(std::string(kSection) + "Log Dir=/first\n");
  std::string value;
  ASSERT_TRUE(KESTREL::platform::ReadRegistryValue("Log Dir", &value));
  EXPECT_EQ(value, "/first");
  settings.Rewrite(std::string(kSection) + "Log Dir=/second\n");
  ASSERT_TRUE(KESTREL::platform::ReadRegistryValue("Log Dir", &value));
  EXPECT_EQ(value, "/second");
}

TEST(SettingsTest, IntegerValues) {
  struct IntCase {
    const char* text;  // null: the line is left out
    int value;
  };
  const IntCase cases[] = {
      {"0", 0},     {"1", 1},     {"42", 42}, {"-3", -3},         {"0x10", 16},
      {"abc", 0},   {"12abc", 0}, {"", 0},    {"99999999999", 0}, {"2147483647", 2147483647},
      {nullptr, 0},
  };
  TempDir dir;
  for (const IntCase& c : cases) {
    std::string file = kSection;
    if (c.text) file += std::string("UHN=") + c.text + "\n";
    SCOPED_TRACE(file);
    ScopedSettings settings(dir, file);
    EXPECT_EQ(GetRegLocalMachineInt("UHN", 0), c.value);
  }
}

}  // namespace
