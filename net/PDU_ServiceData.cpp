// Carrying messages on an association: P-DATA-TF writing and reading (PS3.8 9.3.5 and Annex
// E), release (9.3.6, 9.3.7) and abort (9.3.8).
#include <algorithm>
#include <cstring>

#include "PDU_ServiceState.h"
#include "kestrel/PDU_Service.h"

namespace pdu = KESTREL::pdu;

namespace {

// The transfer syntax reported (and used to decode a data set) when a value arrives on a
// context that was not accepted.
constexpr char kFallbackTransferSyntax[] = "1.2.840.10008.1.2";
constexpr int kModeImplicitLittle = 100;

// Each presentation data value: a 4-byte item length, the context ID and the message control
// header (PS3.8 Table 9-23), then at least no bytes of the fragment.
constexpr uint32_t kValueHeader = 6;
constexpr size_t kEncodeBlock = 64 * 1024;

// PDUs gathered before a send: 64 PDUs of a full fragment, about 256 KiB, so that a large
// data set costs one system call per 256 KiB rather than one per 4 KB fragment.
constexpr size_t kPDULength = 12 + PDU_Service::kFragmentLength;
constexpr size_t kGatherPDUs = 64;

// Cuts an encoded message into P-DATA-TF PDUs of one value each, fragments of at most 4096
// bytes (PS3.8 9.3.5). A full fragment is closed only once more bytes follow it, so that the
// one Finish closes is the last and carries the last-fragment bit. The PDUs are built in place
// in `gather` and handed to the connection whole, many at a time: a send never ends inside a
// PDU unless the connection fails, and then nothing more is sent on it.
class FragmentSink : public ByteBuffer::Sink {
 public:
  FragmentSink(KESTREL::TransportBuffer& out, Socket& socket, std::vector<uint8_t>& gather,
               uint8_t contextID, bool command)
      : out_(out),
        socket_(socket),
        gather_(gather),
        contextID_(contextID),
        control_(command ? pdu::kCommandBit : 0) {
    gather_.clear();
  }

  bool Write(const void* data, size_t length) override {
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (length) {
      if (!open_ || Filled() == PDU_Service::kFragmentLength) {
        if (open_) Close(false);
        if (gather_.size() + kPDULength > kGatherPDUs * kPDULength && !Send(true)) return false;
        header_ = gather_.size();
        gather_.resize(header_ + 12);
        open_ = true;
      }
      size_t n = std::min(length, PDU_Service::kFragmentLength - Filled());
      gather_.insert(gather_.end(), bytes, bytes + n);
      bytes += n;
      length -= n;
    }
    return true;
  }
  // Closes and sends the last fragment; an empty message sends nothing.
  bool Finish() {
    if (!open_) return true;
    Close(true);
    return Send(false);
  }
  bool Started() const { return started_; }

 private:
  size_t Filled() const { return gather_.size() - header_ - 12; }

  void Close(bool last) {
    pdu::EncodeDataHeader(contextID_, control_ | (last ? pdu::kLastFragmentBit : 0),
                          static_cast<uint32_t>(Filled()), gather_.data() + header_);
    open_ = false;
  }

  // Sends the closed PDUs gathered. All but the last send of a message go as "more follows",
  // so that the kernel fills its segments rather than pushing out each send on its own.
  bool Send(bool more) {
    started_ = true;
    socket_.SetMoreToFollow(more);
    bool sent = out_.Send(gather_.data(), gather_.size());
    socket_.SetMoreToFollow(false);
    gather_.clear();
    return sent;
  }

  KESTREL::TransportBuffer& out_;
  Socket& socket_;
  std::vector<uint8_t>& gather_;
  uint8_t contextID_;
  uint8_t control_;
  size_t header_ = 0;  // offset of the open PDU in gather_
  bool open_ = false;
  bool started_ = false;
};

}  // namespace

int PDU_Service::WriteOnContext(DICOMObject* object, uint8_t contextID, bool command) {
  if (!state_->associated || !object) return 0;
  const PresentationContext* context = FindAcceptedContext(contextID);
  if (!context || context->TransferSyntaxes.empty()) return 0;
  int mode =
      command ? kModeImplicitLittle : TransferSyntaxMode(context->TransferSyntaxes[0].GetBuffer());
  if (!mode) return 0;
  // The encoding streams into the fragments as it is made, in blocks of kEncodeBlock, so a
  // large data set is never held twice; the fragments are those of the whole encoded object.
  FragmentSink sink(state_->transport, socket_, state_->gather, contextID, command);
  ByteBuffer encoded;
  encoded.AttachSink(&sink, kEncodeBlock);
  bool encodedAll = Encode(object, encoded, mode, true) && encoded.Flush();
  if (!encodedAll || !sink.Finish()) {
    // Part of the message may be out: the association cannot go on.
    if (sink.Started()) AbortAndDrop(pdu::kAbortSourceUser, pdu::kAbortReasonNotSpecified);
    return 0;
  }
  return 1;
}

