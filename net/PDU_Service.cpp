// Association set-up: the acceptance table, the requester's A-ASSOCIATE exchange and the
// acceptor's answer to a request (PS3.8 9.3.2 to 9.3.4).
#include "kestrel/PDU_Service.h"

#include <cctype>
#include <cstring>
#include <string>

#include "Counters.h"
#include "PDU_ServiceState.h"

namespace pdu = KESTREL::pdu;
using KESTREL::AcceptanceTable;

namespace {

constexpr char kImplicitLittleEndian[] = "1.2.840.10008.1.2";

// A-ASSOCIATE-RJ fields, PS3.8 Table 9-21: the acceptor's refusals are permanent and come from
// the service user, except a busy acceptor's, which is transient and the provider's.
constexpr uint8_t kRejectPermanent = 1;
constexpr uint8_t kRejectTransient = 2;
constexpr uint8_t kRejectSourceUser = 1;
constexpr uint8_t kRejectSourcePresentation = 3;
constexpr uint8_t kReasonNone = 1;
constexpr uint8_t kReasonApplicationContext = 2;
constexpr uint8_t kReasonCallingAE = 3;
constexpr uint8_t kReasonCalledAE = 7;
constexpr uint8_t kReasonLocalLimit = 2;

// An AE title field as the value it must be (PS3.5 Table 6.2-1, AE): characters of the default
// repertoire without the backslash and the control characters, blank or zero padded. Anything
// else could forge a line of a log or a file's Source AE.
bool IsAETitleField(const char field[16]) {
  bool padding = false;
  for (int i = 0; i < 16; ++i) {
    const auto c = static_cast<unsigned char>(field[i]);
    if (c == 0) {
      padding = true;
      continue;
    }
    if (padding && c != ' ') return false;
    if (c < 0x20 || c >= 0x7F || c == '\\') return false;
  }
  return true;
}

std::string Trimmed(const char* field) {
  std::string title(field);
  while (!title.empty() && title.back() == ' ') title.pop_back();
  return title;
}

// An AE title as the checks compare it: cut at its first white space.
std::string CutAtSpace(const char* title) {
  const char* end = title;
  while (*end && !std::isspace(static_cast<unsigned char>(*end))) ++end;
  return std::string(title, end);
}

bool ContainsSyntax(const PresentationContext& context, const UID& syntax) {
  for (const UID& proposed : context.TransferSyntaxes) {
    if (proposed == syntax) return true;
  }
  return false;
}

}  // namespace

PDU_Service::PDU_Service(const char* configFile) : state_(std::make_unique<State>(this)) {
  state_->table.Load(configFile);
}

PDU_Service::~PDU_Service() { socket_.Close(); }

int PDU_Service::ReadBytes(void* buffer, uint32_t length) { return socket_.Recv(buffer, length); }

int PDU_Service::SendBytes(const void* buffer, uint32_t length) {
  return socket_.Send(buffer, length);
}

bool PDU_Service::CheckTransferSyntax(const UID& uid) {
  return state_->table.Accepts(AcceptanceTable::kTransferSyntax, uid.ToString());
}

bool PDU_Service::CheckRemoteAE(const char* title) {
  return state_->table.Accepts(AcceptanceTable::kRemoteAE, CutAtSpace(title));
}

bool PDU_Service::CheckLocalAE(const char* title) {
  return state_->table.Accepts(AcceptanceTable::kLocalAE, CutAtSpace(title));
}

bool PDU_Service::CheckApplicationContext(const UID& uid) {
  return state_->table.Accepts(AcceptanceTable::kApplicationContext, uid.ToString());
}

bool PDU_Service::CheckExtra(const char* callingAE, const char* calledAE) { return true; }

bool PDU_Service::CheckAbstractSyntax(const UID& uid) {
  return state_->table.Accepts(AcceptanceTable::kAbstractSyntax, uid.ToString());
}

bool PDU_Service::AddDefaultTransferSyntaxes(PresentationContext& context) {
  context.AddTransferSyntax(kImplicitLittleEndian);
  return true;
}

bool PDU_Service::GetImplementationClass(std::string& uid) {
  return DICOMCodec::GetImplementationClass(uid);
}

bool PDU_Service::GetImplementationVersion(std::string& name) {
  return DICOMCodec::GetImplementationVersion(name);
}

int PDU_Service::SetApplicationContext(const UID& uid) {
  state_->request.ApplicationContext = uid;
  return 1;
}

bool PDU_Service::SetLocalAddress(const std::string& aeTitle) {
  if (aeTitle.size() > 16) return false;
  pdu::SetAETitleField(state_->request.CallingAE, aeTitle.data(), aeTitle.size());
  return true;
}

