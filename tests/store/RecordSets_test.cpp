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

// Add, find by key, change, delete: the same steps for every table.
template <typename Set>
void RoundTrip(CDatabase& database, const std::string& keyFilter,
               const std::function<void(Set&, int)>& fill,
               const std::function<void(const Set&, int)>& check) {
  {
    Set set(&database);
    ASSERT_TRUE(set.Open()) << set.ErrorText;
    set.AddNew();
    fill(set, 1);
    ASSERT_TRUE(set.Update()) << set.ErrorText;
  }
  Set found(&database);
  found.Filter = keyFilter;
  ASSERT_TRUE(found.Open()) << found.ErrorText;
  ASSERT_FALSE(found.IsEOF());
  check(found, 1);
  found.Edit();
  fill(found, 2);
  ASSERT_TRUE(found.Update()) << found.ErrorText;
  Set changed(&database);
  changed.Filter = keyFilter;
  ASSERT_TRUE(changed.Open()) << changed.ErrorText;
  ASSERT_FALSE(changed.IsEOF());
  check(changed, 2);
  changed.Delete();
  EXPECT_TRUE(changed.IsDeleted()) << changed.ErrorText;
  Set gone(&database);
  gone.Filter = keyFilter;
  ASSERT_TRUE(gone.Open());
  EXPECT_TRUE(gone.IsEOF());
}

std::string V(const char* field, int round) {
  return std::string(field) + "'" + std::to_string(round);
}

TEST_P(RecordSetsTest, PatientRoundTrip) {
  RoundTrip<CPatientSet>(
      database, "[PatientID] = 'PID-1'",
      [](CPatientSet& s, int r) {
        s.EthnicGroup = V("eg", r);
        s.OtherPatientID = V("opid", r);
        s.OtherPatientNames = V("opn", r);
        s.PatientBirthTime = V("pbt", r);
        s.PatientComments = V("pc", r);
        s.PatientID = "PID-1";
        s.PatientsBirthDate = V("pbd", r);
        s.PatientsName = V("Doe^John", r);
        s.PatientsSex = V("sex", r);
      },
      [](const CPatientSet& s, int r) {
        EXPECT_EQ(s.EthnicGroup, V("eg", r));
        EXPECT_EQ(s.OtherPatientID, V("opid", r));
        EXPECT_EQ(s.OtherPatientNames, V("opn", r));
        EXPECT_EQ(s.PatientBirthTime, V("pbt", r));
        EXPECT_EQ(s.PatientComments, V("pc", r));
        EXPECT_EQ(s.PatientsBirthDate, V("pbd", r));
        EXPECT_EQ(s.PatientsName, V("Doe^John", r));
        EXPECT_EQ(s.PatientsSex, V("sex", r));
        EXPECT_GT(s.PatientUID, 0);  // given by the database
      });
}

TEST_P(RecordSetsTest, StudyRoundTrip) {
  RoundTrip<CStudySet>(
      database, "[StudyInstanceUID] = '1.2.3'",
      [](CStudySet& s, int r) {
        std::string* fields[] = {&s.AccessDate,
                                 &s.AccessionNumber,
                                 &s.AccessTime,
                                 &s.AdditionalPatientsHistory,
                                 &s.AdmittingDiagnosesDescription,
                                 &s.Modality,
                                 &s.NameOfPhysiciansReadingStudy,
                                 &s.Occupation,
                                 &s.OperatorsName,
                                 &s.PatientID,
                                 &s.PatientsAge,
                                 &s.PatientsSize,
                                 &s.PatientsWeight,
                                 &s.ReferencedStudySequence,
                                 &s.ReferringPhysiciansName,
                                 &s.Status,
                                 &s.StudyDate,
                                 &s.StudyDescription,
                                 &s.StudyID,
                                 &s.StudyTime,
                                 &s.InstitutionalDepartmentName,
                                 &s.InstitutionName};
        int i = 0;
        for (std::string* f : fields) *f = V("study", r * 100 + i++);
        s.PatientUID = 40 + r;
        s.StudyInstanceUID = "1.2.3";
      },
      [](const CStudySet& s, int r) {
        const std::string fields[] = {s.AccessDate,
                                      s.AccessionNumber,
                                      s.AccessTime,
                                      s.AdditionalPatientsHistory,
                                      s.AdmittingDiagnosesDescription,
                                      s.Modality,
                                      s.NameOfPhysiciansReadingStudy,
                                      s.Occupation,
                                      s.OperatorsName,
                                      s.PatientID,
                                      s.PatientsAge,
                                      s.PatientsSize,
                                      s.PatientsWeight,
                                      s.ReferencedStudySequence,
                                      s.ReferringPhysiciansName,
                                      s.Status,
                                      s.StudyDate,
                                      s.StudyDescription,
                                      s.StudyID,
                                      s.StudyTime,
                                      s.InstitutionalDepartmentName,
                                      s.InstitutionName};
        int i = 0;
        for (const std::string& f : fields) EXPECT_EQ(f, V("study", r * 100 + i++));
        EXPECT_EQ(s.PatientUID, 40 + r);
      });
}

