// kestrel move: a patient-root or study-root C-MOVE (PS3.4 C.4.2) of a patient, study, series
// or image. Without --dest the images come to the calling AE title, received by a storage
// node this command runs on --port while the move lasts (stored and indexed as by `kestrel
// serve`); with --dest they go to that AE title instead, and nothing is run here.
#include <cctype>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "ExitCodes.h"
#include "MoveReceiver.h"
#include "NetOptions.h"
#include "ServeDispatcher.h"
#include "StoreObject.h"
#include "kestrel/CDatabase.h"
#include "kestrel/CPatientRootRetrieve.h"
#include "kestrel/CResultsArray.h"
#include "kestrel/CStudyRootRetrieve.h"
#include "kestrel/Notifier.h"
#include "kestrel/Socket.h"

namespace {

struct MoveOptions {
  NetOptions net;
  std::string root = "study";
  std::string level;
  std::string patient, study, series, image;
  int port = 11112;
  std::string storeDir;
  std::string db;
  std::string destination;
  std::string host;
  std::string remotePort;
};

// The keys each level needs (PS3.4 C.4.2.2.1: the unique keys down to the level).
std::string MissingKey(const MoveOptions& options) {
  const std::string& level = options.level;
  if (level == "PATIENT") return options.patient.empty() ? "--patient" : "";
  if (options.study.empty()) return "--study";
  if (level != "STUDY" && options.series.empty()) return "--series";
  if (level == "IMAGE" && options.image.empty()) return "--image";
  return "";
}

template <class Retrieve>
KESTREL::KESTREL_STATUS RunRetrieve(Retrieve& retrieve, const MoveOptions& o);

template <>
KESTREL::KESTREL_STATUS RunRetrieve(CPatientRootRetrieve& retrieve, const MoveOptions& o) {
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  const NetOptions& n = o.net;
  if (o.level == "PATIENT")
    retrieve.Retrieve(o.patient, o.host, o.remotePort, n.callingAE, n.calledAE, &status);
  else if (o.level == "STUDY")
    retrieve.Retrieve(o.patient, o.study, o.host, o.remotePort, n.callingAE, n.calledAE, &status);
  else if (o.level == "SERIES")
    retrieve.Retrieve(o.patient, o.study, o.series, o.host, o.remotePort, n.callingAE, n.calledAE,
                      &status);
  else
    retrieve.Retrieve(o.patient, o.study, o.series, o.image, o.host, o.remotePort, n.callingAE,
                      n.calledAE, &status);
  return status;
}

template <>
KESTREL::KESTREL_STATUS RunRetrieve(CStudyRootRetrieve& retrieve, const MoveOptions& o) {
  KESTREL::KESTREL_STATUS status = KESTREL::KESTREL_STATUS_OK;
  const NetOptions& n = o.net;
  if (o.level == "STUDY")
    retrieve.Retrieve(o.study, o.host, o.remotePort, n.callingAE, n.calledAE, &status);
  else if (o.level == "SERIES")
    retrieve.Retrieve(o.study, o.series, o.host, o.remotePort, n.callingAE, n.calledAE, &status);
  else
    retrieve.Retrieve(o.study, o.series, o.image, o.host, o.remotePort, n.callingAE, n.calledAE,
                      &status);
  return status;
}

// The statuses of a final C-MOVE response other than success (PS3.4 C.4.2.1.5).
struct StatusText {
  const char* status;
  const char* text;
};
constexpr StatusText kStatusTexts[] = {
    {"A701", "out of resources: unable to calculate the number of matches"},
    {"A702", "out of resources: unable to perform the sub-operations"},
    {"A801", "move destination unknown"},
    {"A900", "identifier does not match the SOP class"},
    {"B000", "sub-operations complete, with failures or warnings"},
    {"FE00", "sub-operations terminated: cancelled"},
};

std::string Explained(const std::string& status) {
  for (const StatusText& entry : kStatusTexts)
    if (status == entry.status) return status + " (" + entry.text + ")";
  return status[0] == 'C' ? status + " (unable to process)" : status;
}

std::string Slot(CResult* row, int slot) {
  const std::string* value = row ? row->GetAt(slot) : nullptr;
  return value ? *value : std::string("0");
}

// Whether a final status leaves the move done: success, or the warning B000 (PS3.4 C.4.2.1.5).
// Any other status (a failure the exchange passed on, such as 0211 or 0122, or a cancel) is not.
bool IsDone(const std::string& status) { return status == "0000" || status == "B000"; }

// The counts of the final response; 2 when any sub-operation failed or the move did not end
// done.
int Report(CResultsArray& results, const MoveOptions& options) {
  CResult* last = results.GetSize() ? results.GetAt(results.GetSize() - 1) : nullptr;
  const std::string failed = Slot(last, CStudyRootRetrieve::kFailed);
  std::cout << "completed " << Slot(last, CStudyRootRetrieve::kCompleted) << ", failed " << failed
            << ", warning " << Slot(last, CStudyRootRetrieve::kWarning) << '\n';
  const std::string status = Slot(last, CStudyRootRetrieve::kStatus);
  if (last && status != "0000") std::cout << "status " << Explained(status) << '\n';
  const std::string* list = last ? last->GetAt(CStudyRootRetrieve::kFailedSOPInstances) : nullptr;
  if (list && !options.net.quiet) {
    for (size_t start = 0; start < list->size();) {
      size_t end = list->find('\\', start);
      if (end == std::string::npos) end = list->size();
      std::cout << "failed: " << list->substr(start, end - start) << '\n';
      start = end + 1;
    }
  }
  return failed == "0" && (!last || IsDone(status)) ? kExitOk : kExitExchangeFailed;
}

bool StartReceiver(const MoveOptions& options, MoveReceiver& receiver) {
  CDatabase index;
  std::string why;
  if (!OpenImageIndex(options.db, index, &why)) {
    std::cerr << "kestrel move: " << why << '\n';
    return false;
  }
  ServeSettings settings;
  settings.storeDir = options.storeDir.empty() ? DefaultStoreRoot() : options.storeDir;
  settings.dbConnect = ImageIndexConnect(options.db);
  settings.timeout = Socket::GetDefaultTimeout();
  settings.verbose = options.net.verbose;
  if (!receiver.Start(options.port, settings, &why)) {
    std::cerr << "kestrel move: " << why << '\n';
    return false;
  }
  return true;
}

template <class Retrieve>
int RunMove(const MoveOptions& options) {
  ApplyTimeout(options.net);
  // The last-error text is printed below; the notifier would say it a second time.
  KESTREL::SetNotifier([](const std::string&) {});
  MoveReceiver receiver;
  if (options.destination.empty() && !StartReceiver(options, receiver)) return kExitLocalFailure;
  CResultsArray results;
  Retrieve retrieve(&results);
  retrieve.SetMoveDestination(options.destination);
  const KESTREL::KESTREL_STATUS status = RunRetrieve(retrieve, options);
  receiver.Stop();
  int code = ExitCodeOf(status);
  if (code == kExitOk) {
    code = Report(results, options);
    if (options.destination.empty() && options.net.verbose)
      std::cerr << "kestrel move: received " << receiver.Stored() << " objects, "
                << receiver.Failed() << " not stored\n";
  } else {
    const std::string& text = KESTREL::GetLastErrorText();
    std::cerr << text;
    if (text.empty() || text.back() != '\n') std::cerr << '\n';
    if (results.GetSize()) Report(results, options);
  }
  results.DeleteAll();
  return code;
}

int Run(MoveOptions options) {
  for (char& c : options.level) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  const bool patientRoot = options.root == "patient";
  if (options.level == "PATIENT" && !patientRoot) {
    std::cerr << "kestrel move: the study root has no PATIENT level (use --root patient)\n";
    return kExitUsage;
  }
  const std::string missing = MissingKey(options);
  if (!missing.empty()) {
    std::cerr << "kestrel move: a " << options.level << " move needs " << missing << '\n';
    return kExitUsage;
  }
  return patientRoot ? RunMove<CPatientRootRetrieve>(options)
                     : RunMove<CStudyRootRetrieve>(options);
}

}  // namespace

void AddMoveCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<MoveOptions>();
  CLI::App* cmd =
      app.add_subcommand("move", "have a node send a patient, study, series or image (C-MOVE)");
  AddNetOptions(cmd, options->net, true);
  cmd->add_option("--root", options->root, "query model: patient or study (default study)")
      ->check(CLI::IsMember({"patient", "study"}));
  cmd->add_option("--level", options->level, "PATIENT, STUDY, SERIES or IMAGE")
      ->required()
      ->check(CLI::IsMember({"PATIENT", "STUDY", "SERIES", "IMAGE"}, CLI::ignore_case));
  cmd->add_option("--patient", options->patient, "Patient ID (PATIENT level)");
  cmd->add_option("--study", options->study, "Study Instance UID");
  cmd->add_option("--series", options->series, "Series Instance UID");
  cmd->add_option("--image", options->image, "SOP Instance UID");
  auto* dest = cmd->add_option("--dest", options->destination,
                               "send the images to this AE title instead of receiving them here")
                   ->check(AETitleValidator());
  cmd->add_option("--port", options->port,
                  "port of the storage node run while the move lasts (default 11112)")
      ->check(CLI::Range(1, 65535))
      ->excludes(dest);
  cmd->add_option("--store", options->storeDir,
                  "image store of the received images (default $KESTREL_HOME/store)")
      ->excludes(dest);
  cmd->add_option("--db", options->db,
                  "ODBC connect string of the image database that indexes them (default: "
                  "index.db in $KESTREL_HOME)")
      ->excludes(dest);
  cmd->add_option("HOST", options->host, "host name or address")->required();
  cmd->add_option("PORT", options->remotePort, "port number or service name")->required();
  cmd->callback([options, &exitCode]() { exitCode = Run(*options); });
}
