#include "kestrel/FindProvider.h"

#include <memory>

#include "kestrel/DICOMObject.h"
#include "kestrel/DIMSEC.h"
#include "kestrel/PDU_Service.h"

namespace {

// Command set fields (PS3.7 Table E.1-1) and the C-CANCEL command (PS3.7 9.3.2.3).
constexpr uint16_t kCommandGroup = 0x0000;
constexpr uint16_t kCommandField = 0x0100;
constexpr uint16_t kMessageID = 0x0110;
constexpr uint16_t kMessageIDBeingRespondedTo = 0x0120;
constexpr uint16_t kCancelCommand = 0x0FFF;

enum class PeerInput { kNone, kCancel, kBroken };

// What the peer sent while the answer ran: nothing yet, a C-CANCEL for this request, or
// something the answer cannot go on after.
PeerInput ReadPeerInput(PDU_Service* pdu, DICOMCommandObject* request) {
  while (pdu->HasInput()) {
    DICOMCommandObject command;
    if (!pdu->Read(&command)) return PeerInput::kBroken;
    if (command.GetUInt16(kCommandGroup, kCommandField) != kCancelCommand)
      return PeerInput::kBroken;
    if (command.GetUInt16(kCommandGroup, kMessageIDBeingRespondedTo) ==
        request->GetUInt16(kCommandGroup, kMessageID))
      return PeerInput::kCancel;
  }
  return PeerInput::kNone;
}

}  // namespace

FindMatchSource::~FindMatchSource() = default;

uint16_t FindMatchSource::GetFailureStatus() { return 0; }

namespace KESTREL {

int AnswerFind(PDU_Service* pdu, DICOMCommandObject* request, FindMatchSource& source) {
  if (!pdu || !request) return 0;
  for (;;) {
    PeerInput input = ReadPeerInput(pdu, request);
    if (input == PeerInput::kBroken) return 0;
    if (input == PeerInput::kCancel)
      return CFindRSP::Write(pdu, request, DIMSEStatus::kCancel, nullptr);
    std::unique_ptr<DICOMDataObject> match(source.NextMatch());
    if (!match) break;
    if (!CFindRSP::Write(pdu, request, DIMSEStatus::kPending, match.get())) return 0;
  }
  uint16_t failure = source.GetFailureStatus();
  return CFindRSP::Write(pdu, request, failure ? failure : DIMSEStatus::kSuccess, nullptr);
}

}  // namespace KESTREL
