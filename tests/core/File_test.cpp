#include "core/File.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/FileMapping.h"
#include "tests/core/CoreTestSupport.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;
using namespace core_test;

const std::string kSamples = "/usr/lib/python3/dist-packages/pydicom/data/test_files/";
const std::string kImplicit("1.2.840.10008.1.2\0", 18), kExplicit("1.2.840.10008.1.2.1\0", 20),
    kBig("1.2.840.10008.1.2.2\0", 20), kRle("1.2.840.10008.1.2.5\0", 20);

// Follows tags down, into the first item of each sequence on the way.
const VR* FindPath(DICOMObject* object, const std::vector<uint32_t>& tags) {
  const VR* found = nullptr;
  for (uint32_t tag : tags) {
    if (found && (!found->SequenceItems || !found->SequenceItems->GetSize())) return nullptr;
    if (found) object = found->SequenceItems->Get(0);
    if (!(found = object->Find(uint16_t(tag >> 16), uint16_t(tag)))) return nullptr;
  }
  return found;
}

// Empties `object` into one line per element (items indented), leaving out group 0002, the
// group lengths and, unless asked, the VRs.
void Describe(DICOMObject& object, bool withTypes, std::string& out,
              const std::string& indent = "") {
  while (VR* popped = object.Pop()) {
    std::unique_ptr<VR> e(popped);
    if (e->Group == 2 || e->Element == 0) continue;
    char line[48];
    std::snprintf(line, sizeof line, "(%04x,%04x) %04x %u ", e->Group, e->Element,
                  withTypes ? e->TypeCode : 0, e->Length);
    out += indent + line + std::to_string(std::hash<std::string>()(Value(e.get()))) + "\n";
    for (uint32_t i = 0; e->SequenceItems && i < e->SequenceItems->GetSize(); ++i)
      Describe(*e->SequenceItems->Get(i), withTypes, out, indent + "  ");
  }
}

class FileTest : public TempDirTest {
 protected:
  std::unique_ptr<DICOMDataObject> Load(const std::string& path) {
    return std::unique_ptr<DICOMDataObject>(codec_.LoadFile(path.c_str()));
  }
  bool Save(DICOMObject& object, const std::string& path, int form, const char* syntax) {
    return codec_.SaveFile(path.c_str(), form, &object, syntax);
  }

  // The association supplies the local AE title; here a fixed one stands in for it.
  struct Codec : DICOMCodec {
    std::string GetLocalAETitle() const override { return "KESTRELTEST"; }
  } codec_;
};

#define REQUIRE_SAMPLES() \
  if (!fs::exists(kSamples + "CT_small.dcm")) GTEST_SKIP() << "pydicom test files not installed"

const Bytes kPreamble = Bytes(128, 0) + B("DICM");
// (0008,0005) CS "ISO_IR 100" and (0028,0010) US 512 in each encoding.
// clang-format off
const Bytes kDataImplicit = B("\x08\x00\x05\x00" "\x0A\0\0\0" "ISO_IR 100" "\x28\x00\x10\x00" "\x02\0\0\0" "\x00\x02"sv);
const Bytes kDataExplicit = B("\x08\x00\x05\x00" "CS\x0A\0" "ISO_IR 100" "\x28\x00\x10\x00" "US\x02\0" "\x00\x02"sv);
const Bytes kDataBig = B("\x00\x08\x00\x05" "CS\0\x0A" "ISO_IR 100" "\x00\x28\x00\x10" "US\0\x02" "\x02\x00"sv);
// (0002,0000) UL 14 and (0002,0001) OB 01 00: no transfer syntax.
const Bytes kMetaNoSyntax = B("\x02\x00\x00\x00" "UL\x04\0" "\x0E\0\0\0" "\x02\x00\x01\x00" "OB\0\0" "\x02\0\0\0" "\x01\x00"sv);
Bytes Meta(const std::string& uid) {
  uint8_t n = uint8_t(uid.size());
  return B("\x02\x00\x00\x00" "UL\x04\0"sv) + Bytes{uint8_t(n + 8), 0, 0, 0} + B("\x02\x00\x10\x00" "UI"sv) + Bytes{n, 0} + B(uid);
}
// clang-format on

