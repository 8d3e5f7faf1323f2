#pragma once

// What the patient-root and study-root retrieve classes share: the identifiers of the
// requester's levels, the Client exchange, the move destination's address from the Server
// table, the images of a C-MOVE identifier in the image database, the file and storage class
// of one match, and the rows of the responses.

#include <map>
#include <memory>
#include <string>

#include "QueryLayouts.h"
#include "kestrel/Array.h"
#include "kestrel/Status.h"

class CDatabase;
class CResultsArray;
class DICOMCommandObject;
class DICOMDataObject;
class StandardRetrieve;
class StandardStorage;

namespace KESTREL::retrieve {

// The identifier of a Retrieve at `level` (the caller deletes it); null when memory ran out.
// The patient ID is sent at PATIENT level only.
DICOMDataObject* NewIdentifier(KESTREL::query_layouts::Level level, const std::string& patientID,
                               const std::string& studyUID, const std::string& seriesUID,
                               const std::string& sopInstanceUID);

struct Endpoint {
  const std::string& host;
  const std::string& port;
  const std::string& callingAE;
  const std::string& calledAE;
};

// The Client exchange; `destination` empty sends to the calling AE title. `writeFailure` is
// the last-error text of a failed exchange.
int RunClient(StandardRetrieve& retrieve, DICOMDataObject* identifier, const Endpoint& endpoint,
              const std::string& destination, const char* writeFailure,
              KESTREL::KESTREL_STATUS* status);

// QualifyOn.
int Qualify(CDatabase* database, const std::string& localAETitle, unsigned char* destination,
            unsigned char* localAE, unsigned char* host, unsigned char* port);

// SearchOn.
int Search(CDatabase* database, KESTREL::query_layouts::Root root, DICOMDataObject* identifier,
           Array<DICOMDataObject*>* matches);

// The storage classes RetrieveOn hands out, one per SOP class, kept until this goes.
class StorageClasses {
 public:
  StorageClasses();
  ~StorageClasses();
  // Null for a SOP class the root does not know.
  StandardStorage* For(KESTREL::query_layouts::Root root, const std::string& sopClass);

 private:
  std::map<std::string, std::unique_ptr<StandardStorage>> made_;
};

// RetrieveOn: the file of the match under `directory` (flat for the patient root, the store
// layout for the study root).
int OpenMatch(KESTREL::query_layouts::Root root, const std::string& directory,
              DICOMDataObject* match, DICOMDataObject** objectToSend,
              StandardStorage** storageClass, StorageClasses& classes);

// CallBack.
void AddResponseRow(CResultsArray* results, DICOMCommandObject* response,
                    DICOMDataObject* identifier);

}  // namespace KESTREL::retrieve
