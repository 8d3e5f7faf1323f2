// Saving instances into the image store: the study/series/instance layout, the rejected-object
// area, the texts of each failure, the log lines for missing values, and UIDs that would lead
// out of the store.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CDatabase.h"
#include "kestrel/CStandardStorage.h"
#include "kestrel/CStorage.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/Status.h"
#include "tests/TestValues.h"
#include "tests/frame/FrameTestSupport.h"
#include "tests/storage/StorageTestSupport.h"

namespace {

namespace fs = std::filesystem;
using storage_test::Edit;

class StorageSaveTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!typed_test::HaveSamples()) GTEST_SKIP() << "pydicom's sample files are not installed";
    root_ = dir_.File("store");
    storage_.reset(CStandardStorage::CreateStorage(UID("1.2.840.10008.5.1.4.1.1.2")));
    storage_->SetRoot(root_);
  }

  // CT_small with the UIDs (and other elements) changed; null values remove the element.
  std::unique_ptr<DICOMDataObject> Variant(const std::vector<Edit>& edits) {
    const std::string path = dir_.File("variant" + std::to_string(++made_) + ".dcm");
    if (!storage_test::WriteVariant("CT_small.dcm", edits, path)) return nullptr;
    DICOMCodec codec;
    return std::unique_ptr<DICOMDataObject>(codec.LoadFile(path.c_str()));
  }
  static std::vector<Edit> Named(const char* study, const char* series, const char* sop) {
    return {
        {0x0020, 0x000D, "UI", study}, {0x0020, 0x000E, "UI", series}, {0x0008, 0x0018, "UI", sop}};
  }
  // Every file below `top`, relative to it.
  static std::vector<std::string> FilesBelow(const std::string& top) {
    std::vector<std::string> found;
    for (auto& entry : fs::recursive_directory_iterator(top))
      if (entry.is_regular_file()) found.push_back(fs::relative(entry.path(), top).string());
    std::sort(found.begin(), found.end());
    return found;
  }

  kestrel_test::TempDir dir_;
  std::string root_;
  std::unique_ptr<CStorage> storage_;
  int made_ = 0;
};

