// C-FIND over loopback: the provider loop (matches, final status, C-CANCEL between matches)
// and the report query's two steps against a scripted study-root provider.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CMitraReportQuery.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/FindProvider.h"
#include "kestrel/StandardQuery.h"
#include "tests/TestValues.h"
#include "tests/net/NetTestSupport.h"

using namespace net_test;

namespace {

constexpr char kWorklistFind[] = "1.2.840.10008.5.1.4.31";
constexpr char kStudyRootFind[] = "1.2.840.10008.5.1.4.1.2.2.1";

// `count` matches, then either the end or a failure.
class CountingSource : public FindMatchSource {
 public:
  CountingSource(int count, uint16_t failure) : left_(count), failure_(failure) {}
  DICOMDataObject* NextMatch() override {
    if (left_ == 0) return nullptr;
    --left_;
    auto* match = new DICOMDataObject;
    PushText(match, 0x0010, 0x0020, "PID");
    return match;
  }
  uint16_t GetFailureStatus() override { return left_ == 0 ? failure_ : 0; }

 private:
  int left_;
  uint16_t failure_;
};

struct Answer {
  int pending = 0;
  uint16_t final = 0xFFFF;
};

// The requester's side: the pending responses and the final status of one C-FIND.
Answer ReadAnswer(PDU_Service& requester) {
  Answer answer;
  for (;;) {
    DICOMCommandObject response;
    if (!requester.Read(&response)) return answer;
    if (response.GetUInt16(0x0000, 0x0800) != 0x0101) {
      DICOMDataObject match;
      if (!requester.Read(&match)) return answer;
    }
    uint16_t status = response.GetUInt16(0x0000, 0x0900);
    if (status != DIMSEStatus::kPending) {
      answer.final = status;
      return answer;
    }
    ++answer.pending;
  }
}

Answer RunProvider(int matches, uint16_t failure, bool cancel) {
  AssociationPair pair({kWorklistFind}, [&](PDU_Service& acceptor) {
    DICOMCommandObject request;
    DICOMDataObject identifier;
    ASSERT_TRUE(acceptor.Read(&request));
    ASSERT_TRUE(CFindRQ::Read(&request, &acceptor, &identifier));
    CountingSource source(matches, failure);
    EXPECT_EQ(KESTREL::AnswerFind(&acceptor, &request, source), 1);
  });
  EXPECT_EQ(pair.Connect(), 1);
  DICOMDataObject identifier;
  PushText(&identifier, 0x0010, 0x0020, "");
  uint16_t messageID = 0;
  EXPECT_TRUE(CFindRQ::Write(&pair.requester(), kWorklistFind, &identifier, &messageID));
  if (cancel) {  // PS3.7 9.3.2.3: C-CANCEL-RQ naming the request
    DICOMCommandObject command;
    PushUS(&command, 0x0000, 0x0100, 0x0FFF);
    PushUS(&command, 0x0000, 0x0120, messageID);
    PushUS(&command, 0x0000, 0x0800, 0x0101);
    EXPECT_TRUE(pair.requester().Write(&command, kWorklistFind));
  }
  Answer answer = ReadAnswer(pair.requester());
  pair.requester().Close();
  return answer;
}

TEST(FindProvider, MatchesThenTheFinalStatus) {
  Answer all = RunProvider(3, 0, false);
  EXPECT_EQ(all.pending, 3);
  EXPECT_EQ(all.final, DIMSEStatus::kSuccess);
  Answer failed = RunProvider(2, DIMSEStatus::kUnableToProcess, false);
  EXPECT_EQ(failed.pending, 2);
  EXPECT_EQ(failed.final, DIMSEStatus::kUnableToProcess);
}

TEST(FindProvider, CancelEndsTheAnswerWithFE00) {
  // Far more matches than the connection buffers hold: the cancel, sent right after the
  // request, is seen long before the last of them.
  const int matches = 200000;
  Answer cancelled = RunProvider(matches, 0, true);
  EXPECT_EQ(cancelled.final, DIMSEStatus::kCancel);
  EXPECT_LT(cancelled.pending, matches);
}

// A study-root provider with two SR series in study "1.2.3", each holding one report.
class ReportArchive : public StudyRootQuery {
 public:
  explicit ReportArchive(std::vector<std::string>& asked) : asked_(asked) {}
  int SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) override {
    std::string level = TextOf(query, 0x0008, 0x0052);
    asked_.push_back(level + " " + TextOf(query, 0x0020, 0x000D) + " " +
                     TextOf(query, 0x0008, 0x0060) + TextOf(query, 0x0020, 0x000E));
    if (TextOf(query, 0x0020, 0x000D) != "1.2.3") return 1;
    if (level == "SERIES") {
      for (const char* series : {"1.2.3.1", "1.2.3.2"}) {
        auto* match = new DICOMDataObject;
        PushText(match, 0x0020, 0x000E, series);
        matches->Add(match);
      }
      return 1;
    }
    bool first = TextOf(query, 0x0020, 0x000E) == "1.2.3.1";
    auto* match = new DICOMDataObject;
    PushText(match, 0x0008, 0x0018, first ? "1.2.3.1.1" : "1.2.3.2.1");
    PushText(match, 0x0040, 0xA491, first ? "COMPLETE" : "PARTIAL ");
    PushText(match, 0x0040, 0xA493, first ? "VERIFIED" : "UNVERIFIED");
    PushText(match, 0x0008, 0x0023, "20240301");
    matches->Add(match);
    return 1;
  }

