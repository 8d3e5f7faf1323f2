// The worklist provider over RIS orders on SQLite and PostgreSQL: which orders each key
// selects, and what the answers hold.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/Status.h"
#include "tests/TestValues.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using Tag = std::pair<uint16_t, uint16_t>;
struct Key {
  Tag tag;
  std::string value;
};

void Push(DICOMObject* object, Tag tag, const std::string& value) {
  auto* vr = new VR(tag.first, tag.second, static_cast<uint32_t>(value.size()), true);
  if (!value.empty()) std::memcpy(vr->Data, value.data(), value.size());
  ASSERT_TRUE(object->Push(vr));
}

constexpr Tag kStepID{0x0040, 0x0009};
constexpr Tag kStep{0x0040, 0x0100};

// An identifier with the keys given, always asking for the step ID.
std::unique_ptr<DICOMDataObject> Identifier(const std::vector<Key>& top,
                                            const std::vector<Key>& step) {
  auto identifier = std::make_unique<DICOMDataObject>();
  for (const Key& key : top) Push(identifier.get(), key.tag, key.value);
  auto* item = new DICOMDataObject;
  Push(item, kStepID, "");
  for (const Key& key : step) Push(item, key.tag, key.value);
  Push(identifier.get(), kStep, "");
  EXPECT_TRUE(identifier->PushItem(item));
  return identifier;
}

DICOMDataObject* Step(DICOMDataObject* answer) {
  VR* sequence = answer->Find(kStep.first, kStep.second);
  return sequence && sequence->SequenceItems ? sequence->SequenceItems->Get(0) : nullptr;
}

class WorklistSearchTest : public store_test::DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_TRUE(KESTREL::CreateRISTables(database));
    const char* patients[] = {"('T1', 'PID001', 'John', 'Doe', '1970-05-04 00:00:00', 'M')",
                              "('T2', 'PID002', 'Jane', 'Smith', '1980-01-02 00:00:00', 'Female')",
                              "('T3', 'PID003', 'Anne', 'O''Brien', NULL, 'F')",
                              "('T4', 'PID004', 'J\xC3\xBCrgen', 'M\xC3\xBCller', NULL, 'M')"};
    for (const char* row : patients)
      database.ExecuteSQL(
          "INSERT INTO [dbo].[PatientTable] ([PatientTableID], [PatientID], "
          "[FirstName], [LastName], [DOB], [Sex]) VALUES " +
          std::string(row));
    const char* orders[] = {
        "('O1', 'PID001', 'ACC1', 'PL1', 'MRI', '2024-03-01 09:30:00', 'MR Brain', 'MR1AE')",
        "('O2', 'PID002', '', 'PL2', 'General Radiography', '2024-03-02 14:00:00', 'Chest', "
        "'CR1AE')",
        "('O3', 'PID001', 'ACC3', 'PL3', 'Ultrasound', '2024-03-05 08:00:00', 'Abdomen', "
        "'US1AE')",
        "('O4', 'PID003', 'ACC4', 'PL4', 'GI/GU', '2024-03-02 10:00:00', 'Swallow', 'RF1AE')",
        "('O5', 'PID004', 'ACC5', 'PL5', 'Breast Imaging', '2024-03-03 11:00:00', 'Screening', "
        "'MG1AE')"};
    for (const char* row : orders)
      database.ExecuteSQL(
          "INSERT INTO [dbo].[OrderTable] ([OrderTableID], [PatientID], "
          "[FillerOrderNumber], [PlacerOrderNumber], [Modality], "
          "[StartDateTime], [StudyDescription], [StudyLocation]) VALUES " +
          std::string(row));
  }

  std::vector<std::unique_ptr<DICOMDataObject>> Search(std::unique_ptr<DICOMDataObject> query) {
    CModalityWorklistQuery worklist;
    worklist.SetDatabase(&database);
    Array<DICOMDataObject*> matches;
    EXPECT_EQ(worklist.SearchOn(query.get(), &matches), 1) << KESTREL::GetLastErrorText();
    std::vector<std::unique_ptr<DICOMDataObject>> answers;
    for (uint32_t i = 0; i < matches.GetSize(); ++i) answers.emplace_back(matches.Get(i));
    return answers;
  }

  std::set<std::string> Orders(const std::vector<Key>& top, const std::vector<Key>& step) {
    std::set<std::string> ids;
    for (auto& answer : Search(Identifier(top, step)))
      ids.insert(TextOf(Step(answer.get()), kStepID.first, kStepID.second));
    return ids;
  }
};
KESTREL_ON_BOTH_DATABASES(WorklistSearchTest);

constexpr Tag kName{0x0010, 0x0010}, kPatientID{0x0010, 0x0020}, kAccession{0x0008, 0x0050};
constexpr Tag kModality{0x0008, 0x0060}, kStation{0x0040, 0x0001};
constexpr Tag kDate{0x0040, 0x0002}, kTime{0x0040, 0x0003};

