#include "kestrel/CPatientRootRetrieve.h"

#include <memory>

#include "RetrieveCore.h"
#include "kestrel/DICOMObject.h"

namespace {
using KESTREL::query_layouts::Level;
constexpr KESTREL::query_layouts::Root kRoot = KESTREL::query_layouts::Root::kPatient;
constexpr char kWriteFailure[] = "ERROR: Unable to write DICOM object.\r\n";
}  // namespace

struct CPatientRootRetrieve::State {
  CDatabase* database = nullptr;
  std::string destination;
  KESTREL::retrieve::StorageClasses classes;
};

CPatientRootRetrieve::CPatientRootRetrieve(CResultsArray* pResults)
    : results_(pResults), state_(std::make_unique<State>()) {}

CPatientRootRetrieve::CPatientRootRetrieve(CResultsArray* pResults,
                                           const std::string& imageDirectory,
                                           const std::string& localAETitle)
    : imageDirectory_(imageDirectory),
      localAETitle_(localAETitle),
      results_(pResults),
      state_(std::make_unique<State>()) {}

CPatientRootRetrieve::~CPatientRootRetrieve() = default;

void CPatientRootRetrieve::Retrieve(const std::string& patientID, const std::string& host,
                                    const std::string& port, const std::string& callingAE,
                                    const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  level_ = "PATIENT ";
  std::unique_ptr<DICOMDataObject> identifier(
      KESTREL::retrieve::NewIdentifier(Level::kPatient, patientID, "", "", ""));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

void CPatientRootRetrieve::Retrieve(const std::string& patientID, const std::string& studyUID,
                                    const std::string& host, const std::string& port,
                                    const std::string& callingAE, const std::string& calledAE,
                                    KESTREL::KESTREL_STATUS* status) {
  level_ = "STUDY ";
  std::unique_ptr<DICOMDataObject> identifier(
      KESTREL::retrieve::NewIdentifier(Level::kStudy, patientID, studyUID, "", ""));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

void CPatientRootRetrieve::Retrieve(const std::string& patientID, const std::string& studyUID,
                                    const std::string& seriesUID, const std::string& host,
                                    const std::string& port, const std::string& callingAE,
                                    const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  level_ = "SERIES";
  std::unique_ptr<DICOMDataObject> identifier(
      KESTREL::retrieve::NewIdentifier(Level::kSeries, patientID, studyUID, seriesUID, ""));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

void CPatientRootRetrieve::Retrieve(const std::string& patientID, const std::string& studyUID,
                                    const std::string& seriesUID, const std::string& sopInstanceUID,
                                    const std::string& host, const std::string& port,
                                    const std::string& callingAE, const std::string& calledAE,
                                    KESTREL::KESTREL_STATUS* status) {
  level_ = "IMAGE ";
  std::unique_ptr<DICOMDataObject> identifier(KESTREL::retrieve::NewIdentifier(
      Level::kImage, patientID, studyUID, seriesUID, sopInstanceUID));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

int CPatientRootRetrieve::Client(DICOMDataObject* identifier, const std::string& host,
                                 const std::string& port, const std::string& callingAE,
                                 const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  return KESTREL::retrieve::RunClient(*this, identifier, {host, port, callingAE, calledAE},
                                      state_->destination, kWriteFailure, status);
}

void CPatientRootRetrieve::SetMoveDestination(const std::string& aeTitle) {
  state_->destination = aeTitle;
}

void CPatientRootRetrieve::SetDatabase(CDatabase* pDatabase) { state_->database = pDatabase; }

int CPatientRootRetrieve::SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches) {
  return KESTREL::retrieve::Search(state_->database, kRoot, identifier, matches);
}

int CPatientRootRetrieve::RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                                     StandardStorage** storageClass) {
  return KESTREL::retrieve::OpenMatch(kRoot, imageDirectory_, match, objectToSend, storageClass,
                                      state_->classes);
}

int CPatientRootRetrieve::QualifyOn(unsigned char* moveDestinationAE, unsigned char* localAE,
                                    unsigned char* host, unsigned char* port) {
  return KESTREL::retrieve::Qualify(state_->database, localAETitle_, moveDestinationAE, localAE,
                                    host, port);
}

int CPatientRootRetrieve::CallBack(DICOMCommandObject* response, DICOMDataObject* identifier) {
  KESTREL::retrieve::AddResponseRow(results_, response, identifier);
  return 0;
}
