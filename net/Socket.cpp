#include "kestrel/Socket.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <cstring>
#include <string>

#include "SocketPlatform.h"
#include "vxCommon.h"

namespace sockets = KESTREL::sockets;

namespace {

// Live Socket objects: the socket library is started with the first and stopped with the
// last. Atomic, so that servers may make and drop sockets on several threads.
std::atomic<int> liveSockets{0};
std::atomic<uint32_t> defaultTimeout{Socket::kDefaultTimeout};

constexpr uint32_t kReadAhead = 64 * 1024;

// The leading decimal value of `text` as atoi reads it (blanks, a sign, digits), kept modulo
// 65536 so that long digit strings cannot overflow.
uint16_t LeadingValue16(const char* text) {
  while (*text && std::isspace(static_cast<unsigned char>(*text))) ++text;
  bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  uint32_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) value = (value * 10 + (*text - '0')) & 0xFFFF;
  return static_cast<uint16_t>(negative ? (0x10000 - value) & 0xFFFF : value);
}

// Whether the text's leading decimal value is not zero: some leading digit is not 0.
bool HasNonZeroLeadingValue(const char* text) {
  while (*text && std::isspace(static_cast<unsigned char>(*text))) ++text;
  if (*text == '-' || *text == '+') ++text;
  for (; *text >= '0' && *text <= '9'; ++text) {
    if (*text != '0') return true;
  }
  return false;
}

}  // namespace

Socket::Socket() : timeout_(defaultTimeout.load()) {
  if (liveSockets.load() == 0) {
    error_ = sockets::StartUp();
    if (error_ != 0) return;  // not counted: the library did not start
  }
  ++liveSockets;
  counted_ = true;
}

Socket::~Socket() {
  CloseData();
  CloseListen();
  if (counted_ && --liveSockets == 0) sockets::CleanUp();
}

void Socket::SetDefaultTimeout(uint32_t seconds) { defaultTimeout = seconds; }
uint32_t Socket::GetDefaultTimeout() { return defaultTimeout.load(); }

void Socket::CloseData() {
  if (dataSocket_) sockets::Close(dataSocket_);
  dataSocket_ = 0;
  sendFailed_ = false;
  readBegin_ = readEnd_ = 0;
}

void Socket::CloseListen() {
  if (listenSocket_) sockets::Close(listenSocket_);
  listenSocket_ = 0;
}

// A text starting with a non-zero number (every dotted address) skips the resolver; an
// unresolved or skipped name is taken as a dotted address, unchecked, so an unparsable one
// becomes 255.255.255.255 and the connect fails later.
bool Socket::ResolveHost(const char* host) {
  if (!host) return false;
  uint32_t address = 0;
  hostUnknown_ = false;
  if (!HasNonZeroLeadingValue(host) && sockets::ResolveHost(host, &address)) {
    hostAddress_ = address;
    return true;
  }
  fakeAddress_ = sockets::ParseDottedAddress(host);
  hostAddress_ = fakeAddress_;
  // Kept going as an address all the same; the connect to it fails, and this tells why.
  hostUnknown_ = fakeAddress_ == 0xFFFFFFFFu;
  return true;
}

bool Socket::ResolvePort(const char* port) {
  if (!port) return false;
  uint16_t value = LeadingValue16(port);
  if (value != 0) {
    servicePort_ = sockets::HostToNetwork16(value);
    return true;
  }
  uint16_t found = 0;
  if (!sockets::ResolveService(port, &found)) return false;
  servicePort_ = found;
  return true;
}

int Socket::Open(const char* host, const char* port) {
  CloseData();
  connected_ = false;
  openFailure_ = OpenFailure::kNone;
  if (!ResolveHost(host)) {
    openFailure_ = OpenFailure::kHostUnknown;
    return 0;
  }
  if (!ResolvePort(port)) {
    openFailure_ = OpenFailure::kServiceUnknown;
    return 0;
  }
  int handle = sockets::OpenStream();
  if (handle < 0) {
    error_ = sockets::LastError();
    openFailure_ = OpenFailure::kConnect;
    return 0;
  }
  peerAddress_ = hostAddress_;
  peerPort_ = servicePort_;
  error_ = sockets::Connect(handle, peerAddress_, peerPort_);
  if (error_ != 0) {
    sockets::Close(handle);
    openFailure_ = hostUnknown_ ? OpenFailure::kHostUnknown : OpenFailure::kConnect;
    return 0;
  }
  (void)sockets::SetNoDelay(handle);  // without it only slower
  dataSocket_ = handle;
  connected_ = true;
  return 1;
}

int Socket::ListenOn(uint16_t networkPort) {
  int handle = sockets::OpenStream();
  if (handle < 0) return 0;
  peerAddress_ = sockets::AnyAddress();
  peerPort_ = networkPort;
  int bindError = sockets::Bind(handle, peerAddress_, peerPort_);
  if (bindError != 0) {
    sockets::Close(handle);
    error_ = bindError;
    return 0;
  }
  if (!sockets::Listen(handle, backlog_)) {
    sockets::Close(handle);
    return 0;
  }
  CloseListen();
  listenSocket_ = handle;
  listening_ = true;
  CloseData();
  connected_ = false;
  return 1;
}

int Socket::Listen(const char* port) {
  connected_ = false;
  listening_ = false;
  CloseData();
  if (!ResolvePort(port)) return 0;
  return ListenOn(servicePort_);
}

int Socket::ListenOnFreePort() {
  connected_ = false;
  listening_ = false;
  CloseData();
  return ListenOn(0);
}

int Socket::GetLocalPort() const {
  if (listenSocket_) return sockets::LocalPort(listenSocket_);
  if (dataSocket_) return sockets::LocalPort(dataSocket_);
  return 0;
}

