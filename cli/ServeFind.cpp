// The patient-root and study-root C-FIND handlers of `kestrel serve`: answers from the image
// database, one pending response per match, a C-CANCEL honoured between them.
#include <cstdio>
#include <memory>
#include <string>

#include "ServeDispatcher.h"
#include "ServeQuery.h"
#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CPatientRootQuery.h"
#include "kestrel/CStudyRootQuery.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"

namespace {

thread_local std::unique_ptr<CDatabase> queryDatabase;

void Report(PDU_Service& pdu, const std::string& text) {
  std::fprintf(stderr, "kestrel serve: C-FIND from %s: %s\n", pdu.GetCallingAETitle().c_str(),
               text.c_str());
}

template <class Query>
bool Answer(const Dispatcher& dispatcher, PDU_Service& pdu, DICOMCommandObject* request) {
  std::string error;
  CDatabase* database = QueryDatabase(dispatcher.Settings().dbConnect, &error);
  if (!database) {
    Report(pdu, "the image database cannot be reached: " + error);
    DICOMDataObject identifier;
    return CFindRQ::Read(request, &pdu, &identifier) &&
           CFindRSP::Write(&pdu, request, DIMSEStatus::kUnableToProcess, nullptr);
  }
  Query query;
  query.SetDatabase(database);
  query.SetRetrieveAETitle(pdu.GetCalledAETitle());
  KESTREL::SetLastErrorText("");
  const bool answered = query.Answer(&pdu, request) != 0;
  if (!KESTREL::GetLastErrorText().empty()) {
    Report(pdu, KESTREL::GetLastErrorText());
    DropQueryDatabase();
  } else if (dispatcher.Settings().verbose) {
    Report(pdu, answered ? "answered" : "the association broke");
  }
  return answered;
}

}  // namespace

CDatabase* QueryDatabase(const std::string& connect, std::string* error) {
  if (queryDatabase && queryDatabase->IsOpen()) return queryDatabase.get();
  queryDatabase = std::make_unique<CDatabase>();
  try {
    queryDatabase->Open(connect);
  } catch (const CDBException& e) {
    *error = e.GetErrorMessage();
    queryDatabase.reset();
    return nullptr;
  }
  return queryDatabase.get();
}

void DropQueryDatabase() { queryDatabase.reset(); }

void AddFindHandlers(Dispatcher& dispatcher) {
  dispatcher.Add(
      CFindRQ::kCommandField,
      [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
        return Answer<CPatientRootQuery>(dispatcher, pdu, request);
      },
      "1.2.840.10008.5.1.4.1.2.1.1");
  dispatcher.Add(
      CFindRQ::kCommandField,
      [&dispatcher](PDU_Service& pdu, DICOMCommandObject* request) {
        return Answer<CStudyRootQuery>(dispatcher, pdu, request);
      },
      "1.2.840.10008.5.1.4.1.2.2.1");
}
