#include "kestrel/CPatientRootQuery.h"

#include "QueryProvider.h"
#include "QueryRequest.h"

namespace {
constexpr KESTREL::query_layouts::Root kRoot = KESTREL::query_layouts::Root::kPatient;
}

struct CPatientRootQuery::State {
  explicit State(CResultsArray* results) : requester(kRoot, results) {
    settings.root = kRoot;
    settings.operation = "CPatientRootQuery::SearchOn()";
  }
  KESTREL::query_request::Requester requester;
  KESTREL::image_search::Settings settings;
};

CPatientRootQuery::CPatientRootQuery(CResultsArray* pResults)
    : state_(std::make_unique<State>(pResults)) {}

CPatientRootQuery::~CPatientRootQuery() = default;

int CPatientRootQuery::SetKey(uint16_t group, uint16_t element, const std::string& value) {
  return state_->requester.SetKey(group, element, value);
}

void CPatientRootQuery::ClearKeys() { state_->requester.ClearKeys(); }

int CPatientRootQuery::Query(const std::string& level, const std::string& host,
                             const std::string& port, const std::string& callingAE,
                             const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  return state_->requester.Query(*this, level, host, port, callingAE, calledAE, status);
}

int CPatientRootQuery::GetResultSize(const std::string& level) {
  return KESTREL::query_request::Requester::ResultSize(kRoot, level);
}

const char* CPatientRootQuery::GetResultName(const std::string& level, int slot, uint16_t* group,
                                             uint16_t* element) {
  return KESTREL::query_request::Requester::ResultName(kRoot, level, slot, group, element);
}

int CPatientRootQuery::CallBack(DICOMCommandObject* response, DICOMDataObject* match) {
  state_->requester.AddRow(match);
  return 0;
}

void CPatientRootQuery::SetDatabase(CDatabase* pDatabase) { state_->settings.database = pDatabase; }

void CPatientRootQuery::SetRetrieveAETitle(const std::string& aeTitle) {
  state_->settings.retrieveAE = aeTitle;
}

int CPatientRootQuery::Answer(PDU_Service* pdu, DICOMCommandObject* request) {
  return KESTREL::query_provider::Answer(state_->settings, pdu, request);
}

int CPatientRootQuery::SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) {
  return KESTREL::query_provider::SearchOn(state_->settings, query, matches);
}
