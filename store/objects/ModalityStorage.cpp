#include "kestrel/ModalityStorage.h"

#include "ModuleSetters.h"

using KESTREL::storage::All;
using KESTREL::storage::SetBinary;
using KESTREL::storage::SetText;

namespace {

bool SetDXImage(CO_DXImageModule* m, const char* pszImageType,
                const char* pszPixelIntensityRelationship,
                const int16_t* pPixelIntensityRelationshipSign, const char* pszRescaleIntercept,
                const char* pszRescaleSlope, const char* pszRescaleType,
                const char* pszPresentationLUTShape, const char* pszLossyImageCompression,
                const char* pszDerivationDescription,
                const char* pszAcquisitionDeviceProcessingDescription,
                const char* pszPatientOrientation, const char* pszBurnedInAnnotation) {
  return All(SetText(m->ImageType(), pszImageType),
             SetText(m->PixelIntensityRelationship(), pszPixelIntensityRelationship),
             SetBinary(m->PixelIntensityRelationshipSign(), pPixelIntensityRelationshipSign),
             SetText(m->RescaleIntercept(), pszRescaleIntercept),
             SetText(m->RescaleSlope(), pszRescaleSlope), SetText(m->RescaleType(), pszRescaleType),
             SetText(m->PresentationLUTShape(), pszPresentationLUTShape),
             SetText(m->LossyImageCompression(), pszLossyImageCompression),
             SetText(m->DerivationDescription(), pszDerivationDescription),
             SetText(m->AcquisitionDeviceProcessingDescription(),
                     pszAcquisitionDeviceProcessingDescription),
             SetText(m->PatientOrientation(), pszPatientOrientation),
             SetText(m->BurnedInAnnotation(), pszBurnedInAnnotation));
}

}  // namespace

#define KESTREL_DEFINE_STORAGE(Class) \
  Class::Class() = default;           \
  Class::~Class() = default;          \
  int Class::GetUID(UID& uid) {       \
    uid = UID(kSOPClassUID);          \
    return 1;                         \
  }                                   \
  ImageIODModule* Class::GetIOD() { return this; }

#define KESTREL_DEFINE_SET_DX_IMAGE_MODULE(Class)                                                  \
  bool Class::SetDXImageModule(                                                                    \
      const char* pszImageType, const char* pszPixelIntensityRelationship,                         \
      const int16_t* pPixelIntensityRelationshipSign, const char* pszRescaleIntercept,             \
      const char* pszRescaleSlope, const char* pszRescaleType,                                     \
      const char* pszPresentationLUTShape, const char* pszLossyImageCompression,                   \
      const char* pszDerivationDescription, const char* pszAcquisitionDeviceProcessingDescription, \
      const char* pszPatientOrientation, const char* pszBurnedInAnnotation) {                      \
    return SetDXImage(GetDXImageModule(), pszImageType, pszPixelIntensityRelationship,             \
                      pPixelIntensityRelationshipSign, pszRescaleIntercept, pszRescaleSlope,       \
                      pszRescaleType, pszPresentationLUTShape, pszLossyImageCompression,           \
                      pszDerivationDescription, pszAcquisitionDeviceProcessingDescription,         \
                      pszPatientOrientation, pszBurnedInAnnotation);                               \
  }

KESTREL_DEFINE_STORAGE(CCRStorage)
KESTREL_DEFINE_STORAGE(CCTStorage)
KESTREL_DEFINE_STORAGE(CDXStorage)
KESTREL_DEFINE_STORAGE(CDXRStorage)
KESTREL_DEFINE_STORAGE(CMGStorage)
KESTREL_DEFINE_STORAGE(CMGRStorage)
KESTREL_DEFINE_STORAGE(CMRStorage)
KESTREL_DEFINE_STORAGE(CNMStorage)
KESTREL_DEFINE_STORAGE(CNMNStorage)
KESTREL_DEFINE_STORAGE(CPETStorage)
KESTREL_DEFINE_STORAGE(CRFStorage)
KESTREL_DEFINE_STORAGE(CSCStorage)
KESTREL_DEFINE_STORAGE(CUSStorage)
KESTREL_DEFINE_STORAGE(CUSNStorage)
KESTREL_DEFINE_STORAGE(CUSMStorage)
KESTREL_DEFINE_STORAGE(CUSNMStorage)
KESTREL_DEFINE_STORAGE(CXAStorage)
KESTREL_DEFINE_STORAGE(CXABiStorage)

KESTREL_DEFINE_SET_DX_IMAGE_MODULE(CCRStorage)
KESTREL_DEFINE_SET_DX_IMAGE_MODULE(CDXStorage)
KESTREL_DEFINE_SET_DX_IMAGE_MODULE(CDXRStorage)
KESTREL_DEFINE_SET_DX_IMAGE_MODULE(CMGStorage)
KESTREL_DEFINE_SET_DX_IMAGE_MODULE(CMGRStorage)

bool CSCStorage::SetSCImageModule(const char* pszDateOfSecondaryCapture,
                                  const char* pszTimeOfSecondaryCapture) {
  CO_SCImageModule* m = GetSCImageModule();
  return All(SetText(m->DateOfSecondaryCapture(), pszDateOfSecondaryCapture),
             SetText(m->TimeOfSecondaryCapture(), pszTimeOfSecondaryCapture));
}

bool CSCStorage::SetSCEquipmentModule(const char* pszConversionType, const char* pszModality,
                                      const char* pszSecondaryCaptureDeviceID,
                                      const char* pszSecondaryCaptureDeviceManufacturer,
                                      const char* pszSecondaryCaptureDeviceManufacturerModelName,
                                      const char* pszSecondaryCaptureDeviceSoftwareVersions,
                                      const char* pszVideoImageFormatAcquired,
                                      const char* pszDigitalImageFormatAcquired) {
  CO_SCEquipmentModule* m = GetSCEquipmentModule();
  return All(
      SetText(m->ConversionType(), pszConversionType), SetText(m->Modality(), pszModality),
      SetText(m->SecondaryCaptureDeviceID(), pszSecondaryCaptureDeviceID),
      SetText(m->SecondaryCaptureDeviceManufacturer(), pszSecondaryCaptureDeviceManufacturer),
      SetText(m->SecondaryCaptureDeviceManufacturerModelName(),
              pszSecondaryCaptureDeviceManufacturerModelName),
      SetText(m->SecondaryCaptureDeviceSoftwareVersions(),
              pszSecondaryCaptureDeviceSoftwareVersions),
      SetText(m->VideoImageFormatAcquired(), pszVideoImageFormatAcquired),
      SetText(m->DigitalImageFormatAcquired(), pszDigitalImageFormatAcquired));
}
