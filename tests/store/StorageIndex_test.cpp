// Indexing stored instances on both databases: patient matching (exact, by the "UHN" substring,
// with quotes, "%" and "_" in the values), the key of a new patient, the study's status and
// modalities, rewriting an image row, one transaction for the four rows. Many writers at once
// are tested through kestrel serve (tests/interop/store_interop_test.py).
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kestrel/CStandardStorage.h"
#include "kestrel/CStorage.h"
#include "kestrel/NewStudyEvent.h"
#include "kestrel/RecordSets.h"
#include "kestrel/Status.h"
#include "store/Odbc.h"
#include "tests/store/StoreTestSupport.h"
#include "tests/typed/TypedTestSupport.h"

namespace {

using store_test::DatabaseTest;

class StorageIndexTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (!typed_test::HaveSamples()) GTEST_SKIP() << "pydicom's sample files are not installed";
  }
};
KESTREL_ON_BOTH_DATABASES(StorageIndexTest);

struct Instance {
  const char* patientID;
  const char* name;
  const char* study;
  const char* series;
  const char* sop;
  const char* sample = "CT_small.dcm";
};

// A sample file made into the given patient, study, series and instance.
std::unique_ptr<CStorage> Make(const Instance& i) {
  CStandardStorage factory;
  std::unique_ptr<CStorage> storage(factory.Load(typed_test::kSamples + i.sample, nullptr, 0));
  if (!storage) return nullptr;
  storage->SetPatientModule(i.name, i.patientID, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, nullptr, nullptr);
  storage->SetGeneralStudyModule(i.study, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr);
  storage->SetGeneralSeriesModule(nullptr, i.series, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr);
  storage->SetSOPCommonModule(nullptr, i.sop, nullptr, nullptr, nullptr, nullptr);
  return storage;
}

template <class Set>
int Count(CDatabase& database, const std::string& filter = "") {
  Set set(&database);
  set.Filter = filter;
  if (!set.Open()) return -1;
  int rows = 0;
  for (; !set.IsEOF(); set.MoveNext()) ++rows;
  return rows;
}

int PatientKeyOf(CDatabase& database, const std::string& patientID) {
  CPatientSet set(&database);
  set.Filter = "[PatientID]='" + patientID + "'";
  return set.Open() && !set.IsEOF() ? set.PatientUID : -1;
}

TEST_P(StorageIndexTest, ANewPatientsKeyIsTheRowItWrote) {
  // Each new patient's study must point at that patient, not at the row read before it.
  const Instance instances[] = {{"P1", "ONE^A", "1.1", "1.1.1", "1.1.1.1"},
                                {"P2", "TWO^B", "1.2", "1.2.1", "1.2.1.1"},
                                {"P3", "", "1.3", "1.3.1", "1.3.1.1"}};
  for (const Instance& i : instances) {
    SCOPED_TRACE(i.patientID);
    auto storage = Make(i);
    int32_t key = -1;
    ASSERT_EQ(storage->UpdatePatientTable(&database, key, 0), 1) << KESTREL::GetLastErrorText();
    EXPECT_EQ(key, PatientKeyOf(database, i.patientID));
    ASSERT_TRUE(storage->UpdateDatabase(&database, nullptr)) << KESTREL::GetLastErrorText();
    int32_t studyPatient = -1;
    ASSERT_TRUE(storage->DoesStudyExist(&database, studyPatient));
    EXPECT_EQ(studyPatient, key);
  }
  EXPECT_EQ(Count<CPatientSet>(database), 3);
}

TEST_P(StorageIndexTest, PatientsMatchByIdAndNameAsTheUhnSettingSays) {
  struct Case {
    const char* uhn;
    const char* storedID;
    const char* storedName;  // "" for a null name
    const char* id;
    const char* name;
    bool matches;
  } cases[] = {
      {"0", "P100", "DOE^J", "P100", "DOE^J", true},
      {"0", "P100", "DOE^J", "P100", "DOE^K", false},
      {"0", "UHN-123", "DOE^J", "123", "DOE^J", false},
      {"1", "UHN-000123", "DOE^J", "TGH 0123", "DOE^J", true},
      {"1", "X132", "X^Y", "1_2", "X^Y", false},  // "_" is no wildcard
      {"1", "X1_2", "X^Y", "1_2", "X^Y", true},
      {"1", "500", "X^Y", "50%", "X^Y", false},  // nor is "%"
      {"1", "5\\0", "X^Y", "5\\0", "X^Y", true},
      {"0", "O'1", "O'BRIEN^J", "O'1", "O'BRIEN^J", true},
      {"1", "O'1", "O'BRIEN^J", "O'1", "O'BRIEN^J", true},
      {"0", "P7", "", "P7", "", true},  // an empty name matches only a null one
      {"0", "P8", "SOMEONE", "P8", "", false},
      {"0", "P9", "", "P9", "SOMEONE", false},
  };
  kestrel_test::ScopedSettings settings(test_->dir(), "");
  int n = 0;
  for (const Case& c : cases) {
    const std::string trace = std::string(c.storedID) + " / " + c.id + " UHN=" + c.uhn;
    SCOPED_TRACE(trace);
    database.ExecuteSQL("DELETE FROM [Patient]");
    settings.Rewrite(std::string(kestrel_test::kSection) + "UHN=0\n");
    const std::string study = "2." + std::to_string(++n);
    auto stored = Make({c.storedID, c.storedName, study.c_str(), "2.0", "2.0.1"});
    int32_t storedKey = -1, key = -1;
    ASSERT_EQ(stored->UpdatePatientTable(&database, storedKey, 0), 1);
    settings.Rewrite(std::string(kestrel_test::kSection) + "UHN=" + c.uhn + "\n");
    auto incoming = Make({c.id, c.name, study.c_str(), "2.0", "2.0.2"});
    EXPECT_EQ(incoming->UpdatePatientTable(&database, key, 0), c.matches ? 2 : 1)
        << KESTREL::GetLastErrorText();
    EXPECT_EQ(key == storedKey, c.matches);
    EXPECT_EQ(Count<CPatientSet>(database), c.matches ? 1 : 2);
  }
}

