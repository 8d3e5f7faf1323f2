// The Linux bodies of the socket seam.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "SocketPlatform.h"

namespace KESTREL {
namespace sockets {
namespace {

bool SystemResolveHost(const char* name, uint32_t* address) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name, nullptr, &hints, &found) != 0 || !found) return false;
  bool ok = false;
  for (addrinfo* entry = found; entry; entry = entry->ai_next) {
    if (entry->ai_family != AF_INET || !entry->ai_addr) continue;
    *address = reinterpret_cast<sockaddr_in*>(entry->ai_addr)->sin_addr.s_addr;
    ok = true;
    break;
  }
  freeaddrinfo(found);
  return ok;
}

// getservbyname with no protocol; the reentrant form, since several threads may
// resolve at once.
bool SystemResolveService(const char* name, uint16_t* port) {
  servent entry{};
  servent* found = nullptr;
  char scratch[1024];
  if (getservbyname_r(name, nullptr, &entry, scratch, sizeof scratch, &found) != 0 || !found)
    return false;
  *port = static_cast<uint16_t>(found->s_port);
  return true;
}

long SystemSend(Handle handle, const void* data, size_t length, int flags) {
  return static_cast<long>(send(handle, data, length, flags));
}

std::atomic<HostResolver> hostResolver{SystemResolveHost};
std::atomic<SendCall> sendCall{SystemSend};
std::atomic<ServiceResolver> serviceResolver{SystemResolveService};

sockaddr_in MakeAddress(uint32_t address, uint16_t port) {
  sockaddr_in in{};
  in.sin_family = AF_INET;
  in.sin_port = port;
  in.sin_addr.s_addr = address;
  return in;
}

}  // namespace

int LastError() { return errno; }

int StartUp() { return 0; }
void CleanUp() {}

Handle OpenStream() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }
Handle OpenDatagram() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

int Connect(Handle handle, uint32_t address, uint16_t port) {
  sockaddr_in to = MakeAddress(address, port);
  if (connect(handle, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0) return 0;
  if (errno != EINTR) return errno ? errno : -1;
  // An interrupted connect goes on in the background; wait for its outcome.
  pollfd entry{handle, POLLOUT, 0};
  while (poll(&entry, 1, -1) < 0) {
    if (errno != EINTR) return errno;
  }
  int error = 0;
  socklen_t size = sizeof error;
  if (getsockopt(handle, SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errno;
  return error;
}

int Bind(Handle handle, uint32_t address, uint16_t port) {
  sockaddr_in at = MakeAddress(address, port);
  int yes = 1;
  // A restarted server must not wait for the old connections' TIME_WAIT to pass.
  setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  if (bind(handle, reinterpret_cast<sockaddr*>(&at), sizeof at) == 0) return 0;
  return errno ? errno : -1;
}

bool Listen(Handle handle, int backlog) { return listen(handle, backlog) == 0; }

Handle Accept(Handle handle, uint32_t* address, uint16_t* port) {
  sockaddr_in from{};
  socklen_t size = sizeof from;
  Handle accepted;
  do {
    accepted = accept4(handle, reinterpret_cast<sockaddr*>(&from), &size, SOCK_CLOEXEC);
  } while (accepted < 0 && errno == EINTR);
  if (accepted >= 0) {
    if (address) *address = from.sin_addr.s_addr;
    if (port) *port = from.sin_port;
  }
  return accepted;
}

long Send(Handle handle, const void* data, size_t length, bool more) {
  const int flags = MSG_NOSIGNAL | (more ? MSG_MORE : 0);
  const auto* bytes = static_cast<const uint8_t*>(data);
  const SendCall call = sendCall.load();
  size_t done = 0;
  while (done < length) {
    long sent = call(handle, bytes + done, length - done, flags);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return -1;
    done += static_cast<size_t>(sent);
  }
  return static_cast<long>(length);
}

SendCall SetSendCall(SendCall call) { return sendCall.exchange(call ? call : SystemSend); }

long Receive(Handle handle, void* data, size_t length) {
  ssize_t got;
  do {
    got = recv(handle, data, length, 0);
  } while (got < 0 && errno == EINTR);
  return static_cast<long>(got);
}

long ReceiveNow(Handle handle, void* data, size_t length) {
  ssize_t got;
  do {
    got = recv(handle, data, length, MSG_DONTWAIT);
  } while (got < 0 && errno == EINTR);
  if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return -2;
  return static_cast<long>(got);
}

int WaitReadable(Handle handle, int64_t milliseconds) {
  using Clock = std::chrono::steady_clock;
  const auto deadline =
      Clock::now() + std::chrono::milliseconds(milliseconds < 0 ? 0 : milliseconds);
  for (;;) {
    int wait = -1;
    if (milliseconds >= 0) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
      int64_t count = left.count() < 0 ? 0 : left.count();
      wait = count > INT_MAX ? INT_MAX : static_cast<int>(count);
    }
    pollfd entry{handle, POLLIN, 0};
    int ready = poll(&entry, 1, wait);
    if (ready > 0) return 1;
    if (ready == 0) {
      if (milliseconds < 0 || Clock::now() >= deadline) return 0;
      continue;  // a time-out capped at INT_MAX milliseconds
    }
    if (errno != EINTR) return -1;
  }
}

void Close(Handle handle) {
  // Not retried on EINTR: on Linux the descriptor is gone whatever close returns.
  if (handle >= 0) close(handle);
}

bool Shutdown(Handle handle) { return shutdown(handle, SHUT_RDWR) == 0; }
bool ShutdownReading(Handle handle) { return shutdown(handle, SHUT_RD) == 0; }

bool SetNoDelay(Handle handle) {
  int yes = 1;
  return setsockopt(handle, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes) == 0;
}

void QuickAck(Handle handle) {
  int yes = 1;
  setsockopt(handle, IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof yes);
}

uint16_t LocalPort(Handle handle) {
  sockaddr_in at{};
  socklen_t size = sizeof at;
  if (getsockname(handle, reinterpret_cast<sockaddr*>(&at), &size) != 0) return 0;
  return ntohs(at.sin_port);
}

bool MakePair(Handle pair[2]) {
  return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0;
}

bool ResolveHost(const char* name, uint32_t* address) { return hostResolver.load()(name, address); }

bool ResolveService(const char* name, uint16_t* port) { return serviceResolver.load()(name, port); }

HostResolver SetHostResolver(HostResolver resolver) {
  return hostResolver.exchange(resolver ? resolver : SystemResolveHost);
}

ServiceResolver SetServiceResolver(ServiceResolver resolver) {
  return serviceResolver.exchange(resolver ? resolver : SystemResolveService);
}

uint32_t ParseDottedAddress(const char* text) { return inet_addr(text); }
uint32_t AnyAddress() { return htonl(INADDR_ANY); }
uint16_t HostToNetwork16(uint16_t value) { return htons(value); }
uint16_t NetworkToHost16(uint16_t value) { return ntohs(value); }

}  // namespace sockets
}  // namespace KESTREL
