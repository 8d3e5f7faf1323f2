// kestrel send: sends every DICOM file under the given paths with C-STORE, one association per
// file, or all of them over one association with --batch.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Commands.h"
#include "ExitCodes.h"
#include "InputFiles.h"
#include "NetOptions.h"
#include "Progress.h"
#include "kestrel/CUnknownStorage.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/FileMapping.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/Status.h"
#include "kestrel/UID.h"

namespace {

constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";

struct SendOptions {
  NetOptions net;
  std::string host;
  std::string port;
  std::vector<std::string> paths;
  bool batch = false;
};

// A file read for sending: its data set, the transfer syntax it is held in and the SOP class
// it is sent as.
struct Loaded {
  FileMapping mapping;  // a large file's; declared first, as it must outlive the object
  // Sent as it was read; sending empties it, handing each value to the encoder without a copy.
  std::unique_ptr<DICOMDataObject> object;
  std::string syntax;
  UID sopClass;
};

// One line per failed file on standard error: the path, then the text with its line ends
// folded into blanks so that the line stays one line.
void ReportFailure(const std::string& path, const std::string& text) {
  std::string line;
  for (char c : text) {
    if (c == '\r') continue;
    line += c == '\n' ? ' ' : c;
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  std::cerr << path << ": " << line << '\n';
}

// Why a file cannot be sent, for its line.
std::string ReadFailure(FileReadResult result, int error, const std::string& syntax) {
  switch (result) {
    case FileReadResult::kCannotOpen:
      return std::string("cannot read: ") + std::strerror(error);
    case FileReadResult::kUnknownSyntax:
      return "transfer syntax " + (syntax.empty() ? std::string("of the file") : syntax) +
             " cannot be read; not sent";
    default:
      return "not a DICOM file, or damaged (decoding stopped before its end); not sent";
  }
}

// Files from this size on are mapped rather than read: their large values go from the mapping
// into the PDUs without being read into memory of their own first.
constexpr uint64_t kMappedFrom = 256 << 10;

// The file read once, whole. False, with `error` set, when it cannot be read whole or is not
// a storage instance: nothing of such a file is sent.
bool LoadObject(const InputFile& file, Loaded& loaded, std::string& error) {
  DICOMCodec codec;
  FileReadResult result = FileReadResult::kCannotOpen;
  int systemError = 0;
  if (file.bytes >= kMappedFrom && loaded.mapping.Open(file.path.c_str(), &systemError))
    loaded.object.reset(codec.LoadMapped(loaded.mapping, &result));
  else
    loaded.object.reset(codec.LoadFile(file.path.c_str(), &result, &systemError));
  UID held;
  if (loaded.object) held.Set(loaded.object->Find(0x0002, 0x0010));
  loaded.syntax = held.ToString();
  if (!loaded.object || result != FileReadResult::kComplete) {
    error = ReadFailure(result, systemError, loaded.syntax);
    return false;
  }
  loaded.sopClass.Set(loaded.object->Find(0x0008, 0x0016));
  UID sopInstance;
  sopInstance.Set(loaded.object->Find(0x0008, 0x0018));
  if (loaded.sopClass.IsEmpty() || sopInstance.IsEmpty()) {
    error = "not a storage instance (no SOP Class UID or SOP Instance UID); not sent";
    return false;
  }
  return true;
}

// What --batch must propose for a file: its SOP class and the syntax it is held in, read from
// the head of the file so that the pixel data is read once, when the file is sent. A file
// whose head does not tell is read whole, which also gives the reason when it cannot be sent.
bool ProbeObject(const InputFile& file, UID& sopClass, UID& syntax, std::string& error) {
  // The two UIDs open the data set: 8 KiB hold them in nearly every file, and reading no more
  // shortens this pass by a third on a series.
  for (uint32_t headBytes : {8u << 10, 64u << 10}) {
    DICOMCodec codec;
    std::unique_ptr<DICOMDataObject> head(codec.LoadFileHead(file.path.c_str(), headBytes));
    if (!head) break;
    UID sopInstance;
    sopClass.Set(head->Find(0x0008, 0x0016));
    sopInstance.Set(head->Find(0x0008, 0x0018));
    syntax.Set(head->Find(0x0002, 0x0010));
    if (!sopClass.IsEmpty() && !sopInstance.IsEmpty()) return true;
    if (file.bytes <= headBytes) break;  // it was read whole
  }
  Loaded loaded;
  if (!LoadObject(file, loaded, error)) return false;
  sopClass = loaded.sopClass;
  syntax.Set(loaded.syntax);
  return true;
}

// Counts every file once, in the progress and in the exit code.
class Outcome {
 public:
  Outcome(const SendOptions& options, Progress& progress)
      : options_(options), progress_(progress) {}

  void Sent(const InputFile& file, const std::string& syntax) {
    if (options_.net.verbose)
      std::printf("sent %s (%s)\n", file.path.c_str(),
                  syntax.empty() ? kImplicitLittle : syntax.c_str());
    progress_.Done(file.bytes, false);
  }
  void Failed(const InputFile& file, const std::string& text, int code) {
    ReportFailure(file.path, text);
    worst_ = WorstExit(worst_, code);
    progress_.Done(0, true);
  }
  int Worst() const { return worst_; }

 private:
  const SendOptions& options_;
  Progress& progress_;
  int worst_ = kExitOk;
};

void SendEach(const SendOptions& options, const std::vector<InputFile>& files, Outcome& outcome) {
  for (const InputFile& file : files) {
    Loaded loaded;
    std::string error = file.error;
    if (!error.empty() || !LoadObject(file, loaded, error)) {
      outcome.Failed(file, error, kExitLocalFailure);
      continue;
    }
    KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
    CUnknownStorage sender;
    if (!sender.Client(loaded.object.get(), options.host, options.port, options.net.callingAE,
                       options.net.calledAE, &status, loaded.syntax.c_str())) {
      outcome.Failed(file, KESTREL::GetLastErrorText(), ExitCodeOf(status));
      continue;
    }
    outcome.Sent(file, loaded.syntax);
  }
}

class BatchAssociation {
 public:
  BatchAssociation(const SendOptions& options, std::vector<UID> sopClasses,
                   std::vector<UID> syntaxes)
      : options_(options), sopClasses_(std::move(sopClasses)), syntaxes_(std::move(syntaxes)) {}
  ~BatchAssociation() { CStorage::ReleaseAssociation(pdu_); }

  // The association to send on: the one made, made again when the peer dropped it (a peer
  // that aborts on one object still gets the others). Null, with the reason in `error`, when
  // none can be made; then no further attempt is made.
  PDU_Service* Get(std::string& error) {
    if (pdu_ && pdu_->IsAssociated()) return pdu_;
    if (!error_.empty()) {
      error = error_;
      return nullptr;
    }
    CStorage::ReleaseAssociation(pdu_);
    // Not notified: every file's line carries the failure.
    pdu_ = CStorage::CreateAssociation(options_.host, options_.port, options_.net.callingAE,
                                       options_.net.calledAE, sopClasses_, syntaxes_, false);
    if (!pdu_) error = error_ = KESTREL::GetLastErrorText();
    return pdu_;
  }

 private:
  const SendOptions& options_;
  std::vector<UID> sopClasses_, syntaxes_;
  PDU_Service* pdu_ = nullptr;
  std::string error_;
};

void SendBatch(const SendOptions& options, const std::vector<InputFile>& files, Outcome& outcome) {
  // First pass: the SOP class and transfer syntax of every file, for the proposal. Files are
  // read whole only when their turn comes, one at a time: memory stays that of one object
  // whatever the batch holds.
  // A large batch is probed on two threads, files taken in turn: opening and decoding the heads
  // is all the time before the association is asked for (17 ms for a series of 300).
  std::vector<std::string> errors(files.size());
  struct Probe {
    UID sopClass, syntax;
    bool ok = false;
  };
  std::vector<Probe> probes(files.size());
  auto probeEvery = [&](size_t first, size_t step) {
    for (size_t i = first; i < files.size(); i += step) {
      errors[i] = files[i].error;
      probes[i].ok = errors[i].empty() &&
                     ProbeObject(files[i], probes[i].sopClass, probes[i].syntax, errors[i]);
    }
  };
  if (files.size() >= 64) {
    std::thread other(probeEvery, 1, 2);
    probeEvery(0, 2);
    other.join();
  } else {
    probeEvery(0, 1);
  }
  std::vector<UID> sopClasses, syntaxes;
  for (const Probe& probe : probes) {
    if (!probe.ok) continue;
    sopClasses.push_back(probe.sopClass);
    syntaxes.push_back(probe.syntax);
  }

  BatchAssociation association(options, std::move(sopClasses), std::move(syntaxes));
  CUnknownStorage sender;  // sends each data set as it was read
  for (size_t i = 0; i < files.size(); ++i) {
    const InputFile& file = files[i];
    std::string error = errors[i];
    if (!error.empty()) {
      outcome.Failed(file, error, kExitLocalFailure);
      continue;
    }
    PDU_Service* pdu = association.Get(error);
    if (!pdu) {
      outcome.Failed(file, error, kExitNoAssociation);
      continue;
    }
    Loaded current;
    if (!LoadObject(file, current, error)) {  // changed since the first pass
      outcome.Failed(file, error, kExitLocalFailure);
      continue;
    }
    KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
    if (!sender.Send(pdu, current.object.get(), current.syntax.c_str(), &status)) {
      outcome.Failed(file, KESTREL::GetLastErrorText(), ExitCodeOf(status));
      continue;
    }
    outcome.Sent(file, current.syntax);
  }
}

int RunSend(const SendOptions& options) {
  ApplyTimeout(options.net);
  std::vector<InputFile> files;
  for (const std::string& path : options.paths) CollectInputFiles(path, files);
  Progress progress("send", files.size(), options.net.quiet);
  Outcome outcome(options, progress);
  if (options.batch)
    SendBatch(options, files, outcome);
  else
    SendEach(options, files, outcome);
  progress.Finish();
  return outcome.Worst();
}

}  // namespace

void AddSendCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<SendOptions>();
  CLI::App* cmd =
      app.add_subcommand("send", "send every DICOM file under the given paths with C-STORE");
  AddNetOptions(cmd, options->net, true);
  cmd->add_flag("--batch", options->batch,
                "send all files over one association proposing every SOP class met");
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->port, "port number or service name")->required();
  cmd->add_option("PATH", options->paths, "files or directories (walked)")->required();
  cmd->callback([options, &exitCode]() { exitCode = RunSend(*options); });
}
