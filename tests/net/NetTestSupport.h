#pragma once

// In-process peers for the network tests, all on 127.0.0.1 with ports chosen by the system:
// a listener, a raw peer that reads and writes whole PDUs, and a helper that runs an acceptor
// PDU_Service on a thread.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kestrel/PDU_Service.h"
#include "kestrel/Socket.h"

namespace net_test {

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
constexpr char kVerification[] = "1.2.840.10008.1.1";
constexpr char kCTStorage[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";
constexpr char kExplicitLittle[] = "1.2.840.10008.1.2.1";

// Listens on a free port of every local address.
class Listener {
 public:
  Listener();
  int Port() const { return port_; }
  std::string PortText() const { return std::to_string(port_); }
  // The next connection's handle (the caller owns it), or -1 after `milliseconds`.
  int Accept(int milliseconds = 5000);

 private:
  Socket socket_;
  int port_ = 0;
};

// A thread joined when the object goes.
class PeerThread {
 public:
  explicit PeerThread(std::function<void()> body) : thread_(std::move(body)) {}
  ~PeerThread() { Join(); }
  void Join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::thread thread_;
};

// One whole PDU as read from the wire: its type and body (without the 6-byte header).
struct RawPDU {
  uint8_t type = 0;
  std::vector<uint8_t> body;
};

// A peer speaking raw bytes over a Socket, for scripted exchanges.
class RawPeer {
 public:
  RawPeer() = default;
  // Takes over an accepted handle.
  explicit RawPeer(int handle);
  bool Connect(int port);
  void Send(const std::vector<uint8_t>& bytes);
  // The next PDU, or false on time-out (`seconds`) or a closed connection.
  bool ReadPDU(RawPDU& pdu, uint32_t seconds = 5);
  // True when the peer closed the connection before `seconds` passed (whatever it sent before
  // is read and dropped).
  bool WaitForClose(uint32_t seconds = 5);
  Socket& socket() { return socket_; }

 private:
  bool ReadExactly(uint8_t* data, size_t length);
  Socket socket_;
};

// Whole PDUs for scripted peers.
std::vector<uint8_t> AssociateAC(const std::vector<std::pair<uint8_t, uint8_t>>& contextResults,
                                 const char* transferSyntax = kImplicitLittle);
std::vector<uint8_t> AssociateRQ(const std::vector<std::string>& abstractSyntaxes,
                                 const std::string& calling = "PEER",
                                 const std::string& called = "KESTREL");
std::vector<uint8_t> Reject(uint8_t result, uint8_t source, uint8_t reason);
std::vector<uint8_t> ReleaseRQ();
std::vector<uint8_t> ReleaseRP();
std::vector<uint8_t> Abort(uint8_t source, uint8_t reason);
// A P-DATA-TF holding the given values: (context ID, control header, fragment).
struct Value {
  uint8_t context;
  uint8_t control;
  std::vector<uint8_t> fragment;
};
std::vector<uint8_t> DataTF(const std::vector<Value>& values);
// The presentation context IDs proposed in an A-ASSOCIATE-RQ body, in order.
std::vector<uint8_t> ProposedContextIDs(const RawPDU& request);

// Appends an element with `text` (as given, no padding) or a US `value` to `object`.
void PushText(DICOMObject* object, uint16_t group, uint16_t element, const std::string& text);
void PushUS(DICOMObject* object, uint16_t group, uint16_t element, uint16_t value);

// A PDU_Service that records every byte it reads, to check what came on the wire.
class RecordingService : public PDU_Service {
 public:
  int ReadBytes(void* buffer, uint32_t length) override {
    int got = PDU_Service::ReadBytes(buffer, length);
    if (got > 0) {
      std::lock_guard<std::mutex> lock(mutex);
      auto* bytes = static_cast<uint8_t*>(buffer);
      wire.insert(wire.end(), bytes, bytes + got);
    }
    return got;
  }
  std::mutex mutex;
  std::vector<uint8_t> wire;
};

// The concatenation of `parts`, for golden PDUs written piece by piece.
std::vector<uint8_t> Bytes(std::initializer_list<std::vector<uint8_t>> parts);

// A requester connected to an acceptor PDU_Service on a thread. The acceptor serves one
// connection with ServeSocket and then runs `acceptorBody` (if the association was made).
class AssociationPair {
 public:
  using AcceptorBody = std::function<void(PDU_Service& acceptor)>;
  AssociationPair(std::vector<std::string> abstractSyntaxes, AcceptorBody acceptorBody,
                  const char* acceptorConfig = nullptr);
  ~AssociationPair();
  // Connects the requester; the result of Connect.
  int Connect(const char* transferSyntax = nullptr);
  PDU_Service& requester() { return requester_; }
  // Waits for the acceptor thread to finish.
  void Join() { acceptorThread_.reset(); }
  bool AcceptorAssociated() const { return acceptorAssociated_.load(); }

 private:
  Listener listener_;
  PDU_Service requester_;
  std::unique_ptr<PeerThread> acceptorThread_;
  std::atomic<bool> acceptorAssociated_{false};
};

// Writes `text` to a new file in a fresh temporary directory and gives its path; the directory
// goes with the object.
class TempFile {
 public:
  explicit TempFile(const std::string& text);
  ~TempFile();
  const std::string& path() const { return path_; }
  std::string dir() const { return dir_; }

 private:
  std::string dir_;
  std::string path_;
};

}  // namespace net_test
