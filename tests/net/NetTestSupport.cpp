#include "tests/net/NetTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "net/PDUItems.h"

namespace pdu = KESTREL::pdu;

namespace net_test {

Listener::Listener() {
  socket_.ListenOnFreePort();
  port_ = socket_.GetLocalPort();
}

void PushText(DICOMObject* object, uint16_t group, uint16_t element, const std::string& text) {
  auto* vr = new VR(group, element, static_cast<uint32_t>(text.size()), true);
  if (!text.empty()) std::memcpy(vr->Data, text.data(), text.size());
  ASSERT_TRUE(object->Push(vr));
}

void PushUS(DICOMObject* object, uint16_t group, uint16_t element, uint16_t value) {
  auto* vr = new VR(group, element, 2, true);
  std::memcpy(vr->Data, &value, 2);
  ASSERT_TRUE(object->Push(vr));
}

std::vector<uint8_t> Bytes(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

int Listener::Accept(int milliseconds) { return socket_.AcceptHandle(milliseconds); }

RawPeer::RawPeer(int handle) { socket_.Attach(handle); }

bool RawPeer::Connect(int port) {
  return socket_.Open("127.0.0.1", std::to_string(port).c_str()) == 1;
}

void RawPeer::Send(const std::vector<uint8_t>& bytes) {
  socket_.Send(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool RawPeer::ReadExactly(uint8_t* data, size_t length) {
  while (length) {
    int got = socket_.Recv(data, static_cast<uint32_t>(length));
    if (got <= 0) return false;
    data += got;
    length -= static_cast<size_t>(got);
  }
  return true;
}

bool RawPeer::ReadPDU(RawPDU& out, uint32_t seconds) {
  socket_.SetTimeout(seconds);
  uint8_t header[6];
  if (!ReadExactly(header, 6)) return false;
  uint32_t length =
      static_cast<uint32_t>(header[2]) << 24 | header[3] << 16 | header[4] << 8 | header[5];
  if (length > (64u << 20)) return false;
  out.type = header[0];
  out.body.assign(length, 0);
  return ReadExactly(out.body.data(), length);
}

bool RawPeer::WaitForClose(uint32_t seconds) {
  socket_.SetTimeout(seconds);
  uint8_t scratch[4096];
  for (;;) {
    int got = socket_.Recv(scratch, sizeof scratch);
    if (got > 0) continue;
    return !socket_.IsConnected();  // a close makes Recv close this end; a time-out does not
  }
}

std::vector<uint8_t> AssociateAC(const std::vector<std::pair<uint8_t, uint8_t>>& contextResults,
                                 const char* transferSyntax) {
  pdu::AssociatePDU answer;
  answer.ApplicationContext = kApplicationContext;
  for (const auto& [id, result] : contextResults) {
    PresentationContext context;
    context.PresentationContextID = id;
    context.Result = result;
    context.AddTransferSyntax(transferSyntax);
    answer.Contexts.push_back(context);
  }
  answer.User.MaximumLength = 16384;
  answer.User.ImplementationClass = "1.2.3.4";
  std::vector<uint8_t> bytes;
  pdu::EncodeAssociate(pdu::kAssociateAC, answer, bytes);
  return bytes;
}

std::vector<uint8_t> AssociateRQ(const std::vector<std::string>& abstractSyntaxes,
                                 const std::string& calling, const std::string& called) {
  pdu::AssociatePDU request;
  pdu::SetAETitleField(request.CallingAE, calling.data(), calling.size());
  pdu::SetAETitleField(request.CalledAE, called.data(), called.size());
  request.ApplicationContext = kApplicationContext;
  uint8_t id = 1;
  for (const std::string& syntax : abstractSyntaxes) {
    PresentationContext context(syntax, kImplicitLittle);
    context.PresentationContextID = id;
    id = static_cast<uint8_t>(id + 2);
    request.Contexts.push_back(context);
  }
  request.User.MaximumLength = 16384;
  request.User.ImplementationClass = "1.2.3.4";
  std::vector<uint8_t> bytes;
  pdu::EncodeAssociate(pdu::kAssociateRQ, request, bytes);
  return bytes;
}

std::vector<uint8_t> Reject(uint8_t result, uint8_t source, uint8_t reason) {
  std::vector<uint8_t> bytes;
  pdu::EncodeReject(result, source, reason, bytes);
  return bytes;
}

std::vector<uint8_t> ReleaseRQ() {
  std::vector<uint8_t> bytes;
  pdu::EncodeRelease(pdu::kReleaseRQ, bytes);
  return bytes;
}

std::vector<uint8_t> ReleaseRP() {
  std::vector<uint8_t> bytes;
  pdu::EncodeRelease(pdu::kReleaseRP, bytes);
  return bytes;
}

std::vector<uint8_t> Abort(uint8_t source, uint8_t reason) {
  std::vector<uint8_t> bytes;
  pdu::EncodeAbort(source, reason, bytes);
  return bytes;
}

std::vector<uint8_t> DataTF(const std::vector<Value>& values) {
  std::vector<uint8_t> bytes = {4, 0, 0, 0, 0, 0};
  for (const Value& value : values) {
    uint32_t itemLength = static_cast<uint32_t>(value.fragment.size() + 2);
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(uint8_t(itemLength >> shift));
    bytes.push_back(value.context);
    bytes.push_back(value.control);
    bytes.insert(bytes.end(), value.fragment.begin(), value.fragment.end());
  }
  uint32_t length = static_cast<uint32_t>(bytes.size() - 6);
  for (int i = 0; i < 4; ++i) bytes[2 + i] = uint8_t(length >> (24 - 8 * i));
  return bytes;
}

std::vector<uint8_t> ProposedContextIDs(const RawPDU& request) {
  pdu::AssociatePDU decoded;
  std::vector<uint8_t> ids;
  if (!pdu::DecodeAssociate(pdu::kAssociateRQ, request.body.data(), request.body.size(), decoded))
    return ids;
  for (const PresentationContext& context : decoded.Contexts)
    ids.push_back(context.PresentationContextID);
  return ids;
}

AssociationPair::AssociationPair(std::vector<std::string> abstractSyntaxes,
                                 AcceptorBody acceptorBody, const char* acceptorConfig) {
  requester_.SetApplicationContext(kApplicationContext);
  requester_.SetLocalAddress("REQUESTER");
  requester_.SetRemoteAddress("ACCEPTOR");
  for (const std::string& syntax : abstractSyntaxes) requester_.AddAbstractSyntax(syntax);
  std::string config = acceptorConfig ? acceptorConfig : "";
  acceptorThread_ = std::make_unique<PeerThread>([this, acceptorBody, config] {
    int handle = listener_.Accept();
    if (handle < 0) return;
    PDU_Service acceptor(config.c_str());
    acceptor.SetTimeout(10);
    acceptorAssociated_ = acceptor.ServeSocket(handle) == 1;
    if (acceptorAssociated_ && acceptorBody) acceptorBody(acceptor);
  });
}

AssociationPair::~AssociationPair() {
  requester_.Abort();
  Join();
}

int AssociationPair::Connect(const char* transferSyntax) {
  requester_.SetTimeout(10);
  return requester_.Connect("127.0.0.1", listener_.PortText().c_str(), transferSyntax);
}

TempFile::TempFile(const std::string& text) {
  char pattern[] = "/tmp/kestrel-net-XXXXXX";
  const char* made = mkdtemp(pattern);
  dir_ = made ? made : "/tmp";
  path_ = dir_ + "/pdu.txt";
  std::ofstream(path_) << text;
}

TempFile::~TempFile() {
  std::error_code ignored;
  std::filesystem::remove_all(dir_, ignored);
}

}  // namespace net_test
