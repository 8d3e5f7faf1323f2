#pragma once

// The Study Root Query/Retrieve Information Model - MOVE (PS3.4 C.6.2,
// "1.2.840.10008.5.1.4.1.2.2.2"), both ways, as CPatientRootRetrieve for the patient root,
// with three differences: there is no PATIENT level; RetrieveOn reads the file where the image
// store saves it, "<image directory>/<Study UID>/<Series UID>/<SOP Instance UID>.dcm"; and it
// knows the storage classes of all eighteen per-modality storage objects.

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

class KESTREL_API CStudyRootRetrieve : public StudyRootRetrieve {
 public:
  enum ResultSlot {
    kStatus = 0,
    kRemaining = 1,
    kCompleted = 2,
    kFailed = 3,
    kWarning = 4,
    kFailedSOPInstances = 5,
    kResultSize = 6
  };

  explicit CStudyRootRetrieve(CResultsArray* pResults);
  CStudyRootRetrieve(CResultsArray* pResults, const std::string& imageDirectory,
                     const std::string& localAETitle);
  ~CStudyRootRetrieve() override;
  CStudyRootRetrieve(const CStudyRootRetrieve&) = delete;
  CStudyRootRetrieve& operator=(const CStudyRootRetrieve&) = delete;

  // Requester: the STUDY, SERIES and IMAGE forms, and one that only takes a status and does
  // nothing at all. The texts of a failed exchange end "(Study Root Retrieve).\r\n".
  void Retrieve(KESTREL::KESTREL_STATUS* status);
  void Retrieve(const std::string& studyUID, const std::string& host, const std::string& port,
                const std::string& callingAE, const std::string& calledAE,
                KESTREL::KESTREL_STATUS* status);
  void Retrieve(const std::string& studyUID, const std::string& seriesUID, const std::string& host,
                const std::string& port, const std::string& callingAE, const std::string& calledAE,
                KESTREL::KESTREL_STATUS* status);
  void Retrieve(const std::string& studyUID, const std::string& seriesUID,
                const std::string& sopInstanceUID, const std::string& host, const std::string& port,
                const std::string& callingAE, const std::string& calledAE,
                KESTREL::KESTREL_STATUS* status);
  int Client(DICOMDataObject* identifier, const std::string& host, const std::string& port,
             const std::string& callingAE, const std::string& calledAE,
             KESTREL::KESTREL_STATUS* status);
  void SetMoveDestination(const std::string& aeTitle);
  const std::string& GetLevel() const { return level_; }

  // Provider hooks, as CPatientRootRetrieve's, with the file of the store layout.
  void SetDatabase(CDatabase* pDatabase);
  int SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches) override;
  int RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                 StandardStorage** storageClass) override;
  int QualifyOn(unsigned char* moveDestinationAE, unsigned char* localAE, unsigned char* host,
                unsigned char* port) override;
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
