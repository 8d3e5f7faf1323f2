#pragma once

// The information object definitions of the image SOP classes the storage objects handle: each
// class holds the modules of its IOD (PS3.3 Annex A) and is itself a data object that holds the
// whole instance.
//
// Every IOD holds the Patient, Patient Study, General Study, General Series, General Equipment,
// General Image, Image Pixel, SOP Common and VOI LUT modules, besides Image Plane and Frame of
// Reference (which only some classes show through an accessor of their own), then the modules
// of its SOP class. An attribute that several of its modules list (Image Type is in General
// Image and in CT Image) is one element, shared by those modules: setting it through one module
// sets it for all. Attributes that no module lists (private ones, those of modules not held
// here) are kept as plain elements among the other attributes, so an instance read in is
// written out whole.
//
// The IOD and its modules share one referential-integrity database, told of every value buffer
// the IOD takes in (see CO_Abstract.h). The modules are owned by the IOD.

#include <cstdint>
#include <map>
#include <vector>

#include "kestrel/CO_Abstract.h"
#include "kestrel/CO_Modules.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/Export.h"

class KESTREL_API ImageIODModule : public CO_Abstract {
 public:
  ~ImageIODModule() override;

  CO_PatientModule* GetPatientModule() { return &patient_; }
  CO_PatientStudyModule* GetPatientStudyModule() { return &patientStudy_; }
  CO_GeneralStudyModule* GetGeneralStudyModule() { return &generalStudy_; }
  CO_GeneralSeriesModule* GetGeneralSeriesModule() { return &generalSeries_; }
  CO_GeneralEquipmentModule* GetGeneralEquipmentModule() { return &generalEquipment_; }
  CO_GeneralImageModule* GetGeneralImageModule() { return &generalImage_; }
  CO_ImagePixelModule* GetImagePixelModule() { return &imagePixel_; }
  CO_SOPCommonModule* GetSOPCommonModule() { return &sopCommon_; }
  CO_VOILUTModule* GetVOILUTModule() { return &voiLUT_; }

  // The first module of the given class, or null.
  template <class Module>
  Module* FindModule() {
    for (CO_Abstract* module : modules_)
      if (auto* found = dynamic_cast<Module*>(module)) return found;
    return nullptr;
  }
  uint32_t GetModuleCount() const { return static_cast<uint32_t>(modules_.size()); }
  CO_Abstract* GetModule(uint32_t index) const { return modules_[index]; }
  // The attributes no module lists, as plain elements. Owned by the IOD; their value buffers
  // belong to its database.
  DICOMDataObject* GetOtherAttributes() { return &others_; }

  // Any attribute of any module.
  VR_XXTYPED* GetAttribute(uint16_t group, uint16_t element) override;
  // Every attribute with a value, each once, then the other attributes.
  bool WriteTo(DICOMObject* target) override;

 protected:
  explicit ImageIODModule(const char* name);
  // Adds a module of the derived IOD; it must live as long as this object. An attribute that
  // an earlier module holds is shared with it.
  void AddModule(CO_Abstract* module);

  CO_ImagePlaneModule* ImagePlane() { return &imagePlane_; }
  CO_FrameOfReferenceModule* FrameOfReference() { return &frameOfReference_; }

  bool Accepts(uint16_t group, uint16_t element) override;
  bool PushOther(VR* element) override;
  bool PushOtherItem(DICOMObject* item) override;
  void ClearValues() override;

 private:
  CO_PatientModule patient_{GetDatabase()};
  CO_PatientStudyModule patientStudy_{GetDatabase()};
  CO_GeneralStudyModule generalStudy_{GetDatabase()};
  CO_GeneralSeriesModule generalSeries_{GetDatabase()};
  CO_GeneralEquipmentModule generalEquipment_{GetDatabase()};
  CO_GeneralImageModule generalImage_{GetDatabase()};
  CO_ImagePixelModule imagePixel_{GetDatabase()};
  CO_SOPCommonModule sopCommon_{GetDatabase()};
  CO_VOILUTModule voiLUT_{GetDatabase()};
  CO_ImagePlaneModule imagePlane_{GetDatabase()};
  CO_FrameOfReferenceModule frameOfReference_{GetDatabase()};
  DICOMDataObject others_;
  std::vector<CO_Abstract*> modules_;
  std::map<uint32_t, VR_XXTYPED*> attributes_;  // (group << 16 | element) -> the one element
};

// Computed Radiography Image (PS3.3 A.2).
class KESTREL_API CRImageIODModule : public ImageIODModule {
 public:
  CRImageIODModule();
  ~CRImageIODModule() override;
  CO_CRSeriesModule* GetCRSeriesModule() { return &crSeries_; }
  CO_DXImageModule* GetDXImageModule() { return &dxImage_; }
  CO_ImagePlaneModule* GetImagePlaneModule() { return ImagePlane(); }

