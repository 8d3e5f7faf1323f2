// Association PDUs as bytes: golden PDUs written and read, then damaged.
#include "net/PDUItems.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/net/NetTestSupport.h"

namespace pdu = KESTREL::pdu;
using net_test::Bytes;

namespace {

std::vector<uint8_t> Text(const char* text) {
  return std::vector<uint8_t>(text, text + std::strlen(text));
}

// A-ASSOCIATE-RQ, PS3.8 Table 9-11: ECHOSCU calls ANY-SCP with one presentation context (ID 1,
// Verification, implicit VR little endian) and our user information.
const std::vector<uint8_t> kAssociateRQ = Bytes({
    {0x01, 0x00},                 // PDU type 1, reserved
    {0x00, 0x00, 0x00, 0xB8},     // PDU length 184 = 68 + 25 + 50 + 41
    {0x00, 0x01},                 // protocol version 1
    {0x00, 0x00},                 // reserved
    Text("ANY-SCP         "),     // called AE title, 16 bytes
    Text("ECHOSCU         "),     // calling AE title
    std::vector<uint8_t>(32, 0),  // reserved
    {0x10, 0x00, 0x00, 0x15},     // application context item, length 21
    Text("1.2.840.10008.3.1.1.1"),
    {0x20, 0x00, 0x00, 0x2E},  // presentation context item, length 46
    {0x01, 0x00, 0x00, 0x00},  // context ID 1, three reserved bytes
    {0x30, 0x00, 0x00, 0x11},  // abstract syntax sub-item, length 17
    Text("1.2.840.10008.1.1"),
    {0x40, 0x00, 0x00, 0x11},  // transfer syntax sub-item, length 17
    Text("1.2.840.10008.1.2"),
    {0x50, 0x00, 0x00, 0x25},                          // user information item, length 37
    {0x51, 0x00, 0x00, 0x04, 0x00, 0x00, 0x40, 0x00},  // maximum length 16384
    {0x52, 0x00, 0x00, 0x10},                          // implementation class UID, length 16
    Text("1.2.804.990417.3"),
    {0x55, 0x00, 0x00, 0x05},  // implementation version name, length 5
    Text("Vexa "),
});

pdu::AssociatePDU EchoRequest() {
  pdu::AssociatePDU request;
  pdu::SetAETitleField(request.CalledAE, "ANY-SCP", 7);
  pdu::SetAETitleField(request.CallingAE, "ECHOSCU", 7);
  request.ApplicationContext = "1.2.840.10008.3.1.1.1";
  PresentationContext context("1.2.840.10008.1.1", "1.2.840.10008.1.2");
  context.PresentationContextID = 1;
  request.Contexts.push_back(context);
  request.User.MaximumLength = 16384;
  request.User.ImplementationClass = "1.2.804.990417.3";
  request.User.ImplementationVersion = "Vexa ";
  return request;
}

// Written from its fields, and read back and written again, the request is the golden one.
TEST(AssociatePDU, GoldenRequestWrittenAndRead) {
  std::vector<uint8_t> bytes;
  pdu::EncodeAssociate(pdu::kAssociateRQ, EchoRequest(), bytes);
  EXPECT_EQ(bytes, kAssociateRQ);
  pdu::AssociatePDU request;
  ASSERT_TRUE(pdu::DecodeAssociate(pdu::kAssociateRQ, kAssociateRQ.data() + 6,
                                   kAssociateRQ.size() - 6, request));
  EXPECT_STREQ(request.CalledAE, "ANY-SCP         ");
  EXPECT_TRUE(request.ApplicationContextValid);
  std::vector<uint8_t> again;
  pdu::EncodeAssociate(pdu::kAssociateRQ, request, again);
  EXPECT_EQ(again, kAssociateRQ);
}

// Every cut inside the fixed part or inside an item must be refused; a cut exactly between two
// items leaves a shorter but well-formed request.
TEST(AssociatePDU, TruncatedRequestsAreRefusedOrShorter) {
  const std::vector<size_t> itemBoundaries = {68, 68 + 25, 68 + 25 + 50};
  for (size_t length = 0; length < kAssociateRQ.size() - 6; ++length) {
    pdu::AssociatePDU request;
    bool read = pdu::DecodeAssociate(pdu::kAssociateRQ, kAssociateRQ.data() + 6, length, request);
    bool boundary = false;
    for (size_t b : itemBoundaries) boundary |= b == length;
    EXPECT_EQ(read, boundary) << "body cut at " << length;
  }
}

TEST(AssociatePDU, ItemLengthsThatLieAreRefused) {
  struct Case {
    size_t offset;  // of the high byte of a 16-bit item length in the whole PDU
    uint8_t high, low;
    const char* what;
  };
  const Case cases[] = {
      {74 + 2, 0x00, 0xFF, "application context longer than the PDU"},
      {99 + 2, 0xFF, 0xFF, "presentation context longer than the PDU"},
      {107 + 2, 0x00, 0x40, "abstract syntax longer than its context"},
      {149 + 2, 0x01, 0x00, "user information longer than the PDU"},
      {153 + 2, 0x00, 0x40, "maximum length sub-item longer than its item"},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> damaged = kAssociateRQ;
    damaged[c.offset] = c.high;
    damaged[c.offset + 1] = c.low;
    pdu::AssociatePDU request;
    EXPECT_FALSE(
        pdu::DecodeAssociate(pdu::kAssociateRQ, damaged.data() + 6, damaged.size() - 6, request))
        << c.what;
  }
}

TEST(AssociatePDU, UnknownItemsArePassedOverAndLongUIDsAreNotCut) {
  std::vector<uint8_t> bytes;
  pdu::AssociatePDU request = EchoRequest();
  request.ApplicationContext = UID();
  pdu::EncodeAssociate(pdu::kAssociateRQ, request, bytes);
  // Replace the (empty) application context with a 65-character name and add an unknown item.
  std::string longName(65, '1');
  std::vector<uint8_t> item = {0x10, 0x00, 0x00, 65};
  item.insert(item.end(), longName.begin(), longName.end());
  item.insert(item.end(), {0x77, 0x00, 0x00, 0x02, 0xAB, 0xCD});
  std::vector<uint8_t> body(bytes.begin() + 6, bytes.begin() + 6 + 68);
  body.insert(body.end(), item.begin(), item.end());
  body.insert(body.end(), bytes.begin() + 6 + 68 + 4, bytes.end());
  pdu::AssociatePDU read;
  ASSERT_TRUE(pdu::DecodeAssociate(pdu::kAssociateRQ, body.data(), body.size(), read));
  EXPECT_FALSE(read.ApplicationContextValid);
  EXPECT_TRUE(read.ApplicationContext.IsEmpty());
  EXPECT_EQ(read.Contexts.size(), 1u);
}

// A-ASSOCIATE-AC, PS3.8 Table 9-17: the answer holds one result per context.
TEST(AssociatePDU, AcceptRoundTrip) {
  pdu::AssociatePDU answer = EchoRequest();
  answer.Contexts.clear();
  for (uint8_t result : {0, 3, 4}) {
    PresentationContext context;
    context.PresentationContextID = static_cast<uint8_t>(1 + 2 * result);
    context.Result = result;
    context.AddTransferSyntax("1.2.840.10008.1.2");
    answer.Contexts.push_back(context);
  }
  std::vector<uint8_t> bytes;
  pdu::EncodeAssociate(pdu::kAssociateAC, answer, bytes);
  EXPECT_EQ(bytes[0], pdu::kAssociateAC);
  // The result byte of the first presentation context item (type 0x21).
  EXPECT_EQ(bytes[6 + 68 + 25], 0x21);
  pdu::AssociatePDU read;
  ASSERT_TRUE(pdu::DecodeAssociate(pdu::kAssociateAC, bytes.data() + 6, bytes.size() - 6, read));
  ASSERT_EQ(read.Contexts.size(), 3u);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(read.Contexts[i].PresentationContextID, answer.Contexts[i].PresentationContextID);
    EXPECT_EQ(read.Contexts[i].Result, answer.Contexts[i].Result);
    EXPECT_TRUE(read.Contexts[i].AbstractSyntax.IsEmpty());
  }
}

