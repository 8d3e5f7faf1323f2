#pragma once

// The association PDUs and their items as written and read (PS3.8 9.3): A-ASSOCIATE-RQ, -AC
// and -RJ, A-RELEASE-RQ and -RP, A-ABORT, and the P-DATA-TF header. All numbers on the wire
// are big endian. Encoders produce a whole PDU, header included; decoders take the PDU body
// (what follows the 6-byte header) and never read outside it.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kestrel/PresentationContext.h"
#include "kestrel/UID.h"

namespace KESTREL {
namespace pdu {

// PDU types, PS3.8 Table 9-1 ff.
constexpr uint8_t kAssociateRQ = 0x01;
constexpr uint8_t kAssociateAC = 0x02;
constexpr uint8_t kAssociateRJ = 0x03;
constexpr uint8_t kDataTF = 0x04;
constexpr uint8_t kReleaseRQ = 0x05;
constexpr uint8_t kReleaseRP = 0x06;
constexpr uint8_t kAbort = 0x07;

// Item types, PS3.8 Tables 9-12 to 9-16 and Annex D.
constexpr uint8_t kApplicationContextItem = 0x10;
constexpr uint8_t kPresentationContextRQItem = 0x20;
constexpr uint8_t kPresentationContextACItem = 0x21;
constexpr uint8_t kAbstractSyntaxItem = 0x30;
constexpr uint8_t kTransferSyntaxItem = 0x40;
constexpr uint8_t kUserInformationItem = 0x50;
constexpr uint8_t kMaximumLengthItem = 0x51;
constexpr uint8_t kImplementationClassItem = 0x52;
constexpr uint8_t kImplementationVersionItem = 0x55;

constexpr size_t kHeaderLength = 6;           // type, reserved, 32-bit length
constexpr size_t kAssociateFixedLength = 68;  // version to the end of the 32 reserved bytes
constexpr uint16_t kProtocolVersion = 1;

// P-DATA-TF message control header bits, PS3.8 E.2.
constexpr uint8_t kCommandBit = 0x01;
constexpr uint8_t kLastFragmentBit = 0x02;

// A-ABORT sources and provider reasons, PS3.8 Table 9-26.
constexpr uint8_t kAbortSourceUser = 0;
constexpr uint8_t kAbortSourceProvider = 2;
constexpr uint8_t kAbortReasonNotSpecified = 0;
constexpr uint8_t kAbortUnrecognizedPDU = 1;
constexpr uint8_t kAbortUnexpectedPDU = 2;
constexpr uint8_t kAbortInvalidParameter = 6;

struct UserInformation {
  uint32_t MaximumLength = 0;  // 0: no maximum-length sub-item
  std::string ImplementationClass;
  std::string ImplementationVersion;
};

// An A-ASSOCIATE-RQ or -AC. The AE title fields are the 16 bytes of the wire, blank padded,
// with a NUL after them.
struct AssociatePDU {
  uint16_t ProtocolVersion = kProtocolVersion;
  char CalledAE[17] = "                ";
  char CallingAE[17] = "                ";
  UID ApplicationContext;
  bool ApplicationContextValid = true;  // false when the name read was longer than 64
  // RQ: the proposed contexts. AC: one answer per context, with Result and one transfer syntax.
  std::vector<PresentationContext> Contexts;
  UserInformation User;
};

// Fills a 16-byte AE title field with blanks and copies `title` (at most 16 characters) in.
void SetAETitleField(char field[17], const char* title, size_t length);

// Whole PDUs, appended to `out`.
void EncodeAssociate(uint8_t type, const AssociatePDU& pdu, std::vector<uint8_t>& out);
void EncodeReject(uint8_t result, uint8_t source, uint8_t reason, std::vector<uint8_t>& out);
void EncodeRelease(uint8_t type, std::vector<uint8_t>& out);
void EncodeAbort(uint8_t source, uint8_t reason, std::vector<uint8_t>& out);
// The 12 bytes before a fragment in a P-DATA-TF holding one presentation data value.
void EncodeDataHeader(uint8_t contextID, uint8_t control, uint32_t fragmentLength, uint8_t out[12]);

// The body of an A-ASSOCIATE-RQ (`type` 1) or -AC (`type` 2). False when an item runs past the
// body or the fixed part is short. Items of unknown types, and unknown user information
// sub-items, are passed over. A UID longer than 64 characters is read as empty (an abstract
// syntax or transfer syntax) or marks the application context invalid.
[[nodiscard]] bool DecodeAssociate(uint8_t type, const uint8_t* body, size_t length,
                                   AssociatePDU& pdu);

struct RejectFields {
  uint8_t Result = 0;
  uint8_t Source = 0;
  uint8_t Reason = 0;
};
[[nodiscard]] bool DecodeReject(const uint8_t* body, size_t length, RejectFields& fields);

}  // namespace pdu
}  // namespace KESTREL
