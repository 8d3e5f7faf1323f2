// Associations end to end over loopback: negotiation, the acceptance table, P-DATA-TF writing
// and reading, release and abort, and hostile input.
#include "kestrel/PDU_Service.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "net/PDUItems.h"
#include "tests/net/AllocationTracker.h"
#include "tests/net/NetTestSupport.h"

using namespace net_test;
namespace pdu = KESTREL::pdu;

namespace {

// Sets up `requester` to propose `syntaxes`; a timeout of 0 leaves the default.
void Propose(PDU_Service& requester, std::vector<const char*> syntaxes = {kVerification},
             int timeout = 5) {
  requester.SetApplicationContext(kApplicationContext);
  for (const char* syntax : syntaxes) requester.AddAbstractSyntax(syntax);
  if (timeout) requester.SetTimeout(timeout);
}

using Clock = std::chrono::steady_clock;

// A command set or data set as bytes, encoded the way the codec sends it.
std::vector<uint8_t> Encoded(DICOMObject* object, int mode) {
  PDU_Service codec;
  ByteBuffer buffer;
  EXPECT_TRUE(codec.Encode(object, buffer, mode, true));
  return std::vector<uint8_t>(buffer.Data(), buffer.Data() + buffer.Size());
}

std::vector<uint8_t> SmallCommand() {
  DICOMCommandObject command;
  PushUS(&command, 0x0000, 0x0100, 0x8030);
  return Encoded(&command, 100);
}

std::vector<uint8_t> SmallDataSet() {
  DICOMDataObject data;
  PushText(&data, 0x0010, 0x0010, "DOE^JANE");
  return Encoded(&data, 100);
}

// A requester associated with a raw peer that accepted its one Verification context.
class ScriptedAcceptor : public ::testing::Test {
 protected:
  void SetUp() override {
    Propose(requester_);
    PeerThread accept([this] {
      peer_ = std::make_unique<RawPeer>(listener_.Accept());
      RawPDU request;
      ASSERT_TRUE(peer_->ReadPDU(request));
      ASSERT_EQ(request.type, 1);
      contextID_ = ProposedContextIDs(request).at(0);
      peer_->Send(AssociateAC({{contextID_, 0}}));
    });
    ASSERT_EQ(requester_.Connect("127.0.0.1", listener_.PortText().c_str()), 1);
    accept.Join();
    ASSERT_TRUE(peer_);
  }

  Listener listener_;
  PDU_Service requester_;
  std::unique_ptr<RawPeer> peer_;
  uint8_t contextID_ = 0;
};

TEST(Association, ConnectsToOurAcceptorAndReleases) {
  AssociationPair pair({kVerification}, [](PDU_Service& acceptor) {
    EXPECT_EQ(acceptor.GetCallingAETitle(), "REQUESTER");
    EXPECT_EQ(acceptor.GetCalledAETitle(), "ACCEPTOR");
    DICOMCommandObject nothing;
    EXPECT_EQ(acceptor.Read(&nothing), 0) << "the requester released";
    EXPECT_FALSE(acceptor.IsAssociated());
  });
  ASSERT_EQ(pair.Connect(), 1);
  PDU_Service& requester = pair.requester();
  EXPECT_TRUE(requester.IsAssociated());
  ASSERT_EQ(requester.GetAcceptedContexts().size(), 1u);
  EXPECT_EQ(requester.GetAcceptedContexts()[0].AbstractSyntax, UID(kVerification));
  EXPECT_EQ(requester.GetAcceptedContexts()[0].TransferSyntaxes.at(0), UID(kImplicitLittle));
  EXPECT_EQ(requester.GetPeerMaximumLength(), PDU_Service::kMaximumLength);
  auto start = Clock::now();
  EXPECT_EQ(requester.Close(), 1);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(3)) << "the release was answered";
  EXPECT_FALSE(requester.IsAssociated());
  pair.Join();
  EXPECT_TRUE(pair.AcceptorAssociated());
}

TEST(Association, NothingToProposeFailsAtOnce) {
  PDU_Service requester;
  EXPECT_EQ(requester.Connect("127.0.0.1", "1"), 0);
}

