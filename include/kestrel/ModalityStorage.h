#pragma once

// The storage objects of the image SOP classes the library knows, one class per SOP class.
// Each is a CStorage and the IOD of its SOP class at once: the module accessors come from the
// IOD (ImageIODModule.h), the setters and file operations from CStorage. GetUID gives the
// class's SOP Class UID, kSOPClassUID.
//
// Objects are made empty, filled with Open or Set, or made by CStandardStorage::Load from a
// file. The accessors return modules owned by the object.

#include <cstdint>

#include "kestrel/CStorage.h"
#include "kestrel/Export.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/UID.h"

// What every per-modality class declares: its UID, GetUID, GetIOD, and the names that both
// bases would otherwise offer (Get is also the list access of a data object).
#define KESTREL_STORAGE_CLASS(Class, SOPClassUID)          \
 public:                                                   \
  static constexpr const char* kSOPClassUID = SOPClassUID; \
  Class();                                                 \
  ~Class() override;                                       \
  using CStorage::Get;                                     \
  using CStorage::GetUID;                                  \
  int GetUID(UID& uid) override;                           \
  ImageIODModule* GetIOD() override;

// The classes whose own modules fill columns of the Image row (CStorage::UpdateImageTable).
#define KESTREL_UPDATE_IMAGE_TABLE                                                          \
  int UpdateImageTable(CDatabase* pDatabase, int& nAdded, const char* pszTransferSyntaxUID) \
      override;

// The DX Image Module setter (PS3.3 C.8.11.4) of the classes that hold that module: its
// attributes that are not Image Pixel attributes as well, in the module's order.
#define KESTREL_SET_DX_IMAGE_MODULE                                                                \
  bool SetDXImageModule(                                                                           \
      const char* pszImageType, const char* pszPixelIntensityRelationship,                         \
      const int16_t* pPixelIntensityRelationshipSign, const char* pszRescaleIntercept,             \
      const char* pszRescaleSlope, const char* pszRescaleType,                                     \
      const char* pszPresentationLUTShape, const char* pszLossyImageCompression,                   \
      const char* pszDerivationDescription, const char* pszAcquisitionDeviceProcessingDescription, \
      const char* pszPatientOrientation, const char* pszBurnedInAnnotation);

// Computed Radiography Image Storage.
class KESTREL_API CCRStorage : public CStorage, public CRImageIODModule {
  KESTREL_STORAGE_CLASS(CCRStorage, "1.2.840.10008.5.1.4.1.1.1")
  KESTREL_UPDATE_IMAGE_TABLE
  using CRImageIODModule::GetImagePlaneModule;
  KESTREL_SET_DX_IMAGE_MODULE
};

// CT Image Storage.
class KESTREL_API CCTStorage : public CStorage, public CTImageIODModule {
  KESTREL_STORAGE_CLASS(CCTStorage, "1.2.840.10008.5.1.4.1.1.2")
  KESTREL_UPDATE_IMAGE_TABLE
  using CTImageIODModule::GetFrameOfReferenceModule;
  using CTImageIODModule::GetImagePlaneModule;
};

// Digital X-Ray Image Storage, for presentation.
class KESTREL_API CDXStorage : public CStorage, public DXImageIODModule {
  KESTREL_STORAGE_CLASS(CDXStorage, "1.2.840.10008.5.1.4.1.1.1.1")
  KESTREL_UPDATE_IMAGE_TABLE
  KESTREL_SET_DX_IMAGE_MODULE
};

// Digital X-Ray Image Storage, for processing.
class KESTREL_API CDXRStorage : public CStorage, public DXRImageIODModule {
  KESTREL_STORAGE_CLASS(CDXRStorage, "1.2.840.10008.5.1.4.1.1.1.1.1")
  KESTREL_UPDATE_IMAGE_TABLE
  KESTREL_SET_DX_IMAGE_MODULE
};

// Digital Mammography X-Ray Image Storage, for presentation.
class KESTREL_API CMGStorage : public CStorage, public MGImageIODModule {
  KESTREL_STORAGE_CLASS(CMGStorage, "1.2.840.10008.5.1.4.1.1.1.2")
  KESTREL_UPDATE_IMAGE_TABLE
  KESTREL_SET_DX_IMAGE_MODULE
};

// Digital Mammography X-Ray Image Storage, for processing.
class KESTREL_API CMGRStorage : public CStorage, public MGRImageIODModule {
  KESTREL_STORAGE_CLASS(CMGRStorage, "1.2.840.10008.5.1.4.1.1.1.2.1")
  KESTREL_UPDATE_IMAGE_TABLE
  KESTREL_SET_DX_IMAGE_MODULE
};

// MR Image Storage.
class KESTREL_API CMRStorage : public CStorage, public MRImageIODModule {
  KESTREL_STORAGE_CLASS(CMRStorage, "1.2.840.10008.5.1.4.1.1.4")
  KESTREL_UPDATE_IMAGE_TABLE
  using MRImageIODModule::GetFrameOfReferenceModule;
  using MRImageIODModule::GetImagePlaneModule;
};

