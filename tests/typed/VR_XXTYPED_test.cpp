#include "kestrel/VR_XXTYPED.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/DICOMObject.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"

namespace {

using Make = std::function<VR_XXTYPED*()>;

std::string Code(uint16_t code) {
  return std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
}

std::string Bytes(const VR& element) {
  if (!element.Data) return "<null>";
  return std::string(static_cast<const char*>(element.Data), element.Length);
}

// Gives `element` a value of exactly these bytes, owned by the element (freeing an old one).
void Give(VR& element, const std::string& bytes) {
  if (element.OwnsData) delete[] static_cast<char*>(element.Data);
  char* buffer = new char[bytes.size() ? bytes.size() : 1];
  std::memcpy(buffer, bytes.data(), bytes.size());
  element.Data = buffer;
  element.Length = static_cast<uint32_t>(bytes.size());
  element.OwnsData = 1;
}

template <class T>
Make Maker() {
  return [] { return new T(0x0011, 0x0022); };
}

Make OX(const char* code) {
  return [code] {
    auto* element = new VR_OX(0x7FE0, 0x0010);
    element->SetOXTypeCode(MakeTypeCode(code[0], code[1]));
    return element;
  };
}

TEST(TypedElement, WidthAndCodeOfEveryClass) {
  struct Case {
    const char* name;
    Make make;
    uint32_t width;
    const char* code;
  } cases[] = {
      {"AS", Maker<VR_AS>(), 4, "AS"}, {"CS", Maker<VR_CS>(), 0, "CS"},
      {"DA", Maker<VR_DA>(), 8, "DA"}, {"DS", Maker<VR_DS>(), 0, "DS"},
      {"IS", Maker<VR_IS>(), 0, "IS"}, {"LO", Maker<VR_LO>(), 0, "LO"},
      {"PN", Maker<VR_PN>(), 0, "PN"}, {"SH", Maker<VR_SH>(), 0, "SH"},
      {"TM", Maker<VR_TM>(), 0, "TM"}, {"UI", Maker<VR_UI>(), 0, "UI"},
      {"AT", Maker<VR_AT>(), 4, "AT"}, {"FD", Maker<VR_FD>(), 8, "FD"},
      {"OW", Maker<VR_OW>(), 1, "OW"}, {"SL", Maker<VR_SL>(), 4, "SL"},
      {"SS", Maker<VR_SS>(), 2, "SS"}, {"UL", Maker<VR_UL>(), 4, "UL"},
      {"US", Maker<VR_US>(), 2, "US"}, {"XS", Maker<VR_XS>(), 2, "US"},
      {"LT", Maker<VR_LT>(), 0, "LT"}, {"ST", Maker<VR_ST>(), 0, "ST"},
      {"SQ", Maker<VR_SQ>(), 0, "SQ"}, {"OX as OW", OX("OW"), 2, "OW"},
      {"OX as OB", OX("OB"), 1, "OB"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<VR_XXTYPED> element(c.make());
    EXPECT_EQ(element->GetSize(), c.width);
    EXPECT_EQ(Code(element->GetTypeCode()), c.code);
    // What an encoder writes is the field, which the constructor must have set.
    EXPECT_EQ(Code(element->TypeCode), c.code);
    EXPECT_EQ(VR_XXTYPED::Cast(element.get()), element.get());
  }
}

TEST(TypedElement, XSReportsTheSignednessItHolds) {
  VR_XS value(0x0028, 0x0106);
  EXPECT_EQ(Code(value.GetTypeCode()), "US");
  value.TypeCode = MakeTypeCode('S', 'S');
  EXPECT_EQ(Code(value.GetTypeCode()), "SS");
}

TEST(TypedElement, PlainElementsAreNotTyped) {
  VR plain(0x0010, 0x0010, 0, false);
  EXPECT_EQ(VR_XXTYPED::Cast(&plain), nullptr);
  EXPECT_EQ(VR_XXTYPED::Cast(nullptr), nullptr);
  // Destroy frees both kinds through their own type (the sanitizer build checks the address).
  VR_XXTYPED::Destroy(new VR(1, 2, 4, true));
  VR_XXTYPED::Destroy(new VR_PN(0x0010, 0x0010));
  VR_XXTYPED::Destroy(nullptr);
}

// A typed element pushed into a plain data object is destroyed with it, through VR*, and
// comes back out of Pop as the typed element it was.
TEST(TypedElement, PlainObjectsHoldTypedElements) {
  auto object = std::make_unique<DICOMDataObject>();
  auto* name = new VR_PN(0x0010, 0x0010);
  ASSERT_TRUE(name->SetValue("DOE^JOHN", 8));
  ASSERT_TRUE(object->Push(name));
  ASSERT_TRUE(object->Push(new VR_PN(0x0010, 0x0020)));
  EXPECT_EQ(VR_XXTYPED::Cast(object->Find(0x0010, 0x0010)), name);
  VR* popped = object->Pop();  // (0010,0000), made by the object
  delete popped;
  popped = object->Pop();
  EXPECT_EQ(VR_XXTYPED::Cast(popped), name);
  delete popped;
  object.reset();  // still holds the second typed element
}

// Set(index, value) on a string element holding `before` (null: no value).
TEST(TypedElement, StringSetFollowsWidthAndSeparatorRules) {
  struct Case {
    const char* name;
    Make make;
    const char* before;
    uint32_t index;
    std::string value;
    std::string after;
  } cases[] = {
      {"AS is blank-filled to 4", Maker<VR_AS>(), nullptr, 0, "45Y", "45Y "},
      {"AS is cut to 4", Maker<VR_AS>(), nullptr, 0, "12345", "1234"},
      {"index 2 of empty LO", Maker<VR_LO>(), nullptr, 2, "X", "\\\\X"},
      {"index 1 after A joins it", Maker<VR_LO>(), "A", 1, "B", "AB"},
      {"index 2 after A separates", Maker<VR_LO>(), "A", 2, "B", "A\\B"},
      {"index 4 after A\\B", Maker<VR_LO>(), "A\\B", 4, "C", "A\\B\\\\C"},
      {"replace first", Maker<VR_CS>(), "A\\B\\C", 0, "X", "X\\B\\C"},
      {"replace middle", Maker<VR_CS>(), "A\\B\\C", 1, "XY", "A\\XY\\C"},
      {"replace last", Maker<VR_CS>(), "A\\B\\C", 2, "X", "A\\B\\X"},
      {"replace before an empty value", Maker<VR_CS>(), "A\\", 0, "X", "X\\"},
      {"replace the only value", Maker<VR_SH>(), "OLD", 0, "NEW", "NEW"},
      {"UI trailing blank becomes zero", Maker<VR_UI>(), nullptr, 0, "1.2.3 ",
       std::string("1.2.3\0", 6)},
      {"UI blanks become zeros", Maker<VR_UI>(), nullptr, 0, "1.2  ", std::string("1.2\0\0", 5)},
      {"trailing zero of text becomes blank", Maker<VR_LO>(), nullptr, 0, std::string("AB\0", 3),
       "AB "},
      {"inner zero stays", Maker<VR_LO>(), nullptr, 0, std::string("A\0B", 3),
       std::string("A\0B", 3)},
      {"DA drops dots", Maker<VR_DA>(), nullptr, 0, "2004.01.31", "20040131"},
      {"DA keeps 8", Maker<VR_DA>(), nullptr, 0, "20040131123456", "20040131"},
      {"DA short date is blank-filled", Maker<VR_DA>(), nullptr, 0, "2004", "2004    "},
      {"DA dots of the second value", Maker<VR_DA>(), "20010101", 2, "2002.02.02",
       "20010101\\20020202"},
      {"backslash in a value splits it", Maker<VR_CS>(), nullptr, 0, "A\\B", "A\\B"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<VR_XXTYPED> typed(c.make());
    auto* element = dynamic_cast<VR_XXMULTISTRING*>(typed.get());
    ASSERT_NE(element, nullptr);
    if (c.before) Give(*element, c.before);
    EXPECT_TRUE(element->Set(c.index, c.value));
    EXPECT_EQ(Bytes(*element), c.after);
    // No database: the element owns what it made and freed what it replaced (the sanitizer
    // build reports a leak otherwise).
    EXPECT_TRUE(element->OwnsData);
  }
}

TEST(TypedElement, StringGetSplitsAndTrims) {
  struct Case {
    const char* name;
    Make make;
    const char* stored;  // null: no value
    size_t storedLength;
    uint32_t index;
    bool found;
    std::string value;
  } cases[] = {
      {"second of two", Maker<VR_CS>(), "A\\B", 3, 1, true, "B"},
      {"past the values", Maker<VR_CS>(), "A\\B", 3, 2, false, ""},
      {"no value", Maker<VR_CS>(), nullptr, 0, 0, false, ""},
      {"empty middle value", Maker<VR_CS>(), "A\\\\B", 4, 1, true, ""},
      {"trailing blanks cut", Maker<VR_LO>(), "ABC  ", 5, 0, true, "ABC"},
      {"leading blanks kept", Maker<VR_LO>(), " ABC", 4, 0, true, " ABC"},
      {"blanks before a separator cut", Maker<VR_LO>(), "AB \\C", 5, 0, true, "AB"},
      {"only blanks", Maker<VR_SH>(), "    ", 4, 0, true, ""},
      {"UI zero padding", Maker<VR_UI>(), "1.2.3\0", 6, 0, true, "1.2.3"},
      {"DA old form", Maker<VR_DA>(), "2004.01.31", 10, 0, true, "20040131"},
      {"DA of 8 characters kept", Maker<VR_DA>(), "2004.1.3", 8, 0, true, "2004.1.3"},
      {"DA padded", Maker<VR_DA>(), "2004    ", 8, 0, true, "2004"},
      {"AS", Maker<VR_AS>(), "045Y", 4, 0, true, "045Y"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<VR_XXTYPED> typed(c.make());
    auto* element = dynamic_cast<VR_XXMULTISTRING*>(typed.get());
    ASSERT_NE(element, nullptr);
    if (c.stored) Give(*element, std::string(c.stored, c.storedLength));
    std::string out = "untouched";
    EXPECT_EQ(element->Get(c.index, out), c.found);
    if (c.found) {
      EXPECT_EQ(out, c.value);
    }
  }
}

TEST(TypedElement, GetWithoutIndexIsTheFirstValueWithTheClassRules) {
  VR_DA date(0x0008, 0x0020);
  Give(date, "2004.01.31\\1999.12.31");
  std::string out;
  ASSERT_TRUE(date.Get(out));
  EXPECT_EQ(out, "20040131");
  ASSERT_TRUE(date.Set("1999.12.31"));
  EXPECT_EQ(Bytes(date), "19991231\\1999.12.31");
}

TEST(TypedElement, PersonNameReadsThroughA200ByteBuffer) {
  VR_PN name(0x0010, 0x0010);
  std::string longName(250, 'N');
  Give(name, longName);
  std::string out;
  ASSERT_TRUE(name.Get(0, out));
  EXPECT_EQ(out.size(), 199u);
  Give(name, "Doe^John");
  ASSERT_TRUE(name.Get(0, out));
  EXPECT_EQ(out, "Doe^John");
}

TEST(TypedElement, StorageConversionsInPlace) {
  struct Case {
    const char* name;
    Make make;
    bool toStorage;
    std::string in, out;
  } cases[] = {
      {"text: trailing zeros to blanks", Maker<VR_CS>(), true, std::string("AB\0\0", 4), "AB  "},
      {"text: walk stops at a letter", Maker<VR_CS>(), true, std::string("A\0B\0", 4),
       std::string("A\0B ", 4)},
      {"text: trailing blanks cut", Maker<VR_CS>(), false, "AB  ", std::string("AB\0 ", 4)},
      {"text: nothing to cut", Maker<VR_CS>(), false, "AB", "AB"},
      {"UI: blanks to zeros", Maker<VR_UI>(), true, "1 2 ", std::string("1 2\0", 4)},
      {"UI: a zero stops the walk", Maker<VR_UI>(), true, std::string("1\0 ", 3),
       std::string("1\0\0", 3)},
      {"LT pads like text", Maker<VR_LT>(), true, std::string("Hi\0\0", 4), "Hi  "},
      {"ST trims like text", Maker<VR_ST>(), false, "Hi  ", std::string("Hi\0 ", 4)},
      {"AT reverses 4 bytes", Maker<VR_AT>(), true, "\x01\x02\x03\x04", "\x04\x03\x02\x01"},
      {"AT reverses back", Maker<VR_AT>(), false, "\x04\x03\x02\x01", "\x01\x02\x03\x04"},
      {"AT halves of 8 bytes", Maker<VR_AT>(), true, "ABCDEFGH", "HGFEDCBA"},
      {"AT: 2 bytes", Maker<VR_AT>(), true, "AB", "BA"},
      {"US: no conversion", Maker<VR_US>(), true, "\x01\x02", "\x01\x02"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<VR_XXTYPED> element(c.make());
    std::string data = c.in;
    bool ok = c.toStorage ? element->ToStorage(uint32_t(data.size()), &data[0])
                          : element->FromStorage(uint32_t(data.size()), &data[0]);
    EXPECT_TRUE(ok);
    EXPECT_EQ(data, c.out);
    char byte = 'x';
    EXPECT_FALSE(element->ToStorage(0, &byte));
    EXPECT_FALSE(element->FromStorage(0, &byte));
    EXPECT_EQ(byte, 'x');
  }
}

TEST(TypedElement, BinarySetGrowsAndGetStaysInside) {
  VR_US us(0x0028, 0x0010);
  uint16_t first = 0x1234, fourth = 0xBEEF, out = 0;
  ASSERT_TRUE(us.Set(&first));
  EXPECT_EQ(us.Length, 2u);
  ASSERT_TRUE(us.Set(3, &fourth));
  ASSERT_EQ(us.Length, 8u);
  EXPECT_EQ(us.GetCount(), 4u);
  const auto* words = static_cast<const uint16_t*>(us.Data);
  EXPECT_EQ(words[0], first);  // old bytes kept
  EXPECT_EQ(words[1], 0);      // skipped values zero-filled
  EXPECT_EQ(words[2], 0);
  EXPECT_EQ(words[3], fourth);
  ASSERT_TRUE(us.Get(3, &out));
  EXPECT_EQ(out, fourth);
  EXPECT_FALSE(us.Get(4, &out));  // one past the last value: nothing there to read
  EXPECT_FALSE(us.Get(0, nullptr));
  EXPECT_FALSE(us.Set(0, nullptr));

  // Replacing inside the value changes the bytes in place.
  const void* before = us.Data;
  uint16_t second = 7;
  ASSERT_TRUE(us.Set(1, &second));
  EXPECT_EQ(us.Data, before);
  EXPECT_EQ(static_cast<const uint16_t*>(us.Data)[1], 7);
}

TEST(TypedElement, BinaryWidthsDecideOffsets) {
  struct Case {
    const char* name;
    Make make;
    uint32_t index;
    uint32_t length;  // after Set(index)
  } cases[] = {
      {"UL", Maker<VR_UL>(), 2, 12},
      {"SL", Maker<VR_SL>(), 0, 4},
      {"FD", Maker<VR_FD>(), 1, 16},
      {"SS", Maker<VR_SS>(), 5, 12},
      {"OW counts bytes", Maker<VR_OW>(), 5, 6},
      {"OX as OW", OX("OW"), 5, 12},
      {"OX as OB", OX("OB"), 5, 6},
      {"AT", Maker<VR_AT>(), 1, 8},
  };
  const uint8_t value[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::unique_ptr<VR_XXTYPED> typed(c.make());
    auto* element = dynamic_cast<VR_XXMULTIBINARY*>(typed.get());
    ASSERT_NE(element, nullptr);
    ASSERT_TRUE(element->Set(c.index, value));
    EXPECT_EQ(element->Length, c.length);
    uint8_t back[8] = {};
    ASSERT_TRUE(element->Get(c.index, back));
    EXPECT_EQ(std::memcmp(back, value, element->GetSize()), 0);
  }
}

TEST(TypedElement, AttributeTagsAreStoredReversed) {
  VR_AT at(0x0028, 0x0009);
  uint32_t tag = 0x00181063;  // Frame Time as group << 16 | element
  ASSERT_TRUE(at.Set(&tag));
  const auto* stored = static_cast<const uint8_t*>(at.Data);
  // In memory the word is 63 10 18 00; reversed it is 00 18 10 63.
  EXPECT_EQ(stored[0], 0x00);
  EXPECT_EQ(stored[1], 0x18);
  EXPECT_EQ(stored[2], 0x10);
  EXPECT_EQ(stored[3], 0x63);
  uint32_t back = 0;
  ASSERT_TRUE(at.Get(&back));
  EXPECT_EQ(back, tag);
}

TEST(TypedElement, SetValueAndClearValue) {
  VR_LT text(0x0010, 0x4000);
  ASSERT_TRUE(text.SetValue(std::string("Note\0", 5).data(), 5));
  EXPECT_EQ(Bytes(text), "Note ");
  ASSERT_TRUE(text.SetValue(nullptr, 0));
  EXPECT_TRUE(text.HasValue());  // present and empty
  EXPECT_EQ(text.Length, 0u);
  text.ClearValue();
  EXPECT_FALSE(text.HasValue());
  EXPECT_EQ(text.Data, nullptr);

  VR_SQ sequence(0x0008, 0x1140);
  sequence.SequenceItems = new Array<DICOMDataObject*>();
  sequence.SequenceItems->Add(new DICOMDataObject);
  EXPECT_TRUE(sequence.HasValue());
  sequence.ClearValue();  // destroys the item (checked by the sanitizer build)
  EXPECT_EQ(sequence.SequenceItems, nullptr);
}

TEST(ReferentialIntegrity, ReplacedBuffersGoToTheDatabase) {
  VRReferentialIntegrityDatabase database;
  VR_LO lo(0x0010, 0x0020);
  lo.Database = &database;
  ASSERT_TRUE(lo.Set("FIRST"));
  EXPECT_FALSE(lo.OwnsData);
  EXPECT_TRUE(database.Holds(lo.Data));
  const char* first = static_cast<const char*>(lo.Data);

  ASSERT_TRUE(lo.Set("SECOND"));
  EXPECT_NE(lo.Data, first);
  EXPECT_EQ(database.GetCount(), 2u);
  EXPECT_EQ(database.GetTotalLength(), 11u);
  // The old value is still readable through the pointer taken before the change.
  EXPECT_EQ(std::string(first, 5), "FIRST");

  lo.ClearValue();
  EXPECT_EQ(database.GetCount(), 2u);  // clearing does not free what the database owns

  VR_US us(0x0028, 0x0010);
  us.Database = &database;
  uint16_t value = 1;
  ASSERT_TRUE(us.Set(2, &value));  // grows: a new buffer, reported
  EXPECT_EQ(database.GetCount(), 3u);
  ASSERT_TRUE(us.Set(0, &value));  // in place: nothing new
  EXPECT_EQ(database.GetCount(), 3u);
}

TEST(ReferentialIntegrity, DatabaseReportRules) {
  VRReferentialIntegrityDatabase database;
  EXPECT_FALSE(database.Report(1, 2, nullptr, 0, 0));
  char* buffer = new char[4];
  EXPECT_TRUE(database.Report(0x0010, 0x0010, buffer, 4, MakeTypeCode('P', 'N')));
  EXPECT_TRUE(database.Report(0x0010, 0x0010, buffer, 4, MakeTypeCode('P', 'N')));
  EXPECT_EQ(database.GetCount(), 1u);  // never owned twice, so never freed twice
  EXPECT_EQ(database.GetTotalLength(), 4u);
  EXPECT_FALSE(database.Holds(buffer + 1));
}

}  // namespace
