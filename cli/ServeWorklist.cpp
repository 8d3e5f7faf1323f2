#include "ServeWorklist.h"

#include <cstdio>
#include <string>

#include "ServeDispatcher.h"
#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"

namespace {

bool IsWorklistRequest(DICOMCommandObject* request, CModalityWorklistQuery& query) {
  UID worklist, asked;
  query.GetUID(worklist);
  asked.Set(request->Find(0x0000, 0x0002));  // Affected SOP Class UID
  return asked == worklist;
}

// Reads the request's identifier and answers with `status` alone.
bool AnswerStatus(PDU_Service& pdu, DICOMCommandObject* request, uint16_t status) {
  DICOMDataObject identifier;
  return CFindRQ::Read(request, &pdu, &identifier) &&
         CFindRSP::Write(&pdu, request, status, nullptr);
}

void Report(PDU_Service& pdu, const std::string& text) {
  std::fprintf(stderr, "kestrel serve: worklist query from %s: %s\n",
               pdu.GetCallingAETitle().c_str(), text.c_str());
}

bool AnswerWorklist(const Dispatcher& dispatcher, const std::string& risConnect, PDU_Service& pdu,
                    DICOMCommandObject* request) {
  CModalityWorklistQuery query;
  if (!IsWorklistRequest(request, query))
    return AnswerStatus(pdu, request, DIMSEStatus::kSOPClassNotSupported);
  // A connection per request: the requests of different associations run on their own threads.
  CDatabase database;
  try {
    database.Open(risConnect);
  } catch (const CDBException& e) {
    Report(pdu, "cannot connect to the RIS database: " + e.GetErrorMessage());
    return AnswerStatus(pdu, request, DIMSEStatus::kUnableToProcess);
  }
  query.SetDatabase(&database);
  KESTREL::SetLastErrorText("");
  bool answered = query.Answer(&pdu, request) != 0;
  if (!KESTREL::GetLastErrorText().empty())
    Report(pdu, KESTREL::GetLastErrorText());
  else if (dispatcher.Settings().verbose)
    Report(pdu, answered ? "answered" : "the association broke");
  return answered;
}

}  // namespace

void AddWorklistHandler(Dispatcher& dispatcher, const std::string& risConnect) {
  dispatcher.Add(
      CFindRQ::kCommandField,
      [&dispatcher, risConnect](PDU_Service& pdu, DICOMCommandObject* request) {
        return AnswerWorklist(dispatcher, risConnect, pdu, request);
      },
      "1.2.840.10008.5.1.4.31");
}