// Each proposed context draws its own odd ID from the process-wide counter; within one request
// they grow, unless the counter wrapped from 255 to 1 between them.
TEST(Association, TwoAbstractSyntaxesGetOddIncreasingIDs) {
  Listener listener;
  for (int round = 0; round < 70; ++round) {
    std::vector<uint8_t> ids;
    PeerThread peerThread([&] {
      RawPeer peer(listener.Accept());
      RawPDU request;
      if (peer.ReadPDU(request)) ids = ProposedContextIDs(request);
      peer.Send(Reject(1, 1, 1));
    });
    PDU_Service requester;
    Propose(requester, {kVerification, kCTStorage});
    EXPECT_EQ(requester.Connect("127.0.0.1", listener.PortText().c_str()), 0);
    peerThread.Join();
    ASSERT_EQ(ids.size(), 2u) << "round " << round;
    EXPECT_EQ(ids[0] % 2, 1) << int(ids[0]);
    EXPECT_EQ(ids[1] % 2, 1) << int(ids[1]);
    EXPECT_NE(ids[0], ids[1]);
    bool wrapped = ids[1] < ids[0];
    if (wrapped) {
      EXPECT_GE(ids[0], 200) << int(ids[0]) << " then " << int(ids[1]);
    }
  }
}

// An A-ASSOCIATE-AC that accepts nothing, or accepts a context ID or transfer syntax never
// proposed, fails the Connect and leaves the rejection bytes of the last A-ASSOCIATE-RJ as they
// were.
TEST(Association, AnswersAcceptingNothingFailAndKeepThePreviousRejection) {
  Listener listener;
  PDU_Service requester;
  Propose(requester);
  auto answerWith = [&](std::function<std::vector<uint8_t>(uint8_t id)> answer) {
    bool closed = false;
    PeerThread peerThread([&] {
      RawPeer peer(listener.Accept());
      RawPDU request;
      peer.ReadPDU(request);
      peer.Send(answer(ProposedContextIDs(request).at(0)));
      closed = peer.WaitForClose();
    });
    EXPECT_EQ(requester.Connect("127.0.0.1", listener.PortText().c_str()), 0);
    peerThread.Join();
    return closed;
  };
  answerWith([](uint8_t) { return Reject(2, 3, 1); });
  EXPECT_TRUE(answerWith([](uint8_t id) {
    return AssociateAC({{id, PresentationContext::kAbstractSyntaxNotSupported}});
  }));
  EXPECT_FALSE(requester.IsAssociated());
  EXPECT_EQ(requester.GetRejectResult(), 2);
  EXPECT_EQ(requester.GetRejectSource(), 3);
  EXPECT_EQ(requester.GetRejectReason(), 1);
  EXPECT_TRUE(answerWith([](uint8_t id) { return AssociateAC({{id, 0}}, kExplicitLittle); }));
}

// The acceptance table decides; a refusal is a permanent rejection by the service user.
TEST(Association, AcceptanceTableChecks) {
  struct Case {
    const char* config;
    const char* calling;
    const char* called;
    const char* context;
    int connected;
    int reason;
  };
  const Case cases[] = {
      {"storescu STORESCU RemoteAE\n", "OTHER", "ANY", kApplicationContext, 0, 3},
      {"storescu STORESCU RemoteAE\n", "STORESCU", "ANY", kApplicationContext, 1, 0},
      {"storescu STORESCU REMOTEAE\n", "storescu", "ANY", kApplicationContext, 0, 3},
      {"me KESTREL LocalAE\n", "X", "ANY-SCP", kApplicationContext, 0, 7},
      {"me KESTREL localae\n", "X", "KESTREL", kApplicationContext, 1, 0},
      {"dicom 1.2.840.10008.3.1.1.1 Application\n", "X", "Y", "1.2.3.4", 0, 2},
      {"dicom 1.2.840.10008.3.1.1.1 Application\n", "X", "Y", kApplicationContext, 1, 0},
      {"ct 1.2.840.10008.5.1.4.1.1.2 sop\n", "X", "Y", kApplicationContext, 0, 1},
      {"echo 1.2.840.10008.1.1 abstract\n", "X", "Y", kApplicationContext, 1, 0},
      {"explicit 1.2.840.10008.1.2.1 transfer\n", "X", "Y", kApplicationContext, 0, 1},
      {"implicit 1.2.840.10008.1.2 Transfer\n", "X", "Y", kApplicationContext, 1, 0},
      {"# only a comment\nshort line\nx y unknownkind\n", "X", "Y", kApplicationContext, 1, 0},
  };
  for (const Case& c : cases) {
    TempFile config(c.config);
    AssociationPair pair({kVerification}, nullptr, config.path().c_str());
    pair.requester().SetLocalAddress(c.calling);
    pair.requester().SetRemoteAddress(c.called);
    pair.requester().SetApplicationContext(c.context);
    EXPECT_EQ(pair.Connect(), c.connected) << c.config << " calling " << c.calling;
    if (!c.connected) {
      EXPECT_EQ(pair.requester().GetRejectResult(), 1) << c.config;
      EXPECT_EQ(pair.requester().GetRejectSource(), 1) << c.config;
      EXPECT_EQ(pair.requester().GetRejectReason(), c.reason) << c.config;
    }
    pair.requester().Close();
  }
}