int PDU_Service::Write(DICOMCommandObject* commandSet, const UID& abstractSyntax) {
  const PresentationContext* context = FindAcceptedContext(abstractSyntax);
  if (!context) return 0;
  return WriteOnContext(commandSet, context->PresentationContextID, true);
}

int PDU_Service::Write(DICOMDataObject* dataSet, const UID& abstractSyntax) {
  const PresentationContext* context = FindAcceptedContext(abstractSyntax);
  if (!context) return 0;
  return WriteOnContext(dataSet, context->PresentationContextID, false);
}

int PDU_Service::Read(DICOMObject* object) {
  UID ignored;
  return Read(object, ignored);
}

int PDU_Service::Read(DICOMObject* object, UID& transferSyntax) {
  State& state = *state_;
  if (!state.associated || !object) return 0;
  state.message = std::make_unique<KESTREL::MessageBytes>();
  if (!ReadMessage(nullptr)) return 0;
  return FinishMessage(object, transferSyntax);
}

int PDU_Service::ReadInto(ByteBuffer::Sink& sink, UID& transferSyntax) {
  State& state = *state_;
  if (!state.associated) return 0;
  state.message.reset();
  state.sinkTakes = true;
  if (!ReadMessage(&sink)) return 0;
  state.messageStarted = false;
  transferSyntax = SyntaxOfContext(state.messageContext);
  state.lastContext = state.messageContext;
  return 1;
}

void PDU_Service::SetMessageLimit(uint64_t bytes) { state_->messageLimit = bytes; }

bool PDU_Service::WaitForInput(uint32_t milliseconds) const {
  return state_->dataLeft != 0 || state_->transport.HasQueuedInput() ||
         socket_.WaitForInput(milliseconds);
}

bool PDU_Service::CheckCapacity() { return true; }

// Reads P-DATA-TF values until a message is complete: its bytes are kept in the message being
// assembled, or handed to `sink` when there is one. False when the association ended.
bool PDU_Service::ReadMessage(ByteBuffer::Sink* sink) {
  State& state = *state_;
  state.messageStarted = false;
  for (;;) {
    if (state.dataLeft) {
      bool complete = false;
      if (!ReadValue(sink, complete)) return false;
      if (complete) return true;
      continue;
    }
    uint8_t type;
    if (!state.transport.Read8(type)) {
      // Nothing came before the time-out, or the peer went away: no A-ABORT.
      Drop();
      return false;
    }
    if (type != pdu::kDataTF) return ReadOtherPDU(type) != 0;
    uint8_t reserved;
    uint32_t length;
    if (!state.transport.Read8(reserved) || !state.transport.ReadBig32(length)) {
      Drop();
      return false;
    }
    if (length < kValueHeader) {
      AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortInvalidParameter);
      return false;
    }
    state.dataLeft = length;
  }
}

// One presentation data value of the current P-DATA-TF, appended to the message being
// assembled or handed to `sink`. Every value of a message must carry the same context and
// kind; bytes are taken as they arrive, never allocated ahead on the word of a length.
int PDU_Service::ReadValue(ByteBuffer::Sink* sink, bool& complete) {
  State& state = *state_;
  uint32_t itemLength;
  uint8_t contextID, control;
  if (state.dataLeft < kValueHeader) {
    AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortInvalidParameter);
    return 0;
  }
  if (!state.transport.ReadBig32(itemLength) || !state.transport.Read8(contextID) ||
      !state.transport.Read8(control)) {
    Drop();
    return 0;
  }
  state.dataLeft -= kValueHeader;
  const bool command = (control & pdu::kCommandBit) != 0;
  if (itemLength < 2 || itemLength - 2 > state.dataLeft ||
      (state.messageStarted &&
       (contextID != state.messageContext || command != state.messageCommand))) {
    AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortInvalidParameter);
    return 0;
  }
  if (!state.messageStarted) {
    if (sink && command) {  // a command set where a data set was awaited
      AbortAndDrop(pdu::kAbortSourceUser, pdu::kAbortReasonNotSpecified);
      return 0;
    }
    state.messageStarted = true;
    state.messageContext = contextID;
    state.messageCommand = command;
  }
  const uint32_t fragment = itemLength - 2;
  if (!sink && state.messageLimit && state.message->Size() + fragment > state.messageLimit) {
    AbortAndDrop(pdu::kAbortSourceUser, pdu::kAbortReasonNotSpecified);
    return 0;
  }
  const bool read = sink ? state.transport.ReadTo(*sink, fragment, state.sinkTakes)
                         : state.message->Append(state.transport, fragment);
  if (!read) {
    Drop();
    return 0;
  }
  state.dataLeft -= fragment;
  complete = (control & pdu::kLastFragmentBit) != 0;
  return 1;
}

