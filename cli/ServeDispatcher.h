#pragma once

// The DIMSE side of `kestrel serve`: one association at a time per call of Serve, with each
// request handed to the handler registered for its command field. A service plugs in by adding
// a handler (C-ECHO and C-STORE here; C-FIND and C-MOVE plug in the same way); a request with
// no handler is answered "unrecognized operation" (0211).

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

class PDU_Service;
class DICOMCommandObject;

struct ServeSettings {
  std::string configFile;  // association configuration file; missing means accept all
  std::string storeDir;    // the image store's root
  std::string dbConnect;   // the image database that indexes the store
  uint32_t timeout = 0;    // socket receive time-out, seconds
  bool verbose = false;
};

struct ServeCounters {
  std::atomic<uint64_t> associations{0};
  std::atomic<uint64_t> refused{0};
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
  // Serves the association on an accepted connection (taken over and closed) until the peer
  // releases or aborts, the time-out passes or the protocol breaks.
  void Serve(int handle);

  const ServeSettings& Settings() const { return settings_; }
  ServeCounters& Counters() { return counters_; }
  // Serialises writers of the same instance across associations: its file is written as
  // "<name>.partial" first, which two writers must not share, and indexed after.
  void LockName(const std::string& name);
  void UnlockName(const std::string& name);

 private:
  [[nodiscard]] bool AnswerUnsupported(PDU_Service& pdu, DICOMCommandObject* request, uint16_t status);
  [[nodiscard]] const Handler* FindHandler(DICOMCommandObject& request, uint16_t& unsupported) const;

  ServeSettings settings_;
  ServeCounters& counters_;
  std::map<std::pair<uint16_t, std::string>, Handler> handlers_;
  std::mutex namesMutex_;
  std::condition_variable namesFree_;
  std::set<std::string> namesInUse_;
};

// The handlers of this version of the server. The C-STORE one is in ServeStore.cpp.
void AddEchoHandler(Dispatcher& dispatcher);
void AddStoreHandler(Dispatcher& dispatcher);
