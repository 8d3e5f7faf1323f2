#include "MoveReceiver.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ServeConnections.h"
#include "ServeDispatcher.h"
#include "kestrel/Socket.h"

namespace {
constexpr int kAcceptPollMs = 100;
}

struct MoveReceiver::State {
  explicit State(const ServeSettings& settings)
      : dispatcher(settings, counters), connections(Connections::Limits{}) {}

  void AcceptLoop() {
    while (!stopping) {
      int handle = listener.AcceptHandle(kAcceptPollMs);
      if (handle < 0) continue;
      const uint64_t id = connections.Admit(handle);
      workers.emplace_back([this, handle, id] { dispatcher.Serve(handle, connections, id); });
    }
  }

  ServeCounters counters;
  Dispatcher dispatcher;
  Connections connections;
  Socket listener;
  std::atomic<bool> stopping{false};
  std::thread acceptor;
  std::vector<std::thread> workers;  // only the acceptor adds, and it has ended before a join
};

MoveReceiver::MoveReceiver() = default;

MoveReceiver::~MoveReceiver() { Stop(); }

bool MoveReceiver::Start(int port, const ServeSettings& settings, std::string* error) {
  if (!PrepareIncoming(settings.storeDir, nullptr)) {
    *error = "cannot create the store directory " + settings.storeDir;
    return false;
  }
  state_ = std::make_unique<State>(settings);
  AddEchoHandler(state_->dispatcher);
  AddStoreHandler(state_->dispatcher);
  if (!state_->listener.Listen(std::to_string(port).c_str())) {
    *error = "cannot listen on port " + std::to_string(port) + " (error " +
             std::to_string(state_->listener.GetError()) + ")";
    state_.reset();
    return false;
  }
  state_->acceptor = std::thread([this] { state_->AcceptLoop(); });
  return true;
}

void MoveReceiver::Stop(int graceSeconds) {
  if (!state_) return;
  state_->stopping = true;
  if (state_->acceptor.joinable()) state_->acceptor.join();
  state_->listener.Close();
  // The peer releases once its sub-operations are done; one that does not is cut.
  if (!state_->connections.WaitForNone(std::chrono::seconds(graceSeconds))) {
    state_->connections.Stop();
    state_->connections.CutReading();
  }
  for (std::thread& worker : state_->workers)
    if (worker.joinable()) worker.join();
  state_->workers.clear();
}

uint64_t MoveReceiver::Stored() const { return state_ ? state_->counters.stored.load() : 0; }
uint64_t MoveReceiver::Failed() const { return state_ ? state_->counters.failed.load() : 0; }