TEST_P(RecordSetsTest, SeriesRoundTrip) {
  RoundTrip<CSeriesSet>(
      database, "[SeriesInstanceUID] = '1.2.3.4'",
      [](CSeriesSet& s, int r) {
        std::string* fields[] = {&s.BodyPartExamined,
                                 &s.LargestPixelValueInSeries,
                                 &s.Laterality,
                                 &s.Modality,
                                 &s.OperatorsName,
                                 &s.PatientPosition,
                                 &s.PerformingPhysiciansName,
                                 &s.ProtocolName,
                                 &s.ReferencedStudyComponent,
                                 &s.SeriesDate,
                                 &s.SeriesDescription,
                                 &s.SeriesNumber,
                                 &s.SeriesTime,
                                 &s.SmallestPixelValueInSeries,
                                 &s.FrameOfReferenceUID};
        int i = 0;
        for (std::string* f : fields) *f = V("series", r * 100 + i++);
        s.SeriesInstanceUID = "1.2.3.4";
      },
      [](const CSeriesSet& s, int r) {
        const std::string fields[] = {s.BodyPartExamined,
                                      s.LargestPixelValueInSeries,
                                      s.Laterality,
                                      s.Modality,
                                      s.OperatorsName,
                                      s.PatientPosition,
                                      s.PerformingPhysiciansName,
                                      s.ProtocolName,
                                      s.ReferencedStudyComponent,
                                      s.SeriesDate,
                                      s.SeriesDescription,
                                      s.SeriesNumber,
                                      s.SeriesTime,
                                      s.SmallestPixelValueInSeries,
                                      s.FrameOfReferenceUID};
        int i = 0;
        for (const std::string& f : fields) EXPECT_EQ(f, V("series", r * 100 + i++));
      });
}

// Every text field of the image set but the key, in binding order.
std::string CImageSet::*const kImageFields[] = {
    &CImageSet::SeriesInstanceUID,
    &CImageSet::StudyInstanceUID,
    &CImageSet::Modality,
    &CImageSet::SliceThickness,
    &CImageSet::SpacingBetweenSlices,
    &CImageSet::InstanceNumber,
    &CImageSet::ImagePositionPatient,
    &CImageSet::ImageOrientationPatient,
    &CImageSet::SliceLocation,
    &CImageSet::AcquisitionTime,
    &CImageSet::ImageTime,
    &CImageSet::SamplesPerPixel,
    &CImageSet::PhotometricInterpretation,
    &CImageSet::PlanarConfiguration,
    &CImageSet::NumberOfFrames,
    &CImageSet::Rows,
    &CImageSet::Columns,
    &CImageSet::PixelSpacing,
    &CImageSet::ImagerPixelSpacing,
    &CImageSet::PixelAspectRatio,
    &CImageSet::BitsAllocated,
    &CImageSet::BitsStored,
    &CImageSet::HighBit,
    &CImageSet::PixelRepresentation,
    &CImageSet::LossyImageCompression,
    &CImageSet::EchoNumbers,
    &CImageSet::TransferSyntax,
    &CImageSet::SOPClassUID,
    &CImageSet::Manufacturer,
    &CImageSet::ViewPosition,
    &CImageSet::Laterality,
    &CImageSet::PresentationIntentType,
    &CImageSet::SeriesNumber,
    &CImageSet::SeriesDescription,
    &CImageSet::BodyPartExamined,
    &CImageSet::ProtocolName,
    &CImageSet::ManufacturersModelName,
    &CImageSet::ImageType,
    &CImageSet::ViewCodeSequenceMeaning,
    &CImageSet::ImageLaterality,
    &CImageSet::ConvolutionKernel,
    &CImageSet::FrameOfReferenceUID,
};

TEST_P(RecordSetsTest, ImageRoundTrip) {
  ASSERT_EQ(std::size(kImageFields), 42u);
  RoundTrip<CImageSet>(
      database, "[SOPInstanceUID] = '1.2.3.4.5'",
      [](CImageSet& s, int r) {
        s.SOPInstanceUID = "1.2.3.4.5";
        int i = 0;
        for (auto field : kImageFields) s.*field = V("image", r * 100 + i++);
      },
      [](const CImageSet& s, int r) {
        int i = 0;
        for (auto field : kImageFields) EXPECT_EQ(s.*field, V("image", r * 100 + i++)) << i;
      });
}

TEST_P(RecordSetsTest, ServerRoundTrip) {
  RoundTrip<CServersSet>(
      database, "[AE Title] = 'STORESCP'",
      [](CServersSet& s, int r) {
        s.AETitle = "STORESCP";
        s.Hostname = V("host", r);
        s.Port = std::to_string(11111 + r);
        s.Description = V("desc", r);
        s.Type = V("type", r);
        s.DeviceID = V("dev", r);
        s.Source = V("src", r);
        s.Default = r;
      },
      [](const CServersSet& s, int r) {
        EXPECT_EQ(s.Hostname, V("host", r));
        EXPECT_EQ(s.Port, std::to_string(11111 + r));
        EXPECT_EQ(s.Description, V("desc", r));
        EXPECT_EQ(s.Type, V("type", r));
        EXPECT_EQ(s.DeviceID, V("dev", r));
        EXPECT_EQ(s.Source, V("src", r));
        EXPECT_EQ(s.Default, r);
        EXPECT_GT(s.ServerID, 0);
      });
}

