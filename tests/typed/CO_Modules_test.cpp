#include "kestrel/CO_Modules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <typeinfo>

#include "kestrel/ByteBuffer.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/RTC.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"
#include "tests/TestPaths.h"
#include "tests/typed/TypedTestSupport.h"

namespace {

using namespace typed_test;
using MakeModule = std::function<CO_Abstract*()>;

template <class T>
MakeModule M() {
  return [] { return new T(); };
}

const std::pair<const char*, MakeModule> kModules[] = {
    {"Patient", M<CO_PatientModule>()},
    {"PatientStudy", M<CO_PatientStudyModule>()},
    {"GeneralStudy", M<CO_GeneralStudyModule>()},
    {"GeneralSeries", M<CO_GeneralSeriesModule>()},
    {"GeneralEquipment", M<CO_GeneralEquipmentModule>()},
    {"GeneralImage", M<CO_GeneralImageModule>()},
    {"ImagePixel", M<CO_ImagePixelModule>()},
    {"SOPCommon", M<CO_SOPCommonModule>()},
    {"VOILUT", M<CO_VOILUTModule>()},
    {"ImagePlane", M<CO_ImagePlaneModule>()},
    {"FrameOfReference", M<CO_FrameOfReferenceModule>()},
    {"CRSeries", M<CO_CRSeriesModule>()},
    {"CRImage", M<CO_CRImageModule>()},
    {"DXImage", M<CO_DXImageModule>()},
    {"CTImage", M<CO_CTImageModule>()},
    {"ContrastBolus", M<CO_ContrastBolusModule>()},
    {"MRImage", M<CO_MRImageModule>()},
    {"NMImage", M<CO_NMImageModule>()},
    {"NMSeries", M<CO_NMSeriesModule>()},
    {"Multiframe", M<CO_MultiframeModule>()},
    {"PETSeries", M<CO_PETSeriesModule>()},
    {"PETImage", M<CO_PETImageModule>()},
    {"RFImage", M<CO_RFImageModule>()},
    {"SCImage", M<CO_SCImageModule>()},
    {"SCEquipment", M<CO_SCEquipmentModule>()},
    {"ModalityLUT", M<CO_ModalityLUTModule>()},
    {"USImage", M<CO_USImageModule>()},
    {"Printer", M<CO_PrinterModule>()},
};

const std::pair<const char*, MakeModule> kIODs[] = {
    {"CR", M<CRImageIODModule>()},           {"CT", M<CTImageIODModule>()},
    {"DX", M<DXImageIODModule>()},           {"DXR", M<DXRImageIODModule>()},
    {"MG", M<MGImageIODModule>()},           {"MGR", M<MGRImageIODModule>()},
    {"MR", M<MRImageIODModule>()},           {"NM", M<NMImageIODModule>()},
    {"NMN", M<NMNImageIODModule>()},         {"PET", M<PETImageIODModule>()},
    {"RF", M<RFImageIODModule>()},           {"SC", M<SCImageIODModule>()},
    {"US", M<USImageIODModule>()},           {"USN", M<USNImageIODModule>()},
    {"USM", M<USMImageIODModule>()},         {"USNM", M<USNMImageIODModule>()},
    {"XA", M<XAImageIODModule>()},           {"XABi", M<XABiImageIODModule>()},
    {"Generic", M<GenericImageIODModule>()},
};

// Sample files and how many module attributes each must at least hand back: a floor that keeps
// the round trip from passing on files the modules do not read at all.
const std::pair<const char*, int> kFiles[] = {
    {"CT_small.dcm", 60},           {"MR_small.dcm", 40},      {"MR_small_implicit.dcm", 40},
    {"MR_small_bigendian.dcm", 40}, {"ExplVR_BigEnd.dcm", 20}, {"SC_rgb_small_odd.dcm", 20},
    {"JPEG-lossy.dcm", 40},         {"liver_1frame.dcm", 20},  {"rtdose.dcm", 20},
};

std::set<uint32_t> AttributeTags(CO_Abstract* module) {
  std::set<uint32_t> tags;
  for (uint32_t i = 0; i < module->GetAttributeCount(); ++i) {
    const CO_AttributeInfo& info = module->GetAttributeInfo(i);
    tags.insert((uint32_t{info.Group} << 16) | info.Element);
  }
  return tags;
}

TEST(ModuleTables, AgreeWithTheDataDictionary) {
  RTC dictionary(true, (TestSourceDir() + "/data/dicom.dic").c_str());
  ASSERT_NE(dictionary.GetTable(), nullptr);
  std::map<uint32_t, const std::type_info*> classOfTag;
  std::set<std::string> names;
  for (const auto& [label, make] : kModules) {
    SCOPED_TRACE(label);
    std::unique_ptr<CO_Abstract> module(make());
    EXPECT_TRUE(names.insert(module->GetName()).second);
    ASSERT_GT(module->GetAttributeCount(), 0u);
    std::set<uint32_t> seen;
    for (uint32_t i = 0; i < module->GetAttributeCount(); ++i) {
      const CO_AttributeInfo& info = module->GetAttributeInfo(i);
      VR_XXTYPED* element = module->GetAttributeAt(i);
      SCOPED_TRACE(info.Keyword);
      uint32_t tag = (uint32_t{info.Group} << 16) | info.Element;
      EXPECT_TRUE(seen.insert(tag).second) << "listed twice";
      std::string keyword;
      EXPECT_EQ(VRText(dictionary.GetTypeCode(info.Group, info.Element, &keyword)),
                VRText(info.TypeCode));
      EXPECT_EQ(keyword, info.Keyword);
      EXPECT_EQ(element->Group, info.Group);
      EXPECT_EQ(element->Element, info.Element);
      EXPECT_EQ(VRText(element->TypeCode), VRText(info.TypeCode));
      EXPECT_EQ(element->Database, module->GetDatabase());
      EXPECT_EQ(module->GetAttribute(info.Group, info.Element), element);
      // An attribute in several modules must be held by the same class everywhere, or an
      // IOD could not share it between them.
      auto [where, added] = classOfTag.emplace(tag, &typeid(*element));
      if (!added) {
        EXPECT_EQ(*where->second, typeid(*element));
      }
    }
  }
}

TEST(Modules, RoundTripSampleFiles) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  for (const auto& [file, floor] : kFiles) {
    SCOPED_TRACE(file);
    std::unique_ptr<DICOMDataObject> source = LoadSample(file);
    ASSERT_NE(source, nullptr);
    std::string before = Describe(source.get());
    int compared = 0;
    for (const auto& [label, make] : kModules) {
      SCOPED_TRACE(label);
      std::unique_ptr<CO_Abstract> module(make());
      ASSERT_TRUE(module->ReadFrom(source.get()));
      DICOMDataObject written;
      ASSERT_TRUE(module->WriteTo(&written));
      std::set<uint32_t> tags = AttributeTags(module.get());
      EXPECT_EQ(Describe(&written), Describe(source.get(), tags));
      EXPECT_EQ(VRMismatches(source.get(), &written, tags), "");
      compared += static_cast<int>(Sorted(&written).size());
      // Nothing else leaks out of a module.
      EXPECT_EQ(Sorted(&written).size(), Sorted(&written, tags).size());
    }
    EXPECT_GE(compared, floor);
    EXPECT_EQ(Describe(source.get()), before) << "ReadFrom changed its source";
  }
}

