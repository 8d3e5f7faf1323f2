#include "kestrel/CStandardStorage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CUnknownStorage.h"
#include "kestrel/ModalityStorage.h"
#include "tests/storage/StorageTestSupport.h"

namespace {

using namespace storage_test;
using typed_test::HaveSamples;

template <class T>
std::function<bool(CStorage*)> Is() {
  return [](CStorage* storage) { return dynamic_cast<T*>(storage) != nullptr; };
}

std::string UIDOf(CStorage* storage) {
  std::string uid;
  storage->GetUID(uid);
  return uid;
}

// Every SOP class Load knows, a CT sample relabelled with it, and the class that must come out.
TEST(StandardStorageLoad, MakesTheClassOfEachSOPClass) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  struct Case {
    const char* sopClass;
    std::function<bool(CStorage*)> isExpected;
    const char* reportedUID;
  } cases[] = {
      {"1.2.840.10008.5.1.4.1.1.1", Is<CCRStorage>(), CCRStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.2", Is<CCTStorage>(), CCTStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.1.1", Is<CDXStorage>(), CDXStorage::kSOPClassUID},
      // For processing: handled by the class for presentation, which reports its own UID.
      {"1.2.840.10008.5.1.4.1.1.1.1.1", Is<CDXStorage>(), "1.2.840.10008.5.1.4.1.1.1.1"},
      {"1.2.840.10008.5.1.4.1.1.1.2", Is<CMGStorage>(), CMGStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.1.2.1", Is<CMGStorage>(), "1.2.840.10008.5.1.4.1.1.1.2"},
      {"1.2.840.10008.5.1.4.1.1.4", Is<CMRStorage>(), CMRStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.6", Is<CUSStorage>(), CUSStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.6.1", Is<CUSNStorage>(), CUSNStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.7", Is<CSCStorage>(), CSCStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.12.1", Is<CXAStorage>(), CXAStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.12.2", Is<CRFStorage>(), CRFStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.12.3", Is<CXABiStorage>(), CXABiStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.5", Is<CNMStorage>(), CNMStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.20", Is<CNMNStorage>(), CNMNStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.3", Is<CUSMStorage>(), CUSMStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.3.1", Is<CUSNMStorage>(), CUSNMStorage::kSOPClassUID},
      {"1.2.840.10008.5.1.4.1.1.128", Is<CPETStorage>(), CPETStorage::kSOPClassUID},
  };
  TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.sopClass);
    std::string path = dir.File(std::string(c.sopClass) + ".dcm");
    // Odd-length UIDs are padded with a zero byte, as a file holds them.
    std::string value = c.sopClass;
    if (value.size() % 2) value.push_back('\0');
    ASSERT_TRUE(
        WriteVariant("CT_small.dcm", {{0x0008, 0x0016, "UI", value.c_str(), value.size()}}, path));
    CStandardStorage standard;
    std::unique_ptr<CStorage> storage(standard.Load(path, nullptr, 0));
    ASSERT_NE(storage, nullptr);
    EXPECT_TRUE(c.isExpected(storage.get()));
    EXPECT_EQ(UIDOf(storage.get()), c.reportedUID);
    UID fileClass;
    standard.GetUID(fileClass);
    EXPECT_EQ(fileClass.ToString(), c.sopClass);
    // The instance itself is untouched: it still names the file's own class.
    std::string held;
    ASSERT_TRUE(storage->GetIOD()->GetSOPCommonModule()->SOPClassUID()->Get(held));
    EXPECT_EQ(held, c.sopClass);
    EXPECT_EQ(storage->Get(), storage->GetIOD());
  }
}

TEST(StandardStorageLoad, OtherSOPClassesAreLeftToUnknownStorage) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  TempDir dir;
  const char* rtDose = "1.2.840.10008.5.1.4.1.1.481.2";
  std::string path = dir.File("dose.dcm");
  ASSERT_TRUE(WriteVariant("CT_small.dcm", {{0x0008, 0x0016, "UI", rtDose}}, path));
  CStandardStorage standard;
  EXPECT_EQ(standard.Load(path, nullptr, 0), nullptr);
  UID seen;
  standard.GetUID(seen);
  EXPECT_EQ(seen.ToString(), rtDose);

  CUnknownStorage unknown;
  ASSERT_TRUE(unknown.Open(path));
  EXPECT_EQ(UIDOf(&unknown), rtDose);
  CUnknownStorage empty;
  EXPECT_EQ(UIDOf(&empty), "");
}