TEST(Association, AETitleChecksCutAtTheFirstBlankAndMatchCase) {
  TempFile config("storescu STORESCU RemoteAE\n");
  PDU_Service acceptor(config.path().c_str());
  EXPECT_TRUE(acceptor.CheckRemoteAE("STORESCU        "));
  EXPECT_TRUE(acceptor.CheckRemoteAE("STORESCU\tTAIL"));
  EXPECT_FALSE(acceptor.CheckRemoteAE("storescu        "));
  EXPECT_FALSE(acceptor.CheckRemoteAE(" STORESCU       "));
  EXPECT_FALSE(acceptor.CheckRemoteAE("STORESCU2       "));
  EXPECT_TRUE(acceptor.CheckLocalAE("ANYTHING")) << "no LocalAE rows";
  PDU_Service open;
  EXPECT_TRUE(open.CheckRemoteAE("WHOEVER"));
}

TEST(Association, AETitleSettersRefuseLongTitles) {
  PDU_Service service;
  EXPECT_TRUE(service.SetLocalAddress("KESTREL"));
  EXPECT_TRUE(service.SetRemoteAddress("ABCDEFGHIJKLMNOP"));
  EXPECT_FALSE(service.SetLocalAddress("ABCDEFGHIJKLMNOPQ"));
  EXPECT_FALSE(service.SetRemoteAddress(std::string(300, 'X')));
  EXPECT_EQ(service.GetCallingAETitle(), "KESTREL");
  EXPECT_EQ(service.GetCalledAETitle(), "ABCDEFGHIJKLMNOP");
  EXPECT_EQ(service.GetLocalAETitle(), "KESTREL");
}

TEST(Association, HundredsOfContextsAreAnswered) {
  std::vector<std::string> syntaxes;
  for (int i = 0; i < 300; ++i) syntaxes.push_back("1.2.3.4." + std::to_string(i));
  AssociationPair pair(syntaxes, [](PDU_Service& acceptor) {
    EXPECT_EQ(acceptor.GetAcceptedContexts().size(), 300u);
  });
  ASSERT_EQ(pair.Connect(), 1);
  EXPECT_EQ(pair.requester().GetAcceptedContexts().size(), 300u);
  pair.requester().Close();
}

std::vector<RawPDU> SplitPDUs(const std::vector<uint8_t>& wire) {
  std::vector<RawPDU> pdus;
  for (size_t at = 0; at + 6 <= wire.size();) {
    uint32_t length =
        uint32_t(wire[at + 2]) << 24 | wire[at + 3] << 16 | wire[at + 4] << 8 | wire[at + 5];
    RawPDU one;
    one.type = wire[at];
    one.body.assign(wire.begin() + at + 6, wire.begin() + at + 6 + length);
    pdus.push_back(one);
    at += 6 + length;
  }
  return pdus;
}

