#include "kestrel/CStudyRootRetrieve.h"

#include <memory>

#include "RetrieveCore.h"
#include "kestrel/DICOMObject.h"

namespace {
using KESTREL::query_layouts::Level;
constexpr KESTREL::query_layouts::Root kRoot = KESTREL::query_layouts::Root::kStudy;
constexpr char kWriteFailure[] = "ERROR: Unable to write DICOM object (Study Root Retrieve).\r\n";
}  // namespace

struct CStudyRootRetrieve::State {
  CDatabase* database = nullptr;
  std::string destination;
  KESTREL::retrieve::StorageClasses classes;
};

CStudyRootRetrieve::CStudyRootRetrieve(CResultsArray* pResults)
    : results_(pResults), state_(std::make_unique<State>()) {}

CStudyRootRetrieve::CStudyRootRetrieve(CResultsArray* pResults, const std::string& imageDirectory,
                                       const std::string& localAETitle)
    : imageDirectory_(imageDirectory),
      localAETitle_(localAETitle),
      results_(pResults),
      state_(std::make_unique<State>()) {}

CStudyRootRetrieve::~CStudyRootRetrieve() = default;

void CStudyRootRetrieve::Retrieve(KESTREL::KESTREL_STATUS* status) {}

void CStudyRootRetrieve::Retrieve(const std::string& studyUID, const std::string& host,
                                  const std::string& port, const std::string& callingAE,
                                  const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  level_ = "STUDY ";
  std::unique_ptr<DICOMDataObject> identifier(
      KESTREL::retrieve::NewIdentifier(Level::kStudy, "", studyUID, "", ""));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

void CStudyRootRetrieve::Retrieve(const std::string& studyUID, const std::string& seriesUID,
                                  const std::string& host, const std::string& port,
                                  const std::string& callingAE, const std::string& calledAE,
                                  KESTREL::KESTREL_STATUS* status) {
  level_ = "SERIES";
  std::unique_ptr<DICOMDataObject> identifier(
      KESTREL::retrieve::NewIdentifier(Level::kSeries, "", studyUID, seriesUID, ""));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

void CStudyRootRetrieve::Retrieve(const std::string& studyUID, const std::string& seriesUID,
                                  const std::string& sopInstanceUID, const std::string& host,
                                  const std::string& port, const std::string& callingAE,
                                  const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  level_ = "IMAGE ";
  std::unique_ptr<DICOMDataObject> identifier(
      KESTREL::retrieve::NewIdentifier(Level::kImage, "", studyUID, seriesUID, sopInstanceUID));
  Client(identifier.get(), host, port, callingAE, calledAE, status);
}

int CStudyRootRetrieve::Client(DICOMDataObject* identifier, const std::string& host,
                               const std::string& port, const std::string& callingAE,
                               const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  return KESTREL::retrieve::RunClient(*this, identifier, {host, port, callingAE, calledAE},
                                      state_->destination, kWriteFailure, status);
}

void CStudyRootRetrieve::SetMoveDestination(const std::string& aeTitle) {
  state_->destination = aeTitle;
}

void CStudyRootRetrieve::SetDatabase(CDatabase* pDatabase) { state_->database = pDatabase; }

int CStudyRootRetrieve::SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches) {
  return KESTREL::retrieve::Search(state_->database, kRoot, identifier, matches);
}

int CStudyRootRetrieve::RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                                   StandardStorage** storageClass) {
  return KESTREL::retrieve::OpenMatch(kRoot, imageDirectory_, match, objectToSend, storageClass,
                                      state_->classes);
}

int CStudyRootRetrieve::QualifyOn(unsigned char* moveDestinationAE, unsigned char* localAE,
                                  unsigned char* host, unsigned char* port) {
  return KESTREL::retrieve::Qualify(state_->database, localAETitle_, moveDestinationAE, localAE,
                                    host, port);
}

int CStudyRootRetrieve::CallBack(DICOMCommandObject* response, DICOMDataObject* identifier) {
  KESTREL::retrieve::AddResponseRow(results_, response, identifier);
  return 0;
}