bool PDU_Service::SetRemoteAddress(const std::string& aeTitle) {
  if (aeTitle.size() > 16) return false;
  pdu::SetAETitleField(state_->request.CalledAE, aeTitle.data(), aeTitle.size());
  return true;
}

int PDU_Service::AddAbstractSyntax(const UID& uid) { return AddAbstractSyntax(uid, {}); }

int PDU_Service::AddAbstractSyntax(const UID& uid, const std::vector<UID>& transferSyntaxes) {
  state_->proposals.push_back({uid, transferSyntaxes});
  return 1;
}

bool PDU_Service::SendPDU(const std::vector<uint8_t>& bytes) {
  state_->transport.Write(bytes.data(), bytes.size());
  return state_->transport.Flush();
}

// Closes the connection; a listen socket (Multiplex) stays open.
void PDU_Service::Drop() {
  state_->associated = false;
  state_->dataLeft = 0;
  state_->messageStarted = false;
  state_->message.reset();
  state_->transport.DiscardInput();
  socket_.Disconnect();
}

void PDU_Service::AbortAndDrop(uint8_t source, uint8_t reason) {
  std::vector<uint8_t> bytes;
  pdu::EncodeAbort(source, reason, bytes);
  (void)SendPDU(bytes);  // a failure shows at the next read, or the connection goes now
  Drop();
}

// The reserved byte and length after a type byte, then the body. Bodies of association PDUs
// are small; a longer one is refused before anything is read into memory, and the body grows
// only as its bytes arrive.
bool PDU_Service::ReadAssociationBody(std::vector<uint8_t>& body) {
  uint8_t reserved;
  uint32_t length;
  if (!state_->transport.Read8(reserved) || !state_->transport.ReadBig32(length)) return false;
  if (length > kMaxAssociationPDU) return false;
  return state_->transport.ReadInto(body, length);
}

int PDU_Service::Connect(const char* host, const char* port, const char* transferSyntax) {
  State& state = *state_;
  state.associated = false;
  state.accepted.clear();
  if (state.proposals.empty()) return Failed(ConnectFailure::kNothingProposed);
  BuildRequest(transferSyntax);
  if (!socket_.Open(host, port)) return Failed(OpenFailureOf(socket_.GetOpenFailure()));
  state.transport.DiscardInput();
  std::vector<uint8_t> bytes;
  pdu::EncodeAssociate(pdu::kAssociateRQ, state.request, bytes);
  if (!SendPDU(bytes)) {
    Drop();
    return Failed(ConnectFailure::kClosed);
  }

  uint8_t type = 0;
  std::vector<uint8_t> body;
  if (!state.transport.Read8(type) || !ReadAssociationBody(body)) {
    ConnectFailure why =
        socket_.LastRecvTimedOut() ? ConnectFailure::kTimedOut : ConnectFailure::kClosed;
    Drop();
    return Failed(why);
  }
  if (type == pdu::kAssociateRJ) {
    // A malformed rejection leaves its fields 0: an unexplained rejection.
    (void)pdu::DecodeReject(body.data(), body.size(), state.reject);
    Drop();
    return Failed(ConnectFailure::kRejected);
  }
  if (type == pdu::kAbort) {
    Drop();
    return Failed(ConnectFailure::kAborted);
  }
  pdu::AssociatePDU answer;
  if (type != pdu::kAssociateAC ||
      !pdu::DecodeAssociate(pdu::kAssociateAC, body.data(), body.size(), answer)) {
    Drop();
    return Failed(ConnectFailure::kBadAnswer);
  }
  state.peer = answer.User;
  KeepAcceptedContexts(answer);
  if (state.accepted.empty()) {
    Drop();
    return Failed(ConnectFailure::kNoContext);
  }
  state.connectFailure = ConnectFailure::kNone;
  state.associated = true;
  return 1;
}

int PDU_Service::Failed(ConnectFailure why) {
  state_->connectFailure = why;
  return 0;
}

PDU_Service::ConnectFailure PDU_Service::OpenFailureOf(Socket::OpenFailure failure) {
  switch (failure) {
    case Socket::OpenFailure::kHostUnknown:
      return ConnectFailure::kHostUnknown;
    case Socket::OpenFailure::kServiceUnknown:
      return ConnectFailure::kServiceUnknown;
    default:
      return ConnectFailure::kConnect;
  }
}