// Whether `bytes` are PDUs one after the other, the last ending where the bytes end.
bool WholePDUs(const std::vector<uint8_t>& bytes) {
  size_t at = 0;
  while (at + 6 <= bytes.size())
    at += 6 + (uint32_t(bytes[at + 2]) << 24 | bytes[at + 3] << 16 | bytes[at + 4] << 8 |
               bytes[at + 5]);
  return at == bytes.size();
}

// Records the bytes of every send a requester makes.
class SendCounting : public PDU_Service {
 public:
  int SendBytes(const void* buffer, uint32_t length) override {
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    sends.emplace_back(bytes, bytes + length);
    return PDU_Service::SendBytes(buffer, length);
  }
  std::vector<std::vector<uint8_t>> sends;
};

// PS3.8 9.3.5: an encoded data set leaves as fragments of 4096 bytes and the rest, one
// P-DATA-TF each, the last-fragment bit on the last only (10000 bytes: 4096, 4096 and 1808).
// The PDUs are gathered, up to 64 in one send, and a send holds whole PDUs only.
TEST(DataTransfer, DataSetsGoOutAsFragmentsOf4096BytesInFewSends) {
  struct Case {
    uint32_t encoded;
    size_t maxSends;
  } cases[] = {{10000, 1}, {4096 * 300 + 1000, 5}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.encoded);
    // 12 bytes of group length, 8 of element header, then the value.
    const uint32_t valueLength = c.encoded - 20;
    auto makeDataSet = [valueLength](DICOMDataObject& data) {
      auto* value = new VR(0x0011, 0x1010, valueLength, true);
      std::memset(value->Data, 0x5A, valueLength);
      ASSERT_TRUE(data.Push(value));
    };
    DICOMDataObject probe;
    makeDataSet(probe);
    ASSERT_EQ(Encoded(&probe, 100).size(), c.encoded);

    Listener listener;
    RecordingService acceptor;
    acceptor.SetTimeout(10);
    int readResult = -1;
    PeerThread acceptorThread([&] {
      if (!acceptor.ServeSocket(listener.Accept())) return;
      DICOMDataObject received;
      readResult = acceptor.Read(&received);
      VR* value = received.Find(0x0011, 0x1010);
      EXPECT_TRUE(value && value->Length == valueLength);
      DICOMCommandObject end;
      acceptor.Read(&end);  // answers the release
    });
    SendCounting requester;
    Propose(requester, {kCTStorage}, 10);
    ASSERT_EQ(requester.Connect("127.0.0.1", listener.PortText().c_str()), 1);
    uint8_t context = requester.GetAcceptedContexts().at(0).PresentationContextID;
    DICOMDataObject data;
    makeDataSet(data);
    const size_t sendsBefore = requester.sends.size();
    ASSERT_EQ(requester.Write(&data, kCTStorage), 1);
    const size_t dataSends = requester.sends.size() - sendsBefore;
    requester.Close();
    acceptorThread.Join();
    EXPECT_EQ(readResult, 1);
    EXPECT_LE(dataSends, c.maxSends);
    for (size_t i = sendsBefore; i < sendsBefore + dataSends; ++i)
      EXPECT_TRUE(WholePDUs(requester.sends[i])) << "send " << i;

    std::vector<RawPDU> pdus = SplitPDUs(acceptor.wire);
    const size_t count = (c.encoded + 4095) / 4096;
    ASSERT_EQ(pdus.size(), count + 2) << "the request, the P-DATA-TF and the release";
    EXPECT_EQ(pdus.back().type, 5);
    for (size_t i = 0; i < count; ++i) {
      const RawPDU& pdu = pdus[1 + i];
      const bool last = i + 1 == count;
      const uint32_t fragment = last ? c.encoded - 4096 * (count - 1) : 4096;
      ASSERT_EQ(pdu.type, 4) << i;
      ASSERT_EQ(pdu.body.size(), fragment + 6) << "PDU length of fragment " << i;
      uint32_t item =
          uint32_t(pdu.body[0]) << 24 | pdu.body[1] << 16 | pdu.body[2] << 8 | pdu.body[3];
      EXPECT_EQ(item, fragment + 2) << i;
      EXPECT_EQ(pdu.body[4], context) << i;
      EXPECT_EQ(pdu.body[5], last ? 0x02 : 0x00) << i;
    }
  }
}