TEST(IODs, RoundTripWholeInstances) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  for (const auto& [file, floor] : kFiles) {
    SCOPED_TRACE(file);
    std::unique_ptr<DICOMDataObject> source = LoadSample(file);
    ASSERT_NE(source, nullptr);
    for (const auto& [label, make] : kIODs) {
      SCOPED_TRACE(label);
      std::unique_ptr<CO_Abstract> iod(make());
      ASSERT_TRUE(iod->ReadFrom(source.get()));
      DICOMDataObject written;
      ASSERT_TRUE(iod->WriteTo(&written));
      EXPECT_EQ(Describe(&written), Describe(source.get()));
      EXPECT_EQ(VRMismatches(source.get(), &written), "");
    }
  }
}

// The decoder pushes straight into an IOD: elements, then the items of each sequence and the
// fragments of encapsulated pixel data through PushItem.
TEST(IODs, TakeADecodedStream) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  for (const char* file :
       {"CT_small.dcm", "JPEG-lossy.dcm", "SC_rgb_small_odd.dcm", "liver_1frame.dcm"}) {
    SCOPED_TRACE(file);
    std::unique_ptr<DICOMDataObject> source = LoadSample(file);
    ASSERT_NE(source, nullptr);
    std::unique_ptr<DICOMDataObject> copy(KESTREL::typed_copy::CopyObject(source.get()));
    ASSERT_NE(copy, nullptr);
    DICOMCodec codec;
    ByteBuffer buffer;
    ASSERT_TRUE(codec.Encode(copy.get(), buffer, 101, true));
    CTImageIODModule iod;
    ASSERT_TRUE(codec.Decode(buffer, &iod, 101));
    DICOMDataObject written;
    ASSERT_TRUE(iod.WriteTo(&written));
    std::set<uint32_t> dataSet;
    for (VR* element : Sorted(source.get()))
      if (element->Group != 2) dataSet.insert(Tag(element));
    EXPECT_EQ(Describe(&written), Describe(source.get(), dataSet));
  }
}

