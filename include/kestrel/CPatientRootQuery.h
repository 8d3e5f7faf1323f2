#pragma once

// The Patient Root Query/Retrieve Information Model - FIND (PS3.4 C.6.1,
// "1.2.840.10008.5.1.4.1.2.1.1"), both ways:
// - requester: a C-FIND to a remote node at PATIENT, STUDY, SERIES or IMAGE level, each answer
//   becoming a row of the caller's CResultsArray in the layout of that level (below);
// - provider: the answers to such a C-FIND from the local image database (the Patient, Study,
//   Series and Image tables), for `kestrel serve`.
// docs/query.md lists the attributes answered and the matching rules.

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/StandardQuery.h"
#include "kestrel/Status.h"

class CDatabase;
class CResultsArray;
class DICOMCommandObject;
class DICOMDataObject;
class PDU_Service;

class KESTREL_API CPatientRootQuery : public PatientRootQuery {
 public:
  // Row layouts, one per level. A slot is null when the answer did not carry the attribute;
  // slots not named here are never filled.
  enum PatientSlot {
    kPatientName = 0,       // (0010,0010)
    kPatientID = 1,         // (0010,0020)
    kPatientSex = 2,        // (0010,0040)
    kPatientBirthDate = 3,  // (0010,0030)
    kPatientResultSize = 4
  };
  enum StudySlot {
    kStudyInstanceUID = 0,             // (0020,000D)
    kStudyID = 1,                      // (0020,0010)
    kStudyDate = 2,                    // (0008,0020)
    kStudyTime = 3,                    // (0008,0030)
    kAccessionNumber = 4,              // (0008,0050)
    kReferringPhysicianName = 5,       // (0008,0090)
    kStudyDescription = 7,             // (0008,1030)
    kInstitutionalDepartmentName = 8,  // (0008,1040)
    kStudyResultSize = 9
  };
  enum SeriesSlot {
    kSeriesInstanceUID = 0,  // (0020,000E)
    kSeriesNumber = 1,       // (0020,0011)
    kSeriesResultSize = 13
  };
  enum ImageSlot {
    kSOPInstanceUID = 0,  // (0008,0018)
    kInstanceNumber = 5,  // (0020,0013)
    kImageResultSize = 16
  };

  // `pResults` receives the requester's rows; it is not deleted here (nor are its rows).
  explicit CPatientRootQuery(CResultsArray* pResults = nullptr);
  ~CPatientRootQuery() override;
  CPatientRootQuery(const CPatientRootQuery&) = delete;
  CPatientRootQuery& operator=(const CPatientRootQuery&) = delete;

  // Requester.
  //
  // A matching key (with a value) or return key (empty value) for the next Query, besides the
  // attributes of the level's row layout, which are always asked for. A key set twice keeps
  // its last value. Hierarchical queries (PS3.4 C.4.1.3.1.1) name the unique keys of the
  // levels above: Patient ID at STUDY level, and Study Instance UID at SERIES level, and so on.
  // 0 for a group 0000 or 0002 tag, Query/Retrieve Level (0008,0052), or a value longer than
  // 1024 characters.
  int SetKey(uint16_t group, uint16_t element, const std::string& value);
  void ClearKeys();
  // One association to `host` and `port` proposing this SOP class in implicit VR little
  // endian, one C-FIND at `level` (the first of "PATIENT", "STUDY", "SERIES", "IMAGE" that
  // occurs in it), then a release; each answer becomes a row (CallBack). Text keys are padded
  // to an even length with a blank. 1 on success. Otherwise 0 with `status` (when not null)
  // and the last-error text: "ERROR: Unable to connect to <host>\r\n" and the reason (status
  // 1), or "ERROR: Unable to write DICOM object.\r\n" (status 2), also for a final failure
  // status from the peer and for a level naming none of the four (refused before connecting).
  int Query(const std::string& level, const std::string& host, const std::string& port,
            const std::string& callingAE, const std::string& calledAE,
            KESTREL::KESTREL_STATUS* status);
  // The slots of a row at `level` (0 for a level the model has not), and the keyword of the
  // attribute in `slot` ("PatientName"; "" for a slot never filled or out of range), its tag
  // through `group` and `element` when those are not null (0 when none).
  static int GetResultSize(const std::string& level);
  static const char* GetResultName(const std::string& level, int slot, uint16_t* group = nullptr,
                                   uint16_t* element = nullptr);
  // Each answer of Query becomes a row. Returns 0, so that the base deletes the match.
  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override;

  // Provider.
  //
  // The image database the answers come from (not deleted here); without one, or with one
  // that is not open, each search connects on its own with its connect string (the record
  // sets' default "ODBC;DSN=DICOMServer;UID=admin" when it has none).
  void SetDatabase(CDatabase* pDatabase);
  // The Retrieve AE Title (0008,0054) answered when a query asks for it; none by default.
  void SetRetrieveAETitle(const std::string& aeTitle);
  // `request` is a C-FIND-RQ just read from `pdu`: reads its identifier and answers it from
  // the database, one pending response per match with a C-CANCEL honoured between them
  // (KESTREL::AnswerFind), then the final status: A900 for a level this model has not, C000
  // when the database fails (the last-error text "KESTREL.dll : CPatientRootQuery::SearchOn() :
  // " and the driver's text). 1 when the answer went out; 0 when the association cannot go on.
  int Answer(PDU_Service* pdu, DICOMCommandObject* request);
  // The same matches, each a new object appended to `matches` (for StandardQuery::Read). 0
  // when the search failed.
  int SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};