TEST(DataTransfer, WritingWithoutAnAcceptedContextFails) {
  AssociationPair pair({kVerification}, nullptr);
  ASSERT_EQ(pair.Connect(), 1);
  DICOMDataObject data;
  PushText(&data, 0x0010, 0x0010, "X");
  EXPECT_EQ(pair.requester().Write(&data, kCTStorage), 0);
  pair.requester().Close();
}

TEST_F(ScriptedAcceptor, ReleaseRequestDuringAReadIsAnsweredAndFailsTheRead) {
  peer_->Send(ReleaseRQ());
  DICOMCommandObject response;
  EXPECT_EQ(requester_.Read(&response), 0);
  EXPECT_FALSE(requester_.IsAssociated());
  RawPDU answer;
  ASSERT_TRUE(peer_->ReadPDU(answer));
  EXPECT_EQ(answer.type, 6) << "A-RELEASE-RP";
  EXPECT_TRUE(peer_->WaitForClose());
}

TEST_F(ScriptedAcceptor, TwoMessagesInOnePDU) {
  std::vector<uint8_t> command = SmallCommand();
  std::vector<uint8_t> data = SmallDataSet();
  peer_->Send(DataTF({{contextID_, 0x03, command}, {contextID_, 0x02, data}}));
  DICOMCommandObject readCommand;
  DICOMDataObject readData;
  UID syntax;
  ASSERT_EQ(requester_.Read(&readCommand, syntax), 1);
  EXPECT_EQ(readCommand.GetUInt16(0x0000, 0x0100), 0x8030);
  EXPECT_EQ(syntax, UID(kImplicitLittle));
  ASSERT_EQ(requester_.Read(&readData), 1);
  ASSERT_NE(readData.Find(0x0010, 0x0010), nullptr);
  EXPECT_EQ(requester_.GetLastPresentationContextID(), contextID_);
}

TEST_F(ScriptedAcceptor, FragmentsAreReassembledAcrossPDUs) {
  std::vector<uint8_t> data = SmallDataSet();
  for (size_t at = 0; at < data.size(); at += 3) {
    size_t n = std::min<size_t>(3, data.size() - at);
    bool last = at + n == data.size();
    peer_->Send(DataTF({{contextID_, uint8_t(last ? 0x02 : 0x00),
                         std::vector<uint8_t>(data.begin() + at, data.begin() + at + n)}}));
  }
  DICOMDataObject readData;
  ASSERT_EQ(requester_.Read(&readData), 1);
  VR* name = readData.Find(0x0010, 0x0010);
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(static_cast<char*>(name->Data), name->Length), "DOE^JANE");
}

TEST_F(ScriptedAcceptor, AValueOnAnUnknownContextReadsInTheFallbackSyntax) {
  peer_->Send(DataTF({{99, 0x02, SmallDataSet()}}));
  DICOMDataObject readData;
  UID syntax;
  ASSERT_EQ(requester_.Read(&readData, syntax), 1);
  EXPECT_EQ(syntax, UID(kImplicitLittle));
  EXPECT_NE(readData.Find(0x0010, 0x0010), nullptr);
}

