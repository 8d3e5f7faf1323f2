// kestrel dump: prints the data set of each file, as text or in the DICOM JSON model.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "Dictionary.h"
#include "ElementValue.h"
#include "ExitCodes.h"
#include "JsonWriter.h"
#include "Progress.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/RTC.h"

namespace {

constexpr size_t kMaxShownText = 80;
constexpr size_t kMaxShownBytes = 16;
constexpr size_t kMaxShownNumbers = 8;

struct DumpOptions {
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  std::string dictionary;
  std::vector<std::string> files;
};

std::string Shown(const VR* element, const std::string& vr) {
  if (IsTextVR(vr)) {
    std::string text = ValueText(element);
    if (text.size() > kMaxShownText) text = text.substr(0, kMaxShownText) + "...";
    return "[" + text + "]";
  }
  std::vector<std::string> numbers = NumberValues(element, vr);
  if (!numbers.empty()) {
    std::string out;
    for (size_t i = 0; i < numbers.size() && i < kMaxShownNumbers; ++i)
      out += (i ? "\\" : "") + numbers[i];
    if (numbers.size() > kMaxShownNumbers) out += "\\...";
    return out;
  }
  if (!element->Data || !element->Length) return "(no value)";
  std::string out;
  const auto* bytes = static_cast<const uint8_t*>(element->Data);
  for (size_t i = 0; i < element->Length && i < kMaxShownBytes; ++i) {
    char hex[4];
    std::snprintf(hex, sizeof hex, "%s%02x", i ? "\\" : "", bytes[i]);
    out += hex;
  }
  if (element->Length > kMaxShownBytes) out += "\\...";
  return out;
}

void PrintObject(DICOMObject* object, int depth, std::ostream& out);

void PrintItems(VR* element, int depth, std::ostream& out) {
  std::string indent(2 * depth, ' ');
  bool pixelData = element->Group == 0x7FE0 && element->Element == 0x0010;
  for (uint32_t i = 0; i < element->SequenceItems->GetSize(); ++i) {
    DICOMDataObject* item = element->SequenceItems->Get(i);
    if (pixelData) {
      while (VR* popped = item->Pop()) {
        std::unique_ptr<VR> fragment(popped);
        if (fragment->Element != 0xE000) continue;
        char line[64];
        std::snprintf(line, sizeof line, "(fffe,e000) fragment #%u ", fragment->Length);
        out << indent << line << Shown(fragment.get(), "OB") << '\n';
      }
      continue;
    }
    out << indent << "(fffe,e000) item " << (i + 1) << '\n';
    PrintObject(item, depth + 1, out);
  }
}

void PrintObject(DICOMObject* object, int depth, std::ostream& out) {
  std::string indent(2 * depth, ' ');
  while (VR* popped = object->Pop()) {
    std::unique_ptr<VR> element(popped);
    // The data object leads every group with a group length it computes itself; the dump shows
    // what the file holds, so only a group length read from the file is printed.
    if (object->PopGroup && popped == object->PopGroup->GroupLengthVR) continue;
    std::string vr = VRName(element.get());
    bool hasItems = element->SequenceItems && element->SequenceItems->GetSize();
    if (hasItems && vr == "UN") vr = "SQ";
    char head[40];
    std::snprintf(head, sizeof head, "(%04x,%04x) %s #%u ", element->Group, element->Element,
                  vr.c_str(), element->Length);
    out << indent << head;
    if (hasItems) {
      out << (vr == "SQ" ? "sequence" : "encapsulated") << ", " << element->SequenceItems->GetSize()
          << " items\n";
      PrintItems(element.get(), depth + 1, out);
    } else {
      out << Shown(element.get(), vr) << '\n';
    }
  }
}

int DumpFile(PDU_Service& service, const std::string& path, const DumpOptions& options,
             nlohmann::ordered_json* all, uint64_t& bytes) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    std::cerr << "kestrel dump: " << path << ": is a directory\n";
    return kExitLocalFailure;
  }
  std::unique_ptr<DICOMDataObject> object(service.LoadFile(path.c_str()));
  if (!object) {
    std::cerr << "kestrel dump: " << path << ": cannot open the file\n";
    return kExitLocalFailure;
  }
  bytes += std::filesystem::file_size(path, ec);
  if (object->Groups.GetSize() == 0) {
    std::cerr << "kestrel dump: " << path << ": no DICOM data could be read\n";
    return kExitLocalFailure;
  }
  if (!service.WasLastLoadComplete())
    std::cerr << "kestrel dump: " << path << ": damaged; shown up to where decoding stopped\n";
  if (options.json) {
    nlohmann::ordered_json json = ToDicomJson(object.get());
    if (all)
      all->push_back(std::move(json));
    else
      std::cout << json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                << '\n';
  } else {
    if (options.files.size() > 1) std::cout << "# " << path << '\n';
    PrintObject(object.get(), 0, std::cout);
  }
  return kExitOk;
}

}  // namespace

void AddDumpCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<DumpOptions>();
  CLI::App* cmd = app.add_subcommand("dump", "print the data set of DICOM files");
  cmd->add_flag("--json", options->json, "print the DICOM JSON model (PS3.18 F)");
  cmd->add_option("--dict", options->dictionary, "data dictionary file (text or binary)");
  cmd->add_flag("--quiet", options->quiet, "print errors only");
  cmd->add_flag("--verbose", options->verbose, "a line per file");
  cmd->add_option("FILE", options->files, "DICOM files")->required();
  cmd->callback([options, &exitCode]() {
    PDU_Service service;
    std::string error;
    RTC* dictionary = LoadToolDictionary(options->dictionary, error);
    if (!dictionary && !options->dictionary.empty()) {
      std::cerr << "kestrel dump: " << error << '\n';
      exitCode = kExitUsage;
      return;
    }
    if (!dictionary && !options->quiet) std::cerr << "kestrel dump: " << error << '\n';
    service.AttachRTC(dictionary, true);

    bool several = options->files.size() > 1;
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
    Progress progress("dump", options->files.size(), options->quiet || !several);
    int worst = kExitOk;
    for (const std::string& path : options->files) {
      uint64_t bytes = 0;
      int code =
          DumpFile(service, path, *options, options->json && several ? &all : nullptr, bytes);
      if (options->verbose) std::cerr << path << ": " << (code ? "failed" : "done") << '\n';
      progress.Done(bytes, code != kExitOk);
      worst = WorstExit(worst, code);
    }
    if (options->json && several)
      std::cout << all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)
                << '\n';
    progress.Finish();
    exitCode = worst;
  });
}
