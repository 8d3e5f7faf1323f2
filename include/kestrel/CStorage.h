#pragma once

#include <cstdint>
#include <string>

#include "kestrel/Array.h"
#include "kestrel/Export.h"
#include "kestrel/UID.h"

class CO_FrameOfReferenceModule;
class CO_ImagePlaneModule;
class DICOMDataObject;
class ImageIODModule;

// Base of the storage objects: one composite image instance of one SOP class, held in the
// modules of its information object definition. Each per-modality class (ModalityStorage.h)
// derives from this and from the IOD class of its SOP class, and adds the accessors of its
// modules; CStorage reaches the instance through GetIOD.
//
// Module setters take their values as pointers so that a caller sets only what it has: a null
// pointer leaves the attribute as it is. Text is given as a C string and stored through the
// attribute's typed element, so each VR's rules apply (a date loses its dots, a UID is padded
// with a zero byte); an empty string leaves the attribute present and empty. A multi-valued
// attribute is given whole, its values separated by "\". A sequence is given as a list of
// items, which are copied (the caller keeps the list and its items); a null list leaves the
// sequence as it is, an empty one makes it empty. Binary values are copied from the pointed-to
// value.
class KESTREL_API CStorage {
 public:
  virtual ~CStorage();

  // The SOP class the object stores: the UID and 1.
  virtual int GetUID(UID& uid) = 0;
  // The information object that holds the instance (the object itself). Owned by the object.
  virtual ImageIODModule* GetIOD() = 0;
  // The data object that holds the instance: the IOD. Owned by this object; never delete it.
  // It is a data object like any other, so popping it (encoding it) empties the instance; to
  // write the instance out and keep it, push a copy (ImageIODModule::WriteTo).
  virtual DICOMDataObject* Get();
  // Replaces the instance by a copy of `pDDO` (the caller keeps it). False when `pDDO` is null
  // or could not be read.
  virtual bool Set(DICOMDataObject* pDDO);

  // Replaces the instance by the content of a DICOM file. False when it cannot be read.
  bool Open(const std::string& path);
  // The SOP class UID of GetUID(UID&), as text.
  bool GetUID(std::string& uid);
  // The value of Pixel Data (7FE0,0010), or null when there is none or it is encapsulated (its
  // fragments are then the element's sequence items). Owned by the object; stays valid until
  // the object is destroyed, even when the pixel data is replaced.
  void* PixelData();

  // Writes Window Width (0028,1051) and Window Center (0028,1050) of the VOI LUT module, each
  // formatted with "%.0f" (399.6 becomes 400), as the first value of its attribute: further
  // windows of a multi-valued attribute stay as they were.
  bool SetWindowWidthCenter(float width, float center);