// Whatever breaks the protocol while a message is awaited fails the read; the PDUs that show a
// broken peer are answered with A-ABORT, the orderly ends and time-outs are not.
TEST(ProtocolErrors, DuringARead) {
  struct Case {
    const char* what;
    std::vector<uint8_t> (*bytes)(uint8_t context);
    bool commandExpected;
    bool abortExpected;
  };
  const Case cases[] = {
      {"A-ASSOCIATE-RQ", [](uint8_t) { return AssociateRQ({kVerification}); }, true, true},
      {"A-ASSOCIATE-AC",
       [](uint8_t c) {
         return AssociateAC({{c, 0}});
       },
       true, true},
      {"A-ASSOCIATE-RJ", [](uint8_t) { return Reject(1, 1, 1); }, true, true},
      {"unknown PDU type 9",
       [](uint8_t) { return std::vector<uint8_t>{9, 0, 0, 0, 0, 4, 1, 2, 3, 4}; }, true, true},
      {"A-ABORT", [](uint8_t) { return Abort(0, 0); }, true, false},
      {"A-RELEASE-RP", [](uint8_t) { return ReleaseRP(); }, true, false},
      {"P-DATA-TF shorter than one value header",
       [](uint8_t) { return std::vector<uint8_t>{4, 0, 0, 0, 0, 2, 0, 0}; }, true, true},
      {"value item length 1",
       [](uint8_t c) { return std::vector<uint8_t>{4, 0, 0, 0, 0, 6, 0, 0, 0, 1, c, 3}; }, true,
       true},
      {"value longer than its PDU",
       [](uint8_t c) { return std::vector<uint8_t>{4, 0, 0, 0, 0, 8, 0, 0, 0, 9, c, 3, 0, 0}; },
       true, true},
      {"data set where a command set was awaited",
       [](uint8_t c) {
         return DataTF({{c, 0x02, SmallDataSet()}});
       },
       true, true},
      {"command set where a data set was awaited",
       [](uint8_t c) {
         return DataTF({{c, 0x03, SmallCommand()}});
       },
       false, true},
      {"one message on two contexts",
       [](uint8_t c) {
         std::vector<uint8_t> command = SmallCommand();
         std::vector<uint8_t> head(command.begin(), command.begin() + 4);
         std::vector<uint8_t> rest(command.begin() + 4, command.end());
         return DataTF({{c, 0x01, head}, {uint8_t(c + 2), 0x03, rest}});
       },
       true, true},
      {"command that does not decode",
       [](uint8_t c) {
         return DataTF({{c, 0x03, {0x00, 0x00, 0x00, 0x01, 0xFF, 0xFF, 0xFF}}});
       },
       true, true},
  };
  for (const Case& c : cases) {
    Listener listener;
    PDU_Service requester;
    Propose(requester);
    bool aborted = false, closed = false;
    PeerThread peerThread([&] {
      RawPeer peer(listener.Accept());
      RawPDU request;
      if (!peer.ReadPDU(request)) return;
      uint8_t id = ProposedContextIDs(request).at(0);
      peer.Send(AssociateAC({{id, 0}}));
      peer.Send(c.bytes(id));
      RawPDU answer;
      if (peer.ReadPDU(answer, 5)) aborted = answer.type == 7;
      closed = peer.WaitForClose();
    });
    ASSERT_EQ(requester.Connect("127.0.0.1", listener.PortText().c_str()), 1) << c.what;
    int read;
    if (c.commandExpected) {
      DICOMCommandObject command;
      read = requester.Read(&command);
    } else {
      DICOMDataObject data;
      read = requester.Read(&data);
    }
    EXPECT_EQ(read, 0) << c.what;
    EXPECT_FALSE(requester.IsAssociated()) << c.what;
    peerThread.Join();
    EXPECT_EQ(aborted, c.abortExpected) << c.what;
    EXPECT_TRUE(closed) << c.what;
  }
}

TEST_F(ScriptedAcceptor, ASilentPeerTimesOutWithoutAnAbort) {
  requester_.SetTimeout(1);
  auto start = Clock::now();
  DICOMCommandObject command;
  EXPECT_EQ(requester_.Read(&command), 0);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
  RawPDU anything;
  EXPECT_FALSE(peer_->ReadPDU(anything, 2)) << "no A-ABORT, only the close";
}

// Lengths that lie: memory follows what arrives, not what a header announces.
TEST_F(ScriptedAcceptor, AnnouncedLengthsAreNotAllocatedAhead) {
  std::vector<uint8_t> bytes = {
      4,    0,    0xFF, 0xFF, 0xFF,       0xF0,  // P-DATA-TF of about 4 GB
      0xFF, 0xFF, 0xFF, 0xE0, contextID_, 0x00};
  bytes.resize(bytes.size() + 1000, 0x11);
  StartAllocationTracking();
  peer_->Send(bytes);
  peer_->socket().Close();
  DICOMDataObject data;
  EXPECT_EQ(requester_.Read(&data), 0);
  // A block or two of fixed size (the socket's read-ahead, the message's next block), never
  // anything near the 4 GB announced.
  EXPECT_LT(StopAllocationTracking(), 256u * 1024);
}

