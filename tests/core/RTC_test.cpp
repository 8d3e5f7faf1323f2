#include "kestrel/RTC.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/TestPaths.h"
#include "tests/core/CoreTestSupport.h"

namespace {

namespace fs = std::filesystem;

constexpr uint16_t Code(const char* vr) { return static_cast<uint16_t>((vr[0] << 8) | vr[1]); }

using RTCTest = core_test::TempDirTest;

struct Expected {
  uint16_t group, element;
  const char* vr;  // null: the tag must be absent
  std::string text;
};

struct FileCase {
  const char* name;
  std::string contents;
  std::vector<Expected> expected;  // empty: the file must not load
};

void CheckFile(RTC* dictionary, const std::string& path, const FileCase& c) {
  SCOPED_TRACE(::testing::Message() << c.name << " <<" << c.contents << ">>");
  ASSERT_EQ(dictionary->Load(path.c_str()), !c.expected.empty());
  for (const Expected& e : c.expected) {
    std::string text = "stale";
    EXPECT_EQ(dictionary->GetTypeCode(e.group, e.element, &text), e.vr ? Code(e.vr) : 0)
        << std::hex << e.group << "," << e.element;
    EXPECT_EQ(text, e.text) << std::hex << e.group << "," << e.element;
  }
}

TEST_F(RTCTest, ReadsTextForms) {
  const std::string longKeyword(3000, 'K');
  const std::string exact = "(0008,0016) VR=\"UI\" Keyword=\"";
  const std::string fits(1019 - exact.size() - 1, 'F');
  const std::vector<FileCase> cases = {
      {"tag form",
       "(0008,0016) VR=\"UI\" Keyword=\"SOPClassUID\"\n",
       {{8, 0x16, "UI", "SOPClassUID"}}},
      {"lower-case hex, no keyword", "(7fe0,0010) VR=\"OW\"", {{0x7FE0, 0x10, "OW", ""}}},
      {"any separator, keyword first",
       "(0020 ,\t000D) Keyword=\"StudyUID\" VR=\"UI\"\r\n",
       {{0x20, 0x0D, "UI", "StudyUID"}}},
      {"keyword without closing quote",
       "(0010,0010) VR=\"PN\" Keyword=\"Name",
       {{0x10, 0x10, "PN", "Name"}}},
      {"comments and other lines skipped",
       "# (0008,0018) VR=\"UI\"\n (0008,0018) VR=\"UI\"\n(0008,0016) VR=\"UI\"\n",
       {{8, 0x16, "UI", ""}, {8, 0x18, nullptr, ""}}},
      {"brace form, hexadecimal",
       "{0x0010, 0x0010, PN, \"Patient's Name\"},",
       {{16, 16, "PN", "Patient's Name"}}},
      {"brace form, decimal",
       "{16, 16, PN, \"Patient's Name\"}",
       {{0x10, 0x10, "PN", "Patient's Name"}}},
      {"brace form, 0X and braces as separators",
       "{{0X0028}{16}{US}{\"Rows\"}}",
       {{0x28, 0x10, "US", "Rows"}}},
      {"brace escapes",
       "{8, 22, UI, \"a \\\"b\\\" \\\\ c\\d\"}",
       {{8, 0x16, "UI", "a \"b\" \\ cd"}}},
      {"brace fields over lines",
       "{8,\n  22\n,UI,\r\n\n  \"two\r\nlines\"}\n(0010,0010) VR=\"PN\"",
       {{8, 0x16, "UI", "two\nlines"}, {0x10, 0x10, "PN", ""}}},
      {"unfinished brace entry gives way to the next entry line",
       "{8, 22, UI, \"lost\n(0010,0010) VR=\"PN\"\n{8, 24, UI,\n{0x20, 0x0D, UI, \"\"}",
       {{8, 0x16, nullptr, ""},
        {8, 0x18, nullptr, ""},
        {0x10, 0x10, "PN", ""},
        {0x20, 0x0D, "UI", ""}}},
      {"line of exactly 1019 characters", exact + fits + "\"\n", {{8, 0x16, "UI", fits}}},
      {"over-long line is cut, its tail is no line",
       "(0010,0010) VR=\"PN\" Keyword=\"" + longKeyword + "\"\n" + std::string(1019, ' ') +
           "(0008,0016) VR=\"UI\"\n" + "(0008,0018)" + std::string(1100, ' ') + "VR=\"UI\"\n",
       {{0x10, 0x10, "PN", std::string(1019 - 29, 'K')},
        {8, 0x16, nullptr, ""},
        {8, 0x18, nullptr, ""}}},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    RTC dictionary(true);
    CheckFile(&dictionary, Write("case" + std::to_string(i), cases[i].contents), cases[i]);
  }
}

TEST_F(RTCTest, SkipsMalformedEntries) {
  const char* lines[] = {
      "(0008,0016) Keyword=\"NoVR\"",
      "(0008,0016) VR=UI",
      "(0008,0016) VR=\"ui\"",
      "(0008,0016) VR=\"U\"",
      "(50xx,0010) VR=\"US\"",
      "(0008,001) VR=\"UI\"",
      "[0008,0016] VR=\"UI\"",
      "{0x10000, 0, UL, \"too big\"}",
      "{65536, 0, UL, \"too big\"}",
      "{0x, 0, UL, \"no digits\"}",
      "{8a, 22, UI, \"not a number\"}",
      "{8, 22, \"UI\", \"quoted VR\"}",
      "{8, 22, UI}",
      "{8, 22, UI, unquoted}",
      "{8, 22, UI, \"never closed",
      "",
  };
  for (const char* line : lines) {
    RTC dictionary(true);
    CheckFile(&dictionary, Write("bad", line), {"malformed", line, {}});
    EXPECT_EQ(dictionary.GetTable(), nullptr);
  }
}

TEST_F(RTCTest, WithoutDescriptionsKeepsVROnly) {
  std::string text =
      Write("d.dic", "(0008,0016) VR=\"UI\" Keyword=\"SOPClassUID\"\n{16, 16, PN, \"Name\"}\n");
  std::string binary = Path("d.bin");
  ASSERT_TRUE(CompileDictionary(text.c_str(), binary.c_str()));
  for (const std::string& path : {text, binary}) {
    RTC dictionary(false, path.c_str());
    ASSERT_NE(dictionary.GetTable(), nullptr) << path;
    std::string out = "stale";
    EXPECT_EQ(dictionary.GetTypeCode(8, 0x16, &out), 0x5549) << path;
    EXPECT_EQ(out, "") << path;
    EXPECT_EQ(dictionary.GetTypeCode(16, 16, &out), Code("PN")) << path;
    EXPECT_EQ(out, "") << path;
    EXPECT_EQ(dictionary.GetTable()->Strings, nullptr) << path;
  }
}

// Tables of every small size, with uneven gaps between keys, so that the search's walk from the
// middle ends at every kind of place; each present key must be found, every gap must not.
TEST_F(RTCTest, LookupFindsEveryKeyAndNothingBetween) {
  for (uint32_t size = 1; size <= 70; ++size) {
    std::ostringstream text;
    std::vector<uint32_t> keys;
    for (uint32_t i = 0; i < size; ++i) {
      uint32_t key = i == 0 ? 0 : (i == size - 1 && size > 2 ? 0xFFFFFFFF : 3 + i * i * 977);
      keys.push_back(key);
      char vr[3] = {static_cast<char>('A' + i % 26), static_cast<char>('A' + i / 26), 0};
      text << "{" << (key >> 16) << "," << (key & 0xFFFF) << "," << vr << ",\"\"}\n";
    }
    RTC dictionary(false, Write("sizes.dic", text.str()).c_str());
    ASSERT_NE(dictionary.GetTable(), nullptr) << "size " << size;
    ASSERT_EQ(dictionary.GetTable()->Count, size);
    for (uint32_t i = 0; i < size; ++i) {
      uint32_t key = keys[i];
      char vr[3] = {static_cast<char>('A' + i % 26), static_cast<char>('A' + i / 26), 0};
      EXPECT_EQ(dictionary.GetTypeCode(key >> 16, key & 0xFFFF), Code(vr))
          << "size " << size << " index " << i;
      for (uint32_t absent : {key + 1, key - 1}) {
        if (std::find(keys.begin(), keys.end(), absent) != keys.end()) continue;
        EXPECT_EQ(dictionary.GetTypeCode(absent >> 16, absent & 0xFFFF), 0)
            << "size " << size << " absent key " << std::hex << absent;
      }
    }
  }
}

TEST_F(RTCTest, LastDuplicateWinsAndKeysStayUnique) {
  RTC dictionary(true, Write("dup.dic",
                             "(0008,0016) VR=\"UI\" Keyword=\"First\"\n"
                             "(0010,0010) VR=\"PN\" Keyword=\"Name\"\n"
                             "{8, 0x16, CS, \"Second\"}\n"
                             "(0008,0016) VR=\"SH\" Keyword=\"Last\"\n"
                             "(0008,0005) VR=\"CS\"\n")
                           .c_str());
  const RTCTable* table = dictionary.GetTable();
  ASSERT_NE(table, nullptr);
  ASSERT_EQ(table->Count, 3u);
  EXPECT_GE(table->Capacity, table->Count);
  for (uint32_t i = 0; i < table->Count; ++i) {
    const RTCEntry& entry = table->Entries[i];
    EXPECT_EQ(table->Keys[i], (uint32_t{entry.Group} << 16) | entry.Element) << i;
    if (i > 0) {
      EXPECT_LT(table->Keys[i - 1], table->Keys[i]) << i;
    }
  }
  std::string text;
  EXPECT_EQ(dictionary.GetTypeCode(8, 0x16, &text), Code("SH"));
  EXPECT_EQ(text, "Last");
  EXPECT_EQ(dictionary.GetTypeCode(0x10, 0x10, &text), Code("PN"));
  EXPECT_EQ(text, "Name");
}

// The binary layout is fixed for files that other builds and tools read: a two-entry dictionary,
// byte by byte.
TEST_F(RTCTest, CompilesTheFixedBinaryLayout) {
  std::string text =
      Write("two.dic", "(0010,0010) VR=\"PN\"\n(0008,0016) VR=\"UI\" Keyword=\"Ab\"\n");
  std::string binary = Path("two.bin");
  ASSERT_TRUE(CompileDictionary(text.c_str(), binary.c_str()));
  std::string image = Read(binary);
  ASSERT_EQ(image.size(), 1024u + 2 * 4 + 2 * 12 + 4);
  EXPECT_EQ(image.substr(0, 8), "#!BinRTC");
  const unsigned char header[] = {
      2,  0, 0, 0,  // number of entries
      0,  4, 0, 0,  // key block at 1024
      8,  0, 0, 0,  // 4 bytes per key
      8,  4, 0, 0,  // entry block at 1032
      24, 0, 0, 0,  // 12 bytes per entry
      32, 4, 0, 0,  // string block at 1056
      4,  0, 0, 0,  // "Ab" and "", NUL-terminated
  };
  EXPECT_EQ(image.substr(12, sizeof(header)),
            std::string(reinterpret_cast<const char*>(header), sizeof(header)));
  const unsigned char blocks[] = {
      0x16, 0x00, 0x08, 0x00,                              // key 0x00080016
      0x10, 0x00, 0x10, 0x00,                              // key 0x00100010
      0x08, 0x00, 0x16, 0x00, 'I', 'U', 0, 0, 0, 0, 0, 0,  // (0008,0016) UI
      0x10, 0x00, 0x10, 0x00, 'N', 'P', 0, 0, 0, 0, 0, 0,  // (0010,0010) PN
      'A',  'b',  0,    0,                                 // strings in entry order
  };
  EXPECT_EQ(image.substr(1024), std::string(reinterpret_cast<const char*>(blocks), sizeof(blocks)));

  // Without any text there is no string block at all.
  text = Write("bare.dic", "(0008,0016) VR=\"UI\"\n");
  ASSERT_TRUE(CompileDictionary(text.c_str(), binary.c_str()));
  image = Read(binary);
  EXPECT_EQ(image.size(), 1024u + 16);
  EXPECT_EQ(image.substr(32, 8), std::string(8, '\0'));
}

TEST_F(RTCTest, BinaryIsRecognisedByItsFirstLineOnly) {
  RTC dictionary(true);
  // Looks like a text dictionary after the marker, but is taken as a (damaged) binary image.
  EXPECT_FALSE(
      dictionary.Load(Write("fake", "#!BinRTC anything\n(0008,0016) VR=\"UI\"\n").c_str()));
  EXPECT_EQ(dictionary.GetTypeCode(8, 0x16), 0);
  for (const char* first : {" #!BinRTC", "#!BinRT", "#!Bin\nRTC"}) {
    EXPECT_TRUE(
        dictionary.Load(Write("text", first + std::string("\n(0008,0016) VR=\"UI\"\n")).c_str()))
        << first;
    EXPECT_EQ(dictionary.GetTypeCode(8, 0x16), 0x5549) << first;
  }
}

TEST_F(RTCTest, FailedLoadLeavesNoTable) {
  std::string good = Write("good.dic", "(0008,0016) VR=\"UI\"\n");
  std::string damaged = Write("damaged.bin", "#!BinRTC" + std::string(2000, '\0'));
  const char* failures[] = {nullptr, "/nonexistent/dicom.dic", "", dir_.c_str()};
  std::vector<std::string> files = {Write("empty", ""), Write("comments", "# nothing\n\n"),
                                    damaged};
  std::vector<const char*> paths(std::begin(failures), std::end(failures));
  for (const std::string& f : files) paths.push_back(f.c_str());
  for (const char* path : paths) {
    RTC dictionary(false, good.c_str());
    ASSERT_EQ(dictionary.GetTypeCode(8, 0x16), 0x5549);
    EXPECT_FALSE(dictionary.Load(path)) << (path ? path : "(null)");
    EXPECT_EQ(dictionary.GetTable(), nullptr) << (path ? path : "(null)");
    EXPECT_EQ(dictionary.GetTypeCode(8, 0x16), 0) << (path ? path : "(null)");
  }
  EXPECT_FALSE(CompileDictionary(Path("missing").c_str(), Path("out.bin").c_str()));
  EXPECT_FALSE(fs::exists(Path("out.bin")));
  EXPECT_FALSE(CompileDictionary(good.c_str(), (dir_ / "no" / "such" / "dir.bin").c_str()));
}

void Put32(std::string* image, size_t offset, uint32_t value) {
  for (int i = 0; i < 4; ++i) (*image)[offset + i] = static_cast<char>(value >> (8 * i));
}

// Damaged or hostile binary images must fail cleanly: no crash, no huge allocation, no table.
TEST_F(RTCTest, RejectsDamagedBinaryImages) {
  std::string text =
      Write("three.dic",
            "(0008,0016) VR=\"UI\" Keyword=\"A\"\n(0010,0010) VR=\"PN\" Keyword=\"B\"\n"
            "(0020,000D) VR=\"UI\" Keyword=\"C\"\n");
  ASSERT_TRUE(CompileDictionary(text.c_str(), Path("three.bin").c_str()));
  const std::string good = Read(Path("three.bin"));  // keys at 1024, entries at 1036, strings 1072
  ASSERT_EQ(good.size(), 1078u);
  struct Damage {
    const char* what;
    std::function<void(std::string*)> apply;
  };
  const std::vector<Damage> damages = {
      {"huge count", [](std::string* s) { Put32(s, 12, 0xFFFFFFFF); }},
      {"count whose block sizes wrap to 0",
       [](std::string* s) {
         Put32(s, 12, 0x40000000);
         Put32(s, 20, 0);
         Put32(s, 28, 0);
       }},
      {"zero count",
       [](std::string* s) {
         Put32(s, 12, 0);
         Put32(s, 20, 0);
         Put32(s, 28, 0);
       }},
      {"key block beyond the end", [](std::string* s) { Put32(s, 16, 1070); }},
      {"key block offset wraps", [](std::string* s) { Put32(s, 16, 0xFFFFFFF8); }},
      {"entry block beyond the end", [](std::string* s) { Put32(s, 24, 0x7FFFFFFF); }},
      {"key size disagrees", [](std::string* s) { Put32(s, 20, 8); }},
      {"string block beyond the end", [](std::string* s) { Put32(s, 36, 0x10000); }},
      {"strings missing", [](std::string* s) { Put32(s, 36, 4); }},
      {"keys out of order, each still matching its entry",
       [](std::string* s) {
         std::swap_ranges(s->begin() + 1024, s->begin() + 1028, s->begin() + 1028);
         std::swap_ranges(s->begin() + 1036, s->begin() + 1048, s->begin() + 1048);
       }},
      {"key disagrees with entry", [](std::string* s) { (*s)[1036] = 0x17; }},
      {"truncated in the entry block", [](std::string* s) { s->resize(1050); }},
      {"header only", [](std::string* s) { s->resize(1024); }},
      {"shorter than a header", [](std::string* s) { s->resize(500); }},
  };
  for (const Damage& d : damages) {
    std::string image = good;
    d.apply(&image);
    RTC dictionary(true);
    EXPECT_FALSE(dictionary.Load(Write("damaged.bin", image).c_str())) << d.what;
    EXPECT_EQ(dictionary.GetTable(), nullptr) << d.what;
    EXPECT_EQ(dictionary.GetTypeCode(8, 0x16), 0) << d.what;
  }
  // The string block is only read when descriptions are kept.
  std::string image = good;
  Put32(&image, 32, 0xFFFFFF00);
  RTC dictionary(false, Write("strings.bin", image).c_str());
  EXPECT_EQ(dictionary.GetTypeCode(0x20, 0x0D), 0x5549);
}

// The shipped dictionary: every line is read, and the compiled image answers exactly as the text.
TEST_F(RTCTest, ShippedDictionaryRoundTrips) {
  const std::string textPath = TestSourceDir() + "/data/dicom.dic";
  std::ifstream in(textPath);
  ASSERT_TRUE(in) << textPath;
  uint32_t tagLines = 0;
  for (std::string line; std::getline(in, line);) tagLines += !line.empty() && line[0] == '(';

  RTC text(true, textPath.c_str());
  ASSERT_NE(text.GetTable(), nullptr);
  EXPECT_EQ(text.GetTable()->Count, tagLines);
  std::string binaryPath = Path("dicom.bin");
  ASSERT_TRUE(CompileDictionary(textPath.c_str(), binaryPath.c_str()));
  std::vector<std::string> binaries = {binaryPath};
  // The image the build made, when this test runs in a build tree that has it.
  std::string built = TestBuildDir() + "/share/kestrel/dicom.bin";
  if (fs::exists(built)) binaries.push_back(built);
  for (const std::string& path : binaries) {
    RTC binary(true, path.c_str());
    ASSERT_NE(binary.GetTable(), nullptr) << path;
    ASSERT_EQ(binary.GetTable()->Count, tagLines) << path;
    const RTCTable& table = *text.GetTable();
    for (uint32_t i = 0; i < table.Count; ++i) {
      const RTCEntry& e = table.Entries[i];
      std::string expected, actual;
      ASSERT_EQ(binary.GetTypeCode(e.Group, e.Element, &actual),
                text.GetTypeCode(e.Group, e.Element, &expected))
          << path << std::hex << " " << e.Group << "," << e.Element;
      ASSERT_EQ(actual, expected) << path << std::hex << " " << e.Group << "," << e.Element;
      // An empty string in the image means no text, not a text of length 0.
      ASSERT_EQ(binary.GetTable()->Entries[i].Text == nullptr, e.Text == nullptr) << path << i;
    }
  }

  const std::vector<Expected> known = {
      {0x0008, 0x0016, "UI", "SOPClassUID"},
      {0x0010, 0x0010, "PN", "PatientName"},
      {0x0028, 0x0106, "US", "SmallestImagePixelValue"},
      {0x7FE0, 0x0010, "OW", "PixelData"},
      {0x6002, 0x3000, "OW", "OverlayData"},
      {0x601E, 0x0010, "US", "OverlayRows"},
      {0x6001, 0x0010, nullptr, ""},
      {0xFFFE, 0xE000, nullptr, ""},
      {0x0009, 0x0010, nullptr, ""},
  };
  for (const Expected& e : known) {
    std::string keyword;
    EXPECT_EQ(text.GetTypeCode(e.group, e.element, &keyword), e.vr ? Code(e.vr) : 0)
        << std::hex << e.group << "," << e.element;
    EXPECT_EQ(keyword, e.text) << std::hex << e.group << "," << e.element;
  }
}

}  // namespace