TEST(IODs, PopHandsOutCopiesInTagOrderAndEmpties) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  std::unique_ptr<DICOMDataObject> source = LoadSample("CT_small.dcm");
  ASSERT_NE(source, nullptr);
  std::unique_ptr<DICOMDataObject> copy(KESTREL::typed_copy::CopyObject(source.get()));
  CTImageIODModule iod;
  EXPECT_GT(iod.MoveFrom(copy.get()), 100u);
  EXPECT_EQ(Sorted(copy.get()).size(), 0u);  // moved, not copied

  DICOMDataObject drained;
  uint32_t last = 0;
  bool ordered = true;
  while (VR* element = iod.Pop()) {
    if (Tag(element) < last) ordered = false;
    last = Tag(element);
    if (!drained.Push(element)) delete element;
  }
  EXPECT_TRUE(ordered);
  EXPECT_EQ(Describe(&drained), Describe(source.get()));
  DICOMDataObject after;
  ASSERT_TRUE(iod.WriteTo(&after));
  EXPECT_EQ(Sorted(&after).size(), 0u);
  EXPECT_FALSE(iod.GetPatientModule()->PatientName()->HasValue());
  // Filling again works once drained.
  EXPECT_TRUE(iod.ReadFrom(source.get()));
  EXPECT_TRUE(iod.GetPatientModule()->PatientName()->HasValue());
}

TEST(IODs, RefusePushesWhileBeingPopped) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  std::unique_ptr<DICOMDataObject> source = LoadSample("MR_small.dcm");
  MRImageIODModule iod;
  ASSERT_TRUE(iod.ReadFrom(source.get()));
  VR* first = iod.Pop();
  ASSERT_NE(first, nullptr);
  delete first;
  auto element = std::make_unique<VR>(0x0010, 0x0010, 4, true);
  EXPECT_FALSE(iod.Push(element.get()));
  EXPECT_TRUE(iod.Clear());
  EXPECT_TRUE(iod.Push(element.release()));
}

TEST(IODs, SharedAttributesAreOneElement) {
  CTImageIODModule ct;
  EXPECT_EQ(ct.GetGeneralImageModule()->ImageType(), ct.GetCTImageModule()->ImageType());
  EXPECT_EQ(ct.GetImagePixelModule()->SamplesPerPixel(), ct.GetCTImageModule()->SamplesPerPixel());
  EXPECT_EQ(ct.GetGeneralImageModule()->InstanceNumber(),
            ct.GetSOPCommonModule()->InstanceNumber());
  ASSERT_TRUE(ct.GetCTImageModule()->ImageType()->Set("ORIGINAL\\PRIMARY\\AXIAL"));
  std::string value;
  ASSERT_TRUE(ct.GetGeneralImageModule()->ImageType()->Get(2, value));
  EXPECT_EQ(value, "AXIAL");

  SCImageIODModule sc;
  EXPECT_EQ(sc.GetGeneralSeriesModule()->Modality(), sc.GetSCEquipmentModule()->Modality());
  EXPECT_EQ(sc.GetCTImageModule()->RescaleSlope(), sc.GetModalityLUTModule()->RescaleSlope());

  // Written once, however many modules list it.
  DICOMDataObject written;
  ASSERT_TRUE(ct.WriteTo(&written));
  EXPECT_EQ(Sorted(&written).size(), 1u);
}

TEST(IODs, FindModuleAndImagePlaneOfEveryIOD) {
  for (const auto& [label, make] : kIODs) {
    SCOPED_TRACE(label);
    std::unique_ptr<CO_Abstract> made(make());
    auto* iod = dynamic_cast<ImageIODModule*>(made.get());
    ASSERT_NE(iod, nullptr);
    EXPECT_NE(iod->FindModule<CO_ImagePlaneModule>(), nullptr);
    EXPECT_NE(iod->FindModule<CO_FrameOfReferenceModule>(), nullptr);
    EXPECT_EQ(iod->FindModule<CO_PatientModule>(), iod->GetPatientModule());
    EXPECT_GE(iod->GetModuleCount(), 11u);
    for (uint32_t i = 0; i < iod->GetModuleCount(); ++i)
      EXPECT_EQ(iod->GetModule(i)->GetDatabase(), iod->GetDatabase());
  }
  CTImageIODModule ct;
  EXPECT_EQ(ct.GetImagePlaneModule(), ct.FindModule<CO_ImagePlaneModule>());
  EXPECT_EQ(ct.FindModule<CO_NMSeriesModule>(), nullptr);
}

