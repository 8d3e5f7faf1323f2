#include "kestrel/Status.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "frame/DimseStatus.h"
#include "kestrel/CDICOMException.h"

namespace {

const std::string kAdvice =
    "\r\n\r\n"
    "* Ensure that the device you are trying to reach has the correct IP, AE Title and Port in "
    "your Destinations list\r\n"
    "* Ensure that your IP, AE Title and Port is configured on the server you are trying to "
    "reach\r\n"
    "* Ensure that the device you are trying to reach supports the SOP class and transfer "
    "syntax you are requesting";

// A-ASSOCIATE-RJ result, source and reason/diag values, PS3.8 9.3.4, Table 9-21.
TEST(RejectionTextTest, PiecesRunTogetherThenTheAdvice) {
  struct RejectionCase {
    int result, source, reason;
    const char* text;
  };
  const RejectionCase cases[] = {
      {1, 1, 3,
       "Permanent Rejection from Service User because your Application Entity Title is not "
       "known"},
      {2, 3, 1,
       "Temporary Rejection from Service Provider because DICOM connection could not be made"},
      {0, 0, 0, "Unknown Rejection from Unknown DICOM entity class because of an unknown reason"},
      {1, 1, 7,
       "Permanent Rejection from Service User because called Application Entity Title is not "
       "known"},
      {1, 1, 2,
       "Permanent Rejection from Service User because the Application Context name is not "
       "supported"},
      // The reason byte is read alone: the provider's reason 2 (protocol version) reads as the
      // application context text.
      {1, 3, 2,
       "Permanent Rejection from Service Provider because the Application Context name is not "
       "supported"},
      {2, 2, 2,
       "Temporary Rejection from Service Provider because the Application Context name is not "
       "supported"},
      {1, 1, 5, "Permanent Rejection from Service User because of an unknown reason"},
      {1, 1, 8, "Permanent Rejection from Service User because of an unknown reason"},
      {255, 255, 255,
       "Unknown Rejection from Unknown DICOM entity class because of an unknown reason"},
  };
  for (const RejectionCase& c : cases) {
    EXPECT_EQ(KESTREL::BuildRejectionText(c.result, c.source, c.reason), c.text + kAdvice)
        << "result " << c.result << ", source " << c.source << ", reason " << c.reason;
  }
}

TEST(LastErrorTextTest, ReplacedOnEveryFailureAndKeptPerThread) {
  KESTREL::SetLastErrorText("Error: Unable to connect to pacs\r\n");
  KESTREL::SetLastErrorText("Error: Unable to write DICOM object.\r\n");
  EXPECT_EQ(KESTREL::GetLastErrorText(), "Error: Unable to write DICOM object.\r\n");

  std::string seenByOther = "untouched";
  std::thread other([&] {
    seenByOther = KESTREL::GetLastErrorText();
    KESTREL::SetLastErrorText("ERROR: Unable to connect to other\r\n");
  });
  other.join();
  EXPECT_EQ(seenByOther, "");
  EXPECT_EQ(KESTREL::GetLastErrorText(), "Error: Unable to write DICOM object.\r\n");
}

// General statuses, PS3.7 Annex C; A700 from PS3.4 Table B.2-1.
TEST(DimseStatusTest, GeneralTableAndTheUnknownRest) {
  struct StatusCase {
    uint16_t status;
    const char* text;
    int category;
  };
  const char* unknown = "Unknown response; see service-specific interpretation";
  const StatusCase cases[] = {
      {0x0000, "Success", 0},
      {0x0105, "No such argument", 2},
      {0x0106, "Invalid attribute value", 2},
      {0x0107, "Attribute list error", 1},
      {0x0110, "Processing failure", 2},
      {0x0111, "Duplicate SOP instance", 2},
      {0x0112, "No such object instance", 2},
      {0x0113, "No such event type", 2},
      {0x0114, "No such argument", 2},
      {0x0115, "Invalid argument type", 2},
      {0x0116, "Attribute value out of range", 1},
      {0x0117, "Invalid object instance", 2},
      {0x0118, "No such SOP class", 2},
      {0x0119, "Class-instance conflict", 2},
      {0x0120, "Missing attribute", 2},
      {0x0121, "Missing attribute value", 2},
      {0x0122, "Refused: SOP class not supported", 2},
      {0x0123, "No such action type", 2},
      {0x0211, "Unrecognized operation", 2},
      {0x0212, "Mistyped argument", 2},
      {0x0213, "Resource limitation", 2},
      {0xA700, "No resources", 2},
      {0xFE00, "Request cancelled", 3},
      // Not in the general table: service-specific or undefined.
      {0x0001, unknown, 4},
      {0x0124, unknown, 4},
      {0x0210, unknown, 4},
      {0xA701, unknown, 4},
      {0xA900, unknown, 4},
      {0xB000, unknown, 4},
      {0xC000, unknown, 4},
      {0xFF00, unknown, 4},
      {0xFF01, unknown, 4},
      {0xFFFF, unknown, 4},
  };
  for (const StatusCase& c : cases) {
    const char* text = nullptr;
    EXPECT_EQ(KESTREL::DimseStatusText(c.status, &text), c.category)
        << "status " << std::hex << c.status;
    EXPECT_STREQ(text, c.text) << "status " << std::hex << c.status;
  }
}

}  // namespace