UID PDU_Service::SyntaxOfContext(uint8_t contextID) const {
  const PresentationContext* context = FindAcceptedContext(contextID);
  return context && !context->TransferSyntaxes.empty() ? context->TransferSyntaxes[0]
                                                       : UID(kFallbackTransferSyntax);
}

// Decodes a complete message into `object`: a command set in implicit VR little endian, a data
// set in the transfer syntax of its context.
int PDU_Service::FinishMessage(DICOMObject* object, UID& transferSyntax) {
  State& state = *state_;
  std::unique_ptr<KESTREL::MessageBytes> message = std::move(state.message);
  ByteBuffer bytes;
  bytes.AttachSource(message.get());
  state.messageStarted = false;
  const bool commandObject = dynamic_cast<DICOMCommandObject*>(object) != nullptr;
  const bool dataObject = dynamic_cast<DICOMDataObject*>(object) != nullptr;
  transferSyntax = SyntaxOfContext(state.messageContext);
  int mode =
      state.messageCommand ? kModeImplicitLittle : TransferSyntaxMode(transferSyntax.GetBuffer());
  bool wrongKind = (state.messageCommand && dataObject) || (!state.messageCommand && commandObject);
  if (wrongKind || !mode || !Decode(bytes, object, mode)) {
    AbortAndDrop(pdu::kAbortSourceUser, pdu::kAbortReasonNotSpecified);
    return 0;
  }
  state.lastContext = state.messageContext;
  return 1;
}

// A PDU other than P-DATA-TF while a message was awaited.
int PDU_Service::ReadOtherPDU(uint8_t type) {
  std::vector<uint8_t> body;
  switch (type) {
    case pdu::kReleaseRQ: {
      if (ReadAssociationBody(body)) {
        std::vector<uint8_t> bytes;
        pdu::EncodeRelease(pdu::kReleaseRP, bytes);
        (void)SendPDU(bytes);  // a failure shows at the next read, or the connection goes now
      }
      Drop();
      return 0;
    }
    case pdu::kReleaseRP:
    case pdu::kAbort:
      Drop();
      return 0;
    case pdu::kAssociateRQ:
    case pdu::kAssociateAC:
    case pdu::kAssociateRJ:
      // An association PDU in the middle of an association.
      if (!ReadAssociationBody(body)) {
        Drop();
        return 0;
      }
      AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortUnexpectedPDU);
      return 0;
    default:
      AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortUnrecognizedPDU);
      return 0;
  }
}

// Sends A-RELEASE-RQ and waits for the -RP, passing over any late P-DATA-TF; an abort, an
// unexpected PDU or the time-out end the wait. The connection is closed in every case.
int PDU_Service::Close() {
  State& state = *state_;
  if (state.associated) {
    std::vector<uint8_t> bytes;
    pdu::EncodeRelease(pdu::kReleaseRQ, bytes);
    (void)SendPDU(bytes);  // a failure shows at the next read, or the connection goes now
    for (;;) {
      uint8_t type, reserved;
      uint32_t length;
      if (!state.transport.Read8(type) || !state.transport.Read8(reserved) ||
          !state.transport.ReadBig32(length))
        break;
      if (type != pdu::kDataTF) break;
      if (!state.transport.Skip(length)) break;
    }
  }
  Drop();
  socket_.Close();
  return 1;
}

int PDU_Service::Abort() {
  if (socket_.IsConnected()) {
    std::vector<uint8_t> bytes;
    pdu::EncodeAbort(pdu::kAbortSourceUser, pdu::kAbortReasonNotSpecified, bytes);
    (void)SendPDU(bytes);  // a failure shows at the next read, or the connection goes now
  }
  Drop();
  socket_.Close();
  return 1;
}
