#include "kestrel/ImageIODModule.h"

#include <cstring>
#include <memory>
#include <new>

#include "ElementCopy.h"
#include "kestrel/VRReferentialIntegrityDatabase.h"

namespace {

uint32_t Key(uint16_t group, uint16_t element) { return (uint32_t{group} << 16) | element; }

// A plain copy of a typed element, sequence items included; null when memory runs out.
VR* PlainCopy(const VR* typed) {
  std::unique_ptr<VR> copy(KESTREL::typed_copy::CopyElement(typed));
  if (!copy) return nullptr;
  if (typed->Data && !copy->Data) {
    // Keep an empty value present.
    copy->Data = new (std::nothrow) char[1];
    if (!copy->Data) return nullptr;
  }
  if (typed->SequenceItems) {
    copy->SequenceItems = new (std::nothrow) Array<DICOMDataObject*>();
    if (!copy->SequenceItems) return nullptr;
    for (uint32_t i = 0; i < typed->SequenceItems->GetSize(); ++i) {
      DICOMDataObject* item = KESTREL::typed_copy::CopyObject(typed->SequenceItems->Get(i));
      if (!item) return nullptr;
      copy->SequenceItems->Add(item);
    }
  }
  return copy.release();
}

}  // namespace

ImageIODModule::ImageIODModule(const char* name) : CO_Abstract(name, nullptr, 0, nullptr) {
  for (CO_Abstract* module :
       {static_cast<CO_Abstract*>(&patient_), static_cast<CO_Abstract*>(&patientStudy_),
        static_cast<CO_Abstract*>(&generalStudy_), static_cast<CO_Abstract*>(&generalSeries_),
        static_cast<CO_Abstract*>(&generalEquipment_), static_cast<CO_Abstract*>(&generalImage_),
        static_cast<CO_Abstract*>(&imagePixel_), static_cast<CO_Abstract*>(&sopCommon_),
        static_cast<CO_Abstract*>(&voiLUT_), static_cast<CO_Abstract*>(&imagePlane_),
        static_cast<CO_Abstract*>(&frameOfReference_)})
    AddModule(module);
}

ImageIODModule::~ImageIODModule() = default;

void ImageIODModule::AddModule(CO_Abstract* module) {
  modules_.push_back(module);
  for (uint32_t i = 0; i < module->GetAttributeCount(); ++i) {
    const CO_AttributeInfo& info = module->GetAttributeInfo(i);
    uint32_t key = Key(info.Group, info.Element);
    auto found = attributes_.find(key);
    if (found == attributes_.end())
      attributes_.emplace(key, module->GetAttributeAt(i));
    else
      (void)module->ShareAttribute(i, found->second);  // the tables agree on every class
  }
}

VR_XXTYPED* ImageIODModule::GetAttribute(uint16_t group, uint16_t element) {
  auto found = attributes_.find(Key(group, element));
  return found == attributes_.end() ? nullptr : found->second;
}

bool ImageIODModule::Accepts(uint16_t, uint16_t) { return true; }

bool ImageIODModule::PushOther(VR* element) {
  // The other attributes are plain elements: a typed one is copied and destroyed.
  std::unique_ptr<VR> copy;
  VR* plain = element;
  if (VR_XXTYPED::Cast(element)) {
    copy.reset(PlainCopy(element));
    if (!copy) return false;
    plain = copy.get();
  } else if (plain->Data && !plain->OwnsData) {
    // It only points at its value, which its owner may free: keep a copy of our own.
    char* buffer = new (std::nothrow) char[plain->Length ? plain->Length : 1];
    if (!buffer) return false;
    std::memcpy(buffer, plain->Data, plain->Length);
    plain->Data = buffer;
    plain->OwnsData = 1;
  }
  if (!others_.Push(plain)) return false;
  if (copy) {
    copy.release();
    VR_XXTYPED::Destroy(element);
  }
  if (plain->Data && GetDatabase()->Report(plain->Group, plain->Element, plain->Data, plain->Length,
                                           plain->TypeCode))
    plain->OwnsData = 0;
  return true;
}

bool ImageIODModule::PushOtherItem(DICOMObject* item) { return others_.PushItem(item); }

void ImageIODModule::ClearValues() {
  for (CO_Abstract* module : modules_) module->ClearValues();
  others_.Clear();
}

bool ImageIODModule::WriteTo(DICOMObject* target) {
  if (!target) return false;
  bool ok = true;
  for (auto& [key, element] : attributes_)
    if (element->HasValue() && !KESTREL::typed_copy::PushCopy(target, element)) ok = false;
  bool readable = KESTREL::typed_copy::ForEachElement(&others_, [&](VR* element) {
    if (!KESTREL::typed_copy::PushCopy(target, element)) ok = false;
  });
  return ok && readable;
}