TEST_P(WorklistSearchTest, KeysSelectTheOrders) {
  struct Case {
    const char* what;
    std::vector<Key> top, step;
    std::set<std::string> expected;
  };
  const std::set<std::string> all = {"O1", "O2", "O3", "O4", "O5"};
  const Case cases[] = {
      {"no keys", {}, {}, all},
      {"modality", {}, {{kModality, "MR"}}, {"O1"}},
      {"DX is asked as General Radiography", {}, {{kModality, "DX"}}, {"O2"}},
      {"RF is asked as Interventional only", {}, {{kModality, "RF"}}, {}},
      {"wild cards match the DICOM code", {}, {{kModality, "R?"}}, {"O4"}},
      {"a single date", {}, {{kDate, "20240302"}}, {"O2", "O4"}},
      {"a date range", {}, {{kDate, "20240301-20240302"}}, {"O1", "O2", "O4"}},
      {"an open range", {}, {{kDate, "-20240301"}}, {"O1"}},
      {"a time range", {}, {{kTime, "0900-1000"}}, {"O1", "O4"}},
      {"station AE", {}, {{kStation, "MR1AE"}}, {"O1"}},
      {"station AE with wild cards", {}, {{kStation, "*1AE"}}, all},
      {"names without case", {{kName, "doe*"}}, {}, {"O1", "O3"}},
      {"a quote in a name", {{kName, "O'Brien^*"}}, {}, {"O4"}},
      {"a quote in an exact ID", {{kPatientID, "O'X"}}, {}, {}},
      {"patient ID", {{kPatientID, "PID001"}}, {}, {"O1", "O3"}},
      {"accession from the placer", {{kAccession, "PL2"}}, {}, {"O2"}},
      {"keys together", {{kPatientID, "PID001"}}, {{kModality, "US"}}, {"O3"}},
  };
  for (const Case& c : cases) EXPECT_EQ(Orders(c.top, c.step), c.expected) << c.what;
}

TEST_P(WorklistSearchTest, AnswersHoldTheKeysAsked) {
  auto answers = Search(Identifier(
      {{kName, "Smith*"},
       {kAccession, ""},
       {{0x0010, 0x0040}, ""},
       {{0x0010, 0x0030}, ""},
       {{0x0008, 0x0080}, ""},
       {{0x0020, 0x000D}, ""}},
      {{kModality, ""}, {kDate, ""}, {kTime, ""}, {kStation, ""}, {{0x0040, 0x0010}, ""}}));
  ASSERT_EQ(answers.size(), 1u);
  DICOMDataObject* answer = answers[0].get();
  EXPECT_EQ(TextOf(answer, 0x0010, 0x0010), "Smith^Jane");
  EXPECT_EQ(TextOf(answer, 0x0008, 0x0050), "PL2");
  EXPECT_EQ(TextOf(answer, 0x0010, 0x0040), "F");
  EXPECT_EQ(TextOf(answer, 0x0010, 0x0030), "19800102");
  ASSERT_NE(answer->Find(0x0008, 0x0080), nullptr) << "an attribute the orders lack is empty";
  EXPECT_EQ(answer->Find(0x0008, 0x0080)->Length, 0u);
  EXPECT_EQ(answer->Find(0x0010, 0x0020), nullptr) << "only the keys asked are answered";
  EXPECT_EQ(answer->Find(0x0008, 0x0005), nullptr) << "ASCII needs no character set";
  std::string uid = TextOf(answer, 0x0020, 0x000D);
  EXPECT_EQ(uid.rfind("2.25.", 0), 0u);
  EXPECT_LE(uid.size(), 64u);
  DICOMDataObject* step = Step(answer);
  ASSERT_NE(step, nullptr);
  EXPECT_EQ(TextOf(step, 0x0008, 0x0060), "CR");
  EXPECT_EQ(TextOf(step, 0x0040, 0x0002), "20240302");
  EXPECT_EQ(TextOf(step, 0x0040, 0x0003), "140000");
  EXPECT_EQ(TextOf(step, 0x0040, 0x0001), "CR1AE");
  ASSERT_NE(step->Find(0x0040, 0x0010), nullptr);

  // The study UID of an order is the same at every query, and differs between orders.
  std::set<std::string> uids;
  for (int round = 0; round < 2; ++round)
    for (auto& a : Search(Identifier({{{0x0020, 0x000D}, ""}}, {})))
      uids.insert(TextOf(a.get(), 0x0020, 0x000D));
  EXPECT_EQ(uids.size(), 5u);
  EXPECT_TRUE(uids.count(uid));
}

TEST_P(WorklistSearchTest, Utf8NamesAndAStepAskedWithoutItem) {
  auto query = std::make_unique<DICOMDataObject>();
  Push(query.get(), kPatientID, "PID004");
  Push(query.get(), kName, "");
  Push(query.get(), kStep, "");  // the whole step, no item
  auto answers = Search(std::move(query));
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(TextOf(answers[0].get(), 0x0010, 0x0010), "M\xC3\xBCller^J\xC3\xBCrgen");
  EXPECT_EQ(TextOf(answers[0].get(), 0x0008, 0x0005), "ISO_IR 192");
  DICOMDataObject* step = Step(answers[0].get());
  ASSERT_NE(step, nullptr);
  EXPECT_EQ(TextOf(step, 0x0008, 0x0060), "MG");
  EXPECT_EQ(TextOf(step, 0x0040, 0x0009), "O5");
  EXPECT_EQ(TextOf(step, 0x0040, 0x0001), "MG1AE");
}

TEST_P(WorklistSearchTest, DatabaseFailureIsReported) {
  database.ExecuteSQL("DROP TABLE [dbo].[OrderTable]");
  CModalityWorklistQuery worklist;
  worklist.SetDatabase(&database);
  Array<DICOMDataObject*> matches;
  auto query = Identifier({}, {});
  EXPECT_EQ(worklist.SearchOn(query.get(), &matches), 0);
  EXPECT_EQ(matches.GetSize(), 0u);
  EXPECT_EQ(
      KESTREL::GetLastErrorText().rfind("KESTREL.dll : CModalityWorklistQuery::SearchOn() : ", 0),
      0u)
      << KESTREL::GetLastErrorText();
}

}  // namespace
