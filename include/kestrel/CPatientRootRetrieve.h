#pragma once

// The Patient Root Query/Retrieve Information Model - MOVE (PS3.4 C.6.1,
// "1.2.840.10008.5.1.4.1.2.1.2"), both ways:
// - requester: asks a remote node to send a patient, study, series or image with C-MOVE,
//   by default to the calling AE title (the caller's own node);
// - provider hooks of StandardRetrieve::Read: which images match (the image database), which
//   file and storage class to send for each (a flat image directory), and where the
//   destination is (the Server table).
// CStudyRootRetrieve has the same shape for the study root.

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/StandardRetrieve.h"
#include "kestrel/Status.h"

class CDatabase;
class CResultsArray;
class DICOMCommandObject;
class DICOMDataObject;
class StandardStorage;

class KESTREL_API CPatientRootRetrieve : public PatientRootRetrieve {
 public:
  // The row CallBack appends to the results for each C-MOVE response: its status as four
  // hexadecimal digits, the four sub-operation counts in decimal (null when the response did
  // not carry them), and the Failed SOP Instance UID List (0008,0058) when it came.
  enum ResultSlot {
    kStatus = 0,
    kRemaining = 1,
    kCompleted = 2,
    kFailed = 3,
    kWarning = 4,
    kFailedSOPInstances = 5,
    kResultSize = 6
  };

  // `pResults` is not deleted here (nor are its rows); it may be null. The image directory
  // and the local AE title are empty.
  explicit CPatientRootRetrieve(CResultsArray* pResults);
  // The same with the root of the flat image directory RetrieveOn reads files from and the
  // AE title QualifyOn gives the sub-associations.
  CPatientRootRetrieve(CResultsArray* pResults, const std::string& imageDirectory,
                       const std::string& localAETitle);
  ~CPatientRootRetrieve() override;
  CPatientRootRetrieve(const CPatientRootRetrieve&) = delete;
  CPatientRootRetrieve& operator=(const CPatientRootRetrieve&) = delete;

  // Requester. Each Retrieve builds the identifier of its level (PATIENT: Patient ID; STUDY:
  // Study Instance UID; SERIES: Study and Series Instance UIDs; IMAGE: those and the SOP
  // Instance UID; with the level's other keys empty; the patient ID of the STUDY, SERIES and
  // IMAGE forms is not sent) and runs Client. `status` may be null.
  void Retrieve(const std::string& patientID, const std::string& host, const std::string& port,
                const std::string& callingAE, const std::string& calledAE,
                KESTREL::KESTREL_STATUS* status);
  void Retrieve(const std::string& patientID, const std::string& studyUID, const std::string& host,
                const std::string& port, const std::string& callingAE, const std::string& calledAE,
                KESTREL::KESTREL_STATUS* status);
  void Retrieve(const std::string& patientID, const std::string& studyUID,
                const std::string& seriesUID, const std::string& host, const std::string& port,
                const std::string& callingAE, const std::string& calledAE,
                KESTREL::KESTREL_STATUS* status);
  void Retrieve(const std::string& patientID, const std::string& studyUID,
                const std::string& seriesUID, const std::string& sopInstanceUID,
                const std::string& host, const std::string& port, const std::string& callingAE,
                const std::string& calledAE, KESTREL::KESTREL_STATUS* status);
  // One association to `host` and `port` proposing this SOP class in implicit VR little
  // endian, one C-MOVE of `identifier` (emptied by the encoding; the caller deletes it) to the
  // calling AE title (or to the one SetMoveDestination gave), each response handed to CallBack,
  // then a release. 1 on success (also when some sub-operations failed: the last row says how
  // many). Otherwise 0 with `status` (when not null) and the last-error text, also handed to
  // the notifier: "ERROR: Unable to connect to <host>\r\n" and the reason (status 1), or
  // "ERROR: Unable to write DICOM object.\r\n" when the exchange failed or its final status
  // was a failure, such as A801 for a destination the node does not know (status 2).
  int Client(DICOMDataObject* identifier, const std::string& host, const std::string& port,
             const std::string& callingAE, const std::string& calledAE,
             KESTREL::KESTREL_STATUS* status);
  // Addition: the AE title the images go to; empty (the default) means the calling AE title.
  void SetMoveDestination(const std::string& aeTitle);
  // The level of the last Retrieve: "PATIENT ", "STUDY ", "SERIES" or "IMAGE ".
  const std::string& GetLevel() const { return level_; }

  // Provider hooks (StandardRetrieve::Read).
  //
  // The image database SearchOn and QualifyOn read (not deleted here); without one, or with
  // one that is not open, the record sets connect on their own.
  void SetDatabase(CDatabase* pDatabase);
  // One match per image of the identifier's level: a patient's studies ("[Study].PatientID"),
  // a study's series ("[ReferencedStudyComponent]"), a series' images ("[SeriesInstanceUID]"),
  // or one image ("[SOPInstanceUID]"); a "\" list of IDs or UIDs names several. Each match
  // holds the image's SOP Instance, Study and Series Instance UIDs, SOP Class UID and
  // Transfer Syntax UID (0002,0010) as the Image table has them. 0 when the level is missing
  // or the database cannot be read.
  int SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches) override;
  // The file "<image directory>/<SOP Instance UID>.dcm" opened with CStandardStorage (null when
  // it cannot be read or holds no pixel data), and a storage class for CR, CT, MR, US
  // ("1.2.840.10008.5.1.4.1.1.6") and SC; for other classes `storageClass` is left as it is.
  // The storage class is kept by this object. 0 for a match without a SOP Instance UID (or
  // one that is not a UID), else 1.
  int RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                 StandardStorage** storageClass) override;
  // The destination's host and port from the Server row whose [AE Title] is the move
  // destination; `localAE` gets the local AE title when this object has one (else it keeps the
  // title it came with). 0 when there is no such row or the table cannot be read.
  int QualifyOn(unsigned char* moveDestinationAE, unsigned char* localAE, unsigned char* host,
                unsigned char* port) override;
  // Appends the response's row (ResultSlot) to the results; returns 0.
  int CallBack(DICOMCommandObject* response, DICOMDataObject* identifier) override;

 protected:
  const std::string& GetImageDirectory() const { return imageDirectory_; }

 private:
  std::string imageDirectory_;
  std::string localAETitle_;
  std::string level_;
  CResultsArray* results_;
  struct State;
  std::unique_ptr<State> state_;
};
