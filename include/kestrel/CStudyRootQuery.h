#pragma once

// The Study Root Query/Retrieve Information Model - FIND (PS3.4 C.6.2,
// "1.2.840.10008.5.1.4.1.2.2.1"), both ways, as CPatientRootQuery does for the patient root
// (STUDY, SERIES and IMAGE levels; patient attributes are study attributes here), and the
// study query over the local image database: the caller's study keys made into the filter of
// the joined Study and Patient record set (CStudyQuerySet).

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

class KESTREL_API CStudyRootQuery : public StudyRootQuery {
 public:
  // Row layouts, one per level. Slots 0 to 8 of a STUDY row, 0 and 1 of a SERIES row and 0
  // and 5 of an IMAGE row are those of the patient-root layouts. A slot is null when the
  // answer (or, for StudyQuery, the study's row) did not carry the attribute.
  enum StudySlot {
    kStudyInstanceUID = 0,                // (0020,000D)
    kStudyID = 1,                         // (0020,0010)
    kStudyDate = 2,                       // (0008,0020)
    kStudyTime = 3,                       // (0008,0030)
    kAccessionNumber = 4,                 // (0008,0050)
    kReferringPhysicianName = 5,          // (0008,0090)
    kModalitiesInStudy = 6,               // (0008,0061)
    kStudyDescription = 7,                // (0008,1030)
    kInstitutionalDepartmentName = 8,     // (0008,1040)
    kPatientName = 9,                     // (0010,0010)
    kPatientID = 10,                      // (0010,0020)
    kPatientBirthDate = 11,               // (0010,0030)
    kPatientSex = 12,                     // (0010,0040)
    kNumberOfStudyRelatedSeries = 13,     // (0020,1206)
    kNumberOfStudyRelatedInstances = 14,  // (0020,1208)
    kStudyResultSize = 15
  };
  enum SeriesSlot {
    kSeriesInstanceUID = 0,                // (0020,000E)
    kSeriesNumber = 1,                     // (0020,0011)
    kModality = 2,                         // (0008,0060)
    kSeriesDescription = 3,                // (0008,103E)
    kSeriesDate = 4,                       // (0008,0021)
    kSeriesTime = 5,                       // (0008,0031)
    kBodyPartExamined = 6,                 // (0018,0015)
    kProtocolName = 7,                     // (0018,1030)
    kLaterality = 8,                       // (0020,0060)
    kPerformingPhysicianName = 9,          // (0008,1050)
    kOperatorsName = 10,                   // (0008,1070)
    kNumberOfSeriesRelatedInstances = 11,  // (0020,1209)
    kSeriesStudyInstanceUID = 12,          // (0020,000D)
    kSeriesResultSize = 13
  };
  enum ImageSlot {
    kSOPInstanceUID = 0,              // (0008,0018)
    kSOPClassUID = 1,                 // (0008,0016)
    kImageSeriesInstanceUID = 2,      // (0020,000E)
    kImageStudyInstanceUID = 3,       // (0020,000D)
    kImageType = 4,                   // (0008,0008)
    kInstanceNumber = 5,              // (0020,0013)
    kContentTime = 6,                 // (0008,0033)
    kAcquisitionTime = 7,             // (0008,0032)
    kRows = 8,                        // (0028,0010), in decimal
    kColumns = 9,                     // (0028,0011), in decimal
    kNumberOfFrames = 10,             // (0028,0008)
    kSliceLocation = 11,              // (0020,1041)
    kImagePositionPatient = 12,       // (0020,0032)
    kImageOrientationPatient = 13,    // (0020,0037)
    kPhotometricInterpretation = 14,  // (0028,0004)
    kSliceThickness = 15,             // (0018,0050)
    kImageResultSize = 16
  };

  // `pResults` receives the rows; it is not deleted here (nor are its rows).
  explicit CStudyRootQuery(CResultsArray* pResults = nullptr);
  ~CStudyRootQuery() override;
  CStudyRootQuery(const CStudyRootQuery&) = delete;
  CStudyRootQuery& operator=(const CStudyRootQuery&) = delete;

  // Requester: as CPatientRootQuery's, at STUDY, SERIES and IMAGE level.
  int SetKey(uint16_t group, uint16_t element, const std::string& value);
  void ClearKeys();
  int Query(const std::string& level, const std::string& host, const std::string& port,
            const std::string& callingAE, const std::string& calledAE,
            KESTREL::KESTREL_STATUS* status);
  static int GetResultSize(const std::string& level);
  static const char* GetResultName(const std::string& level, int slot, uint16_t* group = nullptr,
                                   uint16_t* element = nullptr);
  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override;

  // Provider: as CPatientRootQuery's ("KESTREL.dll : CStudyRootQuery::SearchOn() : ..."); a
  // PATIENT level query is answered A900.
  void SetDatabase(CDatabase* pDatabase);
  void SetRetrieveAETitle(const std::string& aeTitle);
  int Answer(PDU_Service* pdu, DICOMCommandObject* request);
  int SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) override;

  // The study query over the local image database.
  //
  // Every "*" of `text` becomes "%"; nothing else changes.
  void ReplaceWildcard(std::string& text);
  // Appends "<column> <op> '<value>' " to `filter`, after " AND " when `filter` is not empty;
  // nothing when `value` is empty or exactly "%".
  void AddParameter(std::string& filter, std::string& column, std::string& op, std::string& value);
  // The filter (an SQL condition without WHERE) of the study keys, in this order: Study
  // Instance UID, Patient ID, Patient's Name, Accession Number, Study ID, Referring
  // Physician's Name, the study date range (">=" `dateFrom`, "<=" `dateTo`), Study
  // Description; then `further`, when given, after " AND ". Empty keys and lone "*" set no
  // condition. Quotes are doubled in every key. The UID and the dates are compared with "=",
  // ">=" and "<="; each other key with "=" when it holds no wild card, otherwise with "Like"
  // on a pattern in which "*" and "?" are the wild cards and a "%", "_" or "\" of the key is
  // a literal character (escaped with "\", the condition ending in "ESCAPE '\' ").
  std::string ConstructStudyQueryFilter(std::string studyInstanceUID, std::string patientID,
                                        std::string patientName, std::string accessionNumber,
                                        std::string studyID, std::string referringPhysicianName,
                                        std::string dateFrom, std::string dateTo,
                                        std::string studyDescription,
                                        const std::string& further = std::string());
  // The studies of the local image database that match the keys (as for the filter above),
  // each appended to the results as a STUDY row (the two counts left null), in the order of
  // Study Date and Study Time. Texts are compared as the database compares them (names
  // with their case on PostgreSQL; LIKE ignores ASCII case on SQLite). `pDatabase` is not
  // deleted; without it the set connects with its default connect string. 1 on success; 0
  // when the database cannot be read, with the last-error text of CBasicRecordset.
  int StudyQuery(const std::string& studyInstanceUID, const std::string& patientID,
                 const std::string& patientName, const std::string& accessionNumber,
                 const std::string& studyID, const std::string& referringPhysicianName,
                 const std::string& dateFrom, const std::string& dateTo,
                 const std::string& studyDescription, CDatabase* pDatabase = nullptr);

 private:
  struct State;
  std::unique_ptr<State> state_;
};