TEST(SmallPDUs, GoldenBytes) {
  struct Case {
    const char* what;
    std::vector<uint8_t> written;
    std::vector<uint8_t> golden;
  };
  std::vector<uint8_t> reject, releaseRQ, releaseRP, abort;
  pdu::EncodeReject(1, 2, 3, reject);
  pdu::EncodeRelease(pdu::kReleaseRQ, releaseRQ);
  pdu::EncodeRelease(pdu::kReleaseRP, releaseRP);
  pdu::EncodeAbort(2, 6, abort);
  uint8_t header[12];
  pdu::EncodeDataHeader(7, 0x03, 4096, header);
  const Case cases[] = {
      // type, reserved, length 4, reserved, result, source, reason (PS3.8 Table 9-21)
      {"A-ASSOCIATE-RJ", reject, {0x03, 0, 0, 0, 0, 4, 0, 1, 2, 3}},
      {"A-RELEASE-RQ", releaseRQ, {0x05, 0, 0, 0, 0, 4, 0, 0, 0, 0}},
      {"A-RELEASE-RP", releaseRP, {0x06, 0, 0, 0, 0, 4, 0, 0, 0, 0}},
      // type, reserved, length 4, two reserved, source, reason (PS3.8 Table 9-26)
      {"A-ABORT", abort, {0x07, 0, 0, 0, 0, 4, 0, 0, 2, 6}},
      // type, reserved, PDU length 4102, item length 4098, context 7, command + last fragment
      {"P-DATA-TF header",
       std::vector<uint8_t>(header, header + 12),
       {0x04, 0, 0x00, 0x00, 0x10, 0x06, 0x00, 0x00, 0x10, 0x02, 0x07, 0x03}},
  };
  for (const Case& c : cases) EXPECT_EQ(c.written, c.golden) << c.what;

  pdu::RejectFields fields;
  ASSERT_TRUE(pdu::DecodeReject(reject.data() + 6, 4, fields));
  EXPECT_EQ(fields.Result, 1);
  EXPECT_EQ(fields.Source, 2);
  EXPECT_EQ(fields.Reason, 3);
  EXPECT_FALSE(pdu::DecodeReject(reject.data() + 6, 3, fields));
}

}  // namespace
