// DIMSE command sets: golden bytes, every command class sent and read back, the checks of the
// Read operations, and the process-wide message ID counter.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kestrel/DIMSEC.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/Verification.h"
#include "tests/TestValues.h"
#include "tests/net/NetTestSupport.h"

using namespace net_test;

namespace {

std::unique_ptr<DICOMDataObject> DataSet() {
  auto data = std::make_unique<DICOMDataObject>();
  PushText(data.get(), 0x0008, 0x0016, kCTStorage);
  PushText(data.get(), 0x0008, 0x0018, "1.2.3.4.5.6");
  PushText(data.get(), 0x0010, 0x0010, "DOE^JOHN");
  return data;
}

// The C-ECHO-RSP to message 3 as its command set is sent: implicit VR little endian, group
// length first, elements in tag order (PS3.7 Table 9.3-13).
const std::vector<uint8_t> kEchoResponse = Bytes({
    {0x00, 0x00, 0x00, 0x00, 0x04, 0, 0, 0, 0x42, 0, 0, 0},  // (0000,0000) UL 66
    {0x00, 0x00, 0x02, 0x00, 0x12, 0, 0, 0},                 // (0000,0002) UI, 18 bytes
    {'1', '.', '2', '.', '8', '4', '0', '.', '1', '0', '0', '0', '8', '.', '1', '.', '1', 0},
    {0x00, 0x00, 0x00, 0x01, 0x02, 0, 0, 0, 0x30, 0x80},  // (0000,0100) Command Field 8030
    {0x00, 0x00, 0x20, 0x01, 0x02, 0, 0, 0, 0x03, 0x00},  // (0000,0120) responding to 3
    {0x00, 0x00, 0x00, 0x08, 0x02, 0, 0, 0, 0x01, 0x01},  // (0000,0800) no data set
    {0x00, 0x00, 0x00, 0x09, 0x02, 0, 0, 0, 0x00, 0x00},  // (0000,0900) Status success
});

TEST(CommandSetBytes, EchoResponseMatchesTheGolden) {
  Listener listener;
  PeerThread acceptorThread([&] {
    PDU_Service acceptor;
    acceptor.SetTimeout(5);
    if (!acceptor.ServeSocket(listener.Accept())) return;
    DICOMCommandObject request;
    ASSERT_EQ(acceptor.Read(&request), 1);
    request.Clear();
    // Answer a request whose Message ID was 3, whatever the counter gave.
    DICOMCommandObject asked;
    PushText(&asked, 0x0000, 0x0002, std::string(kVerification) + '\0');
    PushUS(&asked, 0x0000, 0x0110, 3);
    EXPECT_EQ(CEchoRSP::Write(&acceptor, &asked, 0x0000), 1);
    acceptor.Read(&request);
  });
  RecordingService requester;
  requester.SetApplicationContext(kApplicationContext);
  requester.AddAbstractSyntax(kVerification);
  requester.SetTimeout(5);
  ASSERT_EQ(requester.Connect("127.0.0.1", listener.PortText().c_str()), 1);
  uint16_t messageID = 0;
  ASSERT_EQ(CEchoRQ::Write(&requester, kVerification, &messageID), 1);
  EXPECT_EQ(messageID % 2, 1);
  requester.wire.clear();
  DICOMCommandObject response;
  ASSERT_EQ(requester.Read(&response), 1);
  requester.Close();
  acceptorThread.Join();
  // One P-DATA-TF: 6 bytes of PDU header, 6 of value header, then the command set.
  // (The A-RELEASE-RP read by Close follows.)
  ASSERT_GE(requester.wire.size(), 12 + kEchoResponse.size());
  EXPECT_EQ(requester.wire[11], 0x03) << "command, last fragment";
  EXPECT_EQ(std::vector<uint8_t>(requester.wire.begin() + 12,
                                 requester.wire.begin() + 12 + kEchoResponse.size()),
            kEchoResponse);
}

// Every command class is written by the requester and read back by an acceptor: command
// field, data set type and the class's own elements.
using Texts = std::vector<std::pair<uint16_t, std::string>>;
struct Expected {
  const char* name;
  uint16_t commandField;
  bool dataSet;
  Texts texts;                                         // UI and AE elements
  std::vector<std::pair<uint16_t, uint16_t>> numbers;  // US elements
  int (*read)(DICOMCommandObject*, PDU_Service*, DICOMDataObject*);
};

TEST(CommandClasses, WrittenAndReadBack) {
  // The request the responses answer: as an acceptor would have read it.
  auto request = [] {
    auto command = std::make_unique<DICOMCommandObject>();
    PushText(command.get(), 0x0000, 0x0002, std::string(kCTStorage) + '\0');
    PushText(command.get(), 0x0000, 0x1000, "1.2.3.4.5.6");
    PushText(command.get(), 0x0000, 0x1001, "1.2.3.4.5.7");
    PushUS(command.get(), 0x0000, 0x0110, 41);
    PushUS(command.get(), 0x0000, 0x1002, 5);
    PushUS(command.get(), 0x0000, 0x1008, 6);
    return command;
  };
  using Writer = std::function<int(PDU_Service*)>;
  const UID ct = kCTStorage;
  const UID instance = "1.2.3.4.5.6";
  // The affected (C-STORE, N-EVENT-REPORT, N-CREATE) or requested (N-GET, N-SET, N-DELETE)
  // SOP class and instance.
  const Texts affected = {{0x0002, kCTStorage}, {0x1000, "1.2.3.4.5.6"}};
  const Texts requested = {{0x0003, kCTStorage}, {0x1001, "1.2.3.4.5.6"}};
  std::vector<std::pair<Writer, Expected>> table = {
      {[&](PDU_Service* p) { return CEchoRQ::Write(p, ct); },
       {"C-ECHO-RQ", 0x0030, false, {{0x0002, kCTStorage}}, {}, CEchoRQ::Read}},
      {[&](PDU_Service* p) { return CEchoRSP::Write(p, request().get(), 0); },
       {"C-ECHO-RSP", 0x8030, false, {}, {{0x0120, 41}, {0x0900, 0}}, CEchoRSP::Read}},
      {[&](PDU_Service* p) { return CStoreRQ::Write(p, ct, DataSet().get()); },
       {"C-STORE-RQ", 0x0001, true, affected, {{0x0700, 0}}, CStoreRQ::Read}},
      {[&](PDU_Service* p) { return CStoreRSP::Write(p, request().get(), 0xA700); },
       {"C-STORE-RSP", 0x8001, false, affected, {{0x0120, 41}, {0x0900, 0xA700}}, CStoreRSP::Read}},
      {[&](PDU_Service* p) { return CFindRQ::Write(p, ct, DataSet().get()); },
       {"C-FIND-RQ", 0x0020, true, {{0x0002, kCTStorage}}, {{0x0700, 0}}, CFindRQ::Read}},
      {[&](PDU_Service* p) { return CFindRSP::Write(p, request().get(), 0xFF00, DataSet().get()); },
       {"C-FIND-RSP pending", 0x8020, true, {}, {{0x0120, 41}, {0x0900, 0xFF00}}, CFindRSP::Read}},
      {[&](PDU_Service* p) { return CFindRSP::Write(p, request().get(), 0, nullptr); },
       {"C-FIND-RSP final", 0x8020, false, {}, {{0x0900, 0}}, CFindRSP::Read}},
      {[&](PDU_Service* p) { return CMoveRQ::Write(p, ct, "DEST", DataSet().get()); },
       {"C-MOVE-RQ", 0x0021, true, {{0x0600, "DEST"}}, {{0x0700, 0}}, CMoveRQ::Read}},
      {[&](PDU_Service* p) {
         return CMoveRSP::Write(p, request().get(), 0xFF00, CMoveRSP::Counts{4, 3, 2, 1});
       },
       {"C-MOVE-RSP",
        0x8021,
        false,
        {},
        {{0x0900, 0xFF00}, {0x1020, 4}, {0x1021, 3}, {0x1022, 2}, {0x1023, 1}},
        CMoveRSP::Read}},
      {[&](PDU_Service* p) {
         return NEventReportRQ::Write(p, ct, ct, instance, 5, DataSet().get());
       },
       {"N-EVENT-REPORT-RQ", 0x0100, true, affected, {{0x1002, 5}}, NEventReportRQ::Read}},
      {[&](PDU_Service* p) { return NEventReportRSP::Write(p, request().get(), 0); },
       {"N-EVENT-REPORT-RSP",
        0x8100,
        false,
        {},
        {{0x0120, 41}, {0x1002, 5}},
        NEventReportRSP::Read}},
      {[&](PDU_Service* p) {
         return NGetRQ::Write(p, ct, ct, instance, {0x00100010u, 0x00100020u});
       },
       {"N-GET-RQ", 0x0110, false, requested, {}, NGetRQ::Read}},
      {[&](PDU_Service* p) { return NGetRSP::Write(p, request().get(), 0, DataSet().get()); },
       {"N-GET-RSP", 0x8110, true, {{0x1000, "1.2.3.4.5.7"}}, {{0x0120, 41}}, NGetRSP::Read}},
      {[&](PDU_Service* p) { return NSetRQ::Write(p, ct, ct, instance, DataSet().get()); },
       {"N-SET-RQ", 0x0120, true, requested, {}, NSetRQ::Read}},
      {[&](PDU_Service* p) { return NSetRSP::Write(p, request().get(), 0); },
       {"N-SET-RSP", 0x8120, false, {{0x1000, "1.2.3.4.5.7"}}, {{0x0900, 0}}, NSetRSP::Read}},
      {[&](PDU_Service* p) { return NActionRQ::Write(p, ct, ct, instance, 6, nullptr); },
       {"N-ACTION-RQ", 0x0130, false, {{0x1001, "1.2.3.4.5.6"}}, {{0x1008, 6}}, NActionRQ::Read}},
      {[&](PDU_Service* p) { return NActionRSP::Write(p, request().get(), 0); },
       {"N-ACTION-RSP", 0x8130, false, {}, {{0x1008, 6}}, NActionRSP::Read}},
      {[&](PDU_Service* p) { return NCreateRQ::Write(p, ct, ct, instance, DataSet().get()); },
       {"N-CREATE-RQ", 0x0140, true, affected, {}, NCreateRQ::Read}},
      {[&](PDU_Service* p) { return NCreateRSP::Write(p, request().get(), 0, "9.8.7"); },
       {"N-CREATE-RSP", 0x8140, false, {{0x1000, "9.8.7"}}, {{0x0900, 0}}, NCreateRSP::Read}},
      {[&](PDU_Service* p) { return NDeleteRQ::Write(p, ct, ct, instance); },
       {"N-DELETE-RQ", 0x0150, false, requested, {}, NDeleteRQ::Read}},
      {[&](PDU_Service* p) { return NDeleteRSP::Write(p, request().get(), 0x0112); },
       {"N-DELETE-RSP",
        0x8150,
        false,
        {{0x0002, kCTStorage}, {0x1000, "1.2.3.4.5.7"}},
        {{0x0900, 0x0112}},
        NDeleteRSP::Read}},
  };

  struct Received {
    std::unique_ptr<DICOMCommandObject> command = std::make_unique<DICOMCommandObject>();
    std::unique_ptr<DICOMDataObject> data = std::make_unique<DICOMDataObject>();
    int readResult = 0;
  };
  std::vector<Received> received(table.size());
  AssociationPair pair({kCTStorage}, [&](PDU_Service& acceptor) {
    for (size_t i = 0; i < table.size(); ++i) {
      if (!acceptor.Read(received[i].command.get())) return;
      received[i].readResult =
          table[i].second.read(received[i].command.get(), &acceptor, received[i].data.get());
    }
  });
  ASSERT_EQ(pair.Connect(), 1);
  for (auto& [write, expected] : table) EXPECT_EQ(write(&pair.requester()), 1) << expected.name;
  pair.Join();
  pair.requester().Close();

  for (size_t i = 0; i < table.size(); ++i) {
    const Expected& expected = table[i].second;
    DICOMCommandObject* command = received[i].command.get();
    EXPECT_EQ(received[i].readResult, 1) << expected.name;
    EXPECT_EQ(command->GetUInt16(0, 0x0100), expected.commandField) << expected.name;
    EXPECT_EQ(command->GetUInt16(0, 0x0800), expected.dataSet ? 0x0102 : 0x0101) << expected.name;
    if (expected.commandField & 0x8000) {
      EXPECT_EQ(TextOf(command, 0, 0x0002), kCTStorage) << expected.name << ": SOP class";
    } else {
      EXPECT_EQ(command->GetUInt16(0, 0x0110) % 2, 1) << expected.name << ": odd message ID";
    }
    for (const auto& [element, text] : expected.texts)
      EXPECT_EQ(TextOf(command, 0, element), text) << expected.name << " " << std::hex << element;
    for (const auto& [element, value] : expected.numbers)
      EXPECT_EQ(command->GetUInt16(0, element), value)
          << expected.name << " " << std::hex << element;
    if (expected.dataSet) {
      EXPECT_EQ(TextOf(received[i].data.get(), 0x0010, 0x0010), "DOE^JOHN") << expected.name;
    }
  }
}

// The Read checks on command sets alone (no association).
TEST(CommandClasses, ReadChecks) {
  auto command = [](uint16_t field, uint16_t dataSetType) {
    auto made = std::make_unique<DICOMCommandObject>();
    PushUS(made.get(), 0x0000, 0x0100, field);
    PushUS(made.get(), 0x0000, 0x0800, dataSetType);
    return made;
  };
  struct Case {
    const char* what;
    int (*read)(DICOMCommandObject*, PDU_Service*, DICOMDataObject*);
    uint16_t field, dataSetType;
    int expected;
  };
  const Case cases[] = {
      {"C-STORE-RQ without its data set", CStoreRQ::Read, 0x0001, 0x0101, 0},
      {"C-STORE-RQ with its data set", CStoreRQ::Read, 0x0001, 0x0102, 1},
      {"C-STORE-RQ, any other data set type means one follows", CStoreRQ::Read, 0x0001, 0x0000, 1},
      {"C-FIND-RQ without its identifier", CFindRQ::Read, 0x0020, 0x0101, 0},
      {"C-MOVE-RQ without its identifier", CMoveRQ::Read, 0x0021, 0x0101, 0},
      {"C-ECHO-RSP check sees a C-STORE-RSP", CEchoRSP::Read, 0x8001, 0x0101, 0},
      {"C-ECHO-RSP", CEchoRSP::Read, 0x8030, 0x0101, 1},
      {"C-ECHO-RQ check sees its response", CEchoRQ::Read, 0x8030, 0x0101, 0},
      {"final C-FIND-RSP", CFindRSP::Read, 0x8020, 0x0101, 1},
      {"N-DELETE-RSP", NDeleteRSP::Read, 0x8150, 0x0101, 1},
  };
  for (const Case& c : cases) {
    auto made = command(c.field, c.dataSetType);
    EXPECT_EQ(c.read(made.get(), nullptr, nullptr), c.expected) << c.what;
  }
  EXPECT_EQ(CEchoRQ::Read(nullptr), 0);
  DICOMCommandObject empty;
  EXPECT_EQ(CStoreRSP::Read(&empty), 0) << "no command field at all";
}

TEST(CommandClasses, StoreRequestNeedsAnInstanceUID) {
  AssociationPair pair({kCTStorage}, nullptr);
  ASSERT_EQ(pair.Connect(), 1);
  DICOMDataObject noInstance;
  PushText(&noInstance, 0x0010, 0x0010, "DOE");
  EXPECT_EQ(CStoreRQ::Write(&pair.requester(), kCTStorage, &noInstance), 0);
  EXPECT_EQ(CEchoRQ::Write(&pair.requester(), kVerification), 0) << "no context for it";
  pair.requester().Close();
}

// Draws two message IDs through two C-ECHO requests and leaves the process: exit code 0 when
// they were 3 and 5.
void ExitWithFirstTwoMessageIDs() {
  AssociationPair pair({kVerification}, [](PDU_Service& acceptor) {
    DICOMCommandObject request;
    while (acceptor.Read(&request)) request.Clear();
  });
  uint16_t first = 0, second = 0;
  bool ok = pair.Connect() == 1 && CEchoRQ::Write(&pair.requester(), kVerification, &first) &&
            CEchoRQ::Write(&pair.requester(), kVerification, &second);
  pair.requester().Close();
  pair.Join();
  std::fprintf(stderr, "ids %u %u\n", first, second);
  std::_Exit(ok && first == 3 && second == 5 ? 0 : 1);
}

// The message ID counter is process-wide and starts at 1: in a fresh process the first
// request carries 3 and the second 5. The "threadsafe" death test runs it in a new process.
TEST(MessageIDDeathTest, FirstRequestsOfAProcessCarryThreeAndFive) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(ExitWithFirstTwoMessageIDs(), ::testing::ExitedWithCode(0), "ids 3 5");
}

}  // namespace
