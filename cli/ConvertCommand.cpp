// kestrel convert: reads a DICOM file and writes it again with our file meta information,
// optionally in another transfer syntax.
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "Dictionary.h"
#include "ElementValue.h"
#include "ExitCodes.h"
#include "kestrel/FileMapping.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/RTC.h"

namespace {

struct ConvertOptions {
  std::string transferSyntax;
  std::string dictionary;
  std::string in;
  std::string out;
};

bool IsNativeSyntax(const std::string& uid) {
  return uid == "1.2.840.10008.1.2" || uid == "1.2.840.10008.1.2.1" || uid == "1.2.840.10008.1.2.2";
}

int Fail(const std::string& text, int code) {
  std::cerr << "kestrel convert: " << text << '\n';
  return code;
}

// Files from this size on are mapped rather than read.
constexpr uintmax_t kMappedFrom = 4 << 20;

int Convert(const ConvertOptions& options) {
  if (!options.transferSyntax.empty() &&
      !DICOMCodec::TransferSyntaxMode(options.transferSyntax.c_str()))
    return Fail("transfer syntax " + options.transferSyntax + " cannot be written",
                kExitLocalFailure);
  PDU_Service service;
  std::string error;
  RTC* dictionary = LoadToolDictionary(options.dictionary, error);
  if (!dictionary && !options.dictionary.empty()) return Fail(error, kExitUsage);
  service.AttachRTC(dictionary, true);

  std::error_code ec;
  if (std::filesystem::is_directory(options.in, ec))
    return Fail(options.in + ": is a directory", kExitLocalFailure);
  // A large file is mapped, so that its large values go from the mapping to the output file
  // without being read into memory of their own first. Declared first: it outlives the object.
  FileMapping mapping;
  std::unique_ptr<DICOMDataObject> object;
  if (std::filesystem::file_size(options.in, ec) >= kMappedFrom && !ec &&
      mapping.Open(options.in.c_str())) {
    object.reset(service.LoadMapped(mapping));
    service.SetCopySource(&mapping);  // nothing here writes into the values
  } else
    object.reset(service.LoadFile(options.in.c_str()));
  if (!object) return Fail(options.in + ": cannot open the file", kExitLocalFailure);
  VR* syntaxElement = object->Find(2, 0x0010);
  std::string source = syntaxElement ? ValueText(syntaxElement) : std::string();
  if (!source.empty() && !DICOMCodec::TransferSyntaxMode(source.c_str()))
    return Fail(options.in + ": transfer syntax " + source + " cannot be read", kExitLocalFailure);
  if (!service.WasLastLoadComplete() || object->Groups.GetSize() == 0)
    return Fail(options.in + ": damaged or not DICOM; nothing written", kExitLocalFailure);

  // Encapsulated pixel data can only be written in the syntax it was compressed with, and
  // native pixel data only in a native syntax: nothing is decompressed or compressed here.
  VR* pixelData = object->Find(0x7FE0, 0x0010);
  bool encapsulated = pixelData && pixelData->SequenceItems && pixelData->SequenceItems->GetSize();
  std::string target = options.transferSyntax;
  if (encapsulated && target.empty()) target = source;
  if (encapsulated && target != source)
    return Fail(options.in + ": compressed pixel data cannot be written as " + target,
                kExitLocalFailure);
  if (!encapsulated && !target.empty() && !IsNativeSyntax(target))
    return Fail(options.in + ": native pixel data cannot be written as " + target,
                kExitLocalFailure);

  if (!service.SaveFile(options.out.c_str(), 3, object.get(),
                        target.empty() ? nullptr : target.c_str()))
    return Fail(options.out + ": cannot write the file", kExitLocalFailure);
  return kExitOk;
}

}  // namespace

void AddConvertCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<ConvertOptions>();
  CLI::App* cmd =
      app.add_subcommand("convert", "rewrite a DICOM file, optionally in another transfer syntax");
  cmd->add_option("--ts", options->transferSyntax, "transfer syntax UID to write");
  cmd->add_option("--dict", options->dictionary, "data dictionary file (text or binary)");
  cmd->add_option("IN", options->in, "input file")->required();
  cmd->add_option("OUT", options->out, "output file")->required();
  cmd->callback([options, &exitCode]() { exitCode = Convert(*options); });
}