// The A-ASSOCIATE-RQ: one presentation context per abstract syntax added, each with the
// transfer syntaxes added with it, else `transferSyntax` alone, else the default ones.
void PDU_Service::BuildRequest(const char* transferSyntax) {
  State& state = *state_;
  state.request.Contexts.clear();
  // Every presentation context made draws an ID, this scratch one too; each proposed context
  // then draws its own, so the IDs of one request are odd and increasing, not adjacent.
  PresentationContext scratch;
  for (const State::Proposal& proposal : state.proposals) {
    PresentationContext context;
    context.PresentationContextID = KESTREL::DrawPresentationContextID();
    context.AbstractSyntax = proposal.abstractSyntax;
    if (!proposal.transferSyntaxes.empty())
      context.TransferSyntaxes = proposal.transferSyntaxes;
    else if (transferSyntax)
      context.AddTransferSyntax(transferSyntax);
    else
      AddDefaultTransferSyntaxes(context);
    state.request.Contexts.push_back(std::move(context));
  }
  state.request.User.MaximumLength = kMaximumLength;
  GetImplementationClass(state.request.User.ImplementationClass);
  GetImplementationVersion(state.request.User.ImplementationVersion);
}

// Only contexts we proposed, accepted with a transfer syntax we proposed for them, count.
void PDU_Service::KeepAcceptedContexts(const KESTREL::pdu::AssociatePDU& answer) {
  State& state = *state_;
  for (const PresentationContext& result : answer.Contexts) {
    if (result.Result != PresentationContext::kAcceptance || result.TransferSyntaxes.size() != 1)
      continue;
    for (const PresentationContext& proposed : state.request.Contexts) {
      if (proposed.PresentationContextID != result.PresentationContextID ||
          !ContainsSyntax(proposed, result.TransferSyntaxes[0]))
        continue;
      PresentationContext accepted = result;
      accepted.AbstractSyntax = proposed.AbstractSyntax;
      state.accepted.push_back(std::move(accepted));
      break;
    }
  }
}

int PDU_Service::Listen(const char* port) {
  if (!socket_.Listen(port) || !socket_.Accept()) return 0;
  return AnswerRequest();
}

int PDU_Service::Multiplex(const char* port) {
  if (!socket_.Listen(port)) return 0;
  for (;;) {
    if (!socket_.Accept()) return 0;
    if (AnswerRequest()) return 1;
  }
}

int PDU_Service::ServeSocket(int handle) {
  if (!socket_.Attach(handle)) return 0;
  if (AnswerRequest()) return 1;
  socket_.Close();
  return 0;
}

// Reads the A-ASSOCIATE-RQ of a newly connected peer and accepts or rejects it (PS3.8 9.3.2 to
// 9.3.4). A peer that sends anything else, or a malformed or oversized request, is aborted.
int PDU_Service::AnswerRequest() {
  State& state = *state_;
  state.associated = false;
  state.accepted.clear();
  state.request = pdu::AssociatePDU();
  state.transport.DiscardInput();
  if (!ReadRequest()) return 0;
  uint8_t reason = CheckRequest();
  pdu::AssociatePDU answer;
  if (!reason && !NegotiateContexts(answer)) reason = kReasonNone;
  const bool busy = !reason && !CheckCapacity();
  if (reason || busy) {
    std::vector<uint8_t> bytes;
    if (busy)
      pdu::EncodeReject(kRejectTransient, kRejectSourcePresentation, kReasonLocalLimit, bytes);
    else
      pdu::EncodeReject(kRejectPermanent, kRejectSourceUser, reason, bytes);
    (void)SendPDU(bytes);  // a failure shows at the next read, or the connection goes now
    state.accepted.clear();
    Drop();
    return 0;
  }
  SendAccept(answer);
  state.associated = true;
  return 1;
}

// The A-ASSOCIATE-RQ of a newly connected peer; a peer that sends anything else, or a
// malformed or oversized request, is aborted.
bool PDU_Service::ReadRequest() {
  State& state = *state_;
  uint8_t type = 0;
  if (!state.transport.Read8(type)) {
    Drop();
    return false;
  }
  if (type != pdu::kAssociateRQ) {
    AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortUnexpectedPDU);
    return false;
  }
  std::vector<uint8_t> body;
  if (!ReadAssociationBody(body) ||
      !pdu::DecodeAssociate(pdu::kAssociateRQ, body.data(), body.size(), state.request)) {
    AbortAndDrop(pdu::kAbortSourceProvider, pdu::kAbortInvalidParameter);
    return false;
  }
  state.peer = state.request.User;
  return true;
}

// The checks of the request in their order; the reason of the first refusal, 0 for none.
uint8_t PDU_Service::CheckRequest() {
  const pdu::AssociatePDU& request = state_->request;
  if (!request.ApplicationContextValid || !CheckApplicationContext(request.ApplicationContext))
    return kReasonApplicationContext;
  if (!IsAETitleField(request.CallingAE) || !CheckRemoteAE(request.CallingAE))
    return kReasonCallingAE;
  if (!IsAETitleField(request.CalledAE) || !CheckLocalAE(request.CalledAE)) return kReasonCalledAE;
  if (!CheckExtra(request.CallingAE, request.CalledAE)) return kReasonNone;
  return 0;
}

