#include "kestrel/CStudyRootQuery.h"

#include "QueryProvider.h"
#include "QueryRequest.h"
#include "StudyRows.h"
#include "kestrel/RecordSets.h"

namespace {
constexpr KESTREL::query_layouts::Root kRoot = KESTREL::query_layouts::Root::kStudy;
}

struct CStudyRootQuery::State {
  explicit State(CResultsArray* rows) : requester(kRoot, rows), results(rows) {
    settings.root = kRoot;
    settings.operation = "CStudyRootQuery::SearchOn()";
  }
  KESTREL::query_request::Requester requester;
  CResultsArray* results;
  KESTREL::image_search::Settings settings;
};

CStudyRootQuery::CStudyRootQuery(CResultsArray* pResults)
    : state_(std::make_unique<State>(pResults)) {}

CStudyRootQuery::~CStudyRootQuery() = default;

int CStudyRootQuery::SetKey(uint16_t group, uint16_t element, const std::string& value) {
  return state_->requester.SetKey(group, element, value);
}

void CStudyRootQuery::ClearKeys() { state_->requester.ClearKeys(); }

int CStudyRootQuery::Query(const std::string& level, const std::string& host,
                           const std::string& port, const std::string& callingAE,
                           const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  return state_->requester.Query(*this, level, host, port, callingAE, calledAE, status);
}

int CStudyRootQuery::GetResultSize(const std::string& level) {
  return KESTREL::query_request::Requester::ResultSize(kRoot, level);
}

const char* CStudyRootQuery::GetResultName(const std::string& level, int slot, uint16_t* group,
                                           uint16_t* element) {
  return KESTREL::query_request::Requester::ResultName(kRoot, level, slot, group, element);
}

int CStudyRootQuery::CallBack(DICOMCommandObject* response, DICOMDataObject* match) {
  state_->requester.AddRow(match);
  return 0;
}

void CStudyRootQuery::SetDatabase(CDatabase* pDatabase) { state_->settings.database = pDatabase; }

void CStudyRootQuery::SetRetrieveAETitle(const std::string& aeTitle) {
  state_->settings.retrieveAE = aeTitle;
}

int CStudyRootQuery::Answer(PDU_Service* pdu, DICOMCommandObject* request) {
  return KESTREL::query_provider::Answer(state_->settings, pdu, request);
}

int CStudyRootQuery::SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) {
  return KESTREL::query_provider::SearchOn(state_->settings, query, matches);
}

int CStudyRootQuery::StudyQuery(const std::string& studyInstanceUID, const std::string& patientID,
                                const std::string& patientName, const std::string& accessionNumber,
                                const std::string& studyID,
                                const std::string& referringPhysicianName,
                                const std::string& dateFrom, const std::string& dateTo,
                                const std::string& studyDescription, CDatabase* pDatabase) {
  CStudyQuerySet studies(pDatabase);
  const std::string keys =
      ConstructStudyQueryFilter(studyInstanceUID, patientID, patientName, accessionNumber, studyID,
                                referringPhysicianName, dateFrom, dateTo, studyDescription);
  if (!keys.empty()) studies.Filter += " AND " + keys;
  studies.Sort = "[StudyDate], [StudyTime]";
  if (!studies.Open()) return 0;
  KESTREL::study_rows::AddRows(studies, state_->results);
  studies.Close();
  return 1;
}