 private:
  std::vector<std::string>& asked_;
};

TEST(CMitraReportQuery, AsksSeriesThenReportsAndMakesRows) {
  Listener listener;
  std::vector<std::string> asked;
  PeerThread provider([&] {
    for (int association = 0; association < 2; ++association) {
      int handle = listener.Accept();
      if (handle < 0) return;
      PDU_Service acceptor;
      acceptor.SetTimeout(10);
      if (!acceptor.ServeSocket(handle)) return;
      for (DICOMCommandObject request; acceptor.Read(&request); request.Clear())
        ReportArchive(asked).Read(&acceptor, &request);
    }
  });
  CResultsArray rows;
  CMitraReportQuery query(&rows);
  KESTREL::KESTREL_STATUS status;
  ASSERT_EQ(query.Query("1.2.3", "127.0.0.1", listener.PortText(), "KESTREL", "ARCHIVE", &status),
            1);
  EXPECT_EQ(asked, (std::vector<std::string>{"SERIES 1.2.3 SR", "IMAGE 1.2.3 1.2.3.1",
                                             "IMAGE 1.2.3 1.2.3.2"}));
  ASSERT_EQ(rows.GetSize(), 2);
  EXPECT_EQ(*rows[0]->GetAt(CMitraReportQuery::kSOPInstanceUID), "1.2.3.1.1");
  EXPECT_EQ(*rows[0]->GetAt(CMitraReportQuery::kCompletionFlag), "COMPLETE");
  EXPECT_EQ(*rows[1]->GetAt(CMitraReportQuery::kVerificationFlag), "UNVERIFIED");
  EXPECT_EQ(*rows[1]->GetAt(CMitraReportQuery::kCompletionFlag), "PARTIAL");
  EXPECT_EQ(*rows[1]->GetAt(CMitraReportQuery::kContentDate), "20240301");
  EXPECT_EQ(rows[1]->GetAt(CMitraReportQuery::kContentTime), nullptr) << "not in the answer";

  rows.DeleteAll();
  ASSERT_EQ(query.Query("9.9", "127.0.0.1", listener.PortText(), "KESTREL", "ARCHIVE", &status), 1);
  EXPECT_EQ(rows.GetSize(), 0) << "a study without reports gives no rows";
  EXPECT_EQ(query.Query("", "127.0.0.1", listener.PortText(), "KESTREL", "ARCHIVE", &status), 0);
  EXPECT_EQ(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
}

}  // namespace
