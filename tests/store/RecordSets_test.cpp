// The record sets of the image and RIS databases on both databases: their defaults, their
// connections, a full add, change and delete on every table, the study join, the series
// counts and the worklist orders.
#include "kestrel/RecordSets.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CWorklistOrderSet.h"
#include "kestrel/DatabaseSetup.h"
#include "kestrel/Status.h"
#include "tests/store/StoreTestSupport.h"

namespace {

using store_test::DatabaseTest;

constexpr char kImageDatabase[] = "ODBC;DSN=DICOMServer;UID=admin";

class RecordSetsTest : public DatabaseTest {};
KESTREL_ON_BOTH_DATABASES(RecordSetsTest);

struct SetDefaults {
  const char* name;
  std::function<std::unique_ptr<CRecordset>(CDatabase*)> make;
  const char* sql;
  const char* connect;  // without a connection, or with one whose connect string is empty
  bool shared;          // a non-empty connect string of the given connection wins
  unsigned openType;
  const char* filter;
  const char* sort;
  int columns;
};

template <typename Set>
std::function<std::unique_ptr<CRecordset>(CDatabase*)> Maker() {
  return [](CDatabase* db) { return std::make_unique<Set>(db); };
}

const char kSeriesSort[] = "[SeriesDate] ASC, [SeriesTime] ASC, [SeriesNumber] ASC";

const std::vector<SetDefaults>& AllSets() {
  static const std::vector<SetDefaults> sets = {
      {"Patient", Maker<CPatientSet>(), "[Patient]", kImageDatabase, true, CRecordset::dynaset, "",
       "", 10},
      {"PatientQuery", Maker<CPatientQuerySet>(), "[Patient]", kImageDatabase, true,
       CRecordset::dynaset, "", "", 10},
      {"Study", Maker<CStudySet>(), "[Study]", kImageDatabase, true, CRecordset::dynaset, "", "",
       24},
      {"StudyQuery", Maker<CStudyQuerySet>(), "[Study], [Patient]", kImageDatabase, true,
       CRecordset::dynaset, "[Study].PatientUID = [Patient].PatientUID", "", 34},
      {"Series", Maker<CSeriesSet>(), "[Series]", kImageDatabase, true, CRecordset::dynaset, "",
       kSeriesSort, 16},
      {"SeriesQuery", Maker<CSeriesQuerySet>(), "SELECT [Series].*, 0 as NumImages from [Series]",
       kImageDatabase, true, CRecordset::forwardOnly, "", kSeriesSort, 17},
      {"Image", Maker<CImageSet>(), "[Image]", kImageDatabase, true, CRecordset::dynaset, "", "",
       43},
      {"Servers", Maker<CServersSet>(), "[Server]", kImageDatabase, true, CRecordset::dynaset, "",
       "", 9},
      {"Login", Maker<CLoginSet>(), "[Login]", kImageDatabase, true, CRecordset::dynaset, "", "",
       4},
      {"Presets", Maker<CPresetsSet>(), "[Presets]", "ODBC;DSN=DICOMServer", false,
       CRecordset::dynaset, "", "", 6},
      {"Template", Maker<CTemplateSet>(), "[Template]", kImageDatabase, false, CRecordset::dynaset,
       "", "", 19},
      {"TemplateAttachment", Maker<CTemplateAttachmentSet>(), "[TemplateAttachment]",
       "ODBC;DSN=DICOMServer", false, CRecordset::dynaset, "", "", 8},
      {"WorklistOrder", Maker<CWorklistOrderSet>(), "[dbo].[OrderTable],[dbo].[PatientTable]",
       "ODBC;DSN=RISInterface;UID=sa; PWD=;", false, CRecordset::snapshot, "", "", 29},
  };
  return sets;
}

TEST_P(RecordSetsTest, EverySetHasItsDefaultsAndConnectionRule) {
  CDatabase unopened;  // connect string ""
  for (const SetDefaults& d : AllSets()) {
    SCOPED_TRACE(d.name);
    std::unique_ptr<CRecordset> alone = d.make(nullptr);
    std::unique_ptr<CRecordset> withEmpty = d.make(&unopened);
    std::unique_ptr<CRecordset> withShared = d.make(&database);
    EXPECT_EQ(alone->GetDefaultSQL(), d.sql);
    EXPECT_EQ(alone->GetDefaultConnect(), d.connect);
    EXPECT_EQ(withEmpty->GetDefaultConnect(), d.connect);
    // The shared connection's string, even though it names another data source entirely.
    EXPECT_EQ(withShared->GetDefaultConnect(), d.shared ? test_->connect() : d.connect);
    EXPECT_EQ(alone->GetOpenType(), d.openType);
    EXPECT_EQ(alone->Filter, d.filter);
    EXPECT_EQ(alone->Sort, d.sort);
  }
}

TEST_P(RecordSetsTest, EverySetBindsItsColumnsOnItsTable) {
  ASSERT_TRUE(KESTREL::CreateRISTables(database)) << KESTREL::GetLastErrorText();
  for (const SetDefaults& d : AllSets()) {
    SCOPED_TRACE(d.name);
    std::unique_ptr<CRecordset> set = d.make(&database);
    ASSERT_NO_THROW(set->Open()) << set->GetSQL();
    EXPECT_EQ(set->GetFieldCount(), d.columns);
    EXPECT_TRUE(set->IsEOF());
  }
}

// An unopened connection given to a set is opened by it with the set's default string.
TEST_P(RecordSetsTest, AnUnopenedSharedConnectionIsOpenedWithTheDefault) {
  KESTREL_REQUIRE_DATA_SOURCES(test_->WriteOdbcIni());
  database.ExecuteSQL("INSERT INTO [Presets] ([Modality], [Preset]) VALUES ('CT', 'Lung')");
  CDatabase shared;
  CPatientSet patients(&shared);
  ASSERT_TRUE(patients.Open()) << patients.ErrorText;
  EXPECT_EQ(shared.GetConnect(), kImageDatabase);
  CDatabase fixed;
  CPresetsSet presets(&fixed);
  ASSERT_TRUE(presets.Open()) << presets.ErrorText;
  EXPECT_EQ(fixed.GetConnect(), "ODBC;DSN=DICOMServer");
  EXPECT_EQ(presets.Preset, "Lung");
  // And a set without any connection opens one of its own the same way.
  CPresetsSet own;
  ASSERT_TRUE(own.Open()) << own.ErrorText;
  EXPECT_EQ(own.GetDatabase()->GetConnect(), "ODBC;DSN=DICOMServer");
  EXPECT_EQ(own.Modality, "CT");
}

// Add, find by key, change, delete: the same steps for every table. The key column is set to
// `keyValue`; every text column in `texts` gets a value of its own per round, so a column bound
// to the wrong member shows; `fill` and `check` cover the columns of other types.
template <typename Set>
struct Table {
  std::string filter;
  std::string Set::*key;
  const char* keyValue;
  std::vector<std::string Set::*> texts;
  std::function<void(Set&, int)> fill = nullptr;
  std::function<void(const Set&, int)> check = nullptr;
};

std::string V(const char* field, int round) {
  return std::string(field) + "'" + std::to_string(round);
}

template <typename Set>
void RoundTrip(CDatabase& database, const Table<Set>& t) {
  auto fill = [&t](Set& s, int r) {
    if (t.key) s.*t.key = t.keyValue;
    int i = 0;
    for (auto field : t.texts) s.*field = V("text", r * 100 + i++);
    if (t.fill) t.fill(s, r);
  };
  auto check = [&t](const Set& s, int r) {
    int i = 0;
    for (auto field : t.texts) EXPECT_EQ(s.*field, V("text", r * 100 + i++)) << i;
    if (t.check) t.check(s, r);
  };
  auto open = [&database, &t](Set& set) {
    set.Filter = t.filter;
    ASSERT_TRUE(set.Open()) << set.ErrorText;
    ASSERT_FALSE(set.IsEOF());
  };
  {
    Set set(&database);
    ASSERT_TRUE(set.Open()) << set.ErrorText;
    set.AddNew();
    fill(set, 1);
    ASSERT_TRUE(set.Update()) << set.ErrorText;
  }
  Set found(&database);
  ASSERT_NO_FATAL_FAILURE(open(found));
  check(found, 1);
  found.Edit();
  fill(found, 2);
  ASSERT_TRUE(found.Update()) << found.ErrorText;
  Set changed(&database);
  ASSERT_NO_FATAL_FAILURE(open(changed));
  check(changed, 2);
  changed.Delete();
  EXPECT_TRUE(changed.IsDeleted()) << changed.ErrorText;
  Set gone(&database);
  gone.Filter = t.filter;
  ASSERT_TRUE(gone.Open());
  EXPECT_TRUE(gone.IsEOF());
}

TEST_P(RecordSetsTest, EveryTableRoundTrips) {
  {
    SCOPED_TRACE("Patient");
    using S = CPatientSet;
    RoundTrip<S>(database,
                 {"[PatientID] = 'PID-1'",
                  &S::PatientID,
                  "PID-1",
                  {&S::EthnicGroup, &S::OtherPatientID, &S::OtherPatientNames, &S::PatientBirthTime,
                   &S::PatientComments, &S::PatientsBirthDate, &S::PatientsName, &S::PatientsSex},
                  nullptr,
                  [](const S& s, int) { EXPECT_GT(s.PatientUID, 0); }});
  }
  {
    SCOPED_TRACE("Study");
    using S = CStudySet;
    RoundTrip<S>(database, {"[StudyInstanceUID] = '1.2.3'",
                            &S::StudyInstanceUID,
                            "1.2.3",
                            {&S::AccessDate,
                             &S::AccessionNumber,
                             &S::AccessTime,
                             &S::AdditionalPatientsHistory,
                             &S::AdmittingDiagnosesDescription,
                             &S::Modality,
                             &S::NameOfPhysiciansReadingStudy,
                             &S::Occupation,
                             &S::OperatorsName,
                             &S::PatientID,
                             &S::PatientsAge,
                             &S::PatientsSize,
                             &S::PatientsWeight,
                             &S::ReferencedStudySequence,
                             &S::ReferringPhysiciansName,
                             &S::Status,
                             &S::StudyDate,
                             &S::StudyDescription,
                             &S::StudyID,
                             &S::StudyTime,
                             &S::InstitutionalDepartmentName,
                             &S::InstitutionName},
                            [](S& s, int r) { s.PatientUID = 40 + r; },
                            [](const S& s, int r) { EXPECT_EQ(s.PatientUID, 40 + r); }});
  }
  {
    SCOPED_TRACE("Series");
    using S = CSeriesSet;
    RoundTrip<S>(
        database,
        {"[SeriesInstanceUID] = '1.2.3.4'",
         &S::SeriesInstanceUID,
         "1.2.3.4",
         {&S::BodyPartExamined, &S::LargestPixelValueInSeries, &S::Laterality, &S::Modality,
          &S::OperatorsName, &S::PatientPosition, &S::PerformingPhysiciansName, &S::ProtocolName,
          &S::ReferencedStudyComponent, &S::SeriesDate, &S::SeriesDescription, &S::SeriesNumber,
          &S::SeriesTime, &S::SmallestPixelValueInSeries, &S::FrameOfReferenceUID}});
  }
  {
    SCOPED_TRACE("Image");
    using S = CImageSet;  // every text field, in binding order
    RoundTrip<S>(database, {"[SOPInstanceUID] = '1.2.3.4.5'",
                            &S::SOPInstanceUID,
                            "1.2.3.4.5",
                            {&S::SeriesInstanceUID,
                             &S::StudyInstanceUID,
                             &S::Modality,
                             &S::SliceThickness,
                             &S::SpacingBetweenSlices,
                             &S::InstanceNumber,
                             &S::ImagePositionPatient,
                             &S::ImageOrientationPatient,
                             &S::SliceLocation,
                             &S::AcquisitionTime,
                             &S::ImageTime,
                             &S::SamplesPerPixel,
                             &S::PhotometricInterpretation,
                             &S::PlanarConfiguration,
                             &S::NumberOfFrames,
                             &S::Rows,
                             &S::Columns,
                             &S::PixelSpacing,
                             &S::ImagerPixelSpacing,
                             &S::PixelAspectRatio,
                             &S::BitsAllocated,
                             &S::BitsStored,
                             &S::HighBit,
                             &S::PixelRepresentation,
                             &S::LossyImageCompression,
                             &S::EchoNumbers,
                             &S::TransferSyntax,
                             &S::SOPClassUID,
                             &S::Manufacturer,
                             &S::ViewPosition,
                             &S::Laterality,
                             &S::PresentationIntentType,
                             &S::SeriesNumber,
                             &S::SeriesDescription,
                             &S::BodyPartExamined,
                             &S::ProtocolName,
                             &S::ManufacturersModelName,
                             &S::ImageType,
                             &S::ViewCodeSequenceMeaning,
                             &S::ImageLaterality,
                             &S::ConvolutionKernel,
                             &S::FrameOfReferenceUID}});
  }
  {
    SCOPED_TRACE("Server");
    using S = CServersSet;
    RoundTrip<S>(database, {"[AE Title] = 'STORESCP'",
                            &S::AETitle,
                            "STORESCP",
                            {&S::Hostname, &S::Description, &S::Type, &S::DeviceID, &S::Source},
                            [](S& s, int r) {
                              s.Port = std::to_string(11111 + r);
                              s.Default = r;
                            },
                            [](const S& s, int r) {
                              EXPECT_EQ(s.Port, std::to_string(11111 + r));
                              EXPECT_EQ(s.Default, r);
                              EXPECT_GT(s.ServerID, 0);
                            }});
  }
  {
    SCOPED_TRACE("Login");
    using S = CLoginSet;
    RoundTrip<S>(database, {"[Description] LIKE 'text%'",
                            nullptr,
                            nullptr,
                            {&S::Description, &S::DomainNameOrWebService, &S::Type},
                            nullptr,
                            [](const S& s, int) { EXPECT_GT(s.Index, 0); }});
  }
  {
    SCOPED_TRACE("Presets");
    using S = CPresetsSet;
    RoundTrip<S>(database, {"[Modality] = 'CT'",
                            &S::Modality,
                            "CT",
                            {&S::Preset},
                            [](S& s, int r) {
                              s.FnKey = r;
                              s.Level = -600 * r;
                              s.Window = 1500 + r;
                            },
                            [](const S& s, int r) {
                              EXPECT_EQ(s.FnKey, r);
                              EXPECT_EQ(s.Level, -600 * r);
                              EXPECT_EQ(s.Window, 1500 + r);
                              EXPECT_GT(s.PresetID, 0);
                            }});
  }
  {
    SCOPED_TRACE("Template");
    using S = CTemplateSet;
    static double S::*const doubles[] = {
        &S::OffsetX,        &S::OffsetY, &S::Angle,  &S::RotateAxisX,
        &S::RotateAxisY,    &S::LabelX,  &S::LabelY, &S::PixelSpacingColumn,
        &S::PixelSpacingRow};
    RoundTrip<S>(database, {"[SOPInstanceUID] = '9.8.7'",
                            &S::SOPInstanceUID,
                            "9.8.7",
                            {&S::SeriesInstanceUID, &S::StudyInstanceUID, &S::Filename},
                            [](S& s, int r) {
                              int i = 0;
                              for (auto d : doubles) s.*d = r * 0.1 + i++ * 1.0 / 3;
                              s.FlippedHorz = r % 2;
                              s.FlippedVert = 1 - r % 2;
                              s.Locked = r;
                              s.Labelled = r + 1;
                              s.CheckSum = 123456789 * r;
                            },
                            [](const S& s, int r) {
                              int i = 0;
                              for (auto d : doubles) EXPECT_EQ(s.*d, r * 0.1 + i++ * 1.0 / 3) << i;
                              EXPECT_EQ(s.FlippedHorz, r % 2);
                              EXPECT_EQ(s.FlippedVert, 1 - r % 2);
                              EXPECT_EQ(s.Locked, r);
                              EXPECT_EQ(s.Labelled, r + 1);
                              EXPECT_EQ(s.CheckSum, 123456789 * r);
                              EXPECT_GT(s.Index, 0);
                            }});
  }
  {
    SCOPED_TRACE("TemplateAttachment");
    using S = CTemplateAttachmentSet;
    RoundTrip<S>(database,
                 {"[SOPInstanceUID] = '9.8.7'",
                  &S::SOPInstanceUID,
                  "9.8.7",
                  {&S::SeriesInstanceUID, &S::StudyInstanceUID, &S::PointName1, &S::PointName2},
                  [](S& s, int r) {
                    s.Index1 = 10 + r;
                    s.Index2 = 20 + r;
                  },
                  [](const S& s, int r) {
                    EXPECT_EQ(s.Index1, 10 + r);
                    EXPECT_EQ(s.Index2, 20 + r);
                    EXPECT_GT(s.Index, 0);
                  }});
  }
}

TEST_P(RecordSetsTest, KeysAndUniqueColumnsAreEnforced) {
  const char* const twice[] = {
      "INSERT INTO [Study] ([StudyInstanceUID]) VALUES ('1.1')",
      "INSERT INTO [Series] ([SeriesInstanceUID]) VALUES ('1.1')",
      "INSERT INTO [Image] ([SOPInstanceUID]) VALUES ('1.1')",
      "INSERT INTO [Patient] ([PatientUID]) VALUES (5)",
      "INSERT INTO [Server] ([Server ID]) VALUES (5)",
      "INSERT INTO [Login] ([Index]) VALUES (5)",
      "INSERT INTO [Presets] ([PresetID]) VALUES (5)",
      "INSERT INTO [Template] ([Index]) VALUES (5)",
      "INSERT INTO [TemplateAttachment] ([Index]) VALUES (5)",
  };
  for (const char* insert : twice) {
    EXPECT_NO_THROW(database.ExecuteSQL(insert)) << insert;
    EXPECT_THROW(database.ExecuteSQL(insert), CDBException) << insert;
  }
  EXPECT_THROW(database.ExecuteSQL("INSERT INTO [Image] ([Modality]) VALUES ('CT')"),
               CDBException);  // no instance UID
}

TEST_P(RecordSetsTest, StudyQueryGivesOneRowPerStudyWithAPatient) {
  database.ExecuteSQL(
      "INSERT INTO [Patient] ([PatientUID], [PatientID], [PatientsName]) "
      "VALUES (1, 'P1', 'Doe^Jane')");
  database.ExecuteSQL(
      "INSERT INTO [Patient] ([PatientUID], [PatientID], [PatientsName]) "
      "VALUES (2, 'P2', 'Roe^Rick')");
  struct Study {
    const char* uid;
    int patientUid;
    const char* patientId;
  };
  const Study studies[] = {{"S1", 1, "P1"}, {"S2", 1, "P1"}, {"S3", 2, "P2"}, {"S4", 99, "P9"}};
  for (const Study& s : studies) {
    database.ExecuteSQL(std::string("INSERT INTO [Study] ([StudyInstanceUID], [PatientUID], "
                                    "[PatientID], [Modality]) VALUES ('") +
                        s.uid + "', " + std::to_string(s.patientUid) + ", '" + s.patientId +
                        "', 'CT')");
  }
  CStudyQuerySet set(&database);
  set.Sort = "[StudyInstanceUID]";
  ASSERT_TRUE(set.Open()) << set.ErrorText;
  EXPECT_FALSE(set.CanAppend());
  std::vector<std::string> seen;
  for (; !set.IsEOF(); set.MoveNext()) {
    seen.push_back(set.StudyInstanceUID);
    EXPECT_EQ(set.PatientPatientUID, set.StudyPatientUID) << set.StudyInstanceUID;
    EXPECT_EQ(set.PatientPatientID, set.StudyPatientID) << set.StudyInstanceUID;
    EXPECT_EQ(set.PatientsName, set.PatientPatientUID == 1 ? "Doe^Jane" : "Roe^Rick");
    EXPECT_EQ(set.Modality, "CT");
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"S1", "S2", "S3"}));  // S4 has no patient

  // The query services narrow the default filter down.
  CStudyQuerySet one(&database);
  one.Filter += " AND [Patient].PatientID = 'P2'";
  ASSERT_TRUE(one.Open()) << one.ErrorText;
  EXPECT_EQ(one.StudyInstanceUID, "S3");
  one.MoveNext();
  EXPECT_TRUE(one.IsEOF());
}