TEST_F(FileTest, LoadFileFindsStartAndEncoding) {
  struct Case {
    const char* name;
    Bytes bytes;
    bool explicitVR;
    const char* group1 = "";  // the value of (0001,0010)
  };
  const Case cases[] = {
      {"implicit, no preamble", kDataImplicit, false},
      {"explicit little endian, no preamble", kDataExplicit, true},
      {"explicit big endian, no preamble", kDataBig, true},
      {"preamble, empty meta group, explicit", kPreamble + kDataExplicit, true},
      {"preamble, empty meta group, implicit", kPreamble + kDataImplicit, false},
      {"meta group without transfer syntax, implicit", kPreamble + kMetaNoSyntax + kDataImplicit,
       false},
      {"meta group naming big endian", kPreamble + Meta(kBig) + kDataBig, true},
      {"meta group naming implicit, then group 0001",
       kPreamble + Meta(kImplicit) +
           B("\x01\x00\x10\x00\x04\0\0\0"
             "abcd"sv) +
           kDataImplicit,
       false, "abcd"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto object = Load(Write("in.dcm", c.bytes));
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(codec_.WasLastLoadComplete());
    EXPECT_EQ(object->GetUInt16(0x0028, 0x0010), 512);
    const VR* charset = object->Find(0x0008, 0x0005);
    ASSERT_NE(charset, nullptr);
    EXPECT_EQ(Value(charset), "ISO_IR 100");
    EXPECT_EQ(charset->TypeCode, c.explicitVR ? MakeTypeCode('C', 'S') : 0);
    EXPECT_EQ(Value(object->Find(0x0001, 0x0010)), c.group1);
  }
  EXPECT_EQ(Load(Path("missing.dcm")), nullptr);
}

// Form 3: preamble, "DICM", our meta group in explicit little endian with these elements in
// this order, then the data set (group 0001 included) in the syntax of the argument, the kept
// old one, or implicit.
TEST_F(FileTest, SaveFileForm3WritesMetaGroupAndChosenSyntax) {
  const std::string sopClass = "1.2.840.10008.5.1.4.1.1.7";  // odd: copied with a zero byte
  struct Case {
    const char* oldSyntax;
    const char* argument;
    std::string written;
    bool bigEndian, explicitVR, sopUids;
  };
  const Case cases[] = {
      {nullptr, nullptr, kImplicit, false, false, true},
      {"1.2.840.10008.1.2.1", nullptr, kImplicit, false, false, true},
      {"1.2.840.10008.1.2", nullptr, kImplicit, false, false, true},
      {"1.2.840.10008.1.2.4.50", nullptr, "1.2.840.10008.1.2.4.50", false, true, true},
      {"1.2.840.10008.1.2.5", "", kRle, false, true, true},
      {"1.2.840.10008.1.2.2", nullptr, kBig, true, true, true},
      {"1.2.840.10008.1.2.4.50", "1.2.840.10008.1.2.1", kExplicit, false, true, true},
      {nullptr, "1.2.840.10008.1.2.2", kBig, true, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("old ") + (c.oldSyntax ? c.oldSyntax : "none") + ", argument " +
                 (c.argument ? c.argument : "null") + (c.sopUids ? "" : ", no SOP UIDs"));
    DICOMDataObject object;
    if (c.sopUids) object.Push(Element(0x0008, 0x0016, "UI", sopClass));
    if (c.sopUids) object.Push(Element(0x0008, 0x0018, "UI", "1.2.3.4"));
    object.Push(Element(0x0028, 0x0010, "US", std::string("\x00\x02", 2)));
    object.Push(Element(0x0010, 0x0010, "PN", "Doe^J"));
    object.Push(Element(0x0002, 0x0013, "SH", "OLD "));
    bool low = c.argument != nullptr;  // with group 0001, which sorts before the meta group
    if (low) object.Push(Element(0x0001, 0x0010, "LO", "abcd"));
    if (c.oldSyntax) object.Push(Element(0x0002, 0x0010, "UI", c.oldSyntax));
    ASSERT_TRUE(Save(object, Path("out.dcm"), 3, c.argument));
    EXPECT_EQ(object.Pop(), nullptr);  // emptied by the encoding

    Bytes file = ReadBytes(Path("out.dcm"));
    ASSERT_GT(file.size(), 144u);
    EXPECT_TRUE(Bytes(file.begin(), file.begin() + 132) == kPreamble);
    // Walk the meta group: tag, VR, 16-bit length, or 2 zero bytes and a 32-bit one for OB.
    std::string layout;
    size_t pos = 132;
    while (pos + 12 <= file.size() && file[pos] == 0x02 && file[pos + 1] == 0x00) {
      bool ob = file[pos + 4] == 'O';
      uint32_t n = ob ? file[pos + 8] | file[pos + 9] << 8 : file[pos + 6] | file[pos + 7] << 8;
      size_t start = pos + (ob ? 12 : 8);
      char tag[16];
      std::snprintf(tag, sizeof tag, "%04x %c%c ", file[pos + 2] | file[pos + 3] << 8,
                    file[pos + 4], file[pos + 5]);
      layout +=
          tag + (pos == 132 ? std::string() : std::string(&file[start], &file[start] + n)) + "|";
      pos = start + n;
    }
    EXPECT_EQ(layout, "0000 UL |0001 OB " + std::string("\x01\x00", 2) + "|" +
                          (c.sopUids ? "0002 UI " + sopClass + '\0' + "|0003 UI " +
                                           std::string("1.2.3.4\0", 8) + "|"
                                     : "") +
                          "0010 UI " + c.written + "|0012 UI 1.2.804.990417.3|0013 SH " +
                          std::string("Vexa \0", 6) + "|0016 AE " +
                          std::string("KESTRELTEST\0", 12) + "|");
    EXPECT_EQ(file[140] | file[141] << 8, int(pos - 144)) << "meta group length";
    ASSERT_LT(pos, file.size());
    EXPECT_EQ(file[pos], c.bigEndian ? 0x00 : low ? 0x01 : 0x08) << "first data set byte";
    auto loaded = Load(Path("out.dcm"));
    ASSERT_NE(loaded, nullptr);
    EXPECT_TRUE(codec_.WasLastLoadComplete());
    EXPECT_EQ(loaded->GetUInt16(0x0028, 0x0010), 512);
    EXPECT_EQ(Value(loaded->Find(0x0001, 0x0010)), low ? "abcd" : "");
    ASSERT_NE(loaded->Find(0x0010, 0x0010), nullptr);
    EXPECT_EQ(loaded->Find(0x0010, 0x0010)->TypeCode, c.explicitVR ? MakeTypeCode('P', 'N') : 0);
  }
}

TEST_F(FileTest, SaveFileForms1To3) {
  DICOMDataObject first;
  first.Push(Element(0x0008, 0x0016, "UI", "1.2.3"));
  first.Push(Element(0x0028, 0x0010, "US", std::string("\x00\x02", 2)));
  ASSERT_TRUE(Save(first, Path("form1.dcm"), 1, nullptr));
  Bytes form1 = ReadBytes(Path("form1.dcm"));  // no preamble: implicit (0008,0000) first
  EXPECT_TRUE(Bytes(form1.begin(), form1.begin() + 12) == B("\x08\0\0\0\x04\0\0\0\x0E\0\0\0"sv));
  EXPECT_EQ(Load(Path("form1.dcm"))->GetUInt16(0x0028, 0x0010), 512);

  // Form 2 writes the same file as form 3, whose layout the test above checks.
  Bytes files[2];
  for (int form : {2, 3}) {
    DICOMDataObject object;
    object.Push(Element(0x0028, 0x0010, "US", std::string("\x00\x02", 2)));
    ASSERT_TRUE(Save(object, Path("form.dcm"), form, nullptr));
    files[form - 2] = ReadBytes(Path("form.dcm"));
  }
  EXPECT_TRUE(files[0] == files[1]);
}

// A failed save leaves neither the file nor its ".partial" behind.
// Writes that fail part-way, as a full disk does: every byte after the first `kept` fails.
size_t FullDiskWrite(const void* data, size_t size, std::FILE* file) {
  static size_t written = 0;
  if (!file) return written = 0;  // reset
  size_t room = written < 1000 ? 1000 - written : 0;
  size_t n = std::fwrite(data, 1, std::min(size, room), file);
  written += n;
  if (n < size) errno = ENOSPC;
  return n;
}
int FailingClose(std::FILE* file) {
  std::fclose(file);
  errno = ENOSPC;
  return EOF;
}
int FailingRename(const char*, const char*) { return -1; }

TEST_F(FileTest, FailedSavesLeaveNothing) {
  fs::create_directory(Path("taken"));
  const KESTREL::FileOperations system = KESTREL::GetFileOperations();
  KESTREL::FileOperations fullDisk = system, badClose = system, badRename = system;
  fullDisk.write = &FullDiskWrite;
  badClose.close = &FailingClose;
  badRename.rename = &FailingRename;
  struct Case {
    const char* name;
    std::string path;
    int form;
    const char* syntax;
    const KESTREL::FileOperations* files;
  };
  const Case cases[] = {{"form 0", Path("a.dcm"), 0, nullptr, &system},
                        {"form 4", Path("a.dcm"), 4, nullptr, &system},
                        {"missing directory", Path("no/such/a.dcm"), 3, nullptr, &system},
                        {"path is a directory", Path("taken"), 3, nullptr, &system},
                        {"unknown transfer syntax", Path("a.dcm"), 3, "1.2.3.4", &system},
                        {"disk full part-way", Path("a.dcm"), 3, nullptr, &fullDisk},
                        {"flush fails at close", Path("a.dcm"), 3, nullptr, &badClose},
                        {"rename fails", Path("a.dcm"), 3, nullptr, &badRename}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    DICOMDataObject object;
    object.Push(Element(0x0028, 0x0010, "US", std::string("\x00\x02", 2)));
    object.Push(Element(0x0010, 0x0010, "PN", std::string(3000, 'x')));
    FullDiskWrite(nullptr, 0, nullptr);
    KESTREL::SetFileOperations(*c.files);
    EXPECT_FALSE(Save(object, c.path, c.form, c.syntax));
    KESTREL::SetFileOperations(system);
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_)) names.push_back(entry.path().filename());
    EXPECT_EQ(names, std::vector<std::string>{"taken"});
    EXPECT_TRUE(fs::is_directory(Path("taken")));
  }
}