TEST_P(RecordSetsTest, LoginRoundTrip) {
  RoundTrip<CLoginSet>(
      database, "[Description] LIKE 'login%'",
      [](CLoginSet& s, int r) {
        s.Description = V("login", r);
        s.DomainNameOrWebService = V("https://sso.example/", r);
        s.Type = V("type", r);
      },
      [](const CLoginSet& s, int r) {
        EXPECT_EQ(s.Description, V("login", r));
        EXPECT_EQ(s.DomainNameOrWebService, V("https://sso.example/", r));
        EXPECT_EQ(s.Type, V("type", r));
        EXPECT_GT(s.Index, 0);
      });
}

TEST_P(RecordSetsTest, PresetsRoundTrip) {
  RoundTrip<CPresetsSet>(
      database, "[Modality] = 'CT'",
      [](CPresetsSet& s, int r) {
        s.FnKey = r;
        s.Level = -600 * r;
        s.Modality = "CT";
        s.Preset = V("Lung", r);
        s.Window = 1500 + r;
      },
      [](const CPresetsSet& s, int r) {
        EXPECT_EQ(s.FnKey, r);
        EXPECT_EQ(s.Level, -600 * r);
        EXPECT_EQ(s.Preset, V("Lung", r));
        EXPECT_EQ(s.Window, 1500 + r);
        EXPECT_GT(s.PresetID, 0);
      });
}

TEST_P(RecordSetsTest, TemplateRoundTrip) {
  RoundTrip<CTemplateSet>(
      database, "[SOPInstanceUID] = '9.8.7'",
      [](CTemplateSet& s, int r) {
        s.SOPInstanceUID = "9.8.7";
        s.SeriesInstanceUID = V("series", r);
        s.StudyInstanceUID = V("study", r);
        s.Filename = V("/templates/hip.tpl", r);
        double* doubles[] = {&s.OffsetX,        &s.OffsetY, &s.Angle,  &s.RotateAxisX,
                             &s.RotateAxisY,    &s.LabelX,  &s.LabelY, &s.PixelSpacingColumn,
                             &s.PixelSpacingRow};
        int i = 0;
        for (double* d : doubles) *d = r * 0.1 + i++ * 1.0 / 3;
        s.FlippedHorz = r % 2;
        s.FlippedVert = 1 - r % 2;
        s.Locked = r;
        s.Labelled = r + 1;
        s.CheckSum = 123456789 * r;
      },
      [](const CTemplateSet& s, int r) {
        EXPECT_EQ(s.SeriesInstanceUID, V("series", r));
        EXPECT_EQ(s.StudyInstanceUID, V("study", r));
        EXPECT_EQ(s.Filename, V("/templates/hip.tpl", r));
        const double doubles[] = {s.OffsetX,        s.OffsetY, s.Angle,  s.RotateAxisX,
                                  s.RotateAxisY,    s.LabelX,  s.LabelY, s.PixelSpacingColumn,
                                  s.PixelSpacingRow};
        int i = 0;
        for (double d : doubles) EXPECT_EQ(d, r * 0.1 + i++ * 1.0 / 3) << i;
        EXPECT_EQ(s.FlippedHorz, r % 2);
        EXPECT_EQ(s.FlippedVert, 1 - r % 2);
        EXPECT_EQ(s.Locked, r);
        EXPECT_EQ(s.Labelled, r + 1);
        EXPECT_EQ(s.CheckSum, 123456789 * r);
        EXPECT_GT(s.Index, 0);
      });
}

TEST_P(RecordSetsTest, TemplateAttachmentRoundTrip) {
  RoundTrip<CTemplateAttachmentSet>(
      database, "[SOPInstanceUID] = '9.8.7'",
      [](CTemplateAttachmentSet& s, int r) {
        s.SOPInstanceUID = "9.8.7";
        s.SeriesInstanceUID = V("series", r);
        s.StudyInstanceUID = V("study", r);
        s.Index1 = 10 + r;
        s.Index2 = 20 + r;
        s.PointName1 = V("Femoral head", r);
        s.PointName2 = V("Trochanter", r);
      },
      [](const CTemplateAttachmentSet& s, int r) {
        EXPECT_EQ(s.SeriesInstanceUID, V("series", r));
        EXPECT_EQ(s.StudyInstanceUID, V("study", r));
        EXPECT_EQ(s.Index1, 10 + r);
        EXPECT_EQ(s.Index2, 20 + r);
        EXPECT_EQ(s.PointName1, V("Femoral head", r));
        EXPECT_EQ(s.PointName2, V("Trochanter", r));
        EXPECT_GT(s.Index, 0);
      });
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
