// The requester side of the modality worklist: the identifier asked for, and each answer
// turned into a row of the caller's results.
#include <map>
#include <memory>
#include <utility>

#include "Elements.h"
#include "FindClient.h"
#include "WorklistMapping.h"
#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/DICOMObject.h"

namespace el = KESTREL::query_elements;

namespace {

constexpr size_t kMaxKeyLength = 1024;

struct Column {
  uint16_t group;
  uint16_t element;
  bool inStep;
  const char* vr;
  const char* keyword;
};

// The result slots, in CModalityWorklistQuery::ResultSlot order.
constexpr Column kColumns[] = {
    {0x0010, 0x0010, false, "PN", "PatientName"},
    {0x0010, 0x0020, false, "LO", "PatientID"},
    {0x0010, 0x0030, false, "DA", "PatientBirthDate"},
    {0x0010, 0x0040, false, "CS", "PatientSex"},
    {0x0008, 0x0050, false, "SH", "AccessionNumber"},
    {0x0040, 0x1001, false, "SH", "RequestedProcedureID"},
    {0x0032, 0x1060, false, "LO", "RequestedProcedureDescription"},
    {0x0020, 0x000D, false, "UI", "StudyInstanceUID"},
    {0x0008, 0x0090, false, "PN", "ReferringPhysicianName"},
    {0x0008, 0x0060, true, "CS", "Modality"},
    {0x0040, 0x0002, true, "DA", "ScheduledProcedureStepStartDate"},
    {0x0040, 0x0003, true, "TM", "ScheduledProcedureStepStartTime"},
    {0x0040, 0x0001, true, "AE", "ScheduledStationAETitle"},
    {0x0040, 0x0006, true, "PN", "ScheduledPerformingPhysicianName"},
    {0x0040, 0x0007, true, "LO", "ScheduledProcedureStepDescription"},
    {0x0040, 0x0009, true, "SH", "ScheduledProcedureStepID"},
};
static_assert(sizeof kColumns / sizeof kColumns[0] == CModalityWorklistQuery::kResultSize,
              "one column per result slot");

// The attributes of the Scheduled Procedure Step (PS3.4 Table K.6-1): Modality and the
// (0040,00xx) step attributes, and the step's comments.
bool InStep(uint16_t group, uint16_t element) {
  if (group == 0x0008) return element == 0x0060;
  return group == 0x0040 && ((element >= 0x0001 && element <= 0x0020) || element == 0x0400);
}

using Tag = std::pair<uint16_t, uint16_t>;

}  // namespace

// The keys of the next Query, by tag, at the top level and in the step item.
struct CModalityWorklistQuery::Request {
  std::map<Tag, std::string> top;
  std::map<Tag, std::string> step;
};

CModalityWorklistQuery::CModalityWorklistQuery(CResultsArray* pResults)
    : results_(pResults), request_(std::make_unique<Request>()) {}

CModalityWorklistQuery::~CModalityWorklistQuery() = default;

const char* CModalityWorklistQuery::GetResultName(int slot) {
  return slot >= 0 && slot < kResultSize ? kColumns[slot].keyword : "";
}

int CModalityWorklistQuery::SetKey(uint16_t group, uint16_t element, const std::string& value) {
  if (group == 0x0000 || group == 0x0002 || value.size() > kMaxKeyLength) return 0;
  if (group == KESTREL::worklist::kStepSequenceGroup &&
      element == KESTREL::worklist::kStepSequenceElement)
    return 0;
  (InStep(group, element) ? request_->step : request_->top)[{group, element}] = value;
  return 1;
}

namespace {

// Every column asked for, then the caller's keys over them. Keys not in the columns go out
// without a VR of their own (UN in an explicit transfer syntax, which only the implicit
// syntax the requester proposes never needs).
bool BuildIdentifier(DICOMDataObject* identifier, const std::map<Tag, std::string>& top,
                     const std::map<Tag, std::string>& step) {
  std::map<Tag, std::pair<std::string, const char*>> topKeys, stepKeys;
  for (const Column& column : kColumns)
    (column.inStep ? stepKeys : topKeys)[{column.group, column.element}] = {"", column.vr};
  for (const auto& [tag, value] : top) topKeys[tag].first = value;
  for (const auto& [tag, value] : step) stepKeys[tag].first = value;
  auto item = std::make_unique<DICOMDataObject>();
  for (const auto& [tag, key] : stepKeys)
    if (!el::PushText(item.get(), tag.first, tag.second, key.first, key.second ? key.second : "UN"))
      return false;
  for (const auto& [tag, key] : topKeys)
    if (!el::PushText(identifier, tag.first, tag.second, key.first, key.second ? key.second : "UN"))
      return false;
  return el::PushSequence(identifier, KESTREL::worklist::kStepSequenceGroup,
                          KESTREL::worklist::kStepSequenceElement, std::move(item));
}

}  // namespace

int CModalityWorklistQuery::Query(const std::string& host, const std::string& port,
                                  const std::string& callingAE, const std::string& calledAE,
                                  KESTREL::KESTREL_STATUS* status) {
  DICOMDataObject identifier;
  if (!BuildIdentifier(&identifier, request_->top, request_->step)) {
    KESTREL::SetLastErrorText("Error: Unable to write DICOM object.\r\n");
    if (status) *status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
    return 0;
  }
  KESTREL::query_client::FindAssociation association;
  if (!association.Open(*this, host, port, callingAE, calledAE, status)) return 0;
  if (!association.Find(*this, &identifier, status)) return 0;
  association.Close(status);
  return 1;
}

int CModalityWorklistQuery::CallBack(DICOMCommandObject* response, DICOMDataObject* match) {
  if (!results_ || !match) return 0;
  VR* sequence =
      match->Find(KESTREL::worklist::kStepSequenceGroup, KESTREL::worklist::kStepSequenceElement);
  (void)el::ExpandSequence(sequence);  // FirstItem finds none when it is no item stream
  DICOMDataObject* step = el::FirstItem(sequence);
  auto row = std::make_unique<CResult>();
  row->SetSize(kResultSize);
  for (int slot = 0; slot < kResultSize; ++slot) {
    const Column& column = kColumns[slot];
    DICOMDataObject* from = column.inStep ? step : match;
    VR* element = from ? from->Find(column.group, column.element) : nullptr;
    if (element) row->SetAt(slot, new std::string(el::Text(element)));
  }
  results_->Add(row.release());
  return 0;
}