// The answer for every proposed context: the first transfer syntax of ours it offers, or the
// reason it is refused. False when none is accepted.
bool PDU_Service::NegotiateContexts(pdu::AssociatePDU& answer) {
  State& state = *state_;
  for (const PresentationContext& proposed : state.request.Contexts) {
    PresentationContext result = proposed;  // a copy draws no ID
    result.TransferSyntaxes.clear();
    result.Result = PresentationContext::kTransferSyntaxesNotSupported;
    for (const UID& syntax : proposed.TransferSyntaxes) {
      if (!CheckTransferSyntax(syntax)) continue;
      result.Result = PresentationContext::kAcceptance;
      result.TransferSyntaxes.push_back(syntax);
      break;
    }
    if (proposed.AbstractSyntax.IsEmpty() || !CheckAbstractSyntax(proposed.AbstractSyntax))
      result.Result = PresentationContext::kAbstractSyntaxNotSupported;
    if (result.Result == PresentationContext::kAcceptance) state.accepted.push_back(result);
    // A refused context still names one transfer syntax, which the peer ignores (PS3.8
    // 9.3.3.2).
    if (result.TransferSyntaxes.empty())
      result.TransferSyntaxes.push_back(proposed.TransferSyntaxes.empty()
                                            ? UID(kImplicitLittleEndian)
                                            : proposed.TransferSyntaxes[0]);
    result.AbstractSyntax = UID();
    answer.Contexts.push_back(std::move(result));
  }
  return !state.accepted.empty();
}

void PDU_Service::SendAccept(pdu::AssociatePDU& answer) {
  const pdu::AssociatePDU& request = state_->request;
  std::memcpy(answer.CalledAE, request.CalledAE, sizeof answer.CalledAE);
  std::memcpy(answer.CallingAE, request.CallingAE, sizeof answer.CallingAE);
  answer.ApplicationContext = request.ApplicationContext;
  answer.User.MaximumLength = kMaximumLength;
  GetImplementationClass(answer.User.ImplementationClass);
  GetImplementationVersion(answer.User.ImplementationVersion);
  std::vector<uint8_t> bytes;
  pdu::EncodeAssociate(pdu::kAssociateAC, answer, bytes);
  (void)SendPDU(bytes);  // a failure shows at the next read, or the connection goes now
}

bool PDU_Service::IsAssociated() const { return state_->associated; }
PDU_Service::ConnectFailure PDU_Service::GetConnectFailure() const {
  return state_->connectFailure;
}
int PDU_Service::GetConnectError() const { return socket_.GetError(); }

bool PDU_Service::HasInput() const {
  return state_->dataLeft != 0 || state_->transport.HasQueuedInput() || socket_.HasInput();
}
int PDU_Service::GetRejectResult() const { return state_->reject.Result; }
int PDU_Service::GetRejectSource() const { return state_->reject.Source; }
int PDU_Service::GetRejectReason() const { return state_->reject.Reason; }
std::string PDU_Service::GetCallingAETitle() const { return Trimmed(state_->request.CallingAE); }
std::string PDU_Service::GetCalledAETitle() const { return Trimmed(state_->request.CalledAE); }
std::string PDU_Service::GetLocalAETitle() const { return GetCallingAETitle(); }

const std::vector<PresentationContext>& PDU_Service::GetProposedContexts() const {
  return state_->request.Contexts;
}

const std::vector<PresentationContext>& PDU_Service::GetAcceptedContexts() const {
  return state_->accepted;
}

const PresentationContext* PDU_Service::FindAcceptedContext(const UID& abstractSyntax) const {
  const PresentationContext* found = nullptr;
  for (const PresentationContext& context : state_->accepted) {
    if (context.AbstractSyntax != abstractSyntax) continue;
    if (context.PresentationContextID == state_->lastContext) return &context;
    if (!found) found = &context;
  }
  return found;
}

const PresentationContext* PDU_Service::FindAcceptedContext(uint8_t contextID) const {
  for (const PresentationContext& context : state_->accepted) {
    if (context.PresentationContextID == contextID) return &context;
  }
  return nullptr;
}

uint8_t PDU_Service::GetLastPresentationContextID() const { return state_->lastContext; }
uint32_t PDU_Service::GetPeerMaximumLength() const { return state_->peer.MaximumLength; }
int PDU_Service::SetTimeout(uint32_t seconds) { return socket_.SetTimeout(seconds); }
uint32_t PDU_Service::GetTimeout() const { return socket_.GetTimeout(); }
