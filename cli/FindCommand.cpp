// kestrel find: a patient-root or study-root C-FIND (PS3.4 C.4.1) at one level. Prints one
// tab-separated row per match with a header row of keywords, or with --json the matches in the
// DICOM JSON model.
#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Dictionary.h"
#include "ElementValue.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "NetOptions.h"
#include "QueryKeys.h"
#include "kestrel/CPatientRootQuery.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/CStudyRootQuery.h"
#include "kestrel/CharacterSets.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/RTC.h"

namespace {

using Tag = std::pair<uint16_t, uint16_t>;

struct FindOptions {
  NetOptions net;
  std::string root = "study";
  std::string level;
  std::vector<std::string> keys;
  bool json = false;
  std::string host;
  std::string port;
};

// A value as one field of a tab-separated row, in UTF-8.
std::string Field(DICOMDataObject* match, const Tag& tag, const std::string& charset) {
  VR* element = match->Find(tag.first, tag.second);
  if (!element) return std::string();
  const std::string vr = VRName(element);
  std::string text;
  if (IsTextVR(vr)) {
    text = KESTREL::ToUTF8(ValueText(element), charset);
  } else {
    for (const std::string& number : NumberValues(element, vr))
      text += (text.empty() ? "" : "\\") + number;
  }
  for (char& c : text)
    if (c == '\t' || c == '\n' || c == '\r') c = ' ';
  return text;
}

// Keeps each answer's row (or its DICOM JSON) for printing.
template <class Query>
class PrintingQuery : public Query {
 public:
  PrintingQuery(CResultsArray* results, const RTC* dictionary, std::vector<Tag> columns, bool json)
      : Query(results), dictionary_(dictionary), columns_(std::move(columns)), json_(json) {}

  int CallBack(DICOMCommandObject* response, DICOMDataObject* match) override {
    Query::CallBack(response, match);
    if (!match) return 0;
    AssignVRs(match, dictionary_);
    if (json_) {
      answers_.push_back(ToDicomJson(match));
      return 0;
    }
    VR* charset = match->Find(0x0008, 0x0005);
    const std::string set = charset ? ValueText(charset) : std::string();
    std::string row;
    for (size_t i = 0; i < columns_.size(); ++i)
      row += (i ? "\t" : "") + Field(match, columns_[i], set);
    rows_.push_back(row);
    return 0;
  }

  const std::vector<std::string>& Rows() const { return rows_; }
  const nlohmann::ordered_json& Answers() const { return answers_; }

 private:
  const RTC* dictionary_;
  std::vector<Tag> columns_;
  bool json_;
  std::vector<std::string> rows_;
  nlohmann::ordered_json answers_ = nlohmann::ordered_json::array();
};

std::string ColumnName(const RTC* dictionary, const Tag& tag) {
  std::string name;
  if (dictionary) dictionary->GetTypeCode(tag.first, tag.second, &name);
  if (!name.empty() && name.find(' ') == std::string::npos) return name;
  char text[16];
  std::snprintf(text, sizeof text, "%04X,%04X", tag.first, tag.second);
  return text;
}

template <class Query>
int RunQuery(const FindOptions& options, const RTC* dictionary, const std::vector<QueryKey>& keys) {
  std::vector<Tag> columns;
  uint16_t group = 0, element = 0;
  for (int slot = 0; slot < Query::GetResultSize(options.level); ++slot) {
    Query::GetResultName(options.level, slot, &group, &element);
    if (group) columns.push_back({group, element});
  }
  for (const QueryKey& key : keys)
    if (!(key.group == 0x0008 && key.element == 0x0005))
      columns.push_back({key.group, key.element});
  std::sort(columns.begin(), columns.end());
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());

  CResultsArray results;
  PrintingQuery<Query> query(&results, dictionary, columns, options.json);
  for (const QueryKey& key : keys) query.SetKey(key.group, key.element, key.value);
  ApplyTimeout(options.net);
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  query.Query(options.level, options.host, options.port, options.net.callingAE,
              options.net.calledAE, &status);
  const int code = ExitCodeOf(status);
  if (code == kExitOk) {
    if (options.json) {
      std::cout << query.Answers().dump(2, ' ', false,
                                        nlohmann::ordered_json::error_handler_t::replace)
                << '\n';
    } else if (!options.net.quiet || !query.Rows().empty()) {
      for (size_t i = 0; i < columns.size(); ++i)
        std::cout << (i ? "\t" : "") << ColumnName(dictionary, columns[i]);
      std::cout << '\n';
      for (const std::string& row : query.Rows()) std::cout << row << '\n';
    }
    if (options.net.verbose) std::cerr << "kestrel find: " << results.GetSize() << " matches\n";
  } else {
    const std::string& text = KESTREL::GetLastErrorText();
    std::cerr << text;
    if (text.empty() || text.back() != '\n') std::cerr << '\n';
  }
  results.DeleteAll();
  return code;
}

int RunFind(FindOptions options) {
  std::transform(options.level.begin(), options.level.end(), options.level.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  const bool patientRoot = options.root == "patient";
  if (options.level == "PATIENT" && !patientRoot) {
    std::cerr << "kestrel find: the study root has no PATIENT level (use --root patient)\n";
    return kExitUsage;
  }
  std::string error;
  std::unique_ptr<RTC> dictionary(LoadToolDictionary("", error, true));
  std::vector<QueryKey> keys;
  for (const std::string& text : options.keys) {
    QueryKey key;
    if (!ParseQueryKey(text, dictionary.get(), key, error) || key.group == 0x0000 ||
        key.group == 0x0002 || (key.group == 0x0008 && key.element == 0x0052)) {
      std::cerr << "kestrel find: " << (error.empty() ? "cannot ask for " + text : error) << '\n';
      return kExitUsage;
    }
    keys.push_back(key);
  }
  return patientRoot ? RunQuery<CPatientRootQuery>(options, dictionary.get(), keys)
                     : RunQuery<CStudyRootQuery>(options, dictionary.get(), keys);
}

}  // namespace

void AddFindCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<FindOptions>();
  CLI::App* cmd = app.add_subcommand("find", "ask a node for patients, studies, series or images");
  AddNetOptions(cmd, options->net, true);
  cmd->add_option("--root", options->root, "query model: patient or study (default study)")
      ->check(CLI::IsMember({"patient", "study"}));
  cmd->add_option("--level", options->level, "PATIENT, STUDY, SERIES or IMAGE")
      ->required()
      ->check(CLI::IsMember({"PATIENT", "STUDY", "SERIES", "IMAGE"}, CLI::ignore_case));
  cmd->add_option("-k,--key", options->keys,
                  "matching key KEY=VALUE or return key KEY; KEY a keyword (PatientName) or a tag "
                  "(0010,0010)");
  cmd->add_flag("--json", options->json, "print the matches in the DICOM JSON model");
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->port, "port number or service name")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunFind(*options); });
}