 private:
  CO_CRSeriesModule crSeries_{GetDatabase()};
  CO_DXImageModule dxImage_{GetDatabase()};
};

// CT Image (PS3.3 A.3).
class KESTREL_API CTImageIODModule : public ImageIODModule {
 public:
  CTImageIODModule();
  ~CTImageIODModule() override;
  CO_CTImageModule* GetCTImageModule() { return &ctImage_; }
  CO_ContrastBolusModule* GetContrastBolusModule() { return &contrastBolus_; }
  CO_FrameOfReferenceModule* GetFrameOfReferenceModule() { return FrameOfReference(); }
  CO_ImagePlaneModule* GetImagePlaneModule() { return ImagePlane(); }

 private:
  CO_CTImageModule ctImage_{GetDatabase()};
  CO_ContrastBolusModule contrastBolus_{GetDatabase()};
};

// Digital X-Ray Image, for presentation (PS3.3 A.26); the other digital X-ray classes below
// hold the same modules.
class KESTREL_API DXImageIODModule : public ImageIODModule {
 public:
  DXImageIODModule();
  ~DXImageIODModule() override;
  CO_CRImageModule* GetCRImageModule() { return &crImage_; }
  CO_CRSeriesModule* GetCRSeriesModule() { return &crSeries_; }
  CO_DXImageModule* GetDXImageModule() { return &dxImage_; }

 protected:
  explicit DXImageIODModule(const char* name);

 private:
  CO_CRImageModule crImage_{GetDatabase()};
  CO_CRSeriesModule crSeries_{GetDatabase()};
  CO_DXImageModule dxImage_{GetDatabase()};
};

// Digital X-Ray Image, for processing.
class KESTREL_API DXRImageIODModule : public DXImageIODModule {
 public:
  DXRImageIODModule();
  ~DXRImageIODModule() override;
};

// Digital Mammography X-Ray Image, for presentation (PS3.3 A.27).
class KESTREL_API MGImageIODModule : public DXImageIODModule {
 public:
  MGImageIODModule();
  ~MGImageIODModule() override;

 protected:
  explicit MGImageIODModule(const char* name);
};

// Digital Mammography X-Ray Image, for processing.
class KESTREL_API MGRImageIODModule : public MGImageIODModule {
 public:
  MGRImageIODModule();
  ~MGRImageIODModule() override;
};

// MR Image (PS3.3 A.4).
class KESTREL_API MRImageIODModule : public ImageIODModule {
 public:
  MRImageIODModule();
  ~MRImageIODModule() override;
  CO_MRImageModule* GetMRImageModule() { return &mrImage_; }
  CO_ContrastBolusModule* GetContrastBolusModule() { return &contrastBolus_; }
  CO_FrameOfReferenceModule* GetFrameOfReferenceModule() { return FrameOfReference(); }
  CO_ImagePlaneModule* GetImagePlaneModule() { return ImagePlane(); }

 private:
  CO_MRImageModule mrImage_{GetDatabase()};
  CO_ContrastBolusModule contrastBolus_{GetDatabase()};
};

// Nuclear Medicine Image, the retired class 1.2.840.10008.5.1.4.1.1.5.
class KESTREL_API NMImageIODModule : public ImageIODModule {
 public:
  NMImageIODModule();
  ~NMImageIODModule() override;
  CO_NMImageModule* GetNMImageModule() { return &nmImage_; }
  CO_NMSeriesModule* GetNMSeriesModule() { return &nmSeries_; }
  CO_MultiframeModule* GetMultiframeModule() { return &multiframe_; }
  CO_ImagePlaneModule* GetImagePlaneModule() { return ImagePlane(); }

 private:
  CO_NMImageModule nmImage_{GetDatabase()};
  CO_NMSeriesModule nmSeries_{GetDatabase()};
  CO_MultiframeModule multiframe_{GetDatabase()};
};

// Nuclear Medicine Image (PS3.3 A.5).
class KESTREL_API NMNImageIODModule : public ImageIODModule {
 public:
  NMNImageIODModule();
  ~NMNImageIODModule() override;
  CO_MultiframeModule* GetMultiframeModule() { return &multiframe_; }
  CO_ImagePlaneModule* GetImagePlaneModule() { return ImagePlane(); }

 private:
  CO_MultiframeModule multiframe_{GetDatabase()};
};

