// Feeds arbitrary bytes to the PDU reader through a ReadBytes override: the first byte chooses
// the side. Acceptor: the bytes are a peer's association request and then its messages, served
// as the server's dispatcher would (C-ECHO answered, C-STORE data sets read, other data sets
// read and dropped). Requester: the bytes are the answer to our association request and then
// the messages that follow. Whatever is sent back is dropped.
//
// Our presentation context IDs come from a process-wide counter, so they change from run to
// run; on the requester side the input names them by the stand-in bytes 0xF1 and 0xF3, which
// are replaced by the two IDs actually proposed. That keeps runs repeatable.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/FuzzDictionary.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/StandardStorage.h"
#include "kestrel/Verification.h"
#include "net/PDUItems.h"
#include "net/SocketPlatform.h"

namespace {

class FedService : public PDU_Service {
 public:
  FedService(const uint8_t* data, size_t size) : data_(data), left_(size) {}
  // Hands out the input in pieces of whatever size is asked; the end is a closed peer.
  int ReadBytes(void* buffer, uint32_t length) override {
    if (!left_) return -1;
    size_t n = length < left_ ? length : left_;
    auto* out = static_cast<uint8_t*>(buffer);
    std::memcpy(out, data_, n);
    for (size_t i = 0; i < n && ids_[0]; ++i) {
      if (out[i] == 0xF1) out[i] = ids_[0];
      if (out[i] == 0xF3) out[i] = ids_[1];
    }
    data_ += n;
    left_ -= n;
    return static_cast<int>(n);
  }
  // The first thing a requester sends is its A-ASSOCIATE-RQ: note the IDs it proposes.
  int SendBytes(const void* buffer, uint32_t length) override {
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    KESTREL::pdu::AssociatePDU request;
    if (!sent_ && length > 6 && bytes[0] == KESTREL::pdu::kAssociateRQ &&
        KESTREL::pdu::DecodeAssociate(KESTREL::pdu::kAssociateRQ, bytes + 6, length - 6, request) &&
        request.Contexts.size() == 2) {
      ids_[0] = request.Contexts[0].PresentationContextID;
      ids_[1] = request.Contexts[1].PresentationContextID;
    }
    sent_ = true;
    return 1;
  }

 private:
  const uint8_t* data_;
  size_t left_;
  bool sent_ = false;
  uint8_t ids_[2] = {0, 0};
};

// At most this many messages per input, so that every run stays short.
constexpr int kMaxMessages = 64;

// Takes a data set's bytes as a file being written would, keeping at most 64 KiB of them.
class Collect : public ByteBuffer::Sink {
 public:
  bool Write(const void* data, size_t length) override {
    if (bytes.size() + length > 65536) return false;
    bytes.insert(bytes.end(), static_cast<const uint8_t*>(data),
                 static_cast<const uint8_t*>(data) + length);
    return true;
  }
  std::vector<uint8_t> bytes;
};

// A C-STORE data set as kestrel serve takes it: streamed to a sink as it arrives, then
// decoded with hold limits.
bool StreamDataSet(PDU_Service& pdu) {
  Collect sink;
  UID syntax;
  if (!pdu.ReadInto(sink, syntax)) return false;
  DICOMCodec reader;
  reader.SetHoldLimits(256, 4096);
  ByteBuffer buffer;
  buffer.WriteBytes(sink.bytes.data(), sink.bytes.size());
  DICOMDataObject dataSet;
  const int mode = DICOMCodec::TransferSyntaxMode(syntax.GetBuffer());
  (void)reader.Decode(buffer, &dataSet, mode ? mode : 100);
  return true;
}

void ServeMessages(PDU_Service& pdu) {
  pdu.SetMessageLimit(16384);
  for (int i = 0; i < kMaxMessages; ++i) {
    DICOMCommandObject command;
    if (!pdu.Read(&command)) return;
    uint16_t field = command.GetUInt16(0x0000, 0x0100);
    if (field == CEchoRQ::kCommandField) {
      Verification().Read(&pdu, &command);
    } else if (field == CStoreRQ::kCommandField && i % 2) {
      if (!StreamDataSet(pdu)) return;
    } else if (field == CStoreRQ::kCommandField) {
      DICOMDataObject dataSet;
      UnknownStorage().Read(&pdu, &command, &dataSet);
    } else if (command.GetUInt16(0x0000, 0x0800) != 0x0101) {
      DICOMDataObject dataSet;
      if (!pdu.Read(&dataSet)) return;
    }
  }
}

RTC* Dictionary() {
  static RTC* dictionary = FuzzDictionary();
  return dictionary;
}

void AsAcceptor(const uint8_t* data, size_t size) {
  KESTREL::sockets::Handle pair[2];
  if (!KESTREL::sockets::MakePair(pair)) return;
  KESTREL::sockets::Close(pair[1]);
  FedService acceptor(data, size);
  acceptor.AttachRTC(Dictionary(), false);
  if (acceptor.ServeSocket(pair[0])) ServeMessages(acceptor);  // the handle is its own now
}

void AsRequester(const uint8_t* data, size_t size) {
  // A real listener, so that Connect gets a connection; what it reads comes from the input.
  static Socket* listener = [] {
    auto* socket = new Socket;
    socket->ListenOnFreePort();
    return socket;
  }();
  static const std::string port = std::to_string(listener->GetLocalPort());
  FedService requester(data, size);
  requester.AttachRTC(Dictionary(), false);
  requester.SetApplicationContext("1.2.840.10008.3.1.1.1");
  requester.AddAbstractSyntax("1.2.840.10008.1.1");
  requester.AddAbstractSyntax("1.2.840.10008.5.1.4.1.1.2");
  int connected = requester.Connect("127.0.0.1", port.c_str(), nullptr);
  Socket accepted;
  accepted.Attach(listener->AcceptHandle(0));
  if (connected) ServeMessages(requester);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  if (data[0] & 1)
    AsRequester(data + 1, size - 1);
  else
    AsAcceptor(data + 1, size - 1);
  return 0;
}
