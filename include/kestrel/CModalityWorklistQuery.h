#pragma once

// The modality worklist (PS3.4 Annex K, Modality Worklist Information Model - FIND,
// "1.2.840.10008.5.1.4.31"), both ways:
// - requester: a C-FIND to a remote worklist provider, each answer becoming a row of the
//   caller's CResultsArray;
// - provider: the answers to a worklist C-FIND made from the orders of the RIS database
//   (CWorklistOrderSet), for `kestrel serve --ris`.
//
// The RIS names modalities by department ("Breast Imaging", "MRI"); the two Convert operations
// translate between those names and DICOM modality codes. docs/query.md has the mapping from
// order columns to worklist attributes and the matching rules.

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/Export.h"
#include "kestrel/StandardQuery.h"
#include "kestrel/Status.h"

class CDatabase;
class CResultsArray;
class CWorklistOrderSet;
class DICOMCommandObject;
class DICOMDataObject;
class FindMatchSource;
class PDU_Service;
class VR;

class KESTREL_API CModalityWorklistQuery : public ModalityWorklistInformationQuery {
 public:
  // The row layout of the requester's results: one row per answer, each slot the attribute's
  // value or null when the answer did not carry it. Slots 9 to 15 come from the first item of
  // the Scheduled Procedure Step Sequence (0040,0100).
  enum ResultSlot {
    kPatientName = 0,                         // (0010,0010)
    kPatientID = 1,                           // (0010,0020)
    kPatientBirthDate = 2,                    // (0010,0030)
    kPatientSex = 3,                          // (0010,0040)
    kAccessionNumber = 4,                     // (0008,0050)
    kRequestedProcedureID = 5,                // (0040,1001)
    kRequestedProcedureDescription = 6,       // (0032,1060)
    kStudyInstanceUID = 7,                    // (0020,000D)
    kReferringPhysicianName = 8,              // (0008,0090)
    kModality = 9,                            // (0008,0060)
    kScheduledProcedureStepStartDate = 10,    // (0040,0002)
    kScheduledProcedureStepStartTime = 11,    // (0040,0003)
    kScheduledStationAETitle = 12,            // (0040,0001)
    kScheduledPerformingPhysicianName = 13,   // (0040,0006)
    kScheduledProcedureStepDescription = 14,  // (0040,0007)
    kScheduledProcedureStepID = 15,           // (0040,0009)
    kResultSize = 16
  };

  // `pResults` receives the requester's rows; it is not deleted here (nor are its rows).
  explicit CModalityWorklistQuery(CResultsArray* pResults = nullptr);
  ~CModalityWorklistQuery() override;
  CModalityWorklistQuery(const CModalityWorklistQuery&) = delete;
  CModalityWorklistQuery& operator=(const CModalityWorklistQuery&) = delete;

  // A DICOM modality code to the RIS name used as a key against the order table, and an
  // order's RIS name to the DICOM code put into an answer. An input no table row names is
  // copied unchanged. The result is written into the first argument.
  static void ConvertDICOM2RISModality(std::string& risModality, const std::string& dicomModality);
  static void ConvertRIS2DICOMModality(std::string& dicomModality, const std::string& risModality);

  // Requester.
  //
  // A matching key (with a value) or return key (empty value) for the next Query. The
  // attributes of a scheduled procedure step (Modality (0008,0060) and (0040,0001) to
  // (0040,0020), (0040,0400)) go into the item of the Scheduled Procedure Step Sequence, all
  // others at the top level. A key set twice keeps its last value. Every attribute of the row
  // layout is asked for whether or not it is set here. 0 for a group 0000 or 0002 tag or a
  // value longer than 1024 characters.
  int SetKey(uint16_t group, uint16_t element, const std::string& value);
  // The keyword of the attribute in result slot `slot` ("PatientName"), or "" out of range.
  static const char* GetResultName(int slot);
  // One association to `host` and `port` proposing the worklist SOP class, one C-FIND with
  // the keys set, then a release; each answer is handed to CallBack. 1 on success. Otherwise
  // 0 with `status` (when not null) and the last-error text as CVerification::Client sets
  // them; a final failure status from the peer counts as a failed exchange (status 2).
  int Query(const std::string& host, const std::string& port, const std::string& callingAE,
            const std::string& calledAE, KESTREL::KESTREL_STATUS* status);
  // Appends a row for `match` to the results (when there is a results array); returns 0, so
  // that the base deletes the match.
  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override;

  // Provider.
  //
  // The open RIS database the answers are read from; not deleted here. Without one the order
  // set connects with its own connect string ("ODBC;DSN=RISInterface;UID=sa; PWD=;").
  void SetDatabase(CDatabase* pDatabase);
  // The matches for the identifier `query`, one at a time: a new source the caller deletes,
  // which reads the matching orders when it is made. Null when the database could not be read
  // (the last-error text says why). `query` is emptied.
  FindMatchSource* OpenSearch(DICOMDataObject* query);
  // Appends one new data set per match of `query` to `matches` (the caller then owns them).
  // 0 when the database could not be read.
  int SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) override;
  // Answers the C-FIND-RQ `request` just read from `pdu`: reads its identifier and sends the
  // matches through KESTREL::AnswerFind (C000 when the database fails). 1 when the answer
  // went out, 0 when the association cannot go on.
  int Answer(PDU_Service* pdu, DICOMCommandObject* request);
  // The answer element for the key (group, element) from the order `order` stands on: a new
  // element (the caller deletes it) with the value the mapping gives, empty when the order
  // holds none. `inStep` tells a key of the Scheduled Procedure Step Sequence item from one at
  // the top level. Null for an attribute the mapping does not provide.
  VR* MapElement(uint16_t group, uint16_t element, bool inStep, const CWorklistOrderSet& order);

 private:
  struct Request;
  CResultsArray* results_;
  CDatabase* database_ = nullptr;
  std::unique_ptr<Request> request_;
};
