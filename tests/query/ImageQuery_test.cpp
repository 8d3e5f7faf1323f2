// The study query filter, the local study query and the patient- and study-root C-FIND
// provider over the image database, on SQLite and PostgreSQL.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kestrel/CPatientRootQuery.h"
#include "kestrel/CPatientRootRetrieve.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/CStudyRootQuery.h"
#include "kestrel/CStudyRootRetrieve.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Status.h"
#include "tests/TestValues.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using Tag = std::pair<uint16_t, uint16_t>;
using Keys = std::vector<std::pair<Tag, std::string>>;
using Set = std::set<std::string>;

constexpr Tag kLevel{0x0008, 0x0052}, kCharset{0x0008, 0x0005}, kName{0x0010, 0x0010};
constexpr Tag kPatientID{0x0010, 0x0020}, kStudy{0x0020, 0x000D}, kSeries{0x0020, 0x000E};
constexpr Tag kImage{0x0008, 0x0018}, kDate{0x0008, 0x0020}, kAccession{0x0008, 0x0050};
constexpr Tag kModalities{0x0008, 0x0061}, kModality{0x0008, 0x0060};

TEST(StudyQueryFilter, KeysBecomeConditions) {
  struct Case {
    std::vector<std::string> keys;  // UID, ID, name, accession, study ID, referrer, from, to, text
    const char* expected;
  };
  const Case cases[] = {
      {{"", "", "", "", "", "", "", "", ""}, ""},
      {{"", "12*", "", "", "", "", "", "", ""}, "[Study].PatientID Like '12%' ESCAPE '\\' "},
      {{"", "", "*", "", "", "", "", "", ""}, ""},
      {{"", "%", "", "", "", "", "", "", ""}, "[Study].PatientID Like '\\%' ESCAPE '\\' "},
      {{"", "", "O'Brien", "", "", "", "", "", ""}, "[Patient].PatientsName = 'O''Brien' "},
      {{"", "", "", "", "", "", "20240101", "20240131", ""},
       "[Study].StudyDate >= '20240101'  AND [Study].StudyDate <= '20240131' "},
      {{"", "", "", "100%_?*", "", "", "", "", ""},
       "[Study].AccessionNumber Like '100\\%\\__%' ESCAPE '\\' "},
      {{"1.2.3", "", "", "", "", "", "", "", "CT*"},
       "[Study].StudyInstanceUID = '1.2.3'  AND [Study].StudyDescription Like 'CT%' ESCAPE '\\' "},
  };
  CStudyRootQuery query;
  for (const Case& c : cases) {
    const auto& k = c.keys;
    EXPECT_EQ(query.ConstructStudyQueryFilter(k[0], k[1], k[2], k[3], k[4], k[5], k[6], k[7], k[8]),
              c.expected)
        << k[1] << k[2] << k[3];
  }
  EXPECT_EQ(query.ConstructStudyQueryFilter("", "", "", "", "", "", "", "", "", "[Status] = 'N'"),
            "[Status] = 'N'");
  std::string text = "a*b*?";
  query.ReplaceWildcard(text);
  EXPECT_EQ(text, "a%b%?");
}