// A first PDU that is not a sound request fails ServeSocket without allocating what it
// announces; an oversized request and any other PDU type are answered with A-ABORT, a request
// whose peer goes away before the announced length came is not answered at all.
TEST(Acceptor, BadFirstPDUsFailTheAssociation) {
  std::vector<uint8_t> lying = AssociateRQ({kVerification});
  lying[5] += 100;  // announces 100 bytes more than it sends, then goes away
  struct Case {
    const char* what;
    std::vector<uint8_t> bytes;
    bool aborted;
  };
  const Case cases[] = {{"oversized request", {1, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 1, 0, 0}, true},
                        {"request that lies about its length", lying, false},
                        {"A-RELEASE-RQ first", ReleaseRQ(), true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Listener listener;
    PDU_Service acceptor;
    acceptor.SetTimeout(5);
    bool aborted = false;
    PeerThread peerThread([&] {
      RawPeer peer;
      ASSERT_TRUE(peer.Connect(listener.Port()));
      peer.Send(c.bytes);
      RawPDU answer;
      if (c.aborted) aborted = peer.ReadPDU(answer) && answer.type == 7;
    });
    StartAllocationTracking();
    EXPECT_EQ(acceptor.ServeSocket(listener.Accept()), 0);
    EXPECT_LT(StopAllocationTracking(), 256u * 1024);
    peerThread.Join();
    EXPECT_EQ(aborted, c.aborted);
  }
}

TEST(Acceptor, APeerThatNeverSendsIsDroppedAfterTheTimeOut) {
  Listener listener;
  RawPeer peer;
  ASSERT_TRUE(peer.Connect(listener.Port()));
  PDU_Service acceptor;
  acceptor.SetTimeout(1);
  auto start = Clock::now();
  EXPECT_EQ(acceptor.ServeSocket(listener.Accept()), 0);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
  EXPECT_TRUE(peer.WaitForClose());
}

// Listen and Multiplex bind a port of their own; take one the system just gave out.
int FreePort() {
  Listener probe;
  return probe.Port();
}

int ConnectWithRetry(PDU_Service& requester, int port) {
  for (int attempt = 0; attempt < 50; ++attempt) {
    if (requester.Connect("127.0.0.1", std::to_string(port).c_str())) return 1;
    if (requester.GetRejectReason()) return 0;  // it answered: no reason to try again
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return 0;
}

TEST(Acceptor, MultiplexDropsRefusedPeersUntilOneIsAccepted) {
  TempFile config("good GOOD RemoteAE\n");
  int port = FreePort();
  int multiplexed = -1;
  PeerThread acceptorThread([&] {
    PDU_Service acceptor(config.path().c_str());
    acceptor.SetTimeout(5);
    multiplexed = acceptor.Multiplex(std::to_string(port).c_str());
    DICOMCommandObject nothing;
    acceptor.Read(&nothing);  // until the release
  });
  PDU_Service refused;
  Propose(refused, {kVerification}, 0);
  refused.SetLocalAddress("BAD");
  EXPECT_EQ(ConnectWithRetry(refused, port), 0);
  EXPECT_EQ(refused.GetRejectReason(), 3);
  PDU_Service accepted;
  Propose(accepted, {kVerification}, 0);
  accepted.SetLocalAddress("GOOD");
  EXPECT_EQ(ConnectWithRetry(accepted, port), 1);
  accepted.Close();
  acceptorThread.Join();
  EXPECT_EQ(multiplexed, 1);
}

TEST(Acceptor, ListenServesOnePeer) {
  int port = FreePort();
  int listened = -1;
  PeerThread acceptorThread([&] {
    PDU_Service acceptor;
    acceptor.SetTimeout(5);
    listened = acceptor.Listen(std::to_string(port).c_str());
    DICOMCommandObject nothing;
    acceptor.Read(&nothing);
  });
  PDU_Service requester;
  Propose(requester, {kVerification}, 0);
  EXPECT_EQ(ConnectWithRetry(requester, port), 1);
  requester.Close();
  acceptorThread.Join();
  EXPECT_EQ(listened, 1);
}

}  // namespace
