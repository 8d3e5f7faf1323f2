#include "kestrel/CStorage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kestrel/CStandardStorage.h"
#include "kestrel/ModalityStorage.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"
#include "tests/storage/StorageTestSupport.h"

namespace {

using typed_test::HaveSamples;

std::string Text(VR_XXMULTISTRING* element) {
  std::string out;
  if (!element->Get(out)) return "<none>";
  return out;
}

std::string Raw(const VR* element) {
  if (!element->Data) return "<null>";
  return std::string(static_cast<const char*>(element->Data), element->Length);
}

TEST(StorageText, SQLStringFormatDoublesQuotes) {
  struct Case {
    std::string in, out;
  } cases[] = {
      {"O'BRIEN", "O''BRIEN"}, {"DOE", "DOE"},          {"", ""},         {"'", "''"},
      {"''", "''''"},          {"A'B'C'", "A''B''C''"}, {"x\"y", "x\"y"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.in);
    std::string text = c.in;
    CStorage::SQLStringFormat(text);
    EXPECT_EQ(text, c.out);
  }
}

TEST(StorageText, IsSUIDValidAcceptsOnlyWellFormedUIDs) {
  struct Case {
    std::string uid;
    bool valid;
  } cases[] = {
      {"1.2.840.10008.5.1.4.1.1.2", true},
      {"1", true},
      {"0.0", true},
      {std::string(64, '1'), true},
      {std::string(65, '1'), false},
      {"", false},
      // Names that would leave the study directory, or stand for it.
      {"..", false},
      {".", false},
      {"../../etc/passwd", false},
      {"1.2/../3", false},
      {"/1.2.3", false},
      {"1.2.3\\4", false},
      {"1..2", false},
      {".1.2", false},
      {"1.2.", false},
      // Padding and other characters.
      {"1.2.3 ", false},
      {std::string("1.2.3\0", 6), false},
      {"1.2.a", false},
      {"1,2", false},
      {"-1.2", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("\"" + c.uid + "\"");
    std::string uid = c.uid;
    EXPECT_EQ(CStorage::IsSUIDValid(uid), c.valid);
  }
}

TEST(StorageSetters, WindowWidthAndCenterAreRounded) {
  CCTStorage ct;
  ASSERT_TRUE(ct.SetWindowWidthCenter(399.6f, 40.2f));
  CO_VOILUTModule* voi = ct.GetVOILUTModule();
  EXPECT_EQ(Raw(voi->WindowWidth()), "400");
  EXPECT_EQ(Raw(voi->WindowCenter()), "40");
  // Only the first window changes.
  ASSERT_TRUE(voi->WindowCenter()->Set("100\\200"));
  ASSERT_TRUE(ct.SetWindowWidthCenter(1500.0f, -600.4f));
  EXPECT_EQ(Raw(voi->WindowCenter()), "-600\\200");
  EXPECT_EQ(Raw(voi->WindowWidth()), "1500");
}

TEST(StorageSetters, TextGoesThroughEachVRsRules) {
  CMRStorage mr;
  ASSERT_TRUE(mr.SetPatientModule("Doe^John", "ID1", "1970.01.02", "M", nullptr, "101500 ",
                                  "ALT1\\ALT2", "", nullptr, "comment"));
  CO_PatientModule* patient = mr.GetPatientModule();
  EXPECT_EQ(Raw(patient->PatientBirthDate()), "19700102");  // DA drops the dots
  EXPECT_EQ(Text(patient->PatientBirthTime()), "101500");
  EXPECT_EQ(patient->OtherPatientIDs()->GetCount(), 2u);
  // "" is present and empty; null leaves absent.
  EXPECT_TRUE(patient->OtherPatientNames()->HasValue());
  EXPECT_EQ(patient->OtherPatientNames()->Length, 0u);
  EXPECT_FALSE(patient->EthnicGroup()->HasValue());
  EXPECT_EQ(Raw(patient->PatientComments()), "comment");

  ASSERT_TRUE(mr.SetSOPCommonModule("1.2.840.10008.5.1.4.1.1.4", "1.2.3 ", nullptr, nullptr,
                                    nullptr, nullptr));
  // UI values are padded with a zero byte, not a blank.
  EXPECT_EQ(Raw(mr.GetSOPCommonModule()->SOPInstanceUID()), std::string("1.2.3\0", 6));
  ASSERT_TRUE(mr.SetPatientStudyModule(nullptr, "45Y", "1.8", "80", nullptr, nullptr));
  EXPECT_EQ(Raw(mr.GetPatientStudyModule()->PatientAge()), "45Y ");

  // A second call replaces whole values and leaves what it is not given.
  ASSERT_TRUE(mr.SetPatientModule("Roe^Jane", nullptr, nullptr, nullptr, nullptr, nullptr, "ONLY",
                                  nullptr, nullptr, nullptr));
  EXPECT_EQ(Text(patient->PatientName()), "Roe^Jane");
  EXPECT_EQ(Text(patient->PatientID()), "ID1");
  EXPECT_EQ(patient->OtherPatientIDs()->GetCount(), 1u);
}

TEST(StorageSetters, SequencesAreCopied) {
  CCTStorage ct;
  Array<DICOMDataObject*> items;
  auto first = std::make_unique<DICOMDataObject>();
  first->Push(new VR(0x0008, 0x1150, 4, true));
  std::memcpy(first->Find(0x0008, 0x1150)->Data, "1.2\0", 4);
  auto second = std::make_unique<DICOMDataObject>();
  items.Add(first.get());
  items.Add(second.get());
  ASSERT_TRUE(ct.SetGeneralStudyModule("1.2.3", "20240102", "1200", "Ref^Doc", "S1", "A1", "Head",
                                       "Read^Doc", &items));
  VR_SQ* sequence = ct.GetGeneralStudyModule()->ReferencedStudySequence();
  ASSERT_NE(sequence->SequenceItems, nullptr);
  ASSERT_EQ(sequence->SequenceItems->GetSize(), 2u);
  EXPECT_NE(sequence->SequenceItems->Get(0), first.get());
  VR* copied = sequence->SequenceItems->Get(0)->Find(0x0008, 0x1150);
  ASSERT_NE(copied, nullptr);
  EXPECT_EQ(Raw(copied), std::string("1.2\0", 4));
  // The caller's items are untouched and still the caller's.
  EXPECT_NE(first->Find(0x0008, 0x1150), nullptr);

  Array<DICOMDataObject*> none;
  ASSERT_TRUE(ct.SetGeneralImageModule(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, &none, nullptr, nullptr, nullptr,
                                       nullptr));
  VR_SQ* empty = ct.GetGeneralImageModule()->ReferencedImageSequence();
  EXPECT_TRUE(empty->HasValue());  // an empty sequence, written as such
  DICOMDataObject written;
  ASSERT_TRUE(ct.WriteTo(&written));
  EXPECT_NE(written.Find(0x0008, 0x1140), nullptr);
}

TEST(StorageSetters, SeriesAndEquipmentBinaryValues) {
  CCTStorage ct;
  int16_t smallest = -1024, largest = 3071, padding = -2000;
  ASSERT_TRUE(ct.SetGeneralSeriesModule("CT", "1.2.3.4", "5", nullptr, "20240101", "120000",
                                        nullptr, "Chest", "Series", "Op^Erator", nullptr, "CHEST",
                                        "HFS", &smallest, &largest));
  ASSERT_TRUE(ct.SetGeneralEquipmentModule("Maker", nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, nullptr, nullptr, nullptr, &padding));
  int16_t back = 0;
  ASSERT_TRUE(ct.GetGeneralSeriesModule()->SmallestPixelValueInSeries()->Get(&back));
  EXPECT_EQ(back, -1024);
  ASSERT_TRUE(ct.GetGeneralSeriesModule()->LargestPixelValueInSeries()->Get(&back));
  EXPECT_EQ(back, 3071);
  ASSERT_TRUE(ct.GetGeneralEquipmentModule()->PixelPaddingValue()->Get(&back));
  EXPECT_EQ(back, -2000);
  EXPECT_EQ(Text(ct.GetGeneralSeriesModule()->Modality()), "CT");
  EXPECT_EQ(Text(ct.GetGeneralSeriesModule()->PatientPosition()), "HFS");
}

TEST(StorageSetters, ImagePixelWorksOutThePixelDataLength) {
  struct Case {
    const char* label;
    uint16_t rows, columns, samples, bitsAllocated;
    uint32_t length;
    const char* vr;
  } cases[] = {
      {"8-bit", 2, 3, 1, 8, 6, "OB"},
      {"16-bit", 2, 3, 1, 16, 12, "OW"},
      {"odd count padded", 3, 3, 1, 8, 10, "OB"},
      {"colour", 2, 2, 3, 8, 12, "OB"},
      {"1-bit", 3, 5, 1, 1, 2, "OB"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    CSCStorage sc;
    std::vector<unsigned char> pixels(64);
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<unsigned char>(i + 1);
    uint16_t stored = c.bitsAllocated, high = c.bitsAllocated - 1, representation = 0;
    ASSERT_TRUE(sc.SetImagePixelModule(&c.samples, "MONOCHROME2", &c.rows, &c.columns,
                                       &c.bitsAllocated, &stored, &high, &representation,
                                       pixels.data(), nullptr, "1", "2"));
    VR_OX* data = sc.GetImagePixelModule()->PixelData();
    EXPECT_EQ(data->Length, c.length);
    EXPECT_EQ(typed_test::VRText(data->TypeCode), c.vr);
    uint32_t given = (uint32_t(c.rows) * c.columns * c.samples * c.bitsAllocated + 7) / 8;
    EXPECT_EQ(std::memcmp(data->Data, pixels.data(), given), 0);
    if (given < c.length) {
      EXPECT_EQ(static_cast<const char*>(data->Data)[given], 0);
    }
    EXPECT_EQ(sc.PixelData(), data->Data);
    EXPECT_EQ(Raw(sc.GetImagePixelModule()->PixelAspectRatio()), "1\\2");
  }
}

TEST(StorageSetters, ImagePixelRefusals) {
  CSCStorage sc;
  unsigned char pixels[4] = {};
  uint16_t rows = 2;
  // Columns, samples and bits are missing: the length cannot be worked out.
  EXPECT_FALSE(sc.SetImagePixelModule(nullptr, nullptr, &rows, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, pixels, nullptr, nullptr, nullptr));
  EXPECT_FALSE(sc.GetImagePixelModule()->PixelData()->HasValue());
  EXPECT_TRUE(sc.GetImagePixelModule()->Rows()->HasValue());  // the rest was set
  // One value of the aspect ratio alone is refused.
  EXPECT_FALSE(sc.SetImagePixelModule(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr, "1", nullptr));
  EXPECT_FALSE(sc.GetImagePixelModule()->PixelAspectRatio()->HasValue());
}

TEST(StorageSetters, PixelDataPointerOutlivesReplacement) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  CStandardStorage standard;
  std::unique_ptr<CStorage> storage(
      standard.Load(typed_test::kSamples + "CT_small.dcm", nullptr, 0));
  ASSERT_NE(storage, nullptr);
  const auto* before = static_cast<const unsigned char*>(storage->PixelData());
  ASSERT_NE(before, nullptr);
  std::vector<unsigned char> saved(before, before + 64);
  std::vector<unsigned char> replacement(128 * 128 * 2, 0x55);
  ASSERT_TRUE(storage->SetImagePixelModule(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, replacement.data(), nullptr, nullptr,
                                           nullptr));
  EXPECT_NE(storage->PixelData(), before);
  EXPECT_EQ(static_cast<const unsigned char*>(storage->PixelData())[0], 0x55);
  // The sanitizer build fails here if the old buffer was freed.
  EXPECT_EQ(std::vector<unsigned char>(before, before + 64), saved);
  EXPECT_TRUE(storage->GetIOD()->GetDatabase()->Holds(before));
}

TEST(StorageSetters, ImagePlaneOfClassesWithoutOne) {
  CXAStorage xa;
  CO_ImagePlaneModule* plane = xa.GetImagePlaneModule();
  ASSERT_NE(plane, nullptr);
  EXPECT_NE(xa.GetFrameOfReferenceModule(), nullptr);
  ASSERT_TRUE(xa.SetImagePlaneModule("0.5\\0.5", "1\\0\\0\\0\\1\\0"));
  EXPECT_EQ(Text(plane->PixelSpacing()), "0.5");
  // It is part of the instance: written out with it.
  DICOMDataObject written;
  ASSERT_TRUE(xa.WriteTo(&written));
  EXPECT_NE(written.Find(0x0028, 0x0030), nullptr);
  EXPECT_NE(written.Find(0x0020, 0x0037), nullptr);

  CCTStorage ct;  // a class with its own: the same module either way
  EXPECT_EQ(ct.GetImagePlaneModule(), ct.CStorage::GetImagePlaneModule());
}

TEST(StorageSetters, ModalitySetters) {
  CSCStorage sc;
  ASSERT_TRUE(sc.SetSCImageModule("2024.03.04", "101010"));
  ASSERT_TRUE(
      sc.SetSCEquipmentModule("WSD", "OT", "DEV1", "Maker", "Model", "1.0", nullptr, nullptr));
  EXPECT_EQ(Raw(sc.GetSCImageModule()->DateOfSecondaryCapture()), "20240304");
  EXPECT_EQ(Text(sc.GetSCEquipmentModule()->ConversionType()), "WSD");
  EXPECT_EQ(Text(sc.GetGeneralSeriesModule()->Modality()), "OT");  // one attribute, two modules

  CDXStorage dx;
  int16_t sign = -1;
  ASSERT_TRUE(dx.SetDXImageModule("ORIGINAL\\PRIMARY", "LOG", &sign, "0", "1", "US", "IDENTITY",
                                  "00", nullptr, nullptr, "A\\F", "NO"));
  CO_DXImageModule* image = dx.GetDXImageModule();
  int16_t back = 0;
  ASSERT_TRUE(image->PixelIntensityRelationshipSign()->Get(&back));
  EXPECT_EQ(back, -1);
  EXPECT_EQ(image->ImageType()->GetCount(), 2u);
  EXPECT_EQ(Text(dx.GetGeneralImageModule()->ImageType()), "ORIGINAL");
}

TEST(StorageInstance, OpenSetAndGet) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  CMRStorage mr;
  ASSERT_TRUE(mr.Open(typed_test::kSamples + "MR_small.dcm"));
  std::string uid;
  ASSERT_TRUE(mr.GetUID(uid));
  EXPECT_EQ(uid, "1.2.840.10008.5.1.4.1.1.4");
  EXPECT_NE(mr.PixelData(), nullptr);
  EXPECT_FALSE(mr.Open(typed_test::kSamples + "does_not_exist.dcm"));

  // Set copies: the caller's object is left as it was and stays the caller's.
  std::unique_ptr<DICOMDataObject> source = typed_test::LoadSample("CT_small.dcm");
  std::string before = typed_test::Describe(source.get());
  ASSERT_TRUE(mr.Set(source.get()));
  EXPECT_EQ(typed_test::Describe(source.get()), before);
  DICOMDataObject written;
  ASSERT_TRUE(mr.GetIOD()->WriteTo(&written));
  EXPECT_EQ(typed_test::Describe(&written), before);
  EXPECT_FALSE(mr.Set(nullptr));

  // Get is the instance itself: popping it empties the storage object.
  DICOMDataObject* instance = mr.Get();
  ASSERT_EQ(instance, static_cast<DICOMDataObject*>(mr.GetIOD()));
  uint32_t popped = 0;
  while (VR* element = instance->Pop()) {
    delete element;
    ++popped;
  }
  EXPECT_GT(popped, 100u);
  EXPECT_EQ(mr.PixelData(), nullptr);
}

}  // namespace
