#pragma once

// The DIMSE side of `kestrel serve`: one association at a time per call of Serve, with each
// request handed to the handler registered for its command field. A service plugs in by adding
// a handler (C-ECHO and C-STORE here; C-FIND and C-MOVE plug in the same way); a request with
// no handler is answered "unrecognized operation" (0211).
//
// The dispatcher, not the handlers, keeps the server's limits: how long a peer may take to
// ask for an association, to send its next message, and to send each part of one; how large
// a message held in memory may be (PDU_Service::SetMessageLimit); when a stopping server ends
// an association (ServeConnections.h).

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

class Connections;
class PDU_Service;
class DICOMCommandObject;

struct ServeSettings {
  std::string configFile;       // association configuration file; missing means accept all
  std::string storeDir;         // the image store's root
  std::string dbConnect;        // the image database that indexes the store
  uint32_t requestTimeout = 5;  // seconds for the association request once connected (ARTIM)
  uint32_t idleTimeout = 60;    // seconds an association may stay silent between messages
  uint32_t timeout = 60;        // seconds each wait within a message (and a release) may take
  // The largest message a handler reads whole (commands, queries); data sets being stored
  // go to their file as they arrive and are not bound by it.
  uint64_t messageLimit = 32 << 20;
  bool sync = true;  // files and rows reach the disk before a store is answered Success
  bool verbose = false;
};

struct ServeCounters {
  std::atomic<uint64_t> associations{0};
  std::atomic<uint64_t> refused{0};  // association requests rejected or broken
  std::atomic<uint64_t> busy{0};     // of which rejected for lack of room
  std::atomic<uint64_t> echoes{0};
  std::atomic<uint64_t> stored{0};
  std::atomic<uint64_t> failed{0};
  std::atomic<uint64_t> bytes{0};
};

class Dispatcher {
 public:
  // Answers one request that `pdu` has just read; false when the association cannot go on.
  using Handler = std::function<bool(PDU_Service& pdu, DICOMCommandObject* request)>;

  Dispatcher(ServeSettings settings, ServeCounters& counters);
  // With `sopClass`, the handler takes only the requests whose Affected SOP Class UID is that
  // one; a request of a class that no handler of its command field takes is answered "SOP
  // class not supported" (0122).
  void Add(uint16_t commandField, Handler handler, const std::string& sopClass = std::string());
  // Serves the association on an accepted connection (taken over and closed), registered in
  // `connections` as `id`, until the peer releases or aborts, a time-out passes, the protocol
  // breaks or the server stops.
  void Serve(int handle, Connections& connections, uint64_t id);

  const ServeSettings& Settings() const { return settings_; }
  ServeCounters& Counters() { return counters_; }
  // Serialises the stores of one instance across associations: its file and rows are
  // replaced by one writer at a time.
  void LockName(const std::string& name);
  void UnlockName(const std::string& name);

 private:
  [[nodiscard]] uint64_t ServeAssociation(PDU_Service& pdu, Connections& connections, uint64_t id);
  [[nodiscard]] bool AnswerNext(PDU_Service& pdu);
  [[nodiscard]] bool AnswerUnsupported(PDU_Service& pdu, DICOMCommandObject* request,
                                       uint16_t status);
  [[nodiscard]] const Handler* FindHandler(DICOMCommandObject& request,
                                           uint16_t& unsupported) const;

  ServeSettings settings_;
  ServeCounters& counters_;
  std::map<std::pair<uint16_t, std::string>, Handler> handlers_;
  std::mutex namesMutex_;
  std::condition_variable namesFree_;
  std::set<std::string> namesInUse_;
};

// Text a peer chose (an AE title, a UID, a driver's message quoting one), made safe for a log
// line: control characters, backslashes and bytes above 0x7E are written as \xNN, so that no
// peer can forge a line or a terminal sequence.
std::string Printable(const std::string& text);

// The handlers of this version of the server. The C-STORE one is in ServeStore.cpp.
void AddEchoHandler(Dispatcher& dispatcher);
void AddStoreHandler(Dispatcher& dispatcher);
// Makes the store's folder for data sets being received (before the store handler runs),
// removing the partial files a server that died left there; `removed` tells how many.
[[nodiscard]] bool PrepareIncoming(const std::string& storeDir, int* removed);
