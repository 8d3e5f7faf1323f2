#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/ByteBuffer.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "tests/core/CoreTestSupport.h"

// Under AddressSanitizer the sanitizer's allocator hooks record the largest single allocation
// made while tracking is on, to show that damaged lengths never make the decoder allocate more
// than its input holds; other builds only show that damaged input does not crash.
static bool g_tracking = false;
static size_t g_largest = 0;
#if defined(__SANITIZE_ADDRESS__)
// From the sanitizer runtime's allocator interface, whose header not every compiler ships.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
static const int g_hooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, size_t size) {
      if (g_tracking && size > g_largest) g_largest = size;
    },
    [](const volatile void*) {});
#endif

namespace {

using namespace std::string_view_literals;
using namespace core_test;

std::string Hex(const Bytes& bytes) {
  std::string out;
  char text[4];
  for (uint8_t b : bytes) out += (std::snprintf(text, sizeof text, "%02x ", b), text);
  return out;
}

Bytes Encode(DICOMObject& object, int mode, bool* ok = nullptr) {
  DICOMCodec codec;
  ByteBuffer buffer;
  bool result = codec.Encode(&object, buffer, mode, false);
  if (ok) *ok = result;
  return Bytes(buffer.Data(), buffer.Data() + buffer.Size());
}

bool Decode(const Bytes& bytes, DICOMObject& object, int mode) {
  DICOMCodec codec;
  ByteBuffer buffer;
  buffer.WriteBytes(bytes.data(), bytes.size());
  return codec.Decode(buffer, &object, mode);
}

// Decodes, checks that it worked, and writes back in the same mode.
Bytes Reencode(const Bytes& bytes, int mode) {
  DICOMDataObject object;
  EXPECT_TRUE(Decode(bytes, object, mode));
  return Encode(object, mode);
}

// (0008,0016) UI "1.2.3" and (0010,0010) PN "Doe^J", both odd, and (0028,0010) US 512.
void FillSmallDataSet(DICOMObject& object) {
  object.Push(Element(0x0010, 0x0010, "PN", "Doe^J"));
  object.Push(Element(0x0028, 0x0010, "US", std::string("\x00\x02", 2)));
  object.Push(Element(0x0028, 0x0000, "UL", std::string(4, '\x7F')));  // recomputed anyway
  object.Push(Element(0x0008, 0x0016, "UI", "1.2.3"));
}

// clang-format off
const Bytes kSmallImplicit = B(
    "\x08\x00\x00\x00" "\x04\x00\x00\x00" "\x0E\x00\x00\x00"  // (0008,0000) length 4, value 14
    "\x08\x00\x16\x00" "\x06\x00\x00\x00" "1.2.3\0"           // (0008,0016) padded with zero
    "\x10\x00\x00\x00" "\x04\x00\x00\x00" "\x0E\x00\x00\x00"  // (0010,0000) value 14
    "\x10\x00\x10\x00" "\x06\x00\x00\x00" "Doe^J "            // (0010,0010) padded with space
    "\x28\x00\x00\x00" "\x04\x00\x00\x00" "\x0A\x00\x00\x00"  // (0028,0000) value 10
    "\x28\x00\x10\x00" "\x02\x00\x00\x00" "\x00\x02"sv);      // (0028,0010) 512
const Bytes kSmallExplicitLittle = B(
    "\x08\x00\x16\x00" "UI" "\x06\x00" "1.2.3\0"  // (0008,0016) UI, 16-bit length 6
    "\x10\x00\x10\x00" "PN" "\x06\x00" "Doe^J "   // (0010,0010) PN
    "\x28\x00\x10\x00" "US" "\x02\x00" "\x00\x02"sv);  // (0028,0010) US 512
const Bytes kSmallExplicitBig = B(
    "\x00\x08\x00\x16" "UI" "\x00\x06" "1.2.3\0"  // (0008,0016), group and element high byte first
    "\x00\x10\x00\x10" "PN" "\x00\x06" "Doe^J "   // (0010,0010)
    "\x00\x28\x00\x10" "US" "\x00\x02" "\x02\x00"sv);  // (0028,0010) 512 swapped
// clang-format on

struct ModeCase {
  int mode;
  const Bytes* golden;
};
const ModeCase kModes[] = {
    {100, &kSmallImplicit}, {101, &kSmallExplicitLittle}, {102, &kSmallExplicitBig}};

// Group lengths are written in mode 100 and dropped in 101 and 102; odd values are padded.
TEST(CodecTest, EncodesAndDecodesGoldenBytesPerMode) {
  for (const ModeCase& c : kModes) {
    SCOPED_TRACE("mode " + std::to_string(c.mode));
    DICOMDataObject object;
    FillSmallDataSet(object);
    if (c.mode == 100) {
      EXPECT_EQ(object.Length, c.golden->size());  // the object counts implicit bytes
    }
    EXPECT_EQ(Hex(Encode(object, c.mode)), Hex(*c.golden));

    DICOMDataObject decoded;
    ASSERT_TRUE(Decode(*c.golden, decoded, c.mode));
    EXPECT_EQ(decoded.GetUInt16(0x0028, 0x0010), 512);
    VR* name = decoded.Find(0x0010, 0x0010);
    ASSERT_NE(name, nullptr);
    EXPECT_EQ(Value(name), "Doe^J ");
    EXPECT_EQ(name->TypeCode, c.mode == 100 ? 0 : MakeTypeCode('P', 'N'));
    EXPECT_EQ(Hex(Reencode(*c.golden, c.mode)), Hex(*c.golden));
  }
}

// (0002,0000) UL and (0002,0010) UI holding `uid`, explicit VR little endian.
// clang-format off
Bytes ExplicitMeta(const std::string& uid) {
  uint8_t n = uint8_t(uid.size());
  return B("\x02\x00\x00\x00" "UL" "\x04\x00"sv) + Bytes{uint8_t(n + 8), 0, 0, 0} +
         B("\x02\x00\x10\x00" "UI"sv) + Bytes{n, 0} + B(uid);
}
// clang-format on

// After group 0002 the stream goes on in the syntax of (0002,0010), compared as at most
// (length modulo 64) bytes, up to a NUL, with one trailing space dropped.
TEST(CodecTest, SwitchesTransferSyntaxAfterMetaGroup) {
  const std::string nines(64, '9'), big("1.2.840.10008.1.2.2\0", 20);
  struct Case {
    std::string uid;
    int mode;  // 0: unknown, both directions fail
  };
  const Case cases[] = {
      {big, 102},
      {big + nines, 102},
      {"1.2.840.10008.1.2.1 ", 101},
      {"1.2.840.10008.1.2.1 " + nines, 101},
      {"1.2.840.10008.1.2.4.50", 101},
      {std::string("1.2.840.10008.1.2\0", 18), 100},
      {"1.2.840.10008.1.2.1   ", 0},  // only one trailing space is forgiven
      {"1.2.840.10008.1.2.99", 0},
      {"1.2.840.10008.1.2.1" + std::string(45, ' '), 0},  // 64 bytes: nothing left to compare
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("uid [" + c.uid + "] of " + std::to_string(c.uid.size()) + " bytes");
    DICOMDataObject object;
    FillSmallDataSet(object);
    object.Push(Element(0x0002, 0x0010, "UI", c.uid));
    bool encoded = false;
    Bytes out = Encode(object, 101, &encoded);
    EXPECT_EQ(encoded, c.mode != 0);

    const Bytes& data = c.mode == 102   ? kSmallExplicitBig
                        : c.mode == 100 ? kSmallImplicit
                                        : kSmallExplicitLittle;
    Bytes meta = ExplicitMeta(c.uid);
    DICOMDataObject decoded;
    EXPECT_EQ(Decode(meta + data, decoded, 101), c.mode != 0);
    if (!c.mode) continue;
    // Big endian after the switch: the first group number was read the old way and swapped.
    EXPECT_EQ(decoded.GetUInt16(0x0028, 0x0010), 512);
    ASSERT_NE(decoded.Find(0x0008, 0x0016), nullptr);
    EXPECT_EQ(decoded.Find(0x0008, 0x0016)->TypeCode, c.mode == 100 ? 0 : MakeTypeCode('U', 'I'));

    ASSERT_GE(out.size(), meta.size());
    EXPECT_EQ(Hex(Bytes(out.begin(), out.begin() + meta.size())), Hex(meta));
    Bytes rest(out.begin() + meta.size(), out.end());
    DICOMDataObject again;
    EXPECT_TRUE(Decode(rest, again, c.mode));
    EXPECT_EQ(again.GetUInt16(0x0028, 0x0010), 512);
    if (c.mode != 100) {
      EXPECT_EQ(Hex(rest), Hex(data));
    }
  }
}

// A 3-byte value per VR: the long header where the VR has one, and its padding byte.
TEST(CodecTest, PadsOddValuesPerVR) {
  struct Case {
    const char* vr;  // empty: no VR known
    uint8_t pad;
    bool longHeader;
  };
  const Case cases[] = {
      {"AE", ' ', false}, {"CS", ' ', false}, {"DS", ' ', false}, {"IS", ' ', false},
      {"LO", ' ', false}, {"LT", ' ', false}, {"PN", ' ', false}, {"SH", ' ', false},
      {"ST", ' ', false}, {"TM", ' ', false}, {"UT", ' ', true},  {"UC", ' ', true},
      {"UR", ' ', true},  {"UI", 0, false},   {"DA", 0, false},   {"DT", 0, false},
      {"AS", 0, false},   {"OB", 0, true},    {"UN", 0, true},    {"", 0, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("VR [") + c.vr + "]");
    const char* vr = *c.vr ? c.vr : nullptr;
    // A private element without a VR, which no dictionary can give one, goes out as UN.
    const char* written = vr ? vr : "UN";
    // clang-format off
    Bytes expected = B("\x09\x00\x10\x10"sv) + Bytes{uint8_t(written[0]), uint8_t(written[1])} +
                     (c.longHeader ? B("\0\0\x04\0\0\0"sv) : B("\x04\0"sv)) + B("ABC") + Bytes{c.pad};
    // clang-format on
    DICOMDataObject explicitVR, implicitVR;
    explicitVR.Push(Element(0x0009, 0x1010, vr, "ABC"));
    EXPECT_EQ(Hex(Encode(explicitVR, 101)), Hex(expected));
    implicitVR.Push(Element(0x0009, 0x1010, vr, "ABC"));  // after (0009,0000): 32-bit length 4
    EXPECT_EQ(Hex(Encode(implicitVR, 100)).substr(36),
              Hex(B("\x09\0\x10\x10\x04\0\0\0ABC"sv) + Bytes{c.pad}));
  }
  // A value too long for a 16-bit length goes out as UN.
  DICOMDataObject large;
  large.Push(Element(0x0009, 0x0010, "LO", std::string(70000, 'x')));
  Bytes out = Encode(large, 101);
  ASSERT_EQ(out.size(), 12u + 70000u);
  // clang-format off
  EXPECT_EQ(Hex(Bytes(out.begin(), out.begin() + 12)), Hex(B("\x09\x00\x10\x00" "UN\0\0" "\x70\x11\x01\x00"sv)));
  // clang-format on
}

// A (gggg,0000) that the caller pushes for group 0000 or 0002 is folded into the computed one.
TEST(CodecTest, CallersGroupLengthOfCommandAndMetaGroupIsWrittenOnce) {
  DICOMCommandObject command;
  command.Push(Element(0x0000, 0x0000, "UL", std::string("\xE7\x03\x00\x00", 4)));
  command.Push(Element(0x0000, 0x0002, "UI", std::string("1.2\0", 4)));
  command.Push(Element(0x0000, 0x0100, "US", std::string("\x30\x00", 2)));
  // clang-format off
  EXPECT_EQ(Hex(Encode(command, 100)), Hex(B(
      "\x00\x00\x00\x00" "\x04\x00\x00\x00" "\x16\x00\x00\x00"  // (0000,0000) = 22
      "\x00\x00\x02\x00" "\x04\x00\x00\x00" "1.2\0"             // (0000,0002)
      "\x00\x00\x00\x01" "\x02\x00\x00\x00" "\x30\x00"sv)));    // (0000,0100)
  DICOMDataObject meta;
  meta.Push(Element(0x0002, 0x0000, "UL", std::string("\xE7\x03\x00\x00", 4)));
  meta.Push(Element(0x0002, 0x0010, "UI", "1.2.840.10008.1.2.1"));  // 19 bytes
  EXPECT_EQ(Hex(Encode(meta, 101)), Hex(B(
      "\x02\x00\x00\x00" "UL" "\x04\x00" "\x1C\x00\x00\x00"    // (0002,0000) = 28
      "\x02\x00\x10\x00" "UI" "\x14\x00" "1.2.840.10008.1.2.1\0"sv)));
  // clang-format on
}

// Sequences read with defined lengths (nested), an implicit (0054,0220) read as a sequence
// without a dictionary, an undefined-length UN holding implicit items, and encapsulated pixel
// data: all written back with undefined lengths and delimiters, fragments byte for byte.
struct SequenceCase {
  const char* name;
  int mode;
  Bytes input, output;  // an empty output: written back unchanged
};
// clang-format off
const SequenceCase kSequences[] = {
    {"nested defined lengths", 101, B(
         "\x08\x00\x40\x11" "SQ\0\0" "\x32\0\0\0"     // (0008,1140) SQ, length 50
         "\xFE\xFF\x00\xE0" "\x2A\0\0\0"              // item, length 42
         "\x08\x00\x50\x11" "UI\x04\0" "1.2\0"        // (0008,1150) UI
         "\x40\x00\x30\xA7" "SQ\0\0" "\x12\0\0\0"     // (0040,A730) SQ, length 18
         "\xFE\xFF\x00\xE0" "\x0A\0\0\0"              // item, length 10
         "\x08\x00\x00\x01" "SH\x02\0" "X "           // (0008,0100) SH
         "\x10\x00\x10\x00" "PN\x04\0" "A^B "sv),     // (0010,0010) after the sequence
     B("\x08\x00\x40\x11" "SQ\0\0" "\xFF\xFF\xFF\xFF"  // (0008,1140) SQ, undefined length
       "\xFE\xFF\x00\xE0" "\xFF\xFF\xFF\xFF"          // item, undefined length
       "\x08\x00\x50\x11" "UI\x04\0" "1.2\0"
       "\x40\x00\x30\xA7" "SQ\0\0" "\xFF\xFF\xFF\xFF"
       "\xFE\xFF\x00\xE0" "\xFF\xFF\xFF\xFF"
       "\x08\x00\x00\x01" "SH\x02\0" "X "
       "\xFE\xFF\x0D\xE0" "\0\0\0\0"                  // item delimiter
       "\xFE\xFF\xDD\xE0" "\0\0\0\0"                  // sequence delimiter
       "\xFE\xFF\x0D\xE0" "\0\0\0\0"
       "\xFE\xFF\xDD\xE0" "\0\0\0\0"
       "\x10\x00\x10\x00" "PN\x04\0" "A^B "sv)},
    {"implicit (0054,0220) without dictionary", 100, B(
         "\x54\x00\x20\x02" "\x12\0\0\0"              // (0054,0220), length 18
         "\xFE\xFF\x00\xE0" "\x0A\0\0\0"              // item, length 10
         "\x08\x00\x00\x01" "\x02\0\0\0" "X "sv),     // (0008,0100)
     B("\x54\x00\x00\x00" "\x04\0\0\0" "\x3E\0\0\0"   // (0054,0000) as counted: 8 + 16 + 22 + 16
       "\x54\x00\x20\x02" "\xFF\xFF\xFF\xFF"          // (0054,0220), undefined length
       "\xFE\xFF\x00\xE0" "\xFF\xFF\xFF\xFF"          // item, undefined length
       "\x08\x00\x00\x00" "\x04\0\0\0" "\x0A\0\0\0"   // (0008,0000) inside the item
       "\x08\x00\x00\x01" "\x02\0\0\0" "X "
       "\xFE\xFF\x0D\xE0" "\0\0\0\0"
       "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv)},
    {"undefined-length UN becomes SQ", 101, B(
         "\x09\x00\x10\x10" "UN\0\0" "\xFF\xFF\xFF\xFF"  // (0009,1010) UN, undefined length
         "\xFE\xFF\x00\xE0" "\xFF\xFF\xFF\xFF"
         "\x09\x00\x11\x10" "\x04\0\0\0" "abcd"          // implicit VR inside
         "\xFE\xFF\x0D\xE0" "\0\0\0\0"
         "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv),
     B("\x09\x00\x10\x10" "SQ\0\0" "\xFF\xFF\xFF\xFF"
       "\xFE\xFF\x00\xE0" "\xFF\xFF\xFF\xFF"
       "\x09\x00\x11\x10" "UN\0\0" "\x04\0\0\0" "abcd"  // written as UN
       "\xFE\xFF\x0D\xE0" "\0\0\0\0"
       "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv)},
    {"encapsulated fragments", 101, B(
         "\x28\x00\x10\x00" "US\x02\0" "\x00\x02"           // (0028,0010)
         "\xE0\x7F\x10\x00" "OB\0\0" "\xFF\xFF\xFF\xFF"     // (7FE0,0010) OB, undefined length
         "\xFE\xFF\x00\xE0" "\0\0\0\0"                      // empty offset table
         "\xFE\xFF\x00\xE0" "\x04\0\0\0" "\xFF\xD8\xFF\xE0"  // fragment 1
         "\xFE\xFF\x00\xE0" "\x06\0\0\0" "\x01\x02\x03\x04\xFF\xD9"  // fragment 2
         "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv), {}},              // sequence delimiter
    {"encapsulated fragments labelled OW go out as OB", 101, B(
         "\xE0\x7F\x10\x00" "OW\0\0" "\xFF\xFF\xFF\xFF"
         "\xFE\xFF\x00\xE0" "\0\0\0\0"
         "\xFE\xFF\x00\xE0" "\x03\0\0\0" "\xFF\xD8\xFF"     // odd fragment, kept as it is
         "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv),
     B("\xE0\x7F\x10\x00" "OB\0\0" "\xFF\xFF\xFF\xFF"
       "\xFE\xFF\x00\xE0" "\0\0\0\0"
       "\xFE\xFF\x00\xE0" "\x03\0\0\0" "\xFF\xD8\xFF"
       "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv)},
};
// clang-format on

TEST(CodecTest, SequencesAndFragmentsAreWrittenWithDelimiters) {
  for (const SequenceCase& c : kSequences) {
    SCOPED_TRACE(c.name);
    const Bytes& expected = c.output.empty() ? c.input : c.output;
    EXPECT_EQ(Hex(Reencode(c.input, c.mode)), Hex(expected));
    EXPECT_EQ(Hex(Reencode(expected, c.mode)), Hex(expected));
  }
  DICOMDataObject object;
  ASSERT_TRUE(Decode(kSequences[3].input, object, 101));
  VR* pixels = object.Find(0x7FE0, 0x0010);
  ASSERT_TRUE(pixels && pixels->SequenceItems);
  ASSERT_EQ(pixels->SequenceItems->GetSize(), 3u);
  EXPECT_EQ(Value(pixels->SequenceItems->Get(2)->Find(0xFFFE, 0xE000)), "\x01\x02\x03\x04\xFF\xD9");
}

// Big endian values are held in host order, swapped per VR width, and written back unchanged.
TEST(CodecTest, BigEndianValuesAreSwappedPerVRWidth) {
  const Bytes big = B("\x01\x02\x03\x04\x05\x06\x07\x08"sv);
  const Bytes by2 = B("\x02\x01\x04\x03\x06\x05\x08\x07"sv);
  const Bytes by4 = B("\x04\x03\x02\x01\x08\x07\x06\x05"sv);
  const Bytes by8 = B("\x08\x07\x06\x05\x04\x03\x02\x01"sv);
  struct Case {
    const char* vr;
    bool longHeader;
    const Bytes& host;
  };
  const Case cases[] = {{"US", false, by2}, {"SS", false, by2}, {"OW", true, by2},
                        {"AT", false, by2}, {"UL", false, by4}, {"SL", false, by4},
                        {"FL", false, by4}, {"OF", true, by4},  {"OL", true, by4},
                        {"FD", false, by8}, {"OD", true, by8},  {"OV", true, by8},
                        {"SV", true, by8},  {"UV", true, by8},  {"OB", true, big},
                        {"UN", true, big},  {"LO", false, big}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.vr);
    auto stream = [&](bool bigEndian, const Bytes& value) {
      Bytes length = c.longHeader ? B(bigEndian ? "\0\0\0\0\0\x08"sv : "\0\0\x08\0\0\0"sv)
                                  : B(bigEndian ? "\0\x08"sv : "\x08\0"sv);
      return B(bigEndian ? "\x00\x19\x10\x00"sv : "\x19\x00\x00\x10"sv) + B(c.vr) + length + value;
    };
    DICOMDataObject object;
    ASSERT_TRUE(Decode(stream(true, big), object, 102));
    EXPECT_EQ(Hex(B(Value(object.Find(0x0019, 0x1000)))), Hex(c.host));
    EXPECT_EQ(Hex(Encode(object, 101)), Hex(stream(false, c.host)));
    EXPECT_EQ(Hex(Reencode(stream(true, big), 102)), Hex(stream(true, big)));
  }
}

// An explicit stream nesting `depth` sequences, each holding one item.
// clang-format off
Bytes NestedItems(int depth) {
  Bytes open = B("\x08\x00\x40\x11" "SQ\0\0" "\xFF\xFF\xFF\xFF" "\xFE\xFF\x00\xE0" "\xFF\xFF\xFF\xFF"sv);
  Bytes close = B("\xFE\xFF\x0D\xE0" "\0\0\0\0" "\xFE\xFF\xDD\xE0" "\0\0\0\0"sv);
  Bytes out;
  for (int i = 0; i < depth; ++i) out.insert(out.end(), open.begin(), open.end());
  out = out + B("\x08\x00\x00\x01" "SH\x02\0" "X "sv);
  for (int i = 0; i < depth; ++i) out.insert(out.end(), close.begin(), close.end());
  return out;
}
// clang-format on

// An implicit VR stream read without a dictionary leaves its elements without a VR and a
// defined-length sequence as raw bytes. Written in an explicit syntax, every element must
// still carry its real VR (dictionary, private dictionary, Pixel Representation, Bits
// Allocated) and the sequence its items, in both byte orders.
TEST(CodecTest, ImplicitDataWrittenExplicitGetsItsVRsAndItems) {
  auto implicitElement = [](uint16_t group, uint16_t element, const Bytes& value) {
    Bytes out{uint8_t(group),
              uint8_t(group >> 8),
              uint8_t(element),
              uint8_t(element >> 8),
              uint8_t(value.size()),
              uint8_t(value.size() >> 8),
              0,
              0};
    return out + value;
  };
  const Bytes item = implicitElement(0x0010, 0x0020, B("ID42"));
  const Bytes sequence = B("\xFE\xFF\x00\xE0"sv) + Bytes{uint8_t(item.size()), 0, 0, 0} + item;
  const Bytes stream = implicitElement(0x0008, 0x0016, B("1.2.3\0"sv)) +
                       implicitElement(0x0009, 0x0010, B("GEMS_IDEN_01")) +
                       implicitElement(0x0009, 0x1027, B("\xFB\xFF\xFF\xFF"sv)) +
                       implicitElement(0x0009, 0x1099, B("\x01\x02"sv)) +
                       implicitElement(0x0010, 0x1002, sequence) +
                       implicitElement(0x0028, 0x0100, B("\x10\0"sv)) +
                       implicitElement(0x0028, 0x0103, B("\x01\0"sv)) +
                       implicitElement(0x0028, 0x0106, B("\xFB\xFF"sv)) +
                       implicitElement(0x0028, 0x3002, B("\x00\x01\x00\x00\x10\x00"sv)) +
                       implicitElement(0x7FE0, 0x0010, B("\x01\x02\x03\x04"sv));
  struct Expected {
    uint16_t group, element;
    const char* vr;
  };
  const Expected expected[] = {
      {0x0008, 0x0016, "UI"}, {0x0009, 0x0010, "LO"}, {0x0009, 0x1027, "SL"},
      {0x0009, 0x1099, "UN"}, {0x0010, 0x1002, "SQ"}, {0x0028, 0x0106, "SS"},
      {0x0028, 0x3002, "US"}, {0x7FE0, 0x0010, "OW"},
  };
  for (int mode : {101, 102}) {
    SCOPED_TRACE(mode);
    DICOMDataObject read, written;
    ASSERT_TRUE(Decode(stream, read, 100));
    ASSERT_TRUE(Decode(Encode(read, mode), written, mode));
    for (const Expected& e : expected) {
      VR* element = written.Find(e.group, e.element);
      ASSERT_NE(element, nullptr) << std::hex << e.group << "," << e.element;
      EXPECT_EQ(element->TypeCode, MakeTypeCode(e.vr[0], e.vr[1]))
          << std::hex << e.group << "," << e.element;
    }
    // Values read back in host order whatever the stream's byte order.
    EXPECT_EQ(Value(written.Find(0x0009, 0x1027)), "\xFB\xFF\xFF\xFF"sv);
    EXPECT_EQ(Value(written.Find(0x0028, 0x0106)), "\xFB\xFF"sv);
    EXPECT_EQ(Value(written.Find(0x7FE0, 0x0010)), "\x01\x02\x03\x04"sv);
    VR* sq = written.Find(0x0010, 0x1002);
    ASSERT_TRUE(sq->SequenceItems && sq->SequenceItems->GetSize() == 1);
    VR* inner = sq->SequenceItems->Get(0)->Find(0x0010, 0x0020);
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(inner->TypeCode, MakeTypeCode('L', 'O'));
    EXPECT_EQ(Value(inner), "ID42");
  }
}

TEST(CodecTest, NestingDeeperThan64LevelsFails) {
  DICOMDataObject ok, tooDeep;
  EXPECT_TRUE(Decode(NestedItems(64), ok, 101));
  EXPECT_TRUE(Encode(ok, 101) == NestedItems(64));
  EXPECT_FALSE(Decode(NestedItems(65), tooDeep, 101));
  // Sequence headers nested without items between them, with undefined and with defined
  // lengths: a hostile stream of this kind is refused, not followed down the stack.
  const uint32_t levels = 100000;
  Bytes undefinedNest, definedNest;
  for (uint32_t rest = (levels - 1) * 12;; rest -= 12) {
    // (0008,1140) SQ with an undefined length, or with one that spans the rest of the stream
    const uint8_t header[] = {0x08, 0x00, 0x40, 0x11, 'S', 'Q', 0, 0};
    undefinedNest.insert(undefinedNest.end(), header, header + 8);
    undefinedNest.insert(undefinedNest.end(), 4, 0xFF);
    definedNest.insert(definedNest.end(), header, header + 8);
    for (int shift = 0; shift < 32; shift += 8) definedNest.push_back(uint8_t(rest >> shift));
    if (rest == 0) break;
  }
  DICOMDataObject first, second;
  EXPECT_FALSE(Decode(undefinedNest, first, 101));
  EXPECT_FALSE(Decode(definedNest, second, 101));
}

// Every golden stream cut at every byte, and with every 4 bytes replaced by a huge length: the
// decoder may succeed or fail, but must not crash (see the ASan run) nor allocate more than
// the input holds.
TEST(CodecTest, DamagedStreamsNeverCrashNorOverAllocate) {
  struct Stream {
    std::string name;
    int mode;
    Bytes bytes;
  };
  std::vector<Stream> streams = {
      {"switch to big endian", 101,
       ExplicitMeta(std::string("1.2.840.10008.1.2.2\0", 20)) + kSmallExplicitBig},
      {"nested", 101, NestedItems(3)}};
  for (const ModeCase& c : kModes) streams.push_back({"small", c.mode, *c.golden});
  for (const SequenceCase& c : kSequences) {
    streams.push_back({c.name, c.mode, c.input});
    if (!c.output.empty()) streams.push_back({std::string(c.name) + " written", c.mode, c.output});
  }
  size_t runs = 0;
  for (const Stream& s : streams) {
    std::vector<Bytes> damaged;
    for (size_t cut = 0; cut < s.bytes.size(); ++cut)
      damaged.emplace_back(s.bytes.begin(), s.bytes.begin() + cut);
    for (size_t at = 0; at + 4 <= s.bytes.size(); ++at) {
      for (uint32_t huge : {0xFFFFFFFEu, 0x7FFFFFF0u, 0xF0FFFF7Fu, 0x0000FFFFu}) {
        damaged.push_back(s.bytes);
        std::memcpy(damaged.back().data() + at, &huge, 4);
      }
    }
    for (const Bytes& input : damaged) {
      SCOPED_TRACE(s.name + " in mode " + std::to_string(s.mode) + ": " + Hex(input));
      DICOMCodec codec;
      ByteBuffer buffer;
      buffer.WriteBytes(input.data(), input.size());
      auto* object = new DICOMDataObject;
      g_largest = 0;
      g_tracking = true;
      (void)codec.Decode(buffer, object, s.mode);
      delete object;
      g_tracking = false;
      ASSERT_LE(g_largest, input.size() + 4096);
      ++runs;
    }
  }
  EXPECT_GT(runs, 3000u);
}

}  // namespace