  // Patient Module (PS3.3 C.7.1.1).
  bool SetPatientModule(const char* pszPatientName, const char* pszPatientID,
                        const char* pszPatientBirthDate, const char* pszPatientSex,
                        Array<DICOMDataObject*>* pReferencedPatientSequence,
                        const char* pszPatientBirthTime, const char* pszOtherPatientIDs,
                        const char* pszOtherPatientNames, const char* pszEthnicGroup,
                        const char* pszPatientComments);
  // Patient Study Module (PS3.3 C.7.2.2).
  bool SetPatientStudyModule(const char* pszAdmittingDiagnosesDescription,
                             const char* pszPatientAge, const char* pszPatientSize,
                             const char* pszPatientWeight, const char* pszOccupation,
                             const char* pszAdditionalPatientHistory);
  // General Study Module (PS3.3 C.7.2.1).
  bool SetGeneralStudyModule(const char* pszStudyInstanceUID, const char* pszStudyDate,
                             const char* pszStudyTime, const char* pszReferringPhysicianName,
                             const char* pszStudyID, const char* pszAccessionNumber,
                             const char* pszStudyDescription,
                             const char* pszNameOfPhysiciansReadingStudy,
                             Array<DICOMDataObject*>* pReferencedStudySequence);
  // General Series Module (PS3.3 C.7.3.1). The two pixel values are US or SS as Pixel
  // Representation says; their two bytes are stored as given.
  bool SetGeneralSeriesModule(const char* pszModality, const char* pszSeriesInstanceUID,
                              const char* pszSeriesNumber, const char* pszLaterality,
                              const char* pszSeriesDate, const char* pszSeriesTime,
                              const char* pszPerformingPhysicianName, const char* pszProtocolName,
                              const char* pszSeriesDescription, const char* pszOperatorsName,
                              Array<DICOMDataObject*>* pReferencedPerformedProcedureStepSequence,
                              const char* pszBodyPartExamined, const char* pszPatientPosition,
                              const int16_t* pSmallestPixelValueInSeries,
                              const int16_t* pLargestPixelValueInSeries);
  // General Equipment Module (PS3.3 C.7.5.1).
  bool SetGeneralEquipmentModule(const char* pszManufacturer, const char* pszInstitutionName,
                                 const char* pszInstitutionAddress, const char* pszStationName,
                                 const char* pszInstitutionalDepartmentName,
                                 const char* pszManufacturerModelName,
                                 const char* pszDeviceSerialNumber, const char* pszSoftwareVersions,
                                 const char* pszSpatialResolution,
                                 const char* pszDateOfLastCalibration,
                                 const char* pszTimeOfLastCalibration,
                                 const int16_t* pPixelPaddingValue);
  // General Image Module (PS3.3 C.7.6.1).
  bool SetGeneralImageModule(const char* pszInstanceNumber, const char* pszPatientOrientation,
                             const char* pszContentDate, const char* pszContentTime,
                             const char* pszImageType, const char* pszAcquisitionNumber,
                             const char* pszAcquisitionDate, const char* pszAcquisitionTime,
                             Array<DICOMDataObject*>* pReferencedImageSequence,
                             const char* pszDerivationDescription,
                             Array<DICOMDataObject*>* pSourceImageSequence,
                             const char* pszImagesInAcquisition, const char* pszImageComments);
  // Image Pixel Module (PS3.3 C.7.6.3). The pixel data is copied; its length is Rows x Columns
  // x Samples per Pixel x Bits Allocated / 8 (rounded up to whole bytes, then to an even
  // count), from the values given here or, for those not given, the ones the module holds. Its
  // VR is OW when Bits Allocated is over 8, else OB. The last two strings are the two values of
  // Pixel Aspect Ratio (vertical, horizontal): both or neither. False, with the other values
  // set, when the pixel data is given and its length cannot be worked out.
  bool SetImagePixelModule(const uint16_t* pSamplesPerPixel,
                           const char* pszPhotometricInterpretation, const uint16_t* pRows,
                           const uint16_t* pColumns, const uint16_t* pBitsAllocated,
                           const uint16_t* pBitsStored, const uint16_t* pHighBit,
                           const uint16_t* pPixelRepresentation, const void* pPixelData,
                           const uint16_t* pPlanarConfiguration,
                           const char* pszPixelAspectRatioVertical,
                           const char* pszPixelAspectRatioHorizontal);
  // Image Plane Module (PS3.3 C.7.6.2): its first two attributes.
  bool SetImagePlaneModule(const char* pszPixelSpacing, const char* pszImageOrientationPatient);
  // SOP Common Module (PS3.3 C.12.1).
  bool SetSOPCommonModule(const char* pszSOPClassUID, const char* pszSOPInstanceUID,
                          const char* pszSpecificCharacterSet, const char* pszInstanceCreationDate,
                          const char* pszInstanceCreationTime, const char* pszInstanceCreatorUID);

  // For classes whose IOD shows no Image Plane or Frame of Reference module of its own: the
  // IOD still holds one, and these return it. Owned by the object.
  CO_ImagePlaneModule* GetImagePlaneModule();
  CO_FrameOfReferenceModule* GetFrameOfReferenceModule();

  // Doubles every single quote in place ("O'BRIEN" becomes "O''BRIEN"), so that the text can
  // stand inside a quoted SQL literal.
  static void SQLStringFormat(std::string& text);
  // True when `uid` is a well-formed UID (PS3.5 9.1): 1 to 64 characters, digits and full
  // stops only, no empty component (no leading, trailing or doubled full stop). Such a UID is
  // safe as a file or directory name: it can be neither "." nor "..", nor hold a "/". Padding
  // is not accepted: trim it first.
  static bool IsSUIDValid(std::string& uid);

 protected:
  CStorage();
};