TEST_P(StorageIndexTest, AStudyStartsNewKeepsItsStatusAndGathersItsModalities) {
  auto ct = Make({"P1", "A^B", "3.1", "3.1.1", "3.1.1.1"});
  ASSERT_TRUE(ct->UpdateDatabase(&database, nullptr)) << KESTREL::GetLastErrorText();
  {
    CStudySet study(&database);
    ASSERT_TRUE(study.Open());
    EXPECT_EQ(study.Status, "2NEW");
    EXPECT_EQ(study.Modality, "CT");
    EXPECT_EQ(study.PatientID, "P1");
    EXPECT_EQ(study.AccessDate.size(), 8u);
    EXPECT_EQ(study.AccessTime.size(), 6u);
    study.Edit();
    study.Status = "READ";
    study.SetFieldNull(&study.StudyDescription);
    ASSERT_TRUE(study.Update());
  }
  // A second series of the study, with a value too long for its column.
  Instance second{"P1", "A^B", "3.1", "3.1.2", "3.1.2.1", "MR_small.dcm"};
  auto mr = Make(second);
  const std::string description(300, 'D');
  mr->SetGeneralStudyModule(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                            description.c_str(), nullptr, nullptr);
  ASSERT_TRUE(mr->UpdateDatabase(&database, nullptr)) << KESTREL::GetLastErrorText();
  CStudySet study(&database);
  ASSERT_TRUE(study.Open());
  EXPECT_EQ(study.Status, "READ");
  EXPECT_EQ(study.Modality, "CT\\MR");
  EXPECT_EQ(study.StudyDescription, std::string(244, 'D') + "<TRUNCATED>");
  EXPECT_EQ(Count<CStudySet>(database), 1);
  EXPECT_EQ(Count<CSeriesSet>(database, "[ReferencedStudyComponent]='3.1'"), 2);
}

TEST_P(StorageIndexTest, AnImageStoredAgainRewritesItsOneRow) {
  auto first = Make({"P1", "A^B", "4.1", "4.1.1", "4.1.1.1"});
  ASSERT_TRUE(first->UpdateDatabase(&database, "1.2.840.10008.1.2.1"));
  auto again = Make({"P1", "A^B", "4.1", "4.1.1", "4.1.1.1"});
  again->SetGeneralImageModule("77", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(again->UpdateDatabase(&database, "1.2.840.10008.1.2.4.70"));
  CImageSet image(&database);
  ASSERT_TRUE(image.Open());
  EXPECT_EQ(image.InstanceNumber, "77");
  EXPECT_EQ(image.TransferSyntax, "1.2.840.10008.1.2.4.70");
  EXPECT_EQ(image.SeriesInstanceUID, "4.1.1");
  EXPECT_EQ(image.Rows, "128");
  EXPECT_EQ(image.ConvolutionKernel, "STANDARD");  // a column of the CT class's own
  image.MoveNext();
  EXPECT_TRUE(image.IsEOF());
  EXPECT_EQ(Count<CPatientSet>(database), 1);
  EXPECT_EQ(Count<CSeriesSet>(database), 1);
}

TEST_P(StorageIndexTest, AFailureOnTheLastRowLeavesNoneOfTheOthers) {
  auto storage = Make({"P1", "A^B", "5.1", "5.1.1", "5.1.1.1"});
  KESTREL::store::SetStatementHook([](const std::string& sql) {
    if (sql.find("FROM `Image`") != std::string::npos ||
        sql.find("FROM \"image\"") != std::string::npos)
      throw CDBException("HY000", "the disk is full");
  });
  const int indexed = storage->UpdateDatabase(&database, nullptr);
  KESTREL::store::SetStatementHook(nullptr);
  EXPECT_FALSE(indexed);
  EXPECT_NE(KESTREL::GetLastErrorText().find("the disk is full"), std::string::npos);
  EXPECT_EQ(Count<CPatientSet>(database), 0);
  EXPECT_EQ(Count<CStudySet>(database), 0);
  EXPECT_EQ(Count<CSeriesSet>(database), 0);
  // The connection is usable again and the instance indexes.
  EXPECT_TRUE(storage->UpdateDatabase(&database, nullptr)) << KESTREL::GetLastErrorText();
}

TEST_P(StorageIndexTest, ANewStudyPulsesTheEventOnceItIsCommitted) {
  KESTREL::CNewStudyEvent event;
  ASSERT_TRUE(event.IsOpen());
  auto storage = Make({"P1", "A^B", "6.1", "6.1.1", "6.1.1.1"});
  ASSERT_TRUE(storage->UpdateDatabase(&database, nullptr));
  EXPECT_TRUE(event.Wait(5000));
}

}  // namespace
