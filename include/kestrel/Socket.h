#pragma once

// A blocking TCP (and a little UDP) endpoint: connects to a host and port given as text, or
// listens and accepts, and moves bytes with a receive time-out. One per association; the
// association (PDU_Service) owns it.

#include <cstdint>
#include <memory>

#include "kestrel/Export.h"

class KESTREL_API Socket {
 public:
  // Receive time-out of a new socket, in seconds, unless SetDefaultTimeout changed it.
  static constexpr uint32_t kDefaultTimeout = 300;

  Socket();
  // Closes the data and listen sockets.
  virtual ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // Sends the whole buffer (a short or interrupted send goes on with the rest). 0 when not
  // connected; otherwise 1, even when the send failed: a dead peer shows at the next Recv. A
  // failure is written to the common log as "SOCKET END ERROR: <code>", and the connection is
  // shut down then, so that nothing follows a cut buffer on the wire.
  virtual int Send(const void* buffer, uint32_t length);
  // Waits up to the time-out for data, then receives up to `length` bytes once (a stream
  // socket may receive more ahead, up to 64 KiB, which the next calls give out first). The
  // number received (at least 1); 0 when nothing came and the time-out is 0 (a pure poll); -1 on
  // time-out, error, or when not connected. A peer's orderly close also gives -1 and closes
  // this endpoint.
  virtual int Recv(void* buffer, uint32_t length);
  // Connects to `host` (a name, or a dotted address: any text starting with a non-zero digit
  // never reaches the name resolver) and `port` (a number, or a service name when its leading
  // number is 0 modulo 65536). 1 connected; 0 on any failure, with the connect error kept.
  virtual int Open(const char* host, const char* port);

  // Listens on every local address at `port` (resolved as for Open) with a backlog of 5
  // (SetBacklog changes it).
  int Listen(const char* port);
  // Accepts one peer into the data socket; the listen socket stays open for more. 0 when not
  // listening, or when accepting failed (the listen socket is then closed).
  int Accept();
  // Closes both sockets and clears every flag. Always 1.
  int Close();
  int SetTimeout(uint32_t seconds);
  int OpenUDP(const char* host, const char* port);
  int BindUDP(const char* port);
  // The result of the socket-library start-up, or the error code of the last failed bind or
  // connect.
  int GetError() const { return error_; }
  // What stopped the last Open (kNone after a success).
  enum class OpenFailure : uint8_t { kNone, kHostUnknown, kServiceUnknown, kConnect };
  OpenFailure GetOpenFailure() const { return openFailure_; }

  // For servers and tests.
  //
  // Listens on a port the system chooses (Listen("0") would look up a service named "0").
  int ListenOnFreePort();
  // The backlog of pending connections the next Listen asks for: a server facing many peers
  // at once wants far more than the 5 of a workstation.
  void SetBacklog(int backlog) { backlog_ = backlog > 0 ? backlog : 1; }
  // The local port of the listen socket, else of the data socket; 0 when there is none.
  int GetLocalPort() const;
  // Waits up to `milliseconds` (negative: for ever) for a peer on the listen socket and gives
  // back its connected handle, which the caller then owns (for PDU_Service::ServeSocket); -1
  // when none came or on error. Unlike Accept, a failure leaves the listen socket open.
  int AcceptHandle(int milliseconds);
  // Takes over an already connected handle as the data socket (closing a previous one).
  int Attach(int handle);
  // Closes the data socket only; a listen socket stays open for the next Accept.
  int Disconnect();
  bool IsConnected() const { return connected_; }
  // Whether the last Recv that gave -1 did so because its time-out passed (rather than the
  // peer closing or resetting the connection).
  bool LastRecvTimedOut() const { return recvTimedOut_; }
  // Whether a Recv would return without waiting: bytes received ahead, or the data socket
  // readable (data, or the peer's close). Never blocks.
  bool HasInput() const;
  // Waits up to `milliseconds` for HasInput to become true; true when it did (or the socket is
  // not connected, so that the next Recv answers at once), false when the time passed.
  bool WaitForInput(uint32_t milliseconds) const;
  // While set, each Send tells the system that more bytes follow at once (the fragments of one
  // message), so that it fills whole segments instead of pushing each send out on its own.
  // The bytes sent are the same; only their packing into segments changes. Clear it before
  // the last send of a message, or that send would wait.
  void SetMoreToFollow(bool more) { moreToFollow_ = more; }
  uint32_t GetTimeout() const { return timeout_; }
  // The receive time-out every Socket made afterwards starts with (process-wide).
  static void SetDefaultTimeout(uint32_t seconds);
  static uint32_t GetDefaultTimeout();
  // Ends both directions of a connected handle owned by another thread, so that a Recv blocked
  // on it returns at once; the owner still closes it.
  static bool Shutdown(int handle);
  // Ends only the receiving direction of such a handle: a blocked Recv returns as at the peer's
  // close, and what the owner still has to send can go out.
  static bool ShutdownReading(int handle);

 private:
  int error_ = 0;
  OpenFailure openFailure_ = OpenFailure::kNone;
  bool hostUnknown_ = false;  // the last host name did not resolve (nor parse as an address)
  uint32_t fakeAddress_ = 0;  // a host entry built from a dotted address
  int dataSocket_ = 0;        // 0 = none
  int listenSocket_ = 0;      // 0 = none
  bool datagram_ = false;
  bool connected_ = false;
  bool moreToFollow_ = false;
  bool recvTimedOut_ = false;
  bool sendFailed_ = false;  // since the data socket was connected
  bool listening_ = false;
  bool counted_ = false;      // the socket library was started for this object
  uint32_t peerAddress_ = 0;  // network order
  uint16_t peerPort_ = 0;     // network order
  uint32_t hostAddress_ = 0;  // first address of the last host resolution, network order
  uint16_t servicePort_ = 0;  // the last port resolution, network order
  uint32_t timeout_ = kDefaultTimeout;
  int backlog_ = 5;
  // Bytes received ahead of the caller's asks (stream sockets only): the association layer
  // asks for at most 1 KiB at a time, and one system call per KiB would bound a connection
  // to a small fraction of what the machine can move.
  std::unique_ptr<uint8_t[]> readAhead_;
  uint32_t readBegin_ = 0;
  uint32_t readEnd_ = 0;

  bool ResolveHost(const char* host);
  bool ResolvePort(const char* port);
  void CloseData();
  void CloseListen();
  int ListenOn(uint16_t networkPort);
};
