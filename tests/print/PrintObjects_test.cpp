// The film session, film box and grayscale image box against a printer of our own: what they
// send, how each status comes back as a CDICOMPrintException, and failed exchanges.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CBasicFilmBox.h"
#include "kestrel/CBasicFilmSession.h"
#include "kestrel/CBasicGrayscaleImageBox.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/CPrintImage.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"
#include "tests/TestValues.h"
#include "tests/print/PrintTestSupport.h"

using namespace print_test;

namespace {

constexpr char kMeta[] = "1.2.840.10008.5.1.1.9";
constexpr char kSession[] = "1.2.840.10008.5.1.1.1";
constexpr char kFilmBox[] = "1.2.840.10008.5.1.1.2";
constexpr char kImageBox[] = "1.2.840.10008.5.1.1.4";
constexpr uint16_t kNSet = 0x0120, kNAction = 0x0130, kNCreate = 0x0140, kNDelete = 0x0150;

CPrintImage SmallImage() {
  CPrintImage image;
  StoredImage stored;
  stored.rows = 2;
  stored.columns = 3;
  stored.values = {0, 1000, 2000, 3000, 4000, 4095};
  EXPECT_TRUE(image.Convert(MakeImage(stored).get()));
  return image;
}

// One print association to `printer`, released with the object.
struct Association {
  explicit Association(ScriptedPrinter& printer)
      : pdu(CBasicFilmSession::CreateAssociation("127.0.0.1", printer.Port(), "KESTREL", "PRINTER",
                                                 nullptr)) {}
  ~Association() { CBasicFilmSession::ReleaseAssociation(pdu); }
  PDU_Service* pdu;
};

TEST(PrintObjects, AFilmFromSessionToDelete) {
  ScriptedPrinter printer;
  printer.imageBoxes = 2;
  printer.sendEvents = true;
  CPrintImage image = SmallImage();
  {
    Association association(printer);
    ASSERT_NE(association.pdu, nullptr);
    CBasicFilmSession session;
    session.NumberOfCopies = 2;
    session.MediumType = "BLUE FILM";
    ASSERT_EQ(session.Create(association.pdu), 1);
    EXPECT_EQ(session.GetSOPInstanceUID().ToString(), "1.2.3.8.1");
    CBasicFilmBox film;
    film.ImageDisplayFormat = "STANDARD\\2,1";
    ASSERT_EQ(film.Create(association.pdu, session), 1);
    ASSERT_EQ(film.GetImageBoxCount(), 2u);
    EXPECT_EQ(film.GetImageBoxUID(1).ToString(), "1.2.3.9.2.2");
    EXPECT_TRUE(film.GetImageBoxUID(2).IsEmpty());
    for (uint16_t i = 0; i < 2; ++i) {
      CBasicGrayscaleImageBox box(film.GetImageBoxUID(i), i + 1);
      EXPECT_EQ(box.Set(association.pdu, image), 1);
    }
    EXPECT_EQ(film.Print(association.pdu), 1);
    EXPECT_EQ(film.Delete(association.pdu), 1);
    EXPECT_EQ(film.GetImageBoxCount(), 0u);
    EXPECT_EQ(session.Delete(association.pdu), 1);
    EXPECT_TRUE(session.GetSOPInstanceUID().IsEmpty());
  }
  std::vector<Seen> seen = printer.Stop();
  EXPECT_EQ(printer.eventAnswers, 7) << "every N-EVENT-REPORT answered";
  const std::pair<uint16_t, const char*> expected[] = {
      {kNCreate, kSession}, {kNCreate, kFilmBox}, {kNSet, kImageBox},   {kNSet, kImageBox},
      {kNAction, kFilmBox}, {kNDelete, kFilmBox}, {kNDelete, kSession},
  };
  ASSERT_EQ(seen.size(), std::size(expected));
  for (size_t i = 0; i < seen.size(); ++i) {
    EXPECT_EQ(seen[i].commandField, expected[i].first) << i;
    EXPECT_EQ(seen[i].sopClass, expected[i].second) << i;
    EXPECT_EQ(seen[i].abstractSyntax, kMeta) << i;
  }
  EXPECT_FALSE(seen[0].namedInstance) << "the printer names the session";
  EXPECT_EQ(TextOf(seen[0].dataSet.get(), 0x2000, 0x0010), "2");
  EXPECT_EQ(TextOf(seen[0].dataSet.get(), 0x2000, 0x0030), "BLUE FILM");
  EXPECT_EQ(TextOf(FirstItem(seen[1].dataSet.get(), 0x20100500), 0x0008, 0x1155), "1.2.3.8.1");
  EXPECT_EQ(seen[3].dataSet->GetUInt16(0x2020, 0x0010), 2) << "image position";
  DICOMDataObject* item = FirstItem(seen[3].dataSet.get(), 0x20200110);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->GetUInt16(0x0028, 0x0011), 3);
  EXPECT_EQ(TextOf(item, 0x0028, 0x0004), "MONOCHROME2");
}

