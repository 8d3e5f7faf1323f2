// kestrel serve: a DICOM node that runs until SIGINT or SIGTERM. The listener hands each
// accepted connection to a worker thread of its own (one association per worker, up to
// --max-associations at once); the worker runs the dispatcher of ServeDispatcher.h over it.
//
// Stopping: no new connection is accepted, workers get a grace period to finish the
// association they serve, and whatever is still running after it has its connection shut, so
// that its blocked read returns at once; then every worker is joined.
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "Commands.h"
#include "ExitCodes.h"
#include "NetOptions.h"
#include "ServeDispatcher.h"
#include "ServeQuery.h"
#include "ServeWorklist.h"
#include "StoreObject.h"
#include "kestrel/CDatabase.h"
#include "kestrel/Socket.h"

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void RequestStop(int) { stopRequested = 1; }

constexpr int kAcceptPollMs = 200;

struct ServeOptions {
  int port = 11112;
  std::string aeTitle = "KESTREL";
  std::string storeDir;
  std::string db;  // the image database's connect string; "" for the embedded one
  std::string configFile = "pdu.txt";
  std::string risConnect;
  int64_t timeout = -1;
  int maxAssociations = 32;
  int graceSeconds = 5;
  bool verbose = false;
  bool quiet = false;
};

std::string DefaultStoreDir() {
  if (const char* home = std::getenv("KESTREL_HOME"); home && *home)
    return std::string(home) + "/store";
  const char* user = std::getenv("HOME");
  return std::string(user ? user : ".") + "/.local/share/kestrel/store";
}

// The workers in flight: their number (for the limit and the final wait) and their connection
// handles (to cut them off at the end of the grace period).
class WorkerSet {
 public:
  bool WaitForRoom(size_t limit, int milliseconds) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(milliseconds),
                             [&] { return handles_.size() < limit; });
  }
  void Started(int handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    handles_.insert(handle);
  }
  void Finished(int handle) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      handles_.erase(handle);
    }
    changed_.notify_all();
  }
  bool WaitForNone(std::chrono::steady_clock::duration limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return handles_.empty(); });
  }
  void ShutAll() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (int handle : handles_) Socket::Shutdown(handle);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<int> handles_;
};