// Nuclear Medicine Image Storage (retired).
class KESTREL_API CNMStorage : public CStorage, public NMImageIODModule {
  KESTREL_STORAGE_CLASS(CNMStorage, "1.2.840.10008.5.1.4.1.1.5")
  KESTREL_UPDATE_IMAGE_TABLE
  using NMImageIODModule::GetImagePlaneModule;
};

// Nuclear Medicine Image Storage.
class KESTREL_API CNMNStorage : public CStorage, public NMNImageIODModule {
  KESTREL_STORAGE_CLASS(CNMNStorage, "1.2.840.10008.5.1.4.1.1.20")
  KESTREL_UPDATE_IMAGE_TABLE
  using NMNImageIODModule::GetImagePlaneModule;
};

// Positron Emission Tomography Image Storage.
class KESTREL_API CPETStorage : public CStorage, public PETImageIODModule {
  KESTREL_STORAGE_CLASS(CPETStorage, "1.2.840.10008.5.1.4.1.1.128")
  KESTREL_UPDATE_IMAGE_TABLE
  using PETImageIODModule::GetFrameOfReferenceModule;
  using PETImageIODModule::GetImagePlaneModule;
};

// X-Ray Radiofluoroscopic Image Storage.
class KESTREL_API CRFStorage : public CStorage, public RFImageIODModule {
  KESTREL_STORAGE_CLASS(CRFStorage, "1.2.840.10008.5.1.4.1.1.12.2")
  KESTREL_UPDATE_IMAGE_TABLE
};

// Secondary Capture Image Storage.
class KESTREL_API CSCStorage : public CStorage, public SCImageIODModule {
  KESTREL_STORAGE_CLASS(CSCStorage, "1.2.840.10008.5.1.4.1.1.7")
  // SC Image Module (PS3.3 C.8.6.2).
  bool SetSCImageModule(const char* pszDateOfSecondaryCapture,
                        const char* pszTimeOfSecondaryCapture);
  // SC Equipment Module (PS3.3 C.8.6.1). Modality is the General Series attribute as well.
  bool SetSCEquipmentModule(const char* pszConversionType, const char* pszModality,
                            const char* pszSecondaryCaptureDeviceID,
                            const char* pszSecondaryCaptureDeviceManufacturer,
                            const char* pszSecondaryCaptureDeviceManufacturerModelName,
                            const char* pszSecondaryCaptureDeviceSoftwareVersions,
                            const char* pszVideoImageFormatAcquired,
                            const char* pszDigitalImageFormatAcquired);
};

// Ultrasound Image Storage (retired).
class KESTREL_API CUSStorage : public CStorage, public USImageIODModule {
  KESTREL_STORAGE_CLASS(CUSStorage, "1.2.840.10008.5.1.4.1.1.6")
  using USImageIODModule::GetFrameOfReferenceModule;
};

// Ultrasound Image Storage.
class KESTREL_API CUSNStorage : public CStorage, public USNImageIODModule {
  KESTREL_STORAGE_CLASS(CUSNStorage, "1.2.840.10008.5.1.4.1.1.6.1")
  using USNImageIODModule::GetFrameOfReferenceModule;
};

// Ultrasound Multi-frame Image Storage (retired).
class KESTREL_API CUSMStorage : public CStorage, public USMImageIODModule {
  KESTREL_STORAGE_CLASS(CUSMStorage, "1.2.840.10008.5.1.4.1.1.3")
  KESTREL_UPDATE_IMAGE_TABLE
  using USMImageIODModule::GetFrameOfReferenceModule;
};

// Ultrasound Multi-frame Image Storage.
class KESTREL_API CUSNMStorage : public CStorage, public USNMImageIODModule {
  KESTREL_STORAGE_CLASS(CUSNMStorage, "1.2.840.10008.5.1.4.1.1.3.1")
  KESTREL_UPDATE_IMAGE_TABLE
  using USNMImageIODModule::GetFrameOfReferenceModule;
};

// X-Ray Angiographic Image Storage.
class KESTREL_API CXAStorage : public CStorage, public XAImageIODModule {
  KESTREL_STORAGE_CLASS(CXAStorage, "1.2.840.10008.5.1.4.1.1.12.1")
  KESTREL_UPDATE_IMAGE_TABLE
};

// X-Ray Angiographic Bi-Plane Image Storage (retired).
class KESTREL_API CXABiStorage : public CStorage, public XABiImageIODModule {
  KESTREL_STORAGE_CLASS(CXABiStorage, "1.2.840.10008.5.1.4.1.1.12.3")
};

#undef KESTREL_SET_DX_IMAGE_MODULE
#undef KESTREL_UPDATE_IMAGE_TABLE
#undef KESTREL_STORAGE_CLASS