// Which request answers with which status, and what the exception says about it.
TEST(PrintObjects, StatusesBecomeInterpretedExceptions) {
  enum Step { kSessionCreate, kBoxCreate, kImageSet, kBoxPrint, kSessionPrint, kBoxDelete };
  struct Case {
    Step step;
    uint16_t field;
    const char* sopClass;
    uint16_t status;
    int category;
    const char* request;
    const char* sentence;
  };
  const Case cases[] = {
      {kSessionCreate, kNCreate, kSession, 0x0213, 2, "BasicFilmSession:NCreate",
       "The requested memory allocation can temporarily not be provided right now"},
      {kSessionCreate, kNCreate, kSession, 0xB600, 1, "BasicFilmSession:NCreate",
       "Memory allocation not supported"},
      {kBoxCreate, kNCreate, kFilmBox, 0xB605, 1, "BasicFilmBox:NCreate",
       "Requested Min Density or Max Density outside of printer's operating range.  The printer "
       "will use its respective minimum or maximum density value instead"},
      {kBoxCreate, kNCreate, kFilmBox, 0xC616, 2, "BasicFilmBox:NCreate",
       "Ambiguous failure.  See interpretation for more information"},
      {kImageSet, kNSet, kImageBox, 0xC605, 2, "BasicGrayscaleImageBox:NSet",
       "Insufficient memory in printer to store the image"},
      {kBoxPrint, kNAction, kFilmBox, 0xC602, 2, "BasicFilmBox:NAction",
       "Unable to create Print Job SOP Instance; print queue is full"},
      {kSessionPrint, kNAction, kSession, 0xB60B, 1, "BasicFilmSession:NAction",
       "Unable to interpret the error, or no additional interpretation applies"},
      {kBoxDelete, kNDelete, kFilmBox, 0x0112, 2, "BasicFilmBox:NDelete",
       "Unable to interpret the error, or no additional interpretation applies"},
  };
  CPrintImage image = SmallImage();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.request + std::string(" ") + std::to_string(c.status));
    ScriptedPrinter printer;
    printer.statuses[{c.field, c.sopClass}] = c.status;
    Association association(printer);
    CBasicFilmSession session;
    CBasicFilmBox film;
    CBasicGrayscaleImageBox box;
    const std::function<int()> steps[] = {
        [&] { return session.Create(association.pdu); },
        [&] { return film.Create(association.pdu, session); },
        [&] {
          box = CBasicGrayscaleImageBox(film.GetImageBoxUID(0), 1);
          return box.Set(association.pdu, image);
        },
        [&] { return film.Print(association.pdu); },
        [&] { return session.Print(association.pdu); },
        [&] { return film.Delete(association.pdu); },
    };
    for (int i = 0; i < c.step; ++i) ASSERT_EQ(steps[i](), 1) << i;
    try {
      steps[c.step]();
      ADD_FAILURE() << "no exception";
    } catch (KESTREL::CDICOMPrintException& exception) {
      std::string text;
      EXPECT_EQ(exception.Status, c.status);
      EXPECT_EQ(exception.GetStatusText(text), c.category);
      EXPECT_EQ(exception.RequestName, c.request);
      EXPECT_EQ(exception.Interpretation, c.sentence);
    }
    // A warning keeps what the request made: the session, the film and its boxes.
    if (c.category == 1 && c.step == kSessionCreate) {
      EXPECT_FALSE(session.GetSOPInstanceUID().IsEmpty());
    }
    if (c.category == 1 && c.step == kBoxCreate) {
      EXPECT_EQ(film.GetImageBoxCount(), 1u);
    }
    if (c.step == kBoxDelete) {
      EXPECT_EQ(film.GetImageBoxCount(), 0u) << "deleted all the same";
    }
  }
}

TEST(PrintObjects, FailedExchangesReturnZeroWithTheReason) {
  CPrintImage image = SmallImage();
  ScriptedPrinter printer;
  printer.abortOn = kNSet;
  Association association(printer);
  CBasicFilmSession session;
  CBasicFilmBox film;
  EXPECT_EQ(session.Print(association.pdu), 0) << "not created: nothing sent";
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "ERROR: Unable to write DICOM object.\r\nBasicFilmSession:NAction: the film session "
            "was not created");
  EXPECT_EQ(film.Create(association.pdu, session), 0);
  ASSERT_EQ(session.Create(association.pdu), 1);
  ASSERT_EQ(film.Create(association.pdu, session), 1);
  CBasicGrayscaleImageBox box(film.GetImageBoxUID(0), 1);
  EXPECT_EQ(box.Set(association.pdu, CPrintImage()), 0) << "an empty image is not sent";
  EXPECT_EQ(box.Set(association.pdu, image), 0) << "the printer aborts";
  EXPECT_EQ(KESTREL::GetLastErrorText().rfind(
                "ERROR: Unable to write DICOM object.\r\nBasicGrayscaleImageBox:NSet: ", 0),
            0u);
  EXPECT_FALSE(association.pdu->IsAssociated());
  EXPECT_EQ(film.Print(association.pdu), 0);
  EXPECT_EQ(session.Create(nullptr), 0);
  std::vector<Seen> seen = printer.Stop();
  EXPECT_EQ(seen.size(), 3u) << "session, film box, the aborted image box";
}

TEST(PrintObjects, ImageBoxCountOfADisplayFormat) {
  const std::pair<const char*, int> cases[] = {
      {"STANDARD\\1,1", 1},
      {"STANDARD\\2,2", 4},
      {"STANDARD\\3,5", 15},
      {"ROW\\1,2,3", 6},
      {"COL\\2,2", 4},
      {"STANDARD\\99,99", 9801},
      {"STANDARD\\2", 0},
      {"STANDARD\\2,2,2", 0},
      {"STANDARD\\0,2", 0},
      {"STANDARD\\100,1", 0},
      {"STANDARD\\2,", 0},
      {"STANDARD\\,2", 0},
      {"STANDARD\\-1,2", 0},
      {"SLIDE", 0},
      {"CUSTOM\\1", 0},
      {"standard\\1,1", 0},
      {"", 0},
  };
  for (const auto& [format, count] : cases)
    EXPECT_EQ(CBasicFilmBox::ImageBoxCount(format), count) << format;
}

}  // namespace