int RunServe(const ServeOptions& options) {
  std::error_code error;
  fs::create_directories(options.storeDir, error);
  if (!fs::is_directory(options.storeDir)) {
    std::cerr << "kestrel serve: cannot create the store directory " << options.storeDir << '\n';
    return kExitLocalFailure;
  }
  {
    // The database is made ready once; each association then connects on its own.
    CDatabase index;
    std::string why;
    if (!OpenImageIndex(options.db, index, &why)) {
      std::cerr << "kestrel serve: " << why << '\n';
      return kExitLocalFailure;
    }
  }
  Socket listener;
  int listening = options.port == 0 ? listener.ListenOnFreePort()
                                    : listener.Listen(std::to_string(options.port).c_str());
  if (!listening) {
    std::cerr << "kestrel serve: cannot listen on port " << options.port << " (error "
              << listener.GetError() << ")\n";
    return kExitLocalFailure;
  }
  std::signal(SIGINT, RequestStop);
  std::signal(SIGTERM, RequestStop);

  ServeSettings settings;
  settings.configFile = options.configFile;
  settings.storeDir = options.storeDir;
  settings.dbConnect = ImageIndexConnect(options.db);
  settings.timeout =
      options.timeout >= 0 ? static_cast<uint32_t>(options.timeout) : Socket::GetDefaultTimeout();
  settings.verbose = options.verbose;
  // Shared with the worker threads, which are detached: the last one to finish (main or a
  // worker leaving) frees it.
  struct Server {
    explicit Server(const ServeSettings& settings) : dispatcher(settings, counters) {}
    ServeCounters counters;
    Dispatcher dispatcher;
    WorkerSet workers;
  };
  auto server = std::make_shared<Server>(settings);
  AddEchoHandler(server->dispatcher);
  AddStoreHandler(server->dispatcher);
  AddFindHandlers(server->dispatcher);
  AddMoveHandlers(server->dispatcher);
  if (!options.risConnect.empty()) AddWorklistHandler(server->dispatcher, options.risConnect);

  std::printf("kestrel serve: listening on port %d as %s, storing in %s\n", listener.GetLocalPort(),
              options.aeTitle.c_str(), options.storeDir.c_str());
  std::fflush(stdout);

  while (!stopRequested) {
    if (!server->workers.WaitForRoom(static_cast<size_t>(options.maxAssociations), kAcceptPollMs))
      continue;
    int handle = listener.AcceptHandle(kAcceptPollMs);
    if (handle < 0) continue;
    server->workers.Started(handle);
    std::thread([server, handle] {
      server->dispatcher.Serve(handle);
      server->workers.Finished(handle);
    }).detach();
  }
  listener.Close();
  if (!server->workers.WaitForNone(std::chrono::seconds(options.graceSeconds))) {
    server->workers.ShutAll();
    server->workers.WaitForNone(std::chrono::hours(24));
  }
  const ServeCounters& counters = server->counters;
  if (!options.quiet)
    std::fprintf(stderr,
                 "kestrel serve: stopped; %llu associations (%llu refused), %llu echoes, "
                 "%llu objects stored (%llu bytes), %llu failed\n",
                 static_cast<unsigned long long>(counters.associations.load()),
                 static_cast<unsigned long long>(counters.refused.load()),
                 static_cast<unsigned long long>(counters.echoes.load()),
                 static_cast<unsigned long long>(counters.stored.load()),
                 static_cast<unsigned long long>(counters.bytes.load()),
                 static_cast<unsigned long long>(counters.failed.load()));
  return kExitOk;
}

}  // namespace

void AddServeCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<ServeOptions>();
  CLI::App* cmd = app.add_subcommand(
      "serve",
      "run a DICOM node until SIGINT or SIGTERM: C-ECHO, and C-STORE into the image store and "
      "database");
  cmd->add_option("--port", options->port, "port to listen on (0: any free port; default 11112)")
      ->check(CLI::Range(0, 65535));
  cmd->add_option("--aet", options->aeTitle, "this node's AE title (default KESTREL)")
      ->check(AETitleValidator());
  cmd->add_option("--store", options->storeDir,
                  "image store for received objects, written as <Study UID>/<Series UID>/<SOP "
                  "Instance UID>.dcm (default $KESTREL_HOME/store)");
  cmd->add_option("--db", options->db,
                  "ODBC connect string of the image database (default: index.db in "
                  "$KESTREL_HOME, made when missing)");
  cmd->add_option("--ris", options->risConnect,
                  "answer modality worklist C-FIND from the RIS order database behind this ODBC "
                  "connect string");
  cmd->add_option("--config", options->configFile,
                  "association configuration file (default pdu.txt; absent: accept all)");
  cmd->add_option("--timeout", options->timeout,
                  "socket receive time-out in seconds (default " +
                      std::to_string(Socket::kDefaultTimeout) + ")")
      ->check(CLI::Range(int64_t{0}, int64_t{UINT32_MAX}));
  cmd->add_option("--max-associations", options->maxAssociations,
                  "associations served at once (default 32)")
      ->check(CLI::Range(1, 1024));
  cmd->add_option("--grace", options->graceSeconds,
                  "seconds running associations get to finish after a stop signal (default 5)")
      ->check(CLI::Range(0, 3600));
  cmd->add_flag("--verbose", options->verbose, "a line per association");
  cmd->add_flag("--quiet", options->quiet, "print errors only");
  cmd->callback([options, &exitCode]() {
    if (options->storeDir.empty()) options->storeDir = DefaultStoreDir();
    exitCode = RunServe(*options);
  });
}