TEST(StandardStorageLoad, FilesWithoutPixelDataAreNoImages) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  TempDir dir;
  std::string path = dir.File("nopixels.dcm");
  ASSERT_TRUE(WriteVariant("CT_small.dcm", {{0x7FE0, 0x0010, "OW", nullptr}}, path));
  CStandardStorage standard;
  EXPECT_EQ(standard.Open(path), nullptr);
  EXPECT_EQ(standard.Load(path, nullptr, 0), nullptr);
  EXPECT_EQ(standard.Open(dir.File("missing.dcm")), nullptr);
  EXPECT_EQ(standard.Load(dir.File("missing.dcm"), nullptr, 0), nullptr);

  std::unique_ptr<DICOMDataObject> opened(standard.Open(typed_test::kSamples + "CT_small.dcm"));
  ASSERT_NE(opened, nullptr);
  EXPECT_NE(opened->Find(0x7FE0, 0x0010), nullptr);
}

// One CStandardStorage opening files one after the other: the flag is set by a "1" in Lossy
// Image Compression and never cleared.
TEST(StandardStorageLoad, LossyFlagIsSetAndStaysSet) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  TempDir dir;
  std::string big(1100, '1');
  struct Step {
    const char* label;
    const char* lossy;  // null: no element
    bool load;          // Load, else Open
    bool withPixels;
    bool expected;
  } steps[] = {
      {"00 is not lossy", "00", false, true, false},
      {"absent leaves it", nullptr, true, true, false},
      {"a value of 1024 bytes or more is not read", big.c_str(), false, true, false},
      {"01 is lossy", "01", false, true, true},
      {"00 does not clear it", "00", true, true, true},
      {"absent does not clear it", nullptr, false, true, true},
  };
  CStandardStorage standard;
  int n = 0;
  for (const Step& step : steps) {
    SCOPED_TRACE(step.label);
    std::string path = dir.File("lossy" + std::to_string(n++) + ".dcm");
    std::vector<Edit> edits = {{0x0028, 0x2110, "CS", step.lossy}};
    ASSERT_TRUE(WriteVariant("CT_small.dcm", edits, path));
    if (step.load)
      delete standard.Load(path, nullptr, 0);
    else
      delete standard.Open(path);
    EXPECT_EQ(standard.IsImageLossy(), step.expected);
  }

  // Load reads the flag before it looks for pixel data.
  std::string path = dir.File("lossy_nopixels.dcm");
  ASSERT_TRUE(WriteVariant("CT_small.dcm",
                           {{0x0028, 0x2110, "CS", "01"}, {0x7FE0, 0x0010, "OW", nullptr}}, path));
  CStandardStorage fresh;
  EXPECT_EQ(fresh.Load(path, nullptr, 0), nullptr);
  EXPECT_TRUE(fresh.IsImageLossy());

  CStandardStorage sample;
  delete sample.Load(typed_test::kSamples + "JPEG-lossy.dcm", nullptr, 0);
  EXPECT_TRUE(sample.IsImageLossy());
}

TEST(StandardStorageLoad, CopiesTheTransferSyntaxIntoTheCallersBuffer) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  const std::string file = typed_test::kSamples + "CT_small.dcm";  // explicit VR little endian
  const std::string syntax = "1.2.840.10008.1.2.1";
  struct Case {
    int length;
    std::string expected;  // the buffer's first length + 1 bytes afterwards
  } cases[] = {
      {64, syntax + '\0'},
      {20, syntax + '\0'},
      {19, syntax + '#'},  // fills the buffer: no terminator, the next byte untouched
      {5, "1.2.8#"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.length);
    std::vector<char> buffer(80, '#');
    CStandardStorage standard;
    std::unique_ptr<CStorage> storage(standard.Load(file, buffer.data(), c.length));
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(std::string(buffer.data(), c.expected.size()), c.expected);
  }
  CStandardStorage standard;
  std::unique_ptr<CStorage> storage(standard.Load(file, nullptr, 64));
  EXPECT_NE(storage, nullptr);
}

TEST(StandardStorageLoad, PixelDataLength) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  CStandardStorage standard;
  delete standard.Open(typed_test::kSamples + "CT_small.dcm");
  EXPECT_EQ(standard.GetPixelDataLength(), 128u * 128u * 2u);
  // Encapsulated pixel data has no value length: Load keeps the last one, Open takes the 0.
  delete standard.Load(typed_test::kSamples + "JPEG-lossy.dcm", nullptr, 0);
  EXPECT_EQ(standard.GetPixelDataLength(), 128u * 128u * 2u);
  delete standard.Open(typed_test::kSamples + "JPEG-lossy.dcm");
  EXPECT_EQ(standard.GetPixelDataLength(), 0u);
  delete standard.Load(typed_test::kSamples + "MR_small.dcm", nullptr, 0);
  EXPECT_EQ(standard.GetPixelDataLength(), 64u * 64u * 2u);
}