TEST_F(FileTest, ReadsSampleFiles) {
  REQUIRE_SAMPLES();
  struct Case {
    const char* file;
    std::vector<uint32_t> path;
    std::string value;
  };
  const Case cases[] = {
      {"CT_small.dcm", {0x00100010}, "CompressedSamples^CT1 "},
      {"MR_small_bigendian.dcm", {0x00280010}, std::string("\x40\x00", 2)},
      {"MR_small_implicit.dcm", {0x00280010}, std::string("\x40\x00", 2)},
      {"JPEG2000.dcm", {0x00280010}, std::string("\x00\x04", 2)},
      {"ExplVR_BigEndNoMeta.dcm", {0x00080005}, "ISO_IR 100"},
      {"ExplVR_LitEndNoMeta.dcm", {0x00080005}, "ISO_IR 100"},
      {"no_meta_group_length.dcm", {0x00080012}, "20111130"},
      {"priv_SQ.dcm", {0x3F030010}, "aaabbbccc MEDICAL SYSTEMS "},
      {"nested_priv_SQ.dcm", {0x00010001, 0x00010001, 0x00010001}, "Double Nested SQ"},
      {"meta_missing_tsyntax.dcm", {0x00010001, 0x00010001, 0x00010001}, "Double Nested SQ"},
      {"UN_sequence.dcm",
       {0x4453100C, 0x00081115, 0x00081199, 0x00081150},
       std::string("1.2.840.10008.5.1.4.1.1.2\0", 26)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    auto object = Load(kSamples + c.file);
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(codec_.WasLastLoadComplete());
    EXPECT_EQ(Value(FindPath(object.get(), c.path)), c.value);
  }
  // The big endian file holds the numbers of its little endian twin once read.
  auto big = Load(kSamples + "MR_small_bigendian.dcm"), little = Load(kSamples + "MR_small.dcm");
  ASSERT_TRUE(big && little);
  for (uint32_t tag : {0x00280011u, 0x00280106u, 0x00280107u, 0x00280030u, 0x7FE00010u}) {
    SCOPED_TRACE(::testing::Message() << std::hex << tag);
    EXPECT_GT(Value(FindPath(big.get(), {tag})).size(), 0u);
    EXPECT_TRUE(Value(FindPath(big.get(), {tag})) == Value(FindPath(little.get(), {tag})));
  }
}

// Load, save in form 3 with the syntax it keeps, load again: the same elements and values, and
// encapsulated fragments byte for byte as in the original file.
TEST_F(FileTest, SampleFilesSurviveSaveAndLoad) {
  REQUIRE_SAMPLES();
  struct Case {
    const char* file;
    std::string syntax;  // as written
    bool keepsTypes;     // explicit VR on both sides
  };
  const Case cases[] = {{"CT_small.dcm", kImplicit, false},
                        {"MR_small_bigendian.dcm", kBig, true},
                        {"JPEG2000.dcm", "1.2.840.10008.1.2.4.91", true},
                        {"MR_small_RLE.dcm", kRle, true},
                        {"SC_rgb_jpeg_dcmtk.dcm", "1.2.840.10008.1.2.4.50", true},
                        {"waveform_ecg.dcm", kImplicit, false},  // read in several blocks
                        {"SC_rgb_jpeg_dcmd.dcm", kImplicit, true},
                        {"UN_sequence.dcm", "1.2.840.10008.1.2.4.70", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    Bytes original = ReadBytes(kSamples + c.file);
    auto before = Load(kSamples + c.file), toSave = Load(kSamples + c.file);
    ASSERT_TRUE(before && toSave);
    ASSERT_TRUE(Save(*toSave, Path("copy.dcm"), 3, nullptr));
    auto after = Load(Path("copy.dcm"));
    ASSERT_NE(after, nullptr);
    EXPECT_TRUE(codec_.WasLastLoadComplete());
    EXPECT_EQ(Value(after->Find(0x0002, 0x0010)), c.syntax);
    const VR* pixels = before->Find(0x7FE0, 0x0010);
    const VR* copied = after->Find(0x7FE0, 0x0010);
    if (pixels && pixels->SequenceItems) {
      ASSERT_TRUE(copied && copied->SequenceItems);
      ASSERT_EQ(copied->SequenceItems->GetSize(), pixels->SequenceItems->GetSize());
      Bytes written = ReadBytes(Path("copy.dcm"));
      for (uint32_t i = 0; i < pixels->SequenceItems->GetSize(); ++i) {
        std::string fragment = Value(pixels->SequenceItems->Get(i)->Find(0xFFFE, 0xE000));
        EXPECT_EQ(Value(copied->SequenceItems->Get(i)->Find(0xFFFE, 0xE000)), fragment);
        uint32_t n = uint32_t(fragment.size());
        Bytes item = B("\xFE\xFF\x00\xE0"sv) +
                     Bytes{uint8_t(n), uint8_t(n >> 8), uint8_t(n >> 16), 0} + B(fragment);
        EXPECT_NE(std::search(original.begin(), original.end(), item.begin(), item.end()),
                  original.end());
        EXPECT_NE(std::search(written.begin(), written.end(), item.begin(), item.end()),
                  written.end());
      }
    }
    std::string expected, actual;
    Describe(*before, c.keepsTypes, expected);
    Describe(*after, c.keepsTypes, actual);
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(actual, expected);
  }
}

TEST_F(FileTest, TruncatedFileGivesPartialObject) {
  REQUIRE_SAMPLES();
  Bytes whole = ReadBytes(kSamples + "CT_small.dcm");
  // The pixel data ends 138 bytes before the end, where a (FFFC,FFFC) padding element follows.
  for (size_t cut :
       {size_t(200), size_t(7000), whole.size() / 2, whole.size() - 150, whole.size() - 1}) {
    SCOPED_TRACE("cut at " + std::to_string(cut));
    auto object = Load(Write("cut.dcm", Bytes(whole.begin(), whole.begin() + long(cut))));
    ASSERT_NE(object, nullptr);
    EXPECT_FALSE(codec_.WasLastLoadComplete());
    EXPECT_EQ(object->Find(0x7FE0, 0x0010) != nullptr, cut >= whole.size() - 138);
    EXPECT_EQ(object->Find(0xFFFC, 0xFFFC), nullptr);
    EXPECT_EQ(object->GetUInt16(0x0028, 0x0010), cut >= 7000 ? 128 : 0);
  }
  auto object = Load(kSamples + "MR_truncated.dcm");
  ASSERT_NE(object, nullptr);
  EXPECT_FALSE(codec_.WasLastLoadComplete());
  EXPECT_EQ(Value(object->Find(0x0008, 0x0020)), "20040826");

  // Why a read was not whole.
  Write("text.dcm", Bytes(2000, 'x'));
  struct Case {
    std::string path;
    FileReadResult result;
    int error;
  };
  const Case cases[] = {{kSamples + "CT_small.dcm", FileReadResult::kComplete, 0},
                        {Path("cut.dcm"), FileReadResult::kDamaged, 0},
                        {Path("text.dcm"), FileReadResult::kNotDICOM, 0},
                        {kSamples + "image_dfl.dcm", FileReadResult::kUnknownSyntax, 0},
                        {Path("missing.dcm"), FileReadResult::kCannotOpen, ENOENT}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    FileReadResult result = FileReadResult::kComplete;
    int error = -1;
    std::unique_ptr<DICOMDataObject> read(codec_.LoadFile(c.path.c_str(), &result, &error));
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(read == nullptr, c.result == FileReadResult::kCannotOpen);
  }
}

// A head read classifies a file at a fixed cost: the leading attributes, never the pixel data.
TEST_F(FileTest, HeadReadStopsAtTheLimit) {
  REQUIRE_SAMPLES();
  const std::string path = kSamples + "CT_small.dcm";
  const uint64_t size = std::filesystem::file_size(path);
  std::unique_ptr<DICOMDataObject> head(codec_.LoadFileHead(path.c_str(), 2048));
  ASSERT_NE(head, nullptr);
  EXPECT_FALSE(codec_.WasLastLoadComplete());
  EXPECT_EQ(Value(head->Find(0x0002, 0x0010)), std::string("1.2.840.10008.1.2.1", 20));
  EXPECT_EQ(Value(head->Find(0x0008, 0x0016)), std::string("1.2.840.10008.5.1.4.1.1.2", 26));
  EXPECT_EQ(head->Find(0x7FE0, 0x0010), nullptr);
  EXPECT_EQ(head->Find(0x0028, 0x0010), nullptr);  // (0028,xxxx) lies beyond 2 KB
  // A limit past the end reads the whole file, the same as LoadFile.
  std::unique_ptr<DICOMDataObject> whole(
      codec_.LoadFileHead(path.c_str(), static_cast<uint32_t>(size)));
  ASSERT_NE(whole, nullptr);
  EXPECT_TRUE(codec_.WasLastLoadComplete());
  EXPECT_NE(whole->Find(0x7FE0, 0x0010), nullptr);
  EXPECT_EQ(codec_.LoadFileHead((kSamples + "no such file").c_str(), 2048), nullptr);
}

// A mapped load reads what LoadFile reads; large unswapped values stay in the mapping.
TEST_F(FileTest, MappedLoadLeavesLargeValuesInTheMapping) {
  struct Case {
    const char* syntax;
    uint32_t pixels;
    bool borrowed;
  } cases[] = {{"1.2.840.10008.1.2.1", 200000, true},
               {"1.2.840.10008.1.2", 200000, true},
               {"1.2.840.10008.1.2.2", 200000, false},  // swapped into a buffer of its own
               {"1.2.840.10008.1.2.1", 1000, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.syntax) + " " + std::to_string(c.pixels));
    DICOMDataObject object;
    object.Push(Element(0x0008, 0x0016, "UI", std::string("1.2.840.10008.5.1.4.1.1.7\0", 26)));
    std::string pixels(c.pixels, 0);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = char(i * 31 + i / 256);
    object.Push(Element(0x7FE0, 0x0010, "OW", pixels));
    const std::string path = Path("mapped.dcm");
    ASSERT_TRUE(Save(object, path, 3, c.syntax));
    FileMapping mapping;
    ASSERT_TRUE(mapping.Open(path.c_str()));
    FileReadResult result = FileReadResult::kDamaged;
    std::unique_ptr<DICOMDataObject> mapped(codec_.LoadMapped(mapping, &result));
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(result, FileReadResult::kComplete);
    const VR* value = mapped->Find(0x7FE0, 0x0010);
    ASSERT_NE(value, nullptr);
    const auto* at = static_cast<const uint8_t*>(value->Data);
    EXPECT_EQ(at >= mapping.Data() && at < mapping.Data() + mapping.Size(), c.borrowed);
    EXPECT_EQ(value->OwnsData == 0, c.borrowed);
    EXPECT_EQ(Value(value), pixels);
    std::string expected, actual;
    Describe(*Load(path), true, expected);
    Describe(*mapped, true, actual);
    EXPECT_EQ(actual, expected);
  }
  // A file cut inside its large value is damaged, as LoadFile finds it.
  const std::string whole = Read(Path("mapped.dcm"));
  FileMapping cut;
  ASSERT_TRUE(cut.Open(Write("cut.dcm", whole.substr(0, whole.size() - 500)).c_str()));
  FileReadResult result = FileReadResult::kComplete;
  std::unique_ptr<DICOMDataObject> damaged(codec_.LoadMapped(cut, &result));
  EXPECT_EQ(result, FileReadResult::kDamaged);
  FileMapping missing;
  EXPECT_FALSE(missing.Open(Path("missing.dcm").c_str()));
  EXPECT_EQ(codec_.LoadMapped(missing, &result), nullptr);
  EXPECT_EQ(result, FileReadResult::kCannotOpen);
}

// Saving with the mapping as copy source: a large value that is written as it lies in the
// file is copied by the system, file to file (the write operation never sees it), and the
// file is the same, byte for byte, as one saved from memory; a swapped one goes through memory.
size_t writtenThrough = 0;
size_t CountingWrite(const void* data, size_t size, std::FILE* file) {
  writtenThrough += size;
  return std::fwrite(data, 1, size, file);
}

TEST_F(FileTest, SavingFromTheMappingCopiesLargeValuesFileToFile) {
  DICOMDataObject original;
  original.Push(Element(0x0008, 0x0016, "UI", std::string("1.2.840.10008.5.1.4.1.1.7\0", 26)));
  std::string pixels(3 << 20, 0);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = char(i * 7 + i / 4096);
  original.Push(Element(0x7FE0, 0x0010, "OW", pixels));
  const std::string source = Path("source.dcm");
  ASSERT_TRUE(Save(original, source, 3, "1.2.840.10008.1.2.1"));
  const KESTREL::FileOperations system = KESTREL::GetFileOperations();
  KESTREL::FileOperations counting = system;
  counting.write = &CountingWrite;
  for (const char* syntax : {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2"}) {
    SCOPED_TRACE(syntax);
    std::unique_ptr<DICOMDataObject> fromMemory(Load(source));
    ASSERT_TRUE(Save(*fromMemory, Path("memory.dcm"), 3, syntax));
    FileMapping mapping;
    ASSERT_TRUE(mapping.Open(source.c_str()));
    std::unique_ptr<DICOMDataObject> mapped(codec_.LoadMapped(mapping));
    ASSERT_NE(mapped, nullptr);
    codec_.SetCopySource(&mapping);
    writtenThrough = 0;
    KESTREL::SetFileOperations(counting);
    const bool saved = Save(*mapped, Path("copied.dcm"), 3, syntax);
    KESTREL::SetFileOperations(system);
    codec_.SetCopySource(nullptr);
    ASSERT_TRUE(saved);
    const std::string copied = Read(Path("copied.dcm"));
    EXPECT_TRUE(copied == Read(Path("memory.dcm")));
    const bool swapped = std::string(syntax) == "1.2.840.10008.1.2.2";
    EXPECT_EQ(writtenThrough, swapped ? copied.size() : copied.size() - pixels.size());
  }
}

}  // namespace
