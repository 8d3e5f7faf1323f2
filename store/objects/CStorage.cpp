#include "kestrel/CStorage.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "ModuleSetters.h"
#include "kestrel/CO_Modules.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/ImageIODModule.h"

using KESTREL::storage::All;
using KESTREL::storage::SetBinary;
using KESTREL::storage::SetItems;
using KESTREL::storage::SetText;

namespace {

// Copies the pixel data that Rows, Columns, Samples per Pixel and Bits Allocated describe.
// False when one of them is missing or zero.
bool SetPixelData(CO_ImagePixelModule* pixel, const void* data) {
  if (!data) return true;
  uint16_t rows = 0, columns = 0, samples = 0, bitsAllocated = 0;
  if (!pixel->Rows()->Get(&rows) || !pixel->Columns()->Get(&columns) ||
      !pixel->SamplesPerPixel()->Get(&samples) || !pixel->BitsAllocated()->Get(&bitsAllocated))
    return false;
  uint64_t given = (uint64_t{rows} * columns * samples * bitsAllocated + 7) / 8;
  uint64_t length = given + (given & 1);  // values are even in length; the pad byte is zero
  if (!given || length > 0xFFFFFFFEu) return false;
  char* buffer = new (std::nothrow) char[length];
  if (!buffer) return false;
  std::memcpy(buffer, data, given);
  if (length > given) buffer[given] = 0;
  VR_OX* element = pixel->PixelData();
  element->ClearValue();
  element->SetOXTypeCode(bitsAllocated > 8 ? MakeTypeCode('O', 'W') : MakeTypeCode('O', 'B'));
  element->AdoptBuffer(buffer, static_cast<uint32_t>(length));
  return true;
}

}  // namespace

CStorage::CStorage() = default;
CStorage::~CStorage() = default;

DICOMDataObject* CStorage::Get() { return GetIOD(); }

bool CStorage::Set(DICOMDataObject* pDDO) { return GetIOD()->ReadFrom(pDDO); }

bool CStorage::Open(const std::string& path) {
  DICOMCodec codec;
  std::unique_ptr<DICOMDataObject> loaded(codec.LoadFile(path.c_str()));
  if (!loaded) return false;
  GetIOD()->MoveFrom(loaded.get());
  return true;
}

bool CStorage::GetUID(std::string& uid) {
  UID value;
  if (!GetUID(value)) return false;
  uid = value.ToString();
  return true;
}

void* CStorage::PixelData() { return GetIOD()->GetImagePixelModule()->PixelData()->Data; }

bool CStorage::SetWindowWidthCenter(float width, float center) {
  char widthText[64], centerText[64];
  std::snprintf(widthText, sizeof widthText, "%.0f", width);
  std::snprintf(centerText, sizeof centerText, "%.0f", center);
  CO_VOILUTModule* voi = GetIOD()->GetVOILUTModule();
  return voi->WindowWidth()->Set(0, widthText) && voi->WindowCenter()->Set(0, centerText);
}

bool CStorage::SetPatientModule(const char* pszPatientName, const char* pszPatientID,
                                const char* pszPatientBirthDate, const char* pszPatientSex,
                                Array<DICOMDataObject*>* pReferencedPatientSequence,
                                const char* pszPatientBirthTime, const char* pszOtherPatientIDs,
                                const char* pszOtherPatientNames, const char* pszEthnicGroup,
                                const char* pszPatientComments) {
  CO_PatientModule* m = GetIOD()->GetPatientModule();
  return All(
      SetText(m->PatientName(), pszPatientName), SetText(m->PatientID(), pszPatientID),
      SetText(m->PatientBirthDate(), pszPatientBirthDate), SetText(m->PatientSex(), pszPatientSex),
      SetItems(m->ReferencedPatientSequence(), pReferencedPatientSequence),
      SetText(m->PatientBirthTime(), pszPatientBirthTime),
      SetText(m->OtherPatientIDs(), pszOtherPatientIDs),
      SetText(m->OtherPatientNames(), pszOtherPatientNames),
      SetText(m->EthnicGroup(), pszEthnicGroup), SetText(m->PatientComments(), pszPatientComments));
}

bool CStorage::SetPatientStudyModule(const char* pszAdmittingDiagnosesDescription,
                                     const char* pszPatientAge, const char* pszPatientSize,
                                     const char* pszPatientWeight, const char* pszOccupation,
                                     const char* pszAdditionalPatientHistory) {
  CO_PatientStudyModule* m = GetIOD()->GetPatientStudyModule();
  return All(SetText(m->AdmittingDiagnosesDescription(), pszAdmittingDiagnosesDescription),
             SetText(m->PatientAge(), pszPatientAge), SetText(m->PatientSize(), pszPatientSize),
             SetText(m->PatientWeight(), pszPatientWeight), SetText(m->Occupation(), pszOccupation),
             SetText(m->AdditionalPatientHistory(), pszAdditionalPatientHistory));
}

