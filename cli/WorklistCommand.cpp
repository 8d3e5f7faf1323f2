// kestrel worklist: a modality worklist C-FIND (PS3.4 Annex K). Prints one tab-separated row
// per scheduled step with a header row, or with --json the answers in the DICOM JSON model.
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Commands.h"
#include "Dictionary.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "NetOptions.h"
#include "QueryKeys.h"
#include "kestrel/CModalityWorklistQuery.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

namespace {

struct WorklistOptions {
  NetOptions net;
  std::vector<std::string> keys;
  bool json = false;
  std::string host;
  std::string port;
};

// Keeps each answer's DICOM JSON besides the row the base makes of it.
class JsonWorklistQuery : public CModalityWorklistQuery {
 public:
  JsonWorklistQuery(CResultsArray* results, const RTC* dictionary)
      : CModalityWorklistQuery(results), dictionary_(dictionary) {}
  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override {
    CModalityWorklistQuery::CallBack(response, match);
    if (match) {
      AssignVRs(match, dictionary_);
      answers_.push_back(ToDicomJson(match));
    }
    return 0;
  }
  const nlohmann::ordered_json& Answers() const { return answers_; }

 private:
  const RTC* dictionary_;
  nlohmann::ordered_json answers_ = nlohmann::ordered_json::array();
};

// A value as one field of a tab-separated row.
std::string Field(const std::string* value) {
  if (!value) return std::string();
  std::string field = *value;
  for (char& c : field)
    if (c == '\t' || c == '\n' || c == '\r') c = ' ';
  return field;
}

void PrintRows(CResultsArray& results) {
  for (int slot = 0; slot < CModalityWorklistQuery::kResultSize; ++slot)
    std::cout << (slot ? "\t" : "") << CModalityWorklistQuery::GetResultName(slot);
  std::cout << '\n';
  for (int i = 0; i < results.GetSize(); ++i) {
    CResult* row = results.GetAt(i);
    for (int slot = 0; slot < CModalityWorklistQuery::kResultSize; ++slot)
      std::cout << (slot ? "\t" : "") << Field(row->GetAt(slot));
    std::cout << '\n';
  }
}

int RunWorklist(const WorklistOptions& options) {
  std::string error;
  std::unique_ptr<RTC> dictionary(LoadToolDictionary("", error, true));
  CResultsArray results;
  JsonWorklistQuery query(&results, dictionary.get());
  for (const std::string& text : options.keys) {
    QueryKey key;
    if (!ParseQueryKey(text, dictionary.get(), key, error) ||
        !query.SetKey(key.group, key.element, key.value)) {
      std::cerr << "kestrel worklist: " << (error.empty() ? "cannot ask for " + text : error)
                << '\n';
      return kExitUsage;
    }
  }
  ApplyTimeout(options.net);
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  query.Query(options.host, options.port, options.net.callingAE, options.net.calledAE, &status);
  int code = ExitCodeOf(status);
  if (code == kExitOk) {
    if (options.json)
      std::cout << query.Answers().dump(2, ' ', false,
                                        nlohmann::ordered_json::error_handler_t::replace)
                << '\n';
    else if (!options.net.quiet || results.GetSize())
      PrintRows(results);
    if (options.net.verbose)
      std::cerr << "kestrel worklist: " << results.GetSize() << " scheduled steps\n";
  } else {
    const std::string& text = KESTREL::GetLastErrorText();
    std::cerr << text;
    if (text.empty() || text.back() != '\n') std::cerr << '\n';
  }
  results.DeleteAll();
  return code;
}

}  // namespace

void AddWorklistCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<WorklistOptions>();
  CLI::App* cmd = app.add_subcommand("worklist", "ask a worklist provider for scheduled steps");
  AddNetOptions(cmd, options->net, true);
  cmd->add_option("-k,--key", options->keys,
                  "matching key KEY=VALUE or return key KEY; KEY a keyword (Modality) or a tag "
                  "(0008,0060); step attributes go into the Scheduled Procedure Step Sequence");
  cmd->add_flag("--json", options->json, "print the answers in the DICOM JSON model");
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->port, "port number or service name")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunWorklist(*options); });
}