// ---- the IODs of the storage classes ----

CRImageIODModule::CRImageIODModule() : ImageIODModule("CR Image") {
  AddModule(&crSeries_);
  AddModule(&dxImage_);
}
CRImageIODModule::~CRImageIODModule() = default;

CTImageIODModule::CTImageIODModule() : ImageIODModule("CT Image") {
  AddModule(&ctImage_);
  AddModule(&contrastBolus_);
}
CTImageIODModule::~CTImageIODModule() = default;

DXImageIODModule::DXImageIODModule() : DXImageIODModule("Digital X-Ray Image") {}
DXImageIODModule::DXImageIODModule(const char* name) : ImageIODModule(name) {
  AddModule(&crImage_);
  AddModule(&crSeries_);
  AddModule(&dxImage_);
}
DXImageIODModule::~DXImageIODModule() = default;

DXRImageIODModule::DXRImageIODModule() : DXImageIODModule("Digital X-Ray Image For Processing") {}
DXRImageIODModule::~DXRImageIODModule() = default;

MGImageIODModule::MGImageIODModule() : MGImageIODModule("Digital Mammography X-Ray Image") {}
MGImageIODModule::MGImageIODModule(const char* name) : DXImageIODModule(name) {}
MGImageIODModule::~MGImageIODModule() = default;

MGRImageIODModule::MGRImageIODModule()
    : MGImageIODModule("Digital Mammography X-Ray Image For Processing") {}
MGRImageIODModule::~MGRImageIODModule() = default;

MRImageIODModule::MRImageIODModule() : ImageIODModule("MR Image") {
  AddModule(&mrImage_);
  AddModule(&contrastBolus_);
}
MRImageIODModule::~MRImageIODModule() = default;

NMImageIODModule::NMImageIODModule() : ImageIODModule("NM Image (retired)") {
  AddModule(&nmImage_);
  AddModule(&nmSeries_);
  AddModule(&multiframe_);
}
NMImageIODModule::~NMImageIODModule() = default;

NMNImageIODModule::NMNImageIODModule() : ImageIODModule("NM Image") { AddModule(&multiframe_); }
NMNImageIODModule::~NMNImageIODModule() = default;

PETImageIODModule::PETImageIODModule() : ImageIODModule("PET Image") {
  AddModule(&petImage_);
  AddModule(&petSeries_);
}
PETImageIODModule::~PETImageIODModule() = default;

RFImageIODModule::RFImageIODModule() : ImageIODModule("X-Ray Radiofluoroscopic Image") {
  AddModule(&rfImage_);
  AddModule(&contrastBolus_);
  AddModule(&multiframe_);
}
RFImageIODModule::~RFImageIODModule() = default;

SCImageIODModule::SCImageIODModule() : ImageIODModule("SC Image") {
  AddModule(&scImage_);
  AddModule(&scEquipment_);
  AddModule(&ctImage_);
  AddModule(&modalityLUT_);
}
SCImageIODModule::~SCImageIODModule() = default;

USImageIODModule::USImageIODModule() : USImageIODModule("US Image (retired)") {}
USImageIODModule::USImageIODModule(const char* name) : ImageIODModule(name) {
  AddModule(&usImage_);
  AddModule(&contrastBolus_);
}
USImageIODModule::~USImageIODModule() = default;

USNImageIODModule::USNImageIODModule() : USImageIODModule("US Image") {}
USNImageIODModule::~USNImageIODModule() = default;

USMImageIODModule::USMImageIODModule() : USMImageIODModule("US Multi-frame Image (retired)") {}
USMImageIODModule::USMImageIODModule(const char* name) : USImageIODModule(name) {
  AddModule(&multiframe_);
}
USMImageIODModule::~USMImageIODModule() = default;

USNMImageIODModule::USNMImageIODModule() : USMImageIODModule("US Multi-frame Image") {}
USNMImageIODModule::~USNMImageIODModule() = default;

XAImageIODModule::XAImageIODModule() : ImageIODModule("XA Image") { AddModule(&multiframe_); }
XAImageIODModule::~XAImageIODModule() = default;

XABiImageIODModule::XABiImageIODModule() : ImageIODModule("XA Bi-Plane Image (retired)") {
  AddModule(&contrastBolus_);
}
XABiImageIODModule::~XABiImageIODModule() = default;

GenericImageIODModule::GenericImageIODModule() : ImageIODModule("Image") {}
GenericImageIODModule::~GenericImageIODModule() = default;