bool CStorage::SetGeneralStudyModule(const char* pszStudyInstanceUID, const char* pszStudyDate,
                                     const char* pszStudyTime,
                                     const char* pszReferringPhysicianName, const char* pszStudyID,
                                     const char* pszAccessionNumber,
                                     const char* pszStudyDescription,
                                     const char* pszNameOfPhysiciansReadingStudy,
                                     Array<DICOMDataObject*>* pReferencedStudySequence) {
  CO_GeneralStudyModule* m = GetIOD()->GetGeneralStudyModule();
  return All(SetText(m->StudyInstanceUID(), pszStudyInstanceUID),
             SetText(m->StudyDate(), pszStudyDate), SetText(m->StudyTime(), pszStudyTime),
             SetText(m->ReferringPhysicianName(), pszReferringPhysicianName),
             SetText(m->StudyID(), pszStudyID), SetText(m->AccessionNumber(), pszAccessionNumber),
             SetText(m->StudyDescription(), pszStudyDescription),
             SetText(m->NameOfPhysiciansReadingStudy(), pszNameOfPhysiciansReadingStudy),
             SetItems(m->ReferencedStudySequence(), pReferencedStudySequence));
}

bool CStorage::SetGeneralSeriesModule(
    const char* pszModality, const char* pszSeriesInstanceUID, const char* pszSeriesNumber,
    const char* pszLaterality, const char* pszSeriesDate, const char* pszSeriesTime,
    const char* pszPerformingPhysicianName, const char* pszProtocolName,
    const char* pszSeriesDescription, const char* pszOperatorsName,
    Array<DICOMDataObject*>* pReferencedPerformedProcedureStepSequence,
    const char* pszBodyPartExamined, const char* pszPatientPosition,
    const int16_t* pSmallestPixelValueInSeries, const int16_t* pLargestPixelValueInSeries) {
  CO_GeneralSeriesModule* m = GetIOD()->GetGeneralSeriesModule();
  return All(SetText(m->Modality(), pszModality),
             SetText(m->SeriesInstanceUID(), pszSeriesInstanceUID),
             SetText(m->SeriesNumber(), pszSeriesNumber), SetText(m->Laterality(), pszLaterality),
             SetText(m->SeriesDate(), pszSeriesDate), SetText(m->SeriesTime(), pszSeriesTime),
             SetText(m->PerformingPhysicianName(), pszPerformingPhysicianName),
             SetText(m->ProtocolName(), pszProtocolName),
             SetText(m->SeriesDescription(), pszSeriesDescription),
             SetText(m->OperatorsName(), pszOperatorsName),
             SetItems(m->ReferencedPerformedProcedureStepSequence(),
                      pReferencedPerformedProcedureStepSequence),
             SetText(m->BodyPartExamined(), pszBodyPartExamined),
             SetText(m->PatientPosition(), pszPatientPosition),
             SetBinary(m->SmallestPixelValueInSeries(), pSmallestPixelValueInSeries),
             SetBinary(m->LargestPixelValueInSeries(), pLargestPixelValueInSeries));
}

bool CStorage::SetGeneralEquipmentModule(
    const char* pszManufacturer, const char* pszInstitutionName, const char* pszInstitutionAddress,
    const char* pszStationName, const char* pszInstitutionalDepartmentName,
    const char* pszManufacturerModelName, const char* pszDeviceSerialNumber,
    const char* pszSoftwareVersions, const char* pszSpatialResolution,
    const char* pszDateOfLastCalibration, const char* pszTimeOfLastCalibration,
    const int16_t* pPixelPaddingValue) {
  CO_GeneralEquipmentModule* m = GetIOD()->GetGeneralEquipmentModule();
  return All(SetText(m->Manufacturer(), pszManufacturer),
             SetText(m->InstitutionName(), pszInstitutionName),
             SetText(m->InstitutionAddress(), pszInstitutionAddress),
             SetText(m->StationName(), pszStationName),
             SetText(m->InstitutionalDepartmentName(), pszInstitutionalDepartmentName),
             SetText(m->ManufacturerModelName(), pszManufacturerModelName),
             SetText(m->DeviceSerialNumber(), pszDeviceSerialNumber),
             SetText(m->SoftwareVersions(), pszSoftwareVersions),
             SetText(m->SpatialResolution(), pszSpatialResolution),
             SetText(m->DateOfLastCalibration(), pszDateOfLastCalibration),
             SetText(m->TimeOfLastCalibration(), pszTimeOfLastCalibration),
             SetBinary(m->PixelPaddingValue(), pPixelPaddingValue));
}

