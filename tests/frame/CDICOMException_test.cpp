#include "kestrel/CDICOMException.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "kestrel/DICOMObject.h"

namespace {

// Elements of a response command set, built the way the decoder leaves them: values in host
// byte order, text padded to an even length.
VR* Text(uint16_t element, const std::string& value, char pad) {
  std::string padded = value;
  if (padded.size() % 2) padded += pad;
  char* data = new char[padded.size()];
  std::memcpy(data, padded.data(), padded.size());
  return new VR(0x0000, element, static_cast<uint32_t>(padded.size()), static_cast<void*>(data));
}

VR* UInt16(uint16_t element, uint16_t value) {
  char* data = new char[2];
  std::memcpy(data, &value, 2);
  return new VR(0x0000, element, 2, static_cast<void*>(data));
}

VR* Tags(uint16_t element, const std::vector<std::pair<uint16_t, uint16_t>>& tags,
         uint32_t extraBytes = 0) {
  uint32_t length = static_cast<uint32_t>(tags.size() * 4) + extraBytes;
  char* data = new char[length == 0 ? 1 : length]();
  for (size_t i = 0; i < tags.size(); ++i) {
    std::memcpy(data + 4 * i, &tags[i].first, 2);
    std::memcpy(data + 4 * i + 2, &tags[i].second, 2);
  }
  return new VR(0x0000, element, length, static_cast<void*>(data));
}

TEST(CDICOMExceptionTest, ReadsEveryFieldOfAResponse) {
  DICOMCommandObject response;
  ASSERT_TRUE(response.Push(UInt16(0x0100, 0x8130)));  // N-SET-RSP
  ASSERT_TRUE(response.Push(UInt16(0x0900, 0x0106)));
  ASSERT_TRUE(response.Push(Tags(0x0901, {{0x0010, 0x0020}, {0x2010, 0x0100}})));
  ASSERT_TRUE(response.Push(Text(0x0902, "Bad film size", ' ')));
  ASSERT_TRUE(response.Push(Text(0x0002, "1.2.840.10008.5.1.1.2", '\0')));
  ASSERT_TRUE(response.Push(Text(0x0003, "1.2.840.10008.5.1.1.4", '\0')));
  ASSERT_TRUE(response.Push(Text(0x1000, "1.2.3.4.5", '\0')));
  ASSERT_TRUE(response.Push(Text(0x1001, "9.9.9", '\0')));
  ASSERT_TRUE(response.Push(UInt16(0x1002, 3)));
  ASSERT_TRUE(response.Push(Tags(0x1005, {{0x2010, 0x0010}})));
  ASSERT_TRUE(response.Push(UInt16(0x1008, 1)));

  KESTREL::CDICOMException exception(&response);
  EXPECT_EQ(exception.Status, 0x0106);
  EXPECT_EQ(exception.OffendingElements, "(010,020) (2010,10) ");
  EXPECT_EQ(exception.ErrorComment, "Bad film size");
  EXPECT_EQ(exception.AffectedSOPClassUID, "1.2.840.10008.5.1.1.2");
  EXPECT_EQ(exception.AffectedSOPInstanceUID, "1.2.3.4.5");
  EXPECT_EQ(exception.AttributeIdentifierList, "(2010,010) ");
  EXPECT_EQ(exception.RequestedSOPClassUID, "1.2.840.10008.5.1.1.4");
  // From (0000,1000) as well, whatever (0000,1001) says.
  EXPECT_EQ(exception.RequestedSOPInstanceUID, "1.2.3.4.5");
  EXPECT_EQ(exception.EventTypeID, 3);
  EXPECT_EQ(exception.ActionTypeID, 1);
  EXPECT_EQ(exception.RequestName, "");
  EXPECT_EQ(exception.Interpretation, "");
  EXPECT_STREQ(exception.what(), "Invalid attribute value");
}

TEST(CDICOMExceptionTest, MissingElementsGiveTheDefaults) {
  DICOMCommandObject empty;
  DICOMCommandObject* responses[] = {&empty, nullptr};
  for (DICOMCommandObject* response : responses) {
    SCOPED_TRACE(response ? "empty command set" : "no command set");
    KESTREL::CDICOMException exception(response);
    EXPECT_EQ(exception.Status, 0);
    EXPECT_EQ(exception.OffendingElements, "");
    EXPECT_EQ(exception.ErrorComment, "");
    EXPECT_EQ(exception.AffectedSOPClassUID, "");
    EXPECT_EQ(exception.AffectedSOPInstanceUID, "");
    EXPECT_EQ(exception.AttributeIdentifierList, "");
    EXPECT_EQ(exception.RequestedSOPClassUID, "");
    EXPECT_EQ(exception.RequestedSOPInstanceUID, "");
    EXPECT_EQ(exception.EventTypeID, -1);
    EXPECT_EQ(exception.ActionTypeID, -1);
    std::string text;
    EXPECT_EQ(exception.GetStatusText(text), KESTREL::DIMSE_STATUS_SUCCESS);
    EXPECT_EQ(text, "Success");
  }
}

TEST(CDICOMExceptionTest, TagsPrintEachByteWithoutPadding) {
  struct TagCase {
    std::vector<std::pair<uint16_t, uint16_t>> tags;
    uint32_t extraBytes;
    const char* printed;
  };
  const TagCase cases[] = {
      {{{0x0010, 0x0020}}, 0, "(010,020) "},
      {{{0x7FE0, 0x0010}}, 0, "(7fe0,010) "},
      {{{0x0008, 0x0100}}, 0, "(08,10) "},
      {{{0x0000, 0x0000}}, 0, "(00,00) "},
      {{{0xFFFF, 0xABCD}}, 0, "(ffff,abcd) "},
      {{{0x0028, 0x0010}, {0x0028, 0x0011}}, 0, "(028,010) (028,011) "},
      {{{0x0010, 0x0010}}, 2, "(010,010) "},  // a broken last tag is left out
      {{}, 3, ""},
      {{}, 0, ""},
  };
  for (const TagCase& c : cases) {
    SCOPED_TRACE(c.printed);
    DICOMCommandObject response;
    ASSERT_TRUE(response.Push(Tags(0x0901, c.tags, c.extraBytes)));
    KESTREL::CDICOMException exception(&response);
    EXPECT_EQ(exception.OffendingElements, c.printed);
  }
}

TEST(CDICOMExceptionTest, TypeIdsNeedTwoBytes) {
  struct IdCase {
    VR* event;
    int expected;
  };
  const IdCase cases[] = {
      {UInt16(0x1002, 0), 0},           {UInt16(0x1002, 7), 7},
      {UInt16(0x1002, 0x8000), -32768}, {Tags(0x1002, {{1, 2}}), -1},  // four bytes: not a US value
      {Text(0x1002, "", ' '), -1},                                     // no value
  };
  for (const IdCase& c : cases) {
    SCOPED_TRACE(c.expected);
    DICOMCommandObject response;
    ASSERT_TRUE(response.Push(c.event));
    KESTREL::CDICOMException exception(&response);
    EXPECT_EQ(exception.EventTypeID, c.expected);
    EXPECT_EQ(exception.ActionTypeID, -1);
  }
}

TEST(CDICOMExceptionTest, CaughtAsAStandardExceptionWithItsStatusText) {
  DICOMCommandObject response;
  ASSERT_TRUE(response.Push(UInt16(0x0900, 0xC000)));
  try {
    throw KESTREL::CDICOMException(&response);
  } catch (const std::exception& caught) {
    EXPECT_STREQ(caught.what(), "Unknown response; see service-specific interpretation");
    const auto* exception = dynamic_cast<const KESTREL::CDICOMException*>(&caught);
    ASSERT_NE(exception, nullptr);
    std::string text;
    EXPECT_EQ(exception->GetStatusText(text), KESTREL::DIMSE_STATUS_UNKNOWN);
    EXPECT_EQ(text, caught.what());
  }
}

}  // namespace