TEST_F(StorageSaveTest, InstancesGoUnderTheirStudyAndSeries) {
  // A trailing blank is no part of a name; two instances of a series share its directory.
  struct Case {
    std::vector<Edit> edits;
    std::string expected;
  } cases[] = {
      {Named("1.2.3 ", "1.2.3.4", "1.2.3.4.5"), "1.2.3/1.2.3.4/1.2.3.4.5.dcm"},
      {Named("1.2.3", "1.2.3.4", "1.2.3.4.6"), "1.2.3/1.2.3.4/1.2.3.4.6.dcm"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    auto object = Variant(c.edits);
    ASSERT_TRUE(object);
    std::string path;
    ASSERT_TRUE(storage_->Save(object.get(), path, "1.2.840.10008.1.2.1"))
        << KESTREL::GetLastErrorText();
    EXPECT_EQ(path, root_ + "/" + c.expected);
    DICOMCodec codec;
    std::unique_ptr<DICOMDataObject> back(codec.LoadFile(path.c_str()));
    ASSERT_TRUE(back);
    EXPECT_EQ(TextOf(back.get(), 0x0002, 0x0010), "1.2.840.10008.1.2.1");
  }
  auto rejected = Variant(Named("1.2.3", "1.2.3.9", "1.2.3.9.1"));
  ASSERT_TRUE(storage_->RejectSave(rejected.get(), nullptr));
  EXPECT_EQ(FilesBelow(root_),
            (std::vector<std::string>{"1.2.3/1.2.3.4/1.2.3.4.5.dcm", "1.2.3/1.2.3.4/1.2.3.4.6.dcm",
                                      "RejSave/1.2.3/1.2.3.9/1.2.3.9.1.dcm"}));
}

TEST_F(StorageSaveTest, TheOwnInstanceIsKeptOrReplacedAsAsked) {
  auto object = Variant(Named("7.1", "7.1.1", "7.1.1.1"));
  ASSERT_TRUE(storage_->Set(object.get()));
  const std::string file = root_ + "/7.1/7.1.1/7.1.1.1.dcm";
  fs::create_directories(root_ + "/7.1/7.1.1");
  kestrel_test::WriteWholeFile(file, "already here");
  EXPECT_TRUE(storage_->Save(0));
  EXPECT_EQ(kestrel_test::ReadWholeFile(file), "already here");
  EXPECT_TRUE(storage_->Save(1));
  EXPECT_NE(kestrel_test::ReadWholeFile(file), "already here");
  EXPECT_TRUE(storage_->SaveAs(dir_.File("copy.dcm")));
  EXPECT_TRUE(fs::file_size(dir_.File("copy.dcm")) > 1000);
}

TEST_F(StorageSaveTest, FailuresSayWhatCouldNotBeMadeAndLeaveNothing) {
  const std::string blocked = dir_.File("a-file");
  kestrel_test::WriteWholeFile(blocked, "x");
  struct Case {
    const char* what;
    std::string root;
    std::vector<Edit> edits;
    std::string text;
  } cases[] = {
      {"a UID leading out", root_, Named("1.2", "..", "1.2.3"),
       "KESTREL.dll : CStorage::Save(DDO) : Invalid UID .."},
      {"a UID with a slash", root_, Named("1.2", "1.2.3", "../../../etc/x"),
       "KESTREL.dll : CStorage::Save(DDO) : Invalid UID ../../../etc/x"},
      {"a root under a file", blocked + "/store", Named("1.2", "1.2.3", "1.2.3.4"),
       "KESTREL.dll : CStorage::Save(DDO) : Could not create directory " + blocked},
      {"no root", "", Named("1.2", "1.2.3", "1.2.3.4"),
       "KESTREL.dll : CStorage::Save(DDO) : Could not create directory /1.2"},
      {"a directory where the file goes", root_, Named("8.1", "8.1.1", "8.1.1.1"),
       "KESTREL.dll : CStorage::Save(DDO) : Could not create image file " + root_ +
           "/8.1/8.1.1/8.1.1.1.dcm"},
  };
  fs::create_directories(root_ + "/8.1/8.1.1/8.1.1.1.dcm");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    storage_->SetRoot(c.root);
    auto object = Variant(c.edits);
    ASSERT_TRUE(object);
    EXPECT_FALSE(storage_->Save(object.get(), nullptr));
    EXPECT_EQ(KESTREL::GetLastErrorText(), c.text);
  }
  EXPECT_EQ(FilesBelow(dir_.path()).size(), 1u + made_);  // the file, the variants made
  storage_->SetRoot(blocked);
  EXPECT_FALSE(storage_->Save(1));
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "KESTREL.dll : CStorage::Save(BOOL) : Could not create directory " + blocked);
  auto object = Variant(Named("1.2", "1.2.3", "1.2.3.4"));
  EXPECT_FALSE(storage_->SaveAs(blocked + "/x.dcm", object.get(), nullptr));
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "KESTREL.dll : CStorage::SaveAs(CString, DICOMDataObject *, char *) : Unable to save "
            "DICOM object to " +
                blocked + "/x.dcm");
  EXPECT_FALSE(storage_->SaveAs(blocked + "/x.dcm"));
  EXPECT_EQ(KESTREL::GetLastErrorText(),
            "KESTREL.dll : CStorage::SaveAs(CString) : Unable to save DICOM object to " + blocked +
                "/x.dcm");
}

TEST_F(StorageSaveTest, MissingValuesAreLoggedAndSavingGoesOn) {
  kestrel_test::TempDir logDir;
  kestrel_test::ScopedSettings settings(dir_,
                                        kestrel_test::ScopedSettings::WithLogDir(logDir.path()));
  std::vector<Edit> edits = Named("9.1", "", "9.1.1.1");
  edits.push_back({0x0008, 0x0020, "DA", nullptr});
  auto object = Variant(edits);
  std::string path;
  ASSERT_TRUE(storage_->Save(object.get(), path, nullptr));
  EXPECT_EQ(path, root_ + "/9.1//9.1.1.1.dcm");  // the empty series name, as the layout says
  auto rejected = Variant(edits);
  ASSERT_TRUE(storage_->RejectSave(rejected.get(), nullptr));
  std::string log = kestrel_test::ReadWholeFile(logDir.File("kestrel.log"));
  for (const char* line : {"CStorage::Save(pDDO, pszTransferSyntaxUID): SeriesInstanceUID "
                           "vr->Data = NULL",
                           "CStorage::Save(pDDO, pszTransferSyntaxUID): StudyDate vr = NULL",
                           "CStorage::RejectSave: SeriesInstanceUID vr->Data = NULL",
                           "CStorage::RejectSave: StudyDate vr = NULL"})
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
}

}  // namespace