TEST_P(RecordSetsTest, SeriesQueryCountsNothingByDefaultAndWhatItIsGiven) {
  struct Series {
    const char* uid;
    const char* date;
    const char* time;
    const char* number;
    int images;
  };
  const Series series[] = {{"SE3", "20240102", "0900", "1", 0},
                           {"SE1", "20240101", "1000", "2", 3},
                           {"SE2", "20240101", "1000", "10", 1}};
  for (const Series& s : series) {
    database.ExecuteSQL(std::string("INSERT INTO [Series] ([SeriesInstanceUID], [SeriesDate], "
                                    "[SeriesTime], [SeriesNumber], [ReferencedStudyComponent]) "
                                    "VALUES ('") +
                        s.uid + "', '" + s.date + "', '" + s.time + "', '" + s.number +
                        "', 'ST1')");
    for (int i = 0; i < s.images; ++i) {
      database.ExecuteSQL(std::string("INSERT INTO [Image] ([SOPInstanceUID], "
                                      "[SeriesInstanceUID]) VALUES ('") +
                          s.uid + "." + std::to_string(i) + "', '" + s.uid + "')");
    }
  }
  CSeriesQuerySet set(&database);
  set.Filter = "[ReferencedStudyComponent] = 'ST1'";
  ASSERT_TRUE(set.Open()) << set.ErrorText;
  std::vector<std::string> order;
  for (; !set.IsEOF(); set.MoveNext()) {
    order.push_back(set.SeriesInstanceUID);
    EXPECT_EQ(set.NumImages, 0) << set.SeriesInstanceUID;
    EXPECT_FALSE(set.IsFieldNull(&set.NumImages));
  }
  // Date, time, then number, compared as text (so "10" before "2").
  EXPECT_EQ(order, (std::vector<std::string>{"SE2", "SE1", "SE3"}));

  CSeriesQuerySet counted(&database);
  ASSERT_TRUE(counted.Open(
      CRecordset::forwardOnly,
      "SELECT [Series].*, (SELECT COUNT(*) FROM [Image] WHERE [Image].SeriesInstanceUID = "
      "[Series].SeriesInstanceUID) as NumImages from [Series]"))
      << counted.ErrorText;
  for (; !counted.IsEOF(); counted.MoveNext()) {
    for (const Series& s : series) {
      if (counted.SeriesInstanceUID == s.uid) {
        EXPECT_EQ(counted.NumImages, s.images) << s.uid;
      }
    }
  }
}

