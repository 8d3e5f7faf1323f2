#pragma once

// The answering side of C-FIND (PS3.4 C.4.1.3, PS3.7 9.1.2): one pending response per match,
// then the final response, with the peer's C-CANCEL honoured between matches. Every query
// information model the library answers (the modality worklist, and the patient and study
// root models) runs its matches through AnswerFind; each supplies its matches through a
// FindMatchSource, one at a time, so that an answer is never held in memory all at once.

#include <cstdint>

#include "kestrel/Export.h"

class DICOMCommandObject;
class DICOMDataObject;
class PDU_Service;

class KESTREL_API FindMatchSource {
 public:
  virtual ~FindMatchSource();
  // The next match as a new data set, which the caller deletes; null when there is none left
  // or the search failed.
  virtual DICOMDataObject* NextMatch() = 0;
  // After NextMatch gave null: the failure status of the search (PS3.4 Table C.4-1, e.g.
  // C000 "unable to process"), or 0 when the matches simply ran out. The base gives 0.
  virtual uint16_t GetFailureStatus();
};

namespace KESTREL {

// `request` is a C-FIND-RQ just read from `pdu` (with its identifier); `source` gives the
// matches for that identifier. Before each match is sent, input from the peer is looked at
// without waiting: a C-CANCEL-RQ for this request ends the answer with status FE00 (a cancel
// for another message ID is ignored). Each match goes out in a pending response (FF00); then
// the final response carries FE00, the source's failure status, or success (0000).
//
// 1 when the final response went out; 0 when the association cannot go on (a send failed, the
// peer went away, or it sent anything but a C-CANCEL while the answer ran): the caller aborts.
KESTREL_API int AnswerFind(PDU_Service* pdu, DICOMCommandObject* request, FindMatchSource& source);

}  // namespace KESTREL
