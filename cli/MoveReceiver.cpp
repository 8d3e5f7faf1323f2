#include "MoveReceiver.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "ServeDispatcher.h"
#include "kestrel/Socket.h"

namespace {
constexpr int kAcceptPollMs = 100;
}

struct MoveReceiver::State {
  explicit State(const ServeSettings& settings) : dispatcher(settings, counters) {}

  void AcceptLoop() {
    while (!stopping) {
      int handle = listener.AcceptHandle(kAcceptPollMs);
      if (handle < 0) continue;
      std::lock_guard<std::mutex> lock(mutex);
      handles.insert(handle);
      workers.emplace_back([this, handle] {
        dispatcher.Serve(handle);
        std::lock_guard<std::mutex> done(mutex);
        handles.erase(handle);
        changed.notify_all();
      });
    }
  }

  ServeCounters counters;
  Dispatcher dispatcher;
  Socket listener;
  std::atomic<bool> stopping{false};
  std::thread acceptor;
  std::mutex mutex;
  std::condition_variable changed;
  std::set<int> handles;
  std::vector<std::thread> workers;
};

MoveReceiver::MoveReceiver() = default;

MoveReceiver::~MoveReceiver() { Stop(); }

bool MoveReceiver::Start(int port, const ServeSettings& settings, std::string* error) {
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
  {
    std::unique_lock<std::mutex> lock(state_->mutex);
    if (!state_->changed.wait_for(lock, std::chrono::seconds(graceSeconds),
                                  [&] { return state_->handles.empty(); }))
      for (int handle : state_->handles) Socket::Shutdown(handle);
  }
  for (std::thread& worker : state_->workers)
    if (worker.joinable()) worker.join();
  state_->workers.clear();
}

uint64_t MoveReceiver::Stored() const { return state_ ? state_->counters.stored.load() : 0; }
uint64_t MoveReceiver::Failed() const { return state_ ? state_->counters.failed.load() : 0; }
