// kestrel serve: a DICOM node that runs until SIGINT or SIGTERM. The listener hands each
// accepted connection to a thread of its own, which runs the dispatcher of ServeDispatcher.h
// over it; ServeConnections.h keeps the limits on how many there are and what they may hold.
//
// Stopping: no new connection is accepted; connections still waiting for their request or for
// their next message end at once; an association reading or answering a message gets a grace
// period to finish, then whatever is still arriving is cut, while a message that has fully
// arrived is still answered; then every worker is waited for.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include "Commands.h"
#include "ExitCodes.h"
#include "NetOptions.h"
#include "ServeConnections.h"
#include "ServeDispatcher.h"
#include "ServeQuery.h"
#include "ServeWorklist.h"
#include "StoreObject.h"
#include "kestrel/CDatabase.h"
#include "kestrel/Socket.h"

namespace {

volatile std::sig_atomic_t stopRequested = 0;

extern "C" void RequestStop(int) { stopRequested = 1; }

constexpr int kAcceptPollMs = 200;
// Pending connections the system keeps for us: a server facing a hospital network sees many
// peers connect at once, far beyond the 5 of a workstation.
constexpr int kBacklog = 512;
constexpr uint32_t kMaxSeconds = 24 * 3600;

struct ServeOptions {
  int port = 11112;
  std::string aeTitle = "KESTREL";
  std::string storeDir;
  std::string db;  // the image database's connect string; "" for the embedded one
  std::string configFile = "pdu.txt";
  std::string risConnect;
  uint32_t timeout = 60;
  uint32_t idleTimeout = 60;
  uint32_t requestTimeout = 5;
  int maxAssociations = 64;
  int maxWaiting = 256;
  uint64_t maxMemoryMB = 2048;
  int graceSeconds = 5;
  bool noSync = false;
  bool verbose = false;
  bool quiet = false;
};

// What runs while the server does; shared with the worker threads, which are detached: the
// last one to finish (main or a worker leaving) frees it.
struct Server {
  Server(const ServeSettings& settings, Connections::Limits limits)
      : dispatcher(settings, counters), connections(limits) {}
  ServeCounters counters;
  Dispatcher dispatcher;
  Connections connections;
};

std::string DefaultStoreDir() {
  if (const char* home = std::getenv("KESTREL_HOME"); home && *home)
    return std::string(home) + "/store";
  const char* user = std::getenv("HOME");
  return std::string(user ? user : ".") + "/.local/share/kestrel/store";
}

// The store and its incoming folder, without what a server that died left half written.
bool PrepareStore(const ServeOptions& options) {
  int removed = 0;
  if (!PrepareIncoming(options.storeDir, &removed)) {
    std::cerr << "kestrel serve: cannot create the store directory " << options.storeDir << '\n';
    return false;
  }
  if (removed && !options.quiet)
    std::fprintf(stderr, "kestrel serve: removed %d partial file%s left in %s/.incoming\n", removed,
                 removed == 1 ? "" : "s", options.storeDir.c_str());
  return true;
}

// The database is made ready once; each association then connects on its own.
bool PrepareIndex(const ServeOptions& options) {
  CDatabase index;
  std::string why;
  if (OpenImageIndex(options.db, index, &why)) return true;
  std::cerr << "kestrel serve: " << why << '\n';
  return false;
}

bool OpenListener(const ServeOptions& options, Socket& listener) {
  listener.SetBacklog(kBacklog);
  const int listening = options.port == 0 ? listener.ListenOnFreePort()
                                          : listener.Listen(std::to_string(options.port).c_str());
  if (listening) return true;
  std::cerr << "kestrel serve: cannot listen on port " << options.port << " (error "
            << listener.GetError() << ")\n";
  return false;
}

std::shared_ptr<Server> MakeServer(const ServeOptions& options) {
  ServeSettings settings;
  settings.configFile = options.configFile;
  settings.storeDir = options.storeDir;
  settings.dbConnect = ImageIndexConnect(options.db);
  settings.requestTimeout = options.requestTimeout;
  settings.idleTimeout = options.idleTimeout;
  settings.timeout = options.timeout;
  settings.sync = !options.noSync;
  settings.verbose = options.verbose;
  Connections::Limits limits;
  limits.associations = static_cast<size_t>(options.maxAssociations);
  limits.waiting = static_cast<size_t>(options.maxWaiting);
  limits.memoryBytes = options.maxMemoryMB << 20;
  auto server = std::make_shared<Server>(settings, limits);
  AddEchoHandler(server->dispatcher);
  AddStoreHandler(server->dispatcher);
  AddFindHandlers(server->dispatcher);
  AddMoveHandlers(server->dispatcher);
  if (!options.risConnect.empty()) AddWorklistHandler(server->dispatcher, options.risConnect);
  return server;
}

void AcceptUntilStopped(Socket& listener, const std::shared_ptr<Server>& server) {
  while (!stopRequested) {
    const int handle = listener.AcceptHandle(kAcceptPollMs);
    if (handle < 0) continue;
    const uint64_t id = server->connections.Admit(handle);
    std::thread([server, handle, id] {
      server->dispatcher.Serve(handle, server->connections, id);
    }).detach();
  }
  listener.Close();
}

void StopWorkers(Server& server, const ServeOptions& options) {
  server.connections.Stop();
  if (!server.connections.WaitForNone(std::chrono::seconds(options.graceSeconds))) {
    server.connections.CutReading();
    server.connections.WaitForNone(std::chrono::hours(24));
  }
}

void PrintSummary(const ServeCounters& counters) {
  std::fprintf(stderr,
               "kestrel serve: stopped; %llu associations (%llu refused, %llu of them busy), "
               "%llu echoes, %llu objects stored (%llu bytes), %llu failed\n",
               static_cast<unsigned long long>(counters.associations.load()),
               static_cast<unsigned long long>(counters.refused.load()),
               static_cast<unsigned long long>(counters.busy.load()),
               static_cast<unsigned long long>(counters.echoes.load()),
               static_cast<unsigned long long>(counters.stored.load()),
               static_cast<unsigned long long>(counters.bytes.load()),
               static_cast<unsigned long long>(counters.failed.load()));
}

int RunServe(const ServeOptions& options) {
  if (!PrepareStore(options) || !PrepareIndex(options)) return kExitLocalFailure;
  Socket listener;
  if (!OpenListener(options, listener)) return kExitLocalFailure;
  std::signal(SIGINT, RequestStop);
  std::signal(SIGTERM, RequestStop);
  std::shared_ptr<Server> server = MakeServer(options);
  std::printf("kestrel serve: listening on port %d as %s, storing in %s\n", listener.GetLocalPort(),
              options.aeTitle.c_str(), options.storeDir.c_str());
  std::fflush(stdout);
  AcceptUntilStopped(listener, server);
  StopWorkers(*server, options);
  if (!options.quiet) PrintSummary(server->counters);
  return kExitOk;
}

void AddLimitOptions(CLI::App* cmd, ServeOptions& options) {
  const auto seconds = CLI::Range(uint32_t{1}, kMaxSeconds);
  cmd->add_option("--timeout", options.timeout,
                  "seconds each wait for the rest of a message may take (default 60)")
      ->check(seconds);
  cmd->add_option("--idle-timeout", options.idleTimeout,
                  "seconds an association may stay silent between messages (default 60)")
      ->check(seconds);
  cmd->add_option("--request-timeout", options.requestTimeout,
                  "seconds a new connection has to ask for an association (default 5)")
      ->check(seconds);
  cmd->add_option("--max-associations", options.maxAssociations,
                  "associations served at once; more are refused as busy (default 64)")
      ->check(CLI::Range(1, 1024));
  cmd->add_option("--max-waiting", options.maxWaiting,
                  "connections kept while they have not asked for an association; the oldest "
                  "makes room for a new one (default 256)")
      ->check(CLI::Range(1, 4096));
  cmd->add_option("--max-memory", options.maxMemoryMB,
                  "MB of memory past which new associations are refused as busy (default 2048)")
      ->check(CLI::Range(uint64_t{64}, uint64_t{1} << 20));
  cmd->add_option("--grace", options.graceSeconds,
                  "seconds associations get to finish the message they are reading after a stop "
                  "signal (default 5)")
      ->check(CLI::Range(0, 3600));
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
  AddLimitOptions(cmd, *options);
  cmd->add_flag("--no-sync", options->noSync,
                "answer a store before its file and rows are flushed to the disk (for stores "
                "that may be lost)");
  cmd->add_flag("--verbose", options->verbose, "a line per association");
  cmd->add_flag("--quiet", options->quiet, "print errors only");
  cmd->callback([options, &exitCode]() {
    if (options->storeDir.empty()) options->storeDir = DefaultStoreDir();
    exitCode = RunServe(*options);
  });
}
