#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/Array.h"
#include "kestrel/Export.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"

class CDatabase;
class CDestination;
class CO_FrameOfReferenceModule;
class CO_ImagePlaneModule;
class DICOMDataObject;
class ImageIODModule;
class PDU_Service;

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

  // Sending (C-STORE, PS3.4 Annex B). The association configuration file of every storage
  // association is "pdu.txt" in the directory of the "Install Dir" setting.
  //
  // Transfer syntaxes: an instance is sent in the transfer syntax it is held in, named by
  // `pszTransferSyntaxUID` (null or "" for implicit VR little endian). A native (uncompressed)
  // instance is proposed in explicit and in implicit VR little endian, and goes in whichever
  // the peer accepts; an encapsulated one is proposed in its own syntax only, since the
  // library does not decompress.
  //
  // Client: one association to `host` and `port` proposing the instance's SOP class, one
  // C-STORE, a release. The first form sends the object's own instance, the second `pDDO`
  // (the caller's). The SOP class is the one the instance names in (0008,0016), the class's
  // own UID when it names none. The instance sent is emptied by the encoding. 1 when the peer
  // answered with Success or a Warning status. Otherwise 0, and `status` (when not null) is:
  //  - KESTREL_STATUS_CONNECT_FAILED, last-error text "Error: Unable to connect to <host>\r\n"
  //    followed by the rejection text (or why no request could be made);
  //  - KESTREL_STATUS_WRITE_FAILED, "Error: Unable to write DICOM object.\r\n" followed by the
  //    failure status when the peer answered one, or by why the instance cannot be sent (no
  //    SOP Class or Instance UID; encapsulated pixel data named as held in a native syntax),
  //    in which case no connection is tried.
  int Client(const std::string& host, const std::string& port, const std::string& callingAE,
             const std::string& calledAE, KESTREL::KESTREL_STATUS* status,
             const char* pszTransferSyntaxUID = nullptr);
  int Client(DICOMDataObject* pDDO, const std::string& host, const std::string& port,
             const std::string& callingAE, const std::string& calledAE,
             KESTREL::KESTREL_STATUS* status, const char* pszTransferSyntaxUID = nullptr);

  // A storage association for many instances: proposes, for each i, the SOP class
  // `sopClasses[i]` for instances held in `transferSyntaxes[i]` (a missing or empty entry
  // meaning implicit VR little endian); a pair that needs the same presentation context as an
  // earlier one is proposed once. At most 128 contexts. The caller sends with Send and ends
  // with ReleaseAssociation, which deletes the association. Null when no association was
  // made: the last-error text is then "ERROR: Unable to connect to <host>\r\n" followed by
  // the rejection text (or the reason the request could not be made), and the same text goes
  // to the notifier (KESTREL::Notify).
  static PDU_Service* CreateAssociation(const std::string& host, const std::string& port,
                                        const std::string& callingAE, const std::string& calledAE,
                                        const std::vector<UID>& sopClasses,
                                        const std::vector<UID>& transferSyntaxes);
  // The same; with `notify` false the failure text goes to the last-error text only, for a
  // caller that reports it itself.
  static PDU_Service* CreateAssociation(const std::string& host, const std::string& port,
                                        const std::string& callingAE, const std::string& calledAE,
                                        const std::vector<UID>& sopClasses,
                                        const std::vector<UID>& transferSyntaxes, bool notify);
  // One C-STORE of `pDDO` (the caller's; emptied by the encoding), or of the object's own
  // instance when `pDDO` is null, over an association of CreateAssociation, on the context
  // proposed for its SOP class (chosen as by Client) and transfer syntax. 1 when the peer
  // answered with Success or a Warning. Otherwise 0, the last-error text ("Error: Unable to
  // write DICOM object.\r\n" and the reason) says why and `status` (when not null) is
  // KESTREL_STATUS_CONNECT_FAILED when the peer accepted no context for the instance, else
  // KESTREL_STATUS_WRITE_FAILED. The association stays usable unless the failure closed it
  // (PDU_Service::IsAssociated).
  int Send(PDU_Service* pdu, DICOMDataObject* pDDO, const char* pszTransferSyntaxUID,
           KESTREL::KESTREL_STATUS* status = nullptr);
  // Releases the association and deletes it; null is allowed.
  static void ReleaseAssociation(PDU_Service* pdu);

  // --- The image store ---
  //
  // Layout: root/<Study Instance UID>/<Series Instance UID>/<SOP Instance UID>.dcm, each UID
  // without its trailing blanks and padding; rejected objects the same way below root/RejSave.
  // Directories are made one level at a time from the root down. A missing UID leaves its
  // path component empty (the instance lands one level higher, or as ".dcm"); a UID that is
  // present but not a well-formed UID (IsSUIDValid) is refused, so that no value ever names a
  // place outside the root. Files are written beside their name and renamed into place: a
  // failed save leaves no partial file. A file already there is replaced.
  //
  // Failures give 0 and the last-error text: "KESTREL.dll : CStorage::Save(DDO) : Could not
  // create directory <path>" ("Save(BOOL)" for Save(int)), "KESTREL.dll : CStorage::Save(DDO)
  // : Could not create image file <path>", or "KESTREL.dll : CStorage::Save(DDO) : Invalid UID
  // <value>". An empty root is a directory that cannot be made.

  // The image root, set by the host; "" until then.
  void SetRoot(const std::string& root);
  const std::string& GetRoot() const;

  // Writes `pDDO` (a plain data object, the caller's; emptied by the encoding) into the store
  // in the transfer syntax `pszTransferSyntaxUID` (null or "": the one its (0002,0010) names,
  // else implicit VR little endian). The second form also gives the file's path. 1 or 0.
  int Save(DICOMDataObject* pDDO, const char* pszTransferSyntaxUID);
  int Save(DICOMDataObject* pDDO, std::string& path, const char* pszTransferSyntaxUID);
  // Writes the object's own instance (a copy: the instance stays). With `bOverwrite` 0 a file
  // already in the store under the instance's name is kept and counts as saved.
  int Save(int bOverwrite);
  // Write to an explicit file, no directory logic: the own instance, or `pDDO` (emptied).
  // Failure texts "KESTREL.dll : CStorage::SaveAs(CString) : Unable to save DICOM object to
  // <path>" and "KESTREL.dll : CStorage::SaveAs(CString, DICOMDataObject *, char *) : Unable
  // to save DICOM object to <path>".
  int SaveAs(const std::string& path);
  int SaveAs(const std::string& path, DICOMDataObject* pDDO, const char* pszTransferSyntaxUID);
  // As Save(pDDO, ...) below root/RejSave, made first when it is not a directory.
  int RejectSave(DICOMDataObject* pDDO, const char* pszTransferSyntaxUID);

  // --- The image database ---
  //
  // The values indexed are the object's own (its instance, as Open, Set or Load filled it).
  // Texts are trimmed of blanks at both ends and cut to 255 characters; only attributes with a
  // value are written. Values inside quoted SQL literals have their quotes doubled.

  // Indexes the instance: UpdatePatientTable (existing patients are not rewritten),
  // UpdateStudyTable, UpdateSeriesTable and UpdateImageTable in one transaction that holds
  // the database's write lock (CDatabase::BeginWriteTrans), so that writers in other threads
  // or processes never make a second row for the same patient, study or series. A busy
  // database is waited for: up to 100 tries with 11 to 111 ms between them. Nothing is left
  // half written: 0 rolls everything back, with the last-error text saying why. When the
  // study row was added or changed, "NewStudyEvent" is pulsed once the rows are committed.
  // `pDatabase` is not deleted; when it is not open it is opened with the image database's
  // default connect string.
  int UpdateDatabase(CDatabase* pDatabase, const char* pszTransferSyntaxUID);
  // The same, then the instance is sent (C-STORE, a copy each time) to each destination:
  // First is the called AE title of a node of the Server table (its host and port are read
  // there), Second the calling AE title ("KESTREL" when empty). With `bAllOrNothing` non-zero a
  // destination that cannot be reached fails the call (the rows stay written); otherwise such
  // failures are logged and the result is that of the indexing. Null `destinations` sends
  // nothing.
  int UpdateDatabase(CDatabase* pDatabase, const char* pszTransferSyntaxUID,
                     Array<CDestination*>* destinations, int bAllOrNothing);

  // Finds the patient by Patient ID and Patient's Name (with the "UHN" setting not 0, by the
  // ID reduced with StripUHN as a substring of the stored ID, where "%" and "_" match only
  // themselves). An empty Patient ID is replaced by "U" and the Study Instance UID after its
  // first character. 2: found with `nUpdate` 0; `patientUID` is its key and nothing is
  // written. 1: the row was written (the match changed with `nUpdate` not 0, or a new row
  // added); `patientUID` is its key as the database holds it. 0: failed.
  int UpdatePatientTable(CDatabase* pDatabase, int32_t& patientUID, int nUpdate);
  // Finds the study by Study Instance UID. A new row gets the study attributes, the patient
  // key and the owning patient's Patient ID, [AccessDate] and [AccessTime] now (%Y%m%d,
  // %H%M%S, local time), [Status] "2NEW" and [Modality] the instance's. An existing row, with
  // `nUpdate` not 0, gets values only in its empty columns, and the instance's modality is
  // added to its [Modality] list ("CT\PR"); its status, access time and patient stay. A value
  // over 255 characters is cut to 244 and ends in "<TRUNCATED>". With `nPulse` not 0,
  // "NewStudyEvent" is pulsed when the row was added or changed. 1 or 0.
  int UpdateStudyTable(CDatabase* pDatabase, int32_t patientUID, int nUpdate, int nPulse);
  // Finds the series by Series Instance UID; a new row gets the series attributes and
  // [ReferencedStudyComponent] the Study Instance UID; an existing one, with `nUpdate` not 0,
  // gets values in its empty columns. 1 or 0.
  int UpdateSeriesTable(CDatabase* pDatabase, int nUpdate);
  // Finds the image by SOP Instance UID and writes every column from the instance: a new row,
  // or the existing one rewritten (a column whose attribute is gone becomes null).
  // [TransferSyntax] is `pszTransferSyntaxUID` (null or "": the instance's (0002,0010), else
  // implicit VR little endian). This base fills the columns of the modules every image has;
  // the per-modality classes add their own modules' columns. `nAdded` is 1 for a new row, 0
  // for a rewritten one. 1 or 0.
  virtual int UpdateImageTable(CDatabase* pDatabase, int& nAdded, const char* pszTransferSyntaxUID);
  // 1 when the Study table holds the instance's study, with `patientUID` its patient key; 0
  // when it does not or the database failed (the last-error text then says so).
  int DoesStudyExist(CDatabase* pDatabase, int32_t& patientUID);

 protected:
  CStorage();

  // The Image row of UpdateImageTable with the columns of `modality` (a table of the
  // per-modality classes) besides the common ones.
  struct ModalityColumns;
  int UpdateImageRow(CDatabase* pDatabase, int& nAdded, const char* pszTransferSyntaxUID,
                     const ModalityColumns* modality);

 private:
  std::string root_;
  bool studyWritten_ = false;  // the last UpdateStudyTable added or changed its row
};