// Positron Emission Tomography Image (PS3.3 A.21).
class KESTREL_API PETImageIODModule : public ImageIODModule {
 public:
  PETImageIODModule();
  ~PETImageIODModule() override;
  CO_PETImageModule* GetPETImageModule() { return &petImage_; }
  CO_PETSeriesModule* GetPETSeriesModule() { return &petSeries_; }
  CO_FrameOfReferenceModule* GetFrameOfReferenceModule() { return FrameOfReference(); }
  CO_ImagePlaneModule* GetImagePlaneModule() { return ImagePlane(); }

 private:
  CO_PETImageModule petImage_{GetDatabase()};
  CO_PETSeriesModule petSeries_{GetDatabase()};
};

// X-Ray Radiofluoroscopic Image (PS3.3 A.16).
class KESTREL_API RFImageIODModule : public ImageIODModule {
 public:
  RFImageIODModule();
  ~RFImageIODModule() override;
  CO_RFImageModule* GetRFImageModule() { return &rfImage_; }
  CO_ContrastBolusModule* GetContrastBolusModule() { return &contrastBolus_; }
  CO_MultiframeModule* GetMultiframeModule() { return &multiframe_; }

 private:
  CO_RFImageModule rfImage_{GetDatabase()};
  CO_ContrastBolusModule contrastBolus_{GetDatabase()};
  CO_MultiframeModule multiframe_{GetDatabase()};
};

// Secondary Capture Image (PS3.3 A.8.1).
class KESTREL_API SCImageIODModule : public ImageIODModule {
 public:
  SCImageIODModule();
  ~SCImageIODModule() override;
  CO_SCImageModule* GetSCImageModule() { return &scImage_; }
  CO_SCEquipmentModule* GetSCEquipmentModule() { return &scEquipment_; }
  CO_CTImageModule* GetCTImageModule() { return &ctImage_; }
  CO_ModalityLUTModule* GetModalityLUTModule() { return &modalityLUT_; }

 private:
  CO_SCImageModule scImage_{GetDatabase()};
  CO_SCEquipmentModule scEquipment_{GetDatabase()};
  CO_CTImageModule ctImage_{GetDatabase()};
  CO_ModalityLUTModule modalityLUT_{GetDatabase()};
};

// Ultrasound Image (PS3.3 A.6), also the retired class 1.2.840.10008.5.1.4.1.1.6.
class KESTREL_API USImageIODModule : public ImageIODModule {
 public:
  USImageIODModule();
  ~USImageIODModule() override;
  CO_USImageModule* GetUSImageModule() { return &usImage_; }
  CO_ContrastBolusModule* GetContrastBolusModule() { return &contrastBolus_; }
  CO_FrameOfReferenceModule* GetFrameOfReferenceModule() { return FrameOfReference(); }

 protected:
  explicit USImageIODModule(const char* name);

 private:
  CO_USImageModule usImage_{GetDatabase()};
  CO_ContrastBolusModule contrastBolus_{GetDatabase()};
};

class KESTREL_API USNImageIODModule : public USImageIODModule {
 public:
  USNImageIODModule();
  ~USNImageIODModule() override;
};

// Ultrasound Multi-frame Image (PS3.3 A.7), also the retired class 1.2.840.10008.5.1.4.1.1.3.
class KESTREL_API USMImageIODModule : public USImageIODModule {
 public:
  USMImageIODModule();
  ~USMImageIODModule() override;
  CO_MultiframeModule* GetMultiframeModule() { return &multiframe_; }

 protected:
  explicit USMImageIODModule(const char* name);

 private:
  CO_MultiframeModule multiframe_{GetDatabase()};
};

class KESTREL_API USNMImageIODModule : public USMImageIODModule {
 public:
  USNMImageIODModule();
  ~USNMImageIODModule() override;
};

// X-Ray Angiographic Image (PS3.3 A.14).
class KESTREL_API XAImageIODModule : public ImageIODModule {
 public:
  XAImageIODModule();
  ~XAImageIODModule() override;
  CO_MultiframeModule* GetMultiframeModule() { return &multiframe_; }

 private:
  CO_MultiframeModule multiframe_{GetDatabase()};
};

// X-Ray Angiographic Bi-Plane Image, a retired class.
class KESTREL_API XABiImageIODModule : public ImageIODModule {
 public:
  XABiImageIODModule();
  ~XABiImageIODModule() override;
  CO_ContrastBolusModule* GetContrastBolusModule() { return &contrastBolus_; }

 private:
  CO_ContrastBolusModule contrastBolus_{GetDatabase()};
};

// An IOD with only the modules every image IOD has, for instances of any other SOP class.
class KESTREL_API GenericImageIODModule : public ImageIODModule {
 public:
  GenericImageIODModule();
  ~GenericImageIODModule() override;
};