TEST(StandardStorageLoad, LoadedInstanceIsTheWholeFile) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  for (const char* file : {"CT_small.dcm", "MR_small.dcm", "ExplVR_BigEnd.dcm",
                           "SC_rgb_small_odd.dcm", "JPEG-lossy.dcm"}) {
    SCOPED_TRACE(file);
    CStandardStorage standard;
    std::unique_ptr<CStorage> storage(standard.Load(typed_test::kSamples + file, nullptr, 0));
    ASSERT_NE(storage, nullptr);
    DICOMDataObject written;
    ASSERT_TRUE(storage->GetIOD()->WriteTo(&written));
    std::unique_ptr<DICOMDataObject> original = typed_test::LoadSample(file);
    EXPECT_EQ(typed_test::Describe(&written), typed_test::Describe(original.get()));
    EXPECT_EQ(typed_test::VRMismatches(original.get(), &written), "");
  }
}

// Every UN element of a data set with an even (standard) group, at any depth.
int StandardUNElements(DICOMObject* object) {
  int count = 0;
  (void)KESTREL::typed_copy::ForEachElement(object, [&](VR* element) {
    if (!(element->Group & 1) && element->TypeCode == MakeTypeCode('U', 'N')) ++count;
    if (element->SequenceItems)
      for (uint32_t i = 0; i < element->SequenceItems->GetSize(); ++i)
        count += StandardUNElements(element->SequenceItems->Get(i));
  });
  return count;
}

// A library user who loads an implicit VR file and saves it in explicit VR gets every VR, as
// the tool does: no dictionary needs attaching.
TEST(StandardStorageLoad, ImplicitFileSavedExplicitKeepsItsVRs) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  TempDir dir;
  std::unique_ptr<DICOMDataObject> sample = typed_test::LoadSample("CT_small.dcm");
  DICOMCodec codec;
  ASSERT_TRUE(
      codec.SaveFile(dir.File("implicit.dcm").c_str(), 3, sample.get(), "1.2.840.10008.1.2"));
  CStandardStorage standard;
  std::unique_ptr<CStorage> storage(standard.Load(dir.File("implicit.dcm"), nullptr, 0));
  ASSERT_NE(storage, nullptr);
  ASSERT_TRUE(
      codec.SaveFile(dir.File("explicit.dcm").c_str(), 3, storage->Get(), "1.2.840.10008.1.2.1"));
  std::unique_ptr<DICOMDataObject> saved(codec.LoadFile(dir.File("explicit.dcm").c_str()));
  ASSERT_NE(saved, nullptr);
  EXPECT_EQ(StandardUNElements(saved.get()), 0);
  VR* padding = saved->Find(0x0028, 0x0120);  // Pixel Representation is 1
  ASSERT_NE(padding, nullptr);
  EXPECT_EQ(padding->TypeCode, MakeTypeCode('S', 'S'));
  VR* otherIDs = saved->Find(0x0010, 0x1002);
  ASSERT_NE(otherIDs, nullptr);
  EXPECT_EQ(otherIDs->TypeCode, MakeTypeCode('S', 'Q'));
  ASSERT_NE(otherIDs->SequenceItems, nullptr);
  EXPECT_EQ(otherIDs->SequenceItems->GetSize(), 2u);
}

TEST(StandardStorageUID, SetUIDForms) {
  CStandardStorage standard;
  UID uid;
  EXPECT_TRUE(standard.SetUID(UID("1.2.3")));
  standard.GetUID(uid);
  EXPECT_EQ(uid.ToString(), "1.2.3");

  VR padded(0x0008, 0x0016, 6, true);
  std::memcpy(padded.Data, "1.2.3\0", 6);
  EXPECT_TRUE(standard.SetUID(&padded));
  standard.GetUID(uid);
  EXPECT_EQ(uid.ToString(), "1.2.3");

  DICOMDataObject withoutClass;
  EXPECT_FALSE(standard.SetUID(&withoutClass));
  standard.GetUID(uid);
  EXPECT_TRUE(uid.IsEmpty());
}

TEST(StandardStorageUID, CreateSCStorageMakesAnEmptySecondaryCapture) {
  std::unique_ptr<CSCStorage> sc(CStandardStorage::CreateSCStorage());
  ASSERT_NE(sc, nullptr);
  UID uid;
  EXPECT_EQ(sc->GetUID(uid), 1);
  EXPECT_EQ(uid.ToString(), "1.2.840.10008.5.1.4.1.1.7");
  DICOMDataObject written;
  ASSERT_TRUE(sc->WriteTo(&written));
  EXPECT_TRUE(typed_test::Sorted(&written).empty());
}

}  // namespace
