// kestrel import: every image file under the given paths saved into the image store and
// indexed in the image database, as `kestrel serve` does with a received image.
#include <strings.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "Commands.h"
#include "ExitCodes.h"
#include "Import.h"
#include "InputFiles.h"
#include "Progress.h"
#include "StoreObject.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CDicomDirectory.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"

namespace fs = std::filesystem;

namespace {

constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";
constexpr char kMediaStorageDirectory[] = "1.2.840.10008.1.3.10";

struct ImportCommandOptions {
  ImportOptions import;
  std::vector<std::string> paths;
};

// The text of an element of the file meta group, without padding.
std::string MetaText(DICOMDataObject* object, uint16_t element) {
  VR* vr = object->Find(0x0002, element);
  if (!vr || !vr->Data) return std::string();
  std::string text(static_cast<const char*>(vr->Data), vr->Length);
  while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
  return text;
}

std::string ReadFailure(FileReadResult result, int error) {
  switch (result) {
    case FileReadResult::kCannotOpen:
      return std::string("cannot read the file: ") + std::strerror(error);
    case FileReadResult::kNotDICOM:
      return "not a DICOM file";
    case FileReadResult::kUnknownSyntax:
      return "its transfer syntax cannot be read; not imported";
    default:
      return "damaged (decoding stopped before its end); not imported";
  }
}

bool IsDicomDir(const std::string& path, DICOMDataObject* object) {
  return strcasecmp(fs::path(path).filename().c_str(), "DICOMDIR") == 0 ||
         (object && MetaText(object, 0x0002) == kMediaStorageDirectory);
}

class Importer {
 public:
  Importer(std::string root, CDatabase& database, const ImportOptions& options, Progress& progress)
      : root_(std::move(root)), database_(database), options_(options), progress_(progress) {}

  void Import(const InputFile& file) {
    if (!file.error.empty()) return Failed(file, file.error);
    if (IsDicomDir(file.path, nullptr)) return Skipped(file);
    DICOMCodec codec;
    FileReadResult read = FileReadResult::kCannotOpen;
    int error = 0;
    std::unique_ptr<DICOMDataObject> object(codec.LoadFile(file.path.c_str(), &read, &error));
    if (read != FileReadResult::kComplete) return Failed(file, ReadFailure(read, error));
    if (IsDicomDir(file.path, object.get())) return Skipped(file);
    std::string syntax = MetaText(object.get(), 0x0010);
    if (syntax.empty()) syntax = kImplicitLittle;
    StoreResult result =
        StoreObject(object.get(), syntax, root_, database_, SetAside::kAllWithoutPixels);
    switch (result.outcome) {
      case StoreOutcome::kStored:
        if (options_.verbose) std::cerr << file.path << " -> " << result.path << '\n';
        progress_.Done(file.bytes, false);
        return;
      case StoreOutcome::kSetAside:
        return Failed(file, "set aside as " + result.path + ": " + result.comment);
      case StoreOutcome::kRefused:
      case StoreOutcome::kFailed:
        return Failed(file, "not imported: " + result.comment +
                                (result.detail.empty() ? "" : ": " + result.detail));
    }
  }

  int ExitCode() const { return worst_; }

 private:
  void Failed(const InputFile& file, const std::string& why) {
    std::cerr << file.path << ": " << why << '\n';
    worst_ = WorstExit(worst_, kExitLocalFailure);
    progress_.Done(0, true);
  }
  // A DICOMDIR found in a walk: the files it references are walked anyway.
  void Skipped(const InputFile& file) {
    if (options_.verbose) std::cerr << file.path << ": a DICOMDIR, passed over\n";
    progress_.Done(0, false);
  }

  std::string root_;
  CDatabase& database_;
  const ImportOptions& options_;
  Progress& progress_;
  int worst_ = kExitOk;
};

// A DICOMDIR given as a path (a mounted medium): the supported objects it references are
// imported, the report of the others is printed. A directory that cannot be read whole still
// gives the files it reached, and every fault is reported.
int AddDicomDirFiles(const std::string& path, std::vector<InputFile>& files, std::string& report) {
  CDicomDirectory directory;
  int code = kExitOk;
  if (!directory.Open(path)) code = kExitLocalFailure;
  for (const std::string& problem : directory.GetProblems())
    std::cerr << path << ": " << problem << '\n';
  std::vector<CDicomDirectory::ReferencedFile> referenced;
  directory.GetReferencedFiles(referenced);
  for (const auto& file : referenced) {
    if (!file.Supported) continue;
    std::error_code error;
    uint64_t size = file.Path.empty() ? 0 : fs::file_size(file.Path, error);
    std::string why = file.Path.empty() ? "referenced file " + file.FileID + " is missing"
                                        : (error ? "cannot read: " + error.message() : "");
    files.push_back({file.Path.empty() ? path + ": " + file.FileID : file.Path, size, why});
  }
  std::string unsupported;
  directory.GetUnsupportedMessage(unsupported);
  report += unsupported;
  return code;
}

int RunImport(const ImportCommandOptions& options) {
  std::vector<InputFile> files;
  std::string report;
  int worst = kExitOk;
  for (const std::string& path : options.paths) {
    std::error_code error;
    if (!fs::is_directory(path, error) && IsDicomDir(path, nullptr))
      worst = WorstExit(worst, AddDicomDirFiles(path, files, report));
    else
      CollectInputFiles(path, files);
  }
  worst = WorstExit(worst, ImportFiles(files, options.import));
  if (!report.empty()) std::cout << report << (report.back() == '\n' ? "" : "\n");
  return worst;
}

}  // namespace

int ImportFiles(const std::vector<InputFile>& files, const ImportOptions& options) {
  const std::string root = options.storeDir.empty() ? DefaultStoreRoot() : options.storeDir;
  if (root.empty()) {
    std::cerr << "kestrel import: no --store, and no Kestrel home ($KESTREL_HOME or $HOME)\n";
    return kExitLocalFailure;
  }
  std::error_code error;
  fs::create_directories(root, error);
  if (!fs::is_directory(root, error)) {
    std::cerr << "kestrel import: cannot create the store directory " << root << '\n';
    return kExitLocalFailure;
  }
  CDatabase database;
  std::string why;
  if (!OpenImageIndex(options.db, database, &why)) {
    std::cerr << "kestrel import: " << why << '\n';
    return kExitLocalFailure;
  }
  Progress progress("import", files.size(), options.quiet);
  Importer importer(root, database, options, progress);
  for (const InputFile& file : files) importer.Import(file);
  progress.Finish();
  return importer.ExitCode();
}

void AddImportCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<ImportCommandOptions>();
  CLI::App* cmd = app.add_subcommand(
      "import", "save every image file under the paths into the image store and index it");
  cmd->add_option("--store", options->import.storeDir, "image store (default $KESTREL_HOME/store)");
  cmd->add_option("--db", options->import.db,
                  "ODBC connect string of the image database (default: index.db in "
                  "$KESTREL_HOME, made when missing)");
  cmd->add_flag("--verbose", options->import.verbose, "a line per file imported");
  cmd->add_flag("--quiet", options->import.quiet, "print errors only");
  cmd->add_option("PATH", options->paths, "files and directories to import (walked)")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunImport(*options); });
}
