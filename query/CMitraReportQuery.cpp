#include "kestrel/CMitraReportQuery.h"

#include <memory>
#include <string>
#include <vector>

#include "Elements.h"
#include "FindClient.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/UID.h"

namespace el = KESTREL::query_elements;

namespace {

struct Column {
  uint16_t group;
  uint16_t element;
  const char* vr;
  const char* keyword;
};

// The IMAGE level keys of step 2, in CMitraReportQuery::ResultSlot order.
constexpr Column kColumns[] = {
    {0x0008, 0x0018, "UI", "SOPInstanceUID"},   {0x0040, 0xA491, "CS", "CompletionFlag"},
    {0x0040, 0xA493, "CS", "VerificationFlag"}, {0x0008, 0x0023, "DA", "ContentDate"},
    {0x0008, 0x0033, "TM", "ContentTime"},      {0x0020, 0x0013, "IS", "InstanceNumber"},
    {0x0008, 0x0016, "UI", "SOPClassUID"},      {0x0020, 0x000E, "UI", "SeriesInstanceUID"},
};
static_assert(sizeof kColumns / sizeof kColumns[0] == CMitraReportQuery::kResultSize,
              "one column per result slot");

constexpr uint16_t kLevelGroup = 0x0008, kLevelElement = 0x0052;  // Query/Retrieve Level
constexpr uint16_t kStudyGroup = 0x0020, kStudyElement = 0x000D;
constexpr uint16_t kSeriesGroup = 0x0020, kSeriesElement = 0x000E;

bool SeriesIdentifier(DICOMDataObject* identifier, const std::string& study) {
  return el::PushText(identifier, kLevelGroup, kLevelElement, "SERIES", "CS") &&
         el::PushText(identifier, kStudyGroup, kStudyElement, study, "UI") &&
         el::PushText(identifier, kSeriesGroup, kSeriesElement, "", "UI") &&
         el::PushText(identifier, 0x0008, 0x0060, "SR", "CS");
}

bool ImageIdentifier(DICOMDataObject* identifier, const std::string& study,
                     const std::string& series) {
  if (!el::PushText(identifier, kLevelGroup, kLevelElement, "IMAGE", "CS") ||
      !el::PushText(identifier, kStudyGroup, kStudyElement, study, "UI"))
    return false;
  for (const Column& column : kColumns) {
    bool isSeries = column.group == kSeriesGroup && column.element == kSeriesElement;
    if (!el::PushText(identifier, column.group, column.element, isSeries ? series : "", column.vr))
      return false;
  }
  return true;
}

}  // namespace

struct CMitraReportQuery::State {
  bool askingSeries = false;
  std::vector<std::string> series;  // SR series found by step 1
};

CMitraReportQuery::CMitraReportQuery(CResultsArray* pResults)
    : results_(pResults), state_(std::make_unique<State>()) {}

CMitraReportQuery::~CMitraReportQuery() = default;

const char* CMitraReportQuery::GetResultName(int slot) {
  return slot >= 0 && slot < kResultSize ? kColumns[slot].keyword : "";
}

int CMitraReportQuery::Query(const std::string& studyInstanceUID, const std::string& host,
                             const std::string& port, const std::string& callingAE,
                             const std::string& calledAE, KESTREL::KESTREL_STATUS* status) {
  const std::string failed = "Error: Unable to write DICOM object.\r\n";
  DICOMDataObject seriesKeys;
  if (studyInstanceUID.empty() || studyInstanceUID.size() > UID::kMaxLength ||
      !SeriesIdentifier(&seriesKeys, studyInstanceUID)) {
    KESTREL::SetLastErrorText(failed);
    if (status) *status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
    return 0;
  }
  KESTREL::query_client::FindAssociation association;
  if (!association.Open(*this, host, port, callingAE, calledAE, status)) return 0;
  state_->series.clear();
  state_->askingSeries = true;
  bool found = association.Find(*this, &seriesKeys, status);
  state_->askingSeries = false;
  if (!found) return 0;
  for (const std::string& series : state_->series) {
    DICOMDataObject imageKeys;
    if (!ImageIdentifier(&imageKeys, studyInstanceUID, series)) {
      KESTREL::SetLastErrorText(failed);
      association.Close(status);
      if (status) *status = KESTREL::KESTREL_STATUS_WRITE_FAILED;
      return 0;
    }
    if (!association.Find(*this, &imageKeys, status)) return 0;
  }
  association.Close(status);
  return 1;
}

int CMitraReportQuery::CallBack(DICOMCommandObject* response, DICOMDataObject* match) {
  if (!match) return 0;
  if (state_->askingSeries) {
    std::string series = el::Text(match->Find(kSeriesGroup, kSeriesElement));
    if (!series.empty()) state_->series.push_back(series);
    return 0;
  }
  if (!results_) return 0;
  auto row = std::make_unique<CResult>();
  row->SetSize(kResultSize);
  for (int slot = 0; slot < kResultSize; ++slot) {
    VR* element = match->Find(kColumns[slot].group, kColumns[slot].element);
    if (element) row->SetAt(slot, new std::string(el::Text(element)));
  }
  results_->Add(row.release());
  return 0;
}