// Four patients, five studies, six series and seven instances; names and IDs with quotes, "%",
// "_" and a name in UTF-8.
class ImageQueryTest : public store_test::DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped()) return;
    const char* statements[] = {
        "INSERT INTO [Patient] ([PatientID], [PatientsName], [PatientsSex]) VALUES "
        "('P1', 'Doe^John', 'M'), ('P''2', 'O''Brien^Anne', 'F'), "
        "('100%_x', 'M\xC3\xBCller^J\xC3\xBCrgen', 'M'), ('P4', 'DOE^JANE', 'F')",
        "INSERT INTO [Study] ([StudyInstanceUID], [PatientID], [PatientUID], [StudyDate], "
        "[AccessionNumber], [Modality], [StudyDescription]) VALUES "
        "('1.1.1', 'P1', 1, '20240301', 'ACC1', 'CT\\SR', 'CT CHEST'), "
        "('1.1.2', 'P1', 1, '20240315', 'ACC2', 'MR', NULL), "
        "('1.1.3', 'P''2', 2, '20231201', 'A_1', 'CT', NULL), "
        "('1.1.4', '100%_x', 3, '20240302', 'A%1', 'MR', 'Kopf'), "
        "('1.1.5', 'P4', 4, '20240401', 'ACC5', 'US', NULL)",
        "INSERT INTO [Series] ([SeriesInstanceUID], [ReferencedStudyComponent], [Modality]) "
        "VALUES ('1.2.1', '1.1.1', 'CT'), ('1.2.2', '1.1.1', 'SR'), ('1.2.3', '1.1.2', 'MR'), "
        "('1.2.4', '1.1.3', 'CT'), ('1.2.5', '1.1.4', 'MR'), ('1.2.6', '1.1.5', 'US')",
        "INSERT INTO [Image] ([SOPInstanceUID], [SeriesInstanceUID], [StudyInstanceUID], "
        "[InstanceNumber], [Rows], [SOPClassUID], [TransferSyntax]) VALUES "
        "('1.3.1', '1.2.1', '1.1.1', '1', '512', '1.2.840.10008.5.1.4.1.1.2', '1.2.840.10008.1.2'),"
        "('1.3.2', '1.2.1', '1.1.1', '2', '512', NULL, NULL), ('1.3.3', '1.2.2', '1.1.1', '1', "
        "NULL, NULL, NULL), ('1.3.4', '1.2.3', '1.1.2', '1', '256', NULL, NULL), ('1.3.5', "
        "'1.2.4', '1.1.3', '1', '512', NULL, NULL), ('1.3.6', '1.2.5', '1.1.4', '1', '256', NULL, "
        "NULL), ('1.3.7', '1.2.6', '1.1.5', '1', '480', NULL, NULL)",
        "INSERT INTO [Server] ([AE Title], [Hostname], [Port]) VALUES ('DEST', 'host1', '104'), "
        "('O''K', 'host2', '11112')",
    };
    for (const char* statement : statements) database.ExecuteSQL(statement);
  }

  static std::unique_ptr<DICOMDataObject> Identifier(const std::string& level, const Keys& keys) {
    auto identifier = std::make_unique<DICOMDataObject>();
    Keys all = keys;
    all.push_back({kLevel, level});
    for (const auto& [tag, value] : all) {
      auto* vr = new VR(tag.first, tag.second, static_cast<uint32_t>(value.size()), true);
      if (!value.empty()) std::memcpy(vr->Data, value.data(), value.size());
      EXPECT_TRUE(identifier->Push(vr));
    }
    return identifier;
  }

  // The answers of a search, or none when it failed.
  template <class Query>
  std::vector<std::unique_ptr<DICOMDataObject>> Search(const std::string& level, const Keys& keys,
                                                       int* result = nullptr) {
    Query query;
    query.SetDatabase(&database);
    query.SetRetrieveAETitle("KESTREL");
    Array<DICOMDataObject*> matches;
    const int found = query.SearchOn(Identifier(level, keys).get(), &matches);
    if (result) *result = found;
    std::vector<std::unique_ptr<DICOMDataObject>> answers;
    for (uint32_t i = 0; i < matches.GetSize(); ++i) answers.emplace_back(matches.Get(i));
    return answers;
  }

  template <class Query>
  Set Found(const std::string& level, const Keys& keys, Tag unique) {
    Keys asked = keys;
    asked.push_back({unique, ""});
    Set values;
    for (auto& answer : Search<Query>(level, asked))
      values.insert(TextOf(answer.get(), unique.first, unique.second));
    return values;
  }
};
KESTREL_ON_BOTH_DATABASES(ImageQueryTest);

