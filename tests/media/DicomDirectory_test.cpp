// The media directory: descriptions and the report as tables, a folder written and read back,
// file names refused, damaged directories, and pydicom's directories in three syntaxes.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CDicomDirectory.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Status.h"
#include "tests/frame/FrameTestSupport.h"

namespace fs = std::filesystem;
using kestrel_test::TempDir;

namespace {

constexpr char kCT[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kMR[] = "1.2.840.10008.5.1.4.1.1.4";
constexpr char kComprehensiveSR[] = "1.2.840.10008.5.1.4.1.1.88.33";

struct Object {
  std::string path;  // below the folder
  std::string sopClass, instance, patientID, name, study, studyDate, series, modality;
  bool pixels = true;
};

void Push(DICOMObject* object, uint16_t group, uint16_t element, const char* vr,
          const std::string& value) {
  auto* e = new VR(group, element, static_cast<uint32_t>(value.size()), true);
  if (!value.empty()) std::memcpy(e->Data, value.data(), value.size());
  e->TypeCode = MakeTypeCode(vr[0], vr[1]);
  ASSERT_TRUE(object->Push(e));
}

void WriteObject(const std::string& folder, const Object& o) {
  DICOMDataObject data;
  Push(&data, 0x0008, 0x0016, "UI", o.sopClass);
  Push(&data, 0x0008, 0x0018, "UI", o.instance);
  Push(&data, 0x0008, 0x0020, "DA", o.studyDate);
  Push(&data, 0x0008, 0x0030, "TM", "101010");
  Push(&data, 0x0008, 0x0060, "CS", o.modality);
  Push(&data, 0x0010, 0x0010, "PN", o.name);
  Push(&data, 0x0010, 0x0020, "LO", o.patientID);
  Push(&data, 0x0020, 0x000D, "UI", o.study);
  Push(&data, 0x0020, 0x000E, "UI", o.series);
  Push(&data, 0x0020, 0x0010, "SH", "7");
  Push(&data, 0x0020, 0x0011, "IS", "1");
  Push(&data, 0x0020, 0x0013, "IS", "1");
  if (o.pixels) Push(&data, 0x7FE0, 0x0010, "OW", std::string(8, '\0'));
  fs::path path = fs::path(folder) / o.path;
  fs::create_directories(path.parent_path());
  DICOMCodec codec;
  ASSERT_TRUE(codec.SaveFile(path.c_str(), 3, &data, "1.2.840.10008.1.2.1"));
}

const std::vector<Object> kObjects = {
    {"P1/S1/CT1", kCT, "1.9.1", "PID1", "DOE^JOHN", "1.9", "20240301", "1.9.10", "CT"},
    {"P1/S1/CT2", kCT, "1.9.2", "PID1", "DOE^JOHN", "1.9", "20240301", "1.9.10", "CT"},
    {"P1/S2/MR1", kMR, "1.9.3", "PID1", "DOE^JOHN", "1.9", "20240301", "1.9.11", "MR"},
    {"P2/SR1", kComprehensiveSR, "1.8.1", "PID2", "ROE^JANE", "1.8", "20230101", "1.8.10", "SR",
     false},
    {"P2/MR1", kMR, "1.8.2", "PID2", "ROE^JANE", "1.8", "20230101", "1.8.11", "MR"},
};

class DicomDirectoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const Object& o : kObjects) WriteObject(dir_.path(), o);
    std::vector<std::string> problems;
    ASSERT_EQ(CDicomDirectory::WriteForFolder(dir_.path(), "TEST SET", &problems), 1)
        << KESTREL::GetLastErrorText();
    EXPECT_TRUE(problems.empty());
    path_ = dir_.File("DICOMDIR");
  }

  std::vector<uint8_t> Bytes() {
    std::ifstream in(path_, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
  }
  void Rewrite(const std::vector<uint8_t>& bytes) {
    std::ofstream(path_, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

  TempDir dir_;
  std::string path_;
};

TEST(SOPClassDescription, Table) {
  const std::pair<const char*, const char*> rows[] = {
      {"1.2.840.10008.5.1.4.1.1.481.1", "RT Image"},
      {"1.2.840.10008.5.1.4.1.1.1", "CR Image"},
      {"1.2.840.10008.5.1.4.1.1.1.1", "DX (For Presentation) Image"},
      {"1.2.840.10008.5.1.4.1.1.11", "Stand-alone VOI Lut"},
      {"1.2.840.10008.5.1.4.1.1.9", "Standalone Curve"},
      {"1.2.840.10008.5.1.4.1.1.12.3", "XA Bi-plane Image (retired)"},
      {"1.2.840.10008.5.1.1.30", "Hardcopy Color Image"},
      {"1.2.3", "Unknown(1.2.3)"},
      {"", "Unknown()"},
      {"1.2.840.10008.5.1.4.1.1.2 ", "Unknown(1.2.840.10008.5.1.4.1.1.2 )"},
  };
  for (const auto& [uid, text] : rows)
    EXPECT_EQ(CDicomDirectory::GetSOPClassDescription(uid), text) << uid;
}

TEST(UnsupportedReport, SeparatorsAndLines) {
  CDicomDirectory directory;
  std::string text = "stale";
  directory.GetUnsupportedMessage(text);
  EXPECT_EQ(text, "");
  CPatient p1, p2;
  p1.PatientID = "A";
  p1.PatientName = "DOE";
  p2.PatientID = "B";
  p2.PatientName = "ROE";
  CStudy s1, s2;
  s1.StudyInstanceUID = "1.1";
  s1.StudyID = "S1";
  s1.StudyDescription = "Head";
  s1.StudyDate = "20240101";
  s2.StudyInstanceUID = "1.2";
  s2.StudyID = "S2";
  directory.NoteUnsupported(p2, s1, "SR", kComprehensiveSR, false);
  directory.NoteUnsupported(p1, s1, "SR", "1.2.840.10008.5.1.4.1.1.88.11", false);
  directory.NoteUnsupported(p1, s1, "KO", "1.2.840.10008.5.1.4.1.1.88.59", false);
  directory.NoteUnsupported(p1, s1, "SR", "1.2.840.10008.5.1.4.1.1.88.11", false);
  directory.NoteUnsupported(p1, s2, "", "", true);
  directory.GetUnsupportedMessage(text);
  EXPECT_EQ(text,
            "Patient ID: A\r\nPatient Name: DOE\r\n"
            "\t- Study ID: S1\r\n\t- Study Description: Head\r\n\t- Study Date: 20240101\r\n"
            "\t\t- Affected Modalities in Study: KO, SR\r\n"
            "\t\t- Unsupported SOP Classes: Basic Text SR, Key Object Selection\r\n"
            "\r\n"
            "\t- Study ID: S2\r\n\t- Study Description: \r\n\t- Study Date: \r\n"
            "\t\t- Affected Modalities in Study: \r\n"
            "\t\t- Unsupported SOP Classes: \r\n"
            "\t\t- At least one directory record of type PRIVATE was encountered\r\n"
            "\r\n\r\n"
            "Patient ID: B\r\nPatient Name: ROE\r\n"
            "\t- Study ID: S1\r\n\t- Study Description: Head\r\n\t- Study Date: 20240101\r\n"
            "\t\t- Affected Modalities in Study: SR\r\n"
            "\t\t- Unsupported SOP Classes: Comprehensive SR\r\n");
}

TEST_F(DicomDirectoryTest, WrittenFolderReadsBackIntoTheTree) {
  CDicomDirectory directory;
  ASSERT_EQ(directory.Open(dir_.path()), 1) << KESTREL::GetLastErrorText();
  EXPECT_TRUE(directory.GetProblems().empty());
  EXPECT_EQ(directory.GetFileSetID(), "TEST SET");
  const auto& patients = directory.GetPatients();
  ASSERT_EQ(patients.size(), 2u);
  EXPECT_EQ(patients[0]->PatientName, "DOE^JOHN");
  ASSERT_EQ(patients[0]->Studies.size(), 1u);
  const CStudy& study = *patients[0]->Studies[0];
  EXPECT_EQ(study.StudyDate, "20240301");
  ASSERT_EQ(study.Series.size(), 2u);
  ASSERT_EQ(study.Series[0]->Images.size(), 2u);
  EXPECT_EQ(study.Series[0]->Images[1]->FileID, "P1\\S1\\CT2");
  EXPECT_EQ(study.Series[0]->Images[1]->Path, dir_.File("P1/S1/CT2"));
  EXPECT_TRUE(study.Series[0]->Images[1]->Supported);
  const CSeries& reports = *patients[1]->Studies[0]->Series[0];
  ASSERT_EQ(reports.Others.size(), 1u);
  EXPECT_EQ(reports.Others[0]->RecordType, "SR DOCUMENT");

  std::string report;
  directory.GetUnsupportedMessage(report);
  EXPECT_NE(report.find("Patient ID: PID2\r\n"), std::string::npos) << report;
  EXPECT_NE(report.find("Unsupported SOP Classes: Comprehensive SR\r\n"), std::string::npos);
  EXPECT_EQ(report.find("PID1"), std::string::npos);

  std::vector<CDicomDirectory::ReferencedFile> files;
  directory.GetReferencedFiles(files);
  ASSERT_EQ(files.size(), kObjects.size());
  for (const auto& file : files) {
    EXPECT_TRUE(fs::exists(file.Path)) << file.FileID;
    EXPECT_EQ(file.Supported, file.SOPClassUID != kComprehensiveSR) << file.FileID;
  }

  EXPECT_EQ(directory.RemoveUnsupported(), 2) << "the SR and the series it leaves empty";
  ASSERT_EQ(patients[1]->Studies[0]->Series.size(), 1u);
  EXPECT_EQ(patients[1]->Studies[0]->Series[0]->Modality, "MR");
  directory.GetReferencedFiles(files);
  EXPECT_EQ(files.size(), kObjects.size() - 1);
}

TEST_F(DicomDirectoryTest, StudyQueryRows) {
  CDicomDirectory directory;
  ASSERT_EQ(directory.Open(path_), 1);
  struct Case {
    const char *name, *id, *date, *modality;
    std::vector<std::string> studies;
  };
  const Case cases[] = {{"", "", "", "", {"1.9", "1.8"}},
                        {"doe*", "", "", "", {"1.9"}},
                        {"", "PID2", "", "", {"1.8"}},
                        {"", "", "20240101-", "", {"1.9"}},
                        {"", "", "", "SR", {"1.8"}},
                        {"", "", "", "CT", {"1.9"}},
                        {"", "", "", "US", {}}};
  for (const Case& c : cases) {
    CResultsArray rows;
    ASSERT_EQ(directory.StudyQuery(&rows, c.name, c.id, c.date, c.modality), 1);
    std::vector<std::string> studies;
    for (int i = 0; i < rows.GetSize(); ++i)
      studies.push_back(*rows[i]->GetAt(CDicomDirectory::kStudyInstanceUID));
    EXPECT_EQ(studies, c.studies) << c.name << "|" << c.id << "|" << c.date << "|" << c.modality;
    rows.DeleteAll();
  }
  CResultsArray rows;
  ASSERT_EQ(directory.StudyQuery(&rows), 1);
  CResult& row = *rows[0];
  ASSERT_EQ(row.GetSize(), CDicomDirectory::kStudyResultSize);
  EXPECT_EQ(*row[CDicomDirectory::kModalitiesInStudy], "CT\\MR");
  EXPECT_EQ(*row[CDicomDirectory::kNumberOfSeries], "2");
  EXPECT_EQ(*row[CDicomDirectory::kNumberOfImages], "3");
  EXPECT_EQ(*row[CDicomDirectory::kPatientID], "PID1");
  EXPECT_EQ(*row[CDicomDirectory::kStudyID], "7");
  EXPECT_EQ(row[6], nullptr);
  EXPECT_EQ(row[CDicomDirectory::kReferringPhysicianName], nullptr);
  rows.DeleteAll();
  EXPECT_EQ(directory.StudyQuery(nullptr), 0);
}

TEST_F(DicomDirectoryTest, NamesMediaDoNotAllowAreRefused) {
  for (const char* name : {"P1/S1/ct3", "P1/LONGNAME9/X", "A/B/C/D/E/F/G/H/I"}) {
    TempDir folder;
    Object o = kObjects[0];
    o.path = name;
    WriteObject(folder.path(), o);
    kestrel_test::WriteWholeFile(folder.File("readme.txt"), "not DICOM, not listed");
    std::vector<std::string> problems;
    EXPECT_EQ(CDicomDirectory::WriteForFolder(folder.path(), "", &problems), 0) << name;
    EXPECT_FALSE(fs::exists(folder.File("DICOMDIR"))) << name;
    ASSERT_EQ(problems.size(), 1u) << name;
    EXPECT_EQ(problems[0].rfind(name, 0), 0u) << problems[0];
  }
  EXPECT_EQ(CDicomDirectory::WriteForFolder(dir_.path(), "lower case"), 0);
}

TEST_F(DicomDirectoryTest, DamagedDirectoriesGiveErrorsNeverLoops) {
  CDicomDirectory intact;
  ASSERT_EQ(intact.Open(path_), 1);
  const CPatient& first = *intact.GetPatients()[0];
  const uint32_t patient = first.Offset, secondPatient = intact.GetPatients()[1]->Offset;
  const uint32_t series = first.Studies[0]->Series[0]->Offset;
  const uint32_t image = first.Studies[0]->Series[0]->Images[0]->Offset;
  // Record items as written: item header, then (0004,1400) UL, (0004,1410) US, (0004,1420)
  // UL and (0004,1430) CS, each with an 8-byte header.
  auto next = [](uint32_t record) { return record + 16; };
  auto inUse = [](uint32_t record) { return record + 28; };
  auto lower = [](uint32_t record) { return record + 38; };
  auto type = [](uint32_t record) { return record + 50; };
  auto put32 = [](std::vector<uint8_t>& b, uint32_t at, uint32_t v) { std::memcpy(&b[at], &v, 4); };
  struct Case {
    const char* what;
    std::function<void(std::vector<uint8_t>&)> damage;
    int result;
    const char* problem;
  };
  const Case cases[] = {
      {"truncated", [](std::vector<uint8_t>& b) { b.resize(b.size() / 2); }, 0, "damaged"},
      {"cut in the meta group", [](std::vector<uint8_t>& b) { b.resize(150); }, 0, ""},
      {"next past the end", [&](std::vector<uint8_t>& b) { put32(b, next(patient), 1u << 30); }, 0,
       "past the end of the file"},
      {"a loop of next links",
       [&](std::vector<uint8_t>& b) { put32(b, next(secondPatient), patient); }, 0, "(a loop)"},
      {"a lower link to itself", [&](std::vector<uint8_t>& b) { put32(b, lower(series), series); },
       0, "(a loop)"},
      {"a link into a record",
       [&](std::vector<uint8_t>& b) { put32(b, lower(patient), patient + 4); }, 0,
       "points at no directory record"},
      {"an unknown record type", [&](std::vector<uint8_t>& b) { b[type(image) + 4] = 'X'; }, 1,
       "unknown type \"IMAGX\""},
      {"an inactive record",
       [&](std::vector<uint8_t>& b) { b[inUse(image)] = b[inUse(image) + 1] = 0; }, 1, nullptr},
      {"a File ID leaving the folder",
       [&](std::vector<uint8_t>& b) {
         for (size_t i = image; i + 8 < b.size(); ++i)
           if (std::memcmp(&b[i], "P1\\S1\\CT1", 9) == 0) {
             std::memcpy(&b[i], "..\\S1\\CT1", 9);
             break;
           }
       },
       1, "names no plain file"},
  };
  const std::vector<uint8_t> original = Bytes();
  for (const Case& c : cases) {
    std::vector<uint8_t> bytes = original;
    c.damage(bytes);
    Rewrite(bytes);
    CDicomDirectory directory;
    EXPECT_EQ(directory.Open(path_), c.result) << c.what;
    std::string all;
    for (const std::string& problem : directory.GetProblems()) all += problem + "\n";
    if (c.problem) {
      EXPECT_NE(all.find(c.problem), std::string::npos) << c.what << ": " << all;
    }
    if (c.result == 0) {
      EXPECT_EQ(KESTREL::GetLastErrorText().rfind("KESTREL.dll : CDicomDirectory::Open() : ", 0),
                0u)
          << c.what;
    }
  }
  // The inactive record, checked on its result.
  CDicomDirectory again;
  std::vector<uint8_t> bytes = original;
  bytes[inUse(image)] = bytes[inUse(image) + 1] = 0;
  Rewrite(bytes);
  ASSERT_EQ(again.Open(path_), 1);
  EXPECT_EQ(again.GetPatients()[0]->Studies[0]->Series[0]->Images.size(), 1u);
}

TEST_F(DicomDirectoryTest, FileIDsFoundWithoutCaseAsOnMountedDiscs) {
  fs::rename(dir_.File("P1/S1/CT1"), dir_.File("P1/S1/ct1;1"));
  fs::rename(dir_.File("P1/S1"), dir_.File("P1/s1"));
  CDicomDirectory directory;
  ASSERT_EQ(directory.Open(path_), 1);
  EXPECT_EQ(directory.GetPatients()[0]->Studies[0]->Series[0]->Images[0]->Path,
            dir_.File("P1/s1/ct1;1"));
  EXPECT_TRUE(directory.GetProblems().empty());
  fs::remove(dir_.File("P2/MR1"));
  ASSERT_EQ(directory.Open(path_), 1) << "a missing file is a problem, not a failure";
  ASSERT_EQ(directory.GetProblems().size(), 1u);
  EXPECT_NE(directory.GetProblems()[0].find("is missing"), std::string::npos);
}

TEST(PydicomDirectories, ThreeSyntaxesGiveOneTree) {
  const std::string dir = "/usr/lib/python3/dist-packages/pydicom/data/test_files/dicomdirtests/";
  if (!fs::exists(dir + "DICOMDIR")) GTEST_SKIP() << "pydicom's test files are not installed";
  auto listing = [&](const std::string& name) {
    CDicomDirectory directory;
    EXPECT_EQ(directory.Open(dir + name), 1) << name << ": " << KESTREL::GetLastErrorText();
    std::vector<CDicomDirectory::ReferencedFile> files;
    directory.GetReferencedFiles(files);
    std::vector<std::string> out;
    for (const auto& f : files)
      out.push_back(f.PatientID + "|" + f.StudyInstanceUID + "|" + f.SeriesInstanceUID + "|" +
                    f.FileID + "|" + f.SOPInstanceUID + "|" + (f.Path.empty() ? "-" : "+"));
    return out;
  };
  std::vector<std::string> explicitLittle = listing("DICOMDIR");
  EXPECT_EQ(explicitLittle.size(), 31u);
  EXPECT_EQ(listing("DICOMDIR-bigEnd"), explicitLittle);
  EXPECT_EQ(listing("DICOMDIR-implicit"), explicitLittle);
  EXPECT_EQ(listing("DICOMDIR-reordered"), explicitLittle);
}

}  // namespace
