#pragma once

// What a PDU_Service holds beside its socket; shared by the two source files of the class.

#include <memory>
#include <vector>

#include "AcceptanceTable.h"
#include "MessageBytes.h"
#include "PDUItems.h"
#include "TransportBuffer.h"
#include "kestrel/ByteBuffer.h"
#include "kestrel/PDU_Service.h"

struct PDU_Service::State {
  explicit State(PDU_Service* owner)
      : transport(
            [owner](void* data, uint32_t length) { return owner->ReadBytes(data, length); },
            [owner](const void* data, uint32_t length) { return owner->SendBytes(data, length); }) {
  }

  KESTREL::TransportBuffer transport;
  // P-DATA-TF PDUs built for one send (FragmentSink); kept from message to message.
  std::vector<uint8_t> gather;
  KESTREL::AcceptanceTable table;
  // The A-ASSOCIATE-RQ being built (requester) or the one received (acceptor).
  KESTREL::pdu::AssociatePDU request;
  // The peer's user information, from its -AC or -RQ.
  KESTREL::pdu::UserInformation peer;
  std::vector<PresentationContext> accepted;
  KESTREL::pdu::RejectFields reject;
  struct Proposal {
    UID abstractSyntax;
    std::vector<UID> transferSyntaxes;  // empty: as Connect is told
  };
  std::vector<Proposal> proposals;  // to propose at the next Connect
  PDU_Service::ConnectFailure connectFailure = PDU_Service::ConnectFailure::kNone;
  bool associated = false;

  // The P-DATA reader: bytes of the current P-DATA-TF not read yet (its later values belong
  // to the next message once one is complete), and the message being assembled.
  uint32_t dataLeft = 0;
  bool messageStarted = false;
  uint8_t messageContext = 0;
  bool messageCommand = false;
  std::unique_ptr<KESTREL::MessageBytes> message;
  bool sinkTakes = false;     // ReadInto's sink has taken every byte so far
  uint64_t messageLimit = 0;  // SetMessageLimit
  uint8_t lastContext = 0;
};