TEST_P(ImageQueryTest, KeysSelectTheMatches) {
  struct Case {
    const char* what;
    bool patientRoot;
    const char* level;
    Keys keys;
    Tag unique;
    Set expected;
  };
  const std::string latin1Name = "M\xFCller*";
  const Case cases[] = {
      {"no keys", false, "STUDY", {}, kStudy, {"1.1.1", "1.1.2", "1.1.3", "1.1.4", "1.1.5"}},
      {"names without case",
       false,
       "STUDY",
       {{kName, "doe*"}},
       kStudy,
       {"1.1.1", "1.1.2", "1.1.5"}},
      {"one character", false, "STUDY", {{kName, "D?E^J*"}}, kStudy, {"1.1.1", "1.1.2", "1.1.5"}},
      {"an exact name", false, "STUDY", {{kName, "DOE^JOHN"}}, kStudy, {"1.1.1", "1.1.2"}},
      {"a quote in a name", false, "STUDY", {{kName, "O'Brien*"}}, kStudy, {"1.1.3"}},
      {"a quote in an ID", false, "STUDY", {{kPatientID, "P'2"}}, kStudy, {"1.1.3"}},
      {"% and _ are letters", false, "STUDY", {{kPatientID, "100%_x"}}, kStudy, {"1.1.4"}},
      {"_ is no wild card", false, "STUDY", {{kAccession, "A_1"}}, kStudy, {"1.1.3"}},
      {"% is no wild card", false, "STUDY", {{kAccession, "A%*"}}, kStudy, {"1.1.4"}},
      {"UTF-8",
       false,
       "STUDY",
       {{kCharset, "ISO_IR 192"}, {kName, "m\xC3\xBCller*"}},
       kStudy,
       {"1.1.4"}},
      {"ISO_IR 100",
       false,
       "STUDY",
       {{kCharset, "ISO_IR 100"}, {kName, latin1Name}},
       kStudy,
       {"1.1.4"}},
      {"a date range",
       false,
       "STUDY",
       {{kDate, "20240301-20240315"}},
       kStudy,
       {"1.1.1", "1.1.2", "1.1.4"}},
      {"an open range", false, "STUDY", {{kDate, "-20231231"}}, kStudy, {"1.1.3"}},
      {"a UID list", false, "STUDY", {{kStudy, "1.1.1\\1.1.3"}}, kStudy, {"1.1.1", "1.1.3"}},
      {"one of the modalities", false, "STUDY", {{kModalities, "SR"}}, kStudy, {"1.1.1"}},
      {"a list of modalities",
       false,
       "STUDY",
       {{kModalities, "CT\\US"}},
       kStudy,
       {"1.1.1", "1.1.3", "1.1.5"}},
      {"patients", true, "PATIENT", {{kName, "*"}}, kPatientID, {"P1", "P'2", "100%_x", "P4"}},
      {"a patient's studies", true, "STUDY", {{kPatientID, "P1"}}, kStudy, {"1.1.1", "1.1.2"}},
      {"a study's series", false, "SERIES", {{kStudy, "1.1.1"}}, kSeries, {"1.2.1", "1.2.2"}},
      {"series of every study", false, "SERIES", {{kModality, "CT"}}, kSeries, {"1.2.1", "1.2.4"}},
      {"a series' images", false, "IMAGE", {{kSeries, "1.2.1"}}, kImage, {"1.3.1", "1.3.2"}},
      {"a patient's images",
       true,
       "IMAGE",
       {{kPatientID, "P1"}},
       kImage,
       {"1.3.1", "1.3.2", "1.3.3", "1.3.4"}},
  };
  for (const Case& c : cases) {
    Set found = c.patientRoot ? Found<CPatientRootQuery>(c.level, c.keys, c.unique)
                              : Found<CStudyRootQuery>(c.level, c.keys, c.unique);
    EXPECT_EQ(found, c.expected) << c.what;
  }
  int result = 1;
  EXPECT_TRUE(Search<CStudyRootQuery>("PATIENT", {}, &result).empty());
  EXPECT_EQ(result, 0) << "the study root has no PATIENT level";
}

TEST_P(ImageQueryTest, AnswersHoldExactlyTheKeysAsked) {
  const Tag instances{0x0020, 0x1208}, retrieveAE{0x0008, 0x0054}, unsupported{0x0010, 0x2154};
  auto answers = Search<CStudyRootQuery>(
      "STUDY",
      {{kStudy, "1.1.4"}, {kName, ""}, {instances, ""}, {retrieveAE, ""}, {unsupported, ""}});
  ASSERT_EQ(answers.size(), 1u);
  DICOMDataObject* answer = answers[0].get();
  EXPECT_EQ(TextOf(answer, kName.first, kName.second), "M\xC3\xBCller^J\xC3\xBCrgen");
  EXPECT_EQ(TextOf(answer, kCharset.first, kCharset.second), "ISO_IR 192");
  EXPECT_EQ(TextOf(answer, instances.first, instances.second), "1");
  EXPECT_EQ(TextOf(answer, retrieveAE.first, retrieveAE.second), "KESTREL");
  EXPECT_EQ(TextOf(answer, kLevel.first, kLevel.second), "STUDY");
  ASSERT_NE(answer->Find(unsupported.first, unsupported.second), nullptr) << "returned empty";
  EXPECT_EQ(answer->Find(unsupported.first, unsupported.second)->Length, 0u);
  EXPECT_EQ(answer->Find(kDate.first, kDate.second), nullptr) << "only the keys asked";

  answers = Search<CStudyRootQuery>("IMAGE", {{kImage, "1.3.1"}, {{0x0028, 0x0010}, ""}});
  ASSERT_EQ(answers.size(), 1u);
  VR* rows = answers[0]->Find(0x0028, 0x0010);
  ASSERT_TRUE(rows && rows->Length == 2) << "US is answered binary";
  uint16_t value;
  std::memcpy(&value, rows->Data, 2);
  EXPECT_EQ(value, 512);
}