TEST(IODs, ValueBuffersOutliveChanges) {
  if (!HaveSamples()) GTEST_SKIP() << "pydicom test files not installed";
  std::unique_ptr<DICOMDataObject> source = LoadSample("CT_small.dcm");
  CTImageIODModule iod;
  ASSERT_TRUE(iod.ReadFrom(source.get()));
  VR_PN* name = iod.GetPatientModule()->PatientName();
  VR_OX* pixels = iod.GetImagePixelModule()->PixelData();
  ASSERT_NE(name->Data, nullptr);
  ASSERT_NE(pixels->Data, nullptr);
  VRReferentialIntegrityDatabase* database = iod.GetDatabase();
  EXPECT_TRUE(database->Holds(name->Data));
  EXPECT_TRUE(database->Holds(pixels->Data));
  EXPECT_FALSE(name->OwnsData);

  const char* oldName = static_cast<const char*>(name->Data);
  std::string oldNameText(oldName, name->Length);
  const unsigned char* oldPixels = static_cast<const unsigned char*>(pixels->Data);
  unsigned char firstPixelByte = oldPixels[0];
  uint32_t held = database->GetCount();

  ASSERT_TRUE(name->Set("Other^Name"));
  iod.Clear();
  ASSERT_TRUE(iod.ReadFrom(source.get()));
  EXPECT_GT(database->GetCount(), held);
  // Read through the old pointers: the sanitizer build fails here if they were freed.
  EXPECT_EQ(std::string(oldName, oldNameText.size()), oldNameText);
  EXPECT_EQ(oldPixels[0], firstPixelByte);
}

TEST(Modules, PushRules) {
  CO_PatientModule patient;
  // Not an attribute of the module: refused, the caller keeps it.
  auto foreign = std::make_unique<VR>(0x0008, 0x0060, 2, true);
  EXPECT_FALSE(patient.Push(foreign.get()));
  // A group length is taken and dropped.
  EXPECT_TRUE(patient.Push(new VR(0x0010, 0x0000, 4, true)));
  // A typed element is taken and destroyed through its own type.
  auto* typed = new VR_PN(0x0010, 0x0010);
  ASSERT_TRUE(typed->Set("Doe^John"));
  EXPECT_TRUE(patient.Push(typed));
  std::string value;
  ASSERT_TRUE(patient.PatientName()->Get(value));
  EXPECT_EQ(value, "Doe^John");
  // Its own element pushed back is refused, not destroyed.
  EXPECT_FALSE(patient.Push(patient.PatientName()));
  EXPECT_TRUE(patient.PatientName()->HasValue());
  // Items follow the sequence pushed last.
  EXPECT_TRUE(patient.Push(new VR(0x0010, 0x1002, 0, false)));
  EXPECT_TRUE(patient.PushItem(new DICOMDataObject));
  EXPECT_TRUE(patient.PushItem(new DICOMDataObject));
  EXPECT_EQ(patient.OtherPatientIDsSequence()->SequenceItems->GetSize(), 2u);
  // A value the element only points at is copied, not taken.
  static const char kID[] = "ID42";
  EXPECT_TRUE(patient.Push(new VR(0x0010, 0x0020, 4, const_cast<char*>(kID), false)));
  EXPECT_NE(patient.PatientID()->Data, static_cast<const void*>(kID));
  ASSERT_TRUE(patient.PatientID()->Get(value));
  EXPECT_EQ(value, "ID42");
  // Nothing pushed yet: no sequence to put an item in.
  CO_PatientModule empty;
  auto item = std::make_unique<DICOMDataObject>();
  EXPECT_FALSE(empty.PushItem(item.get()));
}

TEST(Modules, PresentEmptyAndAbsentStayApart) {
  DICOMDataObject source;
  source.Push(new VR(0x0010, 0x0010, 0, false));  // Patient's Name, present and empty
  CO_PatientModule patient;
  ASSERT_TRUE(patient.ReadFrom(&source));
  EXPECT_TRUE(patient.PatientName()->HasValue());
  EXPECT_FALSE(patient.PatientID()->HasValue());
  DICOMDataObject written;
  ASSERT_TRUE(patient.WriteTo(&written));
  std::vector<VR*> out = Sorted(&written);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(Tag(out[0]), 0x00100010u);
  EXPECT_EQ(out[0]->Length, 0u);
  EXPECT_EQ(VRText(out[0]->TypeCode), "PN");  // the dictionary's VR fills in an unknown one
}

TEST(Modules, ReadFromATypedSource) {
  CO_GeneralStudyModule first;
  ASSERT_TRUE(first.StudyInstanceUID()->Set("1.2.3"));
  ASSERT_TRUE(first.StudyDate()->Set("20240101"));
  CO_GeneralStudyModule second;
  ASSERT_TRUE(second.ReadFrom(&first));
  std::string value;
  ASSERT_TRUE(second.StudyDate()->Get(value));
  EXPECT_EQ(value, "20240101");
  ASSERT_TRUE(second.StudyInstanceUID()->Get(value));
  EXPECT_EQ(value, "1.2.3");
  EXPECT_NE(second.StudyDate()->Data, first.StudyDate()->Data);
  EXPECT_FALSE(second.ReadFrom(&second));
  EXPECT_FALSE(second.ReadFrom(nullptr));
}

}  // namespace