int Socket::Accept() {
  if (!listening_ || !listenSocket_) return 0;
  int handle = sockets::Accept(listenSocket_, &peerAddress_, &peerPort_);
  if (handle <= 0) {
    CloseListen();
    listening_ = false;
    dataSocket_ = 0;
    connected_ = false;
    return 0;
  }
  CloseData();
  (void)sockets::SetNoDelay(handle);  // without it only slower
  dataSocket_ = handle;
  connected_ = true;
  return 1;
}

int Socket::AcceptHandle(int milliseconds) {
  if (!listening_ || !listenSocket_) return -1;
  if (sockets::WaitReadable(listenSocket_, milliseconds) != 1) return -1;
  int handle = sockets::Accept(listenSocket_, nullptr, nullptr);
  if (handle < 0) return -1;
  (void)sockets::SetNoDelay(handle);  // without it only slower
  return handle;
}

int Socket::Attach(int handle) {
  if (handle <= 0) return 0;
  CloseData();
  (void)sockets::SetNoDelay(handle);  // without it only slower
  dataSocket_ = handle;
  connected_ = true;
  datagram_ = false;
  return 1;
}

int Socket::Disconnect() {
  CloseData();
  connected_ = false;
  return 1;
}

bool Socket::HasInput() const {
  return readBegin_ < readEnd_ || (connected_ && sockets::WaitReadable(dataSocket_, 0) == 1);
}

bool Socket::WaitForInput(uint32_t milliseconds) const {
  if (readBegin_ < readEnd_ || !connected_) return true;
  return sockets::WaitReadable(dataSocket_, milliseconds) != 0;
}

bool Socket::Shutdown(int handle) { return handle > 0 && sockets::Shutdown(handle); }

bool Socket::ShutdownReading(int handle) { return handle > 0 && sockets::ShutdownReading(handle); }

int Socket::Send(const void* buffer, uint32_t length) {
  if (!connected_) return 0;
  if (sendFailed_) return 1;
  if (sockets::Send(dataSocket_, buffer, length, moreToFollow_) < 0) {
    Log("SOCKET END ERROR: " + std::to_string(sockets::LastError()), 3);
    // Part of the buffer may be out: nothing more may follow it on this connection, and the
    // next receive must see the end at once rather than wait for an answer.
    sendFailed_ = true;
    (void)sockets::Shutdown(dataSocket_);
  }
  return 1;
}

int Socket::Recv(void* buffer, uint32_t length) {
  recvTimedOut_ = false;
  if (!connected_ || !length) return -1;
  if (readBegin_ < readEnd_) {
    uint32_t n = std::min(length, readEnd_ - readBegin_);
    std::memcpy(buffer, readAhead_.get() + readBegin_, n);
    readBegin_ += n;
    return static_cast<int>(n);
  }
  // Small asks on a stream are served from a larger receive; a datagram must be taken whole.
  const bool ahead = !datagram_ && length < kReadAhead;
  if (ahead && !readAhead_) readAhead_.reset(new uint8_t[kReadAhead]);
  void* target = ahead ? readAhead_.get() : buffer;
  const uint32_t size = ahead ? kReadAhead : length;
  // Data already waiting is taken without first polling: half the system calls on a busy
  // connection, and the same result.
  long got = sockets::ReceiveNow(dataSocket_, target, size);
  if (got == -2) {
    sockets::QuickAck(dataSocket_);
    int64_t milliseconds = static_cast<int64_t>(timeout_) * 1000;
    int ready = sockets::WaitReadable(dataSocket_, milliseconds);
    recvTimedOut_ = ready == 0;
    if (ready != 1) return ready == 0 && timeout_ == 0 ? 0 : -1;
    got = sockets::Receive(dataSocket_, target, size);
  }
  if (got == 0) {
    Close();
    return -1;
  }
  if (got < 0) return -1;
  if (!ahead) return static_cast<int>(got);
  readBegin_ = std::min(length, static_cast<uint32_t>(got));
  readEnd_ = static_cast<uint32_t>(got);
  std::memcpy(buffer, readAhead_.get(), readBegin_);
  return static_cast<int>(readBegin_);
}

int Socket::Close() {
  CloseListen();
  CloseData();
  datagram_ = false;
  connected_ = false;
  listening_ = false;
  return 1;
}

int Socket::SetTimeout(uint32_t seconds) {
  timeout_ = seconds;
  return 1;
}

int Socket::OpenUDP(const char* host, const char* port) {
  Close();
  if (!ResolveHost(host)) {
    Log("Could not resolve host", 2);
    return 0;
  }
  if (!ResolvePort(port)) {
    Log("Could not resolve port", 2);
    return 0;
  }
  int handle = sockets::OpenDatagram();
  if (handle < 0) return 0;
  peerAddress_ = hostAddress_;
  peerPort_ = servicePort_;
  error_ = sockets::Connect(handle, peerAddress_, peerPort_);
  if (error_ != 0) {
    sockets::Close(handle);
    return 0;
  }
  dataSocket_ = handle;
  connected_ = true;
  datagram_ = true;
  return 1;
}

int Socket::BindUDP(const char* port) {
  Close();
  if (!ResolvePort(port)) return 0;
  int handle = sockets::OpenDatagram();
  if (handle < 0) return 0;
  peerAddress_ = sockets::AnyAddress();
  peerPort_ = servicePort_;
  int bindError = sockets::Bind(handle, peerAddress_, peerPort_);
  if (bindError != 0) {
    error_ = bindError;
    sockets::Close(handle);
    return 0;
  }
  dataSocket_ = handle;
  connected_ = true;
  datagram_ = true;
  return 1;
}