TEST_P(ImageQueryTest, StudyQueryOfTheLocalDatabase) {
  struct Case {
    const char* what;
    std::vector<std::string> keys;  // UID, ID, name, accession, from, to
    Set expected;
  };
  const Case cases[] = {
      {"no keys", {"", "", "", "", "", ""}, {"1.1.1", "1.1.2", "1.1.3", "1.1.4", "1.1.5"}},
      {"a quote", {"", "P'2", "", "", "", ""}, {"1.1.3"}},
      {"a quoted wild card", {"", "", "O'Bri*", "", "", ""}, {"1.1.3"}},
      {"_ is a letter", {"", "", "", "A_*", "", ""}, {"1.1.3"}},
      {"% is a letter", {"", "100%_x", "", "", "", ""}, {"1.1.4"}},
      {"dates", {"", "", "", "", "20240301", "20240302"}, {"1.1.1", "1.1.4"}},
  };
  for (const Case& c : cases) {
    CResultsArray rows;
    CStudyRootQuery query(&rows);
    const auto& k = c.keys;
    ASSERT_EQ(query.StudyQuery(k[0], k[1], k[2], k[3], "", "", k[4], k[5], "", &database), 1)
        << KESTREL::GetLastErrorText();
    Set found;
    for (int i = 0; i < rows.GetSize(); ++i)
      found.insert(*rows[i]->GetAt(CStudyRootQuery::kStudyInstanceUID));
    EXPECT_EQ(found, c.expected) << c.what;
    rows.DeleteAll();
  }
}

TEST_P(ImageQueryTest, RetrieveFindsTheImagesOfEachLevel) {
  struct Case {
    const char* what;
    bool patientRoot;
    const char* level;
    Keys keys;
    Set expected;
  };
  const Case cases[] = {
      {"a patient", true, "PATIENT", {{kPatientID, "P1"}}, {"1.3.1", "1.3.2", "1.3.3", "1.3.4"}},
      {"a quote in an ID", true, "PATIENT", {{kPatientID, "P'2"}}, {"1.3.5"}},
      {"a study", false, "STUDY", {{kStudy, "1.1.1"}}, {"1.3.1", "1.3.2", "1.3.3"}},
      {"a patient's study", true, "STUDY", {{kPatientID, "P4"}, {kStudy, "1.1.1"}}, {}},
      {"a series", false, "SERIES", {{kStudy, "1.1.1"}, {kSeries, "1.2.2"}}, {"1.3.3"}},
      {"a list of images", false, "IMAGE", {{kImage, "1.3.1\\1.3.7"}}, {"1.3.1", "1.3.7"}},
  };
  for (const Case& c : cases) {
    CPatientRootRetrieve patientRoot(nullptr);
    CStudyRootRetrieve studyRoot(nullptr);
    patientRoot.SetDatabase(&database);
    studyRoot.SetDatabase(&database);
    Array<DICOMDataObject*> matches;
    auto identifier = Identifier(c.level, c.keys);
    ASSERT_EQ(c.patientRoot ? patientRoot.SearchOn(identifier.get(), &matches)
                            : studyRoot.SearchOn(identifier.get(), &matches),
              1)
        << c.what;
    Set found;
    for (uint32_t i = 0; i < matches.GetSize(); ++i) {
      std::unique_ptr<DICOMDataObject> match(matches.Get(i));
      found.insert(TextOf(match.get(), kImage.first, kImage.second));
      if (TextOf(match.get(), kImage.first, kImage.second) == "1.3.1") {
        EXPECT_EQ(TextOf(match.get(), 0x0002, 0x0010), "1.2.840.10008.1.2") << "held syntax";
      }
    }
    EXPECT_EQ(found, c.expected) << c.what;
  }
}

TEST_P(ImageQueryTest, QualifyOnLooksTheDestinationUp) {
  struct Case {
    const char* destination;
    int result;
    const char* host;
    const char* port;
  };
  const Case cases[] = {
      {"DEST", 1, "host1", "104"}, {"O'K", 1, "host2", "11112"}, {"NONE", 0, "", ""}};
  for (const Case& c : cases) {
    CStudyRootRetrieve retrieve(nullptr, "/images", "LOCAL");
    retrieve.SetDatabase(&database);
    unsigned char ae[65] = {}, local[65] = "CALLED", host[256] = {}, port[64] = {};
    std::strcpy(reinterpret_cast<char*>(ae), c.destination);
    EXPECT_EQ(retrieve.QualifyOn(ae, local, host, port), c.result) << c.destination;
    EXPECT_STREQ(reinterpret_cast<char*>(host), c.host);
    EXPECT_STREQ(reinterpret_cast<char*>(port), c.port);
    EXPECT_STREQ(reinterpret_cast<char*>(local), "LOCAL");
  }
}

}  // namespace
