#pragma once

// The reports of a study at a remote node: the structured report (SR) documents the node holds
// for one study, found with C-FIND in the Study Root Query/Retrieve Information Model
// (PS3.4 C.6.2, "1.2.840.10008.5.1.4.1.2.2.1"). Two steps on one association, so that any
// node answers, including those that allow only hierarchical queries (PS3.4 C.4.1.3.1.1):
//   1. SERIES level: Study Instance UID = the study, Modality = "SR"; the Series Instance
//      UIDs come back.
//   2. IMAGE level, once per SR series: Study and Series Instance UID given; asked for SOP
//      Instance UID, SOP Class UID, Instance Number, Completion Flag (0040,A491),
//      Verification Flag (0040,A493), Content Date (0008,0023) and Content Time (0008,0033).
// Each answer of step 2 becomes one row of the caller's CResultsArray.

#include <memory>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/StandardQuery.h"
#include "kestrel/Status.h"

class CResultsArray;
class DICOMCommandObject;
class DICOMDataObject;

class KESTREL_API CMitraReportQuery : public StudyRootQuery {
 public:
  // The row layout: slots 0 and 5 as in the IMAGE rows of the study-root query; the others
  // are the report's. A slot is null when the answer did not carry the attribute.
  enum ResultSlot {
    kSOPInstanceUID = 0,     // (0008,0018)
    kCompletionFlag = 1,     // (0040,A491): PARTIAL or COMPLETE
    kVerificationFlag = 2,   // (0040,A493): UNVERIFIED or VERIFIED
    kContentDate = 3,        // (0008,0023)
    kContentTime = 4,        // (0008,0033)
    kInstanceNumber = 5,     // (0020,0013)
    kSOPClassUID = 6,        // (0008,0016)
    kSeriesInstanceUID = 7,  // (0020,000E)
    kResultSize = 8
  };

  // `pResults` receives the rows; it is not deleted here (nor are its rows).
  explicit CMitraReportQuery(CResultsArray* pResults = nullptr);
  ~CMitraReportQuery() override;
  CMitraReportQuery(const CMitraReportQuery&) = delete;
  CMitraReportQuery& operator=(const CMitraReportQuery&) = delete;

  // The keyword of the attribute in result slot `slot` ("CompletionFlag"), or "" out of range.
  static const char* GetResultName(int slot);
  // The two steps above for `studyInstanceUID`, on one association to `host` and `port`, then a
  // release. 1 on success (also when the study has no reports). Otherwise 0 with `status`
  // (when not null) and the last-error text as CVerification::Client sets them; a final
  // failure status from the peer counts as a failed exchange (status 2). An empty UID, or one
  // longer than 64 characters, is refused before any connection (status 2).
  int Query(const std::string& studyInstanceUID, const std::string& host, const std::string& port,
            const std::string& callingAE, const std::string& calledAE,
            KESTREL::KESTREL_STATUS* status);
  // Step 1 answers are kept as series to ask; step 2 answers become rows. Returns 0, so that
  // the base deletes the match.
  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override;

 private:
  struct State;
  CResultsArray* results_;
  std::unique_ptr<State> state_;
};