bool CStorage::SetGeneralImageModule(
    const char* pszInstanceNumber, const char* pszPatientOrientation, const char* pszContentDate,
    const char* pszContentTime, const char* pszImageType, const char* pszAcquisitionNumber,
    const char* pszAcquisitionDate, const char* pszAcquisitionTime,
    Array<DICOMDataObject*>* pReferencedImageSequence, const char* pszDerivationDescription,
    Array<DICOMDataObject*>* pSourceImageSequence, const char* pszImagesInAcquisition,
    const char* pszImageComments) {
  CO_GeneralImageModule* m = GetIOD()->GetGeneralImageModule();
  return All(SetText(m->InstanceNumber(), pszInstanceNumber),
             SetText(m->PatientOrientation(), pszPatientOrientation),
             SetText(m->ContentDate(), pszContentDate), SetText(m->ContentTime(), pszContentTime),
             SetText(m->ImageType(), pszImageType),
             SetText(m->AcquisitionNumber(), pszAcquisitionNumber),
             SetText(m->AcquisitionDate(), pszAcquisitionDate),
             SetText(m->AcquisitionTime(), pszAcquisitionTime),
             SetItems(m->ReferencedImageSequence(), pReferencedImageSequence),
             SetText(m->DerivationDescription(), pszDerivationDescription),
             SetItems(m->SourceImageSequence(), pSourceImageSequence),
             SetText(m->ImagesInAcquisition(), pszImagesInAcquisition),
             SetText(m->ImageComments(), pszImageComments));
}

bool CStorage::SetImagePixelModule(const uint16_t* pSamplesPerPixel,
                                   const char* pszPhotometricInterpretation, const uint16_t* pRows,
                                   const uint16_t* pColumns, const uint16_t* pBitsAllocated,
                                   const uint16_t* pBitsStored, const uint16_t* pHighBit,
                                   const uint16_t* pPixelRepresentation, const void* pPixelData,
                                   const uint16_t* pPlanarConfiguration,
                                   const char* pszPixelAspectRatioVertical,
                                   const char* pszPixelAspectRatioHorizontal) {
  CO_ImagePixelModule* m = GetIOD()->GetImagePixelModule();
  bool ok = All(SetBinary(m->SamplesPerPixel(), pSamplesPerPixel),
                SetText(m->PhotometricInterpretation(), pszPhotometricInterpretation),
                SetBinary(m->Rows(), pRows), SetBinary(m->Columns(), pColumns),
                SetBinary(m->BitsAllocated(), pBitsAllocated),
                SetBinary(m->BitsStored(), pBitsStored), SetBinary(m->HighBit(), pHighBit),
                SetBinary(m->PixelRepresentation(), pPixelRepresentation),
                SetBinary(m->PlanarConfiguration(), pPlanarConfiguration));
  if (pszPixelAspectRatioVertical && pszPixelAspectRatioHorizontal) {
    // Both values in one go: the typed Set would join a second value added after the first.
    std::string ratio =
        std::string(pszPixelAspectRatioVertical) + "\\" + pszPixelAspectRatioHorizontal;
    ok = SetText(m->PixelAspectRatio(), ratio.c_str()) && ok;
  } else if (pszPixelAspectRatioVertical || pszPixelAspectRatioHorizontal) {
    ok = false;
  }
  return SetPixelData(m, pPixelData) && ok;
}

bool CStorage::SetImagePlaneModule(const char* pszPixelSpacing,
                                   const char* pszImageOrientationPatient) {
  CO_ImagePlaneModule* m = GetImagePlaneModule();
  return All(SetText(m->PixelSpacing(), pszPixelSpacing),
             SetText(m->ImageOrientationPatient(), pszImageOrientationPatient));
}

bool CStorage::SetSOPCommonModule(const char* pszSOPClassUID, const char* pszSOPInstanceUID,
                                  const char* pszSpecificCharacterSet,
                                  const char* pszInstanceCreationDate,
                                  const char* pszInstanceCreationTime,
                                  const char* pszInstanceCreatorUID) {
  CO_SOPCommonModule* m = GetIOD()->GetSOPCommonModule();
  return All(SetText(m->SOPClassUID(), pszSOPClassUID),
             SetText(m->SOPInstanceUID(), pszSOPInstanceUID),
             SetText(m->SpecificCharacterSet(), pszSpecificCharacterSet),
             SetText(m->InstanceCreationDate(), pszInstanceCreationDate),
             SetText(m->InstanceCreationTime(), pszInstanceCreationTime),
             SetText(m->InstanceCreatorUID(), pszInstanceCreatorUID));
}

CO_ImagePlaneModule* CStorage::GetImagePlaneModule() {
  return GetIOD()->FindModule<CO_ImagePlaneModule>();
}

CO_FrameOfReferenceModule* CStorage::GetFrameOfReferenceModule() {
  return GetIOD()->FindModule<CO_FrameOfReferenceModule>();
}

void CStorage::SQLStringFormat(std::string& text) {
  std::string doubled;
  doubled.reserve(text.size());
  for (char c : text) {
    doubled.push_back(c);
    if (c == '\'') doubled.push_back('\'');
  }
  text.swap(doubled);
}

bool CStorage::IsSUIDValid(std::string& uid) {
  if (uid.empty() || uid.size() > UID::kMaxLength) return false;
  char previous = '.';  // a leading full stop is an empty first component
  for (char c : uid) {
    if (c == '.') {
      if (previous == '.') return false;
    } else if (c < '0' || c > '9') {
      return false;
    }
    previous = c;
  }
  return previous != '.';
}