TEST_P(RecordSetsTest, WorklistOrdersJoinTheirPatients) {
  ASSERT_TRUE(KESTREL::CreateRISTables(database)) << KESTREL::GetLastErrorText();
  database.ExecuteSQL(
      "INSERT INTO [dbo].[PatientTable] ([PatientTableID], [PatientID], [FirstName], "
      "[LastName], [DOB], [Sex]) VALUES ('PT1', 'MRN1', 'Jane', 'Doe', '1970-03-04 00:00:00', "
      "'F')");
  database.ExecuteSQL(
      "INSERT INTO [dbo].[PatientTable] ([PatientTableID], [PatientID], [LastName]) "
      "VALUES ('PT2', 'MRN2', 'Roe')");
  database.ExecuteSQL(
      "INSERT INTO [dbo].[OrderTable] ([OrderTableID], [PatientID], [Modality], [Priority], "
      "[DateTimeTrans], [StudyDateTime], [StudyDescription]) VALUES ('O1', 'MRN1', 'CT', "
      "'STAT', '2024-05-06 07:08:09', '2024-05-07 10:30:00', 'CT HEAD')");
  database.ExecuteSQL(
      "INSERT INTO [dbo].[OrderTable] ([OrderTableID], [PatientID], [Modality]) "
      "VALUES ('O2', 'MRN2', 'MR')");
  database.ExecuteSQL(
      "INSERT INTO [dbo].[OrderTable] ([OrderTableID], [PatientID], [Modality]) "
      "VALUES ('O3', 'MRN2', 'CT')");

  CWorklistOrderSet set(&database);
  set.Filter =
      "[dbo].[OrderTable].[PatientID] = [dbo].[PatientTable].[PatientID] AND [Modality] = 'CT'";
  set.Sort = "[OrderTableID]";
  ASSERT_NO_THROW(set.Open());
  EXPECT_EQ(set.GetOpenType(), CRecordset::snapshot);
  ASSERT_FALSE(set.IsEOF());
  EXPECT_EQ(set.OrderTableID, "O1");
  EXPECT_EQ(set.OrderTablePatientID, "MRN1");
  EXPECT_EQ(set.PatientTablePatientID, "MRN1");
  EXPECT_EQ(set.PatientTableID, "PT1");
  EXPECT_EQ(set.FirstName, "Jane");
  EXPECT_EQ(set.Priority, "STAT");
  EXPECT_EQ(set.StudyDescription, "CT HEAD");
  EXPECT_EQ(set.DateTimeTrans, DBDateTime(2024, 5, 6, 7, 8, 9));
  EXPECT_EQ(set.StudyDateTime, DBDateTime(2024, 5, 7, 10, 30, 0));
  EXPECT_EQ(set.DOB, DBDateTime(1970, 3, 4));
  EXPECT_EQ(set.StartDateTime.status, DBDateTime::null);
  EXPECT_TRUE(set.IsFieldNull(&set.StartDateTime));
  set.MoveNext();
  ASSERT_FALSE(set.IsEOF());
  EXPECT_EQ(set.OrderTableID, "O3");
  EXPECT_EQ(set.LastName, "Roe");
  EXPECT_EQ(set.DOB.status, DBDateTime::null);
  set.MoveNext();
  EXPECT_TRUE(set.IsEOF());
  // A plain set: its failures reach the worklist service as exceptions.
  EXPECT_THROW(set.AddNew(), CDBException);
  CWorklistOrderSet broken(&database);
  broken.Filter = "[NoSuchColumn] = 1";
  EXPECT_THROW(broken.Open(), CDBException);
}

}  // namespace
